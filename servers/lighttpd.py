"""lighttpd. It inherits a listening socket, so clients can connect at once."""

import os
import socket

from servers.server import Server

# The first descriptor that LISTEN_FDS passes on, as with systemd.
LISTENING = 3


class Lighttpd(Server):
    """Runs as the user who runs the tests, with links to the scripts."""

    NAME = "lighttpd"
    SETTING = '"{}" => "{}",'
    ADDITION = 'server.systemd-socket-activation = "enable"\n'

    def _start(self) -> None:
        with socket.create_server(("127.0.0.1", self.port), backlog=128) as listening:
            self.port = listening.getsockname()[1]
            self._configure()
            for name, script in self.scripts.items():
                os.symlink(script, self.path(f"www/cgi-bin/{name}"))
            self._spawn(inherit=(listening.fileno(), LISTENING))
