"""Method, length and media type: which bytes are a form at all."""

from typing import Iterator

import model
from cases import DISPOSITION, MULTIPART, URL_ENCODED, Case
from cases import Request, form, multipart, refused, values
from model import Field, Form

ONE = form(*values(b"x"))
NONE = form()
QUERY = form(Field(b"q", None, None, b"1"))
BODY = multipart("--b~@~x~--b--~")
PAIR = b"a=x"


def length(count: int | bytes, body: bytes = PAIR, content_type: bytes = URL_ENCODED) -> Request:
    """A POST with this CONTENT_LENGTH."""
    digits = count if isinstance(count, bytes) else b"%d" % count
    return Request(b"POST", content_type, digits, None, body)


def method(name: bytes | None) -> Request:
    """Sends a field both ways."""
    return Request(name, URL_ENCODED, b"3", b"q=1", PAIR)


def media(content_type: bytes | None, body: bytes = b"") -> Request:
    return Request(b"POST", content_type, b"%d" % len(body), None, body)


CASES: dict[str, list[tuple[str, Request, Form]]] = {
    "RFC 3875, 4.1.12: GET and HEAD read the query string": [
        ("GET", method(b"GET"), QUERY),
        ("HEAD", method(b"HEAD"), QUERY),
        ("no method", method(None), QUERY),
        ("empty method", method(b""), QUERY),
        ("GET without a query string", Request(b"GET", None, None, None, b""), NONE),
        ("GET with an empty query string", Request(b"GET", None, None, b"", b""), NONE),
        ("nothing is set", Request(None, None, None, None, b""), NONE),
        ("everything is empty", Request(b"", b"", b"", b"", b""), NONE),
        ("GET ignores a bad length", Request(b"GET", None, b"x", b"q=1", b""), QUERY),
        ("GET ignores the content type", Request(b"GET", b"a/b", None, b"q=1", b""), QUERY),
        ("GET ignores a multipart type", Request(b"GET", MULTIPART, b"9", b"q=1", b""), QUERY),
        (
            "GET reads --b-- as a name",
            Request(b"GET", MULTIPART, None, b"--b--", b""),
            form(Field(b"--b--", None, None, b"")),
        ),
    ],
    "RFC 3875, 4.1.12: every other method reads the body": [
        ("POST", method(b"POST"), ONE),
        ("PUT", method(b"PUT"), ONE),
        ("PATCH", method(b"PATCH"), ONE),
        ("DELETE", method(b"DELETE"), ONE),
        ("OPTIONS", method(b"OPTIONS"), ONE),
        ("an unknown method", method(b"BREW"), ONE),
        ("get in small letters is another method", method(b"get"), ONE),
        ("post in small letters", method(b"post"), ONE),
        ("POST without a body ignores the query", Request(b"POST", None, None, b"q=1", b""), NONE),
    ],
    "RFC 3875, 4.1.2: CONTENT_LENGTH is a number of digits": [
        ("absent", Request(b"POST", URL_ENCODED, None, None, b""), NONE),
        ("absent, although bytes are there", Request(b"POST", URL_ENCODED, None, None, PAIR), NONE),
        ("empty", length(b""), NONE),
        ("0", length(b"0"), NONE),
        ("000", length(b"000"), NONE),
        ("exact", length(3), ONE),
        ("zeros in front", length(b"0003"), ONE),
        ("100 zeros in front", length(b"0" * 100 + b"3"), ONE),
        ("10,000 zeros in front", length(b"0" * 10_000 + b"3"), ONE),
    ]
    + [
        (repr(digits.decode()), length(digits), refused(model.BAD_LENGTH))
        for digits in (
            b"-1",
            b"-0",
            b"+5",
            b"+0",
            b" 3",
            b"3 ",
            b"\t3",
            b"3\n",
            b" ",
            b"0x3",
            b"3x",
            b"12abc",
            b"1,2",
            b"1.0",
            b"3.",
            b"1e1",
            b"x",
            b"-",
            b"3;",
            b"'3'",
            b"0 3",
            b"3 3",
            b"NaN",
            b"9223372036854775808",
            b"9999999999999999999",
            b"18446744073709551615",
            b"18446744073709551616",
            b"18446744073709551619",
            b"99999999999999999999",
            b"1" + b"0" * 30,
            b"1" * 5000,
        )
    ]
    + [
        ("digits that are not ASCII", length("٣".encode()), refused(model.BAD_LENGTH)),
        ("bad length before a bad type", length(b"x", PAIR, b"a/b"), refused(model.BAD_LENGTH)),
        (
            "bad length before no boundary",
            length(b"x", PAIR, b"multipart/form-data"),
            refused(model.BAD_LENGTH),
        ),
    ],
    "RFC 3875, 4.2: nothing is read beyond CONTENT_LENGTH": [
        ("2 of 3 bytes", length(2), form(Field(b"a", None, None, b""))),
        ("1 of 3 bytes", length(1), form(Field(b"a", None, None, b""))),
        ("an escape cut by the length", length(4, b"a=%41"), form(*values(b"%4"))),
        ("a multipart body with more after it", length(len(BODY), BODY + BODY, MULTIPART), ONE),
        (
            "a multipart body cut by the length",
            length(len(BODY) - 5, BODY, MULTIPART),
            refused(model.CUT_SHORT),
        ),
        ("the last dashes", length(len(BODY) - 2, BODY, MULTIPART), ONE),
        ("one dash short", length(len(BODY) - 3, BODY, MULTIPART), refused(model.CUT_SHORT)),
    ],
    "A body shorter than CONTENT_LENGTH is cut short": [
        ("no byte", length(3, b""), refused(model.CUT_SHORT)),
        ("a byte missing", length(4), refused(model.CUT_SHORT)),
        (
            "the last field is not whole",
            length(9, b"a=x&b=y"),
            refused(model.CUT_SHORT, *ONE.fields),
        ),
        ("the last field was whole", length(9, b"a=x&"), refused(model.CUT_SHORT, *ONE.fields)),
        ("nothing but &", length(9, b"&&"), refused(model.CUT_SHORT)),
        (
            "a closed multipart body",
            length(999, BODY, MULTIPART),
            refused(model.CUT_SHORT, *ONE.fields),
        ),
        (
            "a multipart body without parts",
            length(6, b"--b--", MULTIPART),
            refused(model.CUT_SHORT),
        ),
        (
            "an epilogue",
            length(999, BODY + b"end", MULTIPART),
            refused(model.CUT_SHORT, *ONE.fields),
        ),
        ("a preamble", length(999, b"hello", MULTIPART), refused(model.CUT_SHORT)),
        ("a value", length(999, BODY[:-10], MULTIPART), refused(model.CUT_SHORT)),
        ("an earlier problem decides", length(999, b"x--b", MULTIPART), refused(model.MALFORMED)),
        (
            "a limit decides earlier",
            length(99_999, b"a=x&" * 1001),
            refused(model.LIMIT, *ONE.fields * 1000),
        ),
        (
            "an unsupported type decides earlier",
            length(9, b"", b"text/plain"),
            refused(model.UNSUPPORTED_TYPE),
        ),
        (
            "a missing boundary decides earlier",
            length(9, b"", b"multipart/form-data"),
            refused(model.NO_BOUNDARY),
        ),
    ]
    + [
        (
            f"{huge} bytes promised ({kind})",
            length(huge, body, content_type),
            refused(model.CUT_SHORT, *fields),
        )
        for huge in (2**31 - 1, 2**31, 2**32, 2**32 + 3, 2**63 - 1)
        for kind, body, content_type, fields in (
            ("URL-encoded", PAIR, URL_ENCODED, NONE.fields),
            ("multipart", BODY, MULTIPART, ONE.fields),
        )
    ],
    "Without a content type there is no form to read": [
        ("no body", media(None), NONE),
        ("empty content type, no body", media(b""), NONE),
        ("a body", media(None, PAIR), refused(model.UNSUPPORTED_TYPE)),
        ("empty content type and a body", media(b"", PAIR), refused(model.UNSUPPORTED_TYPE)),
        (
            "a length, but no byte",
            Request(b"POST", None, b"3", None, b""),
            refused(model.UNSUPPORTED_TYPE),
        ),
        ("multipart body", media(None, BODY), refused(model.UNSUPPORTED_TYPE)),
    ],
    "HTML: a form is URL-encoded or multipart/form-data": [
        (content_type.decode("latin-1"), media(content_type, body), refused(model.UNSUPPORTED_TYPE))
        for body in (PAIR,)
        for content_type in (
            b"text/plain",
            b"application/json",
            b"multipart/mixed; boundary=b",
            b"multipart/related",
            b"multipart/form-dat; boundary=b",
            b"multipart/form-datax; boundary=b",
            b"multipart/ form-data; boundary=b",
            b"multipart /form-data; boundary=b",
            b"multipart; boundary=b",
            b"form-data; boundary=b",
            b"; boundary=b",
            b";",
            b" ",
            b"*/*",
            b"application/x-www-form-urlencodedx",
            b"application/x-www-form-urlencode",
            b"application/x-www-form-urlencoded x",
            b"application/x-www-form-urlencoded, a/b",
            b"x-www-form-urlencoded",
            b'"multipart/form-data"; boundary=b',
            b"a/b",
            b"\xff",
            b"text/plain; x=multipart/form-data; boundary=b",
            b"application/octet-stream",
            b"text/plain; application/x-www-form-urlencoded",
            b"multipart/form-data\n; boundary=b",
        )
    ]
    + [
        ("text/plain without a body", media(b"text/plain"), refused(model.UNSUPPORTED_TYPE)),
        ("multipart without a body", media(MULTIPART), refused(model.CUT_SHORT)),
        (
            "multipart without a body or a boundary",
            media(b"multipart/form-data"),
            refused(model.NO_BOUNDARY),
        ),
        ("URL-encoded without a body", media(URL_ENCODED), NONE),
        (
            "a multipart body as URL-encoded",
            media(URL_ENCODED, b"--b--"),
            form(Field(b"--b--", None, None, b"")),
        ),
    ],
    "RFC 9110, 8.3.1: media types in any case, white space around them, parameters": [
        (content_type.decode("latin-1")[:60], media(content_type, PAIR), ONE)
        for content_type in (
            b"Application/X-WWW-Form-URLEncoded",
            b"APPLICATION/X-WWW-FORM-URLENCODED",
            b" application/x-www-form-urlencoded",
            b"application/x-www-form-urlencoded \t",
            b"application/x-www-form-urlencoded;",
            b"application/x-www-form-urlencoded; charset=utf-8",
            b"application/x-www-form-urlencoded ;charset=UTF-16",
            URL_ENCODED + b"; x",
            URL_ENCODED + b"; boundary=b; boundary=b",
            URL_ENCODED + b'; x="',
            URL_ENCODED + b"; x=" + b"y" * 5000,
        )
    ]
    + [
        (content_type.decode("latin-1")[:60], media(content_type, BODY), ONE)
        for content_type in (
            b"Multipart/Form-Data; boundary=b",
            b"MULTIPART/FORM-DATA; BOUNDARY=b",
            b" multipart/form-data; boundary=b",
            b"\tmultipart/form-data\t; boundary=b",
            b"multipart/form-data; x=" + b"y" * 5000 + b"; boundary=b",
        )
    ],
}


def parts(count: int, end: str) -> bytes:
    return b"--b\r\n" + (DISPOSITION.encode() + b"\r\nx\r\n--b\r\n") * count + multipart(end)


# Rows: a name, the number of parts, what follows the delimiter after them, the outcome.
COUNTS = [
    ("1,000", 999, "@~x~--b--", model.WHOLE, 1000),
    ("1,001", 1000, "@~x~--b--", model.LIMIT, 1000),
    ("1,001, the last one malformed", 1000, "no colon~~x~--b--", model.LIMIT, 1000),
    ("1,001, the last one cut short", 1000, "", model.LIMIT, 1000),
    ("1,000, the last one cut short", 999, "@~x", model.CUT_SHORT, 999),
    ("20,000", 20_000, "@~x~--b--", model.LIMIT, 1000),
]


def cases() -> Iterator[Case]:
    for rule, rows in CASES.items():
        for name, request, expected in rows:
            yield Case(rule, name, request, expected)
    for name, count, end, outcome, read in COUNTS:
        request = media(MULTIPART, parts(count, end))
        expected = refused(outcome, *values(b"x") * read)
        yield Case("A form has at most 1,000 fields", f"{name} parts", request, expected)
