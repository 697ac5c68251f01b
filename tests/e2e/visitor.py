"""A visitor of a web server, over a socket, who can leave or read slowly, and who knows whether
an answer is complete."""

import socket
import struct
import threading
from types import TracebackType
from typing import NamedTuple, Self

# What the system takes at once.
MOST_AT_ONCE = 10_000


class Reply(NamedTuple):
    """What a visitor received."""

    status: int  # 0 if there is no answer
    body: bytes
    whole: bool  # whether a browser would take it for complete


class Visitor:
    """A connection to a web server. `receive_buffer` limits what the system takes in advance; a
    visitor who stays sends more than one request."""

    def __init__(self, port: int, receive_buffer: int = 0, stays: bool = True) -> None:
        self.port = port
        self.stays = stays
        self.receive_buffer = receive_buffer
        self.connect()

    def connect(self) -> None:
        self.socket = socket.socket()
        if self.receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, self.receive_buffer)
        self.socket.settimeout(100)
        self.socket.connect(("127.0.0.1", self.port))
        self.received = bytearray()
        self.ended = False

    def __enter__(self) -> Self:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.socket.close()

    def send(self, query: str, body: bytes | None = None, program: str = "probe") -> None:
        """Sends a GET, or a POST if there is a body."""
        head = f"GET /cgi-bin/{program}?{query} HTTP/1.1\r\nHost: localhost\r\n"
        if not self.stays:
            head += "Connection: close\r\n"
        if body is not None:
            head = head.replace("GET", "POST", 1) + f"Content-Length: {len(body)}\r\n"
        try:
            self.socket.sendall(head.encode() + b"\r\n" + (body or b""))
        except OSError:
            pass  # the server may have answered already

    def ask(self, query: str, body: bytes | None = None, program: str = "probe") -> Reply:
        """Sends a request and reads the answer. Connects again if the server has closed the
        connection."""
        if self.ended:
            self.socket.close()
            self.connect()
        # A server may answer early, and take no more of the body then.
        sender = threading.Thread(target=self.send, args=(query, body, program))
        if body is None or len(body) < MOST_AT_ONCE:
            sender.run()
            return self.reply()
        sender.start()
        reply = self.reply()
        if reply.status == 413:
            self.socket.shutdown(socket.SHUT_RDWR)
            self.ended = True
        sender.join()
        return reply

    def leave(self) -> None:
        """Closes the connection."""
        self.socket.close()

    def leave_rudely(self) -> None:
        """Resets the connection."""
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.socket.close()

    # ---- Reading ---------------------------------------------------------------------------------

    def _receive(self) -> bool:
        """Returns False at the end."""
        try:
            more = self.socket.recv(65536)
        except ConnectionResetError:
            more = b""
        self.received += more
        self.ended = not more
        return bool(more)

    def sees(self, text: bytes) -> bool:
        """Waits until a text has arrived; returns False if the connection ends first."""
        while text not in self.received and self._receive():
            pass
        return text in self.received

    def _take(self, size: int) -> bytes:
        """So many bytes, or fewer at the end."""
        while len(self.received) < size and self._receive():
            pass
        taken = bytes(self.received[:size])
        del self.received[:size]
        return taken

    def _take_until(self, mark: bytes) -> bytes:
        """The bytes with their mark; without it, if the connection ends."""
        while mark not in self.received:
            if not self._receive():
                return self._take(len(self.received))
        return self._take(self.received.index(mark) + len(mark))

    def _chunks(self, status: int) -> Reply:
        body = bytearray()
        while True:
            line = self._take_until(b"\r\n")
            if not line.endswith(b"\r\n"):
                return Reply(status, bytes(body), False)
            size = int(line, 16)
            chunk = self._take(size + 2)
            body += chunk[:size]
            if len(chunk) < size + 2 or size == 0:
                return Reply(status, bytes(body), len(chunk) == size + 2)

    def reply(self) -> Reply:
        """Reads one answer to a GET or POST."""
        head = self._take_until(b"\r\n\r\n")
        if not head.endswith(b"\r\n\r\n"):
            return Reply(0, head, False)
        first, *lines = head.decode("latin-1").removesuffix("\r\n\r\n").split("\r\n")
        headers = {name.lower(): value for name, value in (line.split(": ", 1) for line in lines)}
        status = int(first.split(" ")[1])
        if status == 100:
            return self.reply()
        if headers.get("transfer-encoding") == "chunked":
            reply = self._chunks(status)
        elif "content-length" in headers:
            size = int(headers["content-length"])
            body = self._take(size)
            reply = Reply(status, body, len(body) == size)
        else:
            # The end of the connection is the end of the answer, whatever the reason.
            while self._receive():
                pass
            reply = Reply(status, self._take(len(self.received)), True)
        self.ended |= headers.get("connection", "").lower() == "close"
        return reply
