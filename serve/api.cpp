#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "serve/environment.h"
#include "serve/options.h"
#include "serve/program.h"
#include "serve/program_files.h"
#include "serve/server.h"
#include "tarn_serve.h"

namespace tarn::server {
namespace {

Options options;
bool arguments_read = false;

// A CGI script's arguments can be words of the query, so only a service reads them.
bool readCommandLine() {
  CommandLine line;
  if (!line.read()) return true;  // there is no way to know it
  return readOptions(options, line.count() - 1, line.arguments() + 1) >= 0;
}

// What the callback prints goes to standard error, because it is not part of the answer.
int prepareForCgi() {
  const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  if (output >= 0) dup2(STDERR_FILENO, STDOUT_FILENO);
  const int status = options.prepare();
  std::fflush(stdout);
  std::clearerr(stdout);
  if (output >= 0) {
    dup2(output, STDOUT_FILENO);
    close(output);
  }
  return status;
}

int runAsCgi() {
  unsetenv("HTTP_PROXY");
  if (options.prepare) {
    if (const int status = prepareForCgi()) return status;
  }
  if (options.rights.confine && !confineSelf(options.rights, options.script)) return 1;
  if (options.script.program) {
    execvp(options.script.program[0], options.script.program);
    const int error = errno;
    std::fprintf(stderr, "tarn-serve: %s: %s\n", options.script.program[0], std::strerror(error));
    return statusOfMissingProgram(error);
  }
  return flushOutput(options.script.function());
}

// Whether the process was started as a service, or as a part of one.
bool isService(bool is_worker) {
  int inherited[1];
  return is_worker || options.listen_count > 0 || inheritedListeners(inherited, 1) > 0;
}

bool hasScript() {
  const Script &script = options.script;
  return script.function || (script.program && script.program[0]);
}

int run() {
  if (!hasScript()) {
    std::fputs("tarn-serve: there is no script to run\n", stderr);
    return statusOfMissingProgram(ENOENT);
  }
  // A service obeys these signals. They wait until it can, instead of ending it.
  sigset_t held;
  sigset_t before;
  sigemptyset(&held);
  sigaddset(&held, SIGHUP);
  sigaddset(&held, SIGUSR1);
  sigprocmask(SIG_BLOCK, &held, &before);
  const bool is_worker = wasStartedAsWorker();
  const bool is_cgi = !is_worker && isCgi();
  if (!is_cgi && !arguments_read && !readCommandLine()) return 2;
  if (!is_cgi && isService(is_worker)) return serve(options);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  return runAsCgi();
}

}  // namespace
}  // namespace tarn::server

int tarn_serve(int (*script)()) {
  tarn::server::options.script = {script, nullptr};
  return tarn::server::run();
}

int tarn_serve_program(char *const *arguments) {
  tarn::server::options.script = {nullptr, arguments};
  tarn::server::arguments_read = true;
  return tarn::server::run();
}

void tarn_serve_prepare(int (*callback)()) { tarn::server::options.prepare = callback; }

int tarn_serve_option(const char *name, const char *value) {
  if (!name) name = "";
  const char *problem = tarn::server::setOption(tarn::server::options, name, value);
  if (problem) std::fprintf(stderr, "tarn-serve: --%s %s\n", name, problem);
  return problem ? 0 : 1;
}

int tarn_serve_arguments(int count, char *const *arguments) {
  tarn::server::arguments_read = true;
  return tarn::server::readOptions(tarn::server::options, count, arguments);
}

int tarn_confine(void) {
  return tarn::server::confineSelf(tarn::server::options.rights, {}) ? 1 : 0;
}
