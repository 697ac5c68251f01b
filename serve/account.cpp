#include "serve/account.h"

#include <cstring>
#include <ctime>

namespace tarn::server {
namespace {

uint64_t microseconds(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  return static_cast<uint64_t>(time.tv_sec) * 1000000 + static_cast<uint64_t>(time.tv_nsec) / 1000;
}

// Never 0.
uint64_t currentMicroseconds() { return microseconds(CLOCK_MONOTONIC) + 1; }

void count(Figures &figures, const AccessEntry &entry, bool has_waited, bool is_lost) {
  const Figures::Change change(figures);
  ++change->ended[static_cast<size_t>(entry.failure)];
  const auto of_class = static_cast<size_t>(entry.status / 100);
  ++change->answers[of_class < Counters::kClasses ? of_class : 0];
  change->received_bytes += entry.received;
  change->sent_bytes += entry.sent;
  change->times.add(entry.duration);
  if (has_waited) change->waits.add(entry.wait);
  if (is_lost) ++change->lost_lines;
}

}  // namespace

void Account::begin() {
  begun_ = currentMicroseconds();
  started_ = 0;
  page_size_ = 0;
  if (books_.figures) ++Figures::Change(*books_.figures)->begun;
}

void Account::arrive() { arrived_ = currentMicroseconds(); }

void Account::start() { started_ = currentMicroseconds(); }

void Account::addPage(std::string_view page) {
  const auto *body = static_cast<const char *>(memmem(page.data(), page.size(), "\r\n\r\n", 4));
  if (body) page_size_ = static_cast<uint64_t>(page.data() + page.size() - (body + 4));
}

void Account::end(AccessEntry entry) {
  if (!isOpen()) return;
  entry.duration = currentMicroseconds() - begun_;
  entry.wait = started_ != 0 ? started_ - arrived_ : 0;
  if (page_size_ != 0) entry.sent = page_size_;
  begun_ = 0;
  bool is_lost = false;
  if (books_.access_log) {
    entry.begun = microseconds(CLOCK_REALTIME) - entry.duration;
    is_lost = !books_.access_log->write(entry);
  }
  // Whoever sees the request in the figures finds its line in the log.
  if (books_.figures) count(*books_.figures, entry, started_ != 0, is_lost);
}

void Account::countNotFastCgi() const {
  if (books_.figures) ++Figures::Change(*books_.figures)->not_fastcgi;
}

}  // namespace tarn::server
