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

static bool is_text(std::string_view text) { return !text.empty(); }

/* A minimal check: only a message that arrives proves that an address works. */
static bool is_address(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) <= ' ' || strchr("\"(),:;<>[\\]\177", c)) return false;
  }
  const std::size_t at = text.find('@');
  return at > 0 && at < text.size() - 1 && at == text.rfind('@');
}

static constexpr struct Field {
  const char *name;
  const char *label;
  const char *type; /* null for a text area */
  std::size_t most;
  bool (*fits)(std::string_view text);
  const char *problem;
} kFields[] = {
    {"name", "Your name", "text", 120, is_text, "Please enter your name (at most 120 bytes)."},
    {"email", "Your e-mail address", "email", 254, is_address,
     "Please enter an address like name@example.org."},
    {"message", "Message", nullptr, 4000, is_text, "Please enter a message (at most 4000 bytes)."},
};

static Element control(const Field &field, std::string_view value) {
  if (!field.type) return Element("textarea", Attribute("dir", "auto"), value);
  Element input("input", Attribute("type", field.type), Attribute("value", value));
  if (field.fits == is_text) input.add(Attribute("dir", "auto"));
  input.add(Attribute("autocomplete", field.name));
  return input;
}

/* A field with its label, and with an error message if its value is wrong. */
static Element row(const Field &field, std::string_view value, bool wrong) {
  tarn::String remark(field.name);
  remark.append("-problem");
  Element input = control(field, value);
  input.add(Attribute("id", field.name)).add(Attribute("name", field.name));
  input.add(Attribute("required"));
  if (wrong) input.add(Attribute("aria-invalid", "true"));
  if (wrong) input.add(Attribute("aria-describedby", remark.view()));
  Element row("p", Element("label", Attribute("for", field.name), field.label), std::move(input));
  if (wrong) row.add(Element("strong", Attribute("id", remark.view()), field.problem));
  return row;
}

static Outcome save_message(const tarn::Form &form, const char *path, bool fits,
                            const SeeOther &there) {
  if (!fits) return {400, "Your message was not sent. Please correct the marked fields."};
  if (!there.ready()) return {500, kRemarks[NOT_STORED]};
  return save_line(path, {field(form, "name"), field(form, "email"), field(form, "message")},
                   kStoreBytes, kRemarks);
}

static int script() {
  const tarn::Form sent;
  const bool post = isMethod("POST");
  const char *path = getenv("TARN_CONTACT_FILE");
  Outcome outcome = refuse_form(sent);
  const bool checked = post && outcome.status == 0;
  /* novalidate: the server checks the fields, so that it can explain errors in its own words. */
  Element form("form", Attribute("method", "post"), Attribute("novalidate"));
  bool fits = true;
  for (const Field &one : kFields) {
    const std::string_view value = outcome.status == 0 ? field(sent, one.name) : "";
    const bool wrong = checked && !(value.size() <= one.most && one.fits(value));
    form.add(row(one, value, wrong));
    fits = fits && !wrong;
  }
  form.add(Element("p", Element("button", "Send")));
  if (!path) {
    outcome = {500, "TARN_CONTACT_FILE is not set, so messages cannot be saved."};
  } else if (checked) {
    const SeeOther there("?sent");
    outcome = save_message(sent, path, fits, there);
    if (outcome.status == 303) return there.send() ? 0 : 1;
  } else if (outcome.status == 0) {
    outcome.status = 200;
  }
  tarn::ElementList content;
  if (!post && strcmp(CgiEnv_getQueryString(nullptr), "sent") == 0) {
    content.add(Element("p", Attribute("role", "status"), "Thank you, we have your message."));
  }
  content.add(std::move(form));
  return send_page("Contact", outcome, std::move(content)) ? 0 : 1;
}

int main() { return tarn::serve(script); }
