"""Delimiters, preamble, epilogue and values. The boundary is "b" unless a case says otherwise."""

from typing import Iterator

import model
from cases import MULTIPART, Case, form, multipart, octets, post, refused, values

# Rows: a name, the body, and the values that arrive.
WHOLE: dict[str, list[tuple[str, str, list[str]]]] = {
    "RFC 2046, 5.1.1: the CR LF before a delimiter belongs to the delimiter": [
        ("one value", "--b~@~x~--b--~", ["x"]),
        ("two values", "--b~@~x~--b~@~y~--b--~", ["x", "y"]),
        ("three values", "--b~@~x~--b~@~y~--b~@~z~--b--~", ["x", "y", "z"]),
        ("value ends in CR LF", "--b~@~x~~--b--~", ["x\r\n"]),
        ("value ends in CR", "--b~@~x\r~--b--~", ["x\r"]),
        ("value ends in LF", "--b~@~x\n~--b--~", ["x\n"]),
        ("value is CR LF", "--b~@~~~--b--~", ["\r\n"]),
        ("value is two CR LF", "--b~@~~~~--b--~", ["\r\n\r\n"]),
        ("value is CR", "--b~@~\r~--b--~", ["\r"]),
        ("value is LF", "--b~@~\n~--b--~", ["\n"]),
        ("value begins with CR LF", "--b~@~~x~--b--~", ["\r\nx"]),
        ("value begins with LF", "--b~@~\nx~--b--~", ["\nx"]),
        ("value begins with CR", "--b~@~\rx~--b--~", ["\rx"]),
        ("value ends in CR CR", "--b~@~x\r\r~--b--~", ["x\r\r"]),
        ("value ends in LF CR", "--b~@~x\n\r~--b--~", ["x\n\r"]),
    ],
    "A value is all bytes up to the delimiter": [
        ("lines", "--b~@~one~two~~four~--b--~", ["one\r\ntwo\r\n\r\nfour"]),
        ("lines that end in LF", "--b~@~one\ntwo\n~--b--~", ["one\ntwo\n"]),
        ("start of a PNG", "--b~@~\x89PNG~\x1a\n\0~--b--~", ["\x89PNG\r\n\x1a\n\0"]),
        ("zero byte", "--b~@~\0~--b--~", ["\0"]),
        ("zero bytes around a line end", "--b~@~\0~\0~--b--~", ["\0\r\n\0"]),
        ("zero byte before the delimiter", "--b~@~x\0~--b--~", ["x\0"]),
        ("only white space", "--b~@~ \t ~--b--~", [" \t "]),
        ("headers", "--b~@~@~x~--b--~", ['Content-Disposition: form-data; name="a"\r\n\r\nx']),
        ("URL-encoded text stays", "--b~@~a%20b+c&d=e~--b--~", ["a%20b+c&d=e"]),
        ("quotes and backslashes stay", '--b~@~\\"%22~--b--~', ['\\"%22']),
    ],
    "What only resembles a delimiter belongs to the value": [
        ("delimiter without CR LF", "--b~@~x--b~--b--~", ["x--b"]),
        ("closing delimiter without CR LF", "--b~@~x--b--~--b--~", ["x--b--"]),
        ("delimiter after LF", "--b~@~x\n--b~--b--~", ["x\n--b"]),
        ("closing delimiter after LF", "--b~@~x\n--b--\n~--b--~", ["x\n--b--\n"]),
        ("delimiter after CR", "--b~@~x\r--b~--b--~", ["x\r--b"]),
        ("delimiter after LF CR", "--b~@~x\n\r--b~--b--~", ["x\n\r--b"]),
        ("delimiter after CR LF and a space", "--b~@~x~ --b~--b--~", ["x\r\n --b"]),
        ("delimiter after CR LF and zero", "--b~@~x~\0--b~--b--~", ["x\r\n\0--b"]),
        ("zero byte in the dashes", "--b~@~x~-\0-b~--b--~", ["x\r\n-\0-b"]),
        ("boundary without dashes", "--b~@~x~b~--b--~", ["x\r\nb"]),
        ("one dash", "--b~@~x~-b~--b--~", ["x\r\n-b"]),
        ("three dashes", "--b~@~x~---b~--b--~", ["x\r\n---b"]),
        ("two dashes", "--b~@~x~--~--b--~", ["x\r\n--"]),
        ("CR LF and dashes many times", "--b~@~" + "~--" * 99 + "~--b--~", ["\r\n--" * 99]),
        ("CR LF many times", "--b~@~" + "~" * 99 + "~--b--~", ["\r\n" * 99]),
        ("CR many times", "--b~@~" + "\r" * 99 + "~--b--~", ["\r" * 99]),
        ("dashes many times", "--b~@~" + "-" * 99 + "~--b--~", ["-" * 99]),
        ("boundary in capitals", "--b~@~x~--B~--b--~", ["x\r\n--B"]),
        ("space before the boundary", "--b~@~x~-- b~--b--~", ["x\r\n-- b"]),
    ],
    "An empty value": [
        ("with CR LF of its own", "--b~@~~--b--~", [""]),
        ("shares its CR LF with the delimiter", "--b~@~--b--~", [""]),
        ("two of them", "--b~@~~--b~@~~--b--~", ["", ""]),
        ("two that share", "--b~@~--b~@~--b--~", ["", ""]),
        ("shares, then a value", "--b~@~--b~@~x~--b--~", ["", "x"]),
        ("after a value", "--b~@~x~--b~@~--b--~", ["x", ""]),
        ("shares, with white space after the delimiter", "--b~@~--b ~@~x~--b--~", ["", "x"]),
    ],
    "RFC 2046, 5.1.1: white space is allowed after a delimiter": [
        ("space", "--b ~@~x~--b--~", ["x"]),
        ("tab", "--b\t~@~x~--b--~", ["x"]),
        ("mixed", "--b \t \t~@~x~--b--~", ["x"]),
        ("after a value", "--b~@~x~--b  ~@~y~--b--~", ["x", "y"]),
        ("after the closing delimiter", "--b~@~x~--b-- \t~", ["x"]),
        ("70,000 spaces", "--b" + " " * 70_000 + "~@~x~--b--~", ["x"]),
    ],
    "RFC 2046, 5.1.1: a preamble is ignored": [
        ("a line", "This is a message.~--b~@~x~--b--~", ["x"]),
        ("an empty line", "~--b~@~x~--b--~", ["x"]),
        ("two empty lines", "~~--b~@~x~--b--~", ["x"]),
        ("lines of dashes", "--~----~--b~@~x~--b--~", ["x"]),
        ("lines that end in LF", "one\ntwo\n~--b~@~x~--b--~", ["x"]),
        ("zero bytes", "\0\0~--b~@~x~--b--~", ["x"]),
        ("the boundary alone", "b~-b~ b~--b~@~x~--b--~", ["x"]),
        ("a header", "@~--b~@~x~--b--~", ["x"]),
        ("100 KB", "p" * 100_000 + "~--b~@~x~--b--~", ["x"]),
        ("100 KB of CR LF", "~" * 50_000 + "~--b~@~x~--b--~", ["x"]),
        ("CR before its CR LF", "x\r~--b~@~x~--b--~", ["x"]),
    ],
    "RFC 2046, 5.1.1: everything after the closing delimiter is ignored": [
        ("nothing", "--b~@~x~--b--", ["x"]),
        ("CR LF", "--b~@~x~--b--~", ["x"]),
        ("CR", "--b~@~x~--b--\r", ["x"]),
        ("LF", "--b~@~x~--b--\n", ["x"]),
        ("a text", "--b~@~x~--b--~the end~", ["x"]),
        ("text on the same line", "--b~@~x~--b--x", ["x"]),
        ("more dashes", "--b~@~x~--b----", ["x"]),
        ("another part", "--b~@~x~--b--~--b~@~y~--b--~", ["x"]),
        ("a malformed part", "--b~@~x~--b--~--b~nonsense~--bx", ["x"]),
        ("a delimiter at once", "--b~@~x~--b----b~@~y~--b--~", ["x"]),
        ("zero bytes", "--b~@~x~--b--\0\0", ["x"]),
        ("100 KB", "--b~@~x~--b--" + "e" * 100_000, ["x"]),
    ],
    "A multipart body without parts is a whole form": [
        ("only the closing delimiter", "--b--", []),
        ("with CR LF", "--b--~", []),
        ("after a preamble", "hello~--b--~", []),
        ("after an empty line", "~--b--~", []),
        ("with an epilogue", "--b--~--b~@~x~--b--~", []),
        ("and text on the same line", "--b--x", []),
    ],
}

CUT_SHORT: dict[str, list[tuple[str, str, list[str]]]] = {
    "The closing delimiter is required": [
        ("empty body", "", []),
        ("1 byte", "-", []),
        ("2 bytes", "--", []),
        ("3 bytes", "--b", []),
        ("only a line end", "~", []),
        ("no delimiter at all", "hello", []),
        ("100 KB without a delimiter", "x" * 100_000, []),
        ("another boundary", "--c~@~x~--c--~", []),
        ("the boundary in capitals", "--B~@~x~--B--~", []),
        ("the boundary without dashes", "b~@~x~b--~", []),
        ("first delimiter and CR", "--b\r", []),
        ("first delimiter and a dash", "--b-", []),
        ("first delimiter and white space", "--b \t", []),
        ("first delimiter, white space and CR", "--b \r", []),
        ("first delimiter and CR LF", "--b~", []),
        ("in a header", "--b~Content-Disp", []),
        ("after a header", "--b~@", []),
        ("in the empty line", "--b~@\r", []),
        ("after the empty line", "--b~@~", []),
        ("in the value", "--b~@~x", []),
        ("in the CR LF of the delimiter", "--b~@~x\r", []),
        ("before the dashes", "--b~@~x~", []),
        ("in the dashes", "--b~@~x~-", []),
        ("before the boundary", "--b~@~x~--", []),
        ("after the boundary", "--b~@~x~--b", []),
        ("in the last dashes", "--b~@~x~--b-", []),
        ("in the white space of a delimiter", "--b~@~x~--b ", []),
        ("in the CR LF of a second delimiter", "--b~@~x~--b\r", []),
        ("in the delimiter after an empty value", "--b~@~--", []),
        ("after the first of two parts", "--b~@~x~--b~", ["x"]),
        ("in the second part's headers", "--b~@~x~--b~Content", ["x"]),
        ("in the second part's value", "--b~@~x~--b~@~y", ["x"]),
        ("no closing dashes", "--b~@~x~--b~@~y~--b~", ["x", "y"]),
        ("closing delimiter after LF", "--b~@~x\n--b--\n", []),
        ("closing delimiter after CR", "--b~@~x\r--b--\r", []),
    ],
}

MALFORMED: dict[str, list[tuple[str, str, list[str]]]] = {
    "The delimiter's text inside a preamble is malformed": [
        ("after a text", "x--b~@~x~--b--~", []),
        ("after a space", " --b~@~x~--b--~", []),
        ("after LF", "\n--b~@~x~--b--~", []),
        ("after CR", "\r--b~@~x~--b--~", []),
        ("after a line that ends in LF", "hello\n--b~@~x~--b--~", []),
        ("after a line that ends in CR", "hello\r--b~@~x~--b--~", []),
        ("after a dash", "---b~@~x~--b--~", []),
        ("after a zero byte", "\0--b~@~x~--b--~", []),
        ("closing", "x--b--~", []),
        ("before a good delimiter", "see --b below~--b~@~x~--b--~", []),
        ("all lines end in LF", "\n--b\nContent-Disposition: form-data\n\nx\n--b--\n", []),
    ],
    "A line that starts with the delimiter and goes on is malformed": [
        ("a letter", "--bx~@~x~--b--~", []),
        ("a word after a space", "--b x~@~x~--b--~", []),
        ("a dash and a letter", "--b-x~@~x~--b--~", []),
        ("a dash and CR LF", "--b-~@~x~--b--~", []),
        ("dashes after a space", "--b --~@~x~--b--~", []),
        ("LF alone", "--b\n@~x~--b--~", []),
        ("space and LF", "--b \n@~x~--b--~", []),
        ("CR alone", "--b\r@~x~--b--~", []),
        ("CR CR LF", "--b\r~@~x~--b--~", []),
        ("zero byte", "--b\0~@~x~--b--~", []),
        ("vertical tab", "--b\v~@~x~--b--~", []),
        ("form feed", "--b\f~@~x~--b--~", []),
        ("the boundary twice", "--bb~@~x~--b--~", []),
        ("in a value: a letter", "--b~@~x~--bx~--b--~", []),
        ("in a value: a word after a space", "--b~@~x~--b x~--b--~", []),
        ("in a value: a dash and a letter", "--b~@~x~--b-x~--b--~", []),
        ("in a value: LF alone", "--b~@~x~--b\n@~y~--b--~", []),
        ("in a value: CR alone", "--b~@~x~--b\r@~y~--b--~", []),
        ("in a value: zero byte", "--b~@~x~--b\0~--b--~", []),
        ("in a value: closing after a space", "--b~@~x~--b --~", []),
        ("a longer boundary", "--b~@~x~--bc~y~--bc--~--b--~", []),
        ("at the start of a value", "--b~@~--bx~--b--~", []),
        ("at the start of a value, with a space", "--b~@~--b x~--b--~", []),
        ("in the second value", "--b~@~x~--b~@~y~--b!~--b--~", ["x"]),
        ("after an empty value", "--b~@~~--bx~--b--~", []),
        ("the first line", "--bx", []),
    ],
    "A delimiter among the headers of a part is malformed": [
        ("right after a delimiter", "--b~--b~@~x~--b--~", []),
        ("closing right after a delimiter", "--b~--b--~", []),
        ("closing right after a delimiter, without CR LF", "--b~--b--", []),
        ("after a header", "--b~@--b~@~x~--b--~", []),
        ("closing after a header", "--b~@--b--~", []),
        ("longer, after a header", "--b~@--bx: y~~x~--b--~", []),
        ("in the second part", "--b~@~x~--b~--b--~", ["x"]),
        ("in the second part, after a header", "--b~@~x~--b~@--b--~", ["x"]),
    ],
}

LONG = "0123456789" * 7
NEARLY = ("~--" + LONG[:-1]) * 1000

# Rows: a name, the boundary, the body, the values, and the outcome.
OTHER_BOUNDARIES: dict[str, list[tuple[str, str, str, list[str], str]]] = {
    "RFC 2046, 5.1.1: any boundary": [
        ("dashes", "--", "----~@~x~------~", ["x"], model.WHOLE),
        ("a dash", "-", "---~@~x~-----", ["x"], model.WHOLE),
        (
            "a dash: a line of dashes is a delimiter",
            "-",
            "---~@~~---~@~x~-----",
            ["", "x"],
            "whole",
        ),
        ("a dash: four dashes are malformed", "-", "---~@~x~----~-----", [], "malformed"),
        ("overlaps itself", "abab", "--abab~@~x~--ab~--abab--", ["x\r\n--ab"], model.WHOLE),
        ("overlaps itself in the preamble", "-a", "----a~@~x~---a--", [], "malformed"),
        ("dashes in a value", "-a", "---a~@~x~----a~---a--", ["x\r\n----a"], model.WHOLE),
        ("dashes before dashes", "---", "-----~@~---~-----~@~-------", ["---", ""], model.WHOLE),
        ("the first half", "abcd", "--abcd~@~~--ab~--abcd--", ["\r\n--ab"], model.WHOLE),
        (
            "all but the last character",
            "abcd",
            "--abcd~@~x~--abc~--abcd--",
            ["x\r\n--abc"],
            model.WHOLE,
        ),
        (
            "another last character",
            "abcd",
            "--abcd~@~~--abcx~--abcd--",
            ["\r\n--abcx"],
            model.WHOLE,
        ),
        ("looks like a header", "a:b", "--a:b~@~x~--a:b--", ["x"], model.WHOLE),
        ("equals sign", "=_x", "--=_x~@~x~--=_x--", ["x"], model.WHOLE),
        ("ends in dashes", "b--", "--b--~@~x~--b----", ["x"], model.WHOLE),
        (
            "70 characters, nearly everywhere",
            LONG,
            f"--{LONG}~@~{NEARLY}~--{LONG}--",
            [NEARLY.replace("~", "\r\n")],
            model.WHOLE,
        ),
        ("ends in dashes, cut", "b--", "--b--~@~x~--b--", [], model.CUT_SHORT),
    ],
}

# Rows: a name, and a value that must arrive as it is.
ANY_VALUE = {
    "A value of any bytes": [
        ("every byte", bytes(range(256))),
        ("every byte backwards", bytes(range(255, -1, -1))),
        ("every byte before CR", b"".join(b"%c\r" % byte for byte in range(256))),
        ("every byte after CR LF", b"".join(b"\r\n%c" % byte for byte in range(256))),
        (
            "every byte after CR LF and two dashes",
            b"".join(b"\r\n--%c" % byte for byte in range(256) if byte != 98),
        ),
        ("text in UTF-8", "Grüße, мир, 世界, שלום, नमस्ते 🙂".encode()),
        ("text in Latin-1", "Grüße".encode("latin-1")),
        ("text in UTF-16", "Grüße".encode("utf-16")),
        ("megabyte without a line end", b"\n" + b"x" * 1_000_000),
        ("megabyte without a line end, after CR", b"\r" + b"x" * 1_000_000),
        ("megabyte of near delimiters", b"\r\n--" * 250_000),
        ("megabyte of CR", b"\r" * 1_000_000),
        ("megabyte of CR LF", b"\r\n" * 500_000),
        ("megabyte of zero bytes", b"\0" * 1_000_000),
        ("10,000 lines", b"line of a text area\r\n" * 10_000),
    ]
    + [
        (f"{size} bytes", b"x" * size)
        for near in (512, 1024, 4096, 8192, 16384, 32768, 65536, 131072, 262144)
        for size in range(near - 1, near + 2)
    ]
    + [(f"{size} bytes of dashes", b"-" * size) for size in (4095, 4096, 65535, 65536)]
    + [(f"{size} bytes of CR", b"\r" * size) for size in (4095, 4096, 65535, 65536)],
}


def cases() -> Iterator[Case]:
    for outcome, rules in (
        (model.WHOLE, WHOLE),
        (model.CUT_SHORT, CUT_SHORT),
        (model.MALFORMED, MALFORMED),
    ):
        for rule, rows in rules.items():
            for name, body, texts in rows:
                expected = values(*map(octets, texts))
                request = post(MULTIPART, multipart(body))
                yield Case(rule, name, request, refused(outcome, *expected))
    for rule, others in OTHER_BOUNDARIES.items():
        for name, boundary, body, texts, outcome in others:
            expected = values(*map(octets, texts))
            request = post(octets(f"multipart/form-data; boundary={boundary}"), multipart(body))
            yield Case(rule, name, request, refused(outcome, *expected))
    for rule, sent in ANY_VALUE.items():
        for name, value in sent:
            whole = multipart("--b~@~") + value + b"\r\n--b--\r\n"
            yield Case(rule, name, post(MULTIPART, whole), form(*values(value)))
