"""Limits of time, memory and other things."""

import time
import unittest

from fastcgi import PARAMS, Service, begin, is_alive, parameters, request, stream, wait_for_end

LONG = "sleep=600000"


class Limits(unittest.TestCase):
    def test_a_script_that_takes_too_long_is_ended(self) -> None:
        with Service("--seconds", "1") as service, service.client() as client:
            answer = client.ask(f"leave=600000&note=script&{LONG}", keep=True)
            self.assertTrue(answer.output.startswith(b"Status: 504 "), answer)
            self.assertEqual((answer.ended, answer.status), (True, 143))
            self.assertEqual(len(service.log_lines()), 1, service.log())
            self.assertIn("the script took too long: /probe", service.log())
            for pid in service.noted("left") + service.noted("script"):
                wait_for_end(pid)
            self.assertEqual(client.ask("header&text=next").body, b"next")

    def test_a_script_that_ignores_its_end_is_killed(self) -> None:
        with Service("--seconds", "1") as service:
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
                    service.wait_for_log("the server does not read the answer: /probe")
                    self.assertFalse(client.answer().ended)
                self.assertEqual(len(service.log_lines()), 1, service.log())

    def test_a_server_that_does_not_read_the_end(self) -> None:
        """The script has ended, but not all of its answer has been sent."""
        with Service("--send-seconds", "1") as service, service.client(4096) as client:
            client.send(request("header&note=script&write=300000", keep=True))
            service.wait_for_log("the server does not read the answer")
            self.assertFalse(client.answer().ended)

    def test_a_server_that_reads_slowly_gets_everything(self) -> None:
        with Service("--send-seconds", "3") as service, service.client() as client:
            client.send(request("header&write=700000&complain=200000"))
            for _ in range(5):
                time.sleep(0.8)
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
