// The figures of a service: how they are shared, and how they are told.
#include "serve/status.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "serve/status_server.h"
#include "support/failing_memory.h"

namespace {

using namespace tarn::server;
using tarn::Bytes;
using namespace tarn_test;

// ---- Sharing -------------------------------------------------------------------------------------

// Figures in memory that processes share, as it is new.
class SharedFigures {
 public:
  SharedFigures()
      : figures_(static_cast<Figures *>(mmap(nullptr, sizeof(Figures), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~SharedFigures() { munmap(figures_, sizeof *figures_); }
  SharedFigures(const SharedFigures &) = delete;
  SharedFigures &operator=(const SharedFigures &) = delete;

  Figures &operator*() const { return *figures_; }

 private:
  Figures *figures_;
};

TEST(Figures, CannotBeReadBeforeAWorkerCounts) {
  const SharedFigures shared;
  auto counters = std::make_unique<Counters>();
  Gauges gauges;
  EXPECT_FALSE((*shared).read(*counters, gauges));
  (*shared).begin();
  ASSERT_TRUE((*shared).read(*counters, gauges));
  EXPECT_EQ(counters->begun, 0U);
  EXPECT_EQ(counters->endedInAll(), 0U);
}

TEST(Figures, AreReadAsOfOneMoment) {
  const SharedFigures shared;
  Figures &figures = *shared;
  figures.begin();
  const pid_t writer = fork();
  if (writer == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
      {
        const Figures::Change change(figures);
        ++change->begun;
        ++change->ended[0];
        ++change->connections;
        change->times.add(change->begun);
        ++change.gauges().running;
      }
      usleep(20);
    }
  }
  auto counters = std::make_unique<Counters>();
  Gauges gauges;
  uint64_t last = 0;
  int changed = 0;
  for (int i = 0; i < 1000000 && changed < 1000; ++i) {
    ASSERT_TRUE(figures.read(*counters, gauges));
    ASSERT_EQ(counters->ended[0], counters->begun);
    ASSERT_EQ(counters->connections, counters->begun);
    ASSERT_EQ(counters->times.count(), counters->begun);
    ASSERT_EQ(counters->times.longest(), counters->begun);
    ASSERT_EQ(gauges.running, counters->begun);
    changed += counters->begun != last;
    last = counters->begun;
  }
  kill(writer, SIGKILL);
  waitpid(writer, nullptr, 0);
  EXPECT_EQ(changed, 1000);
}

TEST(Figures, CanBeReadAfterAWorkerDiedInTheMiddle) {
  const SharedFigures shared;
  Figures &figures = *shared;
  figures.begin();
  const pid_t writer = fork();
  if (writer == 0) {
    const Figures::Change change(figures);
    change->begun = 5;
    _exit(0);
  }
  waitpid(writer, nullptr, 0);
  auto counters = std::make_unique<Counters>();
  Gauges gauges;
  ASSERT_TRUE(figures.read(*counters, gauges));
  EXPECT_EQ(counters->begun, 5U);
}

TEST(Figures, OfWorkersAddUp) {
  const auto sum = std::make_unique<Counters>();
  const auto one = std::make_unique<Counters>();
  // Every number is another one.
  auto *numbers = reinterpret_cast<uint64_t *>(one.get());
  const size_t count = sizeof *one / sizeof *numbers;
  for (size_t i = 0; i < count; ++i) numbers[i] = i + 1;
  sum->add(*one);
  sum->add(*one);
  const auto *sums = reinterpret_cast<const uint64_t *>(sum.get());
  size_t other = 0;
  for (size_t i = 0; i < count; ++i) other += sums[i] != 2 * numbers[i];
  // The longest time is no sum.
  EXPECT_EQ(other, 2U);
  EXPECT_EQ(sum->times.longest(), one->times.longest());
  EXPECT_EQ(sum->waits.longest(), one->waits.longest());

  Gauges gauges;
  Gauges gauge;
  auto *values = reinterpret_cast<uint32_t *>(&gauge);
  for (size_t i = 0; i < sizeof gauge / sizeof *values; ++i) values[i] = static_cast<uint32_t>(i);
  gauges.add(gauge);
  gauges.add(gauge);
  for (size_t i = 0; i < sizeof gauge / sizeof *values; ++i) {
    EXPECT_EQ(reinterpret_cast<const uint32_t *>(&gauges)[i], 2 * i);
  }
}

// ---- Text ----------------------------------------------------------------------------------------

// All figures are as large as they can be.
std::unique_ptr<Status> largeStatus() {
  auto status = std::make_unique<Status>();
  Counters &counters = status->counters;
  constexpr uint64_t kMuch = 999999999999;
  counters.begun = counters.connections = counters.not_fastcgi = counters.lost_lines = kMuch;
  counters.received_bytes = counters.sent_bytes = UINT64_MAX;
  for (uint64_t &ended : counters.ended) ended = 999999999;
  for (uint64_t &answers : counters.answers) answers = kMuch;
  counters.times.add(UINT64_MAX);
  counters.times.add(123456);
  status->gauges = {4096, 4096, 4096, 4096, 4096, 4096, 1000000000, 1000000000};
  status->workers = 32;
  status->started_workers = status->failed_workers = kMuch;
  status->since = 4102444799;
  status->age = kMuch;
  return status;
}

std::vector<std::string> linesOf(const Bytes &text) {
  std::vector<std::string> lines;
  std::istringstream stream{std::string(text.view())};
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(StatusText, IsCompleteAndNarrow) {
  const auto large = largeStatus();
  Bytes text;
  ASSERT_TRUE(writeStatus(*large, text));
  const std::string whole(text.view());
  for (size_t i = 1; i < kFailures; ++i) {
    EXPECT_NE(whole.find(explanationOf(static_cast<Failure>(i))), std::string::npos) << i;
  }
  for (const std::string &line : linesOf(text)) {
    EXPECT_LE(line.size(), 79U) << line;
  }
  EXPECT_NE(whole.find("since 2099-12-31 23:59:59 UTC"), std::string::npos) << whole;

  Bytes small;
  ASSERT_TRUE(writeStatus(*std::make_unique<Status>(), small));
  for (const std::string &line : linesOf(small)) EXPECT_LE(line.size(), 79U) << line;
  EXPECT_NE(small.view().find("none is ready"), std::string::npos);
  EXPECT_NE(small.view().find("(0:00:00)"), std::string::npos);
}

TEST(StatusText, HasTimesWithTheirUnit) {
  const struct {
    uint64_t time;
    const char *text;
  } times[] = {{1, " 1 us"},           {999, " 999 us"},    {1000, " 1.0 ms"},
               {9999, " 9.9 ms"},      {10000, " 10 ms"},   {999999, " 999 ms"},
               {1000000, " 1.0 s"},    {2345678, " 2.3 s"}, {12345678, " 12 s"},
               {3600000000, " 3600 s"}};
  for (const auto &[time, expected] : times) {
    auto status = std::make_unique<Status>();
    status->counters.times.add(time);
    Bytes text;
    ASSERT_TRUE(writeStatus(*status, text));
    EXPECT_NE(text.view().find(expected), std::string::npos) << text.view();
  }
}

// Every bound must be one of the histogram, or counts up to it would be wrong.
TEST(Metrics, HaveBucketsThatCanBeCounted) {
  auto status = std::make_unique<Status>();
  status->counters.times.add(100);
  status->counters.times.add(101);
  Bytes text;
  ASSERT_TRUE(writeMetrics(*status, text));
  uint64_t before = 0;
  size_t count = 0;
  for (const std::string &line : linesOf(text)) {
    const std::string start = "tarn_serve_request_duration_seconds_bucket{le=\"";
    if (!line.starts_with(start) || line.starts_with(start + "+Inf")) continue;
    const double seconds = std::strtod(line.c_str() + start.size(), nullptr);
    const auto time = static_cast<uint64_t>(seconds * 1e6 + 0.5);
    EXPECT_EQ(Histogram::bound(Histogram::bucketOf(time)), time) << line;
    EXPECT_GT(time, before);
    EXPECT_TRUE(line.ends_with(time == 100 ? " 1" : " 2")) << line;
    before = time;
    ++count;
  }
  EXPECT_GT(count, 15U);
}

// A program may have set a locale with a decimal comma.
TEST(Metrics, DoNotDependOnTheLocale) {
  const char *const before = std::setlocale(LC_ALL, nullptr);
  const std::string old = before ? before : "C";
  const auto status = largeStatus();
  Bytes plain;
  ASSERT_TRUE(writeMetrics(*status, plain) && writeStatus(*status, plain));
  for (const char *name : {"de_DE.UTF-8", "fr_FR.UTF-8", "C.UTF-8"}) {
    if (!std::setlocale(LC_ALL, name)) continue;
    Bytes local;
    EXPECT_TRUE(writeMetrics(*status, local) && writeStatus(*status, local));
    EXPECT_EQ(local.view(), plain.view()) << name;
  }
  std::setlocale(LC_ALL, old.c_str());
}

TEST(StatusAtEachFailure, IsWholeOrNothing) {
  const auto status = largeStatus();
  Bytes whole;
  ASSERT_TRUE(answerHttp("GET /metrics HTTP/1.1\r\n\r\n", *status, whole));
  for (const char *path : {"/metrics", "/status", "/ready", "/none"}) {
    const std::string request = std::string("GET ") + path + " HTTP/1.1\r\n\r\n";
    Bytes complete;
    ASSERT_TRUE(answerHttp(request, *status, complete));
    forEachFailingAllocation([&](FailingMemory &memory) {
      Bytes answer;
      const bool written = memory.call([&] { return answerHttp(request, *status, answer); });
      EXPECT_EQ(written, !memory.failed());
      EXPECT_TRUE(!written || answer.view() == complete.view());
    });
  }
}

// ---- HTTP ----------------------------------------------------------------------------------------

std::string answerTo(const std::string &request, bool ready = true) {
  auto status = std::make_unique<Status>();
  status->ready = ready;
  Bytes answer;
  EXPECT_TRUE(answerHttp(request, *status, answer));
  return std::string(answer.view());
}

std::string get(const std::string &path) { return "GET " + path + " HTTP/1.1\r\nHost: a\r\n\r\n"; }

TEST(StatusOverHttp, HasItsPages) {
  for (const char *path : {"/", "/status", "/status?a=b", "/?"}) {
    const std::string answer = answerTo(get(path));
    EXPECT_TRUE(
        answer.starts_with("HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n"))
        << answer;
    EXPECT_NE(answer.find("since the service began"), std::string::npos);
  }
  EXPECT_TRUE(answerTo(get("/metrics"))
                  .starts_with("HTTP/1.1 200 OK\r\nContent-Type: text/plain; version=0.0.4; "));
  EXPECT_TRUE(answerTo(get("/ready")).ends_with("\r\n\r\nready\n"));
  EXPECT_TRUE(answerTo(get("/ready"), false).starts_with("HTTP/1.1 503 "));
  EXPECT_TRUE(answerTo("GET / HTTP/1.0\n\n").starts_with("HTTP/1.1 200 "));
}

TEST(StatusOverHttp, AnswersHeadWithoutABody) {
  const std::string whole = answerTo(get("/metrics"));
  const std::string head = answerTo("HEAD /metrics HTTP/1.1\r\n\r\n");
  EXPECT_EQ(head, whole.substr(0, whole.find("\r\n\r\n") + 4));
}

TEST(StatusOverHttp, RefusesOtherRequests) {
  const struct {
    std::string request;
    const char *status;
  } requests[] = {
      {get("/other"), "404"},
      {get("/metrics/"), "404"},
      {get("/METRICS"), "404"},
      {get("metrics"), "404"},
      {get(""), "404"},
      {get("http://a/status"), "404"},
      {"POST / HTTP/1.1\r\n\r\n", "405"},
      {"get / HTTP/1.1\r\n\r\n", "405"},
      {"OPTIONS * HTTP/1.1\r\n\r\n", "405"},
      {"GET /\r\n\r\n", "400"},
      {"GET / HTTP/2.0\r\n\r\n", "400"},
      {"GET / HTTP/1.10\r\n\r\n", "400"},
      {"GET  / HTTP/1.1\r\n\r\n", "400"},
      {"\r\n\r\n", "400"},
      {" \r\n\r\n", "400"},
      {std::string("GET /\0 HTTP/1.1\r\n\r\n", 19), "404"},
      {"GET / HTTP/1.1\r\nA: " + std::string(20000, 'a'), "431"},
      {"", "431"},
  };
  for (const auto &[request, status] : requests) {
    const std::string answer = answerTo(request);
    EXPECT_EQ(answer.substr(0, 13), std::string("HTTP/1.1 ") + status + " ") << request;
    const size_t size = answer.size() - (answer.find("\r\n\r\n") + 4);
    EXPECT_NE(answer.find("Content-Length: " + std::to_string(size) + "\r\n"), std::string::npos);
  }
  EXPECT_NE(answerTo("POST / HTTP/1.1\r\n\r\n").find("\r\nAllow: GET, HEAD\r\n"),
            std::string::npos);
}

// Nothing of a request comes back.
TEST(StatusOverHttp, RepeatsNothing) {
  const std::string mark = "<script>mark";
  for (const std::string &request :
       {get("/" + mark), mark + " / HTTP/1.1\r\n\r\n", "GET / " + mark + "\r\n\r\n"}) {
    EXPECT_EQ(answerTo(request).find("mark"), std::string::npos);
  }
}

}  // namespace
