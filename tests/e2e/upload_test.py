"""The example upload stores complete files under harmless names, and nothing else."""

import concurrent.futures
import os
import random
import re
import tempfile
import unittest

import script
from page import Page
from servers import Lighttpd
from servers.server import read

UPLOAD = os.environ["UPLOAD"]
HARMLESS = re.compile(r"[A-Za-z0-9_][A-Za-z0-9_.-]*")
WHOLE = "Pictures (PNG, JPEG, GIF, WebP) are shown. All files are saved byte for byte."
MULTIPART = "multipart/form-data; boundary=XYZ"
PNG = b"\x89PNG\r\n\x1a\n"
# Each kind of picture that is shown, and how its files begin.
PICTURES = {
    "a.png": ("image/png", PNG),
    "a.jpg": ("image/jpeg", b"\xff\xd8\xff"),
    "a.gif": ("image/gif", b"GIF87a"),
    "b.gif": ("image/gif", b"GIF89a"),
    "a.webp": ("image/webp", b"RIFF1234WEBP"),
}


def multipart(*files):
    """A body with files, each (name, bytes)."""
    parts = [
        b'--XYZ\r\nContent-Disposition: form-data; name="file"; filename="%s"\r\n'
        b"Content-Type: application/octet-stream\r\n\r\n%s\r\n" % (name.encode(), data)
        for name, data in files
    ]
    return b"".join(parts) + b"--XYZ--\r\n"


def stored_files(folder):
    """The files of a folder by name, without the lock file."""
    names = set(os.listdir(folder)) - {".lock"}
    return {name: read(os.path.join(folder, name)) for name in names}


class UploadCase(unittest.TestCase):
    SERVER = Lighttpd
    OPTIONS = ""

    def setUp(self):
        self.server = self.enterContext(
            self.SERVER({"upload": UPLOAD}, {"TARN_UPLOAD_DIR": "around/uploads"}, self.OPTIONS)
        )
        self.folder = self.server.make_folder("around/uploads")

    def stored_files(self):
        return stored_files(self.folder)

    def send(self, body, kind=MULTIPART, status=200, header="Accept: text/html"):
        path = self.server.path("body")
        with open(path, "wb") as file:
            file.write(body)
        headers = ("-H", f"Content-Type: {kind}", "-H", header)
        answer = self.server.curl("/upload", *headers, "--data-binary", f"@{path}")
        self.assertEqual(status, answer.status)
        return answer


class Upload(UploadCase):
    def tearDown(self):
        self.assertEqual("", self.server.log())

    def upload(self, *arguments):
        """Sends a request with curl's arguments; returns the page's list items and paragraphs."""
        return self.shown(self.server.curl("/upload", *arguments))

    def upload_body(self, body):
        return self.shown(self.send(body))

    def shown(self, answer):
        self.assertEqual(200, answer.status)
        self.assertEqual("text/html; charset=utf-8", answer.header("content-type"))
        page = Page(answer.body)
        self.assertEqual(WHOLE, page.texts("p")[0])
        return page.texts("li"), page.texts("p")[3:]

    def pictures(self, page):
        images = [e["attributes"] for e in page.elements if e["tag"] == "img"]
        return [(image["src"], image["alt"]) for image in images]

    def test_page_has_a_form_that_works(self):
        page = Page(self.server.curl("/upload").body)
        (form,) = [element for element in page.elements if element["tag"] == "form"]
        self.assertEqual("post", form["attributes"]["method"])
        self.assertEqual("multipart/form-data", form["attributes"]["enctype"])
        self.assertEqual("file", page.named("file")["attributes"]["type"])
        self.assertIn("Files", page.texts("label")[0])
        self.assertEqual({}, self.stored_files())

    def test_files_are_kept_byte_for_byte(self):
        every = bytes(range(256)) * 4000
        items, _ = self.upload_body(multipart(("every.bin", every), ("none.txt", b"")))
        self.assertEqual(
            [
                "every.bin: saved as every.bin, 1024000 bytes",
                "none.txt: saved as none.txt, 0 bytes",
            ],
            items,
        )
        self.assertEqual({"every.bin": every, "none.txt": b""}, self.stored_files())

    def test_bytes_that_look_like_a_delimiter_are_kept(self):
        for data in (
            b"one\r\ntwo",
            b"\r\n",
            b"\r\n--XY\r\n--XY--",
            b"-\r\n--XY",
            b"a\r\n\r\n--\r\n",
        ):
            items, _ = self.upload_body(multipart(("a.bin", data)))
            self.assertEqual([f"a.bin: saved as a.bin, {len(data)} bytes"], items)
            self.assertEqual({"a.bin": data}, self.stored_files())
            os.remove(os.path.join(self.folder, "a.bin"))

    def test_hostile_names_become_harmless_ones(self):
        names = [
            "../../escape.txt",
            "/etc/passwd",
            "..\\..\\windows.ini",
            "..",
            ".",
            "...",
            "/",
            ".htaccess",
            "-rf",
            "--help",
            "a b\tc.txt",
            "<script>alert(1)<script>.html",
            "$(reboot);`id`&|.sh",
            "Überblick über 湖.pdf",
            "%2e%2e%2fescaped",
            "%0d%0aSet-Cookie: x=y",
            "x" * 3000,
            "con%01trol",
        ]
        items, _ = self.upload_body(multipart(*((name, name.encode()) for name in names)))
        self.assertEqual(len(names), len(items))
        kept = self.stored_files()
        self.assertEqual(sorted(name.encode() for name in names), sorted(kept.values()))
        for name in kept:
            self.assertTrue(HARMLESS.fullmatch(name), name)
            self.assertLess(len(name), 120)
        self.assertEqual(b".htaccess", kept["htaccess"])
        self.assertEqual(b"/etc/passwd", kept["passwd"])
        self.assertEqual(b"%2e%2e%2fescaped", kept["_2e_2e_2fescaped"])
        self.assertEqual(b"%0d%0aSet-Cookie: x=y", kept["__Set-Cookie__x_y"])
        self.assertEqual(["uploads"], os.listdir(self.server.path("around")))
        self.assertFalse(os.path.exists(self.server.path("escape.txt")))

    def test_names_are_shown_as_text(self):
        items, _ = self.upload_body(multipart(("<b>&amp;'.txt", b"1")))
        self.assertEqual(["<b>&amp;'.txt: saved as _b__amp__.txt, 1 bytes"], items)

    def listed(self):
        """The names, sizes and links in the page's list."""
        page = Page(self.server.curl("/upload").body)
        cells = page.texts("td")
        links = [e["attributes"]["href"] for e in page.elements if e["tag"] == "a"]
        return list(zip(cells[::2], map(int, cells[1::2]), links, strict=True))

    def test_kept_files_are_listed_by_name(self):
        self.assertEqual([], self.listed())
        self.upload_body(multipart(("b.txt", b"12"), ("a <i>.html", b""), ("b.txt", b"1")))
        self.assertEqual(
            [
                ("2-b.txt", 1, "?file=2-b.txt"),
                ("a__i_.html", 0, "?file=a__i_.html"),
                ("b.txt", 2, "?file=b.txt"),
            ],
            self.listed(),
        )

    def test_kept_files_are_offered_as_downloads(self):
        files = {
            "page.html": b"<!DOCTYPE html><script>alert(1)</script>",
            "every.bin": bytes(range(256)) * 400,
            "empty.svg": b"",
        }
        self.upload_body(multipart(*files.items()))
        self.assertEqual(3, len(self.listed()))
        for name, _, link in self.listed():
            answer = self.server.curl("/upload" + link)
            self.assertEqual((200, files[name]), (answer.status, answer.body))
            self.assertEqual("application/octet-stream", answer.header("content-type"))
            self.assertEqual("nosniff", answer.header("x-content-type-options"))
            disposition = f'attachment; filename="{name}"'
            self.assertEqual(disposition, answer.header("content-disposition"))

    def test_pictures_are_shown_by_their_bytes_and_not_by_their_names(self):
        files = {name: magic + b"\r\n\0picture" for name, (_, magic) in PICTURES.items()}
        files["liar.txt"] = files["a.png"]
        self.upload_body(multipart(*files.items()))
        page = Page(self.server.curl("/upload?picture=none").body)
        self.assertEqual([], self.pictures(page))
        kinds = {name: kind for name, (kind, _) in PICTURES.items()} | {"liar.txt": "image/png"}
        for name, kind in kinds.items():
            answer = self.server.curl(f"/upload?picture={name}")
            self.assertEqual((200, files[name]), (answer.status, answer.body))
            self.assertEqual(kind, answer.header("content-type"))
            self.assertEqual("nosniff", answer.header("x-content-type-options"))
            self.assertEqual(
                "default-src 'none'; sandbox", answer.header("content-security-policy")
            )
            disposition = f'inline; filename="{name}"'
            self.assertEqual(disposition, answer.header("content-disposition"))

    def test_page_shows_the_pictures_that_were_just_sent(self):
        body = multipart(("a.png", PNG), ("b.txt", b"text"), ("<b>.gif", b"GIF89a"), ("c.png", b""))
        answer = self.send(body)
        self.assertEqual(
            [("?picture=a.png", "a.png"), ("?picture=_b_.gif", "_b_.gif")],
            self.pictures(Page(answer.body)),
        )
        self.assertIn("img-src 'self';", answer.header("content-security-policy"))

    def test_files_that_are_no_pictures_are_never_shown(self):
        files = {
            "page.png": b"<!DOCTYPE html><script>alert(1)</script>",
            "drawing.svg": b"<svg xmlns='http://www.w3.org/2000/svg' onload='alert(1)'/>",
            "short.png": PNG[:7],
            "late.png": b" " + PNG,
            "sound.wav": b"RIFF1234WAVEfmt ",
            "empty.gif": b"",
        }
        page = Page(self.send(multipart(*files.items())).body)
        self.assertEqual(sorted(files), sorted(self.stored_files()))
        self.assertEqual([], self.pictures(page))
        for name in files:
            self.assertEqual(404, self.server.curl(f"/upload?picture={name}").status, name)

    def test_other_files_are_not_served(self):
        outside = self.server.path("outside")
        for name in ("../../outside", ".upload-a", "a b", "-a"):
            with open(os.path.join(self.folder, name), "wb") as file:
                file.write(PNG + b"secret")
        os.symlink(outside, os.path.join(self.folder, "link"))
        os.mkdir(os.path.join(self.folder, "folder"))
        self.assertEqual([], self.listed())
        for name in [
            "link",
            "folder",
            "none",
            ".",
            "..",
            "../../outside",
            "..%2F..%2Foutside",
            outside,
        ] + ["a+b", "-a", ".upload-a", "./link", "link%00", "%0d%0aX:+y", "x" * 5000, "*"]:
            for way in ("file", "picture"):
                answer = self.server.curl(f"/upload?{way}={name}")
                self.assertEqual(404, answer.status, name)
                page = Page(answer.body)
                self.assertEqual(["There is no such file."], page.texts("p", role="alert"))
                self.assertNotIn(b"secret", answer.body)

    def test_no_file_replaces_another(self):
        for number in (b"1", b"2", b"3"):
            self.upload_body(multipart(("a.txt", number)))
        self.assertEqual({"a.txt": b"1", "2-a.txt": b"2", "3-a.txt": b"3"}, self.stored_files())

    def test_planted_link_is_not_followed(self):
        outside = self.server.path("outside")
        os.symlink(outside, os.path.join(self.folder, "a.txt"))
        self.upload_body(multipart(("a.txt", b"1")))
        self.assertFalse(os.path.exists(outside))
        os.remove(os.path.join(self.folder, "a.txt"))
        self.assertEqual({"2-a.txt": b"1"}, self.stored_files())

    def test_concurrent_uploads_are_all_kept(self):
        def store(number):
            body = multipart(("same.bin", b"%d" % number * 5000))
            answer = self.server.ask("/upload", body, content_type=MULTIPART)
            self.assertEqual(200, answer.status)
            return answer.body.count(b"<li")

        with concurrent.futures.ThreadPoolExecutor(8) as clients:
            self.assertEqual([1] * 40, list(clients.map(store, range(40))))
        self.assertEqual(
            sorted(b"%d" % number * 5000 for number in range(40)),
            sorted(self.stored_files().values()),
        )

    def test_form_without_files_stores_nothing(self):
        nothing = ([], ["No file was sent."])
        self.assertEqual(nothing, self.upload("-F", "file=text"))
        self.assertEqual(nothing, self.upload("-F", "file=;filename="))
        self.assertEqual(nothing, self.upload("-d", "file=text"))
        self.assertEqual({}, self.stored_files())

    def test_file_without_a_type_is_kept(self):
        whole = multipart(("a.txt", b"1"))
        untyped = b'--XYZ\r\nContent-Disposition: form-data; name="file"; filename="f"\r\n\r\n2\r\n'
        body = whole.removesuffix(b"--XYZ--\r\n") + untyped + multipart(("b.txt", b"3"))
        items, _ = self.upload_body(body)
        self.assertEqual("f: saved as f, 1 bytes", items[1])
        self.assertEqual({"a.txt": b"1", "f": b"2", "b.txt": b"3"}, self.stored_files())


class RefusedUploads(UploadCase):
    """Forms of which nothing is saved. The log has the reason."""

    def refuse(self, status, text, body, kind=MULTIPART):
        page = Page(self.send(body, kind, status).body)
        (problem,) = page.texts("p", role="alert")
        self.assertIn(text, problem)
        self.assertEqual({}, self.stored_files())
        self.lines += 1
        self.assertRegex(self.server.log(), r"\A(cannot read the form: .+\n){%d}\Z" % self.lines)

    def test_are_answered_with_a_status_and_logged(self):
        self.lines = 0
        good = multipart(("a.txt", b"1"))
        part = b'--XYZ\r\nContent-Disposition: form-data; name="file"; filename="b"'
        for body in (
            b"text",
            good[:-6],
            good.replace(b"--XYZ--", part + b"\r\nX\r\n\r\n\r\n--XYZ--"),
            good.replace(b"--XYZ--", part + b"\r\n\r\ntext"),
            good.replace(b"--XYZ--", b"--XYZ\r\n\r\nno name\r\n--XYZ--"),
        ):
            self.refuse(400, "did not arrive completely", body)
        self.refuse(400, "did not arrive completely", good, "multipart/form-data")
        self.refuse(415, "cannot read this kind of form", good, "text/plain")
        self.refuse(413, "larger than this page accepts", multipart(*[("a", b"1")] * 21))

    def test_answer_arrives_although_most_of_the_body_is_not_needed(self):
        self.lines = 0
        rest = [("a.bin", bytes(range(256)) * 4000)]
        many = multipart(*[("a", b"1")] * 20, *rest)
        self.refuse(413, "larger than this page accepts", many)
        malformed = multipart(("a", b"1"), *rest).replace(b"\r\n--XYZ\r\n", b"\r\n--XYZ-\r\n")
        self.refuse(400, "did not arrive completely", malformed)
        page = Page(self.send(many, status=403, header="Origin: https://evil.example").body)
        self.assertIn("another site", page.texts("p", role="alert")[0])
        self.assertEqual({}, self.stored_files())

    def test_too_large_a_form_is_refused_before_it_is_read(self):
        variables = {**script.post(MULTIPART, b""), "CONTENT_LENGTH": str((20 << 20) + 1)}
        variables["TARN_UPLOAD_DIR"] = self.folder
        status, _, page, log = script.run(UPLOAD, variables)
        self.assertEqual(413, status)
        self.assertIn(b"larger than this page accepts", page)
        self.assertRegex(log, r"\Acannot read the form: .+\n\Z")


class StreamedUpload(Upload):
    """The same when the script starts before its body has arrived."""

    OPTIONS = "server.stream-request-body = 2"


class UploadAlone(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def run_script(self, variables, body=b"", **limits):
        variables = {"TARN_UPLOAD_DIR": self.folder, **variables}
        return script.run(UPLOAD, variables, body, **limits)

    def test_truncated_body_is_refused_at_any_length(self):
        body = multipart(("a.txt", b"0123456789"), ("b.txt", b"0123456789"))
        for length in range(len(body)):
            variables = script.post(MULTIPART, body)
            status, _, page, log = self.run_script(variables, body[:length])
            self.assertEqual(400, status, body[:length])
            self.assertIn(b"did not arrive completely", page)
            self.assertRegex(log, r"\Acannot read the form: .+\n\Z")
        self.assertEqual([], os.listdir(self.folder))

    def test_photo_of_eight_megabytes_is_kept_byte_for_byte(self):
        photo = PNG + random.Random(5).randbytes(8_000_000)
        body = multipart(("lake.png", photo))
        status, _, page, _ = self.run_script(script.post(MULTIPART, body), body)
        self.assertEqual(200, status)
        self.assertEqual(["lake.png: saved as lake.png, 8000008 bytes"], Page(page).texts("li"))
        self.assertTrue({"lake.png": photo} == stored_files(self.folder))

    def test_full_disk_leaves_no_partial_file(self):
        body = multipart(("a.bin", b"a" * 5000), ("b.bin", b"b" * 100))
        status, _, page, log = self.run_script(
            script.post(MULTIPART, body), body, largest_file=1000
        )
        self.assertEqual(500, status)
        self.assertEqual(
            ["a.bin: not saved", "b.bin: saved as b.bin, 100 bytes"], Page(page).texts("li")
        )
        self.assertEqual({"b.bin": b"b" * 100}, stored_files(self.folder))
        self.assertIn("File too large", log)

    def test_missing_folder_is_reported(self):
        for folder in ("", self.folder + "/none"):
            status, _, page, _ = self.run_script({"TARN_UPLOAD_DIR": folder})
            self.assertEqual(500, status)
            self.assertIn("TARN_UPLOAD_DIR", Page(page).texts("p", role="alert")[0])
            self.assertEqual([], Page(page).texts("table"))

    def test_head_has_no_body(self):
        status, head, page, _ = self.run_script({"REQUEST_METHOD": "HEAD"})
        self.assertEqual((200, b""), (status, page))
        self.assertEqual("Content-Type: text/html; charset=utf-8", head[-1])
        with open(os.path.join(self.folder, "a.txt"), "wb") as file:
            file.write(b"123")
        variables = {"REQUEST_METHOD": "HEAD", "QUERY_STRING": "file=a.txt"}
        status, head, body, _ = self.run_script(variables)
        self.assertEqual((200, b""), (status, body))
        self.assertEqual("Content-Length: 3", head[-1])


if __name__ == "__main__":
    unittest.main()
