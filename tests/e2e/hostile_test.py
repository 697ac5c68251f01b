"""Hostile requests to the probe, directly and through lighttpd, compared with the rules."""

import itertools
import os
import random
import subprocess
import unittest

import rules
import script
from requests_test import MULTIPART, RequestCase, RulesCase, parse_items

URL_ENCODED = "application/x-www-form-urlencoded"
ESCAPES = [b"%", b"%2", b"%zz", b"%%", b"%00", b"%u0041", b"%%%", b"%4%", b"%\xc3\xa9", b"%\xff"]

# Some of everything that the parser has to tell apart.
MIXTURE = (
    b"\r\n--XY\r\n--XYZ\r\n"
    b'Content-Disposition: form-data; name="a"\r\n\r\n1\r\n2\r\n--XYZ\r\n'
    b'Content-Disposition: form-data; name="f"; filename="a%2Fb+%"\r\n'
    b"Content-Type: text/plain\r\n\r\nda\0ta\r\n--XYZ\r\n--XYZ\r\n--XYZ \r\n--XYZ\n"
    b'\tname="";\r\n filename=""\r\n\r\n\r\n--XYZ\r\n'
    b'Content-Type: t\r\nX: filename="g\0"; name="g"\r\n\r\ng\n\r\n--XYZ\r\n'
    b'name="open\r\n\r\nvalue\r--XYZ--\r\n--XYZ\r\nname="b"\r\n\r\n--XYZ--\r\n\r\n\r\nend'
)


class Processes(RulesCase):
    """Runs the probe without a server, which would filter most of these requests."""

    def run_probe(self, variables, body=b"", sent=None):
        """`sent` is what standard input has, if that is not the declared body."""
        sent = body if sent is None else sent
        _, _, answer, log = script.run(os.environ["PROBE"], variables, sent)
        self.assertEqual("", log)
        texts = {name: os.fsencode(value) for name, value in variables.items()}
        self.assert_items(rules.expected_items(texts, sent), parse_items(answer))

    def post(self, content_type, body):
        self.run_probe(script.post(content_type, body), body)

    def test_variables_absent_and_empty_in_every_combination(self):
        variables = {
            "REQUEST_METHOD": "POST",
            "CONTENT_LENGTH": "7",
            "CONTENT_TYPE": MULTIPART,
            "QUERY_STRING": "q=1",
            "HTTP_COOKIE": "k=v",
        }
        for states in itertools.product(("absent", "empty", "set"), repeat=len(variables)):
            chosen = {
                name: value if state == "set" else ""
                for (name, value), state in zip(variables.items(), states)
                if state != "absent"
            }
            with self.subTest(chosen):
                self.run_probe(chosen, b"a=1&b=2")

    def test_lengths_that_are_not_plain_numbers(self):
        for length in (
            ["", "0", "-0", "+5", " 12", "\t12", "12 ", "007", "0x10", "12abc", "1,2", "1.9", "1e3"]
            + ["abc", "- 5", "+-5", "--5", "-1", "-2147483648", "-4294967293", "-" + "9" * 30]
            + ["5\n", "\v\f5", "\xa05", "５", "0" * 40 + "5", "20", "21", "22", "100000"]
        ):
            for kind in (URL_ENCODED, MULTIPART, ""):
                variables = {"REQUEST_METHOD": "POST", "CONTENT_LENGTH": length}
                with self.subTest(length=length, type=kind):
                    self.run_probe(variables | {"CONTENT_TYPE": kind}, b"a=1&b=%41&flag&c=x+y")

    def test_body_truncated_at_every_byte(self):
        for cut in range(len(MIXTURE)):
            with self.subTest(cut):
                self.post(MULTIPART, MIXTURE[:cut])
        self.post(MULTIPART, MIXTURE)

    def test_body_longer_or_shorter_than_its_length_at_every_seventh_byte(self):
        for cut in range(0, len(MIXTURE), 7):
            with self.subTest(cut):
                self.run_probe(script.post(MULTIPART, MIXTURE[:cut]), sent=MIXTURE)
                self.run_probe(script.post(MULTIPART, MIXTURE), sent=MIXTURE[:cut])

    def test_incomplete_escapes(self):
        for escape in ESCAPES:
            with self.subTest(escape):
                text = b"k=" + escape
                self.post(URL_ENCODED, text)
                self.post(URL_ENCODED, escape + b"=")
                name = b'name="f"; filename="' + escape
                self.post(MULTIPART, b"--XYZ\r\n" + name + b'"\r\n\r\n1\r\n')
                self.post(MULTIPART, b"--XYZ\r\n\r\n\r\n1\r\nContent-Type: " + name)
                decoded = os.fsdecode(text)
                self.run_probe({"QUERY_STRING": decoded, "HTTP_COOKIE": decoded})

    def test_boundaries_of_all_kinds(self):
        for parameter in (
            ["", "; boundary", "; boundary=", "; Boundary=XYZ", "; boundary='XYZ'"]
            + ['; boundary="XYZ', '; boundary="XYZ"', "; boundary=XYZ; charset=x"]
            + ["; boundary=X YZ", "; boundary=X;YZ", "; charset=x; boundary=XYZ"]
            + ["; boundary=XYZ; boundary=ABC", "; boundary=%s%n"]
            + ["; boundary=" + "-" * count for count in (1, 2, 3, 70, 71, 256, 4091, 8192)]
        ):
            boundary = os.fsencode(parameter.partition("boundary=")[2])
            for line in (b"--XYZ", b"--" + boundary, b"--" + boundary.strip(b"\"'")):
                body = line + b'\r\nname="a"\r\n\r\n1\r\n' + line + b"-\r\n" + line + b"--\r\n"
                with self.subTest(parameter[:40], line=line[:20]):
                    self.post("multipart/form-data" + parameter, body)

    def test_cookie_headers_of_all_kinds(self):
        for header in (
            ["", ";", ";;;", "a", "a;", "a=1;", "=", "=v", "a=b=c", "a=1; A=2; a=3", " a = 1 ;b"]
            + ["%5F%5FHost-a=1", "__Host-a=1", "a%3Db%3Bc=1%3B2", "a%00b=c%00d", "k=%", "k%=v"]
            + ["a=\r\nSet-Cookie: b=2", "\udcff\udc80=\udcfe", "=".join("a" * 30000), ";" * 65536]
            + ["k=" + "v" * 100000, "x" * 65536]
        ):
            with self.subTest(header[:40]):
                self.run_probe({"HTTP_COOKIE": header})

    def test_invalid_utf8_in_every_variable(self):
        odd = os.fsdecode(bytes(range(1, 256)))
        self.run_probe({name: odd for name in [*rules.VARIABLES, "HTTPS", "HTTP_PROXY"]})

    def test_random_bodies_of_delimiters(self):
        chance = random.Random(20070717)
        marks = [b"--XYZ\r\n", b"--XYZ", b"--XYZ--\r\n", b"\r\n", b"\r\n\r\n", b'name="', b'"']
        marks += [b'filename="', b"Content-Type: ", b"a", b"%", b"%41", b"=", b"&", b"+", b"\xff\0"]
        for _ in range(100):
            body = b"".join(chance.choices(marks, k=chance.randrange(40)))
            with self.subTest(body):
                self.post(MULTIPART, body)
                self.post(URL_ENCODED, body)

    def test_standard_input_that_stays_open(self):
        with subprocess.Popen(
            [os.environ["PROBE"]],
            env=script.post(URL_ENCODED, b"a=1"),
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
        ) as probe:
            probe.stdin.write(b"a=1&b=2")
            probe.stdin.flush()
            answer = probe.stdout.read()
        self.assertIn(("entry.name", b"a"), parse_items(answer.partition(b"\n\n")[2]))
        self.assertEqual(0, probe.returncode)


class Requests(RequestCase):
    """The hostile requests that a server lets through."""

    OPTIONS = "server.max-request-field-size := 65535"

    def post(self, content_type, body):
        return self.ask(
            *("/probe", "-H", f"Content-Type: {content_type}", "--data-binary"),
            "@" + self.write_file("body", body),
        )

    def test_mixture_of_everything_whole_and_halved(self):
        for end in (len(MIXTURE), len(MIXTURE) // 2, len(MIXTURE) // 3):
            self.post(MULTIPART, MIXTURE[:end])

    def test_long_cookies_and_content_types(self):
        self.ask("/probe", "-H", "Cookie: k=" + "v" * 20000 + "; " + "x;" * 5000)
        boundary = "b" * 20000
        body = f'--{boundary}\r\nname="a"\r\n\r\n1\r\n--{boundary}--\r\n'.encode()
        seen = self.post("multipart/form-data; boundary=" + boundary, body)
        self.assertEqual([(b"a", b"1")], seen.entries)

    def test_megabytes_before_between_and_after_the_parts(self):
        much = b"\r\n--XY\r\n--" * 200000
        body = much + b'--XYZ\r\nname="a"\r\n\r\n1\r\n' + much
        body += b'--XYZ\r\nname="b"\r\n\r\n2' + much
        self.assertEqual([(b"a", b"1"), (b"b", b"2")], self.post(MULTIPART, body).entries)

    def test_thousands_of_pairs_and_parts(self):
        pairs = b"&".join(b"k=%d" % i for i in range(20000))
        self.assertEqual(20000, len(self.post(URL_ENCODED, pairs).entries))
        parts = b"".join(b'--XYZ\r\nname="k"\r\n\r\n%d\r\n' % i for i in range(5000))
        self.assertEqual(5000, len(self.post(MULTIPART, parts).entries))

    def test_proxy_header_and_invalid_utf8_in_headers(self):
        seen = self.ask("/probe?a=%FF", "-H", "Proxy: http://attacker.example/", "-b", "k=v")
        self.assertEqual([(b"a", b"\xff")], seen.entries)
        seen = self.ask("/probe", "-H", b"Cookie: k=\xff\xfe")
        self.assertEqual([(b"k", b"\xff\xfe")], seen.cookies)


if __name__ == "__main__":
    unittest.main()
