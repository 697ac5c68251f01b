"""Trees of elements with hostile attributes, and what Tarn writes of them.

In the environment: ATTRIBUTES, the program of attributes.cpp.
"""

import json
import os
import random
import subprocess
from typing import NamedTuple
from urllib.parse import quote_from_bytes

ELEMENTS = (
    *("a", "A", "area", "base", "link", "meta", "script", "style", "iframe", "frame", "object"),
    *("embed", "img", "image", "input", "button", "form", "video", "audio", "source", "track"),
    *("param", "svg", "use", "animate", "set", "animateTransform", "animateMotion", "feImage"),
    *("math", "mi", "p", "table", "body", "details", "template", "x-frame", "portal", "applet"),
)
NAMES = (
    *("href", "HREF", "xlink:href", "xLink:hRef", "x:href", "src", "srcset", "imagesrcset", "data"),
    *("action", "formaction", "FormAction", "poster", "background", "cite", "codebase", "archive"),
    *("ping", "values", "Values", "from", "to", "by", "attributeName", "content", "http-equiv"),
    *("rel", "type", "name", "id", "value", "code", "manifest", "xml:base", "style", "srcdoc"),
    *("onclick", "onload", "OnError", "onbegin", "title", "data-x", "aria-label", "target", "is"),
    *("@click", "v-html", "hx-on:click", "unknown", "lowsrc", "dynsrc", "longdesc", "usemap"),
)
# Values for attributes that decide what another one means.
WORDS = {
    "attributename": ("href", "xlink:href", "HREF", "onclick", "src", "style"),
    "http-equiv": ("refresh", "Refresh", "content-type"),
    "rel": ("stylesheet", "icon", "import", "canonical", "preload", "alternate stylesheet"),
    "type": ("image", "submit", "text/javascript", "image/svg+xml", "text/html", "text/css"),
    "target": ("_self", "_blank", "_top"),
}
SCHEMES = ("javascript:", "data:text/html,", "data:text/javascript,", "vbscript:", "//", "https://")
BLANKS = (
    " ",
    "\t",
    "\n",
    "\r",
    "\f",
    "\v",
    "\x00",
    "\x01",
    "\x1f",
    "\x7f",
    "\x85",
    "\u2028",
    "\u3000",
    "\ufeff",
    "\xa0",
)
DISGUISES = (
    "&Tab;",
    "&#9;",
    "&NewLine;",
    "&colon;",
    "&#x3a;",
    "%09",
    "%0a",
    "\\",
    "\u00ad",
    "\\x3a",
)


class Attribute(NamedTuple):
    name: str
    value: str
    is_raw: bool = False


class Tree(NamedTuple):
    element: str
    attributes: tuple[Attribute, ...] = ()
    children: "tuple[Tree, ...]" = ()

    def steps(self) -> list[str]:
        steps = [f"<{self.element}"]
        for name, value, is_raw in self.attributes:
            encoded = quote_from_bytes(value.encode())
            steps.append(f"{'!' if is_raw else '@'}{quote_from_bytes(name.encode())} {encoded}")
        for child in self.children:
            steps += [*child.steps(), ">"]
        return steps


def run(task: str, lines: list[str]) -> list[str]:
    done = subprocess.run(
        [os.environ["ATTRIBUTES"], task],
        input="".join(f"{line}\n" for line in lines),
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    )
    return done.stdout.splitlines()


def written(trees: list[Tree]) -> list[str | None]:
    """The HTML of each tree, or None if it is refused."""
    lines = run("trees", [step for tree in trees for step in (*tree.steps(), ".")])
    assert len(lines) == len(trees)
    return [json.loads(line) if line else None for line in lines]


class Attacker:
    """Makes trees at random.

    script is what a URL runs, and host is of another site: both are to have no effect.
    """

    def __init__(self, seed: int, script: str, host: str) -> None:
        self.random = random.Random(seed)
        self.script = script
        self.host = host

    def disguised(self, text: str) -> str:
        """The text in mixed case, with characters in it that a browser may remove or decode."""
        one = self.random
        if one.random() < 0.3:
            text = "".join(one.choice((c.lower(), c.upper())) for c in text)
        for _ in range(one.choice((0, 0, 1, 1, 2))):
            at = one.choice((0, one.randrange(len(text) + 1)))
            text = text[:at] + one.choice(BLANKS + BLANKS + DISGUISES) + text[at:]
        return text

    def url(self) -> str:
        scheme = self.random.choice(SCHEMES)
        if scheme.endswith("//"):
            slashes = self.random.choice((scheme, scheme, "/\\", "\\\\", "http:", "http://"))
            return self.disguised(slashes) + self.host
        if scheme.endswith("html,"):
            return self.disguised(scheme) + f"<script>{self.script}</script>"
        return self.disguised(scheme) + self.script

    def value(self, name: str) -> str:
        one = self.random
        words = WORDS.get(name.lower())
        if words and one.random() < 0.9:
            return one.choice(words)
        if name.startswith(("on", "On", "@", "hx-", "v-")):
            return self.script
        before = one.choice(
            ("", "", "", "#;", "#; ", "/ ", "a.png 1x, ", "0;url=", "0; URL='", "5 ,")
        )
        after = one.choice(("", "", "", ";#", " 2x", ", b.png", "'", " /b"))
        return before + self.url() + after

    def tree(self, depth: int = 2) -> Tree:
        one = self.random
        names = one.sample(NAMES, one.choice((1, 1, 1, 2, 2, 3)))
        children = tuple(self.tree(depth - 1) for _ in range(one.choice((0, 1)) if depth else 0))
        element = one.choice(ELEMENTS)
        return Tree(element, tuple(Attribute(n, self.value(n)) for n in names), children)

    def animation(self) -> Tree:
        """A link in SVG with an animation of its address."""
        one = self.random
        name = one.choice(("values", "from", "to", "by"))
        attributes = [
            Attribute("attributeName", one.choice(("href", "xlink:href"))),
            Attribute(name, self.value(name)),
        ]
        if one.random() < 0.7:
            attributes += [Attribute("dur", "1s"), Attribute("fill", "freeze")]
        element = one.choice(("animate", "set"))
        circle = Tree("circle", (Attribute("r", "9"),))
        return Tree("svg", (), (Tree("a", (), (Tree(element, tuple(attributes)), circle)),))

    def trees(self, count: int) -> list[Tree]:
        return [
            self.animation() if self.random.random() < 0.1 else self.tree() for _ in range(count)
        ]
