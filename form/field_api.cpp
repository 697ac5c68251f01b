// The exported functions that read a field, from the stream or as TarnForm_load() kept it.
#include <cerrno>

#include "form/form.h"
#include "form/kept.h"
#include "form/multipart.h"
#include "form/part_headers.h"
#include "form/saving.h"
#include "form/url_encoded.h"

namespace tarn::form {
namespace {

// Reads the value of the current field into TarnForm::text, from run to run.
[[gnu::noinline]] bool readRuns(TarnForm &form) {
  const uint64_t most = form.limits[TARN_FORM_TEXT_SIZE];
  const uint64_t place = form.source.position();
  if (!form.text.append(std::string_view())) return form.reportOutOfMemory();
  std::string_view run;
  while (form.nextRun(run)) {
    if (run.size() > most - form.text.size()) {
      return form.problem.reportLimit(TARN_FORM_TEXT_SIZE, most, place);
    }
    if (!form.text.append(run)) return form.reportOutOfMemory();
  }
  if (form.problem) return false;
  form.taken = Taken::kAsText;
  return true;
}

bool readText(TarnForm &form) {
  form.taken = Taken::kPartly;
  form.text.clear();
  if (!takeShortValue(form, form.text, form.limits[TARN_FORM_TEXT_SIZE])) return readRuns(form);
  form.taken = Taken::kAsText;
  return true;
}

// Copies a value that was returned as a view.
[[gnu::noinline]] bool copyView(TarnForm &form) {
  const uint64_t most = form.limits[TARN_FORM_TEXT_SIZE];
  if (form.size > most) {
    return form.problem.reportLimit(TARN_FORM_TEXT_SIZE, most, form.source.position());
  }
  form.text.clear();
  return form.text.append({static_cast<const char *>(form.view), static_cast<size_t>(form.size)}) ||
         form.reportOutOfMemory();
}

const char *textOfCurrent(TarnForm &form) {
  if (form.problem) return nullptr;
  if (form.takeAhead(Taken::kAsText)) {
    form.text.grow(form.ahead.size);
    return form.text.data();
  }
  switch (form.taken) {
    case Taken::kNothing:
      return readText(form) ? form.text.data() : nullptr;
    case Taken::kAsText:
      return form.text.data();
    case Taken::kAsView:
      return copyView(form) ? form.text.data() : nullptr;
    case Taken::kPartly:
    case Taken::kLost:
      break;
  }
  return nullptr;
}

const void *viewOfCurrent(TarnForm &form) {
  if (form.problem || !form.source.inMemory()) return nullptr;
  if (form.taken == Taken::kAsView) return form.view;
  if (form.taken != Taken::kNothing) return nullptr;
  if (form.type == BodyType::kUrlEncoded && !plainValue(form).data()) return nullptr;
  std::string_view run;
  std::string_view rest;
  if (form.nextRun(run)) {
    // In memory, the first run is the whole value.
    form.taken = Taken::kPartly;
    if (form.nextRun(rest)) return nullptr;
  }
  if (form.problem) return nullptr;
  form.taken = Taken::kAsView;
  form.view = run.data() ? run.data() : "";
  return form.view;
}

std::string_view headerOf(const TarnFormField &field, std::string_view name) {
  if (field.isKept()) return keptHeader(field, name);
  return findHeader(field.form()->headers.view(), name);
}

// Whether all of the value is kept or in memory, so that it can be read more than once.
bool canBeReadAgain(const TarnFormField &field) {
  const TarnForm &form = *field.form();
  return field.isKept() || form.taken == Taken::kAsText || form.taken == Taken::kAsView;
}

// The next bytes of a value that can be read again.
bool nextStoredBlock(TarnForm &form, TarnFormField &field, std::string_view &block) {
  if (field.isKept()) return nextKeptBlock(form, field, block);
  const uint64_t left = form.size - form.read_position;
  if (left == 0 || form.problem) return false;
  const void *value = form.taken == Taken::kAsText ? form.text.data() : form.view;
  block = {static_cast<const char *>(value) + form.read_position, static_cast<size_t>(left)};
  form.read_position = form.size;
  return true;
}

// Returns false at the end of the value and if there is a problem.
bool nextBlock(TarnFormField &field, std::string_view &block) {
  TarnForm &form = *field.form();
  const bool stored = canBeReadAgain(field);
  if (stored && form.being_read != &field) {
    form.being_read = &field;
    form.read_position = 0;
    form.unread = {};
  }
  if (!form.unread.empty()) {
    block = form.unread;
    form.unread = {};
    return true;
  }
  if (stored) return nextStoredBlock(form, field, block);
  if (form.taken == Taken::kLost) return false;
  form.taken = Taken::kPartly;
  return form.nextRun(block);
}

// Whether reading ended because bytes are missing.
bool isLost(const TarnFormField &field) {
  const TarnForm &form = *field.form();
  return form.problem || (!field.isKept() && form.taken == Taken::kLost);
}

// Returns 0 if something of the value is left to write, or if nothing of it was read.
int checkUnread(TarnFormField &field) {
  TarnForm &form = *field.form();
  if (form.problem) return -1;
  if (canBeReadAgain(field) || form.taken == Taken::kNothing || !form.unread.empty()) return 0;
  std::string_view run;
  if (form.taken == Taken::kPartly && form.nextRun(run)) {
    form.unread = run;
    return 0;
  }
  return form.problem ? -1 : ENODATA;
}

// Passes the rest of a value to `write`, which returns 0 or an errno value.
template <class Write>
int writeBlocks(TarnFormField &field, const Write &write) {
  TarnForm &form = *field.form();
  std::string_view block;
  int error = 0;
  form.written_from = form.size - form.unread.size();
  while (error == 0 && nextBlock(field, block)) error = write(block);
  form.written_from = kNotWritten;
  if (error != 0) return error;
  return form.problem ? -1 : 0;
}

// How far a value that can be read again has been read.
uint64_t readPosition(const TarnFormField &field) {
  const TarnForm &form = *field.form();
  return form.being_read == &field ? form.read_position - form.unread.size() : 0;
}

// A value that can be read again is then read from its beginning, or after an error from where the
// write began. Of any other value, what a failed write did not store is lost.
void endWriting(TarnFormField &field, uint64_t began, int error) {
  TarnForm &form = *field.form();
  if (canBeReadAgain(field)) {
    form.read_position = error == 0 ? 0 : began;
    form.unread = {};
  } else if (error != 0) {
    form.taken = Taken::kLost;
    form.unread = {};
  }
}

}  // namespace
}  // namespace tarn::form

using namespace tarn::form;

// Functions that are TARN_FORM_PURE change nothing, so compilers leave out calls whose results are not
// used. Views in C++ have many: field.name().size() calls for the name too.

const char *TarnFormField_name(const TarnFormField *field) { return field ? field->name() : ""; }

uint64_t TarnFormField_nameSize(const TarnFormField *field) {
  return field ? field->nameSize() : 0;
}

const char *TarnFormField_filename(const TarnFormField *field) {
  return field ? field->filename() : nullptr;
}

uint64_t TarnFormField_filenameSize(const TarnFormField *field) {
  return field && field->filename() ? field->filenameSize() : 0;
}

const char *TarnFormField_type(const TarnFormField *field) {
  return TarnFormField_header(field, "Content-Type");
}

const char *TarnFormField_header(const TarnFormField *field, const char *name) {
  return field && name ? headerOf(*field, name).data() : nullptr;
}

uint64_t TarnFormField_headerSize(const TarnFormField *field, const char *name) {
  return field && name ? headerOf(*field, name).size() : 0;
}

uint64_t TarnFormField_offset(const TarnFormField *field) { return field ? field->offset() : 0; }

uint64_t TarnFormField_size(const TarnFormField *field) {
  if (!field) return 0;
  const TarnForm &form = *field->form();
  if (field->isKept()) return field->size();
  return canBeReadAgain(*field) ? form.size : form.size - form.unread.size();
}

const char *TarnFormField_text(TarnFormField *field) {
  if (!field) return nullptr;
  TarnForm &form = *field->form();
  return field->isKept() ? keptText(form, *field) : textOfCurrent(form);
}

const void *TarnFormField_view(TarnFormField *field) {
  if (!field) return nullptr;
  TarnForm &form = *field->form();
  return field->isKept() ? keptView(form, *field) : viewOfCurrent(form);
}

int64_t TarnFormField_block(TarnFormField *field, const void **block) {
  if (!field || !block) return -1;
  std::string_view bytes;
  if (!nextBlock(*field, bytes)) return isLost(*field) ? -1 : 0;
  *block = bytes.data();
  return static_cast<int64_t>(bytes.size());
}

int64_t TarnFormField_read(TarnFormField *field, void *bytes, uint64_t size) {
  if (!field || (!bytes && size > 0)) return -1;
  TarnForm &form = *field->form();
  char *place = static_cast<char *>(bytes);
  uint64_t left = size < INT64_MAX ? size : INT64_MAX;
  const uint64_t asked = left;
  while (left > 0) {
    std::string_view block;
    if (!nextBlock(*field, block)) break;
    const size_t count = block.size() < left ? block.size() : static_cast<size_t>(left);
    std::memcpy(place, block.data(), count);
    block.remove_prefix(count);
    form.unread = block;
    place += count;
    left -= count;
  }
  return left > 0 && isLost(*field) ? -1 : static_cast<int64_t>(asked - left);
}

int TarnFormField_write(TarnFormField *field, int descriptor) {
  if (!field) return -1;
  if (const int error = checkUnread(*field)) return error;
  const uint64_t began = readPosition(*field);
  const int error = writeBlocks(
      *field, [=](std::string_view block) { return tarn::writeAll(descriptor, block); });
  endWriting(*field, began, error);
  return error;
}

int TarnFormField_save(TarnFormField *field, const char *folder, const char *name) {
  if (!field || field->form()->problem) return -1;
  NewFile &file = field->form()->saved;
  const uint64_t began = readPosition(*field);
  int error = 0;
  if (file.isUnnamed()) {
    error = file.keepIn(folder, name);
  } else {
    error = checkUnread(*field);
    if (error == 0) error = file.open(folder, name);
    if (error != 0) {
      file.close();
      return error;  // nothing has been read
    }
    error = writeBlocks(*field, [&](std::string_view block) { return file.write(block); });
    if (error == 0) error = file.keep(name);
  }
  // If another process took the name while a stream arrived, the file waits for another name.
  const bool waits = file.isUnnamed() && !canBeReadAgain(*field);
  if (!waits) {
    endWriting(*field, began, error);
    file.close();
  }
  return error;
}

int TarnFormField_skip(TarnFormField *field) {
  if (!field) return 0;
  TarnForm &form = *field->form();
  return field->isKept() ? !form.problem : form.skipValue();
}
