"""What a script must get from any form, computed as plainly as possible.

The tests compare tarn-form with this. It holds the whole body in memory and calls nothing of Tarn.
multipart/form-data follows RFC 7578, RFC 2046 and the encoding algorithm of the HTML standard;
application/x-www-form-urlencoded follows the URL standard. Input that two sensible readers could
understand differently is refused.

When a request has several problems, the first one in the body decides. A header line is judged
when the byte after its CR LF has arrived: white space there would continue the line, which is
refused. The same rules in C++ are in tests/support/form_model.cpp.
"""

import re
from typing import Callable, Iterator, NamedTuple

WHOLE = "whole"
NO_BOUNDARY = "no_boundary"
TWO_BOUNDARIES = "two_boundaries"
CUT_SHORT = "cut_short"
MALFORMED = "malformed"
MALFORMED_HEADER = "malformed_header"
PART_WITHOUT_NAME = "part_without_name"
LIMIT = "limit"
UNSUPPORTED_TYPE = "unsupported_type"
BAD_LENGTH = "bad_length"
READ_ERROR = "read_error"
TIMED_OUT = "timed_out"

FIELD_LIMIT = 1000
HEADER_LIMIT = 16 * 1024  # from the first header line to the end of the empty line
BOUNDARY_LIMIT = 70
LENGTH_LIMIT = 2**63 - 1

WHITE = b" \t"
TOKEN = rb"[!#$%&'*+.^_`|~0-9A-Za-z-]+"
BOUNDARY_TOKEN = rb"[!#$%&'*+.^_`|~0-9A-Za-z=:-]+"


class Field(NamedTuple):
    name: bytes
    filename: bytes | None
    content_type: bytes | None
    data: bytes


class Form(NamedTuple):
    """The fields before the first problem, and that problem or WHOLE."""

    fields: list[Field]
    outcome: str


class Problem(Exception):
    """Its argument is the code."""


def read_form(
    method: bytes | None,
    content_type: bytes | None,
    content_length: bytes | None,
    query_string: bytes | None,
    body: bytes,
) -> Form:
    """Reads the form of a request: CGI variables (None if unset) and bytes on standard input."""
    if method in (None, b"", b"GET", b"HEAD"):
        return collect(url_encoded_fields(query_string or b"", False))
    try:
        length = length_of(content_length or b"0")
        fields = body_fields(content_type or b"", body[:length], length)
    except Problem as problem:
        return Form([], str(problem))
    return collect(fields)


def collect(fields: Iterator[Field]) -> Form:
    read = []
    try:
        for field in fields:
            read.append(field)
    except Problem as problem:
        return Form(read, str(problem))
    return Form(read, WHOLE)


def length_of(content_length: bytes) -> int:
    if not re.fullmatch(rb"[0-9]+", content_length):
        raise Problem(BAD_LENGTH)
    digits = content_length.lstrip(b"0") or b"0"
    if len(digits) > 19 or int(digits) > LENGTH_LIMIT:
        raise Problem(BAD_LENGTH)
    return int(digits)


def body_fields(content_type: bytes, body: bytes, length: int) -> Iterator[Field]:
    if not content_type and length == 0:
        return iter([])
    media_type = content_type.partition(b";")[0].strip(WHITE).lower()
    if media_type == b"application/x-www-form-urlencoded":
        return url_encoded_fields(body, len(body) < length)
    if media_type == b"multipart/form-data":
        return multipart_fields(boundary_of(content_type), body, len(body) < length)
    raise Problem(UNSUPPORTED_TYPE)


# ---- URL-encoded ---------------------------------------------------------------------------------


def url_encoded_fields(text: bytes, is_cut: bool) -> Iterator[Field]:
    pieces = text.split(b"&")
    count = 0
    for number, piece in enumerate(pieces):
        if not piece:
            continue
        count += 1
        if count > FIELD_LIMIT:
            raise Problem(LIMIT)
        if is_cut and number == len(pieces) - 1:
            break
        name, _, value = piece.partition(b"=")
        yield Field(url_decoded(name), None, None, url_decoded(value))
    if is_cut:
        raise Problem(CUT_SHORT)


def url_decoded(text: bytes) -> bytes:
    return re.sub(
        rb"%[0-9A-Fa-f]{2}",
        lambda escape: bytes.fromhex(escape[0][1:].decode()),
        text.replace(b"+", b" "),
    )


# ---- Parameters of a header ----------------------------------------------------------------------

# Returns the value of a quoted string and what follows its closing quote, given what follows its
# opening quote. None if it is malformed.
QuotedReader = Callable[[bytes], tuple[bytes, bytes] | None]


def parameters_of(
    text: bytes, quoted: QuotedReader, boundary_token: bytes
) -> list[tuple[bytes, bytes]] | None:
    """The parameters after a media type or "form-data", with names in lower case. None if they are
    malformed. Empty ones, as in ";;", are skipped."""
    found = []
    rest = text
    while rest := rest.strip(WHITE):
        if not rest.startswith(b";"):
            return None
        rest = rest[1:].lstrip(WHITE)
        if not rest or rest.startswith(b";"):
            continue
        start = re.match(b"(" + TOKEN + b")[ \t]*=[ \t]*", rest)
        if not start:
            return None
        name = start[1].lower()
        rest = rest[start.end() :]
        if rest.startswith(b'"'):
            read = quoted(rest[1:])
            if read is None:
                return None
            value, rest = read
        else:
            token = re.match(boundary_token if name == b"boundary" else TOKEN, rest)
            if not token:
                return None
            value, rest = token[0], rest[token.end() :]
        found.append((name, value))
    return found


def quoted_in_content_type(text: bytes) -> tuple[bytes, bytes] | None:
    r"""As in HTTP: "\" escapes the character after it."""
    read = re.match(rb'((?:[^"\\\r\n]|\\[^\r\n])*)"', text)
    if not read:
        return None
    return re.sub(rb"(?s)\\(.)", rb"\1", read[1]), text[read.end() :]


def quoted_in_disposition(text: bytes) -> tuple[bytes, bytes] | None:
    r"""Clients differ in what "\" means. It escapes only if every "\" comes before a "\" or a
    quote and the closing quote ends the parameter. Otherwise "\" is a character like any other, as
    in "C:\dir\", and the first quote ends the value."""
    read = re.match(rb'((?:[^"\\]|\\["\\])*)"(?=[ \t]*(?:;|\Z))', text)
    if read:
        return re.sub(rb'\\(["\\])', rb"\1", read[1]), text[read.end() :]
    value, quote, rest = text.partition(b'"')
    return (value, rest) if quote else None


def boundary_of(content_type: bytes) -> bytes:
    _, semicolon, rest = content_type.partition(b";")
    parameters = parameters_of(semicolon + rest, quoted_in_content_type, BOUNDARY_TOKEN)
    if parameters is None:
        raise Problem(NO_BOUNDARY)
    boundaries = [value for name, value in parameters if name == b"boundary"]
    others = [value for name, value in parameters if name.startswith(b"boundary*")]
    if not boundaries:
        raise Problem(NO_BOUNDARY)
    if len(boundaries) + len(others) > 1:
        raise Problem(TWO_BOUNDARIES)
    boundary = boundaries[0]
    if not 1 <= len(boundary) <= BOUNDARY_LIMIT or boundary[-1:] in (b" ", b"\t"):
        raise Problem(NO_BOUNDARY)
    return boundary


# ---- Multipart -----------------------------------------------------------------------------------


def multipart_fields(boundary: bytes, body: bytes, is_cut: bool) -> Iterator[Field]:
    delimiter = b"--" + boundary
    preamble, found, rest = body.partition(delimiter)
    if not found:
        raise Problem(CUT_SHORT)
    if preamble and not preamble.endswith(b"\r\n"):
        raise Problem(MALFORMED)
    is_last, rest = after_delimiter(rest)
    count = 0
    while not is_last:
        count += 1
        if count > FIELD_LIMIT:
            raise Problem(LIMIT)
        headers, rest = part_headers(rest, delimiter)
        # The CR LF of the empty line is still in front of the value, because the delimiter after an
        # empty value may share it.
        value, found, rest = rest.partition(b"\r\n" + delimiter)
        if not found:
            raise Problem(CUT_SHORT)
        is_last, rest = after_delimiter(rest)
        yield Field(headers.name, headers.filename, headers.content_type, value[2:])
    if is_cut:
        raise Problem(CUT_SHORT)


def after_delimiter(rest: bytes) -> tuple[bool, bytes]:
    """Whether this was the closing delimiter, and what follows the delimiter's line."""
    if rest.startswith(b"--"):
        return True, rest[2:]
    line_end = rest.lstrip(WHITE)
    if line_end.startswith(b"\r\n"):
        return False, line_end[2:]
    # More bytes could still make this a delimiter.
    if line_end in (b"", b"\r") or rest == b"-":
        raise Problem(CUT_SHORT)
    raise Problem(MALFORMED)


class Headers(NamedTuple):
    name: bytes
    filename: bytes | None
    content_type: bytes | None


def part_headers(rest: bytes, delimiter: bytes) -> tuple[Headers, bytes]:
    """The headers of a part, and what follows them from the CR LF of the empty line on."""
    block = rest[:HEADER_LIMIT]
    read = {}  # the three that matter
    disposition: tuple[bytes, bytes | None] = (b"", None)
    length = 0
    while True:
        if block.startswith(delimiter):
            raise Problem(MALFORMED)
        line, found, block = block.partition(b"\r\n")
        if not found:
            raise Problem(LIMIT if len(rest) > HEADER_LIMIT else CUT_SHORT)
        length += len(line) + 2
        if not line:
            break
        following = rest[length : length + 1]
        if not following:
            raise Problem(CUT_SHORT)
        if following in (b" ", b"\t"):
            raise Problem(MALFORMED_HEADER)
        name, value = header_of(line)
        if name in (b"content-disposition", b"content-type", b"content-transfer-encoding"):
            if name in read:
                raise Problem(MALFORMED_HEADER)
            read[name] = value
        if name == b"content-disposition":
            disposition = disposition_of(value)
        if name == b"content-transfer-encoding":
            if value.lower() not in (b"7bit", b"8bit", b"binary"):
                raise Problem(UNSUPPORTED_TYPE)
    if b"content-disposition" not in read:
        raise Problem(PART_WITHOUT_NAME)
    return Headers(*disposition, read.get(b"content-type")), rest[length - 2 :]


def header_of(line: bytes) -> tuple[bytes, bytes]:
    """The name of a header, in lower case, and its value."""
    name, colon, value = line.partition(b":")
    # A name with white space before or after it is not a token.
    if b"\r" in line or b"\n" in line or not colon or not re.fullmatch(TOKEN, name):
        raise Problem(MALFORMED_HEADER)
    return name.lower(), value.strip(WHITE)


def disposition_of(value: bytes) -> tuple[bytes, bytes | None]:
    """The field's name and file name."""
    disposition, semicolon, rest = value.partition(b";")
    if disposition.strip(WHITE).lower() != b"form-data":
        raise Problem(PART_WITHOUT_NAME)
    parameters = parameters_of(semicolon + rest, quoted_in_disposition, TOKEN)
    if parameters is None:
        raise Problem(MALFORMED_HEADER)
    names = [text for name, text in parameters if name == b"name"]
    filenames = [text for name, text in parameters if name == b"filename"]
    if len(names) > 1 or len(filenames) > 1:
        raise Problem(MALFORMED_HEADER)
    if not names:
        raise Problem(PART_WITHOUT_NAME)
    return sent(names[0]), sent(filenames[0]) if filenames else None


def sent(text: bytes) -> bytes:
    """Browsers write quotes, CR and LF in names as "%22", "%0D" and "%0A", and nothing else."""
    return re.sub(rb"%(?:22|0[AaDd])", lambda escape: bytes.fromhex(escape[0][1:].decode()), text)
