"""nginx, with fcgiwrap to run scripts."""

from servers.server import ServerOfOrdinaryUser


class Nginx(ServerOfOrdinaryUser):
    """The standard error of scripts goes to fcgiwrap's log."""

    NAME = "nginx"
    SETTING = 'fastcgi_param {} "{}";'
