/* Reads the query string, the path and a header, and checks values: */

#include <cstdio>
#include <tarn/input.hpp>
#include <tarn/query.hpp>
#include <tarn/typed.hpp>

using tarn::Checked, tarn::Reason;

static const char *name_of(Reason reason) {
  switch (reason) {
    case Reason::none:
      return "fine";
    case Reason::missing:
      return "missing";
    case Reason::malformed:
      return "malformed";
    case Reason::out_of_range:
      return "out of range";
  }
  return "";
}

template <class Value>
static void show(const char *name, const Checked<Value> &checked) {
  std::printf("%s: %s\n", name, name_of(checked.reason()));
}

// A check of one's own.
static Checked<std::string_view> tag(
    std::optional<std::string_view> text) {
  if (!text) return Reason::missing;
  if (text->find(' ') != text->npos) return Reason::malformed;
  return *text;
}

int main() {
  const tarn::Path path = tarn::request_path();
  if (!path) std::puts("an odd path");
  std::printf("%s %s, %zu segments\n",
              tarn::request_method().data(), path.text().data(),
              path.size());
  if (path[0] == "lake") std::puts("about a lake");
  std::printf("language: %s\n",
              tarn::request_header("Accept-Language")
                  .value_or("any")
                  .data());

  const tarn::Query query;
  const auto page = tarn::integer(query["page"], 1, 99);
  if (page) std::printf("page %d\n", static_cast<int>(*page));
  const auto depth = tarn::real(query["depth"], 0);
  std::printf("depth %g\n", depth.value_or(1.5));
  const auto since =
      tarn::date(query["since"], tarn::Date(1990, 1, 1));
  if (since.has_value()) {
    std::printf("since %d/%d/%d\n", since->year(), since->month(),
                since->day());
  }
  constexpr tarn::Choice kSorts[] = {{"n", "by name"},
                                     {"d", "by day"}};
  const auto sort = tarn::one_of(query["sort"], kSorts);
  for (const tarn::Choice &choice : kSorts) {
    if (sort && *sort == choice.value())
      std::puts(choice.label().data());
  }
  show("page", page);
  show("depth", depth);
  show("since", since);
  show("sort", sort);
  show("all", tarn::boolean(query["all"]));
  show("name", tarn::line(query["name"], 20));
  show("note", tarn::lines(query["note"], 2000));
  show("tag", tag(query["tag"]));
  return 0;
}

/* Output:
$ export REQUEST_METHOD=POST PATH_INFO=/lake/7/ \
    HTTP_ACCEPT_LANGUAGE=de
$ QUERY_STRING='page=2&since=2024-02-29&sort=d&all=on&name=Ada' \
    ./cpp-form-input
POST /lake/7/, 2 segments
about a lake
language: de
page 2
depth 1.5
since 2024/2/29
by day
page: fine
depth: missing
since: fine
sort: fine
all: fine
name: fine
note: missing
tag: missing
$ QUERY_STRING='page=100&depth=-1&since=2024-02-30&sort=x&all=yes' \
    PATH_INFO=/lake/../7 ./cpp-form-input
an odd path
POST /lake/../7, 0 segments
language: de
depth 1.5
page: out of range
depth: out of range
since: malformed
sort: out of range
all: malformed
name: missing
note: missing
tag: missing
*/
