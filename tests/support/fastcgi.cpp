#include "support/fastcgi.h"

namespace tarn_test::fastcgi {
namespace {

// A number of so many bytes, the highest first.
std::string number(uint32_t value, unsigned bytes) {
  std::string text;
  while (bytes-- > 0) text += static_cast<char>(value >> 8 * bytes & 0xFF);
  return text;
}

std::string length(size_t size) {
  if (size < 128) return number(static_cast<uint32_t>(size), 1);
  return number(static_cast<uint32_t>(size) | 0x80000000U, 4);
}

}  // namespace

std::string record(unsigned type, unsigned request, std::string_view content, unsigned padding) {
  return number(1, 1) + number(type, 1) + number(request, 2) +
         number(static_cast<uint32_t>(content.size()), 2) + number(padding, 1) + number(0, 1) +
         std::string(content) + std::string(padding, 'p');
}

std::string begin(unsigned request, unsigned flags, unsigned role) {
  return record(kBegin, request, number(role, 2) + number(flags, 1) + std::string(5, '\0'));
}

std::string end(unsigned request, uint32_t app_status, Status status) {
  return record(kEnd, request, number(app_status, 4) + number(status, 1) + std::string(3, '\0'));
}

std::string pair(std::string_view name, std::string_view value) {
  return length(name.size()) + length(value.size()) + std::string(name) + std::string(value);
}

std::string longPair(std::string_view name, std::string_view value) {
  return longPair(name, static_cast<uint32_t>(name.size()), value,
                  static_cast<uint32_t>(value.size()));
}

std::string longPair(std::string_view name, uint32_t name_size, std::string_view value,
                     uint32_t value_size) {
  return number(name_size | 0x80000000U, 4) + number(value_size | 0x80000000U, 4) +
         std::string(name) + std::string(value);
}

std::string request(unsigned number, std::string_view parameters, std::string_view body,
                    unsigned flags) {
  std::string bytes = begin(number, flags);
  if (!parameters.empty()) bytes += record(kParams, number, parameters);
  bytes += record(kParams, number);
  if (!body.empty()) bytes += record(kStdin, number, body);
  return bytes + record(kStdin, number);
}

}  // namespace tarn_test::fastcgi
