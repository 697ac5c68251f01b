/* Signs texts, cookies and forms. It needs libsodium: compile it with
   `pkg-config --cflags --libs tarn libsodium`. */

#include <cstdio>
#include <tarn.hpp>
#include <tarn/signed.hpp>

static std::int64_t that_day() { return 1800000000; }
static std::int64_t a_day_later() { return that_day() + 86400; }

static void print(const char *what, const tarn::Verified &read) {
  const bool late = read.verdict() == tarn::Verdict::expired;
  std::printf("%s: %s%s\n", what,
              read ? read.value().data() : read.problem(),
              late ? ": ask again" : "");
}

int main() {
  tarn::Keys keys = tarn::Keys::from_file("keys");
  const tarn::Keys others = tarn::Keys::from_variable("OTHER_KEYS");
  std::printf("%zu and %zu keys\n", keys.size(), others.size());
  if (!keys) {
    std::puts(keys.problem());
    return 1;
  }
  keys.clock(that_day);  // the output below never changes

  const tarn::Text token = keys.sign("unsubscribe", "Ada", 60);
  std::puts(token.c_str());
  print("token", keys.verify("unsubscribe", token.view()));
  print("another purpose", keys.verify("subscribe", token.view()));
  if (others)
    print("other keys", others.verify("unsubscribe", token.view()));

  const tarn::Request request;
  const std::string_view session =
      request.cookie("session").value_or("");
  print("cookie", keys.verify_cookie(request, "user"));
  print("form", keys.verify_form(request, "rename", session));
  tarn::Response response;
  print("message", keys.take_flash(request, response));

  response.cookie(keys.sign_cookie("user", "Ada", 3600))
      .cookie(keys.flash("Welcome, Ada."));
  const tarn::Text id = tarn::random_id();
  if (session.empty() && id.view().size() == 32) {
    response.cookie(
        tarn::SetCookie("session", "4711"));  // for you: id.view()
  }
  if (!response.send(keys.sign_form("rename", "4711", 3600)))
    return 1;

  keys.clock(a_day_later);
  print("\nlater", keys.verify("unsubscribe", token.view()));
  return 0;
}

/* Output:
$ ./cpp-signed || true
0 and 0 keys
keys: the file cannot be opened
$ (umask 077; printf '%064d\n' 7 >keys)
$ OTHER_KEYS="$(tr 7 8 <keys)" QUERY_STRING=form-token=x ./cpp-signed
1 and 1 keys
AAAAAGtJ0jxPDdAukTx9Gy6UvnI9AmbVP05A4DSBGuGjQDQuolL-h0FkYQ
token: Ada
another purpose: token was not signed with these keys for this purpose
other keys: token was not signed with these keys for this purpose
cookie: token is missing
form: token is missing
message: token is missing
Content-Type: text/html; charset=utf-8
Set-Cookie: user=AAAAAGtJ4BDfaBx991pRj5caBKgy7PSh9ZStlZex8DdUa_zPsHY5QUFkYQ; Path=/; HttpOnly; SameSite=Lax
Set-Cookie: flash=AAAAAGtJ0ywV1hrXIXYxLIUsorpJwMajXowQc9sSj9NNNZixR9bpildlbGNvbWUsIEFkYS4; Path=/; HttpOnly; SameSite=Lax
Set-Cookie: session=4711; Path=/; HttpOnly; SameSite=Lax
Content-Length: 102

<input type="hidden" name="form-token" value="AAAAAGtJ4BDo3QDL7Uv1umS4DWpnnO-a7s6_RMB7wfhYCLGqnCn-Tw">
later: token has expired: ask again
$ TOKEN=AAAAAGtJ4BDo3QDL7Uv1umS4DWpnnO-a7s6_RMB7wfhYCLGqnCn-Tw
$ USER=AAAAAGtJ4BDfaBx991pRj5caBKgy7PSh9ZStlZex8DdUa_zPsHY5QUFkYQ
$ FLASH=AAAAAGtJ0ywV1hrXIXYxLIUsorpJwMajXowQc9sSj9NNNZixR9bpildlbGNvbWUsIEFkYS4
$ HTTP_COOKIE="session=4711; user=$USER; flash=$FLASH" \
QUERY_STRING="form-token=$TOKEN" REQUEST_METHOD=GET ./cpp-signed
1 and 0 keys
AAAAAGtJ0jxPDdAukTx9Gy6UvnI9AmbVP05A4DSBGuGjQDQuolL-h0FkYQ
token: Ada
another purpose: token was not signed with these keys for this purpose
cookie: Ada
form: 
message: Welcome, Ada.
Content-Type: text/html; charset=utf-8
Set-Cookie: flash=; Max-Age=0; Path=/; HttpOnly; SameSite=Lax
Set-Cookie: user=AAAAAGtJ4BDfaBx991pRj5caBKgy7PSh9ZStlZex8DdUa_zPsHY5QUFkYQ; Path=/; HttpOnly; SameSite=Lax
Set-Cookie: flash=AAAAAGtJ0ywV1hrXIXYxLIUsorpJwMajXowQc9sSj9NNNZixR9bpildlbGNvbWUsIEFkYS4; Path=/; HttpOnly; SameSite=Lax
Content-Length: 102

<input type="hidden" name="form-token" value="AAAAAGtJ4BDo3QDL7Uv1umS4DWpnnO-a7s6_RMB7wfhYCLGqnCn-Tw">
later: token has expired: ask again
*/
