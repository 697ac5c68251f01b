"""URL-encoded forms, in the body and in the query string."""

from typing import Iterator

import model
from cases import URL_ENCODED, Case, Request, octets, post, refused
from model import Field

Pairs = list[tuple[str, str]]

# Rows: a name, the text, and the names and values that arrive.
ACCEPTED: dict[str, list[tuple[str, str, Pairs]]] = {
    'URL standard, 5.1: fields are split at "&"': [
        ("one", "a=b", [("a", "b")]),
        ("two", "a=b&c=d", [("a", "b"), ("c", "d")]),
        ("one name twice", "a=1&a=2", [("a", "1"), ("a", "2")]),
        ("order is kept", "b=1&a=2&b=3", [("b", "1"), ("a", "2"), ("b", "3")]),
        ("names differ in case", "a=1&A=2", [("a", "1"), ("A", "2")]),
        ("semicolon does not split", "a=b;c=d", [("a", "b;c=d")]),
        ("semicolon in a name", "a;b=c", [("a;b", "c")]),
        ("entity", "a=b&amp;c=d", [("a", "b"), ("amp;c", "d")]),
        ("comma and newline do not split", "a=b,c=d\ne=f", [("a", "b,c=d\ne=f")]),
    ],
    "URL standard, 5.1: empty pieces are skipped": [
        ("nothing", "", []),
        ("one &", "&", []),
        ("many &", "&" * 1000, []),
        ("first", "&a=b", [("a", "b")]),
        ("last", "a=b&", [("a", "b")]),
        ("between", "a=b&&&c=d", [("a", "b"), ("c", "d")]),
        ("only semicolons are a name", ";;;;", [(";;;;", "")]),
    ],
    'URL standard, 5.1: without "=" the value is empty': [
        ("only a name", "a", [("a", "")]),
        ("name, then a field", "a&b=c", [("a", ""), ("b", "c")]),
        ("name last", "b=c&a", [("b", "c"), ("a", "")]),
        ("name and =", "a=", [("a", "")]),
        ("both", "a&b=", [("a", ""), ("b", "")]),
        ("an escaped = does not count", "a%3Db", [("a=b", "")]),
    ],
    'URL standard, 5.1: the first "=" ends the name': [
        ("two =", "a=b=c", [("a", "b=c")]),
        ("two = in a row", "a==b", [("a", "=b")]),
        ("= at the end", "a=b=", [("a", "b=")]),
        ("no name", "=v", [("", "v")]),
        ("only =", "=", [("", "")]),
        ("two of them", "==", [("", "=")]),
        ("empty names", "=v&=w", [("", "v"), ("", "w")]),
        ("escaped = in a name", "a%3Db=c", [("a=b", "c")]),
    ],
    'URL standard, 5.1: "+" is a space': [
        ("in a value", "a=b+c", [("a", "b c")]),
        ("in a name", "a+b=c", [("a b", "c")]),
        ("many", "+++=+++", [("   ", "   ")]),
        ("escaped", "a=b%2Bc%2bd", [("a", "b+c+d")]),
        ("in an escape", "a=%+1%2+", [("a", "% 1%2 ")]),
        ("%20", "a=b%20c", [("a", "b c")]),
    ],
    "URL standard: %XX is decoded": [
        ("small and capital letters", "a=%c3%BC", [("a", "\xc3\xbc")]),
        ("in a name", "%61=1", [("a", "1")]),
        ("&", "a=b%26c", [("a", "b&c")]),
        ("%", "a=100%25", [("a", "100%")]),
        ("only once", "a=%2541", [("a", "%41")]),
        ("CR LF", "a=b%0D%0Ac", [("a", "b\r\nc")]),
        ("zero byte", "a=b%00c&%00=d", [("a", "b\0c"), ("\0", "d")]),
        ("zero byte at the end", "a=b%00", [("a", "b\0")]),
        ("bytes that are no UTF-8", "a=%ff%C0%80", [("a", "\xff\xc0\x80")]),
        ("surrogate in UTF-8", "a=%ED%A0%80", [("a", "\xed\xa0\x80")]),
        (
            "every byte",
            "a=" + "".join(f"%{byte:02x}" for byte in range(256)),
            [("a", "".join(map(chr, range(256))))],
        ),
        (
            "every byte in capitals",
            "".join(f"%{byte:02X}" for byte in range(256)) + "=a",
            [("".join(map(chr, range(256))), "a")],
        ),
    ],
    "URL standard: an invalid escape stays": [
        ("% at the end", "a=%", [("a", "%")]),
        ("one digit at the end", "a=%2", [("a", "%2")]),
        ("% before &", "a=%&b=c", [("a", "%"), ("b", "c")]),
        ("one digit before &", "a=%2&b=c", [("a", "%2"), ("b", "c")]),
        ("% before =", "a%=b", [("a%", "b")]),
        ("one digit before =", "a%4=1b", [("a%4", "1b")]),
        ("no digits", "a=%zz", [("a", "%zz")]),
        ("no digits at the end of a name", "a%zz=b", [("a%zz", "b")]),
        ("second digit invalid", "a=%4g%4G", [("a", "%4g%4G")]),
        ("first digit invalid", "a=%g4", [("a", "%g4")]),
        ("two %", "a=%%", [("a", "%%")]),
        ("two % before digits", "a=%%41", [("a", "%A")]),
        ("digit, then %", "a=%4%41", [("a", "%4A")]),
        ("%u0041", "a=%u0041", [("a", "%u0041")]),
        ("white space", "a=% 41%4 1", [("a", "% 41%4 1")]),
        ("sign", "a=%-1%+1", [("a", "%-1% 1")]),
        ("0x", "a=%0x41", [("a", "%0x41")]),
        ("byte above 127", "a=%\xfc\xfc", [("a", "%\xfc\xfc")]),
        ("neighbours of the digits", "a=%/0%:0%@0%G0%`0%g0", [("a", "%/0%:0%@0%G0%`0%g0")]),
    ],
    "Every byte is possible": [
        ("bytes above 127", "\xfc=\xff", [("\xfc", "\xff")]),
        ("white space stays", " a = b \t", [(" a ", " b \t")]),
        ("line end stays", "a=b\r\n", [("a", "b\r\n")]),
        ("quotes stay", "a='b'\"c\"", [("a", "'b'\"c\"")]),
        ("question mark stays", "?a=b", [("?a", "b")]),
        ("number sign stays", "a=b#c", [("a", "b#c")]),
        ("delimiter of a multipart body", "--b\r\n=\r\n--b--", [("--b\r\n", "\r\n--b--")]),
        ("long name", "n" * 70_000 + "=v", [("n" * 70_000, "v")]),
        ("long value", "a=" + "v" * 70_000, [("a", "v" * 70_000)]),
        ("30,000 escapes cut short", "a=" + "%4" * 30_000, [("a", "%4" * 30_000)]),
        ("1,000 fields", "a=b&" * 1000, [("a", "b")] * 1000),
        ("1,000 fields, empty pieces", "&&" + "a&&&" * 1000, [("a", "")] * 1000),
    ],
}

# Bytes that no environment variable can hold, so only in bodies.
ZERO_BYTES: list[tuple[str, bytes, list[tuple[bytes, bytes]]]] = [
    ("in a value", b"a=b\0c&d=e", [(b"a", b"b\0c"), (b"d", b"e")]),
    ("in a name", b"a\0b=c", [(b"a\0b", b"c")]),
    ("alone", b"\0", [(b"\0", b"")]),
    ("after %", b"a=%\0004", [(b"a", b"%\0004")]),
    ("after % and a digit", b"a=%4\0", [(b"a", b"%4\0")]),
    ("every byte but the special ones", bytes(sorted({*range(256)} - {*b"&=%+"})), []),
]


def fields(pairs: Pairs) -> list[Field]:
    return [Field(octets(name), None, None, octets(value)) for name, value in pairs]


def query(text: bytes, method: bytes = b"GET") -> Request:
    return Request(method, None, None, text, b"")


def cases() -> Iterator[Case]:
    for rule, rows in ACCEPTED.items():
        for name, text, pairs in rows:
            whole = refused(model.WHOLE, *fields(pairs))
            yield Case(rule, name + " (body)", post(URL_ENCODED, octets(text)), whole)
            yield Case(rule, name + " (query)", query(octets(text)), whole)
    for name, body, decoded in ZERO_BYTES:
        whole = refused(
            model.WHOLE, *[Field(n, None, None, v) for n, v in decoded or [(body, b"")]]
        )
        yield Case("Every byte is possible", "zero byte " + name, post(URL_ENCODED, body), whole)
    for name, text in (
        ("1,001 fields", "a=b&" * 1001),
        ("1,001 fields, empty pieces", "&&" + "a=b&&&" * 1001),
        ("1,001 fields, the last one a letter", "a=b&" * 1000 + "c"),
        ("30,000 fields", "a=b&" * 30_000),
    ):
        refusal = refused(model.LIMIT, *fields([("a", "b")] * 1000))
        rule = "A form has at most 1,000 fields"
        yield Case(rule, name + " (body)", post(URL_ENCODED, octets(text)), refusal)
        yield Case(rule, name + " (query)", query(octets(text)), refusal)
