"""The limits that the guide sets, how each server says no, and what it passes to a script."""

import concurrent.futures
import os
import re
import socket
import subprocess
import time
import unittest

from servers import SERVERS
from servers.server import MANY_TIMES, read

NOTE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "note.sh")
MOST_BYTES = 10 << 20
MOST_SCRIPTS = 20
CROWD = MOST_SCRIPTS + 5
# What the guide gives clients and scripts, and what the tests give them.
GUIDE_SECONDS, SECONDS = 30, 1
LONG = "a" * 9000
# A header that programs would take for a setting of their own, HTTP_PROXY.
PROXY = "Proxy: http://attacker.example/"
VARIABLES = set(
    "GATEWAY_INTERFACE PATH_INFO PATH_TRANSLATED QUERY_STRING REMOTE_ADDR REQUEST_METHOD "
    "SCRIPT_NAME SERVER_NAME SERVER_PORT SERVER_PROTOCOL SERVER_SOFTWARE".split()
)


class ServerCase(unittest.TestCase):
    SERVER = SERVERS["lighttpd"]

    def start(self, hurried=False):
        class Hurried(self.SERVER):
            def configuration(self, name):
                return re.sub(rf"\b{GUIDE_SECONDS}\b", str(SECONDS), super().configuration(name))

        kind = Hurried if hurried else self.SERVER
        self.server = self.enterContext(kind({"note": NOTE}, {"NOTES": "data/notes"}))
        self.server.make_folder("data")
        self.body = self.server.path("body")

    def notes(self):
        return read(self.server.path("data/notes")).decode().split()

    def ask(self, target, *arguments):
        """Gives the status and the variables that the script told."""
        address = self.server.address() + target
        curl = [os.environ["CURL"], "-qsSg", "-H", "Expect:", "-w", "\nSTATUS=%{http_code}"]
        lines = subprocess.check_output([*curl, *arguments, address], text=True).splitlines()
        told = dict(line.split("=", 1) for line in lines if "=" in line)
        return int(told.pop("STATUS")), told

    def refused(self, status, *arguments, target="/note"):
        self.assertEqual(status, self.ask(target, *arguments)[0])
        # A script that is started all the same needs a moment for its note.
        time.sleep(0.2)
        self.assertEqual([], self.notes())

    def send(self, length, *arguments):
        with open(self.body, "wb") as file:
            file.write(bytes(length))
        return ("--data-binary", f"@{self.body}", *arguments)

    def crowd(self, most):
        """Sends a crowd of requests at once, of which so many scripts are to run at once; gives
        their statuses."""
        with concurrent.futures.ThreadPoolExecutor(CROWD) as clients:
            answers = [clients.submit(self.ask, "/note?crowd") for _ in range(CROWD)]
            for _ in range(MANY_TIMES):
                if len(self.notes()) >= most:
                    break
                time.sleep(0.01)
            # Apache takes a second to start what it may.
            time.sleep(1.5)
            try:
                self.assertEqual(["begin"] * most, self.notes())
            finally:
                with open(self.server.path("data/notes.go"), "w", encoding="utf-8"):
                    pass
            return sorted(answer.result()[0] for answer in answers)

    def break_off(self, request):
        """Begins a request; gives the status, if one comes before the end."""
        with socket.create_connection(("127.0.0.1", self.server.port), timeout=300) as client:
            client.sendall(request)
            answer = client.recv(100)
        return int(answer.split(b" ")[1]) if answer else None


class Limits(ServerCase):
    BODY = UNSIZED = 413
    HEADER = ADDRESS = 431
    ONE_TOO_MANY = 200
    IDLE: int | None = None
    # Whether a script that does not answer is ended, and whether one starts before its body.
    ENDS, EARLY = True, False
    LACKS = set()

    def test_body_of_ten_megabytes_passes_and_one_byte_more_does_not(self):
        self.start()
        status, told = self.ask("/note", *self.send(MOST_BYTES))
        self.assertEqual((200, str(MOST_BYTES)), (status, told["BODY"]))
        os.remove(self.server.path("data/notes"))
        for _ in range(5):
            self.refused(self.BODY, *self.send(MOST_BYTES + 1))
        with socket.create_connection(("127.0.0.1", self.server.port), timeout=100) as client:
            client.sendall(
                b"POST /cgi-bin/note HTTP/1.1\r\nHost: localhost\r\nContent-Length: %d\r\n\r\n"
                % (2**63 - 1)
            )
            self.assertRegex(client.recv(100), b"HTTP/1.1 %d " % self.BODY)
        self.refused(self.UNSIZED, *self.send(MOST_BYTES + 1, "-H", "Transfer-Encoding: chunked"))

    def test_long_headers_and_addresses_are_refused(self):
        self.start()
        self.assertEqual(200, self.ask("/note", "-H", f"Cookie: {LONG[:7000]}")[0])
        os.remove(self.server.path("data/notes"))
        self.refused(self.HEADER, "-H", f"Cookie: {LONG}")
        self.refused(self.ADDRESS, target=f"/note?{LONG}")

    def test_script_that_does_not_answer_in_time_is_given_up(self):
        self.start(hurried=True)
        self.assertEqual(504, self.ask("/note?9")[0])
        self.server.wait_for_scripts()
        self.assertEqual(["begin"] if self.ENDS else ["begin", "end"], self.notes())

    def test_no_more_than_twenty_scripts_run_at_once(self):
        self.start()
        self.assertEqual([200] * MOST_SCRIPTS + [self.ONE_TOO_MANY] * 5, self.crowd(MOST_SCRIPTS))

    def test_client_that_does_not_go_on_is_left(self):
        self.start(hurried=True)
        for request in (
            b"GET /cgi-bin/note HTTP/1.1\r\nHost: localhost\r\n",
            b"POST /cgi-bin/note HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100\r\n\r\nhalf",
        ):
            # The server gives up: nothing else would end the request.
            self.assertEqual(self.IDLE, self.break_off(request))
        self.assertEqual(["begin"] if self.EARLY else [], self.notes()[:1])

    def test_variables_that_do_not_reach_a_script(self):
        self.start()
        _, told = self.ask("/note/path", "-H", PROXY)
        self.assertEqual(self.LACKS, VARIABLES - told.keys())
        self.assertEqual("", told.get("HTTP_PROXY", ""))


class LimitsOfApache(Limits):
    SERVER = SERVERS["apache"]
    UNSIZED = 411
    HEADER, ADDRESS = 400, 414
    IDLE = 408
    EARLY = True


class LimitsOfNginx(Limits):
    SERVER = SERVERS["nginx"]
    HEADER, ADDRESS = 400, 414
    ONE_TOO_MANY = 503
    ENDS = False
    LACKS = {"PATH_TRANSLATED"}


class Busybox(ServerCase):
    SERVER = SERVERS["busybox"]

    def test_has_no_limit_for_a_body_but_needs_its_length(self):
        self.start()
        _, told = self.ask("/note", *self.send(MOST_BYTES + 1))
        self.assertEqual(str(MOST_BYTES + 1), told["BODY"])
        _, told = self.ask("/note", *self.send(5, "-H", "Transfer-Encoding: chunked"))
        self.assertEqual("0", told["BODY"])

    def test_passes_the_body_of_no_method_but_post(self):
        self.start()
        for method, length in (("POST", "5"), ("PUT", "0"), ("PATCH", "0")):
            _, told = self.ask("/note", *self.send(5, "-X", method))
            self.assertEqual((method, length), (told["REQUEST_METHOD"], told["BODY"]))

    def test_cuts_long_headers_and_refuses_long_addresses_and_too_many_headers(self):
        self.start()
        _, told = self.ask("/note", "-H", f"Cookie: {LONG}")
        self.assertLess(8000, len(told["HTTP_COOKIE"]))
        self.assertLess(len(told["HTTP_COOKIE"]), 8200)
        os.remove(self.server.path("data/notes"))
        self.refused(400, target=f"/note?{LONG}")
        self.refused(413, *(f"-HX-{number}: {LONG[:7000]}" for number in range(20)))

    def test_runs_as_many_scripts_as_are_asked_for(self):
        self.start()
        self.assertEqual([200] * CROWD, self.crowd(CROWD))

    def test_waits_for_a_script_as_long_as_it_takes(self):
        self.start()
        self.assertEqual(200, self.ask("/note?3")[0])

    def test_variables_that_do_not_reach_a_script_and_one_that_should_not(self):
        self.start()
        _, told = self.ask("/note/path", "-H", PROXY)
        lacking = {"PATH_TRANSLATED", "SERVER_NAME", "SERVER_PORT"}
        self.assertEqual(lacking, VARIABLES - told.keys())
        self.assertEqual("http://attacker.example/", told["HTTP_PROXY"])


if __name__ == "__main__":
    unittest.main()
