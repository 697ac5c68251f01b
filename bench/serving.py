"""Ways to run a script behind a web server, measured side by side: CGI and FastCGI services."""

import contextlib
import glob
import os
import re
import resource
import shutil
import signal
import socket
import statistics
import subprocess
import tempfile
import time
from collections.abc import Callable, Iterator
from typing import NamedTuple

import measure
import report
from report import Report, Target
from servers.server import free_port, wait_until

QUERY = "name=Ada+Lovelace&city=London&colour=dark+red"
ANSWER = "name=Ada Lovelace\ncity=London\ncolour=dark red\n"
CLIENTS = (8, 64)
UPLOAD = 64 * report.MIB

GO = r"""
package main

import (
  "fmt"
  "net"
  "net/http"
  "net/http/fcgi"
  "os"
)

func main() {
  listener, err := net.FileListener(os.Stdin)
  if err != nil {
    panic(err)
  }
  fcgi.Serve(listener, http.HandlerFunc(func(w http.ResponseWriter, r *http.Request) {
    w.Header().Set("Content-Type", "text/plain")
    q := r.URL.Query()
    fmt.Fprintf(w, "name=%s\ncity=%s\ncolour=%s\n", q.Get("name"), q.Get("city"), q.Get("colour"))
  }))
}
"""
PHP = r"""<?php
header("Content-Type: text/plain");
foreach (["name", "city", "colour"] as $name) echo "$name=", $_GET[$name], "\n";
"""
PHP_POOL = """[global]
error_log = {folder}/php.log
daemonize = no
[www]
listen = {folder}/php
listen.mode = 0666
listen.backlog = 4096
pm = static
pm.max_children = 4
pm.max_requests = 0
"""
NGINX = """daemon off;
pid {folder}/nginx.pid;
error_log {folder}/nginx.log;
worker_processes 1;
events {{ worker_connections 4096; }}
http {{
  access_log off;
  client_body_temp_path {folder}/spool;
  fastcgi_temp_path {folder}/spool;
  proxy_temp_path {folder}/spool;
  scgi_temp_path {folder}/spool;
  uwsgi_temp_path {folder}/spool;
  client_max_body_size 0;
  client_body_buffer_size 128k;
  keepalive_requests 1000000;
  server {{
    listen 127.0.0.1:{port} backlog=4096;
{locations}
  }}
}}
"""
LOCATION = """    location = /{name} {{
      include /etc/nginx/fastcgi_params;
      fastcgi_param SCRIPT_FILENAME {script};
      fastcgi_request_buffering off;
      fastcgi_pass unix:{folder}/{name};
    }}"""
LIGHTTPD = """server.document-root = "{folder}/www"
server.bind = "127.0.0.1"
server.port = {port}
server.errorlog = "{folder}/lighttpd.log"
server.max-connections = 512
server.upload-dirs = ( "{folder}/spool" )
server.modules = ( "mod_cgi" )
cgi.assign = ( "" => "" )
"""
APACHE = """ServerRoot /etc/apache2
LoadModule mpm_event_module /usr/lib/apache2/modules/mod_mpm_event.so
LoadModule cgid_module /usr/lib/apache2/modules/mod_cgid.so
LoadModule authz_core_module /usr/lib/apache2/modules/mod_authz_core.so
ServerName localhost
Listen 127.0.0.1:{port}
PidFile {folder}/apache.pid
ErrorLog {folder}/apache.log
ScriptSock {folder}/cgid
DocumentRoot {folder}/www
User www-data
Group www-data
<Directory {folder}/www>
  Options +ExecCGI
  SetHandler cgi-script
  Require all granted
</Directory>
"""


class Way(NamedTuple):
    """A way to run the script. `isolates` is what a request cannot do to the next one."""

    name: str
    command: Callable[[str], list[str]] | None  # of a FastCGI service; its socket is descriptor 0
    isolates: str
    server: str = "nginx"
    script: str = "serve"


def program(name: str) -> str:
    return os.path.join(measure.PROGRAMS, name)


# What a process for each request gives: memory, crashes and open files stay in it.
PROCESS, NOTHING = "a process", "nothing"
WAYS = [
    Way("fcgiwrap", lambda folder: ["fcgiwrap", "-c", "4"], PROCESS),
    Way(
        "fcgiwrap, static",
        lambda folder: ["fcgiwrap", "-c", "4"],
        PROCESS,
        script="serve-static",
    ),
    Way("fcgiwrap, musl", lambda folder: ["fcgiwrap", "-c", "4"], PROCESS, script="serve-musl"),
    Way("tarn_serve", lambda folder: [program("serve")], PROCESS),
    Way("tarn_serve, static", lambda folder: [program("serve-static")], PROCESS),
    Way("tarn_serve, musl", lambda folder: [program("serve-musl")], PROCESS),
    Way("tarn-serve command", lambda folder: [tool(), "--", program("serve")], PROCESS),
    Way("bare fork loop", lambda folder: [program("serve-bare")], "memory"),
    Way("libfcgi", lambda folder: [program("serve-libfcgi")], NOTHING),
    Way("Go", lambda folder: [os.path.join(folder, "serve-go")], NOTHING),
    Way(
        "php-fpm",
        lambda folder: [php_fpm(), "-F", "-R", "-y", os.path.join(folder, "php.conf")],
        "globals",
        script="serve.php",
    ),
    Way("lighttpd mod_cgi", None, PROCESS, "lighttpd"),
    Way("Apache mod_cgid", None, PROCESS, "apache"),
]


def tool() -> str:
    return os.path.join(measure.ROOT, "build/bench/tools/tarn-serve")


def php_fpm() -> str:
    found = shutil.which("php-fpm8.2") or shutil.which("php-fpm")
    if not found:
        raise SystemExit("scripts/bench: php-fpm is not installed")
    return str(found)


def socket_name(way: Way) -> str:
    return "php" if way.name == "php-fpm" else re.sub("[^a-z-]+", "-", way.name.lower())


class Running(NamedTuple):
    address: str
    process: subprocess.Popen[bytes]


# ---- Starting them -------------------------------------------------------------------------------


def listening(path: str) -> socket.socket:
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    os.chmod(path, 0o666)
    listener.listen(4096)
    return listener


@contextlib.contextmanager
def started(command: list[str], **options) -> Iterator[subprocess.Popen[bytes]]:
    """Runs a command in a session of its own; ends all of it."""
    process = subprocess.Popen(command, start_new_session=True, **options)
    try:
        yield process
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGTERM)
        process.wait(timeout=30)
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)


@contextlib.contextmanager
def service(way: Way, folder: str) -> Iterator[subprocess.Popen[bytes]]:
    assert way.command
    command = way.command(folder)
    path = os.path.join(folder, socket_name(way))
    with contextlib.suppress(FileNotFoundError):
        os.remove(path)
    with open(os.path.join(folder, "log"), "ab") as log:
        if way.name == "php-fpm":
            with started(command, stderr=log) as process:
                wait_until(lambda: os.path.exists(path), "php-fpm does not listen")
                yield process
        else:
            with listening(path) as listener:
                # Programs load their libraries from their folder.
                with started(command, stdin=listener, stderr=log, cwd=measure.PROGRAMS) as process:
                    yield process


def answers(address: str) -> bool:
    command = ["curl", "-q", "-s", "--noproxy", "*", "-m", "10", f"{address}?{QUERY}"]
    return subprocess.run(command, capture_output=True, check=False).stdout.decode() == ANSWER


@contextlib.contextmanager
def web_server(kind: str, folder: str) -> Iterator[tuple[str, subprocess.Popen[bytes]]]:
    """The address and the process of a web server."""
    port = free_port()
    locations = "\n".join(
        LOCATION.format(
            name=socket_name(way),
            folder=folder,
            script=os.path.join(folder, "www", way.script),
        )
        for way in WAYS
        if way.command
    )
    texts = {"nginx": NGINX, "lighttpd": LIGHTTPD, "apache": APACHE}
    path = os.path.join(folder, f"{kind}.conf")
    with open(path, "w", encoding="ascii") as file:
        file.write(texts[kind].format(folder=folder, port=port, locations=locations))
    commands = {
        "nginx": ["nginx", "-c", path, "-p", folder],
        "lighttpd": ["lighttpd", "-D", "-f", path],
        "apache": ["apache2", "-DFOREGROUND", "-f", path],
    }
    with started(commands[kind], cwd=measure.PROGRAMS) as process:
        yield f"http://127.0.0.1:{port}", process


@contextlib.contextmanager
def running(way: Way, folder: str) -> Iterator[Running]:
    with contextlib.ExitStack() as stack:
        base, server = stack.enter_context(web_server(way.server, folder))
        process = stack.enter_context(service(way, folder)) if way.command else server
        address = f"{base}/{socket_name(way) if way.command else 'serve'}"
        wait_until(lambda: answers(address), f"{way.name} does not answer")
        yield Running(address, process)


@contextlib.contextmanager
def prepared() -> Iterator[str]:
    """A folder with the script, and the programs of other languages."""
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        for name in ("www", "spool"):
            os.mkdir(os.path.join(folder, name))
        os.chmod(os.path.join(folder, "spool"), 0o777)
        # A server runs a script in its folder, where the script finds its libraries.
        for path in [
            *map(program, ("serve", "serve-static", "serve-musl")),
            *glob.glob(program("lib*_here.so")),
        ]:
            shutil.copy(path, os.path.join(folder, "www"))
        with open(os.path.join(folder, "www/serve.php"), "w", encoding="ascii") as file:
            file.write(PHP)
        with open(os.path.join(folder, "php.conf"), "w", encoding="ascii") as file:
            file.write(PHP_POOL.format(folder=folder))
        source = os.path.join(folder, "serve.go")
        with open(source, "w", encoding="ascii") as file:
            file.write(GO)
        subprocess.run(
            ["go", "build", "-o", os.path.join(folder, "serve-go"), source],
            check=True,
            env=os.environ | {"GOCACHE": os.path.join(folder, "gocache"), "GO111MODULE": "off"},
        )
        yield folder


# ---- Measuring them ------------------------------------------------------------------------------


class Load(NamedTuple):
    rate: float  # requests a second
    p50: float  # milliseconds
    p99: float
    cpu: float  # milliseconds of all processors a request, without the clients


def processor_time() -> float:
    """Seconds that the processors of this machine have worked."""
    with open("/proc/stat", encoding="ascii") as file:
        words = [int(word) for word in file.readline().split()[1:]]
    user, nice, system, _, _, interrupts, soft = words[:7]
    return (user + nice + system + interrupts + soft) / os.sysconf("SC_CLK_TCK")


def of_clients() -> float:
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


# `keep` asks for kept connections. Apache closes some under load, which ab takes for failures.
def load(address: str, clients: int, requests: int, keep: bool = True) -> Load:
    with tempfile.NamedTemporaryFile("r") as percentiles:
        before, ours = processor_time(), of_clients()
        done = subprocess.run(
            ["ab", "-q", "-r", "-c", str(clients), "-n", str(requests), *(["-k"] if keep else [])]
            + ["-e", percentiles.name, f"{address}?{QUERY}"],
            capture_output=True,
            text=True,
            check=False,
        )
        spent = processor_time() - before - (of_clients() - ours)
        rows = dict(line.strip().split(",") for line in percentiles.readlines()[1:])
    if done.returncode != 0:
        raise SystemExit(f"{done.stdout}{done.stderr}\nscripts/bench: ab failed at {address}")
    found = {
        name: float(re.search(rf"^{name}: +([0-9.]+)", done.stdout, re.MULTILINE)[1])
        for name in ("Failed requests", "Requests per second")
    }
    if found["Failed requests"] or "Non-2xx" in done.stdout:
        raise SystemExit(f"{done.stdout}\nscripts/bench: wrong answers from {address}")
    rate = found["Requests per second"]
    return Load(rate, float(rows["50"]), float(rows["99"]), spent / requests * 1e3)


def memory(pid: int) -> int:
    """Bytes of a process and of all below it; shared pages count in part."""
    total, waiting = 0, [pid]
    while waiting:
        number = waiting.pop()
        with contextlib.suppress(OSError):
            with open(f"/proc/{number}/task/{number}/children", encoding="ascii") as file:
                waiting += [int(word) for word in file.read().split()]
            with open(f"/proc/{number}/smaps_rollup", encoding="ascii") as file:
                total += 1024 * int(re.search(r"^Pss: +([0-9]+)", file.read(), re.MULTILINE)[1])
    return total


def middle(loads: list[Load]) -> Load:
    return Load(*(statistics.median(column) for column in zip(*loads)))


def s1(options) -> Report:
    rounds = options.rounds(5, 1)
    requests = 300 if options.quick else 4000
    taken = {(way.name, clients): [] for way in WAYS for clients in CLIENTS}
    rest, busy = {}, {}
    with prepared() as folder:
        for _ in range(rounds):
            for way in WAYS:
                with running(way, folder) as service_running:
                    rest[way.name] = memory(service_running.process.pid)
                    for clients in CLIENTS:
                        number = (
                            requests // 4 if way.command is None or "wrap" in way.name else requests
                        )
                        taken[way.name, clients].append(
                            load(service_running.address, clients, number, way.server == "nginx")
                        )
                    busy[way.name] = max(
                        busy.get(way.name, 0), busy_memory(service_running, requests // 4)
                    )
    loads = {key: middle(samples) for key, samples in taken.items()}
    rows = [["", *(f"requests/s, {n} clients" for n in CLIENTS), "p50, ms", "p99, ms"]]
    rows[0] += ["CPU, ms", "at rest, MiB", "busy, MiB", "a request is apart by"]
    for way in WAYS:
        few, many = loads[way.name, CLIENTS[0]], loads[way.name, CLIENTS[1]]
        rows.append(
            [
                way.name,
                f"{few.rate:,.0f}",
                f"{many.rate:,.0f}",
                f"{many.p50:.0f}",
                f"{many.p99:.0f}",
            ]
            + [f"{many.cpu:.2f}", *(report.mebibytes(of[way.name]) for of in (rest, busy))]
            + [way.isolates]
        )
    text = (
        f"{rounds} rounds of {requests:,} requests, a quarter of that for CGI, over connections "
        "that nginx keeps and the other servers do not; times and processor time with 64 clients. "
        "Processor time is that of the "
        f"whole machine without the clients.\n\n{report.table(rows)}"
    )
    return Report(
        "a GET with 3 fields behind nginx",
        text,
        s1_targets(loads),
        {
            "loads": {
                f"{name}, {clients}": found._asdict() for (name, clients), found in loads.items()
            }
        },
    )


def busy_memory(service_running: Running, requests: int) -> int:
    """The most that a service needs while 64 clients wait."""
    command = ["ab", "-q", "-k", "-r", "-c", "64", "-n", str(requests)]
    clients = subprocess.Popen(
        [*command, f"{service_running.address}?{QUERY}"], stdout=subprocess.DEVNULL
    )
    most = 0
    while clients.poll() is None:
        most = max(most, memory(service_running.process.pid))
        time.sleep(0.02)
    return most


def s1_targets(loads: dict[tuple[str, int], Load]) -> list[Target]:
    targets = []
    for clients in CLIENTS:
        of = {name: load.rate for (name, number), load in loads.items() if number == clients}
        targets += [
            Target(
                f"tarn_serve, × fcgiwrap, {clients} clients",
                of["tarn_serve"] / of["fcgiwrap"],
                4,
                at_least=True,
            ),
            Target(
                f"tarn_serve, static, × fcgiwrap, {clients} clients",
                of["tarn_serve, static"] / of["fcgiwrap"],
                5,
                at_least=True,
            ),
            Target(
                f"tarn_serve, × bare fork loop, {clients} clients",
                of["tarn_serve"] / of["bare fork loop"],
                0.85,
                at_least=True,
            ),
        ]
    many = loads["tarn_serve", 64]
    targets.append(Target("tarn_serve, p99 × p50, 64 clients", many.p99 / many.p50, 3))
    return targets


# ---- Large bodies, many requests -----------------------------------------------------------------


def upload(address: str, path: str) -> float:
    command = ["curl", "-q", "-sSf", "--noproxy", "*", "-m", "100", "-o", "/dev/null"]
    command += [
        "-w",
        "%{time_total}",
        "-H",
        "Content-Type: application/octet-stream",
        "-H",
        "Expect:",
    ]
    done = subprocess.run(
        [*command, "--data-binary", f"@{path}", address], capture_output=True, text=True, check=True
    )
    return float(done.stdout)


def s2(options) -> Report:
    rounds = options.rounds(9, 1)
    names = ("lighttpd mod_cgi", "tarn_serve", "fcgiwrap")
    times = {name: [] for name in names}
    most = {}
    with prepared() as folder:
        path = os.path.join(folder, "body")
        with open(path, "wb") as file:
            file.write(os.urandom(UPLOAD))
        for _ in range(rounds):
            for way in WAYS:
                if way.name in names:
                    with running(way, folder) as service_running:
                        times[way.name].append(upload(service_running.address, path))
                        most[way.name] = memory(service_running.process.pid)
    medians = {name: statistics.median(taken) for name, taken in times.items()}
    base = medians[names[0]]
    rows = [["", "ms", f"× {names[0]}", "afterwards, MiB"]]
    for name in names:
        rows.append(
            [name, report.milliseconds(medians[name]), f"{medians[name] / base:.2f}"]
            + [report.mebibytes(most[name])]
        )
    return Report(
        "an upload of 64 MiB",
        f"{rounds} rounds, each through a server that has just started.\n\n{report.table(rows)}",
        [Target("tarn_serve, × lighttpd mod_cgi", medians["tarn_serve"] / base, 1.2)],
        {"times": times},
    )


def resident(pid: int) -> int:
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return 1024 * int(re.search(r"^VmRSS:\s+([0-9]+)", file.read(), re.MULTILINE)[1])


def s3(options) -> Report:
    way = next(way for way in WAYS if way.name == "tarn_serve")
    rows = [["requests", "supervisor, MiB", "worker, MiB"]]
    with prepared() as folder, running(way, folder) as service_running:
        pid = service_running.process.pid
        done = 0
        for total in (1, 1000, 10000):
            if total > done:
                load(service_running.address, min(8, total - done), total - done)
                done = total
            with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
                worker = int(file.read().split()[0])
            sizes = [resident(pid), resident(worker)]
            rows.append([f"{total:,}", *map(report.mebibytes, sizes)])
    return Report(
        "memory of the service",
        f"Resident memory, libraries included.\n\n{report.table(rows)}",
        [Target("worker after 10,000 requests", sizes[1] / report.MIB, 4, " MiB")],
        {},
    )


ALL = {"S1": s1, "S2": s2, "S3": s3}
