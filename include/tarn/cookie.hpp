/* Cookies. */
#ifndef TARN_COOKIE_HPP
#define TARN_COOKIE_HPP

#include <cstdint>
#include <optional>
#include <string_view>

#include "object.hpp"

namespace tarn {

/** Reads a cookie. */
class CookieView : public detail::NodeView<TARN_COOKIE_MAGIC> {
 public:
  using NodeView::NodeView;

  /** The name.
   *
   *  @return a view, valid as long as the owner of the cookie; nothing for a piece of the cookie
   *          header without a "="
   */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_COOKIE_NAME); }

  /** The value. @return as name() */
  std::optional<std::string_view> value() const noexcept { return text_in(TARN_COOKIE_VALUE); }

  /** The comment. @return as name(); nothing unless it was set */
  std::optional<std::string_view> comment() const noexcept { return text_in(TARN_COOKIE_COMMENT); }

  /** The domain. @return as comment() */
  std::optional<std::string_view> domain() const noexcept { return text_in(TARN_COOKIE_DOMAIN); }

  /** The path. @return as comment() */
  std::optional<std::string_view> path() const noexcept { return text_in(TARN_COOKIE_PATH); }

  /** The max-age, in seconds; 0 unless it was set. */
  long max_age() const noexcept { return detail::query(HTTPCookie_getMaxAge, handle_); }

  /** Tells whether the secure flag was set. */
  bool is_secure() const noexcept { return number_in(TARN_COOKIE_SECURE) != 0; }
};

/** Cookies, in order: a random-access range of CookieView. */
using Cookies = detail::Range<CookieView, TARN_COOKIE_LIST_MAGIC, HTTPCookieList_getCount,
                              HTTPCookieList_getByIndex>;

/** A cookie as data, neither checked nor escaped. To send one, use tarn::SetCookie. */
class Cookie : public detail::Object<Cookie, CookieView, detail::delete_node<TARN_COOKIE_MAGIC>,
                                     detail::clone_node<TARN_COOKIE_MAGIC>> {
 public:
  using Object::Object;

  /** Makes a cookie from a name and a value. */
  Cookie(const detail::TextArgument &name, const detail::TextArgument &value) noexcept {
    set_text(TARN_COOKIE_NAME, name);
    set_text(TARN_COOKIE_VALUE, value);
  }

  /** Sets the comment. */
  Cookie &comment(const detail::TextArgument &text) &noexcept {
    return with_text(TARN_COOKIE_COMMENT, text);
  }

  /** Sets the domain. */
  Cookie &domain(const detail::TextArgument &text) &noexcept {
    return with_text(TARN_COOKIE_DOMAIN, text);
  }

  /** Sets the path. */
  Cookie &path(const detail::TextArgument &text) &noexcept {
    return with_text(TARN_COOKIE_PATH, text);
  }

  /** Sets the max-age, in seconds, stored as 32 bits. */
  Cookie &max_age(long seconds) &noexcept {
    HTTPCookie_setMaxAge(&handle_, seconds);
    return *this;
  }

  /** Sets the secure flag. */
  Cookie &secure(bool is_secure = true) &noexcept {
    HTTPCookie_setSecure(&handle_, is_secure ? 1 : 0);
    return *this;
  }

 private:
  Cookie &with_text(std::uint32_t slot, const detail::TextArgument &text) noexcept {
    set_text(slot, text);
    return *this;
  }
};

/** A list that owns cookies. Several may have the same name. */
class CookieList : public detail::List<CookieList, Cookie, Cookies, HTTPCookieList_delete,
                                       HTTPCookieList_clone> {
 public:
  using List::List;
};

}  // namespace tarn

#endif  // TARN_COOKIE_HPP
