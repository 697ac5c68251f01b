// Reads a text in each line of its input, and prints the number and the day that it is.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tarn.hpp"

namespace {

const char *name_of(tarn::Reason reason) {
  constexpr const char *kNames[] = {"none", "missing", "malformed", "out_of_range"};
  return kNames[static_cast<int>(reason)];
}

void print(std::string_view text) {
  const tarn::Checked<double> number = tarn::real(text);
  const tarn::Checked<tarn::Date> day = tarn::date(text);
  if (number) {
    unsigned long long bits = 0;
    std::memcpy(&bits, &*number, sizeof bits);
    std::printf("%016llx ", bits);
  } else {
    std::printf("%s ", name_of(number.reason()));
  }
  if (day) {
    std::printf("%d/%d/%d\n", day->year(), day->month(), day->day());
  } else {
    std::printf("%s\n", name_of(day.reason()));
  }
}

}  // namespace

int main() {
  static char line[1 << 16];
  std::setlocale(LC_NUMERIC, "");
  while (std::fgets(line, sizeof line, stdin) != nullptr) print({line, std::strcspn(line, "\n")});
  return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
