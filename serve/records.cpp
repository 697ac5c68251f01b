#include "serve/records.h"

#include <algorithm>

namespace tarn::server {
namespace {

constexpr unsigned char kVersion = 1;

std::string_view take(std::string_view &input, size_t most) {
  const std::string_view taken(input.data(), std::min(input.size(), most));
  input.remove_prefix(taken.size());
  return taken;
}

char byteOf(uint32_t number, unsigned place) {
  return static_cast<char>(number >> 8 * place & 0xFF);
}

}  // namespace

void writeRecordHeader(const RecordHeader &header, char (&bytes)[kRecordHeaderSize]) {
  bytes[0] = kVersion;
  bytes[1] = static_cast<char>(header.type);
  bytes[2] = byteOf(header.request, 1);
  bytes[3] = byteOf(header.request, 0);
  bytes[4] = byteOf(header.size, 1);
  bytes[5] = byteOf(header.size, 0);
  bytes[6] = static_cast<char>(header.padding);
  bytes[7] = 0;
}

void writeEndRequest(uint16_t request, uint32_t app_status, ProtocolStatus status,
                     char (&bytes)[kSmallRecordSize]) {
  char header[kRecordHeaderSize];
  writeRecordHeader({kEndRequest, request, 8, 0}, header);
  std::copy(header, header + sizeof header, bytes);
  for (unsigned i = 0; i < 4; ++i) bytes[8 + i] = byteOf(app_status, 3 - i);
  bytes[12] = static_cast<char>(status);
  std::fill(bytes + 13, bytes + 16, '\0');
}

RecordReader::Event RecordReader::next(std::string_view &input) {
  if (state_ == State::kPadding) {
    padding_left_ -= take(input, padding_left_).size();
    if (padding_left_ > 0) return Event::kNone;
    state_ = State::kHeader;
  }
  switch (state_) {
    case State::kHeader: {
      while (header_count_ < kRecordHeaderSize) {
        if (input.empty()) return Event::kNone;
        header_bytes_[header_count_++] = static_cast<unsigned char>(input.front());
        input.remove_prefix(1);
        if (header_bytes_[0] != kVersion) {
          state_ = State::kMalformed;
          return Event::kMalformed;
        }
      }
      const auto number = [this](size_t i) {
        return static_cast<uint16_t>(header_bytes_[i] << 8 | header_bytes_[i + 1]);
      };
      header_ = {header_bytes_[1], number(2), number(4), header_bytes_[6]};
      header_count_ = 0;
      content_left_ = header_.size;
      padding_left_ = header_.padding;
      state_ = State::kContent;
      return Event::kBegin;
    }
    case State::kContent:
      if (content_left_ == 0) {
        state_ = State::kPadding;
        return Event::kEnd;
      }
      if (input.empty()) return Event::kNone;
      content_ = take(input, content_left_);
      content_left_ -= content_.size();
      return Event::kContent;
    case State::kPadding:
    case State::kMalformed:
      break;
  }
  return Event::kMalformed;
}

// A size takes one byte, or four whose first bit is set.
bool PairReader::takeSizes(std::string_view &input) {
  while (sizes_read_ < 2) {
    if (input.empty()) return false;
    const auto byte = static_cast<unsigned char>(input.front());
    input.remove_prefix(1);
    uint32_t &size = sizes_[sizes_read_];
    size = size_bytes_ == 0 ? byte & 0x7FU : size << 8 | byte;
    const bool is_long = size_bytes_ > 0 || byte >= 0x80;
    size_bytes_ = is_long && size_bytes_ < 3 ? size_bytes_ + 1 : 0;
    if (size_bytes_ == 0) ++sizes_read_;
  }
  sizes_read_ = 0;
  return true;
}

PairReader::Event PairReader::next(std::string_view &input) {
  if (state_ == State::kSizes) {
    if (!takeSizes(input)) return Event::kNone;
    left_ = nameSize();
    state_ = State::kName;
    return Event::kSizes;
  }
  if (state_ == State::kName && left_ == 0) {
    left_ = valueSize();
    state_ = State::kValue;
  }
  if (left_ == 0) {
    state_ = State::kSizes;
    return Event::kEnd;
  }
  if (input.empty()) return Event::kNone;
  bytes_ = take(input, left_);
  left_ -= static_cast<uint32_t>(bytes_.size());
  return state_ == State::kName ? Event::kName : Event::kValue;
}

}  // namespace tarn::server
