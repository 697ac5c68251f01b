#!/usr/bin/env python3
"""The command tarn-form, compared with the model: the same fields, the same outcome.

TARN_FORM is the command that runs it. It runs once or twice for each case: with the body in a file,
as some web servers pass it, and in a pipe; with BOTH_WAYS=OFF in one of them, by turns.
"""

import base64
import contextlib
import itertools
import json
import os
import random
import shlex
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path
from typing import Any, Iterator, NamedTuple

import model
from cases import DISPOSITION, MULTIPART, URL_ENCODED, Case, Request, all_cases, form, report
from cases import multipart, post, values
from model import Field, Form
from random_requests import KINDS, random_requests

TARN_FORM = shlex.split(os.environ["TARN_FORM"])
REQUESTS_OF_A_KIND = int(os.environ.get("REQUESTS_OF_A_KIND", "250"))
BOTH_WAYS = os.environ.get("BOTH_WAYS", "ON") == "ON"
VARIABLES = ("REQUEST_METHOD", "CONTENT_TYPE", "CONTENT_LENGTH", "QUERY_STRING")


class Run(NamedTuple):
    status: int
    output: bytes
    errors: bytes


class Wrong(Exception):
    """The output is not what the manual page describes."""


def environment(request: Request) -> dict[bytes, bytes]:
    pairs = zip(VARIABLES, request)
    # LSAN_OPTIONS and the like reach sanitized builds.
    options = {name: value for name, value in os.environb.items() if name.endswith(b"SAN_OPTIONS")}
    return options | {name.encode(): value for name, value in pairs if value is not None}


def run(request: Request, stdin: Any, *arguments: str) -> Run:
    options: Any = {"input": stdin} if isinstance(stdin, bytes) else {"stdin": stdin}
    ran = subprocess.run(
        [*TARN_FORM, *arguments],
        env=environment(request),
        capture_output=True,
        timeout=120,
        check=False,
        **options,
    )
    return Run(ran.returncode, ran.stdout, ran.stderr)


def run_with_file(request: Request, *arguments: str, offset: int = 0) -> Run:
    with tempfile.TemporaryFile() as file:
        file.write(b"p" * offset + request.body)
        file.flush()
        os.lseek(file.fileno(), offset, os.SEEK_SET)
        return run(request, file, *arguments)


def run_with_pipe(request: Request, *arguments: str) -> Run:
    return run(request, request.body, *arguments)


def expect(condition: Any, complaint: str) -> None:
    if not condition:
        raise Wrong(complaint)


def text_of(data: bytes | None) -> str | None:
    return None if data is None else data.decode("utf-8", "surrogateescape")


def field_of(line: dict[str, Any], has_data: bool) -> Field:
    """The field that a line describes, once the line is known to be in order."""
    keys = ["name", "filename", "content_type", "size"] + ["data"] * has_data
    expect(list(line) == keys, f"keys {list(line)}")
    texts = [line["name"], line["filename"], line["content_type"]]
    expect(isinstance(line["name"], str), "a name that is not a text")
    octets = [None if t is None else t.encode("utf-8", "surrogateescape") for t in texts]
    # Only bytes that are not UTF-8 may be lone surrogates.
    expect(texts == list(map(text_of, octets)), f"texts {texts}")
    data = base64.b64decode(line["data"], validate=True) if has_data else b""
    expect(not has_data or line["size"] == len(data), f"size {line['size']} of {len(data)} bytes")
    return Field(octets[0] or b"", octets[1], octets[2], data)


def form_of(ran: Run, body_size: int, has_data: bool = True) -> Form:
    """The form that the output describes. Raises Wrong if the output is not in order."""
    expect(ran.output.endswith(b"\n"), f"output without a last line: {ran.output[-200:]!r}")
    expect(not ran.errors, f"output on standard error: {ran.errors[-2000:]!r}")
    expect(ran.output.isascii(), "output that is not ASCII")
    lines = [json.loads(line) for line in ran.output.decode("ascii").split("\n")[:-1]]
    last = lines.pop()
    fields = [field_of(line, has_data) for line in lines]
    if ran.status == 0:
        expect(last == {"end": True} and last["end"] is True, f"last line {last}")
        return Form(fields, model.WHOLE)
    expect(ran.status == 1, f"exit status {ran.status}")
    expect(list(last) == ["error", "at", "message"], f"last line {last}")
    expect(type(last["at"]) is int and 0 <= last["at"] <= body_size, f"offset {last['at']}")
    expect(len(last["message"]) > 10 and last["message"].isprintable(), f"message {last}")
    return Form(fields, last["error"])


def answer(ran: Run, request: Request) -> Form | str:
    try:
        return form_of(ran, max(len(request.body), len(request.query_string or b"")))
    except (Wrong, ValueError, KeyError, TypeError, AttributeError) as error:
        return f"{error!r} from status {ran.status}, output {ran.output[-300:]!r}"


class TarnForm(unittest.TestCase):
    def report_all(self, failures: list[str]) -> None:
        """Each failure is printed once."""
        text = "\n\n".join(["", *failures[:20]])
        if len(failures) > 20:
            text += f"\n\nand {len(failures) - 20} more"
        self.assertEqual(0, len(failures), text)

    def complaints(self, case: Case, ways: dict[str, Any]) -> list[str]:
        """A report of a case whose result is wrong; several ways to the same one are one report."""
        wrong: dict[str, str] = {}
        for way, runner in ways.items():
            got = answer(runner(case.request), case.request)
            if got != case.form:
                text = report(case, got)
                wrong[text] = f"{wrong[text]}, {way}" if text in wrong else way
        return [f"{text}\n    with the body {ways_}" for text, ways_ in wrong.items()]

    def test_reads_what_was_worked_out_by_hand(self):
        ways = [("in a file", run_with_file), ("in a pipe", run_with_pipe)]
        cases = all_cases()
        self.assertGreater(len(cases), 400)
        failures = []
        for number, case in enumerate(cases):
            expected = model.read_form(*case.request)
            used = ways if BOTH_WAYS else [ways[number % 2]]
            failures += self.complaints(case._replace(form=expected), dict(used))
        self.report_all(failures)

    def test_agrees_with_the_model_on_random_requests(self):
        for kind in KINDS:
            failures = []
            for number, (name, request) in enumerate(random_requests(kind, REQUESTS_OF_A_KIND)):
                if b"\0" in b"".join(each or b"" for each in request[:4]):
                    continue
                runner = run_with_pipe if number % 2 else run_with_file
                case = Case("the model", name, request, model.read_form(*request))
                failures += self.complaints(case, {runner.__name__: runner})
            with self.subTest(kind=kind):
                self.report_all(failures)

    def test_agrees_with_the_model_on_a_form_cut_at_each_byte(self):
        body = multipart("pre~--b~@~x~--b \t~@Content-Type: a/b~~~--b~@~~y~--b--~end")
        failures = []
        for size in range(len(body) + 1):
            for length in (size, len(body)):
                request = Request(b"POST", MULTIPART, b"%d" % length, None, body[:size])
                name = f"{size} bytes of {length}"
                case = Case("a form cut short", name, request, model.read_form(*request))
                runner = run_with_pipe if size % 2 else run_with_file
                failures += self.complaints(case, {runner.__name__: runner})
        self.report_all(failures)

    def test_option_no_data_leaves_out_the_bytes(self):
        body = multipart(
            '--b~@~value~--b~Content-Disposition: form-data; name="f"; filename=""~~~--b--'
        )
        request = post(MULTIPART, body)
        ran = run_with_file(request, "--no-data")
        expected = [Field(b"a", None, None, b""), Field(b"f", b"", None, b"")]
        self.assertEqual(form_of(ran, len(body), has_data=False), Form(expected, model.WHOLE))
        sizes = [json.loads(line).get("size") for line in ran.output.splitlines()]
        self.assertEqual(sizes, [5, 0, None])


class StandardInput(unittest.TestCase):
    """What standard input can be."""

    body = multipart("--b~@~x~--b--~")
    whole = form(*values(b"x"))

    def reads(self, expected: Form, ran: Run) -> None:
        self.assertEqual(form_of(ran, 2**63), expected)

    def test_file_at_an_offset(self):
        self.reads(self.whole, run_with_file(post(MULTIPART, self.body), offset=4097))

    def test_file_at_an_offset_that_is_too_short(self):
        request = post(MULTIPART, self.body)
        short = request._replace(body=self.body[:-1])
        self.reads(Form(self.whole.fields, model.CUT_SHORT), run_with_file(short, offset=4097))

    def test_pipe_that_is_never_closed(self):
        """Nothing is read beyond CONTENT_LENGTH, and nothing is awaited there."""
        for content_type, body in ((MULTIPART, self.body), (URL_ENCODED, b"a=x")):
            reader, writer = os.pipe()
            try:
                os.write(writer, body + b"more")
                self.reads(self.whole, run(post(content_type, body), reader))
                self.assertEqual(os.read(reader, 100), b"more")
            finally:
                os.close(reader)
                os.close(writer)

    def test_pipe_that_is_never_closed_after_a_problem(self):
        """A problem ends the reading, although more bytes were promised."""
        reader, writer = os.pipe()
        try:
            os.write(writer, b"x--b")
            request = Request(b"POST", MULTIPART, b"999", None, b"x--b")
            self.reads(Form([], model.MALFORMED), run(request, reader))
        finally:
            os.close(reader)
            os.close(writer)

    def run_in_pieces(self, request: Request, sizes: Iterator[int]) -> Run:
        reader, writer = os.pipe2(os.O_DIRECT)  # each write() is a read() of its own
        sender = threading.Thread(target=self.send, args=(writer, request.body, sizes))
        sender.start()
        try:
            return run(request, reader)
        finally:
            os.close(reader)
            sender.join()

    @staticmethod
    def send(writer: int, data: bytes, sizes: Iterator[int]) -> None:
        # The reader may stop at a problem.
        with contextlib.suppress(BrokenPipeError):
            while data:
                size = next(sizes)
                os.write(writer, data[:size])
                data = data[size:]
        os.close(writer)

    def test_pipe_that_passes_a_byte_at_a_time(self):
        body = multipart("pre~--b ~@Content-Type: a/b~~~-\r--b~~--b~@~--b--")
        for data in (body, body[:-1]):
            request = Request(b"POST", MULTIPART, b"%d" % len(body), None, data)
            ran = self.run_in_pieces(request, itertools.repeat(1))
            self.reads(model.read_form(*request), ran)

    def test_pipe_in_random_pieces(self):
        for name, request in random_requests("nearly whole", 40):
            pieces = random.Random(name)
            sizes = iter(lambda: pieces.choice([1, 2, 3, 5, 7, 11, 50]), 0)
            with self.subTest(name):
                ran = self.run_in_pieces(request, sizes)
                self.reads(model.read_form(*request), ran)

    def test_large_value_from_a_file_and_from_a_pipe(self):
        value = random.Random(7).randbytes(3_000_001)
        body = multipart("--b~@~") + value + b"\r\n--b--\r\n"
        request = post(MULTIPART, body)
        self.reads(form(*values(value)), run_with_file(request))
        self.reads(form(*values(value)), run_with_pipe(request))

    def test_closed(self):
        ran = subprocess.run(
            ["/bin/sh", "-c", 'exec "$@" <&-', "sh", *TARN_FORM],
            env=environment(post(MULTIPART, self.body)),
            capture_output=True,
            timeout=60,
            check=False,
        )
        got = form_of(Run(ran.returncode, ran.stdout, ran.stderr), 2**63)
        self.assertEqual(got, Form([], model.READ_ERROR))

    def test_directory(self):
        folder = os.open("/", os.O_RDONLY)
        self.addCleanup(os.close, folder)
        self.reads(Form([], model.READ_ERROR), run(post(URL_ENCODED, b"a=x"), folder))

    def test_open_only_for_writing(self):
        with open("/dev/null", "wb") as null:
            self.reads(Form([], model.READ_ERROR), run(post(MULTIPART, self.body), null))

    def test_empty_device(self):
        ran = run(post(MULTIPART, self.body), subprocess.DEVNULL)
        self.reads(Form([], model.CUT_SHORT), ran)


class Saving(unittest.TestCase):
    """Option --save."""

    names = [
        b"plain.txt",
        b"plain.txt",
        b"../up",
        b"../../../../etc/passwd",
        b"/etc/passwd",
        b"C:\\dir\\f.txt",
        b".",
        b"..",
        b"...",
        b"/",
        b".hidden",
        b"-rf",
        b"a/b/c",
        b"zero\0byte",
        b"line%0Aend",
        b"quote%22quote",
        b"not\xffUTF-8",
        b" ",
        b"f" * 300,
        b"\xe2\x80\xaegpj.exe",
        b"CON",
        b"$(id)`id`;id",
    ]

    def saved(self, body: bytes) -> tuple[list[bytes], Run]:
        """What --save stores for a body, after a look at where it is stored."""
        with tempfile.TemporaryDirectory() as outer:
            folder = Path(outer, "outer", "store")
            folder.mkdir(parents=True)
            ran = run_with_file(post(MULTIPART, body), "--save", str(folder))
            found = [path for path in Path(outer).rglob("*") if not path.is_dir()]
            for path in found:
                self.assertEqual(path.parent, folder)
                self.assertTrue(path.is_file() and not path.is_symlink(), path)
                name = os.fsencode(path.name)
                self.assertFalse(name.startswith((b".", b"-")), name)
                self.assertFalse(any(byte < 32 or byte in b"/\\\x7f" for byte in name), name)
            return sorted(path.read_bytes() for path in found), ran

    def part(self, name: bytes, value: bytes) -> bytes:
        disposition = DISPOSITION.encode().rstrip() + b'; filename="' + name + b'"\r\n'
        return b"--b\r\n" + disposition + b"\r\n" + value + b"\r\n"

    def test_stores_files_under_safe_names(self):
        contents = [b"file %d\r\n\0" % number for number in range(len(self.names))]
        parts = map(self.part, self.names, contents)
        stored, ran = self.saved(b"".join(parts) + multipart("--b~@~text~--b--"))
        self.assertEqual((ran.status, stored), (0, sorted(contents)))

    def test_stores_each_kind_of_file_byte_for_byte(self):
        contents = [b"", b"\r\n", b"\0" * 5000, b"\r\n--" * 50_000, bytes(range(256)) * 300]
        parts = [self.part(b"f%d" % number, each) for number, each in enumerate(contents)]
        stored, ran = self.saved(b"".join(parts) + b"--b--")
        self.assertEqual((ran.status, stored), (0, sorted(contents)))

    def test_stores_nothing_of_a_file_that_was_cut_short(self):
        body = self.part(b"whole", b"one") + self.part(b"cut", b"two")[:-1]
        stored, ran = self.saved(body)
        self.assertEqual((ran.status, stored), (1, [b"one"]))

    def test_overwrites_nothing(self):
        with tempfile.TemporaryDirectory() as folder:
            outside = Path(folder, "outside")
            store = Path(folder, "store")
            store.mkdir()
            outside.write_bytes(b"outside")
            Path(store, "taken").write_bytes(b"old")
            Path(store, "link").symlink_to(outside)
            body = self.part(b"taken", b"new") + self.part(b"link", b"new") + b"--b--"
            run_with_file(post(MULTIPART, body), "--save", str(store))
            self.assertEqual(outside.read_bytes(), b"outside")
            self.assertEqual(Path(store, "taken").read_bytes(), b"old")
            self.assertTrue(Path(store, "link").is_symlink())


class Arguments(unittest.TestCase):
    def test_unknown_ones_are_refused(self):
        for arguments in (["--unknown"], ["--save"], ["word"]):
            with self.subTest(arguments=arguments):
                ran = run_with_pipe(post(URL_ENCODED, b"a=x"), *arguments)
                self.assertNotIn(ran.status, (0, 1))
                self.assertIn(b"tarn-form", ran.errors)


if __name__ == "__main__":
    unittest.main()
