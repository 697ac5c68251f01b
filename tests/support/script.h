// Runs code the way a web server runs a script: in its own process, with a new environment, the
// body on standard input and a limit of processor time. What only reads the environment needs no
// process.
#ifndef TARN_TESTS_SUPPORT_SCRIPT_H
#define TARN_TESTS_SUPPORT_SCRIPT_H

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace tarn_test {

using Variables = std::map<std::string, std::string>;

// Expectations that fail inside `script` fail the calling test, and so do a crash and, under the
// leak sanitizer, a leak. The input ends after `body`.
void asScript(const Variables &variables, std::string_view body,
              const std::function<void()> &script);

// Runs code in this process with another environment. It must neither read the input nor change the
// environment.
void withEnvironment(const Variables &variables, const std::function<void()> &code);

// Bytes as a failure shows them: quoted, with escapes, and no more than 500.
std::string shown(std::string_view bytes);

// A GET with this query string, and a POST of this body with its CONTENT_LENGTH.
Variables get(const std::string &query);
Variables post(const std::string &contentType, std::string_view body);

}  // namespace tarn_test

#endif
