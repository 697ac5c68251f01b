"""What tarn.hpp asks of compilers, and of the script that includes it.

CC and CXX are compilers with their flags, SOURCE the repository, LIBRARY the shared library.
"""

import concurrent.futures
import itertools
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["SOURCE"])
INCLUDE = SOURCE / "include"
HEADER = INCLUDE / "tarn.hpp"
PARTS = sorted((INCLUDE / "tarn").glob("*.hpp"))
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
    """CXX, and clang++ when it is installed and not CXX."""
    found = {os.path.realpath(shutil.which(CXX[0])): CXX}
    for name in ("clang++", "clang++-16"):
        path = shutil.which(name)
        if path:
            found.setdefault(os.path.realpath(path), [name])
    return list(found.values())


def complaint(path, folder):
    """What is wrong with how the compiler takes a file of refused/; None when nothing is.

    Its first line says what the compiler's message has in it, and the message has to be about the
    lines between #ifdef REFUSED and #else. Without REFUSED the file compiles.
    """
    lines = path.read_text(encoding="utf-8").splitlines()
    message = lines[0].removeprefix("// Refused: ")
    wrong = range(lines.index("#ifdef REFUSED") + 2, lines.index("#else") + 1)
    command = [*CXX, "-std=c++17", *WARNINGS, "-fsyntax-only", f"-I{folder}", f"-I{INCLUDE}"]
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

    def test_each_header_compiles_alone_without_a_warning(self):
        self.assertGreater(len(PARTS), 10)
        modes = [
            [f"-std={standard}", *runtime]
            for standard, runtime in itertools.product(("c++17", "c++20"), ([], WITHOUT_RUNTIME))
        ]
        commands = []
        for header in [HEADER, *PARTS]:
            name = header.relative_to(INCLUDE)
            alone = self.folder / f"{header.stem}_alone.cpp"
            alone.write_text(f"#include <{name}>\n#include <{name}>\n", encoding="utf-8")
            for compiler, mode in itertools.product(compilers(), modes):
                # The umbrella shows what the other modes have against any of the others.
                if header == HEADER or mode in (modes[0], modes[-1]):
                    flags = [*mode, *WARNINGS, f"-I{INCLUDE}", "-fsyntax-only"]
                    commands.append([*compiler, *flags, alone])
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for command, done in zip(commands, pool.map(lambda words: run(*words), commands)):
                with self.subTest(command):
                    self.assertEqual(0, done.returncode, done.stdout)

    def test_the_umbrella_includes_every_other_header_once(self):
        included = re.findall(r'(?m)^#include "(.*?)"', HEADER.read_text(encoding="utf-8"))
        parts = [str(part.relative_to(INCLUDE)) for part in PARTS]
        self.assertEqual(parts, sorted(included))

    def test_a_header_before_c_plus_plus_17_asks_for_it(self):
        old = self.folder / "old.cpp"
        for header in [HEADER, *PARTS]:
            name = str(header.relative_to(INCLUDE))
            if name == "tarn/characters.hpp":  # no script includes it by itself
                continue
            old.write_text(f"#include <{name}>\n", encoding="utf-8")
            done = run(*CXX, "-std=c++14", f"-I{INCLUDE}", "-fsyntax-only", old)
            with self.subTest(name):
                self.assertNotEqual(0, done.returncode)
                self.assertIn("-std=c++17", done.stdout)

    def test_a_script_that_reads_fields_includes_nothing_for_responses_and_files(self):
        script = self.folder / "fields.cpp"
        script.write_text("#include <tarn/request.hpp>\n", encoding="utf-8")
        flags = ["-std=c++17", f"-I{INCLUDE}"]
        listed = self.succeeds(*CXX, *flags, "-M", script)
        included = {pathlib.Path(name).name for name in listed.split()}
        self.assertTrue({"request.hpp", "form.hpp", "tarn.h"} <= included, included)
        unwanted = {"html.hpp", "response.hpp", "file.hpp", "fcntl.h", "unistd.h", "ctime"}
        self.assertFalse(unwanted & included)

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
        self.succeeds(*CXX, "-std=c++20", f"-I{INCLUDE}", "-fsyntax-only", ranges)

    def test_files_of_one_program_may_include_different_headers(self):
        files = {
            "one": """
                #include <tarn/element.hpp>
                #include <tarn/request.hpp>
                tarn::Element one(const tarn::Request &request) {
                  return tarn::Element("p", request["name"].value_or("stranger"));
                }
                """,
            "another": """
                #include <tarn/file.hpp>
                #include <tarn/string.hpp>
                std::size_t another(const tarn::Request &request) {
                  return request.files().size() + (request.file("x") ? 1 : 0) +
                         tarn::String("x").size();
                }
                """,
            "main": """
                #include <tarn.hpp>
                tarn::Element one(const tarn::Request &request);
                std::size_t another(const tarn::Request &request);
                int main() {
                  const tarn::Request request;
                  const tarn::Text page = tarn::html(tarn::Element("main", one(request)));
                  if (another(request) != 1) return 2;
                  return page.view() == "<main><p>stranger</p></main>" ? 0 : 1;
                }
                """,
        }
        for name, text in files.items():
            (self.folder / f"{name}.cpp").write_text(text, encoding="utf-8")
        sources = [self.folder / f"{name}.cpp" for name in files]
        flags = ["-std=c++17", *WARNINGS, f"-I{INCLUDE}"]
        program = self.folder / "program"
        self.succeeds(*CXX, *flags, *sources, LIBRARY, "-o", program)
        self.succeeds("env", f"LD_LIBRARY_PATH={pathlib.Path(LIBRARY).parent}", program)

    def test_needs_no_runtime_for_views(self):
        # Fortified functions need an optimizer.
        for level in (["-O0", "-U_FORTIFY_SOURCE"], ["-O2"]):
            with self.subTest(level):
                compiled = self.folder / "script.o"
                flags = ["-std=c++17", *WARNINGS, "-fno-exceptions", *level]
                self.succeeds(*CXX, *flags, f"-I{INCLUDE}", "-c", SCRIPT, "-o", compiled)
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
