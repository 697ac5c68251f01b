// Helpers for the targets that send a request.
#ifndef TARN_FUZZ_REQUEST_H
#define TARN_FUZZ_REQUEST_H

#include "support.h"

namespace tarn_fuzz {

// The request of the current script, parsed by Tarn_new().
class Request {
 public:
  Request() : status_(Tarn_new(&handle_)) {}
  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;
  ~Request();

  TarnHandle *handle() { return &handle_; }
  TarnStatus status() const { return status_; }
  // The environment, the entry list or the file list.
  TarnHandle child(uint32_t slot) { return CGIgs_getStruct(&handle_, slot, TARN_REQUEST_MAGIC); }
  Form form();

 private:
  TarnHandle handle_ = 0;
  TarnStatus status_;
};

Text textOf(const char *text);
// No value if there is no byte buffer; empty if it has no bytes.
Text bytesOf(TarnHandle buffer);
Cookies cookiesOf(TarnHandle list);

// Compares a request with the expected form: entries, files, lookups and copies.
void expectForm(Request &request, const Form &form);

}  // namespace tarn_fuzz

#endif
