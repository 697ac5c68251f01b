#include "serve/handover.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace tarn::server {
namespace {

// A message of one byte carries a descriptor.
struct Message {
  Message() {
    header.msg_iov = &data;
    header.msg_iovlen = 1;
    header.msg_control = control;
    header.msg_controllen = sizeof control;
  }

  char byte = 0;
  iovec data = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr header = {};
};

}  // namespace

// Not SOCK_SEQPACKET, of which ten messages may wait on some systems.
bool openHandover(int (&ends)[2]) {
  return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0;
}

int sendDescriptor(int channel, int descriptor) {
  Message message;
  cmsghdr *header = CMSG_FIRSTHDR(&message.header);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof descriptor);
  std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
  while (sendmsg(channel, &message.header, MSG_NOSIGNAL) < 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

int receiveDescriptor(int channel) {
  for (;;) {
    Message message;
    const ssize_t count = recvmsg(channel, &message.header, MSG_CMSG_CLOEXEC);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return -1;
    const cmsghdr *header = CMSG_FIRSTHDR(&message.header);
    // Without a free descriptor, only the byte arrives: the connection is lost.
    if (!header || header->cmsg_type != SCM_RIGHTS) continue;
    int descriptor = -1;
    std::memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
    return descriptor;
  }
}

}  // namespace tarn::server
