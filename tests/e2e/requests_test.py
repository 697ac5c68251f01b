"""Scripts see exactly what was sent: curl sends requests through lighttpd to the probe."""

import concurrent.futures
import os
import random
import re
import unittest
from typing import NamedTuple

import rules
from servers import Lighttpd

ITEM = re.compile(rb"([A-Za-z_.]+):(?:(\d+):|-\n)")
MULTIPART = "multipart/form-data; boundary=XYZ"


def parse_items(record):
    """Parses the answer of the probe."""
    found, at = [], 0
    while at < len(record):
        item = ITEM.match(record, at)
        assert item, f"no item at {at}: {record[at : at + 40]}"
        at = item.end()
        value = None
        if item[2] is not None:
            end = at + int(item[2])
            value = record[at:end]
            assert record[end : end + 1] == b"\n", f"{item[1]} is not {item[2]} bytes long"
            at = end + 1
        found.append((item[1].decode(), value))
    return found


class Form(NamedTuple):
    entries: list  # of (name, value)
    files: list  # of (name, file name, type, bytes)
    cookies: list  # of (name, value)


def form(seen):
    """The items that belong to the form."""

    def rows(*keys):
        return list(zip(*([value for key, value in seen if key == wanted] for wanted in keys)))

    return Form(
        rows("entry.name", "entry.value"),
        rows("file.name", "file.fileName", "file.type", "file.bytes"),
        rows("cookie.name", "cookie.value"),
    )


class RulesCase(unittest.TestCase):
    def assert_items(self, expected, seen):
        """Compares what the probe printed with the rules, item by item."""
        self.assertEqual([key for key, _ in expected], [key for key, _ in seen])
        for (key, wanted), (_, value) in zip(expected, seen):
            if wanted != value:
                self.fail(f"{key} is {str(value)[:200]}, not {str(wanted)[:200]}")


class RequestCase(RulesCase):
    OPTIONS = ""
    server: Lighttpd

    @classmethod
    def setUpClass(cls):
        cls.server = cls.enterClassContext(
            Lighttpd({"probe": os.environ["PROBE"]}, {}, cls.OPTIONS)
        )

    def write_file(self, name, data):
        path = self.server.path(name)
        with open(path, "wb") as file:
            file.write(data)
        return path

    def ask(self, target, *arguments):
        """Sends a request and compares every item that the probe prints with the rules."""
        sent, answer = self.server.curl_traced(target, *arguments)
        self.assertEqual(200, answer.status)
        head = sent.method == "HEAD"
        seen = parse_items(bytes.fromhex(answer.header("x-probe")) if head else answer.body)
        expected = rules.expected_under_lighttpd(
            sent, self.server.port, document_root=self.server.path("www")
        )
        # lighttpd adds its version.
        self.assertTrue(seen[1][1].startswith(b"lighttpd/"))
        self.assert_items(expected, [seen[0], ("SERVER_SOFTWARE", b"lighttpd"), *seen[2:]])
        self.assertEqual("", self.server.log())
        return form(seen)


class Requests(RequestCase):
    def test_get_has_the_fields_of_its_query_string_in_order(self):
        seen = self.ask("/probe?a=1&b=x+y&A=2&&c=%41%2b&empty=&=v&flag&k=a=b&")
        self.assertEqual(
            [(b"a", b"1"), (b"b", b"x y"), (b"A", b"2"), (b"c", b"A+")]
            + [(b"empty", b""), (b"", b"v"), (b"k", b"a=b")],
            seen.entries,
        )
        self.assertEqual([], seen.files)

    def test_get_without_a_query_string_has_no_fields(self):
        self.assertEqual(([], [], []), self.ask("/probe"))

    def test_invalid_escapes_are_decoded_too(self):
        seen = self.ask("/probe?a=%zz&b=100%&c=%4&d=%00z&%41%=%e9")
        self.assertEqual((b"d", b""), seen.entries[3])
        self.assertEqual(b"\xe9", seen.entries[4][1])

    def test_path_after_the_script_is_in_path_info(self):
        referrer, agent = "http://example.org/?a=b", "Mozilla/5.0 (a lake)"
        self.ask("/probe/lakes/Llyn%20Idwal?depth=13", "-e", referrer, "-A", agent)

    def test_utf8_arrives_raw_and_escaped(self):
        seen = self.ask("/probe?n%C3%A4me=%E2%82%AC", "-b", "ort=Z%C3%BCrich")
        self.assertEqual([("näme".encode(), "€".encode())], seen.entries)
        self.assertEqual([(b"ort", "Zürich".encode())], seen.cookies)

    def test_head_has_the_fields_of_its_query_string(self):
        seen = self.ask("/probe?a=1&b=%C3%A9", "--head", "-b", "a=b")
        self.assertEqual([(b"a", b"1"), (b"b", b"\xc3\xa9")], seen.entries)

    def test_url_encoded_post_carries_every_byte_but_zero(self):
        every = bytes(range(1, 256))
        path = self.write_file("every", every)
        seen = self.ask("/probe", "--data-urlencode", f"every@{path}", "-d", "on=on&on=off")
        self.assertEqual([(b"every", every), (b"on", b"on"), (b"on", b"off")], seen.entries)

    def test_line_breaks_stay_in_a_url_encoded_value(self):
        seen = self.ask("/probe", "--data-urlencode", "text=one\r\ntwo\r\n")
        self.assertEqual([(b"text", b"one\r\ntwo\r\n")], seen.entries)

    def test_value_of_a_url_encoded_post_ends_at_a_zero_byte(self):
        path = self.write_file("zero", b"seen\0unseen")
        seen = self.ask("/probe", "--data-urlencode", f"a@{path}", "-d", "b=2")
        self.assertEqual([(b"a", b"seen"), (b"b", b"2")], seen.entries)

    def test_post_ignores_its_query_string(self):
        self.assertEqual([(b"b", b"2")], self.ask("/probe?a=1", "-d", "b=2").entries)

    def test_post_without_a_body_has_no_fields(self):
        self.assertEqual(([], [], []), self.ask("/probe?a=1", "-d", ""))
        self.assertEqual(
            ([], [], []), self.ask("/probe?a=1", "-X", "POST", "-H", "Content-Length: 0")
        )

    def test_post_without_a_content_type_is_url_encoded(self):
        seen = self.ask("/probe", "-H", "Content-Type:", "-d", "a=1")
        self.assertEqual([(b"a", b"1")], seen.entries)

    def test_content_type_decides_how_a_query_string_is_read(self):
        seen = self.ask("/probe?a=1", "-H", "Content-Type: " + MULTIPART)
        self.assertEqual(([], [], []), seen)

    def test_put_ignores_its_body(self):
        self.assertEqual([(b"a", b"1")], self.ask("/probe?a=1", "-X", "PUT", "-d", "b=2").entries)

    def test_cookies_are_trimmed_and_decoded(self):
        seen = self.ask("/probe", "-H", "Cookie: a=1; b=%41+x ;;flag; c=d=e;")
        self.assertEqual(
            [(b"a", b"1"), (b"b", b"A x"), (None, None), (None, None)]
            + [(b"c", b"d=e"), (None, None)],
            seen.cookies,
        )

    def test_multipart_post_carries_fields_and_files_of_all_kinds(self):
        note = "Tiefe: 13 m\nWasser: klar\n".encode()
        zeros = bytes(range(256)) * 40 + b"\0\0\0"
        seen = self.ask(
            "/probe?ignored=1",
            *("-F", "title=First light"),
            *("-F", f"note=@{self.write_file('note.txt', note)}"),
            *("-F", f"zeros=@{self.write_file('zeros.bin', zeros)};type=application/x-zeros"),
            *("-F", "title=Second"),
            *("-F", f"empty=@{self.write_file('empty.png', b'')}"),
            *("-F", "last="),
            *("-b", "guest=Zo%C3%AB; theme=dark"),
        )
        self.assertEqual(
            [(b"title", b"First light"), (b"title", b"Second"), (b"last", b"")], seen.entries
        )
        self.assertEqual(
            [
                (b"note", b"note.txt", b"text/plain", note),
                (b"zeros", b"zeros.bin", b"application/x-zeros", zeros),
                (b"empty", b"empty.png", b"image/png", b""),
            ],
            seen.files,
        )
        self.assertEqual([(b"guest", "Zoë".encode()), (b"theme", b"dark")], seen.cookies)

    def test_file_of_eight_megabytes_arrives_whole(self):
        large = random.Random(8).randbytes(8 << 20).replace(b"\n", b"\0")
        seen = self.ask(
            "/probe", "-F", f"large=@{self.write_file('large.bin', large)}", "-F", "after=1"
        )
        self.assertEqual([(b"large", b"large.bin", b"application/octet-stream", large)], seen.files)
        self.assertEqual([(b"after", b"1")], seen.entries)

    def test_file_is_cut_at_its_first_cr_lf(self):
        lines = self.write_file("lines.txt", b"one\ntwo\rthree\r\nfour\r\n")
        early = self.write_file("early.txt", b"\r\nall after the start")
        seen = self.ask("/probe", "-F", f"a=@{lines}", "-F", f"b=@{early}", "-F", "c=still here")
        self.assertEqual([b"one\ntwo\rthree", b""], [data for *_, data in seen.files])
        self.assertEqual([(b"c", b"still here")], seen.entries)

    def test_multipart_value_is_cut_after_its_first_line(self):
        seen = self.ask("/probe", "-F", "text=one\r\ntwo", "-F", "other=1\n2")
        self.assertEqual([(b"text", b"one"), (b"other", b"1\n2")], seen.entries)

    def test_multipart_value_ends_at_a_zero_byte_where_text_is_read(self):
        zero = self.write_file("zero", b"seen\0unseen")
        self.assertEqual([(b"a", b"seen")], self.ask("/probe", "-F", f"a=<{zero}").entries)

    def test_field_and_file_names_may_be_utf8(self):
        photo = f"фото=@{self.write_file('x', b'deep')};filename=湖.jpg;type=image/jpeg"
        seen = self.ask("/probe", "-F", "größe=13 m²", "-F", photo)
        self.assertEqual([("größe".encode(), "13 m²".encode())], seen.entries)
        self.assertEqual([("фото".encode(), "湖.jpg".encode(), b"image/jpeg", b"deep")], seen.files)

    def test_file_names_are_decoded_and_field_names_are_not(self):
        path = self.write_file("x", b"1")
        seen = self.ask("/probe", "-F", f"a+b%21=@{path};filename=my+file%21.txt;type=text/plain")
        self.assertEqual([(b"a+b%21", b"my file!.txt", b"text/plain", b"1")], seen.files)

    def test_quotes_are_decoded_in_file_names_only(self):
        path = self.write_file("x", b"1")
        seen = self.ask("/probe", "-F", f'say "hi"=@{path};filename="a\\"b.txt";type=text/plain')
        self.assertEqual([(b"say %22hi%22", b'a"b.txt', b"text/plain", b"1")], seen.files)

    def test_empty_file_name_makes_a_field(self):
        body = (
            b'--XYZ\r\nContent-Disposition: form-data; name="none"; filename=""\r\n'
            b"Content-Type: application/octet-stream\r\n\r\n\r\n--XYZ--\r\n"
        )
        self.assertEqual(([(b"none", b"")], [], []), self.post(MULTIPART, body))

    def test_file_name_before_the_field_name_becomes_the_field_name(self):
        body = (
            b'--XYZ\r\nContent-Disposition: form-data; filename="f.txt"; name="a"\r\n'
            b"Content-Type: text/plain\r\n\r\n1\r\n--XYZ--\r\n"
        )
        seen = self.post("Multipart/Form-Data; boundary=XYZ", body)
        self.assertEqual([(b"f.txt", b"f.txt", b"text/plain", b"1")], seen.files)

    def test_file_without_a_type_is_an_empty_file(self):
        body = (
            b'--XYZ\r\nContent-Disposition: form-data; name="a"; filename="f"\r\n\r\n'
            b"1\r\n--XYZ--\r\n"
        )
        seen = self.post(MULTIPART, body)
        self.assertEqual([(None, None, None, b"")], seen.files)

    def test_value_that_mentions_a_file_name_becomes_a_file(self):
        seen = self.ask("/probe", "-F", 'a=look: filename="x"')
        self.assertEqual(([], [(None, None, None, b"")], []), seen)

    def test_file_names_after_a_zero_byte_are_ignored(self):
        body = (
            b'--XYZ\r\nContent-Disposition: form-data; name="a"\r\n\r\n1\0 filename="f"\r\n'
            b"--XYZ--\r\n"
        )
        self.assertEqual(([(b"a", b"1")], [], []), self.post(MULTIPART, body))

    def test_empty_field_name_is_null(self):
        body = b'--XYZ\r\nContent-Disposition: form-data; name=""\r\n\r\n1\r\n--XYZ--\r\n'
        self.assertEqual(([(None, b"1")], [], []), self.post(MULTIPART, body))

    def test_extra_headers_become_part_of_the_type(self):
        body = (
            b'--XYZ\r\nContent-Disposition: form-data; name="a"; filename="f"\r\n'
            b"Content-Type: text/plain\r\nX-More: 1\r\n\r\n1\r\n--XYZ--\r\n"
        )
        seen = self.post(MULTIPART, body)
        self.assertEqual([(b"a", b"f", b"text/plain\r\nX-More: 1", b"1")], seen.files)

    def test_parts_without_a_blank_line_are_dropped(self):
        body = (
            b'before\r\n--XYZ\r\n--XYZ\r\nContent-Disposition: form-data; name="lost"\r\n1\r\n'
            b'--XYZ\r\nContent-Disposition: form-data; name="kept"\r\n\r\n2\r\n--XYZ--\r\nafter'
        )
        self.assertEqual(([(b"kept", b"2")], [], []), self.post(MULTIPART, body))

    def test_quoted_boundary_matches_nothing(self):
        body = b'--XYZ\r\nContent-Disposition: form-data; name="a"\r\n\r\n1\r\n--XYZ--\r\n'
        self.assertEqual(([], [], []), self.post('multipart/form-data; boundary="XYZ"', body))
        self.assertEqual(([], [], []), self.post("multipart/form-data", body))

    def test_truncated_body_yields_what_arrived(self):
        body = (
            b'--XYZ\r\nContent-Disposition: form-data; name="a"\r\n\r\n1\r\n'
            b"--XYZ\r\nContent-Dispo"
        )
        self.assertEqual(([(b"a", b"1")], [], []), self.post(MULTIPART, body))

    def post(self, content_type, body):
        return self.ask(
            *("/probe", "-H", f"Content-Type: {content_type}", "--data-binary"),
            "@" + self.write_file("body", body),
        )


class StreamedRequests(Requests):
    """The same when the script starts before its body has arrived."""

    OPTIONS = "server.stream-request-body = 2"


class ManyRequests(RequestCase):
    CLIENTS = 8
    REQUESTS = 200

    def test_each_of_200_requests_from_8_clients_sees_its_own_data(self):
        with concurrent.futures.ThreadPoolExecutor(self.CLIENTS) as clients:
            counts = list(clients.map(self.check_one_request, range(self.REQUESTS)))
        self.assertEqual([1] * self.REQUESTS, counts)

    def check_one_request(self, number):
        value = f"{number} of €200".encode()
        cookie = ("-b", f"number={number}")
        if number % 3 == 0:
            seen = self.ask(f"/probe?value={number}+of+%E2%82%AC200", *cookie)
        elif number % 3 == 1:
            seen = self.ask("/probe", "--data-urlencode", b"value=" + value, *cookie)
        else:
            data = random.Random(number).randbytes(300 * number).replace(b"\n", b"")
            path = self.write_file(f"{number}.bin", data)
            seen = self.ask("/probe", b"-F", b"value=" + value, "-F", f"file=@{path}", *cookie)
            name = f"{number}.bin".encode()
            self.assertEqual([(b"file", name, b"application/octet-stream", data)], seen.files)
        self.assertEqual([(b"value", value)], seen.entries)
        self.assertEqual([(b"number", str(number).encode())], seen.cookies)
        return len(seen.entries)


if __name__ == "__main__":
    unittest.main()
