"""What happens without enough of something, and how much a service uses."""

import errno
import os
import socket
import time
import unittest
from pathlib import Path

from fastcgi import (
    PROBE,
    SANITIZED,
    Service,
    children_of,
    pattern,
    processor_ticks,
    record,
    request,
    wait_until,
)

TOOL = os.environ["TOOL"]
REQUESTS = int(os.environ.get("REQUESTS", "1500"))


def memory(pid: int) -> int:
    """Resident KiB."""
    status = Path(f"/proc/{pid}/status").read_text()
    return int(status.partition("VmRSS:")[2].split()[0])


class Memory(unittest.TestCase):
    @unittest.skipIf(SANITIZED, "sanitizers use memory of their own")
    def test_of_the_worker_stays_small(self) -> None:
        with Service("--body-in-memory", "64K") as service:
            worker = service.worker()
            clients = [service.client() for _ in range(20)]
            large = pattern(1_000_000)
            for i, client in enumerate(clients):
                # Answers and bodies that one does not read or send at once.
                client.send(request(f"header&write={200000 + i}", large[:500000], keep=True))
            for client in clients:
                self.assertGreater(len(client.answer().body), 199999)
            for i in range(REQUESTS):
                client = clients[i % 20]
                answer = client.ask("header&text=a", more={"HTTP_X": "x" * (i % 3000)}, keep=True)
                self.assertEqual(answer.body, b"a")
            self.assertEqual(service.worker(), worker)
            self.assertLess(memory(worker), 4096)
            for client in clients:
                client.socket.close()

    @unittest.skipIf(SANITIZED, "sanitizers use memory of their own")
    def test_for_parameters_and_headers_is_given_back(self) -> None:
        with Service() as service:
            worker = service.worker()
            before = memory(worker)
            clients = [service.client() for _ in range(20)]
            for client in clients:
                answer = client.ask("header", more={"HTTP_X": "x" * 900_000}, keep=True)
                self.assertEqual(answer.status, 0)
                answer = client.ask("text=A:&write=200000&line=&line=&text=a", keep=True)
                self.assertTrue(answer.output.endswith(b"\n\na"), answer.output[-100:])
            self.assertLess(memory(worker) - before, 2048)
            for client in clients:
                client.socket.close()

    @unittest.skipIf(SANITIZED, "sanitizers use memory of their own")
    def test_does_not_grow_with_an_answer_that_is_read_slowly(self) -> None:
        with Service() as service, service.client() as client:
            worker = service.worker()
            before = memory(worker)
            client.send(request("header&write=20000000"))
            answer = client.answer()
            self.assertEqual(len(answer.body), 20_000_000)
            self.assertLess(memory(worker) - before, 1024)


class Descriptors(unittest.TestCase):
    def test_are_not_leaked(self) -> None:
        with Service() as service:
            worker = service.worker()

            def count() -> int:
                return len(os.listdir(f"/proc/{worker}/fd"))

            before = count()
            for query in ("header", "signal=6", "text=x", "length=9&text=x", "leave=10&header"):
                service.ask(query)
                service.ask(query, bytes(100))
            with service.client() as client:
                client.send(request("header&note=begun&sleep=600000"))
                service.wait_for_note("begun")
            service.wait_for_log("the visitor left")
            wait_until(lambda: count() <= before, f"{before} descriptors at first, then more")

    def test_limit_the_number_of_connections(self) -> None:
        wrapper = ("sh", "-c", 'ulimit -n 36; exec "$@"', "sh")
        with Service("--children", "1", wrapper=wrapper) as service:
            worker = service.worker()
            self.assertIn("the limit of open files allows 5 connections instead of", service.log())
            # Connections that are idle are closed.
            idle = [service.client() for _ in range(40)]
            self.assertEqual(service.ask("header&text=a", b"body").body, b"a")
            self.assertTrue(idle[0].is_closed())
            for client in idle:
                client.socket.close()
            self.assertTrue(service.ask("header").ended)
            # Those with a request stay; others wait until they end.
            busy = [service.client()]
            busy[0].send(request("header&note=begun&sleep=600000&text=0", keep=True))
            service.wait_for_note("begun")
            for i in range(1, 40):
                busy.append(service.client())
                busy[-1].send(request(f"header&body&text={i}", b"body"))
            before = processor_ticks(worker)
            time.sleep(0.3)
            self.assertLess(processor_ticks(worker) - before, 10, "the worker spins")
            busy[0].send(record(2))
            self.assertTrue(busy[0].answer().ended)
            busy[0].socket.close()
            for i, client in enumerate(busy[1:], 1):
                self.assertEqual(client.answer().body, b"body%d" % i)
                client.socket.close()
            self.assertEqual(len(service.log_lines()), 2, service.log())


class Processor(unittest.TestCase):
    def test_is_not_used_while_a_new_child_has_closed_descriptors_open(self) -> None:
        hold = Path(f"/tmp/tarn-hold-{os.getpid()}")
        self.addCleanup(lambda: hold.unlink(missing_ok=True))
        environment = {"PREPARE": "hold", "HOLD": str(hold)}
        with Service("--children", "9", environment=environment) as service:
            worker = service.worker()
            with service.client() as second:
                with service.client() as first:
                    first.send(request("header&note=begun&sleep=600000"))
                    service.wait_for_note("begun")
                    hold.touch()
                    second.send(request("header&text=b"))
                    wait_until(lambda: len(children_of(worker)) == 2, "no second child")
                # The visitor has left: the pipes and the connection of the first are closed.
                service.wait_for_log("the visitor left")
                wait_until(lambda: len(children_of(worker)) == 1, "the first child stays")
                before = processor_ticks(worker)
                time.sleep(0.5)
                self.assertLess(processor_ticks(worker) - before, 10, "the worker spins")
                hold.unlink()
                self.assertEqual(second.answer().body, b"b")


@unittest.skipUnless("FAILING_LIBRARY" in os.environ, "needs a library that can be preloaded")
class Calls(unittest.TestCase):
    def setUp(self) -> None:
        self.file = f"/tmp/tarn-failing-{os.getpid()}"
        self.addCleanup(lambda: Path(self.file).unlink(missing_ok=True))
        self.environment = {
            "LD_PRELOAD": os.environ.get("FAILING_LIBRARY", ""),
            "FAILING": self.file,
        }

    def let_fail(self, call: str, error: int) -> None:
        Path(self.file + ".new").write_text(f"{call} {error}")
        os.rename(self.file + ".new", self.file)

    def work_again(self) -> None:
        os.remove(self.file)

    def test_that_start_a_script_are_503(self) -> None:
        with Service(environment=self.environment) as service, service.client() as client:
            worker = service.worker()
            count = 0
            for call, errors in {
                "fork": (errno.EAGAIN, errno.ENOMEM),
                "pipe2": (errno.EMFILE, errno.ENFILE),
            }.items():
                for error in errors:
                    with self.subTest(call=call, error=error):
                        self.let_fail(call, error)
                        answer = client.ask("header&note=ran", b"body", keep=True)
                        self.work_again()
                        count += 1
                        self.assertTrue(answer.output.startswith(b"Status: 503 "), answer)
                        self.assertEqual(len(service.log_lines()), count)
                        expected = f"cannot start the script: {os.strerror(error)}: /probe"
                        self.assertIn(expected, service.log_lines()[-1])
                        answer = client.ask("header&text=next", keep=True)
                        self.assertEqual(answer.body, b"next")
            self.assertEqual(service.noted("ran"), [])
            self.assertEqual(service.worker(), worker)

    def test_that_start_a_program_are_503(self) -> None:
        with Service("--", PROBE, program=TOOL, environment=self.environment) as service:
            worker = service.worker()
            with service.client() as client:
                for error in (errno.EAGAIN, errno.ENOMEM):
                    self.let_fail("clone", error)
                    answer = client.ask("header&note=ran", b"body", keep=True)
                    self.work_again()
                    self.assertTrue(answer.output.startswith(b"Status: 503 "), answer)
                    expected = f"cannot start the script: {os.strerror(error)}: /probe"
                    self.assertIn(expected, service.log_lines()[-1])
                    answer = client.ask("header&body", b"next", keep=True)
                    self.assertEqual(answer.body, b"next")
            self.assertEqual(service.noted("ran"), [])
            self.assertEqual(service.worker(), worker)

    def test_that_store_a_body_are_503(self) -> None:
        with Service(environment=self.environment) as service, service.client() as client:
            service.worker()  # it has started
            for error in (errno.EMFILE, errno.ENFILE, errno.ENOMEM):
                self.let_fail("memfd_create", error)
                answer = client.ask("header&note=ran", bytes(500_000), keep=True)
                self.work_again()
                self.assertTrue(answer.output.startswith(b"Status: 503 "), answer)
                expected = f"cannot store the body: {os.strerror(error)}: /probe"
                self.assertIn(expected, service.log_lines()[-1])
                self.assertEqual(client.ask("header&body", b"next", keep=True).body, b"next")
            self.assertEqual(len(service.log_lines()), 3)
            self.assertEqual(service.noted("ran"), [])

    def test_that_accept_are_tried_again(self) -> None:
        with Service(environment=self.environment) as service:
            worker = service.worker()
            for error in (errno.EMFILE, errno.ENFILE, errno.ENOBUFS, errno.ENOMEM):
                self.let_fail("accept4", error)
                with service.client() as client:
                    client.send(request("header&text=later"))
                    service.wait_for_log(f"cannot accept a connection: {os.strerror(error)}")
                    self.work_again()
                    self.assertEqual(client.answer().body, b"later")
            self.assertEqual(len(service.log_lines()), 4)
            # These concern one connection alone.
            for error in (errno.ECONNABORTED, errno.EINTR, errno.EPROTO, errno.EPERM):
                self.let_fail("accept4", error)
                with service.client() as client:
                    client.send(request("header&text=later"))
                    self.work_again()
                    self.assertEqual(client.answer().body, b"later")
            self.assertEqual(len(service.log_lines()), 4)
            self.assertEqual(service.worker(), worker)

    def test_that_watch_a_connection_or_a_script(self) -> None:
        with Service(environment=self.environment) as service, service.client() as first:
            self.assertTrue(first.ask("header", keep=True).ended)
            self.let_fail("epoll_ctl", errno.ENOSPC)
            with service.client() as client:
                self.assertTrue(client.is_closed())
            answer = first.ask("header&sleep=600000", keep=True)
            self.work_again()
            self.assertFalse(answer.ended and not answer.output.startswith(b"Status: 500 "), answer)
            self.assertIn("cannot watch the script: /probe", service.log())
            self.assertEqual(service.ask("header&text=next").body, b"next")

    def test_that_read_an_answer_cut_it_off(self) -> None:
        with Service(environment=self.environment) as service, service.client() as client:
            # More than fits between the script and a client that does not read.
            client.send(request("header&write=4000000", keep=True))
            self.assertEqual(len(client.socket.recv(1, socket.MSG_PEEK)), 1)
            self.let_fail("read", errno.EIO)
            answer = client.answer()
            self.work_again()
            self.assertFalse(answer.ended, answer)
            expected = f"cannot read the script's output: {os.strerror(errno.EIO)}: /probe"
            self.assertIn(expected, service.log())
            self.let_fail("read", errno.EIO)
            answer = service.ask("header&text=whole")
            self.work_again()
            self.assertTrue(answer.output.startswith(b"Status: 500 "), answer)
            self.assertEqual(service.ask("header&text=next").body, b"next")

    def test_that_start_the_first_worker_end_the_service(self) -> None:
        for call in ("fork", "pipe2", "memfd_create"):
            with self.subTest(call):
                self.let_fail(call, errno.ENOMEM)
                with Service(environment=self.environment) as service:
                    self.assertEqual(service.process.wait(100), 1)
                    self.assertIn("cannot start a worker: Cannot allocate", service.log())
                    service.process.returncode = 0
                self.work_again()


if __name__ == "__main__":
    unittest.main()
