"""The example counter shows each visitor a different number."""

import concurrent.futures
import os
import re
import tempfile
import unittest

import script
from page import Page
from servers import Lighttpd
from servers.server import read

COUNTER = os.environ["COUNTER"]


def visitor_number(body):
    (text,) = Page(body).texts("p")
    return int(re.fullmatch(r"You are visitor number ([0-9]+)\.", text)[1])


class Counter(unittest.TestCase):
    SERVER = Lighttpd

    def setUp(self):
        self.server = self.enterContext(
            self.SERVER({"counter": COUNTER}, {"TARN_COUNTER_FILE": "data/count"})
        )
        self.count = os.path.join(self.server.make_folder("data"), "count")

    def tearDown(self):
        self.assertEqual("", self.server.log())

    def visit(self, *arguments):
        answer = self.server.curl("/counter", *arguments)
        self.assertEqual(200, answer.status)
        self.assertEqual("text/html; charset=utf-8", answer.header("content-type"))
        return answer.body

    def test_counts_from_one(self):
        self.assertEqual([1, 2, 3], [visitor_number(self.visit()) for _ in range(3)])
        self.assertEqual(b"3\n", read(self.count))

    def test_head_does_not_count(self):
        self.visit("--head")
        self.assertEqual(1, visitor_number(self.visit()))

    def test_continues_from_the_stored_count(self):
        with open(self.count, "w", encoding="ascii") as file:
            file.write("4294967295\n")
        os.chmod(self.count, 0o666)
        self.assertEqual(4294967296, visitor_number(self.visit()))

    def test_concurrent_visitors_get_different_numbers(self):
        def visit(_):
            answer = self.server.ask("/counter")
            self.assertEqual(200, answer.status)
            return int(re.search(rb"You are visitor number <strong>([0-9]+)<", answer.body)[1])

        with concurrent.futures.ThreadPoolExecutor(8) as visitors:
            numbers = list(visitors.map(visit, range(100)))
        self.assertEqual(list(range(1, 101)), sorted(numbers))
        self.assertEqual(b"100\n", read(self.count))


class CounterAlone(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.count = os.path.join(self.folder, "count")

    def run_script(self, variables, **limits):
        variables = {"TARN_COUNTER_FILE": self.count, **variables}
        return script.run(COUNTER, variables, **limits)

    def test_invalid_count_is_reported_and_left_unchanged(self):
        for content in (b"", b"12", b"x\n", b"1x\n", b"-1\n", b"9" * 19 + b"\n", b"\n1"):
            with open(self.count, "wb") as file:
                file.write(content)
            status, _, page, _ = self.run_script({"REQUEST_METHOD": "GET"})
            self.assertEqual(500, status, content)
            self.assertEqual(["The count could not be saved."], Page(page).texts("p", role="alert"))
            self.assertEqual(content, read(self.count))

    def test_full_disk_leaves_the_count_unchanged(self):
        get = {"REQUEST_METHOD": "GET"}
        self.assertEqual(1, visitor_number(self.run_script(get)[2]))
        self.assertEqual(500, self.run_script(get, largest_file=0)[0])
        self.assertEqual(b"1\n", read(self.count))
        self.assertEqual(2, visitor_number(self.run_script(get)[2]))

    def test_missing_setting_is_reported(self):
        status, _, page, _ = script.run(COUNTER, {"REQUEST_METHOD": "GET"})
        self.assertEqual(500, status)
        self.assertIn("TARN_COUNTER_FILE", Page(page).texts("p", role="alert")[0])

    def test_head_has_no_body(self):
        status, head, page, _ = self.run_script({"REQUEST_METHOD": "HEAD"})
        self.assertEqual((200, b""), (status, page))
        self.assertEqual("Content-Type: text/html; charset=utf-8", head[-1])


if __name__ == "__main__":
    unittest.main()
