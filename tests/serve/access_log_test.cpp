// Lines of the access log: whatever a visitor sends, a line has the same fields.
#include "serve/access_log.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/failing_calls.h"
#include "support/fastcgi.h"

namespace {

using namespace tarn::server;
using namespace tarn_test;
namespace fs = std::filesystem;
using fastcgi::longPair;

struct Field {
  std::string name;
  std::string value;
};

// Parameters of a request.
class Sent {
 public:
  explicit Sent(const std::vector<Field> &fields) {
    for (const auto &[name, value] : fields) parameters_.add(longPair(name, value));
    EXPECT_EQ(parameters_.end(), Parameters::State::kComplete);
  }

  AccessEntry entry() const {
    return {.parameters = parameters_,
            .failure = Failure::kNone,
            .status = 200,
            .sent = 12,
            .received = 34,
            .duration = 1234567,
            .wait = 89,
            .process = 4321,
            .exit_status = 0,
            .begun = 1795371885123456};
  }

 private:
  Parameters parameters_{{1000, uint64_t{1024} * 1024}};
};

std::string lineOf(const AccessEntry &entry, AccessFormat format) {
  char line[kMostAccessLine];
  const size_t size = writeAccessLine(entry, format, line);
  EXPECT_LE(size, sizeof line);
  return {line, size};
}

std::string lineOf(const std::vector<Field> &fields, AccessFormat format) {
  const Sent sent(fields);
  return lineOf(sent.entry(), format);
}

// Printable ASCII and one line end.
void expectOneLine(const std::string &line) {
  ASSERT_FALSE(line.empty());
  EXPECT_EQ(line.back(), '\n');
  for (size_t i = 0; i + 1 < line.size(); ++i) {
    ASSERT_TRUE(line[i] >= ' ' && line[i] <= '~') << static_cast<int>(line[i]) << " in " << line;
  }
}

const std::vector<Field> kUsual = {
    {"REMOTE_ADDR", "192.0.2.7"},    {"REMOTE_USER", "ada"},
    {"HTTP_HOST", "example.org"},    {"REQUEST_METHOD", "GET"},
    {"REQUEST_URI", "/a/b?c=d&e"},   {"SERVER_PROTOCOL", "HTTP/1.1"},
    {"SCRIPT_NAME", "/unused/name"}, {"QUERY_STRING", "unused=query"}};

TEST(AccessLine, IsInTheCommonFormat) {
  EXPECT_EQ(lineOf(kUsual, AccessFormat::kCommon),
            "192.0.2.7 - ada [22/Nov/2026:18:24:45 +0000] \"GET /a/b?c=d&e HTTP/1.1\" 200 12\n");
}

TEST(AccessLine, IsJson) {
  EXPECT_EQ(lineOf(kUsual, AccessFormat::kJson),
            R"({"time":"2026-11-22T18:24:45.123Z","client":"192.0.2.7","user":"ada",)"
            R"("host":"example.org","method":"GET","uri":"/a/b?c=d&e","protocol":"HTTP/1.1",)"
            R"("status":200,"sent":12,"received":34,"seconds":1.234567,"waited":0.000089,)"
            R"("process":4321,"exit":0,"failure":null})"
            "\n");
}

TEST(AccessLine, HasAPlaceForWhatIsMissing) {
  const std::vector<Field> fields = {{"REMOTE_USER", ""}};
  const Sent sent(fields);
  AccessEntry entry = sent.entry();
  entry.process = -1;
  entry.failure = Failure::kBodySize;
  entry.status = 413;
  entry.exit_status = 3;
  EXPECT_EQ(lineOf(entry, AccessFormat::kCommon),
            "- - - [22/Nov/2026:18:24:45 +0000] \"-  -\" 413 12\n");
  const std::string json = lineOf(entry, AccessFormat::kJson);
  EXPECT_NE(json.find(R"("client":null,"user":"","host":null,"method":null,"uri":"")"),
            std::string::npos)
      << json;
  EXPECT_TRUE(json.ends_with("\"process\":null,\"exit\":null,\"failure\":\"body_size\"}\n"))
      << json;
}

TEST(AccessLine, BuildsTheAddressIfTheServerDoesNotSendIt) {
  const std::vector<Field> fields = {
      {"SCRIPT_NAME", "/cgi"}, {"PATH_INFO", "/more"}, {"QUERY_STRING", "a=b"}};
  EXPECT_NE(lineOf(fields, AccessFormat::kCommon).find("\"- /cgi/more?a=b -\""), std::string::npos);
  const std::vector<Field> fewer = {{"SCRIPT_NAME", "/cgi"}, {"QUERY_STRING", ""}};
  EXPECT_NE(lineOf(fewer, AccessFormat::kCommon).find("\"- /cgi -\""), std::string::npos);
}

// Undoes the escapes of a text.
std::string unescaped(const std::string &text, AccessFormat format) {
  const std::string start = format == AccessFormat::kJson ? "\\u00" : "\\x";
  std::string bytes;
  for (size_t i = 0; i < text.size();) {
    if (text[i] != '\\') {
      bytes += text[i++];
      continue;
    }
    EXPECT_EQ(text.substr(i, start.size()), start);
    const std::string digits = text.substr(i + start.size(), 2);
    bytes += static_cast<char>(std::stoul(digits, nullptr, 16));
    i += start.size() + 2;
  }
  return bytes;
}

std::vector<std::string> wordsOf(const std::string &line) {
  std::vector<std::string> words;
  std::istringstream stream(line);
  for (std::string word; std::getline(stream, word, ' ');) words.push_back(word);
  return words;
}

// The value of a text member. Quotes inside a text would end it early.
std::string memberOf(const std::string &line, const std::string &name) {
  const size_t start = line.find("\"" + name + "\":\"") + name.size() + 4;
  return line.substr(start, line.find('"', start) - start);
}

TEST(AccessLine, KeepsEveryByteInItsField) {
  const struct {
    const char *variable;
    const char *member;
    size_t word;  // of the common format
  } places[] = {{"REMOTE_ADDR", "client", 0},       {"REMOTE_USER", "user", 2},
                {"REQUEST_METHOD", "method", 5},    {"REQUEST_URI", "uri", 6},
                {"SERVER_PROTOCOL", "protocol", 7}, {"HTTP_HOST", "host", 99}};
  for (const auto &place : places) {
    for (int byte = 1; byte < 256; ++byte) {
      const std::string value = {'a', static_cast<char>(byte), 'b'};
      std::vector<Field> fields = kUsual;
      for (auto &[name, text] : fields) {
        if (name == place.variable) text = value;
      }
      const std::string common = lineOf(fields, AccessFormat::kCommon);
      expectOneLine(common);
      std::vector<std::string> words = wordsOf(common);
      ASSERT_EQ(words.size(), 10U) << common;
      if (place.word < 99) {
        std::string word = words[place.word];
        std::erase(word, '"');
        EXPECT_EQ(unescaped(word, AccessFormat::kCommon), value) << common;
        EXPECT_EQ(std::count(common.begin(), common.end(), '"'), 2) << common;
      }
      const std::string json = lineOf(fields, AccessFormat::kJson);
      expectOneLine(json);
      EXPECT_EQ(unescaped(memberOf(json, place.member), AccessFormat::kJson), value) << json;
      EXPECT_EQ(std::count(json.begin(), json.end(), '"'), 44) << json;
    }
  }
}

TEST(AccessLine, FitsIntoAPipeHoweverMuchIsSent) {
  for (const char filler : {'a', '\n', '"', '\xFF'}) {
    for (const size_t size : {100, 2040, 2045, 2046, 2047, 2048, 2049, 100000}) {
      std::vector<Field> fields = kUsual;
      for (auto &[name, value] : fields) value = std::string(size, filler);
      for (const AccessFormat format : {AccessFormat::kCommon, AccessFormat::kJson}) {
        const Sent sent(fields);
        AccessEntry entry = sent.entry();
        entry.sent = entry.received = entry.duration = entry.wait = UINT64_MAX;
        entry.process = entry.exit_status = INT32_MAX;
        entry.failure = Failure::kTooManyParameters;
        const std::string line = lineOf(entry, format);
        expectOneLine(line);
        EXPECT_LT(line.size(), 4096U);
        EXPECT_TRUE(line.ends_with(format == AccessFormat::kJson
                                       ? "\"failure\":\"too_many_parameters\"}\n"
                                       : "\" 200 18446744073709551615\n"))
            << line;
        // Only what was cut ends with dots.
        EXPECT_NE(line.find("..."), std::string::npos) << line;
      }
    }
  }
  for (const AccessFormat format : {AccessFormat::kCommon, AccessFormat::kJson}) {
    const std::string line = lineOf({{"REQUEST_URI", "/" + std::string(1000, 'a')}}, format);
    EXPECT_NE(line.find("/" + std::string(1000, 'a')), std::string::npos);
    EXPECT_EQ(line.find("..."), std::string::npos);
  }
}

// ---- The file ------------------------------------------------------------------------------------

class AccessFile : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(mkdtemp(folder_), nullptr); }
  void TearDown() override { fs::remove_all(folder_); }

  std::string path() const { return std::string(folder_) + "/log"; }

  std::vector<std::string> lines() const {
    std::vector<std::string> lines;
    std::ifstream file(path());
    for (std::string line; std::getline(file, line);) lines.push_back(line + "\n");
    return lines;
  }

  const Sent sent_{kUsual};
  const std::string line_ = lineOf(sent_.entry(), AccessFormat::kCommon);

 private:
  char folder_[32] = "/tmp/tarn-access-XXXXXX";
};

TEST_F(AccessFile, GetsALineForEachEntryBehindWhatIsThere) {
  std::ofstream(path()) << "old\n";
  AccessLog one;
  AccessLog two;
  ASSERT_TRUE(one.open(path().c_str(), AccessFormat::kCommon));
  ASSERT_TRUE(two.open(path().c_str(), AccessFormat::kCommon));
  EXPECT_TRUE(one.write(sent_.entry()));
  EXPECT_TRUE(two.write(sent_.entry()));
  EXPECT_TRUE(one.write(sent_.entry()));
  EXPECT_EQ(lines(), (std::vector<std::string>{"old\n", line_, line_, line_}));
}

TEST_F(AccessFile, MustBePossibleToOpen) {
  testing::internal::CaptureStderr();
  AccessLog log;
  EXPECT_FALSE(log.open((path() + "/in/nothing").c_str(), AccessFormat::kCommon));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "tarn-serve: cannot open the access log " +
                                                        path() +
                                                        "/in/nothing: No such file or directory\n");
  // A pipe without a reader would have to be waited for.
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(log.open(path().c_str(), AccessFormat::kCommon));
  testing::internal::GetCapturedStderr();
}

TEST_F(AccessFile, StartsANewLineAfterOneThatWasCut) {
  AccessLog log;
  ASSERT_TRUE(log.open(path().c_str(), AccessFormat::kCommon));
  testing::internal::CaptureStderr();
  calls = {};
  calls.most_written = 10;
  EXPECT_FALSE(watchCalls([&] { return log.write(sent_.entry()); }));
  calls = {};
  EXPECT_TRUE(log.write(sent_.entry()));
  EXPECT_TRUE(log.write(sent_.entry()));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tarn-serve: cannot write to the access log: No space left on device\n");
  EXPECT_EQ(lines(), (std::vector<std::string>{line_.substr(0, 10) + "\n", line_, line_}));
}

TEST_F(AccessFile, ReportsOneOfManyFailures) {
  AccessLog log;
  ASSERT_TRUE(log.open(path().c_str(), AccessFormat::kCommon));
  testing::internal::CaptureStderr();
  for (int i = 0; i < 5; ++i) {
    calls = {};
    calls.only = "write";
    calls.error = EIO;
    calls.first_failing = 1;
    calls.most_failures = 1;
    EXPECT_FALSE(watchCalls([&] { return log.write(sent_.entry()); }));
  }
  calls = {};
  EXPECT_TRUE(log.write(sent_.entry()));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "tarn-serve: cannot write to the access log: Input/output error\n");
  EXPECT_EQ(lines(), std::vector<std::string>{line_});
}

// Standard output is a pipe or a socket that nobody reads. Lines are lost, and none is cut.
TEST(AccessLogOnStandardOutput, IsNeverWaitedFor) {
  const Sent sent(kUsual);
  const std::string line = lineOf(sent.entry(), AccessFormat::kCommon);
  for (const bool is_socket : {false, true}) {
    int ends[2];
    if (is_socket) {
      ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    } else {
      ASSERT_EQ(pipe(ends), 0);
    }
    std::fflush(stdout);
    const int before = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    testing::internal::CaptureStderr();
    size_t written = 0;
    size_t lost = 0;
    {
      AccessLog log;
      EXPECT_TRUE(log.open("-", AccessFormat::kCommon));
      for (int i = 0; i < 20000; ++i) ++(log.write(sent.entry()) ? written : lost);
    }
    dup2(before, STDOUT_FILENO);
    close(before);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "tarn-serve: cannot write to the access log: Resource temporarily unavailable\n");
    EXPECT_GT(written, 100U);
    EXPECT_GT(lost, 1000U);
    std::string all;
    char block[65536];
    for (ssize_t count = 0; (count = read(ends[0], block, sizeof block)) > 0;) {
      all.append(block, static_cast<size_t>(count));
    }
    close(ends[0]);
    EXPECT_EQ(all.size(), written * line.size());
    for (size_t i = 0; i < written; ++i) ASSERT_EQ(all.substr(i * line.size(), line.size()), line);
  }
}

}  // namespace
