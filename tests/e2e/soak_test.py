"""A service behind nginx takes a great many requests, and must neither grow nor err.

TARN_SOAK_REQUESTS is their number. They come in steps; the first one warms the service up. Most are
plain GETs on kept connections. One in a hundred is something else: a script that crashes, a visitor
who leaves, a large body, and so on (soak_clients.py). One worker serves the first half of the
steps. Each later step has a reload, and every second one of them a worker that is killed, when only
plain requests run. After each step, the figures of the service are compared with those after the
first step, and with what the clients know (soak_figures.py).
"""

import collections
import itertools
import os
import random
import signal
import threading
import time
import unittest

from chaos_test import CLIENTS, Site
from servers.server import wait_until
from soak_clients import KINDS, LARGE, LARGEST, SECONDS, TIMEOUT, Client, Expected, Kind, Plain
from soak_figures import (
    GROWTH,
    Figures,
    Lines,
    files_of,
    find_problems,
    is_quiet,
    metrics_of,
    take_figures,
)
from visitor import Reply

REQUESTS = int(os.environ.get("TARN_SOAK_REQUESTS", "1000000"))
FEWEST = 5000
WARM_UP = 10_000
STEP = 50_000
PLAIN_CLIENTS = 8
OTHER_CLIENTS = 4
OF_OTHERS = 100  # one request in so many is another one

OPTIONS = (
    *("--status", "unix:socket/status", "--access-log", "access.log", "--children", "8"),
    *("--seconds", str(SECONDS), "--body-size", str(LARGEST)),
)


def steps_of(requests: int) -> list[int]:
    """How many requests there are in each step."""
    warm_up = min(WARM_UP, requests // 5)
    count = max(4, round((requests - warm_up) / STEP))
    return [warm_up] + [(requests - warm_up) // count] * count


class Run:
    """The requests, and what was found out about them so far."""

    def __init__(self, site: Site) -> None:
        self.site = site
        self.supervisor = site.supervisor()
        self.expected = Expected(files_of(site))
        self.numbers = itertools.count()  # of plain requests
        self.chance = random.Random(1)
        self.rotated = 0  # lines of access logs that have been removed

    # ---- A step ----------------------------------------------------------------------------------

    def others(self, count: int) -> list[Kind]:
        """Each kind as often as the others, in random order."""
        kinds = list(itertools.islice(itertools.cycle(KINDS), max(count, len(KINDS))))
        self.chance.shuffle(kinds)
        return [LARGE, *kinds]

    def step(self, requests: int, more: list[Kind], reloads: bool) -> None:
        kinds = collections.deque([*more, *self.others(requests // OF_OTHERS)])
        share = (requests - len(kinds)) // PLAIN_CLIENTS
        plain = [Plain(self.site.server.port) for _ in range(PLAIN_CLIENTS)]
        threads = [
            threading.Thread(target=client.run, args=[list(itertools.islice(self.numbers, share))])
            for client in plain
        ]
        threads += [
            threading.Thread(target=self.ask_others, args=(kinds, self.chance.random()))
            for _ in range(OTHER_CLIENTS)
        ]
        for thread in threads:
            thread.start()
        if reloads:
            self.wait_for_half(plain, share * PLAIN_CLIENTS)
            self.reload()
        for thread in threads:
            thread.join()
        self.expected.add_plain(sum(client.right for client in plain))
        self.expected.problems += [client.problem for client in plain if client.problem]

    def ask_others(self, kinds: collections.deque[Kind], seed: float) -> None:
        client = Client(self.site, random.Random(seed))
        while True:
            try:
                kind = kinds.popleft()
            except IndexError:
                return
            self.expected.ask(kind, client)

    @staticmethod
    def wait_for_half(plain: list[Plain], requests: int) -> None:
        while sum(client.right for client in plain) < requests / 2:
            if any(client.problem for client in plain):
                return
            time.sleep(0.01)

    # ---- Signals ---------------------------------------------------------------------------------

    def reload(self) -> None:
        """As logrotate does."""
        log = self.site.server.path("access.log")
        os.rename(log, log + ".1")
        os.kill(self.supervisor, signal.SIGHUP)
        self.expected.reloads += 1

    def kill(self) -> None:
        """Kills the worker while clients send plain requests."""
        right = collections.Counter[int]()
        lost = collections.Counter[int]()
        done = threading.Event()

        def client(number: int) -> None:
            with self.site.visitor() as visitor:
                while not done.is_set():
                    word = f"{number}-{right[number]}"
                    reply = visitor.ask(f"header&text={word}")
                    if reply == Reply(200, word.encode(), True):
                        right[number] += 1
                    elif reply.whole and reply.status < 500:
                        self.expected.problems.append(f"{word}: {reply}")
                        return
                    else:
                        lost[number] += 1

        def wait_for_answers(count: int) -> None:
            least = sum(right.values()) + count
            wait_until(lambda: sum(right.values()) >= least, "no answers")

        threads = [threading.Thread(target=client, args=[n]) for n in range(CLIENTS)]
        for thread in threads:
            thread.start()
        try:
            wait_for_answers(100)
            os.kill(self.site.worker(), signal.SIGKILL)
            self.expected.kills += 1
            wait_for_answers(100)
        finally:
            done.set()
            for thread in threads:
                thread.join()
        self.expected.add_plain(sum(right.values()))
        self.expected.lost += sum(lost.values())

    # ---- Figures ---------------------------------------------------------------------------------

    def settle(self) -> None:
        """Waits until the service has nothing to do. If it goes on, the checks tell how."""
        for _ in range(2000):
            if is_quiet(self.site, self.expected):
                return
            time.sleep(0.01)

    def figures(self) -> Figures:
        self.settle()
        log = self.site.server.path("access.log")
        if os.path.exists(log + ".1"):
            self.rotated += count_lines(log + ".1")
            os.remove(log + ".1")
        return take_figures(self.site, self.rotated + count_lines(log))

    def end(self) -> list[str]:
        """Ends the service. Returns what it has left."""
        before = self.site.server.log()
        os.kill(self.supervisor, signal.SIGTERM)
        wait_until(lambda: not self.site.server.processes(), "a process stays")
        left = [name for folder in ("socket", "tmp") for name in os.listdir(self.path(folder))]
        problems = [f"files: {name} is left" for name in left]
        said = self.site.server.log().removeprefix(before)
        return problems + ([f"log: {said}"] if said else [])

    def path(self, name: str) -> str:
        return self.site.server.path(name)


def count_lines(path: str) -> int:
    with open(path, "rb") as file:
        return sum(block.count(b"\n") for block in iter(lambda: file.read(1 << 20), b""))


# ---- The report ----------------------------------------------------------------------------------

COLUMNS = "{:>10} {:>9} {:>12} {:>9} {:>13} {:>10} {:>10} {:>8} {:>6}"
HEADER = COLUMNS.format(
    *("requests", "a second", "supervisor", "worker", "descriptors"),
    *("processes", "log lines", "reloads", "kills"),
)


def say(text: str) -> None:
    print(text, flush=True)


def row(figures: Figures, expected: Expected, rate: float) -> str:
    return COLUMNS.format(
        f"{expected.requests():,}",
        f"{rate:,.0f}",
        f"{figures.supervisor:,} KiB",
        f"{figures.worker:,} KiB",
        f"{figures.supervisor_files} and {figures.worker_files}",
        1 + len(figures.children) + len(figures.grandchildren),
        f"{sum(figures.lines.values()):,}",
        expected.reloads,
        expected.kills,
    )


def say_counts(title: str, counts: dict[str, int]) -> None:
    say(f"\n{title}:")
    for name, count in counts.items():
        say(f"{count:>10,}  {name}")


def say_totals(figures: Figures, expected: Expected) -> None:
    say_counts("Requests by kind", expected.kinds)
    say_counts("Lines of the log", dict(sorted(figures.lines.items())))
    failures = {
        name: int(count)
        for name, count in figures.metrics.items()
        if count and name.startswith(("requests_total", "request_failures", "responses_total"))
    }
    say_counts("/metrics", failures)
    say(f"{expected.lost:>10,}  answers lost with killed workers")
    say(f"{figures.access_lines:>10,}  lines of the access log")


# ---- Tests ---------------------------------------------------------------------------------------


class Soak(unittest.TestCase):
    def test_service_neither_grows_nor_errs(self) -> None:
        self.assertGreaterEqual(REQUESTS, FEWEST, "too few requests")
        with Site("nginx, connections kept", *OPTIONS, variables="TMPDIR=tmp") as site:
            site.server.make_folder("tmp")
            wait_until(lambda: metrics_of(site)["ready"] == 1, "the service is not ready")
            problems = self.run_steps(Run(site))
        # Only now, because a site that fails prints all of its log.
        self.assertEqual("\n".join(problems), "")

    @staticmethod
    def run_steps(run: Run) -> list[str]:
        # A worker has a little more memory of its own if it was started by a reload, and the
        # supervisor one descriptor more: the program's file. So the first one is, too.
        run.reload()
        run.settle()
        steps = steps_of(REQUESTS)
        half = len(steps) // 2
        last = len(steps) - 1
        first = None
        say(f"\n{HEADER}")
        begun = time.monotonic()
        for number, requests in enumerate(steps):
            start, before = time.monotonic(), run.expected.requests()
            run.step(requests, [TIMEOUT] if number in (0, last) else [], reloads=number > half)
            if number > half and (last - number) % 2 == 0:
                run.kill()
            rate = (run.expected.requests() - before) / (time.monotonic() - start)
            figures = run.figures()
            first = first or figures
            say(row(figures, run.expected, rate))
            if problems := find_problems(first, figures, run.expected):
                return problems
        seconds = time.monotonic() - begun
        say_totals(figures, run.expected)
        say(
            f"\n{run.expected.requests():,} requests in {seconds:.0f} s. After the first"
            f" {steps[0]:,}, no process grew by more than {GROWTH} KiB."
        )
        return run.end()


class Checks(unittest.TestCase):
    """Each check can fail."""

    def setUp(self) -> None:
        self.expected = Expected({"log"})
        self.expected.add_plain(1000)
        self.expected.failures["signal"] = self.expected.codes["5xx"] = 7
        self.expected.lines["signal 11 ended the script"] = 7
        self.expected.received = 5000
        self.metrics = {
            "requests_total": 1007.0,
            "request_failures_total{reason=signal}": 7.0,
            "request_failures_total{reason=short}": 0.0,
            "request_failures_total{reason=worker_died}": 0.0,
            "responses_total{code=none}": 0.0,
            "responses_total{code=2xx}": 1000.0,
            "responses_total{code=5xx}": 7.0,
            "received_bytes_total": 5000.0,
            "not_fastcgi_total": 0.0,
            "access_log_lost_total": 0.0,
            "worker_starts_total": 1.0,
            "worker_failures_total": 0.0,
            "workers": 1.0,
            "ready": 1.0,
        }
        lines = Lines({"signal 11 ended the script": 7})
        self.first = Figures(900, 1500, 9, 12, [2], [], {"log"}, lines, 1007, self.metrics)

    def assert_found(self, start: str, **changes: object) -> None:
        now = self.first._replace(**changes)  # type: ignore[arg-type]
        (problem,) = find_problems(self.first, now, self.expected)
        self.assertTrue(problem.startswith(start), problem)

    def test_find_nothing_if_all_is_well(self) -> None:
        now = self.first._replace(supervisor=900 + GROWTH, worker=1000)
        self.assertEqual(find_problems(self.first, now, self.expected), [])

    def test_find_growth(self) -> None:
        self.assert_found("memory: the supervisor", supervisor=901 + GROWTH)
        self.assert_found("memory: the worker", worker=1501 + GROWTH)

    def test_find_leftovers(self) -> None:
        self.assert_found("descriptors: the supervisor", supervisor_files=10)
        self.assert_found("descriptors: the worker", worker_files=11)
        self.assert_found("processes: ", children=[2, 3])
        self.assert_found("processes: ", grandchildren=[3])
        self.assert_found("files: ['tmp/x'] more", files={"log", "tmp/x"})
        self.assert_found("files: [] more, ['log'] less", files=set())

    def test_find_lines_of_the_log(self) -> None:
        lines = self.first.lines
        self.assert_found("log: 1 lines instead of 0: x", lines=lines + Lines(["x"]))
        self.assert_found("log: 6 lines instead of 7: signal", lines=lines - Lines(lines.keys()))
        self.assert_found("access log: ", access_lines=1006)

    def test_find_each_wrong_metric(self) -> None:
        for name, value in self.metrics.items():
            for other in (value - 1, value + 1):
                now = self.first._replace(metrics=self.metrics | {name: other})
                problems = find_problems(self.first, now, self.expected)
                self.assertIn(f"metrics: {name} is {other:.0f} instead of {value:.0f}", problems)

    def test_find_wrong_answers(self) -> None:
        self.expected.problems.append("wrong")
        self.assert_found("wrong")
        self.expected.problems.clear()
        self.expected.lost = 1
        self.assert_found("answers: 0 killed workers lost 1")


if __name__ == "__main__":
    unittest.main()
