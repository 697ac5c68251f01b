"""Opens pages with hostile attributes in Chromium and clicks everything in them. Also compares the
table of attributes with lists that others maintain.

In the environment: ATTRIBUTES, the program of attributes.cpp; PACKAGES, the folder of the packages
that scripts/setup gets from the npm registry.
"""

import atexit
import functools
import http.server
import os
import re
import tempfile
import threading
import unittest
from pathlib import Path

import chromium
from selenium import webdriver

from attacks import Attacker, Attribute, Tree, run, written

PACKAGES = Path(os.environ["PACKAGES"])
# Random trees to write; scripts/nightly tries more.
TREES = 20000 if os.environ.get("TARN_NIGHTLY") == "1" else 5000
# What an attack runs; it works in a frame and in a page of another site, too.
SCRIPT = "(top.opener||top).postMessage('owned','*')"
# Every page begins with this script. It notes which pages the browser would go to, and stays.
WATCH = """<!DOCTYPE html><meta charset=utf-8><script>
window.messages = [];
window.visits = [];
addEventListener('message', event => messages.push(event.data));
navigation.addEventListener('navigate', event => {
  visits.push(event.destination.url);
  event.preventDefault();
});
window.open = url => { visits.push(String(url)); return null; };
</script>"""
# Moves all animations on, then clicks everything that reacts to a click.
CLICK = """
for (const svg of document.querySelectorAll('svg')) if (svg.setCurrentTime) svg.setCurrentTime(3);
const done = arguments[0];
// A new window would hide this one.
for (const one of document.querySelectorAll('[target]')) one.removeAttribute('target');
setTimeout(() => {
  window.visits.push('clicks');
  for (const one of document.querySelectorAll('body *')) try {
    if (one.matches('a, area, button, input, summary, mi')) {
      if (one.click) one.click(); else one.dispatchEvent(new MouseEvent('click', {bubbles: true}));
    }
    if (one.matches('form')) one.requestSubmit();
  } catch (problem) {
    console.log(problem);
  }
  setTimeout(() => done([window.messages, window.visits]), 150);
}, 70);
"""


class Site:
    """A site that remembers what was asked for, and for what purpose."""

    def __init__(self, answers_always: bool) -> None:
        site = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self) -> None:
                purpose = self.headers.get("Sec-Fetch-Dest", "unknown")
                site.requests.append((purpose, self.path))
                page = site.pages.get(self.path)
                if page is None and answers_always:
                    page = SCRIPT if purpose == "script" else f"<script>{SCRIPT}</script>"
                self.send_response(404 if page is None else 200)
                kind = "javascript" if purpose == "script" else "html"
                self.send_header("Content-Type", f"text/{kind}; charset=utf-8")
                self.end_headers()
                self.wfile.write((page or "").encode())

            def do_POST(self) -> None:
                site.requests.append(("POST", self.path))
                self.send_response(204)
                self.end_headers()

            def log_message(self, *_: object) -> None:
                pass

        self.pages: dict[str, str] = {}
        self.requests: list[tuple[str, str]] = []
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    @property
    def port(self) -> int:
        return self.server.server_address[1]

    def close(self) -> None:
        self.server.shutdown()
        self.server.server_close()


@functools.cache
def browser() -> webdriver.Chrome:
    home = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
    atexit.register(home.cleanup)
    driver = chromium.start(home.name, "disable-popup-blocking")
    atexit.register(driver.quit)
    return driver


def link_with(name: str, value: str, is_raw: bool = False) -> Tree:
    """A link in SVG whose address is animated."""
    animation = [Attribute("attributeName", "href"), Attribute(name, value, is_raw)]
    animation += [Attribute("dur", "1s"), Attribute("fill", "freeze")]
    if name in {"to", "by"}:
        animation.append(Attribute("from", "#"))
    children = (Tree("animate", tuple(animation)), Tree("circle", (Attribute("r", "9"),)))
    return Tree("svg", (), (Tree("a", (), children),))


class Pages(unittest.TestCase):
    def setUp(self) -> None:
        self.browser = browser()
        self.own, self.other = Site(False), Site(True)
        self.addCleanup(self.own.close)
        self.addCleanup(self.other.close)
        # A name of its own makes it another site.
        self.other_host = f"localhost:{self.other.port}/x"
        self.address = f"http://127.0.0.1:{self.own.port}/"

    def visit(self, body: str) -> tuple[list[str], list[str]]:
        """What scripts ran, and where the page would have led."""
        path = f"/{len(self.own.pages)}.html"
        self.own.pages[path] = WATCH + body
        self.browser.get(self.address + path[1:])
        messages, visits = self.browser.execute_async_script(CLICK)
        return messages, visits

    def problems(self, body: str) -> list[str]:
        self.other.requests.clear()
        messages, visits = self.visit(body)
        problems = [f"ran: {message}" for message in messages]
        before_clicks = visits[: visits.index("clicks")]
        problems += [f"left for {url}" for url in before_clicks if not url.startswith(self.address)]
        harmless = {"image", "audio", "video", "track"}
        problems += [
            f"fetched as {what}" for what, _ in self.other.requests if what not in harmless
        ]
        return problems

    def test_hostile_attributes_have_an_effect_if_they_are_raw(self) -> None:
        """What the other tests look for, they would see."""
        other = f"http://{self.other_host}"
        hostile = [
            ("a", "href", f"java\tscript:{SCRIPT}"),
            ("a", "xlink:href", f"javascript:{SCRIPT}"),
            ("iframe", "src", f"javascript:{SCRIPT}"),
            ("iframe", "src", f"data:text/html,<script>{SCRIPT}</script>"),
            ("iframe", "src", other),
            ("script", "src", other),
            ("script", "src", f"data:,{SCRIPT}"),
            ("object", "data", other),
            ("embed", "src", other),
            ("iframe", "srcdoc", f"<script>{SCRIPT}</script>"),
            ("form", "action", f"javascript:{SCRIPT}"),
            ("body", "onload", SCRIPT),
            ("img", "onerror", SCRIPT),
        ]
        for element, name, value in hostile:
            attributes = [Attribute(name, value, is_raw=True)]
            if name == "onerror":
                attributes.append(Attribute("src", "/none.png"))
            tree = Tree(element, tuple(attributes))
            if name == "xlink:href":
                tree = Tree("svg", (), (tree,))
            (html,) = written([tree])
            assert html is not None
            with self.subTest(html):
                self.assertNotEqual([], self.problems(html))
            (refused,) = written([Tree(element, (Attribute(name, value),))])
            self.assertIsNone(refused)

    def test_no_value_of_an_animation_runs_after_a_click(self) -> None:
        values = {
            "values": (
                "#;javascript:{}",
                "#; java\nscript:{}",
                "\u2028javascript:{};javascript:{}",
            ),
            "to": ("javascript:{}", "\x01javascript:{}"),
            "from": ("javascript:{}",),
            "by": ("javascript:{}",),
        }
        ran = 0
        for name, texts in values.items():
            for text in texts:
                value = text.replace("{}", SCRIPT)
                with self.subTest(name=name, value=value):
                    self.assertEqual([None], written([link_with(name, value)]))
                    (raw,) = written([link_with(name, value, is_raw=True)])
                    assert raw is not None
                    ran += self.problems(raw) != []
        self.assertGreater(ran, 1, "Chromium ran none of them, so this test shows nothing")
        (harmless,) = written([link_with("values", "#a;#b")])
        assert harmless is not None
        self.assertEqual([], self.problems(harmless))

    def test_random_attributes_run_nothing_and_load_nothing_from_another_site(self) -> None:
        attacker = Attacker(7, SCRIPT, self.other_host)
        accepted = [html for html in written(attacker.trees(TREES)) if html is not None]
        self.assertGreater(len(accepted), TREES // 4)
        size = 100
        for start in range(0, len(accepted), size):
            batch = accepted[start : start + size]
            if self.problems("\n".join(batch)):
                for html in batch:
                    self.assertEqual([], self.problems(html), html)
                self.fail(f"only together: {batch}")

    def test_pages_of_another_site_are_not_opened_by_themselves(self) -> None:
        attacker = Attacker(8, SCRIPT, self.other_host)
        other = f"http://{self.other_host}"
        equiv = Attribute("http-equiv", "refresh")
        contents = [f"0{between}\u2028{url}" for between in "; " for url in (other, f"'{other}")]
        for _ in range(100):
            contents += [f"0{between}{attacker.url()}" for between in (";url=", ";", " ")]
        trees = [Tree("meta", (equiv, Attribute("content", content))) for content in contents]
        # Chromium removes U+2028, although URLs and HTML do not treat it as a space.
        for content in (f"0;url={other}", f"0 \u2028{other}"):
            (leaving,) = written(
                [Tree("meta", (equiv, Attribute("content", content, is_raw=True)))]
            )
            assert leaving is not None
            self.assertNotEqual([], self.problems(leaving))
        accepted = [html for html in written(trees) if html is not None]
        self.assertGreater(len(accepted), len(trees) // 10)
        for html in accepted:
            self.assertEqual([], self.problems(html), html)


def listed(package: str) -> dict[str, list[str] | None] | list[str]:
    """What a package that only consists of a list exports."""
    folder = PACKAGES / package
    text = "".join(path.read_text(encoding="utf-8") for path in sorted(folder.glob("**/index.js")))
    exported = re.findall(r"export const \w+ = ([\[{].*?\n[\]}])", text, re.S)
    assert len(exported) == 1, f"{package} exports {len(exported)} lists"
    result: dict[str, list[str] | None] | list[str] = browser().execute_script(
        f"return {exported[0]}"
    )
    return result


def names_in(package: str) -> set[str]:
    lists = listed(package)
    assert isinstance(lists, dict)
    return {name.lower() for names in lists.values() for name in names or []}


def kinds(names: set[str]) -> dict[str, str]:
    ordered = sorted(names)
    return dict(zip(ordered, run("kinds", ordered), strict=True))


class Lists(unittest.TestCase):
    """Compares the table with lists that others maintain."""

    def test_table_has_each_attribute_of_html_and_svg(self) -> None:
        names = names_in("html-element-attributes") | names_in("svg-element-attributes")
        self.assertGreater(len(names), 300)
        self.assertEqual([], [name for name, kind in kinds(names).items() if kind == "unknown"])

    def test_each_event_attribute_is_a_script(self) -> None:
        for package in ("html-event-attributes", "svg-event-attributes"):
            events = set(listed(package))
            self.assertGreater(len(events), 50)
            self.assertEqual({"script"}, set(kinds(events).values()))

    def test_each_attribute_with_a_url_is_checked(self) -> None:
        lists = listed("html-url-attributes")
        assert isinstance(lists, dict)
        # It only identifies an item, as the ISBN of a book does: browsers never open it.
        del lists["itemId"]
        pairs = [(tag, name) for name, tags in lists.items() for tag in tags or ["p"]]
        self.assertGreater(len(pairs), 20)
        found = kinds({name.lower() for _, name in pairs})
        self.assertLessEqual(set(found.values()), {"url", "urls"}, found)
        for url, is_accepted in (("/x", True), ("javascript:x", False)):
            pages = written([Tree(tag, (Attribute(name, url),)) for tag, name in pairs])
            for pair, html in zip(pairs, pages, strict=True):
                self.assertEqual(is_accepted, html is not None, (pair, url))

    def sanitizer_attributes(self) -> set[str]:
        """The attributes that the sanitizer lets through."""
        driver = browser()
        driver.get("about:blank")
        driver.execute_script((PACKAGES / "dompurify/dist/purify.min.js").read_text("utf-8"))
        return set(
            driver.execute_script(
                """
                const names = new Set();
                DOMPurify.addHook('uponSanitizeAttribute', (_, data) => {
                  for (const name in data.allowedAttributes) names.add(name.toLowerCase());
                });
                DOMPurify.sanitize('<b title=x>x</b>');
                return [...names];
                """
            )
        )

    def test_table_has_each_attribute_of_a_sanitizer(self) -> None:
        names = self.sanitizer_attributes()
        self.assertGreater(len(names), 200)
        self.assertEqual([], [name for name, kind in kinds(names).items() if kind == "unknown"])

    def test_what_is_text_to_a_sanitizer_is_text(self) -> None:
        names = sorted(self.sanitizer_attributes())
        takes_code = browser().execute_script(
            "const [names, url] = arguments;"
            "return names.filter(name => DOMPurify.isValidAttribute('a', name, url));",
            *(names, "javascript:x"),
        )
        self.assertLess({"title", "alt"}, set(takes_code))
        self.assertNotIn("href", takes_code)
        found = kinds(set(takes_code))
        self.assertLessEqual(set(found.values()), {"text", "id", "style", "text or url"}, found)


if __name__ == "__main__":
    unittest.main()
