/* Reads forms as a whole and as a stream, and looks into each part: */

#include <unistd.h>

#include <cstdio>
#include <tarn/whole_form.hpp>

static int shown(std::string_view text) {
  return static_cast<int>(text.size());
}

// Any field, of a stream or of a whole form.
static void show(const tarn::Field &field) {
  const std::string_view name = field.name();
  std::printf("at %d: %.*s\n", static_cast<int>(field.offset()),
              shown(name), name.data());
  if (!field.filename()) return;
  const tarn::FileName safe = field.safe_name();
  std::printf("a file, %s, %s\n", safe.c_str(),
              field.type().value_or("of no type").data());
  if (field.header("X-Camera")) std::printf("with a header\n");
}

static void show(const tarn::Problem &problem) {
  if (!problem) return;
  std::printf("%s at %d, status %d: %s\n", problem.name(),
              static_cast<int>(problem.offset()), problem.status(),
              problem.message());
  if (problem == tarn::FormProblem::limit &&
      problem.limit() == tarn::FormLimit::fields) {
    std::printf("only %d fields\n",
                static_cast<int>(problem.limit_value()));
  }
}

static void read_as_a_whole(tarn::FormReader &&source) {
  const tarn::Form form(std::move(source));
  if (!form) return show(form.problem());
  std::printf("notes: %s\n", form["notes"].value_or("").data());
  std::printf("lake: %s\n", form.get("lake", "any").data());
  std::printf(
      "depth: %d m\n",
      static_cast<int>(form.integer("depth", 0, 99).value_or(0)));
  const tarn::FormTexts tags = form.all("tag");
  for (const std::string_view tag : tags)
    std::printf("tag: %s\n", tag.data());
  const std::optional<tarn::KeptField> photo = form.file("photo");
  if (photo && photo->view() == photo->text() && photo->save("."))
    std::printf("saved\n");
  const tarn::FormFiles files = form.files();
  for (const tarn::KeptField file : files)
    for (const std::string_view block : file.blocks())
      std::printf("%zu bytes\n", block.size());
  if (form.field("tag", 1) && form.field_ignoring_case("TAG"))
    std::printf("%zu of %zu are tags\n", form.count("tag"),
                form.size());
  tarn::FormFields::Iterator second = form.begin();
  if (++second != form.end()) show(*second);
}

static void read_as_a_stream(tarn::FormReader &form) {
  for (tarn::Field &field : form) {
    show(field);
    if (field.is_file()) {
      char start[4];
      if (field.read(start, sizeof start) == 4U)
        std::printf("begun\n");
      for (const std::string_view block : field.blocks())
        std::printf("then %zu bytes\n", block.size());
    } else if (field.name() == "notes") {
      std::fflush(stdout);
      if (field.write(STDOUT_FILENO) == 0) std::printf("\n");
    } else if (field.name() == "tag") {
      field.skip();
    } else if (const auto text = field.text()) {
      std::printf("%llu bytes, %s\n",
                  static_cast<unsigned long long>(field.size()),
                  tarn::is_utf8(*text) ? "UTF-8" : "not UTF-8");
    }
  }
  std::printf(form.is_whole() ? "whole\n" : "not whole\n");
  show(form.problem());
}

// A body of any type, a cookie and the query.
static void read_as_json(tarn::FormReader &form) {
  const tarn::Field &body = form.body();
  if (!body) return;
  std::printf("json: %s\n", body.text().value_or("").data());
  std::printf("cookie %s, %s\n",
              form.cookie("guest").value_or("").data(),
              form.decoded_cookie("guest").value_or("").data());
  std::printf("query %s, %s\n",
              form.query("lake").value_or("").data(),
              form.decoded_query("lake").value_or("").data());
}

int main(int, char **argv) {
  const std::string_view how = argv[1];
  constexpr auto limits = tarn::FormLimits()
                              .fields(20)
                              .header_size(4000)
                              .text_size(100000)
                              .body_size(10000000)
                              .wait_seconds(30)
                              .total_seconds(600)
                              .memory_size(100000)
                              .load_size(1000000);
  tarn::FormReader form(limits);
  form.durable(false);  // the photo may be lost with the power
  if (how == "whole") read_as_a_whole(std::move(form));
  if (how == "stream") read_as_a_stream(form);
  if (how == "json") read_as_json(form);

  // Other sources than the request.
  if (how == "memory") {
    read_as_a_whole(tarn::FormReader::from_memory(
        "application/x-www-form-urlencoded", "notes=calm"));
    read_as_a_whole(tarn::FormReader::from_query(
        "a&b&c", tarn::FormLimits().fields(2)));
  }
  if (how == "pipe") {
    form.read_to_end();
    show(*form.next());
    auto second = tarn::FormReader::from_descriptor(
        "application/x-www-form-urlencoded", STDIN_FILENO,
        tarn::unlimited);
    read_as_a_stream(second);
  }

  // Functions of tarn_form.h work on the same objects.
  if (how == "c") {
    TarnForm *const opened = TarnForm_openQuery("depth=21");
    TarnForm *handle = opened;
    tarn::FormReader reader(tarn::adopt, handle);
    const tarn::Field *field = reader.next();
    std::puts(TarnFormField_text(field->handle()));
    const tarn::Problem problem(reader.handle());
    const bool fine = problem.code() == tarn::FormProblem::none;
    handle = reader.release();
    TarnForm_close(handle);
    return fine ? 0 : 1;
  }
  return 0;
}

/* Output:
$ field='Content-Disposition: form-data; name='
$ printf '%s\r\n' --cut "$field\"notes\"" '' 'Calm.' 'No wind.' \
    --cut "$field\"tag\"" '' lake --cut "$field\"tag\"" '' north \
    --cut "$field\"depth\"" '' 21 \
    --cut "$field\"photo\"; filename=\"../lake 1.png\"" \
    'Content-Type: image/png' 'X-Camera: none' '' \
    "$(printf '\211PNG\r\n\032\n+')" --cut-- >body
$ export REQUEST_METHOD=POST CONTENT_LENGTH=$(wc -c <body) \
    CONTENT_TYPE='multipart/form-data; boundary=cut'
$ ./cpp-form whole <body | tr -d '\r'
notes: Calm.
No wind.
lake: any
depth: 21 m
tag: lake
tag: north
saved
9 bytes
2 of 5 are tags
at 72: tag
$ wc -c <lake_1.png
9
$ ./cpp-form stream <body | tr -d '\r'
at 0: notes
Calm.
No wind.
at 72: tag
at 131: tag
at 191: depth
2 bytes, UTF-8
at 250: photo
a file, lake_1.png, image/png
with a header
begun
then 5 bytes
whole
$ head -c 150 body | ./cpp-form stream | tr -d '\r'
at 0: notes
Calm.
No wind.
at 72: tag
not whole
cut_short at 150, status 400: cut short: the body is shorter than its length
$ ./cpp-form memory
notes: calm
lake: any
depth: 0 m
limit at 4, status 413: more than 2 fields
only 2 fields
$ printf 'depth=21' | CONTENT_LENGTH= \
    CONTENT_TYPE=application/x-www-form-urlencoded ./cpp-form pipe
at 0: depth
whole
$ printf '{}' | CONTENT_TYPE=application/json CONTENT_LENGTH=2 \
    HTTP_COOKIE='guest=Ada%20L.' QUERY_STRING='lake=Lake%20Garda' \
    ./cpp-form json
json: {}
cookie Ada%20L., Ada L.
query Lake%20Garda, Lake Garda
$ ./cpp-form c
21
*/
