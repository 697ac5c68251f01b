// What went wrong with a form, and its limits.
#ifndef TARN_FORM_PROBLEM_H
#define TARN_FORM_PROBLEM_H

#include <cstdint>

#include "tarn_form.h"

namespace tarn::form {

inline constexpr TarnFormLimit kLimits = TARN_FORM_LOAD_SIZE + 1;

struct Limits {
  static constexpr uint64_t kKiB = 1024;

  uint64_t values[kLimits] = {1000, 16 * kKiB,           1024 * kKiB, TARN_FORM_UNLIMITED,
                              60,   TARN_FORM_UNLIMITED, 64 * kKiB,   kKiB * 16 * 1024};

  uint64_t operator[](TarnFormLimit limit) const { return values[limit]; }
};

// The first problem of a form. Later ones follow from it, so they are dropped.
struct Problem {
  TarnFormProblem code = TARN_FORM_NO_PROBLEM;
  TarnFormLimit limit = 0;
  uint64_t limit_value = 0;
  uint64_t offset = 0;
  char message[120] = "";

  bool is_limit = false;

  explicit operator bool() const { return code != TARN_FORM_NO_PROBLEM; }

  // Both return false, as the functions do that find a problem.
  bool report(TarnFormProblem new_code, uint64_t place, const char *sentence);
  bool reportLimit(TarnFormLimit which, uint64_t value, uint64_t place);
  bool reportOutOfMemory(uint64_t place);
};

// The HTTP status for a problem.
int statusOf(TarnFormProblem problem);

}  // namespace tarn::form

#endif
