#include "serve/access_log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "serve/date.h"
#include "serve/log.h"
#include "serve/private_memory.h"

namespace tarn::server {
namespace {

// How often a failure to write is reported.
constexpr uint64_t kSilence = 10000;

// Bytes of a line that one text may take, escaped. Together they are fewer than a line may have.
constexpr size_t kMostOfUri = 2048;
constexpr size_t kMostOfUser = 128;
constexpr size_t kMostOfWord = 64;

constexpr char kMonths[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

constexpr uint64_t kSecond = 1000000;

class Line {
 public:
  Line(AccessFormat format, char (&line)[kMostAccessLine])
      : is_json_(format == AccessFormat::kJson), line_(line) {}

  [[gnu::format(printf, 2, 3)]] void print(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int size = std::vsnprintf(line_ + size_, sizeof line_ - size_, format, arguments);
    va_end(arguments);
    if (size > 0) size_ = std::min(size_ + static_cast<size_t>(size), sizeof line_ - 1);
  }

  // Begins a text of which only so many bytes are shown.
  void beginText(size_t most) { end_ = std::min(size_ + most, sizeof line_ - 1); }

  // Adds to it. What does not fit is replaced by "...".
  void addText(const char *text) {
    constexpr size_t kMostOfByte = 6;
    for (; text && *text != '\0'; ++text) {
      if (size_ + kMostOfByte + 3 > end_) {
        if (size_ + 3 <= end_) print("...");
        end_ = size_;
        return;
      }
      addByte(static_cast<unsigned char>(*text));
    }
  }

  size_t size() const { return size_; }

 private:
  void addByte(unsigned char c) {
    const bool is_plain = c > (is_json_ ? 0x1F : 0x20) && c < 0x7F && c != '"' && c != '\\';
    if (is_plain) {
      line_[size_++] = static_cast<char>(c);
    } else {
      print(is_json_ ? "\\u%04x" : "\\x%02x", c);
    }
  }

  bool is_json_;
  size_t size_ = 0;
  size_t end_ = 0;  // of the text
  char (&line_)[kMostAccessLine];
};

// The address that was asked for, as well as it is known.
void addUri(Line &line, const Parameters &parameters) {
  line.beginText(kMostOfUri);
  if (const char *uri = parameters.find("REQUEST_URI")) return line.addText(uri);
  line.addText(parameters.find("SCRIPT_NAME"));
  line.addText(parameters.find("PATH_INFO"));
  const char *query = parameters.find("QUERY_STRING");
  if (!query || *query == '\0') return;
  line.addText("?");
  line.addText(query);
}

void addCommon(Line &line, const AccessEntry &entry) {
  const auto add = [&](const char *name, size_t most, const char *behind) {
    const char *text = entry.parameters.find(name);
    line.beginText(most);
    line.addText(text && *text != '\0' ? text : "-");
    line.print("%s", behind);
  };
  const Date date = dateOf(entry.begun / kSecond);
  add("REMOTE_ADDR", kMostOfWord, " - ");
  add("REMOTE_USER", kMostOfUser, "");
  line.print(" [%02u/%s/%04u:%02u:%02u:%02u +0000] \"", date.day, kMonths[date.month - 1],
             date.year, date.hour, date.minute, date.second);
  add("REQUEST_METHOD", kMostOfWord, " ");
  addUri(line, entry.parameters);
  line.print(" ");
  add("SERVER_PROTOCOL", kMostOfWord, "\"");
  line.print(" %03d %" PRIu64 "\n", entry.status, entry.sent);
}

void addJson(Line &line, const AccessEntry &entry) {
  const auto add = [&](const char *member, const char *name, size_t most) {
    const char *text = entry.parameters.find(name);
    if (!text) return line.print(R"(,"%s":null)", member);
    line.print(R"(,"%s":")", member);
    line.beginText(most);
    line.addText(text);
    line.print("\"");
  };
  const auto addSeconds = [&](const char *member, uint64_t time) {
    line.print(R"(,"%s":%)" PRIu64 ".%06u", member, time / kSecond,
               static_cast<unsigned>(time % kSecond));
  };
  const Date date = dateOf(entry.begun / kSecond);
  line.print(R"({"time":"%04u-%02u-%02uT%02u:%02u:%02u.%03uZ")", date.year, date.month, date.day,
             date.hour, date.minute, date.second,
             static_cast<unsigned>(entry.begun % kSecond / 1000));
  add("client", "REMOTE_ADDR", kMostOfWord);
  add("user", "REMOTE_USER", kMostOfUser);
  add("host", "HTTP_HOST", kMostOfUser);
  add("method", "REQUEST_METHOD", kMostOfWord);
  line.print(R"(,"uri":")");
  addUri(line, entry.parameters);
  line.print("\"");
  add("protocol", "SERVER_PROTOCOL", kMostOfWord);
  line.print(",\"status\":%d,\"sent\":%" PRIu64 ",\"received\":%" PRIu64, entry.status, entry.sent,
             entry.received);
  addSeconds("seconds", entry.duration);
  addSeconds("waited", entry.wait);
  const auto addNumber = [&](const char *member, int number, bool is_known) {
    if (is_known) return line.print(",\"%s\":%d", member, number);
    line.print(R"(,"%s":null)", member);
  };
  const bool has_run = entry.process > 0;
  addNumber("process", static_cast<int>(entry.process), has_run);
  addNumber("exit", entry.exit_status, has_run && entry.exit_status >= 0);
  if (entry.failure == Failure::kNone) return line.print(",\"failure\":null}\n");
  line.print(",\"failure\":\"%s\"}\n", nameOf(entry.failure));
}

}  // namespace

size_t writeAccessLine(const AccessEntry &entry, AccessFormat format,
                       char (&line)[kMostAccessLine]) {
  Line writer(format, line);
  if (format == AccessFormat::kJson) {
    addJson(writer, entry);
  } else {
    addCommon(writer, entry);
  }
  return writer.size();
}

// ---- The file ------------------------------------------------------------------------------------

AccessLog::~AccessLog() {
  if (owned_) close(file_);
}

bool AccessLog::open(const char *path, AccessFormat format) {
  format_ = format;
  if (std::strcmp(path, "-") == 0) {
    file_ = STDOUT_FILENO;
  } else {
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    file_ = ::open(path, kFlags, 0640);
    owned_ = file_ >= 0;
  }
  struct stat about = {};
  if (file_ < 0 || fstat(file_, &about) != 0) {
    log("cannot open the access log %s: %s", path, std::strerror(errno));
    return false;
  }
  kind_ = S_ISREG(about.st_mode)    ? Kind::kFile
          : S_ISSOCK(about.st_mode) ? Kind::kSocket
                                    : Kind::kOther;
  return true;
}

// A pipe that poll() reports as writable has room for a line.
bool AccessLog::hasRoom() const {
  pollfd file = {file_, POLLOUT, 0};
  return kind_ != Kind::kOther || poll(&file, 1, 0) != 0;
}

bool AccessLog::report(int error) {
  const uint64_t now = currentTime();
  if (now >= silence_) {
    log("cannot write to the access log: %s", std::strerror(error));
    silence_ = now + kSilence;
  }
  return false;
}

bool AccessLog::write(const AccessEntry &entry) {
  // Not on the stack, of which children get a copy.
  PrivateBytes block;
  if (!block.reserve(1 + kMostAccessLine)) return report(ENOMEM);
  char *const text = block.data();
  *text = '\n';
  auto &line = *reinterpret_cast<char(*)[kMostAccessLine]>(text + 1);
  const size_t size = writeAccessLine(entry, format_, line) + (cut_ ? 1 : 0);
  const char *start = cut_ ? text : line;
  if (!hasRoom()) return report(EAGAIN);
  const ssize_t count = kind_ == Kind::kSocket
                            ? send(file_, start, size, MSG_DONTWAIT | MSG_NOSIGNAL)
                            : ::write(file_, start, size);
  if (count == static_cast<ssize_t>(size)) {
    cut_ = false;
    return true;
  }
  if (count < 0) return report(errno);
  // The disk is full.
  cut_ = true;
  return report(ENOSPC);
}

}  // namespace tarn::server
