"""What the manual pages and the site are made from: the headers, docs/*.toml, the examples and the
templates."""

import re
import tomllib
from dataclasses import dataclass
from pathlib import Path

import jinja2

import cpp_reference
import reference as model
from reference import HeaderError, located, one_line

# The manual sections of the functions from other libraries that the texts name.
SECTIONS = {
    "_exit": 2,
    "alarm": 2,
    "atof": 3,
    "execve": 2,
    "free": 3,
    "getrandom": 2,
    "malloc": 3,
    "posix_spawn": 3,
    "pread": 2,
    "printf": 3,
    "strcasecmp": 3,
    "strcmp": 3,
    "strerror": 3,
    "system": 3,
    "vprintf": 3,
}


@dataclass
class Example:
    """A program and what it prints."""

    name: str
    title: str
    code: list[str]
    transcript: list[str]


@dataclass
class Page:
    name: str
    summary: str
    also: list[str]  # names of types that lead here
    intro: str
    examples: list[Example]
    family: model.Family | None

    def names(self) -> list[str]:
        """The other names that lead to the page."""
        members = self.family.names() if self.family else []
        return [name for name in self.also + members if name != self.name]


@dataclass
class Library:
    """A C header, the library that it declares, and their pages."""

    header: str
    name: str  # as pages call it
    title: str  # of its part of the site
    folder: str  # on the site
    kinds: list[str]  # headings for its constants: first problems or statuses; or nothing
    returned: str  # the type of the functions that return constants of the first kind
    results_suffice: bool  # to document a function
    reference: model.Reference
    pages: list[Page]

    def file(self) -> str:
        return "lib" + self.header.removesuffix(".h")

    def option(self) -> str:
        return "l" + self.header.removesuffix(".h")

    def types(self) -> set[str]:
        return {each.name for each in self.reference.types}

    def codes(self) -> list[model.Constant]:
        """The problems or statuses."""
        return self.reference.constants[0].members if self.kinds else []


def sentence(text: str) -> str:
    """A remark from the header, as a sentence of a page."""
    return text[:1].upper() + text[1:] + ("" if text.endswith((".", '."')) else ".")


def first_sentence(comment: model.Comment) -> str:
    return re.match(r".*?[.!?](?=\s|$)|.*", comment.blocks[0].text)[0]


# A program begins with a comment, its title, and ends with another one, its output. There, a
# backslash that is not shown keeps "*/" and "/*" apart.
EXAMPLE = re.compile(r"(/\*.*?\*/)\n(.*)\n/\* Output:\n(.*)\*/\n", re.DOTALL)
KEPT_APART = re.compile(r"(?<=\*)\\(?=\\*/)|(?<=/)\\(?=\\*\*)")


def read_example(path: Path) -> Example:
    parts = EXAMPLE.fullmatch(path.read_text())
    if not parts:
        raise HeaderError(f"{path} does not have a comment, code, and /* Output: ... */")
    comment, code, transcript = parts.groups()
    return Example(
        path.stem,
        one_line(model.comment_text(comment)),
        code.strip().splitlines(),
        KEPT_APART.sub("", transcript).splitlines(),
    )


def read_pages(entries: list[dict], folder: Path, families: list[model.Family]) -> list[Page]:
    """The pages of a library: the overview, and one for each family."""
    by_title = {family.title: family for family in families}
    pages = [
        Page(
            entry["name"],
            entry["summary"],
            entry.get("also", []),
            entry.get("intro", ""),
            [read_example(folder / f"{name}.c") for name in entry["examples"]],
            by_title.get(entry.get("family")),
        )
        for entry in entries
    ]
    for title in sorted(by_title.keys() - {entry.get("family") for entry in entries}):
        raise HeaderError(f"there is no page for {title}")
    for title in sorted({entry.get("family", "") for entry in entries} - by_title.keys() - {""}):
        raise HeaderError(f"there is no family {title}, and a page for it")
    return pages


def read_libraries(root: Path) -> list[Library]:
    """The libraries of pages.toml."""
    libraries = []
    for entry in tomllib.loads((root / "docs/pages.toml").read_text())["library"]:
        header = root / "include" / entry["header"]
        with located(header):
            entries = entry.pop("page")
            reference = model.parse(header.read_text(), entry["results_suffice"])
            pages = read_pages(entries, root / "docs/examples", reference.families)
        libraries.append(Library(**entry, reference=reference, pages=pages))
    return libraries


def read_notes(path: Path) -> tuple[dict, dict[str, list[Example]]]:
    """The file with what the header does not say, and the programs for each page."""
    notes = tomllib.loads(path.read_text())
    folder = path.parent / "examples"
    return notes, {
        page: [read_example(folder / f"{name}.cpp") for name in names]
        for page, names in notes["examples"].items()
    }


class Headers:
    """Everything that the reference is made from, below the root of the source."""

    def __init__(self, root: Path):
        self.root = root
        self.libraries = read_libraries(root)
        cpp = root / "include/tarn.hpp"
        with located(cpp):
            self.cpp = cpp_reference.parse(cpp.read_text(), cpp.parent)
        self.notes, self.examples = read_notes(root / "docs/cpp.toml")
        examples = self.examples["overview"]
        self.cpp_page = Page("tarn.hpp", "Tarn for C++", [], "", examples, None)

    def families(self) -> list[model.Family]:
        return [each for library in self.libraries for each in library.reference.families]

    def pages(self) -> list[Page]:
        return [page for library in self.libraries for page in library.pages]

    def templates(self, folder: str, **names) -> jinja2.Environment:
        """Loads the templates in a folder below docs/. They can use these names."""
        made = jinja2.Environment(
            loader=jinja2.FileSystemLoader(self.root / "docs" / folder),
            undefined=jinja2.StrictUndefined,
            trim_blocks=True,
            lstrip_blocks=True,
        )
        made.filters["sentence"] = sentence
        made.globals |= names | {
            "headers": self,
            "prose": model.blocks,
            "first_sentence": first_sentence,
            "AS_CONTAINERS": cpp_reference.AS_CONTAINERS,
        }
        return made
