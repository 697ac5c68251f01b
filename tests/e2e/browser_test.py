"""The examples in a browser: what people type, tick and choose arrives, and what others sent does
nothing.

Screenshots go into the folder that SCREENSHOTS names.
"""

import atexit
import functools
import os
import re
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait

import rules
from page import Page
from server import Server, read
from upload_test import CUT

EXAMPLES = {
    "form-echo": os.environ["FORM_ECHO"],
    "upload": os.environ["UPLOAD"],
    "guestbook": os.environ["GUESTBOOK"],
    "contact": os.environ["CONTACT"],
    "poll": os.environ["POLL"],
    "counter": os.environ["COUNTER"],
}
VARIABLES = {
    "TARN_UPLOAD_DIR": "data/uploads",
    "TARN_GUESTBOOK_FILE": "data/guestbook",
    "TARN_CONTACT_FILE": "data/contact",
    "TARN_POLL_FILE": "data/poll",
    "TARN_COUNTER_FILE": "data/count",
}
FLAGS = (
    *("headless=new", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run"),
    *("disable-background-networking", "disable-component-update", "disable-sync"),
    *("disable-dev-shm-usage", "hide-scrollbars", "lang=en"),
)
PHONE, DESK = (360, 780), (560, 800)

SCRIPTS = "Łódź & Zoë, Привет мир, 湖の水, مرحبا بالعالم, 👩‍🚀 🎉"
HOSTILE = (
    "\"'></title></textarea><script>document.title = 'owned'; alert(1)</script>"
    "<img src=x onerror=\"document.title = 'owned'; alert(2)\"><svg onload=alert(3)>&amp;<!--"
)
# The name of a file may hold all of this.
NAME = "Übung \"a+b\" 'c' 50% <i>&amp; 100%25 湖.txt"
EVERY = bytes(range(256)) * 20000

# Texts whose colour is hard to tell from what is behind them: WCAG asks for a contrast of 4.5.
FAINT = """
const channels = colour => colour.match(/[\\d.]+/g).map(Number);
const light = colour => channels(colour).slice(0, 3)
  .map(c => (c /= 255) <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
  .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0) + 0.05;
const behind = e => {
  for (; e; e = e.parentElement) {
    const colour = getComputedStyle(e).backgroundColor;
    if ((channels(colour)[3] ?? 1) === 1) return colour;
  }
  return 'rgb(255, 255, 255)';
};
return [...document.body.querySelectorAll('*')].filter(e => {
  const style = getComputedStyle(e);
  const text = e.namespaceURI.endsWith('svg') ? style.fill : style.color;
  const [a, b] = [light(text), light(behind(e))].sort((a, b) => b - a);
  return e.textContent.trim() && e.checkVisibility() && a / b < 4.5;
}).map(e => e.outerHTML);
"""


@functools.cache
def browser():
    """A Chromium without a window, and the folder of all its files."""
    home = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
    atexit.register(home.cleanup)
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in (*FLAGS, f"user-data-dir={home.name}/profile"):
        options.add_argument(f"--{flag}")
    downloads = {"download.default_directory": f"{home.name}/downloads"}
    options.add_experimental_option("prefs", downloads)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    environment = os.environ | {"HOME": home.name, "TMPDIR": home.name}
    service = Service("/usr/bin/chromedriver", env=environment)
    driver = webdriver.Chrome(service=service, options=options)
    atexit.register(driver.quit)
    return driver, home.name


class BrowserCase(unittest.TestCase):
    SERVER = Server

    def setUp(self):
        self.browser, self.home = browser()
        self.server = self.enterContext(self.SERVER(EXAMPLES, VARIABLES))
        self.server.make_folder("data")
        self.folder = self.server.make_folder("data/uploads")
        self.browser.delete_all_cookies()
        self.browser.set_window_size(*DESK)
        self.allow_scripts(True)

    def tearDown(self):
        self.assertEqual("", self.server.log())
        # An alert that nobody closes would stand in the way of this.
        self.assertNotEqual("owned", self.browser.title)
        complaints = [entry["message"] for entry in self.browser.get_log("browser")]
        unexpected = [c for c in complaints if "favicon.ico" not in c and "status of 40" not in c]
        self.assertEqual([], unexpected)

    def allow_scripts(self, allowed):
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": not allowed})

    def visit(self, example):
        self.browser.get(f"{self.server.address()}/{example}")

    def find(self, selector):
        (found,) = self.find_all(selector)
        return found

    def find_all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        return [element.get_property("textContent") for element in self.find_all(selector)]

    def wait_for(self, selector):
        WebDriverWait(self.browser, 20).until(lambda _: self.find_all(selector))

    def type(self, name, text):
        """As an input method does: the driver's keys have no emoji."""
        self.find(f"[name={name}]").click()
        self.browser.execute_cdp_cmd("Input.insertText", {"text": text})

    def value(self, name):
        return self.find(f"[name={name}]").get_property("value")

    def send(self):
        """Presses the button and waits for the next page."""
        root = self.find("html")
        self.find("button").click()
        WebDriverWait(self.browser, 20).until(lambda _: root not in self.find_all("html"))

    def picture(self, name):
        folder = os.environ["SCREENSHOTS"]
        os.makedirs(folder, exist_ok=True)
        self.assertTrue(self.browser.save_screenshot(os.path.join(folder, f"{name}.png")))

    def file(self, name, data):
        path = os.path.join(self.home, name)
        with open(path, "wb") as file:
            file.write(data)
        return path

    def kept(self):
        return {name: read(os.path.join(self.folder, name)) for name in os.listdir(self.folder)}


class Guestbook(BrowserCase):
    def write(self, name, message, remember):
        self.visit("guestbook")
        self.type("name", name)
        self.type("message", message)
        if remember:
            self.find("[name=remember]").click()
        self.send()

    def test_shows_what_was_written_in_any_script(self):
        lines = "\n".join(SCRIPTS.split(", "))
        self.write(SCRIPTS, lines, remember=True)
        self.assertEqual([SCRIPTS], self.texts("article h2"))
        self.assertEqual([lines], self.texts("article p"))
        self.assertEqual(SCRIPTS, self.value("name"))
        self.assertTrue(self.find("[name=remember]").is_selected())
        self.picture("guestbook")

    def test_forgets_a_name_without_the_tick(self):
        self.write("Zoë", "Hello", remember=False)
        self.assertEqual("", self.value("name"))
        self.assertFalse(self.find("[name=remember]").is_selected())

    def test_writes_each_script_in_its_direction(self):
        self.write("Zoë", "مرحبا بالعالم", remember=False)
        directions = [
            element.value_of_css_property("direction") for element in self.find_all("article *")
        ]
        self.assertEqual(["ltr", "rtl"], directions)

    def test_runs_nothing_that_a_guest_wrote(self):
        self.write(HOSTILE[:120], HOSTILE, remember=True)
        self.visit("guestbook")
        self.assertEqual([HOSTILE[:120]], self.texts("article h2"))
        self.assertEqual([HOSTILE], self.texts("article p"))
        self.assertEqual(HOSTILE[:120], self.value("name"))
        self.assertEqual([], self.find_all("script, img, svg"))
        self.picture("guestbook-hostile")


class Upload(BrowserCase):
    def upload(self, *paths):
        self.visit("upload")
        self.find("[name=file]").send_keys("\n".join(paths))
        self.find("button").click()
        self.wait_for("#answer li")

    def assert_shown(self):
        """Two files stand there as the server saw them, and their bytes are kept."""
        # A browser writes a quote in a name as %22; the rest of the name is decoded like a field.
        seen = rules.unescape(NAME.replace('"', "%22").encode()).decode("utf-8", "replace")
        seen = re.sub("[\0-\x1f]", "\ufffd", seen)
        self.assertIn('Übung "a b"', seen)
        first, second = self.texts("#answer li")
        name, _, kept = first.rpartition(": kept as ")
        self.assertEqual(seen, name)
        self.assertRegex(kept, r"\A[A-Za-z0-9_][A-Za-z0-9_.-]*\.txt, 16 bytes\Z")
        self.assertEqual("every.bin: kept as every.bin, 5120000 bytes", second)
        harmless = kept.removesuffix(", 16 bytes")
        rows = iter(self.texts("td"))
        self.assertEqual({harmless: "16", "every.bin": "5120000"}, dict(zip(rows, rows)))
        self.assertTrue({harmless: b"Some text, 16 B.", "every.bin": EVERY} == self.kept())

    def files(self):
        return self.file(NAME, b"Some text, 16 B."), self.file("every.bin", EVERY)

    def test_shows_files_and_how_far_they_have_gone_up(self):
        self.upload(*self.files())
        self.assert_shown()
        bar = self.find("progress")
        self.assertTrue(bar.is_displayed())
        self.assertGreater(float(bar.get_property("max")), len(EVERY))
        self.assertEqual(1, bar.get_property("position"))
        self.picture("upload")
        self.upload(self.file("a.txt", b"more"))
        self.assertEqual(3, len(self.find_all("td a")))

    def test_works_without_scripts(self):
        self.allow_scripts(False)
        self.upload(*self.files())
        self.assert_shown()
        self.assertFalse(self.find("progress").is_displayed())

    def test_gives_a_file_back_as_a_download(self):
        self.upload(self.file("page.html", HOSTILE.encode()))
        self.find("td a").click()
        path = os.path.join(self.home, "downloads", "page.html")
        WebDriverWait(self.browser, 20).until(lambda _: os.path.exists(path))
        self.assertEqual(HOSTILE.encode(), read(path))
        self.assertEqual("Upload", self.browser.title)

    def test_says_how_much_of_a_file_is_kept(self):
        self.browser.save_screenshot(picture := os.path.join(self.home, "picture.png"))
        self.upload(picture)
        self.assertIn(CUT, self.texts("p"))
        self.assertEqual(["picture.png: kept as picture.png, 4 bytes"], self.texts("#answer li"))

    def test_runs_nothing_that_a_name_holds(self):
        name = "<img src=x onerror=alert(1)>'&quot;\".png"
        self.upload(self.file(name, b"1"))
        self.assertEqual([], self.find_all("img"))
        self.assertIn("<img src=x onerror=alert(1)>'&quot;\".png: kept", self.texts("li")[0])

    def test_tells_that_the_server_is_gone(self):
        self.visit("upload")
        self.find("[name=file]").send_keys(self.file("a.txt", b"1"))
        self.browser.execute_cdp_cmd("Network.enable", {})
        self.browser.execute_cdp_cmd("Network.setBlockedURLs", {"urls": ["*"]})
        self.find("button").click()
        WebDriverWait(self.browser, 20).until(
            lambda _: self.texts("#answer") == ["The upload failed."]
        )
        self.browser.execute_cdp_cmd("Network.setBlockedURLs", {"urls": []})
        self.browser.get_log("browser")


class Contact(BrowserCase):
    def test_remarks_stand_beside_the_fields_and_go(self):
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
        self.picture("contact")
        self.find("[name=email]").clear()
        self.type("email", "zoe@example.org")
        self.type("message", SCRIPTS)
        self.send()
        self.assertEqual(["Thank you, we have your message."], self.texts("[role=status]"))
        self.assertEqual([], self.find_all("[aria-invalid]"))
        self.assertEqual(1, read(self.server.path("data/contact")).count(b"\n"))

    def test_runs_nothing_that_was_typed(self):
        self.visit("contact")
        self.type("name", HOSTILE[:100])
        self.type("message", HOSTILE)
        self.send()
        self.assertEqual(HOSTILE[:100], self.value("name"))
        self.assertEqual(HOSTILE, self.value("message"))
        self.assertEqual([], self.find_all("script, img, svg"))


class Poll(BrowserCase):
    def vote(self, choice):
        self.visit("poll")
        self.find(f"[value={choice}]").click()
        self.send()

    def test_draws_the_votes_of_visitors_who_each_have_one(self):
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
        self.picture("poll")


class Counter(BrowserCase):
    def test_counts_each_visit(self):
        for number in (1, 2, 3):
            self.visit("counter")
            self.assertEqual([f"You are visitor number {number}."], self.texts("main p"))


class Pages(BrowserCase):
    """Every page in every state that makes it long, on a phone and for a screen reader."""

    def check(self, name):
        self.browser.set_window_size(*PHONE)
        width = self.browser.execute_script(
            "return [innerWidth, document.documentElement.scrollWidth]"
        )
        self.assertEqual([PHONE[0]] * 2, width, name)
        self.assertEqual([], self.browser.execute_script(FAINT), name)
        for control in self.find_all("input, textarea, button, select"):
            self.assertTrue(control.accessible_name, control.get_attribute("outerHTML"))
        Page(b"<!DOCTYPE html>\n" + self.browser.page_source.encode())
        self.picture(f"phone-{name}")

    def test_fit_a_phone_and_can_be_read(self):
        word = "W" * 100
        self.visit(f"form-echo?{word}={word * 10}")
        self.check("form-echo")
        self.visit("guestbook")
        self.check("guestbook-empty")
        self.type("name", word)
        self.type("message", word * 30)
        self.send()
        self.check("guestbook")
        self.visit("contact")
        self.check("contact-empty")
        self.type("name", word * 2)
        self.type("email", word)
        self.send()
        self.check("contact")
        self.visit("upload")
        self.check("upload-empty")
        self.find("[name=file]").send_keys(self.file(f"{word}.txt", b"1"))
        self.find("button").click()
        self.wait_for("#answer li")
        self.check("upload")
        self.visit("poll")
        self.check("poll-empty")
        self.find("[value=water]").click()
        self.send()
        self.check("poll")
        self.visit("counter")
        self.check("counter")


if __name__ == "__main__":
    unittest.main()
