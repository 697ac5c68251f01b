#include "serve/request_reader.h"

#include <cstdio>
#include <cstring>

namespace tarn::server {
namespace {

constexpr unsigned char kKeepConnection = 1;

// What FCGI_GET_VALUES may ask for.
constexpr std::string_view kValueNames[] = {"FCGI_MAX_CONNS", "FCGI_MAX_REQS", "FCGI_MPXS_CONNS"};

}  // namespace

void RequestReader::finish() {
  if (stage_ != Stage::kMalformed) stage_ = Stage::kIdle;
  request_ = 0;
  parameters_.clear();
}

RequestReader::Event RequestReader::next(std::string_view &input) {
  if (stage_ == Stage::kMalformed) return Event::kMalformed;
  const Event event = nextOf(input);
  if (event == Event::kMalformed) stage_ = Stage::kMalformed;
  return event;
}

RequestReader::Event RequestReader::nextOf(std::string_view &input) {
  for (;;) {
    Event event = Event::kNone;
    switch (records_.next(input)) {
      case RecordReader::Event::kNone:
        return Event::kNone;
      case RecordReader::Event::kMalformed:
        return Event::kMalformed;
      case RecordReader::Event::kBegin:
        begin_size_ = asked_size_ = 0;
        asked_ = {};
        known_ = 0;
        break;
      case RecordReader::Event::kContent:
        event = takeContent(records_.content());
        break;
      case RecordReader::Event::kEnd:
        event = takeEnd();
        break;
    }
    if (event != Event::kNone) return event;
  }
}

RequestReader::Event RequestReader::takeContent(std::string_view content) {
  const RecordHeader &header = records_.header();
  if (header.request == 0) {
    if (header.type == kGetValues) takeAskedValues(content);
    return Event::kNone;
  }
  if (header.type == kBeginRequest) {
    if (header.size != sizeof begin_) return Event::kMalformed;
    std::memcpy(begin_ + begin_size_, content.data(), content.size());
    begin_size_ += content.size();
    return Event::kNone;
  }
  if (!isOurs() || stage_ == Stage::kSkipping) return Event::kNone;
  if (header.type == kParams) {
    if (stage_ != Stage::kParameters) return Event::kMalformed;
    return takeParameters(parameters_.add(content));
  }
  if (header.type == kStdin) return stage_ == Stage::kBody ? Event::kBody : Event::kMalformed;
  return Event::kNone;
}

RequestReader::Event RequestReader::takeEnd() {
  const RecordHeader &header = records_.header();
  if (header.request == 0) {
    if (header.type == kGetValues) return replyValues();
    // An answer must not be answered: two such peers would never stop.
    const bool is_answer = header.type == kGetValuesResult || header.type == kUnknownType;
    return is_answer ? Event::kNone : replyUnknownType(header.type);
  }
  if (header.type == kBeginRequest) return beginRequest();
  if (!isOurs()) return Event::kNone;
  if (header.type == kAbortRequest) return Event::kAbort;
  if (header.size > 0 || stage_ == Stage::kSkipping) return Event::kNone;
  if (header.type == kParams) {
    if (stage_ != Stage::kParameters) return Event::kMalformed;
    return takeParameters(parameters_.end());
  }
  // A second end would be skipped if the first had been answered by now, so it always is.
  if (header.type == kStdin && stage_ != Stage::kComplete) {
    if (stage_ != Stage::kBody) return Event::kMalformed;
    stage_ = Stage::kComplete;
    return Event::kBodyEnd;
  }
  return Event::kNone;
}

RequestReader::Event RequestReader::takeParameters(Parameters::State state) {
  if (state == Parameters::State::kIncomplete) return Event::kNone;
  stage_ = state == Parameters::State::kComplete ? Stage::kBody : Stage::kSkipping;
  return Event::kParameters;
}

RequestReader::Event RequestReader::refuse(uint16_t request, ProtocolStatus status,
                                           bool keeps_connection) {
  writeEndRequest(request, 0, status, *reinterpret_cast<char(*)[kSmallRecordSize]>(reply_));
  reply_size_ = kSmallRecordSize;
  return keeps_connection ? Event::kReply : Event::kRefusal;
}

RequestReader::Event RequestReader::beginRequest() {
  const RecordHeader &header = records_.header();
  if (begin_size_ != sizeof begin_) return Event::kMalformed;
  const unsigned role = begin_[0] * 256U + begin_[1];
  const bool keeps = (begin_[2] & kKeepConnection) != 0;
  if (isActive()) {
    if (header.request == request_) return Event::kMalformed;
    // The request that is running needs the connection.
    return refuse(header.request, ProtocolStatus::kCannotMultiplex, true);
  }
  if (role != static_cast<unsigned>(Role::kResponder)) {
    return refuse(header.request, ProtocolStatus::kUnknownRole, keeps);
  }
  request_ = header.request;
  keeps_connection_ = keeps;
  stage_ = Stage::kParameters;
  return Event::kBegin;
}

RequestReader::Event RequestReader::replyUnknownType(uint8_t type) {
  writeRecordHeader({kUnknownType, 0, 8, 0}, *reinterpret_cast<char(*)[8]>(reply_));
  std::memset(reply_ + 8, 0, 8);
  reply_[8] = static_cast<char>(type);
  reply_size_ = kSmallRecordSize;
  return Event::kReply;
}

void RequestReader::takeAskedValues(std::string_view content) {
  for (;;) {
    switch (asked_.next(content)) {
      case PairReader::Event::kNone:
        return;
      case PairReader::Event::kSizes:
        asked_size_ = 0;
        break;
      case PairReader::Event::kName: {
        const std::string_view bytes = asked_.bytes();
        if (asked_size_ + bytes.size() <= sizeof asked_name_) {
          std::memcpy(asked_name_ + asked_size_, bytes.data(), bytes.size());
        }
        asked_size_ += bytes.size();
        break;
      }
      case PairReader::Event::kValue:
        break;
      case PairReader::Event::kEnd:
        for (unsigned i = 0; i < 3 && asked_size_ <= sizeof asked_name_; ++i) {
          if (std::string_view(asked_name_, asked_size_) == kValueNames[i]) known_ |= 1U << i;
        }
    }
  }
}

RequestReader::Event RequestReader::replyValues() {
  size_t end = kRecordHeaderSize;
  for (unsigned i = 0; i < 3; ++i) {
    if ((known_ & 1U << i) == 0) continue;
    char value[12] = "0";
    if (i < 2) std::snprintf(value, sizeof value, "%u", most_connections_);
    const size_t size = std::strlen(value);
    reply_[end++] = static_cast<char>(kValueNames[i].size());
    reply_[end++] = static_cast<char>(size);
    std::memcpy(reply_ + end, kValueNames[i].data(), kValueNames[i].size());
    end += kValueNames[i].size();
    std::memcpy(reply_ + end, value, size);
    end += size;
  }
  const auto size = static_cast<uint16_t>(end - kRecordHeaderSize);
  writeRecordHeader({kGetValuesResult, 0, size, 0}, *reinterpret_cast<char(*)[8]>(reply_));
  reply_size_ = end;
  return Event::kReply;
}

}  // namespace tarn::server
