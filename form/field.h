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
};

}  // namespace tarn::form

// Forms can have many fields, so a record is small: 12 bytes for most fields, and more only where a
// number does not fit or there is a file name or a header. The name and the file name follow, each
// with a zero byte; for kept fields then the headers and the value.
struct TarnFormField {
  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr uint32_t kShortName = 0xFFF;
  static constexpr uint32_t kShortValue = UINT16_MAX;

  // What follows a record that needs it.
  struct Wide {
    uint32_t name_size;
    uint32_t filename_size;  // kNone if there is no file name
    uint32_t headers_size;
    uint32_t in_file;  // the value is in TarnForm::spool, and a Spooled is here
    uint32_t offset_words[2];
    uint32_t size_words[2];
  };

  // These are for records without a Wide.
  uint32_t place;  // the word of the block in which the record begins
  uint32_t short_offset;
  uint32_t short_size : 16;
  uint32_t short_name_size : 12;
  uint32_t is_wide : 1;
  uint32_t is_kept : 1;
  uint32_t has_usual_headers : 1;  // they are not stored; see keptHeader()
  uint32_t unused : 1;             // so that a record can be written without being read

  uint32_t nameSize() const { return is_wide ? wide().name_size : short_name_size; }
  uint32_t filenameSize() const { return is_wide ? wide().filename_size : kNone; }
  uint64_t offset() const { return is_wide ? join(wide().offset_words) : short_offset; }
  uint64_t size() const { return is_wide ? join(wide().size_words) : short_size; }
  bool isInFile() const { return is_wide && wide().in_file != 0; }

  TarnForm *form() const {
    const uint32_t *words = reinterpret_cast<const uint32_t *>(this) - place;
    return reinterpret_cast<const tarn::form::BlockHead *>(words)->form;
  }
  bool isKept() const { return is_kept; }

  const char *name() const { return reinterpret_cast<const char *>(this + 1) + widthOfWide(); }
  std::string_view nameView() const { return {name(), nameSize()}; }
  const char *filename() const { return filenameSize() == kNone ? nullptr : afterName(); }
  // Of a kept field.
  std::string_view headers() const {
    return {startOfHeaders(), is_wide ? wide().headers_size : size_t{0}};
  }
  const char *value() const { return startOfHeaders() + headers().size(); }
  char *value() { return const_cast<char *>(std::as_const(*this).value()); }

  Wide &wide() { return *reinterpret_cast<Wide *>(this + 1); }
  const Wide &wide() const { return *reinterpret_cast<const Wide *>(this + 1); }
  static void split(uint64_t number, uint32_t (&words)[2]) {
    words[0] = static_cast<uint32_t>(number);
    words[1] = static_cast<uint32_t>(number >> 32);
  }

 private:
  size_t widthOfWide() const { return is_wide ? sizeof(Wide) : 0; }
  const char *afterName() const { return name() + nameSize() + 1; }
  const char *startOfHeaders() const {
    const char *after = afterName();
    return filenameSize() == kNone ? after : after + filenameSize() + 1;
  }
  static uint64_t join(const uint32_t (&words)[2]) { return uint64_t{words[1]} << 32 | words[0]; }
};

namespace tarn::form {

// What a record says. Views of nothing have no data().
struct FieldTexts {
  std::string_view name;
  std::string_view filename;
  std::string_view headers;
  bool usual_headers = false;  // then `headers` is empty
};

// Records in one block, which moves while records are added: all kept fields, or the current one.
class Records {
 public:
  explicit Records(bool kept) : kept_(kept) {}

  // Adds a record; the current one replaces the one before. The texts' bytes must not be in this
  // block. Returns null if memory runs out. Bytes added with append() go behind its texts.
  TarnFormField *add(TarnForm *form, const FieldTexts &texts, uint64_t offset);

  // The same for a record that has only a name: begin() returns where to write at most `room` bytes,
  // or null, and end() says how many there are. Room and offset are limited by what a record without
  // a Wide can say.
  char *begin(TarnForm *form, size_t room) {
    char *place = makeRoom(form, sizeof(TarnFormField) + room + 1);
    return place ? place + sizeof(TarnFormField) : nullptr;
  }
  // Like begin(), for the current record, if the block already has room.
  char *beginAgain(size_t room) {
    if (ready_ < sizeof(BlockHead) + sizeof(TarnFormField) + room + 1) return nullptr;
    bytes_.cut(sizeof(BlockHead));
    return bytes_.end() + sizeof(TarnFormField);
  }
  TarnFormField *end(size_t name_size, uint64_t offset) {
    TarnFormField *record = put(static_cast<uint32_t>(offset), name_size);
    bytes_.grow(sizeof(TarnFormField) + name_size + 1);
    bytes_.data()[bytes_.size() - 1] = '\0';
    return record;
  }

  // The same for a kept field whose value is also there, behind a byte for the name's zero byte. There is
  // room for a zero byte behind it. Returns the record's place.
  uint32_t end(size_t name_size, size_t value_size, uint64_t offset) {
    const auto place = static_cast<uint32_t>(bytes_.size() / kWord);
    TarnFormField *record = put(static_cast<uint32_t>(offset), name_size);
    record->short_size = static_cast<uint32_t>(value_size) & TarnFormField::kShortValue;
    char *const name = reinterpret_cast<char *>(record + 1);
    name[name_size] = '\0';
    name[name_size + 1 + value_size] = '\0';
    bytes_.grow(sizeof(TarnFormField) + name_size + value_size + 2);
    return place;
  }

  // Sets the size of the last record's value, which is behind it. Returns false if memory runs out.
  bool setSize(uint32_t place, uint64_t size) {
    if (size > TarnFormField::kShortValue || at(place)->is_wide) return setLongSize(place, size);
    at(place)->short_size = static_cast<uint32_t>(size) & TarnFormField::kShortValue;
    return true;
  }

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
  static constexpr size_t kWord = sizeof(uint32_t);

  // Where the next record begins, which may have `size` bytes.
  char *makeRoom(TarnForm *form, size_t size) {
    if (!kept_ && ready_ > 0) bytes_.cut(sizeof(BlockHead));
    const size_t used = bytes_.size() % kWord;
    if (bytes_.size() + size > ready_ && !makeMoreRoom(form, size)) return nullptr;
    if (used > 0) bytes_.grow(kWord - used);
    return bytes_.end();
  }
  bool makeMoreRoom(TarnForm *form, size_t size);

  // Writes a record without texts at the end of the block.
  TarnFormField *put(uint32_t offset, size_t name_size) {
    auto *record = reinterpret_cast<TarnFormField *>(bytes_.end());
    const auto place = static_cast<uint32_t>(bytes_.size() / kWord);
    const auto name = static_cast<uint32_t>(name_size);
    *record = {place, offset, 0, name & TarnFormField::kShortName, 0, kept_, 0, 0};
    return record;
  }
  bool setLongSize(uint32_t place, uint64_t size);
  bool widen(uint32_t place);

  Bytes bytes_;
  bool kept_;
  size_t ready_ = 0;  // records may end there
};

}  // namespace tarn::form

#endif
