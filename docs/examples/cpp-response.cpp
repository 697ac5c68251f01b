/* Sends a page with its status, headers and cookies: */

#include <cstdio>
#include <tarn.hpp>

int main() {
  tarn::SetCookie guest("__Secure-guest", "Ada L.");
  guest.max_age(30 * 86400)
      .path("/lake")
      .domain("example.org")
      .secure();
  guest.same_site(tarn::SameSite::strict);
  tarn::SetCookie theme("theme", "dark");
  theme.readable_by_scripts().same_site(tarn::SameSite::lax);
  tarn::SetCookie frame("frame", "1");
  frame.secure().same_site(tarn::SameSite::none).partitioned();

  tarn::Response response;
  response.status(405)
      .allow("GET, POST")
      .content_type("text/html; charset=utf-8");
  response.no_store().nosniff().deny_framing().no_referrer();
  response.content_security_policy("default-src 'self'")
      .content_language("en");
  response.header("X-Lake", "deep")
      .cookie(guest)
      .cookie(theme)
      .cookie(frame);
  if (response.send(tarn::Element("p", "Not like <this>.")))
    return 0;
  std::fprintf(stderr, "not sent: %s\n", response.problem());
  return 1;
}

/* Output:
$ ./cpp-response
Status: 405 Method Not Allowed
Content-Type: text/html; charset=utf-8
Cache-Control: no-store
X-Content-Type-Options: nosniff
X-Frame-Options: DENY
Referrer-Policy: no-referrer
X-Lake: deep
Content-Security-Policy: default-src 'self'
Content-Language: en
Allow: GET, POST
Set-Cookie: __Secure-guest=Ada%20L.; Max-Age=2592000; Domain=example.org; Path=/lake; Secure; HttpOnly; SameSite=Strict
Set-Cookie: theme=dark; Path=/; SameSite=Lax
Set-Cookie: frame=1; Path=/; Secure; HttpOnly; SameSite=None; Partitioned
Content-Length: 29

<p>Not like &lt;this&gt;.</p>*/
