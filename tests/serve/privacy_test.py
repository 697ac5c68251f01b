"""What a script can find of other requests, and what it can do to its own."""

import secrets
import unittest
from contextlib import ExitStack

from fastcgi import (
    ABORT,
    PARAMS,
    STDIN,
    Service,
    begin,
    pair,
    parameters,
    readable,
    record,
    request,
    stream,
    wait_until,
)


def inverted(text: str) -> str:
    """What the probe's command "scan" needs."""
    return bytes(~byte & 0xFF for byte in text.encode()).hex()


class Memory(unittest.TestCase):
    def test_of_a_script_has_nothing_of_other_requests(self) -> None:
        # Long enough that nothing else is it by accident.
        secret, own = secrets.token_hex(8), secrets.token_hex(8)

        def cookie(text: str) -> dict[str, str]:
            return {"HTTP_COOKIE": f"{secret}-cookie-{text}"}

        def body(text: str, times: int = 1) -> bytes:
            return f"{secret}-body-{text} ".encode() * times

        options = ("--children", "2", "--queue", "2", "--access-log", "{folder}/access")
        with Service(*options) as service, ExitStack() as stack:
            names = "finished large unread parameters body ends scanner waits refused"
            clients = {name: stack.enter_context(service.client()) for name in names.split()}
            # Finished, on connections that stay open: an answer, a message, a line in the log.
            for i in range(3):
                query = f"header&text={secret}-text-{i}&body&error={secret}-error&exit=3"
                answer = clients["finished"].ask(query, body("finished"), cookie("old"), keep=True)
                self.assertIn(body("finished"), answer.output)
            large = cookie("large" * 20_000)
            answer = clients["large"].ask("header&body", body("large", 30_000), large, keep=True)
            self.assertEqual(answer.body, body("large", 30_000))
            clients["large"].ask(f"header&error={secret}-again", b"", cookie("again"), keep=True)
            clients["large"].ask(f"text={secret}-no-header&exit=1", keep=True)
            # Running; the first one's answer waits to be read.
            clients["unread"].send(request("header&body", body("unread", 50_000), cookie("unread")))
            wait_until(lambda: readable(clients["unread"]), "no answer begins")
            clients["ends"].send(
                request(f"header&text={secret}-text&flush&note=begun&sleep=600000", keep=True)
            )
            service.wait_for_note("begun")
            # Arriving.
            started = record(PARAMS, 1, pair(b"HTTP_COOKIE", f"{secret}-parked".encode()))
            clients["parameters"].send(begin() + started)
            clients["body"].send(
                begin() + stream(PARAMS, parameters("header")) + record(STDIN, 1, body("parked"))
            )
            # Waiting, behind the script that looks at its memory.
            scan = f"header&scan={inverted(own)}&line=others&scan={inverted(secret)}"
            clients["scanner"].send(request(scan, more={"HTTP_COOKIE": own}))
            clients["waits"].send(request("header&text=done", body("waits"), cookie("waits")))
            # The queue is full, so both of them are in it.
            refused = clients["refused"].ask(f"header&text={secret}-refused")
            self.assertTrue(refused.output.startswith(b"Status: 503 "), refused)

            clients["ends"].send(record(ABORT))
            found = clients["scanner"].answer().lines
            self.assertEqual(clients["waits"].answer().body, b"done")
            self.assertEqual(clients["unread"].answer().body, body("unread", 50_000))
        of_others = found.index("others")
        # It finds its own, so it would find the others.
        self.assertTrue(any(line.endswith(f": {own}") for line in found[:of_others]), found)
        self.assertEqual(found[of_others + 1 :], [])


class Body(unittest.TestCase):
    def test_cannot_be_written_to(self) -> None:
        with Service("--body-in-memory", "1000") as service:
            for size in (1, 1000, 1001, 100_000):
                self.assertEqual(
                    service.ask("header&scribble&size", bytes(size)).lines, ["1", str(size)]
                )


if __name__ == "__main__":
    unittest.main()
