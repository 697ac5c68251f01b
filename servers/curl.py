"""Sends requests with curl; returns what was received, and what was sent."""

import os
import re
import subprocess
import tempfile
from pathlib import Path
from typing import NamedTuple


class Sent(NamedTuple):
    """A request as it left curl."""

    method: str
    target: str
    headers: dict[str, str]  # names in lower case
    body: bytes


class Answer(NamedTuple):
    """A server's answer to a request; header names in lower case."""

    status: int
    headers: list[tuple[str, str]]
    body: bytes

    def header(self, name: str) -> str:
        """The value of the only header of this name."""
        values = [value for key, value in self.headers if key == name]
        assert len(values) == 1, f"{len(values)} headers {name}"
        return values[0]


def fetch(address: str, *arguments: str, folder: str) -> Answer:
    """Requests an address with curl, whose files are in a temporary folder below `folder`: as from
    a page of the same site, unless the arguments name another one."""
    where = ("Sec-Fetch-Site:", "Origin:")
    if not any(os.fsdecode(argument).startswith(where) for argument in arguments):
        arguments = ("-H", "Sec-Fetch-Site: same-origin", *arguments)
    with tempfile.TemporaryDirectory(dir=folder) as files:
        head, body = Path(files, "head"), Path(files, "body")
        command: list[str | Path] = [os.environ["CURL"], "-q", "-sSg", "--noproxy", "*"]
        command += ["--max-time", "100", "-D", head, "-o", body, *arguments]
        subprocess.run([*command, address], check=True, stdin=subprocess.DEVNULL)
        status, headers = last_head(head.read_bytes())
        # curl creates no file for an empty body.
        received = body.read_bytes() if body.exists() else b""
        return Answer(status, headers, received)


def fetch_traced(address: str, *arguments: str, folder: str) -> tuple[Sent, Answer]:
    """The same, with the request as curl sent it. The trace has each byte of the answer, too, as
    text, which takes long where that is large."""
    with tempfile.NamedTemporaryFile(dir=folder) as trace:
        answer = fetch(address, "--trace", trace.name, *arguments, folder=folder)
        return sent_request(trace.read()), answer


def sent_request(trace: bytes) -> Sent:
    """The request in curl's hexadecimal trace."""
    parts: dict[bytes, list[bytes]] = {b"header": [], b"data": []}
    for section in re.split(rb"\n(?=(?:=>|<=|==) )", trace):
        if found := re.match(rb"=> Send (header|data), ", section):
            digits = b"".join(re.findall(rb"\n[0-9a-f]+: (.{48})", section))
            parts[found[1]].append(bytes.fromhex(digits.decode()))
    head = b"".join(parts[b"header"]).decode("latin-1")
    request, *lines = head.removesuffix("\r\n\r\n").split("\r\n")
    method, target, _ = request.split(" ")
    headers = {}
    for header in lines:
        name, value = header.split(": ", 1)
        headers[name.lower()] = value
    return Sent(method, target, headers, b"".join(parts[b"data"]))


def last_head(heads: bytes) -> tuple[int, list[tuple[str, str]]]:
    """The status and headers of the last answer; a "100 Continue" may come before it."""
    # busybox httpd does not change a script's line ends.
    text = heads.decode("latin-1").replace("\r\n", "\n")
    status, *lines = text.removesuffix("\n\n").split("\n\n")[-1].split("\n")
    pairs = (line.split(":", 1) for line in lines)
    return int(status.split(" ")[1]), [(name.lower(), value.strip()) for name, value in pairs]
