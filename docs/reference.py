"""A model of a C header in include/: families of documented functions.

parse() rejects a header that it does not understand or that is not documented completely: every
function, argument and result needs a description, and every described argument must exist. man.py
and sources.py write pages from the model.
"""

import re
import textwrap
from contextlib import contextmanager
from dataclasses import dataclass, field


class HeaderError(Exception):
    """A header that is not understood, or not documented completely."""


@contextmanager
def located(place: object):
    """Puts the place before the text of an error."""
    try:
        yield
    except HeaderError as error:
        raise HeaderError(f"{place}: {error}") from None


# ---- The model ---------------------------------------------------------------------------------
#
# A text is a string marked up as in the header: `argument`, function(), TARN_CONSTANT,
# tarn-serve(1), "quotation". pieces() splits it.


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
    """The description of one argument, or of several together."""

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
        """Raises HeaderError unless this documents something with these parameters."""
        if not self.blocks:
            raise HeaderError("not documented")
        if not isinstance(self.blocks[0], Paragraph):
            raise HeaderError("the documentation must begin with a sentence")
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
    after: str = ""  # of a pointer to a function: what follows the name

    def __str__(self):
        return self.type + ("" if self.type.endswith("*") else " ") + self.name + self.after


@dataclass
class Function:
    name: str
    type: str
    parameters: list[Parameter]
    variadic: bool
    comment: Comment

    def signature(self) -> list[str]:
        """The words between the parentheses."""
        return [*map(str, self.parameters), *["..."] * self.variadic] or ["void"]


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
    """Functions and variables. A comment between them applies to those that follow."""

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

    def first_convention(self) -> int:
        """The index of the paragraph before the numbered conventions, in the overview."""
        kinds = [type(block) for block in self.overview.blocks]
        return kinds.index(Enumeration) - 1 if Enumeration in kinds else 1

    def introduction(self) -> list[Block]:
        """The overview without its title and the conventions."""
        return self.overview.blocks[1 : self.first_convention()]

    def conventions(self) -> list[Block]:
        return self.overview.blocks[self.first_convention() :]


# ---- Texts -------------------------------------------------------------------------------------

PIECE = re.compile(
    r"""
    `(?P<code>[^`]+)`
  | (?P<quotation>"[^"]*")
  | \b(?P<function>(?:\w+::)*[A-Za-z_]\w*)\(\)
  | \b(?P<command>tarn-\w+)\(1\)
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


def comment_text(comment: str) -> str:
    """The text of a comment, without its stars."""
    body = re.sub(r"^/\*+ ?|\s*\*/$", "", comment)
    first, *rest = body.split("\n")
    rest = textwrap.dedent("\n".join(re.sub(r"^ *\*", "", line).rstrip() for line in rest))
    return (first.strip() + "\n" + rest).strip("\n")


def table(lines: list[str]) -> Table:
    """The first line shows where the columns begin. A line with an empty first cell continues the
    row above it."""
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
    if text.startswith("  ") and lines[0].endswith((";", "{")):
        return Code(lines)
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
    body, *tags = re.split(r"(?:^|(?<=\s))@(?=(?:param|return)(?:\s|$))", comment_text(text))
    comment = Comment(blocks(body))
    for tag in tags:
        kind, *words = tag.split()
        if kind == "return":
            comment.result = " ".join(words)
        elif words:
            comment.arguments.append(Argument(words[0].split(","), " ".join(words[1:])))
        else:
            raise HeaderError("@param names no argument")
    return comment


# ---- Declarations ------------------------------------------------------------------------------


def parse_parameter(text: str) -> Parameter:
    match = re.fullmatch(r"(.*?[\s*])(\w+)(\)\(.*\))?", text)
    if not match:
        raise HeaderError(f"an argument without a name: {text}")
    return Parameter(match[1].strip(), match[2], match[3] or "")


def parse_declaration(text: str, comment: Comment) -> Function | Declaration:
    text = re.sub(r"^TARN_\w*API ", "", one_line(text)).removesuffix(";")
    text = re.sub(r" TARN_(PRINTF\(.*\)|\w*PURE)$", "", text)
    match = re.fullmatch(r"(.*?[\s*])(\w+)\((.*)\)", text)
    if not match:
        name = re.search(r"\w+$", text)
        if not name:
            raise HeaderError(f"not understood: {text}")
        return Declaration(name[0], text, comment)
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
  | (?P<symbol>^\#define\ (?P<symbol_name>TARN_\w+)\ (?P<symbol_value>[A-Z]\w+)$)
  | (?P<directive>^\#[^\n]*)
  | (?P<slots>^enum\ \w+\ \{\n(?P<enumerators>.*?)^\};)
  | (?P<declaration>^(?:TARN_\w*API|typedef)\b(?:(?!TARN_\w*API|typedef|/\*)[^;])*;)
    (?:\ /\*\ since\ TARN_(?:[A-Z]+_)?[\d.]+\ \*/)?
  | (?P<begin>extern\ "C"\ \{) | (?P<end>^\}$)
  | (?P<unknown>\S[^\n]*)
""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)

NO_OVERVIEW = "the header must begin with a comment about the library"


class Parser:
    """Reads the items of a header in order. The method for each kind of item has its name."""

    def __init__(self, results_suffice: bool) -> None:
        self.results_suffice = results_suffice
        self.reference: Reference | None = None
        self.documentation: Comment | None = None  # of the next declaration
        self.is_open = False  # extern "C"

    def read(self, item: re.Match[str]) -> None:
        kind = next(name for name in KINDS if item[name])
        if kind in ("define", "symbol", "slots", "declaration") and self.reference is None:
            raise HeaderError(NO_OVERVIEW)
        getattr(self, kind)(item)
        if kind not in ("comment", "directive"):
            self.documentation = None

    def finish(self) -> Reference:
        if self.reference is None:
            raise HeaderError(NO_OVERVIEW)
        if self.is_open:
            raise HeaderError("{ without }")
        for family in self.reference.families:
            used = {each.name for function in family.functions() for each in function.parameters}
            for name in sorted(family.comment.explained() - used):
                raise HeaderError(f"{family.title}: no function has an argument {name}")
        return self.reference

    def family(self) -> Family:
        if not self.reference.families:
            raise HeaderError("no heading before this")
        return self.reference.families[-1]

    def comment(self, item: re.Match[str]) -> None:
        heading = re.match(r"/\* ---- (.*?) -{2,}", item[0])
        body = parse_comment(item[0][heading.end() :] if heading else item[0])
        documents = item[0].startswith("/**")
        if self.reference is None:
            if heading or documents:
                raise HeaderError(NO_OVERVIEW)
            self.reference = Reference(body)
        elif documents:
            self.documentation = body
        elif heading:
            self.reference.families.append(Family(heading[1], body))
        elif self.reference.families:
            self.reference.families[-1].members.append(body)
        else:
            self.reference.constants.append(Constants(body))

    def constant(self, name: str, value: str, text: str) -> None:
        if not self.reference.constants:
            raise HeaderError(f"{name}: no comment introduces this constant")
        self.reference.constants[-1].members.append(Constant(name, value, text))

    def define(self, item: re.Match[str]) -> None:
        self.constant(item["name"], item["value"], item["text"] or "")

    def symbol(self, item: re.Match[str]) -> None:
        """A constant that is another one, documented like a type."""
        if self.documentation is None:
            raise HeaderError(f'{item["symbol_name"]} not documented')
        text = " ".join(block.text for block in self.documentation.blocks)
        self.constant(item["symbol_name"], item["symbol_value"], text)

    def slots(self, item: re.Match[str]) -> None:
        if self.documentation is None:
            raise HeaderError("enumeration not documented")
        rows = parse_slots(item["enumerators"])
        self.family().comment.blocks += [*self.documentation.blocks, rows]

    def declaration(self, item: re.Match[str]) -> None:
        if item[0].startswith("typedef"):
            if self.documentation is None:
                raise HeaderError(f"{item[0]} not documented")
            text = one_line(item[0]).removesuffix(";")
            self.reference.types.append(Declaration(text.split()[-1], text, self.documentation))
            return
        comment = self.documentation or Comment()
        if self.results_suffice and comment.result and not comment.blocks:
            comment.blocks = [Paragraph(f"Returns {comment.result}.")]
        member = parse_declaration(item["declaration"], comment)
        with located(f"{member.name}()"):
            family = self.family()
            member.comment.check([each.name for each in getattr(member, "parameters", [])])
            if isinstance(member, Function):
                check(family, member)
        family.members.append(member)

    def directive(self, item: re.Match[str]) -> None:
        """Directives other than constants declare nothing."""

    def begin(self, _: re.Match[str]) -> None:
        if self.is_open:
            raise HeaderError("{ without }")
        self.is_open = True

    def end(self, _: re.Match[str]) -> None:
        if not self.is_open:
            raise HeaderError("} without {")
        self.is_open = False

    def unknown(self, item: re.Match[str]) -> None:
        raise HeaderError(f"not understood: {item[0]}")


KINDS = [name for name in ITEM.groupindex if hasattr(Parser, name)]


def parse(text: str, results_suffice: bool = False) -> Reference:
    """Reads a header. A HeaderError names the line, and the function if it is in one. If results
    suffice, a comment may have nothing but @return."""
    parser = Parser(results_suffice)
    for item in ITEM.finditer(text):
        with located(f"line {text.count(chr(10), 0, item.start()) + 1}"):
            parser.read(item)
    return parser.finish()
