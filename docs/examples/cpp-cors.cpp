/* Lets the pages of one other site use the script: */

#include <tarn.hpp>

int main(int argc, char **) {
  tarn::Cors cors({"https://lake.example.org"});
  cors.methods("PUT")
      .headers("Content-Type")
      .expose("ETag")
      .max_age(600)
      .credentials();
  // What every page may read.
  const tarn::Cors all = tarn::Cors::any_origin();

  tarn::Response response;
  if (argc > 1)
    all.apply(response);
  else
    cors.apply(response);
  if (tarn::Cors::is_preflight()) return response.send() ? 0 : 1;
  return response.send_text("169 m\n") ? 0 : 1;
}

/* Output:
$ export HTTP_ORIGIN=https://lake.example.org
$ REQUEST_METHOD=OPTIONS HTTP_ACCESS_CONTROL_REQUEST_METHOD=PUT ./cpp-cors
Status: 204 No Content
Vary: Origin, Access-Control-Request-Method, Access-Control-Request-Headers
Access-Control-Allow-Origin: https://lake.example.org
Access-Control-Allow-Credentials: true
Access-Control-Allow-Methods: PUT
Access-Control-Allow-Headers: Content-Type
Access-Control-Max-Age: 600

$ ./cpp-cors
Content-Type: text/plain; charset=utf-8
Vary: Origin
Access-Control-Allow-Origin: https://lake.example.org
Access-Control-Allow-Credentials: true
Access-Control-Expose-Headers: ETag
Content-Length: 6

169 m
$ ./cpp-cors public | grep Access
Access-Control-Allow-Origin: *
$ HTTP_ORIGIN=https://example.net ./cpp-cors | grep -c Access || true
0
*/
