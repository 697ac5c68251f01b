#include "serve/sender.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tarn::server {
namespace {

// A larger block is given back once all of it has been sent.
constexpr size_t kMostKept = size_t{8} * 1024;

// Bytes that have been sent are dropped from the front of the block when there are as many.
constexpr size_t kMostSent = size_t{64} * 1024;

// Takes bytes from the front of a text.
std::string_view takeFront(std::string_view &text, size_t most) {
  const std::string_view front(text.data(), std::min(text.size(), most));
  text.remove_prefix(front.size());
  return front;
}

iovec part(std::string_view bytes) { return {const_cast<char *>(bytes.data()), bytes.size()}; }

}  // namespace

void Sender::add(std::string_view records) {
  iovec parts[] = {part(records)};
  send(parts, 1, true);
}

void Sender::stream(RecordType type, uint16_t request, std::string_view first,
                    std::string_view second, bool wait) {
  while (!first.empty() || !second.empty()) {
    const std::string_view a = takeFront(first, kMostContent);
    const std::string_view b = takeFront(second, kMostContent - a.size());
    char header[kRecordHeaderSize];
    writeRecordHeader({type, request, static_cast<uint16_t>(a.size() + b.size()), 0}, header);
    iovec parts[] = {{header, sizeof header}, part(a), part(b)};
    send(parts, 3, wait);
  }
}

size_t Sender::sendNow(iovec *parts, size_t count) {
  msghdr message = {};
  message.msg_iov = parts;
  message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
  for (;;) {
    const ssize_t sent = sendmsg(socket_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent >= 0) {
      total_ += static_cast<uint64_t>(sent);
      return static_cast<size_t>(sent);
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) error_ = errno;
    return 0;
  }
}

void Sender::send(iovec *parts, size_t count, bool wait) {
  if (error_ != 0) return;
  if (begun_) {
    parts->iov_base = static_cast<char *>(parts->iov_base) + 1;
    --parts->iov_len;
    begun_ = false;
  }
  size_t sent = wait || unsent() > 0 ? 0 : sendNow(parts, count);
  for (size_t i = 0; i < count; ++i) {
    std::string_view rest(static_cast<const char *>(parts[i].iov_base), parts[i].iov_len);
    sent -= takeFront(rest, sent).size();
    if (!unsent_.append(rest)) error_ = ENOMEM;
  }
}

void Sender::flush() {
  while (unsent() > 0 && error_ == 0) {
    iovec parts[] = {{unsent_.data() + sent_, unsent()}};
    const size_t sent = sendNow(parts, 1);
    if (sent == 0) break;
    sent_ += sent;
  }
  const size_t left = unsent();
  if (left > 0 && sent_ < kMostSent) return;
  if (left > 0) std::memmove(unsent_.data(), unsent_.data() + sent_, left);
  if (left > 0) {
    unsent_.cut(left);
  } else {
    unsent_.clear(kMostKept);
  }
  sent_ = 0;
}

void Sender::probe() {
  if (begun_ || unsent() > 0 || error_ != 0) return;
  char header[kRecordHeaderSize];
  writeRecordHeader({}, header);
  iovec parts[] = {{header, 1}};
  begun_ = sendNow(parts, 1) == 1;
}

}  // namespace tarn::server
