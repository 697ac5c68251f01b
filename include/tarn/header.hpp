/* Headers as data. */
#ifndef TARN_HEADER_HPP
#define TARN_HEADER_HPP

#include <cstdint>
#include <optional>
#include <string_view>

#include "cookie.hpp"

namespace tarn {
namespace detail {

// A line of a header; empty if its allocation failed.
inline const char *line_at(TarnHandle *lines, std::uint32_t index) noexcept {
  const auto *line = reinterpret_cast<const char *>(TARNGenericList_getByIndex(lines, index));
  return line != nullptr ? line : "";
}

// CGIgs_clone() would leave the copy with the same cookies as the original; these copy them.

inline TarnStatus clone_header(TarnHandle *source, TarnHandle *copy) noexcept {
  CGIgs_new(copy, TARN_HEADER_MAGIC);
  CGIgs_setString(copy, TARN_HEADER_CONTENT_TYPE,
                  CGIgs_getString(source, TARN_HEADER_CONTENT_TYPE, TARN_HEADER_MAGIC),
                  TARN_HEADER_MAGIC);
  TarnHandle cookies = CGIgs_getStruct(source, TARN_HEADER_COOKIES, TARN_HEADER_MAGIC);
  return cookies != 0 ? HTTPHeader_setCookieList(copy, &cookies) : TARN_OK;
}

inline TarnStatus clone_response_header(TarnHandle *source, TarnHandle *copy) noexcept {
  constexpr std::uint32_t magic = TARN_RESPONSE_HEADER_MAGIC;
  CGIgs_new(copy, magic);
  for (const std::uint32_t slot : {TARN_RESPONSE_HEADER_FIRST, TARN_RESPONSE_HEADER_SECOND}) {
    CGIgs_setString(copy, slot, CGIgs_getString(source, slot, magic), magic);
  }
  CGIgs_setInt(copy, TARN_RESPONSE_HEADER_NUMBER,
               CGIgs_getInt(source, TARN_RESPONSE_HEADER_NUMBER, magic), magic);
  TarnHandle lines = HTTPResponseHeader_getHeaderList(source);
  for (std::uint32_t i = 0; i < TARNGenericList_getCount(&lines); ++i) {
    const TarnStatus status = HTTPResponseHeader_addHeader(copy, line_at(&lines, i));
    if (status != TARN_OK) return status;
  }
  TarnHandle cookies = CGIgs_getStruct(source, TARN_RESPONSE_HEADER_COOKIES, magic);
  return cookies != 0 ? HTTPResponseHeader_setCookieList(copy, &cookies) : TARN_OK;
}

}  // namespace detail

/** Reads a PlainHeader. */
class PlainHeaderView : public detail::NodeView<TARN_HEADER_MAGIC> {
 public:
  using NodeView::NodeView;

  /** The content type. @return a view, valid as long as the header */
  std::optional<std::string_view> content_type() const noexcept {
    return text_in(TARN_HEADER_CONTENT_TYPE);
  }

  /** The cookies, valid as long as the header. */
  Cookies cookies() const noexcept { return Cookies(child_in(TARN_HEADER_COOKIES)); }
};

/** A content type with cookies: HTTPHeader as a class. It only holds data; tarn::Response sends
 *  headers. */
class PlainHeader
    : public detail::Object<PlainHeader, PlainHeaderView, HTTPHeader_delete, detail::clone_header> {
 public:
  using Object::Object;

  /** Makes a header from a content type. */
  explicit PlainHeader(const detail::TextArgument &content_type = "text/plain") noexcept {
    set_text(TARN_HEADER_CONTENT_TYPE, content_type);
  }

  /** Moves a cookie to the end. */
  PlainHeader &add(Cookie &&cookie) &noexcept {
    append<Cookies>(TARN_HEADER_COOKIES, cookie);
    return *this;
  }

  /** Moves all cookies of a list to the end. The list is empty afterwards. */
  PlainHeader &add(CookieList &&cookies) &noexcept {
    append_all<Cookies>(TARN_HEADER_COOKIES, cookies);
    return *this;
  }
};

/** The lines of a header, in order: a random-access range of std::string_view. */
using Lines = detail::Range<std::string_view, TARN_GENERIC_LIST_MAGIC, TARNGenericList_getCount,
                            detail::line_at>;

/** Reads a ResponseHeader. */
class ResponseHeaderView : public detail::NodeView<TARN_RESPONSE_HEADER_MAGIC> {
 public:
  using NodeView::NodeView;

  /** The first text. @return a view, valid as long as the header */
  std::optional<std::string_view> first() const noexcept {
    return text_in(TARN_RESPONSE_HEADER_FIRST);
  }

  /** The number. */
  std::int32_t number() const noexcept {
    return static_cast<std::int32_t>(number_in(TARN_RESPONSE_HEADER_NUMBER));
  }

  /** The second text. @return as first() */
  std::optional<std::string_view> second() const noexcept {
    return text_in(TARN_RESPONSE_HEADER_SECOND);
  }

  /** The lines, valid as long as the header. */
  Lines lines() const noexcept {
    return Lines(detail::query(HTTPResponseHeader_getHeaderList, handle_));
  }

  /** The cookies, valid as long as the header. */
  Cookies cookies() const noexcept { return Cookies(child_in(TARN_RESPONSE_HEADER_COOKIES)); }
};

/** Two texts, a number, lines and cookies: HTTPResponseHeader as a class. It only holds data and
 *  checks nothing; tarn::Response sends headers. */
class ResponseHeader
    : public detail::Object<ResponseHeader, ResponseHeaderView, HTTPResponseHeader_delete,
                            detail::clone_response_header> {
 public:
  using Object::Object;

  /** Makes a header from its texts and its number, without lines or cookies. */
  ResponseHeader(const detail::TextArgument &first, std::int32_t number,
                 const detail::TextArgument &second) noexcept {
    set_text(TARN_RESPONSE_HEADER_FIRST, first);
    set_text(TARN_RESPONSE_HEADER_SECOND, second);
    CGIgs_setInt(&handle_, TARN_RESPONSE_HEADER_NUMBER, static_cast<std::uint32_t>(number),
                 TARN_RESPONSE_HEADER_MAGIC);
  }

  /** Appends a line, usually "Name: value". */
  ResponseHeader &add(const detail::TextArgument &line) &noexcept {
    if (!line) {
      reset();
      return *this;
    }
    const detail::Terminated copy(line.view());
    const TarnStatus status = HTTPResponseHeader_addHeader(&handle_, copy.c_str());
    // The status does not tell whether the line was allocated.
    TarnHandle lines = HTTPResponseHeader_getHeaderList(&handle_);
    const std::uint32_t count = TARNGenericList_getCount(&lines);
    reset_unless(status == TARN_OK && TARNGenericList_getByIndex(&lines, count - 1) != 0);
    return *this;
  }

  /** Moves a cookie to the end. */
  ResponseHeader &add(Cookie &&cookie) &noexcept {
    append<Cookies>(TARN_RESPONSE_HEADER_COOKIES, cookie);
    return *this;
  }

  /** Moves all cookies of a list to the end. The list is empty afterwards. */
  ResponseHeader &add(CookieList &&cookies) &noexcept {
    append_all<Cookies>(TARN_RESPONSE_HEADER_COOKIES, cookies);
    return *this;
  }
};

/** Reads a MultiPartHeader. */
class MultiPartHeaderView : public detail::NodeView<TARN_MULTIPART_HEADER_MAGIC> {
 public:
  using NodeView::NodeView;

  /** The disposition. @return a view, valid as long as the header; nothing when there is none */
  std::optional<std::string_view> disposition() const noexcept {
    return text_in(TARN_MULTIPART_HEADER_DISPOSITION);
  }

  /** The field's name. @return as disposition() */
  std::optional<std::string_view> name() const noexcept {
    return text_in(TARN_MULTIPART_HEADER_NAME);
  }

  /** The file's name. @return as disposition() */
  std::optional<std::string_view> file_name() const noexcept {
    return text_in(TARN_MULTIPART_HEADER_FILENAME);
  }

  /** The content type. @return as disposition() */
  std::optional<std::string_view> content_type() const noexcept {
    return text_in(TARN_MULTIPART_HEADER_CONTENT_TYPE);
  }
};

/** The header of a part of a multipart body: MultiPartHeader as a class. */
class MultiPartHeader : public detail::Object<MultiPartHeader, MultiPartHeaderView,
                                              detail::delete_node<TARN_MULTIPART_HEADER_MAGIC>,
                                              detail::clone_node<TARN_MULTIPART_HEADER_MAGIC>> {
 public:
  using Object::Object;

  /** Makes a header from its four texts. All but the first are optional. */
  explicit MultiPartHeader(const detail::TextArgument &disposition,
                           std::optional<std::string_view> name = std::nullopt,
                           std::optional<std::string_view> file_name = std::nullopt,
                           std::optional<std::string_view> content_type = std::nullopt) noexcept {
    set_text(TARN_MULTIPART_HEADER_DISPOSITION, disposition);
    if (name) set_text(TARN_MULTIPART_HEADER_NAME, *name);
    if (file_name) set_text(TARN_MULTIPART_HEADER_FILENAME, *file_name);
    if (content_type) set_text(TARN_MULTIPART_HEADER_CONTENT_TYPE, *content_type);
  }
};

}  // namespace tarn

#endif  // TARN_HEADER_HPP
