"""How scripts end, and how they are ended."""

import os
import signal
import socket
import time
import unittest

from fastcgi import ABORT, Answer, Client, Service, is_alive, record, request, wait_for_end

LONG = "sleep=600000"


class Failures(unittest.TestCase):
    def check(self, query: str, status: int | None, log: str) -> Answer:
        """A page with status 500, and one line in the log. `status` is None if it may vary."""
        with Service() as service, service.client() as client:
            answer = client.ask(query, keep=True)
            self.assertTrue(answer.output.startswith(b"Status: 500 "), answer)
            self.assertTrue(answer.ended)
            self.assertIn(answer.status, (0, 143) if status is None else (status,))
            self.assertEqual(len(service.log_lines()), 1, service.log())
            self.assertIn(log + ": /probe?", service.log())
            # The connection is still good.
            self.assertEqual(client.ask("header&text=next", keep=True).body, b"next")
        return answer

    def test_a_crash(self) -> None:
        self.check("signal=11", 128 + 11, "signal 11 (Segmentation fault) ended the script")

    def test_a_crash_inside_the_header(self) -> None:
        self.check(
            "text=Content-Type: te&flush&signal=6", 134, "signal 6 (Aborted) ended the script"
        )

    def test_an_exit_status_without_an_answer(self) -> None:
        self.check("exit=3", 3, "the script ended with status 3 and sent no header")

    def test_no_answer(self) -> None:
        self.check("error=nothing", 0, "the script sent no header")

    def test_no_header(self) -> None:
        answer = self.check(
            "text=Hello\n\n&flush&" + LONG, 143, "the script did not begin with a header"
        )
        self.assertNotIn(b"Hello", answer.output)

    def test_no_header_and_then_the_end(self) -> None:
        self.check("text=Hello\n\nWorld\n", None, "the script did not begin with a header")

    def test_an_endless_header(self) -> None:
        self.check("write=300000", None, "the script did not begin with a header")

    def test_an_exit_status_after_an_answer_is_passed_on(self) -> None:
        with Service() as service:
            answer = service.ask("header&text=all&exit=200")
            self.assertEqual((answer.body, answer.ended, answer.status), (b"all", True, 200))
            self.assertIn("the script ended with status 200: /probe", service.log())
            self.assertEqual(len(service.log_lines()), 1)

    def test_half_an_answer_is_not_ended(self) -> None:
        for query, log in (
            ("header&text=half&flush&signal=11", "signal 11"),
            ("length=10&text=half", "shorter than its Content-Length"),
        ):
            with self.subTest(query), Service() as service, service.client() as client:
                answer = client.ask(query, keep=True)
                self.assertFalse(answer.ended)
                self.assertEqual(answer.body, b"half")
                self.assertEqual(len(service.log_lines()), 1, service.log())
                self.assertIn(log, service.log())

    def test_the_answer_to_head_may_be_shorter_than_its_length(self) -> None:
        with Service() as service:
            self.assertTrue(service.ask("length=10", more={"REQUEST_METHOD": "HEAD"}).ended)
            self.assertEqual(service.log_lines(), [])

    def test_a_line_of_the_log_cannot_be_forged(self) -> None:
        with Service() as service:
            service.ask("exit=1", more={"REQUEST_URI": "/a\ntarn-serve: forged\\" + "x" * 5000})
            lines = service.log().splitlines()
            self.assertEqual(len(lines), 1)
            self.assertTrue(lines[0].endswith("x" * 10))
            self.assertIn(r"/a\x0atarn-serve:\x20forged\x5cxxx", lines[0])
            self.assertLess(len(lines[0]), 1000)


class Abort(unittest.TestCase):
    def test_ends_the_group_before_it_is_answered(self) -> None:
        with Service() as service, service.client() as client:
            client.send(request(f"leave=600000&note=script&{LONG}", keep=True))
            processes = service.wait_for_note("left") + service.wait_for_note("script")
            client.send(record(ABORT))
            answer = client.answer()
            self.assertEqual((answer.output, answer.ended, answer.status), (b"", True, 143))
            self.assertFalse(is_alive(processes[1]))
            wait_for_end(processes[0])
            self.assertEqual(len(service.log_lines()), 1)
            self.assertIn("the server aborted the request", service.log())
            self.assertEqual(client.ask("header&text=next").body, b"next")

    def test_kills_a_script_that_does_not_end(self) -> None:
        with Service() as service, service.client() as client:
            client.send(request(f"ignore&header&flush&note=script&{LONG}"))
            script = service.wait_for_note("script")[0]
            client.send(record(ABORT))
            answer = client.answer()
            self.assertEqual((answer.ended, answer.status), (True, 137))
            self.assertFalse(is_alive(script))

    def test_kills_what_is_left_of_the_group_after_the_script(self) -> None:
        with Service() as service, service.client() as client:
            client.send(request(f"stubborn=600000&note=script&{LONG}", keep=True))
            left, script = service.wait_for_note("left")[0], service.wait_for_note("script")[0]
            start = time.monotonic()
            client.send(record(ABORT))
            # The script ends at once. The rest of the group gets two seconds.
            self.assertEqual(client.answer().status, 143)
            self.assertFalse(is_alive(script))
            wait_for_end(left)
            self.assertGreater(time.monotonic() - start, 1.5)

    def test_kills_what_a_script_left_behind_while_that_delays_the_end(self) -> None:
        with Service() as service, service.client() as client:
            client.send(request("leave=600000&header&text=x", keep=True))
            left = service.wait_for_note("left")[0]
            # Its end is not seen from here, but a request takes longer.
            self.assertTrue(service.ask("header&sleep=100").ended)
            client.send(record(ABORT))
            self.assertTrue(client.answer().ended)
            # If the second is over before the abort, nobody kills the process.
            if "aborted" in service.log():
                wait_for_end(left)
            else:
                os.kill(left, signal.SIGKILL)

    def test_before_the_request_is_complete_runs_nothing(self) -> None:
        with Service() as service, service.client() as client:
            client.send(request("header&note=ran", b"body", keep=True)[:-8])
            client.send(record(ABORT))
            self.assertEqual(client.answer(), Answer(b"", b"", True, 0, 0))
            self.assertEqual(client.ask("header&text=next").body, b"next")
            self.assertEqual(service.noted("ran"), [])

    def test_of_another_request_or_of_none_changes_nothing(self) -> None:
        with Service() as service, service.client() as client:
            client.send(record(ABORT, 5) + request("header&text=x&sleep=100"))
            client.send(record(ABORT, 5))
            self.assertEqual(client.answer().body, b"x")


class Disconnect(unittest.TestCase):
    def start(self, service: Service, query: str) -> tuple[Client, int]:
        client = service.client()
        client.send(request(f"{query}note=script&{LONG}"))
        return client, service.wait_for_note("script")[0]

    def test_ends_a_silent_script(self) -> None:
        for tcp in (False, True):
            with self.subTest(tcp=tcp), Service(tcp=tcp) as service:
                client, script = self.start(service, "header&flush&")
                client.socket.close()
                wait_for_end(script)
                service.wait_for_log("the visitor left: /probe")
                self.assertTrue(service.ask("header").ended)
                self.assertEqual(len(service.log_lines()), 1, service.log())

    def test_ends_a_script_that_writes(self) -> None:
        for tcp in (False, True):
            with self.subTest(tcp=tcp), Service(tcp=tcp) as service:
                client, script = self.start(service, "header&write=100000&")
                client.socket.close()
                wait_for_end(script)
                with service.client() as other:
                    other.send(request("header&note=writer&write=100000000"))
                    writer = service.wait_for_note("writer")[0]
                    other.socket.recv(1000)
                wait_for_end(writer)
                service.wait_for_log("note=writer")
                self.assertEqual(len(service.log_lines()), 2, service.log())

    def test_kills_the_group_after_two_seconds(self) -> None:
        with Service() as service:
            client, script = self.start(service, "ignore&stubborn=600000&")
            left = service.wait_for_note("left")[0]
            client.socket.close()
            wait_for_end(script)
            wait_for_end(left)

    def test_before_the_script_has_begun_runs_nothing(self) -> None:
        with Service("--children", "1") as service:
            first, script = self.start(service, "header&")
            with service.client() as client:
                client.send(request("header&note=ran"))
            first.send(record(ABORT))
            wait_for_end(script)
            self.assertTrue(service.ask("header").ended)
            self.assertEqual(service.noted("ran"), [])
            first.socket.close()

    def test_does_not_end_a_script_whose_whole_answer_was_sent(self) -> None:
        with Service() as service:
            with service.client() as client:
                client.send(request("length=2&text=ab&flush&note=sent&sleep=500&note=done"))
                service.wait_for_note("sent")
                client.socket.recv(1000)
            service.wait_for_note("done")
            self.assertEqual(service.log_lines(), [])

    def test_a_half_closed_connection_gets_its_answer(self) -> None:
        for tcp in (False, True):
            with self.subTest(tcp=tcp), Service("--children", "1", tcp=tcp) as service:
                with service.client() as first, service.client() as second:
                    # One runs, the other waits.
                    first.send(request("header&note=begun&sleep=300&text=first", keep=True))
                    first.socket.shutdown(socket.SHUT_WR)
                    service.wait_for_note("begun")
                    second.send(request("header&text=second&error=e"))
                    second.socket.shutdown(socket.SHUT_WR)
                    answer = first.answer()
                    self.assertEqual((answer.body, answer.ended), (b"first", True))
                    self.assertTrue(first.is_closed())
                    answer = second.answer()
                    self.assertEqual((answer.body, answer.errors), (b"second", b"e\n"))
                    self.assertEqual(service.log_lines(), [])


if __name__ == "__main__":
    unittest.main()
