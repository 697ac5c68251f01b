/* The least that a FastCGI service with a process for each request can do: it believes everything,
 * limits nothing and waits for nothing. It is what tarn_serve() is measured against. */
#define _GNU_SOURCE 1
#include <signal.h>
#include <stdint.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include "serve.h"

enum { BEGIN = 1, END = 3, PARAMS = 4, STDIN = 5, STDOUT = 6 };

static void readAll(int socket, void *to, size_t size) {
  char *place = (char *)to;
  while (size > 0) {
    const ssize_t got = read(socket, place, size);
    if (got <= 0) _exit(1);
    place += got;
    size -= (size_t)got;
  }
}

static size_t takeSize(const unsigned char **place) {
  const unsigned char *p = *place;
  const int is_long = *p >= 0x80;
  *place += is_long ? 4 : 1;
  return is_long ? (size_t)(p[0] & 0x7F) << 24 | (size_t)p[1] << 16 | (size_t)p[2] << 8 | p[3] : *p;
}

static void setParameters(unsigned char *place, size_t size) {
  const unsigned char *at = place;
  while (at < place + size) {
    const size_t name = takeSize(&at);
    const size_t value = takeSize(&at);
    char *entry = (char *)malloc(name + value + 2);
    memcpy(entry, at, name);
    entry[name] = '=';
    memcpy(entry + name + 1, at + name, value);
    entry[name + 1 + value] = '\0';
    putenv(entry);
    at += name + value;
  }
}

static void put(unsigned char *header, int type, size_t size) {
  const unsigned char bytes[8] = {
      1, (unsigned char)type, 0, 1, (unsigned char)(size >> 8), (unsigned char)size, 0, 0};
  memcpy(header, bytes, 8);
}

static void answer(int socket) {
  static unsigned char parameters[65536];
  size_t size = 0;
  const int body = memfd_create("body", 0);
  for (;;) {
    unsigned char header[8];
    static unsigned char content[65536 + 255];
    readAll(socket, header, 8);
    const size_t length = (size_t)header[4] << 8 | header[5];
    readAll(socket, content, length + header[6]);
    if (header[1] == PARAMS && size + length <= sizeof parameters) {
      memcpy(parameters + size, content, length);
      size += length;
    }
    if (header[1] == STDIN && length == 0) break;
    if (header[1] == STDIN && write(body, content, length) < 0) _exit(1);
  }
  setParameters(parameters, size);
  lseek(body, 0, SEEK_SET);
  dup2(body, 0);
  const int output = memfd_create("output", 0);
  dup2(output, 1);
  const int status = script();
  fflush(stdout);

  static unsigned char records[8 + 65535 + 24 + 8];
  const ssize_t written = pread(output, records + 8, 65535, 0);
  const size_t count = written > 0 ? (size_t)written : 0;
  put(records, STDOUT, count);
  put(records + 8 + count, STDOUT, 0);
  put(records + 16 + count, END, 8);
  memset(records + 24 + count, 0, 8);
  records[27 + count] = (unsigned char)status;
  if (write(socket, records, 32 + count) < 0) _exit(1);
  _exit(0);
}

int main(void) {
  signal(SIGCHLD, SIG_IGN);
  for (;;) {
    const int socket = accept(0, NULL, NULL);
    if (socket < 0) continue;
    if (fork() == 0) answer(socket);
    close(socket);
  }
}
