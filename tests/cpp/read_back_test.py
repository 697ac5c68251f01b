"""Reads the responses that the C++ tests write with a strict parser of headers and with html5lib.

In the environment: CPP_TESTS, the test program.
"""

import email.utils
import io
import http.client
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

import html5lib

# Files of several gigabytes have the same headers as others.
SUITES = (
    "Response*:SetCookie*:Cors*:Stream*:Negotiation*:Choose*:SendFile*:Router*"
    "-*FourGibibytes:*LargeFiles*"
)
TOKEN = rb"[!#$%&'*+.^_`|~0-9A-Za-z-]+"
# RFC 9110, section 5.5; bytes beyond ASCII are opaque.
LINE = re.compile(
    rb"(%s): ((?:[\x21-\x7e\x80-\xff](?:[\t\x20-\x7e\x80-\xff]*[\x21-\x7e\x80-\xff])?)?)" % TOKEN
)
MEDIA_TYPE = re.compile(r"[\w.+-]+/[\w.+-]+(; ?[\w-]+=([\w.:+-]+|\"[^\"]*\"))*", re.ASCII)
# RFC 6265, section 4.1.1.
COOKIE = re.compile(
    r"[!#$%&'*+.^_`|~0-9A-Za-z-]+=[\x21\x23-\x2b\x2d-\x3a\x3c-\x5b\x5d-\x7e]*"
    r"(; (Max-Age=-?\d+|Expires=[^;]+|Domain=[a-z0-9.-]+|Path=/[^;]*|HttpOnly|Secure|Partitioned"
    r"|SameSite=(Lax|Strict|None)))*"
)
# Headers that occur once at most.
SINGLE = (
    "status content-type content-length location etag last-modified content-disposition".split()
)


def answers():
    with tempfile.TemporaryDirectory() as folder:
        command = [os.environ["CPP_TESTS"], "--gtest_brief=1", f"--gtest_filter={SUITES}"]
        environment = {**os.environ, "TARN_ANSWERS": folder}
        subprocess.run(command, env=environment, check=True, stdout=subprocess.DEVNULL)
        return [path.read_bytes() for path in pathlib.Path(folder).iterdir()]


class Answers(unittest.TestCase):
    def headers(self, head):
        """The headers, by the strict grammar. Python's HTTP client has to read the same."""
        pairs = []
        for line in head.split(b"\r\n"):
            found = LINE.fullmatch(line)
            self.assertIsNotNone(found, line)
            pairs.append((found[1].decode(), found[2].decode("latin-1")))
        message = http.client.parse_headers(io.BytesIO(head + b"\r\n\r\n"))
        self.assertEqual(pairs, message.items())
        self.assertEqual([], message.defects)
        return pairs

    def check(self, answer):
        head, end, body = answer.partition(b"\r\n\r\n")
        self.assertTrue(end, answer)
        pairs = self.headers(head)
        names = [name.lower() for name, _ in pairs]
        for name in SINGLE:
            self.assertLessEqual(names.count(name), 1, answer)
        values = {name.lower(): value for name, value in pairs}
        if "status" in values:
            self.assertRegex(values["status"], r"^[2-5]\d\d( [A-Z][ -~]+)?$")
            if values["status"][:3] in ("204", "205", "304"):
                self.assertEqual(b"", body)
        # An answer to HEAD has the length of the body that it leaves out.
        if "content-length" in values and body:
            self.assertEqual(str(len(body)), values["content-length"])
        if "content-type" in values:
            self.assertTrue(MEDIA_TYPE.fullmatch(values["content-type"]), values["content-type"])
        if "last-modified" in values:
            date = email.utils.parsedate_to_datetime(values["last-modified"])
            self.assertEqual(email.utils.format_datetime(date, True), values["last-modified"])
        for name, value in pairs:
            if name.lower() == "set-cookie":
                self.assertTrue(COOKIE.fullmatch(value), value)
        if values.get("content-type", "").startswith("text/html") and body:
            parser = html5lib.HTMLParser()
            parser.parse(body.decode())
            errors = {code for _, code, _ in parser.errors}
            # Some tests send a single element or a letter.
            missing = {f"expected-doctype-but-got-{what}" for what in ("start-tag", "chars")}
            self.assertLessEqual(errors, missing, answer)
            return "html"
        return "other"

    def test_each_answer_is_read(self):
        kinds = []
        for answer in answers():
            if answer:
                with self.subTest(answer[:300]):
                    kinds.append(self.check(answer))
        self.assertGreater(len(kinds), 100)
        self.assertGreater(kinds.count("html"), 5)


if __name__ == "__main__":
    unittest.main()
