"""What a script has to see of a request, worked out from the request alone.

Written from the rules of the interface, in another language and another way than the library, so
that the two can be held against each other. Texts are bytes; None is a text that is not there.
"""

import urllib.parse
from typing import NamedTuple


class Entry(NamedTuple):
    name: bytes | None
    value: bytes  # as text: up to the first zero byte
    length: int  # of all of it


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
    """URL decoding. Any two bytes after a "%" count as digits, those past the end as zero bytes."""
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
    """A field without "=" is none, nor is the nothing after a last "&"."""
    pairs = [pair.split(b"=", 1) for pair in text(form).split(b"&") if b"=" in pair]
    values = [(unescape(name), unescape(value)) for name, value in pairs]
    return [Entry(name, value, len(value)) for name, value in values]


def between(data, opening, closing):
    """The text between two marks; to the end without the second. Nothing between is no text."""
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
    """Entries and files. A POST brings its body and any other method its query; the content type
    alone tells how to read it."""
    if method.lower() == "post" and not body:
        return [], []
    source = body if method.lower() == "post" else query
    if content_type.lower().startswith(b"multipart/form-data"):
        return multipart(content_type, source)
    return url_encoded(source), []


def seen(request, port, script="/probe", document_root=""):
    """The items that the probe tells of a request, in its order."""
    path, _, query = request.target.partition("?")
    headers = {name: value.encode("latin-1") for name, value in request.headers.items()}
    content_type = headers.get("content-type", b"")
    cookie = headers.get("cookie")
    rest = urllib.parse.unquote_to_bytes(path.removeprefix(script))
    post = request.method.lower() == "post"
    entries, files = form(request.method, query.encode("latin-1"), content_type, request.body)

    def number(value):
        return str(value).encode()

    items = [
        ("status", b"0"),
        ("SERVER_SOFTWARE", b"lighttpd"),
        ("SERVER_NAME", b"127.0.0.1"),
        ("GATEWAY_INTERFACE", b"CGI/1.1"),
        ("SERVER_PROTOCOL", b"HTTP/1.1"),
        ("SERVER_PORT", number(port)),
        ("HTTP_COOKIE", cookie or b""),
        ("REQUEST_METHOD", request.method.encode()),
        ("PATH_INFO", rest),
        ("PATH_TRANSLATED", document_root.encode() + rest if rest else b""),
        ("SCRIPT_NAME", script.encode()),
        ("QUERY_STRING", query.encode("latin-1")),
        ("CONTENT_LENGTH", number(len(request.body))),
        ("CONTENT_TYPE", content_type),
        ("HTTP_REFERER", headers.get("referer", b"")),
        ("REMOTE_HOST", b""),
        ("REMOTE_ADDR", b"127.0.0.1"),
        ("AUTH_TYPE", b""),
        ("REMOTE_USER", b""),
        ("REMOTE_IDENT", b""),
        ("HTTP_ACCEPT", headers.get("accept", b"")),
        ("HTTP_USER_AGENT", headers.get("user-agent", b"")),
        ("REDIRECT_REQUEST", b""),
        ("REDIRECT_URL", b""),
        ("REDIRECT_STATUS", b"200"),
        ("captured.length", number(len(request.body))),
        ("captured.https", b"0"),
        ("body", request.body if post and request.body else None),
    ]
    items.append(("cookies", b"-1" if cookie is None else number(len(cookies(cookie)))))
    for each in [] if cookie is None else cookies(cookie):
        items += [("cookie.name", each.name), ("cookie.value", each.value)]
    items.append(("entries", number(len(entries))))
    for entry in entries:
        items += [("entry.name", entry.name), ("entry.value", entry.value)]
        items += [("entry.length", number(entry.length))]
    items.append(("files", number(len(files))))
    for file in files:
        items += [("file.name", file.name), ("file.fileName", file.file_name)]
        items += [("file.type", file.type), ("file.bytes", file.data)]
    return items
