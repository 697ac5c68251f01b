"""busybox httpd. It needs no configuration file; scripts inherit its environment."""

from servers.server import ServerOfOrdinaryUser


class Busybox(ServerOfOrdinaryUser):
    """It does not set SERVER_PORT."""

    NAME = "busybox"
    SETTING = '{}="{}" \\'

    def script_port(self) -> int:
        return 0
