// Where responses are written to in tests.
#ifndef TARN_TESTS_CPP_OUTPUT_H
#define TARN_TESTS_CPP_OUTPUT_H

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tarn_test {

// If it is not empty, what is written is also kept in this folder, for read_back_test.py. It is read
// before main(), because tests replace the environment.
inline const std::string kAnswers =
    std::getenv("TARN_ANSWERS") != nullptr ? std::getenv("TARN_ANSWERS") : "";

// A stream that keeps its output.
class Output {
 public:
  Output() : stream_(open_memstream(&text_, &size_)) {}
  ~Output() {
    std::fclose(stream_);
    if (!kAnswers.empty()) keep();
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
  void keep() const {
    std::string path = kAnswers + "/XXXXXX";
    FILE *const file = fdopen(mkstemp(path.data()), "w");
    std::fwrite(text_, 1, size_, file);
    std::fclose(file);
  }

  char *text_ = nullptr;
  size_t size_ = 0;
  FILE *stream_;
};

}  // namespace tarn_test

#endif
