// A body that arrives through a file descriptor in pieces of chosen sizes, without a process that
// sends it. The test program has its own read() and poll(), which the library calls.
#ifndef TARN_TESTS_SUPPORT_PIECES_H
#define TARN_TESTS_SUPPORT_PIECES_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/form_model.h"
#include "tarn_form.h"

namespace tarn_test {

inline constexpr char kMultipart[] = "multipart/form-data; boundary=b";
inline constexpr char kUrlEncoded[] = "application/x-www-form-urlencoded";

// A part of a body; `headers` is what follows "form-data; ".
std::string part(const std::string &headers, const std::string &value,
                 const std::string &boundary = "b");

class Pieces {
 public:
  // One at a time in each thread. The sizes repeat. After the body, reading fails with this errno
  // value, unless it is 0.
  Pieces(std::string_view body, std::vector<size_t> sizes, int error = 0);
  ~Pieces();
  Pieces(const Pieces &) = delete;
  Pieces &operator=(const Pieces &) = delete;

  static constexpr int kDescriptor = 987654;

  // Called before the second piece.
  std::function<void()> meanwhile;

  // Returns an errno value with which the next call fails, or 0. Called for each read() and poll().
  std::function<int()> failing;

  // How many bytes have been read.
  size_t taken() const { return taken_; }

  ptrdiff_t read(void *buffer, size_t size);
  int poll() const;

 private:
  std::string_view body_;
  std::vector<size_t> sizes_;
  size_t next_ = 0;
  size_t taken_ = 0;
  int error_;
};

// Reads a form to its end, in blocks, and closes it.
ModelResult readAll(TarnForm *form);

// The same, of a body in memory, or in pieces of these sizes.
ModelResult readFromMemory(const char *type, std::string_view body);
ModelResult readInPieces(const char *type, std::string_view body, const std::vector<size_t> &sizes);

}  // namespace tarn_test

#endif
