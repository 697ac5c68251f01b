"""Servers that pass requests to programs over FastCGI. The programs serve with libtarn_serve, or
tarn-serve runs them."""

import glob
import os
import re
import shutil
import socket
from pathlib import Path

from servers.server import CONFIGURATIONS, ServerOfOrdinaryUser, free_port, wait_until

PROGRAMS = "bin"
# The program in the configurations, and the port on which HAProxy finds it.
PROGRAM = "hello"
PROGRAM_PORT = re.compile(r"\b9000\b")
# The line in NAME.sh that starts it.
SERVE = "serve .*\n"


class Fastcgi(ServerOfOrdinaryUser):
    """Each script is a service of its own, on the Unix socket socket/NAME."""

    FOLDER = CONFIGURATIONS / "fastcgi"
    PROGRAMS = PROGRAMS
    # What the configurations have once for each program: the file, and the lines for one.
    EACH: tuple[tuple[str, str], ...] = ()

    def files(self) -> list[str]:
        return [*super().files(), "services.sh"]

    def configuration(self, name: str) -> str:
        text = super().configuration(name)
        for file, lines in self.EACH:
            if file != name:
                continue
            (example,) = re.findall(lines, text)
            # A server may take /cgi-bin/guestbook for the beginning of /cgi-bin/guestbook-cpp.
            scripts = sorted(self.scripts, key=len, reverse=True)
            text = text.replace(example, "".join(self.lines_for(each, example) for each in scripts))
        return text

    def lines_for(self, script: str, example: str) -> str:
        """The lines of a configuration for one of the scripts."""
        return re.sub(rf"\b{PROGRAM}\b", script, example)

    def connect(self, script: str) -> None:
        """Connects to a service; raises an OSError if it does not listen."""
        self.connect_to_socket(script)

    def processes(self) -> dict[int, int]:
        """The processes of the services: the parent of each."""
        found = {}
        for process in glob.glob("/proc/[0-9]*"):
            try:
                if os.readlink(f"{process}/exe").startswith(self.path("")):
                    stat = Path(process, "stat").read_text(encoding="utf-8")
                    found[int(process[6:])] = int(stat.rpartition(")")[2].split()[1])
            except OSError:  # the process has ended, or is another user's
                pass
        return found

    def _start_on_port(self) -> bool:
        return super()._start_on_port() and all(map(self._serves, self.scripts))

    def _serves(self, script: str) -> bool:
        self.wait_until_it_listens(script, lambda: self.connect(script))
        return True

    def _stop(self) -> None:
        super()._stop()
        wait_until(lambda: not self.processes(), "a service did not end")

    def _is_running_a_script(self) -> bool:
        """Tells whether a service has a worker that has a child."""
        parents = self.processes()
        return super()._is_running_a_script() or any(
            parents.get(parent) in parents for parent in parents.values()
        )


class NginxFastcgi(Fastcgi):
    NAME = "nginx"
    SETTING = 'fastcgi_param {} "{}";'
    EACH = (("nginx.sh", SERVE),)


class LighttpdFastcgi(Fastcgi):
    NAME = "lighttpd"
    SETTING = '"{}" => "{}",'
    EACH = (
        ("lighttpd.sh", SERVE),
        ("lighttpd.conf", f'  "/cgi-bin/{PROGRAM}"(?:.*\n)*?  \\)\\),\n'),
    )


class TarnServe(Fastcgi):
    """tarn-serve runs the scripts, as CGI."""

    def lines_for(self, script: str, example: str) -> str:
        if not re.fullmatch(SERVE, example):
            return super().lines_for(script, example)
        return f"serve ./tarn-serve --listen unix:socket/{script} -- {PROGRAMS}/{script}\n"

    def _configure(self) -> None:
        super()._configure()
        shutil.copy(os.environ["TARN_SERVE"], self.path("tarn-serve"))


class NginxTarnServe(TarnServe, NginxFastcgi):
    pass


class LighttpdTarnServe(TarnServe, LighttpdFastcgi):
    pass


class LighttpdSpawning(Fastcgi):
    """lighttpd starts the services, each with a socket as descriptor 0."""

    NAME = "spawning"
    SETTING = LighttpdFastcgi.SETTING
    EACH = (("spawning.conf", LighttpdFastcgi.EACH[1][1]),)

    def connect(self, script: str) -> None:
        """lighttpd opens the sockets before its own port."""


class ApacheFastcgi(Fastcgi):
    NAME = "apache"
    SETTING = 'SetEnv {} "{}"'
    EACH = (("apache.sh", SERVE),)


class ApacheFcgid(Fastcgi):
    """Apache's mod_fcgid starts the services. They share a log with the server, whose lines begin
    with the time in brackets."""

    NAME = "fcgid"
    SETTING = ApacheFastcgi.SETTING
    LOG = "error.log"

    def log(self) -> str:
        lines = super().log().splitlines(keepends=True)
        return "".join(line for line in lines if not line.startswith("["))

    def connect(self, script: str) -> None:
        """Apache starts a service at its first request."""


class HaproxyFastcgi(Fastcgi):
    """Each script is a service on a TCP port of its own."""

    NAME = "haproxy"
    SETTING = 'set-param {} "{}"'
    EACH = (("haproxy.sh", SERVE), ("haproxy.cfg", f"backend {PROGRAM}\n(?:.+\n)*"))

    def _start_on_port(self) -> bool:
        self.ports = {script: free_port() for script in self.scripts}
        return super()._start_on_port()

    def lines_for(self, script: str, example: str) -> str:
        return PROGRAM_PORT.sub(str(self.ports[script]), super().lines_for(script, example))

    def connect(self, script: str) -> None:
        socket.create_connection(("127.0.0.1", self.ports[script])).close()
