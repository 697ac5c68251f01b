"""What a service counts, and what it tells about itself."""

import errno
import json
import os
import re
import signal
import socket
import subprocess
import tempfile
import threading
import unittest
from collections.abc import Callable
from pathlib import Path
from typing import Any, NamedTuple

from fastcgi import (
    ABORT,
    PARAMS,
    SANITIZED,
    Service,
    begin,
    children_of,
    error_text,
    pair,
    parameters,
    record,
    request,
    stream,
    wait_for_end,
    wait_until,
)
from servers.server import free_port

LONG = "sleep=600000"
STATUS = ("--status", "unix:{folder}/status")
JSON = ("--access-log", "{folder}/access", "--access-log-format", "json")

Metrics = dict[str, float]


# ---- Reading metrics -----------------------------------------------------------------------------

NAME = r"[a-zA-Z_:][a-zA-Z0-9_:]*"
SAMPLE = re.compile(rf'({NAME})(?:\{{([a-zA-Z_][a-zA-Z0-9_]*)="([^"\\\n]*)"\}})? (\S+)')


def family_of(sample: str, kind: str) -> str:
    """The metric that a sample is of."""
    if kind == "histogram":
        return re.sub("_(bucket|sum|count)$", "", sample)
    return sample


def parse_metrics(text: str) -> Metrics:
    """Reads the exposition format, stricter than Prometheus does."""
    assert text.endswith("\n")
    metrics: Metrics = {}
    families: set[str] = set()
    helped = name = kind = ""
    for line in text[:-1].split("\n"):
        if line.startswith("# HELP "):
            _, _, helped, explanation = line.split(" ", 3)
            assert explanation.endswith("."), line
            assert helped not in families, f"{helped} comes twice"
            families.add(helped)
            continue
        if line.startswith("# TYPE "):
            _, _, name, kind = line.split(" ")
            assert name == helped, line
            assert kind in ("counter", "gauge", "histogram"), line
            assert re.fullmatch(NAME, name) and name.startswith("tarn_serve_"), line
            assert (kind == "counter") == name.endswith("_total"), line
            continue
        match = SAMPLE.fullmatch(line)
        assert match, line
        sample, label, value, number = match.groups()
        assert family_of(sample, kind) == name, line
        key = f"{sample}{{{label}={value}}}" if label else sample
        assert key not in metrics, f"{key} comes twice"
        assert re.fullmatch(r"\d+(\.\d+)?", number), line
        metrics[key] = float(number)
    for family in families:
        assert any(key.startswith(family) for key in metrics), f"{family} has no samples"
    for family in ("request_duration", "queue_duration"):
        check_histogram(metrics, f"tarn_serve_{family}_seconds")
    return metrics


def check_histogram(metrics: Metrics, name: str) -> None:
    bounds = []
    counts = []
    for key, count in metrics.items():
        if match := re.fullmatch(rf"{name}_bucket\{{le=(.*)\}}", key):
            bounds.append(float(match[1]))
            counts.append(count)
    assert len(bounds) > 10 and bounds[-1] == float("inf"), bounds
    assert bounds == sorted(set(bounds)) and counts == sorted(counts), (bounds, counts)
    assert counts[-1] == metrics[f"{name}_count"]
    least = sum(
        low * (count - before)
        for low, count, before in zip([0.0, *bounds], counts, [0.0, *counts], strict=False)
    )
    assert metrics[f"{name}_sum"] >= least - 1e-6, (metrics[f"{name}_sum"], least)


class Page(NamedTuple):
    status: int
    header: str
    body: str


def connect(service: Service) -> socket.socket:
    """Connects to the address of the status, as soon as the service listens there."""
    client = socket.socket(socket.AF_UNIX)
    client.settimeout(60)

    def listens() -> bool:
        try:
            client.connect(service.path("status"))
            return True
        except (FileNotFoundError, ConnectionRefusedError):
            return False

    wait_until(listens, f"no socket: {service.log()}")
    return client


def receive_page(client: socket.socket) -> Page:
    received = b""
    while more := client.recv(65536):
        received += more
    header, _, body = received.decode().partition("\r\n\r\n")
    size = re.search(r"(?m)^Content-Length: (\d+)\r?$", header)
    assert size and int(size[1]) == len(body), received
    return Page(int(header.split()[1]), header, body)


def get(service: Service, path: str) -> Page:
    with connect(service) as client:
        client.sendall(f"GET {path} HTTP/1.1\r\nHost: localhost\r\n\r\n".encode())
        return receive_page(client)


def metrics_of(service: Service) -> Metrics:
    """The metrics, without the prefix that all have."""
    page = get(service, "/metrics")
    assert page.status == 200, page
    assert "\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n" in page.header
    metrics = parse_metrics(page.body)
    return {key.removeprefix("tarn_serve_"): value for key, value in metrics.items()}


def wait_until_ready(service: Service) -> None:
    wait_until(lambda: get(service, "/ready").body == "ready\n", "the service is not ready")


def failures_of(metrics: Metrics) -> dict[str, int]:
    """How many requests failed, by the reason, without zeros."""
    found = {}
    for key, value in metrics.items():
        if match := re.fullmatch(r"request_failures_total\{reason=(.*)\}", key):
            found[match[1]] = int(value)
    assert len(found) > 15, found
    return {reason: count for reason, count in found.items() if count}


def wait_for_metric(service: Service, name: str, value: float) -> Metrics:
    seen: Metrics = {}

    def is_there() -> bool:
        seen.update(metrics_of(service))
        return seen[name] == value

    wait_until(is_there, f"{name} is not {value}")
    return seen


def entries(service: Service) -> list[dict[str, Any]]:
    """The lines of the access log in JSON."""
    lines = Path(service.path("access")).read_text(encoding="ascii").split("\n")
    assert lines.pop() == "", lines
    return [json.loads(line) for line in lines]


# ---- Failures ------------------------------------------------------------------------------------


def leave(service: Service, count: int = 1) -> None:
    """Leaves when so many scripts have begun."""
    with service.client() as client:
        client.send(request(f"header&text=x&flush&note=begun&{LONG}"))
        service.wait_for_note("begun", count)
        next(client.records())


def leave_within_the_body(service: Service) -> None:
    with service.client() as client:
        client.send(request("header&body", b"text")[:-12])
        wait_for_metric(service, "arriving", 1)


def abort(service: Service) -> None:
    with service.client() as client:
        client.send(request(f"header&text=x&flush&{LONG}"))
        next(client.records())
        client.send(record(ABORT))
        assert client.answer().ended


def abort_before_the_script(service: Service) -> None:
    with service.client() as client:
        client.send(request("header", b"body")[:-8] + record(ABORT))
        assert client.answer().ended


def say_nothing(service: Service) -> None:
    with service.client() as client:
        client.send(request("header", b"body")[:-8])
        assert client.is_closed()


def read_nothing(service: Service) -> None:
    with service.client(receive_buffer=4096) as client:
        client.send(request("header&write=10000000"))
        service.wait_for_log("does not read")


def speak_something_else(service: Service) -> None:
    with service.client() as client:
        client.send(request("header", b"body")[:-8] + b"GET / HTTP/1.1\r\n\r\n")
        assert client.is_closed()


def send_malformed_parameters(service: Service) -> None:
    with service.client() as client:
        client.send(begin() + stream(PARAMS, parameters("header") + pair(b"A=B", b"x")))
        assert client.answer().ended


def ask(query: str, body: bytes = b"", **more: str) -> Callable[[Service], None]:
    def ask_it(service: Service) -> None:
        service.ask(query, body, more)

    return ask_it


class Case(NamedTuple):
    reason: str
    status: int
    do: Callable[[Service], None]
    options: tuple[str, ...] = ()


CASES = [
    Case("body_size", 413, ask("header", b"12345"), ("--body-size", "4")),
    Case("too_many_parameters", 431, ask("header"), ("--parameters", "2")),
    Case("malformed", 400, send_malformed_parameters),
    Case("body_cut_off", 400, ask("header", b"1234", CONTENT_LENGTH="5")),
    Case("not_arrived", 408, say_nothing, ("--receive-seconds", "1")),
    Case("time", 504, ask(LONG), ("--seconds", "1")),
    Case("time", 200, ask(f"header&flush&{LONG}"), ("--seconds", "3")),
    Case("visitor_left", 200, leave),
    Case("visitor_left", 499, leave_within_the_body),
    Case("aborted", 200, abort),
    Case("aborted", 499, abort_before_the_script),
    Case("not_read", 200, read_nothing, ("--send-seconds", "1")),
    Case("not_fastcgi", 400, speak_something_else),
    Case("not_a_header", 500, ask("text=Hello\n\n")),
    Case("signal", 500, ask("signal=11")),
    Case("signal", 200, ask("header&flush&signal=6")),
    Case("no_response", 500, ask("exit=3")),
    Case("short", 200, ask("length=10&text=half")),
    Case("status", 200, ask("header&text=all&exit=200")),
]


class Failures(unittest.TestCase):
    def check(self, service: Service, case: Case) -> None:
        """One request fails, another does not."""
        case.do(service)
        metrics = wait_for_metric(service, "requests_total", 1)
        self.assertEqual(failures_of(metrics), {case.reason: 1})
        (entry,) = entries(service)
        self.assertEqual((entry["failure"], entry["status"]), (case.reason, case.status), entry)
        self.assertEqual(metrics[f"responses_total{{code={case.status // 100}xx}}"], 1)
        for name in ("request_duration_seconds_count", "connections_total", "children_limit"):
            self.assertGreaterEqual(metrics[name], 1, name)
        self.assertEqual(metrics["sent_bytes_total"], entry["sent"])
        self.assertEqual(metrics["received_bytes_total"], entry["received"])
        self.assertAlmostEqual(metrics["request_duration_seconds_sum"], entry["seconds"], places=5)

        page = get(service, "/status")
        self.assertRegex(page.body, rf"(?m)^    {case.reason} +1  [a-z]")
        self.assertRegex(page.body, r"(?m)^  requests +1$")
        self.assertRegex(page.body, r"(?m)^  failures +1$")

    def test_of_each_kind_are_counted_and_logged_once(self) -> None:
        for case in CASES:
            with self.subTest(case.reason, status=case.status):
                with Service(*STATUS, *JSON, *case.options) as service:
                    self.check(service, case)

    @unittest.skipUnless("FAILING_LIBRARY" in os.environ, "needs a library that can be preloaded")
    def test_of_system_calls_are_counted(self) -> None:
        for reason, status, call in (
            ("not_started", 503, f"fork {errno.EAGAIN}"),
            ("memory", 500, f"epoll_ctl {errno.ENOMEM}"),
        ):
            file = Path(f"/tmp/tarn-failing-{os.getpid()}")
            self.addCleanup(file.unlink, missing_ok=True)
            environment = {"LD_PRELOAD": os.environ["FAILING_LIBRARY"], "FAILING": str(file)}
            with self.subTest(reason), Service(*STATUS, *JSON, environment=environment) as service:
                with service.client() as client:
                    # The connection is watched before calls fail.
                    self.assertTrue(client.ask("header", keep=True).ended)
                    file.write_text(call)
                    self.assertTrue(client.ask(f"header&{LONG}", keep=True).ended)
                    file.unlink()
                metrics = wait_for_metric(service, "requests_total", 2)
                self.assertEqual(failures_of(metrics), {reason: 1})
                self.assertEqual(
                    [(entry["failure"], entry["status"]) for entry in entries(service)],
                    [(None, 200), (reason, status)],
                )

    def test_by_a_full_queue_are_counted(self) -> None:
        options = ("--children", "1", "--queue", "0")
        with Service(*STATUS, *JSON, *options) as service, service.client() as client:
            client.send(request(f"header&note=begun&{LONG}"))
            service.wait_for_note("begun")
            for _ in range(3):
                self.assertTrue(service.ask("header").output.startswith(b"Status: 503 "))
            client.send(record(ABORT))
            self.assertTrue(client.answer().ended)
            metrics = wait_for_metric(service, "requests_total", 4)
            self.assertEqual(failures_of(metrics), {"too_many_requests": 3, "aborted": 1})
            self.assertEqual(metrics["responses_total{code=5xx}"], 3)
            # Only one of them had a child.
            self.assertEqual(metrics["queue_duration_seconds_count"], 1)
            self.assertEqual(
                [entry["process"] is None for entry in entries(service)], [True] * 3 + [False]
            )

    def test_of_a_worker_are_those_of_its_requests(self) -> None:
        with Service(*STATUS) as service:
            for _ in range(5):
                self.assertTrue(service.ask("header").ended)
            with service.client() as client, service.client() as arriving:
                client.send(request(f"header&flush&note=begun&{LONG}"))
                arriving.send(request("header", b"body")[:-9])
                service.wait_for_note("begun")
                wait_for_metric(service, "arriving", 1)
                os.kill(children_of(service.process.pid)[0], signal.SIGKILL)
                self.assertFalse(client.answer().ended)
            self.assertTrue(service.ask("header").ended)
            metrics = wait_for_metric(service, "requests_total", 8)
            self.assertEqual(failures_of(metrics), {"worker_died": 2})
            self.assertEqual(metrics["worker_failures_total"], 1)
            self.assertEqual(metrics["worker_starts_total"], 2)
            wait_for_metric(service, "children", 0)
            self.assertEqual(metrics["request_duration_seconds_count"], 6)
            self.assertEqual(metrics["responses_total{code=none}"], 2)

    def test_outside_a_request_are_no_requests(self) -> None:
        with Service(*STATUS) as service, service.client() as client:
            client.send(b"GET / HTTP/1.1\r\n\r\n")
            self.assertTrue(client.is_closed())
            metrics = wait_for_metric(service, "not_fastcgi_total", 1)
            self.assertEqual((metrics["requests_total"], failures_of(metrics)), (0, {}))

    def test_on_one_connection_are_told_apart(self) -> None:
        with Service(*STATUS, *JSON) as service, service.client() as client:
            for query in ("header&text=ab", "signal=11", "header", "exit=1", "header&text=abcd"):
                self.assertTrue(client.ask(query, keep=True).ended)
            metrics = wait_for_metric(service, "requests_total", 5)
            self.assertEqual(failures_of(metrics), {"signal": 1, "no_response": 1})
            self.assertEqual(
                [(entry["failure"], entry["sent"], entry["exit"]) for entry in entries(service)],
                [
                    (None, 2, 0),
                    ("signal", 26, 139),
                    (None, 0, 0),
                    ("no_response", 26, 1),
                    (None, 4, 0),
                ],
            )
            self.assertEqual(metrics["connections_total"], 1)
            wait_for_metric(service, "idle_connections", 1)


# ---- What there is now, and what there was -------------------------------------------------------


class Figures(unittest.TestCase):
    def test_show_children_queue_and_arriving_requests(self) -> None:
        options = ("--children", "2", "--queue", "7", "--idle-connections", "11")
        with Service(*STATUS, *options) as service:
            clients = [service.client() for _ in range(7)]
            for client in clients[:5]:
                client.send(request(f"header&flush&note=begun&{LONG}"))
            clients[5].send(request("header", b"body")[:-9])
            metrics = wait_for_metric(service, "queue", 3)
            metrics = wait_for_metric(service, "arriving", 1)
            metrics = wait_for_metric(service, "connections", 7)
            expected = {
                "children": 2,
                "children_limit": 2,
                "queue": 3,
                "queue_limit": 7,
                "arriving": 1,
                "idle_connections": 1,
                "connections": 7,
                "connections_limit": 20,
                "workers": 1,
                "ready": 1,
                "requests_total": 0,
            }
            self.assertEqual({key: metrics[key] for key in expected}, expected)
            page = get(service, "/status").body
            self.assertRegex(page, r"(?m)^  running +2 of 2$")
            self.assertRegex(page, r"(?m)^  waiting +3 of 7$")
            self.assertRegex(page, r"(?m)^  arriving +1$")
            self.assertRegex(page, r"(?m)^  connections +7 of 20, 1 without a request$")
            for client in clients:
                client.socket.close()
            metrics = wait_for_metric(service, "connections", 0)
            metrics = wait_for_metric(service, "requests_total", 6)
            self.assertEqual(failures_of(metrics), {"visitor_left": 6})
            self.assertEqual(metrics["children"] + metrics["queue"] + metrics["arriving"], 0)

    def test_have_times_and_bytes(self) -> None:
        with Service(*STATUS, *JSON, "--children", "1") as service:
            with service.client() as first, service.client() as second:
                first.send(request("header&note=begun&sleep=3000&text=abc", b"12345"))
                service.wait_for_note("begun")
                second.send(request("header&write=1000"))
                self.assertEqual(first.answer().body, b"abc")
                self.assertEqual(len(second.answer().body), 1000)
            metrics = wait_for_metric(service, "requests_total", 2)
            self.assertEqual(metrics["received_bytes_total"], 5)
            self.assertEqual(metrics["sent_bytes_total"], 1003)
            self.assertGreaterEqual(metrics["request_duration_seconds_sum"], 3)
            self.assertEqual(metrics["request_duration_seconds_bucket{le=0.1}"], 0)
            one, two = entries(service)
            self.assertGreaterEqual(one["seconds"], 3)
            self.assertLess(one["waited"], one["seconds"])
            self.assertEqual((one["sent"], one["received"]), (3, 5))
            # The second waited for the first.
            self.assertGreater(two["waited"], 0.01)
            self.assertGreaterEqual(two["seconds"], two["waited"])
            self.assertAlmostEqual(
                metrics["queue_duration_seconds_sum"], one["waited"] + two["waited"], places=5
            )
            page = get(service, "/status").body
            self.assertRegex(page, r"(?m)^  requests( +\d+(\.\d)? m?s){4}$")

    def test_survive_reloads(self) -> None:
        with Service(*STATUS) as service:
            worker = service.worker()
            running, arriving = service.client(), service.client()
            running.send(request("header&note=begun&sleep=5000&text=last", keep=True))
            arriving.send(request("header", b"body", keep=True)[:-9])
            service.wait_for_note("begun")
            wait_for_metric(service, "arriving", 1)
            os.kill(service.process.pid, signal.SIGHUP)
            wait_for_metric(service, "worker_starts_total", 2)
            wait_until(lambda: service.worker() != worker, "no new worker")
            # A response arrives before its child is counted out.
            metrics = wait_for_metric(service, "children", 1)
            asked = metrics["requests_total"]
            self.assertGreaterEqual(asked, 2)
            # The old worker still has two.
            self.assertEqual((metrics["workers"], metrics["ready"]), (2, 1))
            self.assertEqual((metrics["children"], metrics["arriving"]), (1, 1))
            arriving.send(request("header", b"body", keep=True)[-9:])
            for client in (running, arriving):
                self.assertTrue(client.answer().ended)
            wait_for_end(worker)
            metrics = wait_for_metric(service, "workers", 1)
            self.assertEqual(metrics["requests_total"], asked + 2)
            self.assertEqual(metrics["request_duration_seconds_count"], asked + 2)
            for client in (running, arriving):
                self.assertTrue(client.ask("header").ended)
                client.socket.close()
            metrics = wait_for_metric(service, "requests_total", asked + 4)
            self.assertEqual(failures_of(metrics), {})
            self.assertEqual(metrics["worker_failures_total"], 0)
            # Connections that were handed over were accepted once.
            self.assertEqual(metrics["connections_total"], asked + 2)

    def test_lose_and_double_nothing_while_a_service_is_reloaded_under_load(self) -> None:
        clients, asked = 4, 100

        def ask_often() -> None:
            with service.client() as client:
                for i in range(asked):
                    client.ask("header" if i % 10 else "exit=1", keep=True)

        with Service(*STATUS, *JSON) as service:
            threads = [threading.Thread(target=ask_often) for _ in range(clients)]
            for thread in threads:
                thread.start()
            last = 0.0
            for reload in range(3):
                count = clients * asked * (reload + 1) // 5
                wait_until(lambda: metrics_of(service)["requests_total"] >= count, "no requests")
                os.kill(service.process.pid, signal.SIGHUP)
                # Counters never go back.
                for _ in range(20):
                    now = metrics_of(service)["requests_total"]
                    self.assertGreaterEqual(now, last)
                    last = now
            for thread in threads:
                thread.join()
            metrics = wait_for_metric(service, "requests_total", clients * asked)
            self.assertEqual(failures_of(metrics), {"no_response": clients * asked // 10})
            self.assertEqual(len(entries(service)), clients * asked)
            self.assertEqual(metrics["responses_total{code=2xx}"], clients * asked * 9 // 10)

    def test_go_to_the_log_at_a_signal(self) -> None:
        with Service() as service:
            service.ask("header")
            service.ask("exit=1")
            os.kill(service.process.pid, signal.SIGUSR1)
            service.wait_for_log("status:   waiting")
            lines = [line for line in service.log_lines() if ": status: " in line]
            self.assertGreater(len(lines), 15)
            for expected in (
                "requests +2",
                "failures +1",
                "  no_response +1  the script sent no header",
            ):
                self.assertRegex("\n".join(lines), f"(?m)^tarn-serve: status:   {expected}$")
            # They are those of the moment.
            service.ask("header")
            os.kill(service.process.pid, signal.SIGUSR1)
            wait_until(
                lambda: re.search("status:   requests +3\n", service.log()) is not None, "no 3"
            )

    def test_contain_nothing_of_visitors(self) -> None:
        secret = "Secret7"
        with Service(*STATUS) as service:
            more = {"HTTP_COOKIE": secret, "REMOTE_USER": secret, "REMOTE_ADDR": secret}
            service.ask(f"header&text={secret}&exit=1", secret.encode(), more)
            for path in ("/status", "/metrics", "/ready", f"/{secret}"):
                page = get(service, path)
                self.assertNotIn(secret, page.header + page.body)
            os.kill(service.process.pid, signal.SIGUSR1)
            service.wait_for_log("status:   waiting")
            for line in service.log_lines():
                self.assertEqual(secret in line, line.startswith("tarn-serve: the script ended"))


# ---- The address ---------------------------------------------------------------------------------


class Address(unittest.TestCase):
    def test_can_be_a_port(self) -> None:
        port = free_port()
        with Service("--status", f"tcp:127.0.0.1:{port}") as service:
            self.assertTrue(service.ask("header").ended)
            with socket.create_connection(("127.0.0.1", port), 60) as client:
                client.sendall(b"GET /metrics HTTP/1.1\r\n\r\n")
                metrics = parse_metrics(receive_page(client).body)
            self.assertEqual(metrics["tarn_serve_requests_total"], 1)

    def test_that_is_taken_ends_the_service(self) -> None:
        with socket.create_server(("127.0.0.1", 0)) as taken:
            address = f"tcp:127.0.0.1:{taken.getsockname()[1]}"
            options = ("--listen", "unix:{folder}/socket", "--status", address)
            with Service(*options, listens=False) as service:
                self.assertEqual(service.process.wait(100), 1)
                problem = f"cannot bind the socket: {error_text('Address already in use')}"
                self.assertEqual(service.log_lines(), [f"tarn-serve: {address}: {problem}"])
                self.assertFalse(os.path.exists(service.path("socket")))
                service.process.returncode = 0

    def test_has_the_mode_of_sockets_and_its_file_is_removed(self) -> None:
        with Service(*STATUS, "--socket-mode", "0640") as service:
            connect(service).close()
            self.assertEqual(os.stat(service.path("status")).st_mode & 0o777, 0o640)
            service.process.terminate()
            self.assertEqual(service.process.wait(100), 0)
            self.assertFalse(os.path.exists(service.path("status")))

    def test_answers_until_the_last_request_is_answered(self) -> None:
        with Service(*STATUS) as service, service.client() as client:
            wait_until_ready(service)
            client.send(request("header&note=begun&sleep=5000"))
            service.wait_for_note("begun")
            service.process.terminate()
            wait_until(lambda: get(service, "/ready").status == 503, "still ready")
            self.assertEqual(metrics_of(service)["children"], 1)
            self.assertEqual(metrics_of(service)["ready"], 0)
            self.assertTrue(client.answer().ended)
            self.assertEqual(service.process.wait(100), 0)

    def test_is_not_ready_before_the_callback_has_returned(self) -> None:
        with Service(*STATUS, environment={"PREPARE": "wait"}) as service:
            service.wait_for_note("preparing")
            self.assertEqual(get(service, "/ready").status, 503)
            self.assertIn("none is ready", get(service, "/status").body)
            self.assertEqual(metrics_of(service)["requests_total"], 0)

    def test_works_as_process_1_and_confined(self) -> None:
        wrapper: tuple[str, ...] = ("unshare", "--pid", "--fork", "--mount-proc", "--kill-child")
        if subprocess.run([*wrapper, "true"], capture_output=True, check=False).returncode != 0:
            wrapper = ()
        options = () if SANITIZED else ("--confine", "--unconfined-if-unsupported")
        with Service(*STATUS, *JSON, *options, wrapper=wrapper) as service:
            self.assertTrue(service.ask("header&text=a").ended)
            self.assertTrue(service.ask("header&text=b").ended)
            metrics = wait_for_metric(service, "requests_total", 2)
            self.assertEqual(failures_of(metrics), {})
            self.assertEqual([entry["sent"] for entry in entries(service)], [1, 1])
            if wrapper:
                (init,) = children_of(service.process.pid)
                os.kill(init, signal.SIGTERM)
                self.assertEqual(service.process.wait(100), 0)

    def test_and_the_log_are_closed_in_scripts(self) -> None:
        with Service(*STATUS, *JSON) as service, connect(service):
            self.assertEqual(service.ask("header&descriptors").lines, ["0", "1", "2"])


class Clients(unittest.TestCase):
    def test_that_say_nothing_disturb_neither_requests_nor_others_for_long(self) -> None:
        with Service(*STATUS) as service:
            silent = [connect(service) for _ in range(8)]
            self.assertTrue(service.ask("header").ended)
            # They have five seconds, and others wait.
            page = get(service, "/metrics")
            self.assertEqual(parse_metrics(page.body)["tarn_serve_requests_total"], 1)
            for client in silent:
                client.close()

    def test_that_read_nothing_or_send_too_much_are_left(self) -> None:
        with Service(*STATUS) as service:
            with connect(service) as client:
                client.sendall(b"GET / HTTP/1.1\r\nA: " + b"a" * 20000)
                self.assertEqual(receive_page(client).status, 431)
            with connect(service) as client:
                try:
                    client.sendall(b"POST / HTTP/1.1\r\n\r\n" + b"a" * 10_000_000)
                    self.fail("all of it was read")
                except (BrokenPipeError, ConnectionResetError):
                    pass
            with connect(service) as client:
                client.sendall(b"POST /metrics HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc")
                self.assertEqual(receive_page(client).status, 405)
            for size in range(1, 40, 3):
                with connect(service) as client:
                    client.sendall(b"GET /metrics HTTP/1.1\r\nHost: localhost\r\n\r\n"[:size])
            self.assertEqual(get(service, "/status").status, 200)

    def test_may_send_a_request_in_pieces_and_half_close_the_connection(self) -> None:
        with Service(*STATUS) as service, connect(service) as client:
            wait_until_ready(service)
            for byte in b"GET /ready HTTP/1.0\r\n\r\n":
                client.sendall(bytes([byte]))
            client.shutdown(socket.SHUT_WR)
            self.assertEqual(receive_page(client).body, "ready\n")

    def test_see_the_end_of_their_connection_although_a_worker_starts_meanwhile(self) -> None:
        with Service(*STATUS) as service:
            worker = service.worker()
            with connect(service) as client:
                client.sendall(b"GET /ready HTTP/1.1\r\n")
                files = len(os.listdir(f"/proc/{worker}/fd"))
                os.kill(worker, signal.SIGKILL)
                wait_for_end(worker)
                wait_until(lambda: service.worker() != worker, "no new worker")
                # The new worker is a copy of the process that has the connection.
                new = service.worker()
                wait_until(lambda: len(os.listdir(f"/proc/{new}/fd")) <= files, "it keeps files")
                client.sendall(b"\r\n")
                self.assertEqual(receive_page(client).body, "ready\n")

    def test_get_whole_pages_many_at_once(self) -> None:
        problems: list[object] = []

        def read_often() -> None:
            try:
                for _ in range(30):
                    metrics_of(service)
            except Exception as error:
                problems.append(error)

        with Service(*STATUS) as service:
            threads = [threading.Thread(target=read_often) for _ in range(12)]
            for thread in threads:
                thread.start()
            with service.client() as client:
                for _ in range(100):
                    self.assertTrue(client.ask("header", keep=True).ended)
            for thread in threads:
                thread.join()
            self.assertEqual(problems, [])
            self.assertEqual(metrics_of(service)["requests_total"], 100)


# ---- The access log ------------------------------------------------------------------------------

COMMON = re.compile(
    r"(\S+) - (\S+) \[(\d\d/[A-Z][a-z]{2}/\d{4}:\d\d:\d\d:\d\d \+0000)\] "
    r'"(\S+) (\S+) (\S+)" (\d{3}) (\d+)'
)
HOSTILE = {
    "REMOTE_ADDR": '1.2.3.4" 200 5\n6.6.6.6 - - [',
    "REMOTE_USER": "a b\x1b[31m\\",
    "REQUEST_METHOD": "GET /",
    "REQUEST_URI": '/a\r\n1.1.1.1 - - [01/Jan/2026:00:00:00 +0000] "GET /forged HTTP/1.1" 200 1\n'
    "\x9b2J\u202e",
    "SERVER_PROTOCOL": 'HTTP/1.1" 200 9',
    "HTTP_HOST": '","forged":"yes',
}


class AccessLog(unittest.TestCase):
    def lines(self, service: Service) -> list[str]:
        """The lines of the common format, taken apart."""
        lines = Path(service.path("access")).read_text(encoding="ascii").split("\n")
        self.assertEqual(lines.pop(), "")
        for line in lines:
            self.assertRegex(line, COMMON)
            self.assertTrue(line.isprintable(), line)
        return lines

    def test_in_the_common_format_has_a_line_for_each_request(self) -> None:
        with Service("--access-log", "{folder}/access") as service:
            more = {"REMOTE_ADDR": "::1", "REMOTE_USER": "ada", "SERVER_PROTOCOL": "HTTP/2.0"}
            service.ask("header&text=abc", more=more)
            service.ask("line=Status: 404 Not Found&header", b"body")
            service.ask("line=Location: /a&header")
            service.ask("line=Status: teapot&header")
            service.ask("exit=1")
            parts = [COMMON.fullmatch(line) for line in self.lines(service)]
            found = [match.group(1, 2, 4, 5, 6, 7, 8) for match in parts if match]
            none = ("-", "-", "GET")
            self.assertEqual(
                found,
                [
                    ("::1", "ada", "GET", "/probe?header&text=abc", "HTTP/2.0", "200", "3"),
                    (
                        "-",
                        "-",
                        "POST",
                        r"/probe?line=Status:\x20404\x20Not\x20Found&header",
                        "-",
                        "404",
                        "0",
                    ),
                    (*none, r"/probe?line=Location:\x20/a&header", "-", "302", "0"),
                    (*none, r"/probe?line=Status:\x20teapot&header", "-", "000", "0"),
                    (*none, "/probe?exit=1", "-", "500", "26"),
                ],
            )
            self.assertEqual(os.stat(service.path("access")).st_mode & 0o137, 0)

    def test_cannot_be_forged(self) -> None:
        for options in (("--access-log", "{folder}/access"), JSON):
            with Service(*options) as service:
                for name, value in HOSTILE.items():
                    service.ask("header&text=abc", more={name: value})
                service.ask("header&text=abc", more=HOSTILE)
                count = len(HOSTILE) + 1
                if options != JSON:
                    self.assertEqual(len(self.lines(service)), count)
                    for line in self.lines(service):
                        self.assertTrue(line.endswith('" 200 3'), line)
                    continue
                found = entries(service)
                self.assertEqual(len(found), count)
                for entry in found:
                    self.assertNotIn("forged", entry)
                    self.assertEqual((len(entry), entry["sent"]), (15, 3))
                names = ("REMOTE_ADDR", "REMOTE_USER", "REQUEST_METHOD", "REQUEST_URI")
                seen = [found[-1][key] for key in ("client", "user", "method", "uri")]
                for name, text in zip(names, seen, strict=True):
                    # Every byte comes back.
                    self.assertEqual(text.encode("latin-1"), os.fsencode(HOSTILE[name]))

    def test_has_a_line_for_a_visitor_who_leaves(self) -> None:
        with Service(*JSON) as service:
            for count in (1, 2):
                leave(service, count)
                wait_until(lambda: len(entries(service)) == count, "no line")
            for entry in entries(service):
                self.assertEqual((entry["failure"], entry["exit"]), ("visitor_left", 143))
                self.assertIn("/probe?header&text=x&flush", entry["uri"])

    def test_goes_to_a_new_file_after_a_reload(self) -> None:
        with Service(*STATUS, *JSON) as service, service.client() as client:
            worker = service.worker()
            client.send(request("header&note=begun&sleep=5000", keep=True))
            service.wait_for_note("begun")
            os.rename(service.path("access"), service.path("access.1"))
            os.kill(service.process.pid, signal.SIGHUP)
            wait_until(lambda: service.worker() != worker, "no new worker")
            self.assertTrue(client.answer().ended)
            wait_for_end(worker)
            old = Path(service.path("access.1")).read_text().splitlines()
            new = entries(service)
            # The old worker wrote its last line to the old file.
            self.assertIn("note=begun", json.loads(old[-1])["uri"])
            self.assertGreaterEqual(len(new), 1)
            metrics = metrics_of(service)
            self.assertEqual(len(old) + len(new), metrics["requests_total"])

    def test_can_be_standard_output(self) -> None:
        with Service("--access-log", "-", "--access-log-format=json") as service:
            service.ask("header&text=out")
            path = Path(service.path("output"))
            wait_until(lambda: path.read_text().count("\n") == 1, "no line")
            self.assertEqual(json.loads(path.read_text())["sent"], 3)

    def test_that_cannot_be_opened_ends_the_service(self) -> None:
        with Service("--access-log", "{folder}/none/access") as service:
            self.assertEqual(service.process.wait(100), 1)
            self.assertIn("cannot open the access log", service.log())
            self.assertIn("No such file or directory", service.log())
            service.process.returncode = 0

    def test_that_cannot_be_opened_after_a_reload_leaves_the_old_worker(self) -> None:
        with Service(*JSON) as service:
            worker = service.worker()
            os.rename(service.path("access"), service.path("old"))
            os.mkdir(service.path("access"))
            os.kill(service.process.pid, signal.SIGHUP)
            service.wait_for_log("a worker ended with status 1")
            self.assertEqual(service.worker(), worker)

    def test_that_cannot_be_written_loses_lines_and_no_request(self) -> None:
        if not os.path.exists("/dev/full"):
            self.skipTest("there is no /dev/full")
        with Service(*STATUS, "--access-log", "/dev/full") as service:
            for _ in range(5):
                self.assertTrue(service.ask("header").ended)
            metrics = wait_for_metric(service, "access_log_lost_total", 5)
            self.assertEqual(metrics["requests_total"], 5)
            message = "tarn-serve: cannot write to the access log: No space left on device"
            self.assertEqual(service.log_lines(), [message])
            self.assertRegex(get(service, "/status").body, r"(?m)^  lines lost +5$")

    def test_that_nobody_reads_delays_nothing(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "pipe")
            os.mkfifo(path)
            reader = os.open(path, os.O_RDONLY | os.O_NONBLOCK)
            with Service(*STATUS, "--access-log", path) as service, service.client() as client:
                uri = {"REQUEST_URI": "/" + "a" * 2000}
                for _ in range(100):
                    self.assertTrue(client.ask("header", more=uri, keep=True).ended)
                metrics = wait_for_metric(service, "requests_total", 100)
            lost = int(metrics["access_log_lost_total"])
            self.assertGreater(lost, 10)
            os.set_blocking(reader, True)
            with os.fdopen(reader, encoding="ascii") as pipe:
                lines = pipe.read().split("\n")
        self.assertEqual(len(lines) - 1, 100 - lost)
        for line in lines[:-1]:
            self.assertRegex(line, COMMON)


if __name__ == "__main__":
    unittest.main()
