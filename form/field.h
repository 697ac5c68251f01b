// How a field is kept: a record in a block, followed by its texts.
#ifndef TARN_FORM_FIELD_H
#define TARN_FORM_FIELD_H

#include <cstdint>
#include <string_view>
#include <utility>

#include "core/bytes.h"
#include "tarn_form.h"

namespace tarn::form {

// What a block of records begins with. Records find it by their place.
struct BlockHead {
  TarnForm *form;
  uint64_t kept;
};

}  // namespace tarn::form

// A record is made of 32-bit words to be small: forms can have many fields. The name, the file name
// and the headers follow it, each with a zero byte; for kept fields the value, too.
struct TarnFormField {
  static constexpr uint32_t kNone = UINT32_MAX;

  uint32_t place;          // the word of the block in which the record begins
  uint32_t name_size;      // in bytes
  uint32_t filename_size;  // kNone if there is no file name
  uint32_t headers_size : 31;
  uint32_t in_file : 1;  // the value is in TarnForm::spool, and a Spooled is here
  uint32_t offset_words[2];
  uint32_t size_words[2];

  uint64_t offset() const { return join(offset_words); }
  uint64_t size() const { return join(size_words); }
  void setSize(uint64_t size) { split(size, size_words); }
  void setOffset(uint64_t offset) { split(offset, offset_words); }

  TarnForm *form() const { return head().form; }
  bool isKept() const { return head().kept != 0; }

  const char *name() const { return reinterpret_cast<const char *>(this + 1); }
  const char *filename() const { return filename_size == kNone ? nullptr : afterName(); }
  std::string_view headers() const { return {startOfHeaders(), headers_size}; }
  const char *value() const { return startOfHeaders() + headers_size + 1; }
  char *value() { return const_cast<char *>(std::as_const(*this).value()); }

 private:
  const tarn::form::BlockHead &head() const {
    const uint32_t *words = reinterpret_cast<const uint32_t *>(this) - place;
    return *reinterpret_cast<const tarn::form::BlockHead *>(words);
  }
  const char *afterName() const { return name() + name_size + 1; }
  const char *startOfHeaders() const {
    return afterName() + (filename_size == kNone ? 0 : filename_size + 1);
  }
  static uint64_t join(const uint32_t (&words)[2]) { return uint64_t{words[1]} << 32 | words[0]; }
  static void split(uint64_t number, uint32_t (&words)[2]) {
    words[0] = static_cast<uint32_t>(number);
    words[1] = static_cast<uint32_t>(number >> 32);
  }
};

namespace tarn::form {

// Records in one block, which moves while records are added.
class Records {
 public:
  // Forgets the records.
  void clear() { bytes_.clear(); }

  // Adds a record for a field of a form. The texts' bytes must not be in this block. Returns null
  // if memory runs out. Bytes added with append() go behind its texts.
  TarnFormField *add(TarnForm *form, std::string_view name, const char *filename,
                     size_t filename_size, std::string_view headers, uint64_t offset);

  // The same for a record that has only a name, in a block without others: begin() returns where to
  // write at most `room` bytes, or null, and end() says how many there are.
  char *begin(TarnForm *form, size_t room) {
    clear();
    char *place = makeRoom(form, false, sizeof(TarnFormField) + room + 2);
    return place ? place + sizeof(TarnFormField) : nullptr;
  }
  TarnFormField *end(size_t name_size, uint64_t offset);

  // Adds a kept record with the texts of another block's record.
  TarnFormField *addCopy(TarnForm *form, const TarnFormField &field);

  Bytes &bytes() { return bytes_; }
  bool append(std::string_view bytes) { return bytes_.append(bytes); }
  bool append(char byte) { return bytes_.append(byte); }
  void cut(size_t size) { bytes_.cut(size); }

  TarnFormField *at(uint32_t place) {
    return reinterpret_cast<TarnFormField *>(bytes_.data() + size_t{place} * sizeof(uint32_t));
  }

  size_t size() const { return bytes_.size(); }
  void shrink() { bytes_.shrink(); }

 private:
  char *makeRoom(TarnForm *form, bool kept, size_t size);

  Bytes bytes_;
};

}  // namespace tarn::form

#endif
