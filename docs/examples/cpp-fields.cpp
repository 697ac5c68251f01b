/* Lists the fields of a form, and reads a value in several ways: */

#include <algorithm>
#include <cstdio>
#include <tarn.hpp>

static bool is_long(const tarn::Entry entry) {
  return entry.value().size() > 4;
}

int main() {
  tarn::Request request;
  if (!request) return request.status();

  tarn::Entries entries = request.entries();
  for (const tarn::Entry entry : entries) {
    std::printf("%s = %s\n",
                entry.name().value_or("(no name)").data(),
                entry.value().data());
  }
  std::printf("%zu fields, %d of them long\n", entries.size(),
              static_cast<int>(std::count_if(
                  entries.begin(), entries.end(), is_long)));

  // An index beyond the end yields an entry without an object.
  if (!entries[2]) std::printf("no third field\n");
  const auto [name, value] = entries[1];
  std::printf("%s is %s\n", name->data(), value.data());
  if (value != entries[1].get<1>()) return 1;
  const tarn::Entry depth = entries[0];
  if (depth.is_named("DEPTH")) {
    std::printf("read to the end: %s\n",
                depth.integer() ? "a number" : "none");
    std::printf("read to the first other byte: %d, or %.1f\n",
                depth.number(), depth.real());
  }

  // The same as request.all("tag").
  for (const std::string_view tag : tarn::Values(entries, "tag"))
    std::puts(tag.data());

  // Functions of tarn.h work on the same objects.
  tarn::Entry first = entries[0];
  tarn::Entry borrowed(*first.handle());
  const bool is_entry =
      CGIgs_IsA(borrowed.handle(), tarn::Entry::magic) != 0;
  tarn::Entries same(CGIgs_getStruct(
      request.handle(), TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC));
  return is_entry && same.size() == entries.size() ? 0 : 1;
}

/* Output:
$ REQUEST_METHOD=GET QUERY_STRING='depth=18.5m&tag=a%20lake' ./cpp-fields
depth = 18.5m
tag = a lake
2 fields, 2 of them long
no third field
tag is a lake
read to the end: none
read to the first other byte: 18, or 18.5
a lake
*/
