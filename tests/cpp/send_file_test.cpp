// Sending files: which are opened, conditions, ranges and bodies.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <tarn/send_file.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>

#include "output.h"
#include "support/failing_memory.h"
#include "support/script.h"

namespace {

using namespace std::literals;
using tarn::Response;
using tarn::StoredFile;
using Headers = std::map<std::string, std::string>;

constexpr std::time_t kChanged = 1763683200;
constexpr char kDate[] = "Fri, 21 Nov 2025 00:00:00 GMT";
constexpr char kSecondBefore[] = "Thu, 20 Nov 2025 23:59:59 GMT";
constexpr char kSecondAfter[] = "Fri, 21 Nov 2025 00:00:01 GMT";

class Folder {
 public:
  Folder() {
    char name[] = "/tmp/tarn-send-file-XXXXXX";
    path_ = mkdtemp(name);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;

  const std::string &path() const { return path_; }
  std::string path(const std::string &name) const { return path_ + "/" + name; }
  std::string write(const std::string &name, std::string_view text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    const timeval times[2] = {{kChanged, 500000}, {kChanged, 500000}};
    utimes(path(name).c_str(), times);
    return path(name);
  }

 private:
  std::string path_;
};

// What was sent: the status, the headers and the body.
struct Sent {
  bool done = false;
  std::string problem;
  std::string status = "200 OK";
  Headers headers;
  std::string body;

  std::string operator[](const std::string &name) const {
    const auto found = headers.find(name);
    return found != headers.end() ? found->second : "none";
  }
};

Sent parsed(std::string text) {
  Sent sent;
  for (;;) {
    const size_t end = text.find("\r\n");
    if (end == text.npos) break;
    const std::string line = text.substr(0, end);
    text.erase(0, end + 2);
    if (line.empty()) break;
    const size_t colon = line.find(": ");
    EXPECT_NE(line.npos, colon) << line;
    const std::string name = line.substr(0, colon);
    EXPECT_TRUE(sent.headers.emplace(name, line.substr(colon + 2)).second) << line;
    if (name == "Status") sent.status = line.substr(colon + 2);
  }
  sent.body = text;
  return sent;
}

const auto kNothing = [](Response &) {};

// Sends a file in reply to a request with these variables.
template <class Say = decltype(kNothing)>
Sent send(const StoredFile &file, const Headers &request, Say say = kNothing) {
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  setenv("REQUEST_METHOD", "GET", 1);
  for (const auto &[name, value] : request) setenv(name.c_str(), value.c_str(), 1);
  Response response(out);
  say(response);
  const bool done = response.send_file(file);
  unsetenv("REQUEST_METHOD");
  for (const auto &[name, value] : request) unsetenv(name.c_str());
  std::fclose(out);
  // A response that breaks off has less than its length.
  if (done) tarn_test::keepAnswer({text, size});
  Sent sent = parsed({text, size});
  sent.done = done;
  sent.problem = response.problem() != nullptr ? response.problem() : "";
  std::free(text);
  return sent;
}

// As send(), with a tag that the test knows.
Sent sendTagged(const std::string &path, const Headers &request) {
  return send(StoredFile::at(path), request, [](Response &response) { response.etag("v1"); });
}

// ---- Opening ------------------------------------------------------------------------------------

TEST(StoredFile, OpensARegularFile) {
  const Folder folder;
  const StoredFile file = StoredFile::at(folder.write("lake.txt", "deep"));
  EXPECT_TRUE(file);
  EXPECT_EQ(0, file.error());
  EXPECT_STREQ("", file.message());
  EXPECT_EQ(4U, file.size());
  EXPECT_EQ(kChanged, file.modified());
}

TEST(StoredFile, OpensNothingElseAndDoesNotWait) {
  const Folder folder;
  mkfifo(folder.path("pipe").c_str(), 0600);
  EXPECT_EQ(ENXIO, StoredFile::at(folder.path("pipe")).error());
  EXPECT_EQ(ENXIO, StoredFile::below(folder.path(), "pipe").error());
  EXPECT_EQ(ENXIO, StoredFile::at("/dev/zero").error());
  EXPECT_EQ(EISDIR, StoredFile::at(folder.path()).error());
  const StoredFile none = StoredFile::at(folder.path("none"));
  EXPECT_FALSE(none);
  EXPECT_EQ(ENOENT, none.error());
  EXPECT_STREQ("No such file or directory", none.message());
  EXPECT_EQ(0U, none.size());
}

TEST(StoredFile, FindsFilesBelowAFolder) {
  const Folder folder;
  std::filesystem::create_directories(folder.path("a/b"));
  folder.write("lake.txt", "1");
  folder.write("a/b/lake..txt", "22");
  EXPECT_EQ(1U, StoredFile::below(folder.path(), "lake.txt").size());
  EXPECT_EQ(1U, StoredFile::below(folder.path() + "/", "/lake.txt").size());
  EXPECT_EQ(2U, StoredFile::below(folder.path(), "a/b/lake..txt").size());
  EXPECT_EQ(2U, StoredFile::below(folder.path("a"), "/b/lake..txt").size());
}

TEST(StoredFile, NeverLeavesTheFolder) {
  const Folder folder;
  std::filesystem::create_directories(folder.path("in/sub"));
  folder.write("secret", "s");
  folder.write("in/.hidden", "s");
  folder.write("in/plain", "p");
  std::filesystem::create_symlink("../secret", folder.path("in/link"));
  std::filesystem::create_symlink("plain", folder.path("in/near"));
  std::filesystem::create_directory_symlink("..", folder.path("in/up"));
  std::filesystem::create_directories(folder.path("in/.git"));
  folder.write("in/.git/config", "s");
  const std::string root = folder.path("in");
  for (const std::string_view name :
       {"../secret"sv, "/../secret"sv, "sub/../../secret"sv, "sub/../plain"sv, ".hidden"sv,
        ".git/config"sv, "."sv, ".."sv, ""sv, "/"sv, "//plain"sv, "sub//plain"sv, "plain/"sv,
        "link"sv, "near"sv, "up/secret"sv, "plain\0.txt"sv, "sub/none"sv, "/etc/passwd"sv}) {
    const StoredFile file = StoredFile::below(root, name);
    EXPECT_FALSE(file) << name;
    EXPECT_EQ("404 Not Found", send(file, {}).status) << name << ": " << file.message();
  }
  EXPECT_EQ(EISDIR, StoredFile::below(root, "sub").error());
  EXPECT_TRUE(StoredFile::below(root, "plain"));
  // The script chose the folder, so it may be a link.
  std::filesystem::create_directory_symlink("in", folder.path("chosen"));
  EXPECT_TRUE(StoredFile::below(folder.path("chosen"), "plain"));
}

TEST(StoredFile, ClosesWhatItOpened) {
  const Folder folder;
  std::filesystem::create_directories(folder.path("a/b"));
  const std::string path = folder.write("a/b/lake.txt", "1");
  const int before = dup(0);
  close(before);
  {
    StoredFile file = StoredFile::at(path);
    const StoredFile moved(std::move(file));
    EXPECT_TRUE(moved);
    EXPECT_FALSE(file);  // NOLINT(bugprone-use-after-move)
    StoredFile::below(folder.path(), "a/b/lake.txt");
    StoredFile::below(folder.path(), "a/b/../lake.txt");
    StoredFile::below(folder.path(), "a/b/none");
    StoredFile::at(folder.path());
    EXPECT_FALSE(StoredFile(tarn::adopt, open("/dev/null", O_RDONLY), "null"));
  }
  const int after = dup(0);
  close(after);
  EXPECT_EQ(before, after);
}

TEST(StoredFile, IsNotInheritedByOtherPrograms) {
  const Folder folder;
  folder.write("lake.txt", "1");
  const int next = dup(0);
  close(next);
  const StoredFile file = StoredFile::below(folder.path(), "lake.txt");
  EXPECT_TRUE(file);
  // The folder had the next descriptor, the file has the one after it.
  EXPECT_EQ(FD_CLOEXEC, fcntl(next + 1, F_GETFD) & FD_CLOEXEC);
}

TEST(StoredFile, TellsThatAFileMayNotBeRead) {
  errno = EACCES;
  const StoredFile file(tarn::adopt, -1, "x");
  EXPECT_EQ(EACCES, file.error());
  EXPECT_EQ("403 Forbidden", send(file, {}).status);
  errno = EMFILE;
  EXPECT_EQ("500 Internal Server Error", send({tarn::adopt, -1, "x"}, {}).status);
}

// ---- Whole files --------------------------------------------------------------------------------

TEST(SendFile, SendsTheWholeFileWithItsHeaders) {
  const Folder folder;
  const std::string bytes("\0lake\r\n\xFF", 8);
  const Sent sent = sendTagged(folder.write("lake.png", bytes), {});
  EXPECT_TRUE(sent.done);
  EXPECT_EQ(bytes, sent.body);
  const Headers expected = {{"Content-Type", "image/png"},
                            {"Content-Length", "8"},
                            {"Last-Modified", kDate},
                            {"ETag", "\"v1\""},
                            {"X-Content-Type-Options", "nosniff"},
                            {"Accept-Ranges", "bytes"}};
  EXPECT_EQ(expected, sent.headers);
}

TEST(SendFile, SendsOnlyTheHeaderForAHeadRequest) {
  const Folder folder;
  const std::string path = folder.write("lake.txt", "deep");
  const Sent whole = sendTagged(path, {});
  const Sent head = sendTagged(path, {{"REQUEST_METHOD", "HEAD"}});
  EXPECT_EQ(whole.headers, head.headers);
  EXPECT_EQ("", head.body);
  // Ranges are for GET alone.
  const Sent part = sendTagged(path, {{"REQUEST_METHOD", "HEAD"}, {"HTTP_RANGE", "bytes=1-"}});
  EXPECT_EQ(whole.headers, part.headers);
  EXPECT_EQ("", part.body);
}

TEST(SendFile, SendsAnEmptyFile) {
  const Folder folder;
  const Sent sent = sendTagged(folder.write("empty", ""), {});
  EXPECT_EQ("0", sent["Content-Length"]);
  EXPECT_EQ("", sent.body);
  EXPECT_TRUE(sent.done);
}

TEST(SendFile, KnowsTheContentTypeByTheExtension) {
  const Folder folder;
  const std::pair<std::string, std::string> kCases[] = {
      {"a.txt", "text/plain; charset=utf-8"},
      {"a.JPG", "image/jpeg"},
      {"a.tar.gz", "application/gzip"},
      {"a.js", "text/javascript; charset=utf-8"},
      {"a.woff2", "font/woff2"},
      {"a", "application/octet-stream"},
      {"png", "application/octet-stream"},
      {"a.", "application/octet-stream"},
      {"a.png~", "application/octet-stream"},
      {"a.pngx", "application/octet-stream"},
      {"a.pn", "application/octet-stream"},
  };
  std::filesystem::create_directory(folder.path("d.png"));
  for (const auto &[name, type] : kCases) {
    for (const std::string &path : {name, "d.png/" + name}) {
      folder.write(path, "x");
      const Sent sent = send(StoredFile::below(folder.path(), path), {});
      EXPECT_EQ(type, sent["Content-Type"]) << path;
      EXPECT_EQ("none", sent["Content-Security-Policy"]);
    }
  }
}

TEST(SendFile, RunsNoScriptsInFilesOfATypeThatItFound) {
  const Folder folder;
  for (const std::string name : {"a.html", "a.HTM", "a.svg", "a.xml", "a.xhtml"}) {
    const std::string path = folder.write(name, "x");
    EXPECT_EQ("sandbox", send(StoredFile::at(path), {})["Content-Security-Policy"]) << name;
    const Sent chosen = send(StoredFile::at(path), {},
                             [](Response &response) { response.content_type("text/html"); });
    EXPECT_EQ("none", chosen["Content-Security-Policy"]);
    EXPECT_EQ("text/html", chosen["Content-Type"]);
    EXPECT_EQ("nosniff", chosen["X-Content-Type-Options"]);
  }
}

TEST(SendFile, KeepsWhatTheScriptAdded) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "deep");
  const Sent sent = send(StoredFile::at(path), {}, [](Response &response) {
    response.header("Cache-Control", "max-age=60").attachment("Lake.txt").last_modified(0);
    response.cookie(tarn::SetCookie("a", "1"));
  });
  EXPECT_EQ("max-age=60", sent["Cache-Control"]);
  EXPECT_EQ("attachment; filename=\"Lake.txt\"", sent["Content-Disposition"]);
  EXPECT_EQ("Thu, 01 Jan 1970 00:00:00 GMT", sent["Last-Modified"]);
  EXPECT_EQ("a=1; Path=/; HttpOnly; SameSite=Lax", sent["Set-Cookie"]);
  EXPECT_EQ("deep", sent.body);
}

TEST(SendFile, SendsTheWholeFileToOtherMethodsAndWithAnotherStatus) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "deep");
  for (const std::string method : {"POST", "PUT", "get", ""}) {
    const Sent sent = sendTagged(path, {{"REQUEST_METHOD", method},
                                        {"HTTP_RANGE", "bytes=1-"},
                                        {"HTTP_IF_NONE_MATCH", "*"},
                                        {"HTTP_IF_MATCH", "\"other\""}});
    EXPECT_EQ("200 OK", sent.status) << method;
    EXPECT_EQ("deep", sent.body);
    EXPECT_EQ("none", sent["Accept-Ranges"]);
  }
  const Sent missing =
      send(StoredFile::at(path), {{"HTTP_RANGE", "bytes=1-"}, {"HTTP_IF_NONE_MATCH", "*"}},
           [](Response &response) { response.status(404); });
  EXPECT_EQ("404 Not Found", missing.status);
  EXPECT_EQ("deep", missing.body);
}

TEST(SendFile, RefusesUnsafeHeadersAsEver) {
  const Folder folder;
  const Sent sent = send(StoredFile::at(folder.write("a.txt", "deep")), {},
                         [](Response &response) { response.header("X", "a\nb"); });
  EXPECT_FALSE(sent.done);
  EXPECT_EQ("500 Internal Server Error", sent.status);
  EXPECT_EQ("Internal Server Error\n", sent.body);
}

TEST(SendFile, SendsOnce) {
  const Folder folder;
  const StoredFile file = StoredFile::at(folder.write("a.txt", "deep"));
  char *text = nullptr;
  size_t size = 0;
  FILE *out = open_memstream(&text, &size);
  Response response(out);
  EXPECT_TRUE(response.send_file(file));
  std::fflush(out);
  const size_t before = size;
  EXPECT_FALSE(response.send_file(file));
  EXPECT_STREQ("response was already sent", response.problem());
  std::fclose(out);
  EXPECT_EQ(before, size);
  std::free(text);
}

// ---- Tags and dates -----------------------------------------------------------------------------

TEST(SendFile, TagsAFileWeaklyUntilAnotherChangeWouldShow) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "deep");
  const std::string young = send(StoredFile::at(path), {})["ETag"];
  EXPECT_EQ("W/\"4-", young.substr(0, 5));
  std::string old;
  for (int i = 0; i < 100 && (old.empty() || old[0] == 'W'); ++i) {
    usleep(50000);
    old = send(StoredFile::at(path), {})["ETag"];
  }
  EXPECT_EQ(young.substr(2), old);
  EXPECT_EQ(
      "206 Partial Content",
      send(StoredFile::at(path), {{"HTTP_RANGE", "bytes=1-"}, {"HTTP_IF_RANGE", old}}).status);
}

TEST(SendFile, ChangesTheTagEvenIfSizeAndTimeOfModificationAreRestored) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "deep");
  const Sent before = send(StoredFile::at(path), {});
  usleep(20000);
  folder.write("a.txt", "high");
  const Sent after = send(StoredFile::at(path), {{"HTTP_IF_NONE_MATCH", before["ETag"]}});
  EXPECT_EQ(before["Last-Modified"], after["Last-Modified"]);
  EXPECT_NE(before["ETag"], after["ETag"]);
  EXPECT_EQ("high", after.body);
}

TEST(SendFile, DoesNotDateAFileAfterTheResponse) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "deep");
  const std::time_t later = std::time(nullptr) + 3600;
  const timeval times[2] = {{later, 0}, {later, 0}};
  utimes(path.c_str(), times);
  const std::time_t begin = std::time(nullptr);
  const StoredFile file = StoredFile::at(path);
  EXPECT_LE(begin, file.modified());
  EXPECT_GE(std::time(nullptr), file.modified());
}

// ---- Conditions ---------------------------------------------------------------------------------

struct Case {
  Headers request;
  std::string status;
};

void expectStatus(const Case &one) {
  const Folder folder;
  std::string shown;
  for (const auto &[name, value] : one.request) shown += name + ": " + value + "\n";
  const Sent sent = sendTagged(folder.write("a.txt", "0123456789"), one.request);
  EXPECT_EQ(one.status, sent.status) << shown;
  EXPECT_TRUE(sent.done);
  if (one.status == "304 Not Modified") {
    EXPECT_EQ("", sent.body);
    EXPECT_EQ("\"v1\"", sent["ETag"]);
    EXPECT_EQ(kDate, sent["Last-Modified"]);
    EXPECT_EQ("none", sent["Content-Type"]);
    EXPECT_EQ("none", sent["Content-Length"]);
  }
  if (one.status == "412 Precondition Failed") {
    EXPECT_EQ("none", sent["ETag"]);
    EXPECT_EQ("text/html; charset=utf-8", sent["Content-Type"]);
  }
  if (one.status == "200 OK") {
    EXPECT_EQ("0123456789", sent.body);
  }
}

TEST(SendFile, ComparesTagsWeaklyInIfNoneMatch) {
  const std::string yes = "304 Not Modified";
  const std::string no = "200 OK";
  for (const Case &one : {Case{{{"HTTP_IF_NONE_MATCH", "\"v1\""}}, yes},
                          {{{"HTTP_IF_NONE_MATCH", "W/\"v1\""}}, yes},
                          {{{"HTTP_IF_NONE_MATCH", "*"}}, yes},
                          {{{"HTTP_IF_NONE_MATCH", " * "}}, yes},
                          {{{"HTTP_IF_NONE_MATCH", "\"a\", W/\"b,\" ,\"v1\""}}, yes},
                          {{{"HTTP_IF_NONE_MATCH", ",\t,\"v1\""}}, yes},
                          {{{"HTTP_IF_NONE_MATCH", ""}}, no},
                          {{{"HTTP_IF_NONE_MATCH", "v1"}}, no},
                          {{{"HTTP_IF_NONE_MATCH", "\"v1"}}, no},
                          {{{"HTTP_IF_NONE_MATCH", "\"V1\""}}, no},
                          {{{"HTTP_IF_NONE_MATCH", "w/\"v1\""}}, no},
                          {{{"HTTP_IF_NONE_MATCH", "W/"}}, no},
                          {{{"HTTP_IF_NONE_MATCH", "\""}}, no},
                          {{{"HTTP_IF_NONE_MATCH", "\"v\", \"1\""}}, no},
                          {{{"HTTP_IF_NONE_MATCH", "\"a\" x \"v1\""}}, no}}) {
    expectStatus(one);
  }
}

TEST(SendFile, ComparesDatesInIfModifiedSince) {
  const std::string yes = "304 Not Modified";
  const std::string no = "200 OK";
  for (const Case &one : {Case{{{"HTTP_IF_MODIFIED_SINCE", kDate}}, yes},
                          {{{"HTTP_IF_MODIFIED_SINCE", kSecondAfter}}, yes},
                          {{{"HTTP_IF_MODIFIED_SINCE", kSecondBefore}}, no},
                          // The other formats.
                          {{{"HTTP_IF_MODIFIED_SINCE", "Friday, 21-Nov-25 00:00:00 GMT"}}, yes},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Thursday, 20-Nov-25 23:59:59 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Tuesday, 29-Feb-28 00:00:00 GMT"}}, yes},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Tuesday, 29-Feb-00 00:00:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Saturday, 20-Nov-99 23:59:59 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Fri Nov 21 00:00:00 2025"}}, yes},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun Nov  2 00:00:00 2025"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Tue Dec  2 00:00:00 2025"}}, yes},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Thu, 29 Feb 2024 00:00:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Tue, 29 Feb 2028 00:00:00 GMT"}}, yes},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Fri, 31 Dec 9999 23:59:60 GMT"}}, yes},
                          // No dates.
                          {{{"HTTP_IF_MODIFIED_SINCE", "Thu, 29 Feb 2029 00:00:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun, 32 Dec 2029 00:00:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun, 00 Dec 2029 00:00:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun, 30 Dec 2029 24:00:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun, 30 Dec 2029 00:60:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun, 30 Dec 2029 00:00:00 UTC"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun, 30 Dec 2029 00:00:00 GMT "}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun, 30 dec 2029 00:00:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "Sun, 3 Dec 2029 00:00:00 GMT"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "2029-12-30T00:00:00Z"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", "0"}}, no},
                          {{{"HTTP_IF_MODIFIED_SINCE", ""}}, no}}) {
    expectStatus(one);
  }
}

TEST(SendFile, ComparesTagsStronglyInIfMatch) {
  const std::string yes = "200 OK";
  const std::string no = "412 Precondition Failed";
  for (const Case &one : {Case{{{"HTTP_IF_MATCH", "\"v1\""}}, yes},
                          {{{"HTTP_IF_MATCH", "\"a\",\"v1\""}}, yes},
                          {{{"HTTP_IF_MATCH", "*"}}, yes},
                          {{{"HTTP_IF_MATCH", "W/\"v1\""}}, no},
                          {{{"HTTP_IF_MATCH", "\"a\""}}, no},
                          {{{"HTTP_IF_MATCH", "v1"}}, no},
                          {{{"HTTP_IF_UNMODIFIED_SINCE", kDate}}, yes},
                          {{{"HTTP_IF_UNMODIFIED_SINCE", kSecondAfter}}, yes},
                          {{{"HTTP_IF_UNMODIFIED_SINCE", kSecondBefore}}, no},
                          {{{"HTTP_IF_UNMODIFIED_SINCE", "yesterday"}}, yes}}) {
    expectStatus(one);
  }
}

TEST(SendFile, EvaluatesConditionsInTheirOrder) {
  for (const Case &one :
       // If-Match replaces If-Unmodified-Since.
       {Case{{{"HTTP_IF_MATCH", "\"v1\""}, {"HTTP_IF_UNMODIFIED_SINCE", kSecondBefore}}, "200 OK"},
        // If-None-Match replaces If-Modified-Since.
        {{{"HTTP_IF_NONE_MATCH", "\"a\""}, {"HTTP_IF_MODIFIED_SINCE", kDate}}, "200 OK"},
        {{{"HTTP_IF_NONE_MATCH", "\"v1\""}, {"HTTP_IF_MODIFIED_SINCE", kSecondBefore}},
         "304 Not Modified"},
        // If-Match comes before If-None-Match, and both before ranges.
        {{{"HTTP_IF_MATCH", "\"a\""}, {"HTTP_IF_NONE_MATCH", "\"v1\""}}, "412 Precondition Failed"},
        {{{"HTTP_IF_UNMODIFIED_SINCE", kSecondBefore}, {"HTTP_IF_MODIFIED_SINCE", kDate}},
         "412 Precondition Failed"},
        {{{"HTTP_IF_NONE_MATCH", "\"v1\""}, {"HTTP_RANGE", "bytes=1-2"}}, "304 Not Modified"},
        {{{"HTTP_IF_MATCH", "\"v1\""}, {"HTTP_RANGE", "bytes=1-2"}}, "206 Partial Content"}}) {
    expectStatus(one);
  }
}

TEST(SendFile, ContinuesOnlyTheSameVersion) {
  const auto with = [](const std::string &version) {
    return Headers{{"HTTP_RANGE", "bytes=1-2"}, {"HTTP_IF_RANGE", version}};
  };
  const std::string yes = "206 Partial Content";
  const std::string no = "200 OK";
  for (const Case &one : {Case{with("\"v1\""), yes},
                          {with(kDate), yes},
                          {with("\"v2\""), no},
                          {with("W/\"v1\""), no},
                          {with("\"v1\", \"v2\""), no},
                          {with("*"), no},
                          {with(""), no},
                          {with(kSecondBefore), no},
                          {with(kSecondAfter), no}}) {
    expectStatus(one);
  }
  // Without a range, it is no condition.
  expectStatus({{{"HTTP_IF_RANGE", "\"v2\""}}, "200 OK"});
  expectStatus({{{"HTTP_RANGE", "bytes=10-"}, {"HTTP_IF_RANGE", "\"v2\""}}, "200 OK"});
}

TEST(SendFile, DoesNotContinueAVersionWithAWeakTag) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "0123456789");
  const auto weak = [](Response &response) { response.weak_etag("v1"); };
  for (const std::string tag : {"\"v1\"", "W/\"v1\""}) {
    const Headers request = {{"HTTP_RANGE", "bytes=1-2"}, {"HTTP_IF_RANGE", tag}};
    EXPECT_EQ("200 OK", send(StoredFile::at(path), request, weak).status);
    EXPECT_EQ("304 Not Modified",
              send(StoredFile::at(path), {{"HTTP_IF_NONE_MATCH", tag}}, weak).status);
    EXPECT_EQ("412 Precondition Failed",
              send(StoredFile::at(path), {{"HTTP_IF_MATCH", tag}}, weak).status);
  }
}

TEST(SendFile, DoesNotContinueAFileThatChangedInThisSecond) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "0123456789");
  utimes(path.c_str(), nullptr);
  const Sent first = send(StoredFile::at(path), {});
  const Headers request = {{"HTTP_RANGE", "bytes=1-2"}, {"HTTP_IF_RANGE", first["Last-Modified"]}};
  EXPECT_EQ("200 OK", send(StoredFile::at(path), request).status);
}

// ---- Ranges -------------------------------------------------------------------------------------

TEST(SendFile, SendsOneRange) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "0123456789");
  struct {
    std::string range, body, shown;
  } const kCases[] = {
      {"bytes=0-0", "0", "bytes 0-0/10"},
      {"bytes=2-4", "234", "bytes 2-4/10"},
      {"bytes=0-9", "0123456789", "bytes 0-9/10"},
      {"bytes=9-", "9", "bytes 9-9/10"},
      {"bytes=0-", "0123456789", "bytes 0-9/10"},
      {"bytes=8-10", "89", "bytes 8-9/10"},
      {"bytes=8-99999999999999999999999999", "89", "bytes 8-9/10"},
      {"bytes=8-18446744073709551615", "89", "bytes 8-9/10"},
      {"bytes=-1", "9", "bytes 9-9/10"},
      {"bytes=-10", "0123456789", "bytes 0-9/10"},
      {"bytes=-99999999999999999999", "0123456789", "bytes 0-9/10"},
      {"BYTES=001-0002", "12", "bytes 1-2/10"},
      {"bytes= ,\t2-3, ", "23", "bytes 2-3/10"},
  };
  for (const auto &one : kCases) {
    const Sent sent = sendTagged(path, {{"HTTP_RANGE", one.range}});
    EXPECT_EQ("206 Partial Content", sent.status) << one.range;
    EXPECT_EQ(one.body, sent.body);
    EXPECT_EQ(one.shown, sent["Content-Range"]);
    EXPECT_EQ(std::to_string(one.body.size()), sent["Content-Length"]);
    EXPECT_EQ("\"v1\"", sent["ETag"]);
    EXPECT_EQ("text/plain; charset=utf-8", sent["Content-Type"]);
  }
}

TEST(SendFile, SendsTheWholeFileForSeveralRangesAndForWhatIsNone) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "0123456789");
  for (const std::string range :
       {"bytes=0-1,4-5", "bytes=0-1,",  "bytes=1-0,2-3", "bytes=20-,30-", "",
        "bytes",         "bytes=",      "bytes=,",       "bytes=-",       "bytes=4-2",
        "bytes=a-b",     "bytes=1-2x",  "bytes=1",       "bytes=+1-2",    "bytes=1 - 2",
        "bytes =1-2",    "bytes=--1",   "bytes=1--2",    "bytes=-1-",     "lines=1-2",
        "1-2",           "bytes=0x1-2", "bytes=1.0-2",   "byte=1-2",      " bytes=1-2"}) {
    const Sent sent = sendTagged(path, {{"HTTP_RANGE", range}});
    if (range == "bytes=0-1,") {  // an empty element, which a list may have
      EXPECT_EQ("01", sent.body);
      continue;
    }
    EXPECT_EQ("200 OK", sent.status) << range;
    EXPECT_EQ("0123456789", sent.body) << range;
    EXPECT_EQ("none", sent["Content-Range"]);
  }
}

TEST(SendFile, RefusesARangeBeyondTheFile) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "0123456789");
  for (const std::string range : {"bytes=10-", "bytes=10-20", "bytes=-0", "bytes=-000",
                                  "bytes=18446744073709551616-", "bytes=99999999999999999999-"}) {
    const Sent sent = sendTagged(path, {{"HTTP_RANGE", range}});
    EXPECT_TRUE(sent.done);
    EXPECT_EQ("416 Range Not Satisfiable", sent.status) << range;
    EXPECT_EQ("bytes */10", sent["Content-Range"]);
    EXPECT_EQ("text/html; charset=utf-8", sent["Content-Type"]);
    EXPECT_EQ("none", sent["ETag"]);
  }
}

TEST(SendFile, HasNoRangesOfAnEmptyFile) {
  const Folder folder;
  const std::string path = folder.write("a.txt", "");
  const Sent sent = sendTagged(path, {{"HTTP_RANGE", "bytes=0-"}});
  EXPECT_EQ("416 Range Not Satisfiable", sent.status);
  EXPECT_EQ("bytes */0", sent["Content-Range"]);
  EXPECT_EQ("200 OK", sendTagged(path, {{"HTTP_RANGE", "bytes=-5"}}).status);
}

// ---- Bodies -------------------------------------------------------------------------------------

// A stream that a file receives.
std::string sentToFile(const Folder &folder, const StoredFile &file, const char *mode) {
  const std::string to = folder.path("received");
  FILE *out = std::fopen(to.c_str(), mode);
  EXPECT_TRUE(Response(out).send_file(file));
  std::fclose(out);
  std::ifstream received(to, std::ios::binary);
  return {std::istreambuf_iterator<char>(received), {}};
}

TEST(SendFile, SendsLargeFilesToFilesOfAnyKind) {
  const Folder folder;
  std::string bytes;
  for (int i = 0; i < 300000; ++i) bytes += std::to_string(i) + " ";
  const StoredFile file = StoredFile::at(folder.write("big", bytes));
  // The kernel copies to the first one, and refuses to append.
  for (const char *mode : {"w", "a"}) {
    std::filesystem::remove(folder.path("received"));
    const std::string text = sentToFile(folder, file, mode);
    EXPECT_EQ(bytes, text.substr(text.find("\r\n\r\n") + 4));
  }
}

TEST(SendFile, SendsPartsBeyondFourGibibytes) {
  const Folder folder;
  const std::string path = folder.write("huge", "");
  constexpr long long kSize = 5LL << 30;
  const int made = open(path.c_str(), O_WRONLY | O_LARGEFILE);
  ASSERT_EQ(0, ftruncate64(made, kSize)) << strerror(errno);
  ASSERT_EQ(4, pwrite64(made, "deep", 4, kSize - 4));
  close(made);
  const StoredFile file = StoredFile::at(path);
  EXPECT_EQ(static_cast<std::uint64_t>(kSize), file.size());
  const Sent sent = send(file, {{"HTTP_RANGE", "bytes=5368709114-"}});
  EXPECT_EQ("bytes 5368709114-5368709119/5368709120", sent["Content-Range"]);
  EXPECT_EQ("\0\0deep"sv, sent.body);
  setenv("REQUEST_METHOD", "GET", 1);
  setenv("HTTP_RANGE", "bytes=-5", 1);
  const std::string text = sentToFile(folder, file, "w");
  unsetenv("HTTP_RANGE");
  unsetenv("REQUEST_METHOD");
  EXPECT_EQ("\0deep"sv, text.substr(text.find("\r\n\r\n") + 4));
}

TEST(SendFile, FailsIfTheFileBecomesShorter) {
  const Folder folder;
  for (const bool in_kernel : {false, true}) {
    const std::string path = folder.write("a.txt", "0123456789");
    const StoredFile file = StoredFile::at(path);
    ASSERT_EQ(0, truncate(path.c_str(), 4));
    if (in_kernel) {
      FILE *out = std::fopen(folder.path("received").c_str(), "w");
      Response response(out);
      EXPECT_FALSE(response.send_file(file));
      EXPECT_STREQ("file became shorter while it was sent", response.problem());
      std::fclose(out);
    } else {
      const Sent sent = send(file, {});
      EXPECT_FALSE(sent.done);
      EXPECT_EQ("file became shorter while it was sent", sent.problem);
      EXPECT_EQ("0123", sent.body);
    }
  }
}

TEST(SendFile, ReportsAFullDiskAndAVisitorWhoLeft) {
  const Folder folder;
  const StoredFile file = StoredFile::at(folder.write("a.txt", std::string(200000, 'x')));
  FILE *full = std::fopen("/dev/full", "w");
  Response response(full);
  EXPECT_FALSE(response.send_file(file));
  EXPECT_STREQ("response could not be written", response.problem());
  std::fclose(full);
  tarn_test::asScript({}, "", [&file] {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    close(ends[0]);
    signal(SIGPIPE, SIG_IGN);
    FILE *out = fdopen(ends[1], "w");
    Response left(out);
    EXPECT_FALSE(left.send_file(file));
    EXPECT_STREQ("response could not be written", left.problem());
  });
}

TEST(SendFile, IsCompleteOrFailsWhenAnAllocationFails) {
  const Folder folder;
  folder.write("a.txt", "deep");
  const std::string whole = "\r\n\r\ndeep";
  tarn_test::forEachFailingAllocation([&](tarn_test::FailingMemory &memory) {
    char text[8192] = "";
    char buffer[sizeof text];
    FILE *out = fmemopen(text, sizeof text, "w");
    std::setvbuf(out, buffer, _IOFBF, sizeof buffer);
    bool opened = false;
    const bool sent = memory.call([&] {
      Response response(out);
      const StoredFile file = StoredFile::below(folder.path(), "a.txt");
      opened = static_cast<bool>(file);
      return response.send_file(file);
    });
    std::fclose(out);
    const std::string_view answer = text;
    if (sent && opened) {
      EXPECT_NE(answer.npos, answer.find(whole)) << answer;
    } else {
      EXPECT_TRUE(memory.failed());
      EXPECT_EQ(0U, answer.find("Status: 500 ")) << answer;
    }
  });
}

// ---- Conditions without a file ------------------------------------------------------------------

// Whether a response to this request says that the browser has the version already.
void expectKnown(bool known, const tarn_test::Variables &request, int status = 200) {
  tarn_test::asScript(request, "", [&] {
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    Response response(out);
    response.status(status).etag("v1").last_modified(kChanged);
    EXPECT_EQ(known, response.not_modified());
    EXPECT_TRUE(response.send());
    std::fclose(out);
    const std::string header =
        "Status: 304 Not Modified\r\nLast-Modified: "s + kDate + "\r\nETag: \"v1\"\r\n\r\n";
    EXPECT_EQ(known, text == header) << text;
    std::free(text);
  });
}

TEST(Response, KnowsWhetherTheBrowserHasThisVersion) {
  expectKnown(true, {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_NONE_MATCH", "\"v1\""}});
  expectKnown(true, {{"REQUEST_METHOD", "HEAD"}, {"HTTP_IF_MODIFIED_SINCE", kDate}});
  expectKnown(false, {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_NONE_MATCH", "\"v2\""}});
  expectKnown(false, {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_MODIFIED_SINCE", kSecondBefore}});
  expectKnown(false, {{"REQUEST_METHOD", "POST"}, {"HTTP_IF_NONE_MATCH", "\"v1\""}});
  expectKnown(false, {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_NONE_MATCH", "\"v1\""}}, 404);
  expectKnown(false, {{"REQUEST_METHOD", "GET"}});
}

TEST(Response, HasNoVersionWithoutATagOrATime) {
  tarn_test::asScript({{"REQUEST_METHOD", "GET"}, {"HTTP_IF_NONE_MATCH", "*"}}, "",
                      [] { EXPECT_FALSE(Response().not_modified()); });
  tarn_test::asScript(
      {{"REQUEST_METHOD", "GET"}, {"HTTP_IF_MODIFIED_SINCE", "Fri, 31 Dec 9999 23:59:59 GMT"}}, "",
      [] { EXPECT_FALSE(Response().etag("v1").not_modified()); });
}

}  // namespace
