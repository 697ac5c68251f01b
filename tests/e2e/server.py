"""lighttpd with scripts under it, and curl to ask it."""

import os
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
from typing import NamedTuple

# Requests reach the scripts as they were sent: lighttpd leaves the path and the query alone.
CONFIGURATION = """
server.bind = "127.0.0.1"
server.port = {port}
server.systemd-socket-activation = "enable"
server.document-root = "{folder}/www"
server.upload-dirs = ( "{folder}/spool" )
server.errorlog = "{folder}/error.log"
server.breakagelog = "{folder}/scripts.log"
server.http-parseopts = ( "url-normalize" => "disable", "url-ctrls-reject" => "disable" )
server.modules = ( "mod_setenv", "mod_cgi" )
cgi.assign = ( "" => "" )
setenv.add-environment = ( {variables} )
{options}
"""

# The shell knows its process id, which lighttpd wants to find in LISTEN_PID; setpriv ends the
# server should the tests be killed.
START = 'LISTEN_FDS=1 LISTEN_PID=$$ exec setpriv --pdeathsig KILL "$0" -D -f "$1"'
LISTENING = 3


class Sent(NamedTuple):
    """A request as it left curl."""

    method: str
    target: str
    headers: dict  # lower-case name: value
    body: bytes


class Answer(NamedTuple):
    sent: Sent
    status: int
    headers: list  # of (lower-case name, value)
    body: bytes

    def header(self, name):
        values = [value for key, value in self.headers if key == name]
        assert len(values) == 1, f"{len(values)} headers {name}"
        return values[0]


class Server:
    """A server in a temporary folder, for a with statement.

    It listens on a port of its own from the first moment, since it is handed a listening socket.
    """

    def __init__(self, scripts, variables=None, options=""):
        self.scripts = scripts
        self.variables = variables or {}
        self.options = options
        self.pid = 0

    def __enter__(self):
        self.folder = tempfile.mkdtemp(prefix="tarn-e2e-")
        try:
            self._start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        try:
            if self.pid:
                self._stop()
        finally:
            shutil.rmtree(self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def _start(self):
        os.mkdir(self.path("www"))
        os.mkdir(self.path("spool"))
        for name, script in self.scripts.items():
            os.symlink(script, self.path(f"www/{name}"))
        with socket.create_server(("127.0.0.1", 0), backlog=128) as listening:
            self.port = listening.getsockname()[1]
            variables = {name: self.path(value) for name, value in self.variables.items()}
            configuration = CONFIGURATION.format(
                folder=self.folder,
                port=self.port,
                variables=", ".join(f'"{name}" => "{value}"' for name, value in variables.items()),
                options=self.options,
            )
            with open(self.path("lighttpd.conf"), "w", encoding="utf-8") as file:
                file.write(configuration)
            self.pid = os.posix_spawn(
                "/bin/sh",
                ["sh", "-c", START, os.environ["LIGHTTPD"], file.name],
                os.environ,
                file_actions=[(os.POSIX_SPAWN_DUP2, listening.fileno(), LISTENING)],
            )

    def _stop(self):
        os.kill(self.pid, signal.SIGTERM)
        for _ in range(500):
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.pid = 0
                assert os.WIFEXITED(status), f"lighttpd died: {self.log('error.log')}"
                return
            time.sleep(0.01)
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        raise AssertionError("lighttpd did not stop")

    def log(self, name="scripts.log"):
        """What the scripts wrote to standard error (or another log)."""
        try:
            with open(self.path(name), encoding="utf-8", errors="replace") as file:
                return file.read()
        except FileNotFoundError:
            return ""

    def curl(self, target, *arguments):
        """Sends a request with curl and notes what was sent and what came."""
        with tempfile.TemporaryDirectory(dir=self.folder) as folder:
            trace, head, body = (os.path.join(folder, name) for name in ("trace", "head", "body"))
            subprocess.run(
                [os.environ["CURL"], "-q", "-sSg", "--noproxy", "*", "--max-time", "100"]
                + ["--trace", trace, "-D", head, "-o", body, *arguments]
                + [f"http://127.0.0.1:{self.port}{target}"],
                check=True,
                stdin=subprocess.DEVNULL,
            )
            status, headers = last_head(read(head))
            return Answer(sent(read(trace)), status, headers, read(body))


def read(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:  # curl makes no file for a body that does not come
        return b""


def sent(trace):
    """Takes a request out of curl's trace in hexadecimal."""
    parts = {b"header": [], b"data": []}
    part = None
    for line in trace.splitlines():
        if line.startswith((b"=> ", b"<= ", b"== ")):
            found = re.match(b"=> Send (header|data), ", line)
            part = parts[found[1]] if found else None
        elif part is not None:
            part.append(bytes.fromhex(line[line.index(b": ") + 2 :][:48].decode()))
    head = b"".join(parts[b"header"]).decode("latin-1")
    request, *lines = head.removesuffix("\r\n\r\n").split("\r\n")
    method, target, _ = request.split(" ")
    headers = {}
    for line in lines:
        name, value = line.split(": ", 1)
        headers[name.lower()] = value
    return Sent(method, target, headers, b"".join(parts[b"data"]))


def last_head(heads):
    """The status and the headers of the last answer; one that asks to go on comes before it."""
    head = heads.decode("latin-1").removesuffix("\r\n\r\n").split("\r\n\r\n")[-1]
    status, *lines = head.split("\r\n")
    pairs = (line.split(":", 1) for line in lines)
    return int(status.split(" ")[1]), [(name.lower(), value.strip()) for name, value in pairs]
