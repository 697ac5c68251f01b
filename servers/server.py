"""What all servers share: a temporary folder with configuration and scripts, starting and stopping,
and curl for requests."""

import contextlib
import glob
import http.client
import os
import random
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.parse
from collections.abc import Callable, Mapping
from pathlib import Path
from types import TracebackType
from typing import Self

from servers.curl import Answer, Sent, fetch, fetch_traced

CONFIGURATIONS = Path(__file__).resolve().parent
# The values in the configurations; a server under test gets its own port and variables.
PORT = re.compile(r"\b8080\b")
VARIABLE = re.compile(".*HELLO_DATA.*\n")

# setpriv stops the server if the tests are killed. The shell sets LISTEN_PID, the server's process
# id, which lighttpd expects.
START = 'cd "$0"; LISTEN_FDS=1 LISTEN_PID=$$ exec setpriv --pdeathsig TERM "$@"'

# How many times to check for an event, every 10 ms: long enough for a busy machine.
MANY_TIMES = 10000


def wait_until(happened: Callable[[], bool], failure: str) -> None:
    """Waits for an event; fails with this text if it does not happen."""
    for _ in range(MANY_TIMES):
        if happened():
            return
        time.sleep(0.01)
    raise AssertionError(failure)


chosen_ports: set[int] = set()


def free_port() -> int:
    """A free port that the system gives to no client while the server starts. Each call returns
    another one."""
    while True:
        port = random.randrange(10000, 30000)
        try:
            socket.create_server(("127.0.0.1", port)).close()
        except OSError:
            continue
        if port not in chosen_ports:
            chosen_ports.add(port)
            return port


def as_ordinary_user(folder: str) -> list[str]:
    """setpriv options to start a server as an ordinary user, who becomes owner of the folder."""
    if os.getuid() != 0:
        return []
    subprocess.run(["chown", "-R", "www-data:www-data", folder], check=True)
    return ["--reuid=www-data", "--regid=www-data", "--clear-groups"]


def read(path: str | os.PathLike[str]) -> bytes:
    """A file's bytes; none if there is no file."""
    try:
        return Path(path).read_bytes()
    except FileNotFoundError:
        return b""


class Server:
    """A web server in a temporary folder, for a with statement.

    `scripts` maps the names in the address to paths. `variables` are set for the scripts; their
    values are paths in the server's folder. `options` are more lines for the configuration.
    """

    NAME = ""
    SETTING = ""  # how its configuration sets a variable
    ADDITION = ""  # more lines for its configuration
    LOG = "scripts.log"  # what scripts write to standard error
    FOLDER = CONFIGURATIONS
    PROGRAMS = "www/cgi-bin"

    def __init__(
        self,
        scripts: Mapping[str, str | os.PathLike[str]],
        variables: Mapping[str, str] | None = None,
        options: str = "",
        port: int = 0,
    ) -> None:
        self.scripts = scripts
        self.variables = variables or {}
        self.options = options
        self.port = port
        self.pid = 0
        self.folder = ""

    def __enter__(self) -> Self:
        self.folder = tempfile.mkdtemp(prefix="tarn-e2e-")
        try:
            self._start()
        except BaseException:
            self.__exit__(None, None, None)
            raise
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        try:
            if self.pid:
                self._stop()
        finally:
            shutil.rmtree(self.folder)

    def path(self, name: str) -> str:
        """The path of a file in the server's folder."""
        return os.path.join(self.folder, name)

    def make_folder(self, name: str) -> str:
        """Makes a folder that scripts can write to, whichever user they run as."""
        os.makedirs(self.path(name))
        os.chmod(self.path(name), 0o777)
        return self.path(name)

    def address(self) -> str:
        """The address of the folder of scripts."""
        return f"http://127.0.0.1:{self.port}/cgi-bin"

    def script_port(self) -> int:
        """SERVER_PORT as a script sees it."""
        return self.port

    def curl(self, target: str, *arguments: str) -> Answer:
        """Sends a request for a script; returns what came back."""
        return fetch(self.address() + target, *arguments, folder=self.folder)

    def curl_traced(self, target: str, *arguments: str) -> tuple[Sent, Answer]:
        """Sends a request for a script; returns what was sent and what came back."""
        return fetch_traced(self.address() + target, *arguments, folder=self.folder)

    def ask(self, target: str, body: bytes | None = None, **headers: str) -> Answer:
        """Sends a request without curl, for tests that send many: curl takes more processor time
        than the server and the script. A body makes it a POST."""
        address = urllib.parse.urlsplit(self.address() + target)
        path = address.path + (f"?{address.query}" if address.query else "")
        sent = {"sec-fetch-site": "same-origin"}
        if body is not None:
            sent["content-type"] = "application/x-www-form-urlencoded"
        sent |= {name.replace("_", "-"): value for name, value in headers.items()}
        connection = http.client.HTTPConnection(str(address.hostname), address.port, timeout=100)
        with contextlib.closing(connection):
            connection.request("GET" if body is None else "POST", path, body, sent)
            answer = connection.getresponse()
            received = [(name.lower(), value) for name, value in answer.getheaders()]
            return Answer(answer.status, received, answer.read())

    def log(self) -> str:
        """What the scripts wrote to standard error."""
        return self._read_log(self.LOG)

    def wait_for_scripts(self) -> None:
        """Waits until no script is running."""
        wait_until(lambda: not self._is_running_a_script(), "a script did not end")

    def connect_to_socket(self, name: str) -> None:
        """Connects to socket/NAME; raises an OSError if nobody listens there."""
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(self.path(f"socket/{name}"))

    def wait_until_it_listens(self, name: str, connect: Callable[[], None]) -> None:
        """Waits until `connect` succeeds. The file of a socket is there before anybody listens."""

        def listens() -> bool:
            try:
                connect()
            except (FileNotFoundError, ConnectionRefusedError):
                return False
            return True

        wait_until(listens, f"{name} does not listen: {self._read_log(self.LOG)}")

    # ---- For each kind of server -----------------------------------------------------------------

    def _start(self) -> None:
        """Configures the server and starts it on `self.port`, or on a free port if that is 0."""
        raise NotImplementedError

    def files(self) -> list[str]:
        """The names of its files."""
        names = [f"{self.NAME}.conf", f"{self.NAME}.cfg", f"{self.NAME}.sh"]
        return [name for name in names if (self.FOLDER / name).exists()]

    def configuration(self, name: str) -> str:
        """The text of one of its files."""
        return (self.FOLDER / name).read_text(encoding="utf-8")

    def _configure(self) -> None:
        """Writes its configuration, for this port and these variables."""
        for folder in ("www", self.PROGRAMS):
            os.makedirs(self.path(folder), exist_ok=True)
        settings = "".join(
            "    " + self.SETTING.format(name, self.path(value)) + "\n"
            for name, value in self.variables.items()
        )
        ports = variables = 0
        for name in self.files():
            text = self.configuration(name)
            text, found = PORT.subn(str(self.port), text)
            ports += found
            text, found = VARIABLE.subn(lambda _: settings, text)
            variables += found
            if name.endswith(".conf"):
                text += self.ADDITION + self.options
            with open(self.path(name), "w", encoding="utf-8") as copy:
                copy.write(text)
        assert (ports, variables) == (1, 1), f"{self.NAME}: {ports} ports, {variables} variables"

    def _spawn(self, *setpriv: str, inherit: tuple[int, int] | None = None) -> None:
        """Starts it; it inherits the first descriptor as the second."""
        command = ["sh", "-c", START, self.folder, *setpriv, "sh", f"{self.NAME}.sh"]
        actions = [(os.POSIX_SPAWN_DUP2, *inherit)] if inherit else []
        self.pid = os.posix_spawn("/bin/sh", command, os.environ, file_actions=actions)

    def _stop(self) -> None:
        os.kill(self.pid, signal.SIGTERM)
        status = None

        def ended() -> bool:
            nonlocal status
            pid, found = os.waitpid(self.pid, os.WNOHANG)
            status = os.waitstatus_to_exitcode(found) if pid else None
            return pid != 0

        try:
            wait_until(ended, "the server did not stop")
        except AssertionError:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
            raise
        finally:
            self._kill_rest()
        self.pid = 0
        crashed = status is not None and status < 0 and status != -signal.SIGTERM
        assert not crashed, f"{status}: {self._read_log('error.log')}"

    def _kill_rest(self) -> None:
        """Kills what the server has left behind. The processes of mod_cgid and mod_fcgid lose a
        signal that comes while they begin or go to sleep, and would run on without Apache."""
        folder = os.fsencode(self.folder)
        for process in glob.glob("/proc/[0-9]*/cmdline"):
            with contextlib.suppress(OSError):  # it has ended
                if folder in read(process).split(b"\0"):
                    os.kill(int(process.split("/")[2]), signal.SIGKILL)

    def _read_log(self, name: str) -> str:
        return read(self.path(name)).decode(errors="replace")

    def _is_running_a_script(self) -> bool:
        """Tells whether a script is running that has the server's folder in its environment."""
        folder = os.fsencode(self.folder)
        for process in glob.glob("/proc/[0-9]*/environ"):
            try:
                if b"GATEWAY_INTERFACE=" in (found := read(process)) and folder in found:
                    return True
            except OSError:  # the process has ended, or is another user's
                pass
        return False


class ServerOfOrdinaryUser(Server):
    """A server that opens its port itself and runs as an ordinary user. That user may not be able
    to read the build folder, so the scripts are copied."""

    def _start(self) -> None:
        if library := os.environ.get("LIBRARY"):
            os.mkdir(self.path("lib"))
            shutil.copy(library, self.path("lib"))
            self.variables = {**self.variables, "LD_LIBRARY_PATH": "lib"}
        chosen = self.port
        for _ in range(1 if chosen else 10):
            self.port = chosen or free_port()
            if self._start_on_port():
                return
        raise AssertionError(f"{self.NAME} did not start: {self._read_log('error.log')}")

    def _start_on_port(self) -> bool:
        self._configure()
        for name, script in self.scripts.items():
            shutil.copy(script, self.path(f"{self.PROGRAMS}/{name}"))
        self._spawn(*as_ordinary_user(self.folder))
        while os.waitpid(self.pid, os.WNOHANG)[0] == 0:
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return True
            except ConnectionRefusedError:
                time.sleep(0.01)
        self.pid = 0
        return False
