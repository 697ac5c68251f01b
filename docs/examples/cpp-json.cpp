/* Sends JSON with values of every kind, and shows a refusal: */

#include <cstdio>
#include <tarn.hpp>

int main() {
  const std::optional<double> depth;
  tarn::JsonWriter json;
  json.begin_object();
  json.member("lake", "Attersee").member("depth", depth);
  json.key("months").begin_array();
  for (int month = 6; month < 9; ++month) json.value(month);
  json.end_array();
  json.key("open").value(true);
  json.end_object();
  if (!tarn::Response().send_json(json.take())) return 1;

  tarn::JsonWriter wrong;
  wrong.begin_object().value("no key").end_object();
  const tarn::Text refused = wrong.take();
  std::printf("\n%s\n", refused.problem());
  return 0;
}

/* Output:
$ ./cpp-json
Content-Type: application/json
Content-Length: 61

{"lake":"Attersee","depth":null,"months":[6,7,8],"open":true}
JSON: a value in an object needs a key
*/
