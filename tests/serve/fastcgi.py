"""A FastCGI client, and a service to talk to."""

import os
import select
import signal
import socket
import struct
import subprocess
import tempfile
import time
from collections.abc import Callable, Iterator, Mapping
from pathlib import Path
from types import TracebackType
from typing import NamedTuple, Self

BEGIN, ABORT, END, PARAMS, STDIN, STDOUT, STDERR, DATA, GET_VALUES, VALUES, UNKNOWN = range(1, 12)
KEEP = 1
RESPONDER = 1
COMPLETE, CANNOT_MULTIPLEX, OVERLOADED, UNKNOWN_ROLE = range(4)

PROBE = os.environ["PROBE"]
SANITIZED = os.environ.get("SANITIZED") == "ON"
# What runs the programs if they are for another processor.
EMULATOR = os.environ.get("EMULATOR", "").split()
MUSL = os.environ.get("C_LIBRARY") == "musl"
OF_MUSL = {
    "Address already in use": "Address in use",
    "Cannot allocate memory": "Out of memory",
    "Too many open files": "No file descriptors available",
}


def error_text(of_glibc: str) -> str:
    """What strerror() says, with the C library of the programs."""
    return OF_MUSL[of_glibc] if MUSL else of_glibc


def record(kind: int, request: int = 1, content: bytes = b"", padding: int = 0) -> bytes:
    head = struct.pack(">BBHHBB", 1, kind, request, len(content), padding, 0)
    return head + content + bytes(padding)


def begin(request: int = 1, keep: bool = False, role: int = RESPONDER) -> bytes:
    return record(BEGIN, request, struct.pack(">HB5x", role, KEEP if keep else 0))


def pair(name: bytes, value: bytes) -> bytes:
    sizes = (
        bytes([n]) if n < 128 else struct.pack(">I", n | 1 << 31) for n in map(len, (name, value))
    )
    return b"".join(sizes) + name + value


def stream(kind: int, content: bytes, request: int = 1, most: int = 65535) -> bytes:
    """A stream, with its end."""
    pieces = (content[i : i + most] for i in range(0, len(content), most))
    return b"".join(record(kind, request, piece) for piece in pieces) + record(kind, request)


def parameters(query: str, more: Mapping[str, str] | None = None) -> bytes:
    all_of_them = {
        "REQUEST_METHOD": "GET",
        "QUERY_STRING": query,
        "REQUEST_URI": "/probe?" + query,
        **(more or {}),
    }
    return b"".join(pair(os.fsencode(k), os.fsencode(v)) for k, v in all_of_them.items())


def request(
    query: str,
    body: bytes = b"",
    more: Mapping[str, str] | None = None,
    keep: bool = False,
    number: int = 1,
) -> bytes:
    """A whole request for the probe."""
    length = {"REQUEST_METHOD": "POST", "CONTENT_LENGTH": str(len(body))} if body else {}
    return (
        begin(number, keep)
        + stream(PARAMS, parameters(query, {**length, **(more or {})}), number)
        + stream(STDIN, body, number)
    )


def pattern(size: int, seed: int = 0) -> bytes:
    """What the probe writes."""
    period = bytes(ord("a") + (i * 7 + seed) % 26 for i in range(26))
    return (period * (size // 26 + 1))[:size]


class Answer(NamedTuple):
    """What came back for a request."""

    output: bytes
    errors: bytes
    ended: bool  # whether there was an FCGI_END_REQUEST
    status: int  # of the application
    protocol: int

    @property
    def header(self) -> bytes:
        return self.output.partition(b"\r\n\r\n")[0]

    @property
    def body(self) -> bytes:
        return self.output.partition(b"\r\n\r\n")[2]

    @property
    def lines(self) -> list[str]:
        return self.body.decode().splitlines()


class Client:
    """A connection to a service."""

    def __init__(self, address: str | tuple[str, int], receive_buffer: int = 0) -> None:
        kind = socket.AF_UNIX if isinstance(address, str) else socket.AF_INET
        self.socket = socket.socket(kind, socket.SOCK_STREAM)
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.settimeout(60)
        self.socket.connect(address)
        self.received = b""

    def __enter__(self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.socket.close()

    def send(self, data: bytes) -> None:
        self.socket.sendall(data)

    def records(self) -> Iterator[tuple[int, int, bytes]]:
        """Type, request and content of each record, until the connection ends."""
        while True:
            while len(self.received) >= 8:
                version, kind, number, size, padding, _ = struct.unpack(
                    ">BBHHBB", self.received[:8]
                )
                if version == 0:  # the answer was cut off
                    self.received = b""
                    return
                assert version == 1, self.received[:16]
                if len(self.received) < 8 + size + padding:
                    break
                content = self.received[8 : 8 + size]
                self.received = self.received[8 + size + padding :]
                yield kind, number, content
            try:
                more = self.socket.recv(65536)
            except ConnectionResetError:
                return
            if not more:
                return
            self.received += more

    def answer(self, number: int = 1) -> Answer:
        """Reads the answer to a request."""
        output, errors = [], []
        for kind, of_request, content in self.records():
            assert of_request == number, (kind, of_request, content)
            if kind == STDOUT:
                output.append(content)
            elif kind == STDERR:
                errors.append(content)
            else:
                assert kind == END, (kind, content)
                status, protocol = struct.unpack(">IB3x", content)
                return Answer(b"".join(output), b"".join(errors), True, status, protocol)
        return Answer(b"".join(output), b"".join(errors), False, 0, 0)

    def ask(
        self,
        query: str,
        body: bytes = b"",
        more: Mapping[str, str] | None = None,
        keep: bool = False,
        number: int = 1,
    ) -> Answer:
        self.send(request(query, body, more, keep, number))
        return self.answer(number)

    def is_closed(self) -> bool:
        """Whether the service has closed the connection; waits for that if it has not answered."""
        try:
            return self.received == b"" and self.socket.recv(1) == b""
        except ConnectionResetError:
            return True


def wait_until(happened: Callable[[], bool], failure: str) -> None:
    """Waits for an event; fails with this text if it does not happen."""
    end = time.monotonic() + 100
    while time.monotonic() < end:
        if happened():
            return
        time.sleep(0.01)
    raise AssertionError(failure)


def children_of(pid: int) -> list[int]:
    try:
        return [int(word) for word in Path(f"/proc/{pid}/task/{pid}/children").read_text().split()]
    except FileNotFoundError:
        return []


def state_of(pid: int) -> str:
    """The letter that /proc gives for the state of a process; empty if there is none."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return ""


def is_alive(pid: int) -> bool:
    """Whether a process exists and is not a zombie."""
    return state_of(pid) not in ("", "Z")


def processor_ticks(pid: int) -> int:
    """The processor time that a process has used, in hundredths of a second."""
    fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    return int(fields[11]) + int(fields[12])


class Service:
    """The probe, or another program, as a service; for a with statement.

    It gets a listening socket as its standard input: a Unix socket, or TCP on a free port.
    """

    def __init__(
        self,
        *options: str,
        program: str = PROBE,
        tcp: bool = False,
        environment: Mapping[str, str] | None = None,
        wrapper: tuple[str, ...] = (),
        listens: bool = True,
    ) -> None:
        self.command = [*wrapper, *EMULATOR, program, *options]
        self.tcp = tcp
        self.environment = environment or {}
        self.listens = listens
        self.wrapped = bool(wrapper)

    def __enter__(self) -> Self:
        self.folder = tempfile.TemporaryDirectory(prefix="tarn-serve-")
        self.address: str | tuple[str, int] = self.path("socket")
        self.notes = self.path("notes")
        environment = {
            **{k: v for k, v in os.environ.items() if not k.startswith(("HTTP_", "REQUEST_"))},
            "NOTES": self.notes,
            **self.environment,
        }
        listener = None
        if self.listens and self.tcp:
            listener = socket.create_server(("127.0.0.1", 0), backlog=1000)
            self.address = listener.getsockname()
        elif self.listens:
            listener = socket.socket(socket.AF_UNIX)
            listener.bind(self.path("socket"))
            listener.listen(1000)
        with open(self.path("log"), "wb") as log, open(self.path("output"), "wb") as output:
            self.process = subprocess.Popen(
                [word.replace("{folder}", self.folder.name) for word in self.command],
                stdin=listener.fileno() if listener else subprocess.DEVNULL,
                stdout=output,
                stderr=log,
                env=environment,
            )
        if listener:
            listener.close()
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        children = children_of(self.process.pid)
        try:
            if self.process.poll() is None:
                self.process.terminate()
            try:
                status = self.process.wait(100)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
                for child in children:
                    if is_alive(child):
                        os.kill(child, signal.SIGKILL)
                raise
            if kind is None:
                assert status in (0, -signal.SIGKILL), f"status {status}: {self.log()}"
            if SANITIZED:
                assert (
                    "Sanitizer" not in self.log() and "runtime error" not in self.log()
                ), self.log()
        except BaseException:
            print(self.log())
            raise
        finally:
            if kind:
                print(self.log())
            self.folder.cleanup()

    def path(self, name: str) -> str:
        return os.path.join(self.folder.name, name)

    def wait_until_it_listens(self) -> None:
        """The file of a socket is there before anybody can connect."""

        def listens() -> bool:
            assert self.process.poll() is None, self.log()
            try:
                self.client().socket.close()
                return True
            except (FileNotFoundError, ConnectionRefusedError):
                return False

        wait_until(listens, "the service does not listen")

    def client(self, receive_buffer: int = 0) -> Client:
        return Client(self.address, receive_buffer)

    def ask(self, query: str, body: bytes = b"", more: Mapping[str, str] | None = None) -> Answer:
        """Sends one request on a connection of its own."""
        with self.client() as client:
            return client.ask(query, body, more)

    def log(self) -> str:
        return Path(self.path("log")).read_text(errors="replace")

    def log_lines(self) -> list[str]:
        """The lines about requests and workers."""
        return [line for line in self.log().splitlines() if line.startswith("tarn-serve: ")]

    def wait_for_log(self, text: str) -> None:
        wait_until(lambda: text in self.log(), f"{text!r} is not in the log: {self.log()}")

    def noted(self, word: str) -> list[int]:
        """The numbers that scripts noted with this word."""
        try:
            lines = Path(self.notes).read_text().splitlines()
        except FileNotFoundError:
            return []
        return [int(line.split()[1]) for line in lines if line.split()[0] == word]

    def wait_for_note(self, word: str, count: int = 1) -> list[int]:
        wait_until(lambda: len(self.noted(word)) >= count, f"no note {word}: {self.log()}")
        return self.noted(word)

    def worker(self) -> int:
        """The process that forks the scripts."""
        return int(self.ask("header&parent").lines[0])


def wait_for_end(pid: int) -> None:
    wait_until(lambda: not is_alive(pid), f"process {pid} did not end")


def readable(client: Client) -> bool:
    """Whether something has arrived."""
    return bool(select.select([client.socket], [], [], 0)[0])
