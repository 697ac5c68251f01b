"""Writes the pages of the reference for C++ in HTML, from include/tarn.hpp and docs/cpp.toml.

There is a page for each class, for what classes share, for the functions of namespace tarn, for the
conventions of the header, and cpp.html, which names them all.
"""

import re
import textwrap
from html import escape

import cpp_reference
import reference as model
from cpp_reference import AS_CONTAINERS, OF_CONTAINERS, Class, Member
from frame import WIDTH, Prose, code, link
from pages import SECTIONS, Example, first_sentence, sentence
from reference import HeaderError


def words(member: Member) -> str:
    """The first sentence about a member."""
    return sentence(first_sentence(member.comment)) if member.comment.blocks else AS_CONTAINERS


def page_file(name: str) -> str:
    return f"cpp-{name}.html"


def anchor(name: str) -> str:
    return {"operator[]": "operator-at", "operator bool": "operator-bool"}.get(name, name)


def uses(line: str, member: Member, owner: str) -> bool:
    """Tells whether a line of a program looks like a use of a member."""
    name = member.name
    if name == "operator bool":
        return bool(re.search(r"\bif \(|!\w| \? ", line))
    if name == "operator[]":
        return bool(re.search(r"\w\[", line))
    if name == owner:
        return bool(re.search(rf"\b{name}( \w+)?[({{;]", line))
    return bool(re.search(rf"\b{name}\b" + (r"\(" if member.is_function() else ""), line))


class Writer(Prose):
    """Writes the pages; knows which page describes what."""

    def __init__(
        self,
        reference: cpp_reference.Reference,
        notes: dict,
        examples: dict[str, list[Example]],
        c_entries: dict[str, tuple[str, str]],
    ):
        self.reference = reference
        self.shared = notes["shared"]
        self.examples = examples
        self.c_entries = c_entries
        self.classes = {each.name: each for each in reference.classes()}
        self.context: Class | None = None  # whose page is written
        self.links_classes = True
        # The addresses of all members of each class, of the functions, and what search finds.
        self.addresses: dict[str, dict[str, str]] = {}
        self.functions = {
            each.name: f'{page_file("functions")}#{each.name}' for each in reference.members()
        }
        self.entries: dict[str, tuple[str, str]] = {}
        for each in reference.classes():
            self.entries[f"tarn::{each.name}"] = page_file(each.name), first_sentence(each.comment)
            own = [
                (f"{page_file(each.name)}#{anchor(member.name)}", member) for member in each.members
            ]
            own += [
                (f'{page_file("shared")}#{base.name}-{anchor(member.name)}', member)
                for base, member in reference.inherited(each)
            ]
            places = self.addresses.setdefault(each.name, {})
            for address, member in own:
                places.setdefault(member.name, address)
                name = f"tarn::{each.name}::{member.name}"
                if member.name != each.name and member.name not in each.bases + ["Owned"]:
                    self.entries.setdefault(name, (address, words(member)))
        for base in reference.bases:
            self.addresses[base.name] = {
                member.name: f'{page_file("shared")}#{base.name}-{anchor(member.name)}'
                for owner, member in [(base, each) for each in base.members]
                + reference.inherited(base)
            }
        for member in reference.members():
            self.entries[f"tarn::{member.name}"] = self.functions[member.name], words(member)
        # In prose a class is meant where a capital letter is no beginning of a sentence.
        self.marked = re.compile(
            r"\btarn::(?:"
            + "|".join(self.classes)
            + r")\b|(?<=[a-z,] )(?:"
            + "|".join([*self.classes, *self.c_types()])
            + r")\b"
        )

    def c_types(self) -> list[str]:
        return [name for name in self.c_entries if name[0].isupper() and "_" not in name]

    # -- Texts

    def address(self, name: str) -> str:
        """Where a function is described, as the page that is written names it; or nothing."""
        owner, _, member = name.rpartition("::")
        if owner in self.addresses and member in self.addresses[owner]:
            return self.addresses[owner][member]
        if self.context and name in self.addresses[self.context.name]:
            return self.addresses[self.context.name][name]
        if name in self.functions:
            return self.functions[name]
        if name in self.c_entries:
            return self.c_entries[name][0]
        known = {places[name] for places in self.addresses.values() if name in places}
        if not known and name not in SECTIONS:
            raise HeaderError(f"no page describes {name}()")
        return known.pop() if len(known) == 1 else ""

    def name_link(self, name: str) -> str:
        bare = name.removeprefix("tarn::")
        if (
            bare in self.classes
            and self.links_classes
            and not (self.context and bare == self.context.name)
        ):
            return link(page_file(bare), name)
        return link(self.c_entries[bare][0], name) if bare in self.c_entries else name

    def linked(self, text: str) -> str:
        """Code, in which classes and what tarn.h has lead to their pages."""
        return re.sub(
            r"(?<![\w.:>])(?:tarn::)?\w+(?!\()",
            lambda word: self.name_link(word[0]),
            escape(text, quote=False),
        )

    def flow(self, text: str) -> str:
        html = ""
        for kind, content in model.pieces(text):
            if kind == "function":
                address = self.address(content)
                html += link(address, code(content + "()")) if address else code(content + "()")
            elif kind in ("code", "constant"):
                html += f"<code>{self.linked(content)}</code>"
            elif kind == "environment":
                html += code(content)
            elif kind == "quotation":
                html += escape(content, quote=False)
            else:
                html += self.marked.sub(
                    lambda name: f"<code>{self.name_link(name[0])}</code>",
                    escape(content, quote=False),
                )
        return html

    # -- Members

    def prototype(self, declaration: str) -> str:
        """A declaration, with lines that end between arguments."""
        head, opening, rest = declaration.partition("<" if declaration.startswith("using") else "(")
        lines = head.replace("> explicit", ">\nexplicit").split("\n")
        # What stands together has no blank to break at.
        rest = re.sub(r"(?<!,) ", "\0", rest)
        start = (lines[-1] + opening).replace(" ", "\0")
        lines[-1:] = textwrap.wrap(
            start + rest,
            WIDTH,
            break_long_words=False,
            break_on_hyphens=False,
            subsequent_indent=" " * min(len(start), 24),
        )
        text = "\n".join(lines).replace("\0", " ")
        return f'<pre class="prototype"><code>{self.linked(text)}</code></pre>'

    def member(self, member: Member, id: str) -> str:
        lines = [
            f'<h3 id="{id}">{code(member.name)}</h3>' if id else "",
            self.prototype(member.declaration),
        ]
        if member.comment.blocks:
            lines.append(self.blocks(member.comment.blocks))
        else:
            lines.append(f"<p>{AS_CONTAINERS}</p>")
        if member.comment.arguments:
            lines.append(
                self.definitions(
                    [
                        (", ".join(map(code, argument.names)), self.flow(sentence(argument.text)))
                        for argument in member.comment.arguments
                    ]
                )
            )
        if member.comment.result:
            lines.append(f'<p>Result: {self.flow(member.comment.result.rstrip("."))}.</p>')
        return "\n".join(filter(None, lines))

    def members(self, members: list[Member], prefix: str = "") -> list[str]:
        """Those of one name stand together, below one heading."""
        lines = []
        before = ""
        for member in members:
            lines.append(
                self.member(member, prefix + anchor(member.name) if member.name != before else "")
            )
            before = member.name
        return lines

    def shown(self, name: str, members: list[Member]) -> list[str]:
        """The examples of a page; they use every member that is told there."""
        programs = self.examples[name]
        for member in members:
            if member.name in OF_CONTAINERS or member.declaration.endswith(" = delete;"):
                continue
            if not any(uses(line, member, name) for program in programs for line in program.code):
                raise HeaderError(f"no example of {name} uses {member.name}")
        lines = ["<h2>Examples</h2>" if len(programs) > 1 else "<h2>Example</h2>"]
        for program in programs:
            lines += [f"<h3>{program.name}.cpp</h3>"] if len(programs) > 1 else []
            lines.append(self.example(program))
        return lines

    # -- Pages

    def class_page(self, section: cpp_reference.Section, each: Class) -> str:
        self.context = each
        lines = [
            f'<p class="trail">{link("cpp.html", escape("C++: " + section.title))}</p>',
            f'<h1>{code("tarn::" + each.name)}</h1>',
            self.blocks(each.comment.blocks),
            self.prototype(each.declaration),
        ]
        if each.declaration.startswith("enum"):
            lines += ["<h2>Values</h2>", "<dl>"]
            lines += [
                f'<dt id="{value.name}">{code(value.name)}</dt>\n'
                f"<dd>{self.flow(sentence(value.comment.blocks[0].text))}</dd>"
                for value in each.members
            ]
            lines.append("</dl>")
        elif each.members:
            lines += ["<h2>Members</h2>", *self.members(each.members)]
        inherited: dict[str, list[Member]] = {}
        for base, member in self.reference.inherited(each):
            inherited.setdefault(base.name, []).append(member)
        for base, members in inherited.items():
            rows = [
                [
                    link(
                        f'{page_file("shared")}#{base}-{anchor(member.name)}',
                        code(each.name if member.name == base else member.name),
                    ),
                    self.flow(words(member)),
                ]
                for member in members
            ]
            lines += [
                f'<h2>{self.shared[base]["title"]}</h2>',
                self.table(["Member", "What it does"], rows),
            ]
        lines += self.shown(each.name, each.members)
        lines += [f"<h2>{escape(section.title)}</h2>", '<ul class="names">']
        for other in section.classes:
            name = code(f"tarn::{other.name}")
            lines.append(f"<li>{name if other is each else link(page_file(other.name), name)}</li>")
        self.context = None
        return "\n".join([*lines, "</ul>"])

    def shared_page(self) -> str:
        lines = [
            "<h1>What types share</h1>",
            "<p>Types that work alike have these members alike.</p>",
        ]
        for base in self.reference.bases:
            self.context = base
            notes = self.shared[base.name]
            self.links_classes = True
            lines += [
                f'<h2 id="{base.name}">{notes["title"]}</h2>',
                self.blocks(model.blocks(notes["text"])),
            ]
            self.links_classes = False  # a parameter's name is not the class's
            lines += self.members(base.members, f"{base.name}-")
        self.links_classes = True
        self.context = None
        members = [
            member
            for base in self.reference.bases
            for member in base.members
            if member.name != base.name
        ]
        return "\n".join(lines + self.shown("shared", members))

    def functions_page(self) -> str:
        members = self.reference.members()
        text = [block for section in self.reference.sections for block in section.comment.blocks]
        return "\n".join(
            [
                "<h1>Functions and constants of namespace tarn</h1>",
                self.blocks(text),
                *["<h2>Members of the namespace</h2>", *self.members(members)],
                *self.shown("functions", members),
            ]
        )

    def conventions(self) -> str:
        return "\n".join(
            ["<h1>Conventions of tarn.hpp</h1>", self.blocks(self.reference.overview.blocks)]
        )

    def index(self) -> str:
        lines = [
            "<h1>Tarn for C++</h1>",
            self.blocks(self.reference.overview.blocks[:2]),
            self.prototype("#include <tarn.hpp>"),
            "<h2>Where to look</h2>",
            self.definitions(
                [
                    (
                        link(page_file("conventions"), "Conventions of tarn.hpp"),
                        "What holds for every type: who owns, how long a view lives.",
                    ),
                    (
                        link(page_file("functions"), "Functions and constants"),
                        "What writes a page as HTML, and what escapes a text.",
                    ),
                    (
                        link(page_file("shared"), "What types share"),
                        "The members of all owning types, of all views, of all ranges and lists.",
                    ),
                ]
            ),
        ]
        for section in self.reference.sections:
            names = [f"tarn::{each.name}" for each in section.classes]
            names += [f"tarn::{each.name}" for each in section.members]
            lines += [
                f"<h2>{escape(section.title)}</h2>",
                self.table(
                    ["Name", "What it is"],
                    [
                        [link(self.entries[name][0], code(name)), self.flow(self.entries[name][1])]
                        for name in names
                    ],
                ),
            ]
        return "\n".join([*lines, "<h2>Example</h2>", self.example(self.examples["overview"][0])])

    def names(self) -> str:
        return self.table(
            ["Name", "What it is"],
            [
                [link(self.entries[name][0], code(name)), self.flow(self.entries[name][1])]
                for name in sorted(self.entries, key=str.lower)
            ],
        )

    def pages(self) -> dict[str, tuple[str, str]]:
        """The title and the body of every page, by the name of its file."""
        made = {
            "cpp.html": ("Tarn for C++", self.index()),
            page_file("conventions"): ("Conventions of tarn.hpp", self.conventions()),
            page_file("functions"): ("Functions and constants for C++", self.functions_page()),
            page_file("shared"): ("What types for C++ share", self.shared_page()),
        }
        for section in self.reference.sections:
            for each in section.classes:
                made[page_file(each.name)] = f"tarn::{each.name}", self.class_page(section, each)
        return made
