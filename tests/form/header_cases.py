"""The header lines of a part, apart from what Content-Disposition says."""

from typing import Iterator

import model
from cases import MULTIPART, Case, form, multipart, post, refused, values
from model import Field

# Rows: a name, the header lines of a part ("~" and "@" as in cases.py), the content type.
ACCEPTED: dict[str, list[tuple[str, str, bytes | None]]] = {
    "RFC 7578, 4.4: a content type is given as it was sent": [
        ("absent", "@", None),
        ("plain", "@Content-Type: text/plain~", b"text/plain"),
        ("parameters", "@Content-Type: text/plain; charset=utf-8~", b"text/plain; charset=utf-8"),
        ("case", "@Content-Type: IMAGE/Png~", b"IMAGE/Png"),
        ("quotes", '@Content-Type: a/b; c="d;\\"e"~', b'a/b; c="d;\\"e"'),
        ("nonsense", "@Content-Type: ??;;==~", b"??;;=="),
        ("empty", "@Content-Type:~", b""),
        ("only white space", "@Content-Type: \t ~", b""),
        ("before the disposition", "Content-Type: a/b~@", b"a/b"),
        ("inner white space", "@Content-Type: a  /\tb~", b"a  /\tb"),
        ("byte above 127", "@Content-Type: a/\xfc~", b"a/\xfc"),
        ("zero byte", "@Content-Type: a/\0b~", b"a/\0b"),
        ("control characters", "@Content-Type: a/\x01\x7f\v\fb~", b"a/\x01\x7f\v\fb"),
        ("percent escape", "@Content-Type: a/%22b~", b"a/%22b"),
        ("colon", "@Content-Type: a:b~", b"a:b"),
        (
            "nested multipart",
            "@Content-Type: multipart/mixed; boundary=c~",
            b"multipart/mixed; boundary=c",
        ),
        (
            "the form's own",
            "@Content-Type: multipart/form-data; boundary=b~",
            b"multipart/form-data; boundary=b",
        ),
    ],
    "RFC 9110, 5.5: white space around a header's value is not part of it": [
        ("none", "@Content-Type:a/b~", b"a/b"),
        ("spaces before", "@Content-Type:   a/b~", b"a/b"),
        ("spaces after", "@Content-Type: a/b   ~", b"a/b"),
        ("tabs", "@Content-Type:\ta/b\t~", b"a/b"),
    ],
    "RFC 9110, 5.1: names of headers in any case": [
        ("content-type in small letters", "@content-type: a/b~", b"a/b"),
        ("CONTENT-TYPE in capitals", "@CONTENT-TYPE: a/b~", b"a/b"),
        ("content-disposition in small letters", 'content-disposition: form-data; name="a"~', None),
        ("CONTENT-DISPOSITION in capitals", 'CONTENT-DISPOSITION: form-data; name="a"~', None),
        ("mixed", 'cOnTeNt-DiSpOsItIoN: form-data; name="a"~', None),
    ],
    "RFC 7578, 4.8: other headers are ignored": [
        ("X-Other", "@X-Other: 1~", None),
        ("before the disposition", "X-Other: 1~@", None),
        ("twice", "@X-Other: 1~X-Other: 2~", None),
        ("every other character of a token", "@!#$%&'*+-.^_`|0aZ: x~", None),
        ("empty value", "@X-Other:~", None),
        ("colons", "@X: a:b::c~", None),
        ("one letter", "@x:y~", None),
        ("Content-Length that lies", "@Content-Length: 99999~", None),
        ("Content-Length of 0", "@Content-Length: 0~", None),
        ("Content-Length that is no number", "@Content-Length: -1x~", None),
        ("Content-Length twice", "@Content-Length: 1~Content-Length: 2~", None),
        ("Content-Dispositio", '@Content-Dispositio: form-data; name="x"~', None),
        ("Content-Dispositions", '@Content-Dispositions: form-data; name="x"~', None),
        ("begins with dashes", "@--c: x~", None),
        ("begins with a dash and the boundary", "@-b: x~", None),
        ("a delimiter in a value", "@X: --b~", None),
        ("a thousand of them", "@" + "X: 1~" * 1000, None),
    ],
    "RFC 7578, 4.7: a transfer encoding that changes nothing is accepted": [
        ("7bit", "@Content-Transfer-Encoding: 7bit~", None),
        ("8bit", "@Content-Transfer-Encoding: 8bit~", None),
        ("binary", "@Content-Transfer-Encoding: binary~", None),
        ("8BIT", "@Content-Transfer-Encoding: 8BIT~", None),
        ("Binary, spaces", "@CONTENT-TRANSFER-ENCODING:  Binary  ~", None),
        ("before the disposition", "Content-Transfer-Encoding: 7bit~@", None),
    ],
}

# Rows: a name, the header lines, the problem.
REFUSED = {
    "RFC 9112, 5.2: folded lines are refused": [
        ("space", "@Content-Type: a/b;~ c=d~", model.MALFORMED_HEADER),
        ("tab", "@Content-Type: a/b;~\tc=d~", model.MALFORMED_HEADER),
        ("first line begins with a space", " @", model.MALFORMED_HEADER),
        ("first line begins with a tab", "\t@", model.MALFORMED_HEADER),
        ("line of white space", "@ \t~", model.MALFORMED_HEADER),
        ("folded disposition", 'Content-Disposition: form-data;~ name="a"~', "malformed_header"),
        (
            "folded between a name and its quotes",
            'Content-Disposition: form-data; name=~\t"a"~',
            "malformed_header",
        ),
        (
            "folded inside quotes",
            'Content-Disposition: form-data; name="a~ b"~',
            "malformed_header",
        ),
        (
            "folded before the value",
            'Content-Disposition:~ form-data; name="a"~',
            "malformed_header",
        ),
        ("folded encoding", "@Content-Transfer-Encoding:~ base64~", model.MALFORMED_HEADER),
        ("folded line without a colon", "@nonsense~ : 1~", model.MALFORMED_HEADER),
        ("folded line of another header", "@X: a~ b~", model.MALFORMED_HEADER),
        ("folded line with a colon", "@X: a~ b: c~", model.MALFORMED_HEADER),
    ],
    "A header line is a name, a colon and a value": [
        ("no colon", "@nonsense~", model.MALFORMED_HEADER),
        ("no colon in the first line", "nonsense~@", model.MALFORMED_HEADER),
        ("empty name", "@: x~", model.MALFORMED_HEADER),
        ("only a colon", "@:~", model.MALFORMED_HEADER),
        ("equals sign for a colon", "@X=1~", model.MALFORMED_HEADER),
        ("10 KB without a colon", "@" + "x" * 10_000 + "~", model.MALFORMED_HEADER),
    ],
    "RFC 9110, 5.1: the name of a header is a token": [
        ("space inside", "@X Y: 1~", model.MALFORMED_HEADER),
        ("quote", '@"X": 1~', model.MALFORMED_HEADER),
        ("semicolon", "@X;Y: 1~", model.MALFORMED_HEADER),
        ("parenthesis", "@X(): 1~", model.MALFORMED_HEADER),
        ("slash", "@X/Y: 1~", model.MALFORMED_HEADER),
        ("equals sign", "@X=Y: 1~", model.MALFORMED_HEADER),
        ("only a zero byte", "\0: 1~@", model.MALFORMED_HEADER),
        ("brackets", "@[X]: 1~", model.MALFORMED_HEADER),
        ("backslash", "@X\\: 1~", model.MALFORMED_HEADER),
        ("byte above 127", "@X\xfc: 1~", model.MALFORMED_HEADER),
        ("zero byte", "@X\0: 1~", model.MALFORMED_HEADER),
        ("control character", "@X\x01: 1~", model.MALFORMED_HEADER),
        ("delete character", "@X\x7f: 1~", model.MALFORMED_HEADER),
    ],
    "RFC 9112, 5.1: no white space before the colon": [
        ("space", "@Content-Type : a/b~", model.MALFORMED_HEADER),
        ("tab", "@Content-Type\t: a/b~", model.MALFORMED_HEADER),
        ("in the disposition", 'Content-Disposition : form-data; name="a"~', "malformed_header"),
        ("in another header", "@X : 1~", model.MALFORMED_HEADER),
    ],
    "A bare CR or LF in a header line is refused": [
        ("LF", "@X: a\nb~", model.MALFORMED_HEADER),
        ("LF that ends a line", "@X: a\nY: b~", model.MALFORMED_HEADER),
        ("LF at the end", "@X: a\n~", model.MALFORMED_HEADER),
        ("LF in a name", "@X\nY: a~", model.MALFORMED_HEADER),
        ("LF first", "\n@", model.MALFORMED_HEADER),
        ("CR", "@X: a\rb~", model.MALFORMED_HEADER),
        ("CR at the end", "@X: a\r~", model.MALFORMED_HEADER),
        ("CR first", "\r@", model.MALFORMED_HEADER),
        ("CR in a name", "@X\rY: a~", model.MALFORMED_HEADER),
        ("LF CR", "@X: a\n\r~", model.MALFORMED_HEADER),
        ("LF in a quoted name", 'Content-Disposition: form-data; name="a\nb"~', "malformed_header"),
        ("CR in a quoted name", 'Content-Disposition: form-data; name="a\rb"~', "malformed_header"),
        ("LF for the empty line", "@\n~", model.MALFORMED_HEADER),
    ],
    "A header that may occur once occurs twice": [
        ("disposition", "@@", model.MALFORMED_HEADER),
        (
            "disposition in other letters",
            '@content-disposition: form-data; name="c"~',
            "malformed_header",
        ),
        (
            "second disposition is not form-data",
            "@Content-Disposition: inline~",
            "malformed_header",
        ),
        ("content type", "@Content-Type: a/b~Content-Type: a/b~", model.MALFORMED_HEADER),
        (
            "content type, far apart",
            "Content-Type: a/b~@X: 1~content-type: c/d~",
            "malformed_header",
        ),
        ("content type, both empty", "@Content-Type:~Content-Type:~", model.MALFORMED_HEADER),
        (
            "transfer encoding",
            "@Content-Transfer-Encoding: 8bit~Content-Transfer-Encoding: 8bit~",
            model.MALFORMED_HEADER,
        ),
    ],
    "RFC 7578, 4.7: a transfer encoding is never decoded": [
        ("base64", "@Content-Transfer-Encoding: base64~", model.UNSUPPORTED_TYPE),
        ("BASE64", "@content-transfer-encoding: BASE64~", model.UNSUPPORTED_TYPE),
        ("quoted-printable", "@Content-Transfer-Encoding: quoted-printable~", "unsupported_type"),
        ("unknown", "@Content-Transfer-Encoding: x-other~", model.UNSUPPORTED_TYPE),
        ("empty", "@Content-Transfer-Encoding:~", model.UNSUPPORTED_TYPE),
        ("with a parameter", "@Content-Transfer-Encoding: 8bit; x=y~", model.UNSUPPORTED_TYPE),
        ("two words", "@Content-Transfer-Encoding: 7bit 8bit~", model.UNSUPPORTED_TYPE),
        ("quoted", '@Content-Transfer-Encoding: "8bit"~', model.UNSUPPORTED_TYPE),
        ("before the disposition", "Content-Transfer-Encoding: base64~@", "unsupported_type"),
    ],
    "RFC 7578, 4.2: every part has a Content-Disposition": [
        ("no header at all", "", model.PART_WITHOUT_NAME),
        ("only a content type", "Content-Type: text/plain~", model.PART_WITHOUT_NAME),
        ("only another header", "X-Other: 1~", model.PART_WITHOUT_NAME),
        ("similar name", 'Content-Dispositio: form-data; name="a"~', model.PART_WITHOUT_NAME),
        ("name in the content type", 'Content-Type: form-data; name="a"~', "part_without_name"),
    ],
    "The first line with a problem decides": [
        ("encoding, then no colon", "@Content-Transfer-Encoding: x~y~", model.UNSUPPORTED_TYPE),
        ("no colon, then encoding", "@y~Content-Transfer-Encoding: x~", model.MALFORMED_HEADER),
        ("inline, then no colon", "Content-Disposition: inline~y~", model.PART_WITHOUT_NAME),
        ("no colon, then inline", "y~Content-Disposition: inline~", model.MALFORMED_HEADER),
        ("no disposition, no colon", "Content-Type: a/b~y~", model.MALFORMED_HEADER),
    ],
}

LIMIT_RULE = "The headers of a part have at most 16 KiB, the empty line included"
# Rows: a name, header lines and the rest of the body, the outcome.
LIMITS = [
    ("16 KiB", 16_384, "~x~--b--", model.WHOLE),
    ("16 KiB and a byte", 16_385, "~x~--b--", model.LIMIT),
    ("80 KB in a line", 80_000, "~x~--b--", model.LIMIT),
    ("16 KiB, cut in the empty line", 16_384, "", model.CUT_SHORT),
    ("16 KiB without the empty line", 16_386, None, model.CUT_SHORT),
    ("16 KiB and a byte without the empty line", 16_387, None, model.LIMIT),
    ("a megabyte", 1_000_000, "~x~--b--", model.LIMIT),
]


def limit_cases() -> Iterator[Case]:
    for name, size, rest, outcome in LIMITS:
        # The X header fills the block up to its size with the empty line.
        headers = multipart("@X: ")
        headers += b"x" * (size - len(headers) - 4)
        body = b"--b\r\n" + headers + (b"xx" if rest is None else multipart("~" + rest))
        fields = values(b"x") if outcome == model.WHOLE else []
        yield Case(LIMIT_RULE, name, post(MULTIPART, body), refused(outcome, *fields))
    many = multipart("--b~@" + "X: 1~" * 5000 + "~x~--b--")
    yield Case(LIMIT_RULE, "5,000 lines", post(MULTIPART, many), refused(model.LIMIT))
    early = multipart("--b~@no colon~" + "X: 1~" * 5000 + "~x~--b--")
    name = "the first line with a problem decides"
    yield Case(LIMIT_RULE, name, post(MULTIPART, early), refused(model.MALFORMED_HEADER))
    endless = multipart("--b~@X: ") + b"\n" * 100_000
    yield Case(LIMIT_RULE, "line without end", post(MULTIPART, endless), refused(model.LIMIT))


def cases() -> Iterator[Case]:
    for rule, rows in ACCEPTED.items():
        for name, headers, content_type in rows:
            body = multipart(f"--b~{headers}~x~--b--~")
            field = Field(b"a", None, content_type, b"x")
            yield Case(rule, name, post(MULTIPART, body), form(field))
    for rule, lines in REFUSED.items():
        for name, headers, problem in lines:
            # After a good part, which still arrives.
            body = multipart(f"--b~@~first~--b~{headers}~x~--b--~")
            yield Case(rule, name, post(MULTIPART, body), refused(problem, *values(b"first")))
    yield from limit_cases()
