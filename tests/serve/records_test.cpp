// Records and name-value pairs, in whatever pieces their bytes arrive.
#include "serve/records.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/fastcgi.h"

namespace {

using namespace tarn::server;
namespace fastcgi = tarn_test::fastcgi;
using Events = std::vector<std::string>;

// Feeds a reader with parts of so many bytes, and writes down what it reports. What arrives in one
// row is one event.
template <class Reader, class Describe>
Events read(std::string_view bytes, size_t part, const Describe &describe) {
  Reader reader;
  Events events;
  while (!bytes.empty()) {
    std::string_view input = bytes.substr(0, part);
    bytes.remove_prefix(input.size());
    for (auto event = reader.next(input); event != Reader::Event::kNone;
         event = reader.next(input)) {
      const std::string text = describe(reader, event);
      if (text[0] == '+' && !events.empty() && events.back()[0] == '+') {
        events.back() += text.substr(1);
      } else {
        events.push_back(text);
      }
      if (text == "malformed") return events;
    }
    EXPECT_TRUE(input.empty());
  }
  return events;
}

Events records(std::string_view bytes, size_t part) {
  return read<RecordReader>(bytes, part, [](const RecordReader &reader, RecordReader::Event event) {
    const RecordHeader &header = reader.header();
    switch (event) {
      case RecordReader::Event::kBegin:
        return "record " + std::to_string(header.type) + " of " + std::to_string(header.request) +
               ", " + std::to_string(header.size) + " bytes";
      case RecordReader::Event::kContent:
        return "+" + std::string(reader.content());
      case RecordReader::Event::kEnd:
        return std::string("end");
      default:
        return std::string("malformed");
    }
  });
}

Events pairs(std::string_view bytes, size_t part) {
  return read<PairReader>(bytes, part, [](const PairReader &reader, PairReader::Event event) {
    switch (event) {
      case PairReader::Event::kSizes:
        return std::to_string(reader.nameSize()) + ", " + std::to_string(reader.valueSize());
      case PairReader::Event::kName:
        return "+" + std::string(reader.bytes()) + (reader.nameEnds() ? "=" : "");
      case PairReader::Event::kValue:
        return "+" + std::string(reader.bytes());
      default:
        return std::string("end");
    }
  });
}

TEST(Records, AreReadWhereverTheirBytesAreCut) {
  const std::string bytes = fastcgi::record(5, 258, "abc") + fastcgi::record(5, 1) +
                            fastcgi::record(200, 65535, "", 255) +
                            fastcgi::record(4, 0, "defgh", 3) + fastcgi::record(2, 7);
  const Events expected = {"record 5 of 258, 3 bytes",
                           "+abc",
                           "end",
                           "record 5 of 1, 0 bytes",
                           "end",
                           "record 200 of 65535, 0 bytes",
                           "end",
                           "record 4 of 0, 5 bytes",
                           "+defgh",
                           "end",
                           "record 2 of 7, 0 bytes",
                           "end"};
  for (size_t part = 1; part <= bytes.size(); ++part) EXPECT_EQ(records(bytes, part), expected);
}

TEST(Records, CanHaveTheMostContentAndPadding) {
  const std::string content(65535, 'c');
  const std::string bytes = fastcgi::record(5, 1, content, 255) + fastcgi::record(5, 1);
  for (const size_t part : {size_t{1}, size_t{4096}, size_t{65536}, bytes.size()}) {
    const Events events = records(bytes, part);
    ASSERT_EQ(events.size(), 5U) << part;
    EXPECT_TRUE(events[1] == "+" + content);
    EXPECT_EQ(events[3], "record 5 of 1, 0 bytes");
  }
}

TEST(Records, OfAnotherVersionAreMalformedFromTheirFirstByte) {
  EXPECT_EQ(records(std::string_view("\0", 1), 1), Events{"malformed"});
  EXPECT_EQ(records("GET / HTTP/1.1\r\n\r\n", 100), Events{"malformed"});
  EXPECT_EQ(records(fastcgi::record(5, 1) + "\2", 3),
            (Events{"record 5 of 1, 0 bytes", "end", "malformed"}));
}

TEST(Records, StayMalformed) {
  RecordReader reader;
  std::string_view other = "\2";
  EXPECT_EQ(reader.next(other), RecordReader::Event::kMalformed);
  const std::string good = fastcgi::record(5, 1);
  std::string_view input = good;
  EXPECT_EQ(reader.next(input), RecordReader::Event::kMalformed);
}

TEST(Records, WriteTheirHeader) {
  char bytes[kRecordHeaderSize];
  writeRecordHeader({kStdout, 0x1234, 0xFEDC, 0x98}, bytes);
  EXPECT_EQ(std::string(bytes, sizeof bytes), std::string("\1\6\x12\x34\xFE\xDC\x98\0", 8));
}

TEST(Records, WriteTheEndOfARequest) {
  char bytes[kSmallRecordSize];
  writeEndRequest(0x1234, 0x89ABCDEF, ProtocolStatus::kOverloaded, bytes);
  EXPECT_EQ(std::string(bytes, sizeof bytes),
            fastcgi::end(0x1234, 0x89ABCDEF, fastcgi::kOverloaded));
  EXPECT_EQ(std::string(bytes, 8), std::string("\1\3\x12\x34\0\10\0\0", 8));
}

TEST(Pairs, AreReadWhereverTheirBytesAreCut) {
  const std::string name(127, 'n');
  const std::string value(128, 'v');
  const std::string bytes = fastcgi::pair("a", "bc") + fastcgi::pair(name, value) +
                            fastcgi::longPair("d", "") + fastcgi::pair("", "e") +
                            fastcgi::pair("", "") + fastcgi::pair("f", "g");
  const Events expected = {"1, 2", "+a=bc", "end",  "127, 128", "+" + name + "=" + value,
                           "end",  "1, 0",  "+d=",  "end",      "0, 1",
                           "+e",   "end",   "0, 0", "end",      "1, 1",
                           "+f=g", "end"};
  for (size_t part = 1; part <= bytes.size(); ++part) EXPECT_EQ(pairs(bytes, part), expected);
}

TEST(Pairs, ClaimUpTo31BitsOfLength) {
  const std::string bytes = fastcgi::longPair("", 0x7FFFFFFF, "", 0x7FFFFFFF) + "name";
  for (size_t part = 1; part <= bytes.size(); ++part) {
    EXPECT_EQ(pairs(bytes, part), (Events{"2147483647, 2147483647", "+name"}));
  }
  EXPECT_EQ(pairs(std::string("\x80\0\0\1\x80\0\1\0", 8), 3), Events{"1, 256"});
}

TEST(Pairs, MayEndTheStreamOnlyBetweenTwo) {
  const std::string bytes = fastcgi::longPair("ab", "c");
  for (size_t size = 0; size <= bytes.size(); ++size) {
    PairReader reader;
    std::string_view input(bytes.data(), size);
    while (reader.next(input) != PairReader::Event::kNone) {
    }
    EXPECT_EQ(reader.isBetweenPairs(), size == 0 || size == bytes.size()) << size;
  }
}

}  // namespace
