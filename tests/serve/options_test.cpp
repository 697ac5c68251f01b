// Options, and how a command line sets them.
#include "serve/options.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/failing_memory.h"

namespace {

using namespace tarn::server;
using namespace tarn_test;

// Options that free what they own.
struct OwnedOptions : Options {
  ~OwnedOptions() {
    for (size_t i = 0; i < listen_count; ++i) std::free(const_cast<char *>(listen[i]));
    std::free(const_cast<char *>(status));
    std::free(const_cast<char *>(access_log));
  }
};

// Reads a command line; the message is that on standard error.
struct Line {
  int count;
  std::string message;
};

Line read(Options &options, std::vector<std::string> words) {
  std::vector<char *> arguments;
  for (std::string &word : words) arguments.push_back(word.data());
  const auto size = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  testing::internal::CaptureStderr();
  const int count = readOptions(options, size, arguments.data());
  return {count, testing::internal::GetCapturedStderr()};
}

std::string problem(const char *name, const char *value) {
  OwnedOptions options;
  const char *text = setOption(options, name, value);
  return text ? text : "";
}

TEST(Options, HaveDefaults) {
  const Options options;
  EXPECT_EQ(options.parameter_limits.count, 1000U);
  EXPECT_EQ(options.parameter_limits.size, 1048576U);
  EXPECT_EQ(options.body_size, 1073741824U);
  EXPECT_EQ(options.body_in_memory, 1048576U);
  EXPECT_EQ(options.idle_connections, 150U);
  EXPECT_EQ(options.children, 0U);
  EXPECT_EQ(options.socket_mode, 0600U);
  EXPECT_EQ(options.listen_count, 0U);
}

TEST(Options, AreSetByName) {
  OwnedOptions options;
  const struct {
    const char *name;
    const uint64_t &value;
  } numbers[] = {
      {"children", options.children},
      {"queue", options.queue},
      {"idle-connections", options.idle_connections},
      {"seconds", options.seconds},
      {"receive-seconds", options.receive_seconds},
      {"send-seconds", options.send_seconds},
      {"body-size", options.body_size},
      {"body-in-memory", options.body_in_memory},
      {"parameters", options.parameter_limits.count},
      {"parameters-size", options.parameter_limits.size},
      {"processor-seconds", options.child_limits.processor_seconds},
      {"address-space", options.child_limits.address_space},
      {"open-files", options.child_limits.open_files},
      {"processes", options.child_limits.processes},
  };
  uint64_t next = 12345;
  for (const auto &number : numbers) {
    EXPECT_EQ(setOption(options, number.name, std::to_string(++next).c_str()), nullptr);
    EXPECT_EQ(number.value, next) << number.name;
  }
  EXPECT_EQ(setOption(options, "socket-mode", "0660"), nullptr);
  EXPECT_EQ(options.socket_mode, 0660U);
  EXPECT_EQ(setOption(options, "listen", "unix:/run/a"), nullptr);
  EXPECT_EQ(setOption(options, "listen", "tcp:127.0.0.1:80"), nullptr);
  ASSERT_EQ(options.listen_count, 2U);
  EXPECT_STREQ(options.listen[0], "unix:/run/a");
  EXPECT_STREQ(options.listen[1], "tcp:127.0.0.1:80");
}

TEST(Options, HaveSizesWithUnits) {
  const struct {
    const char *text;
    uint64_t size;
  } sizes[] = {
      {"0", 0},
      {"4096", 4096},
      {"64K", 65536},
      {"10M", 10485760},
      {"3G", 3221225472},
      {"0G", 0},
      {"007K", 7168},
      {"5000000000", 5000000000},
      {"9223372036854775807", 9223372036854775807},
      {"8589934591G", 9223372035781033984},
  };
  for (const auto &size : sizes) {
    OwnedOptions options;
    EXPECT_EQ(setOption(options, "body-size", size.text), nullptr) << size.text;
    EXPECT_EQ(options.body_size, size.size) << size.text;
  }
}

TEST(Options, RefuseWhatIsNoSize) {
  for (const char *text : {"",
                           "K",
                           "KM",
                           "-1",
                           "+1",
                           " 1",
                           "1 ",
                           "1.5M",
                           "1k",
                           "1KB",
                           "1T",
                           "x",
                           "0x10",
                           "1KK",
                           "9223372036854775808",
                           "8589934592G",
                           "18446744073709551616",
                           "99999999999999999999999",
                           "17179869184G",
                           "1000000000000000000000000000000"}) {
    EXPECT_EQ(problem("body-size", text), "needs a number of bytes, such as 4096, 64K, 10M or 1G")
        << text;
  }
}

// Sums of them and milliseconds must fit into 64 bits.
TEST(Options, RefuseWhatIsNoNumber) {
  for (const char *text :
       {"", "-1", "+1", " 1", "1 ", "1.5", "1K", "x", "0x10", "1000000001", "18446744073709551615",
        "18446744073709551616", "100000000000000000000000000000"}) {
    EXPECT_EQ(problem("queue", text), "needs a number from 0 to 1000000000") << text;
    EXPECT_EQ(problem("seconds", text), "needs a number from 1 to 1000000000") << text;
  }
  EXPECT_EQ(problem("seconds", "0"), "needs a number from 1 to 1000000000");
  EXPECT_EQ(problem("queue", "0"), "");
  EXPECT_EQ(problem("seconds", "1000000000"), "");
}

TEST(Options, RefuseWhatIsNoMode) {
  for (const char *text : {"", "8", "0680", "01000", "-1", " 600", "600 ", "rw",
                           "99999999999999999999", "0777777777777777777777777777"}) {
    EXPECT_EQ(problem("socket-mode", text), "needs an octal mode, such as 0660") << text;
  }
  EXPECT_EQ(problem("socket-mode", "0"), "");
  EXPECT_EQ(problem("socket-mode", "777"), "");
}

TEST(Options, ChooseWhereErrorsGo) {
  OwnedOptions options;
  EXPECT_TRUE(options.sends_errors);
  EXPECT_EQ(setOption(options, "errors", "own"), nullptr);
  EXPECT_FALSE(options.sends_errors);
  EXPECT_EQ(setOption(options, "errors", "both"), nullptr);
  EXPECT_TRUE(options.sends_errors);
  for (const char *text : {"", "Own", "own ", "none"}) {
    EXPECT_EQ(problem("errors", text), "must be both or own") << text;
  }
}

TEST(Options, SayWhereTheStatusAndTheAccessLogGo) {
  OwnedOptions options;
  EXPECT_EQ(options.status, nullptr);
  EXPECT_EQ(options.access_log, nullptr);
  EXPECT_EQ(options.access_format, AccessFormat::kCommon);
  // The last one counts.
  for (const char *text : {"tcp:127.0.0.1:1", "unix:a"}) {
    EXPECT_EQ(setOption(options, "status", text), nullptr);
    EXPECT_STREQ(options.status, text);
    EXPECT_EQ(setOption(options, "access-log", text), nullptr);
    EXPECT_STREQ(options.access_log, text);
  }
  EXPECT_EQ(setOption(options, "access-log-format", "json"), nullptr);
  EXPECT_EQ(options.access_format, AccessFormat::kJson);
  EXPECT_EQ(setOption(options, "access-log-format", "common"), nullptr);
  EXPECT_EQ(options.access_format, AccessFormat::kCommon);
  for (const char *text : {"", "JSON", "json ", "combined"}) {
    EXPECT_EQ(problem("access-log-format", text), "must be common or json") << text;
  }
  EXPECT_EQ(problem("status", ""), "needs a value");
  EXPECT_EQ(problem("access-log", ""), "needs a value");
}

TEST(Options, RefuseOthers) {
  for (const char *name : {"", "nothing", "Listen", "listen ", "--listen", "child", "childrens"}) {
    EXPECT_EQ(problem(name, "1"), "is not an option") << name;
  }
  for (const char *name : {"listen", "children", "body-size", "socket-mode", "nothing"}) {
    EXPECT_NE(problem(name, nullptr), "") << name;
  }
}

TEST(Options, KeepTheirValueIfAnotherIsRefused) {
  OwnedOptions options;
  EXPECT_EQ(setOption(options, "seconds", "5"), nullptr);
  EXPECT_NE(setOption(options, "seconds", "0"), nullptr);
  EXPECT_NE(setOption(options, "seconds", "6x"), nullptr);
  EXPECT_EQ(options.seconds, 5U);
}

TEST(Options, HaveEightListenersAtMost) {
  OwnedOptions options;
  for (int i = 0; i < 8; ++i) EXPECT_EQ(setOption(options, "listen", "unix:a"), nullptr);
  EXPECT_STREQ(setOption(options, "listen", "unix:a"), "is allowed 8 times");
  EXPECT_EQ(options.listen_count, 8U);
}

TEST(Options, CopyTheirValue) {
  OwnedOptions options;
  std::string address = "unix:a";
  EXPECT_EQ(setOption(options, "listen", address.c_str()), nullptr);
  address = "changed";
  EXPECT_STREQ(options.listen[0], "unix:a");
}

TEST(OptionsAtEachFailure, KeepTheTextThatTheyHave) {
  forEachFailingAllocation([](FailingMemory &memory) {
    OwnedOptions options;
    ASSERT_EQ(setOption(options, "status", "unix:a"), nullptr);
    const char *text = memory.call([&] { return setOption(options, "status", "unix:b"); });
    EXPECT_EQ(text != nullptr, memory.failed());
    EXPECT_STREQ(options.status, memory.failed() ? "unix:a" : "unix:b");
  });
}

TEST(OptionsAtEachFailure, ReportIt) {
  forEachFailingAllocation([](FailingMemory &memory) {
    OwnedOptions options;
    const char *text = memory.call([&] { return setOption(options, "listen", "unix:a"); });
    EXPECT_EQ(text != nullptr, memory.failed());
    EXPECT_EQ(options.listen_count, memory.failed() ? 0U : 1U);
  });
}

TEST(CommandLine, SetsOptions) {
  OwnedOptions options;
  const Line line = read(options, {"--seconds=7", "--queue", "0", "--listen", "unix:a=b",
                                   "--listen=unix:c=d", "--body-size=", "5"});
  EXPECT_EQ(line.count, -1);
  EXPECT_EQ(line.message,
            "tarn-serve: --body-size needs a number of bytes, such as 4096, 64K, 10M or 1G\n");
  EXPECT_EQ(options.seconds, 7U);
  EXPECT_EQ(options.queue, 0U);
  ASSERT_EQ(options.listen_count, 2U);
  EXPECT_STREQ(options.listen[0], "unix:a=b");
  EXPECT_STREQ(options.listen[1], "unix:c=d");
}

TEST(CommandLine, EndsBeforeTheProgram) {
  OwnedOptions options;
  EXPECT_EQ(read(options, {}).count, 0);
  EXPECT_EQ(read(options, {"program", "--seconds", "9"}).count, 0);
  EXPECT_EQ(read(options, {"--seconds", "8", "program", "--seconds", "9"}).count, 2);
  EXPECT_EQ(read(options, {"--seconds=8", "--", "--seconds", "9"}).count, 2);
  EXPECT_EQ(read(options, {"-", "--seconds", "9"}).count, 0);
  EXPECT_EQ(read(options, {""}).count, 0);
  EXPECT_EQ(options.seconds, 8U);
}

// A program that counts its own name, too, passes one word too many.
TEST(CommandLine, EndsAtANullPointer) {
  OwnedOptions options;
  char word[] = "--seconds=8";
  char *arguments[] = {word, nullptr, word};
  EXPECT_EQ(readOptions(options, 2, arguments), 1);
  EXPECT_EQ(readOptions(options, 3, arguments), 1);
  char name[] = "--seconds";
  arguments[0] = name;
  testing::internal::CaptureStderr();
  EXPECT_EQ(readOptions(options, 2, arguments), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "tarn-serve: --seconds needs a value\n");
}

// The word after a flag is not its value.
TEST(CommandLine, HasFlags) {
  OwnedOptions options;
  EXPECT_EQ(read(options, {"--confine", "program"}).count, 1);
  EXPECT_TRUE(options.rights.confine);
  EXPECT_EQ(read(options, {"--confine", "--seconds", "9", "program"}).count, 3);
  EXPECT_EQ(options.seconds, 9U);
  EXPECT_EQ(read(options, {"--confine=yes"}).message, "tarn-serve: --confine has no value\n");
}

TEST(CommandLine, ReportsWhatIsWrong) {
  OwnedOptions options;
  EXPECT_EQ(read(options, {"--nothing", "1"}).message, "tarn-serve: --nothing is not an option\n");
  EXPECT_EQ(read(options, {"--nothing=1"}).message, "tarn-serve: --nothing is not an option\n");
  EXPECT_EQ(read(options, {"--nothing"}).message, "tarn-serve: --nothing is not an option\n");
  for (const std::string name : {"--seconds", "--listen", "--errors", "--access-log-format"}) {
    EXPECT_EQ(read(options, {name}).message, "tarn-serve: " + name + " needs a value\n");
  }
  EXPECT_EQ(read(options, {"--=1"}).message, "tarn-serve: -- is not an option\n");
  const std::string name = "--" + std::string(70, 'n');
  EXPECT_EQ(read(options, {name + "=1"}).message, "tarn-serve: " + name + " is not an option\n");
}

TEST(CommandLine, ReplacesTheListenersOfTheProgram) {
  OwnedOptions options;
  for (const char *address : {"unix:a", "unix:b", "unix:c"}) {
    EXPECT_EQ(setOption(options, "listen", address), nullptr);
  }
  EXPECT_EQ(read(options, {"--seconds=8"}).count, 1);
  ASSERT_EQ(options.listen_count, 3U);
  EXPECT_STREQ(options.listen[2], "unix:c");
  EXPECT_EQ(read(options, {"--listen=unix:d"}).count, 1);
  ASSERT_EQ(options.listen_count, 1U);
  EXPECT_STREQ(options.listen[0], "unix:d");
  EXPECT_EQ(read(options, {"--listen=unix:e", "--nothing=1"}).count, -1);
}

}  // namespace
