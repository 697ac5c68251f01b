"""scripts/verify-release finds everything that it looks for, and names the file.

The packages here are small, with the libraries and programs of the build in the folder BUILD.
"""

import gzip
import importlib.machinery
import importlib.util
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path
from typing import Any

SOURCE = Path(__file__).resolve().parent.parent
BUILD = Path(os.environ["BUILD"])
VERSION = (SOURCE / "VERSION").read_text(encoding="utf-8").split()[0]
LIB = "usr/lib/x86_64-linux-gnu"
MUSL = "usr/lib/x86_64-linux-musl"
HTML = "usr/share/doc/tarn/html"
SITE = f"tarn-doc_{VERSION}-1_all.deb"
PAGE = f'<title>{{}}Tarn {VERSION}</title><p id="top"><a href="{{}}">There</a>'


def built(path: str) -> bytes:
    return (BUILD / path).read_bytes()


def compressed(path: str) -> bytes:
    return gzip.compress(built(path), mtime=0)


def configured(path: str) -> bytes:
    text = (SOURCE / path).read_text(encoding="utf-8")
    return re.sub("@(TARN_RELEASE|PROJECT_VERSION)@", VERSION, text).encode()


def contents() -> dict[str, dict[str, Any]]:
    """The files of each package; a text is the target of a symbolic link."""
    debian = SOURCE / "packaging" / "debian"
    development: dict[str, Any] = {
        f"{LIB}/pkgconfig/{name}.pc": built(f"{name}.pc")
        for name in ("tarn", "tarn-form", "tarn-serve")
    }
    development |= {
        f"{LIB}/cmake/tarn/tarn-config-version.cmake": built("tarn-config-version.cmake"),
        "usr/share/man/man3/tarn.3.gz": compressed("docs/man/man3/tarn.3"),
        "usr/share/man/man3/alias.3.gz": gzip.compress(b".so man3/tarn.3\n"),
    }
    # This build has no libraries for musl. Its own have the same names in them.
    static: dict[str, Any] = {
        "usr/bin/tarn-cc": configured("tools/tarn-cc.in"),
        "usr/share/man/man1/tarn-cc.1.gz": gzip.compress(configured("tools/tarn-cc.1"), mtime=0),
    }
    packages: dict[str, dict[str, Any]] = {"libtarn-dev": development, "libtarn-musl-dev": static}
    for name in ("libtarn", "libtarn_form", "libtarn_serve"):
        file = f"{name}.so.{VERSION}"
        packages[f"{name.replace('_', '-')}1"] = {
            f"{LIB}/{file}": built(file),
            f"{LIB}/{name}.so.1": file,
        }
        development |= {f"{LIB}/{name}.a": built(f"{name}.a"), f"{LIB}/{name}.so": f"{name}.so.1"}
        static[f"{MUSL}/{name}.a"] = built(f"{name}.a")
    packages["tarn-tools"] = {
        "usr/bin/tarn-form": built("tools/tarn-form"),
        "usr/bin/tarn-run": built("tools/tarn-run"),
        "usr/share/man/man1/tarn-form.1.gz": compressed("tools/tarn-form.1"),
    }
    packages["tarn-serve"] = {
        "usr/bin/tarn-serve": built("tools/tarn-serve"),
        "usr/share/man/man1/tarn-serve.1.gz": compressed("tools/tarn-serve.1"),
    }
    packages["tarn-doc"] = {
        f"{HTML}/index.html": PAGE.format("", "c/index.html#top").encode(),
        f"{HTML}/c/index.html": PAGE.format("C - ", "../_static/site.css").encode(),
        f"{HTML}/_static/site.css": b"p {}",
    }
    for name, files in packages.items():
        own = debian / f"{name}.copyright"
        copyright_ = own if own.exists() else debian / "copyright"
        files[f"usr/share/doc/{name}/copyright"] = copyright_.read_bytes()
    return packages


LOADER = importlib.machinery.SourceFileLoader(
    "verify_release", str(SOURCE / "scripts" / "verify-release")
)
verify_release = importlib.util.module_from_spec(
    importlib.util.spec_from_loader("verify_release", LOADER)
)
LOADER.exec_module(verify_release)


class Case(unittest.TestCase):
    """Each test has a copy of the packages to change, and one of the source."""

    shared: Path
    source: Path

    @classmethod
    def setUpClass(cls):
        """The first class makes what all share."""
        if hasattr(Case, "source"):
            return
        Case.shared = Path(unittest.enterModuleContext(tempfile.TemporaryDirectory()))
        Case.source = cls.shared / "source"
        ignored = shutil.ignore_patterns("build", ".*", "__pycache__")
        shutil.copytree(SOURCE, cls.source, ignore=ignored, symlinks=True)
        made = cls()
        made.packages = cls.shared / "packages"
        made.packages.mkdir()
        made.contents = contents()
        for name in made.contents:
            made.pack(name)
        (made.packages / f"tarn_{VERSION}.orig.tar.gz").write_bytes(b"the source")
        made.write_sbom()

    def setUp(self):
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.packages = self.folder / "packages"
        shutil.copytree(self.shared / "packages", self.packages)
        self.contents = contents()
        self.sbom = self.packages / f"tarn_{VERSION}.spdx.json"

    def run_script(self, *arguments):
        script = self.source / "scripts" / "verify-release"
        return subprocess.run([script, *arguments], capture_output=True, text=True, check=False)

    def pack(self, name, version=f"{VERSION}-1"):
        architecture = "all" if name == "tarn-doc" else "amd64"
        with tempfile.TemporaryDirectory() as root:
            for path, content in self.contents[name].items():
                file = Path(root, path)
                file.parent.mkdir(parents=True, exist_ok=True)
                if isinstance(content, str):
                    file.symlink_to(content)
                else:
                    file.write_bytes(content)
            control = Path(root, "DEBIAN", "control")
            control.parent.mkdir(mode=0o755)
            control.write_text(
                f"Package: {name}\nVersion: {version}\nArchitecture: {architecture}\n"
                "Maintainer: The Tarn developers <tarn@example.org>\n"
                "Depends: libc6 (>= 2.36), curl | wget\nDescription: a package\n of a test\n"
            )
            file = self.packages / f"{name}_{VERSION}-1_{architecture}.deb"
            command = ["dpkg-deb", "--build", "--root-owner-group", "-Znone", root, str(file)]
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL)

    def change(self, package, path, old, new):
        """Replaces a text of a file in a package, once."""
        content = self.contents[package][path]
        plain = gzip.decompress(content) if path.endswith(".gz") else content
        self.assertIn(old, plain, path)
        plain = plain.replace(old, new)
        self.contents[package][path] = gzip.compress(plain) if path.endswith(".gz") else plain
        self.pack(package)

    def change_source(self, path, old, new):
        file = self.source / path
        text = file.read_text(encoding="utf-8")
        self.assertIn(old, text, path)
        file.write_text(text.replace(old, new, 1), encoding="utf-8")
        self.addCleanup(file.write_text, text, encoding="utf-8")

    def write_sbom(self):
        done = self.run_script("--sbom", self.packages)
        self.assertEqual((0, "", ""), (done.returncode, done.stdout, done.stderr))

    def refused(self, *sentences, sbom="written again"):
        """The check fails, and prints these parts of sentences and no other ones."""
        if sbom == "written again":
            self.write_sbom()
        done = self.run_script("--check", self.packages)
        lines = done.stderr.splitlines()
        self.assertEqual(1, done.returncode, done.stderr)
        self.assertEqual(len(sentences), len(lines), done.stderr)
        for sentence in sentences:
            found = [line for line in lines if sentence in line]
            self.assertTrue(found, f"no line has: {sentence}\n{done.stderr}")
            self.assertTrue(found[0].startswith("scripts/verify-release: "), found)


class Release(Case):
    def test_passes_if_everything_is_right(self):
        done = self.run_script("--check", self.packages)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.assertIn(f"Tarn {VERSION}: 8 packages with ", done.stdout)

    def test_needs_packages(self):
        empty = self.folder / "empty"
        empty.mkdir()
        for option in ("--check", "--sbom"):
            done = self.run_script(option, empty)
            self.assertEqual(1, done.returncode)
            message = f"scripts/verify-release: there are no packages in {empty}\n"
            self.assertEqual(message, done.stderr)

    def test_refuses_wrong_arguments(self):
        for arguments in (["--sbom"], ["--check"], ["--other"], ["one", "two"]):
            done = self.run_script(*arguments)
            self.assertEqual(1, done.returncode)
            self.assertIn("wrong arguments", done.stderr)


class Versions(Case):
    def test_in_a_file_of_a_package(self):
        right, wrong = VERSION.encode(), b"9.9.9"
        for package, path in (
            ("libtarn-dev", f"{LIB}/pkgconfig/tarn-form.pc"),
            ("libtarn-dev", f"{LIB}/cmake/tarn/tarn-config-version.cmake"),
            ("libtarn-dev", "usr/share/man/man3/tarn.3.gz"),
            ("libtarn-musl-dev", "usr/bin/tarn-cc"),
            ("libtarn-musl-dev", "usr/share/man/man1/tarn-cc.1.gz"),
            ("tarn-tools", "usr/share/man/man1/tarn-form.1.gz"),
            ("tarn-tools", "usr/bin/tarn-run"),
            ("tarn-tools", "usr/bin/tarn-form"),
            ("tarn-serve", "usr/bin/tarn-serve"),
            ("tarn-doc", f"{HTML}/index.html"),
            ("tarn-doc", f"{HTML}/c/index.html"),
        ):
            with self.subTest(path):
                before = self.contents[package][path]
                self.change(package, path, right, wrong)
                self.refused(f"{path} in {package}_{VERSION}-1_")
                self.contents[package][path] = before
                self.pack(package)

    def test_that_no_file_names(self):
        self.change("tarn-doc", f"{HTML}/index.html", f"Tarn {VERSION}".encode(), b"Tarn")
        self.refused(f"{HTML}/index.html in {SITE} does not name the version")
        del self.contents["tarn-doc"][f"{HTML}/index.html"]
        self.pack("tarn-doc")
        self.refused(f"no package has a file {HTML}/index.html")

    def test_of_a_package(self):
        self.pack("tarn-serve", "1.0.1-1")
        self.refused(f"tarn-serve_{VERSION}-1_amd64.deb has version 1.0.1-1, VERSION has {VERSION}")

    def test_in_the_name_of_a_library(self):
        files = self.contents["libtarn1"]
        files[f"{LIB}/libtarn.so.1.9.9"] = files.pop(f"{LIB}/libtarn.so.{VERSION}")
        files[f"{LIB}/libtarn.so.1"] = "libtarn.so.1.9.9"
        self.pack("libtarn1")
        self.refused(
            f"{LIB}/libtarn.so.1.9.9 in libtarn1_{VERSION}-1_amd64.deb has another version"
        )

    def test_in_the_source(self):
        self.change_source("packaging/debian/changelog", f"tarn ({VERSION}-1)", "tarn (9.9.9-1)")
        self.refused("packaging/debian/changelog begins with")

    def test_in_a_list_of_symbols(self):
        self.change_source("packaging/debian/libtarn1.symbols", "TARN_1.1 1.0.0", "TARN_1.1 99.0.0")
        self.refused("packaging/debian/libtarn1.symbols has symbols of 99.0.0")


class Symbols(Case):
    def test_that_a_shared_library_lacks(self):
        path = f"{LIB}/libtarn.so.{VERSION}"
        self.change("libtarn1", path, b"\0Tarn_getFile\0", b"\0Tarn_getFilf\0")
        self.refused(
            f"{path} in libtarn1_{VERSION}-1_amd64.deb does not export Tarn_getFile@@TARN_1.0",
            f"{path} in libtarn1_{VERSION}-1_amd64.deb exports Tarn_getFilf@@TARN_1.0, which "
            "packaging/abi/libtarn.so.1.x86_64.abi does not have",
        )

    def test_that_a_static_library_lacks(self):
        path = f"{LIB}/libtarn_form.a"
        self.change("libtarn-dev", path, b"TarnForm_isWhole", b"TarnForm_isWholf")
        self.refused(
            f"{path} in libtarn-dev_{VERSION}-1_amd64.deb does not define TarnForm_isWhole",
        )

    def test_that_a_library_for_musl_lacks(self):
        path = f"{MUSL}/libtarn_serve.a"
        self.change("libtarn-musl-dev", path, b"tarn_serve_program", b"tarn_serve_progral")
        self.refused(
            f"{path} in libtarn-musl-dev_{VERSION}-1_amd64.deb does not define tarn_serve_program",
        )

    def test_of_a_library_for_musl_that_is_missing(self):
        del self.contents["libtarn-musl-dev"][f"{MUSL}/libtarn_form.a"]
        self.pack("libtarn-musl-dev")
        self.refused("no package has usr/lib/*-linux-musl/libtarn_form.a")

    def test_of_a_library_that_is_missing(self):
        for name in ("libtarn_serve.so.1", f"libtarn_serve.so.{VERSION}"):
            del self.contents["libtarn-serve1"][f"{LIB}/{name}"]
        self.pack("libtarn-serve1")
        self.refused(
            f"no package has libtarn_serve.so.{VERSION}",
            f"{LIB}/libtarn_serve.so in libtarn-dev_{VERSION}-1_amd64.deb is a symbolic link to "
            "libtarn_serve.so.1, which no package has",
        )


class Owners(Case):
    def test_of_a_file_in_two_packages(self):
        self.contents["tarn-tools"]["usr/bin/tarn-cc"] = b"version=" + VERSION.encode() + b"\n"
        self.pack("tarn-tools")
        self.refused(
            f"usr/bin/tarn-cc is in libtarn-musl-dev_{VERSION}-1_amd64.deb and in "
            f"tarn-tools_{VERSION}-1_amd64.deb"
        )


class Links(Case):
    def test_of_a_document_to_a_missing_file(self):
        text = "\n[Nothing](guide/nothing.md) and `[code](is-no-link.md)`\n"
        self.change_source("docs/quirks.md", "\n", text)
        self.refused("docs/quirks.md has a link to guide/nothing.md, which does not exist")

    def test_of_a_document_to_a_missing_heading(self):
        text = "\n[Here](CONTRIBUTING.md#style) and [there](CONTRIBUTING.md#nowhere)\n"
        self.change_source("README.md", "\n", text)
        self.refused("README.md has a link to CONTRIBUTING.md#nowhere, but CONTRIBUTING.md has no")

    def test_of_a_page_to_a_missing_page_or_place(self):
        index = f"{HTML}/index.html"
        for address, new, target in (
            (b"c/index.html", b"c/nothing.html", f"{HTML}/c/nothing.html"),
            (b"#top", b"#nothing", f"{HTML}/c/index.html#nothing"),
        ):
            with self.subTest(target):
                before = self.contents["tarn-doc"][index]
                self.change("tarn-doc", index, address, new)
                self.refused(f"{index} in {SITE} has a link to {target}, which no package has")
                self.contents["tarn-doc"][index] = before

    def test_of_a_page_to_one_that_was_compressed(self):
        files = self.contents["tarn-doc"]
        files[f"{HTML}/c/index.html.gz"] = gzip.compress(files.pop(f"{HTML}/c/index.html"))
        files[f"{HTML}/other/index.html"] = PAGE.format("Other - ", "../c/index.html").encode()
        self.pack("tarn-doc")
        self.refused(
            f"has a link to {HTML}/c/index.html, which no package has, and so have 1 other"
        )

    def test_symbolic_to_a_missing_file(self):
        self.contents["libtarn-dev"][f"{LIB}/libtarn.so"] = "libtarn.so.2"
        self.pack("libtarn-dev")
        self.refused(f"{LIB}/libtarn.so in libtarn-dev_{VERSION}-1_amd64.deb is a symbolic link to")


class Sbom(Case):
    def changed(self, change):
        document = json.loads(self.sbom.read_text(encoding="utf-8"))
        change(document)
        self.sbom.write_text(json.dumps(document), encoding="utf-8")

    def file(self, document, name):
        return next(each for each in document["files"] if each["fileName"].endswith(name))

    def test_has_each_file_with_its_checksums_licence_and_libraries(self):
        document = json.loads(self.sbom.read_text(encoding="utf-8"))
        self.assertEqual("SPDX-2.3", document["spdxVersion"])
        names = {each["fileName"] for each in document["files"]}
        for files in self.contents.values():
            for path, content in files.items():
                self.assertEqual(isinstance(content, bytes), f"./{path}" in names, path)
        with tempfile.TemporaryDirectory() as folder:
            copy = Path(folder, "file")
            copy.write_bytes(self.contents["libtarn1"][f"{LIB}/libtarn.so.{VERSION}"])
            words = subprocess.run(["sha256sum", copy], capture_output=True, text=True, check=True)
        library = self.file(document, f"/libtarn.so.{VERSION}")
        self.assertEqual("MIT", library["licenseConcluded"])
        self.assertEqual(words.stdout.split()[0], library["checksums"][1]["checksumValue"])
        linked = [
            each["relatedSpdxElement"]
            for each in document["relationships"]
            if each["spdxElementId"] == library["SPDXID"]
            and each["relationshipType"] == "DYNAMIC_LINK"
        ]
        named = {each["SPDXID"]: each["name"] for each in document["packages"]}
        self.assertEqual(["libc.so.6"], [named[each] for each in linked])
        self.assertLessEqual({"libc6", "curl", "tarn", "tarn-doc"}, set(named.values()))

    def test_is_the_same_each_time(self):
        before = self.sbom.read_bytes()
        self.write_sbom()
        self.assertEqual(before, self.sbom.read_bytes())

    def test_without_a_file_that_is_shipped(self):
        self.contents["tarn-serve"]["usr/share/tarn/new"] = b"new"
        self.pack("tarn-serve")
        done = self.run_script("--check", self.packages)
        self.assertEqual(1, done.returncode)
        name = f"scripts/verify-release: tarn_{VERSION}.spdx.json: usr/share/tarn/new is shipped or"
        self.assertIn(f"{name} needed, but not in the SBOM\n", done.stderr)

    def test_with_a_file_that_is_not_shipped(self):
        del self.contents["tarn-serve"]["usr/share/man/man1/tarn-serve.1.gz"]
        self.pack("tarn-serve")
        done = self.run_script("--check", self.packages)
        self.assertEqual(1, done.returncode)
        self.assertIn("usr/share/man/man1/tarn-serve.1.gz is in the SBOM, but not", done.stderr)

    def test_of_other_bytes(self):
        self.change("tarn-doc", f"{HTML}/_static/site.css", b"p {}", b"q {}")
        done = self.run_script("--check", self.packages)
        self.assertEqual(1, done.returncode)
        self.assertIn(
            f"{HTML}/_static/site.css has another checksums than in the SBOM", done.stderr
        )

    def test_without_a_library_that_is_needed(self):
        def change(document):
            document["relationships"] = [
                each
                for each in document["relationships"]
                if each["relationshipType"] != "DYNAMIC_LINK"
                or each["spdxElementId"] != self.file(document, "/tarn-form")["SPDXID"]
            ]

        self.changed(change)
        self.refused(
            "the SBOM lacks: usr/bin/tarn-form DYNAMIC_LINK libc.so.6", sbom="as it is changed"
        )

    def test_that_is_missing_or_not_json(self):
        self.sbom.write_text("{", encoding="utf-8")
        self.refused(f"{self.sbom.name} is not JSON", sbom="broken")
        self.sbom.unlink()
        self.refused(f"{self.sbom.name} cannot be read: No such file", sbom="missing")

    def test_that_is_not_valid(self):
        def change(document):
            del document["files"][0]["licenseConcluded"]
            del document["packages"][0]["checksums"]

        self.changed(change)
        self.refused(
            f"{self.sbom.name}: the file ./{LIB}",
            f"{self.sbom.name}: the package libtarn-dev has no valid SHA1",
            f"{self.sbom.name}: the package libtarn-dev has no valid SHA256",
            sbom="as it is changed",
        )
        self.sbom.write_text('{"files": 1}', encoding="utf-8")
        self.refused("it does not have the structure of SPDX", sbom="as it is changed")

    def test_without_what_the_format_requires(self):
        original = self.sbom.read_bytes()
        fields = {
            "document": ("spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace")
            + ("creationInfo", "relationships"),
            "creationInfo": ("created", "creators"),
            "files": ("SPDXID", "fileName", "checksums", "licenseConcluded", "copyrightText")
            + ("licenseInfoInFiles",),
            "packages": ("SPDXID", "name", "downloadLocation", "licenseConcluded")
            + ("licenseDeclared", "copyrightText", "packageVerificationCode", "checksums"),
            "relationships": ("spdxElementId", "relationshipType", "relatedSpdxElement"),
        }
        words = {"checksums": "SHA256", "relationships": "describes no package"}
        for kind, names in fields.items():
            for name in names:
                document = json.loads(original)
                self.assertEqual([], verify_release.faults_of_format(document))
                found = document if kind == "document" else document[kind]
                del (found[0] if isinstance(found, list) else found)[name]
                faults = "\n".join(verify_release.faults_of_format(document))
                self.assertIn(words.get(name, name), faults, f"{kind} {name}")

    def test_with_wrong_values(self):
        original = self.sbom.read_bytes()

        def twice(document):
            document["files"][0]["SPDXID"] = document["files"][1]["SPDXID"]

        def unknown(document):
            document["relationships"][0]["relatedSpdxElement"] = "SPDXRef-unknown"

        def wrong(document):
            document["files"][0]["SPDXID"] = "no identifier"

        def checksum(document):
            document["files"][0]["checksums"][0]["checksumValue"] = "0" * 40

        def kind(document):
            document["relationships"][0]["relationshipType"] = "LIKES"

        def nothing(document):
            document["relationships"] = [
                each
                for each in document["relationships"]
                if each["relationshipType"] != "DESCRIBES"
            ]

        for change, sentence in (
            (twice, "2 elements have the SPDXID"),
            (unknown, "a relationship names SPDXRef-unknown"),
            (wrong, "has no valid SPDXID: 'no identifier'"),
            (checksum, "the package libtarn-dev has no valid packageVerificationCode"),
            (kind, "a relationship has no valid relationshipType: 'LIKES'"),
            (nothing, "the document describes no package"),
        ):
            document = json.loads(original)
            change(document)
            faults = "\n".join(verify_release.faults_of_format(document))
            self.assertIn(sentence, faults, change.__name__)

    def test_of_other_packages(self):
        def change(document):
            document["documentNamespace"] += "0"

        self.changed(change)
        self.refused("another documentNamespace than that of these", sbom="as it is changed")

    def test_needs_to_know_each_licence(self):
        path = "usr/share/doc/tarn-serve/copyright"
        text = self.contents["tarn-serve"][path]
        for changed, sentence in (
            (None, f"tarn-serve_{VERSION}-1_amd64.deb has no {path}"),
            (text.replace(b"Expat", b"Unknown"), "SPDX has no licence Unknown"),
            (text.replace(b"Files: *", b"Files: usr/bin/*"), "has no licence for "),
        ):
            with self.subTest(sentence):
                self.contents["tarn-serve"].pop(path, None)
                if changed:
                    self.contents["tarn-serve"][path] = changed
                self.pack("tarn-serve")
                for option in ("--sbom", "--check"):
                    done = self.run_script(option, self.packages)
                    self.assertEqual(1, done.returncode)
                    self.assertIn(sentence, done.stderr)

    def test_needs_to_know_whose_a_script_of_the_site_is(self):
        self.contents["tarn-doc"][f"{HTML}/_static/theirs.js"] = b"x()"
        self.pack("tarn-doc")
        self.refused(
            f"usr/share/doc/tarn-doc/copyright in {SITE} does not say whose {HTML}/_static/their"
        )


if __name__ == "__main__":
    unittest.main()
