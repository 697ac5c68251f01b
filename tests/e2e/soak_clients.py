"""The clients of soak_test.py: each kind of request knows which answer is right, and what the
service counts and logs about it."""

import collections
import math
import random
import socket
import struct
import threading
import time
from collections.abc import Callable
from typing import NamedTuple

from chaos_test import Site, pattern
from visitor import Reply, Visitor

MIB = 1024 * 1024
LARGEST = 5 * MIB  # of a body
SECONDS = 5  # that a script may run

# With this line in a script's header, nginx passes the answer on as it arrives.
UNBUFFERED = "line=X-Accel-Buffering:no"

# How long a client waits for the next byte.
PATIENCE = 60


# ---- Plain requests ------------------------------------------------------------------------------


class Plain:
    """Sends GETs on kept connections, some at once, and compares every byte of each answer. Each
    request has a number, which its answer must have."""

    AT_ONCE = 25
    OF_A_CONNECTION = 500  # nginx closes a connection after 1,000

    def __init__(self, port: int) -> None:
        self.port = port
        self.right = 0
        self.problem = ""

    def run(self, numbers: list[int]) -> None:
        """Sends a request for each number. Stops at a wrong answer."""
        try:
            for start in range(0, len(numbers), self.OF_A_CONNECTION):
                with socket.create_connection(("127.0.0.1", self.port)) as connection:
                    # One call takes all answers of a batch, or what came within this time.
                    patience = struct.pack("ll", PATIENCE, 0)
                    connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVTIMEO, patience)
                    self.use(connection, numbers[start : start + self.OF_A_CONNECTION])
        except OSError as error:
            self.problem = f"a plain request: {error}"
        except AssertionError as error:
            self.problem = f"a plain request got {error}"

    def use(self, connection: socket.socket, numbers: list[int]) -> None:
        # The first answer tells how long all of them are, and how they begin.
        connection.sendall(self.request(numbers[0]))
        first = b""
        while len(first.partition(b"\r\n\r\n")[2]) < 12 and (more := connection.recv(65536)):
            first += more
        head = self.checked(first, numbers[0], b"")
        rest = numbers[1:]
        for start in range(0, len(rest), self.AT_ONCE):
            batch = rest[start : start + self.AT_ONCE]
            connection.sendall(b"".join(map(self.request, batch)))
            size = len(first) * len(batch)
            answers = connection.recv(size, socket.MSG_WAITALL)
            for i, number in enumerate(batch):
                answer = answers[i * len(first) : (i + 1) * len(first)]
                self.checked(answer, number, head)

    @staticmethod
    def request(number: int) -> bytes:
        path = b"/cgi-bin/probe?length=12&text=%012d" % number
        return b"GET " + path + b" HTTP/1.1\r\nHost: localhost\r\n\r\n"

    def checked(self, answer: bytes, number: int, head: bytes) -> bytes:
        """The header of a right answer, without its date."""
        found, _, body = answer.partition(b"\r\n\r\n")
        before, _, after = found.partition(b"\r\nDate: ")
        found = before + after[29:]
        assert found.startswith(b"HTTP/1.1 200 ") and found == (head or found), answer[:300]
        assert body == b"%012d" % number, answer[:300]
        self.right += 1
        return found


# ---- Other requests ------------------------------------------------------------------------------


class Client(NamedTuple):
    """What a kind of request needs."""

    site: Site
    chance: random.Random

    def size(self) -> int:
        """From 0 to the largest, small sizes as often as large ones."""
        return int(math.exp(self.chance.uniform(0, math.log(LARGEST + 1)))) - 1

    def text(self, size: int) -> bytes:
        start = self.chance.randrange(26)
        return pattern(start + size)[start:]

    def expect(self, query: str, body: bytes | None, answer: bytes) -> int:
        """Sends a request whose answer is this; returns the size of its body."""
        reply = self.site.ask(query, body)
        assert reply == Reply(200, answer, True), shown(reply)
        return len(body or b"")

    def expect_error(self, query: str, status: int, body: bytes | None = None) -> int:
        reply = self.site.ask(query, body)
        assert (reply.status, reply.whole) == (status, True), shown(reply)
        return 0

    def expect_half(self, query: str) -> int:
        reply = self.site.ask(query)
        assert not reply.whole or reply.status >= 500, shown(reply)
        return 0


def shown(reply: Reply) -> str:
    """A reply that is not right."""
    whole = "" if reply.whole else "not whole, "
    return f"{reply.status}, {whole}{len(reply.body)} bytes: {reply.body[:100]!r}"


def echo(client: Client) -> int:
    body = client.text(client.size())
    return client.expect("header&body", body, body)


def largest_body(client: Client) -> int:
    body = client.text(LARGEST)
    return client.expect("header&body", body, body)


def ignored_body(client: Client) -> int:
    return client.expect("header&text=ignored", client.text(client.size()), b"ignored")


def answer_before_the_body(client: Client) -> int:
    body = client.text(client.size())
    return client.expect("header&write=300000&size", body, pattern(300_000) + b"%d\n" % len(body))


def large_answer(client: Client) -> int:
    size = client.size()
    return client.expect(f"length={size}&write={size}", None, pattern(size))


def slow_reader(client: Client) -> int:
    """Takes a second for more than all buffers hold."""
    size = 2_000_000
    with client.site.visitor(receive_buffer=100_000) as visitor:
        visitor.send(f"{UNBUFFERED}&length={size}&write={size}")
        while len(visitor.received) < size and (more := visitor.socket.recv(20_000)):
            visitor.received += more
            time.sleep(0.01)
        reply = visitor.reply()
    assert reply == Reply(200, pattern(size), True), shown(reply)
    return 0


def leave(client: Client, query: str, how: Callable[[Visitor], None]) -> int:
    """Leaves when the answer has begun."""
    visitor = client.site.visitor()
    visitor.send(f"{UNBUFFERED}&header&{query}")
    begun = visitor.sees(b"\r\n\r\n")
    assert begun and visitor.received.startswith(b"HTTP/1.1 200 "), bytes(visitor.received[:200])
    how(visitor)
    return 0


def leave_within_the_body(client: Client) -> int:
    """nginx passes on no request whose body has not arrived."""
    with client.site.visitor() as visitor:
        head = (
            "POST /cgi-bin/probe?header HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100000\r\n"
        )
        visitor.socket.sendall(f"{head}\r\n".encode() + bytes(50_000))
    return 0


class Kind(NamedTuple):
    """A kind of request."""

    name: str
    ask: Callable[[Client], int]  # returns how many bytes of a body the service received
    failure: str = "none"  # as the service counts it; empty if it sees no request
    code: str = "2xx"  # of the HTTP status that it counts
    line: str = ""  # in its log


SIGNAL = "signal {} ended the script"
KINDS = (
    Kind("body sent back", echo),
    Kind("body ignored", ignored_body),
    Kind("answer before the body is read", answer_before_the_body),
    Kind("answer of 0 to 5 MiB", large_answer),
    Kind("slow reader", slow_reader),
    Kind(
        "body over the limit",
        lambda client: client.expect_error("header&size", 413, bytes(LARGEST + 1)),
        "body_size",
        "4xx",
        "the body is too large",
    ),
    Kind(
        "crash",
        lambda client: client.expect_error("signal=11", 500),
        "signal",
        "5xx",
        SIGNAL.format("11 (Segmentation fault)"),
    ),
    Kind(
        "crash within the answer",
        lambda client: client.expect_half("header&text=half&flush&signal=9"),
        "signal",
        "2xx",
        SIGNAL.format("9 (Killed)"),
    ),
    Kind(
        "status, no header",
        lambda client: client.expect_error("exit=3", 500),
        "no_response",
        "5xx",
        "the script ended with status 3 and sent no header",
    ),
    Kind(
        "status after the answer",
        lambda client: client.expect("header&text=done&exit=4", None, b"done"),
        "status",
        "2xx",
        "the script ended with status 4",
    ),
    Kind(
        "no header",
        lambda client: client.expect_error("text=secret", 500),
        "no_response",
        "5xx",
        "the script sent no header",
    ),
    Kind(
        "half an answer",
        lambda client: client.expect_half("length=100000&write=99999"),
        "short",
        "2xx",
        "the script's response is shorter than its Content-Length",
    ),
    Kind(
        "visitor leaves",
        lambda client: leave(client, "text=x&flush&sleep=600000", Visitor.leave),
        "visitor_left",
        "2xx",
        "the visitor left",
    ),
    Kind(
        "visitor resets the connection",
        lambda client: leave(client, "write=1000000000", Visitor.leave_rudely),
        "visitor_left",
        "2xx",
        "the visitor left",
    ),
    Kind("visitor leaves within the body", leave_within_the_body, ""),
    Kind(
        "complaint",
        lambda client: client.expect("header&error=complaint&text=ok", None, b"ok"),
        line="complaint",
    ),
    Kind(
        "process left behind",
        lambda client: client.expect("header&leave=20&text=left", None, b"left"),
    ),
)
# These take long, so there are few of them.
LARGE = Kind("largest body", largest_body)
TIMEOUT = Kind(
    "script that hangs",
    lambda client: client.expect_error("sleep=600000", 504),
    "time",
    "5xx",
    "the script took too long",
)


class Expected:
    """What the clients know about the service's figures."""

    def __init__(self, files: set[str]) -> None:
        self.files = files  # that were there before the first request
        self.kinds = collections.Counter[str]()
        self.failures = collections.Counter[str]()
        self.codes = collections.Counter[str]()
        self.lines = collections.Counter[str]()
        self.received = 0  # bytes of bodies
        self.reloads = 0
        self.kills = 0
        self.lost = 0  # requests without an answer because a worker was killed
        self.problems: list[str] = []
        self.lock = threading.Lock()

    def requests(self) -> int:
        return sum(self.kinds.values())

    def served(self) -> int:
        """Requests that reached the service."""
        return sum(self.failures.values())

    def add_plain(self, count: int) -> None:
        self.kinds["plain"] += count
        self.failures["none"] += count
        self.codes["2xx"] += count

    def ask(self, kind: Kind, client: Client) -> None:
        problem = ""
        received = 0
        try:
            received = kind.ask(client)
        except (AssertionError, OSError, ValueError) as error:
            problem = f"{kind.name}: {error}"
        with self.lock:
            if problem:
                self.problems.append(problem)
            self.kinds[kind.name] += 1
            self.received += received
            if kind.failure:
                self.failures[kind.failure] += 1
                self.codes[kind.code] += 1
            if kind.line:
                self.lines[kind.line] += 1
