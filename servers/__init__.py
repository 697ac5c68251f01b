"""The web servers under which the tests, benchmarks and scripts/demo run scripts.

Each server has a configuration (NAME.conf, NAME.sh) in this folder and a class that starts it. The
guide "Deploying a script" prints the same configurations.
"""

from servers.apache import Apache
from servers.busybox import Busybox
from servers.lighttpd import Lighttpd
from servers.nginx import Nginx
from servers.server import Server

__all__ = ["SERVERS", "Apache", "Busybox", "Lighttpd", "Nginx", "Server"]

SERVERS: dict[str, type[Server]] = {
    "lighttpd": Lighttpd,
    "apache": Apache,
    "nginx": Nginx,
    "busybox": Busybox,
}
