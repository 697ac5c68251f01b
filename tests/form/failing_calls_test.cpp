// Every system call fails in turn, and the process is killed before each of them, while a form is
// read, saved and loaded: what is there is whole, and the caller is told what is not.
#include "support/failing_calls.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <tuple>

#include "support/pieces.h"
#include "support/script.h"
#include "tarn_form.h"

namespace {

using namespace tarn_test;
namespace fs = std::filesystem;
using Names = std::set<std::string>;

constexpr Can kFileSystems[] = {Can::kEverything, Can::kNoFileWithoutAName, Can::kNoRename,
                                Can::kNoProc};

std::string valueOf(size_t size) {
  std::string value;
  for (size_t i = 0; i < size; ++i) value += static_cast<char>(i * 7 % 251);
  return value;
}

const std::string kFile = valueOf(100000);
const std::string kForm =
    part("name=file; filename=f", kFile) + part("name=text", "next") + "--b--";

int errnoOfFailure() { return calls.fail("read") ? calls.error : 0; }

// A form that arrives in pieces, and whose reads fail like any other call.
class ArrivingForm {
 public:
  explicit ArrivingForm(bool reads_fail) : pieces_(kForm, {30000}) {
    if (reads_fail) pieces_.failing = errnoOfFailure;
    form_ = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, kForm.size());
  }
  ~ArrivingForm() { TarnForm_close(form_); }
  ArrivingForm(const ArrivingForm &) = delete;
  ArrivingForm &operator=(const ArrivingForm &) = delete;

  operator TarnForm *() { return form_; }

 private:
  Pieces pieces_;
  TarnForm *form_;
};

// A new folder, also for temporary files; in memory, if possible, since files are often synced.
class Folder {
 public:
  Folder() {
    const bool has_memory = access("/dev/shm", W_OK) == 0;
    std::string path = std::string(has_memory ? "/dev/shm" : "/tmp") + "/tarn-form-test-XXXXXX";
    path_ = mkdtemp(path.data());
    setenv("TMPDIR", path.c_str(), 1);
  }
  ~Folder() {
    unsetenv("TMPDIR");
    fs::remove_all(path_);
  }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;

  Names names() const {
    Names names;
    for (const auto &entry : fs::directory_iterator(path_)) names.insert(entry.path().filename());
    return names;
  }
  std::string content(const std::string &name) const {
    std::ifstream file(path_ / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  bool has(const std::string &name) const { return fs::exists(path_ / name); }
  const char *path() const { return path_.c_str(); }

 private:
  fs::path path_;
};

size_t openDescriptors() {
  const fs::directory_iterator files("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(files), end(files)));
}

// Runs a scenario for each call that it makes, with that call failing, alone or with all later ones.
template <class Scenario>
void forEachFailingCall(Can can, int error, const Scenario &scenario) {
  for (const bool and_later : {false, true}) {
    if (and_later && error == EINTR) continue;  // endless interruptions are waited for
    size_t failing = 0;
    do {
      calls = {};
      calls.can = can;
      calls.error = error;
      calls.first_failing = ++failing;
      calls.last_failing = and_later ? SIZE_MAX : failing;
      SCOPED_TRACE("call " + std::to_string(failing) + (and_later ? " and later ones" : "") +
                   ", errno " + std::to_string(error) + ", file system " +
                   std::to_string(static_cast<int>(can)));
      const size_t before = openDescriptors();
      scenario();
      EXPECT_EQ(openDescriptors(), before) << calls.failed;
    } while (calls.count >= failing && !testing::Test::HasFailure());
    EXPECT_GT(failing, 5U) << "few calls were made";
  }
  calls = {};
}

// Runs an action in a process that is killed before its `number`th call. Returns whether it was.
template <class Action>
bool isKilled(Can can, size_t number, const Action &action) {
  const pid_t child = fork();
  if (child == 0) {
    calls = {};
    calls.can = can;
    calls.first_failing = calls.last_failing = number;
    watchCalls(action);
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGKILL : status == 0) << status;
  return WIFSIGNALED(status);
}

// ---- Reading --------------------------------------------------------------------------------------

// Reads until the value is missing or the end is reached. Returns the number of values.
int readValues(TarnForm *form) {
  int count = 0;
  while (TarnFormField *field = TarnForm_next(form)) {
    const char *text = TarnFormField_text(field);
    if (!text) break;
    const std::string value(text, static_cast<size_t>(TarnFormField_size(field)));
    EXPECT_TRUE(value == (count == 0 ? kFile : "next")) << count;
    ++count;
  }
  return count;
}

TEST(ReadingAtEachFailure, ReportsAReadErrorAndNoPartOfAValue) {
  forEachFailingCall(Can::kEverything, EIO, [] {
    ArrivingForm form(true);
    const int count = watchCalls([&] { return readValues(form); });
    if (TarnForm_isWhole(form)) {
      EXPECT_EQ(count, 2) << calls.failed;
    } else {
      EXPECT_EQ(TarnForm_problem(form), TARN_FORM_READ_ERROR) << TarnForm_message(form);
    }
  });
}

// After a signal, or before bytes are there, reading is tried again.
TEST(ReadingAtEachFailure, GoesOnAfterInterruptions) {
  for (const int error : {EINTR, EAGAIN}) {
    size_t failing = 0;
    do {
      ArrivingForm form(true);
      calls = {};
      calls.error = error;
      calls.first_failing = ++failing;
      calls.last_failing = failing + 2;
      EXPECT_EQ(watchCalls([&] { return readValues(form); }), 2) << failing;
      EXPECT_EQ(TarnForm_isWhole(form), 1)
          << strerror(error) << " in call " << failing << ": " << TarnForm_message(form);
    } while (calls.count >= failing && !HasFailure());
    EXPECT_GT(failing, 5U);
  }
  calls = {};
}

// ---- Saving ---------------------------------------------------------------------------------------

// A file system, and whether save() waits for the disk.
using Way = std::tuple<Can, bool>;

const auto kWays = testing::Combine(testing::ValuesIn(kFileSystems), testing::Bool());

Can fileSystem(const Way &way) { return std::get<0>(way); }
bool isDurable(const Way &way) { return std::get<1>(way); }

int save(TarnForm *form, const Folder &folder, const char *name, bool durable = true) {
  TarnForm_setDurable(form, durable ? 1 : 0);
  return watchCalls([&] { return TarnFormField_save(TarnForm_next(form), folder.path(), name); });
}

int saveAsItIs(const Folder &folder, const char *name, bool durable = true) {
  ArrivingForm form(false);
  return save(form, folder, name, durable);
}

bool isTemporary(const std::string &name) { return name.rfind(".tarn-form-", 0) == 0; }

// The folder has no other file than "photo", whole, and perhaps a temporary one.
void expectWholeOrNothing(const Folder &folder) {
  size_t temporary = 0;
  for (const std::string &name : folder.names()) {
    temporary += isTemporary(name);
    EXPECT_TRUE(name == "photo" || isTemporary(name)) << name << ", after " << calls.failed;
  }
  EXPECT_LE(temporary, 1U) << calls.failed;
  if (folder.has("photo")) {
    EXPECT_TRUE(folder.content("photo") == kFile) << calls.failed;
  }
}

class SavingAtEachFailure : public testing::TestWithParam<Way> {};
INSTANTIATE_TEST_SUITE_P(FileSystems, SavingAtEachFailure, kWays);

TEST_P(SavingAtEachFailure, KeepsTheWholeFileOrNothing) {
  // The last four also mean that a file system cannot do something.
  for (const int error : {EIO, ENOSPC, EINTR, EINVAL, ENOSYS, EISDIR, EWOULDBLOCK}) {
    size_t syncs = 0;
    forEachFailingCall(fileSystem(GetParam()), error, [&] {
      const Folder folder;
      ArrivingForm form(false);
      const int result = save(form, folder, "photo", isDurable(GetParam()));
      syncs += calls.last_failing != SIZE_MAX && strcmp(calls.failed, "fsync") == 0;
      const bool unlinks = strncmp(calls.failed, "unlink", 6) == 0;
      const bool later = calls.last_failing == SIZE_MAX;
      EXPECT_TRUE(result == 0 || result == error) << result << " after " << calls.failed;
      expectWholeOrNothing(folder);
      if (result == 0) {
        EXPECT_TRUE(folder.has("photo")) << calls.failed;
      } else if (!unlinks && !later) {
        EXPECT_EQ(folder.names(), Names{}) << calls.failed;
      }
      EXPECT_STREQ(TarnFormField_text(TarnForm_next(form)), "next") << calls.failed;
      EXPECT_EQ(TarnForm_next(form), nullptr);
      EXPECT_EQ(TarnForm_isWhole(form), 1) << "a disk error is not a problem of the form";
    });
    EXPECT_EQ(syncs, isDurable(GetParam()) ? 2U : 0U) << "the file, and the folder with its name";
  }
}

TEST_P(SavingAtEachFailure, OfReadingKeepsTheWholeFileOrNothing) {
  forEachFailingCall(fileSystem(GetParam()), EIO, [] {
    const Folder folder;
    ArrivingForm form(true);
    const int result = save(form, folder, "photo", isDurable(GetParam()));
    expectWholeOrNothing(folder);
    if (result == 0 || calls.last_failing != SIZE_MAX) {
      EXPECT_EQ(folder.has("photo"), result == 0) << calls.failed;
    }
    if (result == -1) {
      EXPECT_EQ(TarnForm_problem(form), TARN_FORM_READ_ERROR);
    }
  });
}

// As if another process had taken each name.
TEST(SavingUnderATemporaryName, EndsWhenEachIsTaken) {
  const Folder folder;
  calls = {};
  calls.can = Can::kNoFileWithoutAName;
  calls.error = EEXIST;
  calls.first_failing = 3;  // behind the folder and the final name
  calls.last_failing = SIZE_MAX;
  EXPECT_EQ(saveAsItIs(folder, "photo"), EEXIST);
  EXPECT_STREQ(calls.failed, "close");
  EXPECT_GT(calls.count, 10000U);
  EXPECT_EQ(folder.names(), Names{});
  calls = {};
}

TEST(SavingUnderATemporaryName, EndsWhenFilesCannotBeCompared) {
  for (const char *const call : {"fstat", "fstatat"}) {
    const Folder folder;
    calls = {};
    calls.can = Can::kNoFileWithoutAName;
    calls.only = call;
    calls.error = EIO;
    calls.first_failing = 1;
    calls.last_failing = SIZE_MAX;
    EXPECT_EQ(saveAsItIs(folder, "photo"), EIO);
    EXPECT_STREQ(calls.failed, call);
    EXPECT_LT(calls.count, 20U);
    EXPECT_EQ(folder.names(), Names{});
  }
  calls = {};
}

// What a process that died left, under one of the names.
TEST(SavingBesideALeftoverAtEachFailure, KeepsTheWholeFileOrNothing) {
  for (const int error : {EIO, EWOULDBLOCK}) {
    forEachFailingCall(Can::kNoFileWithoutAName, error, [&] {
      const Folder folder;
      std::ofstream(std::string(folder.path()) + "/.tarn-form-0") << "left";
      ArrivingForm form(false);
      const int result = save(form, folder, "photo");
      EXPECT_TRUE(result == 0 || result == error) << result << " after " << calls.failed;
      EXPECT_TRUE(result != 0 || folder.content("photo") == kFile) << calls.failed;
      EXPECT_TRUE(result == 0 || !folder.has("photo") || calls.last_failing == SIZE_MAX);
    });
  }
}

// Another process takes the name while the value arrives, so a second name is tried.
TEST_P(SavingAtEachFailure, UnderASecondNameKeepsTheWholeFileOrNothing) {
  forEachFailingCall(fileSystem(GetParam()), EIO, [] {
    const Folder folder;
    Pieces pieces(kForm, {30000});
    pieces.meanwhile = [&] {
      calls.watched = false;
      std::ofstream(std::string(folder.path()) + "/taken") << "old";
      calls.watched = true;
    };
    TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, kForm.size());
    TarnForm_setDurable(form, isDurable(GetParam()) ? 1 : 0);
    TarnFormField *field = TarnForm_next(form);
    watchCalls([&] {
      if (TarnFormField_save(field, folder.path(), "taken") != EEXIST) return;
      const int result = TarnFormField_save(field, folder.path(), "photo");
      EXPECT_TRUE(result == 0 || result == EIO || result == EXDEV) << calls.failed;
    });
    TarnForm_close(form);
    EXPECT_TRUE(!folder.has("photo") || folder.content("photo") == kFile) << calls.failed;
    EXPECT_TRUE(!folder.has("taken") || folder.content("taken") == "old") << calls.failed;
  });
}

TEST_P(SavingAtEachFailure, WritesWhatOneCallLeaves) {
  for (const size_t most : {1U, 7U, 4096U}) {
    const Folder folder;
    const std::string body = kForm.substr(0, most == 1 ? 1000 : kForm.size());
    calls = {};
    calls.can = fileSystem(GetParam());
    calls.most_written = most;
    TarnForm *form = TarnForm_openMemory("text/plain", body.data(), body.size());
    TarnForm_setDurable(form, isDurable(GetParam()) ? 1 : 0);
    EXPECT_EQ(
        watchCalls([&] { return TarnFormField_save(TarnForm_body(form), folder.path(), "a"); }), 0);
    TarnForm_close(form);
    EXPECT_TRUE(folder.content("a") == body) << most;
    EXPECT_EQ(folder.names(), Names{"a"});
  }
  calls = {};
}

// What a script saves that does not wait for the disk: a field as it arrives, or as it is kept.
int saveLarge(bool durable, bool load, const Folder &folder) {
  const std::string body = part("name=file; filename=f", std::string(5 << 20, 'v')) + "--b--";
  const Pieces pieces(body, {size_t{1} << 20});
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
  TarnForm_setDurable(form, 0);
  if (durable) TarnForm_setDurable(form, -1);
  if (load) TarnForm_load(form);
  TarnFormField *field = load ? TarnForm_get(form, "file", 0) : TarnForm_next(form);
  const int result = watchCalls([&] { return TarnFormField_save(field, folder.path(), "photo"); });
  TarnForm_close(form);
  return result;
}

// sync_file_range() only begins to write, and may fail.
TEST_P(SavingAtEachFailure, WaitsForTheDiskUnlessToldNotTo) {
  const bool durable = isDurable(GetParam());
  for (const bool load : {false, true}) {
    for (const char *const call : {"fsync", "sync_file_range"}) {
      const Folder folder;
      calls = {};
      calls.can = fileSystem(GetParam());
      calls.only = call;
      calls.error = EIO;
      calls.first_failing = 1;
      const bool fails = durable && strcmp(call, "fsync") == 0;
      EXPECT_EQ(saveLarge(durable, load, folder), fails ? EIO : 0) << call;
      EXPECT_STREQ(calls.failed, durable ? call : "none");
      EXPECT_EQ(folder.names(), fails ? Names{} : Names{"photo"});
    }
  }
  calls = {};
}

// Another process takes the name meanwhile, and the file is to be durable under the next one.
TEST(SavingUnderASecondName, WaitsForTheDiskIfAskedMeanwhile) {
  const Folder folder;
  Pieces pieces(kForm, {30000});
  pieces.meanwhile = [&] { std::ofstream(std::string(folder.path()) + "/taken") << "old"; };
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, kForm.size());
  TarnForm_setDurable(form, 0);
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_save(field, folder.path(), "taken"), EEXIST);
  TarnForm_setDurable(form, 1);
  calls = {};
  calls.only = "fsync";
  calls.error = EIO;
  calls.first_failing = 1;
  EXPECT_EQ(watchCalls([&] { return TarnFormField_save(field, folder.path(), "photo"); }), EIO);
  EXPECT_STREQ(calls.failed, "fsync");
  TarnForm_close(form);
  EXPECT_EQ(folder.names(), Names{"taken"});
  calls = {};
}

// As on a network file system that has no room for what was written.
TEST_P(SavingAtEachFailure, StoresNoFileThatCannotBeClosed) {
  if (isDurable(GetParam())) return;  // fsync() has reported it
  const Folder folder;
  calls = {};
  calls.can = fileSystem(GetParam());
  calls.only = "close";
  calls.error = EDQUOT;
  calls.first_failing = calls.most_failures = 1;
  calls.spared = calls.can == Can::kNoProc ? 1 : 0;  // a file that cannot be given a name
  EXPECT_EQ(saveAsItIs(folder, "photo", false), EDQUOT);
  EXPECT_STREQ(calls.failed, "close");
  EXPECT_EQ(folder.names(), Names{});
  calls = {};
}

class KilledSavingDeathTest : public testing::TestWithParam<Way> {};
INSTANTIATE_TEST_SUITE_P(FileSystems, KilledSavingDeathTest, kWays);

TEST_P(KilledSavingDeathTest, LeavesTheWholeFileOrNothingBehindTheNextSave) {
  const Can can = fileSystem(GetParam());
  const bool without_name = can == Can::kEverything;
  bool seen_nothing = false;
  bool seen_photo = false;
  bool seen_temporary = false;
  size_t number = 1;
  for (bool killed = true; killed && !HasFailure(); ++number) {
    SCOPED_TRACE("killed before call " + std::to_string(number));
    const Folder folder;
    const auto save_photo = [&] { return saveAsItIs(folder, "photo", isDurable(GetParam())); };
    killed = isKilled(can, number, save_photo);
    expectWholeOrNothing(folder);
    const Names left = folder.names();
    seen_nothing |= left.empty();
    seen_photo |= folder.has("photo");
    for (const std::string &name : left) seen_temporary |= isTemporary(name);
    // The next save goes well, and removes what is left.
    calls = {};
    calls.can = fileSystem(GetParam());
    EXPECT_EQ(saveAsItIs(folder, "next"), 0);
    EXPECT_TRUE(folder.content("next") == kFile);
    Names expected = {"next"};
    if (left.count("photo") > 0) expected.insert("photo");
    EXPECT_EQ(folder.names(), expected);
    if (!killed) {
      EXPECT_TRUE(left == Names{"photo"});
    }
  }
  EXPECT_GT(number, 10U);
  EXPECT_TRUE(seen_nothing && seen_photo);
  EXPECT_EQ(seen_temporary, !without_name);
  calls = {};
}

// ---- Loading --------------------------------------------------------------------------------------

class LoadingAtEachFailure : public testing::TestWithParam<Can> {};
INSTANTIATE_TEST_SUITE_P(FileSystems, LoadingAtEachFailure,
                         testing::Values(Can::kEverything, Can::kNoFileWithoutAName));

std::string readBlocks(TarnFormField *field) {
  std::string read;
  const void *block = nullptr;
  int64_t size = 0;
  while ((size = TarnFormField_block(field, &block)) > 0) {
    read.append(static_cast<const char *>(block), static_cast<size_t>(size));
  }
  return size < 0 ? "refused" : read;
}

TEST_P(LoadingAtEachFailure, KeepsAllFieldsOrNone) {
  for (const int error : {EIO, ENOSPC, EINTR, EISDIR}) {
    forEachFailingCall(GetParam(), error, [&] {
      const Folder folder;
      {
        ArrivingForm form(false);
        const int loaded = watchCalls([&] { return TarnForm_load(form); });
        EXPECT_EQ(TarnForm_count(form, nullptr), loaded ? 2U : 0U);
        if (!loaded) {
          EXPECT_EQ(TarnForm_problem(form), TARN_FORM_OUT_OF_MEMORY) << calls.failed;
          return;
        }
        TarnFormField *file = TarnForm_get(form, "file", 0);
        const std::string blocks = watchCalls([&] { return readBlocks(file); });
        EXPECT_TRUE(blocks == kFile || blocks == "refused") << calls.failed;
        const void *view = watchCalls([&] { return TarnFormField_view(file); });
        EXPECT_TRUE(!view || memcmp(view, kFile.data(), kFile.size()) == 0) << calls.failed;
        EXPECT_TRUE(view || strcmp(calls.failed, "none") != 0);
      }
      if (strcmp(calls.failed, "unlink") != 0) {
        EXPECT_EQ(folder.names(), Names{}) << calls.failed;
      }
    });
  }
}

TEST(LoadingWithoutRoomForAPath, KeepsNothing) {
  const Folder folder;
  std::string path = folder.path();
  while (path.size() + 2 < 4090) path += "/.";
  setenv("TMPDIR", path.c_str(), 1);
  calls = {};
  calls.can = Can::kNoFileWithoutAName;
  ArrivingForm form(false);
  EXPECT_EQ(watchCalls([&] { return TarnForm_load(form); }), 0);
  EXPECT_EQ(TarnForm_problem(form), TARN_FORM_OUT_OF_MEMORY);
  calls = {};
}

TEST(LoadingAtShortWrites, KeepsEveryByte) {
  const Folder folder;
  ArrivingForm form(false);
  calls = {};
  calls.most_written = 7;
  EXPECT_EQ(watchCalls([&] { return TarnForm_load(form); }), 1);
  EXPECT_TRUE(readBlocks(TarnForm_get(form, "file", 0)) == kFile);
  calls = {};
}

TEST(KilledLoadingDeathTest, LeavesNoFile) {
  bool killed = true;
  size_t number = 1;
  for (; killed && !HasFailure(); ++number) {
    const Folder folder;
    killed = isKilled(Can::kEverything, number, [] {
      ArrivingForm form(false);
      return TarnForm_load(form) + (TarnFormField_view(TarnForm_get(form, "file", 0)) != nullptr);
    });
    EXPECT_EQ(folder.names(), Names{}) << "killed before call " << number;
  }
  EXPECT_GT(number, 5U);
}

// ---- Full disks -----------------------------------------------------------------------------------

TEST(FullDisk, IsReportedByTheWriteToADescriptor) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  ArrivingForm form(false);
  EXPECT_EQ(TarnFormField_write(TarnForm_next(form), full), ENOSPC);
  EXPECT_STREQ(TarnFormField_text(TarnForm_next(form)), "next");
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  close(full);
}

// The disk is a small one where mounting is allowed; elsewhere files must not grow.
int limitDisk(const Folder &folder) {
  if (unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
      mount("tmpfs", folder.path(), "tmpfs", 0, "size=64k") == 0) {
    return ENOSPC;
  }
  const rlimit small = {65536, 65536};
  std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  return EFBIG;
}

TEST(FullDisk, LeavesNothingOfAFile) {
  const Folder folder;
  asScript({}, "", [&] {
    const int expected = limitDisk(folder);
    for (const Can can : kFileSystems) {
      calls = {};
      calls.can = can;
      EXPECT_EQ(saveAsItIs(folder, "photo"), expected);
      EXPECT_EQ(folder.names(), Names{});
    }
    calls = {};
    TarnForm *form = TarnForm_openMemory("text/plain", kFile.data(), 30000);
    EXPECT_EQ(TarnFormField_save(TarnForm_body(form), folder.path(), "small"), 0);
    EXPECT_TRUE(folder.content("small") == kFile.substr(0, 30000)) << "there is room again";
    TarnForm_close(form);
  });
}

TEST(FullDisk, LeavesNoRoomToLoad) {
  const Folder folder;
  asScript({{"TMPDIR", folder.path()}}, "", [&] {
    limitDisk(folder);
    ArrivingForm form(false);
    EXPECT_EQ(TarnForm_load(form), 0);
    EXPECT_EQ(TarnForm_problem(form), TARN_FORM_OUT_OF_MEMORY);
    EXPECT_EQ(folder.names(), Names{});
  });
}

}  // namespace
