"""The boundary parameter of a multipart content type."""

from typing import Iterator

from cases import Case, Request, form, octets, post, refused, values

# Rows: a name, what follows "multipart/form-data", and the boundary that it means.
ACCEPTED = {
    "RFC 7578, 4.1: the boundary is a parameter of the content type": [
        ("a word", "; boundary=word", "word"),
        ("one character", "; boundary=b", "b"),
        (
            "as Chromium writes it",
            "; boundary=----WebKitFormBoundaryAa09",
            "----WebKitFormBoundaryAa09",
        ),
        ("as Firefox writes it", "; boundary=----geckoformboundary0f", "----geckoformboundary0f"),
        ("as curl writes it", "; boundary=------------------------0a1b", "-" * 24 + "0a1b"),
        ("as Python's requests writes it", "; boundary=0123456789abcdef", "0123456789abcdef"),
        ("all dashes", "; boundary=----", "----"),
        ("one dash", "; boundary=-", "-"),
        ("repeats itself", "; boundary=abababab", "abababab"),
        ("every other token character", "; boundary=!#$%&'*+.^_`|~9", "!#$%&'*+.^_`|~9"),
        ("in single quotes, which belong to it", "; boundary='b'", "'b'"),
    ],
    "RFC 2046, 5.1.1: a boundary has 1 to 70 characters": [
        ("69 characters", "; boundary=" + "x" * 69, "x" * 69),
        ("70 characters", "; boundary=" + "x" * 70, "x" * 70),
        ("70 quoted characters", '; boundary="' + "x" * 70 + '"', "x" * 70),
        ("70 characters without the escapes", '; boundary="' + "\\x" * 70 + '"', "x" * 70),
    ],
    "RFC 9110, 5.6.4: a quoted string has escapes": [
        ("quoted", '; boundary="b"', "b"),
        ("quoted semicolon", '; boundary="a;b"', "a;b"),
        ("quoted comma", '; boundary="a,b"', "a,b"),
        ("quoted space inside", '; boundary="a b"', "a b"),
        ("quoted space first", '; boundary=" b"', " b"),
        ("quoted tab inside", '; boundary="a\tb"', "a\tb"),
        ("every quoted boundary character", '; boundary="\'()+_,-./:=?"', "'()+_,-./:=?"),
        ("quoted brackets and at sign", '; boundary="<[@]>"', "<[@]>"),
        ("escaped quote", '; boundary="a\\"b"', 'a"b'),
        ("escaped backslash", '; boundary="a\\\\b"', "a\\b"),
        ("escaped backslash last", '; boundary="b\\\\"', "b\\"),
        ("escaped letter", '; boundary="a\\b"', "ab"),
        ("escaped semicolon", '; boundary="a\\;b"', "a;b"),
        ("quoted text that looks like a boundary", '; x="; boundary=no"; boundary=b', "b"),
        ("escaped quote in an earlier parameter", '; x="\\"; boundary=no"; boundary=b', "b"),
        ("bytes above 127", '; boundary="b\xfc\xff"', "b\xfc\xff"),
        ("percent sign stays", '; boundary="b%22"', "b%22"),
    ],
    "RFC 9110, 5.6.6: names in any case, parameters in any order": [
        ("BOUNDARY", "; BOUNDARY=b", "b"),
        ("Boundary", "; Boundary=b", "b"),
        ("the case of the value counts", "; boundary=Bb", "Bb"),
        ("not first", "; charset=utf-8; boundary=b", "b"),
        ("not last", "; boundary=b; charset=utf-8", "b"),
        ("between others", "; a=1; boundary=b; c=3", "b"),
        ("after an empty quoted parameter", '; a=""; boundary=b', "b"),
        ("other parameters twice", "; a=1; a=2; boundary=b", "b"),
        ("after a longer name", "; xboundary=no; boundary=b", "b"),
        ("before a longer name", "; boundary=b; boundaryx=no", "b"),
        ("starred parameter of another name", "; name*=utf-8''x; boundary=b", "b"),
    ],
    "RFC 9110, 5.6.6: white space around a semicolon, empty parameters": [
        ("no white space", ";boundary=b", "b"),
        ("space before the semicolon", " ;boundary=b", "b"),
        ("tabs around the semicolon", "\t;\tboundary=b", "b"),
        ("many spaces", "   ;   boundary=b   ", "b"),
        ("semicolon at the end", "; boundary=b;", "b"),
        ("semicolon and space at the end", "; boundary=b; ", "b"),
        ("two semicolons", ";; boundary=b", "b"),
        ("semicolons with spaces between", "; ; ; boundary=b ; ;", "b"),
        ("semicolon right after a quote", '; boundary="b";x=y', "b"),
        ("spaces after a quote", '; boundary="b"  ', "b"),
    ],
    "White space around the equals sign of a parameter": [
        ("space before", "; boundary =b", "b"),
        ("space after", "; boundary= b", "b"),
        ("tabs on both sides", "; boundary\t=\tb", "b"),
        ("space before a quote", '; boundary= "b"', "b"),
        ("around another parameter's", "; x = y; boundary=b", "b"),
    ],
    'Java writes "=" and ":" unquoted': [
        ("equals sign first", "; boundary==b", "=b"),
        ("as Java writes it", "; boundary=----=_Part_0_1234.567", "----=_Part_0_1234.567"),
        ("colon", "; boundary=a:b", "a:b"),
        ("colon first", "; boundary=:b", ":b"),
        ("both", "; boundary==:=", "=:="),
        ("equals sign after a space", "; boundary= =b", "=b"),
    ],
}

# Rows: a name, what follows "multipart/form-data", and the problem.
REFUSED = {
    "A multipart form without a boundary is refused": [
        ("no parameters", "", "no_boundary"),
        ("only a semicolon", ";", "no_boundary"),
        ("only white space", "  ", "no_boundary"),
        ("another parameter", "; charset=utf-8", "no_boundary"),
        ("a longer name", "; boundaryx=b", "no_boundary"),
        ("only a starred boundary", "; boundary*=utf-8''b", "no_boundary"),
        ("only a numbered boundary", "; boundary*0=b", "no_boundary"),
        ("only two numbered boundaries", "; boundary*0=b; boundary*1=c", "no_boundary"),
        ("inside a quoted string", '; x="; boundary=b"', "no_boundary"),
    ],
    "RFC 2046, 5.1.1: an empty boundary is refused": [
        ("nothing after the equals sign", "; boundary=", "no_boundary"),
        ("a semicolon after the equals sign", "; boundary=; x=y", "no_boundary"),
        ("an empty quoted string", '; boundary=""', "no_boundary"),
        ("white space after the equals sign", "; boundary= ", "no_boundary"),
    ],
    "RFC 2046, 5.1.1: a boundary of more than 70 characters is refused": [
        (f"{count} characters", "; boundary=" + "b" * count, "no_boundary")
        for count in (71, 72, 256, 4091, 8192)
    ]
    + [("71 quoted characters", '; boundary="' + "b" * 71 + '"', "no_boundary")],
    "RFC 2046, 5.1.1: a boundary must not end in white space": [
        ("quoted space last", '; boundary="b "', "no_boundary"),
        ("only a quoted space", '; boundary=" "', "no_boundary"),
        ("escaped space last", '; boundary="b\\ "', "no_boundary"),
        ("quoted tab last", '; boundary="b\t"', "no_boundary"),
    ],
    "Two boundaries are refused": [
        ("different ones", "; boundary=b; boundary=c", "two_boundaries"),
        ("the same twice", "; boundary=b; boundary=b", "two_boundaries"),
        ("in different case", "; boundary=b; BOUNDARY=c", "two_boundaries"),
        ("one quoted", '; boundary=b; boundary="b"', "two_boundaries"),
        ("the second empty", '; boundary=b; boundary=""', "two_boundaries"),
        ("the first too long", "; boundary=" + "x" * 71 + "; boundary=b", "two_boundaries"),
        ("three", "; boundary=b; boundary=c; boundary=d", "two_boundaries"),
        ("not next to each other", "; boundary=b; x=y; boundary=c", "two_boundaries"),
        ("and a starred one", "; boundary=b; boundary*=utf-8''c", "two_boundaries"),
        ("a starred one first", "; boundary*=utf-8''c; boundary=b", "two_boundaries"),
        ("and a numbered one", "; boundary=b; boundary*0=c", "two_boundaries"),
        ("and a numbered, starred one", "; boundary=b; Boundary*1*=c", "two_boundaries"),
    ],
    "RFC 9110, 5.6.6: a malformed parameter list is refused": [
        ("boundary without an equals sign", "; boundary", "no_boundary"),
        ("parameter without an equals sign", "; x; boundary=b", "no_boundary"),
        ("parameter without an equals sign last", "; boundary=b; x", "no_boundary"),
        ("parameter without a value", "; x=; boundary=b", "no_boundary"),
        ("parameter without a name", "; =x; boundary=b", "no_boundary"),
        ("quote without an end", '; boundary="b', "no_boundary"),
        ("only an opening quote", '; boundary="', "no_boundary"),
        ("escaped end of a quote", '; boundary="b\\"', "no_boundary"),
        ("backslash at the very end", '; boundary="b\\', "no_boundary"),
        ("quote at the end of a token", '; boundary=b"', "no_boundary"),
        ("quote inside a token", '; boundary=a"b"', "no_boundary"),
        ("text after a closing quote", '; boundary="a"b', "no_boundary"),
        ("text after a closing quote and a space", '; boundary="a" b', "no_boundary"),
        ("second quoted string", '; boundary="a" "b"', "no_boundary"),
        ("space in a token", "; boundary=a b", "no_boundary"),
        ("space in a name", "; bound ary=b", "no_boundary"),
        ("comma after a token", "; boundary=b, x=y", "no_boundary"),
        ("slash in a token", "; boundary=a/b", "no_boundary"),
        ("question mark in a token", "; boundary=a?b", "no_boundary"),
        ("parenthesis in a token", "; boundary=(b)", "no_boundary"),
        ("backslash in a token", "; boundary=a\\b", "no_boundary"),
        ("byte above 127 in a token", "; boundary=b\xfc", "no_boundary"),
        ("control character in a token", "; boundary=b\x01", "no_boundary"),
        ("equals sign in another token", "; x=a=b; boundary=b", "no_boundary"),
        ("colon in another token", "; x=a:b; boundary=b", "no_boundary"),
        ("CR LF after the semicolon", ";\r\n boundary=b", "no_boundary"),
        ("LF at the end", "; boundary=b\n", "no_boundary"),
        ("quoted LF", '; boundary="a\nb"', "no_boundary"),
        ("quoted CR", '; boundary="a\rb"', "no_boundary"),
        ("escaped LF", '; boundary="a\\\nb"', "no_boundary"),
        ("malformed after two boundaries", "; boundary=b; boundary=b; x", "no_boundary"),
    ],
    "RFC 9110, 8.3.1: text after the media type makes it another type": [
        ("a word", " x; boundary=b", "unsupported_type"),
        ("a comma", ", boundary=b", "unsupported_type"),
        ("a space instead of a semicolon", " boundary=b", "unsupported_type"),
        ("a quote", '"; boundary=b', "unsupported_type"),
        ("a letter", "x; boundary=b", "unsupported_type"),
        ("LF", "\n; boundary=b", "unsupported_type"),
    ],
}


def body_with(boundary: str) -> bytes:
    return octets(
        f"--{boundary}\r\n"
        'Content-Disposition: form-data; name="a"\r\n\r\n'
        f"x\r\n--{boundary}--\r\n"
    )


def request(parameters: str, boundary: str) -> Request:
    return post(octets("multipart/form-data" + parameters), body_with(boundary))


def cases() -> Iterator[Case]:
    for rule, rows in ACCEPTED.items():
        for name, parameters, boundary in rows:
            yield Case(rule, name, request(parameters, boundary), form(*values(b"x")))
    for rule, rows in REFUSED.items():
        for name, parameters, problem in rows:
            yield Case(rule, name, request(parameters, "b"), refused(problem))
