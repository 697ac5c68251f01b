/* Forms that are checked, and shown again with what is wrong. */
#ifndef TARN_CHECKED_FORM_HPP
#define TARN_CHECKED_FORM_HPP

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "characters.hpp"
#include "element.hpp"
#include "input.hpp"
#include "text.hpp"
#include "typed.hpp"
#include "whole_form.hpp"

namespace tarn {

/** A form that the visitor may have to correct. It keeps a sentence for each wrong field, and makes
 *  the fields again with what the visitor typed and the sentence beside it.
 *
 *  @code
 *  const tarn::Form sent;
 *  tarn::CheckedForm form(sent);
 *  const auto name = tarn::line(form["name"], 80);
 *  const auto age = tarn::integer(form["age"], 0, 150);
 *  form.check("name", name, "Please enter your name.");
 *  form.check("age", age, "Please enter a number from 0 to 150.");
 *  if (form) return store(*name, *age);
 *  tarn::Element page("form", tarn::Attribute("method", "post"));
 *  page.add(form.input("name", "Name")).add(form.input("age", "Age"));
 *  return response.status(form.status()).send(page) ? 0 : 1;
 *  @endcode
 *
 *  Before the form was submitted, it is false and has no wrong fields. It copies names,
 *  sentences and initial values. It views the Form, which must live as long. The `id` of a control is
 *  the name of its field, so two forms of one page need different names.
 */
class CheckedForm {
 public:
  /** Checks a form that was sent.
   *
   *  @param sent          what the visitor sent, if anything
   *  @param is_submitted  whether the visitor submitted the form: by default, if the method is POST.
   *                       With a problem, a form does not count as submitted
   */
  explicit CheckedForm(const Form &sent, bool is_submitted = request_method() == "POST") noexcept
      : sent_(sent), is_submitted_(is_submitted && sent) {}
  explicit CheckedForm(const Form &&, bool = true) = delete;

  CheckedForm(const CheckedForm &) = delete;
  CheckedForm &operator=(const CheckedForm &) = delete;
  ~CheckedForm() {
    while (wrong_.size() > 0) std::free(wrong_.pop().name);
    while (initial_.size() > 0) std::free(initial_.pop().name);
  }

  /** Tells whether the form was submitted and no field is wrong: store the values then. */
  explicit operator bool() const noexcept {
    return is_submitted_ && !is_out_of_memory_ && wrong_.size() == 0;
  }

  /** The HTTP status for a page with this form: 200, 422 if a field is wrong, that of the Problem if
   *  the form has one, 500 if an allocation failed. */
  int status() const noexcept {
    if (!sent_) return sent_.problem().status();
    if (is_out_of_memory_) return 500;
    return wrong_.size() > 0 ? 422 : 200;
  }

  /** The text of a field as it is to be checked: without white space around it. Take a password from
   *  the Form itself.
   *
   *  @return a view, valid as long as the Form; nothing when there is no such text, and before the
   *          form was submitted
   */
  std::optional<std::string_view> operator[](const detail::Name &name) const noexcept {
    if (!is_submitted_) return {};
    const std::optional<std::string_view> text = sent_[name];
    if (!text) return {};
    return detail::trimmed(*text);
  }
  void operator[](int) const = delete;

  /** Marks a field as wrong unless a check found a value.
   *
   *  @param name      the field's name
   *  @param checked   the result of a check, such as integer() or one of your own
   *  @param sentence  tells the visitor what to enter
   *  @return `checked`
   */
  template <class Value>
  Checked<Value> check(const char *name, const Checked<Value> &checked,
                       const detail::TextArgument &sentence) noexcept {
    if (!checked.has_value()) refuse(name, sentence);
    return checked;
  }

  /** Marks a field as wrong as check() does, unless it was left empty. */
  template <class Value>
  Checked<Value> check_optional(const char *name, const Checked<Value> &checked,
                                const detail::TextArgument &sentence) noexcept {
    return checked.reason() == Reason::missing ? checked : check(name, checked, sentence);
  }

  /** Marks a field as wrong, for a reason that its text alone does not show: a name that is taken, two
   *  passwords that differ. Before the form was submitted, this does nothing.
   *
   *  @param name      the field's name
   *  @param sentence  replaces an earlier one for this field
   */
  template <class Refused = void>
  Refused refuse(const char *name, const detail::TextArgument &sentence) noexcept {
    if (is_submitted_) set(wrong_, name, sentence.view());
  }

  /** What to tell the visitor about a field.
   *
   *  @param name  the field's name
   *  @return a view, valid until the field gets another sentence; nothing unless it is wrong */
  template <class Sentence = std::string_view>
  std::optional<Sentence> sentence(const char *name) const noexcept {
    const Named *const found = find(wrong_, name);
    if (found == nullptr) return {};
    return found->text;
  }

  /** The number of wrong fields. */
  std::size_t wrong() const noexcept { return wrong_.size(); }

  /** Sets what a field shows until the visitor submits the form: a stored value that can be changed.
   *
   *  @param name  the field's name
   *  @param text  its value; "on" ticks a checkbox
   */
  template <class Self = CheckedForm>
  Self &initially(const char *name, const detail::TextArgument &text) &noexcept {
    set(initial_, name, text.view());
    return *this;
  }

  /** What a field shows: what the visitor typed, with nothing removed; or what initially() set, until
   *  it sets something else. */
  template <class Typed = std::string_view>
  Typed typed(const detail::Name &name) const noexcept {
    if (is_submitted_) return sent_.get(name, "");
    const Named *const found = find(initial_, name.c_str());
    return found != nullptr ? found->text : std::string_view();
  }

  /** An `input` element with its label, and the sentence if the field is wrong, in a paragraph.
   *
   *  What the visitor typed is its value, but never that of a password or a file.
   *
   *  @param name    the field's name
   *  @param label   a text
   *  @param pieces  attributes, such as its `type`; not its value
   */
  template <class... Pieces>
  Element input(const char *name, const detail::TextArgument &label,
                Pieces &&...pieces) const noexcept {
    Element made = control("input", name, std::forward<Pieces>(pieces)...);
    if (!hides_value(made.view())) made.add(Attribute("value", typed(name)));
    return paragraph(name, label, std::move(made));
  }

  /** A `textarea` element as input() makes one. */
  template <class... Pieces>
  Element textarea(const char *name, const detail::TextArgument &label,
                   Pieces &&...pieces) const noexcept {
    Element made = control("textarea", name, std::forward<Pieces>(pieces)...);
    made.add(typed(name));
    return paragraph(name, label, std::move(made));
  }

  /** A `select` element as input() makes one.
   *
   *  @param name     the field's name
   *  @param label    a text
   *  @param choices  Choice objects: an array, or any other range of them
   *  @param pieces   attributes
   */
  template <class Choices, class... Pieces>
  Element select(const char *name, const detail::TextArgument &label, const Choices &choices,
                 Pieces &&...pieces) const noexcept {
    Element made = control("select", name, std::forward<Pieces>(pieces)...);
    for (const Choice &choice : choices) {
      Element option("option", Attribute("value", choice.value()), choice.label());
      if (is_chosen(name, choice.value())) option.add(Attribute("selected"));
      made.add(std::move(option));
    }
    return paragraph(name, label, std::move(made));
  }

  /** Radio buttons in a `fieldset`, with the sentence if the field is wrong.
   *
   *  @param name     the field's name
   *  @param label    a text for all of them
   *  @param choices  as for select()
   */
  template <class Choices>
  Element radios(const char *name, const detail::TextArgument &label,
                 const Choices &choices) const noexcept {
    Element group("fieldset", Attribute("id", name), Attribute("role", "radiogroup"));
    mark(name, group);
    group.add(Element("legend", label));
    for (const Choice &choice : choices) {
      Element button("input", Attribute("type", "radio"), Attribute("name", name),
                     Attribute("value", choice.value()));
      if (is_chosen(name, choice.value())) button.add(Attribute("checked"));
      group.add(" ").add(Element("label", std::move(button), " ", choice.label()));
    }
    return with_sentence(name, std::move(group));
  }

  /** A checkbox, with its label and the sentence if the field is wrong, in a paragraph. It sends what
   *  boolean() reads.
   *
   *  @param name    the field's name
   *  @param label   a text
   *  @param pieces  attributes
   */
  template <class... Pieces>
  Element checkbox(const char *name, const detail::TextArgument &label,
                   Pieces &&...pieces) const noexcept {
    Element box =
        control("input", name, Attribute("type", "checkbox"), std::forward<Pieces>(pieces)...);
    if (is_chosen(name, "on")) box.add(Attribute("checked"));
    return with_sentence(name, Element("p", Element("label", std::move(box), " ", label)));
  }

 private:
  // Functions that only templates call are templates: compilers instantiate them for scripts that show a
  // form, and no others.

  struct Named {
    char *name;  // begins the block of both, each of which ends with a zero byte
    std::string_view text;
  };
  using AllNamed = detail::Array<Named>;

  template <class = void>
  static const Named *find(const AllNamed &all, const char *name) noexcept {
    if (name == nullptr) return nullptr;
    const Named *const end = all.data() + all.size();
    const Named *found = all.data();
    while (found != end && std::strcmp(found->name, name) != 0) ++found;
    return found != end ? found : nullptr;
  }

  // Copies both texts, and replaces what there is of this name.
  template <class = void>
  void set(AllNamed &all, const char *name, std::string_view text) noexcept {
    if (name == nullptr) return;
    const std::size_t size = std::strlen(name) + 1;
    auto *const block = static_cast<char *>(std::malloc(size + text.size() + 1));
    if (block == nullptr) {
      is_out_of_memory_ = true;
      return;
    }
    std::memcpy(block, name, size);
    if (!text.empty()) std::memcpy(block + size, text.data(), text.size());
    block[size + text.size()] = '\0';
    const Named made = {block, {block + size, text.size()}};
    if (const Named *const found = find(all, name)) {
      // Not earlier: the old text may be what was given.
      std::free(found->name);
      all.data()[found - all.data()] = made;
    } else if (!all.push(made)) {
      std::free(block);
      is_out_of_memory_ = true;
    }
  }

  template <class = void>
  bool is_chosen(const char *name, std::string_view value) const noexcept {
    if (!is_submitted_) return typed(name) == value;
    bool is_among = false;
    for (const std::string_view sent : sent_.all(name)) is_among = is_among || sent == value;
    return is_among;
  }

  // Whatever a browser would make of two types.
  template <class = void>
  static bool hides_value(ElementView input) noexcept {
    bool hides = false;
    for (const AttributeView attribute : input.attributes()) {
      hides =
          hides || (detail::is_one_of(detail::or_empty(attribute.name()), {"type"}) &&
                    detail::is_one_of(detail::or_empty(attribute.value()), {"password", "file"}));
    }
    return hides;
  }

  template <class... Pieces>
  Element control(std::string_view element, const char *name, Pieces &&...pieces) const noexcept {
    Element made(element, Attribute("id", name), Attribute("name", name),
                 std::forward<Pieces>(pieces)...);
    mark(name, made);
    return made;
  }

  template <class = void>
  static Attribute with_id_of_sentence(const char *attribute, const char *name) noexcept {
    detail::Buffer id;
    id << name << "-problem";
    const Text whole = id.take();
    const char *const text = whole ? whole.c_str() : nullptr;
    return {attribute, text};
  }

  template <class = void>
  void mark(const char *name, Element &control) const noexcept {
    if (!sentence(name)) return;
    control.add(Attribute("aria-invalid", "true"));
    control.add(with_id_of_sentence("aria-describedby", name));
  }

  template <class = void>
  Element paragraph(const char *name, const detail::TextArgument &label,
                    Element control) const noexcept {
    Element made("p", Element("label", Attribute("for", name), label), " ", std::move(control));
    return with_sentence(name, std::move(made));
  }

  template <class = void>
  Element with_sentence(const char *name, Element made) const noexcept {
    const std::optional<std::string_view> text = sentence(name);
    if (text) made.add(" ").add(Element("strong", with_id_of_sentence("id", name), *text));
    return made;
  }

  const Form &sent_;
  AllNamed wrong_;
  AllNamed initial_;
  bool is_submitted_;
  bool is_out_of_memory_ = false;
};

}  // namespace tarn

#endif  // TARN_CHECKED_FORM_HPP
