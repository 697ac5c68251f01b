#include "request.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace tarn_fuzz {
namespace {

// Each lookup searches all entries, so only this many names are checked. Forms with thousands of
// entries are left to the tests that measure time.
constexpr size_t kLookups = 16;

std::vector<Entry> entriesOf(TarnHandle list) {
  std::vector<Entry> entries;
  const auto count = static_cast<uint32_t>(FormEntryList_getCount(&list));
  for (uint32_t i = 0; i < count; ++i) {
    TarnHandle entry = FormEntryList_getByIndex(&list, i);
    EXPECT(CGIgs_IsA(&entry, TARN_FORM_ENTRY_MAGIC));
    entries.push_back({textOf(CGIgs_getString(&entry, TARN_ENTRY_NAME, TARN_FORM_ENTRY_MAGIC)),
                       textOf(CGIgs_getString(&entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC)),
                       CGIgs_getInt(&entry, TARN_ENTRY_LENGTH, TARN_FORM_ENTRY_MAGIC)});
  }
  EXPECT(FormEntryList_getByIndex(&list, count) == 0);
  return entries;
}

std::vector<File> filesOf(TarnHandle list) {
  std::vector<File> files;
  const auto count = static_cast<uint32_t>(FormFileList_getCount(&list));
  for (uint32_t i = 0; i < count; ++i) {
    TarnHandle file = FormFileList_getByIndex(&list, i);
    EXPECT(CGIgs_IsA(&file, TARN_FORM_FILE_MAGIC));
    files.push_back({textOf(CGIgs_getString(&file, TARN_FILE_FIELD_NAME, TARN_FORM_FILE_MAGIC)),
                     textOf(CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC)),
                     textOf(CGIgs_getString(&file, TARN_FILE_CONTENT_TYPE, TARN_FORM_FILE_MAGIC)),
                     bytesOf(CGIgs_getStruct(&file, TARN_FILE_BYTES, TARN_FORM_FILE_MAGIC))});
    EXPECT(FormFile_getDataLength(&file) == files.back().data.value_or("").size());
  }
  EXPECT(FormFileList_getByIndex(&list, count) == 0);
  return files;
}

bool sameName(const Text &a, const Text &b) {
  return a && b ? tarn_rules::lowered(*a) == tarn_rules::lowered(*b) : a == b;
}

template <class Fields>
auto firstNamed(const Fields &fields, const Text &name) {
  return std::find_if(fields.begin(), fields.end(),
                      [&](const auto &field) { return sameName(field.name, name); });
}

const char *pointerTo(const Text &text) { return text ? text->c_str() : nullptr; }

void expectLookups(Request &request, const std::vector<Entry> &entries, const Text &name) {
  TarnHandle list = request.child(1);
  const auto first = firstNamed(entries, name);
  const TarnHandle found = Tarn_getElementByName(request.handle(), pointerTo(name));
  EXPECT(found == Tarn_getElementByValue(request.handle(), pointerTo(name)));
  const bool exists = first != entries.end();
  EXPECT(found ==
         (exists ? FormEntryList_getByIndex(&list, static_cast<uint32_t>(first - entries.begin()))
                 : 0));
  EXPECT(Tarn_queryCheckbox(request.handle(), pointerTo(name)) ==
         (exists && sameName(first->value, "on") ? 1 : 0));

  TarnHandle all = 0;
  EXPECT(CGIgs_new(&all, TARN_FORM_ENTRY_LIST_MAGIC) == TARN_OK);
  EXPECT(Tarn_findEntries(request.handle(), pointerTo(name), 0, &all) == 0);
  std::vector<Entry> expected;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(expected),
               [&](const Entry &entry) { return sameName(entry.name, name); });
  EXPECT(entriesOf(all) == expected);
  EXPECT(FormEntryList_delete(&all) == TARN_OK && all == 0);
}

void expectFileLookup(Request &request, const std::vector<File> &files, const Text &name) {
  TarnHandle list = request.child(2);
  const auto first = firstNamed(files, name);
  EXPECT(Tarn_getFile(request.handle(), pointerTo(name)) ==
         (first == files.end()
              ? 0
              : FormFileList_getByIndex(&list, static_cast<uint32_t>(first - files.begin()))));
}

void expectReadings(TarnHandle entry, const std::string &value) {
  const OwnedText stripped = owned(FormEntry_getStrippedValue(&entry));
  EXPECT(stripped.get() == tarn_rules::stripped(value));
  EXPECT(textOf(CGIgs_getString(&entry, TARN_ENTRY_STRIPPED_VALUE, TARN_FORM_ENTRY_MAGIC)) ==
         stripped.get());
  const long long number = std::strtoll(value.c_str(), nullptr, 10);
  EXPECT(FormEntry_getIntegerValue(&entry) == std::clamp<long long>(number, INT32_MIN, INT32_MAX));
  // Compared as bytes, because the value may be NaN.
  const double real = FormEntry_getDoubleValue(&entry);
  const double expected = std::strtod(value.c_str(), nullptr);
  EXPECT(std::memcmp(&real, &expected, sizeof real) == 0);
  EXPECT(FormEntry_compareValue(&entry, value.c_str()) == 0);
  EXPECT(FormEntry_compare(&entry, &entry) ==
         (CGIgs_getString(&entry, TARN_ENTRY_NAME, TARN_FORM_ENTRY_MAGIC) ? 0 : -1));
}

void expectWritten(TarnHandle file, const Text &data) {
  Stream stream;
  EXPECT(FormFile_writeToStream(&file, stream.file()) == 0);
  EXPECT(stream.written() == data.value_or(""));
  EXPECT(FormFile_compare(&file, &file) == 0);
}

void expectCopies(Request &request, const Form &form) {
  TarnHandle entries = request.child(1);
  TarnHandle copy = 0;
  EXPECT(FormEntryList_clone(&entries, &copy) == TARN_OK);
  EXPECT(entriesOf(copy) == form.entries);
  EXPECT(FormEntryList_clear(&copy) == TARN_OK && entriesOf(copy).empty());
  EXPECT(FormEntryList_delete(&copy) == TARN_OK && copy == 0);

  TarnHandle files = request.child(2);
  EXPECT(FormFileList_clone(&files, &copy) == TARN_OK);
  EXPECT(filesOf(copy) == form.files);
  EXPECT(FormFileList_clear(&copy) == TARN_OK && copy == 0);
}

}  // namespace

Request::~Request() {
  EXPECT(Tarn_delete(&handle_) == TARN_OK);
  EXPECT(handle_ == 0);
}

Form Request::form() { return {entriesOf(child(1)), filesOf(child(2))}; }

Text textOf(const char *text) { return text ? Text(text) : std::nullopt; }

Text bytesOf(TarnHandle buffer) {
  if (!CGIgs_IsA(&buffer, TARN_BYTE_BUFFER_MAGIC)) return std::nullopt;
  const auto *bytes =
      reinterpret_cast<const char *>(CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC));
  const uint32_t count = CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC);
  EXPECT((bytes == nullptr) == (count == 0));
  if (!bytes) return std::string();
  EXPECT(bytes[count] == '\0');
  return std::string(bytes, count);
}

Cookies cookiesOf(TarnHandle list) {
  Cookies cookies;
  const auto count = static_cast<uint32_t>(HTTPCookieList_getCount(&list));
  for (uint32_t i = 0; i < count; ++i) {
    TarnHandle cookie = HTTPCookieList_getByIndex(&list, i);
    EXPECT(CGIgs_IsA(&cookie, TARN_COOKIE_MAGIC));
    cookies.push_back({textOf(CGIgs_getString(&cookie, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC)),
                       textOf(CGIgs_getString(&cookie, TARN_COOKIE_VALUE, TARN_COOKIE_MAGIC))});
  }
  EXPECT(HTTPCookieList_getByIndex(&list, count) == 0);
  return cookies;
}

void expectForm(Request &request, const Form &form) {
  EXPECT(request.form() == form);
  expectLookups(request, form.entries, std::nullopt);
  expectFileLookup(request, form.files, std::nullopt);
  expectLookups(request, form.entries, "no such name");
  for (size_t i = 0; i < std::min(form.entries.size(), kLookups); ++i) {
    expectLookups(request, form.entries, form.entries[i].name);
    expectReadings(Tarn_getElementByName(request.handle(), pointerTo(form.entries[i].name)),
                   *firstNamed(form.entries, form.entries[i].name)->value);
  }
  for (size_t i = 0; i < std::min(form.files.size(), kLookups); ++i) {
    expectFileLookup(request, form.files, form.files[i].name);
    expectWritten(Tarn_getFile(request.handle(), pointerTo(form.files[i].name)),
                  firstNamed(form.files, form.files[i].name)->data);
  }
  expectCopies(request, form);
}

}  // namespace tarn_fuzz
