"""A model of the C++ reference: the documented classes, functions and constants of the headers.

parse() reads include/tarn.hpp and the headers of include/tarn/ in the order in which
tarn/all.hpp includes them, or names them in a comment. The first comment of tarn.hpp is the
overview. Each of the other headers is a section, titled by the first line of its first comment,
unless all that it declares is in namespace detail. parse() rejects code that it does not
understand and public names without documentation. It leaves out private members, deleted overloads,
overloads for objects without a name, what the compiler would generate, friends, iterators, the type
names that every range has, and namespace detail except for base classes of public classes.
"""

import re
from dataclasses import dataclass, field
from pathlib import Path

import reference as model
from reference import Comment, HeaderError, located, one_line

# Public without documentation, because they do what they do in any container.
OF_CONTAINERS = ("begin", "end", "empty")
AS_CONTAINERS = "As of any container of the standard library."
TYPES_OF_CONTAINERS = ("value_type", "iterator", "const_iterator", "size_type", "difference_type")


@dataclass
class Member:
    """A function or a constant, in a class or outside."""

    name: str
    declaration: str  # without the body, and without noexcept, which every function is
    parameters: list[str]
    comment: Comment

    def is_function(self) -> bool:
        return "(" in self.declaration


@dataclass
class Class:
    """A class, an enumeration, or an alias of a class."""

    name: str
    declaration: str
    bases: list[str]  # in namespace detail, or classes with a page of their own
    comment: Comment
    header: str  # as it is included: tarn/form.hpp
    members: list[Member] = field(default_factory=list)
    kept: list[str] = field(default_factory=list)  # names that a using declaration keeps visible


@dataclass
class Section:
    """What one header declares."""

    title: str
    comment: Comment
    header: str
    classes: list[Class] = field(default_factory=list)
    members: list[Member] = field(default_factory=list)


@dataclass
class Reference:
    overview: Comment
    sections: list[Section] = field(default_factory=list)
    bases: list[Class] = field(default_factory=list)

    def classes(self) -> list[Class]:
        return [each for section in self.sections for each in section.classes]

    def members(self) -> list[Member]:
        return [each for section in self.sections for each in section.members]

    def inherited(self, heir: Class) -> list[tuple[Class, Member]]:
        """The members that a class inherits, each with the base that declares it."""
        bases = {base.name: base for base in self.bases + self.classes()}
        names = {member.name for member in heir.members} - set(heir.kept)
        found = []
        for name in heir.bases:
            found += [
                (bases[name], member) for member in bases[name].members if member.name not in names
            ]
            found += [each for each in self.inherited(bases[name]) if each[1].name not in names]
        return found


# ---- Statements --------------------------------------------------------------------------------

TOKEN = re.compile(
    r"""
    (?P<comment>/\*.*?\*/ | //[^\n]*)
  | (?P<directive>^\#(?:[^\n]*\\\n)*[^\n]*)
  | (?P<literal>"(?:\\.|[^"\\\n])*" | '(?:\\.|[^'\\\n])*')
  | (?P<open>[({[]) | (?P<close>[)}\]]) | (?P<end>;)
  | (?P<access>(?:public|protected|private):(?!:))
  | \w+ | .
""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)


@dataclass
class Statement:
    """A declaration up to its body or its end, or an access label; its body and its comment."""

    head: str
    body: str | None
    line: int
    comment: Comment


def statements(text: str, line: int):
    """Splits a text into statements. Its first line has the number `line`."""
    head = ""
    body_start = None
    depth = 0
    start = line
    said = Comment()
    for token in TOKEN.finditer(text):
        kind = token.lastgroup
        if not head and depth == 0:
            start = line + text.count("\n", 0, token.start())
        depth += (kind == "open") - (kind == "close")
        if depth < 0:
            raise HeaderError(f"line {start}: a bracket too many")
        if body_start is not None:
            if depth == 0:
                body = text[body_start : token.start()]
                start = line + text.count("\n", 0, body_start)
                yield Statement(one_line(head), body, start, said)
                head, body_start, said = "", None, Comment()
        elif depth == 1 and token[0] == "{":
            body_start = token.end()
        elif depth == 0 and kind == "end":
            if head:
                yield Statement(one_line(head), None, start, said)
            head, said = "", Comment()
        elif kind == "access":
            yield Statement(token[0], None, start, Comment())
        elif kind == "comment":
            if not head and token[0].startswith("/**"):
                said = model.parse_comment(token[0])
        elif kind != "directive":
            head = (head + token[0]).lstrip()
    if head or depth:
        raise HeaderError(f"line {start}: not understood: {one_line(head)}")


# ---- Declarations ------------------------------------------------------------------------------

FUNCTION = re.compile(r"(?P<before>.*?)(?P<name>operator ?(?:bool|[^\w\s(]+)|~?\w+)\(")
AFTER = re.compile(
    r"(?P<parameters>.*?)\)(?P<qualifiers>(?: const)?(?: &&?)?)(?: ?noexcept)?"
    r"(?: TARN_PRINTF\(\d, \d\))?(?P<instead> = delete| = default)?(?: : .*)?"
)


TEXT = "std::string_view "
OPTIONAL_TEXT = "std::optional<std::string_view> "


def split_at_commas(text: str) -> list[str]:
    parts = [""]
    depth = 0
    for character in text:
        depth += (character in "(<{[") - (character in ")>}]")
        if character == "," and depth == 0:
            parts.append("")
        else:
            parts[-1] += character
    return [part.strip() for part in parts if part.strip()]


def parameter_name(text: str) -> str:
    """Empty for "..." and for a parameter without a name."""
    match = re.fullmatch(r".*[\s*&.](\w+)(?:\)\(\))?", text.partition(" = ")[0])
    return match[1] if match else ""


def parse_function(head: str, comment: Comment) -> tuple[Member, str]:
    """The function, and " = delete" or " = default" if it has that instead of a body."""
    # What converts to these also converts to a std::string_view.
    head = re.sub(r"(const (detail::)?(TextArgument|Name) &|(detail::)?\bKeptText )", TEXT, head)
    head = re.sub(r"const detail::(GivenText|ViewedText) &", OPTIONAL_TEXT, head)
    # These are for compilers.
    head = head.replace(" TARN_LIFETIMEBOUND", "")
    head = re.sub(r", std::enable_if_t<[^;{}]*?, int> = 0>", ">", head)
    # Templates of one type, so that compilers only read it if a script calls them.
    late = re.match(r"template <class (\w+) = ([\w:]+)> ", head)
    if late:
        head = re.sub(rf"\b{late[1]}\b", late[2], head[late.end() :])
    start = FUNCTION.match(head)
    after = start and AFTER.fullmatch(head, start.end())
    if not after:
        raise HeaderError(f"not understood: {head}")
    instead = after["instead"] or ""
    parameters = split_at_commas(after["parameters"])
    before = re.sub(r"\binline ", "", start["before"])
    takes = ", ".join(parameters)
    declaration = f'{before}{start["name"]}({takes}){after["qualifiers"]}{instead};'
    names = [name for name in map(parameter_name, parameters) if name]
    return Member(start["name"], declaration, names, comment), instead


def is_written_by_compilers(member: Member, name: str) -> bool:
    """Copying, moving, destroying."""
    takes = re.search(r"\((.*)\)", member.declaration)[1]
    return member.name == f"~{name}" or (
        member.name in (name, "operator=") and re.fullmatch(rf"(const )?{name} &&?\w*", takes)
    )


def check_member(member: Member) -> None:
    if member.comment.blocks or member.name not in OF_CONTAINERS:
        member.comment.check(member.parameters)
    if member.comment.result and re.match(r"(static )?void ", member.declaration):
        raise HeaderError("@return, and it returns nothing")


# ---- Classes -----------------------------------------------------------------------------------


def parse_member(statement: Statement, owner: str) -> Member | None:
    """A public member, or None if the reference leaves it out."""
    head, comment = statement.head, statement.comment
    if head.startswith("friend ") or re.fullmatch(r"using (\w+::)+\w+", head):
        return None
    alias = re.match(r"using (\w+) =", head)
    if alias and alias[1] in TYPES_OF_CONTAINERS:
        return None
    if head.partition(" : ")[0] == "class Iterator":
        return None
    constant = re.fullmatch(r"static constexpr [\w:]+ (\w+) = \w+", head)
    if constant:
        member = Member(constant[1], f"{head};", [], comment)
    else:
        member, instead = parse_function(head, comment)
        undocumented = instead == " = delete" and not comment.blocks
        if instead == " = default" or undocumented or is_written_by_compilers(member, owner):
            return None
    check_member(member)
    return member


def is_for_temporaries(statement: Statement) -> bool:
    """Whether it is a function without documentation that only objects without a name have."""
    return not statement.comment.blocks and bool(
        re.search(r"\) ?&&(?: ?noexcept)?$", statement.head)
    )


def parse_enumerators(body: str) -> list[Member]:
    members = []
    for part in body.strip().splitlines():
        match = re.fullmatch(r"\s*(\w+),?\s*/\*\*< (.*?) \*/", part)
        if not match:
            raise HeaderError(f"not understood: {part.strip()}")
        members.append(Member(match[1], match[1], [], Comment([model.Paragraph(match[2])])))
    return members


def parse_class(statement: Statement, header: str) -> Class:
    match = re.fullmatch(
        r"(?:template <.*> )?(class|struct|enum class) (\w+)(?: : public (.*))?", statement.head
    )
    if not match:
        raise HeaderError(f"line {statement.line}: not understood: {statement.head}")
    kind, name, bases = match.groups()
    bases = re.findall(r"^(?:detail::)?(\w+)", bases or "")
    made = Class(name, f"{kind} {name};", bases, statement.comment, header)
    if kind == "enum class":
        with located(f"line {statement.line}"):
            made.members = parse_enumerators(statement.body)
        return made
    public = kind == "struct"
    for part in statements(statement.body, statement.line):
        if part.head.endswith(":"):
            public = part.head == "public:"
        elif public and (kept := re.fullmatch(r"using (\w+)::(?!\1)(\w+)", part.head)):
            made.kept.append(kept[2])
        elif public:
            what = FUNCTION.match(part.head)
            what = f'{name}::{what["name"]}()' if what else name
            known = [f"{name}::{member.name}()" for member in made.members]
            if is_for_temporaries(part) and what in known:
                continue
            with located(f"line {part.line}: {what}"):
                member = parse_member(part, name)
            made.members += [member] if member else []
    return made


# ---- The headers -------------------------------------------------------------------------------

# What tarn.hpp includes. In a comment, a header that it only names.
ALL = "tarn/all.hpp"
INCLUDE = re.compile(r'(?m)^(?:// )?#include "(\w+\.hpp)"')


class Parser:
    def __init__(self):
        self.reference = Reference(Comment())
        self.section: Section
        self.detail: dict[str, tuple[Statement, str]] = {}  # with the header

    def header(self, name: str, text: str) -> None:
        """Adds a header as a section."""
        self.section = Section("", Comment(), name)
        self.reference.sections.append(self.section)
        self.scope(text, 1)
        if self.section.classes or self.section.members:
            title, *introduction = self.first_comment(text).blocks
            if not isinstance(title, model.Paragraph):
                raise HeaderError("its first comment does not begin with a title")
            self.section.title = title.text.removesuffix(".")
            self.section.comment = Comment(introduction)

    @staticmethod
    def first_comment(text: str) -> Comment:
        """The comment that a header begins with."""
        comment = re.match(r"/\*.*?\*/", text, re.DOTALL)
        made = model.parse_comment(comment[0]) if comment else Comment()
        if not made.blocks:
            raise HeaderError("does not begin with a comment")
        return made

    def scope(self, text: str, line: int) -> None:
        """Reads the statements of a file or a namespace."""
        for statement in statements(text, line):
            head = statement.head
            if re.fullmatch(r"namespace (\w+::)?detail", head):
                for each in statements(statement.body, statement.line):
                    match = re.match(r"(?:template <.*> )?class (\w+)", each.head)
                    if match and each.body is not None:
                        self.detail[match[1]] = (each, self.section.header)
            elif re.fullmatch(r"(inline )?namespace \w+", head):
                self.scope(statement.body, statement.line)
            else:
                self.declaration(statement)

    def declaration(self, statement: Statement) -> None:
        head, comment = statement.head, statement.comment
        line = f"line {statement.line}"
        if re.fullmatch(r"class \w+", head) and statement.body is None:
            return
        if re.match(r"(inline|template <class \w+>) [^(]*\w::\w+\(", head):
            return  # the definition of a member, which its class documents
        if head.startswith("static_assert("):
            return
        if re.match(r"template <.*?> ?(struct|inline constexpr bool) std::", head):
            return  # what the standard library asks about a type
        section = self.section
        alias = re.fullmatch(r"using (\w+) = (?:detail::)?(\w+)<.*>", head)
        constant = re.fullmatch(r"inline (constexpr [\w:]+ (\w+)(?: = \w+)?)", head)
        is_class = statement.body is not None and re.match(
            r"(template <[^<>]*> )?(class|struct|enum class) ", head
        )
        if alias or is_class:
            if is_class:
                made = parse_class(statement, section.header)
            else:
                made = Class(alias[1], f"{head};", [alias[2]], comment, section.header)
            with located(f"{line}: {made.name}"):
                comment.check([])
            section.classes.append(made)
            return
        with located(line):
            if constant:
                member = Member(constant[2], constant[1] + ";", [], comment)
            else:
                member, _ = parse_function(head, comment)
        with located(f"{line}: {member.name}" + "()" * member.is_function()):
            check_member(member)
        section.members.append(member)

    def inherited(self) -> list[Class]:
        """The classes of namespace detail that public classes inherit from."""
        wanted = [base for each in self.reference.classes() for base in each.bases]
        public = {each.name for each in self.reference.classes()}
        made = {}
        for name in wanted:  # grows
            if name not in made and name not in public:
                if name not in self.detail:
                    raise HeaderError(f"there is no detail::{name}")
                statement, header = self.detail[name]
                made[name] = parse_class(statement, header)
                wanted += made[name].bases
        return [made[name] for name in self.detail if name in made]


INCLUDES = Path(__file__).resolve().parent.parent / "include"


def parse(text: str, folder: Path = INCLUDES) -> Reference:
    """Reads the text of tarn.hpp, and from `folder` the headers that it includes.

    Raises HeaderError with the header, the line and the name at which it fails.
    """
    parser = Parser()
    parser.reference.overview = parser.first_comment(text)
    if f'#include "{ALL}"' not in text:
        raise HeaderError(f"does not include {ALL}")
    for name in [f"tarn/{header}" for header in INCLUDE.findall((folder / ALL).read_text())]:
        with located(name):
            parser.header(name, (folder / name).read_text())
    parser.reference.bases = parser.inherited()
    parser.reference.sections = [
        section for section in parser.reference.sections if section.classes or section.members
    ]
    return parser.reference
