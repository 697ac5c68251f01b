#include "form/field.h"

namespace tarn::form {
namespace {

// Writes a text with its zero byte. Returns where that ends.
char *put(char *place, std::string_view text) {
  if (!text.empty()) std::memcpy(place, text.data(), text.size());
  place[text.size()] = '\0';
  return place + text.size() + 1;
}

}  // namespace

char *Records::makeRoom(TarnForm *form, bool kept, size_t size) {
  constexpr size_t word = sizeof(uint32_t);
  const BlockHead head = {form, kept};
  if (size > UINT32_MAX || !bytes_.reserve(sizeof head + word + size)) return nullptr;
  if (bytes_.size() == 0) {
    std::memcpy(bytes_.end(), &head, sizeof head);
    bytes_.grow(sizeof head);
  }
  while (bytes_.size() % word != 0) bytes_.grow(1);
  return bytes_.size() / word < UINT32_MAX ? bytes_.end() : nullptr;
}

TarnFormField *Records::add(TarnForm *form, std::string_view name, const char *filename,
                            size_t filename_size, std::string_view headers, uint64_t offset) {
  const bool fits =
      name.size() < UINT32_MAX && filename_size < UINT32_MAX && headers.size() < INT32_MAX;
  if (!fits) return nullptr;
  const uint64_t texts = uint64_t{name.size()} + filename_size + headers.size() + 3;
  if (texts > UINT32_MAX - sizeof(TarnFormField)) return nullptr;
  char *place = makeRoom(form, false, sizeof(TarnFormField) + static_cast<size_t>(texts));
  if (!place) return nullptr;

  auto *record = reinterpret_cast<TarnFormField *>(place);
  *record = {};
  record->place = static_cast<uint32_t>(bytes_.size() / sizeof(uint32_t));
  record->name_size = static_cast<uint32_t>(name.size());
  record->filename_size = filename ? static_cast<uint32_t>(filename_size) : TarnFormField::kNone;
  record->headers_size = static_cast<uint32_t>(headers.size()) & INT32_MAX;
  record->setOffset(offset);
  char *end = put(place + sizeof(TarnFormField), name);
  if (filename) end = put(end, {filename, filename_size});
  end = put(end, headers);
  bytes_.grow(static_cast<size_t>(end - place));
  return record;
}

TarnFormField *Records::end(size_t name_size, uint64_t offset) {
  auto *record = reinterpret_cast<TarnFormField *>(bytes_.end());
  *record = {};
  record->place = static_cast<uint32_t>(bytes_.size() / sizeof(uint32_t));
  record->name_size = static_cast<uint32_t>(name_size);
  record->filename_size = TarnFormField::kNone;
  record->setOffset(offset);
  // The zero bytes behind the name and behind the headers that it does not have.
  std::memcpy(bytes_.end() + sizeof(TarnFormField) + name_size, "\0", 2);
  bytes_.grow(sizeof(TarnFormField) + name_size + 2);
  return record;
}

TarnFormField *Records::addCopy(TarnForm *form, const TarnFormField &field) {
  const auto size = static_cast<size_t>(field.value() - reinterpret_cast<const char *>(&field));
  char *place = makeRoom(form, true, size);
  if (!place) return nullptr;
  std::memcpy(place, &field, size);
  auto *record = reinterpret_cast<TarnFormField *>(place);
  record->place = static_cast<uint32_t>(bytes_.size() / sizeof(uint32_t));
  bytes_.grow(size);
  return record;
}

}  // namespace tarn::form
