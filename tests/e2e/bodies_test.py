"""What real browsers and programs send arrives byte for byte under every server: pictures, long
texts, any writing system, odd names, hundreds of files, a gigabyte."""

import base64
import filecmp
import html
import json
import os
import random
import struct
import subprocess
import tempfile
import unittest
import zlib
from pathlib import Path
from typing import NamedTuple

import requests
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait

from browser_test import BrowserCase, browser
from firefox import Firefox
from servers import SERVERS, Lighttpd, Server
from servers.server import read, wait_until

RECORD = os.path.join(os.path.dirname(os.path.abspath(__file__)), "record.sh")
GIBIBYTE = 1 << 30


def png(width, height):
    """A picture of noise, not compressed."""

    def chunk(kind, data):
        return (
            struct.pack(">I4s", len(data), kind) + data + struct.pack(">I", zlib.crc32(kind + data))
        )

    noise = random.Random(width)
    rows = b"".join(b"\0" + noise.randbytes(width * 3) for _ in range(height))
    size = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    chunks = chunk(b"IHDR", size) + chunk(b"IDAT", zlib.compress(rows, 0)) + chunk(b"IEND", b"")
    return b"\x89PNG\r\n\x1a\n" + chunks


class Field(NamedTuple):
    """A field as tarn-form prints it, without its type."""

    name: str
    filename: str | None
    data: bytes


PDF = b"%PDF-1.7\r\n%\xe2\xe3\xcf\xd3\r\n1 0 obj\r\nstream\r\n" + random.Random(1).randbytes(50000)
LINES = "\r\n".join(f"Line {number}" for number in range(10000))
SCRIPTS = ("Łódź & Zoë", "Привет, мир", "湖の水", "مرحبا بالعالم", "👩‍🚀 नमस्ते")
TEXTS = [
    Field('say "hi"\r\nto=me; ok', None, b"quoted"),
    Field("lines", None, LINES.encode()),
    *(Field(f"script {text}", None, text.encode()) for text in SCRIPTS),
    Field("empty", None, b""),
]
ON_DISK = [
    Field("files", "lake.png", png(60, 40)),
    Field("files", "paper.pdf", PDF),
    Field("files", "empty.txt", b""),
    Field("files", "Übung \"a\" 'b'; c=d 湖.bin", bytes(range(256)) * 4),
]
# A name that no chooser offers; a page's own code can make it.
ODD = Field("odd", 'a"b\r\nc.txt', b"\r\n--\r\n\0odd\r\n")
NONE = Field("none", "", b"")
MANY = [Field("many", f"{number}.txt", b"%d\r\n" % number * 20) for number in range(200)]
FORM = [*TEXTS, *ON_DISK, NONE, ODD, *MANY]

assert len(LINES.splitlines()) == 10000 and len(SCRIPTS) == 5 and len(MANY) == 200


def encode(fields, boundary):
    """The body as the HTML standard encodes it."""

    def quoted(text):
        return text.replace("\r", "%0D").replace("\n", "%0A").replace('"', "%22")

    parts = []
    for field in fields:
        head = f'--{boundary}\r\nContent-Disposition: form-data; name="{quoted(field.name)}"'
        if field.filename is not None:
            head += (
                f'; filename="{quoted(field.filename)}"\r\nContent-Type: application/octet-stream'
            )
        parts.append(head.encode() + b"\r\n\r\n" + field.data + b"\r\n")
    return b"".join(parts) + f"--{boundary}--\r\n".encode()


def write_files(folder, fields):
    """Writes the files of fields; returns their paths."""
    paths = []
    for number, field in enumerate(fields):
        # Each in a folder of its own, since its name is part of the test.
        path = Path(folder, str(number), field.filename.replace("\r", ""))
        path.parent.mkdir()
        path.write_bytes(field.data)
        paths.append(str(path))
    return paths


class RecordCase(unittest.TestCase):
    """A script under a server writes what tarn-form prints to a file."""

    SERVER: type[Server] = Lighttpd
    maxDiff = 2000

    def setUp(self):
        scripts = {"record": RECORD, "tarn-form": os.environ["TARN_FORM"]}
        self.server = self.enterContext(self.SERVER(scripts, {"RECORD": "data/record"}))
        self.server.make_folder("data")
        self.server.make_folder("data/record.files")
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.addCleanup(lambda: self.assertEqual("", self.server.log()))

    def received(self, lines):
        """The fields that tarn-form printed, if it reached the end of the form."""
        self.assertEqual(b'{"end": true}', lines[-14:].strip(), lines[:2000])
        *fields, _ = [json.loads(line) for line in lines.decode().splitlines()]
        return [
            Field(field["name"], field["filename"], base64.b64decode(field["data"]))
            for field in fields
        ]

    def assert_received(self, expected, lines):
        found = self.received(lines)
        self.assertEqual(
            [(field.name, field.filename, len(field.data)) for field in expected],
            [(field.name, field.filename, len(field.data)) for field in found],
        )
        for sent, arrived in zip(expected, found, strict=True):
            self.assertTrue(sent == arrived, f"{sent.name} has other bytes")


class Programs(RecordCase):
    def test_curl(self):
        def quoted(text):
            return text.replace("\\", "\\\\").replace('"', '\\"')

        arguments = []
        for field in TEXTS:
            path = self.write("text", field.data)
            # curl ends a field's name at its first "=".
            arguments += ["-F", f"{field.name.replace('=', '')}=<{path}"]
        files = [field for field in FORM if field.filename]
        for field, path in zip(files, write_files(self.folder, files), strict=True):
            name = quoted(field.filename)
            arguments += ["-F", f'{field.name}=@"{quoted(path)}";filename="{name}"']
        arguments += ["-F", "none=;filename="]
        answer = subprocess.check_output(
            [os.environ["CURL"], "-q", "-m100", "-sSgf", "--noproxy", "*", *arguments]
            + [f"{self.server.address()}/tarn-form"]
        )
        texts = [field._replace(name=field.name.replace("=", "")) for field in TEXTS]
        self.assert_received([*texts, *files, NONE], answer)

    def test_wget(self):
        path = self.write("body", encode(FORM, "----of-wget"))
        header = "Content-Type: multipart/form-data; boundary=----of-wget"
        answer = subprocess.check_output(
            [
                "wget",
                "--timeout=100",
                "--tries=1",
                "--no-config",
                "--no-proxy",
                "-qO-",
                f"--post-file={path}",
            ]
            + [f"--header={header}", f"{self.server.address()}/tarn-form"]
        )
        self.assert_received(FORM, answer)

    def test_requests(self):
        files = [field for field in FORM if field.filename is not None]
        with requests.Session() as session:
            session.trust_env = False
            answer = session.post(
                f"{self.server.address()}/tarn-form",
                data=[(field.name, field.data) for field in TEXTS],
                files=[(field.name, (field.filename, field.data)) for field in files],
                timeout=100,
            )
        self.assertEqual(200, answer.status_code)
        self.assert_received([*TEXTS, *files], answer.content)

    def test_requests_sends_texts_without_files_as_url_encoded(self):
        with requests.Session() as session:
            session.trust_env = False
            answer = session.post(
                f"{self.server.address()}/tarn-form",
                data=[(field.name, field.data) for field in TEXTS],
                timeout=100,
            )
        self.assertIn("x-www-form-urlencoded", answer.request.headers["Content-Type"])
        self.assertEqual(200, answer.status_code, answer.content)
        self.assert_received(TEXTS, answer.content)

    def test_answer_to_a_malformed_form_arrives(self):
        body = encode([Field("a", None, b"1"), Field("b", "b", b"b" * 1_000_000)], "XYZ")
        path = self.write("body", body.replace(b"1\r\n--XYZ\r\n", b"1\r\n--XYZ-\r\n"))
        answer = subprocess.check_output(
            [
                os.environ["CURL"],
                "-q",
                "-m100",
                "-sSf",
                "--noproxy",
                "*",
                "--data-binary",
                f"@{path}",
            ]
            + ["-H", "Content-Type: multipart/form-data; boundary=XYZ", "-H", "Expect:"]
            + [f"{self.server.address()}/tarn-form"]
        )
        self.assertEqual("malformed", json.loads(answer.splitlines()[-1])["error"])

    def write(self, name, data):
        folder = tempfile.mkdtemp(dir=self.folder, prefix=name)
        Path(folder, name).write_bytes(data)
        return os.path.join(folder, name)


class ProgramsUnderApache(Programs):
    SERVER = SERVERS["apache"]


class ProgramsUnderNginx(Programs):
    SERVER = SERVERS["nginx"]


class ProgramsUnderBusybox(Programs):
    SERVER = SERVERS["busybox"]


def page():
    """A page with the form. Browsers fill in the files and the long text."""
    controls = []
    for field in TEXTS:
        name, value = html.escape(field.name), html.escape(field.data.decode())
        if field.name == "lines":
            controls.append(f'<textarea name="{name}"></textarea>')
        else:
            controls.append(f'<input name="{name}" value="{value}">')
    for name in ("files", "none", "odd", "many"):
        controls.append(f'<input type="file" name="{name}" multiple>')
    return (
        '<!DOCTYPE html>\n<html lang="en"><meta charset="utf-8"><title>Form</title>'
        '<form method="post" action="cgi-bin/record" enctype="multipart/form-data">'
        + "\n".join(controls)
        + "<button>Send</button></form></html>\n"
    )


FILL = """
document.querySelector('[name=lines]').value = arguments[0];
const odd = new DataTransfer();
odd.items.add(new File([Uint8Array.from(arguments[2])], arguments[1]));
document.querySelector('[name=odd]').files = odd.files;
"""


class Chromium:
    """The Chromium of the other tests, with the methods of Firefox."""

    def __init__(self):
        self.driver, _ = browser()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.driver.get("about:blank")

    def visit(self, address):
        self.driver.get(address)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def choose(self, selector, paths):
        self.driver.find_element(By.CSS_SELECTOR, selector).send_keys("\n".join(paths))

    def click(self, selector):
        self.driver.find_element(By.CSS_SELECTOR, selector).click()


class Browsers(RecordCase):
    def setUp(self):
        super().setUp()
        Path(self.server.path("www/index.html")).write_text(page(), encoding="utf-8", newline="")
        disk, many = (Path(self.folder, name) for name in ("disk", "many"))
        disk.mkdir()
        many.mkdir()
        self.on_disk, self.many = write_files(disk, ON_DISK), write_files(many, MANY)

    def check(self, agent):
        with agent:
            agent.visit(self.server.address().removesuffix("/cgi-bin"))
            agent.run(FILL, LINES.replace("\r\n", "\n"), ODD.filename, list(ODD.data))
            agent.choose("[name=files]", self.on_disk)
            agent.choose("[name=many]", self.many)
            agent.click("button")
            answer = []

            def answered():
                answer[:] = [agent.run("return document.body ? document.body.textContent : ''")]
                return answer[0].strip() in ("whole", "broken")

            wait_until(answered, "the browser shows no answer")
            self.assertEqual("whole", answer[0].strip())
        self.assert_received(FORM, read(self.server.path("data/record")))

    def test_chromium(self):
        self.check(Chromium())

    def test_firefox(self):
        self.check(Firefox())


class Photo(BrowserCase):
    """A photo of 8 MB from the browser's file chooser, to the example upload."""

    WIDTH, HEIGHT = 2000, 1334

    def check(self):
        photo = png(self.WIDTH, self.HEIGHT)
        self.assertGreater(len(photo), 8_000_000)
        self.visit("upload")
        self.find("[name=file]").send_keys(self.write_file("lake.png", photo))
        self.find("button").click()
        self.wait_for("#answer img")
        picture = self.find("#answer img")
        WebDriverWait(self.browser, 60).until(lambda _: picture.get_property("complete"))
        shown = picture.get_property("naturalWidth"), picture.get_property("naturalHeight")
        self.assertEqual((self.WIDTH, self.HEIGHT), shown)
        said = f"lake.png: saved as lake.png, {len(photo)} bytes"
        self.assertEqual([said], self.texts("#answer li"))
        self.assertTrue({"lake.png": photo} == self.stored_files())

    def test_is_stored_byte_for_byte_and_shown(self):
        self.check()
        self.take_screenshot(f"upload-photo-{self.SERVER.NAME}")


class PhotoUnderApache(Photo):
    SERVER = SERVERS["apache"]


class PhotoUnderNginx(Photo):
    SERVER = SERVERS["nginx"]


class PhotoUnderBusybox(Photo):
    SERVER = SERVERS["busybox"]


class PhotoWithoutJavaScript(Photo):
    def setUp(self):
        super().setUp()
        self.allow_scripts(False)


class Gibibyte(RecordCase):
    """busybox httpd has no limit on the size of a body."""

    SERVER = SERVERS["busybox"]

    def test_from_curl_is_saved_byte_for_byte(self):
        source = os.path.join(self.folder, "large.bin")
        noise = random.Random(3)
        with open(source, "wb") as file:
            file.truncate(GIBIBYTE)
            # Between holes, bytes of every kind, at odd places.
            for begin in range(0, GIBIBYTE - (1 << 20), 1 << 20):
                file.seek(begin + noise.randrange(1 << 19))
                file.write(noise.randbytes(3000) + b"\r\n--" + noise.randbytes(30))
        answer = subprocess.check_output(
            [os.environ["CURL"], "-q", "-m100", "-sSf", "--noproxy", "*", "-F", f"file=@{source}"]
            + [f"{self.server.address()}/record?save"]
        )
        self.assertEqual(b"whole", answer.strip())
        saved = self.server.path("data/record.files/large.bin")
        self.assertEqual(GIBIBYTE, os.path.getsize(saved))
        self.assertTrue(filecmp.cmp(source, saved, shallow=False))


if __name__ == "__main__":
    unittest.main()
