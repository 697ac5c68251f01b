// The parameters of a request, and the environment that a script gets from them.
#include "serve/parameters.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support/failing_memory.h"
#include "support/fastcgi.h"

namespace {

using namespace tarn::server;
using namespace tarn_test;
using fastcgi::longPair;
using fastcgi::pair;
using State = Parameters::State;

constexpr uint64_t kMebibyte = uint64_t{1024} * 1024;

// Adds the bytes in parts of this size, each in a block of its own. Ends the stream if nothing is
// wrong with it.
State add(Parameters &parameters, std::string_view stream, size_t part) {
  while (!stream.empty()) {
    const std::vector<char> block(
        stream.begin(), stream.begin() + static_cast<ptrdiff_t>(std::min(part, stream.size())));
    stream.remove_prefix(block.size());
    const State state = parameters.add({block.data(), block.size()});
    if (state != State::kIncomplete) return state;
  }
  return parameters.end();
}

// The state at the end, which must not depend on how the bytes arrive.
State stateOf(const std::string &stream, const ParameterLimits &limits = {}) {
  Parameters whole(limits);
  const State state = add(whole, stream, stream.size() + 1);
  for (const size_t part : {1, 2, 3, 7}) {
    const size_t size = stream.size() > 20000 ? part * 1000 : part;
    Parameters parameters(limits);
    EXPECT_EQ(add(parameters, stream, size), state) << "in parts of " << size;
  }
  return state;
}

std::multiset<std::string> environmentOf(const Parameters &parameters,
                                         std::vector<std::string> inherited = {}) {
  std::vector<char *> entries;
  for (std::string &entry : inherited) entries.push_back(entry.data());
  entries.push_back(nullptr);
  tarn::Bytes block;
  char **environment = parameters.environment(entries.data(), block);
  std::multiset<std::string> found;
  for (char **entry = environment; *entry; ++entry) found.insert(*entry);
  return found;
}

std::multiset<std::string> environmentOf(const std::string &stream,
                                         const std::vector<std::string> &inherited = {}) {
  Parameters parameters({});
  EXPECT_EQ(add(parameters, stream, stream.size() + 1), State::kComplete);
  return environmentOf(parameters, inherited);
}

using Variables = std::multiset<std::string>;

TEST(Parameters, BecomeVariables) {
  const std::string value = "two words = é\n";
  EXPECT_EQ(environmentOf(pair("A", "1") + pair("EMPTY", "") + longPair("LONG", value)),
            (Variables{"A=1", "EMPTY=", "LONG=" + value}));
  EXPECT_EQ(environmentOf(std::string()), Variables{});
}

TEST(Parameters, AreFoundByName) {
  Parameters parameters({});
  EXPECT_EQ(add(parameters, pair("AB", "1") + pair("A", "2") + pair("ABC", ""), 1),
            State::kComplete);
  EXPECT_STREQ(parameters.find("A"), "2");
  EXPECT_STREQ(parameters.find("AB"), "1");
  EXPECT_STREQ(parameters.find("ABC"), "");
  EXPECT_EQ(parameters.find("ABCD"), nullptr);
  EXPECT_EQ(parameters.find("B"), nullptr);
  EXPECT_EQ(parameters.find(""), nullptr);
}

TEST(Parameters, OfOneNameCountFromTheLast) {
  Parameters parameters({});
  std::string stream;
  for (int i = 0; i < 100; ++i) stream += pair("A", std::to_string(i)) + pair("B", "same");
  EXPECT_EQ(add(parameters, stream, 5), State::kComplete);
  EXPECT_STREQ(parameters.find("A"), "99");
  EXPECT_EQ(environmentOf(parameters), (Variables{"A=99", "B=same"}));
}

TEST(Parameters, CanBeReplaced) {
  Parameters parameters({});
  EXPECT_EQ(add(parameters, pair("CONTENT_LENGTH", "5") + pair("A", "1"), 100), State::kComplete);
  EXPECT_TRUE(parameters.set("CONTENT_LENGTH", "7"));
  EXPECT_STREQ(parameters.find("CONTENT_LENGTH"), "7");
  EXPECT_EQ(environmentOf(parameters), (Variables{"A=1", "CONTENT_LENGTH=7"}));
}

TEST(Parameters, AreGoneAfterClear) {
  Parameters parameters({2, 100});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(add(parameters, pair("A", std::string(60, 'a')) + pair("B", "2"), 4),
              State::kComplete);
    parameters.clear();
    EXPECT_EQ(parameters.find("A"), nullptr);
    EXPECT_EQ(add(parameters, "\1", 1), State::kMalformed);
    parameters.clear();
  }
  EXPECT_EQ(add(parameters, "", 1), State::kComplete);
  EXPECT_EQ(environmentOf(parameters), Variables{});
}

// ---- What a script inherits ----------------------------------------------------------------------

TEST(InheritedVariables, ReachTheScriptUnlessTheRequestSetsThem) {
  EXPECT_EQ(environmentOf(pair("LANG", "C"), {"PATH=/bin", "LANG=de", "NO_EQUALS", "A=b=c"}),
            (Variables{"PATH=/bin", "LANG=C", "NO_EQUALS", "A=b=c"}));
}

TEST(InheritedVariables, OfARequestDoNotReachTheScript) {
  for (const char *name :
       {"AUTH_TYPE",       "CONTENT_LENGTH",  "CONTENT_TYPE",      "DOCUMENT_ROOT",
        "DOCUMENT_URI",    "FCGI_ROLE",       "GATEWAY_INTERFACE", "HTTPS",
        "HTTP_COOKIE",     "HTTP_PROXY",      "PATH_INFO",         "PATH_TRANSLATED",
        "QUERY_STRING",    "REDIRECT_STATUS", "REDIRECT_URL",      "REMOTE_ADDR",
        "REMOTE_USER",     "REQUEST_METHOD",  "REQUEST_SCHEME",    "REQUEST_URI",
        "SCRIPT_FILENAME", "SCRIPT_NAME",     "SCRIPT_URI",        "SCRIPT_URL",
        "SERVER_NAME",     "SERVER_PROTOCOL", "SSL_CLIENT_S_DN",   "SSL_CLIENT_VERIFY",
        "UNIQUE_ID"}) {
    EXPECT_TRUE(belongsToRequest(name)) << name;
    EXPECT_EQ(environmentOf(pair("A", "1"), {std::string(name) + "=old"}), Variables{"A=1"})
        << name;
  }
}

TEST(InheritedVariables, OfNoRequestReachTheScript) {
  for (const char *name : {"PATH", "HOME", "LANG", "TMPDIR", "TZ", "PATH_INFORMATION", "HTTP",
                           "REQUEST", "SERVER", "SSL_CERT_FILE", "SSL_CERT_DIR", "http_proxy",
                           "https_proxy", "HTTPS_PROXY", "CONTENT", "FCGI", ""}) {
    EXPECT_FALSE(belongsToRequest(name)) << name;
    const std::string variable = std::string(name) + "=kept";
    EXPECT_EQ(environmentOf(std::string(), {variable}), Variables{variable}) << name;
  }
}

// Programs take it for the address of a proxy, but it is the header "Proxy" that a visitor sent.
TEST(InheritedVariables, AndParametersLackTheProxy) {
  EXPECT_EQ(environmentOf(pair("HTTP_PROXY", "evil:80") + pair("HTTP_PROXY_", "kept"),
                          {"HTTP_PROXY=inherited"}),
            Variables{"HTTP_PROXY_=kept"});
}

// ---- What is malformed ---------------------------------------------------------------------------

TEST(MalformedParameters, HaveALengthThatLies) {
  const std::string stream = pair("A", "1") + longPair("NAME", "value");
  for (size_t size = 0; size <= stream.size(); ++size) {
    const bool whole = size == 0 || size == 4 || size == stream.size();
    EXPECT_EQ(stateOf(stream.substr(0, size)), whole ? State::kComplete : State::kMalformed)
        << size;
  }
}

TEST(MalformedParameters, HaveANameThatIsNoName) {
  EXPECT_EQ(stateOf(pair("", "")), State::kMalformed);
  EXPECT_EQ(stateOf(pair("", "value")), State::kMalformed);
  for (const char *name : {"=", "A=", "=A", "A=B"}) {
    EXPECT_EQ(stateOf(pair(name, "value")), State::kMalformed) << name;
    EXPECT_EQ(stateOf(pair("A", "1") + longPair(name, "")), State::kMalformed) << name;
  }
}

TEST(MalformedParameters, HaveAZeroByte) {
  for (const std::string &text : {std::string(1, '\0'), std::string("\0A", 2),
                                  std::string("A\0", 2), std::string("A\0B", 3)}) {
    EXPECT_EQ(stateOf(pair(text, "value")), State::kMalformed);
    EXPECT_EQ(stateOf(pair("A", text)), State::kMalformed);
  }
}

TEST(MalformedParameters, StayMalformed) {
  Parameters parameters({});
  EXPECT_EQ(parameters.add(pair("A=", "1")), State::kMalformed);
  EXPECT_EQ(parameters.add(pair("B", "1")), State::kMalformed);
  EXPECT_EQ(parameters.end(), State::kMalformed);
  EXPECT_EQ(parameters.state(), State::kMalformed);
  EXPECT_EQ(parameters.find("B"), nullptr);
}

// A log line looks for REQUEST_URI at any time.
TEST(MalformedParameters, AreSearchedOnlyInsideTheirBytes) {
  const std::string stream = pair("REQUEST_URI=x", "v");
  for (size_t size = 0; size <= stream.size(); ++size) {
    for (const size_t part : {size_t{1}, size_t{2}, size + 1}) {
      Parameters parameters({});
      std::string_view rest(stream.data(), size);
      while (!rest.empty()) {
        parameters.add(rest.substr(0, part));
        rest.remove_prefix(std::min(part, rest.size()));
      }
      const char *found = parameters.find("REQUEST_URI");
      EXPECT_TRUE(!found || *found == '\0') << size << " bytes in parts of " << part;
    }
  }
}

TEST(IncompleteParameters, AreFoundOnceTheirNameIsComplete) {
  Parameters parameters({});
  parameters.add(std::string("\3\5AB", 4));
  EXPECT_EQ(parameters.find("AB"), nullptr);
  parameters.add("C");
  EXPECT_STREQ(parameters.find("ABC"), "");
  parameters.add("xy");
  EXPECT_STREQ(parameters.find("ABC"), "xy");
}

// ---- Limits --------------------------------------------------------------------------------------

TEST(ParameterLimits, AreAThousandAndAMebibyte) {
  std::string stream;
  for (int i = 0; i < 1000; ++i) stream += pair("N" + std::to_string(i), "v");
  EXPECT_EQ(stateOf(stream), State::kComplete);
  EXPECT_EQ(stateOf(stream + pair("A", "")), State::kTooMany);
  EXPECT_EQ(stateOf(longPair("ABCD", std::string(kMebibyte - 4, 'v'))), State::kComplete);
  EXPECT_EQ(stateOf(longPair("ABCD", std::string(kMebibyte - 3, 'v'))), State::kTooMany);
}

TEST(ParameterLimits, CountAllNamesAndValues) {
  const ParameterLimits limits = {3, 10};
  EXPECT_EQ(stateOf(pair("AB", "cd") + pair("EF", "") + pair("G", "hij"), limits),
            State::kComplete);
  EXPECT_EQ(stateOf(pair("AB", "cd") + pair("EF", "") + pair("G", "hijk"), limits),
            State::kTooMany);
  EXPECT_EQ(stateOf(pair("A", "") + pair("A", "") + pair("A", "") + pair("A", ""), limits),
            State::kTooMany);
}

// What is announced counts, before a byte of it has arrived; the sum must not wrap around at 32 bits.
TEST(ParameterLimits, HoldForLengthsThatNobodySends) {
  for (const uint32_t size : {0x7FFFFFFFU, 0x40000000U, 0x100001U}) {
    EXPECT_EQ(stateOf(longPair("", size, "", size)), State::kTooMany) << size;
    EXPECT_EQ(stateOf(longPair("", 1, "", size)), State::kTooMany) << size;
    EXPECT_EQ(stateOf(longPair("", size, "", 1)), State::kTooMany) << size;
  }
  // Above 4 GiB in all, pair by pair; each is announced and found to be cut short.
  const ParameterLimits large = {1000, uint64_t{0x7FFFFFFF} * 3};
  EXPECT_EQ(stateOf(longPair("", 0x7FFFFFFF, "", 0x7FFFFFFF), large), State::kMalformed);
}

// An announcement alone costs no memory.
TEST(ParameterLimitsMemory, IsAllocatedForWhatHasArrived) {
  Parameters parameters({});
  const std::string stream = longPair("A", 1, "abc", kMebibyte - 1);
  State state = State::kMalformed;
  withoutMemory([&] { state = parameters.add(stream); }, 1024);
  EXPECT_EQ(state, State::kIncomplete);
  EXPECT_STREQ(parameters.find("A"), "abc");
}

TEST(ParametersAtEachFailure, AreCompleteOrReportIt) {
  const std::string stream = pair("REQUEST_URI", "/") + pair("B", std::string(3000, 'b'));
  for (const size_t part : {size_t{1}, size_t{100}, stream.size()}) {
    forEachFailingAllocation([&](FailingMemory &memory) {
      Parameters parameters({});
      State state = State::kIncomplete;
      memory.call([&] {
        for (size_t i = 0; i < stream.size() && state == State::kIncomplete; i += part) {
          state = parameters.add({stream.data() + i, std::min(part, stream.size() - i)});
        }
        return parameters.end();
      });
      EXPECT_EQ(parameters.state(), memory.failed() ? State::kOutOfMemory : State::kComplete);
      const char *found = parameters.find("REQUEST_URI");
      EXPECT_TRUE(!found || *found == '\0' || std::string(found) == "/");
    });
  }
}

TEST(ParametersAtEachFailure, StayAsTheyWereIfOneCannotBeSet) {
  forEachFailingAllocation([&](FailingMemory &memory) {
    Parameters parameters({});
    ASSERT_EQ(add(parameters, pair("A", "1"), 100), State::kComplete);
    const std::string value(1000, 'v');
    const bool set = memory.call([&] { return parameters.set("A", value); });
    EXPECT_EQ(set, !memory.failed());
    EXPECT_EQ(environmentOf(parameters), Variables{set ? "A=" + value : "A=1"});
    char *none[] = {nullptr};
    tarn::Bytes block;
    char **environment = memory.call([&] { return parameters.environment(none, block); });
    EXPECT_EQ(environment == nullptr, memory.failed());
  });
}

}  // namespace
