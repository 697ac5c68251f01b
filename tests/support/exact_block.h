// A text that ends where its block of memory ends, and begins at any distance from a multiple of 64.
// To read behind it is an error under AddressSanitizer and Valgrind.
#ifndef TARN_TESTS_SUPPORT_EXACT_BLOCK_H
#define TARN_TESTS_SUPPORT_EXACT_BLOCK_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string_view>

namespace tarn_test {

class ExactBlock {
 public:
  ExactBlock(std::string_view text, size_t shift)
      : block_(new char[shift + text.size()]), view_(block_.get() + shift, text.size()) {
    std::copy(text.begin(), text.end(), block_.get() + shift);
  }

  std::string_view view() const { return view_; }

 private:
  std::unique_ptr<char[]> block_;
  std::string_view view_;
};

}  // namespace tarn_test

#endif
