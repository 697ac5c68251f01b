// The system calls of a service that are not among those of support/failing_calls.cpp: sockets,
// pipes and processes.
#include <dlfcn.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

#include "support/failing_calls.h"

using tarn_test::calls;

// Names with 64 are those for files larger than 2 GiB.
#define TARN_WATCH(type, name, symbol, parameters, arguments)                                \
  extern "C" type watched_##name parameters __asm__(symbol);                                 \
  extern "C" type watched_##name parameters {                                                \
    static const auto real = reinterpret_cast<type(*) parameters>(dlsym(RTLD_NEXT, symbol)); \
    return calls.fail(#name) ? -1 : real arguments;                                          \
  }

TARN_WATCH(int, accept4, "accept4", (int file, sockaddr *address, socklen_t *size, int flags),
           (file, address, size, flags))
TARN_WATCH(int, bind, "bind", (int file, const sockaddr *address, socklen_t size),
           (file, address, size))
TARN_WATCH(int, chmod, "chmod", (const char *path, mode_t mode), (path, mode))
TARN_WATCH(int, clone, "clone", (int (*start)(void *), void *stack, int flags, void *argument, ...),
           (start, stack, flags, argument))
TARN_WATCH(int, connect, "connect", (int file, const sockaddr *address, socklen_t size),
           (file, address, size))
TARN_WATCH(int, dup2, "dup2", (int from, int to), (from, to))
TARN_WATCH(int, epoll_ctl, "epoll_ctl", (int queue, int action, int file, epoll_event *event),
           (queue, action, file, event))
TARN_WATCH(pid_t, fork, "fork", (), ())
TARN_WATCH(int, getsockopt, "getsockopt",
           (int file, int level, int name, void *value, socklen_t *size),
           (file, level, name, value, size))
TARN_WATCH(int, listen, "listen", (int file, int most), (file, most))
TARN_WATCH(off64_t, lseek, "lseek64", (int file, off64_t offset, int from), (file, offset, from))
TARN_WATCH(int, memfd_create, "memfd_create", (const char *name, unsigned flags), (name, flags))
TARN_WATCH(int, pipe2, "pipe2", (int *ends, int flags), (ends, flags))
TARN_WATCH(ssize_t, read, "read", (int file, void *bytes, size_t size), (file, bytes, size))
TARN_WATCH(ssize_t, recv, "recv", (int file, void *bytes, size_t size, int flags),
           (file, bytes, size, flags))
TARN_WATCH(ssize_t, send, "send", (int file, const void *bytes, size_t size, int flags),
           (file, bytes, size, flags))
TARN_WATCH(ssize_t, sendfile, "sendfile64", (int to, int from, off64_t *offset, size_t size),
           (to, from, offset, size))
TARN_WATCH(ssize_t, sendmsg, "sendmsg", (int file, const msghdr *message, int flags),
           (file, message, flags))
TARN_WATCH(int, setsockopt, "setsockopt",
           (int file, int level, int name, const void *value, socklen_t size),
           (file, level, name, value, size))
TARN_WATCH(int, socket, "socket", (int family, int type, int protocol), (family, type, protocol))
TARN_WATCH(int, shutdown, "shutdown", (int file, int how), (file, how))

#undef TARN_WATCH
