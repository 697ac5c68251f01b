/* Whole forms: fields found by name. */
#ifndef TARN_WHOLE_FORM_HPP
#define TARN_WHOLE_FORM_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "form.hpp"
#include "form_reader.hpp"

namespace tarn {

// ---- Ranges of fields ----------------------------------------------------------------------------

namespace detail {

// The fields of one name that a Form keeps, or of all names: texts, files or both.
template <class Item, Wanted kWanted>
class FieldRange {
 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = Item;
    using difference_type = std::ptrdiff_t;
    using pointer = Arrow<Item>;
    using reference = Item;

    Iterator() noexcept = default;
    Iterator(TarnForm *form, const char *name) noexcept : form_(form), name_(name) { find(); }

    Item operator*() const noexcept {
      if constexpr (kWanted == Wanted::texts) {
        return or_empty(KeptField(field_).text());
      } else {
        return KeptField(field_);
      }
    }
    pointer operator->() const noexcept { return {**this}; }
    Iterator &operator++() noexcept {
      ++index_;
      find();
      return *this;
    }
    Iterator operator++(int) noexcept {
      const Iterator before = *this;
      ++*this;
      return before;
    }

    friend bool operator==(const Iterator &a, const Iterator &b) noexcept {
      return a.field_ == b.field_;
    }
    friend bool operator!=(const Iterator &a, const Iterator &b) noexcept { return !(a == b); }

   private:
    // Goes to the next field that is wanted, from the current one on.
    void find() noexcept {
      do {
        field_ = TarnForm_get(form_, name_, index_);
      } while (field_ != nullptr && !is_wanted() && ++index_ != 0);
    }
    bool is_wanted() const noexcept {
      const KeptField field(field_);
      if (same(kWanted, Wanted::fields)) return true;
      return same(kWanted, Wanted::files) ? field.is_file() : !field.filename();
    }

    TarnForm *form_ = nullptr;
    const char *name_ = nullptr;
    TarnFormField *field_ = nullptr;
    std::uint64_t index_ = 0;
  };

  using value_type = Item;
  using iterator = Iterator;
  using const_iterator = Iterator;

  bool empty() const noexcept { return begin() == end(); }
  Iterator begin() const noexcept { return {form_, name_}; }
  static Iterator end() noexcept { return {}; }

 private:
  friend class tarn::Form;

  // All fields.
  explicit FieldRange(TarnForm *form) noexcept : form_(form) {}
  // Those of one name. Keeps the name of the first one, so that `name` need not outlive the range.
  FieldRange(TarnForm *form, const char *name) noexcept {
    TarnFormField *const first = name != nullptr ? TarnForm_get(form, name, 0) : nullptr;
    if (first == nullptr) return;
    form_ = form;
    name_ = TarnFormField_name(first);
  }

  TarnForm *form_ = nullptr;
  const char *name_ = nullptr;  // null for all names
};

}  // namespace detail

/** Texts of a Form, in order: a forward range of std::string_view. */
using FormTexts = detail::FieldRange<std::string_view, detail::Wanted::texts>;

/** Files of a Form, in order: a forward range of KeptField. */
using FormFiles = detail::FieldRange<KeptField, detail::Wanted::files>;

/** All fields of a Form, in order: a forward range of KeptField. */
using FormFields = detail::FieldRange<KeptField, detail::Wanted::fields>;

/** A form that has been read as a whole. It finds fields by their exact names.
 *
 *  @code
 *  const tarn::Form form;
 *  if (!form) response.status(form.problem().status());
 *  std::string_view comment = form.get("comment", "none");
 *  @endcode
 *
 *  A form with a problem has no fields. Texts and small files are in memory, larger files in a
 *  temporary file; FormLimits sets how much. Views of it are valid as long as the form, even if it is
 *  moved; those of a temporary form do not compile. A name may not be a null pointer.
 */
class Form : public detail::OpenForm {
 public:
  using value_type = KeptField;
  using iterator = FormFields::Iterator;
  using const_iterator = FormFields::Iterator;

  /** Reads the form of the request that the script answers: for GET and HEAD the query string,
   *  otherwise the body. */
  explicit Form(const FormLimits &limits = FormLimits()) noexcept
      : OpenForm(limits.set(TarnForm_open())) {
    TarnForm_load(form_);
  }

  /** Reads what is left of a reader: a form from another source, for example. */
  explicit Form(FormReader &&reader) noexcept : OpenForm(reader.release()) { TarnForm_load(form_); }

  Form(Form &&) noexcept = default;
  Form &operator=(Form &&) noexcept = default;

  /** Tells whether the form is whole. */
  explicit operator bool() const noexcept { return is_whole(); }

  /** The first text with this name.
   *
   *  @return a view, empty for a field that was left empty; nothing when there is no such text. A file
   *          is not a text
   */
  std::optional<std::string_view> operator[](const detail::Name &name) const &noexcept {
    return first<FormTexts>(name);
  }
  void operator[](const detail::Name &) const && = delete;
  void operator[](int) const = delete;

  /** The first text with this name, or `otherwise` when there is none. */
  std::string_view get(const detail::Name &name,
                       std::string_view otherwise TARN_LIFETIMEBOUND) const &noexcept {
    const std::optional<std::string_view> text = (*this)[name];
    return text ? *text : otherwise;
  }
  void get(const detail::Name &, std::string_view) const && = delete;
  void get(const detail::Name &, std::nullptr_t) const = delete;
  template <class Text, class = detail::IfOwning<Text>>
  void get(const detail::Name &, Text &&) const = delete;

  /** Reads the first text with this name as a whole number.
   *
   *  @param name        the field's name
   *  @param least,most  the range to accept
   *  @return as Entry::integer(); nothing also when there is no such text
   */
  template <class Number = std::int64_t>
  std::optional<Number> integer(const detail::Name &name, std::int64_t least = INT64_MIN,
                                std::int64_t most = INT64_MAX) const noexcept {
    const std::optional<std::string_view> text = (*this)[name];
    if (!text) return {};
    return detail::integer_of<Number>(*text, least, most);
  }

  /** All texts with this name, in order. */
  FormTexts all(const detail::Name &name) const &noexcept { return {form_, name.c_str()}; }
  void all(const detail::Name &) const && = delete;

  /** The first file with this name; nothing when the visitor chose none. */
  template <class Found = KeptField>
  std::optional<Found> file(const detail::Name &name) const &noexcept {
    return first<detail::FieldRange<Found, detail::Wanted::files>>(name);
  }
  void file(const detail::Name &) const && = delete;

  /** All files with this name, in order. */
  FormFiles files(const detail::Name &name) const &noexcept { return {form_, name.c_str()}; }
  void files(const detail::Name &) const && = delete;

  /** All files, in order. */
  FormFiles files() const &noexcept { return FormFiles(form_); }
  void files() const && = delete;

  /** A field with this name, text or file.
   *
   *  @param name   the field's name
   *  @param index  0 for the first field of that name, 1 for the second
   *  @return the field; nothing when there is none
   */
  template <class Found = KeptField>
  std::optional<Found> field(const detail::Name &name, std::uint64_t index = 0) const &noexcept {
    return optional_field<Found>(name.c_str() != nullptr ? TarnForm_get(form_, name.c_str(), index)
                                                         : nullptr);
  }
  void field(const detail::Name &, std::uint64_t = 0) const && = delete;

  /** As field(), but ignores the case of ASCII letters in the name. */
  template <class Found = KeptField>
  std::optional<Found> field_ignoring_case(const detail::Name &name,
                                           std::uint64_t index = 0) const &noexcept {
    return optional_field<Found>(
        name.c_str() != nullptr ? TarnForm_getIgnoringCase(form_, name.c_str(), index) : nullptr);
  }
  void field_ignoring_case(const detail::Name &, std::uint64_t = 0) const && = delete;

  /** The number of fields with this name, texts and files. */
  std::size_t count(const detail::Name &name) const noexcept {
    return name.c_str() != nullptr ? static_cast<std::size_t>(TarnForm_count(form_, name.c_str()))
                                   : 0;
  }

  /** The number of all fields. */
  std::size_t size() const noexcept {
    return static_cast<std::size_t>(TarnForm_count(form_, nullptr));
  }
  bool empty() const noexcept { return size() == 0; }

  iterator begin() const &noexcept { return {form_, nullptr}; }
  iterator begin() const && = delete;
  // NOLINTNEXTLINE(readability-convert-member-functions-to-static): refused on a temporary
  iterator end() const &noexcept { return {}; }
  iterator end() const && = delete;

 private:
  // The first item of a range that all() or files() would return.
  template <class Range>
  std::optional<typename Range::value_type> first(const detail::Name &name) const noexcept {
    if (name.c_str() == nullptr) return {};
    const typename Range::Iterator found(form_, name.c_str());
    if (found == Range::end()) return {};
    return *found;
  }
  template <class Found>
  static std::optional<Found> optional_field(TarnFormField *field) noexcept {
    if (field == nullptr) return {};
    return Found(field);
  }
};

}  // namespace tarn

#ifdef __cpp_lib_ranges
template <class Item, tarn::detail::Wanted kWanted>
inline constexpr bool std::ranges::enable_borrowed_range<tarn::detail::FieldRange<Item, kWanted>> =
    true;
#endif

#endif  // TARN_WHOLE_FORM_HPP
