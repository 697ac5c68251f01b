#include "serve/options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace tarn::server {
namespace {

bool readNumber(const char *text, uint64_t &number) {
  if (*text < '0' || *text > '9') return false;
  number = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    if (number > (UINT64_MAX - 9) / 10) return false;
    number = number * 10 + static_cast<uint64_t>(*text - '0');
  }
  return *text == '\0';
}

// A number of bytes, with K, M or G behind it for units of 1024.
bool readSize(const char *text, uint64_t &size) {
  char digits[24];
  const size_t length = std::strlen(text);
  if (length == 0 || length >= sizeof digits) return false;
  std::memcpy(digits, text, length + 1);
  const char *const units = "KMG";
  const char *unit = std::strchr(units, text[length - 1]);
  const unsigned shift = unit ? 10 * static_cast<unsigned>(unit - units + 1) : 0;
  if (unit) digits[length - 1] = '\0';
  if (!readNumber(digits, size) || size > uint64_t{INT64_MAX} >> shift) return false;
  size <<= shift;
  return true;
}

// Milliseconds and sums of numbers fit into 64 bits.
constexpr uint64_t kMostNumber = 1000000000;

enum class Kind { kNumber, kPositive, kSize };

struct NumericOption {
  const char *name;
  Kind kind;
  uint64_t *(*place)(Options &);
};

constexpr NumericOption kNumericOptions[] = {
    {"children", Kind::kPositive, [](Options &o) { return &o.children; }},
    {"queue", Kind::kNumber, [](Options &o) { return &o.queue; }},
    {"idle-connections", Kind::kNumber, [](Options &o) { return &o.idle_connections; }},
    {"seconds", Kind::kPositive, [](Options &o) { return &o.seconds; }},
    {"receive-seconds", Kind::kPositive, [](Options &o) { return &o.receive_seconds; }},
    {"send-seconds", Kind::kPositive, [](Options &o) { return &o.send_seconds; }},
    {"body-size", Kind::kSize, [](Options &o) { return &o.body_size; }},
    {"body-in-memory", Kind::kSize, [](Options &o) { return &o.body_in_memory; }},
    {"parameters", Kind::kPositive, [](Options &o) { return &o.parameter_limits.count; }},
    {"parameters-size", Kind::kSize, [](Options &o) { return &o.parameter_limits.size; }},
    {"processor-seconds", Kind::kPositive,
     [](Options &o) { return &o.child_limits.processor_seconds; }},
    {"address-space", Kind::kSize, [](Options &o) { return &o.child_limits.address_space; }},
    {"open-files", Kind::kPositive, [](Options &o) { return &o.child_limits.open_files; }},
    {"processes", Kind::kPositive, [](Options &o) { return &o.child_limits.processes; }},
};

const char *setNumber(Options &options, const NumericOption &option, const char *value) {
  uint64_t number = 0;
  if (option.kind == Kind::kSize) {
    if (!readSize(value, number)) return "needs a number of bytes, such as 4096, 64K, 10M or 1G";
  } else {
    const bool is_positive = option.kind == Kind::kPositive;
    if (!readNumber(value, number) || number > kMostNumber || (is_positive && number == 0)) {
      return is_positive ? "needs a number from 1 to 1000000000"
                         : "needs a number from 0 to 1000000000";
    }
  }
  *option.place(options) = number;
  return nullptr;
}

const char *setSocketMode(Options &options, const char *value) {
  char *end = nullptr;
  const unsigned long mode = std::strtoul(value, &end, 8);
  if (*value < '0' || *value > '7' || *end != '\0' || mode > 0777) {
    return "needs an octal mode, such as 0660";
  }
  options.socket_mode = static_cast<unsigned>(mode);
  return nullptr;
}

const char *setErrors(Options &options, const char *value) {
  options.sends_errors = std::strcmp(value, "both") == 0;
  return options.sends_errors || std::strcmp(value, "own") == 0 ? nullptr : "must be both or own";
}

// Returns null if memory runs out.
char *copyOf(const char *text) {
  const size_t size = std::strlen(text) + 1;
  auto *copy = static_cast<char *>(std::malloc(size));
  if (copy) std::memcpy(copy, text, size);
  return copy;
}

// Replaces a text by a copy of another.
const char *setText(const char *&text, const char *value) {
  if (*value == '\0') return "needs a value";
  char *copy = copyOf(value);
  if (!copy) return "needs more memory";
  std::free(const_cast<char *>(text));
  text = copy;
  return nullptr;
}

const char *setAccessFormat(Options &options, const char *value) {
  const bool is_json = std::strcmp(value, "json") == 0;
  if (!is_json && std::strcmp(value, "common") != 0) return "must be common or json";
  options.access_format = is_json ? AccessFormat::kJson : AccessFormat::kCommon;
  return nullptr;
}

const char *addListener(Options &options, const char *value) {
  if (options.listen_count == kMostListeners) return "is allowed 8 times";
  const char *copy = copyOf(value);
  if (!copy) return "needs more memory";
  options.listen[options.listen_count++] = copy;
  return nullptr;
}

struct TextOption {
  const char *name;
  const char *(*set)(Options &, const char *value);
};

constexpr TextOption kTextOptions[] = {
    {"listen", addListener},
    {"socket-mode", setSocketMode},
    {"errors", setErrors},
    {"status", [](Options &o, const char *value) { return setText(o.status, value); }},
    {"access-log", [](Options &o, const char *value) { return setText(o.access_log, value); }},
    {"access-log-format", setAccessFormat},
};

}  // namespace

const char *setOption(Options &options, const char *name, const char *value) {
  const char *problem = nullptr;
  if (setRight(options.rights, name, value, problem)) return problem;
  for (const TextOption &option : kTextOptions) {
    if (std::strcmp(name, option.name) != 0) continue;
    return value ? option.set(options, value) : "needs a value";
  }
  for (const NumericOption &option : kNumericOptions) {
    if (std::strcmp(name, option.name) != 0) continue;
    return value ? setNumber(options, option, value) : "needs a value";
  }
  return "is not an option";
}

// "--name=value" and "--name value" are the same.
static int readArguments(Options &options, int count, char *const *arguments) {
  int i = 0;
  while (i < count && arguments[i]) {
    const char *argument = arguments[i];
    if (std::strncmp(argument, "--", 2) != 0) break;
    ++i;
    if (argument[2] == '\0') break;
    char name[64];
    const char *equals = std::strchr(argument, '=');
    const size_t size = equals ? static_cast<size_t>(equals - argument) : std::strlen(argument);
    const char *problem = "is not an option";
    if (size - 2 < sizeof name) {
      std::memcpy(name, argument + 2, size - 2);
      name[size - 2] = '\0';
      const char *value = equals                       ? equals + 1
                          : i < count && !isFlag(name) ? arguments[i++]
                                                       : nullptr;
      problem = setOption(options, name, value);
    }
    if (problem) {
      std::fprintf(stderr, "tarn-serve: %.*s %s\n", static_cast<int>(size), argument, problem);
      return -1;
    }
  }
  return i;
}

int readOptions(Options &options, int count, char *const *arguments) {
  const char *own[kMostListeners];
  const size_t own_count = options.listen_count;
  std::copy(options.listen, options.listen + own_count, own);
  options.listen_count = 0;
  const int read = readArguments(options, count, arguments);
  // Listeners of the command line replace those of the program.
  if (options.listen_count == 0) {
    std::copy(own, own + own_count, options.listen);
    options.listen_count = own_count;
  } else {
    for (size_t i = 0; i < own_count; ++i) std::free(const_cast<char *>(own[i]));
  }
  return read;
}

}  // namespace tarn::server
