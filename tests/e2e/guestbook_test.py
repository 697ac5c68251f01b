"""The example guestbook stores entries, and remembers a guest's name in a cookie on request."""

import concurrent.futures
import os
import tempfile
import unittest

import script
from page import Page
from servers import Lighttpd

GUESTBOOK = os.environ["GUESTBOOK"]
GUESTBOOK_CPP = os.environ["GUESTBOOK_CPP"]
HOSTILE = "\"'><script>alert(1)</script>&amp;<!--"
URL_ENCODED = "application/x-www-form-urlencoded"


def entries_shown(page):
    return list(zip(page.texts("h2"), page.texts("article"), strict=True))


class Guestbook(unittest.TestCase):
    SERVER = Lighttpd
    SCRIPT = GUESTBOOK

    def setUp(self):
        self.server = self.enterContext(
            self.SERVER({"guestbook": self.SCRIPT}, {"TARN_GUESTBOOK_FILE": "entries"})
        )
        self.jar = self.server.path("cookies")

    def tearDown(self):
        self.assertEqual("", self.server.log())

    def visit(self):
        """Requests the page like a browser that keeps cookies."""
        answer = self.server.curl("/guestbook", "-b", self.jar, "-c", self.jar)
        self.assertEqual(200, answer.status)
        self.assertEqual("text/html; charset=utf-8", answer.header("content-type"))
        return Page(answer.body)

    def write(self, name, message, *arguments, status=303):
        answer = self.server.curl(
            *("/guestbook", "-b", self.jar, "-c", self.jar),
            *("--data-urlencode", f"name={name}", "--data-urlencode", f"message={message}"),
            *arguments,
        )
        self.assertEqual(status, answer.status)
        return answer

    def stored_lines(self):
        try:
            with open(self.server.path("entries"), encoding="ascii") as file:
                return file.read().splitlines()
        except FileNotFoundError:
            return []

    def test_empty_book_has_a_form(self):
        page = self.visit()
        self.assertIn("No entries yet.", page.texts("p"))
        self.assertEqual("", page.named("name")["attributes"]["value"])
        self.assertEqual("textarea", page.named("message")["tag"])
        self.assertEqual("checkbox", page.named("remember")["attributes"]["type"])
        self.assertEqual(3, len(page.texts("label")))

    def test_entries_stay_in_order(self):
        answer = self.write("Zoë", "Kalt & klar")
        self.assertEqual("/cgi-bin/guestbook", answer.header("location"))
        self.assertEqual(b"", answer.body)
        self.write("Idris", "first line\r\nsecond line")
        self.assertEqual(
            [("Zoë", "ZoëKalt & klar"), ("Idris", "Idrisfirst line\r\nsecond line")],
            entries_shown(self.visit()),
        )

    def test_name_is_remembered_when_the_box_is_ticked(self):
        answer = self.write('Zoë; "the" one, 100%+', "Hello", "-d", "remember=on")
        cookie, *attributes = answer.header("set-cookie").split("; ")
        self.assertEqual("guest=Zo%C3%AB%3B%20%22the%22%20one%2C%20100%25%2B", cookie)
        # In C the cookie is for the folder of the page, in C++ for the whole host.
        self.assertEqual(
            {"Max-Age=31536000", "HttpOnly", "SameSite=Lax"}, set(attributes) - {"Path=/"}
        )
        page = self.visit()
        self.assertEqual('Zoë; "the" one, 100%+', page.named("name")["attributes"]["value"])
        self.assertIn("checked", page.named("remember")["attributes"])

    def test_name_is_forgotten_when_the_box_is_not_ticked(self):
        self.write("Zoë", "Hello", "-d", "remember=on")
        self.write("Zoë", "Hello again")
        page = self.visit()
        self.assertEqual("", page.named("name")["attributes"]["value"])
        self.assertNotIn("checked", page.named("remember")["attributes"])

    def test_text_from_guests_is_escaped(self):
        self.write(HOSTILE, HOSTILE, "-d", "remember=on")
        page = self.visit()
        self.assertNotIn("script", page.tags)
        self.assertEqual([(HOSTILE, HOSTILE + HOSTILE)], entries_shown(page))
        self.assertEqual(HOSTILE, page.named("name")["attributes"]["value"])

    def test_forged_cookie_is_escaped(self):
        answer = self.server.curl("/guestbook", "-b", "a=1; guest=%22%3E%3Cscript%3E; guest=later")
        page = Page(answer.body)
        self.assertEqual('"><script>', page.named("name")["attributes"]["value"])

    def test_name_cannot_add_a_header_or_an_entry(self):
        name = "x\r\nSet-Cookie: evil=1\r\n\r\n<p>\ny z"
        answer = self.write(name, "a\nb c", "-d", "remember=on")
        self.assertEqual(1, len([key for key, _ in answer.headers if key == "set-cookie"]))
        self.assertNotIn(" evil=1", answer.header("set-cookie"))
        self.assertEqual(1, len(self.stored_lines()))
        self.assertEqual([(name, name + "a\nb c")], entries_shown(self.visit()))

    def test_entries_without_name_or_message_are_refused_and_shown_again(self):
        for name, message in (("", "text"), ("name", " \r\n"), ("n" * 121, "m"), ("n", "m" * 4001)):
            answer = self.write(name, message, "-d", "remember=on", status=422)
            page = Page(answer.body)
            self.assertIn("Please enter a short name and a message.", page.texts("p"))
            self.assertEqual(name, page.named("name")["attributes"]["value"])
            self.assertEqual(message.strip(), page.named("message")["text"].strip())
        self.assertEqual([], self.stored_lines())

    def test_concurrent_entries_are_all_kept(self):
        def guest(number):
            form = f"name=guest{number}&message={'m' * 4000}"
            self.server.ask("/guestbook", form.encode())
            return self.server.ask("/guestbook").body.count(b"<article")

        with concurrent.futures.ThreadPoolExecutor(8) as guests:
            counts = list(guests.map(guest, range(60)))
        self.assertTrue(all(0 < count <= 60 for count in counts), counts)
        written = entries_shown(self.visit())
        self.assertEqual({f"guest{number}" for number in range(60)}, {name for name, _ in written})
        self.assertEqual(60, len(written))
        for name, whole in written:
            self.assertEqual(name + "m" * 4000, whole)


class GuestbookInCpp(Guestbook):
    SCRIPT = GUESTBOOK_CPP


class GuestbooksOfOneFile(unittest.TestCase):
    def test_c_and_cpp_show_each_others_entries(self):
        scripts = {"c": GUESTBOOK, "cpp": GUESTBOOK_CPP}
        with Lighttpd(scripts, {"TARN_GUESTBOOK_FILE": "entries"}) as server:
            expected = []
            for language in ("c", "cpp", "cpp", "c"):
                text = f"{language}: {HOSTILE}, 湖/?%2F+"
                answer = server.curl(
                    *(f"/{language}", "--data-urlencode", f"name={text}"),
                    *("--data-urlencode", f"message={text}\r\n{text}"),
                )
                self.assertEqual(303, answer.status)
                expected.append((text, f"{text}{text}\r\n{text}"))
                for other in scripts:
                    self.assertEqual(expected, entries_shown(Page(server.curl(f"/{other}").body)))


class GuestbookAlone(unittest.TestCase):
    SCRIPT = GUESTBOOK

    def setUp(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        self.path = os.path.join(folder, "entries")

    def run_script(self, variables, body=b"", **limits):
        variables = {"TARN_GUESTBOOK_FILE": self.path, **variables}
        return script.run(self.SCRIPT, variables, body, **limits)

    def test_full_disk_leaves_the_book_unchanged(self):
        body = b"name=a&message=" + b"m" * 100
        variables = script.post(URL_ENCODED, body)
        self.assertEqual(303, self.run_script(variables, body)[0])
        with open(self.path, "rb") as file:
            before = file.read()
        status, _, page, _ = self.run_script(variables, body, largest_file=len(before) + 10)
        self.assertEqual(500, status)
        self.assertIn("Your entry could not be saved.", Page(page).texts("p"))
        with open(self.path, "rb") as file:
            self.assertEqual(before, file.read())
        self.assertEqual(303, self.run_script(variables, body)[0])
        with open(self.path, "rb") as file:
            self.assertEqual(before * 2, file.read())

    def test_missing_setting_is_reported(self):
        status, _, page, _ = script.run(self.SCRIPT, {"REQUEST_METHOD": "GET"})
        self.assertEqual(500, status)
        self.assertIn("TARN_GUESTBOOK_FILE", Page(page).texts("p")[0])

    def test_head_has_no_body(self):
        status, head, page, _ = self.run_script({"REQUEST_METHOD": "HEAD"})
        self.assertEqual((200, b""), (status, page))
        self.assertIn("Content-Type: text/html; charset=utf-8", head)


class GuestbookInCppAlone(GuestbookAlone):
    SCRIPT = GUESTBOOK_CPP


if __name__ == "__main__":
    unittest.main()
