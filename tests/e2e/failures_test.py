"""Makes each allocation and each system call of the examples that store data fail. What an example
confirms is stored completely; what it refuses is not stored at all."""

import collections
import os
import re
import subprocess
import tempfile
import unittest
from typing import NamedTuple

import script
from faults_test import LINES, LINES_IN_CPP, POLL, URL_ENCODED
from servers.server import read
from upload_test import MULTIPART, multipart

if "TODO" in os.environ:  # it needs libsodium
    import todo_test

FILES = {"a.bin": b"a" * 5000, "b.bin": b"b" * 100000, "c.bin": b"", "d.txt": b"d"}
CALLS = (
    "openat open read pread64 write lseek fstat newfstatat fcntl fsync ftruncate close link unlink "
    "rename getdents64 chdir fchdir getrandom linkat unlinkat faccessat faccessat2 pwrite64 "
    "copy_file_range sync_file_range poll"
)
TRACED = ",".join(f"?{call}" for call in CALLS.split())
FAILING = {
    path: os.environ[f"{name}_FAILING"]
    for name, path in os.environ.items()
    if f"{name}_FAILING" in os.environ
}
SANITIZED = os.environ["SANITIZED"] == "ON"
# The status when the body cannot be read. Only a failing system call causes that.
UNREAD: set[int] = set() if SANITIZED else {400}
UNSURE = "may or may not have been saved", "disk error, may have been saved as"


class Run(NamedTuple):
    """How a script ended; the status is 0 if its answer is incomplete."""

    status: int
    page: str


class FailureCase(unittest.TestCase):
    TRACED = TRACED

    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.data = os.path.join(self.folder, "data")

    def run_script(self, path, variables, body, *wrapper):
        done = subprocess.run(
            [*wrapper, path],
            env=variables | {"ASAN_OPTIONS": "detect_leaks=0:allocator_may_return_null=1"},
            input=body,
            capture_output=True,
            timeout=100,
            check=False,
        )
        self.assertGreaterEqual(done.returncode, 0, done)
        self.assertNotIn(b"Sanitizer", done.stderr)
        answer = done.stdout.decode(errors="replace")
        parts = re.split("\r?\n\r?\n", answer, maxsplit=1)
        status = re.match("Status: ([0-9]+) ", answer)
        whole = done.returncode == 0 and len(parts) == 2
        return Run(whole and (int(status[1]) if status else 200), parts[-1])

    def assert_same(self, expected, found, what):
        """Compares values that may be long, and shortens them in the message."""
        self.assertTrue(expected == found, f"{what}: {str(found)[:200]}, not {str(expected)[:200]}")

    def with_failing_allocations(self, path, variables, body):
        """Yields a run for each allocation that fails, alone or together with all later ones."""
        mark = os.path.join(self.folder, "failed")
        for last in ("same", "all"):
            for number in range(1, 10000):
                to = number if last == "same" else 1 << 40
                wanted = {"FAILED": mark, "FAIL_FROM": str(number), "FAIL_TO": str(to)}
                run = self.run_script(FAILING[path], variables | wanted, body)
                failed = os.path.exists(mark)
                yield run, f"allocation {number}, {last}"
                if not failed:
                    self.assertGreater(number, 1, "nothing failed")
                    break
                if os.path.exists(mark):
                    os.remove(mark)
            else:
                self.fail("the script never stops allocating")

    def with_failing_calls(self, path, variables, body):
        """The same for each system call that the program makes after it is loaded."""
        log = os.path.join(self.folder, "calls")
        strace = ("strace", "-o", log, "-e", f"trace={self.TRACED}")
        run = self.run_script(path, variables, body, *strace)
        made = collections.Counter(re.findall("^([a-z0-9_]+)\\(", read(log).decode(), re.MULTILINE))
        self.assertGreater(len(made), 5)
        yield run, "no failing call"
        for call, count in made.items():
            for number in range(1, count + 1):
                for last in ("", "+"):
                    failing = f"inject={call}:error=EIO:when={number}{last}"
                    strace = ("strace", "-o", log, "-e", f"trace={call}", "-e", failing)
                    run = self.run_script(path, variables, body, *strace)
                    trace = read(log)
                    if len(re.findall(rf"^{call}\(".encode(), trace, re.MULTILINE)) < number:
                        continue  # the body arrived in fewer pieces this time
                    self.assertIn(b"INJECTED", trace, f"{call} {number}{last}")
                    yield run, f"{call} {number}{last}"

    def with_failures(self, path, variables, body):
        yield from self.with_failing_allocations(path, variables, body)
        # A sanitizer makes system calls too, and aborts when they fail.
        if not SANITIZED:
            yield from self.with_failing_calls(path, variables, body)


class Forms(FailureCase):
    LINES = LINES

    def check_line(self, run, what, before, line):
        """Checks what is stored. A line without a newline does not count."""
        found = [line for line in read(self.data).splitlines(keepends=True) if line[-1:] == b"\n"]
        without, stored = ([before] if before else []), ([before] if before else []) + [line]
        if run.status == 303:
            self.assert_same(stored, found, what)
        elif run.status and UNSURE[0] not in run.page:
            self.assert_same(without, found, (what, run.status))
        else:
            self.assertTrue(found in (without, stored), what)

    def test_are_kept_when_confirmed_and_not_when_refused(self):
        for lines in self.LINES:
            form = lines.form(2) + b"&remember=on"
            variables = script.post(URL_ENCODED, form) | {lines.setting: self.data, "HTTPS": "on"}
            variables |= POLL.variables(2)
            seen = []
            for before in (b"", lines.line(1)):
                failing = self.with_failures(lines.script, variables, form)
                self.write(before)
                for run, what in failing:
                    self.check_line(run, f"{lines.name}, {what}", before, lines.line(2))
                    seen.append(run.status)
                    self.write(before)
            self.assertLessEqual({303, 500} | UNREAD, set(seen), lines.name)

    def test_page_is_unsure_when_undoing_fails_too(self):
        inject = ("-e", "inject=fsync:error=EIO", "-e", "inject=ftruncate:error=EIO:when=2")
        strace = ("strace", "-o", "/dev/null", "-e", "trace=fsync,ftruncate", *inject)
        for lines in self.LINES:
            form = lines.form(2)
            variables = script.post(URL_ENCODED, form) | POLL.variables(2)
            run = self.run_script(
                lines.script, variables | {lines.setting: self.data}, form, *strace
            )
            self.assertEqual(500, run.status)
            self.assertIn(UNSURE[0], run.page)
            self.assert_same(lines.line(2), read(self.data), lines.name)
            self.write(b"")

    def test_page_shows_all_entries_or_an_error(self):
        shown = {"guestbook": "<article>", "poll": "Tea 3,"}
        get = {"REQUEST_METHOD": "GET"}
        for lines in self.LINES:
            if lines.name in shown:
                self.write(b"".join(map(lines.line, (1, 2, 3))))
                seen = []
                variables = get | {lines.setting: self.data}
                for run, what in self.with_failures(lines.script, variables, b""):
                    if run.status == 200:
                        count = 3 if lines.name == "guestbook" else 1
                        self.assertEqual(count, run.page.count(shown[lines.name]), what)
                    seen.append(run.status)
                self.assertLessEqual({200, 500}, set(seen), lines.name)

    def write(self, data):
        if os.path.exists(self.data):
            os.remove(self.data)
        if data:
            with open(self.data, "wb") as file:
                file.write(data)


class FormsInCpp(Forms):
    LINES = LINES_IN_CPP[:2]


class Counts(FailureCase):
    def test_count_is_kept_when_shown_and_not_when_refused(self):
        variables = {"REQUEST_METHOD": "GET", "TARN_COUNTER_FILE": self.data}
        seen = []
        for before in (0, 5):
            self.write(before)
            for run, what in self.with_failures(os.environ["COUNTER"], variables, b""):
                found = int(read(self.data) or b"0")
                if run.status == 200:
                    self.assertEqual(before + 1, found, what)
                    self.assertIn(f"<strong>{found}</strong>", run.page, what)
                elif run.status:
                    self.assertEqual(before, found, what)
                else:
                    self.assertIn(found, (before, before + 1), what)
                seen.append(run.status)
                self.write(before)
        self.assertLessEqual({200, 500}, set(seen))

    def write(self, count):
        for name in os.listdir(self.folder):
            os.remove(os.path.join(self.folder, name))
        if count:
            with open(self.data, "w", encoding="ascii") as file:
                file.write(f"{count}\n")


class Uploads(FailureCase):
    BEFORE = {"b.bin": b"before"}

    def check(self, run, what):
        found = {name: data for name, data in self.stored_files().items() if name[0] != "."}
        self.assertEqual(self.BEFORE["b.bin"], found.pop("b.bin"), what)
        told = re.findall("<bdi>(.*?)</bdi>: saved as (.*?), ([0-9]+) bytes", run.page)
        if run.status == 0 or UNSURE[1] in run.page:
            self.assertTrue(set(found.values()) <= set(FILES.values()), what)
            return
        self.assert_same({name: FILES[sent] for sent, name, _ in told}, found, (what, run.status))
        if run.status == 200:
            self.assertEqual(list(FILES), [sent for sent, _, _ in told], what)

    def test_are_kept_when_confirmed_and_not_when_refused(self):
        body = multipart(*FILES.items())
        variables = script.post(MULTIPART, body) | {"TARN_UPLOAD_DIR": self.data}
        os.mkdir(self.data)
        self.write()
        seen = []
        for run, what in self.with_failures(os.environ["UPLOAD"], variables, body):
            self.check(run, what)
            seen.append(run.status)
            self.write()
        self.assertLessEqual({200, 500} | UNREAD, set(seen))

    def stored_files(self):
        return {name: read(os.path.join(self.data, name)) for name in os.listdir(self.data)}

    def write(self):
        for name in os.listdir(self.data):
            os.remove(os.path.join(self.data, name))
        for name, data in self.BEFORE.items():
            with open(os.path.join(self.data, name), "wb") as file:
                file.write(data)


class Items(FailureCase):
    """An item with a picture, in the example todo. Without random numbers, libsodium aborts."""

    TRACED = TRACED.replace("?getrandom,", "")

    def setUp(self):
        super().setUp()
        self.lists = todo_test.make_lists(self.folder)
        self.cookie = ""
        login = ("form-token", self.ask()["/login"]), ("name", "Ada")
        self.ask("/login", *login, ("password", todo_test.PASSWORD))
        self.token = self.ask()["/items/0"]

    def request(self, path, fields):
        """The variables and the body of a request; without fields it is a GET."""
        part = b'--XYZ\r\nContent-Disposition: form-data; name="%s"\r\n\r\n%s\r\n'
        body = b"".join(part % (name.encode(), value.encode()) for name, value in fields)
        picture = multipart(("lake.png", todo_test.PNG))
        body += picture.replace(b'name="file"', b'name="picture"')
        variables = script.post(MULTIPART, body) | ({} if fields else {"REQUEST_METHOD": "GET"})
        variables |= {"SCRIPT_NAME": "/cgi-bin/todo", "PATH_INFO": path}
        variables |= {"TARN_TODO_DIR": str(self.lists), "HTTP_COOKIE": self.cookie}
        return variables, body

    def ask(self, path="", *fields):
        """Sends a request with the last cookie; returns the tokens of the page."""
        variables, body = self.request(path, fields)
        _, head, page, _ = script.run(os.environ["TODO"], variables, body)
        for line in head:
            if found := re.match("Set-Cookie: (todo=[^;]+)", line):
                self.cookie = found[1]
        return todo_test.forms(page.decode())

    def stored(self):
        """The lines of the list and the names of its pictures."""
        data = read(self.lists / "Ada/.items")
        pictures = [path for path in (self.lists / "Ada").glob("[!.]*")]
        for path in pictures:
            self.assertEqual(todo_test.PNG, path.read_bytes())
        return data[: data.rfind(b"\n") + 1], [path.name for path in pictures]

    def test_are_kept_when_confirmed_and_not_when_refused(self):
        fields = ("form-token", self.token), ("title", "Swim")
        variables, body = self.request("/items/0", fields)
        # If nobody knows whether a name is taken, the next one is.
        kept = [(b"- Swim %s\n" % name.encode(), [name]) for name in ("lake.png", "2-lake.png")]
        none = (b"", [])
        seen = []
        for run, what in self.with_failures(os.environ["TODO"], variables, body):
            found = self.stored()
            if run.status == 303:
                self.assertIn(found, kept, what)
            elif run.status and UNSURE[0] not in run.page:
                self.assertEqual(none, found, (what, run.status))
            else:
                self.assertIn(found, (none, *kept), what)
            seen.append(run.status)
            for path in (self.lists / "Ada").iterdir():
                if path.name != ".session":
                    path.unlink()
        self.assertLessEqual({303, 500} | UNREAD, set(seen))


if "TODO" not in os.environ:
    del Items


if __name__ == "__main__":
    unittest.main()
