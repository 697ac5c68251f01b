#!/usr/bin/env python3
"""The HTML reference has a page for each function, with an example that calls it, and its pages are
valid and linked; the search finds what it should, as far as that goes without a browser."""

import collections
import json
import os
import re
import subprocess
import sys
import tempfile
import tomllib
import textwrap
import unittest
import xml.etree.ElementTree as xml
from pathlib import Path

SOURCE = Path(os.environ["SOURCE"])
TREE = Path(os.environ["TREE"])
CC = os.environ["CC"].split() + [
    "-std=c11",
    "-Wall",
    "-Wextra",
    "-Wpedantic",
    "-Werror",
    f'-I{SOURCE / "include"}',
    "-fsyntax-only",
    "-x",
    "c",
    "-",
]
HEADER = (SOURCE / "include/tarn.h").read_text()
INCLUDE = SOURCE / "include"
CPP_HEADERS = {
    str(path.relative_to(INCLUDE)): path.read_text()
    for path in [INCLUDE / "tarn.hpp", *sorted((INCLUDE / "tarn").glob("*.hpp"))]
}
CPP_HEADER = "".join(CPP_HEADERS.values())
EXPORTS = re.findall(r"^    (\w+);$", Path(os.environ["VERSION_SCRIPT"]).read_text(), re.MULTILINE)
TASKS = tomllib.loads((SOURCE / "docs/tasks.toml").read_text())

# What the calls of the tasks are made with.
CALLS = """
#include <tarn.h>
void f(TarnHandle request, TarnHandle list, TarnHandle file, TarnHandle other, TarnHandle env,
       TarnHandle body, TarnHandle cookie, TarnHandle string, TarnHandle result, TarnHandle header,
       TarnHandle element, TarnHandle attribute, TarnHandle child, TarnHandle node,
       TarnHandle field, const char *text, const char *other_text, const void *data, char *input,
       const uint8_t *part, uint32_t length, uint32_t i, uint32_t magic, uint32_t child_magic,
       char *made, FILE *stream, const char *format, va_list args);
"""

FILES = {path.name: path.read_text() for path in TREE.iterdir()}
PAGES = {name: text for name, text in FILES.items() if name.endswith(".html")}
PARSED = {
    name: xml.fromstring(text.removeprefix("<!DOCTYPE html>\n")) for name, text in PAGES.items()
}


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, **options)


def text_of(element):
    return "".join(element.itertext())


def words(text):
    return f' {" ".join(re.findall(r"[a-z0-9_]+", text.lower()))} '


def words_of(element):
    return words(" ".join(element.itertext()))


def links(name):
    return [element.get("href") for element in PARSED[name].iter("a")]


def section(page, heading):
    """The elements of a page's main part between a heading and the next one."""
    found = []
    inside = False
    for element in PARSED[page].find("body/main"):
        if element.tag == "h2":
            inside = text_of(element) == heading
        elif inside:
            found.append(element)
    return found


class Functions(unittest.TestCase):
    """The page of a function, and of the one datum."""

    def test_has_the_prototype_for_each_export(self):
        self.assertGreater(len(EXPORTS), 200)
        prototypes = []
        for name in EXPORTS:
            main = PARSED[f"{name}.html"].find("body/main")
            self.assertEqual(text_of(main.find("h1")), name)
            prototypes.append(text_of(main.find("pre[@class='prototype']")))
            self.assertRegex(prototypes[-1], rf"\b{name}[(;]")
        self.assertEqual(
            [line for text in prototypes for line in text.splitlines() if len(line) > 80], []
        )
        datum = [text for text in prototypes if "(" not in text]
        self.assertEqual(datum, ["extern const char *CGIgs_empty_string;"])
        compiled = run(*CC, input="\n".join(["#include <tarn.h>", *prototypes]))
        self.assertEqual((compiled.returncode, compiled.stderr), (0, ""))

    def test_explains_each_argument_in_its_place(self):
        for name in EXPORTS:
            main = PARSED[f"{name}.html"].find("body/main")
            prototype = " ".join(text_of(main.find("pre[@class='prototype']")).split())
            declared = re.search(r"\((.*)\)", prototype)
            declared = [] if not declared else declared[1].removesuffix(", ...").split(", ")
            explained = [
                text_of(code)
                for part in section(f"{name}.html", "Arguments")
                for code in part.findall("dt/code")
            ]
            self.assertEqual(sorted(explained), sorted(declared), name)
            for part in section(f"{name}.html", "Arguments"):
                for explanation in part.findall("dd"):
                    self.assertTrue(text_of(explanation).strip("."), name)

    def test_tells_the_result_unless_there_is_none(self):
        for name in EXPORTS:
            nothing = re.search(rf"TARN_API (void {name}\(|extern .*\b{name};)", HEADER)
            told = "".join(map(text_of, section(f"{name}.html", "Result")))
            self.assertEqual(bool(told), not nothing, name)

    def test_tells_what_each_status_in_a_result_means(self):
        for name in EXPORTS:
            parts = section(f"{name}.html", "Result")
            named = {
                status
                for part in parts
                if part.tag == "p"
                for status in re.findall(r"\bTARN_[A-Z_]+", text_of(part))
                if not status.endswith("_MAGIC")
            }
            told = {text_of(code) for part in parts for code in part.findall("dt/code")}
            self.assertEqual(told, named, name)

    def test_shows_an_example_that_calls_it(self):
        for name in EXPORTS:
            listing, transcript = [
                part for part in section(f"{name}.html", "Example") if part.tag == "pre"
            ]
            marked = [text_of(line) for line in listing.iter("mark")]
            self.assertTrue(marked, name)
            for line in marked:
                self.assertRegex(line, rf"\b{name}\b")
            # It is one of those that are compiled, run and compared.
            program = re.search(r"(?m)^(?:\$ |  .*).*\./([\w-]+)", text_of(transcript))[1]
            source = SOURCE / f"docs/examples/{program}.c"
            self.assertTrue(source.read_text().endswith(text_of(listing) + "\n"), name)
            self.assertEqual(source.with_suffix(".txt").read_text(), text_of(transcript) + "\n")

    def test_has_the_rules_of_its_family(self):
        for name in EXPORTS:
            family = links(f"{name}.html")[6]
            self.assertIn(f"{name}.html", links(family))
            rules = "".join(
                words_of(part) for part in section(f"{name}.html", "Rules of the family")
            )
            self.assertIn(rules.replace("  ", " "), words_of(PARSED[family]), name)
            self.assertTrue(rules, name)

    def test_loses_no_word_of_the_header(self):
        shown = [words_of(page) for page in PARSED.values()]
        comments = re.findall(r"^/\*.*?\*/", HEADER, re.MULTILINE | re.DOTALL)
        comments[0] = comments[0].partition("\n")[2]  # the title
        told = [
            part
            for comment in comments
            for part in re.split(
                r"(?m)@param\s+\S+|@return|@(?:end)?code|^ \*$|-{4}.*" r"|^ \*\s+\d\. ", comment
            )
        ]
        told = {words(part) for part in told} - {"  "}
        self.assertGreater(len(told), 500)
        for part in told:
            self.assertTrue(any(part in page for page in shown), part)


class Cpp(unittest.TestCase):
    """The pages of tarn.hpp."""

    # As a compiler sees it: without comments, deleted functions, what is private.
    CODE = re.sub(r"//[^\n]*|/\*.*?\*/", "", CPP_HEADER, flags=re.DOTALL)

    def declared(self):
        """The public functions of each class, by a way of its own."""
        found = {}
        for name, body in re.findall(r"(?m)^class (\w+)\b[^;{]*\{(.*?)^\};", self.CODE, re.DOTALL):
            if re.search(rf"\n(// .*\n)*(template.*\n)?class {name}\b", self.detail()):
                continue
            public = re.split(r"\n (?:private|protected):", body)[0]
            public = re.sub(r"(?ms)^  class Iterator.*?^  };", "", public)
            heads = re.findall(
                r"(?m)^  (?! |friend|using)(.*?)(?:\{|;| :\n|\n {6}:)", public, re.DOTALL
            )
            found[name] = {
                re.search(r"(operator\W*?(?:bool)?|~?\w+)\(", head)[1].strip()
                for head in heads
                if "(" in head and "= de" not in head
            }
        return {
            name: {
                member for member in members if not member.startswith("~") and member != "operator="
            }
            for name, members in found.items()
        }

    @classmethod
    def detail(cls):
        return "".join(re.findall(r"(?ms)^namespace detail \{.*?^\}  ", cls.CODE))

    def test_have_one_for_each_class_with_each_public_function(self):
        declared = self.declared()
        self.assertGreater(len(declared), 24)
        self.assertGreater(sum(map(len, declared.values())), 140)
        for name, members in declared.items():
            main = PARSED[f"cpp-{name}.html"].find("body/main")
            self.assertEqual(text_of(main.find("h1")), f"tarn::{name}")
            told = {text_of(heading) for heading in main.iter("h3")}
            self.assertLessEqual(members, told, name)

    def test_have_declarations_that_agree_with_the_header_word_for_word(self):
        def squeezed(code):
            return re.sub(r"\s*([*&(),;<>{}])\s*", r"\1", " ".join(code.split()))

        header = squeezed(re.sub(r"\binline | ?noexcept", "", self.CODE))
        count = 0
        for name, page in PARSED.items():
            if name.startswith("cpp-"):
                for prototype in page.iter("pre"):
                    if prototype.get("class") == "prototype":
                        declaration = squeezed(text_of(prototype)).removesuffix(";")
                        self.assertIn(declaration, header, name)
                        self.assertEqual(
                            [line for line in text_of(prototype).splitlines() if len(line) > 90],
                            [],
                            name,
                        )
                        count += 1
        self.assertGreater(count, 180)

    def test_show_nothing_of_what_is_private(self):
        for name, page in PARSED.items():
            if name.startswith("cpp"):
                for prototype in page.iter("pre"):
                    if prototype.get("class") == "prototype":
                        self.assertNotRegex(text_of(prototype), r"\w_\b|Terminated|Buffer")
        self.assertFalse({"cpp-Owned.html", "cpp-Buffer.html", "cpp-Renderer.html"} & set(PAGES))

    def test_tell_what_types_share_where_they_have_it(self):
        for name, members in {
            "Element": "clone release handle view",
            "Entries": "size begin",
            "CookieList": "add size clone release view",
            "File": "handle",
            "String": "clone release handle",
        }.items():
            for member in members.split():
                self.assertTrue(
                    any(
                        re.fullmatch(rf"cpp-shared\.html#\w+-{member}", address)
                        for address in links(f"cpp-{name}.html")
                    ),
                    f"{name} {member}",
                )
        self.assertNotIn("cpp-shared.html#Owned-clone", links("cpp-Request.html"))

    def test_lose_no_word_of_the_header(self):
        shown = [words_of(page) for name, page in PARSED.items() if name.startswith("cpp")]
        comments = re.findall(r"(?m)^ *(/\*.*?\*/)", CPP_HEADER, re.DOTALL)
        told = [
            part
            for comment in comments
            for part in re.split(
                r"(?m)@param\s+\S+|@return|@(?:end)?code|^ *\*$" r"|^ +\*\s+(?:\d\.|-) ", comment
            )
        ]
        told = {words(part) for part in told} - {"  "}
        self.assertGreater(len(told), 250)
        for part in told:
            self.assertTrue(any(part in page for page in shown), part)

    def test_show_examples_that_are_compiled_and_run(self):
        for name, page in PARSED.items():
            if not name.startswith("cpp") or name == "cpp-conventions.html":
                continue
            blocks = [text_of(block) for block in page.find("body/main").findall("pre")]
            programs = [
                block for block in blocks if block.startswith("#include <") and "main(" in block
            ]
            self.assertTrue(programs, name)
            for program in programs:
                transcript = blocks[blocks.index(program) + 1]
                stem = re.search(r"\./(cpp-[a-z]+)", transcript)[1]
                source = SOURCE / f"docs/examples/{stem}.cpp"
                self.assertTrue(source.read_text().endswith(program + "\n"), name)
                self.assertEqual(
                    source.with_suffix(".txt").read_text().strip("\n"), transcript.strip("\n"), name
                )
                self.assertTrue(words_of(page.find("body/main/h1")), name)

    def test_of_examples_leave_none_out(self):
        shown = "".join(FILES[name] for name in PAGES if name.startswith("cpp"))
        for source in SOURCE.glob("docs/examples/*.cpp"):
            self.assertIn(f"./{source.stem}", shown)


class Pages(unittest.TestCase):
    def test_satisfy_tidy(self):
        made = run(
            os.environ["TIDY"],
            "-quiet",
            "-errors",
            "--gnu-emacs",
            "yes",
            "--strict-tags-attributes",
            "yes",
            *sorted(PAGES),
            cwd=TREE,
        )
        self.assertEqual((made.returncode, made.stdout, made.stderr), (0, "", ""))

    def test_link_to_what_is_there(self):
        anchors = {
            name: {element.get("id") for element in page.iter() if element.get("id")}
            for name, page in PARSED.items()
        }
        for name, page in PARSED.items():
            addresses = [
                element.get(attribute)
                for element in page.iter()
                for attribute in ("href", "src", "action")
                if element.get(attribute)
            ]
            self.assertGreater(len(addresses), 5)
            for address in addresses:
                file, _, anchor = address.partition("#")
                self.assertIn(file, FILES, name)
                self.assertTrue(not anchor or anchor in anchors[file], f"{name}: {address}")

    def test_are_all_reached_from_the_index(self):
        reached = {"index.html"}
        left = ["index.html"]
        while left:
            new = {address.partition("#")[0] for address in links(left.pop())} - reached
            reached |= new
            left += new
        self.assertEqual(reached, set(PAGES))

    def test_are_few_steps_from_a_list_that_needs_no_script(self):
        named = [address for address in links("names.html") if address in PAGES]
        self.assertLessEqual({f"{name}.html" for name in EXPORTS}, set(named))
        self.assertIn("names.html", links("index.html"))

    def test_have_names_that_differ_in_more_than_case(self):
        clashes = collections.Counter(name.lower() for name in FILES)
        self.assertEqual([name for name, count in clashes.items() if count > 1], [])

    def test_have_titles_of_their_own_and_headings_in_order(self):
        titles = collections.Counter(text_of(page.find("head/title")) for page in PARSED.values())
        self.assertEqual([title for title, count in titles.items() if count > 1], [])
        for name, page in PARSED.items():
            self.assertEqual(page.get("lang"), "en")
            levels = [
                int(element.tag[1])
                for element in page.iter()
                if re.fullmatch("h[1-6]", element.tag)
            ]
            self.assertEqual(levels.count(1), 1, name)
            for before, after in zip([0, *levels], levels):
                self.assertLessEqual(after, before + 1, name)

    def test_label_what_is_typed_into(self):
        for page in PARSED.values():
            labels = {label.get("for") for label in page.iter("label")}
            self.assertEqual({field.get("id") for field in page.iter("input")}, labels)

    def test_show_no_marks_of_the_header(self):
        for name, page in PARSED.items():
            for element in page.find("body/main").iter():
                if element.tag in ("p", "li", "dd", "td", "th"):
                    text = re.sub('"[^"]*"', "", text_of(element))
                    self.assertNotRegex(text, r"`|@(?!tarn)|/\*|\*/", name)

    def test_can_be_read_in_light_and_in_dark(self):
        def brightness(colour):
            channels = [int(colour[i : i + 2], 16) / 255 for i in (1, 3, 5)]
            channels = [
                c / 12.92 if c <= 0.03928 else ((c + 0.055) / 1.055) ** 2.4 for c in channels
            ]
            return sum(weight * c for weight, c in zip((0.2126, 0.7152, 0.0722), channels))

        schemes = re.findall(r":root \{(.*?)\}", FILES["style.css"], re.DOTALL)
        self.assertEqual(len(schemes), 2)
        for scheme in schemes:
            colours = dict(re.findall(r"--(\w+): (#[0-9a-f]{6});", scheme))
            for above, below in (
                ("text", "paper"),
                ("quiet", "paper"),
                ("link", "paper"),
                ("text", "code"),
                ("link", "code"),
                ("text", "marked"),
            ):
                dark, bright = sorted(brightness(colours[name]) for name in (above, below))
                self.assertGreaterEqual((bright + 0.05) / (dark + 0.05), 4.5, f"{above} on {below}")


class Tasks(unittest.TestCase):
    """The table of what one wants, and the cheat sheet."""

    def test_compile(self):
        calls = [
            call
            for topic in TASKS["topic"]
            for part in ("sheet", "more")
            for task in topic.get(part, [])
            for call in task[1:]
        ]
        self.assertGreater(len(calls), 100)
        body = "".join(f"  (void)({call});\n" for call in calls if "write" not in call)
        body += "".join(f"  {call};\n" for call in calls if "write" in call)
        code = CALLS.replace(";\n", " {\n" + body + "}\n")
        compiled = run(*CC, "-Wno-format-nonliteral", input=code)
        self.assertEqual((compiled.returncode, compiled.stderr), (0, ""))

    def test_are_all_in_the_table_and_lead_to_the_functions(self):
        rows = [[text_of(cell) for cell in row] for row in PARSED["which-function.html"].iter("tr")]
        linked = set(links("which-function.html"))
        for topic in TASKS["topic"]:
            for wanted, *calls in topic.get("sheet", []) + topic.get("more", []):
                self.assertIn([wanted, "".join(calls)], rows)
                for name in re.findall(r"(\w+)\(", " ".join(calls)):
                    self.assertIn(f"{name}.html", linked)

    def test_of_the_cheat_sheet_fit_one_sheet(self):
        """Counted in lines of two columns of A4, as the style sheet has it, with room to spare."""
        sheet = PARSED["cheat-sheet.html"].find("body/main/div[@class='sheet']")
        printed = FILES["style.css"].partition("@media print")[2]
        size, line = map(
            float,
            re.search(r"\.sheet \{.*font-size: (\S+)pt; line-height: (\S+)pt", printed).groups(),
        )
        mono = float(re.search(r"\.sheet code \{ font-size: (\S+)pt", printed)[1])
        point = 25.4 / 72
        column = (210 - 2 * 10 - 6) / 2
        # A letter is 0.6 em wide in a monospaced font, about 0.55 in another. A long call goes on in
        # a second line, between words.
        calls = [text_of(call) for call in sheet.findall(".//dd/code")]
        letters = int((column - 3) // (0.6 * mono * point))
        wrapped = [
            textwrap.wrap(call, letters, break_long_words=False, break_on_hyphens=False)
            for call in calls
        ]
        self.assertEqual([line for call in wrapped for line in call if len(line) > letters], [])
        lines = sum(map(len, wrapped)) + 2 * len(sheet.findall(".//h2"))
        for tag in ("dt", "li"):
            for element in sheet.iter(tag):
                lines += -(-len(text_of(element)) * 0.55 * size * point // (column - 5))
        self.assertGreater(lines, 100)
        title = 20
        self.assertLess(lines * line * point / 2 + title, 0.9 * (297 - 2 * 10))


class Search(unittest.TestCase):
    PAGE = """
        function Element(tag) { this.tag = tag; this.children = []; this.value = ''; this.on = {}; }
        Element.prototype.appendChild = function (child) { this.children.push(child); };
        Element.prototype.addEventListener = function (name, f) { this.on[name] = f; };
        Object.defineProperty(Element.prototype, 'textContent', {
          get: function () {
            return (this.text || '') + this.children.map(function (child) {
              return child.textContent; }).join(''); },
          set: function (text) { this.text = text; this.children = []; } });
        var parts = { query: new Element('input'), found: new Element('ul'),
                      count: new Element('p') };
        parts.query.form = new Element('form');
        var location = { href: '' };
        var document = {
          getElementById: function (id) { return parts[id]; },
          createElement: function (tag) { return new Element(tag); },
          createTextNode: function (text) { return { textContent: text }; } };
        function type(text) { parts.query.value = text; parts.query.on.input(); }
    """

    def evaluate(self, expression, *before):
        script = "\n".join(
            [
                self.PAGE,
                FILES["search-index.js"],
                FILES["search.js"],
                *before,
                f"print(JSON.stringify({expression}));",
            ]
        )
        with tempfile.NamedTemporaryFile("w", suffix=".js") as file:
            file.write(script)
            file.flush()
            made = run(os.environ["DUK"], file.name)
        self.assertEqual((made.returncode, made.stderr), (0, ""))
        return json.loads(made.stdout)

    def found(self, *queries):
        """The names that each query finds, in order."""
        return self.evaluate(
            f"{json.dumps(queries)}.map(function (query) {{ return find(entries, "
            "query).map(function (entry) { return entry[0]; }); })"
        )

    def test_finds_each_export_first_by_its_name(self):
        for name, found in zip(EXPORTS, self.found(*EXPORTS)):
            self.assertEqual(found[0].lower(), name.lower())

    def test_leads_each_name_to_its_page(self):
        entries = self.evaluate("entries")
        names = {name: address for name, address, _ in entries}
        self.assertEqual(len(names), len(entries))
        for name in EXPORTS:
            self.assertEqual(names[name], f"{name}.html")
        for name in re.findall(r"#define (TARN_\w+) +\d+u", HEADER) + ["TarnHandle", "TarnStatus"]:
            self.assertEqual(names[name], f"conventions.html#{name}")
        for name, address, text in entries:
            self.assertIn(address.partition("#")[0], PAGES)
            self.assertTrue(text.endswith("."), name)

    def test_finds_words_of_names_and_sentences_in_any_case_and_order(self):
        by_parts, by_case, by_sentence, by_both, by_call = self.found(
            "header cookie add",
            "FORMFILE_WRITE",
            "checkbox ticked",
            "cookie seconds max-age",
            "Tarn_getFile()",
        )
        self.assertEqual(by_parts, ["HTTPResponseHeader_addCookie", "tarn::PlainHeader::add"])
        self.assertEqual(by_case, ["FormFile_writeToStream"])
        self.assertEqual(by_sentence, ["Tarn_queryCheckbox", "tarn::Request::checked"])
        self.assertEqual(
            by_both, [f"tarn::{name}::max_age" for name in ("CookieView", "Cookie", "SetCookie")]
        )
        self.assertEqual(by_call, ["Tarn_getFile"])

    def test_puts_names_that_begin_with_the_query_before_others(self):
        found = self.found("html")[0]
        self.assertTrue(found[0].startswith("HTML"))
        late = [name for name in found if not name.startswith("HTML")]
        self.assertIn("FormEntryList_toHTML", late)
        self.assertEqual(found[-len(late) :], late)

    def test_finds_nothing_for_nothing_or_for_what_is_not_there(self):
        self.assertEqual(self.found("", "  ", "()", "zebra"), [[], [], [], []])

    def test_shows_what_it_finds_while_one_types_and_no_more_when_it_is_gone(self):
        shown = self.evaluate(
            "[shown, parts.found.children.length, parts.count.textContent]",
            "type('getfile');",
            "var item = parts.found.children[0];",
            "var shown = [item.children[0].href, item.textContent," " parts.count.textContent];",
            "type('');",
        )
        self.assertEqual(
            shown,
            [
                [
                    "Tarn_getFile.html",
                    "Tarn_getFile Lends the first file whose " "field has this name.",
                    "1 found",
                ],
                0,
                "",
            ],
        )

    def test_goes_to_the_first_result_or_else_to_all_names(self):
        visited = self.evaluate(
            "visited",
            """
            var stopped = 0, visited = [];
            var event = { preventDefault: function () { ++stopped; } };
            ['getfile', 'zebra', ''].forEach(function (query) {
              location.href = '';
              type(query);
              parts.query.form.on.submit(event);
              visited.push([location.href, stopped]);
            });""",
        )
        self.assertEqual(visited, [["Tarn_getFile.html", 1], ["", 1], ["", 1]])


class Generator(unittest.TestCase):
    """What becomes of sources that were changed."""

    def generate(self, folder, header=HEADER, tasks=None, cpp=None, **environment):
        folder = Path(folder)
        (folder / "tarn").mkdir()
        for name, text in (cpp or CPP_HEADERS).items():
            (folder / name).write_text(text)
        (folder / "tarn.h").write_text(header)
        (folder / "tasks.toml").write_text(tasks or (SOURCE / "docs/tasks.toml").read_text())
        return run(
            sys.executable,
            "-B",
            SOURCE / "docs/web.py",
            "--header",
            folder / "tarn.h",
            "--pages",
            SOURCE / "docs/pages.toml",
            "--tasks",
            folder / "tasks.toml",
            "--cpp-header",
            folder / "tarn.hpp",
            "--cpp-notes",
            SOURCE / "docs/cpp.toml",
            "--release",
            os.environ["RELEASE"],
            folder / "html",
            env={**os.environ, **environment},
        )

    def refuses(self, reason, **changed):
        with tempfile.TemporaryDirectory() as folder:
            made = self.generate(folder, **changed)
            self.assertEqual(made.returncode, 1, reason)
            self.assertIn(reason, made.stderr)
            self.assertFalse((Path(folder) / "html").exists())

    def test_writes_the_same_pages_whenever_and_wherever_it_runs(self):
        with tempfile.TemporaryDirectory() as folder:
            made = self.generate(folder, TZ="Pacific/Auckland", LC_ALL="C", PYTHONHASHSEED="7")
            self.assertEqual((made.returncode, made.stderr), (0, ""))
            self.assertEqual(
                {path.name: path.read_text() for path in (Path(folder) / "html").iterdir()}, FILES
            )

    def test_refuses_a_function_that_no_example_calls(self):
        self.refuses(
            "no example uses Tarn_count",
            header=HEADER.replace(
                "/** Lends the first file",
                "/** Counts. @return 0 */\n"
                "TARN_API int Tarn_count(TarnHandle *handle);\n\n/** Lends the first file",
                1,
            ),
        )

    def test_refuses_a_reference_to_a_function_that_is_not_there(self):
        self.refuses(
            "no page describes Tarn_getCheckbox()",
            header=HEADER.replace("in any case.", "as Tarn_getCheckbox() does.", 1),
        )

    def changed(self, before, after):
        self.assertEqual(CPP_HEADER.count(before), 1, before)
        return {name: text.replace(before, after) for name, text in CPP_HEADERS.items()}

    def test_refuses_a_public_member_for_c_plus_plus_without_documentation(self):
        self.refuses(
            "Saved::error(): not documented",
            cpp=self.changed(
                "  /** Why it is not: a number of <cerrno>, such as EEXIST; 0 when it is. */\n", ""
            ),
        )
        self.refuses(
            "Owned::clone(): not documented",
            cpp=self.changed("  /** A copy with all that belongs to the object. */\n", ""),
        )
        self.refuses(
            "Text::Text(): not documented",
            cpp=self.changed(
                "  Text(Text &&other) noexcept\n",
                "  explicit Text(int number);\n  Text(Text &&other) noexcept\n",
            ),
        )

    def test_refuses_a_class_and_a_function_for_c_plus_plus_without_documentation(self):
        self.refuses(
            "Raw2: not documented",
            cpp=self.changed(
                "/** Reads an attribute. */", "class Raw2 {};\n\n/** Reads an attribute. */"
            ),
        )
        self.refuses(
            "shout(): not documented",
            cpp=self.changed(
                "/** Reads an attribute. */", "void shout();\n\n/** Reads an attribute. */"
            ),
        )

    def test_refuses_what_it_does_not_understand_of_c_plus_plus(self):
        for line in ("union Both { int a; };", "int count;", "template <class T> T twice(T);;\n}"):
            with tempfile.TemporaryDirectory() as folder:
                made = self.generate(
                    folder,
                    cpp=self.changed(
                        "/** Reads an attribute. */", f"{line}\n\n/** Reads an attribute. */"
                    ),
                )
                self.assertEqual(made.returncode, 1, line)
                self.assertRegex(made.stderr, r"tarn\.hpp: tarn/element\.hpp: line \d+: ", line)
        self.refuses(
            "not understood: int open",
            cpp=self.changed(
                "  /** Why it is not: a number of <cerrno>",
                "  /** Open. */\n  int open = 0;\n" "  /** Why it is not: a number of <cerrno>",
            ),
        )

    def test_refuses_an_explanation_of_no_argument_for_c_plus_plus(self):
        self.refuses(
            "Response::redirect(): has no argument way",
            cpp=self.changed("@param path  with the query", "@param way  with the query"),
        )

    def test_refuses_a_member_for_c_plus_plus_that_no_example_uses(self):
        self.refuses(
            "no example of Saved uses weight",
            cpp=self.changed(
                "  /** Why it is not: a number of <cerrno>",
                "  /** Bytes. */\n  int weight() const;\n"
                "  /** Why it is not: a number of <cerrno>",
            ),
        )

    def test_refuses_a_reference_to_a_member_that_is_not_there(self):
        self.refuses(
            "no page describes Response::biscuit()",
            cpp=self.changed(
                "A cookie to be set, for Response::cookie().",
                "A cookie to be set, for Response::biscuit().",
            ),
        )

    def test_refuses_a_task_for_a_function_that_is_not_there(self):
        self.refuses(
            "there is no function Tarn_findAll, and a task for it",
            tasks='rules = []\n[[topic]]\ntitle = "Files"\n'
            'more = [["all of them", "Tarn_findAll(&request)"]]\n',
        )


if __name__ == "__main__":
    unittest.main()
