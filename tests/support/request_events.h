// Feeds the reader of requests, and tells what it reports as tests/support/fastcgi_model.h does.
#ifndef TARN_TESTS_SUPPORT_REQUEST_EVENTS_H
#define TARN_TESTS_SUPPORT_REQUEST_EVENTS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "support/fastcgi_model.h"

namespace tarn_test {

// The bytes of each piece arrive in parts of these sizes, which repeat; none for all at once.
Events eventsOf(const std::vector<std::string> &pieces, const ConnectionRules &rules,
                const std::vector<size_t> &sizes = {});

// What a script has written, seen as the service sees it; it arrives in parts of these sizes.
ModelAnswer answerOf(std::string_view written, const std::vector<size_t> &sizes = {});

}  // namespace tarn_test

#endif
