// Reads requests from one FastCGI connection, without doing any input or output itself.
#ifndef TARN_SERVE_REQUEST_READER_H
#define TARN_SERVE_REQUEST_READER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "serve/parameters.h"
#include "serve/records.h"

namespace tarn::server {

// A connection carries one request at a time: a second one is refused, as the protocol allows. After
// a request has ended, the next one may follow.
class RequestReader {
 public:
  enum class Event {
    kNone,        // more input is needed
    kBegin,       // a request begins
    kParameters,  // its parameters are complete, or as bad as their state says; the rest of a
                  // request with bad ones is skipped
    kBody,        // body() is some of its body
    kBodyEnd,     // its body is complete
    kAbort,       // the server gives it up
    kReply,       // reply() has to be sent now
    kRefusal,     // the same, and the connection is closed then
    kMalformed,   // this is not FastCGI: the connection has to be closed; there are no more events
  };

  explicit RequestReader(const ParameterLimits &limits, uint32_t most_connections)
      : parameters_(limits), most_connections_(most_connections) {}

  // Consumes input up to the next event.
  Event next(std::string_view &input);

  Parameters &parameters() { return parameters_; }
  const Parameters &parameters() const { return parameters_; }
  std::string_view body() const { return records_.content(); }
  std::string_view reply() const { return {reply_, reply_size_}; }
  uint16_t request() const { return request_; }
  bool keepsConnection() const { return keeps_connection_; }
  bool isActive() const { return stage_ != Stage::kIdle && stage_ != Stage::kMalformed; }

  // Whether no part of a record has arrived.
  bool isBetweenRecords() const { return records_.isBetweenRecords(); }

  // The current request has been answered: another one may begin.
  void finish();

 private:
  enum class Stage { kIdle, kParameters, kBody, kComplete, kSkipping, kMalformed };

  Event nextOf(std::string_view &input);

  Event takeContent(std::string_view content);
  Event takeParameters(Parameters::State state);
  Event takeEnd();
  Event beginRequest();
  Event replyValues();
  Event replyUnknownType(uint8_t type);
  Event refuse(uint16_t request, ProtocolStatus status, bool keeps_connection);
  void takeAskedValues(std::string_view content);
  bool isOurs() const { return isActive() && records_.header().request == request_; }

  RecordReader records_;
  Parameters parameters_;
  uint32_t most_connections_;
  Stage stage_ = Stage::kIdle;
  uint16_t request_ = 0;
  bool keeps_connection_ = false;
  unsigned char begin_[8] = {};  // content of a record that begins a request
  size_t begin_size_ = 0;
  // The names of FCGI_GET_VALUES.
  PairReader asked_;
  char asked_name_[16] = {};
  size_t asked_size_ = 0;
  unsigned known_ = 0;  // bits: which of the known names were asked for
  char reply_[128] = {};
  size_t reply_size_ = 0;
};

}  // namespace tarn::server

#endif
