// Small operations on texts.
#ifndef TARN_FORM_TEXT_H
#define TARN_FORM_TEXT_H

#include <cstddef>
#include <cstring>
#include <string_view>

namespace tarn::form {

// For ASCII letters.
inline char toLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }

inline bool isSpace(char c) { return c == ' ' || c == '\t'; }

inline bool beginsWith(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && std::memcmp(text.data(), start.data(), start.size()) == 0;
}

// Compares ASCII letters in any case.
inline bool equalIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  if (a.empty() || std::memcmp(a.data(), b.data(), a.size()) == 0) return true;
  for (size_t i = 0; i < a.size(); ++i) {
    if (toLower(a[i]) != toLower(b[i])) return false;
  }
  return true;
}

// Without spaces and tabs at both ends.
inline std::string_view trim(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace tarn::form

#endif
