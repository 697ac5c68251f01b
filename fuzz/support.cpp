#include "support.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace tarn_fuzz {
namespace {

std::vector<void *> abandoned;

void releaseAbandoned() {
  std::sort(abandoned.begin(), abandoned.end());
  abandoned.erase(std::unique(abandoned.begin(), abandoned.end()), abandoned.end());
  for (void *block : abandoned) std::free(block);
  abandoned.clear();
}

}  // namespace

void fail(const char *file, int line, const char *condition) {
  std::fprintf(stderr, "%s:%d: EXPECT failed: %s\n", file, line, condition);
  std::abort();
}

uint8_t Input::byte() {
  const std::string_view taken = take(1);
  return taken.empty() ? 0 : static_cast<uint8_t>(taken.front());
}

uint32_t Input::below(uint32_t limit) { return limit > 0 ? byte() % limit : 0; }

uint32_t Input::anyNumber() {
  const uint32_t number = byte();
  if (number < 192) return number;
  const uint32_t wide[] = {UINT32_MAX, INT32_MAX, uint32_t{INT32_MAX} + 1, 1U << 16, 10, 16};
  return wide[number % 6] - (number - 192) / 6;
}

std::string_view Input::take(size_t count) {
  const std::string_view taken = rest_.substr(0, count);
  rest_.remove_prefix(taken.size());
  return taken;
}

std::string_view Input::line() {
  const std::string_view taken = take(std::min(rest_.find('\n'), rest_.size()));
  take(1);
  return taken;
}

Block::Block(std::string_view bytes)
    : bytes_(new char[bytes.size()]), size_(static_cast<uint32_t>(bytes.size())) {
  if (!bytes.empty()) std::memcpy(bytes_.get(), bytes.data(), bytes.size());
}

CText::CText(std::string_view text) : Block(std::string(asText(text)) + '\0') {}

Stream::Stream() : file_(open_memstream(&buffer_, &size_)) {}

Stream::Stream(std::string_view input)
    : file_(fmemopen(const_cast<char *>(input.data()), input.size(), "r")) {
  EXPECT(file_);
}

Stream::~Stream() {
  std::fclose(file_);
  std::free(buffer_);
}

std::string Stream::written() {
  std::fflush(file_);
  return {buffer_, size_};
}

std::string Stream::unread() {
  std::string rest;
  for (int byte = std::getc(file_); byte != EOF; byte = std::getc(file_)) {
    rest.push_back(static_cast<char>(byte));
  }
  return rest;
}

#if defined(__GLIBC__)
Script::Streams::Streams(std::string_view body)
    : input_(body), inputBefore_(stdin), outputBefore_(stdout) {
  stdin = input_.file();
  stdout = output_.file();
}

Script::Streams::~Streams() {
  stdin = inputBefore_;
  stdout = outputBefore_;
}

std::string Script::Streams::unread() { return input_.unread(); }
std::string Script::Streams::written() { return output_.written(); }
#else
// The streams of other C libraries are constants, so files take the place of theirs.
Script::Streams::Streams(std::string_view body)
    : input_(memfd_create("input", 0)), output_(memfd_create("output", 0)) {
  EXPECT(input_ >= 0 && output_ >= 0);
  EXPECT(write(input_, body.data(), body.size()) == static_cast<ssize_t>(body.size()));
  std::fflush(stdout);
  inputBefore_ = dup(STDIN_FILENO);
  outputBefore_ = dup(STDOUT_FILENO);
  EXPECT(dup2(input_, STDIN_FILENO) == STDIN_FILENO);
  EXPECT(dup2(output_, STDOUT_FILENO) == STDOUT_FILENO);
  std::rewind(stdin);
}

Script::Streams::~Streams() {
  std::fflush(stdout);
  std::clearerr(stdout);
  dup2(inputBefore_, STDIN_FILENO);
  dup2(outputBefore_, STDOUT_FILENO);
  for (const int file : {input_, output_, inputBefore_, outputBefore_}) close(file);
}

std::string Script::Streams::unread() {
  std::string rest;
  for (int byte = std::getchar(); byte != EOF; byte = std::getchar()) {
    rest.push_back(static_cast<char>(byte));
  }
  return rest;
}

std::string Script::Streams::written() {
  std::fflush(stdout);
  std::string bytes(static_cast<size_t>(lseek(output_, 0, SEEK_CUR)), '\0');
  EXPECT(pread(output_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  return bytes;
}
#endif

Script::Script(std::initializer_list<Variable> variables, std::string_view body)
    : streams_(body), environmentBefore_(environ) {
  texts_.reserve(variables.size());
  for (const auto &[name, value] : variables) {
    texts_.emplace_back(std::string(name) + "=" + std::string(value));
    environment_.push_back(texts_.back().data());
  }
  environment_.push_back(nullptr);
  environ = environment_.data();
}

Script::~Script() { environ = environmentBefore_; }

void notAbandoned(const void *block) { std::erase(abandoned, block); }

}  // namespace tarn_fuzz

// The linker redirects the library's calls of __lsan_ignore_object() here.
extern "C" void __wrap___lsan_ignore_object(const void *block) {
  tarn_fuzz::abandoned.push_back(const_cast<void *>(block));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz(tarn_fuzz::Input({reinterpret_cast<const char *>(data), size}));
  tarn_fuzz::releaseAbandoned();
  return 0;
}
