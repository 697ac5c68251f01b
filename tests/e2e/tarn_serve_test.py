"""tarn-serve runs CGI scripts in any language for a web server that speaks FastCGI."""

import glob
import hashlib
import os
import socket
import struct
import tempfile
import unittest
from contextlib import closing
from http.client import HTTPConnection

from servers import SERVERS, Server
from servers.server import read, wait_until

NOTE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "note.sh")
LARGE = bytes(range(256)) * 4500  # more than tarn-serve keeps in memory

# What they answer: the method, the query, HTTP_PROXY, the length and the hash of the body.
IN_SHELL = """#!/bin/sh
printf 'Content-Type: text/plain\\n\\n'
hash=$(tee "$0.body" | sha256sum)
echo "$REQUEST_METHOD $QUERY_STRING ${HTTP_PROXY-none} $(wc -c <"$0.body") ${hash%% *}"
"""
IN_PERL = """#!/usr/bin/perl
use Digest::SHA 'sha256_hex';
binmode STDIN;
local $/;
my $body = <STDIN> // '';
print "Content-Type: text/plain\\n\\n";
print join(' ', $ENV{REQUEST_METHOD}, $ENV{QUERY_STRING}, $ENV{HTTP_PROXY} // 'none',
    length $body, sha256_hex($body)), "\\n";
"""
IN_PYTHON = """#!/usr/bin/python3
import hashlib, os, sys
body = sys.stdin.buffer.read(int(os.environ.get("CONTENT_LENGTH") or 0))
print("Content-Type: text/plain\\n")
print(os.environ["REQUEST_METHOD"], os.environ["QUERY_STRING"],
    os.environ.get("HTTP_PROXY", "none"), len(body), hashlib.sha256(body).hexdigest())
"""
LANGUAGES = {"in-shell": IN_SHELL, "in-perl": IN_PERL, "in-python": IN_PYTHON}
SCRIPTS = LANGUAGES | {
    "ignores-its-body": "#!/bin/sh\nprintf 'Content-Type: text/plain\\n\\nready'\n",
    "writes-before-it-reads": """#!/bin/sh
printf 'Content-Type: text/plain\\n\\n'
head -c 300000 /dev/zero
wc -c
""",
    "has-no-header": "#!/bin/sh\necho secret\n",
    "crashes": "#!/bin/sh\nkill -SEGV $$\n",
    "fails-to-start": "#!/nothing/here\n",
    "writes-to-its-log": "#!/bin/sh\necho message >&2\nprintf 'Content-Type: text/plain\\n\\n'\n",
    "ends-after-its-answer": """#!/bin/sh
printf 'Content-Type: text/plain\\nContent-Length: 2\\n\\nhi'
exec >&-
sleep 0.2
echo end >>"$NOTES"
""",
}


class TarnServe(unittest.TestCase):
    SERVER = SERVERS["lighttpd-tarn-serve"]
    server: Server
    data: str
    body: str

    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        paths = {"note": NOTE}
        for name, text in SCRIPTS.items():
            paths[name] = os.path.join(folder, name)
            with open(paths[name], "w", encoding="utf-8") as file:
                file.write(text)
            os.chmod(paths[name], 0o755)
        cls.server = cls.enterClassContext(cls.SERVER(paths, {"NOTES": "data/notes"}))
        cls.data = cls.server.make_folder("data")
        cls.body = cls.server.path("body")
        with open(cls.body, "wb") as file:
            file.write(LARGE)

    def tearDown(self):
        self.server.wait_for_scripts()
        if os.path.exists(f"{self.data}/notes"):
            os.remove(f"{self.data}/notes")

    def notes(self):
        return read(f"{self.data}/notes").decode().split()

    def log_of(self, target, status, *arguments):
        """Sends a request; returns what it added to the log, and the answer."""
        before = len(self.server.log())
        answer = self.server.curl(target, *arguments)
        self.assertEqual(status, answer.status)
        self.server.wait_for_scripts()
        return self.server.log()[before:], answer

    def lighttpd_sleeps(self):
        """Tells whether lighttpd, if it is the server, has done all that it was asked for."""
        (children,) = glob.glob(f"/proc/{self.server.pid}/task/*/children")
        stats = [read(f"/proc/{child}/stat").decode() for child in read(children).decode().split()]
        return all(" (lighttpd) S " in stat for stat in stats if "(lighttpd)" in stat)

    def test_scripts_in_any_language_see_the_request(self):
        for name in LANGUAGES:
            for body in (b"", LARGE[:1000], LARGE[:100_000]):
                with open(self.server.path("sent"), "wb") as file:
                    file.write(body)
                answer = self.server.curl(
                    *(f"/{name}?a=1&b=2", "-H", "Proxy: evil", "-H", "Expect:"),
                    *("--data-binary", f"@{self.server.path('sent')}"),
                )
                self.assertEqual(200, answer.status, name)
                seen = f"POST a=1&b=2 none {len(body)} {hashlib.sha256(body).hexdigest()}\n"
                self.assertEqual(seen, answer.body.decode(), name)
            self.assertEqual(b"GET ", self.server.curl(f"/{name}").body[:4])

    def test_script_that_ignores_its_body_is_answered(self):
        answer = self.server.curl("/ignores-its-body", "--data-binary", f"@{self.body}")
        self.assertEqual((200, b"ready"), (answer.status, answer.body))

    def test_script_may_write_before_it_reads(self):
        answer = self.server.curl("/writes-before-it-reads", "--data-binary", f"@{self.body}")
        self.assertEqual(200, answer.status)
        self.assertEqual(bytes(300000) + b"%d\n" % len(LARGE), answer.body)

    def test_failing_script_is_answered_500_and_logged(self):
        for name, reason in (
            ("has-no-header", "header"),
            ("crashes", "signal 11"),
            ("fails-to-start", "No such file"),
        ):
            log, answer = self.log_of(f"/{name}", 500)
            self.assertNotIn(b"secret", answer.body)
            self.assertIn(reason, log)
            self.assertIn(f"/cgi-bin/{name}", log)

    def test_standard_error_is_logged(self):
        self.assertEqual("message\n", self.log_of("/writes-to-its-log", 200)[0])

    def test_script_may_go_on_after_its_answer(self):
        for arguments in ((), ("--head",)):
            self.assertEqual("", self.log_of("/ends-after-its-answer", 200, *arguments)[0])
            wait_until(lambda: self.notes() == ["end"], "the script was stopped")
            os.remove(f"{self.data}/notes")

    def test_script_is_stopped_when_the_visitor_leaves(self):
        with closing(HTTPConnection("127.0.0.1", self.server.port, timeout=100)) as client:
            # lighttpd watches a connection only if it had to wait for the request.
            client.request("GET", "/cgi-bin/writes-to-its-log")
            self.assertEqual(b"", client.getresponse().read())
            wait_until(self.lighttpd_sleeps, "lighttpd does not wait for events")
            client.request("GET", "/cgi-bin/note?crowd")
            wait_until(lambda: self.notes() == ["begin"], "the script did not start")
            # lighttpd takes anything else for a client that still reads.
            client.sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.server.wait_for_scripts()
        self.assertEqual(["begin"], self.notes())
        self.assertNotIn("the script took too long", self.server.log())


def load_tests(loader, _tests, _pattern):
    """TarnServe under the servers named by SERVERS."""
    names = os.environ.get("SERVERS", "lighttpd-tarn-serve").split()
    cases = [
        type(f"TarnServe{i}", (TarnServe,), {"SERVER": SERVERS[n]}) for i, n in enumerate(names)
    ]
    return unittest.TestSuite(map(loader.loadTestsFromTestCase, cases))


if __name__ == "__main__":
    unittest.main()
