#include "serve/date.h"

namespace tarn::server {
namespace {

constexpr uint64_t kSecondsOfDay = 86400;

bool isLeap(unsigned year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

unsigned daysOf(unsigned month, unsigned year) {
  constexpr unsigned char kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeap(year) ? 29 : kDays[month - 1];
}

}  // namespace

Date dateOf(uint64_t seconds) {
  const auto of_day = static_cast<unsigned>(seconds % kSecondsOfDay);
  // The calendar repeats itself after 400 years.
  constexpr uint64_t kDaysOfPeriod = 146097;
  const uint64_t days = seconds / kSecondsOfDay;
  auto left = static_cast<unsigned>(days % kDaysOfPeriod);
  auto year = static_cast<unsigned>(1970 + days / kDaysOfPeriod * 400);
  for (; left >= (isLeap(year) ? 366U : 365U); ++year) left -= isLeap(year) ? 366 : 365;
  unsigned month = 1;
  for (; left >= daysOf(month, year); ++month) left -= daysOf(month, year);
  return {year, month, left + 1, of_day / 3600, of_day / 60 % 60, of_day % 60};
}

}  // namespace tarn::server
