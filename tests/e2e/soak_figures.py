"""The figures of a service that has taken many requests, and what must hold of them."""

import collections
import contextlib
import http.client
import os
import re
import socket
import time
from collections.abc import Iterator
from pathlib import Path
from typing import NamedTuple

from chaos_test import CLIENTS, Site
from soak_clients import Expected

# What resident memory may be more than after the warm-up, in KiB.
GROWTH = 256

# What a killed worker loses of each client: the request that it runs, and one that nginx repeats.
LOST_OF_A_CLIENT = 2

Lines = collections.Counter[str]
Metrics = dict[str, float]


class Figures(NamedTuple):
    """Taken when the service has nothing to do."""

    supervisor: int  # KiB of resident memory
    worker: int
    supervisor_files: int  # descriptors
    worker_files: int  # without those of connections
    children: list[int]  # of the supervisor, zombies too
    grandchildren: list[int]
    files: set[str]  # in its folder
    lines: Lines  # of its log, without addresses
    access_lines: int
    metrics: Metrics


# ---- Taking them ---------------------------------------------------------------------------------


def resident(pid: int) -> int:
    """KiB, libraries included."""
    found = re.search(r"Rss: +(\d+)", Path(f"/proc/{pid}/smaps_rollup").read_text())
    assert found
    return int(found[1])


def descriptors(pid: int) -> int:
    """The fewest in half a second: the service may not have noticed yet that somebody has left."""

    def count() -> int:
        time.sleep(0.01)
        return len(os.listdir(f"/proc/{pid}/fd"))

    return min(count() for _ in range(50))


def children_of(pid: int) -> list[int]:
    return [int(word) for word in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]


def page(site: Site, path: str) -> str:
    """A page of the service's status."""
    connection = http.client.HTTPConnection("localhost")
    connection.sock = socket.socket(socket.AF_UNIX)
    with contextlib.closing(connection):
        connection.sock.settimeout(60)
        connection.sock.connect(site.server.path("socket/status"))
        connection.request("GET", path)
        return connection.getresponse().read().decode()


def metrics_of(site: Site) -> Metrics:
    """The metrics, without the prefix that all have and without quotes."""
    lines = page(site, "/metrics").replace('"', "").splitlines()
    samples = (line.rsplit(" ", 1) for line in lines if not line.startswith("#"))
    return {name.removeprefix("tarn_serve_"): float(value) for name, value in samples}


def log_lines(site: Site) -> Lines:
    lines = site.server.log().splitlines()
    return Lines(line.removeprefix("tarn-serve: ").partition(": /cgi-bin/")[0] for line in lines)


def files_of(site: Site) -> set[str]:
    """Without what scripts store."""
    folder = Path(site.server.folder)
    names = {str(path.relative_to(folder)) for path in folder.rglob("*")}
    return {name for name in names if not name.startswith("data/")}


def is_quiet(site: Site, expected: Expected) -> bool:
    metrics = metrics_of(site)
    busy = sum(metrics[name] for name in ("children", "queue", "arriving"))
    counted = metrics["requests_total"] >= expected.served()
    return counted and not busy and metrics["workers"] == 1 and len(site.server.processes()) == 2


def take_figures(site: Site, access_lines: int) -> Figures:
    supervisor = site.supervisor()
    children = children_of(supervisor)
    # Those that are more than zombies.
    worker = [pid for pid in children if pid in site.server.processes()][-1]
    metrics = metrics_of(site)
    return Figures(
        resident(supervisor),
        resident(worker),
        descriptors(supervisor),
        descriptors(worker) - int(metrics["connections"]),
        children,
        children_of(worker),
        files_of(site),
        log_lines(site),
        access_lines,
        metrics,
    )


# ---- What must hold ------------------------------------------------------------------------------


def problems_of_memory(first: Figures, now: Figures) -> Iterator[str]:
    for name in ("supervisor", "worker"):
        before, after = getattr(first, name), getattr(now, name)
        if after > before + GROWTH:
            yield f"memory: the {name} has grown from {before} to {after} KiB"


def problems_of_leftovers(first: Figures, now: Figures, files: set[str]) -> Iterator[str]:
    for name in ("supervisor", "worker"):
        before, after = getattr(first, f"{name}_files"), getattr(now, f"{name}_files")
        if after != before:
            yield f"descriptors: the {name} had {before}, and has {after}"
    if len(now.children) != 1 or now.grandchildren:
        yield f"processes: {now.children} of the supervisor, {now.grandchildren} of the worker"
    if now.files != files:
        yield f"files: {sorted(now.files - files)} more, {sorted(files - now.files)} less"


def problems_of_log(now: Figures, expected: Expected) -> Iterator[str]:
    wanted = expected.lines + Lines({"signal 9 ended a worker": expected.kills})
    for line in sorted(now.lines.keys() | wanted.keys()):
        if now.lines[line] != wanted[line]:
            yield f"log: {now.lines[line]} lines instead of {wanted[line]}: {line}"


def expected_metrics(now: Figures, expected: Expected) -> Metrics:
    labeled = ("request_failures_total{", "responses_total{")
    wanted: Metrics = {name: 0 for name in now.metrics if name.startswith(labeled)}
    for reason, count in expected.failures.items():
        if reason != "none":
            wanted[f"request_failures_total{{reason={reason}}}"] = count
    for code, count in expected.codes.items():
        wanted[f"responses_total{{code={code}}}"] = count
    return wanted | {
        "requests_total": expected.served(),
        "received_bytes_total": expected.received,
        "not_fastcgi_total": 0,
        "access_log_lost_total": 0,
        "worker_starts_total": 1 + expected.reloads + expected.kills,
        "worker_failures_total": expected.kills,
        "workers": 1,
        "ready": 1,
    }


def problems_of_metrics(now: Figures, expected: Expected) -> Iterator[str]:
    """Each figure is exact, but for requests under way when a worker was killed."""
    slack = expected.kills * LOST_OF_A_CLIENT * CLIENTS
    died = "request_failures_total{reason=worker_died}"
    loose = ("requests_total", died, "responses_total{code=2xx}", "responses_total{code=none}")
    for name, wanted in expected_metrics(now, expected).items():
        found = now.metrics.get(name, -1)
        if abs(found - wanted) > (slack if name in loose else 0):
            yield f"metrics: {name} is {found:.0f} instead of {wanted:.0f}"
    logged = now.metrics["requests_total"] - now.metrics[died]
    if abs(now.access_lines - logged) > slack:
        yield f"access log: {now.access_lines} lines of {logged:.0f} requests"
    if expected.lost > slack:
        yield f"answers: {expected.kills} killed workers lost {expected.lost}"


def find_problems(first: Figures, now: Figures, expected: Expected) -> list[str]:
    """Compares figures with those after the warm-up, and with what is known."""
    return [
        *expected.problems,
        *problems_of_memory(first, now),
        *problems_of_leftovers(first, now, expected.files),
        *problems_of_log(now, expected),
        *problems_of_metrics(now, expected),
    ]
