"""The example form-echo shows a request as text."""

import os
import subprocess
import unittest

import script
from page import Page
from servers import Lighttpd

HOSTILE = "\"'><script>alert(1)</script>&amp;<!--"
PAGE_TAGS = {"html", "head", "meta", "title", "style", "body", "main", "h1", "h2", "p"}
TABLE_TAGS = {"div", "table", "tr", "th", "td"}


def rows(page):
    return list(zip(page.texts("th"), page.texts("td"), strict=True))


class FormEcho(unittest.TestCase):
    server: Lighttpd
    SERVER = Lighttpd

    @classmethod
    def setUpClass(cls):
        cls.server = cls.enterClassContext(cls.SERVER({"form-echo": os.environ["FORM_ECHO"]}))

    def tearDown(self):
        self.assertEqual("", self.server.log())

    def ask(self, *arguments, query=""):
        answer = self.server.curl("/form-echo" + query, *arguments)
        self.assertEqual(200, answer.status)
        return answer

    def page(self, *arguments, query=""):
        answer = self.ask(*arguments, query=query)
        self.assertEqual("text/html; charset=utf-8", answer.header("content-type"))
        page = Page(answer.body)
        self.assertLessEqual(page.tags, PAGE_TAGS | TABLE_TAGS)
        return page

    def lines(self, *arguments, query=""):
        answer = self.ask("-H", "Accept: text/plain", *arguments, query=query)
        self.assertEqual("text/plain; charset=utf-8", answer.header("content-type"))
        return answer.body.decode().splitlines()

    def test_text_area_sent_by_get_arrives_with_its_line_ends_and_any_byte(self):
        page = self.page(query="?text=one%0D%0Atwo%09%FF&after=1")
        self.assertEqual([("text", "one\r\ntwo\t\ufffd"), ("after", "1")], rows(page)[:2])

    def test_page_shows_entries_files_cookies_and_variables(self):
        path = self.server.path("notes.txt")
        with open(path, "wb") as file:
            file.write(b"13 m")
        page = self.page("-F", "lake=Llyn Idwal", "-F", f"notes=@{path}", "-b", "guest=Zo%C3%AB")
        self.assertEqual(["Texts", "Files", "Cookies", "Variables that are set"], page.texts("h2"))
        self.assertEqual(
            [
                ("lake", "Llyn Idwal"),
                ("notes", "notes.txt, text/plain, 4 bytes"),
                ("guest", "Zoë"),
                ("REQUEST_METHOD", "POST"),
                ("SCRIPT_NAME", "/cgi-bin/form-echo"),
            ],
            rows(page)[:5],
        )
        # busybox sets no SERVER_PORT, and a variable that is not set is not shown.
        port = self.server.script_port()
        shown = [value for name, value in rows(page) if name == "SERVER_PORT"]
        self.assertEqual([str(port)] if port else [], shown)

    def test_page_without_a_form_shows_none(self):
        self.assertEqual(["None."] * 3, self.page().texts("p")[1:])

    def test_page_with_cookies_warns_against_live_use(self):
        page = self.page("-b", "session=secret")
        self.assertIn(("session", "secret"), rows(page))
        (warning,) = page.texts("p", role="note")
        self.assertIn("Do not put this script on a live site", warning)
        self.assertIn("HttpOnly", warning)

    def test_page_shows_hostile_text_as_text(self):
        path = self.server.path("x")
        with open(path, "wb"):
            pass
        page = self.page(
            *("--form-string", f"{HOSTILE}={HOSTILE}", "-A", HOSTILE, "-b", "<i>=<b>\"'"),
            *("-F", f"file=@{path};filename=<b>.txt;type=text/<b>"),
        )
        shown = dict(rows(page))
        # curl sends the quote in a field's name as %22, as browsers do.
        self.assertEqual(HOSTILE, shown[HOSTILE])
        self.assertEqual("<b>\"'", shown["<i>"])
        self.assertEqual(HOSTILE, shown["HTTP_USER_AGENT"])
        self.assertEqual("<b>.txt, text/<b>, 0 bytes", shown["file"])

    def test_page_shows_control_characters_as_replacements(self):
        page = self.page(query="?a=1%01%1b%7f2%09%0a3")
        self.assertEqual(("a", "1\ufffd\ufffd\ufffd2\t\n3"), rows(page)[0])

    def test_text_view_has_one_line_for_each_item(self):
        lines = self.lines("-b", "a=1; flag", query="?x=1%0aFiles%1b[0m\\&y=<%26>")
        self.assertEqual(
            [
                "Texts",
                "  x = 1\\x0aFiles\\x1b[0m\\x5c",
                "  y = <&>",
                "Files: none",
                "Cookies",
                "  a = 1",
                "  flag = (none)",
                "Variables that are set",
                "  REQUEST_METHOD = GET",
            ],
            lines[:9],
        )

    def test_every_byte_of_a_text_is_shown(self):
        path = self.server.path("bytes")
        with open(path, "wb") as file:
            file.write(b"ab\0cd\r\n\x7f\\")
        for form in (("-F", f"a=<{path}"), ("--data-urlencode", f"a@{path}")):
            lines = self.lines(*form)
            self.assertEqual("  a = ab\\x00cd\\x0d\\x0a\\x7f\\x5c", lines[1])

    def test_text_area_in_a_form_with_files_arrives_with_all_its_lines(self):
        text = "\r\n".join(f"line {number}" for number in range(10000))
        path = self.server.path("text")
        with open(path, "w", encoding="ascii", newline="") as file:
            file.write(text)
        page = self.page("-F", f"text=<{path}", "-F", f"file=@{path}")
        self.assertTrue(("text", text) == rows(page)[0])
        self.assertEqual(
            ("file", f"text, application/octet-stream, {len(text)} bytes"), rows(page)[1]
        )

    def test_file_field_without_a_file_is_shown(self):
        lines = self.lines("-F", "file=;filename=")
        self.assertEqual(["Texts: none", "Files"], lines[:2])
        self.assertRegex(lines[2], r"\A  file = \(no file chosen\), .*, 0 bytes\Z")

    def test_cookies_are_shown_under_the_names_that_were_sent(self):
        lines = self.lines("-b", "__%48ost-a=1%2B2; b=x%00y; ;c")
        start = lines.index("Cookies")
        shown = ["  __%48ost-a = 1+2", "  b = x", "  c = (none)"]
        self.assertEqual(shown, lines[start + 1 : start + 4])

    def test_head_has_no_body(self):
        answer = self.ask("--head")
        self.assertEqual("text/html; charset=utf-8", answer.header("content-type"))
        # A server would drop the body; the script must not send one at all.
        script = subprocess.run(
            [os.environ["FORM_ECHO"]],
            env={"REQUEST_METHOD": "HEAD"},
            check=True,
            capture_output=True,
        )
        self.assertTrue(script.stdout.endswith(b"\n\n"))
        self.assertEqual(1, script.stdout.count(b"\n\n"))


class CutForm(unittest.TestCase):
    def test_is_answered_with_the_reason(self):
        body = b"--X\r\nContent-Disposition: form-data; name=a\r\n\r\nsecret\r\n--X--"
        for length in range(len(body)):
            variables = script.post("multipart/form-data; boundary=X", body)
            status, _, page, log = script.run(os.environ["FORM_ECHO"], variables, body[:length])
            self.assertEqual(400, status)
            (problem,) = Page(page).texts("p", role="alert")
            self.assertIn("cut short", problem)
            self.assertNotIn(b"secret", page)
            self.assertIn("cut short", log)


if __name__ == "__main__":
    unittest.main()
