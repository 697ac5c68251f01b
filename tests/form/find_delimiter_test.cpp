// The two searches for a delimiter find what a plain search finds.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <string_view>

#include "form/multipart.h"
#include "support/exact_block.h"
#include "support/processor_time.h"

namespace {

using namespace tarn_test;
using Search = const char *(*)(std::string_view, std::string_view);

size_t placeOf(Search search, std::string_view text, std::string_view delimiter) {
  const char *found = search(text, delimiter);
  return found ? static_cast<size_t>(found - text.data()) : std::string_view::npos;
}

// The wide search only where the processor can do it.
void forEachSearch(const std::function<void(Search)> &test) {
  test(tarn::form::findDelimiter);
  if (tarn::form::canSearchWide()) test(tarn::form::findDelimiterWide);
}

void compare(std::string_view sent, std::string_view delimiter, size_t shift) {
  const ExactBlock text(sent, shift);
  forEachSearch([&](Search search) {
    ASSERT_EQ(placeOf(search, text.view(), delimiter), sent.find(delimiter))
        << "of " << sent.size() << " bytes, a delimiter of " << delimiter.size();
  });
}

TEST(Delimiter, IsFoundAtEachPlaceOfEachText) {
  for (const size_t size : {1, 13, 28, 70}) {
    const std::string delimiter = "\r\n--" + std::string(size, 'b');
    for (size_t length = 0; length < 500; length += length < 150 ? 2 : 37) {
      compare(std::string(length, 'x'), delimiter, length % 64);
      for (size_t place = 0; place + delimiter.size() <= length; place += placesInTime()) {
        std::string text(length, 'x');
        text.replace(place, delimiter.size(), delimiter);
        compare(text, delimiter, (place + length) % 64);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST(Delimiter, IsFoundAmongTextsThatAreAlmostTheSame) {
  std::mt19937 chance(9);
  for (int round = 0; round < roundsInTime(4000); ++round) {
    const std::string boundary(1 + chance() % 70, chance() % 2 ? '-' : 'b');
    const std::string delimiter = "\r\n--" + boundary;
    std::string text;
    while (text.size() < 600) {
      switch (chance() % 5) {
        case 0:
          text += delimiter.substr(0, chance() % delimiter.size());
          break;
        case 1:
          text += "\r\n";
          break;
        case 2:
          text += "\r\n--" + std::string(boundary.size() - 1, 'x') + boundary.back();
          break;
        case 3:
          text += std::string(chance() % 90, 'y');
          break;
        default:
          text += std::string(chance() % 5, '-');
      }
      if (chance() % 40 == 0) text += delimiter;
    }
    compare(text, delimiter, chance() % 64);
    if (HasFatalFailure()) return;
  }
}

}  // namespace
