// Tests the text utilities with texts in heap blocks of exactly their size.
#include <algorithm>
#include <cstdarg>
#include <cstdlib>

#include "support.h"

using namespace tarn_fuzz;

namespace {

// What saferSystem() passes to system(). That is replaced below: no input reaches a shell.
std::string command;
bool shellIsAway = false;
constexpr int kAnswer = 42;

int sign(int number) { return (number > 0) - (number < 0); }

int order(const std::string &a, const std::string &b) {
  return sign(tarn_rules::lowered(a).compare(tarn_rules::lowered(b)));
}

void comparing(Input &input) {
  const uint32_t limit = input.below(16);
  const CText a(input.piece());
  const CText b(input.rest());
  const std::string left = a.data();
  const std::string right = b.data();
  EXPECT(sign(stringsAreEqual(a.data(), b.data())) == order(left, right));
  EXPECT(sign(nStringsAreEqual(a.data(), b.data(), limit)) ==
         order(left.substr(0, limit), right.substr(0, limit)));
  EXPECT(stringsAreEqual(nullptr, b.data()) == -1 && stringsAreEqual(a.data(), nullptr) == 1);
  EXPECT(nStringsAreEqual(nullptr, nullptr, limit) == 0);
}

void decoding(Input &input) {
  const CText text(input.rest());
  const OwnedText decoded = owned(unescapeString(text.data()));
  EXPECT(decoded.get() == tarn_rules::decoded(text.data()));
  const OwnedText stripped = owned(stripString(text.data()));
  EXPECT(stripped.get() == tarn_rules::stripped(text.data()));
}

void digits(Input &input) {
  const auto high = static_cast<char>(input.byte());
  const auto low = static_cast<char>(input.byte());
  if (high == '\0' || low == '\0') return;
  const std::string decoded = tarn_rules::decoded(std::string("%") + high + low);
  EXPECT(hexToChar(high, low) == static_cast<unsigned char>(decoded.c_str()[0]));
}

void shell(Input &input) {
  const CText text(input.rest());
  std::string expected;
  for (const char c : std::string_view(text.data())) {
    if (c == ';' || c == '|' || c == '<' || c == '>') expected += '\\';
    expected += c;
  }
  shellIsAway = true;
  EXPECT(saferSystem(text.data()) == kAnswer);
  shellIsAway = false;
  EXPECT(command == expected);
}

void searching(Input &input) {
  const Block needle(input.piece());
  const Block haystack(input.rest());
  const size_t at = haystack.view().find(needle.view());
  const char *expected = at == std::string_view::npos ? nullptr : haystack.data() + at;
  EXPECT(memfind(haystack.data(), haystack.size(), needle.data(), needle.size()) == expected);
}

std::string cut(std::string_view data, size_t readable, const std::string &open,
                const std::string &close) {
  const std::string_view all = data.substr(0, data.size() - readable);
  const size_t mark = all.find(open);
  if (mark == all.npos) return "";
  const size_t start = mark + open.size();
  const size_t end = data.substr(start, all.size() - open.size()).find(close);
  return std::string(data.substr(start, end == data.npos ? all.size() + 1 - start : end));
}

// Quirk 37: extractBetween() searches for the closing mark past the end of the data, by as many
// bytes as come before the opening mark. If there is no closing mark, it includes one byte past the
// end. The block is larger than the data by exactly that much.
void extracting(Input &input) {
  const CText open(input.piece());
  const CText close(input.piece());
  const std::string_view given = input.rest();
  const size_t mark = given.find(open.data());
  const size_t beyond = std::max<size_t>(mark == given.npos ? 0 : mark, 1);
  const size_t length = mark == given.npos ? given.size() : given.size() - given.size() / 8;
  if (mark != given.npos && mark + open.size() - 1 > length) return;
  std::string data(given);
  data.resize(length + beyond, '\0');
  const Block block(data);
  TarnHandle buffer =
      extractBetween(block.data(), static_cast<uint32_t>(length), open.data(), close.data());
  const std::string expected = cut(data, beyond, open.data(), close.data());
  EXPECT(CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC) == expected.size());
  const uintptr_t bytes = CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC);
  EXPECT((bytes != 0) == !expected.empty());
  EXPECT(expected ==
         std::string_view(reinterpret_cast<const char *>(bytes), bytes ? expected.size() : 0));
  EXPECT(CGIgs_delete(&buffer, TARN_BYTE_BUFFER_MAGIC) == TARN_OK);

  TarnHandle one = extractBetween1(block.data(), static_cast<uint32_t>(length), open.data());
  EXPECT(CGIgs_getInt(&one, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC) ==
         cut(data, beyond, open.data(), open.data()).size());
  EXPECT(CGIgs_delete(&one, TARN_BYTE_BUFFER_MAGIC) == TARN_OK);
}

int formatList(char **out, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = tarn_vasprintf(out, format, args);
  va_end(args);
  return length;
}

void formatting(Input &input) {
  const auto number = static_cast<int>(input.anyNumber());
  const CText text(input.rest());
  const std::string expected = std::to_string(number) + "-" + text.data();
  char *made = nullptr;
  EXPECT(tarn_asprintf(&made, "%d-%s", number, text.data()) == static_cast<int>(expected.size()));
  EXPECT(owned(made).get() == expected);
  EXPECT(formatList(&made, "%s%%", text.data()) ==
         static_cast<int>(std::string(text.data()).size() + 1));
  EXPECT(owned(made).get() == std::string(text.data()) + "%");
  EXPECT(formatList(nullptr, "%s", text.data()) == static_cast<int>(text.size()) - 1);
}

void variables(Input &input) {
  const CText name(input.piece());
  const CText value(input.rest());
  const std::string_view key = name.data();
  Script script({{"GIVEN", value.data()}}, "");
  EXPECT(safeGetenv("GIVEN") == std::string_view(value.data()));
  EXPECT(safeGetenv(name.data()) == std::string_view(key == "GIVEN" ? value.data() : ""));
}

// Reads numbers and text from a stream of arbitrary bytes.
void reading(Input &input) {
  const std::string_view bytes = input.rest();
  // A large count makes readString() allocate a large block, which is slow under AddressSanitizer.
  if (std::strtoll(std::string(bytes).c_str(), nullptr, 10) > 1 << 16) return;
  Stream numbers(bytes);
  for (int i = 0; i < 4; ++i) readLong(numbers.file());
  Stream texts(bytes);
  const OwnedText text = owned(readString(texts.file()));
  EXPECT(text);
}

// Text that was written is read back without its leading white space, up to the first line end.
void writingAndReading(Input &input) {
  const long number = static_cast<int32_t>(input.anyNumber());
  const CText text(input.rest());
  const std::string sent = text.data();
  Stream out;
  writeLong(out.file(), number);
  writeLong(out.file(), static_cast<long>(sent.size()) + 1);
  writeString(out.file(), text.data());
  const std::string written = out.written();
  EXPECT(written ==
         " " + std::to_string(number) + "  " + std::to_string(sent.size() + 1) + "  " + sent + " ");
  Stream in(written);
  EXPECT(readLong(in.file()) == number);
  // Reading the count also skips the leading white space; then comes a line, or as many bytes as
  // were counted.
  std::string expected = sent + " ";
  expected.erase(0, expected.find_first_not_of(" \t\n\v\f\r"));
  expected = expected.substr(0, sent.size());
  const size_t lineEnd = expected.find('\n');
  if (lineEnd != expected.npos) expected.resize(lineEnd + 1);
  EXPECT(owned(readString(in.file())).get() == expected);
}

}  // namespace

// The linker redirects every call of system() here. libFuzzer's calls, by which it restarts itself,
// go on to the real one.
extern "C" int __real_system(const char *text);

extern "C" int __wrap_system(const char *text) {
  if (!shellIsAway) return __real_system(text);
  command = text;
  return kAnswer;
}

void fuzz(Input input) {
  using Action = void (*)(Input &);
  constexpr Action kActions[] = {comparing,  decoding,   digits,    shell,   searching,
                                 extracting, formatting, variables, reading, writingAndReading};
  // Actions are letters, to keep inputs readable: "a" compares, "b" decodes, ...
  kActions[(input.byte() + 256U - 'a') % std::size(kActions)](input);
}
