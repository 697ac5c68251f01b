#include "form/problem.h"

#include <cinttypes>
#include <cstdio>

namespace tarn::form {
namespace {

struct Description {
  const char *name;
  int status;
};

constexpr Description kDescriptions[] = {
    {"", 200},
    {"no_boundary", 400},
    {"two_boundaries", 400},
    {"cut_short", 400},
    {"malformed", 400},
    {"malformed_header", 400},
    {"part_without_name", 400},
    {"limit", 413},
    {"unsupported_type", 415},
    {"bad_length", 400},
    {"read_error", 400},
    {"timed_out", 408},
    {"out_of_memory", 500},
};

constexpr const char *kLimitSentences[kLimits] = {
    "more than %" PRIu64 " fields",
    "the headers of a part are longer than %" PRIu64 " bytes",
    "a name or text is longer than %" PRIu64 " bytes",
    "the body is longer than %" PRIu64 " bytes",
    "no byte arrived for %" PRIu64 " seconds",
    "the body did not arrive within %" PRIu64 " seconds",
    "a file is longer than %" PRIu64 " bytes",
    "the form takes more than %" PRIu64 " bytes of memory",
};

const Description &describe(TarnFormProblem problem) {
  constexpr TarnFormProblem count = sizeof kDescriptions / sizeof *kDescriptions;
  return kDescriptions[problem < count ? problem : 0];
}

}  // namespace

bool Problem::report(TarnFormProblem new_code, uint64_t place, const char *sentence) {
  if (code != TARN_FORM_NO_PROBLEM) return false;
  code = new_code;
  offset = place;
  std::snprintf(message, sizeof message, "%s", sentence);
  return false;
}

bool Problem::reportLimit(TarnFormLimit which, uint64_t value, uint64_t place) {
  if (code != TARN_FORM_NO_PROBLEM) return false;
  const bool slow = which == TARN_FORM_WAIT_SECONDS || which == TARN_FORM_TOTAL_SECONDS;
  code = slow ? TARN_FORM_TIMED_OUT : TARN_FORM_LIMIT;
  is_limit = true;
  limit = which;
  limit_value = value;
  offset = place;
  std::snprintf(message, sizeof message, kLimitSentences[which], value);
  return false;
}

bool Problem::reportOutOfMemory(uint64_t place) {
  return report(TARN_FORM_OUT_OF_MEMORY, place, "out of memory");
}

}  // namespace tarn::form

const char *TarnForm_problemName(TarnFormProblem problem) {
  return tarn::form::describe(problem).name;
}

namespace tarn::form {
int statusOf(TarnFormProblem problem) { return describe(problem).status; }
}  // namespace tarn::form
