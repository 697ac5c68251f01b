#include "form/field.h"

namespace tarn::form {
namespace {

// What a block begins with. Records find it by their place.
struct BlockHead {
  TarnForm *form;
  uint64_t kept;
};

const BlockHead &headOf(const TarnFormField &field) {
  const uint32_t *words = reinterpret_cast<const uint32_t *>(&field) - field.place;
  return *reinterpret_cast<const BlockHead *>(words);
}

}  // namespace

TarnFormField *Records::add(TarnForm *form, bool kept, std::string_view name, const char *filename,
                            size_t filename_size, std::string_view headers, uint64_t offset) {
  constexpr size_t word = sizeof(uint32_t);
  if (bytes_.size() == 0) {
    const BlockHead head = {form, kept};
    if (!bytes_.append({reinterpret_cast<const char *>(&head), sizeof head})) return nullptr;
  }
  const size_t padding = (word - bytes_.size() % word) % word;
  const size_t place = (bytes_.size() + padding) / word;
  const size_t texts = name.size() + 1 + (filename ? filename_size + 1 : 0) + headers.size() + 1;
  if (place >= UINT32_MAX || name.size() >= UINT32_MAX || filename_size >= UINT32_MAX ||
      headers.size() >= INT32_MAX || !bytes_.reserve(padding + sizeof(TarnFormField) + texts)) {
    return nullptr;
  }

  TarnFormField record = {};
  record.place = static_cast<uint32_t>(place);
  record.name_size = static_cast<uint32_t>(name.size());
  record.filename_size = filename ? static_cast<uint32_t>(filename_size) : TarnFormField::kNone;
  record.headers_size = static_cast<uint32_t>(headers.size()) & INT32_MAX;
  record.setOffset(offset);
  // There is room for all of it.
  bytes_.append({"\0\0\0", padding});
  bytes_.append({reinterpret_cast<const char *>(&record), sizeof record});
  bytes_.append(name);
  bytes_.append('\0');
  if (filename) {
    bytes_.append({filename, filename_size});
    bytes_.append('\0');
  }
  bytes_.append(headers);
  bytes_.append('\0');
  return at(record.place);
}

}  // namespace tarn::form

TarnForm *TarnFormField::form() const { return tarn::form::headOf(*this).form; }
bool TarnFormField::isKept() const { return tarn::form::headOf(*this).kept != 0; }
