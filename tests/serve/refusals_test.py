"""Requests that no script is run for."""

import unittest

from fastcgi import (
    ABORT,
    BEGIN,
    GET_VALUES,
    PARAMS,
    STDIN,
    UNKNOWN,
    UNKNOWN_ROLE,
    VALUES,
    Answer,
    Client,
    Service,
    begin,
    pair,
    parameters,
    record,
    request,
    stream,
)

LARGE = 8_000_000  # more than sockets hold


class Refusals(unittest.TestCase):
    def check(self, answer: Answer, status: int, log: str, service: Service) -> None:
        self.assertTrue(answer.output.startswith(b"Status: %d " % status), answer.output)
        self.assertIn(b"Content-Type: text/plain", answer.header)
        self.assertTrue(answer.ended)
        self.assertEqual(len(service.log_lines()), 1, service.log())
        self.assertIn(log, service.log_lines()[0])
        self.assertEqual(service.noted("ran"), [])

    def test_413_at_once_if_the_declared_length_is_too_large(self) -> None:
        for tcp in (False, True):
            with Service("--body-size", "1000", tcp=tcp) as service, service.client() as client:
                start = parameters("header&note=ran", {"CONTENT_LENGTH": "1001"})
                client.send(begin() + stream(PARAMS, start))
                self.check(client.answer(), 413, "the body is too large: /probe", service)

    def test_413_arrives_although_the_server_sends_the_whole_body_first(self) -> None:
        body = bytes(LARGE)
        for tcp in (False, True):
            for length in (str(LARGE), ""):
                with self.subTest(tcp=tcp, length=length):
                    with Service("--body-size", "1M", tcp=tcp) as service:
                        more = {"CONTENT_LENGTH": length}
                        answer = service.ask("header&note=ran", body, more)
                        self.check(answer, 413, "the body is too large", service)

    def test_413_on_a_connection_that_stays_is_followed_by_the_next_request(self) -> None:
        with Service("--body-size", "1M") as service, service.client() as client:
            answer = client.ask("header&note=ran", bytes(LARGE), keep=True)
            self.check(answer, 413, "the body is too large", service)
            self.assertEqual(client.ask("header&text=next", keep=True).body, b"next")
            self.assertEqual(client.ask("header&text=last", keep=True, number=2).body, b"last")

    def test_413_counts_what_arrived_in_the_same_block_and_an_abort_there_is_late(self) -> None:
        more = {"CONTENT_LENGTH": "", "REQUEST_METHOD": "POST"}
        start = begin(keep=True) + stream(PARAMS, parameters("header&note=ran", more))
        pieces = record(STDIN, 1, bytes(999)) + record(STDIN, 1, b"x") + record(STDIN, 1, b"y")
        with Service("--body-size", "1000") as service, service.client() as client:
            following = request("header&text=next", keep=True)
            client.send(start + pieces + record(ABORT) + following)
            self.check(client.answer(), 413, "the body is too large", service)
            self.assertEqual(client.answer().body, b"next")

    def test_503_for_a_body_that_cannot_be_stored_is_not_followed_by_its_abort(self) -> None:
        more = {"CONTENT_LENGTH": "2000", "REQUEST_METHOD": "POST"}
        start = begin(keep=True) + stream(PARAMS, parameters("header&note=ran", more))
        for rest in (record(ABORT), record(STDIN, 1, bytes(1000)) + record(STDIN)):
            nowhere = {"TMPDIR": "/nowhere"}
            with Service("--body-in-memory", "1000", environment=nowhere) as service:
                with service.client() as client:
                    following = request("header&text=next", keep=True)
                    client.send(start + record(STDIN, 1, bytes(1000)) + rest + following)
                    self.check(client.answer(), 503, "cannot store the body: No such", service)
                    self.assertEqual(client.answer().body, b"next")

    def test_a_body_of_exactly_the_limit_passes(self) -> None:
        with Service("--body-size", "1000") as service:
            self.assertEqual(service.ask("header&size", bytes(1000)).body, b"1000\n")

    def test_431_for_too_many_parameters(self) -> None:
        more = {f"HTTP_X{i}": "x" for i in range(30)}
        for options in (("--parameters", "20"), ("--parameters-size", "100")):
            with Service(*options) as service, service.client() as client:
                answer = client.ask("header&note=ran", bytes(LARGE), more, keep=True)
                self.check(answer, 431, "too many parameters", service)

    def test_400_for_malformed_parameters(self) -> None:
        bad = {
            "a name with =": pair(b"A=B", b"x"),
            "a zero byte": pair(b"A", b"x\0y"),
            "a length that lies": pair(b"A", b"x")[:-1],
            "no name": pair(b"", b"x"),
        }
        for name, content in bad.items():
            with self.subTest(name), Service() as service, service.client() as client:
                client.send(begin() + stream(PARAMS, parameters("header&note=ran") + content))
                client.send(stream(STDIN, bytes(LARGE)))
                answer = client.answer()
                self.check(answer, 400, "malformed parameters", service)

    def test_400_for_a_body_that_was_cut_off(self) -> None:
        with Service() as service:
            answer = service.ask("header&note=ran", b"1234", {"CONTENT_LENGTH": "5"})
            self.check(answer, 400, "the body was cut off", service)

    def test_503_at_once_if_the_queue_is_full_although_idle_connections_fill_the_rest(self) -> None:
        options = ("--children", "1", "--queue", "1", "--idle-connections", "3")
        with Service(*options) as service:
            running = service.client()
            running.send(request("header&text=one&note=begun&sleep=600000", keep=True))
            service.wait_for_note("begun")
            waiting = service.client()
            waiting.send(request("header&text=two"))
            idle = [service.client() for _ in range(20)]
            answer = service.ask("header&note=ran")
            self.assertTrue(answer.output.startswith(b"Status: 503 "), answer)
            self.assertIn("too many requests", service.log())
            # The connections that were idle longest had to go.
            self.assertTrue(idle[0].is_closed())
            running.send(record(2))
            self.assertTrue(running.answer().ended)
            self.assertEqual(waiting.answer().body, b"two")
            for client in (running, waiting, *idle):
                client.socket.close()

    def test_closes_the_connection_that_was_idle_longest(self) -> None:
        options = ("--children", "1", "--queue", "0", "--idle-connections", "2")
        with Service(*options) as service:
            first, second, third = (service.client() for _ in range(3))
            self.assertTrue(first.ask("header", keep=True).ended)
            self.assertTrue(second.ask("header", keep=True).ended)
            self.assertTrue(third.ask("header", keep=True).ended)
            self.assertTrue(first.ask("header", keep=True).ended)
            self.assertTrue(service.ask("header").ended)
            self.assertTrue(second.is_closed())
            self.assertTrue(third.ask("header").ended)
            self.assertTrue(first.ask("header").ended)
            for client in (first, second, third):
                client.socket.close()


class Protocol(unittest.TestCase):
    def ask(self, client: Client, data: bytes) -> tuple[int, int, bytes]:
        client.send(data)
        return next(client.records())

    def test_answers_what_a_server_may_ask(self) -> None:
        with Service("--children", "3", "--queue", "2", "--idle-connections", "5") as service:
            with service.client() as client:
                names = [b"FCGI_MAX_CONNS", b"FCGI_MAX_REQS", b"FCGI_MPXS_CONNS", b"OTHER"]
                question = b"".join(pair(name, b"") for name in names)
                values = b"".join(map(pair, names, (b"10", b"10", b"0")))
                self.assertEqual(
                    self.ask(client, record(GET_VALUES, 0, question)), (VALUES, 0, values)
                )
                self.assertEqual(
                    self.ask(client, record(77, 0, b"?", 3)), (UNKNOWN, 0, bytes([77] + [0] * 7))
                )
                self.assertTrue(client.ask("header").ended)

    def test_refuses_other_roles(self) -> None:
        with Service() as service, service.client() as client:
            client.send(begin(role=2, keep=True) + stream(PARAMS, b"") + stream(STDIN, b""))
            answer = client.answer()
            self.assertEqual((answer.ended, answer.protocol), (True, UNKNOWN_ROLE))
            self.assertTrue(client.ask("header").ended)

    def test_closes_the_connection_of_a_server_that_speaks_something_else(self) -> None:
        with Service() as service:
            for data in (b"GET / HTTP/1.1\r\n\r\n", record(BEGIN, 1, b"short")):
                with service.client() as client:
                    client.send(data)
                    self.assertTrue(client.is_closed())
            self.assertEqual(len(service.log_lines()), 2)
            self.assertIn("not FastCGI", service.log())

    def test_a_connection_that_ends_inside_a_request_runs_nothing(self) -> None:
        whole = request("header&note=ran", b"body")
        with Service() as service:
            for size in range(1, len(whole), 7):
                with service.client() as client:
                    client.send(whole[:size])
            self.assertTrue(service.ask("header").ended)
            self.assertEqual(service.noted("ran"), [])
            self.assertEqual(service.log_lines(), [])


if __name__ == "__main__":
    unittest.main()
