"""nginx, with fcgiwrap to run scripts."""

from servers.server import ServerOfOrdinaryUser


class Nginx(ServerOfOrdinaryUser):
    """What scripts write to standard error is in fcgiwrap's log."""

    NAME = "nginx"
    SETTING = 'fastcgi_param {} "{}";'
