#!/usr/bin/env python3
"""The commands and configurations in the manual page of tarn-serve work, and so does a socket that
systemd passes."""

import os
import re
import shutil
import socket
import subprocess
import tempfile
import unittest
import urllib.request
from pathlib import Path

from servers.server import as_ordinary_user, free_port, wait_until

TOOLS = Path(os.environ["TOOLS"])
EXAMPLES = (TOOLS / "tarn-serve.1").read_text().partition(".Sh EXAMPLES\n")[2]
BLOCKS = re.findall(r"^\.Bd .*\n((?:.*\n)*?)\.Ed", EXAMPLES, re.MULTILINE)

HELLO = """#!/bin/sh
printf 'Content-Type: text/plain\\n\\n%s\\n' "$SCRIPT_NAME|$PATH_INFO|$QUERY_STRING"
"""

# What surrounds the snippets of the manual page.
NGINX = """daemon off;
pid nginx.pid;
events { }
http {
  access_log off;
  client_body_temp_path spool;
  fastcgi_temp_path spool;
  proxy_temp_path spool;
  scgi_temp_path spool;
  uwsgi_temp_path spool;
  server {
    listen 127.0.0.1:PORT;
SNIPPET
  }
}
"""
LIGHTTPD = """server.bind = "127.0.0.1"
server.port = PORT
server.document-root = var.CWD
SNIPPET
"""
APACHE = """ServerName localhost
Listen 127.0.0.1:PORT
PidFile apache.pid
DefaultRuntimeDir .
ErrorLog error.log
LoadModule mpm_event_module MODULES/mod_mpm_event.so
LoadModule authz_core_module MODULES/mod_authz_core.so
LoadModule proxy_module MODULES/mod_proxy.so
LoadModule proxy_fcgi_module MODULES/mod_proxy_fcgi.so
SNIPPET
"""


def block(beginning: str) -> str:
    """The block of the manual page that begins like this."""
    (found,) = [block for block in BLOCKS if block.startswith(beginning)]
    return found.replace("\\e\n", "\\\n")


class Serving(unittest.TestCase):
    def setUp(self):
        self.folder = Path(tempfile.mkdtemp())
        self.addCleanup(shutil.rmtree, self.folder)
        self.folder.chmod(0o755)
        (self.folder / "hello").write_text(HELLO)
        (self.folder / "hello").chmod(0o755)
        (self.folder / "spool").mkdir()
        (self.folder / "fastcgi_params").symlink_to("/etc/nginx/fastcgi_params")
        self.socket = self.folder / "hello.sock"
        self.user = as_ordinary_user(str(self.folder))
        self.port = free_port()
        self.processes = []

    def start(self, *command: str | Path):
        """Starts a program in the folder, until the test ends."""
        with open(self.folder / "log", "ab") as log:
            process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "TERM", *self.user, *command],
                cwd=self.folder,
                env={"PATH": f"{TOOLS}:/usr/sbin:/usr/bin:/bin"},
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
            )
        self.processes.append(process)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        return process

    def here(self, text: str) -> str:
        """A text of the manual page, for this folder."""
        text = text.replace("/run/tarn-serve/", "/run/").replace("/run/", f"{self.folder}/")
        return text.replace("/usr/lib/cgi-bin/", f"{self.folder}/")

    def log(self) -> str:
        return (self.folder / "log").read_text()

    def serve(self):
        service = self.start(
            "sh",
            "-c",
            "exec " + self.here(block("tarn-serve --listen unix:/run/hello.sock --socket-mode")),
        )

        # The file gets its mode after it has been made, and before anybody can connect.
        def has_socket() -> bool:
            self.assertIsNone(service.poll(), self.log())
            return self.socket.exists() and self.socket.stat().st_mode & 0o777 == 0o660

        wait_until(has_socket, "no socket with this mode")

    def answer_under(self, configuration: str, snippet: str, *command: str) -> str:
        self.serve()
        text = configuration.replace("SNIPPET", self.here(snippet)).replace("PORT", str(self.port))
        (self.folder / "conf").write_text(text.replace("MODULES", "/usr/lib/apache2/modules"))
        self.start(*command)
        return self.answer()

    def test_nginx(self):
        command = "nginx", "-p", str(self.folder), "-c", "conf", "-e", "error.log"
        shown = self.answer_under(NGINX, block("location "), *command)
        self.assertEqual(shown, "/hello|/lake|depth=18\n")

    def test_lighttpd(self):
        shown = self.answer_under(LIGHTTPD, block("server.modules"), "lighttpd", "-D", "-f", "conf")
        self.assertEqual(shown, "/hello|/lake|depth=18\n")

    def test_apache(self):
        command = "apache2", "-d", str(self.folder), "-f", "conf", "-X"
        shown = self.answer_under(APACHE, block("<LocationMatch"), *command)
        self.assertEqual(shown, "/hello|/lake|depth=18\n")

    def test_units_of_systemd_pass_their_socket(self):
        # What the units say, with the options of the manual page.
        settings = block("TARN_SERVE_OPTIONS=")
        variables = dict(line.split("=", 1) for line in settings.splitlines())
        service = (TOOLS.parent / "systemd/tarn-serve@.service").read_text()
        command = re.search(r"(?m)^ExecStart=\S*/tarn-serve (.*)", service)[1].replace(
            "%i", "hello"
        )
        command = self.here(command).replace("$TARN_SERVE_OPTIONS", variables["TARN_SERVE_OPTIONS"])
        sockets = (TOOLS.parent / "systemd/tarn-serve@.socket").read_text()
        path = re.search(r"(?m)^ListenStream=(.*)", sockets)[1]
        path = self.here(path.replace("%t", "/run").replace("%i", "hello"))
        self.assertIn(f".Pa {path}".replace(f"{self.folder}/", "/run/tarn-serve/"), EXAMPLES)
        self.start("systemd-socket-activate", "-l", path, TOOLS / "tarn-serve", *command.split())
        wait_until(self.socket.exists, "no socket")
        snippet = self.here(block("location "))
        text = NGINX.replace("SNIPPET", snippet).replace("PORT", str(self.port))
        (self.folder / "conf").write_text(text)
        self.start("nginx", "-p", str(self.folder), "-c", "conf", "-e", "error.log")
        self.assertEqual(self.answer(), "/hello|/lake|depth=18\n")

    def answer(self) -> str:
        def is_ready():
            for process in self.processes:
                self.assertIsNone(process.poll(), self.log())
            with socket.socket() as client:
                return client.connect_ex(("127.0.0.1", self.port)) == 0

        wait_until(is_ready, "the server does not start")
        address = f"http://127.0.0.1:{self.port}/hello/lake?depth=18"
        with urllib.request.urlopen(address, timeout=60) as answer:
            return answer.read().decode()


if __name__ == "__main__":
    unittest.main()
