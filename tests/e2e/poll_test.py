"""The example poll counts every visitor exactly once."""

import concurrent.futures
import fcntl
import os
import re
import subprocess
import tempfile
import time
import unittest

import script
from page import Page
from servers import Lighttpd
from servers.server import read

POLL = os.environ["POLL"]
URL_ENCODED = "application/x-www-form-urlencoded"
COOKIE = re.compile("visitor=([0-9a-f]{32}); Max-Age=31536000; HttpOnly; SameSite=Lax")


def chart(page):
    """The label of the chart; then for each choice its name, the width of its bar and its count."""
    (svg,) = [element for element in page.elements if element["tag"] == "svg"]
    texts = page.texts("text")
    widths = [int(e["attributes"]["width"]) for e in page.elements if e["tag"] == "rect"]
    return svg["attributes"]["aria-label"], list(zip(texts[::2], widths, texts[1::2], strict=True))


class Poll(unittest.TestCase):
    SERVER = Lighttpd

    def setUp(self):
        self.server = self.enterContext(self.SERVER({"poll": POLL}, {"TARN_POLL_FILE": "votes"}))

    def tearDown(self):
        self.assertEqual("", self.server.log())

    def visit(self, *arguments, status=200):
        answer = self.server.curl("/poll", *arguments)
        self.assertEqual(status, answer.status)
        self.assertEqual("text/html; charset=utf-8", answer.header("content-type"))
        return Page(answer.body)

    def new_visitor(self):
        answer = self.server.ask("/poll")
        return COOKIE.fullmatch(answer.header("set-cookie"))[1]

    def vote(self, visitor, choice, status=303):
        answer = self.server.curl("/poll", "-b", f"visitor={visitor}", "-d", f"choice={choice}")
        self.assertEqual(status, answer.status)
        return answer

    def vote_at_once(self, visitor, choice):
        """The status of a vote, without curl: the tests send many at the same time."""
        form = f"choice={choice}".encode()
        return self.server.ask("/poll", form, cookie=f"visitor={visitor}").status

    def counts(self):
        label, _ = chart(self.visit())
        return [int(number) for number in re.findall("[0-9]+", label)]

    def test_new_visitor_gets_a_form_and_an_empty_chart(self):
        page = self.visit()
        self.assertEqual("What do you drink in the morning?", page.texts("legend")[0])
        radios = [e["attributes"] for e in page.elements if e["tag"] == "input"]
        self.assertEqual(["tea", "coffee", "water"], [radio["value"] for radio in radios])
        self.assertEqual({("radio", "choice")}, {(r["type"], r["name"]) for r in radios})
        self.assertEqual(
            (
                "Votes: Tea 0, Coffee 0, Water 0",
                [("Tea", 0, "0"), ("Coffee", 0, "0"), ("Water", 0, "0")],
            ),
            chart(page),
        )

    def test_chart_shows_the_votes(self):
        for choice, votes in (("tea", 4), ("coffee", 1)):
            for _ in range(votes):
                answer = self.vote(self.new_visitor(), choice)
                self.assertRegex(answer.header("location"), r"/poll\Z")
        self.assertEqual(
            (
                "Votes: Tea 4, Coffee 1, Water 0",
                [("Tea", 180, "4"), ("Coffee", 45, "1"), ("Water", 0, "0")],
            ),
            chart(self.visit()),
        )

    def test_visitor_is_remembered_and_counts_once(self):
        visitor = self.new_visitor()
        self.vote(visitor, "tea")
        for choice in ("tea", "coffee"):
            self.vote(visitor, choice)
        self.assertEqual([1, 0, 0], self.counts())
        answer = self.server.curl("/poll", "-b", f"visitor={visitor}")
        self.assertEqual([], [value for key, value in answer.headers if key == "set-cookie"])
        page = Page(answer.body)
        self.assertIn("You voted for Tea.", page.texts("p"))
        self.assertNotIn("form", page.tags)

    def test_visitors_differ(self):
        self.assertEqual(20, len({self.new_visitor() for _ in range(20)}))

    def test_vote_without_our_cookie_is_not_counted(self):
        for cookie in ("", "visitor=", "visitor=zoë", "visitor=" + "A" * 32, "visitor=" + "a" * 33):
            answer = self.server.curl("/poll", "-b", cookie, "-d", "choice=tea")
            self.assertEqual(400, answer.status)
            self.assertIn("not counted", Page(answer.body).texts("p", role="alert")[0])
            self.assertTrue(COOKIE.fullmatch(answer.header("set-cookie")))
        self.assertEqual([0, 0, 0], self.counts())

    def test_deleting_the_cookie_allows_another_vote(self):
        for expected in ([1, 0, 0], [2, 0, 0]):
            self.vote(self.new_visitor(), "tea")
            self.assertEqual(expected, self.counts())
        visitor = self.new_visitor()
        self.vote(visitor, "tea")
        for cookie in ("", f"visitor={visitor}"):
            page = self.visit("-b", cookie)
            (said,) = [text for text in page.texts("p") if "cookie" in text]
            self.assertIn("not signed", said)
            self.assertIn("can vote again", said)

    def test_forged_id_votes_once_and_does_nothing_else(self):
        victim = self.new_visitor()
        self.vote(victim, "coffee")
        before = read(self.server.path("votes"))
        self.assertEqual(f"{victim} coffee\n".encode(), before)
        for _ in range(2):
            self.vote("0123456789abcdef" * 2, "tea")
        after = read(self.server.path("votes"))
        self.assertEqual(before + b"0123456789abcdef" * 2 + b" tea\n", after)
        self.assertEqual([1, 1, 0], self.counts())

    def test_stolen_id_does_not_change_the_vote(self):
        victim = self.new_visitor()
        self.vote(victim, "coffee")
        before = read(self.server.path("votes"))
        for choice in ("tea", "water", "coffee"):
            self.vote(victim, choice)
        for choice in ("", "none"):
            self.vote(victim, choice, status=422)
        self.assertEqual(before, read(self.server.path("votes")))
        self.assertIn("You voted for Coffee.", self.visit("-b", f"visitor={victim}").texts("p"))

    def test_id_cannot_add_a_line(self):
        good = "a" * 32
        line = f"{good}%20tea%0A"
        forged = (line + good, line, f"{good}%0A", f"{good[:31]}%0A", f"%20{good}", f"%00{good}")
        for cookie in forged:
            self.vote(cookie, "tea", status=400)
        self.assertEqual([0, 0, 0], self.counts())
        self.assertEqual(b"", read(self.server.path("votes")))

    def test_ids_are_random(self):
        ids = [int(self.new_visitor(), 16) for _ in range(64)]
        for bit in range(128):
            ones = sum(number >> bit & 1 for number in ids)
            self.assertTrue(0 < ones < len(ids), f"bit {bit} is the same in all ids")

    def test_vote_for_nothing_is_refused(self):
        visitor = self.new_visitor()
        for choice in ("", "beer", "tea%20coffee", "%3Cscript%3E", "Tea"):
            page = Page(self.vote(visitor, choice, status=422).body)
            self.assertEqual(["Please choose an answer."], page.texts("p", role="alert"))
            self.assertNotIn("script", page.tags)
        self.assertEqual([0, 0, 0], self.counts())

    def test_concurrent_votes_are_all_counted(self):
        def visit(number):
            choice = ("tea", "coffee", "water")[number % 3]
            return self.vote_at_once(self.new_visitor(), choice)

        with concurrent.futures.ThreadPoolExecutor(8) as visitors:
            self.assertEqual({303}, set(visitors.map(visit, range(60))))
        self.assertEqual([20, 20, 20], self.counts())

    def test_vote_sent_many_times_at_once_counts_once(self):
        visitor = self.new_visitor()
        with concurrent.futures.ThreadPoolExecutor(8) as hands:
            votes = hands.map(lambda _: self.vote_at_once(visitor, "water"), range(40))
            self.assertEqual({303}, set(votes))
        self.assertEqual([0, 0, 1], self.counts())


class PollAlone(unittest.TestCase):
    def test_missing_setting_is_reported(self):
        status, _, page, _ = script.run(POLL, {"REQUEST_METHOD": "GET"})
        self.assertEqual(500, status)
        self.assertIn("TARN_POLL_FILE", Page(page).texts("p", role="alert")[0])

    def test_missing_random_numbers_are_reported(self):
        calls = ("-e", "trace=getrandom", "-e", "inject=getrandom:error=ENOSYS")
        with tempfile.TemporaryDirectory() as folder:
            answer = subprocess.run(
                ("strace", "-o", os.devnull, *calls, POLL),
                env={"REQUEST_METHOD": "GET", "TARN_POLL_FILE": f"{folder}/votes"},
                capture_output=True,
                check=True,
            ).stdout
        head, _, body = answer.partition(b"\n\n")
        self.assertIn(b"Status: 500", head)
        self.assertNotIn(b"Set-Cookie", head)
        self.assertIn("no random numbers", Page(body).texts("p", role="alert")[0])

    def test_failed_save_is_reported(self):
        folder = self.enterContext(tempfile.TemporaryDirectory())
        variables = script.post(URL_ENCODED, b"choice=tea")
        variables |= {"TARN_POLL_FILE": folder, "HTTP_COOKIE": "visitor=" + "a" * 32}
        status, _, page, _ = script.run(POLL, variables, b"choice=tea")
        self.assertEqual(500, status)
        self.assertEqual(["Your vote could not be saved."], Page(page).texts("p", role="alert"))

    def test_votes_wait_for_each_other(self):
        path = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "votes")
        variables = script.post(URL_ENCODED, b"choice=tea")
        variables |= {"TARN_POLL_FILE": path, "HTTP_COOKIE": "visitor=" + "a" * 32}
        with open(path, "w", encoding="ascii") as votes:
            fcntl.lockf(votes, fcntl.LOCK_EX)
            pipes = {"stdin": subprocess.PIPE, "stdout": subprocess.PIPE}
            scripts = [subprocess.Popen([POLL], env=variables, **pipes) for _ in range(2)]
            for process in scripts:
                process.stdin.write(b"choice=tea")
                process.stdin.close()
            time.sleep(0.3)
            self.assertEqual([None, None], [process.poll() for process in scripts])
        for process in scripts:
            with process:
                self.assertTrue(process.stdout.read().startswith(b"Status: 303 "))
        self.assertEqual(b"a" * 32 + b" tea\n", read(path))

    def test_head_has_no_body(self):
        variables = {"REQUEST_METHOD": "HEAD", "TARN_POLL_FILE": "/nowhere/votes"}
        status, head, page, _ = script.run(POLL, variables)
        self.assertEqual((200, b""), (status, page))
        self.assertEqual("Content-Type: text/html; charset=utf-8", head[-1])


if __name__ == "__main__":
    unittest.main()
