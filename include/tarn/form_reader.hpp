/* Whole forms: every byte of every field, at any size.
 *
 * Form reads the form of a request and finds its fields by name. FormReader reads it as a stream, in
 * the order in which the browser sent it, and never needs the whole body in memory. Both use
 * libtarn_form: link with -ltarn_form. A script that includes only this header needs no other
 * library; one that uses none of it does not need libtarn_form.
 */
#ifndef TARN_FORM_READER_HPP
#define TARN_FORM_READER_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "../tarn_form.h"
#include "argument.hpp"
#include "field.hpp"

namespace tarn {

class Form;

// ---- Problems and limits -------------------------------------------------------------------------

/** Why a form could not be read. */
enum class FormProblem {
  none,              /**< no problem so far */
  no_boundary,       /**< the content type has no usable boundary; status 400 */
  two_boundaries,    /**< the content type has two boundaries; status 400 */
  cut_short,         /**< the body ends too early; status 400 */
  malformed,         /**< unexpected bytes around a delimiter; status 400 */
  malformed_header,  /**< a header of a part cannot be read; status 400 */
  part_without_name, /**< a part has no field name; status 400 */
  limit,             /**< a limit was exceeded; status 413 */
  unsupported_type,  /**< the content type is not a form; status 415 */
  bad_length,        /**< CONTENT_LENGTH is not a number; status 400 */
  read_error,        /**< reading the body failed; status 400 */
  timed_out,         /**< the sender was too slow; status 408 */
  out_of_memory      /**< memory or room for temporary files ran out; status 500 */
};

/** Which limit a form exceeded. FormLimits explains each. */
enum class FormLimit {
  fields,        /**< FormLimits::fields() */
  header_size,   /**< FormLimits::header_size() */
  text_size,     /**< FormLimits::text_size() */
  body_size,     /**< FormLimits::body_size() */
  wait_seconds,  /**< FormLimits::wait_seconds() */
  total_seconds, /**< FormLimits::total_seconds() */
  memory_size,   /**< FormLimits::memory_size() */
  load_size      /**< FormLimits::load_size() */
};

static_assert(static_cast<TarnFormProblem>(FormProblem::out_of_memory) == TARN_FORM_OUT_OF_MEMORY);
static_assert(static_cast<TarnFormLimit>(FormLimit::load_size) == TARN_FORM_LOAD_SIZE);

/** As a limit: no limit. As a length: up to the end. */
inline constexpr std::uint64_t unlimited = TARN_FORM_UNLIMITED;

/** How much a form may contain, and how long it may take.
 *
 *  @code
 *  tarn::Form form(tarn::FormLimits().fields(20).body_size(100000));
 *  @endcode
 *
 *  Each function returns limits with that one changed. All others keep their defaults.
 */
class FormLimits {
 public:
  constexpr FormLimits() noexcept = default;

  /** The number of fields. The default is 1,000. */
  [[nodiscard]] constexpr FormLimits fields(std::uint64_t most) const noexcept {
    return with(FormLimit::fields, most);
  }
  /** The bytes of the headers of one part. The default is 16 KiB. */
  [[nodiscard]] constexpr FormLimits header_size(std::uint64_t most) const noexcept {
    return with(FormLimit::header_size, most);
  }
  /** The bytes of a name, and of a value that is read as a text. The default is 1 MiB. */
  [[nodiscard]] constexpr FormLimits text_size(std::uint64_t most) const noexcept {
    return with(FormLimit::text_size, most);
  }
  /** The bytes of the body. There is no limit by default, but servers have one. */
  [[nodiscard]] constexpr FormLimits body_size(std::uint64_t most) const noexcept {
    return with(FormLimit::body_size, most);
  }
  /** The seconds to wait for the next byte. The default is 60. */
  [[nodiscard]] constexpr FormLimits wait_seconds(std::uint64_t most) const noexcept {
    return with(FormLimit::wait_seconds, most);
  }
  /** The seconds for the whole body. There is no limit by default. */
  [[nodiscard]] constexpr FormLimits total_seconds(std::uint64_t most) const noexcept {
    return with(FormLimit::total_seconds, most);
  }
  /** The bytes of one file that Form keeps in memory. Larger files go into a temporary file. The
   *  default is 64 KiB. */
  [[nodiscard]] constexpr FormLimits memory_size(std::uint64_t most) const noexcept {
    return with(FormLimit::memory_size, most);
  }
  /** The bytes of all fields that Form keeps in memory. The default is 16 MiB. */
  [[nodiscard]] constexpr FormLimits load_size(std::uint64_t most) const noexcept {
    return with(FormLimit::load_size, most);
  }

 private:
  friend class Form;
  friend class FormReader;

  static constexpr TarnFormLimit kCount = TARN_FORM_LOAD_SIZE + 1;

  constexpr FormLimits with(FormLimit limit, std::uint64_t most) const noexcept {
    FormLimits copy = *this;
    copy.most_[static_cast<TarnFormLimit>(limit)] = most;
    copy.changed_ |= 1U << static_cast<TarnFormLimit>(limit);
    return copy;
  }

  // Gives an unread form these limits. @return the form
  TarnForm *set(TarnForm *form) const noexcept {
    for (TarnFormLimit limit = 0; limit < kCount; ++limit) {
      if ((changed_ >> limit & 1U) != 0) TarnForm_setLimit(form, limit, most_[limit]);
    }
    return form;
  }

  std::uint64_t most_[kCount] = {};
  unsigned changed_ = 0;
};

/** What went wrong with a form: the code, a status for the answer, and a sentence for the log.
 *
 *  @code
 *  std::fprintf(stderr, "order: %s\n", form.problem().message());
 *  if (form.problem() == tarn::FormProblem::limit) ...
 *  @endcode
 */
class Problem {
 public:
  /** Views the problem of a form. A null form could not be allocated. */
  explicit Problem(const TarnForm *form) noexcept : form_(form) {}

  /** Tells whether there is a problem. */
  explicit operator bool() const noexcept { return code() != FormProblem::none; }

  /** Which problem it is. It can also be compared directly. */
  FormProblem code() const noexcept { return static_cast<FormProblem>(TarnForm_problem(form_)); }

  /** The HTTP status for the answer: 200 without a problem, otherwise 400, 408, 413, 415 or 500. */
  int status() const noexcept { return TarnForm_status(form_); }

  /** A sentence for the log, in which nothing comes from the visitor.
   *
   *  @return a text, valid as long as the form; empty without a problem
   */
  const char *message() const noexcept { return TarnForm_message(form_); }

  /** A short name, such as "cut_short". @return a constant text; empty without a problem */
  const char *name() const noexcept { return TarnForm_problemName(TarnForm_problem(form_)); }

  /** Where in the body the problem was found, in bytes; 0 without a problem. */
  std::uint64_t offset() const noexcept { return TarnForm_problemOffset(form_); }

  /** Which limit was exceeded; nothing unless the problem is `limit` or `timed_out`. */
  template <class Limit = FormLimit>
  std::optional<Limit> limit() const noexcept {
    TarnFormLimit which = 0;
    if (TarnForm_limit(form_, &which, nullptr) == 0) return {};
    return static_cast<Limit>(which);
  }

  /** What that limit allows, in bytes, fields or seconds; 0 if no limit was exceeded. */
  std::uint64_t limit_value() const noexcept {
    std::uint64_t most = 0;
    TarnForm_limit(form_, nullptr, &most);
    return most;
  }

 private:
  friend bool operator==(const Problem &a, FormProblem b) noexcept { return a.code() == b; }
  friend bool operator!=(const Problem &a, FormProblem b) noexcept { return a.code() != b; }

  const TarnForm *form_;
};

/** Tells whether a text is valid UTF-8, without surrogates and overlong forms. */
inline bool is_utf8(std::string_view text) noexcept {
  return TarnForm_isUtf8(text.data(), text.size()) != 0;
}

// ---- Reading ---------------------------------------------------------------------------------------

namespace detail {

// What Form and FormReader have in common: they own a form of tarn_form.h.
class OpenForm {
 public:
  OpenForm(const OpenForm &) = delete;
  OpenForm &operator=(const OpenForm &) = delete;

  /** Tells whether the form was read to its end without a problem, so that no byte is missing. */
  bool is_whole() const noexcept { return TarnForm_isWhole(form_) != 0; }

  /** The problem of the form, if it has one. After a move, and when the form could not be allocated,
   *  that is FormProblem::out_of_memory. */
  Problem problem() const &noexcept { return Problem(form_); }
  void problem() const && = delete;

  /** The first cookie with exactly this name.
   *
   *  @return its value as it was sent, valid as long as the form; nothing if there is none
   */
  std::optional<std::string_view> cookie(const Name &name) const &noexcept {
    return optional_text(TarnForm_cookie(form_, name.c_str()));
  }
  void cookie(const Name &) const && = delete;

  /** The first cookie with exactly this name, with "%XX" decoded in the value.
   *
   *  @return as cookie(); nothing also if the value has a zero byte
   */
  std::optional<std::string_view> decoded_cookie(const Name &name) const &noexcept {
    return optional_text(TarnForm_decodedCookie(form_, name.c_str()));
  }
  void decoded_cookie(const Name &) const && = delete;

  /** The first field of QUERY_STRING with exactly this name, whatever the method is.
   *
   *  @return as cookie()
   */
  std::optional<std::string_view> query(const Name &name) const &noexcept {
    return optional_text(TarnForm_query(form_, name.c_str()));
  }
  void query(const Name &) const && = delete;

  /** The first field of QUERY_STRING with exactly this name, with "+" and "%XX" decoded in the value.
   *
   *  @return as decoded_cookie()
   */
  std::optional<std::string_view> decoded_query(const Name &name) const &noexcept {
    return optional_text(TarnForm_decodedQuery(form_, name.c_str()));
  }
  void decoded_query(const Name &) const && = delete;

  /** Chooses whether Field::save() waits for the disk, as TarnForm_setDurable() does.
   *
   *  @param value  false not to wait: after a power cut or a crash of the kernel, the file may then be
   *                missing or damaged
   */
  void durable(bool value) noexcept { TarnForm_setDurable(form_, value ? 1 : 0); }

  /** The pointer to pass to functions of tarn_form.h. Never close the form through it. */
  TarnForm *handle() const &noexcept { return form_; }
  void handle() const && = delete;

 protected:
  explicit OpenForm(TarnForm *form) noexcept : form_(form) {}
  OpenForm(OpenForm &&other) noexcept : form_(detail::exchanged(other.form_, nullptr)) {}
  OpenForm &operator=(OpenForm &&other) noexcept {
    if (this != &other) {
      TarnForm_close(form_);
      form_ = detail::exchanged(other.form_, nullptr);
    }
    return *this;
  }
  ~OpenForm() { TarnForm_close(form_); }

  TarnForm *form_;
};

}  // namespace detail

/** Reads a form as a stream: an input range of Field.
 *
 *  @code
 *  tarn::FormReader reader;
 *  for (tarn::Field &field : reader) {
 *    if (field.name() == "photo") saved = field.save("/srv/uploads");
 *  }
 *  if (!reader.is_whole()) response.status(reader.problem().status());
 *  @endcode
 *
 *  A loop ends with the form, and also when the form has a problem: ask is_whole() after it. What a
 *  loop left of a value is skipped. A second loop goes on behind the field at which the first stopped.
 */
class FormReader : public detail::OpenForm {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Field;
    using difference_type = std::ptrdiff_t;
    using pointer = Field *;
    using reference = Field &;

    Iterator() noexcept = default;
    explicit Iterator(FormReader &reader) noexcept : reader_(&reader) {}

    Field &operator*() const noexcept { return reader_->current_; }
    Field *operator->() const noexcept { return &reader_->current_; }
    Iterator &operator++() noexcept {
      reader_->next();
      return *this;
    }
    void operator++(int) noexcept { reader_->next(); }

    // Two iterators are equal if both are at the end, or neither is.
    friend bool operator==(const Iterator &a, const Iterator &b) noexcept {
      return a.is_at_end() == b.is_at_end();
    }
    friend bool operator!=(const Iterator &a, const Iterator &b) noexcept { return !(a == b); }

   private:
    bool is_at_end() const noexcept { return reader_ == nullptr || !reader_->current_; }

    FormReader *reader_ = nullptr;
  };

  using value_type = Field;
  using iterator = Iterator;
  using const_iterator = Iterator;

  /** Opens the form of the request that the script answers: for GET and HEAD the query string,
   *  otherwise the body. Nothing is read yet. */
  explicit FormReader(const FormLimits &limits = FormLimits()) noexcept
      : OpenForm(limits.set(TarnForm_open())) {}

  /** Takes ownership of a form of tarn_form.h and sets the pointer to null. */
  FormReader(Adopt, TarnForm *&form) noexcept : OpenForm(detail::exchanged(form, nullptr)) {}

  FormReader(FormReader &&other) noexcept
      : OpenForm(std::move(other)), current_(detail::exchanged(other.current_.field_, nullptr)) {}
  FormReader &operator=(FormReader &&other) noexcept {
    if (this != &other) {
      current_.field_ = detail::exchanged(other.current_.field_, nullptr);
      OpenForm::operator=(std::move(other));
    }
    return *this;
  }

  /** Opens a form in memory, such as Environment::body(). Nothing is copied.
   *
   *  @param type    the content type
   *  @param body    the bytes, which must outlive the reader
   *  @param limits  what the form may contain
   */
  static FormReader from_memory(const char *type, std::string_view body,
                                const FormLimits &limits = FormLimits()) noexcept {
    TarnForm *form = limits.set(TarnForm_openMemory(type, body.data(), body.size()));
    return {adopt, form};
  }
  template <class Body, class = detail::IfOwning<Body>>
  static FormReader from_memory(const char *type, Body &&body, const FormLimits & = {}) = delete;

  /** Opens a form that a file descriptor delivers.
   *
   *  @param type        the content type
   *  @param descriptor  open for reading; the caller closes it after the reader is gone
   *  @param length      how many bytes to read; tarn::unlimited for all up to the end
   *  @param limits      what the form may contain
   */
  static FormReader from_descriptor(const char *type, int descriptor, std::uint64_t length,
                                    const FormLimits &limits = FormLimits()) noexcept {
    TarnForm *form = limits.set(TarnForm_openDescriptor(type, descriptor, length));
    return {adopt, form};
  }

  /** Opens a query string or other URL-encoded text.
   *
   *  @param query   the text, which must outlive the reader
   *  @param limits  what the form may contain
   */
  static FormReader from_query(std::string_view query,
                               const FormLimits &limits = FormLimits()) noexcept {
    return from_memory("application/x-www-form-urlencoded", query, limits);
  }
  template <class Query, class = detail::IfOwning<Query>>
  static FormReader from_query(Query &&query, const FormLimits & = {}) = delete;

  /** Reads a body without CONTENT_LENGTH up to the end of standard input, as TarnForm_readToEnd()
   *  does. Call it before the first field, and only where the server promises such an end. */
  void read_to_end() noexcept { TarnForm_readToEnd(form_); }

  /** Steps to the next field. @return the field, valid until the next step; null at the end of the
   *  form, and when it has a problem */
  Field *next() &noexcept {
    current_.field_ = TarnForm_next(form_);
    return current_ ? &current_ : nullptr;
  }
  void next() && = delete;

  /** Steps to the body as it is, whatever its type: for JSON, or a file sent with PUT. Call it before
   *  anything else is read.
   *
   *  @return a field whose value is the body and whose type is the content type; one without a field
   *          if there is a problem, or if something was read before
   */
  Field &body() &noexcept {
    current_.field_ = TarnForm_body(form_);
    return current_;
  }
  void body() && = delete;

  Iterator begin() &noexcept {
    next();
    return Iterator(*this);
  }
  Iterator begin() && = delete;
  // NOLINTNEXTLINE(readability-convert-member-functions-to-static): refused on a temporary
  Iterator end() &noexcept { return {}; }
  Iterator end() && = delete;

  /** Gives up ownership: the caller closes the form with TarnForm_close(). */
  [[nodiscard]] TarnForm *release() noexcept {
    current_.field_ = nullptr;
    return detail::exchanged(form_, nullptr);
  }

 private:
  Field current_{nullptr};
};

}  // namespace tarn

#endif  // TARN_FORM_READER_HPP
