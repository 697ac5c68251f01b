/* Setting cookies. */
#ifndef TARN_SET_COOKIE_HPP
#define TARN_SET_COOKIE_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <utility>

#include "argument.hpp"
#include "escape.hpp"

namespace tarn {
namespace detail {

// Names of headers and cookies consist of these.
inline bool is_token(char c) noexcept {
  return is_alphanumeric(c) || is_among(c, "!#$%&'*+-.^_`|~");
}

// Tarn decodes the names of cookies, which would change these two.
inline bool is_in_cookie_name(char c) noexcept { return is_token(c) && !is_among(c, "%+"); }
inline bool is_in_cookie_path(char c) noexcept { return is_visible(c) && c != ';'; }
inline bool is_in_domain(char c) noexcept { return is_alphanumeric(c) || is_among(c, ".-"); }

}  // namespace detail

/** When a browser sends a cookie with a request that another site caused. */
enum class SameSite {
  strict, /**< never */
  lax,    /**< when the visitor follows a link to this site */
  none    /**< always; requires secure() */
};

/** A cookie to set, for Response::cookie().
 *
 *  @code
 *  response.cookie(tarn::SetCookie("guest", name).max_age(60).secure());
 *  @endcode
 *
 *  By default it lasts until the browser is closed, goes to all pages of this host, is hidden from
 *  their scripts, and is sent when a visitor follows a link from another site but not with that
 *  site's forms. It is a view: the texts must live until Response::cookie() returns. Temporaries
 *  are copied.
 */
class SetCookie {
 public:
  /** Makes a cookie to set.
   *
   *  @param name   letters, digits and any of "!#$&'*-.^_`|~"
   *  @param value  any text without zero bytes, or a whole number; Request::cookie() returns it
   *                unchanged. With the name, at most 4,096 bytes after escaping
   */
  SetCookie(detail::KeptText name, detail::KeptText value) noexcept
      : name_(std::move(name)), value_(std::move(value)) {}

  /** Keeps the cookie for this many seconds. 0 deletes it. */
  SetCookie &max_age(std::int64_t seconds) noexcept {
    max_age_ = seconds;
    has_max_age_ = true;
    return *this;
  }
  /** Limits the cookie to pages below this path, which begins with "/". */
  SetCookie &path(detail::KeptText path) noexcept {
    path_ = std::move(path);
    return *this;
  }
  /** Sends the cookie to this domain and all hosts below it, not only to this host. */
  SetCookie &domain(detail::KeptText domain) noexcept {
    domain_ = std::move(domain);
    return *this;
  }
  /** Sends the cookie over HTTPS only. */
  SetCookie &secure() noexcept {
    secure_ = true;
    return *this;
  }
  /** Lets scripts in the page read the cookie. */
  SetCookie &readable_by_scripts() noexcept {
    http_only_ = false;
    return *this;
  }
  /** Decides when the cookie is sent with requests from other sites. The default is SameSite::lax. */
  SetCookie &same_site(SameSite site) noexcept {
    same_site_ = site;
    return *this;
  }
  /** Keeps a separate cookie for each site whose pages show this one in a frame. The cookie must be
   *  secure(), and SameSite::none for the browser to send it there at all. */
  SetCookie &partitioned() noexcept {
    partitioned_ = true;
    return *this;
  }

 private:
  friend class Response;

  // Why the cookie is invalid, or why browsers would ignore it; null if it is fine.
  const char *problem() const noexcept {
    using namespace detail;
    if (!name_ || !value_ || !path_ || !domain_) {
      return "cookie has a text that is a null pointer or could not be copied";
    }
    const std::string_view name = name_.view();
    const std::string_view path = path_.view();
    const bool for_host = begins_with(name, "__Host-");
    const bool for_https = for_host || begins_with(name, "__Secure-");
    if (name.empty() || !all_of(name, is_in_cookie_name)) return "invalid cookie name";
    if (is_among('\0', value_.view())) return "cookie value contains a zero byte";
    if (path.empty() || path[0] != '/' || !all_of(path, is_in_cookie_path))
      return "invalid cookie path";
    if (!all_of(domain_.view(), is_in_domain)) return "invalid cookie domain";
    // Browsers drop a cookie of more bytes, and ignore longer attributes.
    if (name.size() + url_size(value_.view()) > kMostOfCookie) {
      return "cookie name and escaped value have more than 4,096 bytes together";
    }
    if (path.size() > kMostOfAttribute || domain_.view().size() > kMostOfAttribute) {
      return "cookie path or domain has more than 1,024 bytes";
    }
    if (for_https && !secure_) return "__Host- and __Secure- cookies must be secure";
    if (same_site_ == SameSite::none && !secure_) return "SameSite::none cookies must be secure";
    if (partitioned_ && !secure_) return "partitioned cookies must be secure";
    if (for_host && (path != "/" || !domain_.view().empty())) {
      return "__Host- cookies must have path '/' and no domain";
    }
    return nullptr;
  }

  void put(detail::Buffer &out) const noexcept {
    out << "Set-Cookie: " << name_.view() << "=";
    detail::put_url(out, value_.view());
    if (has_max_age_) {
      char age[24];
      std::snprintf(age, sizeof age, "%lld", static_cast<long long>(max_age_));
      out << "; Max-Age=" << age;
    }
    if (!domain_.view().empty()) out << "; Domain=" << domain_.view();
    out << "; Path=" << path_.view();
    if (secure_) out << "; Secure";
    if (http_only_) out << "; HttpOnly";
    constexpr std::string_view kSites[] = {"Strict", "Lax", "None"};
    out << "; SameSite=" << kSites[static_cast<int>(same_site_)];
    out << (partitioned_ ? "; Partitioned\r\n" : "\r\n");
  }

  static constexpr std::size_t kMostOfCookie = 4096;
  static constexpr std::size_t kMostOfAttribute = 1024;

  detail::KeptText name_;
  detail::KeptText value_;
  detail::KeptText path_ = "/";
  detail::KeptText domain_ = "";
  std::int64_t max_age_ = 0;
  bool has_max_age_ = false;
  SameSite same_site_ = SameSite::lax;
  bool secure_ = false;
  bool http_only_ = true;
  bool partitioned_ = false;
};

}  // namespace tarn

#endif  // TARN_SET_COOKIE_HPP
