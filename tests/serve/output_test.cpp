// What counts as the header of an answer: all that a web server accepts of a CGI script.
#include "serve/output.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "support/failing_memory.h"
#include "support/request_events.h"

namespace {

using namespace tarn_test;
using State = ModelAnswer::State;

// What is seen of an answer, which must not depend on how the bytes arrive, and be what the model
// says.
ModelAnswer answer(const std::string &written) {
  const ModelAnswer whole = answerOf(written);
  EXPECT_TRUE(modelOfAnswer(written) == whole) << written.substr(0, 1000);
  for (size_t part = 1; part < written.size(); part += 1 + part / 16) {
    EXPECT_TRUE(answerOf(written, {part}) == whole) << "in parts of " << part;
    EXPECT_TRUE(answerOf(written, {part, written.size()}) == whole) << "cut behind " << part;
  }
  return whole;
}

void expectHeader(const std::string &header, const std::string &body = "a\n\nbody") {
  const ModelAnswer seen = answer(header + body);
  EXPECT_EQ(seen.state, State::kHeader) << header;
  EXPECT_EQ(seen.header, header);
  EXPECT_EQ(seen.body, body);
}

TEST(AnswerHeader, EndsWithAnEmptyLine) {
  expectHeader("Content-Type: text/plain\r\n\r\n");
  expectHeader("Content-Type: text/plain\n\n");
  expectHeader("Content-Type: text/plain\r\n\n");
  expectHeader("Content-Type: text/plain\n\r\n");
  expectHeader("Content-Type: text/html\nX-A: 1\r\nX-B: 2\n\r\n", "");
  expectHeader("Content-Type: text/plain\r\r\n\r\r\n");
}

TEST(AnswerHeader, CanBeAnyField) {
  expectHeader("Status: 404 Not Found\n\n", "");
  expectHeader("Location: /elsewhere\n\n", "");
  expectHeader("Set-Cookie: a=b\n\n");
  expectHeader("content-type:text/plain\n\n");
  expectHeader("X-Empty:\n\n");
}

// lighttpd and Apache answer them with 200.
TEST(AnswerHeader, CanBeEmpty) {
  expectHeader("\n");
  expectHeader("\r\n");
  expectHeader("\r\n", "");
}

// lighttpd uses its status, nginx skips it.
TEST(AnswerHeader, CanBeginWithAStatusLine) {
  expectHeader("HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\n\r\n");
  expectHeader("HTTP/1.0 200 OK\n\n");
}

// Each of them is accepted by one server that runs CGI scripts, and judged by the server behind this.
TEST(AnswerHeader, CanHaveOddLines) {
  for (const char *line : {"X-Folded: a\n  b", "X(A): b", "X A: b", "X\xC3\xA4: b", ": b",
                           "no colon", "X\1: b", "X-A: b\rc", " Leading: b", "Content-Length: abc",
                           "Content-Length: 5\nContent-Length: 3", "X_A: b"}) {
    expectHeader("Content-Type: text/plain\n" + std::string(line) + "\n\n");
  }
  expectHeader("Content-Type : text/plain\n\n");
  expectHeader(" Content-Type: text/plain\n\n");
  expectHeader(
      "\xEF\xBB\xBF"
      "Content-Type: text/plain\n\n");
  expectHeader(std::string("X-A: b\0c\n\n", 10));
}

TEST(AnswerHeader, HasTheStatusOfARedirectionAtItsEnd) {
  const struct {
    const char *written;
    const char *sent;
  } headers[] = {
      {"Status: 303\nLocation: /a\n\n", "Location: /a\nStatus: 303\n\n"},
      {"Status: 303\r\nA: b\nlocation:/a\r\nC: d\n\r\n",
       "A: b\nlocation:/a\r\nC: d\nStatus: 303\r\n\r\n"},
      {"Location: /a\nStatus: 303\nA: b\n\n", "Location: /a\nStatus: 303\nA: b\n\n"},
      {"Status: 1\nStatus: 2\nLocation: /a\n\n", "Status: 1\nLocation: /a\nStatus: 2\n\n"},
      {"Status: 1\nLocation: /a\nStatus: 2\n\n", "Status: 1\nLocation: /a\nStatus: 2\n\n"},
      {"HTTP/1.1 303 A: b\nLocation: /a\n\n", "HTTP/1.1 303 A: b\nLocation: /a\n\n"},
      {"Status : 303\nNo colon\nLocation : /a\n\n", "No colon\nLocation : /a\nStatus : 303\n\n"},
  };
  for (const auto &header : headers) {
    const ModelAnswer seen = answer(std::string(header.written) + "body\n");
    EXPECT_EQ(seen.header, header.sent);
    EXPECT_EQ(seen.body, "body\n");
  }
}

TEST(AnswerHeader, IsMissingInPlainText) {
  for (const char *text : {"hello\n", "hello\n\nworld", "\t\n\n", " \nContent-Type: text/plain\n\n",
                           ": value\n\n", "HTTP\n\n", "http/1.1 200 OK\n\n"}) {
    EXPECT_EQ(answer(text).state, State::kBad) << text;
  }
  EXPECT_EQ(answer(std::string("\0\n\n", 3)).state, State::kBad);
}

TEST(AnswerHeader, IsAwaited) {
  for (const char *text :
       {"", "C", "hello", "Content-Type: text/plain", "Content-Type: text/plain\n",
        "Content-Type: text/plain\r\n\r", "\r", "HTTP/1.1 200 OK\r\n"}) {
    const ModelAnswer seen = answer(text);
    EXPECT_EQ(seen.state, State::kNoHeaderYet) << text;
    EXPECT_EQ(seen.header + seen.body, "") << text;
  }
}

TEST(AnswerHeaderLarge, HasALimit) {
  constexpr size_t kMost = size_t{256} * 1024;
  const std::string start = "Content-Type: text/plain\nX: ";
  const std::string most = start + std::string(kMost - start.size() - 2, 'x') + "\n\n";
  for (const size_t part : {size_t{0}, size_t{61}, size_t{4096}, size_t{65536}}) {
    const std::vector<size_t> sizes = part > 0 ? std::vector<size_t>{part} : std::vector<size_t>{};
    EXPECT_TRUE(answerOf(most + "body", sizes) == modelOfAnswer(most + "body"));
    EXPECT_EQ(answerOf(most + "body", sizes).state, State::kHeader) << part;
    EXPECT_EQ(answerOf("X" + most + "body", sizes).state, State::kBad) << part;
    EXPECT_EQ(modelOfAnswer("X" + most + "body").state, State::kBad);
    EXPECT_EQ(answerOf(std::string(kMost, 'x'), sizes).state, State::kNoHeaderYet) << part;
    EXPECT_EQ(answerOf(std::string(kMost + 1, 'x'), sizes).state, State::kBad) << part;
  }
}

TEST(AnswerBody, IsShorterThanItsLength) {
  const auto is_short = [](const std::string &header, const std::string &body) {
    return answer(header + "\n\n" + body).is_short;
  };
  EXPECT_TRUE(is_short("Content-Length: 5", "four"));
  EXPECT_TRUE(is_short("content-length:5", ""));
  EXPECT_TRUE(is_short("Content-Length : \t 18446744073709551615 \t", "four"));
  EXPECT_TRUE(is_short("A: b\r\nCONTENT-LENGTH: 0005\r\nC: d", "four"));
  EXPECT_TRUE(is_short("Content-Length: 4\nContent-Length: 5", "four"));
  EXPECT_FALSE(answer("Content-Length: 5\n").is_short) << "the header is not complete";
  EXPECT_FALSE(is_short("Content-Length: 4", "four"));
  EXPECT_FALSE(is_short("Content-Length: 3", "four"));
  EXPECT_FALSE(is_short("Content-Length: 0", ""));
  EXPECT_FALSE(is_short("X-Content-Length: 5", "four"));
  for (const char *length : {"", " ", "abc", "-5", "+5", "5 5", "5,5", "0x5", "5.0",
                             "18446744073709551616", "99999999999999999999999"}) {
    EXPECT_FALSE(is_short(std::string("Content-Length: ") + length, "four")) << length;
  }
}

TEST(AnswerBody, IsWholeWhenTheServerNeedsNothingMore) {
  const auto is_whole = [](const std::string &written) { return answer(written).is_whole; };
  EXPECT_TRUE(is_whole("Content-Length: 4\n\nfour"));
  EXPECT_TRUE(is_whole("Content-Length: 3\n\nfour"));
  EXPECT_TRUE(is_whole("Content-Length: 0\n\n"));
  EXPECT_FALSE(is_whole("Content-Length: 5\n\nfour"));
  EXPECT_FALSE(is_whole("Content-Length: 0\n"));
  EXPECT_FALSE(is_whole("Content-Type: text/plain\n\nfour"));
  EXPECT_TRUE(is_whole("Status: 304\nContent-Length: 4\n\n"));
  EXPECT_TRUE(is_whole("X-Sendfile: /srv/a\n\n"));
  EXPECT_FALSE(is_whole("Status: 304\nContent-Length: 4\n"));
  EXPECT_FALSE(is_whole("Status: 200\n\n"));
}

// The length is that of the body which the browser has, or would have got.
TEST(AnswerBody, MayBeMissingInAnswersWithoutOne) {
  for (const char *status :
       {"Status: 304 Not Modified", "Status: 304", "status:304\tX", "Status: 204 No Content",
        "HTTP/1.1 304 Not Modified", "Status: 200 OK\nStatus: 304"}) {
    EXPECT_FALSE(answer(std::string(status) + "\nContent-Length: 5\n\n").is_short) << status;
    EXPECT_TRUE(answer(std::string(status) + "\nContent-Length: 5\n\nabc").is_short) << status;
  }
  for (const char *status :
       {"Status: 200 OK", "Status: 3041", "Status: 30", "Status: ", "X: 304",
        "X: y\nHTTP/1.1 304 Not Modified", "HTTP/1.1", "HTTP/304", "Status: 304\nStatus: 200"}) {
    EXPECT_TRUE(answer(std::string(status) + "\nContent-Length: 5\n\n").is_short) << status;
  }
}

// nginx, lighttpd and Apache send a file that the script names.
TEST(AnswerBody, MayBeMissingIfTheServerSendsAFile) {
  for (const char *field : {"X-Accel-Redirect: /files/a", "X-Sendfile: /srv/a",
                            "x-sendfile2: /a 0-", "X-LIGHTTPD-send-file: /srv/a"}) {
    EXPECT_FALSE(answer(std::string(field) + "\nContent-Length: 5\n\n").is_short) << field;
    EXPECT_TRUE(answer(std::string(field) + "\nContent-Length: 5\n\nabc").is_short) << field;
  }
}

TEST(Answers, FollowOneAnother) {
  tarn::server::Output output;
  std::string_view rest;
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(
        output.take("HTTP/1.1 304\nStatus: 304\nContent-Length: 9\nX-Sendfile: a\nLocation: b\n\n",
                    rest),
        tarn::server::Output::State::kBody);
    output.clear();
    EXPECT_EQ(output.state(), tarn::server::Output::State::kHeader);
    EXPECT_EQ(output.status(), 200);
    EXPECT_EQ(output.bodySize(), 0U);
    EXPECT_FALSE(output.isShort());
    EXPECT_EQ(output.take("A: b\nContent-Length: 2\n\nx", rest),
              tarn::server::Output::State::kBody);
    EXPECT_EQ(output.header(), "A: b\nContent-Length: 2\n\n");
    EXPECT_EQ(output.header(), "");
    EXPECT_EQ(rest, "x");
    EXPECT_TRUE(output.isShort());
    output.clear();
    EXPECT_EQ(output.take("hello\n", rest), tarn::server::Output::State::kBad);
    EXPECT_EQ(output.take("A: b\n\n", rest), tarn::server::Output::State::kBad);
    EXPECT_EQ(output.header(), "");
    output.clear();
  }
}

TEST(AnswerStatus, IsThatOfWebServers) {
  const struct {
    const char *header;
    int status;
  } headers[] = {
      {"A: b\n\n", 200},
      {"Status: 404 Not Found\n\n", 404},
      {"status:204\n\n", 204},
      {"Location: /a\n\n", 302},
      {"Status: 303\nLocation: /a\n\n", 303},
      {"Location: /a\nStatus: 201\n\n", 201},
      {"HTTP/1.1 410 Gone\n\n", 410},
      {"HTTP/1.1 410 Gone\nStatus: 500\n\n", 500},
      {"Status: 20\n\n", 0},
      {"Status: 2000\n\n", 0},
      {"Status: 2x0 OK\n\n", 0},
      {"Status:\n\n", 0},
  };
  for (const auto &[header, status] : headers) {
    tarn::server::Output output;
    std::string_view rest;
    output.take(header, rest);
    EXPECT_EQ(output.status(), status) << header;
  }
}

TEST(AnswersAtEachFailure, ReportIt) {
  const std::string header =
      "Content-Type: text/plain\r\nX-A: " + std::string(2000, 'a') + "\r\n\r\n";
  for (const size_t part : {size_t{10}, header.size()}) {
    forEachFailingAllocation([&](FailingMemory &memory) {
      tarn::server::Output output;
      std::string_view rest;
      memory.call([&] {
        for (size_t i = 0; i < header.size(); i += part) {
          output.take({header.data() + i, std::min(part, header.size() - i)}, rest);
        }
        return output.header().size();
      });
      EXPECT_EQ(output.state(), memory.failed() ? tarn::server::Output::State::kOutOfMemory
                                                : tarn::server::Output::State::kBody);
    });
  }
}

}  // namespace
