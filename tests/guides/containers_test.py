"""The guide to containers: its program, built by its commands, runs as its files say, behind nginx.

Everything runs in a network of its own.
"""

import http.client
import os
import re
import shutil
import signal
import subprocess
import sys
import threading
import unittest
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import NamedTuple

import container
from fastcgi import children_of, wait_until
from guide import Command, File, steps, user_environment
from pods import HERE, SOURCE, WEB, Pod, Service, Web, image, pod

GUIDE = SOURCE / "docs" / "guide" / "containers.md"
INSIDE = "TARN_INSIDE"
CLIENTS = 3


def build() -> None:
    """Builds the guide's program with its commands."""
    page = GUIDE.read_text(encoding="utf-8").splitlines()
    for step in steps(page):
        if isinstance(step, File):
            (HERE / step.name).write_text(step.text, encoding="utf-8")
        elif isinstance(step, Command):
            environment = user_environment(HERE, Path(os.environ["INSTALLED"]))
            subprocess.run(["bash", "-ec", step.text], cwd=HERE, env=environment, check=True)
            if step.text.startswith("cc "):
                return
    raise AssertionError("the guide does not build a program")


def setUpModule() -> None:
    if INSIDE not in os.environ:
        raise unittest.SkipTest("mounting is not allowed here")
    container.mount("tarn-test", str(HERE), "tmpfs", options="mode=755")
    hosts = HERE / "hosts"
    hosts.write_text("127.0.0.1 localhost hello\n", encoding="ascii")
    container.mount(str(hosts), "/etc/hosts", flags=container.MS_BIND)
    build()


class Reply(NamedTuple):
    status: int  # 0 without a whole answer
    text: str


def ask(
    path: str, body: bytes | None = None, kind: str = "", host: str = WEB, port: int = Web.PORT
) -> Reply:
    """Sends a request, to nginx unless it says otherwise."""
    connection = http.client.HTTPConnection(host, port, timeout=100)
    try:
        headers = {"Content-Type": kind} if kind else {}
        connection.request("POST" if body else "GET", path, body, headers)
        answer = connection.getresponse()
        return Reply(answer.status, answer.read().decode())
    except (ConnectionError, http.client.HTTPException):
        return Reply(0, "")
    finally:
        connection.close()


class Later(threading.Thread):
    """A request that goes on while the test does."""

    def __init__(self, path: str) -> None:
        super().__init__()
        self.path = path
        self.reply = Reply(0, "")
        self.start()

    def run(self) -> None:
        self.reply = ask(self.path)

    def result(self) -> Reply:
        self.join(100)
        return self.reply


@contextmanager
def web_and_pod(program: Path | None = None, *more: str) -> Iterator[tuple[Web, Pod]]:
    """One pod of each; nginx finds the other by its address."""
    with Pod(1, program, *more) as hello, Web() as web:
        yield web, hello


def form(size: int) -> tuple[bytes, str]:
    head = 'Content-Disposition: form-data; name="{}"{}\r\n\r\n'
    file = f"--x\r\n{head.format('file', '; filename=a')}".encode() + bytes(size)
    return file + f"\r\n--x\r\n{head.format('name', '')}Ada\r\n--x--\r\n".encode(), (
        "multipart/form-data; boundary=x"
    )


class Image(unittest.TestCase):
    def test_has_one_file_that_needs_no_other(self) -> None:
        program = HERE / image()["COPY"].split()[0]
        read = subprocess.run(["readelf", "-ld", program], capture_output=True, check=True)
        self.assertNotIn(b"INTERP", read.stdout)
        self.assertNotIn(b"NEEDED", read.stdout)
        self.assertLess(program.stat().st_size, 2 << 20)


class Requests(unittest.TestCase):
    def test_go_through_nginx(self) -> None:
        with web_and_pod() as (web, hello):
            self.assertEqual(ask("/hello?name=Ada"), (200, "Hello, Ada, from pod-1\n"))
            self.assertEqual(ask("/hello/there").status, 200)
            self.assertEqual(ask("/helloo").status, 404)
            self.assertEqual(ask("/healthz").status, 204)
            self.assertEqual(ask("/hello", *form(9 << 20)), (200, "Hello, Ada, from pod-1\n"))
            self.assertEqual(ask("/hello", *form(10 << 20)).status, 413)
            self.assertIn("GET /hello?name=Ada", web.log())
            self.assertNotIn("healthz", web.log())
            self.assertEqual(hello.log(), "")

    def test_reach_confined_scripts(self) -> None:
        with web_and_pod(None, "--confine", "--write=/tmp"):
            self.assertEqual(ask("/hello?name=Ada"), (200, "Hello, Ada, from pod-1\n"))
            self.assertEqual(ask("/hello", *form(9 << 20)), (200, "Hello, Ada, from pod-1\n"))


class Probes(unittest.TestCase):
    def test_tell_who_is_ready(self) -> None:
        probe = pod("hello.yaml")["containers"][0]["readinessProbe"]["httpGet"]
        self.assertEqual(probe["port"], "status")
        with web_and_pod() as (web, hello):

            def is_ready() -> bool:
                reply = ask(probe["path"], host=hello.host, port=hello.STATUS_PORT)
                return reply == (200, "ready\n")

            wait_until(is_ready, "the service is not ready")
            self.assertEqual(hello.log(), "")
            self.assertEqual(hello.ends_after(signal.SIGTERM, hello.GRACE), 0)
            self.assertFalse(container.connects(hello.host, hello.PORT))
            path = pod("web.yaml")["containers"][0]["readinessProbe"]["httpGet"]["path"]
            self.assertEqual(ask(path).status, 204)
            self.assertEqual(ask("/hello").status, 502)


class Figures(unittest.TestCase):
    def test_that_the_guide_names_exist(self) -> None:
        named = re.findall(r"`(tarn_serve_\w+)[`{]", GUIDE.read_text(encoding="utf-8"))
        self.assertGreater(len(named), 5)
        with web_and_pod() as (_, hello):
            for _ in range(3):
                self.assertEqual(ask("/hello").status, 200)
            metrics = ask("/metrics", host=hello.host, port=hello.STATUS_PORT).text
        for name in named:
            self.assertRegex(metrics, rf"(?m)^{name}[ {{]")
        self.assertIn("\ntarn_serve_requests_total 3\n", metrics)


class End(unittest.TestCase):
    """Of one of the two, while a request runs. The program is one that can sleep."""

    program: Path

    @classmethod
    def setUpClass(cls) -> None:
        cls.program = HERE / "hello-that-sleeps"
        shutil.copy(os.environ["STATIC_PROBE"], cls.program)

    def sleeping(self, hello: Pod) -> Later:
        """A request that has reached its script."""
        before = len(self.scripts(hello))
        request = Later("/hello?header&sleep=1000&text=end")
        wait_until(lambda: len(self.scripts(hello)) > before, "no script started")
        return request

    def scripts(self, hello: Pod) -> list[int]:
        return [
            script
            for supervisor in children_of(hello.process.pid)
            for worker in children_of(supervisor)
            for script in children_of(worker)
        ]

    def test_of_the_service_answers_the_request(self) -> None:
        with web_and_pod(self.program) as (_, hello):
            request = self.sleeping(hello)
            self.assertEqual(hello.ends_after(signal.SIGTERM, hello.GRACE), 0)
            self.assertEqual(request.result(), (200, "end"))

    def test_of_nginx_answers_the_request(self) -> None:
        command = pod("web.yaml")["containers"][0]["lifecycle"]["preStop"]["exec"]["command"]
        self.assertIn("; kill -QUIT 1;", command[-1])
        with web_and_pod(self.program) as (web, hello):
            request = self.sleeping(hello)
            self.assertEqual(web.ends_after(signal.SIGQUIT, web.GRACE), 0)
            self.assertEqual(request.result(), (200, "end"))

    def test_of_nginx_without_prestop_loses_it(self) -> None:
        with web_and_pod(self.program) as (web, hello):
            request = self.sleeping(hello)
            self.assertEqual(web.ends_after(signal.SIGTERM, web.GRACE), 0)
            self.assertEqual(request.result().status, 0)


class Update(unittest.TestCase):
    def test_loses_no_request(self) -> None:
        """As a Deployment does it: a new pod, and when it is ready an old one goes."""
        replies: list[Reply] = []
        done = threading.Event()

        def client() -> None:
            while not done.is_set():
                replies.append(ask("/hello?name=Ada"))

        def count(pod: Pod) -> int:
            return sum(pod.log_file.stem in reply.text for reply in list(replies))

        old, new = [Pod(2), Pod(3)], []
        with Service(*old) as service, Web():
            clients = [threading.Thread(target=client) for _ in range(CLIENTS)]
            for thread in clients:
                thread.start()
            try:
                for number, going in enumerate(old, 4):
                    new.append(Pod(number))
                    service.add(new[-1])
                    wait_until(lambda: count(new[-1]) > 10, "the new pod gets no requests")
                    # In Kubernetes, preStop sleeps for longer than this takes.
                    service.remove(going)
                    self.assertEqual(going.ends_after(signal.SIGTERM, Pod.GRACE), 0)
            finally:
                done.set()
                for thread in clients:
                    thread.join()
                for each in (*old, *new):
                    each.__exit__()
        answered = {reply.text for reply in replies}
        self.assertEqual({reply.status for reply in replies}, {200})
        self.assertEqual(answered, {f"Hello, Ada, from pod-{n}\n" for n in (2, 3, 4, 5)})


if __name__ == "__main__":
    if INSIDE not in os.environ and container.is_allowed():
        network = ("unshare", "--mount", "--net", "sh", "-c", 'ip link set lo up; exec "$@"', "sh")
        os.environ[INSIDE] = "yes"
        os.execvp(network[0], [*network, sys.executable, "-B", *sys.argv])
    unittest.main()
