#include "support/form.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ostream>

#include "support/handles.h"

namespace tarn_rules {
namespace {

std::string printed(const Text &text) { return text ? tarn_test::shown(*text) : "none"; }

}  // namespace

std::ostream &operator<<(std::ostream &out, const Entry &entry) {
  return out << printed(entry.name) << "=" << printed(entry.value) << " (" << entry.length << ")";
}

std::ostream &operator<<(std::ostream &out, const File &file) {
  return out << printed(file.name) << " " << printed(file.fileName) << " "
             << printed(file.contentType) << ": " << printed(file.data);
}

std::ostream &operator<<(std::ostream &out, const Cookie &cookie) {
  return out << printed(cookie.name) << "=" << printed(cookie.value);
}

std::ostream &operator<<(std::ostream &out, const Form &form) {
  return out << "entries " << testing::PrintToString(form.entries) << ", files "
             << testing::PrintToString(form.files);
}

}  // namespace tarn_rules

namespace tarn_test {
namespace {

// kNone without a node, an empty text if the node has no bytes.
Text bytesOf(TarnHandle buffer) {
  if (!CGIgs_IsA(&buffer, TARN_BYTE_BUFFER_MAGIC)) return kNone;
  const auto *bytes =
      reinterpret_cast<const char *>(CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC));
  const uint32_t count = CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC);
  if (!bytes) return std::string();
  EXPECT_EQ('\0', bytes[count]) << "the bytes must be followed by a zero byte";
  return std::string(bytes, count);
}

}  // namespace

Text textOf(const char *text) { return text ? Text(text) : kNone; }

Entry entryOf(TarnHandle entry) {
  return {textOf(CGIgs_getString(&entry, TARN_ENTRY_NAME, TARN_FORM_ENTRY_MAGIC)),
          textOf(CGIgs_getString(&entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC)),
          CGIgs_getInt(&entry, TARN_ENTRY_LENGTH, TARN_FORM_ENTRY_MAGIC)};
}

Entries entriesOf(TarnHandle list) {
  Entries entries;
  const auto count = static_cast<uint32_t>(FormEntryList_getCount(&list));
  for (uint32_t i = 0; i < count; ++i) {
    entries.push_back(entryOf(FormEntryList_getByIndex(&list, i)));
  }
  return entries;
}

File fileOf(TarnHandle file) {
  File result{textOf(CGIgs_getString(&file, TARN_FILE_FIELD_NAME, TARN_FORM_FILE_MAGIC)),
              textOf(CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC)),
              textOf(CGIgs_getString(&file, TARN_FILE_CONTENT_TYPE, TARN_FORM_FILE_MAGIC)),
              bytesOf(CGIgs_getStruct(&file, TARN_FILE_BYTES, TARN_FORM_FILE_MAGIC))};
  EXPECT_EQ(result.data.value_or("").size(), FormFile_getDataLength(&file));
  return result;
}

Files filesOf(TarnHandle list) {
  Files files;
  const auto count = static_cast<uint32_t>(FormFileList_getCount(&list));
  for (uint32_t i = 0; i < count; ++i) files.push_back(fileOf(FormFileList_getByIndex(&list, i)));
  return files;
}

Text bodyOf(TarnHandle environment) {
  return bytesOf(CGIgs_getStruct(&environment, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC));
}

std::optional<Cookies> cookiesOf(TarnHandle environment) {
  TarnHandle list = CGIgs_getStruct(&environment, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
  if (!list) return std::nullopt;
  EXPECT_TRUE(CGIgs_IsA(&list, TARN_COOKIE_LIST_MAGIC));
  Cookies cookies;
  const auto count = static_cast<uint32_t>(HTTPCookieList_getCount(&list));
  for (uint32_t i = 0; i < count; ++i) {
    TarnHandle cookie = HTTPCookieList_getByIndex(&list, i);
    EXPECT_TRUE(CGIgs_IsA(&cookie, TARN_COOKIE_MAGIC));
    cookies.push_back({textOf(CGIgs_getString(&cookie, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC)),
                       textOf(CGIgs_getString(&cookie, TARN_COOKIE_VALUE, TARN_COOKIE_MAGIC))});
  }
  return cookies;
}

void Request::empty() {
  TarnHandle entriesOfIt = entryList();
  TarnHandle filesOfIt = fileList();
  FormEntryList_clear(&entriesOfIt);
  // Clearing a file list would delete the list, so delete its files one by one and clear the node.
  for (uint32_t i = 0; i < static_cast<uint32_t>(FormFileList_getCount(&filesOfIt)); ++i) {
    TarnHandle file = FormFileList_getByIndex(&filesOfIt, i);
    CGIgs_delete(&file, TARN_FORM_FILE_MAGIC);
  }
  CGIgs_clear(&filesOfIt, TARN_FORM_FILE_LIST_MAGIC);
}

Form Request::takeForm() {
  Form held = form();
  empty();
  return held;
}

void asScriptOf(const std::string &query, const std::function<void(Request &)> &script) {
  asScript(get(query), "", [&] {
    Request request;
    ASSERT_EQ(TARN_OK, request.status);
    script(request);
  });
}

void expectForm(const Variables &variables, std::string_view body, const Form &expected,
                std::source_location where) {
  const testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "");
  asScript(variables, body, [&] {
    limitProcessorTime();
    Request request;
    EXPECT_EQ(TARN_OK, request.status);
    EXPECT_EQ(expected, request.form());
  });
}

ExactBlock::ExactBlock(std::string_view bytes)
    : bytes_(new char[bytes.size()]), size_(static_cast<uint32_t>(bytes.size())) {
  if (!bytes.empty()) std::memcpy(bytes_.get(), bytes.data(), bytes.size());
}

void feedStandardInput(std::string_view body, After after) {
  int input[2];
  ASSERT_EQ(0, pipe(input));
  ASSERT_EQ(static_cast<ssize_t>(body.size()), write(input[1], body.data(), body.size()));
  ASSERT_EQ(STDIN_FILENO, dup2(input[0], STDIN_FILENO));
  close(input[0]);
  if (after == After::kEnd) close(input[1]);
  std::clearerr(stdin);
}

namespace {

// The pipe on which the handler reports signals, and how many are needed so that at least one
// arrives while the script is waiting for input.
int signalPipe[2];
constexpr int kEnoughSignals = 20;

void reportSignal(int) {
  const int before = errno;
  (void)!write(signalPipe[1], "", 1);
  errno = before;
}

[[noreturn]] void sendInHalves(int pipe, const std::string &body) {
  close(signalPipe[1]);
  for (size_t i = 0; i < body.size(); ++i) {
    char told = 0;
    for (int signals = i == body.size() / 2 ? kEnoughSignals : 0; signals > 0; --signals) {
      if (read(signalPipe[0], &told, 1) != 1) _exit(1);
    }
    if (write(pipe, &body[i], 1) != 1) _exit(1);
  }
  _exit(0);
}

}  // namespace

InputThroughSignals::InputThroughSignals(const std::string &body, int flags) {
  int input[2];
  EXPECT_EQ(0, pipe(input));
  EXPECT_EQ(0, pipe(signalPipe));
  // The sender stops reading at some point.
  EXPECT_EQ(0, fcntl(signalPipe[1], F_SETFL, O_NONBLOCK));
  sender_ = fork();
  EXPECT_GE(sender_, 0);
  if (sender_ == 0) sendInHalves(input[1], body);
  EXPECT_EQ(STDIN_FILENO, dup2(input[0], STDIN_FILENO));
  close(input[0]);
  close(input[1]);
  struct sigaction action {};
  action.sa_handler = reportSignal;
  action.sa_flags = flags;
  EXPECT_EQ(0, sigaction(SIGALRM, &action, nullptr));
  const itimerval often{{0, 1000}, {0, 1000}};
  EXPECT_EQ(0, setitimer(ITIMER_REAL, &often, nullptr));
}

InputThroughSignals::~InputThroughSignals() {
  const itimerval never{};
  EXPECT_EQ(0, setitimer(ITIMER_REAL, &never, nullptr));
  // Unblocks the sender if it is still waiting for signals.
  close(signalPipe[0]);
  close(signalPipe[1]);
  int status = 1;
  EXPECT_EQ(sender_, waitpid(sender_, &status, 0));
  EXPECT_EQ(0, status) << "the sender failed to send the body";
}

void withEveryHandleExcept(uint32_t leftOut, const std::function<void(TarnHandle *)> &look) {
  look(nullptr);
  TarnHandle none = 0;
  look(&none);
  EXPECT_EQ(0U, none);
  for (const uint32_t magic : {TARN_REQUEST_MAGIC, TARN_ENVIRONMENT_MAGIC, TARN_FORM_ENTRY_MAGIC,
                               TARN_FORM_ENTRY_LIST_MAGIC, TARN_BYTE_BUFFER_MAGIC}) {
    if (magic == leftOut) continue;
    Node node(magic);
    const TarnHandle before = node.value();
    look(node);
    EXPECT_EQ(before, node.value());
    EXPECT_TRUE(CGIgs_IsA(node, magic));
  }
  List list;
  const TarnHandle before = list.value();
  look(list);
  EXPECT_EQ(before, list.value());
  EXPECT_TRUE(TARNGenericList_IsA(list));
}

std::string restOfStandardInput() {
  std::string rest;
  for (int byte = std::getchar(); byte != EOF; byte = std::getchar()) {
    rest.push_back(static_cast<char>(byte));
  }
  return rest;
}

}  // namespace tarn_test
