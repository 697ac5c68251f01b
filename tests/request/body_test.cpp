// Large bodies from every kind of standard input: each gives what a pipe gives.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "support/failing_memory.h"
#include "support/form.h"
#include "support/handles.h"
#include "support/processor_time.h"
#include "support/rules.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_test {
namespace {

constexpr size_t kKilobyte = 1024;
constexpr size_t kMegabyte = kKilobyte * kKilobyte;
constexpr const char *kUrlEncoded = "application/x-www-form-urlencoded";
constexpr const char *kMultipart = "multipart/form-data; boundary=XYZ";

// From this size on, the library maps bytes.
constexpr size_t kLeastMapped = 256 * kKilobyte;

// Calls that the library can do without fail, except the first of them.
class FailingCalls {
 public:
  // No kind of input below takes more of them: one for each 64 KiB, and five others.
  static constexpr int kMost = 20;

  explicit FailingCalls(int spared) : spared_(spared) {
    left_ = spared;
    failed_ = 0;
    errorOfCall = errorOf;
  }
  ~FailingCalls() {
    errorOfCall = nullptr;
    if (spared_ == 0) {
      EXPECT_GT(failed_, 0);
    }
    if (spared_ == kMost) {
      EXPECT_EQ(0, failed_);
    }
  }
  FailingCalls(const FailingCalls &) = delete;
  FailingCalls &operator=(const FailingCalls &) = delete;

 private:
  static int errorOf(long number) {
    constexpr long kCalls[] = {SYS_lseek, SYS_statx,        SYS_madvise,
                               SYS_write, SYS_memfd_create, SYS_prlimit64};
    if (std::ranges::find(kCalls, number) == std::end(kCalls) || left_-- > 0) return 0;
    left_ = 0;
    ++failed_;
    return EPERM;
  }

  static inline int left_ = 0;
  static inline int failed_ = 0;
  int spared_;
};

// Bytes of any value, without CR, at which a file ends.
std::string noise(size_t size, unsigned seed = 1) {
  std::string bytes(size, '\0');
  for (char &byte : bytes) {
    seed = seed * 1103515245 + 12345;
    byte = static_cast<char>(seed >> 16);
    if (byte == '\r') byte = '\n';
  }
  return bytes;
}

std::string part(const std::string &name, const std::string &value) {
  return "--XYZ\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
}

std::string filePart(const std::string &name, const std::string &value) {
  return "--XYZ\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" + name +
         ".bin\"\r\nContent-Type: application/octet-stream\r\n\r\n" + value + "\r\n";
}

std::string upload(size_t size) {
  return part("before", "1") + filePart("large", noise(size)) + filePart("small", noise(100, 2)) +
         filePart("again", noise(size, 3)) + part("after", "2") + "--XYZ--\r\n";
}

// ---- Kinds of standard input --------------------------------------------------------------------

enum class Input { kPipe, kSocket, kMemory, kWithoutName, kNamed };

constexpr Input kInputs[] = {Input::kPipe, Input::kSocket, Input::kMemory, Input::kWithoutName,
                             Input::kNamed};

// The files of the named kind, which are removed when the script ends.
const char *const kName = "body_test_input";

void send(int to, int from, const std::string &bytes) {
  const pid_t sender = fork();
  ASSERT_GE(sender, 0);
  if (sender > 0) return;
  close(from);
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const ssize_t sent = write(to, rest.data(), rest.size());
    if (sent < 0) break;
    rest.remove_prefix(static_cast<size_t>(sent));
  }
  _exit(0);
}

int fileOf(Input kind) {
  if (kind == Input::kMemory) return memfd_create("input", 0);
  std::string path = testing::TempDir() + kName + "XXXXXX";
  const int file = mkstemp(path.data());
  if (kind == Input::kWithoutName) unlink(path.c_str());
  return file;
}

// Makes `bytes`, from `offset` on, the standard input of this process.
void useAsInput(Input kind, const std::string &bytes, size_t offset = 0) {
  int ends[2] = {-1, -1};
  if (kind == Input::kPipe || kind == Input::kSocket) {
    ASSERT_EQ(0, kind == Input::kPipe ? pipe(ends) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    send(ends[1], ends[0], bytes.substr(offset));
    close(ends[1]);
  } else {
    ends[0] = fileOf(kind);
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(ends[0], bytes.data(), bytes.size()));
    ASSERT_EQ(static_cast<off_t>(offset), lseek(ends[0], static_cast<off_t>(offset), SEEK_SET));
  }
  ASSERT_EQ(STDIN_FILENO, dup2(ends[0], STDIN_FILENO));
  close(ends[0]);
}

std::string nameOfInput() {
  char path[4096];
  const ssize_t size = readlink("/proc/self/fd/0", path, sizeof path);
  return size > 0 ? std::string(path, static_cast<size_t>(size)) : std::string();
}

// Runs a script whose standard input is of this kind. A file with a name is removed at the end.
void withInput(Input kind, const Variables &variables, const std::string &bytes, size_t offset,
               const std::function<void()> &script) {
  asScript(variables, "", [&] {
    SCOPED_TRACE("kind of input " + std::to_string(static_cast<int>(kind)));
    useAsInput(kind, bytes, offset);
    const std::string name = kind == Input::kNamed ? nameOfInput() : "";
    script();
    if (!name.empty()) unlink(name.c_str());
  });
}

Variables postOf(const std::string &contentType, size_t length) {
  return {{"REQUEST_METHOD", "POST"},
          {"CONTENT_TYPE", contentType},
          {"CONTENT_LENGTH", std::to_string(length)}};
}

Form modelOf(const std::string &contentType, const std::string &body) {
  return contentType == kMultipart ? modelForm(contentType, body) : Form{modelEntries(body), {}};
}

// Large values are not printed.
void expectRequest(Request &request, const std::string &contentType, const std::string &body,
                   size_t declared) {
  std::string padded = body;
  padded.resize(declared);
  EXPECT_EQ(TARN_OK, request.status);
  EXPECT_TRUE(modelOf(contentType, body) == request.form());
  EXPECT_TRUE(padded == bodyOf(request.environment()));
  EXPECT_EQ(body.size() == declared ? 1U : 0U, Tarn_isComplete(&request.handle));
}

TEST(BodyMapped, OfEveryKindYieldsTheSameRequest) {
  std::vector<std::pair<const char *, std::string>> sendings;
  for (const size_t size : {kLeastMapped - 300, kLeastMapped - 1, kLeastMapped, kLeastMapped + 1,
                            3 * kLeastMapped / 2}) {
    sendings.emplace_back(kMultipart, upload(size));
    sendings.emplace_back(kUrlEncoded, "a=" + std::string(size, 'x') + "&b=%41+c");
  }
  for (const auto &[contentType, body] : sendings) {
    for (const Input kind : kInputs) {
      withInput(kind, postOf(contentType, body.size()), body, 0, [&, type = contentType] {
        Request request;
        expectRequest(request, type, body, body.size());
        EXPECT_EQ("", restOfStandardInput());
      });
    }
  }
}

// Bodies and files that end at, before and behind the end of a page.
TEST(BodyMapped, MayEndAnywhereInAPage) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const std::string head = filePart("f", "");
  for (size_t size = kLeastMapped; size < kLeastMapped + 2 * page; size += page / 3 - 1) {
    // First the file ends there, then the body.
    for (const size_t before : {head.size() - 2, head.size() + 9}) {
      const std::string body = filePart("f", noise(size - before)) + "--XYZ--\r\n";
      for (const Input kind : {Input::kPipe, Input::kMemory}) {
        withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
          Request request;
          expectRequest(request, kMultipart, body, body.size());
        });
      }
    }
  }
  for (const long around : {-1, 0, 1}) {
    const size_t size = kLeastMapped + 3 * page + static_cast<size_t>(around);
    for (const size_t before : {head.size() - 2, head.size() + 9}) {
      const std::string body = filePart("f", noise(size - before)) + "--XYZ--\r\n";
      for (const Input kind : kInputs) {
        withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
          Request request;
          expectRequest(request, kMultipart, body, body.size());
        });
      }
    }
  }
}

TEST(BodyMapped, StartsWhereTheDescriptorIs) {
  const std::string body = upload(kLeastMapped);
  for (const size_t offset :
       {size_t{1}, size_t{4095}, size_t{4096}, size_t{65536}, size_t{131072}, size_t{131073}}) {
    const std::string bytes = noise(offset) + body;
    for (const Input kind : kInputs) {
      withInput(kind, postOf(kMultipart, body.size()), bytes, offset, [&] {
        Request request;
        expectRequest(request, kMultipart, body, body.size());
        EXPECT_EQ("", restOfStandardInput());
      });
    }
  }
}

TEST(BodyMapped, StartsWhereTheScriptStoppedReading) {
  const std::string body = upload(kLeastMapped);
  for (const size_t taken : {size_t{1}, size_t{4095}, size_t{4096}, size_t{65533}, size_t{65536}}) {
    const std::string bytes = noise(taken) + body;
    for (const Input kind : kInputs) {
      withInput(kind, postOf(kMultipart, body.size()), bytes, 0, [&] {
        for (size_t i = 0; i < taken; ++i) std::getchar();
        Request request;
        expectRequest(request, kMultipart, body, body.size());
        EXPECT_EQ("", restOfStandardInput());
      });
    }
  }
  for (const Input kind : kInputs) {
    withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
      std::ungetc(std::getchar(), stdin);
      Request request;
      expectRequest(request, kMultipart, body, body.size());
    });
  }
}

TEST(BodyMapped, LeavesTheRestOfALongerInputToStdio) {
  const std::string rest = noise(100000, 7);
  for (const size_t more : {size_t{0}, size_t{1}, size_t{100}, size_t{4096}}) {
    const std::string body = "a=" + std::string(kLeastMapped + more, 'x');
    for (const Input kind : kInputs) {
      withInput(kind, postOf(kUrlEncoded, body.size()), body + rest, 0, [&] {
        Request request;
        expectRequest(request, kUrlEncoded, body, body.size());
        EXPECT_FALSE(std::feof(stdin));
        if (kind != Input::kPipe && kind != Input::kSocket) {
          EXPECT_EQ(static_cast<long>(body.size()), std::ftell(stdin));
        }
        EXPECT_TRUE(rest == restOfStandardInput());
      });
    }
  }
}

TEST(BodyMapped, ShorterThanDeclaredIsPaddedWithZeros) {
  const auto expectPadded = [](size_t size, size_t missing) {
    const std::string body = upload(size);
    for (const Input kind : kInputs) {
      withInput(kind, postOf(kMultipart, body.size() + missing), body, 0, [&] {
        Request request;
        expectRequest(request, kMultipart, body, body.size() + missing);
        EXPECT_TRUE(std::feof(stdin));
      });
    }
  };
  for (const size_t size : {size_t{0}, kLeastMapped - 500, kLeastMapped, kLeastMapped + 1}) {
    for (const size_t missing : {size_t{1}, size_t{4096}, kLeastMapped})
      expectPadded(size, missing);
  }
  expectPadded(4096, 5 * kMegabyte);
}

// ---- Copies -------------------------------------------------------------------------------------

char *bytesOf(TarnHandle buffer) {
  return reinterpret_cast<char *>(CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC));
}

char *bytesOfFile(Request &request, const char *name) {
  TarnHandle file = Tarn_getFile(&request.handle, name);
  return bytesOf(CGIgs_getStruct(&file, TARN_FILE_BYTES, TARN_FORM_FILE_MAGIC));
}

char *bytesOfBody(Request &request) {
  TarnHandle environment = request.environment();
  return bytesOf(CGIgs_getStruct(&environment, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC));
}

TEST(BodyMapped, AndItsFilesCanBeChangedApart) {
  const size_t size = kLeastMapped + 10000;
  const std::string body = upload(size);
  for (const Input kind : kInputs) {
    withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
      Request request;
      const Form before = request.form();
      std::fill_n(bytesOfFile(request, "large"), size, 'L');
      EXPECT_TRUE(body == bodyOf(request.environment()));
      EXPECT_TRUE(before.files[2] == request.files()[2]);
      std::fill_n(bytesOfBody(request), body.size(), 'B');
      EXPECT_TRUE(std::string(size, 'L') == request.files()[0].data);
      EXPECT_TRUE(before.files[2] == request.files()[2]);
      // The file that was standard input is as it was.
      if (kind == Input::kPipe || kind == Input::kSocket) return;
      std::string kept(body.size(), '\0');
      EXPECT_EQ(static_cast<ssize_t>(kept.size()), pread(0, kept.data(), kept.size(), 0));
      EXPECT_TRUE(body == kept);
    });
  }
}

TEST(BodyMapped, StaysReadableAfterTheRequest) {
  const std::string body = upload(kLeastMapped);
  for (const Input kind : kInputs) {
    withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
      const char *bytes = nullptr;
      const char *file = nullptr;
      {
        Request request;
        bytes = bytesOfBody(request);
        file = bytesOfFile(request, "again");
      }
      close(STDIN_FILENO);
      EXPECT_TRUE(body == std::string_view(bytes, body.size()));
      EXPECT_TRUE(noise(kLeastMapped, 3) == std::string_view(file, kLeastMapped));
    });
  }
}

TEST(BodyMapped, OfAFileWithANameIsReadSoThatItMayBeTruncatedLater) {
  const std::string body = upload(kLeastMapped);
  withInput(Input::kNamed, postOf(kMultipart, body.size()), body, 0, [&] {
    Request request;
    ASSERT_EQ(0, ftruncate(STDIN_FILENO, 0));
    expectRequest(request, kMultipart, body, body.size());
  });
}

TEST(BodyMapped, IsNotWhatAScriptParsesItself) {
  const std::string body = upload(kLeastMapped);
  for (const Input kind : kInputs) {
    withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
      Request request;
      request.empty();
      std::string own = upload(kLeastMapped + 1);
      Tarn_parseFormInput(&request.handle, own.data(), static_cast<uint32_t>(own.size()));
      EXPECT_TRUE(modelForm(kMultipart, upload(kLeastMapped + 1)) == request.form());
      // The body itself may be parsed again.
      request.empty();
      Tarn_parseFormInput(&request.handle, bytesOfBody(request),
                          static_cast<uint32_t>(body.size()));
      EXPECT_TRUE(modelForm(kMultipart, body) == request.form());
    });
  }
}

// ---- Limits and failures ------------------------------------------------------------------------

TEST(BodyMapped, LeavesNoDescriptorOpen) {
  const auto descriptors = [] {
    const auto all = std::filesystem::directory_iterator("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const std::string body = upload(kLeastMapped);
  for (const Input kind : kInputs) {
    withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
      const auto before = descriptors();
      Request request;
      EXPECT_EQ(before, descriptors());
    });
  }
}

TEST(BodyMapped, IsReadWithinLimitsOfDescriptorsAndFiles) {
  const std::string body = upload(kLeastMapped);
  for (const auto which : {RLIMIT_FSIZE, RLIMIT_NOFILE}) {
    for (const Input kind : kInputs) {
      withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
        const rlimit least{which == RLIMIT_NOFILE ? rlim_t{3} : rlim_t{kLeastMapped},
                           RLIM_INFINITY};
        rlimit before{};
        ASSERT_EQ(0, getrlimit(which, &before));
        const rlimit limit{least.rlim_cur, before.rlim_max};
        ASSERT_EQ(0, setrlimit(which, &limit));
        Request request;
        ASSERT_EQ(0, setrlimit(which, &before));
        expectRequest(request, kMultipart, body, body.size());
      });
    }
  }
}

// Each call that the library can do without fails in turn, and all after it.
TEST(BodyMapped, IsWholeWhicheverCallFails) {
  const std::string body = upload(kLeastMapped) + "and more";
  const size_t sent = body.size() - 8;
  for (const Input kind : kInputs) {
    for (int spared = 0; spared <= FailingCalls::kMost; ++spared) {
      withInput(kind, postOf(kMultipart, sent), body, 0, [&] {
        const FailingCalls failing(spared);
        Request request;
        expectRequest(request, kMultipart, body.substr(0, sent), sent);
        EXPECT_EQ("and more", restOfStandardInput());
      });
    }
  }
}

TEST(BodyMapped, ThatBreaksOffIsPaddedWhicheverCallFails) {
  const std::string body = upload(kLeastMapped);
  for (int spared = 0; spared <= FailingCalls::kMost; ++spared) {
    withInput(Input::kPipe, postOf(kMultipart, body.size() + 70000), body, 0, [&] {
      const FailingCalls failing(spared);
      Request request;
      expectRequest(request, kMultipart, body, body.size() + 70000);
    });
  }
}

TEST(BodyAtEachFailure, ThatIsMissingIsReported) {
  const std::string body = upload(kLeastMapped);
  const Form whole = modelForm(kMultipart, body);
  for (const Input kind : {Input::kPipe, Input::kMemory}) {
    asScript(postOf(kMultipart, body.size()), "", [&] {
      SCOPED_TRACE(static_cast<int>(kind));
      forEachFailingAllocation([&](FailingMemory &memory) {
        useAsInput(kind, body);
        clearerr(stdin);
        if (kind != Input::kPipe) rewind(stdin);
        TarnHandle request = 0;
        memory.call([&] { return Tarn_new(&request); });
        if (!memory.failed()) {
          EXPECT_EQ(1U, Tarn_isComplete(&request));
        }
        if (Tarn_isComplete(&request)) {
          const auto child = [&](uint32_t slot) {
            return CGIgs_getStruct(&request, slot, TARN_REQUEST_MAGIC);
          };
          EXPECT_TRUE(body == bodyOf(child(TARN_REQUEST_ENVIRONMENT)));
          EXPECT_TRUE((whole == Form{entriesOf(child(TARN_REQUEST_ENTRIES)),
                                     filesOf(child(TARN_REQUEST_FILES))}));
        }
        Tarn_delete(&request);
        while (std::getchar() != EOF) {
        }
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
      });
    });
  }
}

// ---- Memory -------------------------------------------------------------------------------------

long mostMemory() {
  rusage usage{};
  EXPECT_EQ(0, getrusage(RUSAGE_SELF, &usage));
  return usage.ru_maxrss;
}

TEST(BodyMemory, OfAnUploadIsNotTakenTwice) {
  if (kSanitized || isTranslated()) GTEST_SKIP() << "other memory is counted here";
  const size_t size = 32 * kMegabyte;
  const std::string body = filePart("f", noise(size)) + "--XYZ--\r\n";
  for (const Input kind : {Input::kPipe, Input::kMemory, Input::kNamed}) {
    withInput(kind, postOf(kMultipart, body.size()), body, 0, [&] {
      const long before = mostMemory();
      Request request;
      EXPECT_EQ(body[body.size() - 1], bytesOfBody(request)[body.size() - 1]);
      EXPECT_EQ('\0', bytesOfFile(request, "f")[size]);
      EXPECT_LT(mostMemory() - before, static_cast<long>(size / kKilobyte * 9 / 8));
    });
  }
}

}  // namespace
}  // namespace tarn_test
