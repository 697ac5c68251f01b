"""Writes hostile attributes at random and parses what Tarn lets through with html5lib: no URL runs
code, and none of another site is one of code, a page or a form.
"""

import re
import unittest

import html5lib

from attacks import Attacker, Attribute, Tree, run, written

# In these, any text is harmless.
TEXTS = {"title", "data-x", "aria-label", "id", "name", "type", "target", "rel", "is", "usemap"}
# In these, a URL of another site is harmless, too.
ANYWHERE = {
    *(("a", "href"), ("area", "href"), ("image", "href"), ("feimage", "href")),
    ("img", "href"),  # what <image> is outside of SVG
    *((name, "src") for name in ("img", "input", "source", "track", "audio", "video")),
}
SHOWN = {"poster", "background", "cite", "longdesc", "lowsrc", "dynsrc", "value", "unknown"}
# What browsers remove from a URL.
REMOVED = re.compile(r"^[\0- ]+|[\t\n\r]+|[\0- ]+$")


def urls(name, value):
    """The URLs that the value of an attribute is or contains."""
    found = [value]
    if name in {"values", "from", "to", "by"}:
        found += value.split(";")
    elif name in {"srcset", "imagesrcset", "ping", "archive"}:
        found = re.split(r"[\t\n\f\r ,]+", value)
    elif name == "content":
        time = re.match(r"""\s*[^\s,;]*[\s,;]+(?:url\s*=?)?\s*['"]?""", value, re.I)
        found = [value[time.end() :]] if time else []
    return [REMOVED.sub("", url).replace("\\", "/") for url in found]


def runs_code(name, value):
    return any(re.match(r"(javascript|vbscript|data):", url, re.I) for url in urls(name, value))


def leaves(name, value):
    """Whether a URL in the value is of another site."""
    return any(re.match(r"//|https?:", url, re.I) for url in urls(name, value))


def local(name):
    """The name without its namespace."""
    return re.sub(r"^{.*}|^.*:", "", name).lower()


class Attributes(unittest.TestCase):
    def problems(self, html):
        for element in html5lib.parse(html).iter():
            tag = local(element.tag) if isinstance(element.tag, str) else ""
            http_equiv = element.attrib.get("http-equiv", "").lower()
            for name, value in element.attrib.items():
                name = local(name)
                if name.startswith("on") or name in {
                    "style",
                    "srcdoc",
                    "@click",
                    "v-html",
                    "click",
                }:
                    yield f"{tag} has {name}"
                is_text = name in TEXTS or (name == "value" and tag != "param")
                if is_text or (name == "content" and http_equiv != "refresh"):
                    continue
                if runs_code(name, value) and name != "http-equiv":
                    yield f"{name}={value!r} of {tag} runs"
                is_link = tag == "link" and element.attrib.get("rel") in {"icon", "canonical"}
                if (
                    (tag, name) in ANYWHERE
                    or name in SHOWN - {"value"}
                    or (is_link and name == "href")
                ):
                    continue
                if name not in {"http-equiv", "attributename"} and leaves(name, value):
                    yield f"{name}={value!r} of {tag} is of another site"

    def test_parser_finds_nothing_hostile_in_what_is_written(self):
        attacker = Attacker(1, "alert(1)", "other.example/x")
        trees = attacker.trees(30000)
        pages = [(tree, html) for tree, html in zip(trees, written(trees)) if html is not None]
        self.assertGreater(len(pages), 2000)
        for tree, html in pages:
            self.assertEqual([], list(self.problems(html)), tree)

    def test_hostile_attributes_are_found_if_they_are_raw(self):
        """What the test above looks for, it would see."""
        hostile = [
            ("a", "href", "java\tscript:x"),
            ("animate", "values", "#;javascript:x"),
            ("script", "src", "//x"),
            ("img", "srcset", "a 1x, https://x 2x"),
            ("p", "onclick", "x"),
            ("iframe", "srcdoc", "x"),
        ]
        for element, name, value in hostile:
            (html,) = written([Tree(element, (Attribute(name, value, is_raw=True),))])
            self.assertEqual(1, len(list(self.problems(html))), html)

    def test_all_names_have_one_kind(self):
        names = run("names", [])
        self.assertEqual(len(names), len(set(names)))
        self.assertNotIn("unknown", run("kinds", names))
        self.assertEqual(run("kinds", names), run("kinds", [name.upper() for name in names]))


if __name__ == "__main__":
    unittest.main()
