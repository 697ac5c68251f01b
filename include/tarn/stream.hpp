/* Bodies in pieces. */
#ifndef TARN_STREAM_HPP
#define TARN_STREAM_HPP

#include <cstdio>
#include <optional>
#include <string_view>

#include "response.hpp"

namespace tarn {

/** Sends a response piece by piece, while the script makes it.
 *
 *  @code
 *  tarn::Response response;
 *  response.content_type("text/csv; charset=utf-8");
 *  tarn::Stream body(response);
 *  while (next(row) && body.write(row)) continue;
 *  return body.finish() ? 0 : 1;
 *  @endcode
 *
 *  The header has no Content-Length, so a visitor cannot tell a body that broke off from a whole one.
 *  If the size is known, or the body is small, send it at once. */
class Stream {
 public:
  /** Begins the response, which must live as long as the stream. Nothing can be added to it then. Its
   *  content type is text/plain in UTF-8 unless content_type() was called. */
  explicit Stream(Response &response) noexcept
      : response_(response), wanted_(response.begin(detail::kPlainText, Response::kUnknownSize)) {}
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;

  /** Writes a piece of the body, as it is. It may wait in a buffer until flush() or finish().
   *
   *  @return true if more is wanted. It is false after a failure, and if the visitor asked for the
   *          header alone; finish() tells which. If a visitor has left, SIGPIPE ends the script, unless
   *          the script ignores it: then this returns false. */
  bool write(const detail::TextArgument &piece) noexcept {
    const std::string_view text = piece.view();
    if (!wanted_ || text.empty()) return wanted_;
    return check(std::fwrite(text.data(), 1, text.size(), response_.out_) == text.size());
  }

  /** Hands what was written to the server. It may wait for more: most servers have a buffer, too.
   *  @return as for write() */
  bool flush() noexcept { return check(std::fflush(response_.out_) == 0); }

  /** Ends the body.
   *
   *  @return true if all of it was written; otherwise Response::problem() tells what went wrong */
  [[nodiscard]] bool finish() noexcept {
    wanted_ = false;
    return response_.end();
  }

 private:
  bool check(bool done) noexcept {
    if (!done) response_.refuse("response could not be written");
    wanted_ = wanted_ && done;
    return wanted_;
  }

  Response &response_;
  bool wanted_;
};

}  // namespace tarn

#endif  // TARN_STREAM_HPP
