"""Writes the sources of the site: the pages of the reference, from the headers and the templates in
docs/site, and copies of the documents with links to it. conf.py calls write()."""

import json
import os
import re
import shutil
import subprocess
import tomllib
from pathlib import Path

import jinja2

import cpp_reference
import reference as model
from cpp_reference import AS_CONTAINERS, OF_CONTAINERS
from pages import SECTIONS, first_sentence, read_notes, read_pages, sentence
from reference import HeaderError

DOCS = Path(__file__).parent
SOURCE = DOCS.parent
# Documents that are pages elsewhere than in their place below docs/, or stand for another page.
ELSEWHERE = {
    "CHANGELOG.md": "changelog.md",
    "SECURITY.md": "security.md",
    "README.md": "index.md",
    "docs/guide/README.md": "index.md",
    "include/tarn.h": "c/index.rst",
    "include/tarn.hpp": "cpp/index.rst",
    "examples": "examples.rst",
}


def named(text: str, name: str) -> bool:
    return bool(re.search(rf"\b{name}\b", text))


def family_file(family: model.Family) -> str:
    return "-".join(re.findall(r"\w+", family.title.partition(":")[0].lower()))


class Names:
    """Knows where each name of the headers is described."""

    def __init__(self, reference: model.Reference, cpp: cpp_reference.Reference):
        self.c = {each.name: "c:type" for each in reference.types}
        for constants in reference.constants:
            self.c |= {each.name: "c:macro" for each in constants.members}
        for family in reference.families:
            self.c |= {each.name: "c:var" for each in family.variables()}
            self.c |= {each.name: "c:func" for each in family.functions()}
            tables = [each for each in family.comment.blocks if isinstance(each, model.Table)]
            self.c |= {row[0]: "c:macro" for table in tables for row in table.rows if slot(row[0])}
        self.cpp = {each.name: each.name for each in cpp.members()}
        self.classes = {each.name for each in cpp.classes()}
        for each in cpp.classes() + cpp.bases:
            own = [(each, member) for member in each.members] + cpp.inherited(each)
            for owner, member in own:
                self.cpp.setdefault(f"{each.name}::{member.name}", f"{owner.name}::{member.name}")
        plain = [name for name, role in self.c.items() if role != "c:func"]
        self.plain = {
            False: re.compile(rf'\b(?:{"|".join(plain)})\b'),
            # In prose a class is meant where a capital letter is no beginning of a sentence.
            True: re.compile(
                rf'\btarn::(?:{"|".join(self.classes)})\b'
                rf'|(?<=[a-z,] )(?:{"|".join([*self.classes, *plain])})\b'
            ),
        }

    def find(self, text: str, owner: str = "") -> tuple[str, str] | None:
        """The role and the target of a name, a function's with (), if it is one of the headers'."""
        name = text.removeprefix("tarn::").removesuffix("()")
        if self.c.get(name) and (self.c[name] == "c:func") == text.endswith("()"):
            return self.c[name], name
        if not text.endswith("()"):
            return ("cpp:any", f"tarn::{name}") if name in self.classes - {owner} else None
        inside = {full for key, full in self.cpp.items() if key.endswith(f"::{name}")}
        full = self.cpp.get(f"{owner}::{name}") or self.cpp.get(name)
        if full or len(inside) == 1:
            return "cpp:any", f"tarn::{full or inside.pop()}"
        if not inside and name not in SECTIONS:
            raise HeaderError(f"no page describes {name}()")
        return None

    def rst(self, text: str, owner: str = "") -> str:
        found = self.find(text, owner)
        return rf"\ :{found[0]}:`{text} <{found[1]}>`\ " if found else rf"\ ``{text}``\ "

    def flow(self, text: str, owner: str = "", cpp: bool = False) -> str:
        """A text of the header's."""
        made = ""
        for kind, content in model.pieces(text):
            if kind in ("plain", "quotation"):
                end = 0
                for match in self.plain[cpp].finditer(content):
                    made += escape(content[end : match.start()]) + self.rst(match[0], owner)
                    end = match.end()
                made += escape(content[end:])
            else:
                made += self.rst(content + "()" * (kind == "function"), owner)
        return made

    def markdown(self, text: str) -> str:
        """A document with links from names, `Tarn_new()` and `Tarn_new(3)`, to the reference."""

        def role(match: re.Match) -> str:
            text = match[1].replace("(3)", "()")
            try:
                found = self.find(text)
            except HeaderError:
                found = None
            return f"{{{found[0]}}}`{text} <{found[1]}>`" if found else match[0]

        return re.sub(r"(?<!\[)`([\w:]+(?:\([3]?\))?)`", role, text)


def slot(text: str) -> bool:
    return bool(re.fullmatch(r"TARN_\w+", text))


def escape(text: str) -> str:
    return re.sub(r"([\\*`|_<>])", r"\\\1", text)


class Pages:
    """The templates, and what they are filled with."""

    def __init__(self):
        self.files: dict[str, str] = {}
        self.summaries: dict[str, str] = {}
        self.reference = model.parse((SOURCE / "include/tarn.h").read_text())
        self.cpp = cpp_reference.parse(
            (SOURCE / "include/tarn.hpp").read_text(), SOURCE / "include"
        )
        self.names = Names(self.reference, self.cpp)
        self.pages = read_pages(DOCS / "pages.toml", self.reference.families)
        self.notes, self.cpp_examples = read_notes(DOCS / "cpp.toml")
        self.tasks = tomllib.loads((DOCS / "tasks.toml").read_text())
        self.functions = {
            each.name: each for family in self.reference.families for each in family.functions()
        }
        self.templates = jinja2.Environment(
            loader=jinja2.FileSystemLoader(DOCS / "site"),
            undefined=jinja2.StrictUndefined,
            trim_blocks=True,
            lstrip_blocks=True,
        )
        self.templates.filters |= {
            "flow": self.names.flow,
            "sentence": sentence,
            "blocks": self.blocks,
            "lines": lambda example, name: [
                number for number, line in enumerate(example.code, 1) if named(line, name)
            ],
        }
        self.templates.globals |= {
            "site": self,
            "model": model,
            "first_sentence": first_sentence,
            "family_file": family_file,
            "AS_CONTAINERS": AS_CONTAINERS,
        }

    def blocks(self, blocks: list, owner: str = "", cpp: bool = False, define: bool = False) -> str:
        return self.templates.get_template("blocks.rst").render(
            blocks=blocks, owner=owner, cpp=cpp, define=define, slot=slot
        )

    def add(self, name: str, summary: str, template: str = "", **values) -> None:
        self.summaries[name] = summary
        text = self.templates.get_template(f"{template or Path(name).name}.rst").render(**values)
        self.files[f"{name}.rst"] = re.sub(r"\n{3,}", "\n\n", text)

    # -- C

    def arguments(self, family: model.Family, function: model.Function) -> list[tuple[str, str]]:
        said = {
            name: each.text
            for comment in (family.comment, function.comment)
            for each in comment.arguments
            for name in each.names
        }
        return [(each.name, said[each.name]) for each in function.parameters]

    def results(self, function: model.Function) -> tuple[list, list[model.Constant]]:
        """What a function answers and those it answers like, and the statuses in it."""
        alike = [function]
        for each in alike:
            for name in re.findall(r"\b(?:as|status of) (\w+)\(\)", each.comment.result):
                if name in self.functions and self.functions[name] not in alike:
                    alike.append(self.functions[name])
        statuses = self.reference.constants[0].members
        told = [one for one in statuses if any(named(f.comment.result, one.name) for f in alike)]
        return alike[1:], told

    def example(self, page, name: str):
        others = [example for other in self.pages for example in other.examples]
        for example in [*page.examples, *others]:
            if any(named(line, name) for line in example.code):
                return example
        raise HeaderError(f"no example uses {name}")

    def calls(self, calls: list[str]) -> list[str]:
        for name in re.findall(r"(\w+)\(", " ".join(calls)):
            if name not in self.functions:
                raise HeaderError(f"there is no function {name}, and a task for it")
        return calls

    def add_c(self) -> None:
        families = [page for page in self.pages if page.family]
        self.add("c/index", "Every function, by family.", "c", page=self.pages[0], pages=families)
        self.add("c/conventions", "What holds for every function; types, statuses, type tags.")
        self.add("c/which-function", "What a script wants to do, and the calls that do it.")
        self.add("c/cheat-sheet", "The calls that most scripts need, on one page to print.")
        for page in families:
            members = page.family.members
            name = family_file(page.family)
            for place, member in enumerate(members):
                if not isinstance(member, model.Note):
                    notes = [each for each in members[:place] if isinstance(each, model.Note)]
                    summary = first_sentence(member.comment)
                    values = {"page": page, "member": member, "notes": notes}
                    self.add(f"c/{member.name}", summary, "function", **values)
            self.add(f"c/{name}", sentence(page.summary), "family", page=page)

    # -- C++

    def shared_programs(self) -> list:
        members = [
            (base, member)
            for base in self.cpp.bases
            for member in base.members
            if member.name != base.name
        ]
        return self.programs("shared", [member for _, member in members])

    def programs(self, name: str, members: list[cpp_reference.Member]) -> list:
        """The examples of a page; they use every member that is told there."""
        programs = self.cpp_examples[name]
        for member in members:
            if member.name not in OF_CONTAINERS and not member.declaration.endswith(" = delete;"):
                if not any(uses(line, member, name) for each in programs for line in each.code):
                    raise HeaderError(f"no example of {name} uses {member.name}")
        return programs

    def add_cpp(self) -> None:
        self.add("cpp/index", "tarn.hpp: types that own, view and check.", "cpp")
        self.add("cpp/conventions", "Who owns, how long a view lives.", "cpp-conventions")
        self.add("cpp/functions", "What writes a page as HTML, and what escapes a text.")
        self.add("cpp/shared", "The members of all owning types, views, ranges and lists.")
        for section in self.cpp.sections:
            for each in section.classes:
                summary = first_sentence(each.comment)
                self.add(f"cpp/{each.name}", summary, "class", each=each)

    # -- Documents

    def add_documents(self) -> None:
        scripts = sorted([*SOURCE.glob("examples/*.c*"), *SOURCE.glob("examples/*.h*")])
        self.add("examples", "Scripts to start from.", scripts=[each for each in scripts])
        documents = [SOURCE / "CHANGELOG.md", SOURCE / "SECURITY.md", *DOCS.rglob("*.md")]
        for path in documents:
            place = str(path.relative_to(SOURCE))
            if place not in ("docs/guide/README.md", "README.md"):
                page = ELSEWHERE.get(place, place.removeprefix("docs/"))
                self.add_markdown(page, path.parent, path.read_text())
        for tool in sorted(SOURCE.glob("tools/*.1")):
            command = ["mandoc", "-T", "markdown", tool]
            text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
            text = re.sub(r"\A.*\n\n# NAME\n\n.* - (.*)\n", r"\1.\n", text)
            text = re.sub(r"(?m)^(#+) (\w)(.*)", lambda m: f"#{m[1]} {m[2]}{m[3].lower()}", text)
            text = text.rpartition("\n\n")[0].replace("\\*&zwnj;", "\\*")
            text = f"# {tool.stem}\n\n{text[0].upper()}{text[1:]}\n"
            self.add_markdown(f"tools/{tool.stem}.md", tool.parent, text)

    def add_markdown(self, page: str, folder: Path, text: str) -> None:
        def link(match: re.Match) -> str:
            """Links lead to the page of what they name. What has none is named and not linked."""
            to = os.path.relpath(folder / match[2], SOURCE)
            if not (SOURCE / to).exists():
                raise HeaderError(f"{page} has a link to {match[2]}, which is not there")
            if to.startswith("examples/"):
                return f"{match[1]}({Path(to).name})"
            to = ELSEWHERE.get(to, to.removeprefix("docs/") if to.startswith("docs/") else "")
            if not to:
                return match[1].strip("[]")
            return f"{match[1]}({os.path.relpath(to, Path(page).parent)}{match[3] or ''})"

        text = re.sub(r'<a id="([\w-]+)"></a>', r"(\1)=", text)
        parts = re.split(r"(?ms)(^```.*?^```$)", text)
        parts[::2] = [
            re.sub(
                r"(\[[^][]*\])\((?!\w+:|#)([^)#\s]+)(#[^)]*)?\)", link, self.names.markdown(each)
            )
            for each in parts[::2]
        ]
        named_fence = r"\A```(\w+) (\S+)\n"
        parts[1::2] = [
            re.sub(named_fence, r"```{code-block} \1\n:caption: \2\n\n", each)
            for each in parts[1::2]
        ]
        quirk = r"\]\((?:[^()\s]*quirks\.md)?#(quirk-\d+)\)"
        self.files[page] = re.sub(quirk, r"](\1)", "".join(parts))
        words = re.search(r"(?s)^# [^\n]*\n\n(?:##[^\n]*\n\n)?(\S.*?)\n\n", text)
        words = re.sub(r"\[(.*?)\]\(.*?\)", r"\1", words[1]) if words else ""
        self.summaries[page.removesuffix(".md")] = model.one_line(words)

    def add_search_words(self) -> None:
        for page, words in tomllib.loads((DOCS / "search.toml").read_text()).items():
            for name, index in (
                (f"{page}.md", "```{index} %s\n```\n\n"),
                (f"{page}.rst", ".. index:: %s\n\n"),
            ):
                if name in self.files:
                    self.files[name] = index % ", ".join(words) + self.files[name]


def uses(line: str, member: cpp_reference.Member, owner: str) -> bool:
    """Tells whether a line of a program looks like a use of a member."""
    name = member.name
    if name == "operator bool":
        return bool(re.search(r"\bif \(|!\w| \? ", line))
    if name == "operator[]":
        return bool(re.search(r"\w\[", line))
    if name == owner:
        return bool(re.search(rf"\b{name}( \w+)?[({{;]", line))
    return bool(re.search(rf"\b{name}\b" + (r"\(" if member.is_function() else ""), line))


def write(target: Path) -> None:
    pages = Pages()
    pages.add_c()
    pages.add_cpp()
    pages.add_documents()
    pages.add_search_words()
    for stale in {*map(str, target.rglob("*.*"))} - {str(target / name) for name in pages.files}:
        Path(stale).unlink()
    for name, text in pages.files.items():
        path = target / name
        path.parent.mkdir(parents=True, exist_ok=True)
        if not path.exists() or path.read_text() != text:
            path.write_text(text)
    for image in [*DOCS.rglob("*.png"), *DOCS.rglob("*.svg")]:
        (target / image.relative_to(DOCS)).parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(image, target / image.relative_to(DOCS))
    text = re.sub(r"`(.*?)`|\*\*(.*?)\*\*", r"\1\2", json.dumps(pages.summaries, indent=0))
    (target / "static").mkdir(exist_ok=True)
    (target / "static/summaries.js").write_text(f"var summaries = {text};\n")
