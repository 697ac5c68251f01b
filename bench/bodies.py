"""The measured requests, and the expected answers of the programs in process/."""

import random
from typing import NamedTuple

BOUNDARY = "----------------------------d74496d66958"
FILE = 'Content-Disposition: form-data; name="{}"; filename="{}"\r\nContent-Type: {}\r\n\r\n'
FIELD = 'Content-Disposition: form-data; name="{}"\r\n\r\n'
BINARY = "application/octet-stream"
MULTIPART = "multipart/form-data; boundary="
KIB, MIB = 1 << 10, 1 << 20


class Request(NamedTuple):
    variables: dict
    body: bytes
    answer: str  # expected from scripts
    floor: str  # expected from the floor

    @property
    def size(self):
        return len(self.body)


class File(NamedTuple):
    name: str
    file_name: str
    content_type: str
    data: bytes


def page(text):
    return f"Content-Type: text/plain\n\n{text}\n"


def some(items):
    """The first, middle and last item, which are those that the scripts print."""
    return [items[0], items[len(items) // 2], items[-1]] if items else []


def request(variables, body, entries, files=()):
    lines = [f"{len(entries)} entries, {len(files)} files"]
    lines += [f"{name}={value[:16]} ({len(value)} bytes)" for name, value in some(entries)]
    for name, file_name, content_type, data in some(files):
        lines.append(f"{name}: {file_name}, {content_type}, {len(data)} bytes, {data[-8:].hex()}")
    variables = {"GATEWAY_INTERFACE": "CGI/1.1", "SCRIPT_NAME": "/script"} | variables
    return Request(variables, body, page("\n".join(lines)), page(f"{len(body)} bytes"))


def get(query, entries):
    return request({"REQUEST_METHOD": "GET", "QUERY_STRING": query}, b"", entries)


def post(content_type, body, entries, files=()):
    variables = {
        "REQUEST_METHOD": "POST",
        "CONTENT_TYPE": content_type,
        "CONTENT_LENGTH": str(len(body)),
    }
    return request(variables, body, entries, files)


def urlencoded(body, entries):
    return post("application/x-www-form-urlencoded", body, entries)


def part(header, value, boundary=BOUNDARY):
    return f"--{boundary}\r\n{header}".encode() + value + b"\r\n"


def end(boundary=BOUNDARY):
    return f"--{boundary}--\r\n".encode()


def multipart(entries, files=()):
    parts = [part(FIELD.format(name), value.encode()) for name, value in entries]
    parts += [part(FILE.format(*file[:3]), file.data) for file in files]
    return post(MULTIPART + BOUNDARY, b"".join(parts) + end(), entries, files)


def noise(size):
    """Bytes of any value except CR, since a file ends at its first CR LF."""
    block = random.Random(1).randbytes(MIB).replace(b"\r", b"\n")
    return (block * (size // MIB + 1))[:size]


def letters(size):
    return (b"abcdefghijklmnopqrstuvwxyz" * (size // 26 + 1))[:size]


FORM = "name=Ada+Lovelace&town=Porth+y+Waen&message=cold%2C+clear+%26+deep"
FIELDS = [("name", "Ada Lovelace"), ("town", "Porth y Waen"), ("message", "cold, clear & deep")]


def query():
    return get(FORM, FIELDS)


def form():
    return urlencoded(FORM.encode(), FIELDS)


def small_upload():
    return multipart(FIELDS[:2], [File("file", "a.bin", BINARY, noise(4 * KIB))])


def pairs(count):
    body = "&".join(f"field{i}=some+value+%26+{i}" for i in range(count))
    return urlencoded(body.encode(), [(f"field{i}", f"some value & {i}") for i in range(count)])


def upload(size):
    return multipart([], [File("file", "a.bin", BINARY, noise(size))])


def parts(count):
    return multipart([(f"field{i}", f"some value & {i}") for i in range(count)])


def escapes(size):
    """One field of this size as sent, with each letter escaped as three bytes."""
    count = size // 3
    value = letters(count).decode()
    body = "".join(f"%{ord(letter):02X}" for letter in value[:26]) * (count // 26 + 1)
    return urlencoded(b"text=" + body[: 3 * count].encode(), [("text", value)])


def friendly_form(size):
    return urlencoded(b"text=" + letters(size), [("text", letters(size).decode())])


def friendly_upload(size):
    return multipart([], [File("file", "a.txt", "text/plain", letters(size))])


def ampersands(size):
    return urlencoded(b"&" * size, [])


def near_misses(size):
    """A value that repeats a line end and a delimiter without its last letter."""
    near = f"\r\n--{BOUNDARY[:-1]}".encode()
    body = part(FIELD.format("text"), near * (size // len(near))) + end()
    return post(MULTIPART + BOUNDARY, body, [("text", "")])


def dashes(size):
    """An endless value of dashes: the last dashes and the line end form the next delimiter."""
    boundary = "-" * 70
    body = part(FIELD.format("text"), b"-" * size, boundary) + end(boundary)
    return post(MULTIPART + boundary, body, [("text", "")])


def endless(size):
    """A value without a line end, which is therefore empty."""
    body = part(FIELD.format("text"), letters(size)).removesuffix(b"\r\n")
    return post(MULTIPART + BOUNDARY, body, [("text", "")])


# ---- Hostile input of any size -------------------------------------------------------------------


def smallest_pairs(size):
    count = size // 4
    return urlencoded(b"&".join([b"k=v"] * count), [("k", "v")] * count)


def smallest_parts(size):
    piece = part(FIELD.format("f"), b"v")
    count = size // len(piece)
    return post(MULTIPART + BOUNDARY, piece * count + end(), [("f", "v")] * count)


def header_lines(size):
    lines = b"X-Flood: y\r\n" * (size // 12)
    body = part('Content-Disposition: form-data; name="text"\r\n', lines + b"\r\nvalue")
    return post(MULTIPART + BOUNDARY, body + end(), [("text", "value")])


def percents(size):
    """Percent signs: the first of three takes the other two as digits, which decode to "E"."""
    count = size // 3
    return urlencoded(b"text=" + b"%%%" * count, [("text", "E" * count)])


def semicolons(size):
    return get("", [])._replace(
        variables=get("", []).variables | {"HTTP_COOKIE": ";" * size}, body=b""
    )
