"""What the examples stored before a fault is whole after it: clients that break off, a full disk,
closed streams, a signal at any moment."""

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

import script
from server import Server, read
from upload_test import MULTIPART, UPLOAD, multipart

GUESTBOOK = os.environ["GUESTBOOK"]
FORM_ECHO = os.environ["FORM_ECHO"]
URL_ENCODED = "application/x-www-form-urlencoded"
# In the book each of these bytes is three.
MESSAGE = "ä" * 2000
ENTRY = re.compile(rb"guest[0-9]+ (%C3%A4){2000}\n")
BIG = bytes(set(range(256)) - {10, 13}) * 4000


def entry(number):
    return f"name=guest{number}&message={MESSAGE}".encode()


def kept(folder):
    return {name: read(os.path.join(folder, name)) for name in os.listdir(folder)}


class StoreCase(unittest.TestCase):
    def assert_kept(self, expected, folder):
        """What is kept in the folder, to the last byte; a difference of megabytes is not shown."""
        found = kept(folder)
        self.assertEqual(sorted(expected), sorted(found))
        for name, data in expected.items():
            self.assertTrue(data == found[name], f"{name} has other bytes, {len(found[name])}")

    def assert_book(self, path, numbers):
        """The book has one whole entry for each of the numbers, in any order."""
        lines = read(path).splitlines(keepends=True)
        for line in lines:
            self.assertTrue(ENTRY.fullmatch(line), line[:50] + b"..." + line[-50:])
        found = sorted(int(line.split(b" ")[0].removeprefix(b"guest")) for line in lines)
        self.assertEqual(sorted(numbers), found)


class ServerCase(StoreCase):
    SERVER = Server
    OPTIONS = ""

    def setUp(self):
        self.server = self.enterContext(
            self.SERVER(
                {"upload": UPLOAD, "guestbook": GUESTBOOK},
                {"TARN_UPLOAD_DIR": "data/uploads", "TARN_GUESTBOOK_FILE": "data/entries"},
                self.OPTIONS,
            )
        )
        self.book = os.path.join(self.server.make_folder("data"), "entries")

    def send(self, target, kind, body, status):
        path = self.server.path("body")
        with open(path, "wb") as file:
            file.write(body)
        answer = self.server.curl(
            target, "-H", f"Content-Type: {kind}", "-H", "Expect:", "--data-binary", f"@{path}"
        )
        self.assertEqual(status, answer.status, answer.body)

    def upload(self, name, data, status=200):
        self.send("/upload", MULTIPART, multipart((name, data)), status)

    def write(self, number, status=303):
        self.send("/guestbook", URL_ENCODED, entry(number), status)


class ClientsThatBreakOff(ServerCase):
    def break_off(self, target, kind, body, length, way):
        head = f"POST {target} HTTP/1.1\r\nHost: localhost\r\nContent-Type: {kind}\r\n"
        head += f"Content-Length: {len(body)}\r\n\r\n"
        with socket.create_connection(("127.0.0.1", self.server.port), timeout=20) as client:
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

    def test_anywhere_in_the_body_leave_nothing_and_the_server_goes_on(self):
        uploads = self.server.make_folder("data/uploads")
        chance = random.Random(7)
        files = multipart(("a.bin", BIG[:200000]), ("b.bin", BIG[:200000]))
        for round_ in range(6):
            for way in ("close", "reset", "wait") * 2:
                last = chance.choice((1, 3, 20, len(files)))
                length = len(files) - chance.randint(1, last)
                self.break_off("/upload", MULTIPART, files, length, way)
                form = entry(99)
                length = len(form) - chance.randint(1, chance.choice((1, len(form))))
                self.break_off("/guestbook", URL_ENCODED, form, length, way)
            self.upload("whole.bin", BIG)
            self.write(round_)
        self.server.wait_for_scripts()
        self.assert_book(self.book, range(6))
        names = ["whole.bin", *(f"{next}-whole.bin" for next in range(2, 7))]
        self.assert_kept(dict.fromkeys(names, BIG), uploads)
        self.assertEqual("", self.server.log())


class ClientsThatBreakOffAtStreams(ClientsThatBreakOff):
    """The same where the script starts before the body is there."""

    OPTIONS = "server.stream-request-body = 2"


class FullDisk(ServerCase):
    """A disk of its own for what the examples store, where mounting one is allowed."""

    def setUp(self):
        super().setUp()
        disk = self.server.path("data")
        mount = ["mount", "-t", "tmpfs", "-o", "size=1m,mode=777", "tarn-test", disk]
        if subprocess.run(mount, check=False, stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("mounting is not allowed here")
        self.addCleanup(subprocess.run, ["umount", disk], check=True)
        self.folder = self.server.make_folder("data/uploads")

    def test_takes_nothing_from_what_is_there_and_is_told(self):
        self.upload("a.bin", BIG[:300000])
        self.write(1)
        before = kept(self.folder)
        for _ in range(3):
            self.upload("b.bin", BIG, status=500)
        self.assert_kept(before, self.folder)
        with open(self.server.path("data/filler"), "wb", buffering=0) as filler:
            with self.assertRaisesRegex(OSError, os.strerror(errno.ENOSPC)):
                while filler.write(bytes(4096)):
                    pass
            # One page is left to the book's next line, which takes three.
            os.ftruncate(filler.fileno(), os.fstat(filler.fileno()).st_size - 4096)
        for number in (2, 3):
            self.write(number, status=500)
        self.upload("c.bin", BIG[:5000], status=500)
        self.assert_book(self.book, [1])
        self.assert_kept(before, self.folder)
        self.assertIn("upload: cannot keep a file: No space left on device", self.server.log())
        os.remove(self.server.path("data/filler"))
        self.write(4)
        self.upload("d.bin", b"1")
        self.assert_book(self.book, [1, 4])
        self.assert_kept(before | {"d.bin": b"1"}, self.folder)


class ScriptCase(StoreCase):
    def setUp(self):
        self.data = self.enterContext(tempfile.TemporaryDirectory())
        self.book = os.path.join(self.data, "entries")
        self.folder = os.path.join(self.data, "uploads")
        os.mkdir(self.folder)

    def variables(self, kind, body):
        stored = {"TARN_UPLOAD_DIR": self.folder, "TARN_GUESTBOOK_FILE": self.book}
        return script.post(kind, body) | stored


class BodiesThatEndEarly(ScriptCase):
    def test_are_no_entries_wherever_they_end(self):
        body = b"name=a&message=hello+there"
        for length in range(len(body)):
            answer = script.run(GUESTBOOK, self.variables(URL_ENCODED, body), body[:length])
            self.assertEqual(400, answer[0], body[:length])
        self.assertFalse(os.path.exists(self.book))
        self.assertEqual(
            303, script.run(GUESTBOOK, self.variables(URL_ENCODED, body), body)[0]
        )
        self.assertEqual(b"a hello%20there\n", read(self.book))

    def test_are_no_upload_when_half_of_a_thousand_bytes_come(self):
        data = BIG[: 1000 - len(multipart(("a.bin", b"")))]
        body = multipart(("a.bin", data))
        self.assertEqual(1000, len(body))
        variables = self.variables(MULTIPART, body)
        self.assertEqual(400, script.run(UPLOAD, variables, body[:500])[0])
        self.assert_kept({}, self.folder)
        self.assertEqual(200, script.run(UPLOAD, variables, body)[0])
        self.assert_kept({"a.bin": data}, self.folder)


class Streams(ScriptCase):
    def run_script(self, path, kind, body, closed=(), signals=True, **streams):
        def close():
            for stream in closed:
                os.close(stream)

        with tempfile.TemporaryFile() as file:
            file.write(body)
            file.seek(0)
            return subprocess.run(
                [path],
                env=self.variables(kind, body),
                stdin=file,
                preexec_fn=close,
                restore_signals=signals,
                check=False,
                timeout=20,
                **{"stderr": subprocess.PIPE, **streams},
            )

    def store(self, number, **how):
        """Has an upload and an entry stored; gives how the scripts ended."""
        data = b"%d" % number * 5000
        runs = [
            self.run_script(UPLOAD, MULTIPART, multipart((f"{number}.bin", data)), **how),
            self.run_script(GUESTBOOK, URL_ENCODED, entry(number), **how),
        ]
        self.assertEqual(data, kept(self.folder)[f"{number}.bin"])
        self.assertEqual(number, len(kept(self.folder)))
        self.assert_book(self.book, range(1, number + 1))
        for run in runs:
            self.assertFalse(run.stderr, run)
        return [run.returncode for run in runs]

    def test_without_a_reader_end_the_script_after_it_has_stored(self):
        reader, writer = os.pipe()
        os.close(reader)
        with os.fdopen(writer) as gone, open("/dev/full", "wb") as full:
            self.assertEqual([-signal.SIGPIPE] * 2, self.store(1, stdout=gone))
            self.assertEqual([1, 1], self.store(2, stdout=gone, signals=False))
            self.assertEqual([1, 1], self.store(3, stdout=full))
            page = "&".join(f"field{number}=value" for number in range(5000)).encode()
            for how, status in (
                ({"stdout": gone}, -signal.SIGPIPE),
                ({"stdout": gone, "signals": False}, 1),
                ({"stdout": full}, 1),
                ({"closed": [1]}, 1),
            ):
                run = self.run_script(FORM_ECHO, URL_ENCODED, page, **how)
                self.assertEqual((status, b""), (run.returncode, run.stderr), how)

    def test_that_are_closed_for_the_answer_or_the_log_do_not_hinder_storing(self):
        self.assertEqual([1, 1], self.store(1, closed=[1]))
        self.assertEqual([0, 0], self.store(2, closed=[2], stdout=subprocess.DEVNULL))
        self.assertEqual([1, 1], self.store(3, closed=[1, 2]))

    def test_that_are_closed_for_the_body_bring_none(self):
        for closed in ([0], [0, 2]):
            for path, kind, body in (
                (UPLOAD, MULTIPART, multipart(("a.bin", b"1"))),
                (GUESTBOOK, URL_ENCODED, entry(1)),
            ):
                run = self.run_script(path, kind, body, closed=closed, stdout=subprocess.PIPE)
                self.assertEqual(0, run.returncode)
                self.assertTrue(run.stdout.startswith(b"Status: 400 Bad Request\n"), run.stdout)
        run = self.run_script(UPLOAD, MULTIPART, multipart(("a.bin", b"1")), closed=[0, 1, 2])
        self.assertEqual(1, run.returncode)
        self.assert_kept({}, self.folder)
        self.assertFalse(os.path.exists(self.book))


class Termination(ScriptCase):
    ROUNDS = 150

    def run_rounds(self, path, kind, body):
        """Ends the script at random moments of its run; gives the rounds in which it was done."""
        chance = random.Random(15)
        done, longest = [], 0.0
        for number in range(self.ROUNDS):
            sent = body(number)
            with tempfile.TemporaryFile() as file:
                file.write(sent)
                file.seek(0)
                with subprocess.Popen(
                    [path],
                    env=self.variables(kind, sent),
                    stdin=file,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.DEVNULL,
                ) as process:
                    start = time.monotonic()
                    if number >= 5:
                        time.sleep(chance.uniform(0, 1.1 * longest))
                        process.send_signal(signal.SIGTERM)
                    answer = process.stdout.read()
                if number < 5:
                    longest = max(longest, time.monotonic() - start)
            self.assertIn(process.returncode, (0, -signal.SIGTERM))
            if process.returncode == 0:
                self.assertRegex(answer, rb"\AStatus: (200|303) ")
                done.append(number)
        self.assertGreater(len(done), 5, "none got through")
        self.assertLess(len(done), self.ROUNDS - 5, "none was ended")
        return done

    def write(self, number):
        body = entry(number)
        answer = script.run(GUESTBOOK, self.variables(URL_ENCODED, body), body)
        self.assertEqual(303, answer[0])

    def test_at_any_moment_leaves_files_whole_or_not_there(self):
        body = multipart(("a.bin", BIG), ("b.bin", BIG))
        done = self.run_rounds(UPLOAD, MULTIPART, lambda _: body)
        final = {name: data for name, data in kept(self.folder).items() if name[0] != "."}
        self.assertGreaterEqual(len(final), 2 * len(done))
        for name, data in final.items():
            self.assertTrue(data == BIG, f"{name} has {len(data)} bytes")

    def test_at_any_moment_leaves_entries_whole_or_not_there(self):
        done = self.run_rounds(GUESTBOOK, URL_ENCODED, entry)
        # Whoever writes next takes away what was left of an entry.
        number = self.ROUNDS
        self.write(number)
        found = {int(line[5:].split(b" ")[0]) for line in read(self.book).splitlines()}
        self.assertLessEqual({*done, number}, found)
        self.assert_book(self.book, found)

    def test_in_the_middle_of_a_line_costs_that_line_alone(self):
        self.write(1)
        whole = read(self.book)
        for length in (1, 3, 6, 7, 100, len(whole) - 1):
            with open(self.book, "ab") as file:
                file.write(b"guest2 " + whole[7:length] if length > 7 else b"guest2 "[:length])
            page = script.run(GUESTBOOK, self.variables("", b"") | {"REQUEST_METHOD": "GET"})[2]
            self.assertEqual(1, page.count(b"<article>"), length)
            self.write(3)
            self.assert_book(self.book, [1, 3])
            os.truncate(self.book, len(whole))


if __name__ == "__main__":
    unittest.main()
