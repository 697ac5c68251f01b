/* tarn-serve: serves FastCGI with any CGI program, which it runs for each request. See tarn-serve.1. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tarn_serve.h"

static const char help[] =
    "Usage: tarn-serve [OPTION]... [--] PROGRAM [ARGUMENT]...\n"
    "\n"
    "Serves FastCGI: runs a CGI program for each request. Listens on descriptor 0,\n"
    "on the sockets that systemd passes, or where --listen says. Defaults are in\n"
    "brackets.\n"
    "\n"
    "  --listen ADDRESS        unix:PATH, tcp:ADDRESS:PORT or tcp:[ADDRESS]:PORT; may\n"
    "                          be given 8 times\n"
    "  --socket-mode MODE      mode of the file of a Unix socket (0600)\n"
    "  --errors both|own       standard error goes to the server, too, or not (both)\n"
    "  --status ADDRESS        answer HTTP there: /status, /metrics, /ready\n"
    "  --access-log FILE       add a line for each request; - is standard output\n"
    "  --access-log-format common|json\n"
    "                          of these lines (common)\n"
    "  --children N            programs that run at once (2 for each processor)\n"
    "  --queue N               requests that wait for one; more get 503 (100)\n"
    "  --idle-connections N    connections besides those (150)\n"
    "  --seconds N             that a program may run (60)\n"
    "  --receive-seconds N     without a byte of a request (60)\n"
    "  --send-seconds N        without the server taking a byte of the response (60)\n"
    "  --body-size SIZE        of a request; more gets 413 (1G)\n"
    "  --body-in-memory SIZE   a larger body goes to a temporary file (1M)\n"
    "  --parameters N          of a request; more gets 431 (1000)\n"
    "  --parameters-size SIZE  of their names and values; more gets 431 (1M)\n"
    "  --processor-seconds N   that a program may use (60)\n"
    "  --address-space SIZE    of a program (no limit)\n"
    "  --open-files N          of a program (no limit)\n"
    "  --processes N           of the user, counted when a program forks (no limit)\n"
    "  --confine               a program may use nothing but what these options name:\n"
    "  --read PATH             read this file, or all in this folder\n"
    "  --write PATH            read and change this file, or all in this folder\n"
    "  --exec PATH             run this program, or all in this folder\n"
    "  --network               use IPv4 and IPv6\n"
    "  --unix-sockets          use Unix sockets\n"
    "  --attributes            change modes, owners, times and attributes of files\n"
    "  --unconfined-if-unsupported\n"
    "                          serve even if the kernel cannot do all of this\n"
    "  -h, --help              show the options\n"
    "  -V, --version           show the version\n"
    "\n"
    "SIZE is a number of bytes, with K, M or G for units of 1024. Signals: TERM and\n"
    "INT end the service after the running requests; HUP restarts it and loses none;\n"
    "USR1 writes the status to standard error.\n";

static int is(const char *argument, const char *letter, const char *name) {
  return strcmp(argument, letter) == 0 || strcmp(argument, name) == 0;
}

/* Where a request for help or for the version is among the arguments: before "--", or `count`. */
static int find_request(int count, char **arguments) {
  int i;
  for (i = 1; i < count && strcmp(arguments[i], "--") != 0; ++i) {
    if (is(arguments[i], "-h", "--help") || is(arguments[i], "-V", "--version")) return i;
  }
  return count;
}

int main(int count, char **arguments) {
  int request;
  int read;
  const char *program;
  if (getenv("GATEWAY_INTERFACE")) {
    fputs("tarn-serve: cannot run as a CGI script\n", stderr);
    return 2;
  }
  request = find_request(count, arguments);
  read = request > 1 ? tarn_serve_arguments(request - 1, arguments + 1) : 0;
  if (read < 0) return 2;
  /* If something before it is not an option, that is the program, and the request is for the program. */
  if (request < count && read == request - 1) {
    fputs(is(arguments[request], "-h", "--help") ? help : "tarn-serve " TARN_VERSION "\n", stdout);
    return fflush(stdout) != 0;
  }
  program = arguments[1 + read];
  if (!program) {
    fputs("tarn-serve: no program given; see tarn-serve --help\n", stderr);
    return 2;
  }
  if (program[0] == '-' && (read == 0 || strcmp(arguments[read], "--") != 0)) {
    fprintf(stderr, "tarn-serve: %s is not an option; see tarn-serve --help\n", program);
    return 2;
  }
  return tarn_serve_program(arguments + 1 + read);
}
