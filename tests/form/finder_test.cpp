// The search of a preamble finds what a plain search finds, in linear time. It is tested with wide
// vectors, too, where the processor has them.
#include "form/finder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>

#include "form/multipart.h"
#include "support/exact_block.h"
#include "support/processor_time.h"

namespace {

using namespace tarn_test;

const bool kCanSearchWide = tarn::form::canSearchWide();

size_t placeOf(std::string_view wanted, std::string_view text, bool wide) {
  const char *found = tarn::form::Finder(wanted).find(text, wide);
  return found ? static_cast<size_t>(found - text.data()) : std::string_view::npos;
}

void compare(std::string_view wanted, std::string_view sent, size_t shift = 0) {
  const ExactBlock text(sent, shift);
  const size_t place = sent.find(wanted);
  ASSERT_EQ(placeOf(wanted, text.view(), false), place) << wanted << " in " << sent;
  if (!kCanSearchWide) return;
  ASSERT_EQ(placeOf(wanted, text.view(), true), place) << wanted << " in " << sent;
}

// The first bytes of a text that repeats this one.
std::string repeated(std::string_view text, size_t size) {
  std::string made;
  while (made.size() < size) made += text;
  made.resize(size);
  return made;
}

// A text of "a" and "b", from the bits of a number.
std::string textOf(unsigned bits, size_t size) {
  std::string made(size, 'a');
  for (size_t i = 0; i < size; ++i) {
    if ((bits >> i & 1) != 0) made[i] = 'b';
  }
  return made;
}

std::string randomText(std::mt19937 &chance, size_t size, std::string_view alphabet) {
  std::string made(size, ' ');
  for (char &byte : made) byte = alphabet[chance() % alphabet.size()];
  return made;
}

TEST(Finder, FindsEachShortTextInEachOther) {
  const size_t longest = slowness() > 1 ? 8 : 11;
  for (size_t size = 3; size <= 7; ++size) {
    for (unsigned wanted = 0; wanted < 1U << size; ++wanted) {
      for (size_t length = 0; length <= longest; ++length) {
        for (unsigned text = 0; text < 1U << length; ++text) {
          compare(textOf(wanted, size), textOf(text, length));
          if (HasFatalFailure()) return;
        }
      }
    }
  }
}

// Long texts that repeat short ones, with each of the places at which they can begin.
TEST(Finder, FindsRepeatedTextsInOnesThatRepeatOthers) {
  const size_t most = slowness() > 1 ? 3 : 5;
  for (size_t size = 1; size <= most; ++size) {
    for (unsigned wanted = 0; wanted < 1U << size; ++wanted) {
      for (size_t length = 1; length <= most; ++length) {
        for (unsigned text = 0; text < 1U << length; ++text) {
          for (const size_t long_size : {3, 9, 15, 16, 17, 24, 25, 26, 33, 72}) {
            const std::string needle = repeated(textOf(wanted, size), long_size);
            const std::string almost = repeated(textOf(text, length), 150);
            compare(needle, almost);
            compare(needle, almost + needle + almost);
            compare("c" + needle, almost + needle + "c" + almost);
            compare(needle + "c", almost + needle + needle + "c");
            if (HasFatalFailure()) return;
          }
        }
      }
    }
  }
}

// A text that repeats a part, perhaps with another byte somewhere.
std::string randomNeedle(std::mt19937 &chance, std::string_view alphabet) {
  const std::string part =
      randomText(chance, 1 + chance() % (chance() % 2 != 0 ? 4 : 40), alphabet);
  std::string made = "--" + repeated(part, 1 + chance() % 70);
  if (chance() % 2 != 0) made[chance() % made.size()] = alphabet[chance() % alphabet.size()];
  if (chance() % 4 == 0) made = randomText(chance, made.size(), alphabet);
  return made;
}

TEST(Finder, FindsRandomTextsAmongTheirPieces) {
  std::mt19937 chance(7);
  for (int round = 0; round < roundsInTime(20000); ++round) {
    const std::string_view alphabet = std::string_view("-xab").substr(0, 2 + chance() % 3);
    const std::string wanted = randomNeedle(chance, alphabet);
    std::string text;
    while (text.size() < 700) {
      const size_t from = chance() % wanted.size();
      const size_t size = 1 + chance() % (wanted.size() - from);
      const std::string piece = wanted.substr(from, size);
      const size_t times = chance() % 4 != 0 ? 1 : chance() % 20;
      text += repeated(piece, size * times);
      if (chance() % 2 != 0) text += alphabet[chance() % alphabet.size()];
      if (chance() % 30 == 0) text += wanted;
    }
    compare(wanted, text, chance() % 64);
    if (HasFatalFailure()) return;
  }
}

// A text may end anywhere, also in what is wanted.
TEST(Finder, FindsTextsInOnesThatAreCutAnywhere) {
  std::mt19937 chance(8);
  for (int round = 0; round < roundsInTime(40); ++round) {
    const std::string wanted = randomNeedle(chance, "-x");
    const std::string near = wanted.substr(0, wanted.size() - 1) + "y";
    const std::string text = repeated(near, 100 + chance() % 200) + wanted + near;
    for (size_t size = 0; size <= text.size(); size += placesInTime()) {
      compare(wanted, std::string_view(text).substr(0, size), size % 64);
      compare(wanted, std::string_view(text).substr(size), size % 64);
      if (HasFatalFailure()) return;
    }
  }
}

// Texts for which a plain search takes quadratic time, as std::string_view::find() does.
TEST(Finder, TakesLinearTime) {
  limitProcessorTime();
  constexpr size_t half = 2000;
  const std::string a(half, 'a');
  const std::string ab = repeated("ab", half);
  const size_t size = slowness() > 1 ? 300'000 : 10'000'000;
  const std::string all_wanted[] = {
      a + "b" + a, "b" + a + a, a + a + "b", a + "ba", "b" + a + "b" + a, "a" + ab, ab + a + ab,
  };
  for (const std::string &wanted : all_wanted) {
    const std::string texts[] = {
        std::string(size, 'a'),
        repeated(wanted.substr(1) + "c", size),
        repeated(wanted.substr(half / 2) + "c", size),
        repeated(wanted.substr(0, wanted.size() - 1) + "c", size),
        repeated(wanted.substr(0, half), size / 2) + "c" + wanted,
    };
    for (const std::string &text : texts) {
      const size_t place = placeOf(wanted, text, false);
      if (kCanSearchWide) {
        ASSERT_EQ(placeOf(wanted, text, true), place);
      }
      if (place == std::string_view::npos) continue;
      ASSERT_EQ(text.compare(place, wanted.size(), wanted), 0);
    }
    ASSERT_NE(placeOf(wanted, texts[4], false), std::string_view::npos);
  }
}

}  // namespace
