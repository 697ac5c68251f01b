"""servers.examples prints one line when it cannot serve the examples; servers get their ports, and
end whole."""

import re
import signal
import socket
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from servers import SERVERS
from servers.fastcgi import HaproxyFastcgi

NOBODY = 65534
FIRST_FOR_ALL = "/proc/sys/net/ipv4/ip_unprivileged_port_start"

# Runs as an ordinary user, who may not be able to read the source.
SERVE = """
import os, sys
from servers import examples
if os.getuid() == 0:
    os.setuid(int(sys.argv[1]))
examples.serve("lighttpd", "/", int(sys.argv[2]))
"""


def serve(port):
    return subprocess.run(
        [sys.executable, "-c", SERVE, str(NOBODY), str(port)],
        capture_output=True, check=False, text=True, timeout=60,
    )  # fmt: skip


class APort(unittest.TestCase):
    def assert_error(self, port, reason):
        ran = serve(port)
        self.assertEqual(
            (ran.returncode, ran.stdout, ran.stderr), (1, "", f"port {port}: {reason}\n")
        )

    def test_that_is_in_use_is_an_error(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            self.assert_error(taken.getsockname()[1], "Address already in use")

    def test_that_only_root_may_open_is_an_error(self):
        with open(FIRST_FOR_ALL, encoding="ascii") as file:
            if int(file.read()) <= 80:
                self.skipTest("anybody may open port 80 here")
        self.assert_error(80, "Permission denied")


class Ports(unittest.TestCase):
    def test_of_services_may_have_the_digits_of_another(self):
        server = HaproxyFastcgi({"lake": "", "ridge": ""})
        server.folder = self.enterContext(tempfile.TemporaryDirectory())
        server.port, server.ports = 29000, {"lake": 18080, "ridge": 28080}
        server._configure()
        for file, found in (
            ("haproxy.cfg", ["29000", "18080", "28080"]),
            ("haproxy.sh", ["18080", "28080"]),
        ):
            text = Path(server.folder, file).read_text(encoding="utf-8")
            self.assertCountEqual(re.findall(r"127\.0\.0\.1:(\d+)", text), found, file)


class Stopping(unittest.TestCase):
    def test_ends_what_the_server_leaves_behind(self):
        with SERVERS["lighttpd"]({}) as server:
            command = ["sh", "-c", "read line", "-d", server.folder]
            left = subprocess.Popen(command, stdin=subprocess.PIPE)
        with left:
            self.assertEqual(left.wait(100), -signal.SIGKILL)


if __name__ == "__main__":
    unittest.main()
