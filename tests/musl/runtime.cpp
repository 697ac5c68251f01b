// The part of a C++ runtime that the fuzz targets need, so that they can be linked with musl. Scripts
// have none of it.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

namespace {

void *allocated(size_t size, size_t alignment) {
  void *block = nullptr;
  if (posix_memalign(&block, alignment, size > 0 ? size : 1) != 0) std::abort();
  return block;
}

template <class Number>
std::string printed(const char *format, Number number) {
  char text[32];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

// Where the standard functions throw, these abort.
template <class Number>
Number parsed(Number (*parse)(const char *, char **, int), const std::string &text, size_t *length,
              int base) {
  char *end = nullptr;
  errno = 0;
  const Number number = parse(text.c_str(), &end, base);
  if (end == text.c_str() || errno == ERANGE) std::abort();
  if (length) *length = static_cast<size_t>(end - text.c_str());
  return number;
}

}  // namespace

void *operator new(size_t size) { return allocated(size, alignof(std::max_align_t)); }
void *operator new[](size_t size) { return operator new(size); }
void *operator new(size_t size, const std::nothrow_t &) noexcept { return operator new(size); }
void *operator new(size_t size, std::align_val_t alignment) {
  return allocated(size, static_cast<size_t>(alignment));
}
void operator delete(void *block) noexcept { std::free(block); }
void operator delete[](void *block) noexcept { std::free(block); }
void operator delete(void *block, size_t) noexcept { std::free(block); }
void operator delete[](void *block, size_t) noexcept { std::free(block); }
void operator delete(void *block, std::align_val_t) noexcept { std::free(block); }

namespace std {
const nothrow_t nothrow{};

inline namespace __1 {
string to_string(int number) { return printed("%d", number); }
string to_string(long number) { return printed("%ld", number); }
string to_string(unsigned number) { return printed("%u", number); }
string to_string(unsigned long number) { return printed("%lu", number); }

int stoi(const string &text, size_t *length, int base) {
  const long number = parsed(strtol, text, length, base);
  if (number < INT_MIN || number > INT_MAX) std::abort();
  return static_cast<int>(number);
}
unsigned long stoul(const string &text, size_t *length, int base) {
  return parsed(strtoul, text, length, base);
}
unsigned long long stoull(const string &text, size_t *length, int base) {
  return parsed(strtoull, text, length, base);
}
}  // namespace __1
}  // namespace std
