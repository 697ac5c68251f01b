/* The environment. */
#ifndef TARN_ENVIRONMENT_HPP
#define TARN_ENVIRONMENT_HPP

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "cookie.hpp"

namespace tarn {

/** Reads what the web server passed with a request: the environment variables, the body and the
 *  cookies.
 *
 *  Variables are read when they are asked for. A view of one is valid until a variable changes; an
 *  unset variable reads as empty, and variable() tells the two apart. Numbers are decimal, 0 when
 *  unset, and limited to 32 bits.
 *
 *  @code
 *  if (request.environment().request_method() == "POST") ...
 *  @endcode
 */
class Environment : public detail::NodeView<TARN_ENVIRONMENT_MAGIC> {
 public:
  using NodeView::NodeView;

  /** Any variable, with or without a request. @return its value; nothing when it is unset */
  static std::optional<std::string_view> variable(const char *name) noexcept {
    return detail::optional_text(std::getenv(name));
  }

  /** SERVER_SOFTWARE. */
  std::string_view server_software() const noexcept { return text(CgiEnv_getServerSoftware); }
  /** SERVER_NAME. */
  std::string_view server_name() const noexcept { return text(CgiEnv_getServerName); }
  /** GATEWAY_INTERFACE. */
  std::string_view gateway_interface() const noexcept { return text(CgiEnv_getGatewayInterface); }
  /** SERVER_PROTOCOL. */
  std::string_view server_protocol() const noexcept { return text(CgiEnv_getServerProtocol); }
  /** SERVER_PORT. */
  std::int32_t server_port() const noexcept { return detail::query(CgiEnv_getServerPort, handle_); }
  /** HTTP_COOKIE, the header as it was sent. */
  std::string_view http_cookie() const noexcept { return text(CgiEnv_getCookies); }
  /** REQUEST_METHOD. */
  std::string_view request_method() const noexcept { return text(CgiEnv_getRequestMethod); }
  /** PATH_INFO. */
  std::string_view path_info() const noexcept { return text(CgiEnv_getPathInfo); }
  /** PATH_TRANSLATED. */
  std::string_view path_translated() const noexcept { return text(CgiEnv_getPathTranslated); }
  /** SCRIPT_NAME. */
  std::string_view script_name() const noexcept { return text(CgiEnv_getScriptName); }
  /** QUERY_STRING. */
  std::string_view query_string() const noexcept { return text(CgiEnv_getQueryString); }
  /** CONTENT_LENGTH, in bytes. */
  std::int32_t content_length() const noexcept {
    return detail::query(CgiEnv_getContentLength, handle_);
  }
  /** CONTENT_TYPE. */
  std::string_view content_type() const noexcept { return text(CgiEnv_getContentType); }
  /** HTTP_REFERER. */
  std::string_view http_referer() const noexcept { return text(CgiEnv_getReferrer); }
  /** REMOTE_HOST. */
  std::string_view remote_host() const noexcept { return text(CgiEnv_getRemoteHost); }
  /** REMOTE_ADDR. */
  std::string_view remote_addr() const noexcept { return text(CgiEnv_getRemoteAddr); }
  /** AUTH_TYPE. */
  std::string_view auth_type() const noexcept { return text(CgiEnv_getAuthType); }
  /** REMOTE_USER. */
  std::string_view remote_user() const noexcept { return text(CgiEnv_getRemoteUser); }
  /** REMOTE_IDENT. */
  std::string_view remote_ident() const noexcept { return text(CgiEnv_getRemoteIdent); }
  /** HTTP_ACCEPT. */
  std::string_view http_accept() const noexcept { return text(CgiEnv_getAccept); }
  /** HTTP_USER_AGENT. */
  std::string_view http_user_agent() const noexcept { return text(CgiEnv_getUserAgent); }
  /** REDIRECT_REQUEST. */
  std::string_view redirect_request() const noexcept { return text(CgiEnv_getRedirectRequest); }
  /** REDIRECT_URL. */
  std::string_view redirect_url() const noexcept { return text(CgiEnv_getRedirectURL); }
  /** REDIRECT_STATUS. */
  std::string_view redirect_status() const noexcept { return text(CgiEnv_getRedirectStatus); }
  /** Tells whether HTTPS is "on", in lower case. */
  bool https() const noexcept { return number_in(TARN_ENVIRONMENT_HTTPS) == 1; }

  /** The body of a POST as it was sent; bytes that did not arrive are zero.
   *
   *  @return a view, valid until the process ends; nothing when no body was read
   */
  std::optional<std::string_view> body() const noexcept {
    const std::string_view bytes = detail::bytes_of(child_in(TARN_ENVIRONMENT_BODY));
    if (bytes.empty()) return {};
    return bytes;
  }

  /** The cookies, valid as long as the request; empty when none were sent. */
  Cookies cookies() const noexcept { return Cookies(child_in(TARN_ENVIRONMENT_COOKIES)); }

 private:
  std::string_view text(const char *(*get)(TarnHandle *)) const noexcept {
    return detail::query(get, handle_);
  }
};

}  // namespace tarn

#endif  // TARN_ENVIRONMENT_HPP
