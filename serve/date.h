// Dates in universal time. The functions of the C library would load time zones, which scripts would
// then inherit.
#ifndef TARN_SERVE_DATE_H
#define TARN_SERVE_DATE_H

#include <cstdint>

namespace tarn::server {

struct Date {
  unsigned year, month, day;  // from 1
  unsigned hour, minute, second;
};

// The date so many seconds after 1970 began.
Date dateOf(uint64_t seconds);

}  // namespace tarn::server

#endif
