#!/usr/bin/env python3
"""Writes the manual pages of section 3 from the headers, docs/*.toml and docs/mdoc.

Usage: man.py SOURCE VERSION YYYY-MM-DD FOLDER

SOURCE is the root of the source. FOLDER/man3 then has the pages and nothing else: one for each
library and each family, a redirect to the family's page for each function, and tarn.hpp(3) for C++.
"""

import datetime
import re
import sys
import textwrap
from pathlib import Path

import reference as model
from pages import SECTIONS, Headers, Library, Page
from reference import HeaderError

CLOSING = ".,:;)]?!"
WIDTH = 78
ESCAPED = str.maketrans(dict(zip("\\-'`^~", [r"\e", r"\-", r"\(aq", r"\(ga", r"\(ha", r"\(ti"])))


# ---- mdoc --------------------------------------------------------------------------------------


def escape_prose(text: str) -> str:
    """Words of a sentence. A "-" is a hyphen between letters, and a minus or a dash elsewhere."""
    return re.sub(r"(?<![a-z])-|-(?![a-z])", r"\\-", text.replace("\\", r"\e"))


def escape_code(text: str) -> str:
    """A line of code. Every character is shown unchanged."""
    text = text.translate(ESCAPED)
    return r"\&" + text if text.startswith(".") else text


def argument(text: str) -> str:
    return f'"{text}"' if " " in text else text


def wrap_sentences(text: str) -> list[str]:
    """Plain text. Each sentence begins a new line."""
    lines = []
    for part in re.split(r"(?<=[.!?])\s+|(?<=[.!?]\))\s+", text.strip()):
        lines += textwrap.wrap(part, WIDTH, break_long_words=False, break_on_hyphens=False)
    return [r"\&" + line if line[0] in ".'" else line for line in lines]


class Writer:
    """Writes the pages of a library. It knows which page describes each name."""

    def __init__(self, headers: Headers, library: Library, release: str, date: datetime.date):
        self.pages = library.pages
        self.overviews = {"tarn.hpp", *(each.pages[0].name for each in headers.libraries)}
        self.home = {
            name: page.name for page in headers.pages() for name in [page.name, *page.names()]
        }
        self.types = {name for each in headers.libraries for name in each.types()}
        variables = {each.name for family in headers.families() for each in family.variables()}
        self.marked = re.compile(rf'\b({"|".join(sorted(self.types | variables))})\b')
        self.templates = headers.templates(
            "mdoc", library=library, release=release, date=date, see_also=self.see_also, zip=zip
        )
        self.templates.filters |= {
            "flow": self.flow,
            "code": escape_code,
            "argument": argument,
            "longest": lambda texts: max(texts, key=len),
        }

    # -- Texts

    def macro(self, page: Page, kind: str, content: str) -> str:
        if kind == "constant":
            return f"Dv {content}"
        if kind == "environment":
            return f"Ev {content}"
        if kind == "command":
            return f"Xr {content} 1"
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

    def flow(self, text: str, page: Page) -> str:
        """A text as lines. Each name gets a line of its own."""
        parts = [""]  # words and macros in turn
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
        lines += wrap_sentences(words)
        return "".join(f"{line}\n" for line in lines)

    # -- Pages

    def see_also(self, page: Page, text: str) -> list[str]:
        """The pages that describe what the text of this page names, including its example."""
        references = {
            (int(section), self.home.get(name, name))
            for name, section in re.findall(r"\bXr ([\w-]+) (\d)", text)
        }
        names = {self.home[name] for name in re.findall(r"\b(\w+)\(", text) if name in self.home}
        names |= {each.name for each in self.pages if each.family is None or page.family is None}
        if page.family is None:
            names |= self.overviews
        references |= {(3, name) for name in names}
        ordered = sorted(references - {(3, page.name)}, key=lambda one: (one[0], one[1].lower()))
        return [f"{name} {section}" for section, name in ordered]

    def page(self, page: Page) -> str:
        return self.templates.get_template("page.mdoc").render(page=page)

    def all_pages(self) -> dict[str, str]:
        """The text of every page, by its name."""
        made = {}
        for page in self.pages:
            made[page.name] = self.page(page)
            made |= {name: f".so man3/{page.name}.3" for name in page.names()}
        return made


class CppWriter(Writer):
    """Writes the page of the header for C++, a summary of its classes."""

    def __init__(self, headers: Headers, release: str, date: datetime.date):
        super().__init__(headers, headers.libraries[0], release, date)
        cpp = headers.cpp
        self.types |= {each.name for each in cpp.classes()}
        self.members = {
            member.name
            for each in [*cpp.classes(), *cpp.bases, *cpp.sections]
            for member in each.members
        }

    def macro(self, page: Page, kind: str, content: str) -> str:
        if kind == "function" and content.rpartition("::")[2] in self.members:
            return f"Fn {content}"
        if kind == "code" and not content.isidentifier():
            return f"Li {escape_prose(content)}"
        return super().macro(page, kind, content)


# ---- The command -------------------------------------------------------------------------------


def main() -> None:
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    root, release, date, folder = sys.argv[1:]
    try:
        headers = Headers(Path(root))
        day = datetime.date.fromisoformat(date)
        tree = {"tarn.hpp": CppWriter(headers, release, day).page(headers.cpp_page)}
        for library in headers.libraries:
            tree |= Writer(headers, library, release, day).all_pages()
    except HeaderError as error:
        sys.exit(str(error))
    section = Path(folder) / "man3"
    section.mkdir(parents=True, exist_ok=True)
    for stale in section.iterdir():
        stale.unlink()
    for name, text in tree.items():
        (section / f"{name}.3").write_text(text + "\n")


if __name__ == "__main__":
    main()
