/* guestbook: a page on which guests leave a line; a cookie remembers their name if they like. The
 * entries stand in the file that TARN_GUESTBOOK_FILE names, which the web server must be able to
 * write and should not serve. It does what guestbook.c does, and they can share the file.
 *
 *   cc -std=c++17 -fno-exceptions -o guestbook guestbook.cpp -ltarn     (with page.h, page.hpp)
 */
#include "page.hpp"

using tarn::Attribute, tarn::Element;

constexpr std::size_t kNameBytes = 120, kMessageBytes = 4000;
constexpr int kYear = 365 * 24 * 60 * 60;

static tarn::Text owned(char *text) { return {tarn::adopt, text, text ? strlen(text) : 0}; }

static void show_entries(const char *path, tarn::ElementList &content) {
  FILE *lines = openLines(path, F_RDLCK);
  if (!lines) content.add(Element("p", "No entries yet."));
  for (char *entry[2]; readLine(lines, entry, 2);) {
    const tarn::Text name = owned(entry[0]);
    const tarn::Text message = owned(entry[1]);
    content.add(Element("article", Element("h2", Attribute("dir", "auto"), name.view()),
                        Element("p", Attribute("dir", "auto"), message.view())));
  }
  if (lines) fclose(lines);
}

static Element control(const char *tag, const char *name) {
  return Element(tag, Attribute("name", name), Attribute("required"), Attribute("dir", "auto"));
}

static Element form(std::string_view name, std::string_view message) {
  Element text = control("input", "name");
  text.add(Attribute("value", name));
  Element area = control("textarea", "message");
  area.add(message);
  Element box("input", Attribute("type", "checkbox"), Attribute("name", "remember"));
  if (!name.empty()) box.add(Attribute("checked"));
  return Element("form", Attribute("method", "post"),
                 Element("p", Element("label", "Name ", std::move(text))),
                 Element("p", Element("label", "Message ", std::move(area))),
                 Element("p", Element("label", std::move(box), " Remember my name")),
                 Element("p", Element("button", "Write")));
}

static bool fits(std::string_view text, std::size_t most) {
  return !text.empty() && text.size() <= most;
}

static Outcome take(tarn::Request &request, const char *path, std::string_view name,
                    std::string_view message) {
  if (!request || !path) return {500, "TARN_GUESTBOOK_FILE does not say where the entries are."};
  if (!is_post(request)) return {200, nullptr};
  const bool fit = fits(name, kNameBytes) && fits(message, kMessageBytes);
  if (!fit) return {400, "A short name and a message, please."};
  if (!arrivedWhole(request.handle())) return {400, "Your entry did not arrive whole."};
  if (!add_line(path, {name, message})) return {500, "Your entry could not be kept."};
  return {303, nullptr};
}

int main() {
  tarn::Request request;
  const char *path = getenv("TARN_GUESTBOOK_FILE");
  const std::string_view message = field(request, "message");
  const std::string_view name =
      is_post(request) ? field(request, "name") : stripped(request.cookie("guest").value_or(""));
  const Outcome outcome = take(request, path, name, message);
  if (outcome.status == 303) {
    const bool remember = request.checked("remember");
    const tarn::Text here = tarn::escape_path(request.environment().script_name());
    tarn::SetCookie guest("guest", remember ? name : "");
    guest.max_age(remember ? kYear : 0);
    return tarn::Response().redirect(here.view()).cookie(guest).send() ? 0 : 1;
  }
  tarn::ElementList content;
  content.add(form(name, message));
  show_entries(path ? path : "", content);
  return send_page("Guestbook", outcome, std::move(content)) ? 0 : 1;
}
