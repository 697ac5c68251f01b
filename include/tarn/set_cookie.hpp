/* Cookies to set. */
#ifndef TARN_SET_COOKIE_HPP
#define TARN_SET_COOKIE_HPP

#include <cstdint>
#include <cstdio>
#include <string_view>

#include "escape.hpp"

namespace tarn {

namespace detail {

// What names of headers and cookies are made of.
constexpr bool is_token(char c) noexcept {
  return is_alphanumeric(c) || is_among(c, "!#$%&'*+-.^_`|~");
}

}  // namespace detail

/** With which requests that another site causes a browser sends a cookie. */
enum class SameSite {
  strict, /**< with none */
  lax,    /**< with links to this site */
  none    /**< with all; takes secure() */
};

/** A cookie to be set, for Response::cookie().
 *
 *  @code
 *  response.cookie(tarn::SetCookie("guest", name).max_age(60).secure());
 *  @endcode
 *
 *  Without more it ends with the browser's session, goes to all pages of this host, is hidden from
 *  their scripts, and comes with links from other sites but not with their forms. It is a view: the
 *  texts have to live until the response has taken it.
 */
class SetCookie {
 public:
  /** Makes a cookie to be set.
   *
   *  @param name   letters, digits and any of "!#$&'*-.^_`|~"
   *  @param value  any text without zero bytes; it comes back as it is
   */
  SetCookie(std::string_view name, std::string_view value) noexcept : name_(name), value_(value) {}
  SetCookie(std::string_view name, std::nullptr_t) = delete;

  /** Keeps it for so many seconds. 0 deletes it. */
  SetCookie &max_age(std::int64_t seconds) noexcept {
    max_age_ = seconds;
    keeps_ = true;
    return *this;
  }
  /** For the pages below this path, which begins with "/". */
  SetCookie &path(std::string_view path) noexcept {
    path_ = path;
    return *this;
  }
  /** For this host and all below it, instead of the host that answers. */
  SetCookie &domain(std::string_view domain) noexcept {
    domain_ = domain;
    return *this;
  }
  /** By https only. */
  SetCookie &secure() noexcept {
    secure_ = true;
    return *this;
  }
  /** Lets scripts in the page read it. */
  SetCookie &readable_by_scripts() noexcept {
    http_only_ = false;
    return *this;
  }
  /** With which requests from other sites it is sent; SameSite::lax without it. */
  SetCookie &same_site(SameSite site) noexcept {
    same_site_ = site;
    return *this;
  }

 private:
  friend class Response;

  // Why it is no cookie, or none that a browser would take; null when it is one.
  const char *problem() const noexcept {
    using namespace detail;
    // Tarn reads names as URL-encoded.
    const auto in_name = [](char c) { return is_token(c) && !is_among(c, "%+"); };
    const auto in_path = [](char c) { return is_visible(c) && c != ';'; };
    const auto in_domain = [](char c) { return is_alphanumeric(c) || is_among(c, ".-"); };
    const bool for_host = begins_with(name_, "__Host-");
    const bool for_https = for_host || begins_with(name_, "__Secure-");
    if (name_.empty() || !all_of(name_, in_name)) return "a cookie has a name that is none";
    if (is_among('\0', value_)) return "a cookie's value has a zero byte";
    if (path_.empty() || path_[0] != '/' || !all_of(path_, in_path)) {
      return "a cookie has a path that is none";
    }
    if (!all_of(domain_, in_domain)) return "a cookie has a domain that is none";
    if ((for_https || same_site_ == SameSite::none) && !secure_) {
      return "a cookie that has to be secure is not";
    }
    if (for_host && (path_ != "/" || !domain_.empty())) {
      return "a cookie named __Host- has a path or a domain";
    }
    return nullptr;
  }

  void put(detail::Buffer &out) const noexcept {
    out << "Set-Cookie: " << name_ << "=";
    detail::put_url(out, value_);
    if (keeps_) {
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
  bool keeps_ = false;  // beyond the browser's session
  SameSite same_site_ = SameSite::lax;
  bool secure_ = false;
  bool http_only_ = true;
};

}  // namespace tarn

#endif  // TARN_SET_COOKIE_HPP
