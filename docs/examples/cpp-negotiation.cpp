/* Responds in the language and the type that the visitor prefers: */

#include <tarn.hpp>

int main() {
  tarn::Response response;
  const std::string_view tag =
      tarn::choose_language(response, {"en", "de"});
  const std::string_view type = tarn::choose_type(
      response, {"text/plain", "application/json"});
  response.content_language(tag);
  const char *const text = tag == "de" ? "tief" : "deep";
  if (type.empty()) return response.send_error(406) ? 0 : 1;
  if (type == "text/plain") return response.send_text(text) ? 0 : 1;
  tarn::JsonWriter json;
  return response.send_json(json.value(text).take()) ? 0 : 1;
}

/* Output:
$ ./cpp-negotiation; echo
Content-Type: text/plain; charset=utf-8
Vary: Accept-Language
Vary: Accept
Content-Language: en
Content-Length: 4

deep
$ export HTTP_ACCEPT_LANGUAGE='fr, de-AT;q=0.9, en;q=0.5'
$ HTTP_ACCEPT='text/plain;q=0.1, application/json' ./cpp-negotiation | tail -n 1; echo
"tief"
$ HTTP_ACCEPT=image/png ./cpp-negotiation | head -n 1
Status: 406 Not Acceptable
*/
