"""What all pages in HTML share."""

import re
from html import escape

import reference as model
from pages import Example, sentence

WIDTH = 76  # of a prototype

TEMPLATE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8" />
<meta name="viewport" content="width=device-width, initial-scale=1" />
<title>{title} - Tarn</title>
<link rel="stylesheet" href="style.css" />
<script src="search-index.js" defer="defer"></script>
<script src="search.js" defer="defer"></script>
</head>
<body>
<header>
<nav aria-label="Reference">
<a href="index.html">Tarn {release}</a>
<a href="which-function.html">Which function?</a>
<a href="cheat-sheet.html">Cheat sheet</a>
<a href="conventions.html">Conventions</a>
<a href="cpp.html">C++</a>
<a href="names.html">All names</a>
</nav>
<form role="search" action="names.html">
<label for="query">Search</label>
<input type="search" id="query" autocomplete="off" />
<button>Find</button>
<p id="count" role="status"></p>
<ul id="found"></ul>
</form>
</header>
<main>
{body}
</main>
</body>
</html>
"""


def link(address: str, text: str) -> str:
    return f'<a href="{address}">{text}</a>'


def code(text: str) -> str:
    return f"<code>{escape(text, quote=False)}</code>"


def preformatted(lines: list[str]) -> str:
    return "<pre><code>" + escape("\n".join(lines), quote=False) + "</code></pre>"


def named(text: str, name: str) -> bool:
    return bool(re.search(rf"\b{name}\b", text))


class Prose:
    """Writes texts; flow() of those who do knows where names lead."""

    def blocks(self, blocks: list[model.Block]) -> str:
        return "\n".join(map(self.block, blocks))

    def block(self, block: model.Block) -> str:
        if isinstance(block, model.Paragraph):
            return f"<p>{self.flow(block.text)}</p>"
        if isinstance(block, model.Code):
            return preformatted(block.lines)
        if isinstance(block, model.Enumeration):
            lines = []
            for item in block.items:
                name, text = item.split(". ", 1)
                lines.append(f"<li><strong>{escape(name)}.</strong> {self.flow(text)}</li>")
            return "\n".join(["<ol>", *lines, "</ol>"])
        if isinstance(block, model.Items):
            return "\n".join(
                ["<ul>", *[f"<li>{self.flow(item)}</li>" for item in block.items], "</ul>"]
            )
        # Rows of two cells are names and what they mean; wider ones have a line of headings.
        head, *rows = block.rows
        if len(head) == 2:
            return self.definitions(
                [(self.flow(name), self.flow(sentence(text))) for name, text in block.rows]
            )
        return self.table(head, [[self.flow(cell) for cell in row] for row in rows])

    def table(self, head: list[str], rows: list[list[str]]) -> str:
        lines = [
            "<table>",
            "<thead><tr>"
            + "".join(f'<th scope="col">{escape(cell)}</th>' for cell in head)
            + "</tr></thead>",
            "<tbody>",
        ]
        lines += [
            f'<tr><th scope="row">{first}</th>'
            + "".join(f"<td>{cell}</td>" for cell in rest)
            + "</tr>"
            for first, *rest in rows
        ]
        return "\n".join([*lines, "</tbody>", "</table>"])

    def definitions(self, pairs: list[tuple[str, str]]) -> str:
        return (
            "<dl>\n"
            + "\n".join(f"<dt>{name}</dt>\n<dd>{text}</dd>" for name, text in pairs)
            + "\n</dl>"
        )

    def example(self, example: Example, name: str = "") -> str:
        lines = []
        for line in example.code:
            html = escape(line, quote=False)
            lines.append(f"<mark>{html}</mark>" if name and named(line, name) else html)
        listing = "\n".join(lines)
        return (
            f"<p>{self.flow(example.title)}</p>\n<pre><code>{listing}</code></pre>\n"
            f"<p>Called from a shell:</p>\n{preformatted(example.transcript)}"
        )
