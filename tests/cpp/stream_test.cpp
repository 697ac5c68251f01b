// Bodies in pieces.
#include <gtest/gtest.h>
#include <unistd.h>
#include <tarn/stream.hpp>

#include <csignal>
#include <cstdio>
#include <string>
#include <string_view>

#include "output.h"
#include "support/script.h"

namespace {

using namespace std::literals;
using tarn::Response;
using tarn::Stream;
using tarn_test::asScript;
using tarn_test::Output;

const std::string kHeader = "Content-Type: text/plain; charset=utf-8\r\n\r\n";

TEST(Stream, SendsTheHeaderAndThePieces) {
  Output out;
  Response response(out);
  response.content_type("text/csv").status(201).header("X-Lake", "deep").etag("1");
  Stream body(response);
  EXPECT_TRUE(body.write("a,b\n"));
  EXPECT_TRUE(body.write(""));
  EXPECT_TRUE(body.write(std::string_view("\0\n", 2)));
  EXPECT_TRUE(body.finish());
  EXPECT_EQ(
      "Status: 201 Created\r\nContent-Type: text/csv\r\nX-Lake: deep\r\nETag: \"1\"\r\n\r\na,b\n\0\n"sv,
      out.written());
}

TEST(Stream, MayBeEmpty) {
  Output out;
  Response response(out);
  Stream body(response);
  EXPECT_TRUE(body.finish());
  EXPECT_EQ(kHeader, out.written());
}

TEST(Stream, HandsOverPiecesWhenItIsFlushed) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  FILE *out = fdopen(ends[1], "w");
  Response response(out);
  Stream body(response);
  EXPECT_TRUE(body.write("one"));
  EXPECT_TRUE(body.flush());
  char text[100] = "";
  EXPECT_EQ(static_cast<ssize_t>(kHeader.size()) + 3, read(ends[0], text, sizeof text));
  EXPECT_EQ(kHeader + "one", text);
  EXPECT_TRUE(body.write("two"));
  EXPECT_TRUE(body.finish());
  char more[100] = "";
  EXPECT_EQ(3, read(ends[0], more, sizeof more));
  EXPECT_STREQ("two", more);
  std::fclose(out);
  close(ends[0]);
}

TEST(Stream, SendsNoBodyForAHeadRequest) {
  asScript({{"REQUEST_METHOD", "HEAD"}}, "", [] {
    Output out;
    Response response(out);
    Stream body(response);
    EXPECT_FALSE(body.write("one"));
    EXPECT_FALSE(body.flush());
    EXPECT_TRUE(body.finish());
    EXPECT_EQ(kHeader, out.written());
  });
}

TEST(Stream, SendsNoBodyIfTheStatusForbidsIt) {
  Output out;
  Response response(out);
  response.status(304);
  Stream body(response);
  EXPECT_FALSE(body.write("one"));
  EXPECT_TRUE(body.finish());
  EXPECT_EQ("Status: 304 Not Modified\r\n\r\n", out.written());
}

TEST(Stream, SendsThePageOfAFailureInstead) {
  Output out;
  Response response(out);
  response.header("X", "a\nb");
  Stream body(response);
  EXPECT_FALSE(body.write("one"));
  EXPECT_FALSE(body.finish());
  EXPECT_EQ(0U, out.written().find("Status: 500 "));
  EXPECT_EQ(std::string::npos, out.written().find("one"));
}

TEST(Stream, BeginsOnce) {
  Output out;
  Response response(out);
  Stream body(response);
  EXPECT_TRUE(body.write("one"));
  Stream other(response);
  EXPECT_FALSE(other.write("two"));
  EXPECT_FALSE(response.send_text("three"));
  EXPECT_FALSE(other.finish());
  EXPECT_STREQ("response was already sent", response.problem());
  EXPECT_EQ(kHeader + "one", out.written());
}

TEST(Stream, SendsNothingAfterItsEnd) {
  Output out;
  Response response(out);
  Stream body(response);
  EXPECT_TRUE(body.finish());
  EXPECT_FALSE(body.write("one"));
  EXPECT_EQ(kHeader, out.written());
}

TEST(Stream, TellsThatTheVisitorHasLeft) {
  asScript({}, "", [] {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    signal(SIGPIPE, SIG_IGN);
    FILE *out = fdopen(ends[1], "w");
    Response response(out);
    Stream body(response);
    EXPECT_TRUE(body.write("one"));
    EXPECT_TRUE(body.flush());
    close(ends[0]);
    int written = 0;
    while (written < 1000 && body.write(std::string(1000, 'x'))) ++written;
    EXPECT_LT(written, 1000);
    EXPECT_FALSE(body.write("two"));
    EXPECT_FALSE(body.finish());
    EXPECT_STREQ("response could not be written", response.problem());
  });
}

TEST(Stream, TellsThatTheDiskIsFull) {
  FILE *full = std::fopen("/dev/full", "w");
  ASSERT_NE(nullptr, full);
  Response response(full);
  Stream body(response);
  EXPECT_TRUE(body.write("one"));
  EXPECT_FALSE(body.flush());
  EXPECT_FALSE(body.finish());
  EXPECT_STREQ("response could not be written", response.problem());
  std::fclose(full);
}

}  // namespace
