#!/usr/bin/env python3
"""Writes the reference in HTML from the headers and docs/*.toml.

Usage: web.py --header FILE --pages FILE --tasks FILE --cpp-header FILE --cpp-notes FILE
              --release VERSION FOLDER

FOLDER holds the pages afterwards, and nothing else: one for each function and each class, one for
each family, and those that index.html names. They work from a disk, without a server and without
JavaScript; with it, a search finds names and first sentences. The pages are XML as well as HTML.
"""

import argparse
import json
import re
import shutil
import sys
import textwrap
import tomllib
from html import escape
from pathlib import Path

import cpp_reference
import cpp_web
import reference as model
from frame import TEMPLATE, WIDTH, Prose, code, link, named
from pages import SECTIONS, Example, Page, first_sentence, read_notes, read_pages, sentence
from reference import HeaderError


def family_file(family: model.Family) -> str:
    words = re.findall(r"\w+", family.title.partition(":")[0].lower())
    return "-".join(words) + ".html"


class Writer(Prose):
    """Writes the pages; knows which page describes what."""

    def __init__(self, reference: model.Reference, pages: list[Page], tasks: dict):
        self.reference = reference
        self.tasks = tasks
        self.overview = next(page for page in pages if not page.family)
        self.families = [page for page in pages if page.family]
        self.examples = {example.name: example for page in pages for example in page.examples}
        self.functions = {
            function.name: function
            for family in reference.families
            for function in family.functions()
        }
        # Each name with its page and a sentence about it.
        self.entries: dict[str, tuple[str, str]] = {}
        for type in reference.types:
            self.entries[type.name] = f"conventions.html#{type.name}", first_sentence(type.comment)
        for constants in reference.constants:
            for constant in constants.members:
                self.entries[constant.name] = (
                    f"conventions.html#{constant.name}",
                    sentence(constant.text or "a type tag"),
                )
        for page in self.families:
            for name in [page.name, *page.also]:
                if any(member.startswith(f"{name}_") for member in page.family.names()):
                    self.entries[name] = family_file(page.family), sentence(page.summary)
            for member in page.family.members:
                if not isinstance(member, model.Note):
                    self.entries[member.name] = (
                        f"{member.name}.html",
                        first_sentence(member.comment),
                    )
        self.marked = re.compile(
            r"\b(" + "|".join(name for name in self.entries if name not in self.functions) + r")\b"
        )

    # -- Texts

    def linked(self, text: str) -> str:
        """Code, in which types, constants and functions lead to their pages."""
        return re.sub(
            r"\w+",
            lambda word: link(self.entries[word[0]][0], word[0])
            if word[0] in self.entries
            else word[0],
            escape(text, quote=False),
        )

    def flow(self, text: str) -> str:
        html = ""
        for kind, content in model.pieces(text):
            if kind == "function" and content in self.entries:
                html += link(self.entries[content][0], code(content + "()"))
            elif kind == "function" and content not in SECTIONS:
                raise HeaderError(f"no page describes {content}()")
            elif kind == "function":
                html += code(content + "()")
            elif kind in ("code", "constant"):
                html += f"<code>{self.linked(content)}</code>"
            elif kind == "environment":
                html += code(content)
            else:
                html += self.marked.sub(
                    lambda name: f"<code>{self.linked(name[0])}</code>",
                    escape(content, quote=False),
                )
        return html

    def names(self, names: list[str]) -> str:
        return self.table(
            ["Name", "What it is"],
            [
                [link(self.entries[name][0], code(name)), self.flow(self.entries[name][1])]
                for name in names
            ],
        )

    # -- Functions

    def prototype(self, member: model.Function | model.Variable) -> str:
        if isinstance(member, model.Variable):
            text = member.declaration + ";"
        else:
            head = str(model.Parameter(member.type, member.name)) + "("
            # Lines end between arguments.
            arguments = [str(parameter).replace(" ", "\0") for parameter in member.parameters]
            arguments = ", ".join(arguments + ["..."] * member.variadic) or "void"
            text = textwrap.fill(
                head.replace(" ", "\0") + arguments + ");", WIDTH, subsequent_indent=" " * len(head)
            ).replace("\0", " ")
        types = {type.name for type in self.reference.types}
        text = re.sub(
            r"\w+",
            lambda word: link(self.entries[word[0]][0], word[0]) if word[0] in types else word[0],
            escape(text, quote=False),
        )
        return f'<pre class="prototype"><code>{text}</code></pre>'

    def arguments(self, family: model.Family, function: model.Function) -> str:
        """Every argument, with what is said of it here or for the family."""
        said = {
            name: argument.text
            for comment in (family.comment, function.comment)
            for argument in comment.arguments
            for name in argument.names
        }
        alike: dict[str, list[str]] = {}
        for parameter in function.parameters:
            alike.setdefault(said[parameter.name], []).append(code(str(parameter)))
        return self.definitions(
            [
                (", ".join(parameters), self.flow(sentence(text)))
                for text, parameters in alike.items()
            ]
        )

    def result(self, function: model.Function) -> str:
        """What a function answers, what those answer that it answers like, the statuses in it."""
        alike = [function]
        for each in alike:
            for name in re.findall(r"\b(?:as|status of) (\w+)\(\)", each.comment.result):
                if name in self.functions and self.functions[name] not in alike:
                    alike.append(self.functions[name])
        lines = [f"<p>{self.flow(sentence(function.comment.result))}</p>"]
        lines += [
            f'<p>{self.flow(other.name + "()")}: {self.flow(other.comment.result)}.</p>'
            for other in alike[1:]
        ]
        statuses = [
            constant
            for constant in self.reference.constants[0].members
            if any(named(each.comment.result, constant.name) for each in alike)
        ]
        if statuses:
            lines.append(
                self.definitions(
                    [
                        (
                            f"{self.flow(status.name)} ({status.value})",
                            self.flow(sentence(status.text)),
                        )
                        for status in statuses
                    ]
                )
            )
        return "\n".join(lines)

    def example_of(self, page: Page, name: str) -> Example:
        for example in [*page.examples, *self.examples.values()]:
            if any(named(line, name) for line in example.code):
                return example
        raise HeaderError(f"no example uses {name}")

    def member_page(self, page: Page, position: int) -> str:
        family = page.family
        member = family.members[position]
        notes = [note.comment for note in family.members[:position] if isinstance(note, model.Note)]
        short = family.title.partition(":")[0]
        lines = [
            f'<p class="trail">{link(family_file(family), escape(short))}</p>',
            f"<h1><code>{member.name}</code></h1>",
            self.blocks(member.comment.blocks[:1]),
            self.prototype(member),
            self.blocks(member.comment.blocks[1:]),
        ]
        lines += [self.blocks(note.blocks) for note in notes]
        if isinstance(member, model.Function):
            if member.parameters:
                lines += ["<h2>Arguments</h2>", self.arguments(family, member)]
            if member.comment.result:
                lines += ["<h2>Result</h2>", self.result(member)]
        lines += [
            "<h2>Rules of the family</h2>",
            self.blocks(model.blocks(page.intro) + family.comment.blocks),
            "<h2>Example</h2>",
            self.example(self.example_of(page, member.name), member.name),
            f"<h2>{escape(short)}</h2>",
            '<ul class="names">',
        ]
        for name in family.names():
            words = code(name) if name == member.name else link(f"{name}.html", code(name))
            lines.append(f"<li>{words}</li>")
        return "\n".join(filter(None, [*lines, "</ul>"]))

    # -- Other pages

    def family_page(self, page: Page) -> str:
        comment = page.family.comment
        lines = [
            f"<h1>{escape(page.family.title, quote=False)}</h1>",
            self.blocks(model.blocks(page.intro) + comment.blocks),
        ]
        if comment.arguments:
            pairs = [
                (", ".join(map(code, argument.names)), self.flow(sentence(argument.text)))
                for argument in comment.arguments
            ]
            lines += [
                "<h2>Arguments</h2>",
                "<p>Where a function says nothing else of them:</p>",
                self.definitions(pairs),
            ]
        lines += ["<h2>Functions</h2>", self.names(page.family.names()), "<h2>Examples</h2>"]
        for example in page.examples:
            lines += [f"<h3>{example.name}.c</h3>", self.example(example)]
        return "\n".join(lines)

    def index(self) -> str:
        families = [
            [
                link(family_file(page.family), escape(page.family.title, quote=False)),
                self.flow(sentence(page.summary)),
            ]
            for page in self.families
        ]
        return "\n".join(
            [
                "<h1>Tarn, the reference</h1>",
                self.blocks(model.blocks(self.overview.intro)),
                "<h2>Where to look</h2>",
                self.definitions(
                    [
                        (
                            link("which-function.html", "Which function do I want?"),
                            "What a script wants to do, and the calls that do it.",
                        ),
                        (
                            link("cheat-sheet.html", "Cheat sheet"),
                            "The calls that most scripts need, on one page to print.",
                        ),
                        (
                            link("conventions.html", "Conventions"),
                            "What holds for every function; types, statuses, type tags.",
                        ),
                        (
                            link("cpp.html", "Tarn for C++"),
                            "The same as types that own, view and check: tarn.hpp.",
                        ),
                        (link("names.html", "All names"), "Every name with a sentence."),
                    ]
                ),
                "<h2>Families</h2>",
                self.table(["Family", "What it has"], families),
                "<h2>Example</h2>",
                self.example(self.overview.examples[0]),
            ]
        )

    def conventions(self) -> str:
        lines = ["<h1>Conventions</h1>", self.blocks(self.reference.overview.blocks[1:])]
        lines += ["<h2>Types</h2>", "<dl>"]
        for type in self.reference.types:
            lines += [
                f'<dt id="{type.name}">{code(type.declaration + ";")}</dt>',
                f"<dd>{self.blocks(type.comment.blocks)}</dd>",
            ]
        lines.append("</dl>")
        for title, constants in zip(["Statuses", "Type tags"], self.reference.constants):
            lines += [f"<h2>{title}</h2>", self.blocks(constants.comment.blocks), "<dl>"]
            for constant in constants.members:
                lines += [
                    f'<dt id="{constant.name}">{code(constant.name)}</dt>',
                    f"<dd>{constant.value}"
                    + (f": {self.flow(sentence(constant.text))}" if constant.text else "")
                    + "</dd>",
                ]
            lines.append("</dl>")
        return "\n".join(lines)

    def calls(self, calls: list[str]) -> str:
        for call in calls:
            for name in re.findall(r"(\w+)\(", call):
                if name not in self.functions:
                    raise HeaderError(f"there is no function {name}, and a task for it")
        return "<br />".join(f"<code>{self.linked(call)}</code>" for call in calls)

    def which_function(self) -> str:
        lines = ["<h1>Which function do I want?</h1>"]
        for topic in self.tasks["topic"]:
            rows = [
                [escape(wanted, quote=False), self.calls(calls)]
                for wanted, *calls in topic.get("sheet", []) + topic.get("more", [])
            ]
            lines += [f'<h2>{escape(topic["title"])}</h2>', self.table(["I want", "Call"], rows)]
        return "\n".join(lines)

    def cheat_sheet(self) -> str:
        lines = [
            "<h1>Tarn on one page</h1>",
            '<div class="sheet">',
            "<section>",
            "<h2>Rules</h2>",
            "<ul>",
            *[f"<li>{self.flow(rule)}</li>" for rule in self.tasks["rules"]],
            "</ul>",
            "</section>",
        ]
        for topic in self.tasks["topic"]:
            if "sheet" in topic:
                lines += [
                    "<section>",
                    f'<h2>{escape(topic["title"])}</h2>',
                    self.definitions(
                        [
                            (escape(wanted, quote=False), self.calls(calls))
                            for wanted, *calls in topic["sheet"]
                        ]
                    ),
                    "</section>",
                ]
        lines += ["<section>", "<h2>Statuses</h2>", "<ul>"]
        lines += [
            f"<li>{status.value} {self.flow(status.name)}: {self.flow(status.text)}</li>"
            for status in self.reference.constants[0].members
        ]
        return "\n".join([*lines, "</ul>", "</section>", "</div>"])

    def all_names(self, cpp: cpp_web.Writer) -> str:
        return "\n".join(
            [
                "<h1>All names</h1>",
                self.names(sorted(self.entries, key=str.lower)),
                "<h2>C++</h2>",
                cpp.names(),
            ]
        )

    def pages(self) -> dict[str, tuple[str, str]]:
        """The title and the body of every page, by the name of its file."""
        made = {
            "index.html": ("The reference", self.index()),
            "conventions.html": ("Conventions", self.conventions()),
            "which-function.html": ("Which function do I want?", self.which_function()),
            "cheat-sheet.html": ("Cheat sheet", self.cheat_sheet()),
        }
        for page in self.families:
            made[family_file(page.family)] = page.family.title, self.family_page(page)
            for position, member in enumerate(page.family.members):
                if not isinstance(member, model.Note):
                    made[f"{member.name}.html"] = member.name, self.member_page(page, position)
        return made


def files(
    pages: dict[str, tuple[str, str]], writer: Writer, cpp: cpp_web.Writer, release: str
) -> dict[str, str]:
    """The content of every file that is made, by its name."""
    pages = pages | {"names.html": ("All names", writer.all_names(cpp))}
    made = {
        name: TEMPLATE.format(title=escape(title, quote=False), release=release, body=body)
        for name, (title, body) in pages.items()
    }
    found = [
        [name, address, text.replace("`", "")]
        for name, (address, text) in (writer.entries | cpp.entries).items()
    ]
    return made | {"search-index.js": f"var entries = {json.dumps(found, indent=0)};\n"}


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--header", type=Path, required=True)
    parser.add_argument("--pages", type=Path, required=True)
    parser.add_argument("--tasks", type=Path, required=True)
    parser.add_argument("--cpp-header", type=Path, required=True)
    parser.add_argument("--cpp-notes", type=Path, required=True)
    parser.add_argument("--release", required=True)
    parser.add_argument("folder", type=Path)
    options = parser.parse_args()
    read = options.header
    try:
        reference = model.parse(read.read_text())
        pages = read_pages(options.pages, reference.families)
        tasks = tomllib.loads(options.tasks.read_text())
        writer = Writer(reference, pages, tasks)
        made = writer.pages()
        read = options.cpp_header
        notes, examples = read_notes(options.cpp_notes)
        cpp = cpp_web.Writer(
            cpp_reference.parse(read.read_text(), read.parent), notes, examples, writer.entries
        )
        made |= cpp.pages()
    except HeaderError as error:
        sys.exit(f"{read}: {error}")
    options.folder.mkdir(parents=True, exist_ok=True)
    for stale in options.folder.iterdir():
        stale.unlink()
    for asset in (Path(__file__).parent / "html").iterdir():
        shutil.copyfile(asset, options.folder / asset.name)
    for name, text in files(made, writer, cpp, options.release).items():
        (options.folder / name).write_text(text)


if __name__ == "__main__":
    main()
