"""What the reference has besides the header: pages.toml, the examples, the manuals of others."""

import re
import tomllib
from dataclasses import dataclass
from pathlib import Path

import cpp_reference
import reference as model
from reference import HeaderError, located, one_line

# Where the functions of others that the texts name are described.
SECTIONS = {
    "alarm": 2,
    "atof": 3,
    "execve": 2,
    "free": 3,
    "malloc": 3,
    "posix_spawn": 3,
    "printf": 3,
    "strcasecmp": 3,
    "strcmp": 3,
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
        """What the page is found under besides its own name."""
        members = self.family.names() if self.family else []
        return [name for name in self.also + members if name != self.name]


def sentence(text: str) -> str:
    """A remark of the header's as a sentence of a page."""
    return text[:1].upper() + text[1:] + ("" if text.endswith((".", '."')) else ".")


def first_sentence(comment: model.Comment) -> str:
    return re.match(r".*?[.!?](?=\s|$)|.*", comment.blocks[0].text)[0]


def read_example(path: Path) -> Example:
    comment, code = re.fullmatch(r"(/\*.*?\*/)\n(.*)", path.read_text(), re.DOTALL).groups()
    transcript = path.with_suffix(".txt").read_text()
    return Example(
        path.stem,
        one_line(model.comment_text(comment)),
        code.strip().splitlines(),
        transcript.splitlines(),
    )


def read_pages(path: Path, families: list[model.Family]) -> list[Page]:
    """The pages of a file: the overview, and one for each family."""
    entries = tomllib.loads(path.read_text())["page"]
    by_title = {family.title: family for family in families}
    examples = path.parent / "examples"
    pages = [
        Page(
            entry["name"],
            entry["summary"],
            entry.get("also", []),
            entry.get("intro", ""),
            [read_example(examples / f"{name}.c") for name in entry["examples"]],
            by_title.get(entry.get("family")),
        )
        for entry in entries
    ]
    for title in sorted(by_title.keys() - {entry.get("family") for entry in entries}):
        raise HeaderError(f"there is no page for {title}")
    for title in sorted({entry.get("family", "") for entry in entries} - by_title.keys() - {""}):
        raise HeaderError(f"there is no family {title}, and a page for it")
    return pages


def read_notes(path: Path) -> tuple[dict, dict[str, list[Example]]]:
    """The file with what the header does not say, and the programs for each page."""
    notes = tomllib.loads(path.read_text())
    folder = path.parent / "examples"
    return notes, {
        page: [read_example(folder / f"{name}.cpp") for name in names]
        for page, names in notes["examples"].items()
    }


class Headers:
    """All that the reference is made of, below the root of the source."""

    def __init__(self, root: Path):
        c, cpp = root / "include/tarn.h", root / "include/tarn.hpp"
        with located(c):
            self.reference = model.parse(c.read_text())
            self.pages = read_pages(root / "docs/pages.toml", self.reference.families)
        with located(cpp):
            self.cpp = cpp_reference.parse(cpp.read_text(), cpp.parent)
        self.notes, self.examples = read_notes(root / "docs/cpp.toml")
