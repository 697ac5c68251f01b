// Uploaded files and saving them. This program overrides functions of the C library, so that tests
// can make them fail.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <tarn.hpp>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/failing_memory.h"
#include "support/script.h"

namespace {

namespace fs = std::filesystem;

// The errno value that the next call of this function fails with.
std::map<std::string, int> failures;

// Whether to fail this call. Only one call fails.
bool fails(const char *call) {
  const auto found = failures.find(call);
  if (found == failures.end()) return false;
  errno = found->second;
  failures.erase(found);
  return true;
}

// The most bytes that a write() accepts.
size_t most_written = SIZE_MAX;

}  // namespace

extern "C" {

ssize_t write(int file, const void *bytes, size_t count) {
  if (fails("write")) return -1;
  return syscall(SYS_write, file, bytes, std::min(count, most_written));
}

int fsync(int file) {
  struct stat about {};
  fstat(file, &about);
  if (fails(S_ISDIR(about.st_mode) ? "fsync of the directory" : "fsync")) return -1;
  return static_cast<int>(syscall(SYS_fsync, file));
}

// Closes the descriptor even when it fails, as the system's close() does. Fails for files only.
int close(int file) {
  struct stat about {};
  const bool failed = fstat(file, &about) == 0 && S_ISREG(about.st_mode) && fails("close");
  const int error = errno;
  const auto closed = static_cast<int>(syscall(SYS_close, file));
  if (!failed) return closed;
  errno = error;
  return -1;
}

int renameat2(int from, const char *name, int to, const char *other, unsigned flags) {
  if (fails("renameat2")) return -1;
  return static_cast<int>(syscall(SYS_renameat2, from, name, to, other, flags));
}

int linkat(int from, const char *name, int to, const char *other, int flags) {
  if (fails("linkat")) return -1;
  return static_cast<int>(syscall(SYS_linkat, from, name, to, other, flags));
}

}  // extern "C"

namespace {

// A file that the test built itself, seen as in a request.
class Upload {
 public:
  explicit Upload(const std::string &name, std::string_view bytes = "bytes") {
    EXPECT_EQ(TARN_OK, CGIgs_new(&handle_, TARN_FORM_FILE_MAGIC));
    EXPECT_EQ(TARN_OK, FormFile_init(&handle_, "notes", name.c_str(), "text/plain", bytes.data(),
                                     static_cast<uint32_t>(bytes.size())));
  }
  ~Upload() { CGIgs_delete(&handle_, TARN_FORM_FILE_MAGIC); }
  Upload(const Upload &) = delete;
  Upload &operator=(const Upload &) = delete;

  tarn::File file() const { return tarn::File(handle_); }

 private:
  TarnHandle handle_ = 0;
};

std::string safe(const std::string &name) {
  const Upload upload(name);
  const tarn::FileName made = upload.file().safe_name();
  EXPECT_EQ(made.view(), made.c_str());
  return made.c_str();
}

class CppFileSave : public testing::Test {
 protected:
  CppFileSave() {
    std::string name = testing::TempDir() + "tarn-XXXXXX";
    EXPECT_NE(nullptr, mkdtemp(name.data()));
    root_ = name;
    fs::create_directory(directory());
  }
  ~CppFileSave() override {
    failures.clear();
    most_written = SIZE_MAX;
    fs::remove_all(root_);
  }

  fs::path root() const { return root_; }
  fs::path directory() const { return root_ / "uploads"; }

  // Saves a file named notes.txt.
  tarn::Saved save(std::string_view bytes = "bytes") const {
    const Upload upload("notes.txt", bytes);
    return upload.file().save(directory().native());
  }

  // Everything in the directory, hidden files too, as "name: bytes".
  std::string contents() const {
    std::map<std::string, std::string> all;
    for (const fs::directory_entry &entry : fs::directory_iterator(directory())) {
      all[entry.path().filename()] = read(entry.path());
    }
    std::string text;
    for (const auto &[name, bytes] : all) text.append(name).append(": ").append(bytes).append("\n");
    return text;
  }

  static std::string read(const fs::path &path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path).rdbuf();
    return bytes.str();
  }

  static void put(const fs::path &path, const std::string &bytes) { std::ofstream(path) << bytes; }

  // Saves while a call fails, and expects that no file is left.
  void expectNothing(const char *call, int error) {
    failures[call] = error;
    const tarn::Saved saved = save();
    EXPECT_FALSE(saved);
    EXPECT_EQ(error, saved.error());
    EXPECT_EQ("", contents());
    EXPECT_TRUE(failures.empty()) << call << " was never called";
  }

 private:
  fs::path root_;
};

TEST(CppFile, HasWhatWasSent) {
  const std::string bytes("a\0b\n", 4);
  const std::string body =
      "--b\r\nContent-Disposition: form-data; name=\"notes\"; filename=\"../n%20.txt\"\r\n"
      "Content-Type: text/x-notes\r\n\r\n" +
      bytes + "\r\n--b--\r\n";
  tarn_test::asScript(tarn_test::post("multipart/form-data; boundary=b", body), body, [&bytes] {
    const tarn::Request request;
    EXPECT_EQ(std::nullopt, request["notes"]);
    EXPECT_FALSE(request.file("other"));
    const std::optional<tarn::File> file = request.file("Notes");
    ASSERT_TRUE(file);
    EXPECT_EQ("notes", file->field());
    EXPECT_EQ("../n .txt", file->name());
    EXPECT_EQ("text/x-notes", file->type());
    EXPECT_EQ(bytes, file->bytes());
    ASSERT_EQ(1U, request.files().size());
    for (const tarn::File each : request.files()) EXPECT_EQ(bytes, each.bytes());
    EXPECT_FALSE(request.files()[1]);
  });
}

TEST(CppFile, MayBeEmpty) {
  const Upload upload("empty", "");
  EXPECT_EQ("", upload.file().bytes());
  EXPECT_EQ("empty", upload.file().name());
}

TEST(CppFile, MayHaveNoObject) {
  const tarn::File file(0);
  EXPECT_FALSE(file);
  EXPECT_EQ(std::nullopt, file.field());
  EXPECT_EQ(std::nullopt, file.name());
  EXPECT_EQ(std::nullopt, file.type());
  EXPECT_EQ("", file.bytes());
  const tarn::FileName name = file.safe_name();
  EXPECT_EQ("file", name.view());
  EXPECT_EQ(EINVAL, file.save("/").error());
}

TEST(CppFileSafeName, KeepsHarmlessCharacters) {
  EXPECT_EQ("notes.txt", safe("notes.txt"));
  EXPECT_EQ("A-z_09.tar.gz", safe("A-z_09.tar.gz"));
  EXPECT_EQ("na\u00EFve-\u65E5\u672C.txt", safe("na\u00EFve-\u65E5\u672C.txt"));
  EXPECT_EQ("\U0001F600", safe("\U0001F600"));
}

TEST(CppFileSafeName, DropsThePath) {
  EXPECT_EQ("passwd", safe("../../etc/passwd"));
  EXPECT_EQ("notes.txt", safe("C:\\My Documents\\notes.txt"));
  EXPECT_EQ("b", safe("a\\x/b"));
  EXPECT_EQ("b", safe("a/x\\b"));
  EXPECT_EQ("file", safe("a/"));
}

TEST(CppFileSafeName, DropsDotsAndDashesAtTheFront) {
  EXPECT_EQ("profile", safe(".profile"));
  EXPECT_EQ("rf", safe("-rf"));
  EXPECT_EQ("x", safe(".-.-x"));
}

TEST(CppFileSafeName, IsNeverEmpty) {
  for (const char *name : {"", ".", "..", "/", "-", "../..", "\\"}) EXPECT_EQ("file", safe(name));
}

TEST(CppFileSafeName, ReplacesDangerousCharacters) {
  EXPECT_EQ("a_b", safe("a b"));
  EXPECT_EQ("a______________b", safe("a\n\t\"'<>|;&$`*?~b"));
  EXPECT_EQ("a_b", safe("a\x7F"
                        "b"));
  EXPECT_EQ("a_b", safe("a\u0085b")) << "a control character";
  EXPECT_EQ("a_b", safe("a\u00A0b")) << "a blank";
  EXPECT_EQ("a_gpj.exe", safe("a\u202Egpj.exe")) << "from right to left";
  EXPECT_EQ("a_b", safe("a\u200Bb")) << "nothing to be seen";
}

// In terms of Unicode: white space, default ignorable characters, and a letter without ink. (To
// Unicode, the blank of Braille is a symbol.)
TEST(CppFileSafeName, ReplacesInvisibleCharacters) {
  for (const char *hidden :
       {"\u0080",     "\u009F",     "\u00A0",     "\u00AD",     "\u034F",     "\u061C",
        "\u115F",     "\u1160",     "\u1680",     "\u17B4",     "\u17B5",     "\u180B",
        "\u180C",     "\u180D",     "\u180E",     "\u180F",     "\u2000",     "\u200A",
        "\u200B",     "\u200D",     "\u200F",     "\u2028",     "\u2029",     "\u202A",
        "\u202E",     "\u202F",     "\u205F",     "\u2060",     "\u2064",     "\u2065",
        "\u2066",     "\u206F",     "\u2800",     "\u3000",     "\u3164",     "\uFDD0",
        "\uFDEF",     "\uFE00",     "\uFE0F",     "\uFEFF",     "\uFFA0",     "\uFFF0",
        "\uFFF8",     "\uFFF9",     "\uFFFB",     "\uFFFC",     "\uFFFD",     "\uFFFE",
        "\uFFFF",     "\U00013430", "\U0001343F", "\U0001BCA0", "\U0001BCA3", "\U0001D159",
        "\U0001D173", "\U0001D17A", "\U0001FFFE", "\U0001FFFF", "\U0002FFFE", "\U000DFFFF",
        "\U000E0000", "\U000E0001", "\U000E0100", "\U000F0000", "\U0010FFFF"}) {
    EXPECT_EQ("a_b", safe("a" + std::string(hidden) + "b")) << testing::PrintToString(hidden);
  }
}

// The neighbours of the invisible characters.
TEST(CppFileSafeName, KeepsVisibleCharacters) {
  for (const char *seen :
       {"\u00A1",     "\u00AC",     "\u00AE",     "\u034E",     "\u0350",     "\u061B",
        "\u061D",     "\u115E",     "\u1161",     "\u167F",     "\u1681",     "\u17B3",
        "\u17B6",     "\u180A",     "\u1810",     "\u1FFE",     "\u2010",     "\u2027",
        "\u2030",     "\u205E",     "\u2070",     "\u27FF",     "\u2801",     "\u2FFB",
        "\u3001",     "\u3163",     "\u3165",     "\uD7FB",     "\uE000",     "\uFDCF",
        "\uFDF0",     "\uFDFF",     "\uFE10",     "\uFEFC",     "\uFF01",     "\uFF9F",
        "\uFFA1",     "\uFFEE",     "\U00010000", "\U0001342E", "\U00013440", "\U0001BC9F",
        "\U0001D158", "\U0001D15A", "\U0001D172", "\U0001D17B", "\U0001F600", "\U00020000",
        "\U000DFFFD"}) {
    EXPECT_EQ("a" + std::string(seen) + "b", safe("a" + std::string(seen) + "b"))
        << testing::PrintToString(seen);
  }
}

TEST(CppFileSafeName, ReplacesSurrogatesAndNotTheirNeighbours) {
  EXPECT_EQ("a\xED\x9F\xBF", safe("a\xED\x9F\xBF")) << "the last before them";
  EXPECT_EQ("a___", safe("a\xED\xA0\x80")) << "the first half";
  EXPECT_EQ("a___", safe("a\xED\xAF\xBF"));
  EXPECT_EQ("a___", safe("a\xED\xB0\x80"));
  EXPECT_EQ("a___", safe("a\xED\xBF\xBF")) << "the last half";
  EXPECT_EQ("a\xEE\x80\x80", safe("a\xEE\x80\x80")) << "the first after them";
}

TEST(CppFileSafeName, ReplacesBytesThatAreNotUtf8) {
  EXPECT_EQ("a_b", safe("a\xE9"
                        "b"));
  EXPECT_EQ("a__b", safe("a\xC0\xAF"
                         "b"))
      << "a slash in two bytes";
  EXPECT_EQ("a___b", safe("a\xE0\x80\xAF"
                          "b"))
      << "a slash in three bytes";
  EXPECT_EQ("a___b", safe("a\xED\xA0\x80"
                          "b"))
      << "half of a pair";
  EXPECT_EQ("a____b", safe("a\xF4\x90\x80\x80"
                           "b"))
      << "beyond the last character";
  EXPECT_EQ("a____b", safe("a\xF0\x80\x80\xAF"
                           "b"))
      << "a slash in four bytes";
  EXPECT_EQ("a__", safe("a\xE2\x82")) << "cut off";
  EXPECT_EQ("a_", safe("a\xFF"));
}

TEST(CppFileSafeName, IsCutBetweenCharacters) {
  EXPECT_EQ(std::string(200, 'x'), safe(std::string(200, 'x')));
  EXPECT_EQ(std::string(200, 'x'), safe(std::string(300, 'x')));
  EXPECT_EQ(std::string(198, 'x'), safe(std::string(198, 'x') + "\u20AC and more"));
  EXPECT_EQ(std::string(197, 'x') + "\u20AC", safe(std::string(197, 'x') + "\u20AC and more"));
}

TEST_F(CppFileSave, WritesTheBytesUnderTheSafeName) {
  const std::string bytes("\0\r\n\xFF", 4);
  const Upload upload("../my notes.txt", bytes);
  const tarn::Saved saved = upload.file().save(directory().native());
  EXPECT_TRUE(saved);
  EXPECT_EQ(0, saved.error());
  EXPECT_EQ("my_notes.txt", saved.name().view());
  EXPECT_EQ("my_notes.txt: " + bytes + "\n", contents());
}

TEST_F(CppFileSave, UsesANameThatTheScriptChose) {
  const Upload upload("ignored");
  EXPECT_TRUE(upload.file().save(directory().native() + "//", ".kept here"));
  EXPECT_EQ(".kept here: bytes\n", contents());
}

TEST_F(CppFileSave, SavesAnEmptyFile) {
  EXPECT_TRUE(save(""));
  EXPECT_EQ("notes.txt: \n", contents());
}

TEST_F(CppFileSave, LetsOnlyTheScriptsUserReadAndWrite) {
  const mode_t before = umask(0);
  EXPECT_TRUE(save());
  umask(before);
  EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write,
            fs::status(directory() / "notes.txt").permissions());
}

TEST_F(CppFileSave, RefusesInvalidFileNames) {
  const Upload upload("x");
  const std::string zero("a\0b", 3);
  for (const std::string &name :
       {std::string(), std::string("."), std::string(".."), std::string("a/b"), std::string("/x"),
        std::string(256, 'x'), zero}) {
    EXPECT_EQ(EINVAL, upload.file().save(directory().native(), name).error()) << name;
  }
  EXPECT_EQ("", contents());
  EXPECT_TRUE(upload.file().save(directory().native(), std::string(255, 'x')));
}

TEST_F(CppFileSave, OverwritesNothing) {
  put(directory() / "notes.txt", "old");
  EXPECT_EQ(EEXIST, save().error());
  EXPECT_EQ("notes.txt: old\n", contents());
}

TEST_F(CppFileSave, FollowsNoLinkWithTheName) {
  put(root() / "target", "old");
  fs::create_symlink(root() / "target", directory() / "notes.txt");
  EXPECT_EQ(EEXIST, save().error());
  EXPECT_EQ("old", read(root() / "target"));
  fs::remove(root() / "target");
  EXPECT_EQ(EEXIST, save().error());
  EXPECT_FALSE(fs::exists(root() / "target"));
  EXPECT_TRUE(fs::is_symlink(directory() / "notes.txt"));
}

TEST_F(CppFileSave, FollowsNoLinkWithTheTemporaryName) {
  put(root() / "target", "old");
  const std::string prefix = ".tarn-" + std::to_string(getpid()) + "-";
  fs::create_symlink(root() / "target", directory() / (prefix + "0"));
  put(directory() / (prefix + "1"), "left over");
  EXPECT_TRUE(save());
  EXPECT_EQ("old", read(root() / "target"));
  EXPECT_EQ("left over", read(directory() / (prefix + "1")));
  EXPECT_EQ("bytes", read(directory() / "notes.txt"));
}

TEST_F(CppFileSave, SavesBesideManyTemporaryFilesOfProcessesThatDied) {
  for (int i = 0; i < 1000; ++i) {
    put(directory() / (".tarn-" + std::to_string(getpid()) + "-" + std::to_string(i)), "");
  }
  EXPECT_EQ(0, save().error());
  EXPECT_EQ("bytes", read(directory() / "notes.txt"));
}

TEST_F(CppFileSave, FollowsNoLinkToTheDirectory) {
  fs::create_directory_symlink(directory(), root() / "link");
  const Upload upload("notes.txt");
  const std::string link = (root() / "link").native();
  for (const char *const end : {"", "/", "/.", "/./", "//.//./"}) {
    EXPECT_NE(0, upload.file().save(link + end).error()) << end;
    EXPECT_EQ("", contents()) << end;
  }
  EXPECT_TRUE(upload.file().save(directory().native() + "/./."));
  EXPECT_EQ("notes.txt: bytes\n", contents());
}

TEST_F(CppFileSave, ReportsAMissingDirectory) {
  const Upload upload("notes.txt");
  EXPECT_EQ(ENOENT, upload.file().save((root() / "none").native()).error());
  EXPECT_EQ(ENOENT, upload.file().save("").error());
  put(root() / "plain", "");
  EXPECT_EQ(ENOTDIR, upload.file().save((root() / "plain").native()).error());
}

TEST_F(CppFileSave, LeavesNothingWhenACallFails) {
  expectNothing("write", ENOSPC);
  expectNothing("fsync", EIO);
  expectNothing("close", EIO);
  expectNothing("renameat2", EACCES);
  expectNothing("fsync of the directory", EIO);
}

TEST_F(CppFileSave, LeavesNothingWhenTheDiskIsFull) {
  const rlimit before = [] {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    return limit;
  }();
  const rlimit small{10, before.rlim_max};
  auto *const handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  const tarn::Saved saved = save("more than ten bytes");
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(EFBIG, saved.error());
  EXPECT_EQ("", contents());
}

TEST_F(CppFileSave, ContinuesAfterASignalAndAShortWrite) {
  failures["write"] = EINTR;
  most_written = 2;
  EXPECT_TRUE(save("seven b"));
  EXPECT_EQ("notes.txt: seven b\n", contents());
}

TEST_F(CppFileSave, UsesALinkWhereRenamingMightReplace) {
  for (const int error : {EINVAL, ENOSYS}) {
    failures["renameat2"] = error;
    EXPECT_TRUE(save());
    EXPECT_EQ("notes.txt: bytes\n", contents());
    failures["renameat2"] = error;
    EXPECT_EQ(EEXIST, save("other").error());
    EXPECT_EQ("notes.txt: bytes\n", contents());
    fs::remove(directory() / "notes.txt");
    failures["renameat2"] = error;
    expectNothing("linkat", EPERM);
  }
}

TEST_F(CppFileSave, SucceedsWhereDirectoriesCannotBeSynced) {
  failures["fsync of the directory"] = EINVAL;
  EXPECT_TRUE(save());
  EXPECT_EQ("notes.txt: bytes\n", contents());
}

TEST_F(CppFileSave, LeavesNoDescriptorOpen) {
  const auto open = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto before = open();
  EXPECT_TRUE(save());
  EXPECT_FALSE(save());
  failures["write"] = ENOSPC;
  EXPECT_FALSE(save());
  EXPECT_EQ(before, open());
}

// A part of a body whose boundary is "b".
std::string part(const std::string &fileName, const std::string &bytes,
                 const std::string &field = "notes") {
  return "--b\r\nContent-Disposition: form-data; name=\"" + field + "\"; filename=\"" + fileName +
         "\"\r\nContent-Type: image/png\r\n\r\n" + bytes + "\r\n";
}

void withBody(const std::string &body, const std::function<void(tarn::Request &)> &look) {
  tarn_test::asScript(tarn_test::post("multipart/form-data; boundary=b", body), body, [&look] {
    tarn::Request request;
    look(request);
  });
}

TEST_F(CppFileSave, RefusesAFileThatGoesOnBehindItsFirstLineEnd) {
  const std::string png("\x89PNG\r\n\x1A\n and more");
  withBody(part("a.png", png) + part("b.png", png) + "--b--\r\n",
           [this](const tarn::Request &request) {
             ASSERT_EQ(2U, request.files().size());
             for (const tarn::File file : request.files()) {
               EXPECT_EQ("\x89PNG", file.bytes());
               const tarn::Saved saved = file.save(directory().native());
               EXPECT_FALSE(saved);
               EXPECT_EQ(EMSGSIZE, saved.error());
               EXPECT_NE(nullptr, std::strstr(saved.message(), "tarn::FormReader"));
               EXPECT_EQ(file.name(), saved.name().view());
               EXPECT_FALSE(file.save(directory().native(), "x"));
             }
             EXPECT_FALSE(request.file("notes")->save(directory().native()));
           });
  EXPECT_EQ("", contents());
}

TEST_F(CppFileSave, SavesEachFileThatArrivedWhole) {
  const std::string bytes(
      "a\0\r\n"
      "b",
      2);
  withBody("ignored\r\n" + part("a", bytes) + part("b", "") + part("c", "one\ntwo\r") +
               part("d.txt", "last") + "--b-- \r\nignored",
           [this](const tarn::Request &request) {
             for (const tarn::File file : request.files()) {
               EXPECT_FALSE(file.is_cut()) << file.name()->data();
               const tarn::Saved saved = file.save(directory().native());
               EXPECT_TRUE(saved);
               EXPECT_STREQ("", saved.message());
             }
           });
  EXPECT_EQ("a: " + bytes + "\nb: \nc: one\ntwo\r\nd.txt: last\n", contents());
}

TEST_F(CppFileSave, NamesTheReasonInWords) {
  put(directory() / "notes.txt", "old");
  EXPECT_STREQ(std::strerror(EEXIST), save().message());
}

TEST(CppFileIsCut, SaysWhetherTheValueIsLongerThanItsBytes) {
  // Every value of up to three pieces, each in a part of its own.
  const std::vector<std::string> pieces = {"\r\n", "\r", "\n", "-", "--x", std::string(1, '\0')};
  std::vector<std::string> values = {""};
  for (size_t first = 0, length = 1; length <= 3; ++length) {
    for (const size_t end = values.size(); first < end; ++first) {
      for (const std::string &piece : pieces) values.push_back(values[first] + piece);
    }
  }
  std::string body;
  for (size_t i = 0; i < values.size(); ++i) body += part("f" + std::to_string(i), values[i]);
  withBody(body + "--b--\r\n", [&values](const tarn::Request &request) {
    ASSERT_EQ(values.size(), request.files().size());
    size_t i = 0;
    size_t cut = 0;
    for (const tarn::File file : request.files()) {
      ASSERT_EQ(file.bytes() != values[i], file.is_cut()) << tarn_test::shown(values[i]);
      cut += file.is_cut() ? 1 : 0;
      ++i;
    }
    EXPECT_GT(cut, values.size() / 4);
    EXPECT_LT(cut, values.size() - values.size() / 4);
  });
}

TEST(CppFileIsCut, SeesTheEndOfTheBody) {
  const std::string start = part("a", "x") + "--b\r\n";
  const std::string headers =
      "Content-Disposition: form-data; name=\"n\"; filename=\"last\"\r\nContent-Type: t\r\n\r\n";
  const std::map<std::string, bool> ends = {
      {"x\r\n--b--", false},
      {"x\r\n--b--\r\nepilogue\r\n", false},
      {"x\r\n--b \t\r\nnext part", false},
      {"x\r\n--b-", true},
      {"x\r\n--b", true},
      {"x\r\n--", true},
      {"x\r\n", true},
      {"x", true},
      {"", true},
      {"x\r\n--by\r\n\r\n--b--", true},
      {"x\n--b--", true},
      // The delimiter shares its CR LF with the headers; Tarn_new() takes it for the value.
      {"--b--\r\n", true},
  };
  for (const auto &[end, cut] : ends) {
    withBody(start + headers + end, [&end = end, cut = cut](const tarn::Request &request) {
      ASSERT_EQ(2U, request.files().size());
      EXPECT_FALSE(request.files()[0].is_cut());
      EXPECT_EQ(cut, request.files()[1].is_cut()) << tarn_test::shown(end);
    });
  }
}

TEST(CppFileIsCut, TellsFilesOfOneNameApart) {
  withBody(part("same.txt", "x\r\ny") + part("same.txt", "x", "other") + part("a%2Bb", "x\r\ny") +
               part("a+b", "x") + part("twice", "x") + part("twice", "x\r\n") + "--b--",
           [](const tarn::Request &request) {
             const tarn::Files files = request.files();
             ASSERT_EQ(6U, files.size());
             EXPECT_TRUE(files[0].is_cut());
             EXPECT_FALSE(files[1].is_cut()) << "another field";
             EXPECT_TRUE(files[2].is_cut());
             EXPECT_FALSE(files[3].is_cut()) << "another name";
             EXPECT_TRUE(files[5].is_cut());
             EXPECT_TRUE(files[4].is_cut()) << "nothing tells it from the cut one";
           });
}

TEST(CppFileIsCut, ReadsTheBoundaryAsTheRequestDoes) {
  const std::string body = "--b; x=y\r\n" + part("a", "x\r\ny").substr(5) + "--b; x=y--\r\n";
  tarn_test::asScript(tarn_test::post("Multipart/Form-Data; a=b; boundary=b; x=y", body), body, [] {
    const tarn::Request request;
    ASSERT_EQ(1U, request.files().size());
    EXPECT_TRUE(request.files()[0].is_cut());
  });
}

TEST(CppFileIsCut, SearchesAFormInTheQueryString) {
  tarn_test::Variables variables = tarn_test::get(part("a", "x\r\ny") + part("b", "x") + "--b--");
  variables["CONTENT_TYPE"] = "multipart/form-data; boundary=b";
  tarn_test::asScript(variables, "", [] {
    const tarn::Request request;
    ASSERT_EQ(2U, request.files().size());
    EXPECT_TRUE(request.files()[0].is_cut());
    EXPECT_FALSE(request.files()[1].is_cut());
  });
}

TEST(CppFileIsCut, CannotBeKnownWithoutTheBody) {
  withBody(part("a", "x\r\ny") + "--b--", [](const tarn::Request &request) {
    std::optional<tarn::File> file = request.file("notes");
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->is_cut());
    EXPECT_FALSE(tarn::File(*file->handle()).is_cut()) << "without its request";
    EXPECT_EQ(TARN_OK, FormFile_init(file->handle(), "notes", "a", "t", "made", 4));
    EXPECT_FALSE(file->is_cut()) << "changed by the script";
  });
  EXPECT_FALSE(tarn::File(0).is_cut());
}

TEST(CppFileIsCut, IsKnownAfterTheRequestHasMoved) {
  withBody(part("a", "x\r\ny") + part("b", "x") + "--b--", [](tarn::Request &request) {
    const tarn::Files files = request.files();
    EXPECT_TRUE(files[0].is_cut());
    const tarn::Request moved = std::move(request);
    EXPECT_TRUE(files[0].is_cut());
    EXPECT_FALSE(files[1].is_cut());
    EXPECT_TRUE(moved.files()[0].is_cut());
  });
}

TEST(CppFileIsCutLarge, SearchesTheBodyOnceForAllFiles) {
  std::string body;
  for (size_t i = 0; i < 20000; ++i) body += part(std::to_string(i), i % 2 == 0 ? "x" : "x\r\ny");
  withBody(body + "--b--", [](const tarn::Request &request) {
    size_t cut = 0;
    for (const tarn::File file : request.files()) cut += file.is_cut() ? 1 : 0;
    EXPECT_EQ(10000U, cut);
  });
}

TEST(CppFileIsCut, IsAssumedWithoutMemory) {
  withBody(part("a", "x") + "--b--", [](const tarn::Request &request) {
    const std::optional<tarn::File> file = request.file("notes");
    ASSERT_TRUE(file);
    bool cut = false;
    int error = 0;
    tarn_test::withoutMemory([&] {
      cut = file->is_cut();
      error = file->save("/nowhere").error();
    });
    EXPECT_TRUE(cut);
    EXPECT_EQ(ENOMEM, error);
    EXPECT_FALSE(file->is_cut());
  });
}

}  // namespace
