"""Attacks on the examples that store data: cross-site forms, planted links, full stores, clients
that do not read their answer, thousands of files."""

import os
import re
import socket
import subprocess
import tempfile
import time
import unittest

import script
from faults_test import BOOK, LINES, LINES_IN_CPP, POLL, URL_ENCODED
from page import Page
from servers import Lighttpd
from servers.server import read
from upload_test import MULTIPART, UPLOAD, multipart, stored_files

COUNTER = os.environ["COUNTER"]
FORMS = LINES + LINES_IN_CPP[:2]
GET = {"REQUEST_METHOD": "GET"}
STORE_BYTES = {"guestbook": 8 << 20, "contact": 8 << 20, "poll": 1 << 20}
FILES_AT_ONCE, FOLDER_FILES, FOLDER_BYTES = 20, 1000, 100 << 20


class AbuseCase(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.store = os.path.join(self.folder, "store")
        self.uploads = os.path.join(self.folder, "uploads")
        os.mkdir(self.uploads)

    def write(self, path, data):
        with open(path, "wb") as file:
            file.write(data)

    def variables(self, lines, number=2, **more):
        form = lines.form(number)
        variables = script.post(URL_ENCODED, form) | POLL.variables(number)
        return variables | {lines.setting: self.store} | more

    def send(self, lines, status, number=2, **more):
        """Sends a form; returns the page."""
        answer = script.run(lines.script, self.variables(lines, number, **more), lines.form(number))
        self.assertEqual(status, answer[0], (lines.name, more))
        return answer[2].decode()

    def upload(self, status, *files, **more):
        body = multipart(*files)
        variables = script.post(MULTIPART, body) | {"TARN_UPLOAD_DIR": self.uploads} | more
        answer = script.run(UPLOAD, variables, body)
        self.assertEqual(status, answer[0], more)
        return Page(answer[2])

    def alert_text(self, page):
        (text,) = Page(page.encode()).texts("p", role="alert")
        return text


class CrossSiteForms(AbuseCase):
    REFUSED = (
        {"HTTP_SEC_FETCH_SITE": "cross-site"},
        {"HTTP_SEC_FETCH_SITE": "same-site"},
        {"HTTP_SEC_FETCH_SITE": "cross-site", "HTTP_ORIGIN": "https://example.org"},
        {"HTTP_SEC_FETCH_SITE": "what may come"},
        {"HTTP_ORIGIN": "https://evil.example"},
        {"HTTP_ORIGIN": "https://example.org.evil.example"},
        {"HTTP_ORIGIN": "https://example.org:8443"},
        {"HTTP_ORIGIN": "https://example.org:8443", "SERVER_PORT": "443"},
        {"HTTP_ORIGIN": "https://example.org:80@evil.example", "SERVER_PORT": "80"},
        {"HTTP_ORIGIN": "https://example"},
        {"HTTP_ORIGIN": "null"},
        {"HTTP_ORIGIN": "example.org"},
        # Not even of this site, as far as the browser says.
        {},
        {"HTTP_ORIGIN": ""},
        {"HTTP_SEC_FETCH_SITE": "none"},
        {"HTTP_SEC_FETCH_SITE": "SAME-ORIGIN"},
        # Of this host, but with another scheme or port.
        {"HTTP_ORIGIN": "https://example.org"},
        {"HTTP_ORIGIN": "http://example.org", "HTTPS": "on"},
        {"HTTP_ORIGIN": "http://example.org:443"},
        {"HTTP_ORIGIN": "http://example.org:8080", "SERVER_PORT": "8080"},
        {"HTTP_ORIGIN": "http://example.org", "HTTP_HOST": "example.org:8080"},
        {"HTTP_ORIGIN": "https://example.org:80", "HTTPS": "on"},
        {"HTTP_ORIGIN": "http://example.orgs"},
        {"HTTP_ORIGIN": "http://", "HTTP_HOST": ""},
    )
    TAKEN = (
        {"HTTP_SEC_FETCH_SITE": "same-origin"},
        {"HTTP_SEC_FETCH_SITE": "same-origin", "HTTP_ORIGIN": "https://elsewhere.example"},
        {"HTTP_ORIGIN": "http://EXAMPLE.org"},
        {"HTTP_ORIGIN": "http://example.org:80"},
        {"HTTP_ORIGIN": "http://example.org", "HTTP_HOST": "example.org:80"},
        {"HTTP_ORIGIN": "https://example.org", "HTTPS": "on"},
        {"HTTP_ORIGIN": "https://example.org:443", "HTTPS": "on"},
        {"HTTP_ORIGIN": "http://example.org:8080", "HTTP_HOST": "example.org:8080"},
    )
    BASE = {"HTTP_SEC_FETCH_SITE": "", "HTTP_HOST": "example.org"}

    def test_cross_site_forms_are_refused(self):
        for lines in FORMS:
            for headers in self.REFUSED:
                page = self.send(lines, 403, **self.BASE | headers)
                self.assertIn("another site", self.alert_text(page))
                self.assertFalse(os.path.exists(self.store))
        for headers in self.REFUSED:
            page = self.upload(403, ("a", b"1"), **self.BASE | headers)
            self.assertIn("another site", page.texts("p", role="alert")[0])
            self.assertEqual({}, stored_files(self.uploads))

    def test_same_site_forms_are_accepted(self):
        for lines in FORMS:
            for number, headers in enumerate(self.TAKEN):
                self.send(lines, 303, number, **self.BASE | headers)
            self.assertEqual(len(self.TAKEN), read(self.store).count(b"\n"))
            os.remove(self.store)
        for headers in self.TAKEN:
            self.upload(200, ("a", b"1"), **self.BASE | headers)
        self.assertEqual(len(self.TAKEN), len(stored_files(self.uploads)))


class Pages(AbuseCase):
    def head(self, path, **more):
        _, lines, page, _ = script.run(path, GET | {"TARN_UPLOAD_DIR": self.uploads} | more)
        return dict(line.split(": ", 1) for line in lines), page.decode()

    def test_security_policy_allows_only_inline_code_with_a_nonce(self):
        scripts = {UPLOAD, COUNTER, *(lines.script for lines in FORMS), os.environ["FORM_ECHO"]}
        nonces = set()
        for path in scripts:
            headers, page = self.head(path)
            self.assertEqual("nosniff", headers["X-Content-Type-Options"])
            policy = dict(
                part.split(" ", 1) for part in headers["Content-Security-Policy"].split("; ")
            )
            (nonce,) = set(re.findall("nonce-([0-9a-f]{32})", headers["Content-Security-Policy"]))
            nonces.add(nonce)
            self.assertEqual({nonce}, set(re.findall(' nonce="([^"]*)"', page)))
            self.assertEqual(page.count(" nonce="), page.count("<style") + page.count("<script"))
            for name in ("default-src", "frame-ancestors", "base-uri"):
                self.assertEqual("'none'", policy[name])
            self.assertEqual("'self'", policy["form-action"])
        self.assertEqual(len(scripts), len(nonces))

    def test_cookies_are_secure_under_https(self):
        book, _, poll = LINES
        for lines in (book, LINES_IN_CPP[0], poll):
            for https, secure in (("on", True), ("off", False), ("", False)):
                variables = {"HTTPS": https, lines.setting: self.store}
                if lines is poll:
                    cookie = self.head(lines.script, **variables)[0]["Set-Cookie"]
                else:
                    form = lines.form(1) + b"&remember=on"
                    variables |= script.post(URL_ENCODED, form)
                    _, head, _, _ = script.run(lines.script, variables, form)
                    (cookie,) = [line for line in head if line.startswith("Set-Cookie: ")]
                self.assertEqual(secure, "Secure" in cookie.split("; "), cookie)


class MultipartForms(AbuseCase):
    BLANK = b'--XYZ\r\nContent-Disposition: form-data; name="%s"\r\n\r\n%s\r\n'
    TEXTS = {"name": b"Zo\xc3\xab", "email": b"zoe@example.org", "choice": b"tea"}
    MESSAGE = b"one\r\n\r\ntwo\r\n--XY\r\nthree"
    STORED = b"one%0D%0A%0D%0Atwo%0D%0A--XY%0D%0Athree"

    def body(self, **changes):
        texts = self.TEXTS | {"message": self.MESSAGE} | changes
        parts = [self.BLANK % (name.encode(), text) for name, text in texts.items()]
        return b"".join(parts) + b"--XYZ--\r\n"

    def send_body(self, lines, body):
        variables = self.variables(lines) | script.post(MULTIPART, body)
        return script.run(lines.script, variables, body)

    def test_arrive_with_all_their_lines(self):
        for lines in FORMS:
            self.assertEqual(303, self.send_body(lines, self.body())[0])
            stored = read(self.store)
            self.assertEqual(lines.name != "poll", self.STORED in stored, stored)
            self.assertEqual(1, stored.count(b"\n"))
            os.remove(self.store)

    def test_that_are_cut_or_malformed_are_refused(self):
        whole = self.body()
        for lines in FORMS:
            for body in (
                whole[:-4],
                whole[:-20],
                whole.replace(b"--XYZ--", b"--XYZ-"),
                b"--XYZ\r\n",
            ):
                status, _, page, log = self.send_body(lines, body)
                self.assertEqual(400, status)
                self.assertIn("did not arrive completely", self.alert_text(page.decode()))
                self.assertRegex(log, r"\Acannot read the form: .+\n\Z")
                self.assertFalse(os.path.exists(self.store))

    def test_with_a_zero_byte_in_a_text_are_refused(self):
        for lines in FORMS:
            body = self.body(choice=b"tea\0", message=b"text\0more")
            self.assertEqual(422, self.send_body(lines, body)[0], lines.name)
            self.assertFalse(os.path.exists(self.store))

    def test_of_other_types_are_refused(self):
        body = b"name=a"
        for lines in FORMS:
            variables = self.variables(lines) | script.post("text/plain", body)
            status, _, page, _ = script.run(lines.script, variables, body)
            self.assertEqual(415, status)
            self.assertIn("cannot read this kind of form", self.alert_text(page.decode()))
            self.assertFalse(os.path.exists(self.store))


class PlantedFiles(AbuseCase):
    def test_planted_file_is_not_used_as_a_store(self):
        victim = os.path.join(self.folder, "victim")
        self.write(victim, b"mine\n")
        for lines in FORMS:
            for plant in (
                lambda: os.symlink(victim, self.store),
                lambda: os.symlink(victim + "-new", self.store),
                lambda: os.mkfifo(self.store),
                lambda: os.symlink("/dev/null", self.store),
            ):
                plant()
                self.assertIn("could not be saved", self.alert_text(self.send(lines, 500)))
                status, _, _, _ = script.run(lines.script, GET | {lines.setting: self.store})
                self.assertEqual(200 if lines.name == "contact" else 500, status)
                os.remove(self.store)
        self.assertEqual({"victim": b"mine\n"}, self.files_in_folder())

    def test_planted_file_does_not_affect_the_counter(self):
        victim = os.path.join(self.folder, "victim")
        variables = GET | {"TARN_COUNTER_FILE": self.store}
        for place in ("", ".lock"):
            for plant in (os.symlink, lambda _, path: os.mkfifo(path)):
                self.write(victim, b"7\n")
                if os.path.exists(self.store + ".lock"):
                    os.remove(self.store + ".lock")
                plant(victim, self.store + place)
                self.assertEqual(500, script.run(COUNTER, variables)[0], place)
                os.remove(self.store + place)
                self.assertEqual(b"7\n", read(victim))
        for plant in (os.symlink, os.link, lambda _, path: os.mkfifo(path)):
            plant(victim, self.store + ".new")
            self.assertEqual(200, script.run(COUNTER, variables)[0])
            self.assertEqual(b"7\n", read(victim))
        self.assertEqual(b"3\n", read(self.store))

    def test_uploads_do_not_write_to_planted_files(self):
        victim = os.path.join(self.folder, "victim")
        self.write(victim, b"mine")
        for planted in (".new", ".tarn-form-0", "a"):
            os.symlink(victim, os.path.join(self.uploads, planted))
        self.upload(200, ("a", b"1"))
        self.assertEqual(b"1", stored_files(self.uploads)["2-a"])
        self.assertEqual({"victim": b"mine"}, self.files_in_folder())
        os.remove(os.path.join(self.uploads, ".lock"))
        os.symlink(victim + "-new", os.path.join(self.uploads, ".lock"))
        self.upload(500, ("a", b"1"))
        self.assertEqual({"victim": b"mine"}, self.files_in_folder())
        os.mkfifo(os.path.join(self.uploads, "pipe"))
        variables = GET | {"TARN_UPLOAD_DIR": self.uploads, "QUERY_STRING": "file=pipe"}
        self.assertEqual(404, script.run(UPLOAD, variables)[0])

    def test_stored_files_are_private_to_the_server(self):
        for lines in FORMS:
            self.send(lines, 303)
            self.assertEqual(0o600, os.stat(self.store).st_mode & 0o777)
            os.remove(self.store)
        script.run(COUNTER, GET | {"TARN_COUNTER_FILE": self.store})
        self.upload(200, ("a", b"1"))
        for path in ("store", "store.lock", "uploads/a", "uploads/.lock"):
            self.assertEqual(0o600, os.stat(f"{self.folder}/{path}").st_mode & 0o777, path)

    def files_in_folder(self):
        paths = {name: os.path.join(self.folder, name) for name in os.listdir(self.folder)}
        return {name: read(path) for name, path in paths.items() if os.path.isfile(path)}


class FullStores(AbuseCase):
    def test_entry_that_does_not_fit_is_refused(self):
        for lines in FORMS:
            line, last = lines.line(1), lines.line(2)
            most = STORE_BYTES[lines.name]
            count, rest = divmod(most - len(last), len(line))
            full = line * count + b"\n" * rest
            self.write(self.store, full + b"\n")
            self.assertIn("no room left", self.alert_text(self.send(lines, 507)))
            self.assertTrue(read(self.store) == full + b"\n")
            self.write(self.store, full)
            self.send(lines, 303)
            self.assertTrue(read(self.store) == full + last)
            self.send(lines, 507, 3)

    def test_uploads_stop_at_the_file_limit(self):
        for number in range(FOLDER_FILES - 2):
            self.write(f"{self.uploads}/{number}", b"")
        page = self.upload(507, ("a", b"1"), ("b", b"2"), ("c", b"3"))
        told = [
            "a: saved as a, 1 bytes",
            "b: saved as b, 1 bytes",
            "c: not saved, the folder is full",
        ]
        self.assertEqual(told, page.texts("li"))
        self.assertEqual(FOLDER_FILES, len(os.listdir(self.uploads)) - 1)

    def test_uploads_stop_at_the_byte_limit(self):
        self.write(f"{self.uploads}/large", b"")
        os.truncate(f"{self.uploads}/large", FOLDER_BYTES - 10)
        page = self.upload(507, ("a", b"1" * 11), ("b", b"2" * 10), ("c", b"3"))
        full = "not saved, the folder is full"
        self.assertEqual([f"a: {full}", "b: saved as b, 10 bytes", f"c: {full}"], page.texts("li"))


class ThousandsOfFiles(AbuseCase):
    def test_too_many_files_are_refused_together(self):
        page = self.upload(413, *([("a.txt", b"1")] * 4000))
        self.assertIn("larger than this page accepts", page.texts("p", role="alert")[0])
        self.upload(413, *([("a.txt", b"1")] * (FILES_AT_ONCE + 1)))
        self.assertEqual({}, stored_files(self.uploads))

    def test_a_file_that_is_deleted_meanwhile_does_not_matter(self):
        self.upload(200, ("old.txt", b"1"))
        body = multipart(("new.txt", b"2"))
        variables = script.post(MULTIPART, body) | {"TARN_UPLOAD_DIR": self.uploads}
        variables["ASAN_OPTIONS"] = "detect_leaks=0"
        calls = "?lstat,?lstat64,?newfstatat,?fstatat64,?statx"
        # What the script learns about the old file.
        for error, status in (("EIO", b"500"), ("ENOENT", b"200")):
            strace = ["strace", "-o", os.devnull, "-P", "old.txt", "-e", f"trace={calls}"]
            strace += ["-e", f"inject={calls}:error={error}", UPLOAD]
            run = subprocess.run(
                strace, env=variables, input=body, capture_output=True, check=False
            )
            self.assertEqual(status, run.stdout.removeprefix(b"Status: ")[:3])
            self.assertEqual(status == b"200", "new.txt" in stored_files(self.uploads))

    def test_many_files_with_one_name_need_few_system_calls(self):
        log = os.path.join(self.folder, "calls")
        files = [("a.txt", b"1")] * FILES_AT_ONCE
        body = multipart(*files)
        variables = script.post(MULTIPART, body) | {"TARN_UPLOAD_DIR": self.uploads}
        self.upload(200, *files)
        for number in range(FILES_AT_ONCE + 1, FOLDER_FILES - FILES_AT_ONCE + 1):
            self.write(f"{self.uploads}/{number}-a.txt", b"")
        there = len(stored_files(self.uploads))
        strace = ("strace", "-o", log, "-e", "trace=?stat,?lstat,?newfstatat,?link,?linkat", UPLOAD)
        variables["ASAN_OPTIONS"] = "detect_leaks=0"
        subprocess.run(strace, env=variables, input=body, capture_output=True, check=True)
        self.assertEqual(there + FILES_AT_ONCE, len(stored_files(self.uploads)))
        calls = read(log).count(b"\n")
        # The folder is read three times, and each file searches for a free name.
        self.assertLess(there, calls)
        self.assertLess(calls, 3 * FOLDER_FILES + FILES_AT_ONCE * 40)


class ManyEntries(AbuseCase):
    COUNT = 1050

    def page(self, path, query=""):
        variables = GET | {"TARN_GUESTBOOK_FILE": self.store, "QUERY_STRING": query}
        status, _, page, _ = script.run(path, variables)
        self.assertEqual(200, status)
        return Page(page)

    def test_every_entry_is_on_exactly_one_page(self):
        for message in (b"x", b"m" * 4000):
            entries = (b"%d " % number + message + b"\n" for number in range(self.COUNT))
            self.write(self.store, b"".join(entries))
            for book in (BOOK, LINES_IN_CPP[0]):
                page, shown, pages = self.page(book.script), [], 1
                shown = page.texts("h2")
                while links := [e for e in page.elements if e["tag"] == "a"]:
                    page = self.page(book.script, links[0]["attributes"]["href"][1:])
                    shown = page.texts("h2") + shown
                    pages += 1
                self.assertEqual([str(number) for number in range(self.COUNT)], shown)
                self.assertGreater(pages, 10)
                self.assertLess(pages, 20)

    def test_any_offset_is_safe(self):
        self.write(self.store, b"".join(b"%d x\n" % number for number in range(300)))
        for book in (BOOK, LINES_IN_CPP[0]):
            for offset in ("0", "-1", "1", "2", "3", "4", "9" * 30, "-" + "9" * 30, "x", "%00", ""):
                for name in self.page(book.script, f"before={offset}").texts("h2"):
                    self.assertIn(int(name), range(300))
            self.assertEqual([], self.page(book.script, "before=1").texts("h2"))
            self.assertEqual(["0"], self.page(book.script, "before=5").texts("h2"))


def wait_until_asleep(pid):
    """Waits until a process has been asleep for a while."""
    for _ in range(2000):
        states = set()
        for _ in range(20):
            with open(f"/proc/{pid}/stat", encoding="ascii") as stat:
                states.add(stat.read().rpartition(") ")[2][0])
            time.sleep(0.005)
        if states == {"S"}:
            return
    raise AssertionError("the process does not block")


class AnswersThatNobodyReads(AbuseCase):
    """A script blocks because nobody reads its page, while another one stores data."""

    def start_blocked_script(self, path, variables):
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        os.set_blocking(writer, False)
        try:
            while True:
                os.write(writer, bytes(4096))
        except BlockingIOError:
            os.set_blocking(writer, True)
        process = subprocess.Popen([path], env=variables, stdin=subprocess.DEVNULL, stdout=writer)
        os.close(writer)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        wait_until_asleep(process.pid)

    def test_unread_page_does_not_block_a_form(self):
        for lines in FORMS:
            self.write(self.store, b"".join(lines.line(number) for number in range(10, 60)))
            self.start_blocked_script(lines.script, GET | {lines.setting: self.store})
            self.send(lines, 303)

    def test_unread_page_does_not_block_an_upload(self):
        for number in range(300):
            self.write(f"{self.uploads}/{number}", b"")
        self.start_blocked_script(UPLOAD, GET | {"TARN_UPLOAD_DIR": self.uploads})
        self.upload(200, ("a", b"1"))


class Readers(unittest.TestCase):
    """The same under a server: clients request a long page and do not read it."""

    SERVER = Lighttpd
    SCRIPT = BOOK.script

    def test_clients_that_do_not_read_do_not_block_writers(self):
        variables = {"TARN_GUESTBOOK_FILE": "data/entries"}
        with self.SERVER({"guestbook": self.SCRIPT}, variables) as server:
            server.make_folder("data")
            path = server.path("data/entries")
            with open(path, "wb") as file:
                line = b"guest " + b"m" * 4000 + b"\n"
                file.write(line * ((7 << 20) // len(line)))
            os.chmod(path, 0o666)
            before = os.path.getsize(path)
            for _ in range(3):
                client = self.enterContext(socket.socket())
                client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
                client.connect(("127.0.0.1", server.port))
                client.sendall(b"GET /cgi-bin/guestbook HTTP/1.1\r\nHost: localhost\r\n\r\n")
                self.assertEqual(b"HTTP", client.recv(4))
            form = BOOK.form(2).decode()
            answer = server.curl("/guestbook", "--data-raw", form)
            self.assertEqual(303, answer.status)
            self.assertEqual(before + len(BOOK.line(2)), os.path.getsize(path))


class ReadersInCpp(Readers):
    SCRIPT = LINES_IN_CPP[0].script


class Refusals(unittest.TestCase):
    """Headers that make a script refuse a form, and its answer, pass through a server."""

    SERVER = Lighttpd

    def test_refusal_reaches_the_visitor(self):
        variables = {"TARN_POLL_FILE": "data/votes"}
        with self.SERVER({"poll": POLL.script}, variables) as server:
            server.make_folder("data")
            vote = ("/poll", "-b", POLL.variables(1)["HTTP_COOKIE"], "-d", "choice=tea")
            for header, status in (
                ("Sec-Fetch-Site: cross-site", 403),
                ("Sec-Fetch-Site:", 403),
                ("Origin: https://evil.example", 403),
                ("Origin: http://lakes.example", 303),
            ):
                answer = server.curl(*vote, "-H", "Host: lakes.example", "-H", header)
                self.assertEqual(status, answer.status, header)
                if status == 403:
                    (text,) = Page(answer.body).texts("p", role="alert")
                    self.assertIn("another site", text)
                    self.assertIn("frame-ancestors", answer.header("content-security-policy"))
            path = server.path("data/votes")
            with open(path, "ab") as file:
                file.write(b"\n" * STORE_BYTES["poll"])
            answer = server.curl(
                "/poll", "-b", POLL.variables(2)["HTTP_COOKIE"], "-d", "choice=tea"
            )
            self.assertEqual(507, answer.status)
            self.assertIn("no room left", Page(answer.body).texts("p", role="alert")[0])


if __name__ == "__main__":
    unittest.main()
