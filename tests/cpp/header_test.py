"""What compilers accept in the C++ headers, and what scripts that include them depend on.

In the environment: CC and CXX, compilers with their flags; SOURCE, the repository; LIBRARY,
FORM_LIBRARY and SERVE_LIBRARY, the shared libraries.
"""

import concurrent.futures
import itertools
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import tomllib
import unittest

SOURCE = pathlib.Path(os.environ["SOURCE"])
INCLUDE = SOURCE / "include"
HEADER = INCLUDE / "tarn.hpp"
ALL = INCLUDE / "tarn/all.hpp"
PARTS = sorted((INCLUDE / "tarn").glob("*.hpp"))
SNIPPETS = tomllib.loads((SOURCE / "tests/cpp/refused.toml").read_text(encoding="utf-8"))["snippet"]
# A compiled tarn.hpp has to come first.
INCLUDES = "#include <tarn.hpp>\n#include <string>\n"
# A script that only uses views.
SCRIPT = SOURCE / "bench/process/script.cpp"

# A script that uses every function of the headers for whole forms.
FORM_SCRIPT = SOURCE / "docs/examples/cpp-form.cpp"

# A script that uses every function for origins.
ORIGIN_SCRIPT = SOURCE / "docs/examples/cpp-origin.cpp"

# A script that uses every function of the header for signing.
SIGNED_SCRIPT = SOURCE / "docs/examples/cpp-signed.cpp"

# Scripts that use the query string and typed values, and a form that is checked.
INPUT_SCRIPT = SOURCE / "docs/examples/cpp-form-input.cpp"
CHECKED_SCRIPT = SOURCE / "docs/examples/cpp-form-checked.cpp"

# A script with routes.
ROUTER_SCRIPT = SOURCE / "docs/examples/cpp-router.cpp"

# A script that uses every function for serving.
SERVE_SCRIPT = SOURCE / "docs/examples/cpp-serve.cpp"

LIBRARY = os.environ["LIBRARY"]
FORM_LIBRARY = os.environ["FORM_LIBRARY"]
SERVE_LIBRARY = os.environ["SERVE_LIBRARY"]
CC = shlex.split(os.environ["CC"])
CXX = shlex.split(os.environ["CXX"])
WARNINGS = "-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror".split()

# The warnings of clang that the headers do not avoid.
ACCEPTED_WARNINGS = {
    # What older standards do not have; the headers need C++17.
    "c++98-compat",
    "c++98-compat-pedantic",
    "c++98-compat-local-type-template-args",
    "pre-c++14-compat",
    "pre-c++17-compat",
    "pre-c++20-compat",
    # Classes have their members in the order in which they are read, whatever room that leaves.
    "padded",
    # Comments describe several parameters in one line, as Doxygen allows: "@param least,most".
    "documentation",
}
# Those that only some versions of clang have.
NEWER_WARNINGS = {
    # clang 16: asks for std::span, of C++20, wherever bytes are indexed.
    "unsafe-buffer-usage",
    # An older clang complains about the name of a newer warning.
    "unknown-warning-option",
}
EVERYTHING = [
    "-Weverything",
    "-Werror",
    *(f"-Wno-{name}" for name in sorted(ACCEPTED_WARNINGS | NEWER_WARNINGS)),
]

STANDARDS = ("c++17", "c++20", "c++2b")
WITHOUT_RUNTIME = ["-fno-exceptions", "-fno-rtti"]
# With and without exceptions and RTTI.
RUNTIMES = ([], WITHOUT_RUNTIME, ["-fno-exceptions"], ["-fno-rtti"])
NIGHTLY = os.environ.get("TARN_NIGHTLY") == "1"


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
    """CXX, and clang++ if that is another one."""
    clang = shutil.which("clang++") or shutil.which("clang++-16")
    assert clang, "clang++ is not installed"
    found = {os.path.realpath(shutil.which(CXX[0])): CXX}
    found.setdefault(os.path.realpath(clang), [clang])
    return list(found.values())


def is_clang(compiler):
    return "clang" in os.path.realpath(shutil.which(compiler[0]))


def toolchains():
    """The compilers, and clang++ once more with the other C++ library."""
    return [*compilers(), *([*c, "-stdlib=libc++"] for c in compilers() if is_clang(c))]


def warnings(compiler):
    return EVERYTHING if is_clang(compiler) else WARNINGS


def modes(header):
    """The compilers, standards and runtimes with which a header is compiled alone."""
    tools = toolchains()
    if NIGHTLY:
        return list(itertools.product(tools, STANDARDS, RUNTIMES))
    if header == HEADER:
        # All pairs: of a toolchain and a standard, a toolchain and a runtime, and so on.
        return [
            (tool, STANDARDS[(i + j) % len(STANDARDS)], runtime)
            for i, tool in enumerate(tools)
            for j, runtime in enumerate(RUNTIMES)
        ]
    # The umbrella header includes the others. Alone, they may lack a header of the C++ library, of
    # which there are two: every other header is compiled with each. A new libc++ includes fewer
    # other headers from C++23 on.
    if PARTS.index(header) % 2:
        return [(tools[0], "c++17", [])]
    return [(tools[-1], "c++2b", WITHOUT_RUNTIME)]


def function(snippet, part):
    """A snippet with its `refused` or `accepted` part, as a function.

    The compiler reports an error in that part under the name of the snippet, and any other error
    under the name "elsewhere".
    """
    name = re.sub(r"\W", "_", snippet["name"])
    lines = [
        '#line 1 "elsewhere"',
        f"int {name}() {{",
        snippet.get("before", ""),
        f'#line 1 "{snippet["name"]}"',
        snippet[part],
        '#line 1 "elsewhere"',
        snippet.get("after", ""),
        "return 0;",
        "}",
    ]
    return "\n".join(lines) + "\n"


class Header(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def succeeds(self, *command):
        done = run(*command)
        self.assertEqual(0, done.returncode, f"{command}\n{done.stdout}")
        return done.stdout

    def test_each_header_compiles_alone_and_before_others_without_a_warning(self):
        self.assertGreater(len(PARTS), 10)
        commands = []
        for header in [HEADER, *PARTS]:
            name = header.relative_to(INCLUDE)
            alone = self.folder / f"{header.stem}_alone.cpp"
            alone.write_text(f"#include <{name}>\n#include <{name}>\n", encoding="utf-8")
            # What a header lacks is missing before others come. A name in tarn::detail would hide
            # the same name in tarn from them.
            first = self.folder / f"{header.stem}_first.cpp"
            first.write_text(f"#include <{name}>\n#include <tarn.hpp>\n", encoding="utf-8")
            for number, (compiler, standard, runtime) in enumerate(modes(header)):
                flags = [f"-std={standard}", *runtime, *warnings(compiler)]
                source = alone if number else first
                commands.append([*compiler, *flags, f"-I{INCLUDE}", "-fsyntax-only", source])
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            for command, done in zip(commands, pool.map(lambda words: run(*words), commands)):
                with self.subTest(command):
                    self.assertEqual(0, done.returncode, done.stdout)

    def test_headers_cause_each_of_the_warnings_that_are_accepted(self):
        both = self.folder / "both.cpp"
        both.write_text("#include <tarn.hpp>\n#include <tarn/signed.hpp>\n", encoding="utf-8")
        clang = next(each for each in compilers() if is_clang(each))
        flags = ["-std=c++20", "-Weverything", f"-I{INCLUDE}", "-fsyntax-only"]
        shown = self.succeeds(*clang, *flags, both)
        self.assertEqual(ACCEPTED_WARNINGS, set(re.findall(r"\[-W(\S+)\]", shown)) - NEWER_WARNINGS)

    def test_umbrella_header_includes_or_names_every_other_header_once(self):
        umbrella = HEADER.read_text(encoding="utf-8")
        self.assertEqual(["tarn/all.hpp"], re.findall(r'(?m)^#include "(.*?)"', umbrella))
        text = ALL.read_text(encoding="utf-8")
        included = re.findall(r'(?m)^#include "(.*?)"', text)
        # This one needs another library.
        named = re.findall(r'(?m)^// #include "(.*?)"', text)
        self.assertEqual(["signed.hpp"], named)
        self.assertEqual([part.name for part in PARTS if part != ALL], sorted(included + named))
        script = self.folder / "umbrella.cpp"
        script.write_text("#include <tarn.hpp>\n", encoding="utf-8")
        listed = self.succeeds(*CXX, "-std=c++17", f"-I{INCLUDE}", "-M", script)
        self.assertIn("origin.hpp", listed)
        self.assertNotIn("sodium", listed)

    def test_umbrella_header_opens_every_header_once(self):
        script = self.folder / "once.cpp"
        script.write_text("#include <tarn.hpp>\n", encoding="utf-8")
        for compiler in compilers():
            shown = self.succeeds(*compiler, "-std=c++17", f"-I{INCLUDE}", "-E", script)
            opened = re.findall(r'(?m)^# 1 "(.*)" 1(?: .*)?$', shown)
            paths = [pathlib.Path(name).resolve() for name in opened]
            ours = [path.name for path in paths if INCLUDE.resolve() in path.parents]
            with self.subTest(compiler):
                self.assertIn("origin.hpp", ours)
                self.assertEqual(sorted(set(ours)), sorted(ours))

    def test_headers_include_nothing_that_compilers_read_for_long(self):
        # bench/headers.py measures what they cost.
        of_c = "cerrno cfloat cinttypes cstdarg cstddef cstdint cstdio cstdlib cstring ctime"
        of_cxx = "initializer_list new optional string_view type_traits utility"
        of_other_libraries = "fcntl.h sys/random.h sys/sendfile.h sys/stat.h unistd.h sodium.h"
        allowed = {*of_c.split(), *of_cxx.split(), *of_other_libraries.split()}
        text = "".join(header.read_text(encoding="utf-8") for header in [HEADER, *PARTS])
        self.assertEqual(allowed, set(re.findall(r"(?m)^#\s*include <(.*)>", text)))

    def test_older_standard_is_refused_with_a_message(self):
        old = self.folder / "old.cpp"
        for header in [HEADER, *PARTS]:
            if header.read_text(encoding="utf-8").startswith("// Internal: "):
                continue
            name = header.relative_to(INCLUDE)
            old.write_text(f"#include <{name}>\n", encoding="utf-8")
            done = run(*CXX, "-std=c++14", f"-I{INCLUDE}", "-fsyntax-only", old)
            with self.subTest(name):
                self.assertNotEqual(0, done.returncode)
                self.assertIn("-std=c++17", done.stdout)

    def test_reading_fields_does_not_pull_in_responses_or_files(self):
        script = self.folder / "fields.cpp"
        script.write_text("#include <tarn/request.hpp>\n", encoding="utf-8")
        flags = ["-std=c++17", f"-I{INCLUDE}"]
        listed = self.succeeds(*CXX, *flags, "-M", script)
        included = {pathlib.Path(name).name for name in listed.split()}
        self.assertTrue({"request.hpp", "form.hpp", "tarn.h"} <= included, included)
        unwanted = {"html.hpp", "response.hpp", "file.hpp", "fcntl.h", "unistd.h", "ctime"}
        unwanted |= {"field.hpp", "form_reader.hpp", "whole_form.hpp", "tarn_form.h"}
        unwanted |= {"serve.hpp", "tarn_serve.h", "typed.hpp", "checked_form.hpp"}
        self.assertFalse(unwanted & included)

    def test_lists_work_with_standard_algorithms_and_ranges(self):
        ranges = self.folder / "ranges.cpp"
        ranges.write_text(
            """
            #include <algorithm>
            #include <ranges>
            #include <tarn.hpp>
            static_assert(std::ranges::random_access_range<tarn::Entries>);
            static_assert(std::ranges::sized_range<tarn::Files>);
            static_assert(std::ranges::random_access_range<tarn::Cookies>);
            static_assert(std::ranges::random_access_range<tarn::Lines>);
            static_assert(std::ranges::random_access_range<const tarn::ElementList>);
            static_assert(std::ranges::forward_range<tarn::Values>);
            static_assert(std::input_iterator<tarn::FormReader::Iterator>);
            static_assert(std::ranges::input_range<tarn::FormReader>);
            static_assert(!std::ranges::forward_range<tarn::FormReader>);
            static_assert(std::ranges::input_range<tarn::Blocks>);
            static_assert(std::forward_iterator<tarn::FormFields::Iterator>);
            static_assert(std::ranges::forward_range<const tarn::Form>);
            static_assert(std::ranges::sized_range<tarn::Form>);
            static_assert(std::ranges::forward_range<tarn::FormTexts>);
            static_assert(std::ranges::forward_range<tarn::Path>);
            static_assert(std::ranges::forward_range<tarn::FormFiles>);
            // A view of a temporary form would dangle.
            static_assert(!std::ranges::borrowed_range<tarn::Form>);
            static_assert(!std::ranges::borrowed_range<tarn::ElementList>);
            // Ranges view what another object owns.
            static_assert(std::ranges::borrowed_range<tarn::Entries>);
            static_assert(std::ranges::borrowed_range<tarn::Values>);
            static_assert(std::ranges::borrowed_range<tarn::Files>);
            static_assert(std::ranges::borrowed_range<tarn::Elements>);
            static_assert(std::ranges::borrowed_range<tarn::Lines>);
            static_assert(std::ranges::borrowed_range<tarn::FormTexts>);
            static_assert(std::ranges::borrowed_range<tarn::Path>);
            static_assert(std::ranges::borrowed_range<tarn::FormFiles>);
            static_assert(std::ranges::borrowed_range<tarn::FormFields>);
            static_assert(std::ranges::borrowed_range<tarn::Blocks>);
            std::string_view second(const tarn::Request &request) {
              auto is_named = [](const tarn::Entry &entry) { return entry.is_named("b"); };
              tarn::Entries::Iterator found =
                  std::ranges::find_if(request.entries(), is_named);
              auto [name, value] = *found;
              return value;
            }
            std::uint64_t use(tarn::FormReader &reader, const tarn::Form &form) {
              auto is_file = [](const tarn::Field &field) { return field.is_file(); };
              std::uint64_t size = 0;
              for (tarn::Field &field : reader | std::views::filter(is_file)) size += field.size();
              auto sizes = std::views::transform(&tarn::Field::size);
              for (std::uint64_t each : form | std::views::take(3) | sizes) size += each;
              return size + std::ranges::count(form.all("tag"), "x");
            }
            """,
            encoding="utf-8",
        )
        self.succeeds(*CXX, "-std=c++20", f"-I{INCLUDE}", "-fsyntax-only", ranges)

    def test_source_files_of_one_program_may_include_different_headers(self):
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

    def test_programs_work_with_other_toolchains_and_standards(self):
        """The programs of other tests, with what those do not use."""
        tools = [each for each in toolchains() if each != CXX]
        library = pathlib.Path(LIBRARY)
        for compiler, standard in zip(tools, STANDARDS[1:]):
            for name in ("json", "typed"):
                with self.subTest(name, compiler=compiler):
                    program = self.folder / name
                    source = SOURCE / f"tests/cpp/{name}.cpp"
                    linked = [library, f"-Wl,-rpath,{library.parent}", "-o", program]
                    flags = [f"-std={standard}", f"-I{INCLUDE}"]
                    self.succeeds(*compiler, *flags, source, *linked)
                    needed = self.succeeds("readelf", "-d", program)
                    self.assertEqual("-stdlib=libc++" in compiler, "[libc++.so.1]" in needed)
                    test = [sys.executable, "-B", SOURCE / f"tests/cpp/{name}_test.py"]
                    self.succeeds("env", f"{name.upper()}={program}", *test)

    def links_with(self, source, libraries, expected, *others, compiler=None):
        """Compiles a script, and links it with some of Tarn's libraries, others, which have a name
        for pkg-config, and no C++ runtime."""
        # _FORTIFY_SOURCE needs an optimizer.
        for level in (["-O0", "-U_FORTIFY_SOURCE"], ["-O2"]):
            with self.subTest(level):
                compiled = self.folder / "script.o"
                flags = ["-std=c++17", *WARNINGS, "-fno-exceptions", *level]
                words = [*flags, f"-I{INCLUDE}", "-c", source, "-o", compiled]
                self.succeeds(*(compiler or CXX), *words)
                # C++ symbols begin with _Z, those of exceptions with __cxa, __gxx or _Unw.
                undefined = self.succeeds("nm", "-u", compiled).split()
                self.assertIn(expected, undefined)
                self.assertEqual([], [n for n in undefined if re.match("_Z|__cxa|__gxx|_Unw", n)])
                program = self.folder / "script"
                found = [run("pkg-config", "--libs", name).stdout.split() for name in others]
                words = [compiled, *libraries, *itertools.chain(*found)]
                self.succeeds(*CC, "-Wl,--no-as-needed", *words, "-o", program)
                listed = self.succeeds("readelf", "-d", program)
                needed = re.findall(r"\(NEEDED\).*\[(.*)\]", listed)
                names = [pathlib.Path(library).name.partition(".so")[0] for library in libraries]
                ours = [f"{name}.so.1" for name in names]
                self.assertEqual([*ours, "libc.so.6"], [n for n in needed if n[:9] not in others])
                self.assertEqual(list(others), [n[:9] for n in needed if n[:9] in others])

    def test_views_need_no_cpp_runtime(self):
        for compiler in toolchains():
            with self.subTest(compiler):
                self.links_with(SCRIPT, [LIBRARY], "Tarn_new", compiler=compiler)

    def test_forms_need_libtarn_form_alone(self):
        self.links_with(FORM_SCRIPT, [FORM_LIBRARY], "TarnForm_next")

    def test_input_needs_libtarn_form_alone(self):
        self.links_with(INPUT_SCRIPT, [FORM_LIBRARY], "TarnForm_load")

    def test_checked_forms_need_no_cpp_runtime(self):
        self.links_with(CHECKED_SCRIPT, [FORM_LIBRARY, LIBRARY], "TarnForm_load")

    def test_asking_for_the_origin_needs_libtarn_alone(self):
        self.links_with(ORIGIN_SCRIPT, [LIBRARY], "CgiEnv_getRequestMethod")

    def test_signing_needs_libtarn_and_libsodium_alone(self):
        self.links_with(SIGNED_SCRIPT, [LIBRARY], "crypto_auth_hmacsha512256_final", "libsodium")

    def test_routing_needs_libtarn_alone(self):
        self.links_with(ROUTER_SCRIPT, [LIBRARY], "CgiEnv_getPathInfo")

    def test_serving_needs_libtarn_serve_alone(self):
        self.links_with(SERVE_SCRIPT, [SERVE_LIBRARY], "tarn_serve")

    def test_requests_and_files_need_no_other_library(self):
        script = self.folder / "files.cpp"
        script.write_text(
            """
            #include <tarn.hpp>
            int main() {
              const tarn::Request request;
              const std::optional<tarn::File> file = request.file("x");
              return file && file->save("/tmp") ? 0 : 1;
            }
            """,
            encoding="utf-8",
        )
        self.links_with(script, [LIBRARY], "Tarn_getFile")

    def test_responses_need_no_other_library(self):
        script = self.folder / "responses.cpp"
        script.write_text(
            """
            #include <tarn.hpp>
            static int send(tarn::Response &response, std::string_view path) {
              response.cookie(tarn::SetCookie("a", "1").secure().partitioned());
              if (response.attachment(path).etag("1").not_modified()) return response.send();
              if (path.empty()) return response.send_error(404, path);
              return response.send_file(tarn::StoredFile::below("lakes", path));
            }
            int main() {
              tarn::Response response;
              tarn::Cors cors({"https://example.org"});
              cors.methods("PUT").max_age(5).apply(response);
              if (tarn::choose_language(response, {"en", "de"}) == "de") {
                return send(response, CgiEnv_getPathInfo(nullptr));
              }
              if (tarn::choose_type(response, {"text/html"}).empty()) return 1;
              tarn::Stream body(response);
              return body.write("x") && body.flush() && body.finish() ? 0 : 1;
            }
            """,
            encoding="utf-8",
        )
        self.links_with(script, [LIBRARY], "CgiEnv_getPathInfo")

    def refuse(self, compiler, snippets):
        """What a compiler prints about the refused parts of these snippets; None if nothing."""
        names = " ".join(each["name"] for each in snippets)
        source = self.folder / f"{hash((compiler[0], names))}.cpp"
        functions = [function(each, "refused") for each in snippets]
        source.write_text(INCLUDES + "".join(functions), encoding="utf-8")
        # g++ finds the precompiled header in this folder.
        flags = ["-std=c++17", *WARNINGS, f"-I{self.folder}", f"-I{INCLUDE}", "-fsyntax-only"]
        if is_clang(compiler):
            flags += ["-ferror-limit=0", "-include-pch", self.folder / "tarn.hpp.gch"]
        done = run(*compiler, *flags, source)
        return None if done.returncode == 0 else done.stdout

    def complaint(self, compiler, snippet):
        """Says why the refused part does not count as refused; None if it does."""
        name = snippet["name"]
        printed = self.refuse(compiler, [snippet])
        if printed is None:
            return "it compiles"
        if not re.search(snippet["message"], printed):
            return f"no error matches '{snippet['message']}':\n{printed}"
        if f"{name}:1:" not in printed or "elsewhere:" in printed:
            return f"the error is not in the refused part:\n{printed}"
        return None

    def refused_together(self, compiler, snippets):
        """The names of those that are refused for their own reason, all compiled at once."""
        printed = self.refuse(compiler, snippets) or ""
        # Each error, with the notes behind it.
        errors = re.split(r"(?m)^(?=.*?:\d+:\d+: (?:fatal )?error: )", printed)[1:]
        if any(error.startswith("elsewhere:") for error in errors):
            return set()
        return {
            each["name"]
            for each in snippets
            for error in errors
            if error.startswith(f"{each['name']}:1:")
            and "elsewhere:" not in error
            and re.search(each["message"], error)
        }

    def test_misuse_does_not_compile(self):
        self.assertGreater(len(SNIPPETS), 30)
        made = self.folder / "tarn.hpp.gch"
        for compiler in compilers():
            header = ["-x", "c++-header", HEADER, "-o", made]
            self.succeeds(*compiler, "-std=c++17", *WARNINGS, *header)
            # Some misuse is noticed by clang alone.
            snippets = [each for each in SNIPPETS if is_clang(compiler) or "clang" not in each]
            # Errors in headers belong to no snippet, and compilers report some only once. So what
            # is not refused among the others is compiled alone, and at night everything is.
            refused = set() if NIGHTLY else self.refused_together(compiler, snippets)
            alone = [each for each in snippets if each["name"] not in refused]
            with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
                complaints = pool.map(lambda each: self.complaint(compiler, each), alone)
                for snippet, complaint in zip(alone, complaints):
                    with self.subTest(snippet["name"], compiler=compiler):
                        self.assertIsNone(complaint)
            made.unlink()

    def test_numbers_of_128_bits_do_not_compile(self):
        # They count as integers with the extensions of GCC only.
        source = self.folder / "large.cpp"
        number = "static_cast<__int128>(1)"
        for use in (f"json.value({number});", f'tarn::Attribute("a", {number});'):
            source.write_text(
                f"{INCLUDES}void use(tarn::JsonWriter &json) {{ json.value(1LL); {use} }}\n",
                encoding="utf-8",
            )
            for compiler in compilers():
                done = run(*compiler, "-std=gnu++17", f"-I{INCLUDE}", "-fsyntax-only", source)
                with self.subTest(use, compiler=compiler):
                    self.assertNotEqual(0, done.returncode)
                    self.assertIn("this number is too large a type", done.stdout)

    def test_corrected_use_compiles(self):
        source = self.folder / "accepted.cpp"
        functions = [function(snippet, "accepted") for snippet in SNIPPETS]
        source.write_text(INCLUDES + "".join(functions), encoding="utf-8")
        for compiler, standard in zip(toolchains(), STANDARDS):
            with self.subTest(compiler):
                # What clang says of the snippets themselves does not count.
                wanted = [word for word in warnings(compiler) if word != "-Werror"]
                fatal = [] if is_clang(compiler) else ["-Werror"]
                flags = [f"-std={standard}", *wanted, *fatal, f"-I{INCLUDE}", "-fsyntax-only"]
                lines = self.succeeds(*compiler, *flags, source).splitlines()
                self.assertEqual([], [line for line in lines if f"{INCLUDE}/" in line])

    def test_each_misuse_has_a_name_and_a_correction(self):
        names = [snippet["name"] for snippet in SNIPPETS]
        self.assertEqual(len(names), len(set(names)))
        for snippet in SNIPPETS:
            with self.subTest(snippet["name"]):
                self.assertLessEqual({"refused", "accepted", "message"}, set(snippet))
                self.assertNotEqual(snippet["refused"], snippet["accepted"])


if __name__ == "__main__":
    unittest.main()
