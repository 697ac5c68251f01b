/* Runs a program one instruction at a time, and prints how many it executed and how many of them were
 * CPUID. Each repetition of a string instruction counts.
 *
 *   step PROGRAM
 */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

static void run(char *program) {
  char *arguments[] = {program, NULL};
  if (ptrace(PTRACE_TRACEME, 0, NULL, NULL) != 0) _exit(127);
  if (dup2(open("/dev/null", O_WRONLY), 1) != 1) _exit(127);
  execv(program, arguments);
  _exit(127);
}

int main(int count, char **arguments) {
  if (count != 2) return 2;
  const pid_t child = fork();
  if (child == 0) run(arguments[1]);
  long instructions = 0;
  long identifications = 0;
  int status;
  while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
    struct user_regs_struct registers;
    if (ptrace(PTRACE_GETREGS, child, NULL, &registers) != 0) return 1;
    errno = 0;
    const long bytes = ptrace(PTRACE_PEEKTEXT, child, registers.rip, NULL);
    if (errno == 0 && (bytes & 0xffff) == 0xa20f) ++identifications;
    ++instructions;
    if (ptrace(PTRACE_SINGLESTEP, child, NULL, NULL) != 0) return 1;
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return 1;
  printf("%ld %ld\n", instructions, identifications);
  return 0;
}
