// FastCGI records and the name-value pairs in them.
#ifndef TARN_SERVE_RECORDS_H
#define TARN_SERVE_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarn::server {

enum RecordType : uint8_t {
  kBeginRequest = 1,
  kAbortRequest = 2,
  kEndRequest = 3,
  kParams = 4,
  kStdin = 5,
  kStdout = 6,
  kStderr = 7,
  kData = 8,
  kGetValues = 9,
  kGetValuesResult = 10,
  kUnknownType = 11,
};

enum class Role : uint16_t { kResponder = 1 };

enum class ProtocolStatus : uint8_t {
  kComplete = 0,
  kCannotMultiplex = 1,
  kOverloaded = 2,
  kUnknownRole = 3,
};

inline constexpr size_t kRecordHeaderSize = 8;
inline constexpr size_t kMostContent = 65535;

// A record that has only a header and 8 bytes of content.
inline constexpr size_t kSmallRecordSize = 16;

struct RecordHeader {
  uint8_t type = 0;
  uint16_t request = 0;
  uint16_t size = 0;  // of the content
  uint8_t padding = 0;
};

void writeRecordHeader(const RecordHeader &header, char (&bytes)[kRecordHeaderSize]);

void writeEndRequest(uint16_t request, uint32_t app_status, ProtocolStatus status,
                     char (&bytes)[kSmallRecordSize]);

// Splits a stream into records, wherever the pieces in which it arrives end.
class RecordReader {
 public:
  enum class Event {
    kNone,       // more input is needed
    kBegin,      // header() is that of a new record
    kContent,    // content() is some of its content
    kEnd,        // its content has ended
    kMalformed,  // this is not FastCGI; there are no more events
  };

  // Consumes input up to the next event.
  Event next(std::string_view &input);

  const RecordHeader &header() const { return header_; }
  std::string_view content() const { return content_; }

  // Whether the input may end here.
  bool isBetweenRecords() const { return state_ == State::kHeader && header_count_ == 0; }

 private:
  enum class State { kHeader, kContent, kPadding, kMalformed };

  RecordHeader header_;
  std::string_view content_;
  State state_ = State::kHeader;
  unsigned char header_bytes_[kRecordHeaderSize] = {};
  size_t header_count_ = 0;
  size_t content_left_ = 0;
  size_t padding_left_ = 0;
};

// Splits a stream into name-value pairs.
class PairReader {
 public:
  enum class Event {
    kNone,   // more input is needed
    kSizes,  // a pair begins; nameSize() and valueSize() are what it claims
    kName,   // bytes() is some of its name
    kValue,  // bytes() is some of its value
    kEnd,    // the pair is complete
  };

  // Consumes input up to the next event.
  Event next(std::string_view &input);

  uint32_t nameSize() const { return sizes_[0]; }
  uint32_t valueSize() const { return sizes_[1]; }
  std::string_view bytes() const { return bytes_; }

  // After kName: whether that was the rest of it.
  bool nameEnds() const { return left_ == 0; }

  // Whether the stream may end here.
  bool isBetweenPairs() const {
    return state_ == State::kSizes && size_bytes_ == 0 && sizes_read_ == 0;
  }

 private:
  enum class State { kSizes, kName, kValue };

  bool takeSizes(std::string_view &input);

  std::string_view bytes_;
  State state_ = State::kSizes;
  uint32_t sizes_[2] = {};
  unsigned sizes_read_ = 0;  // 0 or 1
  unsigned size_bytes_ = 0;  // how many bytes of the current size have arrived
  uint32_t left_ = 0;        // of the name or value
};

}  // namespace tarn::server

#endif
