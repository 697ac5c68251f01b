"""Writes the sources of the site, for Sphinx: the pages of the reference, from the headers and the
templates in docs/site, and copies of the documents, in which names link to the reference."""

import json
import os
import re
import shutil
import subprocess
import tomllib
from pathlib import Path

import reference as model
from pages import SECTIONS, Headers, Library, first_sentence, sentence
from reference import HeaderError

# The pages of files that documents link to, apart from the documents in docs/.
ELSEWHERE = {
    "CHANGELOG.md": "changelog.md",
    "SECURITY.md": "security.md",
    "README.md": "index.md",
    "docs/guide/README.md": "index.md",
    "include/tarn.h": "c/index.rst",
    "include/tarn_form.h": "forms/index.rst",
    "include/tarn_serve.h": "serve/index.rst",
    "include/tarn.hpp": "cpp/index.rst",
    "examples": "examples.rst",
}


def named(text: str, name: str) -> bool:
    return bool(re.search(rf"\b{name}\b", text))


def family_file(family: model.Family) -> str:
    return "-".join(re.findall(r"\w+", family.title.partition(":")[0].lower()))


class Names:
    """The role and target in Sphinx of each name in the headers. Names of functions end with "()".
    A member's bare name has a target only if no other class declares that name."""

    def __init__(self, headers: Headers):
        roles = {}
        for library in headers.libraries:
            roles |= {name: "c:type" for name in library.types()}
            for constants in library.reference.constants:
                roles |= {each.name: "c:macro" for each in constants.members}
        for family in headers.families():
            rows = [row for block in family.comment.blocks for row in getattr(block, "rows", [])]
            roles |= {row[0]: "c:macro" for row in rows if re.fullmatch(r"TARN_\w+", row[0])}
            roles |= {each.name: "c:var" for each in family.variables()}
            roles |= {each.name + "()": "c:func" for each in family.functions()}
        self.targets = {name: (role, name.removesuffix("()")) for name, role in roles.items()}
        cpp = {f"{each.name}()": each.name for each in headers.cpp.members()}
        bare: dict[str, set[str]] = {}
        for each in headers.cpp.classes() + headers.cpp.bases:
            cpp[each.name] = each.name
            own = [(each, member) for member in each.members] + headers.cpp.inherited(each)
            for owner, member in own:
                full = f"{owner.name}::{member.name}"
                cpp.setdefault(f"{each.name}::{member.name}()", full)
                bare.setdefault(f"{member.name}()", set()).add(full)
        cpp = {name: full.pop() if len(full) == 1 else "" for name, full in bare.items()} | cpp
        self.targets |= {name: ("cpp:any", f"tarn::{full}") for name, full in cpp.items() if full}
        self.known = self.targets.keys() | cpp.keys()
        plain = "|".join(name for name in roles if not name.endswith(")"))
        classes = "|".join(each.name for each in headers.cpp.classes())
        # In prose, a capitalized word is a class unless it begins a sentence.
        self.plain = re.compile(
            rf"\b(?:{plain}|tarn::(?:{classes}))\b|(?<=\w[a-z,] )(?:{classes})\b(?!\.)"
        )

    def role(self, text: str, owner: str = "", form: str = r"\ :{}:`{} <{}>`\ ") -> str:
        """A name as a link to its description. Other code stays unchanged."""
        key = text.removeprefix("tarn::")
        for name in (f"{owner}::{key}", key):
            if name in self.targets:
                return form.format(self.targets[name][0], text, self.targets[name][1])
        if text.endswith("()") and key not in self.known and key[:-2] not in SECTIONS:
            raise HeaderError(f"no page describes {text}")
        return rf"\ ``{text}``\ "

    def flow(self, text: str, owner: str = "") -> str:
        """A text of the headers."""
        made = ""
        for kind, content in model.pieces(text):
            if kind in ("plain", "quotation"):
                content = re.sub(r"([\\*`|<>]|_(?!\w))", r"\\\1", content).replace("://", r":\ //")
                content = re.sub(r"\bquirk (\d+)", r":ref:`quirk \1 <quirk-\1>`", content)
                made += self.plain.sub(lambda name: self.role(name[0], owner), content)
            elif kind == "command":
                made += rf"\ :doc:`{content}(1) </tools/{content}>`\ "
            else:
                made += self.role(content + "()" * (kind == "function"), owner)
        return made

    def markdown(self, text: str) -> str:
        """A document: `Tarn_new()`, `Tarn_new(3)` and `tarn::Request` in it become links."""

        def role(match: re.Match) -> str:
            name = match[1].replace("(3)", "()")
            target = self.targets.get(name.removeprefix("tarn::"), ("", ""))
            linked = target[0].startswith("c:") or "::" in name or name.isidentifier() and target[0]
            return self.role(name, form="{{{}}}`{} <{}>`") if linked and target[0] else match[0]

        return re.sub(r"(?<!\[)`([\w:]+(?:\(3?\))?)`", role, text)


class Site:
    """The files that Sphinx reads, by name. The search shows a sentence about each page."""

    def __init__(self, root: Path):
        self.root = root
        self.headers = Headers(root)
        self.names = Names(self.headers)
        self.functions = {
            each.name: each for family in self.headers.families() for each in family.functions()
        }
        self.files: dict[str, str] = {}
        self.summaries: dict[str, str] = {}
        self.templates = self.headers.templates(
            "site",
            site=self,
            tasks=tomllib.loads((root / "docs/tasks.toml").read_text()),
            named=named,
            family_file=family_file,
        )
        self.templates.filters["flow"] = self.names.flow

    def add(self, name: str, summary: str, template: str = "", **values) -> None:
        self.summaries[name] = summary
        text = self.templates.get_template(f"{template or Path(name).name}.rst").render(**values)
        self.files[f"{name}.rst"] = re.sub(r"\n{3,}", "\n\n", text)

    # -- The reference

    def arguments(self, family: model.Family, function: model.Function) -> list[tuple[str, str]]:
        said = {
            name: each.text
            for comment in (family.comment, function.comment)
            for each in comment.arguments
            for name in each.names
        }
        return [(each.name, said[each.name]) for each in function.parameters]

    def results(self, function: model.Function) -> list[model.Function]:
        """The function, those that its result refers to, those that their results refer to ..."""
        alike = [function]
        for each in alike:
            names = re.findall(r"\b(?:as|status of) (\w+)\(\)", each.comment.result)
            alike += [self.functions[n] for n in names if self.functions.get(n, each) not in alike]
        return alike

    def example(self, page, name: str):
        others = [example for other in self.headers.pages() for example in other.examples]
        for example in [*page.examples, *others]:
            if any(named(line, name) for line in example.code):
                return example
        raise HeaderError(f"no example uses {name}")

    def add_library(self, library: Library) -> None:
        folder = library.folder
        overview, *families = library.pages
        values = {"library": library}
        for page in families:
            notes = []
            for member in page.family.members:
                if isinstance(member, model.Comment):
                    notes.append(member)
                else:
                    words = first_sentence(member.comment)
                    values |= {"page": page, "member": member, "notes": notes}
                    self.add(f"{folder}/{member.name}", words, "function", **values)
            name = family_file(page.family)
            self.add(
                f"{folder}/{name}", sentence(page.summary), "family", **values | {"page": page}
            )
        words = "Every function, by family."
        self.add(f"{folder}/index", words, "c", library=library, page=overview, pages=families)
        kinds = " and ".join(library.kinds).lower()
        words = "Rules for every function" + (f"; types, {kinds}." if kinds else ".")
        self.add(f"{folder}/conventions", words, library=library)

    def add_reference(self) -> None:
        for library in self.headers.libraries:
            self.add_library(library)
        self.add("c/which-function", "Common tasks, with the calls for each.")
        self.add("c/cheat-sheet", "The calls that most scripts need, on one page to print.")
        for each in self.headers.cpp.classes():
            self.add(f"cpp/{each.name}", first_sentence(each.comment), "class", each=each)
        self.add("cpp/index", "Every type of tarn.hpp, by header.", "cpp")
        self.add("cpp/conventions", "Ownership, and how long a view is valid.", "cpp-conventions")
        self.add("cpp/functions", "Functions that write a page as HTML and escape text.")
        self.add("cpp/shared", "The members of all owning types, views, ranges and lists.")
        scripts = sorted(self.root.glob("examples/*.[ch]*"))
        self.add("examples", "Complete CGI scripts to copy and change.", scripts=scripts)

    # -- Documents

    def add_documents(self) -> None:
        root = [self.root / "CHANGELOG.md", self.root / "SECURITY.md"]
        for path in [*root, *sorted((self.root / "docs").rglob("*.md"))]:
            place = str(path.relative_to(self.root))
            page = ELSEWHERE.get(place, place.removeprefix("docs/"))
            # The report of a night is for those who work on Tarn.
            if place not in ("docs/guide/README.md", "docs/nightly.md"):
                self.add_document(page, path.parent, path.read_text())
        for tool in sorted(self.root.glob("tools/*.1")):
            command = ["mandoc", "-T", "markdown", tool]
            text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
            text = re.sub(r"\A.*\n\n# NAME\n\n.* - (.*)\n", rf"# {tool.stem}\n\n\1.\n", text)
            text = re.sub(r"(?m)^# ([A-Z])(.*)", lambda m: f"## {m[1]}{m[2].lower()}", text)
            text = text.rpartition("\n\n")[0].replace("\\*&zwnj;", "\\*") + "\n"
            self.add_document(f"tools/{tool.stem}.md", tool.parent, text)

    def add_document(self, page: str, folder: Path, text: str) -> None:
        def link(match: re.Match) -> str:
            """Leads to the page of the file on the site. A file without a page is only named."""
            words, file, place = match.groups("")
            to = os.path.relpath(folder / file, self.root)
            to = re.sub(r"include/tarn/.*", "include/tarn.hpp", to)
            if not (self.root / to).exists():
                raise HeaderError(f"{page} has a link to {file}, which is not there")
            if to.startswith("examples/"):
                return f"[{words}]({Path(to).name})"
            if to not in ELSEWHERE and not to.startswith("docs/"):
                return words
            to = ELSEWHERE.get(to, to.removeprefix("docs/"))
            return f"[{words}]({os.path.relpath(to, Path(page).parent)}{place})"

        text = re.sub(r'<a id="([\w-]+)"></a>', r"(\1)=", text)
        parts = re.split(r"(?ms)(^```.*?^```$)", text)
        for index, part in enumerate(parts):
            if index % 2:
                caption = r"```{code-block} \1\n:caption: \2\n\n"
                parts[index] = re.sub(r"\A```(\w+) (\S+)\n", caption, part)
            else:
                part = self.names.markdown(part)
                parts[index] = re.sub(r"\[([^][]*)\]\((?!\w+:|#)([^)#\s]+)(#[^)]*)?\)", link, part)
        quirk = r"\]\((?:[^()\s]*quirks\.md)?#(quirk-\d+)\)"
        self.files[page] = re.sub(quirk, r"](\1)", "".join(parts))
        words = re.search(r"(?s)^# [^\n]*\n\n(?:##[^\n]*\n\n)?(\S.*?)\n\n", text)
        words = re.sub(r"\[(.*?)\]\(.*?\)", r"\1", words[1] if words else "")
        self.summaries[page.removesuffix(".md")] = model.one_line(words)

    def add_search_words(self) -> None:
        """Adds entries to the index. The search lists them first."""
        index = {".md": "```{{index}} {}\n```\n\n{}", ".rst": ".. index:: {}\n\n{}"}
        for page, words in tomllib.loads((self.root / "docs/search.toml").read_text()).items():
            for suffix, form in index.items():
                if page + suffix in self.files:
                    text = self.files[page + suffix]
                    self.files[page + suffix] = form.format(", ".join(words), text)


def write(root: Path, target: Path) -> None:
    site = Site(root)
    site.add_reference()
    site.add_documents()
    site.add_search_words()
    summaries = re.sub(r"[`*]", "", json.dumps(site.summaries, indent=0))
    files = site.files | {"static/summaries.js": f"var summaries = {summaries};\n"}
    for path in sorted(root.glob("docs/**/*.[ps][nv]g")):
        (target / path.relative_to(root / "docs").parent).mkdir(parents=True, exist_ok=True)
        shutil.copyfile(path, target / path.relative_to(root / "docs"))
    for name, text in files.items():
        (target / name).parent.mkdir(parents=True, exist_ok=True)
        (target / name).write_text(text)
