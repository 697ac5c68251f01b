/* The environment. */
#ifndef TARN_ENVIRONMENT_HPP
#define TARN_ENVIRONMENT_HPP

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "cookie.hpp"

namespace tarn {

/** Reads what a web server says of a request: variables, as they are when they are asked for; body
 *  and cookies, as they came.
 *
 *  The texts of variables are the environment's own: views of them are good until a variable is
 *  changed, and empty for one that is unset; variable() tells the two apart. Numbers are decimal, 0
 *  when unset, and stop at the limits of 32 bits.
 *
 *  @code
 *  if (request.environment().request_method() == "POST") ...
 *  @endcode
 */
class Environment : public detail::Lent<TARN_ENVIRONMENT_MAGIC> {
 public:
  using Lent::Lent;

  /** Any variable, with or without a request. @return its value; nothing when it is unset */
  static std::optional<std::string_view> variable(const char *name) noexcept {
    return detail::maybe(std::getenv(name));
  }

  /** SERVER_SOFTWARE. */
  std::string_view server_software() const noexcept { return text<CgiEnv_getServerSoftware>(); }
  /** SERVER_NAME. */
  std::string_view server_name() const noexcept { return text<CgiEnv_getServerName>(); }
  /** GATEWAY_INTERFACE. */
  std::string_view gateway_interface() const noexcept { return text<CgiEnv_getGatewayInterface>(); }
  /** SERVER_PROTOCOL. */
  std::string_view server_protocol() const noexcept { return text<CgiEnv_getServerProtocol>(); }
  /** SERVER_PORT. */
  std::int32_t server_port() const noexcept { return detail::ask<CgiEnv_getServerPort>(handle_); }
  /** HTTP_COOKIE, the raw header. */
  std::string_view http_cookie() const noexcept { return text<CgiEnv_getCookies>(); }
  /** REQUEST_METHOD. */
  std::string_view request_method() const noexcept { return text<CgiEnv_getRequestMethod>(); }
  /** PATH_INFO. */
  std::string_view path_info() const noexcept { return text<CgiEnv_getPathInfo>(); }
  /** PATH_TRANSLATED. */
  std::string_view path_translated() const noexcept { return text<CgiEnv_getPathTranslated>(); }
  /** SCRIPT_NAME. */
  std::string_view script_name() const noexcept { return text<CgiEnv_getScriptName>(); }
  /** QUERY_STRING. */
  std::string_view query_string() const noexcept { return text<CgiEnv_getQueryString>(); }
  /** CONTENT_LENGTH, in bytes, read afresh. */
  std::int32_t content_length() const noexcept {
    return detail::ask<CgiEnv_getContentLength>(handle_);
  }
  /** CONTENT_TYPE. */
  std::string_view content_type() const noexcept { return text<CgiEnv_getContentType>(); }
  /** HTTP_REFERER. */
  std::string_view http_referer() const noexcept { return text<CgiEnv_getReferrer>(); }
  /** REMOTE_HOST. */
  std::string_view remote_host() const noexcept { return text<CgiEnv_getRemoteHost>(); }
  /** REMOTE_ADDR. */
  std::string_view remote_addr() const noexcept { return text<CgiEnv_getRemoteAddr>(); }
  /** AUTH_TYPE. */
  std::string_view auth_type() const noexcept { return text<CgiEnv_getAuthType>(); }
  /** REMOTE_USER. */
  std::string_view remote_user() const noexcept { return text<CgiEnv_getRemoteUser>(); }
  /** REMOTE_IDENT. */
  std::string_view remote_ident() const noexcept { return text<CgiEnv_getRemoteIdent>(); }
  /** HTTP_ACCEPT. */
  std::string_view http_accept() const noexcept { return text<CgiEnv_getAccept>(); }
  /** HTTP_USER_AGENT. */
  std::string_view http_user_agent() const noexcept { return text<CgiEnv_getUserAgent>(); }
  /** REDIRECT_REQUEST. */
  std::string_view redirect_request() const noexcept { return text<CgiEnv_getRedirectRequest>(); }
  /** REDIRECT_URL. */
  std::string_view redirect_url() const noexcept { return text<CgiEnv_getRedirectURL>(); }
  /** REDIRECT_STATUS. */
  std::string_view redirect_status() const noexcept { return text<CgiEnv_getRedirectStatus>(); }
  /** Tells whether HTTPS is "on", in lower case. */
  bool https() const noexcept { return number_in(TARN_ENVIRONMENT_HTTPS) == 1; }

  /** The body of a POST as it came; bytes that did not arrive are zero.
   *
   *  @return a view, good to the end of the process; nothing when none was read
   */
  std::optional<std::string_view> body() const noexcept {
    const std::string_view bytes = detail::bytes_of(child_in(TARN_ENVIRONMENT_BODY));
    return bytes.empty() ? std::nullopt : std::optional(bytes);
  }

  /** The cookies, lent by the request; empty when none came. */
  Cookies cookies() const noexcept { return Cookies(child_in(TARN_ENVIRONMENT_COOKIES)); }

 private:
  template <auto kGet>
  std::string_view text() const noexcept {
    return detail::ask<kGet>(handle_);
  }
};

}  // namespace tarn

#endif  // TARN_ENVIRONMENT_HPP
