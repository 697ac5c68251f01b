// Requests on a connection: what the web server may send, and what the service answers at once.
#include "serve/request_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/failing_memory.h"
#include "support/fastcgi.h"
#include "support/request_events.h"
#include "support/script.h"

namespace {

using namespace tarn_test;
using namespace tarn_test::fastcgi;

constexpr ConnectionRules kNoAnswer = {};
constexpr ConnectionRules kAnswers = {1000, 1 << 20, 7, Answers::kWhenItIsComplete};

// What the reader reports, which must not depend on how the bytes arrive, and be what the model says.
Events events(const std::vector<std::string> &pieces, const ConnectionRules &rules = kNoAnswer) {
  const Events whole = eventsOf(pieces, rules);
  size_t longest = 1;
  for (const std::string &piece : pieces) longest = std::max(longest, piece.size());
  // Long ones are cut in fewer places.
  const size_t step = longest > 2000 ? 2 : 64;
  for (size_t part = longest > 2000 ? 7 : 1; part < longest; part += 1 + part / step) {
    EXPECT_EQ(eventsOf(pieces, rules, {part}), whole) << "in parts of " << part;
    EXPECT_EQ(eventsOf(pieces, rules, {part, 100000}), whole) << "cut behind " << part;
  }
  EXPECT_EQ(modelOfConnection(pieces, rules), whole);
  return whole;
}

Events events(const std::string &bytes, const ConnectionRules &rules = kNoAnswer) {
  return events(std::vector<std::string>{bytes}, rules);
}

std::string reply(const std::string &record) { return "reply " + record; }

const std::string kParameters = pair("A", "1") + pair("B", "2");
const std::string kBegun = begin(1) + record(kParams, 1, kParameters) + record(kParams, 1);

TEST(Requests, BringParametersAndABody) {
  EXPECT_EQ(events(request(1, kParameters, "body")),
            (Events{"begin 1", "parameters A=1 B=2 PATH=/bin", "body body", "body end"}));
  EXPECT_EQ(events(request(65535, "", "", kKeep)),
            (Events{"begin 65535, keep", "parameters PATH=/bin", "body end"}));
}

TEST(Requests, ComeInAnyNumberOfRecordsWithPadding) {
  const std::string stream = longPair("NAME", std::string(300, 'v'));
  std::string bytes = begin(9);
  for (const char c : stream) bytes += record(kParams, 9, std::string(1, c), 7);
  bytes += record(kParams, 9, "", 255);
  for (const char c : {'b', 'o', 'd', 'y'}) bytes += record(kStdin, 9, std::string(1, c), 1);
  bytes += record(kStdin, 9, "", 3);
  EXPECT_EQ(events(bytes),
            (Events{"begin 9", "parameters NAME=" + std::string(300, 'v') + " PATH=/bin",
                    "body body", "body end"}));
}

TEST(Requests, FollowOneAnotherOnAConnection) {
  const Events one = {"begin 1, keep", "parameters A=1 PATH=/bin", "body b", "body end"};
  Events two = one;
  two.insert(two.end(), one.begin(), one.end());
  const std::string bytes = request(1, pair("A", "1"), "b", kKeep);
  EXPECT_EQ(events(bytes + bytes, kAnswers), two);
  EXPECT_EQ(events({bytes, bytes}), two);
}

// Parameters of the first must not reach the second.
TEST(Requests, ShareNothing) {
  EXPECT_EQ(events(request(1, pair("A", "secret"), "") + request(1, "", ""), kAnswers),
            (Events{"begin 1", "parameters A=secret PATH=/bin", "body end", "begin 1",
                    "parameters PATH=/bin", "body end"}));
}

TEST(Requests, HaveFlagsOfWhichOneCounts) {
  EXPECT_EQ(events(begin(1, 0xFE)), Events{"begin 1"});
  EXPECT_EQ(events(begin(1, 0xFF)), Events{"begin 1, keep"});
}

TEST(Requests, OfAnotherRoleAreRefused) {
  for (const unsigned role : {0U, unsigned{kAuthorizer}, unsigned{kFilter}, 256U, 257U, 65535U}) {
    const std::string refusal = end(3, 0, kUnknownRole);
    // Without the flag, the connection is closed; with it, the next request follows.
    EXPECT_EQ(events(begin(3, 0, role) + kBegun), Events{"refusal " + refusal}) << role;
    EXPECT_EQ(events(begin(3, kKeep, role) + record(kParams, 3, "\1") + record(kParams, 3) +
                     record(kStdin, 3, "body") + record(kStdin, 3) + begin(1)),
              (Events{"reply " + refusal, "begin 1"}))
        << role;
  }
}

TEST(Requests, AreNotMultiplexed) {
  const std::string refused = end(2, 0, kCannotMultiplex);
  EXPECT_EQ(
      events(begin(1) + request(2, kParameters, "of two", kKeep) + record(kParams, 1, kParameters) +
             begin(2, 0, kFilter) + record(kParams, 1) + record(kStdin, 2, "of two") +
             record(kStdin, 1, "of one") + record(kAbort, 2) + record(kStdin, 1)),
      (Events{"begin 1", reply(refused), reply(refused), "parameters A=1 B=2 PATH=/bin",
              "body of one", "body end"}));
}

TEST(Requests, ThatAreAbortedSayIt) {
  for (const std::string &before : {begin(1), begin(1) + record(kParams, 1, "\1"), kBegun,
                                    kBegun + record(kStdin, 1, "b"), kBegun + record(kStdin, 1)}) {
    const Events seen = events(before + record(kAbort, 1, "", 8) + record(kAbort, 2));
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back(), "abort");
  }
}

TEST(Requests, ThatNobodySentCannotBeAborted) {
  EXPECT_EQ(events(record(kAbort, 1) + record(kAbort, 1)), Events{});
  EXPECT_EQ(events(request(1, "", "") + record(kAbort, 1), kAnswers),
            (Events{"begin 1", "parameters PATH=/bin", "body end"}));
}

TEST(Requests, ThatAreAnsweredLeaveRecordsBehind) {
  const std::string late = record(kParams, 1, "\1") + record(kStdin, 1, "late") +
                           record(kStdin, 1) + record(kData, 1, "late") + record(kAbort, 1);
  const std::string next = request(1, "", "new", kKeep);
  const Events expected = {"parameters PATH=/bin", "body new", "body end"};
  for (const std::string &before : {begin(1), kBegun, request(1, "", "old")}) {
    Events seen = events({before, late + next});
    ASSERT_GE(seen.size(), expected.size());
    seen.erase(seen.begin(), seen.end() - static_cast<ptrdiff_t>(expected.size()));
    EXPECT_EQ(seen, expected);
  }
}

// The script is refused or answers at the first byte; the rest of that record and of the body is
// skipped.
TEST(Requests, CanBeAnsweredInTheMiddleOfARecord) {
  const ConnectionRules rules = {1000, 1 << 20, 7, Answers::kAtTheFirstByteOfTheBody};
  EXPECT_EQ(events(request(1, "", "a long body") + request(2, "", ""), rules),
            (Events{"begin 1", "parameters PATH=/bin", "body", "begin 2", "parameters PATH=/bin",
                    "body end"}));
}

TEST(Requests, SkipStreamsThatAreNotTheirs) {
  EXPECT_EQ(events(begin(1) + record(kData, 1, "data") + record(kData, 1) +
                   record(kParams, 1, kParameters) + record(kStdout, 1, "x") + record(kParams, 1) +
                   record(kStdin, 7, "not ours") + record(200, 1, "unknown") +
                   record(kStdin, 1, "body") + record(kEnd, 1, std::string(8, '\0')) +
                   record(kGetValues, 1, pair("FCGI_MAX_CONNS", "")) + record(kStdin, 1)),
            (Events{"begin 1", "parameters A=1 B=2 PATH=/bin", "body body", "body end"}));
}

// ---- Bad requests --------------------------------------------------------------------------------

TEST(BadRequests, HaveABeginningOfAnotherSize) {
  for (const size_t size : {0, 1, 7, 9, 16, 65535}) {
    const std::string content(size, '\1');
    EXPECT_EQ(events(record(kBegin, 1, content, 5)), Events{"malformed"}) << size;
  }
}

TEST(BadRequests, BeginTwice) {
  EXPECT_EQ(events(begin(1) + begin(1)), (Events{"begin 1", "malformed"}));
  EXPECT_EQ(events(request(1, "", "") + begin(1)),
            (Events{"begin 1", "parameters PATH=/bin", "body end", "malformed"}));
}

TEST(BadRequests, SendStreamsOutOfOrder) {
  EXPECT_EQ(events(begin(1) + record(kStdin, 1, "body")), (Events{"begin 1", "malformed"}));
  EXPECT_EQ(events(begin(1) + record(kStdin, 1)), (Events{"begin 1", "malformed"}));
  EXPECT_EQ(events(kBegun + record(kParams, 1, kParameters)).back(), "malformed");
  EXPECT_EQ(events(kBegun + record(kParams, 1)).back(), "malformed");
  EXPECT_EQ(events(kBegun + record(kStdin, 1) + record(kStdin, 1, "more")).back(), "malformed");
  EXPECT_EQ(events(kBegun + record(kStdin, 1) + record(kParams, 1)).back(), "malformed");
}

// Whether the first answer has been sent by then is a matter of chance, so it must not matter.
TEST(BadRequests, ThatEndTheirBodyTwiceAreForgiven) {
  const Events expected = {"begin 1", "parameters A=1 B=2 PATH=/bin", "body end"};
  const std::string bytes = kBegun + record(kStdin, 1) + record(kStdin, 1) + record(kStdin, 1);
  EXPECT_EQ(events(bytes), expected);
  EXPECT_EQ(events(bytes, kAnswers), expected);
}

TEST(BadRequests, AreNotReadBehindWhatIsMalformed) {
  EXPECT_EQ(events(begin(1) + record(kStdin, 1) + request(2, "", "")),
            (Events{"begin 1", "malformed"}));
  EXPECT_EQ(events(kBegun + "x" + record(kStdin, 1)),
            (Events{"begin 1", "parameters A=1 B=2 PATH=/bin", "malformed"}));
}

TEST(BadRequests, HaveBadParameters) {
  const ConnectionRules rules = {2, 100, 7, Answers::kNever};
  const std::string rest = record(kParams, 1, kParameters) + record(kParams, 1) +
                           record(kStdin, 1, "body") + record(kStdin, 1);
  for (const std::string &stream : {pair("A=", "1"), pair("", "1"), pair("A", std::string(1, '\0')),
                                    std::string("\5\5short")}) {
    const std::string bytes = begin(1) + record(kParams, 1, stream) + record(kParams, 1);
    EXPECT_EQ(events(bytes, rules), (Events{"begin 1", "malformed parameters"}));
  }
  for (const std::string &stream :
       {longPair("", 0x7FFFFFFF, "", 0x7FFFFFFF), kParameters + pair("C", "3") + "more",
        longPair("", 1, "", 100) + "more"}) {
    // Nothing else of the request is read, but it can be aborted.
    EXPECT_EQ(events(begin(1) + record(kParams, 1, stream) + rest + record(kAbort, 1), rules),
              (Events{"begin 1", "too many parameters", "abort"}));
  }
}

TEST(BadRequests, WithBadParametersLetTheNextFollow) {
  EXPECT_EQ(events(request(1, pair("A=", "1"), "body", kKeep) + request(1, "", ""), kAnswers),
            (Events{"begin 1, keep", "malformed parameters", "begin 1", "parameters PATH=/bin",
                    "body end"}));
}

// ---- Management records --------------------------------------------------------------------------

std::string asksFor(const std::vector<std::string> &names) {
  std::string content;
  for (const std::string &name : names) content += pair(name, "");
  return record(kGetValues, 0, content, 3);
}

std::string values(const std::string &content) {
  return reply(record(kGetValuesResult, 0, content));
}

TEST(Values, AreToldByName) {
  EXPECT_EQ(events(asksFor({"FCGI_MPXS_CONNS", "FCGI_MAX_REQS", "FCGI_MAX_CONNS"})),
            Events{values(pair("FCGI_MAX_CONNS", "7") + pair("FCGI_MAX_REQS", "7") +
                          pair("FCGI_MPXS_CONNS", "0"))});
  EXPECT_EQ(events(asksFor({"FCGI_MPXS_CONNS"})), Events{values(pair("FCGI_MPXS_CONNS", "0"))});
}

TEST(Values, OfOtherNamesAreLeftOut) {
  EXPECT_EQ(events(asksFor({})), Events{values("")});
  EXPECT_EQ(events(asksFor({"", "FCGI_MAX_CONN", "FCGI_MAX_CONNSX", "fcgi_max_conns",
                            "FCGI_MPXS_CONNS_", std::string(60000, 'x'), "FCGI_MAX_REQS"})),
            Events{values(pair("FCGI_MAX_REQS", "7"))});
}

TEST(Values, AreToldOnce) {
  std::vector<std::string> names(4000, "FCGI_MAX_CONNS");
  EXPECT_EQ(events(asksFor(names)), Events{values(pair("FCGI_MAX_CONNS", "7"))});
}

TEST(Values, AreAskedForWithoutOne) {
  const std::string content = longPair("FCGI_MAX_CONNS", "value") + pair("FCGI_MAX_REQS", "8");
  EXPECT_EQ(events(record(kGetValues, 0, content)),
            Events{values(pair("FCGI_MAX_CONNS", "7") + pair("FCGI_MAX_REQS", "7"))});
}

TEST(Values, BehindALengthThatLiesAreLeftOut) {
  EXPECT_EQ(events(record(kGetValues, 0, pair("FCGI_MAX_REQS", "") + "\x0E") +
                   asksFor({"FCGI_MPXS_CONNS"}) +
                   record(kGetValues, 0, longPair("FCGI_MAX_CONNS", 0x7FFFFFFF, "", 0))),
            (Events{values(pair("FCGI_MAX_REQS", "7")), values(pair("FCGI_MPXS_CONNS", "0")),
                    values("")}));
}

TEST(Values, CanBeLarge) {
  const ConnectionRules rules = {1000, 1 << 20, UINT32_MAX, Answers::kNever};
  EXPECT_EQ(events(asksFor({"FCGI_MAX_REQS", "FCGI_MAX_CONNS", "FCGI_MPXS_CONNS"}), rules),
            Events{values(pair("FCGI_MAX_CONNS", "4294967295") +
                          pair("FCGI_MAX_REQS", "4294967295") + pair("FCGI_MPXS_CONNS", "0"))});
}

TEST(ManagementRecords, OfUnknownTypesAreAnswered) {
  for (const unsigned type : {0U, 12U, 200U, 255U, unsigned{kBegin}, unsigned{kAbort},
                              unsigned{kParams}, unsigned{kStdin}, unsigned{kData}}) {
    const std::string content = std::string(1, static_cast<char>(type)) + std::string(7, '\0');
    EXPECT_EQ(events(record(type, 0, "content", 1) + begin(1)),
              (Events{reply(record(kUnknownType, 0, content)), "begin 1"}))
        << type;
  }
}

// Two peers that answered them would never stop.
TEST(ManagementRecords, ThatAreAnswersAreNotAnswered) {
  EXPECT_EQ(events(record(kUnknownType, 0, std::string(8, '\0')) +
                   record(kGetValuesResult, 0, pair("A", "1")) + begin(1)),
            Events{"begin 1"});
}

TEST(ManagementRecords, ComeInTheMiddleOfARequest) {
  const std::string asked = asksFor({"FCGI_MPXS_CONNS"});
  const std::string told = values(pair("FCGI_MPXS_CONNS", "0"));
  EXPECT_EQ(events(begin(1) + asked + record(kParams, 1, "\1\1") + asked +
                   record(kParams, 1, "A1") + record(kParams, 1) + asked + record(kStdin, 1, "bo") +
                   asked + record(kStdin, 1, "dy") + record(kStdin, 1) + asked),
            (Events{"begin 1", told, told, "parameters A=1 PATH=/bin", told, "body bo", told,
                    "body dy", "body end", told}));
}

TEST(RequestsAtEachFailure, ReportThatMemoryRanOut) {
  using tarn::server::Parameters;
  using tarn::server::RequestReader;
  const std::string bytes = request(1, pair("A", std::string(3000, 'a')), "body") + begin(2);
  forEachFailingAllocation([&](FailingMemory &memory) {
    RequestReader reader({}, 1);
    RequestReader::Event event = RequestReader::Event::kNone;
    std::string_view input = bytes;
    memory.call([&] {
      do {
        event = reader.next(input);
      } while (event != RequestReader::Event::kParameters);
      return 0;
    });
    EXPECT_EQ(reader.parameters().state(),
              memory.failed() ? Parameters::State::kOutOfMemory : Parameters::State::kComplete);
    reader.finish();
    EXPECT_EQ(reader.next(input), RequestReader::Event::kBegin);
    EXPECT_EQ(reader.request(), 2);
  });
}

}  // namespace
