#!/usr/bin/env python3
"""Opens the site in Chromium from the disk: the search finds what people look for, and every page
is readable on a desktop and on a phone, in light and dark mode.

Screenshots are saved in the folder named by SCREENSHOTS.
"""

import base64
import itertools
import json
import os
import re
import tempfile
import unittest
import urllib.parse
from pathlib import Path

import chromium
from selenium.webdriver.common.by import By
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.support.wait import WebDriverWait

TREE = Path(os.environ["TREE"])
SHOTS = Path(os.environ["SCREENSHOTS"])
DESK, PHONE = (1280, 900), (390, 844)
# scripts/nightly looks at every page. Otherwise one of each kind is enough, and on a phone those with
# the longest names.
NIGHTLY = os.environ.get("TARN_NIGHTLY") == "1"
PAGES = sorted(str(path.relative_to(TREE)) for path in TREE.rglob("*.html"))
# A page of each kind.
KINDS = (
    *("index", "guide/first-script", "guide/uploads", "guide/deploying", "robustness"),
    *("performance", "c/index", "c/which-function", "c/cheat-sheet", "c/conventions", "c/request"),
    *("c/Tarn_findEntries", "c/TARNString_append_sprintf", "cpp/index", "cpp/Request"),
    *("forms/index", "forms/conventions", "forms/TarnFormField_save", "guide/forms"),
    *("serve/index", "serve/conventions", "serve/tarn_serve", "tools/tarn-serve"),
    *("cpp/Element", "cpp/shared", "tools/tarn-run", "examples", "genindex", "search"),
)
# What people search for, and pages that have to be among the first three that are found.
SEARCHES = {
    "upload": ["guide/uploads", "guide/forms"],
    "file": ["guide/uploads", "guide/forms"],
    "multiple files": ["guide/uploads"],
    "png": ["guide/uploads", "guide/forms"],
    "413": ["guide/forms"],
    "cookie": ["guide/cookies"],
    "cookies": ["guide/cookies"],
    "checkbox": ["guide/fields"],
    "escape": ["guide/responses"],
    "xss": ["guide/responses"],
    "crlf": ["guide/responses"],
    "redirect": ["guide/responses"],
    "404": ["guide/responses"],
    "500": ["guide/debugging"],
    "status code": ["guide/responses"],
    "textarea": ["guide/fields", "guide/forms"],
    "json": ["guide/responses", "guide/forms"],
    "session": ["guide/cookies"],
    "memory": ["guide/memory"],
    "install": ["guide/first-script"],
    "uninstall": ["guide/first-script"],
    "nginx": ["guide/deploying"],
    "form": ["guide/forms"],
    # Searching for a name finds its page.
    "Tarn_getFile": ["c/Tarn_getFile"],
    "getFile": ["c/Tarn_getFile"],
    "TARN_ENTRY_VALUE": ["c/form-entries"],
    "tarn::Response": ["cpp/Response"],
    "TarnForm_next": ["forms/TarnForm_next"],
    "TARN_FORM_LIMIT": ["forms/conventions"],
    "escape_json": ["cpp/functions"],
    "tarn-run": ["tools/tarn-run"],
    "tarn_serve": ["serve/tarn_serve"],
    "fastcgi": ["tools/tarn-serve"],
}
# Shows the main part of another page in this one, which is quicker than opening it.
REPLACE = """
const page = new DOMParser().parseFromString(arguments[0], 'text/html');
document.querySelector('.main').replaceWith(page.querySelector('.main'));
"""
# Finds what is wider than the page, and identifiers that are broken across lines. Boxes that scroll
# may hold more than they show.
LOOK = """
const wide = document.scrollingElement.scrollWidth - innerWidth;
const scrolls = e => {
  for (; e && e !== document.body; e = e.parentElement) {
    if (['auto', 'scroll', 'hidden'].includes(getComputedStyle(e).overflowX)
        && !e.matches('.content, .main, .page')) return true;
  }
  return false;
};
const out = [...document.querySelectorAll('article *')].filter(e => {
  const box = e.getBoundingClientRect();
  return box.width > 0 && box.right > innerWidth + 1 && !scrolls(e);
}).map(e => e.outerHTML.slice(0, 150));
const broken = [];
let identifiers = 0;
const texts = document.createTreeWalker(document.querySelector('article'), NodeFilter.SHOW_TEXT);
while (texts.nextNode()) {
  const text = texts.currentNode;
  for (const match of text.data.matchAll(/\\b(?:[A-Za-z]\\w*(?:(?:::|_)\\w+)+|[A-Z]?[a-z]+[A-Z]\\w+)/g)) {
    const range = document.createRange();
    range.setStart(text, match.index);
    range.setEnd(text, match.index + match[0].length);
    const lines = new Set([...range.getClientRects()].filter(r => r.width > 0)
      .map(r => Math.round(r.top)));
    if (lines.size === 0) continue;
    identifiers++;
    if (lines.size > 1) broken.push(match[0]);
  }
}
return {wide, out, broken, identifiers};
"""
# WCAG requires a contrast of 4.5, or 3 for large text.
FAINT = """
const channels = colour => colour.match(/[\\d.]+/g).map(Number);
const light = c => c.slice(0, 3).map(v => (v /= 255) <= 0.03928 ? v / 12.92
  : ((v + 0.055) / 1.055) ** 2.4).reduce((s, v, i) => s + v * [0.2126, 0.7152, 0.0722][i], 0.05);
const over = (top, under) => {
  const a = top[3] ?? 1;
  return under.map((c, i) => a * top[i] + (1 - a) * c);
};
const grounds = new Map();
const behind = e => {
  if (!e) return [255, 255, 255];
  if (!grounds.has(e)) {
    grounds.set(e, over(channels(getComputedStyle(e).backgroundColor), behind(e.parentElement)));
  }
  return grounds.get(e);
};
const faint = [];
let count = 0;
const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (texts.nextNode()) {
  const e = texts.currentNode.parentElement;
  if (!texts.currentNode.data.trim() || !e.checkVisibility() || e.closest('.visually-hidden, script'))
    continue;
  const style = getComputedStyle(e);
  if (style.visibility === 'hidden' || style.opacity === '0' || e.closest('.headerlink')) continue;
  const ground = behind(e);
  const [a, b] = [light(over(channels(style.color), ground)), light(ground)].sort((x, y) => y - x);
  const size = parseFloat(style.fontSize);
  const large = size >= 24 || size >= 18.66 && style.fontWeight >= 700;
  count++;
  if (a / b < (large ? 3 : 4.5)) faint.push((a / b).toFixed(2) + ' ' + style.color + ' on '
    + ground.map(Math.round) + ': ' + e.className + ' ' + texts.currentNode.data.trim().slice(0, 40));
}
return {faint: [...new Set(faint)], count,
        dark: light(behind(document.body)) < light([128, 128, 128])};
"""


class Browser(unittest.TestCase):
    """Starts Chromium, and opens pages in it."""

    LOGS: dict[str, str] = {}

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.browser = chromium.start(cls.folder.name, logs=cls.LOGS)
        cls.addClassCleanup(cls.browser.quit)
        SHOTS.mkdir(parents=True, exist_ok=True)

    def emulate_screen(self, size, scheme="light"):
        width, height = size
        metrics = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 600}
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)
        features = [{"name": "prefers-color-scheme", "value": scheme}]
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": features})

    def open(self, page):
        self.browser.get(f"file://{TREE}/{page}")

    def search_results(self, query, enough=10000):
        """The pages that the search lists, each with its summary: all, or at least so many."""
        self.open(f"search.html?{urllib.parse.urlencode({'q': query})}")
        # The pages appear in their order, one after the other.
        WebDriverWait(self.browser, 300).until(
            lambda browser: len(browser.find_elements(By.CSS_SELECTOR, "ul.search > li")) >= enough
            or browser.find_elements(By.CSS_SELECTOR, "#search-results .search-summary")
            and "finished" in browser.find_element(By.CSS_SELECTOR, ".search-summary").text
            or "did not match" in browser.find_element(By.ID, "search-results").text,
            f"the search for {query} does not end",
        )
        return self.browser.execute_script(
            "return [...document.querySelectorAll('#search-results ul.search > li')].map(item =>"
            " [item.querySelector('a').getAttribute('href').replace(/\\.html.*/, ''),"
            "  item.textContent])"
        )


class Site(Browser):
    def test_search_lists_the_right_page_in_the_top_three(self):
        self.emulate_screen(DESK)
        for query, pages in SEARCHES.items():
            found = [name for name, _ in self.search_results(query, 3)]
            for page in pages:
                with self.subTest(query=query, page=page):
                    self.assertIn(page, found[:3], f"{found[:5]}")

    def test_search_finds_the_same_on_a_phone(self):
        found = []
        for size in DESK, PHONE:
            self.emulate_screen(size)
            found.append([name for name, _ in self.search_results("upload")])
        self.assertEqual(*found)

    def test_search_summarises_each_page_and_lists_it_once(self):
        self.emulate_screen(DESK)
        found = self.search_results("cookie")
        self.assertGreater(len(found), 10)
        self.assertEqual(len({text for _, text in found}), len(found))
        for page, text in found[:10]:
            self.assertGreater(len(text), 40, page)

    def test_search_for_unknown_text_finds_nothing(self):
        self.emulate_screen(DESK)
        self.assertEqual(self.search_results("zebrafish"), [])

    def test_slash_focuses_the_search_and_enter_searches(self):
        for size in DESK, PHONE:
            self.emulate_screen(size)
            self.open("c/Tarn_new.html")
            ActionChains(self.browser).send_keys("/").perform()
            field = self.browser.switch_to.active_element
            self.assertEqual(field.get_attribute("name"), "q")
            WebDriverWait(self.browser, 10).until(
                lambda browser: 0
                <= browser.execute_script(
                    "return document.activeElement.getBoundingClientRect().left"
                )
                < size[0]
            )
            self.assertEqual(field.get_attribute("value"), "")
            field.send_keys("upload\n")
            WebDriverWait(self.browser, 10).until(
                lambda browser: "search.html?q=upload" in browser.current_url
            )

    def test_no_page_is_wider_than_the_window_or_breaks_an_identifier(self):
        self.assertGreater(len(PAGES), 280)
        for size in (DESK, PHONE) if NIGHTLY else (PHONE,):
            self.emulate_screen(size)
            identifiers = 0
            for _, pages in itertools.groupby(PAGES, os.path.dirname):
                # Long names are the first that do not fit.
                chosen = list(pages) if NIGHTLY else sorted(pages, key=len)[-20:]
                for number, page in enumerate(chosen):
                    if number == 0:
                        self.open(page)
                    else:
                        self.browser.execute_script(REPLACE, (TREE / page).read_text())
                    identifiers += self.look(page, size)
            self.assertGreater(identifiers, 10000 if NIGHTLY else 3000)

    def look(self, page, size):
        seen = self.browser.execute_script(LOOK)
        out = f"{page} at {size[0]}: {seen['out'][:5]}"
        self.assertLessEqual(seen["wide"], 0, out)
        self.assertFalse(seen["out"], out)
        self.assertEqual(seen["broken"], [], f"{page} at {size[0]}")
        return seen["identifiers"]

    def test_text_has_enough_contrast_in_light_and_dark(self):
        for page in KINDS:
            self.open(f"{page}.html")
            for size in DESK, PHONE:
                for scheme in "light", "dark":
                    self.emulate_screen(size, scheme)
                    if scheme == "light":
                        self.look(page, size)
                    # Otherwise some colours change over a moment.
                    self.browser.execute_script("document.getAnimations().forEach(a => a.finish())")
                    seen = self.browser.execute_script(FAINT)
                    self.assertEqual(seen["dark"], scheme == "dark", page)
                    self.assertGreater(seen["count"], 20, page)
                    self.assertEqual(seen["faint"], [], f"{page} in {scheme}")

    def test_reader_can_choose_light_or_dark(self):
        self.emulate_screen(DESK, "light")
        self.open("index.html")
        button = self.browser.find_element(By.CSS_SELECTOR, ".content .theme-toggle")
        for dark in True, False, False:
            button.click()
            self.assertEqual(self.browser.execute_script(FAINT)["dark"], dark)

    def test_c_and_cpp_are_tabs(self):
        self.emulate_screen(DESK)
        for page in "index", "guide/first-script", "guide/responses", "guide/uploads":
            self.open(f"{page}.html")
            cpp = self.browser.find_element(By.XPATH, "//label[text()='C++']")
            code = self.browser.find_element(By.XPATH, "//pre[contains(., 'tarn.hpp')]")
            self.assertFalse(code.is_displayed())
            self.browser.execute_script(
                "arguments[0].scrollIntoView({block: 'center', behavior: 'instant'})", cpp
            )
            cpp.click()
            self.assertTrue(code.is_displayed())

    def test_cheat_sheet_prints_on_one_sheet(self):
        self.emulate_screen(DESK)
        self.open("c/cheat-sheet.html")
        paper = {"paperWidth": 210 / 25.4, "paperHeight": 297 / 25.4}
        margins = {f"margin{side}": 0.4 for side in ("Top", "Bottom", "Left", "Right")}
        made = self.browser.execute_cdp_cmd("Page.printToPDF", paper | margins)
        pdf = base64.b64decode(made["data"])
        self.assertEqual(len(re.findall(rb"/Type\s*/Page\b", pdf)), 1)

    if NIGHTLY:  # for people to look at

        def test_screenshots(self):
            for width, size in (("desk", DESK), ("phone", PHONE)):
                for scheme in "light", "dark":
                    self.emulate_screen(size, scheme)
                    for page in (
                        "index",
                        "guide/first-script",
                        "c/Tarn_findEntries",
                        "cpp/Request",
                        "forms/index",
                    ):
                        self.open(f"{page}.html")
                        name = f"site-{page.replace('/', '-')}-{width}-{scheme}.png"
                        self.assertTrue(self.browser.save_screenshot(str(SHOTS / name)))
                    self.search_results("upload")
                    name = f"site-search-{width}-{scheme}.png"
                    self.assertTrue(self.browser.save_screenshot(str(SHOTS / name)))


class Logs(Browser):
    """Chromium records every request here, which takes time."""

    LOGS = {"performance": "ALL", "browser": "ALL"}

    def test_loads_without_errors_or_other_hosts(self):
        self.emulate_screen(DESK)
        self.browser.get_log("performance"), self.browser.get_log("browser")
        for page in KINDS:
            self.open(f"{page}.html")
        self.search_results("upload")
        asked = [
            event["params"]["request"]["url"]
            for entry in self.browser.get_log("performance")
            for event in [json.loads(entry["message"])["message"]]
            if event["method"] == "Network.requestWillBeSent"
        ]
        asked = [url for url in asked if not url.startswith("data:")]
        self.assertGreater(len(asked), len(KINDS) * 5)
        self.assertEqual([url for url in asked if not url.startswith(f"file://{TREE}/")], [])
        self.assertEqual(self.browser.get_log("browser"), [])


if __name__ == "__main__":
    unittest.main()
