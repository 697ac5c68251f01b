"""servers.examples, which serves the examples, reports in one line why it cannot."""

import socket
import subprocess
import sys
import unittest

NOBODY = 65534
FIRST_FOR_ALL = "/proc/sys/net/ipv4/ip_unprivileged_port_start"

# As an ordinary user, who may not be able to read the source.
SERVE = """
import os, sys
from servers import examples
if os.getuid() == 0:
    os.setuid(int(sys.argv[1]))
examples.serve("lighttpd", "/", int(sys.argv[2]))
"""


def served(port):
    return subprocess.run(
        [sys.executable, "-c", SERVE, str(NOBODY), str(port)],
        capture_output=True, check=False, text=True, timeout=60,
    )  # fmt: skip


class Port(unittest.TestCase):
    def assert_told(self, port, reason):
        ran = served(port)
        self.assertEqual(
            (ran.returncode, ran.stdout, ran.stderr), (1, "", f"port {port}: {reason}\n")
        )

    def test_that_is_taken_is_told(self):
        with socket.create_server(("127.0.0.1", 0)) as taken:
            self.assert_told(taken.getsockname()[1], "Address already in use")

    def test_that_only_root_may_have_is_told(self):
        with open(FIRST_FOR_ALL, encoding="ascii") as file:
            if int(file.read()) <= 80:
                self.skipTest("port 80 is for everybody here")
        self.assert_told(80, "Permission denied")


if __name__ == "__main__":
    unittest.main()
