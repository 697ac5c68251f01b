/* todo: a to-do list for each user, with a login, pictures and JSON. The folder TARN_TODO_DIR, which the
 * web server must be able to write and should not serve, has two files: "keys", as tarn/signed.hpp
 * describes it, and "users", with lines "NAME HASH"; crypto_pwhash_str() of libsodium makes a hash.
 *
 *   cc -std=c++17 -fno-exceptions -o todo todo.cpp -ltarn_form -ltarn -ltarn_serve -lsodium
 *
 * with page.h, store.h and page.hpp in the same folder.
 */
#include <tarn/signed.hpp>
#include "page.hpp"

using tarn::Attribute, tarn::Element;

constexpr int kSeconds = 8 * 60 * 60;
constexpr std::size_t kIdBytes = 32, kNameLength = 64, kTitleLength = 200, kFormBytes = 2 << 20;
constexpr Room kMost = {1 << 20, 100 << 20};
constexpr const char *kRemarks[] = STORED_REMARKS("item");

/* A request, and who sent it. The cookie has the id of a session, and after a login the user's name. */
struct Visit {
  const tarn::Keys keys = tarn::Keys::from_file("keys");
  const tarn::Form sent{tarn::FormLimits().body_size(kFormBytes).fields(10)};
  tarn::CheckedForm form{sent, isMethod("POST") && tarn::same_origin()};
  const char *const cookie_name = isHTTPS() ? "__Host-todo" : "todo";
  const tarn::Verified cookie = keys.verify_cookie(sent, cookie_name);
  const tarn::Text new_session = tarn::random_id();
  std::string_view session{cookie.value().data(), cookie ? kIdBytes : 0};
  bool is_user = false; /* whose folder is then the current one */
  tarn::Response response;
};

/* Enters the folder of the user whose session this is. Each user has one session at a time. */
static bool enter_folder(const Visit &visit) {
  char path[HARMLESS_BYTES + 16];
  char id[kIdBytes + 1] = "";
  const char *const user = visit.cookie ? visit.cookie.value().data() + kIdBytes : "";
  snprintf(path, sizeof path, "%s/.session", user);
  return isHarmless(user) && readBytes(path, id, kIdBytes) && visit.session == id && !chdir(user);
}

static void set_cookie(Visit &visit, std::string_view value) {
  visit.response.cookie(over_https(visit.keys.sign_cookie(visit.cookie_name, value, kSeconds)));
}

/* A form with a token that is good for this path and this session only. */
template <class... Pieces>
static Element form_for(const Visit &visit, std::string_view path, Pieces &&...pieces) {
  return Element("form", Attribute("method", "post"), Attribute("action", address(path).view()),
                 Attribute("enctype", "multipart/form-data"),
                 visit.keys.sign_form(path, visit.session, kSeconds),
                 std::forward<Pieces>(pieces)...);
}

/* Shows the items and the forms for them. An item is a line of ".items": "x" if it is done, its title
 * and the name of its picture. Lines never move, so the id of an item is where its line begins. */
static void show_list(const Visit &visit, tarn::ElementList &content, Outcome &outcome) {
  char path[64];
  Lines lines{nullptr, nullptr, 0};
  const long long before = visit.sent.integer("before", 0).value_or(-1);
  if (!readLines(".items", before, &lines)) outcome = {500, "The items could not be read."};
  const auto size = static_cast<long long>(lines.next ? strlen(lines.next) : 0);
  snprintf(path, sizeof path, "/items/%lld", lines.from + size);
  if (before < 0)
    content.add(form_for(visit, path,
                         visit.form.input("title", "To do", Attribute("maxlength", kTitleLength)),
                         visit.form.input("picture", "Picture, if any", Attribute("type", "file")),
                         Element("button", "Add")));
  snprintf(path, sizeof path, "?before=%lld", static_cast<long long>(lines.from));
  if (lines.from > 0 && isMethod("GET"))
    content.add(Element("p", Element("a", Attribute("href", path), "Older")));
  const char *line = lines.next;
  for (char *item[3]; takeLine(&lines, item, 3); line = lines.next) {
    snprintf(path, sizeof path, "/items/%lld/done", static_cast<long long>(lines.from));
    lines.from += lines.next - line;
    Element article("article", Element("h2", Attribute("dir", "auto"), item[1]));
    const tarn::Text picture = address("/picture/", item[2]);
    if (*item[2])
      article.add(Element("img", Attribute("src", picture.view()), Attribute("alt", item[1])));
    article.add(*item[0] == 'x' ? Element("p", "Done")
                                : form_for(visit, path, Element("button", "Done")));
    content.add(std::move(article));
  }
  free(lines.text);
  content.add(form_for(visit, "/logout", Element("button", "Log out")));
}

/* Shows the list or the login; but after a change, status 303, redirects there with a message. */
static int answer(Visit &visit, Outcome outcome = {200, nullptr}, const char *message = "") {
  visit.response.no_store();
  if (outcome.status == 303) {
    visit.response.cookie(over_https(visit.keys.flash(message))).redirect(address("").view());
    return visit.response.send() ? 0 : 1;
  }
  tarn::ElementList content;
  const tarn::Verified flash = visit.keys.take_flash(visit.sent, visit.response);
  if (flash) content.add(Element("p", Attribute("role", "status"), flash.value()));
  if (visit.is_user) show_list(visit, content, outcome);
  if (visit.session.empty()) set_cookie(visit, visit.session = visit.new_session.view());
  if (!visit.is_user)
    content.add(form_for(visit, "/login",
                         visit.form.input("name", "Name", Attribute("autocomplete", "username")),
                         visit.form.input("password", "Password", Attribute("type", "password"),
                                          Attribute("autocomplete", "current-password")),
                         Element("button", "Log in")));
  return send_page("To do", outcome, std::move(content), std::move(visit.response)) ? 0 : 1;
}

static int finish(Visit &visit, bool done, const char *message) {
  return answer(visit, done ? Outcome{303, ""} : Outcome{500, "That failed."}, message);
}

static bool is_password(std::string_view name, std::string_view password) {
  char user[kNameLength + 1] = "";
  char hash[crypto_pwhash_STRBYTES] = "";
  bool known = false;
  FILE *users = fopen("users", "re");
  while (users && !known && fscanf(users, "%64s %127s", user, hash) == 2) known = name == user;
  if (users) fclose(users);
  /* An unknown name takes as long, so that nobody learns which names there are. */
  return crypto_pwhash_str_verify(hash, password.data(), password.size()) == 0 && known;
}

static int log_in(Visit &visit) {
  tarn::CheckedForm &form = visit.form;
  const auto name = form.check("name", tarn::line(form["name"], kNameLength), "Enter your name.");
  const tarn::String user(*name);
  if (form && !(is_password(*name, visit.sent.get("password", "")) && isHarmless(user.c_str())))
    form.refuse("password", "The name or the password is wrong.");
  if (!form) return answer(visit, {form.status(), nullptr});
  /* Always a new session: somebody else might know the old one. It ends the user's earlier one. */
  tarn::String value(visit.new_session.view());
  mkdir(user.c_str(), 0700);
  const bool done = value.size() == kIdBytes && chdir(user.c_str()) == 0 &&
                    overwrite(".session", 0, value.c_str(), kIdBytes);
  if (done && value.append(user.view())) set_cookie(visit, value.view());
  return finish(visit, done, "Welcome.");
}

static int add(Visit &visit, long long id) {
  tarn::CheckedForm &form = visit.form;
  const auto title = form.check("title", tarn::line(form["title"], kTitleLength), "Enter a line.");
  const auto file = visit.sent.file("picture");
  if (file && !is_picture(*file)) form.refuse("picture", "Choose a PNG, JPEG, GIF or WebP file.");
  if (!form) return answer(visit, {form.status(), nullptr});
  /* The id is where the list ended when the form was made, so a form that is sent again adds nothing. */
  return answer(visit, save_line_at(id, ".items", {"-", *title}, file, kMost, kRemarks), "Added.");
}

static int send_items(Visit &visit) {
  Lines lines{nullptr, nullptr, 0};
  if (!readLines(".items", -1, &lines)) return finish(visit, false, "");
  tarn::JsonWriter json;
  json.begin_array();
  for (char *item[3]; takeLine(&lines, item, 3);) {
    const tarn::Text picture = address("/picture/", item[2]);
    json.begin_object().member("title", item[1]).member("done", *item[0] == 'x');
    json.member("picture", *item[2] ? picture.c_str() : nullptr).end_object();
  }
  free(lines.text);
  return visit.response.no_store().nosniff().send_json(json.end_array().take()) ? 0 : 1;
}

static int send_picture(Visit &visit, std::string_view name) {
  visit.response.content_security_policy("default-src 'none'; sandbox").attachment(name);
  return visit.response.send_file(tarn::StoredFile::below(".", name)) ? 0 : 1;
}

static int script() {
  const char *folder = getenv("TARN_TODO_DIR");
  const bool there = folder && chdir(folder) == 0;
  Visit visit;
  if (!there || !visit.keys) {
    fprintf(stderr, "todo: %s\n", there ? visit.keys.problem() : "cannot enter TARN_TODO_DIR");
    return visit.response.send_error(500, "The list is not set up.") ? 0 : 1;
  }
  visit.is_user = enter_folder(visit);
  const std::string_view path = CgiEnv_getPathInfo(nullptr);
  Outcome outcome = refuse_form(visit.sent);
  if (!outcome.status && isMethod("POST") &&
      !visit.keys.verify_form(visit.sent, path, visit.session))
    outcome = {403, "This form is out of date. Please send it again."};
  if (!outcome.status && !visit.is_user && path.size() > 1 && path != "/login")
    outcome = {403, "Please log in."};
  if (outcome.status) return answer(visit, outcome);
  using Values = const tarn::PathValues &;
  const auto id = [](Values at) { return atoll(at["id"]->data()); };
  return tarn::route("GET", "/", [&] { return answer(visit); })
      .route("POST", "/login", [&] { return log_in(visit); })
      .route("POST", "/logout", [&] { return finish(visit, !unlink(".session"), "Goodbye."); })
      .route("POST", "/items/{id}", [&](Values at) { return add(visit, id(at)); })
      .route("POST", "/items/{id}/done",
             [&](Values at) { return finish(visit, overwrite(".items", id(at), "x", 1), "Done."); })
      .route("GET", "/picture/{id}", [&](Values at) { return send_picture(visit, *at["id"]); })
      .route("GET", "/api/items", [&] { return send_items(visit); })
      .finish();
}

int main() { return tarn::serve(script); }
