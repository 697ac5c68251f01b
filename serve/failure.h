// What can go wrong with a request.
#ifndef TARN_SERVE_FAILURE_H
#define TARN_SERVE_FAILURE_H

#include <cstddef>

namespace tarn::server {

// Why a request was refused, or why a script's answer is not complete, or is complete but not all is
// well. A request has one at most. nameOf() and the others know them in this order.
enum class Failure {
  kNone,
  // No script ran.
  kTooManyRequests,    // the queue is full
  kBodySize,           // the body is too large
  kTooManyParameters,  // more of them, or larger ones, than allowed
  kMalformed,          // parameters that cannot be an environment
  kBodyCutOff,         // less of the body arrived than was announced
  kNotStarted,         // this process or the system has too little of something
  kNotArrived,         // the request did not arrive in time
  // Its script was ended, or its answer is not sent.
  kTime,         // it ran longer than it may
  kVisitorLeft,  // the server closed the connection
  kAborted,      // the server sent FCGI_ABORT_REQUEST
  kNotRead,      // the server does not read the response
  kNotFastCgi,   // the server sent something else
  kNotAHeader,   // the answer does not begin with a header
  kMemory,       // this process has too little, or cannot read from the script
  // It ended by itself.
  kSignal,    // a signal ended the script
  kNoAnswer,  // the script ended before its header was complete
  kShort,     // the response is shorter than its Content-Length
  kStatus,    // the answer is complete, but the exit status is not 0
  // Nobody is left to log it.
  kWorkerDied,  // with the request
};

inline constexpr size_t kFailures = static_cast<size_t>(Failure::kWorkerDied) + 1;

// A word for programs, such as "body_size".
const char *nameOf(Failure failure);

// A sentence without its end.
const char *explanationOf(Failure failure);

// The HTTP status that a visitor gets if there is no answer yet. If nobody waits for an answer, one
// that tells in the access log what happened.
int statusOf(Failure failure);

// Whether the visitor must not take what was sent for the whole answer.
constexpr bool cutsAnswer(Failure failure) {
  return failure != Failure::kNone && failure != Failure::kStatus;
}

// Writes a CGI answer that tells an HTTP status. Returns its size.
size_t writeErrorPage(int status, char (&page)[256]);

// Writes a line to the log about a request: what happened, and the address if it is known.
void logRequest(const char *what, const char *uri);

}  // namespace tarn::server

#endif
