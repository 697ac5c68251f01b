// What is counted and logged of one request.
#ifndef TARN_SERVE_ACCOUNT_H
#define TARN_SERVE_ACCOUNT_H

#include <cstdint>
#include <string_view>

#include "serve/access_log.h"
#include "serve/figures.h"

namespace tarn::server {

// Where it goes; null for nowhere.
struct Books {
  Figures *figures = nullptr;
  AccessLog *access_log = nullptr;
};

// Of a connection's current request, if there is one. Every request that begins ends once.
class Account {
 public:
  explicit Account(const Books &books) : books_(books) {}

  void begin();                         // its first record has arrived
  void arrive();                        // all of it has arrived
  void start();                         // its child is started
  void addPage(std::string_view page);  // this service has answered instead of the script
  bool isOpen() const { return begun_ != 0; }

  // Ends it. The entry's times and, after addPage(), its size are filled in here.
  void end(AccessEntry entry);

  // What arrived is not a request.
  void countNotFastCgi() const;

 private:
  const Books &books_;
  uint64_t begun_ = 0;  // 0 without a request
  uint64_t arrived_ = 0;
  uint64_t started_ = 0;  // 0 without a child
  uint64_t page_size_ = 0;
};

}  // namespace tarn::server

#endif
