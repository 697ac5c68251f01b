"""The web servers under which the tests, benchmarks and scripts/demo run scripts.

Each server has a configuration (NAME.conf, NAME.sh) in this folder, or in the folder fastcgi, and a
class that starts it. The guides "Deploying" and "Serving" print the same configurations.
"""

from servers.apache import Apache
from servers.busybox import Busybox
from servers.fastcgi import (
    ApacheFastcgi,
    ApacheFcgid,
    HaproxyFastcgi,
    LighttpdFastcgi,
    LighttpdSpawning,
    LighttpdTarnServe,
    NginxFastcgi,
    NginxTarnServe,
)
from servers.lighttpd import Lighttpd
from servers.nginx import Nginx
from servers.server import Server

__all__ = ["SERVERS", "Apache", "Busybox", "Lighttpd", "Nginx", "Server"]

SERVERS: dict[str, type[Server]] = {
    "lighttpd": Lighttpd,
    "apache": Apache,
    "nginx": Nginx,
    "busybox": Busybox,
    "nginx-fastcgi": NginxFastcgi,
    "nginx-tarn-serve": NginxTarnServe,
    "lighttpd-fastcgi": LighttpdFastcgi,
    "lighttpd-spawning": LighttpdSpawning,
    "lighttpd-tarn-serve": LighttpdTarnServe,
    "apache-fastcgi": ApacheFastcgi,
    "apache-fcgid": ApacheFcgid,
    "haproxy-fastcgi": HaproxyFastcgi,
}
