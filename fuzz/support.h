// What the fuzz targets share. Each target defines fuzz(); the rest is here.
#ifndef TARN_FUZZ_SUPPORT_H
#define TARN_FUZZ_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/rules.h"
#include "tarn.h"

// Ends the process when something does not hold; the fuzzer then keeps the input.
#define EXPECT(condition) ((condition) ? void() : tarn_fuzz::fail(__FILE__, __LINE__, #condition))

namespace tarn_fuzz {

using namespace tarn_rules;

[[noreturn]] void fail(const char *file, int line, const char *condition);

// Takes an input apart. What is asked for beyond the end is zero or empty.
class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}

  bool empty() const { return rest_.empty(); }
  uint8_t byte();
  // A number below `limit`.
  uint32_t below(uint32_t limit);
  // Mostly small, sometimes at the limits of 32 bits.
  uint32_t anyNumber();
  std::string_view take(size_t count);
  // As many bytes as the next byte says.
  std::string_view piece() { return take(byte()); }
  // Up to the next line end, which is dropped: inputs that are made of lines can be read.
  std::string_view line();
  std::string_view rest() { return take(rest_.size()); }

 private:
  std::string_view rest_;
};

// Bytes in a heap block of just their size: the sanitizer sees a step outside.
class Block {
 public:
  explicit Block(std::string_view bytes);

  char *data() const { return bytes_.get(); }
  uint32_t size() const { return size_; }
  std::string_view view() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  uint32_t size_;
};

// A text and its final zero byte in a block of just their size.
class CText : public Block {
 public:
  explicit CText(std::string_view text);
};

// A stream over some bytes, or one whose output can be asked for.
class Stream {
 public:
  Stream();
  explicit Stream(std::string_view input);
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
  ~Stream();

  FILE *file() const { return file_; }
  std::string written();
  std::string unread();

 private:
  char *buffer_ = nullptr;
  size_t size_ = 0;
  FILE *file_;
};

// A text that goes to free().
using OwnedText = std::unique_ptr<char, decltype(&std::free)>;
inline OwnedText owned(const char *text) { return {const_cast<char *>(text), &std::free}; }

// Makes the process a script for its lifetime: these variables and no others are its environment,
// these bytes its standard input, and what it prints can be asked for.
class Script {
 public:
  using Variable = std::pair<std::string_view, std::string_view>;

  Script(std::initializer_list<Variable> variables, std::string_view body);
  Script(const Script &) = delete;
  Script &operator=(const Script &) = delete;
  ~Script();

  std::string unreadInput() { return input_.unread(); }
  std::string printed() { return output_.written(); }

 private:
  std::vector<CText> texts_;
  std::vector<char *> environment_;
  Stream input_;
  Stream output_;
  char **environmentBefore_;
  FILE *inputBefore_;
  FILE *outputBefore_;
};

// The library leaves some blocks to the end of the process. An input is a process here: these
// blocks are freed after it, so that a fuzzer's memory stays as it is and the sanitizer sees who
// frees one of them too. A target that frees such a block itself says so.
void notAbandoned(const void *block);

}  // namespace tarn_fuzz

// The target: one input.
void fuzz(tarn_fuzz::Input input);

#endif
