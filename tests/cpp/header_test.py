"""What tarn.hpp asks of compilers, and of the script that includes it.

CC and CXX are compilers with their flags, SOURCE the repository, LIBRARY the shared library.
"""

import concurrent.futures
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["SOURCE"])
HEADER = SOURCE / "include/tarn.hpp"
REFUSED = sorted((SOURCE / "tests/cpp/refused").glob("*.cpp"))
# A script that asks for views and nothing else.
SCRIPT = SOURCE / "bench/process/script.cpp"

LIBRARY = os.environ["LIBRARY"]
CC = shlex.split(os.environ["CC"])
CXX = shlex.split(os.environ["CXX"])
WARNINGS = "-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror".split()
WITHOUT_RUNTIME = ["-fno-exceptions", "-fno-rtti"]


def run(*command):
    return subprocess.run(
        [str(word) for word in command],
        env={**os.environ, "LC_ALL": "C"},
        text=True,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        check=False,
    )


def compilers():
    yield CXX
    yield from ([name] for name in ("clang++", "clang++-16") if shutil.which(name))


def complaint(path, folder):
    """What is wrong with how the compiler takes a file of refused/; None when nothing is.

    Its first line says what the compiler's message has in it, and the message has to be about the
    lines between #ifdef REFUSED and #else. Without REFUSED the file compiles.
    """
    lines = path.read_text(encoding="utf-8").splitlines()
    message = lines[0].removeprefix("// Refused: ")
    wrong = range(lines.index("#ifdef REFUSED") + 2, lines.index("#else") + 1)
    command = [*CXX, "-std=c++17", *WARNINGS, "-fsyntax-only", f"-I{folder}", f"-I{HEADER.parent}"]
    right = run(*command, path)
    if right.returncode != 0:
        return f"without REFUSED, it does not compile:\n{right.stdout}"
    refused = run(*command, "-DREFUSED", path)
    if refused.returncode == 0:
        return "with REFUSED, it compiles"
    if not re.search(message, refused.stdout):
        return f"no message has '{message}' in it:\n{refused.stdout}"
    found = {int(line) for line in re.findall(rf"{path.name}:(\d+):", refused.stdout)}
    if not found or not found <= set(wrong):
        return f"the message is not about lines {list(wrong)}:\n{refused.stdout}"
    return None


class Header(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def succeeds(self, *command):
        done = run(*command)
        self.assertEqual(0, done.returncode, f"{command}\n{done.stdout}")
        return done.stdout

    def test_compiles_alone_without_a_warning(self):
        alone = self.folder / "alone.cpp"
        alone.write_text("#include <tarn.hpp>\n", encoding="utf-8")
        for compiler in compilers():
            for standard in ("c++17", "c++20"):
                for runtime in ([], WITHOUT_RUNTIME):
                    flags = [f"-std={standard}", *WARNINGS, *runtime, f"-I{HEADER.parent}"]
                    with self.subTest(compiler=compiler, flags=flags):
                        self.succeeds(*compiler, *flags, "-fsyntax-only", alone)

    def test_gives_ranges_that_standard_algorithms_take(self):
        ranges = self.folder / "ranges.cpp"
        ranges.write_text(
            """
            #include <ranges>
            #include <tarn.hpp>
            static_assert(std::ranges::random_access_range<tarn::Entries>);
            static_assert(std::ranges::sized_range<tarn::Files>);
            static_assert(std::ranges::random_access_range<tarn::Cookies>);
            static_assert(std::ranges::random_access_range<tarn::Lines>);
            static_assert(std::ranges::random_access_range<const tarn::ElementList>);
            static_assert(std::ranges::forward_range<tarn::Values>);
            """,
            encoding="utf-8",
        )
        self.succeeds(*CXX, "-std=c++20", f"-I{HEADER.parent}", "-fsyntax-only", ranges)

    def test_may_be_included_by_every_file_of_a_program(self):
        one = self.folder / "one.cpp"
        one.write_text(
            """
            #include <tarn.hpp>
            tarn::Element one() { return tarn::Element("p", tarn::Raw("x")); }
            """,
            encoding="utf-8",
        )
        other = self.folder / "other.cpp"
        other.write_text(
            """
            #include <tarn.hpp>
            tarn::Element one();
            int main() { return tarn::Element("p", tarn::Raw("x"), one()) ? 0 : 1; }
            """,
            encoding="utf-8",
        )
        flags = ["-std=c++17", *WARNINGS, f"-I{HEADER.parent}"]
        self.succeeds(*CXX, *flags, one, other, LIBRARY, "-o", self.folder / "program")

    def test_needs_no_runtime_for_views(self):
        # Fortified functions need an optimizer.
        for level in (["-O0", "-U_FORTIFY_SOURCE"], ["-O2"]):
            with self.subTest(level):
                compiled = self.folder / "script.o"
                flags = ["-std=c++17", *WARNINGS, "-fno-exceptions", *level]
                self.succeeds(*CXX, *flags, f"-I{HEADER.parent}", "-c", SCRIPT, "-o", compiled)
                # As the linker knows them; a name of C++ begins with "_Z", and __cxa_, __gxx_ and
                # _Unwind_ are its exceptions'.
                undefined = self.succeeds("nm", "-u", compiled).split()
                self.assertIn("Tarn_new", undefined)
                self.assertEqual([], [n for n in undefined if re.match("_Z|__cxa|__gxx|_Unw", n)])
                program = self.folder / "script"
                self.succeeds(*CC, "-Wl,--no-as-needed", compiled, LIBRARY, "-o", program)
                listed = self.succeeds("readelf", "-d", program)
                needed = re.findall(r"\(NEEDED\).*\[(.*)\]", listed)
                self.assertEqual(["libtarn.so.1", "libc.so.6"], needed)

    def test_refuses_wrong_use(self):
        self.assertTrue(REFUSED)
        # Compiled once for all files, where the compiler looks first.
        made = self.folder / "tarn.hpp.gch"
        self.succeeds(*CXX, "-std=c++17", *WARNINGS, "-x", "c++-header", HEADER, "-o", made)
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            complaints = pool.map(lambda path: complaint(path, self.folder), REFUSED)
        for path, text in zip(REFUSED, complaints):
            with self.subTest(path.stem):
                self.assertIsNone(text, text)


if __name__ == "__main__":
    unittest.main()
