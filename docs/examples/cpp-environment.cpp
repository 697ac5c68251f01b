/* Prints everything that the server passed with the request: */

#include <cstdio>
#include <tarn.hpp>

static void print(const char *name, const std::string_view value) {
  if (!value.empty()) std::printf("%s: %s\n", name, value.data());
}

int main() {
  tarn::Request request;
  if (!request) return request.status();
  const tarn::Environment env = request.environment();

  print("method", env.request_method());
  print("path", env.path_info());
  print("path as a file", env.path_translated());
  print("script", env.script_name());
  print("query", env.query_string());
  print("type of the body", env.content_type());
  print("body", env.body().value_or(""));
  print("server", env.server_name());
  print("server's program", env.server_software());
  print("gateway", env.gateway_interface());
  print("protocol", env.server_protocol());
  print("visitor", env.remote_addr());
  print("visitor's host", env.remote_host());
  print("visitor's name", env.remote_user());
  print("visitor's account", env.remote_ident());
  print("proved by", env.auth_type());
  print("browser", env.http_user_agent());
  print("it takes", env.http_accept());
  print("it comes from", env.http_referer());
  print("its cookies", env.http_cookie());
  print("redirected", env.redirect_request());
  print("redirected from", env.redirect_url());
  print("redirected with", env.redirect_status());
  print("language",
        tarn::Environment::variable("HTTP_ACCEPT_LANGUAGE")
            .value_or("unset"));
  std::printf("port %d, %d bytes, %zu cookies, %s\n",
              env.server_port(), env.content_length(),
              env.cookies().size(),
              env.https() ? "encrypted" : "in the open");
  return 0;
}

/* Output:
$ printf 'depth=18' | REQUEST_METHOD=POST CONTENT_LENGTH=8 \
    CONTENT_TYPE=application/x-www-form-urlencoded SERVER_PORT=80 \
    SERVER_NAME=lake.example.org SERVER_PROTOCOL=HTTP/1.1 \
    SCRIPT_NAME=/cgi-bin/env PATH_INFO=/deep REMOTE_ADDR=192.0.2.7 \
    HTTP_COOKIE='a=1' HTTP_ACCEPT_LANGUAGE=en ./cpp-environment
method: POST
path: /deep
script: /cgi-bin/env
type of the body: application/x-www-form-urlencoded
body: depth=18
server: lake.example.org
protocol: HTTP/1.1
visitor: 192.0.2.7
its cookies: a=1
language: en
port 80, 8 bytes, 1 cookies, in the open
*/
