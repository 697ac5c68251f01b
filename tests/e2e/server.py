"""The web servers, as the guide sets them up, with scripts under them, and curl to ask them."""

import glob
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from typing import NamedTuple

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.append(os.path.join(ROOT, "tests/guides"))
import guide  # pylint: disable=wrong-import-position


def printed_files(page):
    """The text of each file that a page of the guide prints."""
    with open(os.path.join(ROOT, "docs/guide", page), encoding="utf-8") as file:
        steps = guide.steps(file.read().splitlines())
    return {step.name: step.text for step in steps if isinstance(step, guide.File)}


GUIDE = printed_files("deploying.md")
PORT = "8080"

# The server ends should the tests be killed. The shell knows its process id, which lighttpd wants
# to find in LISTEN_PID.
START = 'cd "$0"; LISTEN_FDS=1 LISTEN_PID=$$ exec setpriv --pdeathsig TERM "$@"'
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
    """lighttpd in a temporary folder, for a with statement.

    It listens on a port of its own from the first moment, since it is handed a listening socket.
    """

    NAME = "lighttpd"
    SETTING = '"{}" => "{}",'
    ADDITION = 'server.systemd-socket-activation = "enable"\n'
    LOG = "scripts.log"

    def __init__(self, scripts, variables=None, options="", port=0):
        self.scripts = scripts
        self.variables = variables or {}
        self.options = options
        self.port = port
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

    def make_folder(self, name):
        """A folder that scripts can write, whoever the server lets them be."""
        os.makedirs(self.path(name))
        os.chmod(self.path(name), 0o777)
        return self.path(name)

    def _start(self):
        with socket.create_server(("127.0.0.1", self.port), backlog=128) as listening:
            self.port = listening.getsockname()[1]
            self._configure()
            for name, script in self.scripts.items():
                os.symlink(script, self.path(f"www/cgi-bin/{name}"))
            self._spawn(file_actions=[(os.POSIX_SPAWN_DUP2, listening.fileno(), LISTENING)])

    def _spawn(self, *options, **streams):
        command = ["sh", "-c", START, self.folder, *options, "sh", f"{self.NAME}.sh"]
        self.pid = os.posix_spawn("/bin/sh", command, os.environ, **streams)

    def _configure(self):
        """Writes what the guide says of this server, for this port and these variables."""
        os.makedirs(self.path("www/cgi-bin"), exist_ok=True)
        settings = "".join(
            "    " + self.SETTING.format(name, self.path(value)) + "\n"
            for name, value in self.variables.items()
        )
        for name in GUIDE:
            if name.startswith(self.NAME):
                text = self.printed(name).replace(PORT, str(self.port))
                text = re.sub(".*HELLO_DATA.*\n", lambda _: settings, text)
                if name.endswith(".conf"):
                    text += self.ADDITION + self.options
                with open(self.path(name), "w", encoding="utf-8") as file:
                    file.write(text)

    def printed(self, name):
        """The guide's file of this name."""
        return GUIDE[name]

    def _stop(self):
        os.kill(self.pid, signal.SIGTERM)
        for _ in range(500):
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.pid = 0
                ended = os.waitstatus_to_exitcode(status)
                died = ended < 0 and ended != -signal.SIGTERM
                assert not died, f"{ended}: {self._read_log('error.log')}"
                return
            time.sleep(0.01)
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        raise AssertionError("the server did not stop")

    def log(self):
        """What the scripts wrote to standard error."""
        return self._read_log(self.LOG)

    def _read_log(self, name):
        return read(self.path(name)).decode(errors="replace")

    def address(self):
        return f"http://127.0.0.1:{self.port}/cgi-bin"

    def told_port(self):
        """SERVER_PORT as a script sees it."""
        return self.port

    def running(self):
        """Whether a script is running that has one of the server's variables."""
        folder = os.fsencode(self.folder)
        for process in glob.glob("/proc/[0-9]*/environ"):
            try:
                if b"GATEWAY_INTERFACE=" in (found := read(process)) and folder in found:
                    return True
            except OSError:  # it has ended, or is another user's
                pass
        return False

    def wait_for_scripts(self):
        for _ in range(1000):
            if not self.running():
                return
            time.sleep(0.01)
        raise AssertionError("a script did not end")

    def curl(self, target, *arguments):
        """Sends a script's request with curl and notes what was sent and what came."""
        with tempfile.TemporaryDirectory(dir=self.folder) as folder:
            trace, head, body = (os.path.join(folder, name) for name in ("trace", "head", "body"))
            subprocess.run(
                [os.environ["CURL"], "-q", "-sSg", "--noproxy", "*", "--max-time", "100"]
                + ["--trace", trace, "-D", head, "-o", body, *arguments]
                + [self.address() + target],
                check=True,
                stdin=subprocess.DEVNULL,
            )
            status, headers = last_head(read(head))
            return Answer(sent(read(trace)), status, headers, read(body))


class Apache(Server):
    """As an ordinary user, who may not reach the build: scripts are copied."""

    NAME = "apache"
    SETTING = 'SetEnv {} "{}"'
    ADDITION = ""
    LOG = "error.log"

    def _start(self):
        if library := os.environ.get("LIBRARY"):
            os.mkdir(self.path("lib"))
            shutil.copy(library, self.path("lib"))
            self.variables = self.variables | {"LD_LIBRARY_PATH": "lib"}
        wanted = self.port
        for _ in range(1 if wanted else 10):
            self.port = wanted or free_port()
            if self._start_on_port():
                return
        raise AssertionError(f"{self.NAME} does not start: {self._read_log('error.log')}")

    def _start_on_port(self):
        self._configure()
        for name, script in self.scripts.items():
            shutil.copy(script, self.path(f"www/cgi-bin/{name}"))
        self._spawn(*ordinary_user(self.folder))
        while os.waitpid(self.pid, os.WNOHANG)[0] == 0:
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return True
            except ConnectionRefusedError:
                time.sleep(0.01)
        self.pid = 0
        return False

    def log(self):
        """Apache's own lines begin with the time in brackets."""
        lines = super().log().splitlines(keepends=True)
        return "".join(line for line in lines if not line.startswith("["))


class Nginx(Apache):
    NAME = "nginx"
    SETTING = 'fastcgi_param {} "{}";'
    LOG = "scripts.log"


class Busybox(Apache):
    NAME = "busybox"
    SETTING = '{}="{}" \\'
    LOG = "scripts.log"

    def told_port(self):
        return 0  # it does not tell


SERVERS = {server.NAME: server for server in (Server, Apache, Nginx, Busybox)}


def free_port():
    """A port that nobody has, and that no client is given while the server is being started."""
    while True:
        port = random.randrange(10000, 30000)
        try:
            socket.create_server(("127.0.0.1", port)).close()
            return port
        except OSError:
            pass


def ordinary_user(folder):
    """Options with which setpriv starts a server as no more than an ordinary user, whose the folder
    is to be."""
    if os.getuid() != 0:
        return []
    subprocess.run(["chown", "-R", "www-data:www-data", folder], check=True)
    return ["--reuid=www-data", "--regid=www-data", "--clear-groups"]


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
    # busybox httpd leaves a script's line ends as they are.
    text = heads.decode("latin-1").replace("\r\n", "\n")
    status, *lines = text.removesuffix("\n\n").split("\n\n")[-1].split("\n")
    pairs = (line.split(":", 1) for line in lines)
    return int(status.split(" ")[1]), [(name.lower(), value.strip()) for name, value in pairs]
