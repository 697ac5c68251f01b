/* Refuses changes that another site's page asks for: */

#include <tarn.hpp>

int main() {
  tarn::Response response;
  // Behind a proxy that receives HTTPS: same_origin("https://example.org").
  const bool trusted = tarn::same_origin() ||
                       tarn::same_origin("https://example.org");
  if (!trusted)
    return response.status(403).send_text(
               "Send it from our page.\n")
               ? 0
               : 1;
  return response.send_text("Changed.\n") ? 0 : 1;
}

/* Output:
$ export REQUEST_METHOD=POST HTTP_HOST=localhost
$ HTTP_SEC_FETCH_SITE=same-origin ./cpp-origin | tail -n 1
Changed.
$ HTTP_SEC_FETCH_SITE=cross-site ./cpp-origin
Status: 403 Forbidden
Content-Type: text/plain; charset=utf-8
Content-Length: 23

Send it from our page.
$ HTTP_ORIGIN=https://example.org ./cpp-origin | tail -n 1
Changed.
$ HTTP_ORIGIN=null ./cpp-origin | tail -n 1
Send it from our page.
*/
