#!/usr/bin/env python3
"""What tarn-form prints, which files it saves, and how it ends."""

import base64
import json
import os
import re
import shlex
import signal
import stat
import subprocess
import tempfile
import threading
import time
import unittest
from pathlib import Path
from typing import Any, NamedTuple

COMMAND = [*shlex.split(os.environ["EMULATOR"]), os.environ["TARN_FORM"]]
FULL_SPEED = os.environ["FULL_SPEED"] == "ON"  # neither sanitized nor emulated

END = {"end": True}
MULTIPART = {"REQUEST_METHOD": "POST", "CONTENT_TYPE": "multipart/form-data; boundary=XYZ"}


def part(disposition: str | bytes, value: bytes = b"", type: str = "") -> bytes:
    """A part with this after "form-data; " in its header, without the delimiter after it."""
    if isinstance(disposition, str):
        disposition = disposition.encode()
    header = b"--XYZ\r\nContent-Disposition: form-data; " + disposition
    if type:
        header += b"\r\nContent-Type: " + type.encode()
    return header + b"\r\n\r\n" + value + b"\r\n"


def file(name: str, value: bytes = b"bytes") -> bytes:
    return part(f'name="f"; filename="{name}"', value, "image/png")


def whole(*parts: bytes) -> bytes:
    return b"".join(parts) + b"--XYZ--\r\n"


class Run(NamedTuple):
    status: int
    output: bytes
    errors: str

    @property
    def lines(self) -> list[dict[str, Any]]:
        return [json.loads(line) for line in self.output.decode().splitlines()]


class FormTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tarn-form-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def run_tool(self, *arguments: str | Path, body: bytes = b"", **variables: str) -> Run:
        ran = subprocess.run(
            [*COMMAND, *arguments],
            input=body,
            capture_output=True,
            timeout=120,
            env=variables,
            check=False,
        )
        return Run(ran.returncode, ran.stdout, ran.stderr.decode())

    def post(self, body: bytes, *arguments: str | Path, **variables: str) -> Run:
        """Sends a multipart form. Nothing may be written to standard error."""
        variables = MULTIPART | {"CONTENT_LENGTH": str(len(body))} | variables
        ran = self.run_tool(*arguments, body=body, **variables)
        self.assertEqual(ran.errors, "")
        return ran

    def fields(self, body: bytes, *arguments: str | Path, **variables: str) -> list[dict]:
        """The lines of the fields of a complete form."""
        ran = self.post(body, *arguments, **variables)
        self.assertEqual((ran.status, ran.lines[-1]), (0, END))
        return ran.lines[:-1]

    def saved(self) -> dict[str, bytes]:
        """The files in the folder, hidden ones included."""
        return {path.name: path.read_bytes() for path in self.folder.iterdir()}

    def start(self, *arguments: str | Path, size: int) -> subprocess.Popen:
        """Starts the tool with a pipe as its input."""
        process = subprocess.Popen(
            [*COMMAND, *arguments],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env=MULTIPART | {"CONTENT_LENGTH": str(size)},
        )
        self.addCleanup(process.kill)
        return process

    def wait_for_file_in_folder(self, process: subprocess.Popen) -> None:
        """Waits until the tool writes a file that has no name yet."""
        folder = str(self.folder)
        end = time.monotonic() + 60
        while time.monotonic() < end:
            for entry in Path(f"/proc/{process.pid}/fd").iterdir():
                try:
                    if os.readlink(entry).startswith(folder + "/"):
                        return
                except FileNotFoundError:
                    pass
            time.sleep(0.01)
        self.fail("the tool opened no file")


class Options(FormTest):
    def test_help_and_version_go_to_standard_output(self):
        for option in ("--help", "-h"):
            ran = self.run_tool(option)
            self.assertEqual((ran.status, ran.errors), (0, ""))
            self.assertTrue(ran.output.startswith(b"Usage: tarn-form "))
        for option in ("--version", "-V"):
            version = f"tarn-form {os.environ['VERSION']}\n".encode()
            self.assertEqual(self.run_tool(option), (0, version, ""))

    def test_a_wrong_option_exits_with_status_2(self):
        for arguments, error in (
            (["--nodata"], "--nodata is not an option"),
            (["--save"], "--save needs a folder"),
            (["file"], "file is not an option"),
            ([""], " is not an option"),
        ):
            message = f"tarn-form: {error}; see tarn-form --help\n"
            self.assertEqual(self.run_tool(*arguments), (2, b"", message))

    def test_words_of_a_query_under_a_server_are_not_options(self):
        body = whole(file("a.png"))
        arguments = ("--save", self.folder)
        server = {"GATEWAY_INTERFACE": "CGI/1.1", "QUERY_STRING": f"--save+{self.folder}"}
        ran = self.post(body, *arguments, **server)
        self.assertEqual(ran.status, 0)
        self.assertIn(b'"data"', ran.output)
        self.assertEqual(self.saved(), {})
        self.assertEqual(self.post(b"", "--version", **server).output.count(b"tarn-form"), 0)
        # A script that calls tarn-form with options works for any other query.
        self.post(body, *arguments, **(server | {"QUERY_STRING": "id=1"}))
        self.assertEqual(self.saved(), {"a.png": b"bytes"})


class Printing(FormTest):
    def test_fields_are_printed_in_the_order_they_were_sent(self):
        value = bytes(range(256)) + b"\r\n--XY"
        lines = self.fields(
            whole(
                part('name="text"', b"a\r\nb"),
                part('name="f"; filename="a.png"', value, "image/png"),
                part('name="none"; filename=""', b"", "application/octet-stream"),
                part('name=""'),
            )
        )
        self.assertEqual(
            lines,
            [
                {
                    "name": "text",
                    "filename": None,
                    "content_type": None,
                    "size": 4,
                    "data": "YQ0KYg==",
                },
                {
                    "name": "f",
                    "filename": "a.png",
                    "content_type": "image/png",
                    "size": 262,
                    "data": base64.b64encode(value).decode(),
                },
                {
                    "name": "none",
                    "filename": "",
                    "content_type": "application/octet-stream",
                    "size": 0,
                    "data": "",
                },
                {"name": "", "filename": None, "content_type": None, "size": 0, "data": ""},
            ],
        )
        self.assertEqual([list(line)[0] for line in lines], ["name"] * 4)

    def test_base64_is_right_for_every_length(self):
        for size in range(9):
            (line,) = self.fields(whole(part('name="a"', b"\xff\x00abcdef"[:size])))
            self.assertEqual(base64.b64decode(line["data"]), b"\xff\x00abcdef"[:size])

    def test_names_can_have_any_bytes(self):
        names = {
            b"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80": "é€😀",
            b"a\xff\x80b": "a\udcff\udc80b",
            b"\xed\xa0\x80": "\udced\udca0\udc80",  # UTF-8 has no surrogates
            b"\xc3": "\udcc3",
            b"%22%0D%0A": '"\r\n',
            b"a\\b/\t\x7f\x01": "a\\b/\t\x7f\x01",
        }
        for sent, name in names.items():
            (line,) = self.fields(whole(part(b'name="' + sent + b'"')))
            self.assertEqual(line["name"], name)

    def test_get_and_head_read_the_query(self):
        methods: list[dict[str, str]] = [{}, {"REQUEST_METHOD": "GET"}, {"REQUEST_METHOD": "HEAD"}]
        for method in methods:
            ran = self.run_tool(body=b"b=2", QUERY_STRING="a=1+%32", CONTENT_LENGTH="3", **method)
            self.assertEqual((ran.status, ran.errors), (0, ""))
            data = base64.b64encode(b"1 2").decode()
            line = {"name": "a", "filename": None, "content_type": None, "size": 3, "data": data}
            self.assertEqual(ran.lines, [line, END])

    def test_no_data_leaves_out_values(self):
        lines = self.fields(whole(part('name="a"', b"abc"), file("b.png")), "--no-data")
        self.assertEqual([line["size"] for line in lines], [3, 5])
        for line in lines:
            self.assertEqual(list(line), ["name", "filename", "content_type", "size"])

    def test_large_values_are_printed_whole(self):
        value = os.urandom(3_000_001)
        (line,) = self.fields(whole(part('name="a"; filename="a"', value)))
        self.assertEqual(line["size"], len(value))
        self.assertEqual(base64.b64decode(line["data"]), value)

    def test_a_server_receives_a_header_first(self):
        body = whole(part('name="a"', b"b"))
        plain = self.post(body).output
        ran = self.post(body, GATEWAY_INTERFACE="CGI/1.1", QUERY_STRING="")
        self.assertEqual(ran.output, b"Content-Type: application/x-ndjson\r\n\r\n" + plain)
        problem = self.post(body[:-5], GATEWAY_INTERFACE="CGI/1.1")
        self.assertTrue(problem.output.startswith(b"Content-Type: application/x-ndjson\r\n\r\n{"))

    def test_a_server_may_send_the_whole_body_before_it_reads_the_answer(self):
        body = whole(*[part('name="a"', b"b" * 1000)] * 900)
        variables = MULTIPART | {"CONTENT_LENGTH": str(len(body)), "GATEWAY_INTERFACE": "CGI/1.1"}
        with subprocess.Popen(
            COMMAND, stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=variables
        ) as process:
            impatient = threading.Timer(60, process.kill)
            impatient.start()
            process.stdin.write(body)
            process.stdin.close()
            output = process.stdout.read()
            impatient.cancel()
        self.assertEqual(process.returncode, 0)
        plain = self.post(body).output
        self.assertTrue(output == b"Content-Type: application/x-ndjson\r\n\r\n" + plain)

    def test_a_problem_is_the_last_line(self):
        body = part('name="a"', b"1") + part('name="b"', b"2")
        ran = self.post(body)
        self.assertEqual(ran.status, 1)
        self.assertEqual([line.get("name") for line in ran.lines], ["a", None])
        problem = ran.lines[-1]
        self.assertEqual(list(problem), ["error", "at", "message"])
        self.assertEqual((problem["error"], problem["at"]), ("cut_short", len(body)))
        self.assertRegex(problem["message"], r"^[a-z].{10,100}$")
        ran = self.post(b"{}", CONTENT_TYPE="application/json")
        self.assertEqual(ran.status, 1)
        self.assertEqual([line["error"] for line in ran.lines], ["unsupported_type"])

    def test_output_that_cannot_be_written_exits_with_status_2(self):
        body = whole(part('name="a"', bytes(100_000)))
        variables = MULTIPART | {"CONTENT_LENGTH": str(len(body))}
        for arguments in ((), ("--no-data",), ("--help",), ("--version",)):
            with open("/dev/full", "wb") as full:
                ran = subprocess.run(
                    [*COMMAND, *arguments],
                    input=body,
                    stdout=full,
                    stderr=subprocess.PIPE,
                    env=variables,
                    check=False,
                )
            self.assertEqual(ran.returncode, 2)
            self.assertEqual(ran.stderr, b"tarn-form: cannot write: No space left on device\n")

    @unittest.skipUnless(FULL_SPEED, "reads 4 GiB")
    def test_a_file_of_4_gib_is_read_in_little_memory(self):
        begin, size = file("a")[: -len("bytes\r\n")], (4 << 30) + 1
        # Reading holes of a file in memory takes no memory.
        with os.fdopen(os.memfd_create("body"), "w+b") as body:
            body.write(begin)
            body.seek(size, os.SEEK_CUR)
            body.write(b"\r\n--XYZ--\r\n")
            variables = MULTIPART | {"CONTENT_LENGTH": str(body.tell()), "PATH": "/bin"}
            body.seek(0)
            ran = subprocess.run(
                ["sh", "-c", 'ulimit -v 32768 && exec "$0" --no-data', *COMMAND],
                stdin=body,
                capture_output=True,
                env=variables,
                check=False,
            )
        self.assertEqual((ran.returncode, ran.stderr), (0, b""))
        self.assertEqual(json.loads(ran.stdout.splitlines()[0])["size"], size)


class Saving(FormTest):
    def test_files_are_saved_and_texts_printed(self):
        body = whole(part('name="a"', b"1"), file("a.png"), part('name="n"; filename=""'))
        for option in (("--save", str(self.folder)), (f"--save={self.folder}",)):
            text, image, none = self.fields(body, *option)
            self.assertEqual(text["data"], "MQ==")
            self.assertEqual(none["data"], "")
            self.assertEqual(
                image,
                {
                    "name": "f",
                    "filename": "a.png",
                    "content_type": "image/png",
                    "size": 5,
                    "saved": "a.png",
                },
            )
            self.assertEqual(self.saved(), {"a.png": b"bytes"})
            path = self.folder / "a.png"
            self.assertEqual(stat.S_IMODE(path.stat().st_mode), 0o600)
            path.unlink()

    def test_names_are_safe(self):
        names = {
            "photo.png": "photo.png",
            "../../etc/passwd": "passwd",
            "/etc/cron.d/a": "a",
            r"C:\fakepath\dawn.jpg": "dawn.jpg",
            r"C:\a/b\..": "file",
            "..": "file",
            ".": "file",
            "a/": "file",
            "-rf": "rf",
            ".htaccess": "htaccess",
            ".-.tarn-form-0": "tarn-form-0",
            "First light (1).jpg": "First_light__1_.jpg",
            "é.png": "__.png",
            "a%0D%0Ab%22c": "a__b_c",
            "$(id);`id`|&*?": "__id___id_____",
            "a" * 300: "a" * 200,
        }
        for sent, name in names.items():
            (line,) = self.fields(whole(file(sent)), "--save", self.folder)
            self.assertEqual((line["saved"], self.saved()), (name, {name: b"bytes"}))
            (self.folder / name).unlink()

    def test_a_name_that_is_taken_gets_a_number(self):
        (self.folder / "a.tar.gz").write_bytes(b"old")
        (self.folder / "a.tar-2.gz").symlink_to(self.folder / "new")
        (self.folder / "a.tar-3.gz").mkdir()
        parts = [file("a.tar.gz", b"1"), file("a.tar.gz", b"2"), file("b", b"3"), file("b", b"4")]
        lines = self.fields(whole(*parts), "--save", self.folder)
        names = ["a.tar-4.gz", "a.tar-5.gz", "b", "b-2"]
        self.assertEqual([line["saved"] for line in lines], names)
        (self.folder / "a.tar-3.gz").rmdir()
        (self.folder / "a.tar-2.gz").unlink()
        new = dict(zip(names, [b"1", b"2", b"3", b"4"]))
        self.assertEqual(self.saved(), {"a.tar.gz": b"old"} | new)

    def test_a_cut_body_leaves_no_partial_file(self):
        body = whole(file("a.png"), file("b.png", bytes(1000)))
        for size in (len(body) - 6, len(body) - 500, len(file("a.png")) + 10):
            ran = self.post(body[:size], "--save", self.folder, CONTENT_LENGTH=str(len(body)))
            self.assertEqual(ran.status, 1)
            self.assertEqual(ran.lines[0]["saved"], "a.png")
            self.assertEqual([line.get("error") for line in ran.lines], [None, "cut_short"])
            self.assertEqual(self.saved(), {"a.png": b"bytes"})
            (self.folder / "a.png").unlink()

    def test_a_process_that_is_killed_leaves_no_partial_file(self):
        body = whole(file("a.png", bytes(1 << 20)))
        with self.start("--save", self.folder, size=len(body)) as process:
            process.stdin.write(body[: 3 << 18])
            process.stdin.flush()
            self.wait_for_file_in_folder(process)
            process.kill()
        self.assertEqual(process.returncode, -signal.SIGKILL)
        self.assertEqual(self.saved(), {})

    def test_a_name_taken_while_the_file_arrives_is_not_overwritten(self):
        body = whole(file("a.png", bytes(1 << 20)))
        with self.start("--save", self.folder, size=len(body)) as process:
            process.stdin.write(body[: 3 << 18])
            process.stdin.flush()
            self.wait_for_file_in_folder(process)
            (self.folder / "a.png").write_bytes(b"other")
            output, errors = process.communicate(body[3 << 18 :], timeout=60)
        self.assertEqual((process.returncode, errors), (0, b""))
        self.assertIn(b'"saved": "a-2.png"', output)
        self.assertEqual(self.saved(), {"a.png": b"other", "a-2.png": bytes(1 << 20)})

    def test_a_folder_that_cannot_be_used_exits_with_status_2(self):
        (self.folder / "file").write_bytes(b"")
        (self.folder / "link").symlink_to(self.folder)
        reasons: dict[str | Path, str] = {
            self.folder / "missing": "No such file or directory",
            self.folder / "file": "Not a directory",
            self.folder / "link": r"Not a directory|Too many levels of symbolic links",
            "": "No such file or directory",
        }
        body = whole(part('name="a"', b"1"), file("a.png"))
        variables = MULTIPART | {"CONTENT_LENGTH": str(len(body))}
        for folder, reason in reasons.items():
            ran = self.run_tool("--save", folder, body=body, **variables)
            self.assertEqual(ran.status, 2)
            self.assertRegex(ran.errors, rf"\Atarn-form: {re.escape(str(folder))}: ({reason})\n\Z")
            self.assertEqual([line["name"] for line in ran.lines], ["a"])
            self.assertEqual(set(self.saved_names()), {"file", "link"})

    def saved_names(self) -> list[str]:
        return os.listdir(self.folder)


if __name__ == "__main__":
    unittest.main()
