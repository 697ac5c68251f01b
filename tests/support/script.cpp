#include "support/script.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <utility>
#include <vector>

#include "support/processor_time.h"

namespace tarn_test {
namespace {

// Stops quietly if the script stops reading.
void feed(int pipe, std::string_view body) {
  auto *const before = std::signal(SIGPIPE, SIG_IGN);
  while (!body.empty()) {
    const ssize_t written = write(pipe, body.data(), body.size());
    if (written < 0) break;
    body.remove_prefix(static_cast<size_t>(written));
  }
  std::signal(SIGPIPE, before);
}

// What a script was given, for the message of a failure.
std::string shownRequest(const Variables &variables, std::string_view body) {
  std::string text = "a script with this request:\n";
  for (const auto &[name, value] : variables) text += "  " + name + "=" + shown(value) + "\n";
  return text + "  body " + shown(body);
}

[[noreturn]] void runScript(const Variables &variables, const std::function<void()> &script) {
  clearenv();
  limitProcessorTime(kSecondsForAnything);
  for (const auto &[name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
  script();
  const int status = testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS;
  // exit() runs code that has not run before. To translate it takes longer than most scripts do.
  std::fflush(nullptr);
  if (isTranslated()) _exit(status);
  std::exit(status);
}

}  // namespace

std::string shown(std::string_view bytes) {
  constexpr size_t kMost = 500;
  std::string text = testing::PrintToString(std::string(bytes.substr(0, kMost)));
  if (bytes.size() > kMost) text += "... (" + std::to_string(bytes.size()) + " bytes)";
  return text;
}

void asScript(const Variables &variables, std::string_view body,
              const std::function<void()> &script) {
  int input[2];
  ASSERT_EQ(0, pipe(input));
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    dup2(input[0], STDIN_FILENO);
    close(input[0]);
    close(input[1]);
    runScript(variables, script);
  }
  close(input[0]);
  feed(input[1], body);
  close(input[1]);
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  if (WIFSIGNALED(status)) {
    ADD_FAILURE() << "killed by signal " << WTERMSIG(status) << ": "
                  << shownRequest(variables, body);
  } else if (status != 0) {
    ADD_FAILURE() << "The messages above come from " << shownRequest(variables, body);
  }
}

void withEnvironment(const Variables &variables, const std::function<void()> &code) {
  std::vector<std::string> texts;
  for (const auto &[name, value] : variables) texts.push_back(name + "=" + value);
  std::vector<char *> pointers;
  for (std::string &text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  char **const before = std::exchange(environ, pointers.data());
  code();
  environ = before;
}

Variables get(const std::string &query) {
  return {{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query}};
}

Variables post(const std::string &contentType, std::string_view body) {
  return {{"REQUEST_METHOD", "POST"},
          {"CONTENT_TYPE", contentType},
          {"CONTENT_LENGTH", std::to_string(body.size())}};
}

}  // namespace tarn_test
