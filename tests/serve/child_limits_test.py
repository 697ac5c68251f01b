"""Limits of time, memory and other things."""

import os
import shutil
import tempfile
import time
import unittest

from fastcgi import (
    PARAMS,
    PROBE,
    SANITIZED,
    Service,
    begin,
    error_text,
    is_alive,
    parameters,
    request,
    stream,
    wait_for_end,
)

LONG = "sleep=600000"
TOOL = os.environ["TOOL"]
# A user of whom nothing else runs. The limit of processes counts those of a user, and not root's.
USER = 64321


class Limits(unittest.TestCase):
    def test_a_script_that_takes_too_long_is_ended(self) -> None:
        # Before that, the script has to start and to write its notes.
        with Service("--seconds", "3") as service, service.client() as client:
            answer = client.ask(f"leave=600000&note=script&{LONG}", keep=True)
            self.assertTrue(answer.output.startswith(b"Status: 504 "), answer)
            self.assertEqual((answer.ended, answer.status), (True, 143))
            self.assertEqual(len(service.log_lines()), 1, service.log())
            self.assertIn("the script took too long: /probe", service.log())
            for pid in service.noted("left") + service.noted("script"):
                wait_for_end(pid)
            self.assertEqual(client.ask("header&text=next").body, b"next")

    def test_a_script_that_ignores_its_end_is_killed(self) -> None:
        with Service("--seconds", "3") as service:
            answer = service.ask(f"ignore&header&text=half&flush&note=script&{LONG}")
            self.assertFalse(answer.ended)
            self.assertEqual(answer.body, b"half")
            self.assertFalse(is_alive(service.noted("script")[0]))
            self.assertEqual(len(service.log_lines()), 1, service.log())

    def test_processor_time(self) -> None:
        with Service("--processor-seconds", "1") as service:
            answer = service.ask("burn")
            self.assertTrue(answer.output.startswith(b"Status: 500 "), answer)
            self.assertIn("signal 24 (CPU time limit exceeded) ended the script", service.log())

    def test_what_the_kernel_limits(self) -> None:
        options = ("--processor-seconds", "7", "--address-space", "3G", "--open-files", "50")
        with Service(*options, "--processes", "1000") as service:
            lines = service.ask("header&limits").lines
        self.assertEqual(lines, ["7", str(3 << 30), "50", "1000"])

    def test_a_limit_cannot_be_raised(self) -> None:
        wrapper = ("sh", "-c", 'ulimit -n 100; exec "$@"', "sh")
        with Service("--open-files", "200", wrapper=wrapper) as service:
            self.assertEqual(service.ask("header&limits").lines[2], "100")

    @unittest.skipIf(SANITIZED, "sanitizers end a program whose allocation fails")
    def test_memory_that_a_script_cannot_get(self) -> None:
        with Service("--address-space", "64M") as service, service.client() as client:
            answer = client.ask("header&allocate=100000000&allocate=1000000", keep=True)
            self.assertEqual((answer.ended, answer.status), (True, 0))
            self.assertEqual(answer.lines, [error_text("Cannot allocate memory"), "fine"])
            # The next one finds the same limit, and all of it.
            answer = client.ask("header&allocate=30000000", b"x" * 2_000_000, keep=True)
            self.assertEqual(answer.lines, ["fine"])
            self.assertEqual(service.log_lines(), [])

    def test_files_that_a_script_cannot_open(self) -> None:
        with Service("--open-files", "20") as service, service.client() as client:
            for body in (b"", b"x" * 2_000_000):
                answer = client.ask("header&open=18&open=17", body, keep=True)
                self.assertEqual((answer.ended, answer.status), (True, 0))
                self.assertEqual(
                    answer.lines, [f"17 {error_text('Too many open files')}", "17 fine"]
                )
            self.assertEqual(service.log_lines(), [])

    def test_processes_that_a_script_cannot_start(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)
            program = shutil.copy(PROBE, folder)
            as_user = ("setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups")
            wrapper = as_user if os.getuid() == 0 else ()
            # The service itself has two.
            options = ("--processes", "3" if wrapper else "1")
            with (
                Service(*options, program=program, wrapper=wrapper) as service,
                service.client() as client,
            ):
                for _ in range(2):
                    answer = client.ask("header&fork&text=next", keep=True)
                    self.assertEqual((answer.ended, answer.status), (True, 0))
                    expected = ["Resource temporarily unavailable", "next"]
                    self.assertEqual(answer.lines, expected)
                self.assertEqual(service.log_lines(), [])
            with Service(program=program, wrapper=wrapper) as service:
                self.assertEqual(service.ask("header&fork").lines, ["fine"])

    @unittest.skipIf(SANITIZED, "sanitizers need more memory and files")
    def test_a_program_that_cannot_even_start_within_its_limits(self) -> None:
        script = "printf 'Content-Type: text/plain\\r\\n\\r\\n'; exec 3</dev/null; echo $?"
        for limit, reason in (
            # The kernel kills a program for which there is no room.
            (("--address-space", "100K"), "signal 11 (Segmentation fault) ended the script"),
            # The loader cannot open the C library.
            (("--open-files", "3"), "the script ended with status 127 and sent no header"),
        ):
            command = ("--", "/bin/sh", "-c", script)
            with self.subTest(limit), Service(*limit, *command, program=TOOL) as service:
                with service.client() as client:
                    for count in (1, 2):
                        answer = client.ask("", keep=True)
                        self.assertTrue(answer.output.startswith(b"Status: 500 "), answer)
                        lines = [line for line in service.log_lines() if "script" in line]
                        self.assertEqual(len(lines), count)
                        self.assertIn(reason, lines[-1])

    def test_a_request_that_does_not_arrive(self) -> None:
        whole = request("header&note=ran", b"body")
        with Service("--receive-seconds", "1") as service:
            clients = []
            # Inside the first record, after it, and inside the body.
            for size in (3, 16, len(whole) - 9):
                clients.append(service.client())
                clients[-1].send(whole[:size])
            for client in clients:
                self.assertTrue(client.is_closed())
                client.socket.close()
            self.assertEqual(len(service.log_lines()), 3)
            self.assertIn("the request did not arrive in time", service.log())
            self.assertEqual(service.noted("ran"), [])

    def test_a_server_that_does_not_read(self) -> None:
        for tcp in (False, True):
            with self.subTest(tcp=tcp), Service("--send-seconds", "1", tcp=tcp) as service:
                with service.client(receive_buffer=4096) as client:
                    client.send(request("header&note=script&write=100000000", keep=True))
                    script = service.wait_for_note("script")[0]
                    wait_for_end(script)
                    service.wait_for_log("the server does not read the response: /probe")
                    self.assertFalse(client.answer().ended)
                self.assertEqual(len(service.log_lines()), 1, service.log())

    def test_a_server_that_does_not_read_the_end(self) -> None:
        """The script has ended, but not all of its answer has been sent."""
        with Service("--send-seconds", "1") as service, service.client(4096) as client:
            client.send(request("header&note=script&write=300000", keep=True))
            service.wait_for_log("the server does not read the response")
            self.assertFalse(client.answer().ended)

    def test_a_server_that_reads_slowly_gets_everything(self) -> None:
        # All pauses together exceed the limit, and each leaves time for a busy machine.
        with Service("--send-seconds", "7") as service, service.client() as client:
            client.send(request("header&write=700000&complain=200000"))
            for _ in range(5):
                time.sleep(1.5)
                client.received += client.socket.recv(160000)
            answer = client.answer()
            self.assertEqual((len(answer.body), answer.ended), (700000, True))
            self.assertEqual(len(answer.errors), 200000)

    def test_more_requests_wait(self) -> None:
        with Service("--children", "2", "--queue", "10") as service:
            clients = [service.client() for _ in range(12)]
            for i, client in enumerate(clients):
                client.send(request(f"header&text={i}&sleep=20"))
            for i, client in enumerate(clients):
                self.assertEqual(client.answer().body, str(i).encode())
                client.socket.close()

    def test_the_worker_does_not_wait_for_one_client(self) -> None:
        with Service() as service, service.client() as slow:
            slow.send(begin() + stream(PARAMS, parameters("header"))[:-8])
            self.assertEqual(service.ask("header&text=a").body, b"a")


if __name__ == "__main__":
    unittest.main()
