"""The example contact shows an error beside each wrong field, and saves valid messages."""

import concurrent.futures
import os
import tempfile
import unittest
import urllib.parse

import script
from page import Page
from servers import Lighttpd

CONTACT = os.environ["CONTACT"]
CONTACT_CPP = os.environ["CONTACT_CPP"]
HOSTILE = "\"'><script>alert(1)</script>&amp;<!--"
URL_ENCODED = "application/x-www-form-urlencoded"
GOOD = {"name": "Zoë", "email": "zoe@example.org", "message": "Kalt & klar\r\n湖"}
LINE = "Zo%C3%AB zoe%40example.org Kalt%20%26%20klar%0D%0A%E6%B9%96"
NAME = ["Please enter your name (at most 120 bytes)."]
EMAIL = ["Please enter an address like name@example.org."]
MESSAGE = ["Please enter a message (at most 4000 bytes)."]


class Contact(unittest.TestCase):
    SERVER = Lighttpd
    SCRIPT = CONTACT

    def setUp(self):
        self.server = self.enterContext(
            self.SERVER({"contact": self.SCRIPT}, {"TARN_CONTACT_FILE": "messages"})
        )

    def tearDown(self):
        self.assertEqual("", self.server.log())

    def send(self, status, **changes):
        data = urllib.parse.urlencode(GOOD | changes)
        answer = self.server.curl("/contact", "--data-raw", data)
        self.assertEqual(status, answer.status)
        return answer

    def messages(self):
        try:
            with open(self.server.path("messages"), encoding="ascii") as file:
                return file.read().splitlines()
        except FileNotFoundError:
            return []

    def test_page_has_an_empty_form_without_errors(self):
        answer = self.server.curl("/contact")
        self.assertEqual(200, answer.status)
        self.assertEqual("text/html; charset=utf-8", answer.header("content-type"))
        page = Page(answer.body)
        self.assertEqual([], page.texts("p", role="alert") + page.texts("p", role="status"))
        for name in GOOD:
            self.assertIsNone(page.described(name))
            self.assertIn("required", page.named(name)["attributes"])
        self.assertEqual("", page.named("email")["attributes"]["value"])

    def test_message_is_saved_and_confirmed_on_another_page(self):
        answer = self.send(303)
        self.assertRegex(answer.header("location"), r"/contact\?sent\Z")
        self.assertEqual(b"", answer.body)
        self.assertEqual([LINE], self.messages())
        self.assertEqual(0o600, os.stat(self.server.path("messages")).st_mode & 0o777)
        page = Page(self.server.curl("/contact?sent").body)
        self.assertEqual(["Thank you, we have your message."], page.texts("p", role="status"))
        self.assertEqual("\n", page.named("message")["text"])

    def test_each_wrong_field_and_no_other_has_an_error(self):
        for changes, name, email, message in (
            ({"name": " "}, NAME, None, None),
            ({"name": "n" * 121}, NAME, None, None),
            ({"email": ""}, None, EMAIL, None),
            ({"message": "\r\n"}, None, None, MESSAGE),
            ({"message": "m" * 4001}, None, None, MESSAGE),
            (dict.fromkeys(GOOD, ""), NAME, EMAIL, MESSAGE),
        ):
            page = Page(self.send(422, **changes).body)
            self.assertEqual(name, page.described("name"), changes)
            self.assertEqual(email, page.described("email"), changes)
            self.assertEqual(message, page.described("message"), changes)
            self.assertEqual(1, len(page.texts("p", role="alert")))
        self.assertEqual([], self.messages())

    def test_form_without_fields_is_refused(self):
        answer = self.server.curl("/contact", "-d", "other=1")
        self.assertEqual(422, answer.status)
        self.assertEqual(EMAIL, Page(answer.body).described("email"))

    def test_address_needs_one_at_sign_with_text_on_both_sides(self):
        for address in [
            "a",
            "a@",
            "@a",
            "@",
            "a@b@c",
            "a b@c",
            "a@b\r\nc",
            "a@b,c@d",
            "a@b\x01",
            "a@b\x7f",
        ] + ["<a@b>", '"a"@b', "a@" + "b" * 253]:
            self.assertEqual(
                EMAIL, Page(self.send(422, email=address).body).described("email"), address
            )
        for address in ("a@b", "zoë+tarn@bücher.example", " a@b ", "a@" + "b" * 252):
            self.send(303, email=address)

    def test_submitted_values_are_shown_again_as_text(self):
        page = Page(self.send(422, name=HOSTILE, email=HOSTILE, message=HOSTILE).body)
        self.assertNotIn("script", page.tags)
        self.assertEqual(HOSTILE, page.named("name")["attributes"]["value"])
        self.assertEqual(HOSTILE, page.named("email")["attributes"]["value"])
        self.assertEqual(HOSTILE, page.named("message")["text"].strip())

    def test_text_cannot_add_a_message_or_a_header(self):
        answer = self.send(303, name="x\r\nSet-Cookie: a=1\n\ny z", message="a\nb c")
        self.assertEqual([], [value for key, value in answer.headers if key == "set-cookie"])
        (line,) = self.messages()
        texts = [urllib.parse.unquote(text) for text in line.split(" ")]
        self.assertEqual(["x\r\nSet-Cookie: a=1\n\ny z", GOOD["email"], "a\nb c"], texts)

    def test_concurrent_messages_are_all_kept(self):
        def send(number):
            form = urllib.parse.urlencode(GOOD | {"name": f"guest{number}"})
            return self.server.ask("/contact", form.encode()).status

        with concurrent.futures.ThreadPoolExecutor(8) as visitors:
            self.assertEqual({303}, set(visitors.map(send, range(60))))
        expected = [LINE.replace("Zo%C3%AB", f"guest{number}") for number in range(60)]
        self.assertEqual(sorted(expected), sorted(self.messages()))


class ContactInCpp(Contact):
    SCRIPT = CONTACT_CPP


class ContactAlone(unittest.TestCase):
    SCRIPT = CONTACT

    def test_missing_setting_is_reported(self):
        status, _, page, _ = script.run(self.SCRIPT, {"REQUEST_METHOD": "GET"})
        self.assertEqual(500, status)
        self.assertIn("TARN_CONTACT_FILE", Page(page).texts("p", role="alert")[0])

    def test_failed_save_is_reported_and_the_message_shown_again(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        body = urllib.parse.urlencode(GOOD).encode()
        variables = script.post(URL_ENCODED, body) | {"TARN_CONTACT_FILE": folder}
        status, _, page, _ = script.run(self.SCRIPT, variables, body)
        self.assertEqual(500, status)
        page = Page(page)
        self.assertEqual(["Your message could not be saved."], page.texts("p", role="alert"))
        self.assertEqual("Zoë", page.named("name")["attributes"]["value"])

    def test_head_has_no_body(self):
        variables = {"REQUEST_METHOD": "HEAD", "TARN_CONTACT_FILE": "/dev/null"}
        status, head, page, _ = script.run(self.SCRIPT, variables)
        self.assertEqual((200, b""), (status, page))
        self.assertIn("Content-Type: text/html; charset=utf-8", head)


class ContactInCppAlone(ContactAlone):
    SCRIPT = CONTACT_CPP


if __name__ == "__main__":
    unittest.main()
