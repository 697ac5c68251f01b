#include "serve/status.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "serve/date.h"

namespace tarn::server {
namespace {

constexpr uint64_t kMillisecond = 1000;  // microseconds
constexpr uint64_t kSecond = 1000 * kMillisecond;

// The bounds of the buckets that monitoring gets. All of them are bounds of a Histogram.
constexpr uint64_t kBounds[] = {
    100,
    250,
    500,
    1000,
    2500,
    5000,
    10000,
    25000,
    50000,
    100000,
    250000,
    500000,
    kSecond,
    kSecond / 2 * 5,
    5 * kSecond,
    10 * kSecond,
    30 * kSecond,
    60 * kSecond,
    100 * kSecond,
    300 * kSecond,
    1000 * kSecond,
};

class Text {
 public:
  explicit Text(Bytes &to) : to_(to) {}

  [[gnu::format(printf, 2, 3)]] void print(const char *format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    const int size = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    const bool fits = size >= 0 && static_cast<size_t>(size) < sizeof line;
    is_complete_ &= fits && to_.append({line, static_cast<size_t>(size)});
  }

  bool isComplete() const { return is_complete_; }

 private:
  Bytes &to_;
  bool is_complete_ = true;
};

}  // namespace

// ---- For people ----------------------------------------------------------------------------------

namespace {

// At least two digits: "1.2 ms", "340 ms", "12 s". Without floating point, whose form depends on the
// locale that the program has set.
void printTime(Text &text, uint64_t time) {
  char shown[32];
  const uint64_t unit = time < kSecond ? kMillisecond : kSecond;
  const char *name = time < kSecond ? "ms" : "s";
  if (time < kMillisecond) {
    std::snprintf(shown, sizeof shown, "%" PRIu64 " us", time);
  } else if (time < 10 * unit) {
    std::snprintf(shown, sizeof shown, "%" PRIu64 ".%" PRIu64 " %s", time / unit,
                  time % unit * 10 / unit, name);
  } else {
    std::snprintf(shown, sizeof shown, "%" PRIu64 " %s", time / unit, name);
  }
  text.print(" %8s", shown);
}

void printTimes(Text &text, const char *name, const Histogram &times) {
  text.print("  %-12s", name);
  if (times.count() == 0) {
    text.print("%9s%9s%9s%9s\n", "-", "-", "-", "-");
    return;
  }
  for (const unsigned of_thousand : {500U, 950U, 990U}) {
    printTime(text, times.percentile(of_thousand));
  }
  printTime(text, times.longest());
  text.print("\n");
}

void printAge(Text &text, uint64_t seconds) {
  const uint64_t days = seconds / 86400;
  if (days > 0) text.print("%" PRIu64 " day%s ", days, days == 1 ? "" : "s");
  text.print("%u:%02u:%02u", static_cast<unsigned>(seconds / 3600 % 24),
             static_cast<unsigned>(seconds / 60 % 60), static_cast<unsigned>(seconds % 60));
}

void printCount(Text &text, const char *name, uint64_t count) {
  text.print("  %-12s%9" PRIu64 "\n", name, count);
}

void printNow(Text &text, const Status &status) {
  const Gauges &now = status.gauges;
  const uint32_t connections = now.idle + now.receiving + now.waiting + now.running + now.ending;
  text.print("now\n");
  text.print("  %-12s%9u of %u\n", "running", now.running, now.most_running);
  text.print("  %-12s%9u of %u\n", "waiting", now.waiting, now.most_waiting);
  text.print("  %-12s%9u\n", "arriving", now.receiving);
  text.print("  %-12s%9u of %u, %u without a request\n", "connections", connections,
             now.most_connections, now.idle);
  text.print("  %-12s%9u%s\n", "workers", status.workers, status.ready ? "" : ", none is ready");
}

void printFailures(Text &text, const Counters &counters) {
  for (size_t i = 1; i < kFailures; ++i) {
    if (counters.ended[i] == 0) continue;
    const auto failure = static_cast<Failure>(i);
    text.print("    %-20s%9" PRIu64 "  %s\n", nameOf(failure), counters.ended[i],
               explanationOf(failure));
  }
}

}  // namespace

bool writeStatus(const Status &status, Bytes &to) {
  Text text(to);
  const Counters &counters = status.counters;
  const Date date = dateOf(status.since);
  text.print("tarn-serve %s, since %04u-%02u-%02u %02u:%02u:%02u UTC (", TARN_VERSION, date.year,
             date.month, date.day, date.hour, date.minute, date.second);
  printAge(text, status.age);
  text.print(")\n");
  printNow(text, status);
  text.print("since the service began\n");
  const uint64_t ended = counters.endedInAll();
  printCount(text, "requests", ended);
  printCount(text, "failures", ended - counters.ended[0]);
  printFailures(text, counters);
  printCount(text, "connections", counters.connections);
  if (counters.not_fastcgi > 0) printCount(text, "not FastCGI", counters.not_fastcgi);
  printCount(text, "bytes in", counters.received_bytes);
  printCount(text, "bytes out", counters.sent_bytes);
  text.print("  %-12s%9" PRIu64 " started, %" PRIu64 " failed\n", "workers", status.started_workers,
             status.failed_workers);
  if (counters.lost_lines > 0) printCount(text, "lines lost", counters.lost_lines);
  text.print("%-14s%9s%9s%9s%9s\n", "times", "p50", "p95", "p99", "longest");
  printTimes(text, "requests", counters.times);
  printTimes(text, "waiting", counters.waits);
  return text.isComplete();
}

// ---- For Prometheus ------------------------------------------------------------------------------

namespace {

// Metrics of which there is one value.
class Metrics {
 public:
  explicit Metrics(Text &text) : text_(text) {}

  void begin(const char *name, const char *type, const char *help) {
    text_.print("# HELP tarn_serve_%s %s\n", name, help);
    text_.print("# TYPE tarn_serve_%s %s\n", name, type);
  }

  void counter(const char *name, const char *help, uint64_t value) {
    begin(name, "counter", help);
    text_.print("tarn_serve_%s %" PRIu64 "\n", name, value);
  }

  void gauge(const char *name, const char *help, uint64_t value) {
    begin(name, "gauge", help);
    text_.print("tarn_serve_%s %" PRIu64 "\n", name, value);
  }

  void labeled(const char *name, const char *label, const char *value, uint64_t count) {
    text_.print("tarn_serve_%s{%s=\"%s\"} %" PRIu64 "\n", name, label, value, count);
  }

  void histogram(const char *name, const char *help, const Histogram &times) {
    begin(name, "histogram", help);
    for (const uint64_t time : kBounds) {
      char fraction[8];
      std::snprintf(fraction, sizeof fraction, ".%06u", static_cast<unsigned>(time % kSecond));
      size_t size = std::strlen(fraction);
      while (size > 2 && fraction[size - 1] == '0') --size;
      fraction[size] = '\0';
      text_.print("tarn_serve_%s_bucket{le=\"%" PRIu64 "%s\"} %" PRIu64 "\n", name, time / kSecond,
                  fraction, times.countUpTo(time));
    }
    const uint64_t count = times.count();
    text_.print("tarn_serve_%s_bucket{le=\"+Inf\"} %" PRIu64 "\n", name, count);
    text_.print("tarn_serve_%s_sum %" PRIu64 ".%06u\n", name, times.sum() / kSecond,
                static_cast<unsigned>(times.sum() % kSecond));
    text_.print("tarn_serve_%s_count %" PRIu64 "\n", name, count);
  }

 private:
  Text &text_;
};

void writeService(Metrics &metrics, const Status &status) {
  metrics.begin("info", "gauge", "The version of the service.");
  metrics.labeled("info", "version", TARN_VERSION, 1);
  metrics.gauge("start_time_seconds", "When the service began, in seconds since 1970.",
                status.since);
  metrics.gauge("ready", "1 if a worker takes new requests.", status.ready ? 1 : 0);
  metrics.gauge("workers", "Worker processes: one, and those that a reload replaces.",
                status.workers);
  metrics.counter("worker_starts_total", "Workers that were started.", status.started_workers);
  metrics.counter("worker_failures_total", "Workers that ended without being told to.",
                  status.failed_workers);
}

void writeGauges(Metrics &metrics, const Gauges &now) {
  metrics.gauge("children", "Scripts that run.", now.running);
  metrics.gauge("children_limit", "Scripts that may run at once.", now.most_running);
  metrics.gauge("queue", "Requests that wait for a child.", now.waiting);
  metrics.gauge("queue_limit", "Requests that may wait for a child.", now.most_waiting);
  metrics.gauge("arriving", "Requests that have not arrived completely.", now.receiving);
  metrics.gauge("connections", "Connections of web servers.",
                uint64_t{now.idle} + now.receiving + now.waiting + now.running + now.ending);
  metrics.gauge("connections_limit", "Connections that there may be.", now.most_connections);
  metrics.gauge("idle_connections", "Connections without a request.", now.idle);
}

void writeCounters(Metrics &metrics, const Counters &counters) {
  metrics.counter("requests_total", "Requests that have ended.", counters.endedInAll());
  metrics.begin("request_failures_total", "counter", "Requests that failed, by the reason.");
  for (size_t i = 1; i < kFailures; ++i) {
    metrics.labeled("request_failures_total", "reason", nameOf(static_cast<Failure>(i)),
                    counters.ended[i]);
  }
  metrics.begin("responses_total", "counter",
                "Requests that have ended, by the class of their HTTP status.");
  constexpr const char *kNames[] = {"none", "1xx", "2xx", "3xx", "4xx", "5xx"};
  for (size_t i = 0; i < Counters::kClasses; ++i) {
    metrics.labeled("responses_total", "code", kNames[i], counters.answers[i]);
  }
  metrics.counter("received_bytes_total", "Bytes of request bodies.", counters.received_bytes);
  metrics.counter("sent_bytes_total", "Bytes of responses without their headers.",
                  counters.sent_bytes);
  metrics.counter("connections_total", "Connections that were accepted.", counters.connections);
  metrics.counter("not_fastcgi_total", "Connections on which something else came than a request.",
                  counters.not_fastcgi);
  metrics.counter("access_log_lost_total", "Lines that the access log could not take.",
                  counters.lost_lines);
}

}  // namespace

bool writeMetrics(const Status &status, Bytes &to) {
  Text text(to);
  Metrics metrics(text);
  writeService(metrics, status);
  writeGauges(metrics, status.gauges);
  writeCounters(metrics, status.counters);
  metrics.histogram("request_duration_seconds",
                    "How long requests took, from the first record to the end of the response.",
                    status.counters.times);
  metrics.histogram("queue_duration_seconds", "How long requests waited for a child.",
                    status.counters.waits);
  return text.isComplete();
}

}  // namespace tarn::server
