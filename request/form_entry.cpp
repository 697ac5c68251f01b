#include "request/form_entry.h"

#include "core/text.h"

namespace tarn::internal {
namespace {

// What fillNode() fills.
static_assert(TARN_ENTRY_NAME == 0 && TARN_ENTRY_VALUE == 1 && TARN_ENTRY_LENGTH == 0);

Node *entryIn(const TarnHandle *handle) { return nodeIn(handle, TARN_FORM_ENTRY_MAGIC); }

const char *valueIn(const TarnHandle *handle) {
  const Node *entry = entryIn(handle);
  return entry ? valueOfEntry(*entry) : nullptr;
}

// Null data is an empty text if the length is 0.
TarnStatus copyValue(const void *data, uint32_t length, OwnedText &copy) {
  if (!data && length > 0) return TARN_BAD_ARGUMENT;
  copy = copyBytes(data ? data : "", length);
  return copy ? TARN_OK : TARN_OUT_OF_MEMORY;
}

void setValue(Node &entry, OwnedText value, uint32_t length) {
  setText(entry, TARN_ENTRY_VALUE, std::move(value));
  setNumber(entry, TARN_ENTRY_LENGTH, length);
}

}  // namespace

Node *newFormEntry(std::string_view name, std::string_view value, uint32_t length,
                   NodeArena *arena) {
  Node *entry = newNode(TARN_FORM_ENTRY_MAGIC, name.size() + value.size() + 2, arena);
  if (!entry) return nullptr;
  char *const nameAt = roomOf(*entry);
  char *const valueAt = name.data() ? copyTo(nameAt, name) : nameAt;
  copyTo(valueAt, value);
  fillNode(*entry, name.data() ? nameAt : nullptr, valueAt, length);
  return entry;
}

Node *newDecodedFormEntry(std::string_view name, std::string_view value, NodeArena *arena) {
  Node *entry = newNode(TARN_FORM_ENTRY_MAGIC, name.size() + value.size() + 2, arena);
  if (!entry) return nullptr;
  char *const nameAt = roomOf(*entry);
  char *const valueAt = unescapeTo(nameAt, name);
  unescapeTo(valueAt, value);
  fillNode(*entry, nameAt, valueAt, static_cast<uint32_t>(textLength(valueAt)));
  return entry;
}

const char *nameOfEntry(const Node &entry) { return entry.text(TARN_ENTRY_NAME); }

const char *valueOfEntry(const Node &entry) { return entry.text(TARN_ENTRY_VALUE); }

}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus FormEntry_init(TarnHandle *entry, const char *name, const void *data, uint32_t length) {
  Node *node = entryIn(entry);
  if (!node) return TARN_WRONG_TYPE;
  // Copied before the name is replaced: the data may be the entry's old name. The name is set even if
  // the value is refused. Kept: quirk 42.
  OwnedText value;
  const TarnStatus status = copyValue(data, length, value);
  setText(*node, TARN_ENTRY_NAME, copyText(name));
  if (status == TARN_OK) setValue(*node, std::move(value), length);
  return status;
}

TarnStatus FormEntry_setValue(TarnHandle *entry, const void *data, uint32_t length) {
  Node *node = entryIn(entry);
  if (!node) return TARN_WRONG_TYPE;
  OwnedText value;
  if (TarnStatus status = copyValue(data, length, value)) return status;
  setValue(*node, std::move(value), length);
  return TARN_OK;
}

// Handles that are not entries compare as equal. Kept: quirk 40.
int32_t FormEntry_compare(TarnHandle *a, TarnHandle *b) {
  const Node *right = entryIn(b);
  if (!entryIn(a) || !right) return 0;
  const int32_t byName = FormEntry_compareName(a, nameOfEntry(*right));
  return byName != 0 ? byName : FormEntry_compareValue(a, valueOfEntry(*right));
}

int32_t FormEntry_compareName(TarnHandle *entry, const char *name) {
  const Node *node = entryIn(entry);
  return node && name ? compareTexts(nameOfEntry(*node), name) : -1;
}

int32_t FormEntry_compareValue(TarnHandle *entry, const char *value) {
  const Node *node = entryIn(entry);
  return node && value ? compareTexts(valueOfEntry(*node), value) : -1;
}

const char *FormEntry_getStrippedValue(TarnHandle *entry) {
  Node *node = entryIn(entry);
  if (!node) return CGIgs_empty_string;
  const char *value = valueOfEntry(*node);
  if (!value) return nullptr;
  char *stripped = stripString(value);
  setText(*node, TARN_ENTRY_STRIPPED_VALUE, copyText(stripped));
  return stripped;
}

int32_t FormEntry_getIntegerValue(TarnHandle *entry) {
  const char *value = valueIn(entry);
  return value ? toNumber(value) : 0;
}

double FormEntry_getDoubleValue(TarnHandle *entry) {
  const char *value = valueIn(entry);
  return value ? std::atof(value) : 0.0;
}

const char *FormEntry_toString(TarnHandle *) { return "Not yet implemented"; }

TarnStatus FormEntryList_addEntry(TarnHandle *list, TarnHandle *entry) {
  return FormEntries::add(list, entry);
}

int32_t FormEntryList_getCount(TarnHandle *list) {
  return static_cast<int32_t>(FormEntries::count(FormEntries::in(list)));
}

TarnHandle FormEntryList_getByIndex(TarnHandle *list, uint32_t index) {
  return FormEntries::handleAt(FormEntries::in(list), index);
}

void FormEntryList_reserve(TarnHandle *list, uint32_t capacity) {
  FormEntries::reserve(FormEntries::in(list), capacity);
}

TarnStatus FormEntryList_clear(TarnHandle *list) { return FormEntries::clear(list); }

TarnStatus FormEntryList_delete(TarnHandle *list) { return FormEntries::remove(list); }

TarnStatus FormEntryList_clone(TarnHandle *source, TarnHandle *destination) {
  return FormEntries::clone(source, destination);
}

const char *FormEntryList_toHTML(TarnHandle *) { return "Not yet implemented."; }
