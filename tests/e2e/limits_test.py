"""The limits in the configurations, how each server refuses a request, and what a script sees."""

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
# The time limit in the configurations, and the one that the tests use.
CONFIGURED_SECONDS, SECONDS = 30, 1
LONG = "a" * 9000
# Becomes HTTP_PROXY, which programs would take for a setting.
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
                return re.sub(
                    rf"\b{CONFIGURED_SECONDS}\b", str(SECONDS), super().configuration(name)
                )

        kind = Hurried if hurried else self.SERVER
        self.server = self.enterContext(kind({"note": NOTE}, {"NOTES": "data/notes"}))
        self.server.make_folder("data")
        self.body = self.server.path("body")

    def notes(self):
        return read(self.server.path("data/notes")).decode().split()

    def ask(self, target, *arguments):
        """Returns the status and the variables that the script printed."""
        address = self.server.address() + target
        curl = [os.environ["CURL"], "-qsSg", "-H", "Expect:", "-w", "\nSTATUS=%{http_code}"]
        lines = subprocess.check_output([*curl, *arguments, address], text=True).splitlines()
        variables = dict(line.split("=", 1) for line in lines if "=" in line)
        return int(variables.pop("STATUS")), variables

    def expect_refused(self, status, *arguments, target="/note"):
        self.assertEqual(status, self.ask(target, *arguments)[0])
        # If the script was started anyway, it needs a moment to write its note.
        time.sleep(0.2)
        self.assertEqual([], self.notes())

    def body_options(self, length, *arguments):
        with open(self.body, "wb") as file:
            file.write(bytes(length))
        return ("--data-binary", f"@{self.body}", *arguments)

    def send_crowd(self, most):
        """Sends a crowd of requests at once and checks that `most` scripts run at the same time.
        Returns the statuses."""
        with concurrent.futures.ThreadPoolExecutor(CROWD) as clients:
            answers = [clients.submit(self.ask, "/note?crowd") for _ in range(CROWD)]
            for _ in range(MANY_TIMES):
                if len(self.notes()) >= most:
                    break
                time.sleep(0.01)
            # Apache takes a second to start all the scripts that it may.
            time.sleep(1.5)
            try:
                self.assertEqual(["begin"] * most, self.notes())
            finally:
                with open(self.server.path("data/notes.go"), "w", encoding="utf-8"):
                    pass
            return sorted(answer.result()[0] for answer in answers)

    def send_part(self, request):
        """Sends part of a request; returns the status, or None if there is no answer."""
        with socket.create_connection(("127.0.0.1", self.server.port), timeout=300) as client:
            client.sendall(request)
            answer = client.recv(100)
        return int(answer.split(b" ")[1]) if answer else None


class Limits(ServerCase):
    BODY = UNSIZED = 413
    HEADER = ADDRESS = 431
    ONE_TOO_MANY = 200
    IDLE: int | None = None
    # Whether it kills a script that does not answer, and starts one before its body arrives.
    KILLS, EARLY = True, False
    LACKS = set()

    def test_body_limit_is_ten_megabytes(self):
        self.start()
        status, variables = self.ask("/note", *self.body_options(MOST_BYTES))
        self.assertEqual((200, str(MOST_BYTES)), (status, variables["BODY"]))
        os.remove(self.server.path("data/notes"))
        for _ in range(5):
            self.expect_refused(self.BODY, *self.body_options(MOST_BYTES + 1))
        with socket.create_connection(("127.0.0.1", self.server.port), timeout=100) as client:
            client.sendall(
                b"POST /cgi-bin/note HTTP/1.1\r\nHost: localhost\r\nContent-Length: %d\r\n\r\n"
                % (2**63 - 1)
            )
            self.assertRegex(client.recv(100), b"HTTP/1.1 %d " % self.BODY)
        self.expect_refused(
            self.UNSIZED, *self.body_options(MOST_BYTES + 1, "-H", "Transfer-Encoding: chunked")
        )

    def test_long_headers_and_addresses_are_refused(self):
        self.start()
        self.assertEqual(200, self.ask("/note", "-H", f"Cookie: {LONG[:7000]}")[0])
        os.remove(self.server.path("data/notes"))
        self.expect_refused(self.HEADER, "-H", f"Cookie: {LONG}")
        self.expect_refused(self.ADDRESS, target=f"/note?{LONG}")

    def test_slow_script_is_answered_504(self):
        self.start(hurried=True)
        self.assertEqual(504, self.ask("/note?9")[0])
        self.server.wait_for_scripts()
        self.assertEqual(["begin"] if self.KILLS else ["begin", "end"], self.notes())

    def test_no_more_than_twenty_scripts_run_at_once(self):
        self.start()
        self.assertEqual(
            [200] * MOST_SCRIPTS + [self.ONE_TOO_MANY] * 5, self.send_crowd(MOST_SCRIPTS)
        )

    def test_client_that_stops_sending_is_disconnected(self):
        self.start(hurried=True)
        for request in (
            b"GET /cgi-bin/note HTTP/1.1\r\nHost: localhost\r\n",
            b"POST /cgi-bin/note HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100\r\n\r\nhalf",
        ):
            # The server closes the connection; nothing else would end the request.
            self.assertEqual(self.IDLE, self.send_part(request))
        self.assertEqual(["begin"] if self.EARLY else [], self.notes()[:1])

    def test_dropped_variables(self):
        self.start()
        _, variables = self.ask("/note/path", "-H", PROXY)
        self.assertEqual(self.LACKS, VARIABLES - variables.keys())
        self.assertEqual("", variables.get("HTTP_PROXY", ""))


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
    KILLS = False
    LACKS = {"PATH_TRANSLATED"}


class Busybox(ServerCase):
    SERVER = SERVERS["busybox"]

    def test_body_has_no_limit_but_needs_a_length(self):
        self.start()
        _, variables = self.ask("/note", *self.body_options(MOST_BYTES + 1))
        self.assertEqual(str(MOST_BYTES + 1), variables["BODY"])
        _, variables = self.ask("/note", *self.body_options(5, "-H", "Transfer-Encoding: chunked"))
        self.assertEqual("0", variables["BODY"])

    def test_only_post_passes_a_body(self):
        self.start()
        for method, length in (("POST", "5"), ("PUT", "0"), ("PATCH", "0")):
            _, variables = self.ask("/note", *self.body_options(5, "-X", method))
            self.assertEqual((method, length), (variables["REQUEST_METHOD"], variables["BODY"]))

    def test_truncates_long_headers_and_refuses_long_addresses_or_too_many_headers(self):
        self.start()
        _, variables = self.ask("/note", "-H", f"Cookie: {LONG}")
        self.assertLess(8000, len(variables["HTTP_COOKIE"]))
        self.assertLess(len(variables["HTTP_COOKIE"]), 8200)
        os.remove(self.server.path("data/notes"))
        self.expect_refused(400, target=f"/note?{LONG}")
        self.expect_refused(413, *(f"-HX-{number}: {LONG[:7000]}" for number in range(20)))

    def test_number_of_scripts_is_not_limited(self):
        self.start()
        self.assertEqual([200] * CROWD, self.send_crowd(CROWD))

    def test_script_time_is_not_limited(self):
        self.start()
        self.assertEqual(200, self.ask("/note?3")[0])

    def test_dropped_variables_and_one_that_should_be_dropped(self):
        self.start()
        _, variables = self.ask("/note/path", "-H", PROXY)
        lacking = {"PATH_TRANSLATED", "SERVER_NAME", "SERVER_PORT"}
        self.assertEqual(lacking, VARIABLES - variables.keys())
        self.assertEqual("http://attacker.example/", variables["HTTP_PROXY"])


if __name__ == "__main__":
    unittest.main()
