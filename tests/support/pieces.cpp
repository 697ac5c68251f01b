#include "support/pieces.h"

#include <errno.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {
thread_local tarn_test::Pieces *current;
}

extern "C" ssize_t read(int descriptor, void *buffer, size_t size) {
  if (current && descriptor == tarn_test::Pieces::kDescriptor) return current->read(buffer, size);
  return syscall(SYS_read, descriptor, buffer, size);
}

// The C library's header says that poll() only writes to its argument.
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
extern "C" int poll(pollfd *files, nfds_t count, int timeout) {
  if (current && count == 1 && files->fd == tarn_test::Pieces::kDescriptor) return current->poll();
  timespec time = {timeout / 1000, timeout % 1000 * 1000000L};
  return static_cast<int>(
      syscall(SYS_ppoll, files, count, timeout < 0 ? nullptr : &time, nullptr, 0));
}

namespace tarn_test {

std::string part(const std::string &headers, const std::string &value,
                 const std::string &boundary) {
  return "--" + boundary + "\r\nContent-Disposition: form-data; " + headers + "\r\n\r\n" + value +
         "\r\n";
}

Pieces::Pieces(std::string_view body, std::vector<size_t> sizes, int error)
    : body_(body), sizes_(std::move(sizes)), error_(error) {
  current = this;
}

Pieces::~Pieces() { current = nullptr; }

int Pieces::poll() const {
  const int error = failing ? failing() : 0;
  if (error == 0) return 1;
  errno = error;
  return -1;
}

ptrdiff_t Pieces::read(void *buffer, size_t size) {
  if (next_ == 1 && meanwhile) meanwhile();
  if (const int error = failing ? failing() : 0) {
    errno = error;
    return -1;
  }
  const size_t piece = sizes_[next_++ % sizes_.size()];
  const size_t count = std::min({piece, size, body_.size() - taken_});
  if (count == 0 && error_ != 0) {
    errno = error_;
    return -1;
  }
  std::memcpy(buffer, body_.data() + taken_, count);
  taken_ += count;
  return static_cast<ptrdiff_t>(count);
}

ModelResult readAll(TarnForm *form) {
  ModelResult result;
  while (TarnFormField *field = TarnForm_next(form)) {
    ModelField read;
    read.name.assign(TarnFormField_name(field), static_cast<size_t>(TarnFormField_nameSize(field)));
    if (const char *name = TarnFormField_filename(field)) {
      read.filename.emplace(name, static_cast<size_t>(TarnFormField_filenameSize(field)));
    }
    if (const char *type = TarnFormField_type(field)) {
      read.content_type.emplace(
          type, static_cast<size_t>(TarnFormField_headerSize(field, "Content-Type")));
    }
    const void *block = nullptr;
    int64_t size = 0;
    while ((size = TarnFormField_block(field, &block)) > 0) {
      read.value.append(static_cast<const char *>(block), static_cast<size_t>(size));
    }
    if (size < 0) break;
    result.fields.push_back(std::move(read));
  }
  result.problem = TarnForm_problemName(TarnForm_problem(form));
  TarnForm_close(form);
  return result;
}

ModelResult readFromMemory(const char *type, std::string_view body) {
  return readAll(TarnForm_openMemory(type, body.data(), body.size()));
}

ModelResult readInPieces(const char *type, std::string_view body,
                         const std::vector<size_t> &sizes) {
  const Pieces pieces(body, sizes);
  TarnForm *form = TarnForm_openDescriptor(type, Pieces::kDescriptor, body.size());
  // Asking for the time would take a third of the whole time.
  TarnForm_setLimit(form, TARN_FORM_WAIT_SECONDS, TARN_FORM_UNLIMITED);
  return readAll(form);
}

}  // namespace tarn_test
