// What a script sees of its request, as plain values that compare and print.
#ifndef TARN_TESTS_SUPPORT_FORM_H
#define TARN_TESTS_SUPPORT_FORM_H

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>

#include "support/processor_time.h"
#include "support/rules.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_rules {

// GoogleTest finds these beside the types.
std::ostream &operator<<(std::ostream &out, const Entry &entry);
std::ostream &operator<<(std::ostream &out, const File &file);
std::ostream &operator<<(std::ostream &out, const Cookie &cookie);
std::ostream &operator<<(std::ostream &out, const Form &form);

}  // namespace tarn_rules

namespace tarn_test {

using namespace tarn_rules;

Text textOf(const char *text);

Entry entryOf(TarnHandle entry);
Entries entriesOf(TarnHandle list);
File fileOf(TarnHandle file);
Files filesOf(TarnHandle list);

// The body and the cookies of an environment; kNone without a body or a cookie list.
Text bodyOf(TarnHandle environment);
std::optional<Cookies> cookiesOf(TarnHandle environment);

// An environment owned by the test.
class Environment {
 public:
  Environment() : status(CgiEnv_new(&handle)) {}
  ~Environment() { CgiEnv_delete(&handle); }
  Environment(const Environment &) = delete;
  Environment &operator=(const Environment &) = delete;

  Text body() const { return bodyOf(handle); }
  std::optional<Cookies> cookies() const { return cookiesOf(handle); }
  int32_t contentLength() {
    return static_cast<int32_t>(
        CGIgs_getInt(&handle, TARN_ENVIRONMENT_CONTENT_LENGTH, TARN_ENVIRONMENT_MAGIC));
  }
  uint32_t https() { return CGIgs_getInt(&handle, TARN_ENVIRONMENT_HTTPS, TARN_ENVIRONMENT_MAGIC); }

  TarnHandle handle = 0;
  const TarnStatus status;
};

class Request {
 public:
  Request() : status(Tarn_new(&handle)) {}
  ~Request() { Tarn_delete(&handle); }
  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;

  TarnHandle environment() {
    return CGIgs_getStruct(&handle, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
  }
  TarnHandle entryList() {
    return CGIgs_getStruct(&handle, TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC);
  }
  TarnHandle fileList() { return CGIgs_getStruct(&handle, TARN_REQUEST_FILES, TARN_REQUEST_MAGIC); }
  Entries entries() { return entriesOf(entryList()); }
  Files files() { return filesOf(fileList()); }
  Form form() { return {entries(), files()}; }

  // empty() removes all entries and files; copyAndRelease() also returns them.
  void empty();
  Form takeForm();

  TarnHandle handle = 0;
  const TarnStatus status;
};

// Runs a script on a new request made from this query string.
void asScriptOf(const std::string &query, const std::function<void(Request &)> &script);

// Runs a script that reads this request under the time limit, and compares the form.
void expectForm(const Variables &variables, std::string_view body, const Form &expected,
                std::source_location where = std::source_location::current());

// Bytes in a block of exactly their size, so that a sanitizer detects reads beyond them.
class ExactBlock {
 public:
  explicit ExactBlock(std::string_view bytes);
  char *text() { return bytes_.get(); }
  uint8_t *bytes() { return reinterpret_cast<uint8_t *>(bytes_.get()); }
  uint32_t size() const { return size_; }
  std::string str() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  uint32_t size_;
};

// Replaces the standard input of the running script. The bytes must fit into a pipe, and the
// previous input must be consumed. With After::kOpen the input does not end after them.
enum class After { kEnd, kOpen };
void feedStandardInput(std::string_view body, After after = After::kEnd);

// Sends a body to the running script's standard input, byte by byte, with a SIGALRM every
// millisecond that is handled with these sigaction() flags. The sender waits for signals before the
// second half, so that some arrive while the script reads, however busy the machine is.
class InputThroughSignals {
 public:
  explicit InputThroughSignals(const std::string &body, int flags = 0);
  // Stops the signals and checks that the whole body was sent.
  ~InputThroughSignals();
  InputThroughSignals(const InputThroughSignals &) = delete;
  InputThroughSignals &operator=(const InputThroughSignals &) = delete;

 private:
  int sender_ = 0;
};

// Calls `look` with a null address, an empty handle, a generic list and nodes of several types,
// except the type that is left out, and checks that none of them changes.
void withEveryHandleExcept(uint32_t leftOut, const std::function<void(TarnHandle *)> &look);

// The rest of standard input, read with stdio.
std::string restOfStandardInput();

}  // namespace tarn_test

#endif
