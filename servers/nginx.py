"""nginx, with fcgiwrap to run scripts."""

from servers.server import ServerOfOrdinaryUser


class Nginx(ServerOfOrdinaryUser):
    """The standard error of scripts goes to fcgiwrap's log."""

    NAME = "nginx"
    SETTING = 'fastcgi_param {} "{}";'

    def _start_on_port(self) -> bool:
        if not super()._start_on_port():
            return False
        self.wait_until_it_listens("fcgiwrap", lambda: self.connect_to_socket("fcgiwrap"))
        return True
