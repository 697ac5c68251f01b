#include "form/source.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace tarn::form {
namespace {

// The buffer holds a little more than kBufferSize, so that kBufferSize bytes can be handed out and
// what may be the beginning of a delimiter is still there.
constexpr size_t kLookAhead = size_t{8} * 1024;

// A large block of malloc() begins 16 bytes behind the start of a page. Some processors copy a file's
// pages to such a place four times slower than to one of these.
constexpr size_t kAlignment = 64;

// A read of less than the rest ends where a block of the file does, which is faster.
constexpr uint64_t kBlock = 4096;

uint64_t now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<uint64_t>(time.tv_sec) * 1000 + static_cast<uint64_t>(time.tv_nsec) / 1000000;
}

uint64_t inMilliseconds(uint64_t seconds) {
  return seconds < UINT64_MAX / 2000 ? seconds * 1000 : UINT64_MAX / 2;
}

}  // namespace

Source::~Source() { std::free(block_); }

void Source::openMemory(std::string_view bytes) {
  begin_ = bytes.data();
  end_ = begin_ + bytes.size();
  length_ = bytes.size();
}

void Source::openDescriptor(int descriptor, uint64_t length) {
  descriptor_ = descriptor;
  length_ = length;
}

bool Source::startReading(const Limits &limits, Problem &problem) {
  constexpr size_t most = kBufferSize + kLookAhead;
  capacity_ = length_ < most ? static_cast<size_t>(length_) : most;
  block_ = static_cast<char *>(std::malloc(kAlignment + capacity_ + 1));
  if (!block_) {
    problem.reportOutOfMemory(position_);
    return false;
  }
  buffer_ = block_ + kAlignment - reinterpret_cast<uintptr_t>(block_) % kAlignment;
  begin_ = end_ = buffer_;
  struct stat about;
  waits_ = fstat(descriptor_, &about) != 0 || !S_ISREG(about.st_mode);
  const uint64_t total = limits[TARN_FORM_TOTAL_SECONDS];
  deadline_ = total == TARN_FORM_UNLIMITED ? UINT64_MAX : now() + inMilliseconds(total);
  return true;
}

// Waits until a byte, the end or an error can be read.
bool Source::wait(const Limits &limits, Problem &problem) const {
  const uint64_t seconds = limits[TARN_FORM_WAIT_SECONDS];
  const uint64_t patience =
      seconds == TARN_FORM_UNLIMITED ? UINT64_MAX : now() + inMilliseconds(seconds);
  const uint64_t end = patience < deadline_ ? patience : deadline_;
  const auto report = [&](TarnFormLimit limit) {
    return problem.reportLimit(limit, limits[limit], arrived());
  };
  for (;;) {
    int timeout = -1;
    if (end != UINT64_MAX) {
      const uint64_t time = now();
      // Bytes can keep arriving until it is too late.
      if (time >= deadline_) return report(TARN_FORM_TOTAL_SECONDS);
      const uint64_t left = time < end ? end - time : 0;
      timeout = left < INT_MAX ? static_cast<int>(left) : INT_MAX;
    }
    pollfd waiting = {descriptor_, POLLIN, 0};
    const int ready = poll(&waiting, 1, timeout);
    if (ready > 0 || (ready < 0 && errno != EINTR)) return true;  // read() tells what it is
    if (ready == 0 && patience < deadline_ && now() >= patience) {
      return report(TARN_FORM_WAIT_SECONDS);
    }
  }
}

bool Source::more(const Limits &limits, Problem &problem) {
  if (problem || at_end_) return false;
  if (inMemory() || arrived() == length_) return false;
  if (!buffer_ && !startReading(limits, problem)) return false;

  const size_t kept = window().size();
  if (kept > 0 && begin_ != buffer_) std::memmove(buffer_, begin_, kept);
  begin_ = buffer_;
  end_ = buffer_ + kept;
  const uint64_t missing = length_ - arrived();
  size_t room = capacity_ - kept;
  if (missing <= room) {
    room = static_cast<size_t>(missing);
  } else if (const auto beyond = static_cast<size_t>((arrived() + room) % kBlock); beyond < room) {
    room -= beyond;
  }
  const ssize_t count = readOnce(room, limits, problem);
  if (count > 0) {
    end_ += count;
    // A known length was compared with the limit before.
    const uint64_t most = limits[TARN_FORM_BODY_SIZE];
    return arrived() <= most || problem.reportLimit(TARN_FORM_BODY_SIZE, most, most);
  }
  at_end_ = true;
  if (problem || length_ == TARN_FORM_UNLIMITED) return false;
  return problem.report(TARN_FORM_CUT_SHORT, arrived(),
                        "cut short: the body is shorter than its length");
}

// Reads some bytes behind the window. Returns how many; 0 at the end and with a problem.
ssize_t Source::readOnce(size_t most, const Limits &limits, Problem &problem) {
  for (;;) {
    if (waits_ && !wait(limits, problem)) return 0;
    const ssize_t count = read(descriptor_, buffer_ + window().size(), most);
    if (count >= 0) return count;
    if (errno == EAGAIN) waits_ = true;
    if (errno != EINTR && errno != EAGAIN) {
      problem.report(TARN_FORM_READ_ERROR, arrived(), "the body cannot be read");
      return 0;
    }
  }
}

}  // namespace tarn::form
