"""The example todo: the ordinary way through it, and attacks. Each attack is also sent without its
trick, and then succeeds: so the trick is why it is refused."""

import base64
import json
import os
import re
import unittest
from pathlib import Path

import script
from page import Page
from servers import Lighttpd, todo

TODO = os.environ["TODO"]
FOLDER = "lists"
HOSTILE = "\"'><script>alert(1)</script>&amp;<!--"
PNG = b"\x89PNG\r\n\x1a\n and more"
PASSWORD = 'Love "lace" & 100%'
OUR_FORM = ("-H", "Sec-Fetch-Site: same-origin")
MEBIBYTE = 1 << 20


class Browser:
    """A visitor who keeps cookies and sends the forms of the last page."""

    def __init__(self, server, name):
        self.server = server
        self.jar = server.path(f"{name}.cookies")
        self.page = None
        self.forms = {}

    def ask(self, path, *arguments):
        answer = self.server.curl(f"/todo{path}", "-b", self.jar, "-c", self.jar, *arguments)
        if answer.body.startswith(b"<!DOCTYPE html>\n") and b"<main>" in answer.body:
            self.page = Page(answer.body)
            self.forms = forms(answer.body.decode())
        return answer

    def visit(self, path=""):
        return self.ask(path)

    def send(self, path, fields=(), headers=OUR_FORM, token=None):
        """Sends a form of the last page, with its token or another one."""
        token = self.forms.get(path, "none") if token is None else token
        parts = [part for name, value in fields for part in ("--form-string", f"{name}={value}")]
        return self.ask(path, *headers, "--form-string", f"form-token={token}", *parts)

    def log_in(self, name="Ada", password=PASSWORD):
        self.visit()
        return self.send("/login", (("name", name), ("password", password)))

    def add_path(self):
        """The address to which the form for a new item is sent."""
        (path,) = [path for path in self.forms if re.fullmatch("/items/[0-9]+", path)]
        return path

    def add(self, title, *arguments):
        self.visit()
        token = ("--form-string", f"form-token={self.forms[self.add_path()]}")
        title = ("--form-string", f"title={title}")
        return self.ask(self.add_path(), *OUR_FORM, *token, *title, *arguments)

    def titles(self):
        self.visit()
        return self.page.texts("h2")

    def cookie(self):
        """The value of the session cookie."""
        found = re.search(r"\ttodo\t(\S+)\n", Path(self.jar).read_text(encoding="ascii"))
        return found and found[1]


def session_in(cookie):
    """The name of the session in a signed cookie, after a time of 8 bytes and a code of 32."""
    return base64.urlsafe_b64decode(cookie + "=" * (-len(cookie) % 4))[40:72]


def forms(page):
    """The tokens of the forms of a page, by the path to which they are sent."""
    found = re.findall(
        r'<form method="post" action="/cgi-bin/todo([^"]*)"[^>]*>'
        r'<input type="hidden" name="form-token" value="([^"]*)">',
        page,
    )
    return dict(found)


def make_lists(parent):
    """Makes the folder of the lists in a folder of the same owner, and returns it."""
    folder = Path(parent, FOLDER)
    todo.make_lists(folder, parent, ("Ada", "Bob", "../Eve"), PASSWORD)
    return folder


class TodoCase(unittest.TestCase):
    SERVER = Lighttpd

    def setUp(self):
        self.server = self.enterContext(self.SERVER({"todo": TODO}, {"TARN_TODO_DIR": FOLDER}))
        self.folder = make_lists(self.server.folder)
        self.ada = Browser(self.server, "Ada")
        self.bob = Browser(self.server, "Bob")

    def picture(self, data=PNG, name="lake.png"):
        path = Path(self.server.path("picture"))
        path.write_bytes(data)
        return ("-F", f'picture=@"{path}";filename="{name}"')

    def assert_in(self, browser):
        browser.visit()
        self.assertIn("/logout", browser.forms)

    def assert_out(self, browser):
        answer = browser.visit()
        self.assertEqual(200, answer.status)
        self.assertEqual({"/login"}, set(browser.forms))


class WalkThrough(TodoCase):
    def tearDown(self):
        self.assertEqual("", self.server.log())

    def test_from_login_to_logout(self):
        answer = self.ada.log_in()
        self.assertEqual(303, answer.status)
        self.assertEqual("/cgi-bin/todo", answer.header("location"))
        self.ada.visit()
        self.assertIn("Welcome.", self.ada.page.texts("p", role="status"))
        self.assertEqual(303, self.ada.add("Buy milk", *self.picture()).status)
        self.assertEqual(303, self.ada.add("Swim").status)
        self.assertEqual(["Buy milk", "Swim"], self.ada.titles())
        (image,) = [e for e in self.ada.page.elements if e["tag"] == "img"]
        self.assertEqual("Buy milk", image["attributes"]["alt"])
        shown = self.ada.ask(image["attributes"]["src"].removeprefix("/cgi-bin/todo"))
        self.assertEqual((200, PNG), (shown.status, shown.body))
        self.assertEqual("image/png", shown.header("content-type"))
        self.assertEqual("nosniff", shown.header("x-content-type-options"))
        self.assertIn("sandbox", shown.header("content-security-policy"))
        self.assertIn("attachment", shown.header("content-disposition"))

        (done,) = [path for path in self.ada.forms if path.startswith("/items/0/")]
        self.assertEqual(303, self.ada.send(done).status)
        answer = self.ada.ask("/api/items")
        self.assertEqual("application/json", answer.header("content-type"))
        expected = [
            {"title": "Buy milk", "done": True, "picture": image["attributes"]["src"]},
            {"title": "Swim", "done": False, "picture": None},
        ]
        self.assertEqual(expected, json.loads(answer.body))
        self.ada.visit()
        self.assertNotIn(done, self.ada.forms)
        self.assertEqual(303, self.ada.send("/logout").status)
        self.ada.visit()
        self.assertIn("Goodbye.", self.ada.page.texts("p", role="status"))
        self.assert_out(self.ada)


class Uses(TodoCase):
    def tearDown(self):
        self.assertEqual("", self.server.log())

    def test_users_have_lists_of_their_own(self):
        self.ada.log_in()
        self.ada.add("Of Ada", *self.picture())
        self.bob.log_in("Bob")
        self.assertEqual([], self.bob.titles())
        self.assertEqual(404, self.bob.ask("/picture/lake.png").status)
        self.assertEqual(200, self.ada.ask("/picture/lake.png").status)

    def test_more_items_than_a_page_are_found_and_done(self):
        self.ada.log_in()
        lines = "".join(f"- item{number}\n" for number in range(150))
        todo.write(self.folder / "Ada/.items", lines)
        self.assertEqual([f"item{number}" for number in range(50, 150)], self.ada.titles())
        (older,) = [e["attributes"]["href"] for e in self.ada.page.elements if e["tag"] == "a"]
        self.ada.visit(older)
        self.assertEqual([f"item{number}" for number in range(50)], self.ada.page.texts("h2"))
        offset = lines.index("- item7\n")
        self.assertEqual(303, self.ada.send(f"/items/{offset}/done").status)
        stored = (self.folder / "Ada/.items").read_text(encoding="ascii")
        self.assertEqual(lines.replace("- item7\n", "x item7\n"), stored)
        self.assertEqual(303, self.ada.add("One more").status)

    def test_wrong_fields_are_shown_again(self):
        for name, password in (("Ada", "wrong"), ("Zoe", PASSWORD), ("", PASSWORD), ("Ada", "")):
            self.assertEqual(422, self.ada.log_in(name, password).status)
            self.assertEqual(name, self.ada.page.named("name")["attributes"]["value"])
            self.assertNotIn("value", self.ada.page.named("password")["attributes"])
            self.assert_out(self.ada)
        self.ada.log_in()
        for title in ("", " ", "t" * 201, "two\nlines"):
            self.assertEqual(422, self.ada.add(title).status)
            self.assertEqual(["Enter a line."], self.ada.page.described("title"))
        self.assertEqual(422, self.ada.add("Page", *self.picture(b"<script>", "a.png")).status)
        self.assertIn("PNG", self.ada.page.described("picture")[0])
        self.assertEqual([], self.ada.titles())
        self.assertEqual(303, self.ada.add("t" * 200, *self.picture()).status)
        self.assertEqual(["t" * 200], self.ada.titles())


class AttacksThroughServers(TodoCase):
    """Paths, which servers decode and change."""

    def test_paths_lead_nowhere_else(self):
        self.ada.log_in()
        self.ada.add("Picture", *self.picture())
        # The server decodes paths, and some of them it changes.
        secrets = [(self.folder / name).read_bytes() for name in ("keys", "users", "Ada/.session")]
        for name in ("../keys", "..%2fkeys", "%2e%2e/keys", "%252e%252e%252fkeys", "..%5ckeys"):
            for folder in ("", "../", "%2e%2e%2f"):
                answer = self.ada.ask(f"/picture/{folder}{name}", "--path-as-is")
                self.assertGreaterEqual(answer.status, 400, name)
                self.assertFalse(any(secret in answer.body for secret in secrets))
        self.assertGreaterEqual(self.ada.ask("/picture/lake.png%00").status, 400)
        self.assertEqual(PNG, self.ada.ask("/picture/lake.png", "--path-as-is").body)


class Attacks(TodoCase):
    def test_text_from_visitors_is_escaped_everywhere(self):
        self.ada.visit()
        for name, password in ((HOSTILE, HOSTILE), ("Ada", HOSTILE)):
            answer = self.ada.log_in(name, password)
            self.assertEqual(422, answer.status)
            self.assertNotIn(b"<script", answer.body)
            self.assertEqual(name, self.ada.page.named("name")["attributes"]["value"])
        self.ada.log_in()
        self.assertEqual(
            303, self.ada.add(HOSTILE, *self.picture(PNG, "x.png%22%3E%3Cscript%3E")).status
        )
        answer = self.ada.visit()
        self.assertNotIn(b"<script", answer.body)
        self.assertEqual([HOSTILE], self.ada.page.texts("h2"))
        (image,) = [e for e in self.ada.page.elements if e["tag"] == "img"]
        self.assertEqual(HOSTILE, image["attributes"]["alt"])
        self.assertRegex(image["attributes"]["src"], "^/cgi-bin/todo/picture/[a-zA-Z0-9_.-]+$")
        self.assertIn("script-src 'nonce-", answer.header("content-security-policy"))
        answer = self.ada.ask("/api/items")
        self.assertNotIn(b"<", answer.body)
        self.assertEqual(HOSTILE, json.loads(answer.body)[0]["title"])
        # Wrong fields, addresses, cookies and messages.
        self.assertEqual(422, self.ada.add(HOSTILE * 9).status)
        self.assertEqual(HOSTILE * 9, self.ada.page.named("title")["attributes"]["value"])
        for path in ("/%22%3E%3Cscript%3E", "/picture/%3Cscript%3E", "?before=%22%3E%3Cscript%3E"):
            self.assertNotIn(b"<script", self.ada.ask(path).body)
        for cookie in ("flash", "todo"):
            answer = self.server.curl("/todo", "-b", f"{cookie}=%22%3E%3Cscript%3E")
            self.assertEqual(200, answer.status)
            self.assertNotIn(b"<script", answer.body)

    def test_picture_with_a_page_in_it_runs_nothing(self):
        self.ada.log_in()
        page = PNG + b"<script>alert(1)</script>"
        self.assertEqual(303, self.ada.add("Page", *self.picture(page, "page.html")).status)
        answer = self.ada.ask("/picture/page.html")
        self.assertEqual(page, answer.body)
        self.assertIn("attachment", answer.header("content-disposition"))
        policies = [value for name, value in answer.headers if name == "content-security-policy"]
        self.assertTrue(policies and all("sandbox" in policy for policy in policies), policies)
        self.assertEqual("nosniff", answer.header("x-content-type-options"))

    def test_forms_of_other_sites_change_nothing(self):
        foreign = (
            ("-H", "Sec-Fetch-Site: cross-site"),
            ("-H", "Sec-Fetch-Site: same-site"),
            ("-H", "Origin: https://evil.example"),
            ("-H", "Origin: null"),
            ("-H", "Sec-Fetch-Site:"),
        )
        self.ada.visit()
        login = (("name", "Ada"), ("password", PASSWORD))
        for headers in foreign:
            answer = self.ada.send("/login", login, headers)
            self.assertEqual(403, answer.status, headers)
            self.assertEqual("", self.ada.page.named("name")["attributes"]["value"])
        self.assertEqual(403, self.ada.send("/login", login, token="").status)
        self.assertEqual(303, self.ada.send("/login", login).status)
        self.ada.add("Swim")
        self.ada.visit()
        new = self.ada.add_path()
        for path in (new, "/items/0/done", "/logout"):
            self.ada.visit()
            token = self.ada.forms[path]
            fields = (("title", "Evil"),)
            for headers in foreign:
                answer = self.ada.send(path, fields, headers, token)
                self.assertEqual(403, answer.status, (path, headers))
                self.assertEqual("", self.ada.page.named("title")["attributes"]["value"])
            # From our own page, but without its token, or with that of another form.
            another = self.ada.forms[self.ada.add_path() if path == "/logout" else "/logout"]
            for other in ("", "forged", another):
                self.assertEqual(403, self.ada.send(path, fields, token=other).status, path)
            self.assertEqual(["Swim"], self.ada.titles()[:1])
            self.assertEqual(303, self.ada.send(path, fields, token=token).status, path)
        self.assert_out(self.ada)

    def test_get_changes_nothing(self):
        self.ada.log_in()
        self.ada.add("Swim")
        self.ada.visit()
        for path in (self.ada.add_path(), "/items/0/done", "/logout", "/login"):
            token = self.ada.forms.get(path, "")
            answer = self.ada.ask(f"{path}?title=Evil&form-token={token}", *OUR_FORM)
            self.assertEqual(405, answer.status)
        self.assertEqual(["Swim"], self.ada.titles())
        self.assertIn("/items/0/done", self.ada.forms)

    def test_planted_session_is_not_the_one_after_the_login(self):
        self.bob.visit()
        planted = self.bob.cookie()
        with open(self.ada.jar, "w", encoding="ascii") as jar:
            jar.write(Path(self.bob.jar).read_text(encoding="ascii"))
        self.assertEqual(303, self.ada.log_in().status)
        self.assertRegex(session_in(planted).decode(), "^[0-9a-f]{32}$")
        self.assertNotEqual(session_in(planted), session_in(self.ada.cookie()))
        self.assert_in(self.ada)
        self.assert_out(self.bob)
        # Whoever has the cookie after the login is in.
        with open(self.bob.jar, "w", encoding="ascii") as jar:
            jar.write(Path(self.ada.jar).read_text(encoding="ascii"))
        self.assert_in(self.bob)

    def test_forged_cookies_open_nothing(self):
        self.ada.log_in()
        good = self.ada.cookie()
        middle = len(good) // 2
        swapped = good[:middle] + ("A" if good[middle] != "A" else "B") + good[middle + 1 :]
        for value in ("", "x", "Ada", "0" * 32 + "Ada", swapped, good[:-1], good + "A"):
            answer = self.server.curl("/todo/api/items", "-b", f"todo={value}")
            self.assertEqual(403, answer.status, value)
        self.assertEqual(403, self.server.curl("/todo/api/items", "-b", f"flash={good}").status)
        self.assertEqual(200, self.server.curl("/todo/api/items", "-b", f"todo={good}").status)

    def test_names_of_pictures_are_no_paths(self):
        self.ada.log_in()
        self.ada.add("Picture", *self.picture())
        os.symlink("../keys", self.folder / "Ada/link.png")
        os.mkdir(self.folder / "Ada/folder")
        names = (
            *("../keys", "..", ".", "", "/etc/passwd", ".session", ".items", ".items\\.png"),
            *("link.png", "folder", "lake.png/", "../Ada/lake.png", "./lake.png", "..\\keys"),
            *("%2e%2e/keys", "../users", "folder/../lake.png", "l" * 5000),
        )
        variables = {
            "REQUEST_METHOD": "GET",
            "TARN_TODO_DIR": str(self.folder),
            "HTTP_COOKIE": f"todo={self.ada.cookie()}",
        }
        for name in names:
            path = {"PATH_INFO": f"/picture/{name}"}
            self.assertEqual(404, script.run(TODO, variables | path)[0], name)
        path = {"PATH_INFO": "/picture/lake.png"}
        self.assertEqual((200, PNG), script.run(TODO, variables | path)[::2])

    def test_file_names_stay_in_the_folder(self):
        self.ada.log_in()
        before = {path.name for path in self.folder.iterdir()}
        keys = (self.folder / "keys").read_bytes()
        names = ("../../keys", "..\\\\keys", ".items", "/etc/passwd", "-rf", "lake.png", "lake.png")
        for name in names:
            self.assertEqual(303, self.ada.add("Picture", *self.picture(PNG, name)).status, name)
        self.assertEqual(before, {path.name for path in self.folder.iterdir()})
        self.assertEqual(keys, (self.folder / "keys").read_bytes())
        saved = {path.name for path in (self.folder / "Ada").glob("[!.]*")}
        self.assertEqual(
            {"keys", "2-keys", "items", "passwd", "rf", "lake.png", "2-lake.png"}, saved
        )
        self.assertEqual(["Picture"] * len(names), self.ada.titles())

    def test_names_of_users_are_no_paths(self):
        # Even one with a password.
        self.assertEqual(422, self.ada.log_in("../Eve").status)
        self.assertFalse((self.folder / "../Eve").exists())
        for name in ("..", ".", "/", "Ada/", "./Ada", "Ada/../Bob", "keys"):
            self.assertEqual(422, self.ada.log_in(name).status, name)
        self.assertEqual({"keys", "users"}, {path.name for path in self.folder.iterdir()})
        self.assertEqual(303, self.ada.log_in("Ada").status)

    def test_oversize_is_refused(self):
        self.ada.log_in()
        large = PNG.ljust(2 * MEBIBYTE, b"m")
        self.assertEqual(413, self.ada.add("Large", *self.picture(large)).status)
        self.assertIn("larger", self.ada.page.texts("p", role="alert")[0])
        many = [part for number in range(9) for part in ("--form-string", f"a{number}=")]
        self.assertEqual(413, self.ada.add("Many", *many).status)
        self.assertEqual([], self.ada.titles())
        self.assertEqual(set(), set((self.folder / "Ada").glob("[!.]*")))
        fits = large[: 2 * MEBIBYTE - 2000]
        self.assertEqual(303, self.ada.add("Fits", *self.picture(fits)).status)
        self.assertEqual(fits, self.ada.ask("/picture/lake.png").body)

    def test_full_lists_are_refused(self):
        self.ada.log_in()
        line = "- " + "m" * 1021 + "\n"
        lines = line * 1023 + "- " + "m" * 1000 + "\n"
        todo.write(self.folder / "Ada/.items", lines)
        self.assertEqual(507, self.ada.add("No room for this long title", *self.picture()).status)
        self.assertFalse((self.folder / "Ada/lake.png").exists())
        self.assertEqual(303, self.ada.add("Room").status)
        with open(self.folder / "Ada/large.png", "wb") as file:
            file.truncate(100 * MEBIBYTE)
        self.assertEqual(507, self.ada.add("P", *self.picture()).status)
        self.assertEqual(303, self.ada.add("P").status)

    def test_form_that_is_sent_again_adds_nothing(self):
        self.ada.log_in()
        self.ada.visit()
        path = self.ada.add_path()
        token = self.ada.forms[path]
        item = (("title", "Swim"),)
        self.assertEqual(303, self.ada.send(path, item, token=token).status)
        self.assertEqual(409, self.ada.send(path, item, token=token).status)
        self.assertEqual(["Swim"], self.ada.titles())
        # The token of this form is not good for the next one.
        self.assertEqual(403, self.ada.send(self.ada.add_path(), item, token=token).status)
        self.assertEqual(303, self.ada.send(self.ada.add_path(), item).status)
        self.assertEqual(["Swim", "Swim"], self.ada.titles())

    def test_replay_with_a_picture_keeps_the_first_picture(self):
        self.ada.log_in()
        self.ada.visit()
        path = self.ada.add_path()
        token = ("--form-string", f"form-token={self.ada.forms[path]}")
        title = ("--form-string", "title=Lake")
        for status in (303, 409):
            answer = self.ada.ask(path, *OUR_FORM, *token, *title, *self.picture())
            self.assertEqual(status, answer.status)
        self.assertEqual({"lake.png"}, {p.name for p in (self.folder / "Ada").glob("[!.]*")})

    def test_tokens_and_cookies_of_a_session_end_with_it(self):
        self.ada.log_in()
        self.ada.visit()
        cookie, tokens, path = self.ada.cookie(), self.ada.forms, self.ada.add_path()
        self.bob.log_in("Bob")
        self.bob.visit()
        item = (("title", "Evil"),)
        # A token of somebody else.
        self.assertEqual(403, self.bob.send(path, item, token=tokens[path]).status)
        self.assertEqual(303, self.bob.send(path, item).status)
        self.ada.send("/logout")
        stolen = ("-b", f"todo={cookie}")
        self.assertEqual(403, self.server.curl("/todo/api/items", *stolen).status)
        token = ("--form-string", f"form-token={tokens[path]}", "--form-string", "title=Evil")
        self.assertEqual(403, self.server.curl(f"/todo{path}", *stolen, *OUR_FORM, *token).status)
        # A new session of the same user does not bring the old one back.
        self.ada.log_in()
        self.assertEqual(403, self.server.curl("/todo/api/items", *stolen).status)
        self.assertEqual(403, self.ada.send(path, item, token=tokens[path]).status)
        self.assertEqual([], self.ada.titles())
        self.assertEqual(303, self.ada.send(path, item).status)


class Setup(TodoCase):
    def test_cookies_are_for_this_host_and_https_alone_under_https(self):
        variables = {"REQUEST_METHOD": "GET", "TARN_TODO_DIR": str(self.folder)}
        for https, name, secure in (("on", "__Host-todo=", True), ("off", "todo=", False)):
            _, lines, _, _ = script.run(TODO, variables | {"HTTPS": https})
            (cookie,) = [line for line in lines if line.startswith("Set-Cookie: ")]
            self.assertTrue(cookie.startswith(f"Set-Cookie: {name}"), cookie)
            self.assertEqual(secure, "; Secure" in cookie)
            self.assertIn("; Path=/", cookie)
            self.assertIn("; HttpOnly; SameSite=Lax", cookie)
            self.assertNotIn("Domain", cookie)

    def test_source_has_fewer_lines_than_the_guide_says(self):
        source = Path(__file__).parents[2] / "examples/todo.cpp"
        self.assertLess(len(source.read_text(encoding="utf-8").splitlines()), 200)

    def test_script_that_is_not_set_up_says_so(self):
        os.chmod(self.folder / "keys", 0o644)
        self.assertEqual(500, self.server.curl("/todo").status)
        self.assertIn("todo: keys: others may read the file", self.server.log())


if __name__ == "__main__":
    unittest.main()
