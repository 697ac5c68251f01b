/* contact: a contact form that reports each error beside its field. Messages are appended to the
 * file named by TARN_CONTACT_FILE, one line each: name, address and message, URL-encoded. The web
 * server must be able to write that file and should not serve it. Anything after the last line end
 * in it is discarded. The script behaves like contact.c, and both can use the same file.
 *
 *   cc -std=c++17 -fno-exceptions -o contact contact.cpp -ltarn_form -ltarn -ltarn_serve
 *
 * with page.h, store.h and page.hpp in the same folder.
 */
#include "page.hpp"

using tarn::Attribute, tarn::Element;

constexpr off_t kStoreBytes = 8 << 20;
constexpr const char *kRemarks[] = STORED_REMARKS("message");

using Value = tarn::Checked<std::string_view>;

static Value text(std::optional<std::string_view> sent, std::size_t most) {
  const std::string_view value = sent.value_or("");
  const bool fits =
      !value.empty() && value.size() <= most && value.find('\0') == std::string_view::npos;
  return fits ? Value(value) : Value(tarn::Reason::malformed);
}

/* A minimal check: only a message that arrives proves that an address works. */
static Value address_of(std::optional<std::string_view> sent) {
  const Value value = text(sent, 254);
  const std::size_t at = value->find('@');
  bool fits = at > 0 && at < value->size() && at + 1 < value->size() && at == value->rfind('@');
  for (const char c : *value) {
    fits = fits && static_cast<unsigned char>(c) > ' ' && !strchr("\"(),:;<>[\\]\177", c);
  }
  return fits ? value : Value(tarn::Reason::malformed);
}

/* novalidate: the server checks the fields, so that it can explain errors in its own words. */
static Element fields(const tarn::CheckedForm &form) {
  const auto autocomplete = [](const char *value) { return Attribute("autocomplete", value); };
  const auto any_direction = [] { return Attribute("dir", "auto"); };
  const auto required = [] { return Attribute("required"); };
  return Element("form", Attribute("method", "post"), Attribute("novalidate"),
                 form.input("name", "Your name", required(), any_direction(), autocomplete("name")),
                 form.input("email", "Your e-mail address", required(), Attribute("type", "email"),
                            autocomplete("email")),
                 form.textarea("message", "Message", required(), any_direction()),
                 Element("p", Element("button", "Send")));
}

static Outcome save_message(tarn::CheckedForm &form, const char *path, const SeeOther &there) {
  const Value name =
      form.check("name", text(form["name"], 120), "Please enter your name (at most 120 bytes).");
  const Value email = form.check("email", address_of(form["email"]),
                                 "Please enter an address like name@example.org.");
  const Value message = form.check("message", text(form["message"], 4000),
                                   "Please enter a message (at most 4000 bytes).");
  if (form.wrong() > 0)
    return {422, "Your message was not sent. Please correct the marked fields."};
  if (!form || !there.ready()) return {500, kRemarks[NOT_STORED]};
  return save_line(path, {*name, *email, *message}, kStoreBytes, kRemarks);
}

static int script() {
  const tarn::Form sent;
  const bool post = isMethod("POST");
  const char *path = getenv("TARN_CONTACT_FILE");
  Outcome outcome = refuse_form(sent);
  /* What another site filled in is not shown. */
  tarn::CheckedForm form(sent, post && outcome.status == 0);
  if (!path) {
    outcome = {500, "TARN_CONTACT_FILE is not set, so messages cannot be saved."};
  } else if (post && outcome.status == 0) {
    const SeeOther there("?sent");
    outcome = save_message(form, path, there);
    if (outcome.status == 303) return there.send() ? 0 : 1;
  } else if (outcome.status == 0) {
    outcome.status = 200;
  }
  tarn::ElementList content;
  if (!post && strcmp(CgiEnv_getQueryString(nullptr), "sent") == 0) {
    content.add(Element("p", Attribute("role", "status"), "Thank you, we have your message."));
  }
  content.add(fields(form));
  return send_page("Contact", outcome, std::move(content)) ? 0 : 1;
}

int main() { return tarn::serve(script); }
