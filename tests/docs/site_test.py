#!/usr/bin/env python3
"""The site has a page for each function and class, with an example that compiles and runs. It has
every word of the headers and the documents, and no broken links."""

import functools
import os
import re
import subprocess
import sys
import tempfile
import tomllib
import unittest
from pathlib import Path

from bs4 import BeautifulSoup

from tree import changed_tree, program_and_transcript

SOURCE = Path(os.environ["SOURCE"])
TREE = Path(os.environ["TREE"])
CC = os.environ["CC"].split() + (
    f"-std=c11 -Wall -Wextra -Wpedantic -Werror -I{SOURCE}/include -fsyntax-only -x c -".split()
)
HEADER = (SOURCE / "include/tarn.h").read_text()
FORM_HEADER = (SOURCE / "include/tarn_form.h").read_text()
SERVE_HEADER = (SOURCE / "include/tarn_serve.h").read_text()
HEADERS = HEADER + FORM_HEADER + SERVE_HEADER
INCLUDE = SOURCE / "include"
CPP_HEADERS = {
    str(path.relative_to(INCLUDE)): path.read_text()
    for path in [INCLUDE / "tarn.hpp", *sorted((INCLUDE / "tarn").glob("*.hpp"))]
}
CPP_HEADER = "".join(CPP_HEADERS.values())
TARN_EXPORTS, FORM_EXPORTS, SERVE_EXPORTS = (
    re.findall(rf"^{mark} .*?(\w+)(?:\([^;]*\)[^;(]*|);", header, re.MULTILINE | re.DOTALL)
    for mark, header in (
        ("TARN_API", HEADER),
        ("TARN_FORM_API", FORM_HEADER),
        ("TARN_SERVE_API", SERVE_HEADER),
    )
)
EXPORTS = TARN_EXPORTS + FORM_EXPORTS + SERVE_EXPORTS
TASKS = tomllib.loads((SOURCE / "docs/tasks.toml").read_text())

# Of a template's parameters.
CONSTRAINT = r", std::enable_if_t<[^;{}]*?, int> = 0>"

SHARED = tomllib.loads((SOURCE / "docs/cpp.toml").read_text())["shared"].keys()

# Variables that the code of the tasks uses.
CALLS = """
#include <tarn.h>
#include <tarn_form.h>
#include <tarn_serve.h>
void f(TarnForm *form, TarnFormField *item, TarnFormLimit limit, uint64_t size, char *buffer,
       TarnHandle request, TarnHandle list, TarnHandle file, TarnHandle other, TarnHandle env,
       TarnHandle body, TarnHandle cookie, TarnHandle string, TarnHandle result, TarnHandle header,
       TarnHandle element, TarnHandle attribute, TarnHandle child, TarnHandle node,
       TarnHandle field, const char *text, const char *other_text, const void *data, char *input,
       const uint8_t *part, uint32_t length, uint32_t i, uint32_t magic, uint32_t child_magic,
       char *made, FILE *stream, const char *format, va_list args, int (*script)(void),
       int (*prepare)(void), int count, char **arguments);
"""

FILES = {str(path.relative_to(TREE)): path for path in TREE.rglob("*") if path.is_file()}
PAGES = {name: path.read_text() for name, path in FILES.items() if name.endswith(".html")}


def run(*command, **options):
    return subprocess.run(command, capture_output=True, text=True, **options)


@functools.cache
def article(name):
    """The part of a page that other pages do not share."""
    text = re.search(r'<article role="main">.*</article>', PAGES[name], re.DOTALL)[0]
    made = BeautifulSoup(text, "html.parser")
    for link in made.find_all("a", class_="headerlink"):
        link.decompose()
    return made


@functools.cache
def words(text):
    return f' {" ".join(re.findall(r"[a-z0-9_]+", text.lower()))} '


@functools.cache
def words_of(name):
    return words(article(name).get_text(" ") + article(name).get_text())


def without_optional_spaces(code):
    return re.sub(r"\s*([*&(),;<>{}=.])\s*", r"\1", " ".join(code.split()))


def signatures(page):
    return [element.get_text() for element in page.find_all("dt", class_="sig")]


def field_content(page, name):
    """The content of a field: Parameters, Returns or Return values."""
    for heading in page.select("dl.field-list > dt"):
        if heading.get_text().strip(": ") == name:
            return heading.find_next_sibling("dd")
    return None


def shows(listing, text):
    """Tells whether a text ends with a listing, ignoring spaces at the ends of lines."""
    shown, text = (
        "\n".join(map(str.rstrip, text.strip("\n").split("\n")))
        for text in (listing.get_text(), text)
    )
    return bool(shown) and text.endswith(shown)


def listings(page):
    return [block.get_text() for block in page.find_all("pre")]


class Functions(unittest.TestCase):
    """The pages of the functions, and of the only variable."""

    def each_function(self):
        self.assertGreater(len(TARN_EXPORTS), 200)
        self.assertGreater(len(FORM_EXPORTS), 30)
        self.assertGreater(len(SERVE_EXPORTS), 4)
        for name in EXPORTS:
            yield name, article(f"{self.folder(name)}/{name}.html")

    @staticmethod
    def folder(name):
        return "forms" if name in FORM_EXPORTS else "serve" if name in SERVE_EXPORTS else "c"

    def test_has_the_prototype_for_each_export(self):
        prototypes = []
        for name, page in self.each_function():
            self.assertEqual(page.h1.get_text(), name)
            (prototype,) = signatures(page.dl.parent)[:1]
            self.assertRegex(prototype, rf"\b{name}(\(|$)")
            prototypes.append(prototype.strip() + ";")
        includes = [f"#include <{name}.h>" for name in ("tarn", "tarn_form", "tarn_serve")]
        datum = [text for text in prototypes if "(" not in text]
        self.assertEqual(datum, ["extern const char *CGIgs_empty_string;"])
        compiled = run(*CC, input="\n".join(includes + prototypes))
        self.assertEqual((compiled.returncode, compiled.stderr), (0, ""))

    def test_lists_arguments_in_order_with_descriptions(self):
        for name, page in self.each_function():
            signature = without_optional_spaces(signatures(page)[0])
            signature = re.sub(r"\(\*(\w+)\)\(.*?\)", r" \1", signature)  # of functions
            declared = re.search(r"\((.*)\)", signature)
            declared = re.findall(r"(\w+)(?:,|$)", declared[1]) if declared else []
            explained = field_content(page, "Parameters")
            explained = explained.find_all("strong") if explained else []
            self.assertEqual(
                [argument.get_text() for argument in explained],
                [argument for argument in declared if argument != "void"],
            )
            for argument in explained:
                said = argument.find_parent("p").get_text().partition("–")[2]
                self.assertTrue(said.strip(" ."), argument)

    def test_describes_the_result_unless_void(self):
        for name, page in self.each_function():
            nothing = re.search(
                rf"TARN_(FORM_|SERVE_)?API (void {name}\(|extern .*\b{name};)", HEADERS
            )
            told = field_content(page, "Returns")
            self.assertEqual(bool(told and told.get_text().strip(" .")), not nothing)

    def test_explains_each_status_in_a_result(self):
        for name, page in self.each_function():
            result, values = field_content(page, "Returns"), field_content(page, "Return values")
            named = set(re.findall(r"\bTARN_[A-Z_]+", result.get_text())) if result else set()
            told = {value.get_text() for value in values.find_all("strong")} if values else set()
            of_tarn = name in TARN_EXPORTS
            if not of_tarn and not signatures(page)[0].lstrip().startswith("TarnFormProblem"):
                named = set()  # they are mentioned, not returned
            self.assertEqual(told, {name for name in named if not name.endswith("_MAGIC")})

    def test_shows_an_example_that_calls_it(self):
        for name, page in self.each_function():
            caption = page.select_one(".code-block-caption .caption-text").get_text()
            source = SOURCE / "docs/examples" / caption
            listing = page.select_one(".code-block-caption").find_next("pre")
            marked = [line.get_text() for line in listing.find_all(class_="hll")]
            self.assertTrue(marked)
            for line in marked:
                self.assertRegex(line, rf"\b{name}\b")
            # The examples in this folder are compiled and run, and their output is compared.
            code, output = program_and_transcript(source)
            self.assertTrue(shows(listing, code), name)
            transcript = listing.find_next("pre")
            self.assertTrue(shows(transcript, output), name)
            self.assertRegex(transcript.get_text(), rf"\./{source.stem}\b")

    def test_has_the_rules_of_its_function_family(self):
        count = 0
        for name, page in self.each_function():
            family = page.find("a", class_="internal")["href"]
            folder = self.folder(name)
            self.assertIn(f"{name}.html", str(article(f"{folder}/{family}")))
            heading = page.find("p", class_="rubric", string="Rules of the family")
            if not article(f"{folder}/{family}").h1.find_next_sibling("p"):
                self.assertIsNone(heading)
                continue
            count += 1
            rules = heading.find_next_siblings()[1:]
            self.assertTrue(rules)
            for rule in rules:
                self.assertIn(words(rule.get_text(" ")), words_of(f"{folder}/{family}"))
        self.assertGreater(count, 230)

    def test_contains_every_word_of_the_header(self):
        shown = [words_of(name) for name in PAGES if name.startswith(("c/", "forms/", "serve/"))]
        comments = []
        for header in HEADER, FORM_HEADER, SERVE_HEADER:
            overview, *others = re.findall(r"^/\*.*?\*/", header, re.MULTILINE | re.DOTALL)
            comments += [overview.partition("\n")[2], *others]  # without the title
        marks = r"(?m)@param\s+\S+|@return|@(?:end)?code|^ \*$|-{4}.*|^ \*\s+\d\. "
        told = [part for comment in comments for part in re.split(marks, comment)]
        told = {words(part) for part in told} - {"  "}
        self.assertGreater(len(told), 600)
        for part in told:
            self.assertTrue(any(part in page for page in shown), part)


class Cpp(unittest.TestCase):
    """The pages of tarn.hpp."""

    # As a compiler sees it: without comments, deleted functions and private members.
    CODE = re.sub(r"//[^\n]*|/\*.*?\*/", "", CPP_HEADER, flags=re.DOTALL)
    NAMES = [name for name in PAGES if name.startswith("cpp/")]

    def declared(self):
        """The public functions of each class, found independently of the generator."""
        detail = "".join(re.findall(r"(?ms)^namespace (?:\w+::)?detail \{.*?^\}  ", self.CODE))
        found = {}
        for name, body in re.findall(r"(?m)^class (\w+)\b[^;{]*\{(.*?)^\};", self.CODE, re.DOTALL):
            if re.search(rf"\n(// .*\n)*(template.*\n)?class {name}\b", detail):
                continue
            public = re.split(r"\n (?:private|protected):", body)[0]
            public = re.sub(r"(?ms)^  class Iterator.*?^  };", "", public)
            heads = re.findall(
                r"(?m)^  (?! |friend|using)(.*?)(?:\{|;| :\n|\n {6}:)", public, re.DOTALL
            )
            heads = [head for head in heads if "(" in head and "= de" not in head]
            names = {re.search(r"(operator\W*?(?:bool)?|~?\w+)\(", head)[1] for head in heads}
            found[name] = {each.strip() for each in names if each[0] != "~" and each != "operator="}
        return found

    def test_cover_each_public_function_of_each_class(self):
        declared = self.declared()
        self.assertGreater(len(declared), 24)
        self.assertGreater(sum(map(len, declared.values())), 140)
        for name, members in declared.items():
            page = article(f"cpp/{name}.html")
            self.assertEqual(page.h1.get_text(), f"tarn::{name}")
            told = " ".join(signatures(page))
            for member in members:
                self.assertRegex(told, rf"(?<!\w){re.escape(member)}\(", name)

    def test_show_declarations_as_the_header_has_them(self):
        header = re.sub(r"\binline | ?noexcept| TARN_LIFETIMEBOUND", "", self.CODE)
        # The reference shows what can be passed, and no constraints of templates.
        texts = r"const (detail::)?(TextArgument|Name) &|(detail::)?\bKeptText "
        header = re.sub(texts, "std::string_view ", header)
        given = r"const detail::(GivenText|ViewedText) &"
        header = re.sub(given, "std::optional<std::string_view> ", header)
        header = re.sub(CONSTRAINT, ">", header)
        # Nor that a function is a template of one type.
        header = re.sub(
            r"template <class (\w+) = ([\w:]+)>\s([^;{]*)",
            lambda match: re.sub(rf"\b{match[1]}\b", match[2], match[3]),
            header,
        )
        header = without_optional_spaces(header)
        count = 0
        for name in self.NAMES:
            for signature in signatures(article(name)):
                if re.match(r"\s*(class|struct|type|enum|enumerator)\b", signature):
                    continue
                self.assertIn(without_optional_spaces(signature), header, name)
                self.assertNotRegex(signature, r"\w_\b|Terminated|Buffer", name)
                count += 1
        self.assertGreater(count, 180)

    def test_show_no_private_members(self):
        private = {"Owned", "Buffer", "Renderer", "Terminated"}
        self.assertFalse({f"cpp/{name}.html" for name in private} & set(PAGES))

    def test_show_shared_members_on_each_type_that_has_them(self):
        def shared(name, member):
            links = [link["href"] for link in article(f"cpp/{name}.html").find_all("a", href=True)]
            return any(re.fullmatch(rf"shared\.html#.*\d{member}E.*", link) for link in links)

        for name, members in {
            "Element": "clone release handle view",
            "Entries": "size begin",
            "CookieList": "add size clone release view",
            "File": "handle",
            "String": "release",
        }.items():
            for member in members.split():
                self.assertTrue(shared(name, member), f"{name} {member}")
        self.assertFalse(shared("Request", "clone"))

    def test_contain_every_word_of_the_headers(self):
        shown = [words_of(name) for name in self.NAMES]
        comments = re.findall(r"(?m)^ *(/\*.*?\*/)", CPP_HEADER, re.DOTALL)
        marks = r"(?m)@param\s+\S+|@return|@(?:end)?code|^ *\*$|^ +\*\s+(?:\d\.|-) "
        told = [part for comment in comments for part in re.split(marks, comment)]
        told = {words(part) for part in told} - {"  "}
        self.assertGreater(len(told), 250)
        for part in told:
            self.assertTrue(any(part in page for page in shown), part)

    def test_show_examples_that_are_compiled_and_run(self):
        left = {source.name for source in SOURCE.glob("docs/examples/*.cpp")}
        self.assertGreater(len(left), 8)
        for name in set(self.NAMES) - {"cpp/conventions.html"}:
            captions = article(name).select(".code-block-caption")
            self.assertTrue(captions, name)
            for caption in captions:
                source = SOURCE / "docs/examples" / caption.select_one(".caption-text").get_text()
                listing = caption.find_next("pre")
                code, output = program_and_transcript(source)
                self.assertTrue(shows(listing, code), name)
                self.assertTrue(shows(listing.find_next("pre"), output), name)
                left.discard(source.name)
        self.assertEqual(left, set())

    def test_show_each_member_in_use(self):
        count = 0
        for name in set(self.NAMES) - {f"cpp/{page}.html" for page in ("conventions", "index")}:
            page = article(name)
            code = "\n".join(block for block in listings(page) if "main(" in block)
            for signature in signatures(page):
                member = re.search(r"(operator(?: bool|\[\])|\w+)\(|\w+ = ", signature)
                left_out = ("begin", "end", "empty", *SHARED)
                if not member or "= delete" in signature or member[1] in left_out:
                    continue
                member = member[1] or member[0].removesuffix(" = ")
                use = {
                    "operator bool": r"\bif \(|!\w| \? ",
                    "operator[]": r"\w\[",
                }.get(member, rf"\b{member}( \w+)?[({{;]|\b{member}\b(?!\()")
                self.assertRegex(code, use, f"{name} {member}")
                count += 1
        self.assertGreater(count, 180)


class Pages(unittest.TestCase):
    def test_links_lead_somewhere(self):
        anchors = {
            name: set(re.findall(r'\sid="([^"]+)"', text)) | {""} for name, text in PAGES.items()
        }
        count = 0
        for name, text in PAGES.items():
            addresses = re.findall(r'<[^>]*\s(?:href|src|action)="([^"]*)"', text)
            for address in set(addresses):
                if re.match(r"https?://[\w.:-]+(/|$)|#svg-|#$|$", address):
                    continue
                file, _, anchor = re.sub(r"\?digest=\w+", "", address).partition("#")
                to = os.path.normpath(os.path.join(os.path.dirname(name), file)) if file else name
                self.assertIn(to, FILES, f"{name}: {address}")
                if to in PAGES:
                    self.assertIn(anchor, anchors[to], f"{name}: {address}")
                    count += 1
        self.assertGreater(count, 10000)

    def test_load_nothing_from_another_host(self):
        for name, text in PAGES.items():
            for tag in re.findall(r"<(?:script|link|img|iframe|source|object)\b[^>]*>", text):
                self.assertNotRegex(tag, r"""(src|href|data)=["']?(\w+:)?//""", name)
        count = 0
        for name, path in FILES.items():
            if name.endswith(".css"):
                self.assertNotRegex(path.read_text(), r"""@import|url\(["']?((\w+:)?/)""", name)
                count += 1
        self.assertGreater(count, 4)

    def test_every_page_can_be_reached_from_the_index(self):
        reached, left = {"index.html"}, ["index.html"]
        while left:
            name = left.pop()
            links = re.findall(r'<a\b[^>]*href="([^"#:]+)', PAGES[name])
            links = {os.path.normpath(os.path.join(os.path.dirname(name), link)) for link in links}
            left += links - reached & PAGES.keys()
            reached |= links
        self.assertEqual(set(PAGES) - reached, {"search.html"})

    def test_pages_of_documents_contain_every_word(self):
        left_out = ("README.md", "nightly.md")
        documents = [path for path in SOURCE.glob("docs/**/*.md") if path.name not in left_out]
        self.assertGreater(len(documents), 10)
        for path in documents + [SOURCE / "CHANGELOG.md", SOURCE / "SECURITY.md"]:
            place = str(path.relative_to(SOURCE)).removeprefix("docs/")
            name = place.removesuffix(".md") + ".html"
            shown = words_of(name if name in PAGES else name.lower())
            text = re.sub(r"(?ms)^```\{toctree\}.*?^```$|^```.*?$|^:::.*?$", "", path.read_text())
            text = re.sub(r"(?s)<!--.*?-->|<a id=\S+></a>", "", text)
            text = re.sub(r"!\[.*?\]\(.*?\)", "", text)
            text = re.sub(r"\[\^\w+\]:?", "", text)  # the site numbers footnotes
            text = re.sub(r"\{doc\}`| <[\w/-]+>(?=`)|\]\([^)\s]*\)", "", text)
            text = re.sub(rf"\b({'|'.join(EXPORTS)})\(3\)", r"\1", text)
            for paragraph in re.split(r"\n\s*\n|(?m:^\s*(?:[-|#>$]|\d+\.) ?)|\||!\[", text):
                if words(paragraph).strip():
                    self.assertIn(words(paragraph), shown, f"{place}: {paragraph}")

    def test_show_no_header_markup(self):
        for name in PAGES:
            if name.startswith(("c/", "cpp/", "forms/", "serve/")):
                for element in article(name).find_all(["p", "li", "dd", "td", "th"]):
                    text = re.sub("“[^”]*”", "", element.get_text())
                    if not element.find("pre"):
                        self.assertNotRegex(text, r"`|@(?!tarn)|/\*|\*/", name)


class Tasks(unittest.TestCase):
    """The table of tasks, and the cheat sheet."""

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

    def test_table_has_each_task_with_links_to_its_functions(self):
        page = article("c/which-function.html")
        rows = [[words(cell.get_text()) for cell in row.find_all("td")] for row in page("tr")]
        linked = [link["href"].partition("#")[0] for link in page.find_all("a", href=True)]
        linked = {os.path.basename(address) for address in linked}
        for topic in TASKS["topic"]:
            for wanted, *calls in topic.get("sheet", []) + topic.get("more", []):
                self.assertIn([words(wanted), words(" ".join(calls))], rows)
                for name in re.findall(r"(\w+)\(", " ".join(calls)):
                    self.assertIn(f"{name}.html", linked)


class Generator(unittest.TestCase):
    """How the generator handles modified sources."""

    WRITE = "import sys, pathlib, sources; sources.write(*map(pathlib.Path, sys.argv[1:]))"

    def generate(self, folder, environment=(), **changes):
        tree = changed_tree(folder, **changes)
        return run(
            *(sys.executable, "-B", "-c", self.WRITE, tree, tree / "pages"),
            env={**os.environ, "PYTHONPATH": str(SOURCE / "docs"), **dict(environment)},
        )

    def refuses(self, reason, **changes):
        with tempfile.TemporaryDirectory() as folder:
            made = self.generate(folder, **changes)
            self.assertEqual(made.returncode, 1, reason)
            self.assertIn(reason, made.stderr)
            self.assertFalse((Path(folder) / "pages").exists())

    def test_output_does_not_depend_on_time_or_folder(self):
        written = []
        for environment in {"PYTHONHASHSEED": "7"}, {"TZ": "Pacific/Auckland", "LC_ALL": "C"}:
            with tempfile.TemporaryDirectory() as folder:
                made = self.generate(folder, environment)
                self.assertEqual((made.returncode, made.stderr), (0, ""))
                pages = Path(folder) / "pages"
                written.append(
                    {path.name: path.read_bytes() for path in pages.rglob("*.*") if path.is_file()}
                )
        self.assertGreater(len(written[0]), 250)
        self.assertEqual(*written)

    def test_refuses_a_function_that_no_example_calls(self):
        before = "/** Finds the first file"
        counter = "/** Counts. @return 0 */\nTARN_API int Tarn_count(void);\n\n"
        self.refuses(
            "no example uses Tarn_count",
            include={"tarn.h": HEADER.replace(before, counter + before, 1)},
        )

    def test_refuses_a_reference_to_an_unknown_function(self):
        self.refuses(
            "no page describes Tarn_getCheckbox()",
            include={"tarn.h": HEADER.replace("in any case.", "as Tarn_getCheckbox() does.", 1)},
        )

    def test_refuses_an_example_without_its_output(self):
        code, _ = program_and_transcript(SOURCE / "docs/examples/body.c")
        self.refuses("body.c does not have a comment, code", docs={"examples/body.c": code})

    def test_refuses_a_link_to_a_missing_file(self):
        text = "# A guide\n\nSee [another](nothing.md).\n"
        self.refuses("has a link to nothing.md", docs={"guide/memory.md": text})

    def changed(self, before, after):
        self.assertEqual(CPP_HEADER.count(before), 1, before)
        return {name: text.replace(before, after) for name, text in CPP_HEADERS.items()}

    def refuses_cpp(self, reason, before, after):
        self.refuses(reason, include=self.changed(before, after))

    def test_refuses_an_undocumented_public_cpp_member(self):
        error = (
            "  /** Why it was not: an errno value such as EEXIST, or -1 if the form has a problem; "
        )
        error += "0 if it was. */\n"
        self.refuses_cpp("Saved::error(): not documented", error, "")
        clone = "  /** A copy with all that belongs to the object. */\n"
        self.refuses_cpp("Owned::clone(): not documented", clone, "")
        text = "  Text(Text &&other) noexcept\n"
        self.refuses_cpp("Text::Text(): not documented", text, "  explicit Text(int n);\n" + text)

    def test_refuses_an_undocumented_cpp_class_or_function(self):
        before = "/** Reads an attribute. */"
        self.refuses_cpp("Raw2: not documented", before, "class Raw2 {};\n\n" + before)
        self.refuses_cpp("shout(): not documented", before, "void shout();\n\n" + before)

    def test_refuses_cpp_it_cannot_parse(self):
        before = "/** Reads an attribute. */"
        for line in ("union Both { int a; };", "int count;", "template <class T> T twice(T);;\n}"):
            with tempfile.TemporaryDirectory() as folder:
                include = self.changed(before, f"{line}\n\n{before}")
                made = self.generate(folder, include=include)
                self.assertEqual(made.returncode, 1, line)
                self.assertRegex(made.stderr, r"tarn\.hpp: tarn/element\.hpp: line \d+: ", line)
        before = "  /** Why it was not: an errno value"
        self.refuses_cpp(
            "not understood: int open", before, "  /** Open. */\n  int open = 0;\n" + before
        )

    def test_refuses_documentation_of_an_unknown_cpp_argument(self):
        self.refuses_cpp(
            "Response::redirect(): has no argument way",
            "@param path  with the query",
            "@param way  with the query",
        )

    def test_refuses_a_reference_to_an_unknown_member(self):
        self.refuses_cpp(
            "no page describes Response::biscuit()",
            "A cookie to set, for Response::cookie().",
            "A cookie to set, for Response::biscuit().",
        )


if __name__ == "__main__":
    unittest.main()
