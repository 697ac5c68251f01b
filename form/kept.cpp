#include "form/kept.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "form/saving.h"
#include "form/text.h"
#include "form/url_encoded.h"

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
  if (form.spool < 0) form.spool = openUnnamed("tarn-form");
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
  const uint64_t left = form.limits[TARN_FORM_LOAD_SIZE] - form.kept.size();
  const uint64_t most = std::min(form.limits[TARN_FORM_TEXT_SIZE], left);
  std::string_view run;
  if (!takeShortValue(form, form.kept.bytes(), most)) {
    while (form.nextRun(run)) {
      if (!keepRun(form, keeping, run)) return false;
    }
  }
  if (form.problem) return false;
  form.kept.at(place)->setSize(form.size);
  if (!keeping.in_file) return form.kept.append('\0') || form.raiseOutOfMemory();
  // A zero byte follows in the file, too.
  if (ftruncate(form.spool, static_cast<off_t>(++form.spool_size)) != 0) return raiseSpool(form);
  const auto *bytes = reinterpret_cast<const char *>(&keeping.spooled);
  if (!form.kept.append({bytes, sizeof keeping.spooled})) return form.raiseOutOfMemory();
  // Only now: releaseKept() looks for the place in the file behind such a record.
  form.kept.at(place)->in_file = 1;
  return true;
}

bool keepField(TarnForm &form, const TarnFormField &field) {
  const TarnFormField *kept = form.kept.addCopy(&form, field);
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

// A hash that does not depend on the case of letters. Different names may have the same one.
uint32_t hashOf(std::string_view name) {
  constexpr uint64_t kLower = 0x2020202020202020;
  constexpr uint64_t kFactor = 0x9E3779B97F4A7C15;
  uint64_t hash = name.size();
  while (!name.empty()) {
    uint64_t word = 0;
    const size_t size = name.size() < sizeof word ? name.size() : sizeof word;
    if (size == sizeof word) {
      std::memcpy(&word, name.data(), sizeof word);
    } else {
      for (const char c : name) word = word << 8 | static_cast<unsigned char>(c);
    }
    hash = (hash ^ (word | kLower)) * kFactor;
    hash ^= hash >> 32;
    name.remove_prefix(size);
  }
  return static_cast<uint32_t>(hash >> 16);
}

// The order of fields for lookups: by a few bits of the hash, by name, then as they were sent. Fields
// of the same name are neighbours.
class Order {
 public:
  Order(TarnForm &form, bool folded) : form_(form), folded_(folded) {
    while (size_t{buckets_} * kFieldsInBucket < count()) buckets_ *= 2;
  }

  // Sorts all fields unless that is done. There is room for the result.
  Places sorted() {
    Bytes &bytes = folded_ ? form_.by_folded_name : form_.by_name;
    if (bytes.size() == 0) sort(bytes);
    return placesIn(bytes);
  }

  // How many bytes to reserve for the result and, behind it, a number for each bucket.
  static size_t roomFor(size_t fields) {
    return (fields + 2 * (fields / kFieldsInBucket) + 2) * sizeof(uint32_t);
  }

  // The first field that has this name or comes after it.
  const uint32_t *find(const Places &all, std::string_view name) const {
    return std::lower_bound(
        all.begin, all.end, name,
        [this](uint32_t place, std::string_view text) { return compare(nameAt(place), text) < 0; });
  }

  // The first field that comes after this name.
  const uint32_t *findEnd(const Places &all, std::string_view name) const {
    return std::upper_bound(
        all.begin, all.end, name,
        [this](std::string_view text, uint32_t place) { return compare(text, nameAt(place)) < 0; });
  }

  bool isNamed(const TarnFormField &field, std::string_view name) const {
    return compareNames({field.name(), field.name_size}, name, folded_) == 0;
  }

 private:
  static constexpr size_t kFieldsInBucket = 4;

  size_t count() const { return form_.order.size() / sizeof(uint32_t); }
  uint32_t bucketOf(std::string_view name) const { return hashOf(name) & (buckets_ - 1); }

  std::string_view nameAt(uint32_t place) const {
    const TarnFormField &field = *form_.kept.at(place);
    return {field.name(), field.name_size};
  }

  int compare(std::string_view a, std::string_view b) const {
    const uint32_t bucket_a = bucketOf(a);
    const uint32_t bucket_b = bucketOf(b);
    if (bucket_a != bucket_b) return bucket_a < bucket_b ? -1 : 1;
    return compareNames(a, b, folded_);
  }

  // Distributes the fields to the buckets, and then sorts each bucket.
  void sort(Bytes &bytes) {
    const Places all = placesIn(form_.order);
    auto *sorted = reinterpret_cast<uint32_t *>(bytes.data());
    // First how many fields the bucket before has, then where the bucket begins, and at last where it
    // ends, since each field moves that.
    uint32_t *ends = sorted + count();
    std::memset(ends, 0, (buckets_ + 1) * sizeof *ends);
    for (const uint32_t *place = all.begin; place != all.end; ++place) {
      ++ends[bucketOf(nameAt(*place)) + 1];
    }
    for (uint32_t i = 1; i < buckets_; ++i) ends[i] += ends[i - 1];
    for (const uint32_t *place = all.begin; place != all.end; ++place) {
      sorted[ends[bucketOf(nameAt(*place))]++] = *place;
    }
    for (uint32_t i = 0; i < buckets_; ++i) {
      sortBucket(sorted + (i > 0 ? ends[i - 1] : 0), sorted + ends[i]);
    }
    bytes.grow(count() * sizeof(uint32_t));
  }

  void sortBucket(uint32_t *begin, uint32_t *end) const {
    const auto comes_before = [this](uint32_t a, uint32_t b) {
      const int order = compareNames(nameAt(a), nameAt(b), folded_);
      return order != 0 ? order < 0 : a < b;
    };
    // Fields that all have one name are sorted.
    if (!std::is_sorted(begin, end, comes_before)) std::sort(begin, end, comes_before);
  }

  TarnForm &form_;
  bool folded_;
  uint32_t buckets_ = 1;
};

bool canLookUp(const TarnForm *form) {
  return form && form->loaded && !form->problem && form->order.size() > 0;
}

TarnFormField *fieldAt(TarnForm *form, const Places &places, uint64_t index) {
  const auto count = static_cast<uint64_t>(places.end - places.begin);
  return index < count ? form->kept.at(places.begin[index]) : nullptr;
}

TarnFormField *findField(TarnForm *form, const char *name, uint64_t index, bool folded) {
  if (!canLookUp(form)) return nullptr;
  if (!name) return fieldAt(form, placesIn(form->order), index);
  Order order(*form, folded);
  const Places all = order.sorted();
  TarnFormField *field = fieldAt(form, {order.find(all, name), all.end}, index);
  return field && order.isNamed(*field, name) ? field : nullptr;
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
  const size_t room = Order::roomFor(form->order.size() / sizeof(uint32_t));
  if (!form->by_name.reserve(room) || !form->by_folded_name.reserve(room)) {
    form->raiseOutOfMemory();
  }
  return TarnForm_isWhole(form);
}

uint64_t TarnForm_count(TarnForm *form, const char *name) {
  if (!canLookUp(form)) return 0;
  if (!name) return form->order.size() / sizeof(uint32_t);
  Order order(*form, false);
  const Places all = order.sorted();
  return static_cast<uint64_t>(order.findEnd(all, name) - order.find(all, name));
}

TarnFormField *TarnForm_get(TarnForm *form, const char *name, uint64_t index) {
  return findField(form, name, index, false);
}

TarnFormField *TarnForm_getIgnoringCase(TarnForm *form, const char *name, uint64_t index) {
  return findField(form, name, index, true);
}
