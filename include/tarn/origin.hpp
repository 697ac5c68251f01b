/* Which site a request comes from. */
#ifndef TARN_ORIGIN_HPP
#define TARN_ORIGIN_HPP

#include <cstddef>
#include <string_view>

#include "argument.hpp"
#include "characters.hpp"
#include "environment.hpp"

namespace tarn {
namespace detail {

// A scheme, and a host with its port unless that is the default. Empty if a text is not an origin,
// such as "null".
class WebOrigin {
 public:
  explicit WebOrigin(std::string_view text) noexcept
      : WebOrigin(begins_with(text, "https://"), after_scheme(text)) {}
  WebOrigin(bool is_https, std::string_view host) noexcept
      : is_https_(is_https), host_(without_end(host, is_https ? ":443" : ":80")) {}

  // Ignores case, which has no meaning in a scheme or a host.
  bool operator==(const WebOrigin &other) const noexcept {
    return !host_.empty() && is_https_ == other.is_https_ && host_.size() == other.host_.size() &&
           begins_with(host_, other.host_);
  }

 private:
  static std::string_view after_scheme(std::string_view text) noexcept {
    const bool is_http = begins_with(text, "http://");
    text.remove_prefix(begins_with(text, "https://") ? 8 : is_http ? 7 : text.size());
    return text;
  }
  static std::string_view without_end(std::string_view text, std::string_view end) noexcept {
    if (text.size() <= end.size()) return text;
    std::string_view last = text;
    last.remove_prefix(text.size() - end.size());
    if (last == end) text.remove_suffix(end.size());
    return text;
  }

  bool is_https_;
  std::string_view host_;
};

inline bool is_same_origin(WebOrigin own) noexcept {
  const std::string_view site = or_empty(Environment::variable("HTTP_SEC_FETCH_SITE"));
  const std::string_view method = or_empty(Environment::variable("REQUEST_METHOD"));
  if (site == "none") return method == "GET" || method == "HEAD";
  if (!site.empty()) return site == "same-origin";
  return own == WebOrigin(or_empty(Environment::variable("HTTP_ORIGIN")));
}

}  // namespace detail

/** Tells whether a page of this site caused the request, according to the browser. Ask before a
 *  request changes anything.
 *
 *  The answer is the first that applies:
 *
 *  - Sec-Fetch-Site is "same-origin": true.
 *  - It is "none", because the visitor typed the address or opened a bookmark: true for GET and HEAD.
 *    Nobody types a POST, and one that is reloaded may have come from another site.
 *  - It is anything else: false, also for other hosts of the same domain ("same-site").
 *  - Origin has the scheme of the request, and the host and port of the Host header: true.
 *  - Otherwise false. Browsers send Origin with every POST, but not with every GET; programs such as
 *    curl send neither header.
 *
 *  The scheme is https if the variable HTTPS is "on". Behind a proxy that receives HTTPS and passes
 *  on HTTP, or changes the Host header, pass the origin of the site instead.
 */
inline bool same_origin() noexcept {
  return detail::is_same_origin(
      detail::WebOrigin(Environment::variable("HTTPS") == "on",
                        detail::or_empty(Environment::variable("HTTP_HOST"))));
}

/** As same_origin(), with the origin that visitors see.
 *
 *  @param own  the scheme, the host and, unless it is the default, the port, without a "/" at the end:
 *              `https://example.org`
 */
inline bool same_origin(const detail::TextArgument &own) noexcept {
  return detail::is_same_origin(detail::WebOrigin(own.view()));
}

}  // namespace tarn

#endif  // TARN_ORIGIN_HPP
