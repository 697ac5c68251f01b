"""lighttpd or Apache with scripts under it, and curl to ask it."""

import glob
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

# The same for Apache, as Debian has it: threads, and a daemon that starts the scripts.
APACHE_CONFIGURATION = """
ServerRoot "{folder}"
ServerName localhost
Listen 127.0.0.1:{port}
PidFile apache.pid
DefaultRuntimeDir "{folder}"
ErrorLog scripts.log
LogLevel error
User www-data
Group www-data
LoadModule mpm_event_module /usr/lib/apache2/modules/mod_mpm_event.so
LoadModule cgid_module /usr/lib/apache2/modules/mod_cgid.so
LoadModule authz_core_module /usr/lib/apache2/modules/mod_authz_core.so
LoadModule env_module /usr/lib/apache2/modules/mod_env.so
StartServers 1
ThreadsPerChild 64
MaxRequestWorkers 64
ScriptSock cgid.sock
DocumentRoot "{folder}/www"
SetEnv LD_LIBRARY_PATH "{folder}/lib"
{variables}
<Directory "{folder}/www">
  Options ExecCGI
  SetHandler cgi-script
</Directory>
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
    """lighttpd in a temporary folder, for a with statement.

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

    def make_folder(self, name):
        """A folder that scripts can write, whoever the server lets them be."""
        os.makedirs(self.path(name))
        os.chmod(self.path(name), 0o777)
        return self.path(name)

    def _start(self):
        os.mkdir(self.path("www"))
        os.mkdir(self.path("spool"))
        for name, script in self.scripts.items():
            os.symlink(script, self.path(f"www/{name}"))
        with socket.create_server(("127.0.0.1", 0), backlog=128) as listening:
            self.port = listening.getsockname()[1]
            path = self._configure(CONFIGURATION, '"{}" => "{}",')
            self.pid = os.posix_spawn(
                "/bin/sh",
                ["sh", "-c", START, os.environ["LIGHTTPD"], path],
                os.environ,
                file_actions=[(os.POSIX_SPAWN_DUP2, listening.fileno(), LISTENING)],
            )

    def _configure(self, configuration, setting):
        variables = {name: self.path(value) for name, value in self.variables.items()}
        with open(self.path("configuration"), "w", encoding="utf-8") as file:
            file.write(
                configuration.format(
                    folder=self.folder,
                    port=self.port,
                    variables="\n".join(setting.format(*item) for item in variables.items()),
                    options=self.options,
                )
            )
        return file.name

    def _stop(self):
        os.kill(self.pid, signal.SIGTERM)
        for _ in range(500):
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.pid = 0
                assert os.WIFEXITED(status), f"died: {self.log('error.log')}{self.log()}"
                return
            time.sleep(0.01)
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        raise AssertionError("the server did not stop")

    def log(self, name="scripts.log"):
        """What the scripts wrote to standard error (or another log)."""
        try:
            with open(self.path(name), encoding="utf-8", errors="replace") as file:
                return file.read()
        except FileNotFoundError:
            return ""

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


class Apache(Server):
    """Started as root, it runs scripts as a user who may not reach the build: they are copied."""

    def _start(self):
        os.mkdir(self.path("www"))
        os.mkdir(self.path("lib"))
        for name, script in self.scripts.items():
            shutil.copy(script, self.path(f"www/{name}"))
        shutil.copy(os.environ["LIBRARY"], self.path("lib"))
        if os.getuid() == 0:
            shutil.chown(self.folder, "www-data", "www-data")
        for _ in range(10):
            with socket.create_server(("127.0.0.1", 0)) as free:
                self.port = free.getsockname()[1]
            if self._start_on_port():
                return
        raise AssertionError(f"Apache does not start: {super().log()}")

    def log(self, name="scripts.log"):
        """Apache's own lines begin with the time in brackets."""
        lines = super().log(name).splitlines(keepends=True)
        return "".join(line for line in lines if not line.startswith("["))

    def _start_on_port(self):
        path = self._configure(APACHE_CONFIGURATION, 'SetEnv {} "{}"')
        apache = shutil.which("apache2", path=os.environ["PATH"] + ":/usr/sbin")
        self.pid = os.posix_spawnp(
            "setpriv",
            ["setpriv", "--pdeathsig", "TERM", apache, "-f", path, "-D", "FOREGROUND"],
            os.environ,
        )
        while os.waitpid(self.pid, os.WNOHANG)[0] == 0:
            try:
                socket.create_connection(("127.0.0.1", self.port)).close()
                return True
            except ConnectionRefusedError:
                time.sleep(0.01)
        self.pid = 0
        return False


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
