// Watches what a script answers.
#ifndef TARN_SERVE_OUTPUT_H
#define TARN_SERVE_OUTPUT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "serve/private_memory.h"

namespace tarn::server {

// Holds an answer back until its header is complete, so that an answer without one can be replaced
// by an error page. Then lets all of it through, and counts it against its Content-Length.
//
// An answer has a header if its first line has a name and a colon, begins with "HTTP/" or is empty. The
// other lines are left to the web server: what one server refuses in a CGI script's header, another
// accepts.
class Output {
 public:
  enum class State {
    kHeader,  // the header has not arrived completely
    kBody,    // the header is complete
    kBad,     // what arrived is not a header
    kOutOfMemory,
  };

  // With its empty line. Browsers refuse longer ones.
  static constexpr size_t kMostHeader = size_t{256} * 1024;

  // Takes bytes of the answer. In the state kBody afterwards, header() and then `rest` have to be
  // sent; `rest` is all of `bytes` once the header has been taken.
  State take(std::string_view bytes, std::string_view &rest);

  // The header, once, after the state became kBody. "Status" comes after "Location".
  std::string_view header();

  State state() const { return state_; }

  // Whether the body was shorter than its Content-Length. That of an answer without a body may be
  // the length of what the browser already has, or of a file that the web server sends instead.
  bool isShort() const { return isShorter() && !(mayBeEmpty() && body_size_ == 0); }

  // Whether the web server needs nothing more: the body has all the bytes of its Content-Length, or
  // the answer has no body.
  bool isWhole() const {
    return state_ == State::kBody && ((has_length_ && body_size_ >= length_) || mayBeEmpty());
  }

  // The HTTP status of the answer, as web servers find it out: 302 with Location alone. 0 if it is
  // not a number of three digits.
  int status() const { return status_ >= 0 ? status_ : has_location_ ? 302 : 200; }

  // How much of the body has been taken.
  uint64_t bodySize() const { return body_size_; }

  // Forgets everything, for the next answer.
  void clear();

 private:
  bool isShorter() const { return state_ == State::kBody && has_length_ && body_size_ < length_; }
  bool mayBeEmpty() const { return status_has_no_body_ || names_file_; }

  void takeLine();
  void endHeader(size_t empty_line);
  void takeField(std::string_view name, std::string_view value);
  void takeStatus(std::string_view status);

  PrivateBytes header_;
  size_t line_ = 0;             // where in the header the current line begins
  size_t status_line_ = 0;      // where the last line "Status" begins
  size_t status_line_end_ = 0;  // and ends; 0 without one
  bool location_follows_ = false;
  bool has_location_ = false;
  int status_ = -1;  // -1 if the answer names none
  State state_ = State::kHeader;
  bool is_header_sent_ = false;
  bool has_length_ = false;
  bool status_has_no_body_ = false;
  bool names_file_ = false;
  uint64_t length_ = 0;
  uint64_t body_size_ = 0;
};

}  // namespace tarn::server

#endif
