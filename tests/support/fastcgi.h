// FastCGI records, as a web server and a service send them. Nothing here calls Tarn.
#ifndef TARN_TESTS_SUPPORT_FASTCGI_H
#define TARN_TESTS_SUPPORT_FASTCGI_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn_test::fastcgi {

enum Type : unsigned {
  kBegin = 1,
  kAbort = 2,
  kEnd = 3,
  kParams = 4,
  kStdin = 5,
  kStdout = 6,
  kStderr = 7,
  kData = 8,
  kGetValues = 9,
  kGetValuesResult = 10,
  kUnknownType = 11,
};

enum Role : unsigned { kResponder = 1, kAuthorizer = 2, kFilter = 3 };

enum Status : unsigned { kComplete = 0, kCannotMultiplex = 1, kOverloaded = 2, kUnknownRole = 3 };

inline constexpr unsigned kKeep = 1;  // the flag that keeps the connection

std::string record(unsigned type, unsigned request, std::string_view content = "",
                   unsigned padding = 0);

std::string begin(unsigned request, unsigned flags = 0, unsigned role = kResponder);

std::string end(unsigned request, uint32_t app_status, Status status);

// A name-value pair, with lengths of one byte where they fit.
std::string pair(std::string_view name, std::string_view value);

// The same, with lengths of four bytes, which may be false.
std::string longPair(std::string_view name, std::string_view value);
std::string longPair(std::string_view name, uint32_t name_size, std::string_view value,
                     uint32_t value_size);

// A whole request: its beginning, parameters and body.
std::string request(unsigned number, std::string_view parameters, std::string_view body,
                    unsigned flags = 0);

}  // namespace tarn_test::fastcgi

#endif
