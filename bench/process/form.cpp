// form.c written with tarn.hpp: the operations `text`, `load` and `skip`, once. It sends the same
// response to the same request.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tarn.hpp>

namespace {

unsigned long long fields, name_bytes, value_bytes;

void count(const tarn::Field &field) {
  ++fields;
  name_bytes += field.name().size();
  value_bytes += field.size();
}

void check(bool holds, const char *what) {
  if (holds) return;
  std::fprintf(stderr, "form: %s\n", what);
  std::exit(1);
}

tarn::FormLimits limits() {
  const std::uint64_t all = tarn::unlimited;
  return tarn::FormLimits().fields(all).header_size(all).text_size(all).load_size(all);
}

void text(const tarn::Field &field) { check(field.text().has_value(), "a value cannot be read"); }

void skip(const tarn::Field &field) { field.skip(); }

void step(void (*read_value)(const tarn::Field &)) {
  tarn::FormReader reader(limits());
  for (const tarn::Field &field : reader) {
    read_value(field);
    count(field);
  }
  check(reader.is_whole(), reader.problem().message());
}

// Functions of tarn_form.h find a field by its place.
void look(const tarn::Form &form, std::uint64_t index) {
  const char *const name = TarnFormField_name(TarnForm_get(form.handle(), nullptr, index));
  check(form[name].has_value(), "a field is missing");
}

void load() {
  const tarn::Form form(limits());
  for (const tarn::KeptField field : form) count(field);
  if (const std::size_t all = form.size(); all > 0) {
    look(form, 0);
    look(form, all / 2);
    look(form, all - 1);
  }
  check(form.is_whole(), form.problem().message());
}

}  // namespace

int main(int count, char **arguments) {
  const char *const operation = count > 1 ? arguments[1] : "text";
  if (std::strcmp(operation, "load") == 0) {
    load();
  } else {
    step(std::strcmp(operation, "skip") == 0 ? skip : text);
  }
  std::printf("Content-Type: text/plain\n\n%llu fields, names of %llu and values of %llu bytes\n",
              fields, name_bytes, value_bytes);
  return std::fflush(stdout) == 0 ? 0 : 1;
}
