#!/usr/bin/env python3
"""tarn-cc compiles the README's scripts into static programs, and says what it cannot do."""

import os
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["SOURCE"])
BUILD = os.environ["BUILD"]
CMAKE = os.environ["CMAKE"]
PROGRAMS = re.findall(r"^```(?:c|cpp)\n(.*?)^```", (SOURCE / "README.md").read_text(), re.M | re.S)
GREET = next(text for text in PROGRAMS if "<tarn_form.h>" in text)
WELCOME = next(text for text in PROGRAMS if "<tarn.hpp>" in text)


class TarnCc(unittest.TestCase):
    folder: Path
    installed: Path

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        # Installed elsewhere, it finds its headers and libraries beside itself.
        cls.installed = cls.folder / "installed"
        subprocess.run(
            [CMAKE, "--install", BUILD, "--prefix", cls.installed],
            check=True,
            capture_output=True,
            env=os.environ | {"DESTDIR": ""},
        )

    def tarn_cc(self, *arguments):
        return subprocess.run(
            [self.installed / "bin/tarn-cc", *arguments],
            cwd=self.folder,
            capture_output=True,
            text=True,
        )

    def compiled(self, name, text, *options):
        (self.folder / name).write_text(text)
        program = self.folder / Path(name).stem
        done = self.tarn_cc(*options, "-Wall", "-Wextra", "-Werror", name, "-o", program.name)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return program

    def printed(self, program, query):
        done = subprocess.run(
            [program], env={"QUERY_STRING": query}, capture_output=True, check=True, text=True
        )
        return done.stdout

    def refused(self, name, text, *options):
        (self.folder / name).write_text(text)
        done = self.tarn_cc(*options, name, "-o", "refused")
        self.assertNotEqual(done.returncode, 0)
        self.assertFalse((self.folder / "refused").exists())
        return done.stderr

    def test_a_script_in_c_is_small_and_static(self):
        program = self.compiled("greet.c", GREET, "-std=c99")
        self.assertIn("<p>Hello, A&#38;B, how do", self.printed(program, "name=A%26B&polite=on"))
        self.assertLessEqual(program.stat().st_size, 80000)
        segments = subprocess.run(
            ["readelf", "-lW", program], capture_output=True, check=True, text=True
        )
        self.assertNotIn("INTERP", segments.stdout)
        self.assertNotIn("DYNAMIC", segments.stdout)
        self.assertRegex(segments.stdout, r"GNU_STACK .* RW ")

    def test_a_script_in_cpp_needs_no_runtime(self):
        program = self.compiled("welcome.cpp", WELCOME)
        self.assertIn("Hello, &lt;b&gt;!", self.printed(program, "name=<b>"))

    def test_static_pie_is_loaded_anywhere(self):
        program = self.compiled("greet.c", GREET, "-static-pie")
        self.assertIn("<p>Hello, Ada!</p>", self.printed(program, "name=Ada"))
        head = subprocess.run(["readelf", "-hW", program], capture_output=True, text=True)
        self.assertRegex(head.stdout, r"Type: +DYN")

    def test_debugging_information_stays_with_g(self):
        program = self.compiled("greet.c", GREET, "-g")
        symbols = subprocess.run(["nm", program], capture_output=True, check=True, text=True)
        self.assertIn(" T main\n", symbols.stdout)

    def test_objects_are_linked_later(self):
        (self.folder / "welcome.cpp").write_text(WELCOME)
        for arguments in (["-c", "welcome.cpp"], ["welcome.o", "-o", "later"]):
            done = self.tarn_cc(*arguments)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("Hello, Ada!", self.printed(self.folder / "later", "name=Ada"))

    def test_a_missing_runtime_is_named(self):
        for text, name in (
            ("int main() { return *new int(3); }", "operator new(unsigned long)"),
            (
                "#include <string>\nint main(int c, char **v) { return std::string(*v) == v[c]; }",
                "operator",
            ),
            ("int main() { throw 1; }", "exceptions"),
        ):
            with self.subTest(text):
                message = self.refused("runtime.cpp", text, "-O0")
                self.assertRegex(message, r"(?m)^tarn-cc: .*C\+\+ runtime")
                self.assertIn(name, message)
        self.assertIn("-frtti needs a C++ runtime", self.refused("runtime.cpp", "", "-frtti"))

    def test_other_errors_are_the_compilers(self):
        message = self.refused(
            "wrong.c", "int nowhere(void);\nint main(void) { return nowhere(); }\n"
        )
        self.assertIn("undefined reference to `nowhere'", message)
        self.assertNotIn("runtime", message)
        message = self.refused("wrong.c", "int main(void) { return x; }")
        self.assertIn("use of undeclared identifier 'x'", message)
        self.assertNotIn("runtime", message)

    def test_headers_of_glibc_are_not_found(self):
        message = self.refused(
            "other.c", "#include <gnu/libc-version.h>\nint main(void) { return 0; }"
        )
        self.assertIn("'gnu/libc-version.h' file not found", message)

    def test_options(self):
        self.assertRegex(self.tarn_cc("--version").stdout, r"^tarn-cc \d+\.\d+\.\d+\n.*clang")
        self.assertTrue(self.tarn_cc("--help").stdout.startswith("Usage: tarn-cc "))
        self.assertIn("--target=", self.tarn_cc("--print-flags").stdout)
        self.assertEqual(self.tarn_cc().stderr, "tarn-cc: no input file; see tarn-cc --help\n")
        self.assertIn("compile each file", self.tarn_cc("a.c", "b.cpp").stderr)
        done = subprocess.run(
            [self.installed / "bin/tarn-cc", "a.c"],
            env=os.environ | {"TARN_CLANG": "no-such-clang"},
            capture_output=True,
            text=True,
        )
        self.assertEqual(
            done.stderr, "tarn-cc: no-such-clang is not installed: on Debian, install clang\n"
        )


if __name__ == "__main__":
    unittest.main()
