// Where responses are written to in tests.
#ifndef TARN_TESTS_CPP_OUTPUT_H
#define TARN_TESTS_CPP_OUTPUT_H

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace tarn_test {

// If it is not empty, what is written is also kept in this folder, for read_back_test.py. It is read
// before main(), because tests replace the environment.
inline const std::string kAnswers =
    std::getenv("TARN_ANSWERS") != nullptr ? std::getenv("TARN_ANSWERS") : "";

// Keeps a response for read_back_test.py.
inline void keepAnswer(std::string_view text) {
  if (kAnswers.empty()) return;
  std::string path = kAnswers + "/XXXXXX";
  FILE *const file = fdopen(mkstemp(path.data()), "w");
  std::fwrite(text.data(), 1, text.size(), file);
  std::fclose(file);
}

// A stream that keeps its output.
class Output {
 public:
  Output() : stream_(open_memstream(&text_, &size_)) {}
  ~Output() {
    std::fclose(stream_);
    keepAnswer({text_, size_});
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
