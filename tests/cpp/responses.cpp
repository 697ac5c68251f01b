// The script of responses_test.py: a path for each kind of response.
#include <tarn.hpp>

namespace {

int exit_status(bool sent) { return sent ? 0 : 1; }

tarn::StoredFile file_in(const tarn::PathValues &path) {
  const std::string_view folder = tarn::Environment::variable("LAKES").value_or("");
  return tarn::StoredFile::below(folder, *path["name"]);
}

int file(const tarn::PathValues &path) {
  return exit_status(tarn::Response().send_file(file_in(path)));
}

int download(const tarn::PathValues &path) {
  return exit_status(tarn::Response().attachment(*path["name"]).send_file(file_in(path)));
}

int stream() {
  tarn::Response response;
  response.cookie(tarn::SetCookie("__Host-a", "1").secure().partitioned());
  tarn::Stream body(response);
  bool more = true;
  for (int i = 0; more && i < 20000; ++i) more = body.write("0123456789");
  return exit_status(body.finish());
}

int shared() {
  tarn::Cors cors({"https://app.example.org"});
  cors.methods("PUT").headers("X-Lake").credentials();
  tarn::Response response;
  cors.apply(response);
  return exit_status(tarn::Cors::is_preflight() ? response.send() : response.send_text("deep\n"));
}

int chosen() {
  tarn::Response response;
  const std::string_view language = tarn::choose_language(response, {"en", "de"});
  const std::string_view type = tarn::choose_type(response, {"text/html", "application/json"});
  if (type.empty()) return exit_status(response.send_error(406));
  return exit_status(response.content_language(language).content_type(type).send_text("{}"));
}

}  // namespace

int main() {
  tarn::Router router;
  router.route("GET", "/file/{name}", file)
      .route("GET", "/download/{name}", download)
      .route("GET", "/stream", stream)
      .route("GET", "/shared", shared)
      .route("OPTIONS", "/shared", shared)
      .route("GET", "/chosen", chosen);
  return router.finish();
}
