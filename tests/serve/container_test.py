"""A service that is a container of its own: a static program, alone in its root folder."""

import os
import select
import signal
import unittest
from contextlib import ExitStack
from types import TracebackType
from typing import Self

import container
from fastcgi import Service, children_of, pattern, request, wait_until
from servers.server import free_port

PROBE = os.environ["STATIC_PROBE"]
ALL = ("--tmp=8m",)
BARE = ("--no-proc", "--no-devices")


class Container(Service):
    """A container that listens on a port, for a with statement."""

    def __init__(self, *options: str, of_container: tuple[str, ...] = ALL) -> None:
        self.port = free_port()
        super().__init__(
            f"--listen=tcp:127.0.0.1:{self.port}",
            *options,
            program=PROBE,
            wrapper=container.command(*of_container),
            listens=False,
        )

    def __enter__(self) -> Self:
        super().__enter__()
        self.address = ("127.0.0.1", self.port)
        wait_until(lambda: self.is_listening() or self.process.poll() is not None, "nobody listens")
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        if self.process.poll() is None:
            self.signal(signal.SIGTERM)
            wait_until(lambda: self.process.poll() is not None, "the container did not end")
        super().__exit__(kind, error, trace)

    def is_listening(self) -> bool:
        return container.connects("127.0.0.1", self.port)

    def signal(self, number: int) -> None:
        """Sends a signal to process 1 of the container."""
        os.kill(children_of(self.process.pid)[0], number)


def setUpModule() -> None:
    if not container.is_allowed():
        raise unittest.SkipTest("mounting is not allowed here")


class Containers(unittest.TestCase):
    def test_are_served_by_an_ordinary_user_without_rights(self) -> None:
        with Container() as service:
            status = dict(
                line.split(":\t", 1) for line in service.ask("header&status").lines if ":\t" in line
            )
            self.assertEqual(status["Uid"].split(), [str(container.USER)] * 4)
            self.assertEqual(status["Gid"].split(), [str(container.USER)] * 4)
            self.assertEqual(status["Groups"].split(), [])
            for kind in ("Inh", "Prm", "Eff", "Bnd", "Amb"):
                self.assertEqual(int(status[f"Cap{kind}"], 16), 0)
            self.assertEqual(status["NoNewPrivs"], "1")

    def test_need_no_other_file(self) -> None:
        for of_container in (ALL, BARE):
            with self.subTest(of_container), Container(of_container=of_container) as service:
                self.assertEqual(service.ask("header&text=Hello").body, b"Hello")
                self.assertEqual(service.ask("header&size").lines, ["0"])
                body = pattern(100000)
                self.assertEqual(service.ask("header&body", body).body, body)
                self.assertEqual(service.ask("header&descriptors").lines, ["0", "1", "2"])
                service.signal(signal.SIGTERM)
                self.assertEqual(service.process.wait(100), 0)
                self.assertEqual(service.log_lines(), [])

    def test_keep_large_bodies_in_tmp(self) -> None:
        with Container() as service:
            body = pattern(5 << 20)
            self.assertEqual(service.ask("header&size", body).lines, [str(len(body))])

    def test_refuse_large_bodies_without_room_in_tmp(self) -> None:
        for of_container in ((), ("--tmp=2m",)):
            with self.subTest(of_container), Container(of_container=of_container) as service:
                refused = service.ask("header&size", pattern(5 << 20))
                self.assertIn(b"Status: 503 ", refused.header)
                self.assertIn("cannot store the body: No ", service.log())
                self.assertEqual(service.ask("header&size", bytes(1000)).lines, ["1000"])

    def test_may_be_confined(self) -> None:
        with Container("--confine") as service:
            self.assertEqual(service.ask("header&text=Hello").body, b"Hello")
            self.assertEqual(service.ask("header&status").status, 99)
            self.assertIn("/proc/self/status: Permission denied", service.log())

    def test_end_after_the_requests_that_wait(self) -> None:
        with Container("--children=1", "--queue=2") as service, ExitStack() as stack:
            clients = [stack.enter_context(service.client()) for _ in range(4)]
            clients[0].send(request("header&text=begin&sleep=500"))
            self.assertTrue(next(clients[0].records()))
            for client in clients[1:]:
                client.send(request("header&text=Hello"))
            # One is too many. When that one is refused, the others have arrived.
            (refused, *_), _, _ = select.select([client.socket for client in clients[1:]], [], [])
            service.signal(signal.SIGTERM)
            bodies = [c.answer().body for c in clients[1:] if c.socket is not refused]
            self.assertEqual(bodies, [b"Hello", b"Hello"])
            self.assertEqual(service.process.wait(100), 0)

    def test_end_after_the_running_request(self) -> None:
        with Container() as service, service.client() as running:
            running.send(request("header&text=begin&sleep=1000&text=end"))
            self.assertTrue(next(running.records()))
            service.signal(signal.SIGTERM)
            wait_until(lambda: not service.is_listening(), "it listens after SIGTERM")
            self.assertIn(b"end", running.answer().output)
            self.assertEqual(service.process.wait(100), 0)

    def test_ignore_connections_of_probes(self) -> None:
        with Container() as service:
            for _ in range(100):
                service.client().socket.close()
            self.assertEqual(service.ask("header&text=Hello").body, b"Hello")
            self.assertEqual(service.log_lines(), [])

    def test_restart_their_file_at_sighup(self) -> None:
        for of_container in (ALL, BARE):
            with self.subTest(of_container), Container(of_container=of_container) as service:
                first = service.worker()
                service.signal(signal.SIGHUP)
                wait_until(lambda: service.worker() != first, "no worker followed")
                self.assertEqual(service.log_lines(), [])


if __name__ == "__main__":
    unittest.main()
