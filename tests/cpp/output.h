// Where responses are written to in tests.
#ifndef TARN_TESTS_CPP_OUTPUT_H
#define TARN_TESTS_CPP_OUTPUT_H

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tarn_test {

// A stream that keeps its output.
class Output {
 public:
  Output() : stream_(open_memstream(&text_, &size_)) {}
  ~Output() {
    std::fclose(stream_);
    std::free(text_);
  }
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  operator FILE *() const { return stream_; }
  std::string written() {
    std::fflush(stream_);
    return {text_, size_};
  }

 private:
  char *text_ = nullptr;
  size_t size_ = 0;
  FILE *stream_;
};

}  // namespace tarn_test

#endif
