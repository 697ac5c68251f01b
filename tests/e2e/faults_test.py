"""Data stored by the examples survives clients that disconnect, a full disk, closed streams and
signals at any moment."""

import errno
import os
import random
import re
import signal
import socket
import struct
import subprocess
import tempfile
import time
import unittest
from typing import Callable, NamedTuple

import script
from servers import Lighttpd
from servers.server import read
from upload_test import MULTIPART, UPLOAD, multipart, stored_files

GUESTBOOK = os.environ["GUESTBOOK"]
FORM_ECHO = os.environ["FORM_ECHO"]
COUNTER = os.environ["COUNTER"]
URL_ENCODED = "application/x-www-form-urlencoded"
# Each of these bytes takes three in a file of lines.
MESSAGE = "ä" * 2000
BIG = bytes(range(256)) * 4000


class Lines(NamedTuple):
    """A script that stores each form as a line of a file."""

    name: str
    script: str
    setting: str
    form: Callable  # number -> form
    line: Callable  # number -> stored line

    def variables(self, number):
        """A poll recognises its visitors by their cookie."""
        return {"HTTP_COOKIE": f"visitor={number:032x}"}


BOOK = Lines(
    "guestbook",
    GUESTBOOK,
    "TARN_GUESTBOOK_FILE",
    lambda number: f"name=guest{number}&message={MESSAGE}".encode(),
    lambda number: b"guest%d " % number + b"%C3%A4" * 2000 + b"\n",
)
CONTACT = Lines(
    "contact",
    os.environ["CONTACT"],
    "TARN_CONTACT_FILE",
    lambda number: f"name=guest{number}&email=a@b&message={MESSAGE}".encode(),
    lambda number: b"guest%d a%%40b " % number + b"%C3%A4" * 2000 + b"\n",
)
POLL = Lines(
    "poll",
    os.environ["POLL"],
    "TARN_POLL_FILE",
    lambda number: b"choice=tea",
    lambda number: b"%032x tea\n" % number,
)
LINES: tuple[Lines, ...] = (BOOK, CONTACT, POLL)
LINES_IN_CPP = (
    BOOK._replace(script=os.environ["GUESTBOOK_CPP"]),
    CONTACT._replace(script=os.environ["CONTACT_CPP"]),
    POLL,
)


class StoreCase(unittest.TestCase):
    LINES = LINES

    def assert_kept(self, expected, folder):
        """Compares all files in the folder, without printing a difference of megabytes."""
        found = stored_files(folder)
        self.assertEqual(sorted(expected), sorted(found))
        for name, data in expected.items():
            self.assertTrue(data == found[name], f"{name} has other bytes, {len(found[name])}")

    def numbers(self, lines):
        """The numbers of the forms that are stored as complete lines."""
        whole = {lines.line(number): number for number in range(200)}
        found = read(os.path.join(self.data, lines.name)).splitlines(keepends=True)
        for line in found:
            self.assertTrue(line in whole, line[:50] + b"..." + line[-50:])
        return sorted(whole[line] for line in found)


class ServerCase(StoreCase):
    SERVER = Lighttpd
    OPTIONS = ""

    def setUp(self):
        self.server = self.enterContext(
            self.SERVER(
                {"upload": UPLOAD, "counter": COUNTER}
                | {lines.name: lines.script for lines in self.LINES},
                {"TARN_UPLOAD_DIR": "data/uploads", "TARN_COUNTER_FILE": "data/count"}
                | {lines.setting: f"data/{lines.name}" for lines in self.LINES},
                self.OPTIONS,
            )
        )
        self.data = self.server.make_folder("data")

    def send(self, target, kind, body, status, *arguments):
        path = self.server.path("body")
        with open(path, "wb") as file:
            file.write(body)
        answer = self.server.curl(
            *(target, "-H", f"Content-Type: {kind}", "-H", "Expect:"),
            *("--data-binary", f"@{path}", *arguments),
        )
        self.assertEqual(status, answer.status, answer.body)

    def upload(self, name, data, status=200):
        self.send("/upload", MULTIPART, multipart((name, data)), status)

    def write(self, lines, number, status=303):
        cookie = lines.variables(number)["HTTP_COOKIE"]
        form = lines.form(number)
        self.send(f"/{lines.name}", URL_ENCODED, form, status, "-b", cookie)


class ClientsThatDisconnect(ServerCase):
    def break_off(self, target, kind, body, length, way):
        head = f"POST /cgi-bin{target} HTTP/1.1\r\nHost: localhost\r\nContent-Type: {kind}\r\n"
        head += "Sec-Fetch-Site: same-origin\r\n"
        head += f"Cookie: visitor={99:032x}\r\nContent-Length: {len(body)}\r\n\r\n"
        with socket.create_connection(("127.0.0.1", self.server.port), timeout=100) as client:
            client.sendall(head.encode() + body[:length])
            if way == "reset":
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            elif way == "wait":
                client.shutdown(socket.SHUT_WR)
                answer = b""
                try:
                    answer = client.recv(100)
                except ConnectionResetError:
                    pass
                self.assertNotRegex(answer, rb"HTTP/1\.1 [23]")

    def test_disconnecting_within_the_body_stores_nothing(self):
        uploads = self.server.make_folder("data/uploads")
        chance = random.Random(7)
        files = multipart(("a.bin", BIG[:200000]), ("b.bin", BIG[:200000]))
        for round_ in range(6):
            for way in ("close", "reset", "wait") * 2:
                last = chance.choice((1, 3, 20, len(files)))
                length = len(files) - chance.randint(1, last)
                self.break_off("/upload", MULTIPART, files, length, way)
                for lines in self.LINES:
                    form = lines.form(99)
                    length = len(form) - chance.randint(1, chance.choice((1, len(form))))
                    self.break_off(f"/{lines.name}", URL_ENCODED, form, length, way)
            self.upload("whole.bin", BIG)
            for lines in self.LINES:
                self.write(lines, round_)
        self.server.wait_for_scripts()
        for lines in self.LINES:
            self.assertEqual([*range(6)], self.numbers(lines))
        names = ["whole.bin", *(f"{next}-whole.bin" for next in range(2, 7))]
        self.assert_kept(dict.fromkeys(names, BIG), uploads)
        self.assertRegex(self.server.log(), r"\A(cannot read the form: .+\n)*\Z")


class ClientsThatDisconnectAtStreams(ClientsThatDisconnect):
    """The same when the script starts before its body has arrived."""

    OPTIONS = "server.stream-request-body = 2"


class FullDisk(ServerCase):
    """The examples store their data on a small disk of its own, if mounting one is allowed."""

    def setUp(self):
        super().setUp()
        disk = self.server.path("data")
        mount = ["mount", "-t", "tmpfs", "-o", "size=1m,mode=777", "tarn-test", disk]
        if subprocess.run(mount, check=False, stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("mounting is not allowed here")
        self.addCleanup(subprocess.run, ["umount", disk], check=True)
        self.folder = self.server.make_folder("data/uploads")

    def count(self, status):
        self.assertEqual(status, self.server.curl("/counter").status)
        return read(self.server.path("data/count"))

    def test_full_disk_is_reported_and_stored_data_stays(self):
        self.upload("a.bin", BIG[:300000])
        self.assertEqual(b"1\n", self.count(200))
        for lines in self.LINES:
            self.write(lines, 1)
        before = stored_files(self.folder)
        book, contact, _ = self.LINES
        for _ in range(3):
            self.upload("b.bin", BIG, status=500)
        self.assert_kept(before, self.folder)
        with open(self.server.path("data/filler"), "wb", buffering=0) as filler:
            with self.assertRaisesRegex(OSError, os.strerror(errno.ENOSPC)):
                while filler.write(bytes(4096)):
                    pass
            self.assertEqual(b"1\n", self.count(500))
            # This frees one page; the next line of the guestbook takes three.
            os.ftruncate(filler.fileno(), os.fstat(filler.fileno()).st_size - 4096)
        for number in (2, 3):
            self.write(book, number, status=500)
            self.write(contact, number, status=500)
        self.upload("c.bin", BIG[:5000], status=500)
        for lines in self.LINES:
            self.assertEqual([1], self.numbers(lines))
        self.assert_kept(before, self.folder)
        self.assertIn("cannot save a file: No space left on device", self.server.log())
        os.remove(self.server.path("data/filler"))
        self.upload("d.bin", b"1")
        self.assertEqual(b"2\n", self.count(200))
        for lines in self.LINES:
            self.write(lines, 4)
            self.assertEqual([1, 4], self.numbers(lines))
        self.assert_kept(before | {"d.bin": b"1"}, self.folder)


class ScriptCase(StoreCase):
    def setUp(self):
        self.data = self.enterContext(tempfile.TemporaryDirectory())
        self.folder = os.path.join(self.data, "uploads")
        os.mkdir(self.folder)
        self.stored = {"TARN_UPLOAD_DIR": self.folder, "TARN_COUNTER_FILE": self.data + "/count"}
        self.stored |= {lines.setting: os.path.join(self.data, lines.name) for lines in self.LINES}

    def variables(self, kind, body, number=1):
        return script.post(kind, body) | self.stored | POLL.variables(number)

    def write(self, lines, number, status=303, **limits):
        form = lines.form(number)
        answer = script.run(lines.script, self.variables(URL_ENCODED, form, number), form, **limits)
        self.assertEqual(status, answer[0])


class BodiesThatEndEarly(ScriptCase):
    def test_truncated_form_stores_no_entry(self):
        book, contact, poll = self.LINES
        for lines, body, line in (
            (book, b"name=a&message=hello+there", b"a hello%20there\n"),
            (contact, b"name=a&email=a@b&message=hello+there", b"a a%40b hello%20there\n"),
            (poll, b"choice=tea&more=1", POLL.line(1)),
        ):
            for length in range(len(body)):
                answer = script.run(lines.script, self.variables(URL_ENCODED, body), body[:length])
                self.assertEqual(400, answer[0], body[:length])
            self.assertFalse(os.path.exists(self.stored[lines.setting]))
            answer = script.run(lines.script, self.variables(URL_ENCODED, body), body)
            self.assertEqual(303, answer[0])
            self.assertEqual(line, read(self.stored[lines.setting]))

    def test_truncated_upload_stores_no_file(self):
        data = BIG[: 1000 - len(multipart(("a.bin", b"")))]
        body = multipart(("a.bin", data))
        self.assertEqual(1000, len(body))
        variables = self.variables(MULTIPART, body)
        self.assertEqual(400, script.run(UPLOAD, variables, body[:500])[0])
        self.assert_kept({}, self.folder)
        self.assertEqual(200, script.run(UPLOAD, variables, body)[0])
        self.assert_kept({"a.bin": data}, self.folder)


class FullFile(ScriptCase):
    def test_partial_line_is_not_kept(self):
        for lines in self.LINES:
            self.write(lines, 1)
            self.write(lines, 2, status=500, largest_file=len(lines.line(1)) + 10)
            self.assertEqual([1], self.numbers(lines))
            self.write(lines, 3)
            self.assertEqual([1, 3], self.numbers(lines))


class Streams(ScriptCase):
    def run_script(self, path, kind, body, number=1, closed=(), signals=True, **streams):
        def close():
            for stream in closed:
                os.close(stream)

        with tempfile.TemporaryFile() as file:
            file.write(body)
            file.seek(0)
            return subprocess.run(
                [path],
                env=self.variables(kind, body, number),
                stdin=file,
                preexec_fn=close,
                restore_signals=signals,
                check=False,
                timeout=100,
                **{"stderr": subprocess.PIPE, **streams},
            )

    def store(self, number, **how):
        """Lets every script store something; returns the exit status, the same for all."""
        data = b"%d" % number * 5000
        runs = [
            self.run_script(UPLOAD, MULTIPART, multipart((f"{number}.bin", data)), **how),
            self.run_script(COUNTER, URL_ENCODED, b"", **how),
        ]
        for lines in self.LINES:
            form = lines.form(number)
            runs.append(self.run_script(lines.script, URL_ENCODED, form, number, **how))
            self.assertEqual([*range(1, number + 1)], self.numbers(lines))
        self.assertEqual(data, stored_files(self.folder)[f"{number}.bin"])
        self.assertEqual(number, len(stored_files(self.folder)))
        self.assertEqual(b"%d\n" % number, read(self.stored["TARN_COUNTER_FILE"]))
        for run in runs:
            self.assertFalse(run.stderr, run)
        (status,) = {run.returncode for run in runs}
        return status

    def test_broken_output_ends_the_script_after_storing(self):
        reader, writer = os.pipe()
        os.close(reader)
        with os.fdopen(writer) as gone, open("/dev/full", "wb") as full:
            self.assertEqual(-signal.SIGPIPE, self.store(1, stdout=gone))
            self.assertEqual(1, self.store(2, stdout=gone, signals=False))
            self.assertEqual(1, self.store(3, stdout=full))
            page = "&".join(f"field{number}=value" for number in range(5000)).encode()
            for how, status in (
                ({"stdout": gone}, -signal.SIGPIPE),
                ({"stdout": gone, "signals": False}, 1),
                ({"stdout": full}, 1),
                ({"closed": [1]}, 1),
            ):
                run = self.run_script(FORM_ECHO, URL_ENCODED, page, **how)
                self.assertEqual((status, b""), (run.returncode, run.stderr), how)

    def test_closed_output_or_log_does_not_prevent_storing(self):
        self.assertEqual(1, self.store(1, closed=[1]))
        self.assertEqual(0, self.store(2, closed=[2], stdout=subprocess.DEVNULL))
        self.assertEqual(1, self.store(3, closed=[1, 2]))

    def test_closed_input_is_refused_as_a_missing_body(self):
        for closed in ([0], [0, 2]):
            for path, kind, body in (
                (UPLOAD, MULTIPART, multipart(("a.bin", b"1"))),
                *((lines.script, URL_ENCODED, lines.form(1)) for lines in self.LINES),
            ):
                run = self.run_script(path, kind, body, closed=closed, stdout=subprocess.PIPE)
                self.assertEqual(0, run.returncode)
                self.assertRegex(run.stdout, rb"\AStatus: 400 Bad Request\r?\n")
        run = self.run_script(UPLOAD, MULTIPART, multipart(("a.bin", b"1")), closed=[0, 1, 2])
        self.assertEqual(1, run.returncode)
        self.assert_kept({}, self.folder)
        for lines in self.LINES:
            self.assertFalse(os.path.exists(self.stored[lines.setting]))


class Termination(ScriptCase):
    ROUNDS = 150

    def run_rounds(self, request):
        """Kills scripts at random moments; returns the rounds in which the script finished.

        `request` returns the script, the type and the body of a round.
        """
        chance = random.Random(15)
        done, within = [], 0.0
        for number in range(self.ROUNDS):
            path, kind, sent = request(number)
            with tempfile.TemporaryFile() as file:
                file.write(sent)
                file.seek(0)
                with subprocess.Popen(
                    [path],
                    env=self.variables(kind, sent, number),
                    stdin=file,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.DEVNULL,
                ) as process:
                    start = time.monotonic()
                    if number >= 5:
                        time.sleep(chance.uniform(0, within))
                        process.send_signal(chance.choice((signal.SIGTERM, signal.SIGKILL)))
                    answer = process.stdout.read()
                if number < 5:
                    within = max(within, time.monotonic() - start)
                else:
                    # However busy the machine is, about one script of five finishes.
                    within *= 0.7 if process.returncode == 0 else 1.1
            self.assertIn(process.returncode, (0, -signal.SIGTERM, -signal.SIGKILL))
            if process.returncode == 0:
                self.assertRegex(answer, rb"\AStatus: (200|303) ")
                done.append(number)
        self.assertGreater(len(done), 5, "no script finished")
        self.assertLess(len(done), self.ROUNDS - 5, "no script was killed")
        return done


class TerminationOfFiles(Termination):
    def test_termination_leaves_no_partial_file(self):
        whole = BIG[:200000]
        body = multipart(("a.bin", whole), ("b.bin", whole))
        done = self.run_rounds(lambda _: (UPLOAD, MULTIPART, body))
        final = {name: data for name, data in stored_files(self.folder).items() if name[0] != "."}
        self.assertGreaterEqual(len(final), 2 * len(done))
        for name, data in final.items():
            self.assertTrue(data == whole, f"{name} has {len(data)} bytes")

    def test_termination_leaves_the_count_before_or_after(self):
        path = self.stored["TARN_COUNTER_FILE"]
        counts = [0]

        def request(_):
            if os.path.exists(path):
                counts.append(int(re.fullmatch(rb"([0-9]+)\n", read(path))[1]))
            return COUNTER, URL_ENCODED, b""

        done = self.run_rounds(request)
        request(self.ROUNDS)
        self.assertLessEqual({b - a for a, b in zip(counts, counts[1:])}, {0, 1})
        self.assertGreaterEqual(counts[-1], len(done))


class TerminationOfLines(Termination):
    def test_termination_loses_no_confirmed_line(self):
        def request(number):
            lines = self.LINES[number % len(self.LINES)]
            return lines.script, URL_ENCODED, lines.form(number)

        done = self.run_rounds(request)
        for place, lines in enumerate(self.LINES):
            # The next writer removes a partial line.
            self.write(lines, self.ROUNDS)
            expected = {number for number in done if number % len(self.LINES) == place}
            self.assertLessEqual(expected | {self.ROUNDS}, set(self.numbers(lines)))

    def test_partial_line_costs_only_itself(self):
        get = {"REQUEST_METHOD": "GET"}
        shown = {"guestbook": b"<article>", "poll": b"Tea 1,"}
        for lines in self.LINES:
            path = self.stored[lines.setting]
            self.write(lines, 1)
            whole, torn = read(path), lines.line(2)
            for length in (1, 3, 6, 7, 20, len(torn) - 1):
                with open(path, "ab") as file:
                    file.write(torn[:length])
                if lines.name in shown:
                    page = script.run(lines.script, self.stored | get)[2]
                    self.assertEqual(1, page.count(shown[lines.name]), length)
                self.write(lines, 3)
                self.assertEqual([1, 3], self.numbers(lines))
                os.truncate(path, len(whole))


class InCpp:
    LINES: tuple[Lines, ...] = LINES_IN_CPP


class ClientsThatDisconnectInCpp(InCpp, ClientsThatDisconnect):
    pass


class FullDiskInCpp(InCpp, FullDisk):
    pass


class BodiesThatEndEarlyInCpp(InCpp, BodiesThatEndEarly):
    pass


class FullFileInCpp(InCpp, FullFile):
    pass


class StreamsInCpp(InCpp, Streams):
    pass


class TerminationOfLinesInCpp(InCpp, TerminationOfLines):
    pass


if __name__ == "__main__":
    unittest.main()
