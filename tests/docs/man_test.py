#!/usr/bin/env python3
"""The manual pages document every function as the header does, and man finds them."""

import collections
import ctypes
import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from tree import changed_tree, program_and_transcript

SOURCE = Path(os.environ["SOURCE"])
SECTION = Path(os.environ["TREE"]) / "man3"
CC = os.environ["CC"].split() + [
    "-std=c11",
    "-Wall",
    "-Wextra",
    "-Wpedantic",
    "-Werror",
    f'-I{SOURCE / "include"}',
]
HEADER = (SOURCE / "include/tarn.h").read_text()
FORM_HEADER = (SOURCE / "include/tarn_form.h").read_text()
SERVE_HEADER = (SOURCE / "include/tarn_serve.h").read_text()
HEADERS = (HEADER, FORM_HEADER, SERVE_HEADER)
CPP_HEADER = "".join(
    path.read_text()
    for path in [SOURCE / "include/tarn.hpp", *sorted((SOURCE / "include/tarn").glob("*.hpp"))]
)
EXPORTS = [
    re.findall(r"^    (\w+);$", Path(script).read_text(), re.MULTILINE)
    for script in os.environ["VERSION_SCRIPTS"].split(",")
]
TARN_EXPORTS, FORM_EXPORTS, SERVE_EXPORTS = EXPORTS
EXPORTS = TARN_EXPORTS + FORM_EXPORTS + SERVE_EXPORTS

FILES = {path.stem: path.read_text() for path in SECTION.iterdir()}
PAGES = {name: text for name, text in FILES.items() if not text.startswith(".so ")}
CPP = "tarn.hpp"  # has no prototypes


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, errors="replace", **options)


def rendered(name):
    """The page as shown on a terminal of 80 columns, without bold and underlined text."""
    shown = run(os.environ["MANDOC"], "-Tascii", "-Owidth=80", SECTION / f"{name}.3", check=True)
    return re.sub(".\b", "", shown.stdout)


def part(page, heading):
    return re.search(rf"^{heading}\n(.*?)^(?:\S|\Z)", page, re.MULTILINE | re.DOTALL)[1]


def page_of(name):
    """The name of the page that a file of this name links to."""
    link = re.fullmatch(r"\.so man3/(.*)\.3\n", FILES[name])
    return link[1] if link else name


def without_optional_spaces(code):
    return re.sub(r"\s*([*(),;])\s*", r"\1", " ".join(code.split()))


def words(text):
    return " ".join(re.findall(r"\w+", text.lower()))


SHOWN = {name: rendered(name) for name in PAGES}


class Prototypes(unittest.TestCase):
    """The SYNOPSIS of each page, as printed, is valid C."""

    def test_compile_next_to_the_header(self):
        self.assertEqual(part(SHOWN[CPP], "SYNOPSIS").strip(), "#include <tarn.hpp>")
        for name, page in SHOWN.items():
            if name == CPP:
                continue
            compiled = run(*CC, "-fsyntax-only", "-x", "c", "-", input=part(page, "SYNOPSIS"))
            self.assertEqual((compiled.returncode, compiled.stderr), (0, ""), name)

    def test_match_the_header_word_for_word(self):
        header = without_optional_spaces(
            "".join(
                run(*CC, "-E", "-P", "-x", "c", "-", input=text, check=True).stdout
                for text in HEADERS
            )
        )
        for page in SHOWN.values():
            for declaration in self.declarations(page):
                words = re.escape(without_optional_spaces(declaration).removesuffix(";"))
                self.assertTrue(
                    re.search(rf"[;)}}] ?{words}(;|__attribute__)", header), declaration
                )

    def test_appear_once_per_export(self):
        shown = collections.Counter()
        for page in SHOWN.values():
            for declaration in self.declarations(page):
                shown[re.search(r"(\w+)(?:\(.*)?;$", without_optional_spaces(declaration))[1]] += 1
        types = ["TarnHandle", "TarnStatus"]
        types += ["TarnForm", "TarnFormField", "TarnFormProblem", "TarnFormLimit"]
        self.assertEqual(shown, collections.Counter(EXPORTS + types))

    def test_include_the_header_of_their_library(self):
        for exports, header, library in (
            (TARN_EXPORTS, "tarn.h", "libtarn, -ltarn"),
            (FORM_EXPORTS, "tarn_form.h", "libtarn_form, -ltarn_form"),
            (SERVE_EXPORTS, "tarn_serve.h", "libtarn_serve, -ltarn_serve"),
        ):
            for page in {page_of(name) for name in exports}:
                includes = re.findall("#include <(.*)>", part(SHOWN[page], "SYNOPSIS"))
                self.assertEqual(includes, [header], page)
                self.assertIn(f"({library})", part(SHOWN[page], "LIBRARY"))

    @staticmethod
    def declarations(page):
        text = re.sub(r"#include .*", "", part(page, "SYNOPSIS"))
        return [declaration + ";" for declaration in text.split(";") if declaration.strip()]


class Pages(unittest.TestCase):
    def test_describe_each_export(self):
        self.assertGreater(len(TARN_EXPORTS), 200)
        self.assertGreater(len(FORM_EXPORTS), 30)
        self.assertGreater(len(SERVE_EXPORTS), 4)
        for name in EXPORTS:
            page = SHOWN[page_of(name)]
            self.assertRegex(part(page, "NAME"), rf"\b{name}\b")
            self.assertRegex(part(page, "DESCRIPTION"), rf"(?m)^     {name}\b.*(\n {{8,}}\S|  )")
            if not re.search(rf"\bvoid\s+{name}\(", page) and f" {name}(" in page:
                self.assertRegex(part(page, "RETURN VALUES"), rf"\b{name}\(\)")

    def test_contain_every_word_of_the_header(self):
        shown = [
            f' {words(re.sub(r"(?<=[a-z])[(][123][)]", "", page))} ' for page in SHOWN.values()
        ]
        comments = []
        for header in HEADERS:
            overview, *others = re.findall(r"^/\*.*?\*/", header, re.MULTILINE | re.DOTALL)
            comments += [overview.partition("\n")[2], *others]  # without the title
        told = [
            part
            for comment in comments
            for part in re.split(r"@param|@return|\n \*\n|-{4}.*", comment)
        ]
        told += re.findall(r"^#define (TARN_\w+ +\d.*)", "".join(HEADERS), re.MULTILINE)
        told = [re.sub(r"@\w+|\b(\d+)u\b|(?<=[a-z])[(]1[)]", r"\1", part) for part in told]
        told = [words(part) for part in told]
        told = [part for part in told if part]
        self.assertGreater(len(told), 700)
        for part in told:
            self.assertTrue(any(f" {part} " in page for page in shown), part)

    def test_man_finds_each_page_by_every_name(self):
        names = sorted(FILES)
        found = run(
            os.environ["MAN"], "-M", SECTION.parent, "-w", *names, env={**os.environ, "LC_ALL": "C"}
        )
        self.assertEqual(found.returncode, 0, found.stderr)
        self.assertEqual(
            found.stdout.split(), [str(SECTION / f"{page_of(name)}.3") for name in names]
        )
        self.assertLessEqual(set(EXPORTS), set(names))

    def test_names_differ_in_more_than_case(self):
        clashes = collections.Counter(name.lower() for name in FILES)
        self.assertEqual([name for name, count in clashes.items() if count > 1], [])

    def test_mandoc_reports_nothing(self):
        # Messages about other manuals depend on which ones are installed here.
        for name in PAGES:
            lint = run(os.environ["MANDOC"], "-Tlint", "-Wstyle", SECTION / f"{name}.3").stdout
            self.assertEqual(
                [line for line in lint.splitlines() if "referenced manual not found" not in line],
                [],
            )

    def test_references_name_existing_pages_and_functions(self):
        library = ctypes.CDLL(None)
        for name, text in PAGES.items():
            references = re.findall(r"\bXr (\S+) (\d)", text)
            self.assertTrue(references, name)
            for other, section in references:
                if section == "1":
                    self.assertTrue((SOURCE / f"tools/{other}.1").exists(), f"{name}: {other}")
                elif not (section == "3" and other in FILES):
                    self.assertTrue(hasattr(library, other), f"{name} refers to {other}")

    def test_show_no_header_markup(self):
        for name, page in SHOWN.items():
            for text in (page.partition("\nEXAMPLES\n")[0], part(page, "SEE ALSO")):
                self.assertNotRegex(text, r"`|@|/\*|\*/", name)

    def test_fit_80_columns(self):
        for name, page in SHOWN.items():
            self.assertEqual([line for line in page.splitlines() if len(line) > 80], [], name)

    def test_have_the_same_sections_in_the_same_order(self):
        for name, page in SHOWN.items():
            sections = [
                "NAME",
                "LIBRARY",
                "SYNOPSIS",
                "DESCRIPTION",
                "RETURN VALUES",
                "EXAMPLES",
                "SEE ALSO",
            ]
            if name in (CPP, "tarn_serve.h"):
                sections.remove("RETURN VALUES")
            self.assertEqual(re.findall(r"^[A-Z ]+$", page, re.MULTILINE), sections, name)


class Cpp(unittest.TestCase):
    """tarn.hpp(3) summarises the C++ header."""

    def test_names_each_class_and_its_members(self):
        page = part(SHOWN[CPP], "DESCRIPTION")
        classes = dict(re.findall(r"(?m)^class (\w+)\b[^;{]*\{(.*?)^};", CPP_HEADER, re.DOTALL))
        classes = {name: body for name, body in classes.items() if f"tarn::{name}" in page}
        self.assertGreater(len(classes), 23)
        for name in re.findall(r"(?m)^/\*\*(?:(?!\*/).)*\*/\nclass (\w+)", CPP_HEADER, re.DOTALL):
            self.assertIn(name, classes)
        for name, body in classes.items():
            told = re.search(rf"(?ms)^     tarn::{name}$(.*?)(?=^     tarn::\w+$|^   \S|\Z)", page)[
                1
            ]
            public = body.partition(" private:")[0]
            for member in re.findall(r"(?m)\*/\n  [^\n(=;]*?\b(\w+)\(", public):
                self.assertRegex(told, rf"(?m)^     (operator )?{member}\(", f"{name}::{member}")

    def test_shows_the_conventions_and_a_working_example(self):
        shown = words(SHOWN[CPP])
        for convention in re.findall(r"(?ms)^ \*  \d\. (.*?)(?=^ \*  \d|^ \*/)", CPP_HEADER):
            self.assertIn(words(convention), shown)
        code, output = program_and_transcript(SOURCE / "docs/examples/cpp-request.cpp")
        shown = words(part(SHOWN[CPP], "EXAMPLES"))
        self.assertIn(words(code.partition("\n")[2]), shown)
        self.assertIn(words(output), shown)


class Generator(unittest.TestCase):
    """How the generator handles a modified header."""

    def generate(self, header, folder, name="tarn.h", **environment):
        tree = changed_tree(folder, include={name: header})
        options = (os.environ["RELEASE"], os.environ["DATE"], tree / "man")
        return run(
            *(sys.executable, "-B", SOURCE / "docs/man.py", tree, *options),
            env={**os.environ, **environment},
        )

    def refuses(self, before, after, reason, name="tarn.h"):
        header = (SOURCE / "include" / name).read_text()
        self.assertEqual(header.count(before), 1, before)
        with tempfile.TemporaryDirectory() as folder:
            made = self.generate(header.replace(before, after), folder, name)
            self.assertEqual(made.returncode, 1, reason)
            self.assertIn(reason, made.stderr)
            self.assertFalse((Path(folder) / "man").exists())

    def test_output_does_not_depend_on_time_or_folder(self):
        with tempfile.TemporaryDirectory() as folder:
            made = self.generate(
                HEADER, folder, TZ="Pacific/Auckland", LC_ALL="C", PYTHONHASHSEED="7"
            )
            self.assertEqual((made.returncode, made.stderr), (0, ""))
            self.assertEqual(
                {path.stem: path.read_text() for path in (Path(folder) / "man/man3").iterdir()},
                FILES,
            )

    def test_refuses_a_function_without_documentation(self):
        self.refuses(
            "/** Finds the first file",
            "TARN_API int Tarn_count(TarnHandle *handle);\n\n" "/** Finds the first file",
            "Tarn_count(): not documented",
        )
        self.refuses(
            '/** Returns the version (quirk 21). @return the text "1.0.0" */\n',
            "",
            "Tarn_getVersion(): not documented",
        )

    def test_refuses_a_function_that_only_documents_its_result(self):
        self.refuses(
            "/** Returns the version (quirk 21). @return",
            "/** @return",
            "Tarn_getVersion(): not documented",
        )

    def test_refuses_an_undocumented_function_constant_or_argument_of_tarn_form(self):
        close = "TARN_FORM_API void TarnForm_close("
        count = "TARN_FORM_API int TarnForm_size(TarnForm *form);\n\n"
        for before, after, reason in (
            (close, close.replace("close", "shut"), "no page describes TarnForm_close()"),
            ("/** Closes a form", count + "/** Closes a form", "TarnForm_size(): not documented"),
            (" *  @param block ", " *  @param bloc ", "has no argument bloc"),
            (
                "/** As a limit: no limit",
                "/* As a limit: no limit",
                "TARN_FORM_UNLIMITED not documented",
            ),
            ("/* ---- Opening", "/* ---- Closing", "no page for Closing"),
        ):
            self.refuses(before, after, reason, "tarn_form.h")

    def test_refuses_an_undocumented_function_or_argument_of_tarn_serve(self):
        option = "/** Sets an option"
        count = "TARN_SERVE_API int tarn_serve_count(void);\n\n"
        for before, after, reason in (
            (option, count + option, "tarn_serve_count(): not documented"),
            (" *  @param callback  returns 0", " *  returns 0", "no @param explains callback"),
            ("/* ---- Options", "/* ---- Settings", "no page for Settings"),
        ):
            self.refuses(before, after, reason, "tarn_serve.h")

    def test_describes_a_function_by_its_result_alone_in_tarn_form(self):
        page = part(SHOWN["TarnForm_next"], "DESCRIPTION")
        self.assertRegex(page, r"TarnForm_problemOffset\(form\)\n +Returns where in the body")

    def test_refuses_an_undocumented_argument(self):
        self.refuses(
            " *  @param requested  in bytes\n",
            "",
            "TARNString_reserve(): no @param explains requested",
        )

    def test_refuses_documentation_of_an_unknown_argument(self):
        self.refuses(
            " *  @param requested  in bytes\n",
            " *  @param requested  in bytes\n *  @param given  in bytes\n",
            "TARNString_reserve(): has no argument given",
        )
        self.refuses(
            " * @param secure  0 for no; stored as given\n",
            " * @param secure  0 for no; stored as given\n * @param given  in bytes\n",
            "no function has an argument given",
        )

    def test_refuses_an_empty_argument_description(self):
        self.refuses(
            "@param requested  in bytes",
            "@param requested",
            "TARNString_reserve(): @param says nothing of requested",
        )

    def test_refuses_an_empty_result_description(self):
        self.refuses(
            'Returns the version (quirk 21). @return the text "1.0.0"',
            "Returns the version (quirk 21).",
            "Tarn_getVersion(): @return is for",
        )

    def test_refuses_a_reference_to_an_unknown_function(self):
        self.refuses(
            "in any case.",
            "as Tarn_getCheckbox() does.",
            "Tarn_new: no page describes Tarn_getCheckbox()",
        )

    def test_refuses_a_family_without_a_page(self):
        self.refuses(
            "/* ---- Byte buffer: CGIfb", "/* ---- Bytes: CGIfb", "no page for Bytes: CGIfb"
        )
        self.refuses(
            "/* ---- Byte buffer: CGIfb", "/* Byte buffer: CGIfb", "no family Byte buffer: CGIfb"
        )

    def test_refuses_a_declaration_it_cannot_parse(self):
        self.refuses(
            "TARN_API TarnHandle Tarn_getFile(",
            "TarnHandle Tarn_getFile(",
            "not understood: TarnHandle Tarn_getFile(",
        )
        self.refuses(
            "/** Finds the first file",
            "struct S;\n\n/** Finds the first file",
            "not understood: struct S;",
        )
        self.refuses(
            "TARN_API TarnStatus TARNString_print(TarnHandle *handle);",
            "TARN_API TarnStatus TARNString_print(TarnHandle *handle",
            "not understood: TARN_API TarnStatus TARNString_print(TarnHandle *handle",
        )

    def test_refuses_unbalanced_braces(self):
        self.refuses("/** Finds the first file", "}\n\n/** Finds the first file", "} without {")
        self.refuses('extern "C" {\n', "", "} without {")
        self.refuses("\n}\n#endif\n\n#endif", "\n#endif\n\n#endif", "{ without }")

    def test_refuses_a_header_without_an_overview(self):
        overview = re.match(r"/\*.*?\*/\n", HEADER, re.DOTALL)[0]
        self.refuses(overview, "", "the header must begin with a comment about the library")
        self.refuses(HEADER, "", "the header must begin with a comment about the library")

    def test_refuses_constants_without_an_introduction(self):
        (introduction,) = re.findall(
            r"(/\* (?:(?!\*/).)*\*/\n)#define TARN_OK\b", HEADER, re.DOTALL
        )
        self.refuses(introduction, "", "TARN_OK: no comment introduces this constant")

    def test_refuses_functions_and_slots_before_the_first_heading(self):
        heading = re.search(r"/\* ---- (?:(?!\*/).)*\*/\n", HEADER, re.DOTALL)[0]
        self.refuses(heading, "", "no heading before this")
        slots = "/** Slots. */\nenum TarnSlot {\n  TARN_SLOT = 0, /* string */\n};\n"
        self.refuses(heading, slots + heading, "no heading before this")

    def test_refuses_documentation_that_does_not_begin_with_a_sentence(self):
        self.refuses(
            "/** Returns the version (quirk 21). @return",
            "/** @code\n * Tarn_getVersion();\n * @endcode\n * @return",
            "Tarn_getVersion(): the documentation must begin with a sentence",
        )

    def test_refuses_a_tag_that_names_no_argument(self):
        self.refuses(
            " *  @param requested  in bytes\n",
            " *  @param\n",
            "@param names no argument",
        )


if __name__ == "__main__":
    unittest.main()
