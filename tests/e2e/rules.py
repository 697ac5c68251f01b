"""Computes what a script must see of a request.

This is a second implementation of the interface's rules, independent of the library and in another
language, so that the two can be compared. Texts are bytes; None means that there is no text.
"""

import re
import urllib.parse
from typing import NamedTuple


class Entry(NamedTuple):
    name: bytes | None
    value: bytes  # up to the first zero byte
    length: int  # of the whole value


class File(NamedTuple):
    name: bytes | None
    file_name: bytes | None
    type: bytes | None
    data: bytes


class Cookie(NamedTuple):
    name: bytes | None
    value: bytes | None


def text(data):
    """Text ends at its first zero byte."""
    return data.split(b"\0")[0]


def digit(char):
    return (char & ~0x20) - 55 if char > 64 else char - 48


def unescape(encoded):
    """URL decoding. Any two bytes after a "%" count as digits; bytes past the end are zero."""
    encoded = text(encoded)
    decoded = bytearray()
    at = 0
    while at < len(encoded):
        char = encoded[at : at + 1]
        if char == b"%":
            high, low = encoded[at + 1 : at + 3].ljust(2, b"\0")
            decoded.append((digit(high) * 16 + digit(low)) & 0xFF)
            at += 3
        else:
            decoded += b" " if char == b"+" else char
            at += 1
    return text(bytes(decoded))


def cookies(header):
    def clean(piece):
        return unescape(piece.strip(b" \t\n\r"))

    def cookie(token):
        name, equals, value = token.partition(b"=")
        return Cookie(clean(name), clean(value)) if equals else Cookie(None, None)

    return [cookie(token) for token in header.split(b";")]


def url_encoded(form):
    """A field without "=" is ignored, and so is an empty one after the last "&"."""
    pairs = [pair.split(b"=", 1) for pair in text(form).split(b"&") if b"=" in pair]
    values = [(unescape(name), unescape(value)) for name, value in pairs]
    return [Entry(name, value, len(value)) for name, value in values]


def between(data, opening, closing):
    """The text between two marks, or up to the end if the second is missing; None if empty."""
    _, found, rest = text(data).partition(opening)
    if not found:
        return None
    inside, closed, _ = rest.partition(closing)
    return inside if inside or not closed else None


def multipart(content_type, body):
    """Parts run from delimiter to delimiter, the last one to the end and the zero byte there. A
    value runs from the blank line to the first CR LF after it."""
    entries, files = [], []
    if b"boundary=" not in content_type:
        return entries, files
    delimiter = b"--" + content_type.split(b"boundary=", 1)[1] + b"\r\n"
    for part in (body + b"\0").split(delimiter)[1:]:
        _, blank, rest = part.partition(b"\r\n\r\n")
        if not blank:
            continue
        value = rest[: rest.index(b"\r\n")] if b"\r\n" in rest else b""
        name = between(part, b'name="', b'"')
        file_name = between(part, b'filename="', b'"')
        kind = between(part, b"Content-Type: ", b"\r\n\r\n")
        if file_name is None or not unescape(file_name):
            entries.append(Entry(name, text(value), len(value)))
        elif name is None or kind is None:
            files.append(File(None, None, None, b""))
        else:
            files.append(File(name, unescape(file_name), kind, value))
    return entries, files


def form(method, query, content_type, body):
    """Entries and files. They are in the body of a POST, or the query of any other method. How they
    are parsed depends only on the content type."""
    if method.lower() == b"post" and not body:
        return [], []
    source = body if method.lower() == b"post" else query
    if content_type.lower().startswith(b"multipart/form-data"):
        return multipart(content_type, source)
    return url_encoded(source), []


def number(variable):
    """The decimal number at the start of a text, within 32 bits; 0 if there is none."""
    found = re.match(rb"[ \t\n\v\f\r]*([+-]?[0-9]+)", variable)
    return min(max(int(found[1]), -(2**31)), 2**31 - 1) if found else 0


VARIABLES = (
    "SERVER_SOFTWARE SERVER_NAME GATEWAY_INTERFACE SERVER_PROTOCOL SERVER_PORT HTTP_COOKIE "
    "REQUEST_METHOD PATH_INFO PATH_TRANSLATED SCRIPT_NAME QUERY_STRING CONTENT_LENGTH CONTENT_TYPE "
    "HTTP_REFERER REMOTE_HOST REMOTE_ADDR AUTH_TYPE REMOTE_USER REMOTE_IDENT HTTP_ACCEPT "
    "HTTP_USER_AGENT REDIRECT_REQUEST REDIRECT_URL REDIRECT_STATUS"
).split()
NUMBERS = ("SERVER_PORT", "CONTENT_LENGTH")


def expected_items(variables, standard_input):
    """The items that the probe prints for these variables, in order."""

    def value(name):
        return variables.get(name, b"")

    def digits(count):
        return str(count).encode()

    length = number(value("CONTENT_LENGTH"))
    body = None
    if value("REQUEST_METHOD").lower() == b"post" and length > 0:
        body = standard_input[:length].ljust(length, b"\0")
    items = [("status", b"0")]
    for name in VARIABLES:
        items.append((name, digits(number(value(name))) if name in NUMBERS else value(name)))
    items.append(("captured.length", digits(length)))
    items.append(("captured.https", digits(int(value("HTTPS") == b"on"))))
    items.append(("body", body))
    cookie = variables.get("HTTP_COOKIE")
    items.append(("cookies", b"-1" if cookie is None else digits(len(cookies(cookie)))))
    for each in [] if cookie is None else cookies(cookie):
        items += [("cookie.name", each.name), ("cookie.value", each.value)]
    method, query, content_type = map(value, ("REQUEST_METHOD", "QUERY_STRING", "CONTENT_TYPE"))
    entries, files = form(method, query, content_type, body)
    items.append(("entries", digits(len(entries))))
    for entry in entries:
        items += [("entry.name", entry.name), ("entry.value", entry.value)]
        items += [("entry.length", digits(entry.length))]
    items.append(("files", digits(len(files))))
    for file in files:
        items += [("file.name", file.name), ("file.fileName", file.file_name)]
        items += [("file.type", file.type), ("file.bytes", file.data)]
    return items


def expected_under_lighttpd(request, port, script="/cgi-bin/probe", document_root=""):
    """The items that the probe prints for a request to lighttpd."""
    path, _, query = request.target.partition("?")
    headers = {name: value.encode("latin-1") for name, value in request.headers.items()}
    rest = urllib.parse.unquote_to_bytes(path.removeprefix(script))
    variables = {
        "SERVER_SOFTWARE": b"lighttpd",
        "SERVER_NAME": b"127.0.0.1",
        "GATEWAY_INTERFACE": b"CGI/1.1",
        "SERVER_PROTOCOL": b"HTTP/1.1",
        "SERVER_PORT": str(port).encode(),
        "REQUEST_METHOD": request.method.encode(),
        "PATH_INFO": rest,
        "PATH_TRANSLATED": document_root.encode() + rest if rest else b"",
        "SCRIPT_NAME": script.encode(),
        "QUERY_STRING": query.encode("latin-1"),
        "CONTENT_LENGTH": str(len(request.body)).encode(),
        "CONTENT_TYPE": headers.get("content-type", b""),
        "HTTP_REFERER": headers.get("referer", b""),
        "REMOTE_ADDR": b"127.0.0.1",
        "HTTP_ACCEPT": headers.get("accept", b""),
        "HTTP_USER_AGENT": headers.get("user-agent", b""),
        "REDIRECT_STATUS": b"200",
    }
    if "cookie" in headers:
        variables["HTTP_COOKIE"] = headers["cookie"]
    return expected_items(variables, request.body)
