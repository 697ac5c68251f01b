"""Responses of tarn.hpp under lighttpd, as curl and Python's parsers of headers read them."""

import email.message
import email.utils
import html.parser
import http.client
import os
import random
import time
import unittest
import urllib.parse

from servers import Lighttpd

# Large enough that a server does not get it in one piece.
BYTES = random.Random(7).randbytes(3_000_000)
# 2025-11-21.
CHANGED = 1763683200


class Responses(unittest.TestCase):
    def setUp(self):
        self.server = self.enterContext(
            Lighttpd({"responses": os.environ["RESPONSES"]}, {"LAKES": "lakes"})
        )
        self.server.make_folder("lakes")
        self.path = self.write("lake.png", BYTES)

    def tearDown(self):
        self.assertEqual("", self.server.log())

    def write(self, name, data, changed=CHANGED):
        path = os.path.join(self.server.path("lakes"), name)
        with open(path, "wb") as file:
            file.write(data)
        os.utime(path, (changed, changed))
        return path

    def curl(self, path, *arguments):
        return self.server.curl("/responses" + path, *arguments)

    def strong_tag(self, path):
        """The tag of a file, once it is two seconds old."""
        while (tag := self.curl(path, "-I").header("etag")).startswith("W/"):
            time.sleep(0.2)
        return tag

    def test_a_file_arrives_whole_with_its_headers(self):
        answer = self.curl("/file/lake.png")
        self.assertEqual(200, answer.status)
        self.assertEqual(BYTES, answer.body)
        self.assertEqual("image/png", answer.header("content-type"))
        self.assertEqual("nosniff", answer.header("x-content-type-options"))
        self.assertEqual("Fri, 21 Nov 2025 00:00:00 GMT", answer.header("last-modified"))
        self.assertEqual(str(len(BYTES)), answer.header("content-length"))
        self.assertEqual("bytes", answer.header("accept-ranges"))

    def test_a_head_request_has_the_headers_of_a_get(self):
        self.strong_tag("/file/lake.png")
        left_out = {"date", "connection"}
        headers = []
        for method in ("GET", "HEAD"):
            connection = http.client.HTTPConnection("127.0.0.1", self.server.port)
            connection.request(method, "/cgi-bin/responses/file/lake.png")
            answer = connection.getresponse()
            self.assertEqual(BYTES if method == "GET" else b"", answer.read())
            headers.append({n: v for n, v in answer.headers.items() if n.lower() not in left_out})
            connection.close()
        self.assertEqual(headers[0], headers[1])

    def test_any_range_is_what_was_asked_for(self):
        chance = random.Random(3)
        for _ in range(40):
            first = chance.randrange(len(BYTES))
            last = min(first + chance.choice((0, 1, 5000, 2_000_000)), len(BYTES) + 10)
            for asked, part in (
                (f"{first}-{last}", BYTES[first : last + 1]),
                (f"-{last - first + 1}", BYTES[-(last - first + 1) :]),
            ):
                answer = self.curl("/file/lake.png", "-r", asked)
                self.assertEqual(206, answer.status, asked)
                self.assertEqual(part, answer.body, asked)
                begin = BYTES.index(part) if asked[0] == "-" and len(part) > 8 else None
                if begin is not None:
                    shown = f"bytes {begin}-{begin + len(part) - 1}/{len(BYTES)}"
                    self.assertEqual(shown, answer.header("content-range"))

    def test_a_range_beyond_the_end_is_refused_with_the_size(self):
        answer = self.curl("/file/lake.png", "-r", f"{len(BYTES)}-")
        self.assertEqual(416, answer.status)
        self.assertEqual(f"bytes */{len(BYTES)}", answer.header("content-range"))

    def test_a_download_is_resumed_only_if_the_file_is_the_same(self):
        tag = self.strong_tag("/file/lake.png")
        for changed in (False, True):
            with self.subTest(changed=changed):
                if changed:
                    # Same size, same time.
                    self.write("lake.png", BYTES[::-1])
                answer = self.curl("/file/lake.png", "-r", "1000-", "-H", f"If-Range: {tag}")
                self.assertEqual(200 if changed else 206, answer.status)
                self.assertEqual(BYTES[::-1] if changed else BYTES[1000:], answer.body)

    def test_a_browser_does_not_load_what_it_has(self):
        tag = self.strong_tag("/file/lake.png")
        for condition in (
            f"If-None-Match: {tag}",
            f'If-None-Match: "other", W/{tag}',
            "If-Modified-Since: Fri, 21 Nov 2025 00:00:00 GMT",
        ):
            answer = self.curl("/file/lake.png", "-H", condition)
            self.assertEqual(304, answer.status, condition)
            self.assertEqual(b"", answer.body)
            self.assertEqual(tag, answer.header("etag"))
        saved = self.server.path("tag")
        self.assertEqual(200, self.curl("/file/lake.png", "--etag-save", saved).status)
        self.assertEqual(304, self.curl("/file/lake.png", "--etag-compare", saved).status)
        self.write("lake.png", b"new")
        answer = self.curl("/file/lake.png", "--etag-compare", saved)
        self.assertEqual((200, b"new"), (answer.status, answer.body))
        self.assertEqual(412, self.curl("/file/lake.png", "-H", f"If-Match: {tag}").status)

    def test_no_name_leads_out_of_the_folder(self):
        self.write("../secret", b"secret")
        self.write(".hidden", b"secret")
        os.symlink("../secret", self.path + "-link")
        for name in (".hidden", "lake.png-link", "none", "..%2Fsecret", "%2e%2e", "a%00b"):
            answer = self.curl("/file/" + name, "--path-as-is")
            self.assertIn(answer.status, (400, 404), name)
            self.assertNotIn(b"secret", answer.body)

    def test_an_error_is_a_page_with_its_status(self):
        class Texts(html.parser.HTMLParser):
            """Collects the texts of elements."""

            texts: dict[str, str] = {}

            def handle_data(self, data):
                self.texts[self.get_starttag_text() or ""] = data

        answer = self.curl("/file/none")
        self.assertEqual(404, answer.status)
        self.assertEqual("no-store", answer.header("cache-control"))
        page = Texts()
        page.feed(answer.body.decode())
        self.assertEqual("404 Not Found", page.texts["<title>"])
        self.assertEqual("Not Found", page.texts["<h1>"])

    def test_browsers_read_the_name_of_an_attachment_in_any_script(self):
        for name in ("lake.png", "Grüße aus Ätna.txt", "湖 🦆.pdf", 'a"b;c=d\\.txt', "100%41.txt"):
            self.write(name, b"deep")
            answer = self.curl("/download/" + urllib.parse.quote(name, safe=""))
            self.assertEqual((200, b"deep"), (answer.status, answer.body))
            message = email.message.Message()
            message["Content-Disposition"] = answer.header("content-disposition")
            self.assertEqual("attachment", message.get_content_disposition())
            # A name is what follows the last backslash.
            parameters = message.get_params(header="content-disposition")
            # filename* comes last; the parser calls both "filename".
            values = [value for key, value in parameters if key == "filename"]
            shown = email.utils.collapse_rfc2231_value(values[-1])
            self.assertEqual(name.rpartition("\\")[2], shown)
            ascii_name = email.utils.collapse_rfc2231_value(values[0])
            self.assertTrue(ascii_name.isascii())

    def test_a_stream_arrives_in_order(self):
        answer = self.curl("/stream")
        self.assertEqual(200, answer.status)
        self.assertEqual(b"0123456789" * 20000, answer.body)
        self.assertIn("; Partitioned", answer.header("set-cookie"))
        self.assertEqual(b"", self.curl("/stream", "-I").body[:0])

    def test_pages_of_one_other_site_are_allowed(self):
        site = "https://app.example.org"
        asked = ("-X", "OPTIONS", "-H", "Access-Control-Request-Method: PUT")
        for origin in (site, "https://evil.example"):
            for arguments in ((), asked):
                answer = self.curl("/shared", "-H", f"Origin: {origin}", *arguments)
                self.assertEqual(204 if arguments else 200, answer.status)
                self.assertIn("Origin", answer.header("vary"))
                allowed = [v for n, v in answer.headers if n == "access-control-allow-origin"]
                self.assertEqual([site] if origin == site else [], allowed)
                names = {name for name, _ in answer.headers}
                both = origin == site and arguments != ()
                self.assertEqual(both, "access-control-allow-methods" in names)

    def test_the_visitor_chooses_type_and_language(self):
        answer = self.curl("/chosen", "-H", "Accept: application/json", "-H", "Accept-Language: de")
        self.assertEqual("application/json", answer.header("content-type"))
        self.assertEqual("de", answer.header("content-language"))
        varies = {value for name, value in answer.headers if name == "vary"}
        self.assertEqual({"Accept", "Accept-Language"}, {v for s in varies for v in s.split(", ")})
        self.assertEqual(406, self.curl("/chosen", "-H", "Accept: image/png").status)


if __name__ == "__main__":
    unittest.main()
