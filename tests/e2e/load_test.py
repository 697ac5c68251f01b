"""Many clients at once: each answer contains exactly what its client sent.

TARN_LOAD_REQUESTS is the number of requests for each server. All of them are sent, however long
that takes.
"""

import concurrent.futures
import http.client
import itertools
import os
import random
import re
import time
import unittest
import urllib.parse

from requests_test import MULTIPART, Form, form, parse_items
from servers import Apache, Lighttpd

REQUESTS = int(os.environ.get("TARN_LOAD_REQUESTS", "5000"))
FEWEST = 1000
CLIENTS = 32
KINDS = ("GET", "URL-encoded POST", "multipart POST")
LETTERS = [*"abcdefghijklmnop", " ", "&", "=", "%", "+", ";", '"', "ä", "湖"]


class Client:
    """Sends requests that are all different, and compares what the script saw."""

    def __init__(self, number, port):
        self.number = number
        self.chance = random.Random(number)
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=300)

    def text(self, most):
        return "".join(self.chance.choices(LETTERS, k=self.chance.randrange(most))).encode()

    def ask(self, number):
        """Sends the request with this number; returns its kind."""
        kind = KINDS[self.chance.randrange(3)]
        agent = f"client {self.number}, request {number}".encode()
        entries = [
            (b"%d-%d" % (number, field), agent + self.text(400))
            for field in range(self.chance.randrange(1, 6))
        ]
        files = []
        query, body = "", b""
        headers = {"User-Agent": agent, "Cookie": f"id={number}; client={self.number}"}
        if kind == "GET":
            query = urllib.parse.urlencode(entries)
        elif kind == "URL-encoded POST":
            body = urllib.parse.urlencode(entries).encode()
            headers["Content-Type"] = "application/x-www-form-urlencoded"
        else:
            noise = self.chance.randbytes(self.chance.randrange(20000))
            # Without CR LF, of which replace() would leave one where it found CR CR LF LF.
            data = agent + re.sub(rb"\r+\n", b"", noise)
            files = [(b"file", b"%d.bin" % number, b"application/octet-stream", data)]
            body = self.multipart(entries, files)
            headers["Content-Type"] = MULTIPART
        method = "GET" if kind == "GET" else "POST"
        self.connection.request(method, f"/cgi-bin/probe?{query}", body or None, headers)
        answer = self.connection.getresponse()
        record = answer.read()
        assert answer.status == 200, f"{agent}: {answer.status}"
        seen = parse_items(record)
        cookies = [(b"id", b"%d" % number), (b"client", b"%d" % self.number)]
        assert form(seen) == Form(entries, files, cookies), f"{agent}, {kind}: {record[:2000]}"
        for name, value in (
            ("REQUEST_METHOD", method.encode()),
            ("QUERY_STRING", query.encode()),
            ("CONTENT_LENGTH", b"%d" % len(body)),
            ("HTTP_USER_AGENT", agent),
            ("body", body or None),
        ):
            assert (name, value) in seen, f"{agent}, {kind}: {name} is not {value[:200]}"
        return kind

    @staticmethod
    def multipart(entries, files):
        parts = [
            b'--XYZ\r\nContent-Disposition: form-data; name="%s"\r\n\r\n%s\r\n' % entry
            for entry in entries
        ] + [
            b'--XYZ\r\nContent-Disposition: form-data; name="%s"; filename="%s"\r\n'
            b"Content-Type: %s\r\n\r\n%s\r\n" % file
            for file in files
        ]
        return b"".join(parts) + b"--XYZ--\r\n"


class Load(unittest.TestCase):
    def setUp(self):
        self.assertGreaterEqual(REQUESTS, FEWEST, "too few requests to be a load")

    def load(self, server, name):
        # Each client has a first request of its own, and then whatever is next.
        numbers = itertools.count(CLIENTS)

        def client(number):
            kinds = []
            client = Client(number, server.port)
            request = number
            while request < REQUESTS:
                kinds.append(client.ask(request))
                request = next(numbers)
            client.connection.close()
            return kinds

        start = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(CLIENTS) as clients:
            lists = list(clients.map(client, range(CLIENTS)))
        seconds = time.monotonic() - start
        made = [kind for kinds in lists for kind in kinds]
        print(
            f"{name}: {len(made)} requests by {CLIENTS} clients in {seconds:.1f} s,"
            f" {len(made) / seconds:.0f} a second, all answered correctly:",
            ", ".join(f"{made.count(kind)} {kind}" for kind in KINDS),
            flush=True,
        )
        self.assertEqual(REQUESTS, len(made))
        for kind in KINDS:
            self.assertGreater(made.count(kind), REQUESTS // 5)
        server.wait_for_scripts()
        self.assertEqual("", server.log())

    def test_under_lighttpd_has_no_wrong_answer(self):
        options = "server.max-connections := 100\nserver.max-keep-alive-idle = 100"
        with Lighttpd({"probe": os.environ["PROBE"]}, {}, options) as server:
            self.load(server, "lighttpd")

    def test_under_apache_has_no_wrong_answer(self):
        options = "KeepAliveTimeout 100\nThreadsPerChild 64\nMaxRequestWorkers 64"
        with Apache({"probe": os.environ["PROBE"]}, {}, options) as server:
            self.load(server, "Apache")


if __name__ == "__main__":
    unittest.main()
