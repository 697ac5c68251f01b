"""The reference that include/tarn.h holds, as a model: families of documented functions.

parse() reads the header and refuses what it cannot vouch for: a function without documentation, an
argument that nobody explains, an explanation of an argument that is not there, a result without a
word. What is written from the model, and how, is the business of others (man.py).
"""

import re
import textwrap
from contextlib import contextmanager
from dataclasses import dataclass, field


class HeaderError(Exception):
    """The header is not documented as it should be."""


@contextmanager
def located(place: object):
    """Adds to an error where it is."""
    try:
        yield
    except HeaderError as error:
        raise HeaderError(f"{place}: {error}") from None


# ---- The model ---------------------------------------------------------------------------------
#
# A text is a string with the header's own marks in it: `argument`, function(), TARN_CONSTANT,
# "quotation". pieces() takes it apart.


@dataclass
class Paragraph:
    text: str


@dataclass
class Code:
    lines: list[str]


@dataclass
class Table:
    """Rows of cells; every cell is a text."""

    rows: list[list[str]]


@dataclass
class Enumeration:
    items: list[str]


@dataclass
class Items:
    items: list[str]


Block = Paragraph | Code | Table | Enumeration | Items


@dataclass
class Argument:
    """What is said of one argument, or of several together."""

    names: list[str]
    text: str


@dataclass
class Comment:
    blocks: list[Block] = field(default_factory=list)
    arguments: list[Argument] = field(default_factory=list)
    result: str = ""

    def explained(self) -> set[str]:
        return {name for argument in self.arguments for name in argument.names}

    def check(self, parameters: list[str]) -> None:
        """Raises HeaderError unless it documents something that has these parameters."""
        if not self.blocks:
            raise HeaderError("not documented")
        for argument in self.arguments:
            if not argument.text:
                raise HeaderError(f"@param says nothing of {argument.names[0]}")
            for name in argument.names:
                if name not in parameters:
                    raise HeaderError(f"has no argument {name}, and @param explains it")


@dataclass
class Parameter:
    type: str
    name: str

    def __str__(self):
        return self.type + ("" if self.type.endswith("*") else " ") + self.name


@dataclass
class Function:
    name: str
    type: str
    parameters: list[Parameter]
    variadic: bool
    comment: Comment


@dataclass
class Declaration:
    """Of a type or a variable."""

    name: str
    declaration: str
    comment: Comment


@dataclass
class Constant:
    name: str
    value: str
    text: str


@dataclass
class Constants:
    """Constants of one kind, under the comment that introduces them."""

    comment: Comment
    members: list[Constant] = field(default_factory=list)


@dataclass
class Family:
    """Functions and variables; a comment between them is about those that follow."""

    title: str
    comment: Comment
    members: list[Function | Declaration | Comment] = field(default_factory=list)

    def functions(self) -> list[Function]:
        return [member for member in self.members if isinstance(member, Function)]

    def variables(self) -> list[Declaration]:
        return [member for member in self.members if isinstance(member, Declaration)]

    def names(self) -> list[str]:
        return [member.name for member in self.members if not isinstance(member, Comment)]


@dataclass
class Reference:
    overview: Comment
    types: list[Declaration] = field(default_factory=list)
    constants: list[Constants] = field(default_factory=list)
    families: list[Family] = field(default_factory=list)


# ---- Texts -------------------------------------------------------------------------------------

PIECE = re.compile(
    r"""
    `(?P<code>[^`]+)`
  | (?P<quotation>"[^"]*")
  | \b(?P<function>(?:\w+::)*[A-Za-z_]\w*)\(\)
  | \b(?P<constant>TARN_[A-Z_]+)\b
  | \b(?P<environment>HTTPS|[A-Z]+(?:_[A-Z]+)+)\b
""",
    re.VERBOSE,
)


def pieces(text: str):
    """Yields the kind and the content of each piece of a text; words between are 'plain'."""
    end = 0
    for match in PIECE.finditer(text):
        if match.start() > end:
            yield "plain", text[end : match.start()]
        yield match.lastgroup, match[match.lastgroup]
        end = match.end()
    if end < len(text):
        yield "plain", text[end:]


def one_line(text: str) -> str:
    return " ".join(text.split())


# ---- Comments ----------------------------------------------------------------------------------


def uncomment(comment: str) -> str:
    """The text of a comment, without its stars."""
    body = re.sub(r"^/\*+ ?|\s*\*/$", "", comment)
    first, *rest = body.split("\n")
    rest = textwrap.dedent("\n".join(re.sub(r"^ *\*", "", line).rstrip() for line in rest))
    return (first.strip() + "\n" + rest).strip("\n")


def table(lines: list[str]) -> Table:
    """The first line shows where the columns begin; a line with an empty first cell goes on."""
    starts = [match.start() for match in re.finditer(r"(?<=\s\s)\S|^\S", lines[0])]
    rows: list[list[str]] = []
    for line in lines:
        cells = [line[start:end].strip() for start, end in zip(starts, starts[1:] + [None])]
        if cells[0]:
            rows.append(cells)
        else:
            rows[-1] = [one_line(" ".join(pair)) for pair in zip(rows[-1], cells)]
    return Table(rows)


def block(text: str) -> Block:
    lines = textwrap.dedent(text).split("\n")
    if re.match(r"\s*1\. ", text):
        return Enumeration([one_line(item) for item in re.split(r"(?m)^\s*\d+\. ", text)[1:]])
    if re.match(r"\s*- ", text):
        return Items([one_line(item) for item in re.split(r"(?m)^\s*- ", text)[1:]])
    if text.startswith("  ") and len(lines) > 1 and re.search(r"\S\s\s+\S", lines[0]):
        return table(lines)
    return Paragraph(one_line(text))


def blocks(text: str) -> list[Block]:
    found: list[Block] = []
    for index, part in enumerate(re.split(r"@code\n(.*?)\n\s*@endcode", text, flags=re.DOTALL)):
        if index % 2:
            found.append(Code(textwrap.dedent(part).split("\n")))
        else:
            found += [
                block(paragraph)
                for paragraph in re.split(r"\n\s*\n", part.strip("\n"))
                if paragraph.strip()
            ]
    return found


def parse_comment(text: str) -> Comment:
    """Reads a comment with its stars."""
    body, *tags = re.split(r"(?:^|(?<=\s))@(?=param\s|return\s)", uncomment(text))
    comment = Comment(blocks(body))
    for tag in tags:
        kind, text = tag.split(None, 1)
        if kind == "return":
            comment.result = one_line(text)
        else:
            names, *text = text.split(None, 1)
            comment.arguments.append(Argument(names.split(","), one_line("".join(text))))
    return comment


# ---- Declarations ------------------------------------------------------------------------------


def parse_parameter(text: str) -> Parameter:
    match = re.fullmatch(r"(.*?[\s*])(\w+)", text)
    if not match:
        raise HeaderError(f"an argument without a name: {text}")
    return Parameter(match[1].strip(), match[2])


def parse_declaration(text: str, comment: Comment) -> Function | Declaration:
    text = one_line(text).removeprefix("TARN_API ").removesuffix(";")
    text = re.sub(r" TARN_PRINTF\(.*\)$", "", text)
    match = re.fullmatch(r"(.*?[\s*])(\w+)\((.*)\)", text)
    if not match:
        return Declaration(re.search(r"(\w+)$", text)[1], text, comment)
    parameters = [part.strip() for part in match[3].split(",") if part.strip() != "void"]
    variadic = "..." in parameters
    return Function(
        match[2],
        match[1].strip(),
        [parse_parameter(part) for part in parameters if part != "..."],
        variadic,
        comment,
    )


def check(family: Family, function: Function) -> None:
    comment = function.comment
    explained = comment.explained() | family.comment.explained()
    for parameter in function.parameters:
        if parameter.name not in explained:
            raise HeaderError(f"no @param explains {parameter.name}, here or for the family")
    if bool(comment.result) == (function.type == "void"):
        raise HeaderError("@return is for functions that return something, for each of them")


def parse_slots(text: str) -> Table:
    """The enumerators of a type's slots: each with its kind, its index and what it holds."""
    rows = []
    for line in text.strip().split("\n"):
        match = re.fullmatch(r"\s*(TARN_\w+) = (\d+),?\s+/\* (\w+)(.*) \*/", line)
        if not match:
            raise HeaderError(f"not a slot with its kind: {line.strip()}")
        name, index, kind, what = match.groups()
        rows.append([name, f"{kind} {index}{what}"])
    return Table(rows)


# ---- The header --------------------------------------------------------------------------------

ITEM = re.compile(
    r"""
    (?P<comment>/\*.*?\*/)
  | (?P<define>^\#define\ (?P<name>TARN_\w+)[ ]+(?P<value>\d+)u(?:[ ]+/\*\ (?P<text>.*?)\ \*/)?$)
  | (?P<directive>^\#[^\n]*)
  | (?P<enumeration>^enum\ \w+\ \{\n(?P<enumerators>.*?)^\};)
  | (?P<declaration>^(?:TARN_API|typedef)\b[^;]*;) (?:\ /\*\ since\ TARN_[\d.]+\ \*/)?
  | extern\ "C"\ \{ | ^\}$
  | (?P<unknown>\S[^\n]*)
""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)


def parse(text: str) -> Reference:
    """Reads a header; raises HeaderError with the name of the function that it stumbles on."""
    reference = None
    comment = None  # that documents what follows
    for item in ITEM.finditer(text):
        line = text.count("\n", 0, item.start()) + 1
        if item["unknown"]:
            raise HeaderError(f"line {line}: not understood: {item[0]}")
        if item["comment"]:
            heading = re.match(r"/\* ---- (.*?) -{2,}", item[0])
            body = parse_comment(item[0][heading.end() :] if heading else item[0])
            if item[0].startswith("/**"):
                comment = body
            elif reference is None:
                reference = Reference(body)
            elif heading:
                reference.families.append(Family(heading[1], body))
            elif reference.families:
                reference.families[-1].members.append(body)
            else:
                reference.constants.append(Constants(body))
            continue
        if item["define"]:
            reference.constants[-1].members.append(
                Constant(item["name"], item["value"], item["text"] or "")
            )
        elif item["enumeration"]:
            if comment is None:
                raise HeaderError(f"line {line}: enumeration not documented")
            reference.families[-1].comment.blocks += [
                *comment.blocks,
                parse_slots(item["enumerators"]),
            ]
        elif item["declaration"] and item[0].startswith("typedef"):
            if comment is None:
                raise HeaderError(f"line {line}: {item[0]} not documented")
            declaration = one_line(item[0]).removesuffix(";")
            reference.types.append(Declaration(declaration.split()[-1], declaration, comment))
        elif item["declaration"]:
            member = parse_declaration(item["declaration"], comment or Comment())
            family = reference.families[-1]
            with located(f"line {line}: {member.name}()"):
                member.comment.check([each.name for each in getattr(member, "parameters", [])])
                if isinstance(member, Function):
                    check(family, member)
            family.members.append(member)
        else:
            continue
        comment = None
    for family in reference.families:
        used = {
            parameter.name for function in family.functions() for parameter in function.parameters
        }
        for name in sorted(family.comment.explained() - used):
            raise HeaderError(f"{family.title}: no function has an argument {name}")
    return reference
