#include "form/kept.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "form/part_headers.h"
#include "form/saving.h"
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

bool reportSpool(TarnForm &form, const char *sentence = "a temporary file cannot be written") {
  return form.problem.report(TARN_FORM_OUT_OF_MEMORY, form.source.position(), sentence);
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
  if (form.spool < 0) return reportSpool(form);
  const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  spooled = {(form.spool_size + page - 1) / page * page, nullptr};
  form.spool_size = spooled.offset;
  return true;
}

bool spool(TarnForm &form, std::string_view bytes) {
  if (!writeAt(form.spool, bytes, form.spool_size)) return reportSpool(form);
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
  if (too_long) return form.problem.reportLimit(TARN_FORM_TEXT_SIZE, most, keeping.source_place);
  if (total > load_size) {
    return form.problem.reportLimit(TARN_FORM_LOAD_SIZE, load_size, keeping.source_place);
  }
  return form.kept.append(run) || form.reportOutOfMemory();
}

// Keeps the value of the current field, from run to run.
[[gnu::noinline]] bool keepRuns(TarnForm &form, uint32_t place) {
  const bool is_file = form.kept.at(place)->filename() != nullptr;
  Keeping keeping = {place, form.kept.size(), form.source.position(), is_file, false, {}};
  std::string_view run;
  while (form.nextRun(run)) {
    if (!keepRun(form, keeping, run)) return false;
  }
  if (form.problem) return false;
  if (!form.kept.setSize(place, form.size)) return form.reportOutOfMemory();
  if (!keeping.in_file) return form.kept.append('\0') || form.reportOutOfMemory();
  // A zero byte follows in the file, too.
  if (ftruncate(form.spool, static_cast<off_t>(++form.spool_size)) != 0) return reportSpool(form);
  const auto *bytes = reinterpret_cast<const char *>(&keeping.spooled);
  if (!form.kept.append({bytes, sizeof keeping.spooled})) return form.reportOutOfMemory();
  // Only now: releaseKept() looks for the place in the file behind such a record.
  form.kept.at(place)->wide().in_file = 1;
  return true;
}

// Keeps the value of a field whose record was just made.
bool keepField(TarnForm &form, const TarnFormField &field) {
  const uint64_t most = form.limits[TARN_FORM_LOAD_SIZE];
  if (form.kept.size() > most) {
    return form.problem.reportLimit(TARN_FORM_LOAD_SIZE, most, field.offset());
  }
  const uint32_t place = field.place;
  if (!form.order.append({reinterpret_cast<const char *>(&place), sizeof place})) {
    return form.reportOutOfMemory();
  }
  const uint64_t left = form.limits[TARN_FORM_LOAD_SIZE] - form.kept.size();
  const uint64_t most_bytes = std::min(form.limits[TARN_FORM_TEXT_SIZE], left);
  if (!takeShortValue(form, form.kept.bytes(), most_bytes)) return keepRuns(form, place);
  const bool kept = form.kept.setSize(place, form.size) && form.kept.append('\0');
  return kept || form.reportOutOfMemory();
}

constexpr size_t kRoomForHeader = 8;

// Reserves memory for usual headers, so that asking for one does not fail for lack of it. No page of it
// is used before.
bool reserveForHeaders(TarnForm &form) {
  if (!form.has_usual_headers) return true;
  const uint64_t size = uint64_t{placesIn(form.order).size()} * kRoomForHeader + form.kept.size();
  return size < PTRDIFF_MAX && form.usual_headers.reserve(static_cast<size_t>(size));
}

}  // namespace

const void *keptView(TarnForm &form, TarnFormField &field) {
  if (!field.isInFile()) return field.value();
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
  if (!field.isInFile()) {
    block = {field.value() + form.read_position, static_cast<size_t>(left)};
  } else {
    const size_t wanted = left < kBlockSize ? static_cast<size_t>(left) : kBlockSize;
    const uint64_t offset = spooledValue(field).offset + form.read_position;
    form.scratch.clear();
    if (!form.scratch.reserve(wanted)) return form.reportOutOfMemory();
    ssize_t count;
    do {
      count = pread(form.spool, form.scratch.data(), wanted, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    if (count <= 0) return reportSpool(form, "a temporary file cannot be read");
    block = {form.scratch.data(), static_cast<size_t>(count)};
  }
  form.read_position += block.size();
  return true;
}

// A usual header is written when it is asked for, each into a place of its own: none is longer than
// its field's record and kRoomForHeader together, so those of other fields do not overlap it.
std::string_view keptHeader(const TarnFormField &field, std::string_view name) {
  if (!field.has_usual_headers) return findHeader(field.headers(), name);
  if (!isUsualHeader(name)) return {};
  TarnForm &form = *field.form();
  const Places all = placesIn(form.order);
  const auto before =
      static_cast<size_t>(std::lower_bound(all.begin, all.end, field.place) - all.begin);
  char *place =
      form.usual_headers.data() + before * kRoomForHeader + size_t{field.place} * sizeof(uint32_t);
  return writeUsualHeader(field.nameView(), place);
}

void releaseKept(TarnForm &form) {
  const Places all = placesIn(form.order);
  for (const uint32_t *place = all.begin; place != all.end && form.spool >= 0; ++place) {
    const TarnFormField &field = *form.kept.at(*place);
    if (!field.isInFile()) continue;
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
  form->loading = true;
  while (TarnFormField *field = form->step()) {
    if (!keepField(*form, *field)) break;
    keepPairs(*form);
  }
  form->loaded = true;
  form->kept.shrink();
  form->order.shrink();
  if (!reserveForLookups(*form) || !reserveForHeaders(*form)) form->reportOutOfMemory();
  return TarnForm_isWhole(form);
}
