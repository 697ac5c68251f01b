#include "form/field.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "core/text.h"

namespace tarn::form {
namespace {

// Blocks of kept fields from this size on get their pages before they are used, but not too many.
constexpr size_t kFewBytes = size_t{256} * 1024;
constexpr size_t kMostAhead = size_t{128} * 1024;

bool needsWide(const FieldTexts &texts, uint64_t offset) {
  return texts.filename.data() || !texts.headers.empty() ||
         texts.name.size() > TarnFormField::kShortName || offset > UINT32_MAX;
}

// Asks for the pages of a large block, which takes the kernel less time than a fault for each. Old
// kernels cannot do that.
void touch([[maybe_unused]] const char *from, [[maybe_unused]] size_t size) {
#ifdef MADV_POPULATE_WRITE
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto place = (reinterpret_cast<uintptr_t>(from) + page - 1) / page * page;
  madvise(reinterpret_cast<void *>(place), size / page * page, MADV_POPULATE_WRITE);
#endif
}

}  // namespace

bool Records::makeMoreRoom(TarnForm *form, size_t size) {
  const BlockHead head = {form};
  const size_t used = ready_ == 0 ? sizeof head : bytes_.size();
  if (size >= PTRDIFF_MAX / 2 || (used + size) / kWord >= UINT32_MAX) return false;
  const bool large = kept_ && used >= kFewBytes;
  const size_t ahead = std::min(large ? used / 8 : kept_ ? used : 0, kMostAhead);
  const size_t needed = used - bytes_.size() + size + kWord;
  const bool has_more = bytes_.reserve(needed + 2 * ahead);
  if (!has_more && !bytes_.reserve(needed)) return false;
  if (ready_ == 0) bytes_.append({reinterpret_cast<const char *>(&head), sizeof head});
  if (has_more && large) touch(bytes_.end(), size + ahead);
  ready_ = has_more ? used + size + ahead : used;
  return true;
}

TarnFormField *Records::add(TarnForm *form, const FieldTexts &texts, uint64_t offset) {
  const bool fits = texts.name.size() < UINT32_MAX && texts.filename.size() < UINT32_MAX &&
                    texts.headers.size() < UINT32_MAX;
  const uint64_t sizes = uint64_t{texts.name.size()} + texts.filename.size() + texts.headers.size();
  constexpr size_t most = sizeof(TarnFormField) + sizeof(TarnFormField::Wide) + 2;
  if (!fits || sizes > PTRDIFF_MAX - most) return nullptr;
  if (!makeRoom(form, static_cast<size_t>(sizes) + most)) return nullptr;

  const bool is_wide = needsWide(texts, offset);
  TarnFormField *record = put(static_cast<uint32_t>(offset), texts.name.size());
  record->has_usual_headers = texts.usual_headers;
  if (is_wide) {
    record->is_wide = 1;
    TarnFormField::Wide &wide = record->wide();
    wide = {};
    wide.name_size = static_cast<uint32_t>(texts.name.size());
    wide.filename_size =
        texts.filename.data() ? static_cast<uint32_t>(texts.filename.size()) : TarnFormField::kNone;
    wide.headers_size = static_cast<uint32_t>(texts.headers.size());
    TarnFormField::split(offset, wide.offset_words);
  }
  auto *const begin = reinterpret_cast<char *>(record);
  char *end = internal::copyTo(const_cast<char *>(record->name()), texts.name);
  if (texts.filename.data()) end = internal::copyTo(end, texts.filename);
  if (!texts.headers.empty()) {
    std::memcpy(end, texts.headers.data(), texts.headers.size());
    end += texts.headers.size();
  }
  bytes_.grow(static_cast<size_t>(end - begin));
  return record;
}

// Makes room for a Wide in the last record.
bool Records::widen(uint32_t place) {
  constexpr size_t size = sizeof(TarnFormField::Wide);
  if (!bytes_.reserve(size)) return false;
  TarnFormField &record = *at(place);
  auto *texts = reinterpret_cast<char *>(&record + 1);
  std::memmove(texts + size, texts, static_cast<size_t>(bytes_.end() - texts));
  bytes_.grow(size);
  TarnFormField::Wide &wide = record.wide();
  wide = {};
  wide.name_size = record.short_name_size;
  wide.filename_size = TarnFormField::kNone;
  TarnFormField::split(record.short_offset, wide.offset_words);
  record.is_wide = 1;
  return true;
}

bool Records::setLongSize(uint32_t place, uint64_t size) {
  if (!at(place)->is_wide && !widen(place)) return false;
  TarnFormField::split(size, at(place)->wide().size_words);
  return true;
}

}  // namespace tarn::form
