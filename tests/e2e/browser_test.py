"""Uses the examples in a browser: whatever people type, tick and choose arrives, and hostile text
from others does nothing.

Screenshots are saved in the folder named by SCREENSHOTS.
"""

import atexit
import functools
import os
import re
import subprocess
import tempfile
import unittest
import urllib.parse
from pathlib import Path

import chromium
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.wait import WebDriverWait

from page import Page
from servers import Lighttpd, Server, examples
from servers.server import read
from upload_test import stored_files

if "TODO" in os.environ:
    import todo_test

EXAMPLES = {
    "form-echo": os.environ["FORM_ECHO"],
    "upload": os.environ["UPLOAD"],
    "guestbook": os.environ["GUESTBOOK"],
    "contact": os.environ["CONTACT"],
    "poll": os.environ["POLL"],
    "counter": os.environ["COUNTER"],
}
EXAMPLES_IN_CPP = EXAMPLES | {
    "guestbook": os.environ["GUESTBOOK_CPP"],
    "contact": os.environ["CONTACT_CPP"],
}
VARIABLES = {
    "TARN_UPLOAD_DIR": "data/uploads",
    "TARN_GUESTBOOK_FILE": "data/guestbook",
    "TARN_CONTACT_FILE": "data/contact",
    "TARN_POLL_FILE": "data/poll",
    "TARN_COUNTER_FILE": "data/count",
}
SOURCE = Path(__file__).parents[2]
LIBRARIES = os.path.dirname(os.environ["LIBRARY"])
PHONE, SMALL_PHONE, DESK, WIDE = (390, 844), (360, 780), (560, 900), (1280, 800)

SCRIPTS = "Łódź & Zoë, Привет мир, 湖の水, مرحبا بالعالم, 👩‍🚀 🎉"
HOSTILE = (
    "\"'></title></textarea><script>document.title = 'owned'; alert(1)</script>"
    "<img src=x onerror=\"document.title = 'owned'; alert(2)\"><svg onload=alert(3)>&amp;<!--"
)
# A file name may contain all of this.
NAME = "Übung \"a+b\" 'c' 50% <i>&amp; 100%25 湖.txt"
EVERY = bytes(range(256)) * 20000

# Finds what is hard to read, see or touch. WCAG requires a contrast of 4.5 for text, and of 3 for
# the edge of a control and the focus ring.
LOOK = """
const channels = colour => colour.match(/[\\d.]+/g).map(Number);
const light = colour => channels(colour).slice(0, 3)
  .map(c => (c /= 255) <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
  .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0) + 0.05;
const contrast = (one, other) => {
  const [a, b] = [light(one), light(other)].sort((a, b) => b - a);
  return a / b;
};
const solid = colour => colour.startsWith('rgb') && (channels(colour)[3] ?? 1) === 1;
const behind = e => {
  for (; e; e = e.parentElement) {
    const colour = getComputedStyle(e).backgroundColor;
    if (solid(colour)) return colour;
  }
  throw 'the page has no background';
};
const html = elements => elements.map(e => e.outerHTML.slice(0, 200));
const seen = selector => [...document.body.querySelectorAll(selector)]
  .filter(e => e.checkVisibility());
"""
READ = (
    LOOK
    + """
const texts = seen('*').filter(e => (e.textContent + (e.value ?? '')).trim());
const controls = seen('input, textarea, button');
const names = seen('th[scope=row]');
return {
  dark: light(behind(document.body)) < light('rgb(128, 128, 128)'),
  texts: texts.length,
  faint: html(texts.filter(e => {
    const style = getComputedStyle(e);
    const colour = e.namespaceURI.endsWith('svg') ? style.fill : style.color;
    return !solid(colour) || contrast(colour, behind(e)) < 4.5;
  })),
  edgeless: html(controls.filter(e => !e.matches('[type=checkbox], [type=radio]')
    && contrast(getComputedStyle(e).borderTopColor, behind(e.parentElement)) < 3)),
  small: html(controls.filter(e => {
    const target = e.matches('[type=checkbox], [type=radio]') ? e.closest('label') : e;
    return target.getBoundingClientRect().height < 44;
  })),
  names: names.map(e => e.textContent),
  broken: html(names.filter(e => {
    const text = document.createRange();
    text.selectNodeContents(e);
    return new Set([...text.getClientRects()].map(line => line.top)).size > 1;
  })),
  foreign: performance.getEntriesByType('resource').map(entry => entry.name)
    .filter(name => !name.startsWith(location.origin)),
};
"""
)
FOCUS = (
    LOOK
    + """
const e = document.activeElement, style = getComputedStyle(e);
return e === document.body ? null : {
  tag: e.localName,
  visible: style.outlineStyle === 'solid' && parseFloat(style.outlineWidth) >= 2
    && contrast(style.outlineColor, behind(e.parentElement)) >= 3,
};
"""
)


@functools.cache
def browser():
    """A headless Chromium and the folder that has all its files."""
    home = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
    atexit.register(home.cleanup)
    downloads = {"download.default_directory": f"{home.name}/downloads"}
    driver = chromium.start(home.name, logs={"browser": "ALL"}, preferences=downloads)
    atexit.register(driver.quit)
    return driver, home.name


class BrowserCase(unittest.TestCase):
    SERVER: type[Server] = Lighttpd
    PROGRAMS = EXAMPLES
    VARIABLES = VARIABLES
    PICTURES = ""

    def setUp(self):
        self.browser, self.home = browser()
        self.server = self.enterContext(self.SERVER(self.PROGRAMS, self.VARIABLES))
        self.server.make_folder("data")
        self.folder = self.server.make_folder("data/uploads")
        self.browser.delete_all_cookies()
        self.browser.set_window_size(*DESK)
        self.prefer("light")
        self.allow_scripts(True)

    def tearDown(self):
        self.assertEqual("", self.server.log())
        # An open alert would make this fail.
        self.assertNotEqual("owned", self.browser.title)
        complaints = [entry["message"] for entry in self.browser.get_log("browser")]
        unexpected = [c for c in complaints if "favicon.ico" not in c and "status of 4" not in c]
        self.assertEqual([], unexpected)

    def allow_scripts(self, allowed):
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": not allowed})

    def prefer(self, scheme):
        features = [{"name": "prefers-color-scheme", "value": scheme}]
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": features})

    def visit(self, example):
        self.browser.get(f"{self.server.address()}/{example}")

    def find(self, selector):
        (found,) = self.find_all(selector)
        return found

    def find_all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        """The texts of elements. A script may keep the CR LF that forms send."""
        found = [element.get_property("textContent") for element in self.find_all(selector)]
        return [text.replace("\r\n", "\n") for text in found]

    def wait_for(self, selector):
        WebDriverWait(self.browser, 20).until(lambda _: self.find_all(selector))

    def type(self, name, text):
        """Inserts text as an input method does, since the driver cannot type emoji."""
        self.find(f"[name={name}]").click()
        self.browser.execute_cdp_cmd("Input.insertText", {"text": text})

    def value(self, name):
        return self.find(f"[name={name}]").get_property("value")

    def send(self):
        """Presses the button and waits for the next page."""
        root = self.find("html")
        self.find("button").click()
        WebDriverWait(self.browser, 20).until(lambda _: root not in self.find_all("html"))

    def take_screenshot(self, name):
        folder = os.environ["SCREENSHOTS"]
        os.makedirs(folder, exist_ok=True)
        path = os.path.join(folder, f"{name}{self.PICTURES}.png")
        self.assertTrue(self.browser.save_screenshot(path))

    def write_file(self, name, data):
        path = os.path.join(self.home, name)
        with open(path, "wb") as file:
            file.write(data)
        return path

    def stored_files(self):
        return stored_files(self.folder)


class InCpp(BrowserCase):
    PROGRAMS = EXAMPLES_IN_CPP
    PICTURES = "-cpp"


class Guestbook(BrowserCase):
    def write(self, name, message, remember):
        self.visit("guestbook")
        self.type("name", name)
        self.type("message", message)
        if remember:
            self.find("[name=remember]").click()
        self.send()

    def test_shows_messages_in_any_writing_system(self):
        lines = "\n".join(SCRIPTS.split(", "))
        self.write(SCRIPTS, lines, remember=True)
        self.assertEqual([SCRIPTS], self.texts("article h2"))
        self.assertEqual([lines], self.texts("article p"))
        self.assertEqual(SCRIPTS, self.value("name"))
        self.assertTrue(self.find("[name=remember]").is_selected())
        self.take_screenshot("guestbook")

    def test_forgets_the_name_when_the_box_is_not_ticked(self):
        self.write("Zoë", "Hello", remember=False)
        self.assertEqual("", self.value("name"))
        self.assertFalse(self.find("[name=remember]").is_selected())

    def test_shows_each_writing_system_in_its_direction(self):
        self.write("Zoë", "مرحبا بالعالم", remember=False)
        directions = [
            element.value_of_css_property("direction") for element in self.find_all("article *")
        ]
        self.assertEqual(["ltr", "rtl"], directions)

    def test_does_not_run_code_in_messages(self):
        self.write(HOSTILE[:120], HOSTILE, remember=True)
        self.visit("guestbook")
        self.assertEqual([HOSTILE[:120]], self.texts("article h2"))
        self.assertEqual([HOSTILE], self.texts("article p"))
        self.assertEqual(HOSTILE[:120], self.value("name"))
        self.assertEqual([], self.find_all("script, img, svg"))
        self.take_screenshot("guestbook-hostile")


class GuestbookInCpp(InCpp, Guestbook):
    pass


class Upload(BrowserCase):
    def upload(self, *paths):
        self.visit("upload")
        self.find("[name=file]").send_keys("\n".join(paths))
        self.find("button").click()
        self.wait_for("#answer li")

    def assert_shown(self):
        """Checks that the page lists both files as the server saw them and that they are stored."""
        first, second = self.texts("#answer li")
        name, _, kept = first.rpartition(": saved as ")
        self.assertEqual(NAME, name)
        self.assertRegex(kept, r"\A[A-Za-z0-9_][A-Za-z0-9_.-]*\.txt, 16 bytes\Z")
        self.assertEqual("every.bin: saved as every.bin, 5120000 bytes", second)
        harmless = kept.removesuffix(", 16 bytes")
        rows = iter(self.texts("td"))
        self.assertEqual({harmless: "16", "every.bin": "5120000"}, dict(zip(rows, rows)))
        self.assertTrue({harmless: b"Some text, 16 B.", "every.bin": EVERY} == self.stored_files())

    def write_two_files(self):
        return self.write_file(NAME, b"Some text, 16 B."), self.write_file("every.bin", EVERY)

    def test_shows_files_and_upload_progress(self):
        self.upload(*self.write_two_files())
        self.assert_shown()
        bar = self.find("progress")
        self.assertTrue(bar.is_displayed())
        self.assertGreater(float(bar.get_property("max")), len(EVERY))
        self.assertEqual(1, bar.get_property("position"))
        self.take_screenshot("upload")
        self.upload(self.write_file("a.txt", b"more"))
        self.assertEqual(3, len(self.find_all("td a")))

    def test_works_without_javascript(self):
        self.allow_scripts(False)
        self.upload(*self.write_two_files())
        self.assert_shown()
        self.assertFalse(self.find("progress").is_displayed())

    def test_serves_a_file_as_a_download(self):
        self.upload(self.write_file("page.html", HOSTILE.encode()))
        self.find("td a").click()
        path = os.path.join(self.home, "downloads", "page.html")
        WebDriverWait(self.browser, 20).until(lambda _: os.path.exists(path))
        self.assertEqual(HOSTILE.encode(), read(path))
        self.assertEqual("Upload", self.browser.title)

    def test_shows_the_picture_that_was_sent(self):
        self.browser.save_screenshot(picture := os.path.join(self.home, "picture.png"))
        size = os.path.getsize(picture)
        self.upload(picture)
        told = f"picture.png: saved as picture.png, {size} bytes"
        self.assertEqual([told], self.texts("#answer li"))
        self.assertEqual({"picture.png": read(picture)}, self.stored_files())
        shown = self.find("#answer img")
        WebDriverWait(self.browser, 20).until(lambda _: shown.get_property("complete"))
        self.assertEqual(DESK[0], shown.get_property("naturalWidth"))
        self.take_screenshot("upload-picture")

    def test_does_not_run_code_in_pictures(self):
        name = "drawing.png"
        self.upload(self.write_file(name, HOSTILE.encode()), self.write_file("a.svg", b"<svg/>"))
        self.assertEqual([], self.find_all("img"))
        # A file that begins like a picture, opened as a page of its own.
        trick = b"GIF89a/*" + HOSTILE.encode() + b"*/=1;alert(1)"
        self.upload(self.write_file("trick.gif", trick))
        address = self.find("#answer img").get_property("src")
        self.browser.get(address)
        self.assertEqual([], self.find_all("script, svg"))
        self.assertNotEqual("owned", self.browser.title)
        self.browser.get_log("browser")

    def test_does_not_run_code_in_file_names(self):
        name = "<img src=x onerror=alert(1)>'&quot;\".png"
        self.upload(self.write_file(name, b"1"))
        self.assertEqual([], self.find_all("img"))
        self.assertIn("<img src=x onerror=alert(1)>'&quot;\".png: saved", self.texts("li")[0])

    def test_reports_that_the_server_is_gone(self):
        self.visit("upload")
        self.find("[name=file]").send_keys(self.write_file("a.txt", b"1"))
        self.browser.execute_cdp_cmd("Network.enable", {})
        self.browser.execute_cdp_cmd("Network.setBlockedURLs", {"urls": ["*"]})
        self.find("button").click()
        WebDriverWait(self.browser, 20).until(
            lambda _: self.texts("#answer") == ["The upload failed."]
        )
        self.browser.execute_cdp_cmd("Network.setBlockedURLs", {"urls": []})
        self.browser.get_log("browser")


class Contact(BrowserCase):
    def test_errors_appear_beside_fields_and_disappear(self):
        self.visit("contact")
        self.type("name", SCRIPTS)
        self.type("email", "nobody")
        self.send()
        self.assertEqual(SCRIPTS, self.value("name"))
        self.assertEqual("nobody", self.value("email"))
        self.assertEqual([], self.find_all("#name-problem"))
        for name in ("email", "message"):
            control, remark = self.find(f"[name={name}]"), self.find(f"#{name}-problem")
            self.assertEqual(f"{name}-problem", control.get_attribute("aria-describedby"))
            self.assertTrue(remark.is_displayed())
            below = control.rect["y"] + control.rect["height"]
            self.assertLess(abs(remark.rect["y"] - below), 40)
        self.take_screenshot("contact")
        self.find("[name=email]").clear()
        self.type("email", "zoe@example.org")
        self.type("message", SCRIPTS)
        self.send()
        self.assertEqual(["Thank you, we have your message."], self.texts("[role=status]"))
        self.assertEqual([], self.find_all("[aria-invalid]"))
        self.assertEqual(1, read(self.server.path("data/contact")).count(b"\n"))

    def test_does_not_run_code_in_fields(self):
        self.visit("contact")
        self.type("name", HOSTILE[:100])
        self.type("message", HOSTILE)
        self.send()
        self.assertEqual(HOSTILE[:100], self.value("name"))
        self.assertEqual(HOSTILE, self.value("message"))
        self.assertEqual([], self.find_all("script, img, svg"))


class ContactInCpp(InCpp, Contact):
    pass


class Poll(BrowserCase):
    def vote(self, choice):
        self.visit("poll")
        self.find(f"[value={choice}]").click()
        self.send()

    def test_chart_shows_one_vote_per_visitor(self):
        for choice in ("tea", "tea", "coffee"):
            self.browser.delete_all_cookies()
            self.vote(choice)
        self.assertIn("You voted for Coffee.", self.texts("p"))
        self.assertEqual([], self.find_all("form"))
        chart = self.find("svg")
        self.assertEqual("Votes: Tea 2, Coffee 1, Water 0", chart.accessible_name)
        self.assertIn(chart.aria_role, ("img", "image"))
        tea, coffee, water = (bar.rect["width"] for bar in self.find_all("rect"))
        self.assertEqual((180, 90, 0), (tea, coffee, water))
        self.take_screenshot("poll")


class Counter(BrowserCase):
    def test_counts_each_visit(self):
        for number in (1, 2, 3):
            self.visit("counter")
            self.assertEqual([f"You are visitor number {number}."], self.texts("main p"))


class Todo(BrowserCase):
    PROGRAMS = {"todo": os.environ.get("TODO", "")}
    VARIABLES = {"TARN_TODO_DIR": "lists"}

    def press(self, selector):
        """Presses a button and waits for the next page."""
        root = self.find("html")
        self.find(selector).click()
        WebDriverWait(self.browser, 20).until(lambda _: root not in self.find_all("html"))

    def log_in(self, name, password):
        self.type("name", name)
        self.type("password", password)
        self.press("form[action$='/login'] button")

    def test_from_login_to_logout(self):
        todo_test.make_lists(self.server.folder)
        self.visit("todo")
        self.browser.save_screenshot(picture := os.path.join(self.home, "lake.png"))
        self.log_in("Ada", HOSTILE[:100])
        self.assertEqual(["The name or the password is wrong."], self.texts("#password-problem"))
        self.assertEqual("", self.value("password"))
        self.find("[name=name]").clear()
        self.log_in("Ada", todo_test.PASSWORD)
        self.assertEqual(["Welcome."], self.texts("[role=status]"))
        for title in (SCRIPTS, HOSTILE[:190]):
            self.type("title", title)
            self.find("[name=picture]").send_keys(picture)
            self.press("p + button")
            self.assertEqual(["Added."], self.texts("[role=status]"))
        self.assertEqual([SCRIPTS, HOSTILE[:190]], self.texts("article h2"))
        self.assertEqual([], self.find_all("script, svg"))
        for image in self.find_all("article img"):
            WebDriverWait(self.browser, 20).until(lambda _, i=image: i.get_property("complete"))
            self.assertEqual(DESK[0], image.get_property("naturalWidth"))
        self.press("form[action$='/items/0/done'] button")
        self.assertEqual(["Done.", "Done"], self.texts("[role=status], article p"))
        self.take_screenshot("todo")
        self.press("form[action$='/logout'] button")
        self.assertEqual(["Goodbye."], self.texts("[role=status]"))
        self.assertEqual([], self.find_all("article"))
        self.browser.back()
        self.assertEqual([], self.find_all("article"))


if not Todo.PROGRAMS["todo"]:
    del Todo  # needs libsodium


class PageCase(BrowserCase):
    """Checks every page in each state that makes it long: on a phone and a desktop, in light and
    dark mode, by touch, by keyboard and with a screen reader."""

    def value_of(self, expression):
        return self.browser.execute_script(f"return {expression}")

    def check(self, name):
        for size in (WIDE, SMALL_PHONE, PHONE):
            self.browser.set_window_size(*size)
            WebDriverWait(self.browser, 20).until(lambda _: self.value_of("innerWidth") == size[0])
            width = self.value_of("document.documentElement.scrollWidth")
            self.assertEqual(size[0], width, name)
        for scheme in ("dark", "light"):
            self.prefer(scheme)
            self.check_look(name, scheme)
            self.check_focus(name)
            self.take_screenshot(f"phone-{name}-{scheme}")
        for control in self.find_all("input, textarea, button, select"):
            self.assertTrue(control.accessible_name, control.get_attribute("outerHTML"))
        Page(b"<!DOCTYPE html>\n" + self.browser.page_source.encode())

    def check_look(self, name, scheme):
        found = self.browser.execute_script(READ)
        self.assertEqual(scheme == "dark", found["dark"], name)
        self.assertGreater(found["texts"], 2, name)
        for fault in ("faint", "edgeless", "small", "broken", "foreign"):
            self.assertEqual([], found[fault], f"{fault}: {name}, {scheme}")
        self.assertEqual(name.startswith("form-echo"), "REQUEST_METHOD" in found["names"])

    def check_focus(self, name):
        """The tab key reaches every control of the page, and the focus is visible."""
        self.find("h1").click()
        tags = set()
        for _ in range(60):
            ActionChains(self.browser).send_keys(Keys.TAB).perform()
            focus = self.browser.execute_script(FOCUS)
            if not focus:
                break
            self.assertTrue(focus["visible"], f"{name}: {focus}")
            tags.add(focus["tag"])
        else:
            self.fail(f"{name}: the tab key does not return to the start")
        self.assertLessEqual({e.tag_name for e in self.find_all("input, button, a")}, tags, name)


class WrittenPages(PageCase):
    def test_guestbook(self):
        word = "W" * 100
        self.visit("guestbook")
        self.check("guestbook-empty")
        for name, message in ((word, word * 30), (SCRIPTS, SCRIPTS), ("مريم", "مرحبا بالعالم")):
            self.prefer("light")
            self.visit("guestbook")
            self.type("name", name)
            self.type("message", message)
            self.send()
        self.check("guestbook")
        self.type("name", " ")
        self.type("message", " ")
        self.send()
        self.assertEqual(1, len(self.texts("[role=alert]")))
        self.check("guestbook-problem")

    def test_contact(self):
        self.visit("contact")
        self.check("contact-empty")
        self.type("name", "W" * 200)
        self.type("email", "W" * 100)
        self.send()
        self.assertEqual(3, len(self.find_all("[aria-invalid]")))
        self.check("contact")
        self.visit("contact?sent")
        self.assertEqual(1, len(self.texts("[role=status]")))
        self.check("contact-sent")


class WrittenPagesInCpp(InCpp, WrittenPages):
    pass


class Pages(PageCase):
    def test_form_echo_keeps_names_whole_and_wraps_values(self):
        word = "W" * 100
        self.visit(f"form-echo?{word}={word * 10}&the-long+name+of+a+field=1&تعليق+طويل+جدا=مرحبا")
        self.browser.add_cookie({"name": "the-cookie-of-the-shop-with-a-long-name", "value": word})
        self.browser.refresh()
        self.check("form-echo")
        names = self.browser.execute_script(READ)["names"]
        self.assertIn(word, names)
        self.assertIn("the-long name of a field", names)
        self.assertIn("the-cookie-of-the-shop-with-a-long-name", names)
        box = self.find_all(".pairs")[0]
        self.assertGreater(box.get_property("scrollWidth"), box.get_property("clientWidth"))

    def test_form_echo_shows_values_beside_names_of_any_length(self):
        self.visit("form-echo?" + "&".join(f"{'w' * n}=value" for n in (1, 20, 40, 60, 80, 200)))
        for size in (WIDE, SMALL_PHONE, PHONE):
            self.browser.set_window_size(*size)
            WebDriverWait(self.browser, 20).until(lambda _: self.value_of("innerWidth") == size[0])
            box = self.find_all(".pairs")[0].rect
            values = [
                cell.rect
                for cell in self.find_all(".pairs")[0].find_elements(By.CSS_SELECTOR, "td")
            ]
            self.assertEqual(6, len(values))
            for value in values:
                self.assertGreaterEqual(value["x"], box["x"])
                self.assertLessEqual(value["x"] + value["width"], box["x"] + box["width"] + 0.5)

    def test_upload(self):
        self.visit("upload")
        self.check("upload-empty")
        names = ["W" * 100 + ".txt", "مرحبا.txt", *(f"{n}.jpg" for n in range(8))]
        self.find("[name=file]").send_keys("\n".join(self.write_file(name, b"1") for name in names))
        self.find("button").click()
        self.wait_for("#answer li")
        self.assertEqual(10, len(self.find_all("td a")))
        self.check("upload")
        self.visit("upload?file=nothing")
        self.assertEqual(1, len(self.texts("[role=alert]")))
        self.check("upload-problem")

    def test_poll(self):
        self.visit("poll")
        self.check("poll-empty")
        self.find("[value=water]").click()
        self.send()
        self.assertEqual([], self.find_all("form"))
        self.check("poll")

    def test_counter(self):
        self.visit("counter")
        self.check("counter")


class List(PageCase):
    """The list of examples that scripts/demo --serve shows."""

    def test_list(self):
        listed = examples.sources(os.path.dirname(os.environ["FORM_ECHO"]))
        with open(self.server.path("www/index.html"), "w", encoding="utf-8") as page:
            page.write(examples.index(listed))
        self.browser.get(self.server.address().removesuffix("/cgi-bin"))
        self.check("list")
        links = [link.get_property("href") for link in self.find_all("a")]
        self.assertEqual([f"{self.server.address()}/{name}" for name in listed], links)
        (style,) = self.texts("style")
        self.visit("form-echo")
        self.assertEqual([style], self.texts("style"))


class Readme(BrowserCase):
    """The README's C++ script, compiled with the README's command."""

    VARIABLES = {"LD_LIBRARY_PATH": LIBRARIES}

    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        text = (SOURCE / "README.md").read_text(encoding="utf-8")
        (script,) = re.findall(r"^```cpp\n(.*?)^```$", text, re.DOTALL | re.MULTILINE)
        (command,) = re.findall(r"^\$ (c\+\+ .*)$", text, re.MULTILINE)
        Path(folder, "welcome.cpp").write_text(script, encoding="utf-8")
        places = {"CPATH": str(SOURCE / "include"), "LIBRARY_PATH": LIBRARIES}
        subprocess.run(["bash", "-c", command], cwd=folder, env=os.environ | places, check=True)
        cls.PROGRAMS = {"welcome": f"{folder}/welcome"}
        assert len(script.splitlines()) <= 20, "long for a README"

    def test_greets_any_name(self):
        self.visit("welcome")
        self.assertEqual(["Hello, stranger!"], self.texts("p"))
        for name in (SCRIPTS, HOSTILE):
            self.visit(f"welcome?name={urllib.parse.quote(name, safe='')}")
            self.assertEqual([f"Hello, {name}!"], self.texts("p"))
            self.assertEqual([], self.find_all("script, img, svg"))


class ProtectedCookie(BrowserCase):
    """A cookie whose name decodes to that of a protected cookie does not replace it."""

    VARIABLES = {"LD_LIBRARY_PATH": LIBRARIES}
    CPP = """
        #include <tarn.hpp>
        int main() {
          tarn::Request request;
          return tarn::Response().send_text(
              request.cookie("__Host-session").value_or("no session")) ? 0 : 1;
        }
    """

    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        guide = (SOURCE / "docs/guide/cookies.md").read_text(encoding="utf-8")
        (recipe,) = re.findall(r"^```c account.c\n(.*?)^```$", guide, re.DOTALL | re.MULTILINE)
        Path(folder, "account.c").write_text(recipe, encoding="utf-8")
        Path(folder, "session.cpp").write_text(cls.CPP, encoding="utf-8")
        places = {"CPATH": str(SOURCE / "include"), "LIBRARY_PATH": LIBRARIES}
        for command in (
            "cc -std=c99 account.c -ltarn_form -o account",
            "cc -std=c++17 -fno-exceptions session.cpp -ltarn -o session",
        ):
            subprocess.run(command.split(), cwd=folder, env=os.environ | places, check=True)
        cls.PROGRAMS = {
            "account": f"{folder}/account",
            "session": f"{folder}/session",
            "form-echo": EXAMPLES["form-echo"],
        }

    def test_found_only_by_its_literal_name(self):
        self.visit("form-echo")
        self.browser.execute_script("document.cookie = '__Host-session=refused; path=/'")
        self.browser.execute_script("document.cookie = '__%48ost-session=forged; path=/'")
        # The browser refuses the protected name but accepts the encoded one.
        self.visit("form-echo")
        page = self.find("body").text
        self.assertIn("__%48ost-session", page)
        self.assertNotIn("__Host-session", page)
        self.assertIn("forged", page)
        self.assertNotIn("refused", page)
        for script in ("account", "session"):
            self.visit(script)
            self.assertEqual("no session", self.find("body").text.strip(), script)


if __name__ == "__main__":
    unittest.main()
