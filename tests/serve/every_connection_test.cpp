// Every short sequence of the records that matter: the reader reports what the model says, however
// the bytes arrive.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/fastcgi.h"
#include "support/processor_time.h"
#include "support/request_events.h"
#include "support/script.h"

namespace {

using namespace tarn_test;
using namespace tarn_test::fastcgi;

// How long the sequences are. An environment variable can ask for longer ones.
unsigned mostRecords() {
  const char *text = std::getenv("TARN_TEST_RECORDS");
  if (!text) return slowness() > 1 ? 3 : 4;
  limitProcessorTime(24 * 60 * 60);
  return static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

// The empty one is where the service answers the request.
const std::vector<std::string> kRecords = {
    "",
    begin(1),
    begin(1, kKeep),
    begin(2),
    begin(1, 0, kAuthorizer),
    begin(2, kKeep, kFilter),
    record(kBegin, 1, "short"),
    record(kParams, 1, pair("A", "1"), 1),
    record(kParams, 1, "\1"),
    record(kParams, 1, pair("A=", "")),
    record(kParams, 1),
    record(kParams, 2),
    record(kStdin, 1, "b", 2),
    record(kStdin, 1),
    record(kStdin, 2, "of two"),
    record(kAbort, 1),
    record(kAbort, 2),
    record(kData, 1, "d"),
    record(kGetValues, 0, pair("FCGI_MPXS_CONNS", "") + "\1"),
    record(kStdin, 0, "m"),
    "\2",
};

class Sequences {
 public:
  explicit Sequences(Answers answers) { rules_.answers = answers; }

  // Compares all sequences of up to so many records. Stops at the first that is read in another way.
  void compare(unsigned most) {
    pieces_ = {""};
    compareFrom(most);
    size_t all = 1;
    for (unsigned length = 0; length < most; ++length) all = all * kRecords.size() + 1;
    EXPECT_TRUE(!agrees_ || count_ + ended_ == all) << count_ << " and " << ended_ << " of " << all;
    std::printf("%zu connections, and %zu that would go on after one of them is closed\n", count_,
                ended_);
  }

 private:
  void compareFrom(unsigned most) {
    ++count_;
    const Events expected = modelOfConnection(pieces_, rules_);
    // The parts change, so that sequences are cut in all places.
    agrees_ = eventsOf(pieces_, rules_) == expected &&
              eventsOf(pieces_, rules_, {count_ % 13 + 1, count_ % 3 + 1}) == expected;
    if (!agrees_) return show(expected);
    // The connection is closed after what is malformed or refused.
    const bool ends = !expected.empty() &&
                      (expected.back() == "malformed" || expected.back().starts_with("refusal"));
    if (most == 0) return;
    if (ends) return skip(most);
    for (const std::string &next : kRecords) {
      const std::vector<std::string> before = pieces_;
      if (next.empty()) {
        pieces_.emplace_back();
      } else {
        pieces_.back() += next;
      }
      compareFrom(most - 1);
      pieces_ = before;
      if (!agrees_) return;
    }
  }

  // What would follow is not read.
  void skip(unsigned most) {
    size_t all = 0;
    for (unsigned length = 0; length < most; ++length) all = (all + 1) * kRecords.size();
    ended_ += all;
  }

  void show(const Events &expected) {
    std::string bytes;
    for (const std::string &piece : pieces_) bytes += shown(piece) + "\n";
    std::string seen;
    for (const std::string &event : eventsOf(pieces_, rules_)) seen += "  " + shown(event) + "\n";
    std::string wanted;
    for (const std::string &event : expected) wanted += "  " + shown(event) + "\n";
    ADD_FAILURE() << bytes << "is read as\n" << seen << "and not as\n" << wanted;
  }

  ConnectionRules rules_;
  std::vector<std::string> pieces_;
  size_t count_ = 0;
  size_t ended_ = 0;
  bool agrees_ = true;
};

TEST(EveryShortConnection, WithoutAnAnswerIsReadAsTheModelReadsIt) {
  Sequences(Answers::kNever).compare(mostRecords());
}

TEST(EveryShortConnection, WithAnAnswerAtTheEndIsReadAsTheModelReadsIt) {
  Sequences(Answers::kWhenItIsComplete).compare(mostRecords());
}

TEST(EveryShortConnection, WithAnEarlyAnswerIsReadAsTheModelReadsIt) {
  Sequences(Answers::kAtTheFirstByteOfTheBody).compare(mostRecords());
}

}  // namespace
