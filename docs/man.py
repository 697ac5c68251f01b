#!/usr/bin/env python3
"""Writes the manual pages of section 3 from the headers and docs/*.toml.

Usage: man.py SOURCE VERSION YYYY-MM-DD FOLDER

SOURCE is the root of the source. FOLDER/man3 holds the pages afterwards, and nothing else: one for
each family, for each function a page that sends man on to its family's, and tarn.hpp(3) for C++.
"""

import datetime
import re
import sys
import textwrap
from pathlib import Path

import cpp_reference
import reference as model
from pages import SECTIONS, Example, Headers, Page, first_sentence, sentence
from reference import HeaderError

CLOSING = ".,:;)]?!"
WIDTH = 78
ESCAPED = str.maketrans(dict(zip("\\-'`^~", [r"\e", r"\-", r"\(aq", r"\(ga", r"\(ha", r"\(ti"])))


# ---- mdoc, line by line ------------------------------------------------------------------------


def escape_prose(text: str) -> str:
    """Words of a sentence. A hyphen between letters is one, any other is a minus or a dash."""
    return re.sub(r"(?<![a-z])-|-(?![a-z])", r"\\-", text.replace("\\", r"\e"))


def escape_code(text: str) -> str:
    """A line of code, every character of it as it is."""
    text = text.translate(ESCAPED)
    return r"\&" + text if text.startswith(".") else text


def argument(text: str) -> str:
    return f'"{text}"' if " " in text else text


def wrap_sentences(text: str) -> list[str]:
    """Plain text: each sentence begins a line."""
    lines = []
    for part in re.split(r"(?<=[.!?])\s+|(?<=[.!?]\))\s+", text.strip()):
        lines += textwrap.wrap(part, WIDTH, break_long_words=False, break_on_hyphens=False)
    return [r"\&" + line if line[0] in ".'" else line for line in lines]


def code_display(lines: list[str]) -> list[str]:
    return [".Bd -literal -offset indent", *map(escape_code, lines), ".Ed"]


def tagged(width: str, items: list[tuple[str, list[str]]]) -> list[str]:
    """A list of names and lines about them."""
    lines = [line for head, lines in items for line in (f".It {head}", *lines)]
    return [f".Bl -tag -width {width} -compact", *lines, ".El"]


class Writer:
    """Writes the pages; knows which page describes what."""

    def __init__(self, headers: Headers, release: str, date: datetime.date):
        self.reference = reference = headers.reference
        self.pages = pages = headers.pages
        self.release = release
        self.date = date
        self.home = {name: page.name for page in pages for name in [page.name, *page.names()]}
        self.types = {type.name for type in reference.types}
        variables = {
            variable.name for family in reference.families for variable in family.variables()
        }
        self.marked = re.compile(rf'\b({"|".join(sorted(self.types | variables))})\b')

    # -- Texts

    def macro(self, page: Page, kind: str, content: str) -> str:
        if kind == "constant":
            return f"Dv {content}"
        if kind == "environment":
            return f"Ev {content}"
        if kind == "function":
            if self.home.get(content) == page.name:
                return f"Fn {content}"
            if content in self.home:
                return f"Xr {content} 3"
            if content in SECTIONS:
                return f"Xr {content} {SECTIONS[content]}"
            raise HeaderError(f"{page.name}: no page describes {content}()")
        if content in self.types or "*" in content:
            return f"Vt {content}"
        functions = page.family.functions() if page.family else []
        arguments = {parameter.name for function in functions for parameter in function.parameters}
        return f"Fa {content}" if content in arguments else f"Va {content}"

    def flow(self, page: Page, text: str) -> list[str]:
        """A text as lines: words, and a line of its own for each name."""
        parts: list[str | tuple[str, str]] = [""]  # words and macros in turn
        for kind, content in model.pieces(text):
            if kind == "quotation":
                parts[-1] += escape_prose(content)
            elif kind == "plain":
                first, *rest = self.marked.split(content)
                parts[-1] += escape_prose(first)
                for name, words in zip(rest[::2], rest[1::2]):
                    parts += [self.macro(page, "code", name), escape_prose(words)]
            else:
                parts += [self.macro(page, kind, content), ""]

        lines = []
        words = parts[0]
        for macro, after in zip(parts[1::2], parts[2::2]):
            before, opening = re.fullmatch(r"(.*?)(\S*)", words, re.DOTALL).groups()
            closing, words = re.fullmatch(r"(\S*)(.*)", after, re.DOTALL).groups()
            lines += wrap_sentences(before)
            line = f".Pf {opening} {macro}" if opening else f".{macro}"
            if closing.strip(CLOSING):
                line += f" Ns {closing}"
            elif closing:
                line += " " + " ".join(closing)
            lines.append(line)
        return lines + wrap_sentences(words)

    def blocks(self, page: Page, blocks: list[model.Block]) -> list[str]:
        """Blocks with a paragraph's distance between them."""
        lines = []
        for block in blocks:
            if isinstance(block, model.Paragraph):
                lines += [".Pp"] + self.flow(page, block.text)
            elif isinstance(block, model.Code):
                lines += code_display(block.lines)
            elif isinstance(block, model.Table):
                lines += self.table(page, block)
            elif isinstance(block, model.Items):
                lines.append(".Bl -bullet -compact")
                for item in block.items:
                    lines += [".It", *self.flow(page, item)]
                lines.append(".El")
            else:
                lines.append(".Bl -enum")
                for item in block.items:
                    name, text = item.split(". ", 1)
                    lines += [".It", f".Em {name} .", *self.flow(page, text)]
                lines.append(".El")
        return lines[1:] if lines[:1] == [".Pp"] else lines

    def table(self, page: Page, table: model.Table) -> list[str]:
        """Rows of two cells are names and what they mean; wider ones have a line of headings."""
        if len(table.rows[0]) == 2:
            width = max(len(row[0]) for row in table.rows)
            rows = [(name, self.flow(page, sentence(text))) for name, text in table.rows]
            return [".Pp", *tagged("x" * min(width, 20) + " -offset indent", rows)]
        widths = [argument(max(column, key=len)) for column in zip(*table.rows)]
        lines = [f'.Bl -column {" ".join(widths[:-1])} "" -offset indent']
        for index, row in enumerate(table.rows):
            cells = [f"Em {cell}" for cell in row] if index == 0 else row
            lines.append(".It " + " Ta ".join(cells))
        return lines + [".El"]

    # -- Functions

    def synopsis(self, page: Page) -> list[str]:
        lines = [".In tarn.h"]
        for member in page.family.members:
            if isinstance(member, model.Declaration):
                lines.append(f".Vt {member.declaration} ;")
            elif isinstance(member, model.Function):
                lines += [f".Ft {member.type}", f".Fo {member.name}"]
                lines += [f".Fa {argument(str(parameter))}" for parameter in member.parameters]
                lines += [".Fa ..."] * member.variadic + [".Fc"]
        return lines

    def arguments(self, page: Page, comment: model.Comment) -> list[str]:
        if not comment.arguments:
            return []
        widths = [len(", ".join(argument.names)) for argument in comment.arguments]
        width = max([width for width in widths if width <= 14], default=6)
        items = [
            ("Fa " + " , Fa ".join(each.names), self.flow(page, sentence(each.text)))
            for each in comment.arguments
        ]
        return [".Pp", *tagged("x" * width, items)]

    def members(self, page: Page) -> list[str]:
        """The family's functions, told one by one; after a remark about them all, in short."""
        lines = [".Bl -tag -width Ds"]
        short = False
        for position, member in enumerate(page.family.members):
            if isinstance(member, model.Comment):
                following = [function.name for function in page.family.members[position + 1 :]]
                width = len(max(following, key=len)) + 2
                words = self.blocks(page, member.blocks)
                lines += [".El", ".Pp", *words, ".Pp", f'.Bl -tag -width {"x" * width} -compact']
                short = True
                continue
            if isinstance(member, model.Declaration):
                lines.append(f".It Va {member.name}")
            elif short:
                lines.append(f".It Fn {member.name}")
            else:
                names = [parameter.name for parameter in member.parameters]
                lines.append(" ".join([".It Fn", member.name, *names] + ["..."] * member.variadic))
            lines += self.blocks(page, member.comment.blocks)
            lines += self.arguments(page, member.comment)
        return lines + [".El"]

    def results(self, page: Page) -> list[str]:
        """Functions that answer alike stand together."""
        alike: dict[str, list[str]] = {}
        for function in page.family.functions():
            if function.comment.result:
                alike.setdefault(function.comment.result, []).append(function.name)
        lines = []
        for text, names in alike.items():
            lines += [".Pp"] + [f".Fn {name} ," for name in names[:-1]] + [f".Fn {names[-1]}"]
            words = self.flow(page, sentence(text))
            lines += [".Bd -filled -offset indent -compact", *words, ".Ed"]
        return lines[1:]

    # -- Pages

    def example(self, page: Page, example: Example) -> list[str]:
        shown = [".Pp", "Called from a shell:", *code_display(example.transcript)]
        return [*self.flow(page, example.title), *code_display(example.code), *shown]

    def see_also(self, page: Page, lines: list[str]) -> list[str]:
        """The pages that describe what the lines of this one name, its example's too."""
        text = "\n".join(lines)
        references = {
            (SECTIONS.get(name, 3), self.home.get(name, name))
            for name in re.findall(r"\bXr (\w+) \d", text)
        }
        references |= {
            (3, self.home[name]) for name in re.findall(r"\b(\w+)\(", text) if name in self.home
        }
        references |= {
            (3, other.name) for other in self.pages if other.family is None or page.family is None
        }
        references |= {(3, "tarn.hpp")} if page.family is None else set()
        references = sorted(references - {(3, page.name)}, key=lambda one: (one[0], one[1].lower()))
        lines = [f".Xr {name} {section} ," for section, name in references]
        return lines[:-1] + [lines[-1].removesuffix(" ,")]

    def complete_page(self, page: Page, synopsis: list[str], lines: list[str]) -> list[str]:
        lines = [*lines, ".Sh EXAMPLES", *self.example(page, page.examples[0])]
        return [
            *[*self.head(page), ".Sh SYNOPSIS", *synopsis],
            *[*lines, ".Sh SEE ALSO", *self.see_also(page, lines)],
        ]

    def head(self, page: Page) -> list[str]:
        names = [page.name] + page.names()
        header = "tarn.hpp" if page.name == "tarn.hpp" else "tarn.h"
        return [
            rf".\" Made from include/{header} by docs/man.py.",
            f".Dd {self.date:%B} {self.date.day}, {self.date.year}",
            f".Dt {page.name.upper()} 3",
            f".Os Tarn {self.release}",
            ".Sh NAME",
            *[f".Nm {name} ," for name in names[:-1]],
            f".Nm {names[-1]}",
            f".Nd {page.summary}",
            ".Sh LIBRARY",
            "Tarn",
            ".Pq libtarn , Fl ltarn",
        ]

    def family_page(self, page: Page) -> list[str]:
        comment = page.family.comment
        lines = [".Sh DESCRIPTION", *self.blocks(page, model.blocks(page.intro) + comment.blocks)]
        if comment.arguments:
            lines += [".Pp", "Where nothing else is said of them, the arguments are:"]
            lines += self.arguments(page, comment)
        lines += [".Ss Functions", *self.members(page), ".Sh RETURN VALUES", *self.results(page)]
        return self.complete_page(page, self.synopsis(page), lines)

    def overview(self, page: Page) -> list[str]:
        statuses, tags = self.reference.constants
        pages = [
            (f"Xr {each.name} 3", [sentence(each.summary)]) for each in self.pages if each.family
        ]
        types = [
            (f"Vt {each.name}", self.blocks(page, each.comment.blocks))
            for each in self.reference.types
        ]
        magics = [(f"Dv {each.name}", [each.value]) for each in tags.members]
        codes = [
            (f"Dv {each.name} Pq {each.value}", self.flow(page, sentence(each.text)))
            for each in statuses.members
        ]
        lines = [
            *[".Sh DESCRIPTION", *self.blocks(page, model.blocks(page.intro))],
            *[".Ss Pages", *tagged("TARNGenericList(3)", pages)],
            *[".Ss Types", *tagged("TarnHandle", types)],
            *[".Ss Conventions", *self.blocks(page, self.reference.overview.blocks[1:])],
            *[".Ss Type tags", *self.blocks(page, tags.comment.blocks), ".Pp"],
            *tagged("TARN_MULTIPART_HEADER_MAGIC", magics),
            *[".Sh RETURN VALUES", *self.blocks(page, statuses.comment.blocks), ".Pp"],
            *tagged("TARN_NOT_IMPLEMENTED(5)", codes),
        ]
        types = [f".Vt {type.declaration} ;" for type in self.reference.types]
        return self.complete_page(page, [".In tarn.h", *types], lines)

    def all_pages(self) -> dict[str, list[str]]:
        """The lines of every page, by its name."""
        made = {}
        for page in self.pages:
            made[page.name] = self.family_page(page) if page.family else self.overview(page)
            for name in page.names():
                made[name] = [f".so man3/{page.name}.3"]
        return made


class CppWriter(Writer):
    """Writes the page of the header for C++, which tells its classes in short."""

    def __init__(self, headers: Headers, release: str, date: datetime.date):
        super().__init__(headers, release, date)
        self.cpp = cpp = headers.cpp
        self.shared = headers.notes["shared"]
        self.examples = headers.examples["overview"]
        self.types |= {each.name for each in cpp.classes()}
        self.members = {
            member.name for each in [*cpp.classes(), *cpp.bases] for member in each.members
        } | {each.name for each in cpp.members()}

    def macro(self, page: Page, kind: str, content: str) -> str:
        if kind == "function" and content.rpartition("::")[2] in self.members:
            return f"Fn {content}"
        if kind == "code" and not content.isidentifier():
            return f"Li {escape_prose(content)}"
        return super().macro(page, kind, content)

    def member_list(self, page: Page, members: list[cpp_reference.Member]) -> list[str]:
        """Names with their first sentences; of some of one name, each."""
        items = []
        for member in members:
            macro = "Fn" if member.is_function() else "Va"
            words = cpp_reference.AS_CONTAINERS
            if member.comment.blocks:
                words = sentence(first_sentence(member.comment))
            head = " ".join([macro, argument(member.name), *member.parameters])
            items.append((head, self.flow(page, words)))
        return tagged("Ds", items)

    def page(self) -> list[str]:
        page = Page("tarn.hpp", "Tarn for C++", [], "", self.examples, None)
        title, *introduction = self.cpp.overview.blocks
        lines = [".Sh DESCRIPTION", *self.blocks(page, introduction)]
        for section in self.cpp.sections:
            lines += [f".Ss {section.title}", f".In {section.header}"]
            if section.comment.blocks:
                lines += [".Pp", *self.blocks(page, section.comment.blocks)]
            for each in section.classes:
                words = self.blocks(page, each.comment.blocks)
                lines += [".Pp", f".Sy tarn::{each.name}", ".Pp", *words]
                has = dict.fromkeys(base.name for base, _ in self.cpp.inherited(each))
                has = [self.shared[name]["title"].replace("What", "what") for name in has]
                lines += (
                    [".Pp", *wrap_sentences(f'It has {" and ".join(has)}; see below.')]
                    if has
                    else []
                )
                lines += [".Pp", *self.member_list(page, each.members)] if each.members else []
            if section.members:
                lines += [".Pp", *self.member_list(page, section.members)]
        for base in self.cpp.bases:
            notes = self.shared[base.name]
            lines += [f'.Ss {notes["title"]}', *self.blocks(page, model.blocks(notes["text"]))]
            lines += [".Pp", *self.member_list(page, base.members)]
        lines = [
            line
            for before, line in zip(["", *lines], lines)
            if line != ".Pp" or not before.startswith(".Ss ")
        ]
        return self.complete_page(page, [".In tarn.hpp"], lines)


# ---- The command -------------------------------------------------------------------------------


def main() -> None:
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    root, release, date, folder = sys.argv[1:]
    try:
        headers = Headers(Path(root))
        tree = Writer(headers, release, datetime.date.fromisoformat(date)).all_pages()
        tree["tarn.hpp"] = CppWriter(headers, release, datetime.date.fromisoformat(date)).page()
    except HeaderError as error:
        sys.exit(str(error))
    section = Path(folder) / "man3"
    section.mkdir(parents=True, exist_ok=True)
    for stale in section.iterdir():
        stale.unlink()
    for name, lines in tree.items():
        (section / f"{name}.3").write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
