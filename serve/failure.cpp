#include "serve/failure.h"

#include <cstdio>
#include <iterator>
#include <string_view>

#include "serve/log.h"
#include "serve/private_memory.h"

namespace tarn::server {
namespace {

constexpr size_t kMostShown = 200;  // bytes of an address

struct Description {
  const char *name;
  const char *explanation;
  int status;
};

// nginx writes 499 to its log if the visitor left.
constexpr int kNobodyWaits = 499;

constexpr Description kDescriptions[] = {
    {"none", "nothing went wrong", 200},
    {"too_many_requests", "the queue was full", 503},
    {"body_size", "the body was too large", 413},
    {"too_many_parameters", "there were too many or too large parameters", 431},
    {"malformed", "a parameter was not valid", 400},
    {"body_cut_off", "the body was cut off", 400},
    {"not_started", "no memory, file or process was left", 503},
    {"not_arrived", "the request did not arrive in time", 408},
    {"time", "the script took too long", 504},
    {"visitor_left", "the visitor left", kNobodyWaits},
    {"aborted", "the web server aborted the request", kNobodyWaits},
    {"not_read", "the web server did not read the response", kNobodyWaits},
    {"not_fastcgi", "the web server did not send FastCGI", 400},
    {"not_a_header", "the script did not begin with a header", 500},
    {"memory", "the service had too little memory", 500},
    {"signal", "a signal ended the script", 500},
    {"no_response", "the script sent no header", 500},
    {"short", "the response was shorter than it announced", 500},
    {"status", "the script ended with another status than 0", 500},
    {"worker_died", "the worker died with the request", 500},
};
static_assert(std::size(kDescriptions) == kFailures);

const Description &descriptionOf(Failure failure) {
  return kDescriptions[static_cast<size_t>(failure)];
}

const char *reasonOf(int status) {
  switch (status) {
    case 400:
      return "Bad Request";
    case 413:
      return "Payload Too Large";
    case 431:
      return "Request Header Fields Too Large";
    case 503:
      return "Service Unavailable";
    case 504:
      return "Gateway Timeout";
    default:
      return "Internal Server Error";
  }
}

// What a visitor chose must not look like a line of the log.
bool appendShown(PrivateBytes &line, char c) {
  if (c > 0x20 && c < 0x7F && c != '\\') return line.append(c);
  constexpr const char *kDigits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  const char text[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 0xF]};
  return line.append({text, sizeof text});
}

}  // namespace

const char *nameOf(Failure failure) { return descriptionOf(failure).name; }

const char *explanationOf(Failure failure) { return descriptionOf(failure).explanation; }

int statusOf(Failure failure) { return descriptionOf(failure).status; }

size_t writeErrorPage(int status, char (&page)[256]) {
  const char *reason = reasonOf(status);
  const int size = std::snprintf(page, sizeof page,
                                 "Status: %d %s\r\nContent-Type: text/plain; charset=utf-8\r\n"
                                 "\r\n%d %s\n",
                                 status, reason, status, reason);
  return static_cast<size_t>(size);
}

// The line is never in memory that a child gets a copy of, not even on the stack.
void logRequest(const char *what, const char *uri) {
  PrivateBytes line;
  bool complete = line.append("tarn-serve: ") && line.append(std::string_view(what));
  if (uri) complete = complete && line.append(": ");
  for (size_t i = 0; uri && complete && uri[i] != '\0' && i < kMostShown; ++i) {
    complete = appendShown(line, uri[i]);
  }
  if (complete && line.append('\n')) {
    writeLog(line.view());
  } else {
    log("%s", what);
  }
}

}  // namespace tarn::server
