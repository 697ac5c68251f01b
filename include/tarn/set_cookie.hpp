/* Setting cookies. */
#ifndef TARN_SET_COOKIE_HPP
#define TARN_SET_COOKIE_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "escape.hpp"

namespace tarn {
namespace detail {

// Names of headers and cookies consist of these.
constexpr bool is_token(char c) noexcept {
  return is_alphanumeric(c) || is_among(c, "!#$%&'*+-.^_`|~");
}

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
 *  site's forms. It is a view: the texts must live until Response::cookie() returns.
 */
class SetCookie {
 public:
  /** Makes a cookie to set.
   *
   *  @param name   letters, digits and any of "!#$&'*-.^_`|~"
   *  @param value  any text without zero bytes; Request::cookie() returns it unchanged
   */
  SetCookie(std::string_view name, std::string_view value) noexcept : name_(name), value_(value) {}
  SetCookie(std::string_view name, std::nullptr_t) = delete;

  /** Keeps the cookie for this many seconds. 0 deletes it. */
  SetCookie &max_age(std::int64_t seconds) noexcept {
    max_age_ = seconds;
    has_max_age_ = true;
    return *this;
  }
  /** Limits the cookie to pages below this path, which begins with "/". */
  SetCookie &path(std::string_view path) noexcept {
    path_ = path;
    return *this;
  }
  /** Sends the cookie to this domain and all hosts below it, not only to this host. */
  SetCookie &domain(std::string_view domain) noexcept {
    domain_ = domain;
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

 private:
  friend class Response;

  // Why the cookie is invalid, or why browsers would ignore it; null if it is fine.
  const char *problem() const noexcept {
    using namespace detail;
    // Tarn decodes the names of cookies, which would change these two.
    const auto in_name = [](char c) { return is_token(c) && !is_among(c, "%+"); };
    const auto in_path = [](char c) { return is_visible(c) && c != ';'; };
    const auto in_domain = [](char c) { return is_alphanumeric(c) || is_among(c, ".-"); };
    const bool for_host = begins_with(name_, "__Host-");
    const bool for_https = for_host || begins_with(name_, "__Secure-");
    if (name_.empty() || !all_of(name_, in_name)) return "invalid cookie name";
    if (is_among('\0', value_)) return "cookie value contains a zero byte";
    if (path_.empty() || path_[0] != '/' || !all_of(path_, in_path)) return "invalid cookie path";
    if (!all_of(domain_, in_domain)) return "invalid cookie domain";
    if (for_https && !secure_) return "__Host- and __Secure- cookies must be secure";
    if (same_site_ == SameSite::none && !secure_) return "SameSite::none cookies must be secure";
    if (for_host && (path_ != "/" || !domain_.empty())) {
      return "__Host- cookies must have path '/' and no domain";
    }
    return nullptr;
  }

  void put(detail::Buffer &out) const noexcept {
    out << "Set-Cookie: " << name_ << "=";
    detail::put_url(out, value_);
    if (has_max_age_) {
      char age[24];
      std::snprintf(age, sizeof age, "%lld", static_cast<long long>(max_age_));
      out << "; Max-Age=" << age;
    }
    if (!domain_.empty()) out << "; Domain=" << domain_;
    out << "; Path=" << path_;
    if (secure_) out << "; Secure";
    if (http_only_) out << "; HttpOnly";
    constexpr std::string_view kSites[] = {"Strict", "Lax", "None"};
    out << "; SameSite=" << kSites[static_cast<int>(same_site_)] << "\r\n";
  }

  std::string_view name_;
  std::string_view value_;
  std::string_view path_ = "/";
  std::string_view domain_;
  std::int64_t max_age_ = 0;
  bool has_max_age_ = false;
  SameSite same_site_ = SameSite::lax;
  bool secure_ = false;
  bool http_only_ = true;
};

}  // namespace tarn

#endif  // TARN_SET_COOKIE_HPP
