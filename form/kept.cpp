#include "form/kept.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "form/saving.h"
#include "form/text.h"

namespace tarn::form {
namespace {

// In a record whose value is in the spool, this takes the place of the value.
struct Spooled {
  uint64_t offset;
  void *mapping;
};

constexpr size_t kBlockSize = size_t{64} * 1024;

Spooled spooledValue(const TarnFormField &field) {
  Spooled spooled;
  std::memcpy(&spooled, field.value(), sizeof spooled);
  return spooled;
}

// ---- Loading ------------------------------------------------------------------------------------

bool raiseSpool(TarnForm &form, const char *sentence = "a temporary file cannot be written") {
  return form.problem.raise(TARN_FORM_OUT_OF_MEMORY, form.source.position(), sentence);
}

bool writeAt(int file, std::string_view bytes, uint64_t offset) {
  while (!bytes.empty()) {
    const ssize_t written = pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written < 0 && errno != EINTR) return false;
    if (written <= 0) continue;
    bytes.remove_prefix(static_cast<size_t>(written));
    offset += static_cast<uint64_t>(written);
  }
  return true;
}

// Begins a value in the spool, where it can be mapped.
bool openSpooled(TarnForm &form, Spooled &spooled) {
  if (form.spool < 0) form.spool = openUnnamed();
  if (form.spool < 0) return raiseSpool(form);
  const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  spooled = {(form.spool_size + page - 1) / page * page, nullptr};
  form.spool_size = spooled.offset;
  return true;
}

bool spool(TarnForm &form, std::string_view bytes) {
  if (!writeAt(form.spool, bytes, form.spool_size)) return raiseSpool(form);
  form.spool_size += bytes.size();
  return true;
}

// A value while it is stored, behind its record in the block or in the spool.
struct Keeping {
  uint32_t place;  // of the record
  size_t start;    // of the value in the block
  uint64_t source_place;
  bool is_file;
  bool in_file;
  Spooled spooled;
};

// Moves what has arrived of a file from the block into the spool.
bool moveToSpool(TarnForm &form, Keeping &keeping) {
  const std::string_view arrived(form.kept.at(keeping.place)->value(),
                                 form.kept.size() - keeping.start);
  if (!openSpooled(form, keeping.spooled) || !spool(form, arrived)) return false;
  form.kept.cut(keeping.start);
  keeping.in_file = true;
  return true;
}

bool keepRun(TarnForm &form, Keeping &keeping, std::string_view run) {
  const uint64_t most = form.limits[keeping.is_file ? TARN_FORM_MEMORY_SIZE : TARN_FORM_TEXT_SIZE];
  const uint64_t load_size = form.limits[TARN_FORM_LOAD_SIZE];
  const size_t total = form.kept.size() + run.size();
  const bool too_long = run.size() > most - (form.kept.size() - keeping.start);
  if (keeping.is_file && !keeping.in_file && (too_long || total > load_size / 2) &&
      !moveToSpool(form, keeping)) {
    return false;
  }
  if (keeping.in_file) return spool(form, run);
  if (too_long) return form.problem.raiseLimit(TARN_FORM_TEXT_SIZE, most, keeping.source_place);
  if (total > load_size) {
    return form.problem.raiseLimit(TARN_FORM_LOAD_SIZE, load_size, keeping.source_place);
  }
  return form.kept.append(run) || form.raiseOutOfMemory();
}

// Keeps the value of the current field.
bool keepValue(TarnForm &form, uint32_t place, bool is_file) {
  Keeping keeping = {place, form.kept.size(), form.source.position(), is_file, false, {}};
  std::string_view run;
  while (form.nextRun(run)) {
    if (!keepRun(form, keeping, run)) return false;
  }
  if (form.problem) return false;
  form.kept.at(place)->setSize(form.size);
  if (!keeping.in_file) return form.kept.append('\0') || form.raiseOutOfMemory();
  form.kept.at(place)->in_file = 1;
  // A zero byte follows in the file, too.
  if (ftruncate(form.spool, static_cast<off_t>(++form.spool_size)) != 0) return raiseSpool(form);
  const auto *bytes = reinterpret_cast<const char *>(&keeping.spooled);
  return form.kept.append({bytes, sizeof keeping.spooled}) || form.raiseOutOfMemory();
}

bool keepField(TarnForm &form, const TarnFormField &field) {
  const TarnFormField *kept =
      form.kept.add(&form, true, {field.name(), field.name_size}, field.filename(),
                    field.filename() ? field.filename_size : 0, field.headers(), field.offset());
  if (!kept) return form.raiseOutOfMemory();
  const uint64_t most = form.limits[TARN_FORM_LOAD_SIZE];
  if (form.kept.size() > most) {
    return form.problem.raiseLimit(TARN_FORM_LOAD_SIZE, most, field.offset());
  }
  const uint32_t place = kept->place;
  if (!form.order.append({reinterpret_cast<const char *>(&place), sizeof place})) {
    return form.raiseOutOfMemory();
  }
  return keepValue(form, place, field.filename() != nullptr);
}

// ---- Looking up ---------------------------------------------------------------------------------

int compareNames(std::string_view a, std::string_view b, bool folded) {
  const size_t common = std::min(a.size(), b.size());
  if (!folded) {
    const int order = common > 0 ? std::memcmp(a.data(), b.data(), common) : 0;
    if (order != 0) return order;
  }
  for (size_t i = 0; folded && i < common; ++i) {
    const int order =
        static_cast<unsigned char>(toLower(a[i])) - static_cast<unsigned char>(toLower(b[i]));
    if (order != 0) return order;
  }
  return a.size() < b.size() ? -1 : a.size() > b.size();
}

struct Places {
  const uint32_t *begin;
  const uint32_t *end;
};

Places placesIn(const Bytes &bytes) {
  const auto *begin = reinterpret_cast<const uint32_t *>(bytes.data());
  return {begin, begin + bytes.size() / sizeof(uint32_t)};
}

// The places of all fields with a name, in the order in which they were sent. Sorts all fields by
// their names first, when it is called for the first time.
Places findPlaces(TarnForm &form, std::string_view name, bool folded) {
  Bytes &sorted = folded ? form.by_folded_name : form.by_name;
  const auto name_at = [&form](uint32_t place) {
    const TarnFormField &field = *form.kept.at(place);
    return std::string_view(field.name(), field.name_size);
  };
  if (sorted.size() == 0) {
    sorted.append(form.order.view());  // TarnForm_load() made room for it
    auto *begin = reinterpret_cast<uint32_t *>(sorted.data());
    std::sort(begin, begin + sorted.size() / sizeof(uint32_t), [&](uint32_t a, uint32_t b) {
      const int order = compareNames(name_at(a), name_at(b), folded);
      return order != 0 ? order < 0 : a < b;
    });
  }
  const Places all = placesIn(sorted);
  const uint32_t *begin =
      std::lower_bound(all.begin, all.end, name, [&](uint32_t place, std::string_view wanted) {
        return compareNames(name_at(place), wanted, folded) < 0;
      });
  const uint32_t *end =
      std::upper_bound(begin, all.end, name, [&](std::string_view wanted, uint32_t place) {
        return compareNames(wanted, name_at(place), folded) < 0;
      });
  return {begin, end};
}

Places fieldsNamed(TarnForm *form, const char *name, bool folded) {
  if (!form || !form->loaded || form->problem || form->order.size() == 0) return {nullptr, nullptr};
  return name ? findPlaces(*form, name, folded) : placesIn(form->order);
}

TarnFormField *fieldAt(TarnForm *form, Places places, uint64_t index) {
  const auto count = static_cast<uint64_t>(places.end - places.begin);
  return index < count ? form->kept.at(places.begin[index]) : nullptr;
}

}  // namespace

const void *keptView(TarnForm &form, TarnFormField &field) {
  if (!field.in_file) return field.value();
  Spooled spooled = spooledValue(field);
  if (!spooled.mapping) {
    // The zero byte behind the value is mapped, too.
    if (field.size() >= PTRDIFF_MAX) return nullptr;
    void *mapping = mmap(nullptr, static_cast<size_t>(field.size()) + 1, PROT_READ, MAP_PRIVATE,
                         form.spool, static_cast<off_t>(spooled.offset));
    if (mapping == MAP_FAILED) return nullptr;
    spooled.mapping = mapping;
    std::memcpy(field.value(), &spooled, sizeof spooled);
  }
  return spooled.mapping;
}

const char *keptText(TarnForm &form, TarnFormField &field) {
  if (field.size() > form.limits[TARN_FORM_TEXT_SIZE]) return nullptr;
  return static_cast<const char *>(keptView(form, field));
}

bool nextKeptBlock(TarnForm &form, TarnFormField &field, std::string_view &block) {
  const uint64_t left = field.size() - form.read_position;
  if (left == 0 || form.problem) return false;
  if (!field.in_file) {
    block = {field.value() + form.read_position, static_cast<size_t>(left)};
  } else {
    const size_t wanted = left < kBlockSize ? static_cast<size_t>(left) : kBlockSize;
    const uint64_t offset = spooledValue(field).offset + form.read_position;
    form.scratch.clear();
    if (!form.scratch.reserve(wanted)) return form.raiseOutOfMemory();
    ssize_t count;
    do {
      count = pread(form.spool, form.scratch.data(), wanted, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    if (count <= 0) return raiseSpool(form, "a temporary file cannot be read");
    block = {form.scratch.data(), static_cast<size_t>(count)};
  }
  form.read_position += block.size();
  return true;
}

void releaseKept(TarnForm &form) {
  const Places all = placesIn(form.order);
  for (const uint32_t *place = all.begin; place != all.end && form.spool >= 0; ++place) {
    const TarnFormField &field = *form.kept.at(*place);
    if (!field.in_file) continue;
    const Spooled spooled = spooledValue(field);
    if (spooled.mapping) munmap(spooled.mapping, static_cast<size_t>(field.size()) + 1);
  }
  if (form.spool >= 0) close(form.spool);
}

}  // namespace tarn::form

using namespace tarn::form;

int TarnForm_load(TarnForm *form) {
  if (!form) return 0;
  if (form->loaded) return !form->problem;
  while (TarnFormField *field = form->step()) {
    if (!keepField(*form, *field)) break;
  }
  form->loaded = true;
  form->kept.shrink();
  form->order.shrink();
  // So that no lookup fails for lack of memory.
  const size_t size = form->order.size();
  if (!form->by_name.reserve(size) || !form->by_folded_name.reserve(size)) {
    form->raiseOutOfMemory();
  }
  return TarnForm_isWhole(form);
}

uint64_t TarnForm_count(TarnForm *form, const char *name) {
  const Places places = fieldsNamed(form, name, false);
  return static_cast<uint64_t>(places.end - places.begin);
}

TarnFormField *TarnForm_get(TarnForm *form, const char *name, uint64_t index) {
  return fieldAt(form, fieldsNamed(form, name, false), index);
}

TarnFormField *TarnForm_getIgnoringCase(TarnForm *form, const char *name, uint64_t index) {
  return fieldAt(form, fieldsNamed(form, name, true), index);
}
