"""Programs of others that start a service or send it requests: spawn-fcgi, Apache's mod_fcgid, and
cgi-fcgi, the client of libfcgi."""

import os
import shutil
import subprocess
import tempfile
import threading
import unittest
import urllib.error
import urllib.request
from pathlib import Path

from fastcgi import PROBE, Service, pattern, wait_until
from servers.server import as_ordinary_user, free_port

APACHE = """ServerName localhost
Listen 127.0.0.1:{port}
PidFile apache.pid
DefaultRuntimeDir .
ErrorLog error.log
LoadModule mpm_event_module /usr/lib/apache2/modules/mod_mpm_event.so
LoadModule authz_core_module /usr/lib/apache2/modules/mod_authz_core.so
LoadModule alias_module /usr/lib/apache2/modules/mod_alias.so
LoadModule fcgid_module /usr/lib/apache2/modules/mod_fcgid.so
FcgidIPCDir sockets
FcgidProcessTableFile processes
FcgidMaxRequestLen 10000000
FcgidInitialEnv NOTES {folder}/notes
ScriptAlias /cgi-bin/ {folder}/bin/
<Directory {folder}/bin>
  SetHandler fcgid-script
  Options +ExecCGI
</Directory>
"""


class CgiFcgi(unittest.TestCase):
    def ask(
        self, service: Service, query: str, body: bytes = b""
    ) -> subprocess.CompletedProcess[bytes]:
        address = service.address
        at = address if isinstance(address, str) else f"{address[0]}:{address[1]}"
        variables = {"QUERY_STRING": query, "REQUEST_URI": f"/probe?{query}"}
        if body:
            variables |= {"REQUEST_METHOD": "POST", "CONTENT_LENGTH": str(len(body))}
        else:
            variables |= {"REQUEST_METHOD": "GET"}
        return subprocess.run(
            ["cgi-fcgi", "-bind", "-connect", at],
            input=body, env=variables, capture_output=True, check=False, timeout=100,
        )  # fmt: skip

    def test_gets_what_a_script_writes(self) -> None:
        # Answers are small: when the header of a record comes in two pieces, as it may in a large
        # answer, cgi-fcgi loses its place (exit status 253 or 254) although every record is right.
        large = pattern(2_000_000)
        for tcp in (False, True):
            with self.subTest(tcp=tcp), Service(tcp=tcp) as service:
                for query, body, expected in (
                    ("header&text=Hello", b"", b"Hello"),
                    ("header&body", b"a=1", b"a=1"),
                    ("header&write=3000&body", large[:3000], pattern(3000) + large[:3000]),
                    ("header&text=ignored", large, b"ignored"),
                ):
                    ran = self.ask(service, query, body)
                    self.assertEqual((ran.returncode, ran.stderr), (0, b""), query)
                    self.assertTrue(ran.stdout.partition(b"\r\n\r\n")[2] == expected, query)
                self.assertEqual(service.log_lines(), [])

    def test_gets_standard_error_and_the_status(self) -> None:
        with Service() as service:
            ran = self.ask(service, "header&text=a&error=message&exit=3")
            self.assertEqual((ran.returncode, ran.stderr), (3, b"message\n"))
            self.assertTrue(ran.stdout.endswith(b"\r\n\r\na"), ran.stdout)

    def test_gets_an_error_page(self) -> None:
        with Service() as service:
            for query, status in (("signal=11", 128 + 11), ("text=a", 0), ("exit=3", 3)):
                ran = self.ask(service, query)
                self.assertEqual(ran.returncode, status, query)
                self.assertTrue(ran.stdout.startswith(b"Status: 500 "), ran.stdout)
            self.assertEqual(len(service.log_lines()), 3)


class SpawnFcgi(unittest.TestCase):
    def test_passes_its_socket(self) -> None:
        port = free_port()
        for where in (("-s", "{folder}/socket"), ("-a", "127.0.0.1", "-p", str(port))):
            wrapper = ("spawn-fcgi", "-n", *where, "--")
            with self.subTest(where), Service(wrapper=wrapper, listens=False) as service:
                if "-p" in where:
                    service.address = ("127.0.0.1", port)
                service.wait_until_it_listens()
                self.assertEqual(service.ask("header&body", b"text").body, b"text")
                self.assertEqual(service.ask("header&descriptors").lines, ["0", "1", "2"])
                service.process.terminate()
                self.assertEqual(service.process.wait(100), 0)
                self.assertEqual(service.log_lines(), [])


class ModFcgid(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="tarn-serve-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.folder.chmod(0o755)
        for name in ("bin", "sockets"):
            (self.folder / name).mkdir()
        shutil.copy(PROBE, self.folder / "bin/probe")
        self.port = free_port()
        text = APACHE.format(folder=self.folder, port=self.port)
        (self.folder / "conf").write_text(text)
        user = as_ordinary_user(str(self.folder))
        apache = ("/usr/sbin/apache2", "-d", str(self.folder), "-f", "conf", "-D", "FOREGROUND")
        self.apache = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", *user, *apache])
        self.addCleanup(self.apache.wait, 100)
        self.addCleanup(self.apache.terminate)
        wait_until(self.answers, "Apache does not answer")

    def answers(self) -> bool:
        self.assertIsNone(self.apache.poll(), self.log())
        try:
            return self.ask("header")[0] == 200
        except urllib.error.URLError:
            return False

    def log(self) -> str:
        try:
            return (self.folder / "error.log").read_text()
        except FileNotFoundError:
            return ""

    def ask(self, query: str, body: bytes | None = None) -> tuple[int, bytes]:
        address = f"http://127.0.0.1:{self.port}/cgi-bin/probe?{query}"
        try:
            with urllib.request.urlopen(address, body, timeout=100) as answer:
                return answer.status, answer.read()
        except urllib.error.HTTPError as error:
            with error:
                return error.code, error.read()

    def processes(self) -> list[int]:
        """The processes of the service."""
        found = []
        for process in Path("/proc").glob("[0-9]*"):
            try:
                if os.readlink(process / "exe") == str(self.folder / "bin/probe"):
                    found.append(int(process.name))
            except OSError:  # the process has ended, or is another user's
                pass
        return found

    def test_starts_a_service_and_stops_it(self) -> None:
        self.assertEqual(self.ask("header&text=Hello"), (200, b"Hello"))
        body = pattern(2_000_000)
        self.assertEqual(self.ask("header&write=300000&body", body), (200, pattern(300_000) + body))
        self.assertEqual(self.ask("header&text=ignored", body), (200, b"ignored"))
        self.assertEqual(self.ask("header&env")[1].count(b"\nHTTP_PROXY="), 0)
        self.assertEqual(self.ask("signal=11")[0], 500)
        self.assertIn("signal 11 (Segmentation fault) ended the script", self.log())
        self.assertEqual(self.ask("header&group"), (200, b"1\n"))
        replies: list[tuple[int, bytes]] = []
        clients = [
            threading.Thread(target=lambda: replies.append(self.ask("header&sleep=50&text=a")))
            for _ in range(8)
        ]
        for client in clients:
            client.start()
        for client in clients:
            client.join()
        self.assertEqual(replies, [(200, b"a")] * 8)
        self.assertNotEqual(self.processes(), [])
        self.apache.terminate()
        self.apache.wait(100)
        wait_until(lambda: not self.processes(), "the service stays")


if __name__ == "__main__":
    unittest.main()
