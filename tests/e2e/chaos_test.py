"""A FastCGI service under web servers, while things go wrong: scripts that crash or hang, visitors
who leave, processes that are killed, and a program that is replaced under load.

The servers have the configurations of the guide "Serving". Tests run under nginx alone if the other
servers take no part in what happens.
"""

import collections
import functools
import itertools
import os
import random
import re
import signal
import threading
import unittest
from collections.abc import Callable
from pathlib import Path
from typing import TypeVar

from servers import SERVERS
from servers.fastcgi import Fastcgi
from servers.server import read, wait_until
from visitor import Reply, Visitor

PROBE = os.environ["SERVE_PROBE"]
# Across the two ways in which nginx connects.
REQUESTS = int(os.environ.get("TARN_CHAOS_REQUESTS", "10000")) // 2
REPLACEMENTS = 20
CLIENTS = 8
LONG = "sleep=600000"

# nginx keeps its connections to the service, or passes on what arrives without collecting it.
KEEP = (
    ("fastcgi_pass unix:socket/$program;", "fastcgi_pass service;"),
    ("  server {\n", "  upstream service { server unix:socket/probe; keepalive 8; }\n  server {\n"),
)
UNBUFFERED = (("fastcgi_split_path_info", "fastcgi_buffering off;\n      fastcgi_split_path_info"),)
WAYS = {
    "nginx": ("nginx-fastcgi", ()),
    "nginx, connections kept": ("nginx-fastcgi", KEEP),
    "nginx, unbuffered": ("nginx-fastcgi", UNBUFFERED),
    "lighttpd": ("lighttpd-fastcgi", ()),
    "Apache": ("apache-fastcgi", ()),
    "HAProxy": ("haproxy-fastcgi", ()),
}
NGINX = ("nginx", "nginx, connections kept")
ALL = (*NGINX, "lighttpd", "Apache", "HAProxy")


def pattern(size: int) -> bytes:
    """What the probe's command "write" writes."""
    period = bytes(ord("a") + i * 7 % 26 for i in range(26))
    return (period * (size // 26 + 1))[:size]


class Site:
    """A web server that passes requests to the probe, which is a service with these options and
    variables, such as "TMPDIR=tmp"."""

    def __init__(self, way: str, *options: str, variables: str = "") -> None:
        name, changes = WAYS[way]
        base = SERVERS[name]
        assert issubclass(base, Fastcgi)

        class WithOptions(base):  # type: ignore[misc, valid-type]
            def lines_for(self, script: str, example: str) -> str:
                lines: str = super().lines_for(script, example)
                if lines.startswith("serve "):
                    lines = " ".join([lines.rstrip("\n"), *options]) + "\n"
                    if variables:
                        lines = lines.replace("serve", f"serve env {variables}", 1)
                return lines

            def configuration(self, name: str) -> str:
                text: str = super().configuration(name)
                for old, new in changes if name.endswith(".conf") else ():
                    assert text.count(old) == 1, old
                    text = text.replace(old, new)
                return text

        self.way = way
        self.server: Fastcgi = WithOptions({"probe": PROBE}, {"NOTES": "data/notes"})

    def __enter__(self) -> "Site":
        self.server.__enter__()
        self.server.make_folder("data")
        return self

    def __exit__(self, *error: object) -> None:
        if error[0]:
            print(f"{self.way}: {self.server.log()}")
        self.server.__exit__(*error)  # type: ignore[arg-type]

    def visitor(self, receive_buffer: int = 0) -> Visitor:
        return Visitor(self.server.port, receive_buffer)

    def ask(self, query: str, body: bytes | None = None) -> Reply:
        with Visitor(self.server.port, stays=False) as visitor:
            return visitor.ask(query, body)

    def notes(self) -> list[tuple[str, int]]:
        """What scripts noted: words and numbers."""
        lines = read(self.server.path("data/notes")).decode().splitlines()
        return [(line.split()[0], int(line.split()[1])) for line in lines]

    def noted(self, word: str) -> list[int]:
        return [number for noted, number in self.notes() if noted == word]

    def wait_for_note(self, word: str, count: int = 1) -> list[int]:
        wait_until(lambda: len(self.noted(word)) >= count, f"no note {word}: {self.server.log()}")
        return self.noted(word)

    def wait_for_log(self, text: str) -> None:
        wait_until(lambda: text in self.server.log(), f"no {text!r} in {self.server.log()!r}")

    def status(self, name: str) -> int:
        """A number of the service's status, which SIGUSR1 writes to the log."""
        before = len(self.server.log())
        os.kill(self.supervisor(), signal.SIGUSR1)
        wait_until(lambda: "status: times" in self.server.log()[before:], "no status")
        (number,) = re.findall(rf"status:   {name} +(\d+) of", self.server.log()[before:])
        return int(number)

    def supervisor(self) -> int:
        processes = self.server.processes()
        (found,) = (pid for pid, parent in processes.items() if parent not in processes)
        return found

    def worker(self) -> int:
        supervisor = self.supervisor()
        (found,) = (pid for pid, parent in self.server.processes().items() if parent == supervisor)
        return found


def is_alive(pid: int) -> bool:
    """Whether a process exists and is not a zombie."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except (FileNotFoundError, ProcessLookupError):
        return False


def wait_for_end(pid: int) -> None:
    wait_until(lambda: not is_alive(pid), f"process {pid} did not end")


Case = TypeVar("Case", bound=unittest.TestCase)
Decorator = Callable[[Callable[[Case, Site], None]], Callable[[Case], None]]


def under(*ways: str, options: str = "") -> Decorator[Case]:
    """Runs a test under each of these servers, with these options of the service."""

    def decorate(test: Callable[[Case, Site], None]) -> Callable[[Case], None]:
        @functools.wraps(test)
        def each(case: Case) -> None:
            for way in ways:
                with case.subTest(way), Site(way, *options.split()) as site:
                    test(case, site)

        return each

    return decorate


class Bodies(unittest.TestCase):
    @under(*ALL)
    def test_script_may_write_before_it_reads_or_not_read_at_all(self, site: Site) -> None:
        body = pattern(2_000_000)
        with site.visitor() as visitor:
            reply = visitor.ask("header&write=300000&body", body)
            self.assertEqual((reply.status, reply.whole), (200, True))
            self.assertEqual(reply.body, pattern(300_000) + body)
            reply = visitor.ask("header&text=ignored", body)
            self.assertEqual(reply, Reply(200, b"ignored", True))
            self.assertEqual(visitor.ask("header&text=next"), Reply(200, b"next", True))
        self.assertEqual(site.server.log(), "")

    @under(*ALL, options="--body-size 100000")
    def test_body_over_the_limit_is_413_without_a_script(self, site: Site) -> None:
        for size in (100_001, 5_000_000):
            reply = site.ask("header&note=ran&size", bytes(size))
            self.assertEqual((reply.status, reply.whole), (413, True), size)
        self.assertEqual(site.noted("ran"), [])
        self.assertEqual(site.ask("header&size", bytes(100_000)).body, b"100000\n")

    @under(*ALL)
    def test_body_that_is_cut_off_runs_no_script(self, site: Site) -> None:
        with site.visitor() as visitor:
            head = "POST /cgi-bin/probe?header&note=ran HTTP/1.1\r\nHost: localhost\r\n"
            visitor.socket.sendall(f"{head}Content-Length: 200000\r\n\r\n".encode())
            visitor.socket.sendall(bytes(150_000))
        self.assertEqual(site.ask("header&text=next").body, b"next")
        wait_until(lambda: len(site.server.processes()) == 2, "a script runs")
        self.assertEqual(site.noted("ran"), [])


class Failures(unittest.TestCase):
    @under(*ALL)
    def test_script_without_an_answer_is_500_and_a_line_in_the_log(self, site: Site) -> None:
        failures = {
            "signal=11": "signal 11 (Segmentation fault) ended the script",
            "header&signal=6": "signal 6 (Aborted) ended the script",
            "exit=3": "the script ended with status 3 and sent no header",
            "note=ran": "the script sent no header",
            "text=secret": "header",
        }
        with site.visitor() as visitor:
            for query, reason in failures.items():
                before = len(site.server.log())
                reply = visitor.ask(query)
                self.assertEqual((reply.status, reply.whole), (500, True), query)
                self.assertNotIn(b"secret", reply.body)
                (line,) = site.server.log()[before:].splitlines()
                self.assertIn(reason, line)
                self.assertIn(query, line)
            self.assertEqual(visitor.ask("header&text=next"), Reply(200, b"next", True))

    @under(*ALL, "nginx, unbuffered", options="--seconds 1")
    def test_half_an_answer_is_not_taken_for_a_whole_one(self, site: Site) -> None:
        halves = ["length=100000&write=99999", "length=9&text=half&flush&signal=9"]
        if site.way != "lighttpd":  # which must have sent something before the failure
            halves += ["header&text=half&flush&signal=9", "header&write=100000&signal=11"]
            halves += ["header&text=half&flush&sleep=600000"]
        for query in halves:
            reply = site.ask(query)
            self.assertFalse(reply.whole and reply.status < 500, (query, reply))
        self.assertEqual(site.ask("header&text=next"), Reply(200, b"next", True))

    @under("nginx, unbuffered", "lighttpd", "HAProxy")  # Apache collects the answer
    def test_half_an_answer_that_the_visitor_sees_is_not_ended(self, site: Site) -> None:
        with Visitor(site.server.port, stays=False) as visitor:
            visitor.send(f"header&text=half&flush&note=script&{LONG}")
            script = site.wait_for_note("script")[0]
            self.assertTrue(visitor.sees(b"half"))
            os.kill(script, signal.SIGKILL)
            self.assertFalse(visitor.reply().whole)
        self.assertEqual(site.ask("header&text=next"), Reply(200, b"next", True))

    @under(*ALL, options="--seconds 1")
    def test_limits_of_time_end_the_script(self, site: Site) -> None:
        reply = site.ask(f"note=script&{LONG}")
        self.assertEqual((reply.status, reply.whole), (504, True))
        self.assertIn("the script took too long", site.server.log())
        wait_for_end(site.noted("script")[0])

    @under("nginx", options="--processor-seconds 1")
    def test_limit_of_processor_time_ends_the_script(self, site: Site) -> None:
        reply = site.ask("note=script&burn")
        self.assertEqual((reply.status, reply.whole), (500, True))
        self.assertIn("signal 24", site.server.log())
        wait_for_end(site.noted("script")[0])

    @under(*ALL, options="--children 1 --queue 1")
    def test_full_queue_is_503_at_once(self, site: Site) -> None:
        with site.visitor() as first:
            first.send(f"note=script&{LONG}")
            script = site.wait_for_note("script")[0]
            replies: list[Reply] = []
            others = [
                threading.Thread(target=lambda: replies.append(site.ask("header&text=run")))
                for _ in range(2)
            ]
            for other in others:
                other.start()
            wait_until(lambda: len(replies) > 0, "both wait")
            self.assertEqual((replies[0].status, replies[0].whole), (503, True))
            self.assertTrue(is_alive(script))
            os.kill(script, signal.SIGKILL)
            self.assertEqual(first.reply().status, 500)
            for other in others:
                other.join()
            self.assertEqual(replies[1], Reply(200, b"run", True))


class Visitors(unittest.TestCase):
    @under(*NGINX, options="--children 4")
    def test_who_leave_end_the_script_and_its_group(self, site: Site) -> None:
        """Under nginx, which alone notices at any time. TERM comes first, then KILL."""
        visitors = []
        for begin in ("", "header&text=x&flush&"):
            for leave in (Visitor.leave, Visitor.leave_rudely):
                visitors.append((site.visitor(), leave))
                visitors[-1][0].send(f"{begin}catch&stubborn=600000&note=script&{LONG}")
        processes = site.wait_for_note("script", 4) + site.wait_for_note("left", 4)
        self.assertEqual(len(set(processes)), 8)
        for visitor, leave in visitors:
            leave(visitor)
        site.wait_for_note("told", 4)
        for pid in processes:
            wait_for_end(pid)
        self.assertEqual(site.server.log().count("the visitor left"), 4)
        self.assertEqual(site.ask("header&text=next").body, b"next")

    @under(*ALL, options="--seconds 90")
    def test_who_leave_while_the_script_writes_end_it(self, site: Site) -> None:
        with site.visitor() as visitor:
            visitor.send("header&note=script&write=1000000000")
            script = site.wait_for_note("script")[0]
            visitor.socket.recv(10000)
        wait_for_end(script)
        self.assertEqual(site.ask("header&text=next").body, b"next")
        self.assertIn("the visitor left", site.server.log())

    @under(*ALL[len(NGINX) :], options="--seconds 1")
    def test_who_leave_a_silent_script_leave_it_to_its_limit(self, site: Site) -> None:
        """Under servers that need not notice."""
        visitor = site.visitor()
        visitor.send(f"note=script&{LONG}")
        script = site.wait_for_note("script")[0]
        visitor.leave()
        wait_for_end(script)
        self.assertEqual(site.ask("header&text=next").body, b"next")

    @under("nginx, unbuffered")
    def test_who_read_slowly_get_everything_and_hold_nobody_else_up(self, site: Site) -> None:
        with site.visitor(receive_buffer=500_000) as visitor:
            visitor.send("header&note=script&write=10000000&note=done")
            script = site.wait_for_note("script")[0]
            for i in range(20):
                self.assertEqual(site.ask(f"header&text={i}").body, str(i).encode())
            # More than all buffers hold: the script waits.
            self.assertTrue(is_alive(script))
            self.assertEqual(site.noted("done"), [])
            reply = visitor.reply()
            self.assertEqual((reply.status, reply.whole), (200, True))
            self.assertEqual(reply.body, pattern(10_000_000))
        self.assertEqual(len(site.noted("done")), 1)
        self.assertEqual(site.server.log(), "")

    @under("nginx, unbuffered", options="--send-seconds 3")
    def test_who_do_not_read_are_given_up(self, site: Site) -> None:
        with site.visitor(receive_buffer=500_000) as visitor:
            visitor.send("header&note=script&write=10000000&note=done")
            wait_for_end(site.wait_for_note("script")[0])
            self.assertIn("the server does not read the response", site.server.log())
            # Whoever reads then must not take it for a whole answer.
            reply = visitor.reply()
            self.assertFalse(reply.whole, (reply.status, len(reply.body)))
        self.assertEqual(site.noted("done"), [])

    @under(*ALL)
    def test_at_once_never_get_each_others_bytes(self, site: Site) -> None:
        problems: list[object] = []
        asked: list[str] = []

        def client(site: Site, number: int) -> None:
            chance = random.Random(number)
            with site.visitor() as visitor:
                for count in range(20):
                    word = f"{number}-{count}-{chance.random()}"
                    body = f"{word} ".encode() * chance.choice((1, 30, 3000, 9000))
                    query = f"note={word}&header&line={word}&body"
                    reply = visitor.ask(query, body)
                    # Apache ends kept connections while it is busy, as a request arrives or not.
                    # The notes tell whether such a request ran.
                    if count > 0 and reply == Reply(0, b"", False):
                        reply = visitor.ask(query, body)
                    asked.append(word)
                    if reply != Reply(200, f"{word}\n".encode() + body, True):
                        problems.append((site.way, word, reply.status, reply.body[:100]))

        run(lambda number, site=site: client(site, number), 16)  # type: ignore[misc]
        self.assertEqual(problems, [])
        self.assertEqual(site.server.log(), "")
        self.assertEqual(len(asked), 16 * 20)
        self.assertEqual(sorted(word for word, _ in site.notes()), sorted(asked))


def run(function: Callable[[int], None], threads: int) -> None:
    """Calls a function with numbers from 0, each in a thread."""
    running = [threading.Thread(target=function, args=[number]) for number in range(threads)]
    for thread in running:
        thread.start()
    for thread in running:
        thread.join()


class Processes(unittest.TestCase):
    """Under nginx: what happens here is between the service and its own processes."""

    def load(
        self, site: Site, requests: int, act: Callable[[Callable[[], int]], None]
    ) -> list[Reply]:
        """Calls `act` while clients send so many requests or more; it gets a function that counts
        the answers. Returns the answers that are not right. Requests with a right answer have run
        exactly once, the others once at most.
        """
        wrong: list[Reply] = []
        right: list[str] = []
        numbers = itertools.count()
        done = threading.Event()

        def client(number: int) -> None:
            visitor = site.visitor()
            while not done.is_set() or len(right) + len(wrong) < requests:
                if (count := next(numbers)) >= requests and done.is_set():
                    break
                # Half of the clients reconnect. nginx repeats a GET, but never a POST.
                if number % 2 == 0 or visitor.ended:
                    visitor.leave()
                    visitor = site.visitor()
                word = f"request-{count}-"
                reply = visitor.ask(f"header&text={word}&note={word}&sleep={count % 3}", b"")
                if reply == Reply(200, word.encode(), True):
                    right.append(word)
                else:
                    wrong.append(reply)
            visitor.leave()

        threads = [threading.Thread(target=client, args=[n]) for n in range(CLIENTS)]
        for thread in threads:
            thread.start()
        try:
            act(lambda: len(right) + len(wrong))
        finally:
            done.set()
            for thread in threads:
                thread.join()
        ran = collections.Counter(word for word, _ in site.notes() if word.startswith("request-"))
        self.assertEqual(len(set(right)), len(right))
        self.assertEqual({ran[word] for word in right}, {1})
        self.assertEqual({count for count in ran.values()}, {1})
        self.assertLessEqual(sum(ran.values()) - len(right), len(wrong))
        self.assertGreaterEqual(len(right) + len(wrong), requests)
        return wrong

    @under(*NGINX, options="--children 4")
    def test_replacing_the_program_under_load_loses_and_doubles_nothing(self, site: Site) -> None:
        content = Path(PROBE).read_bytes()
        self.assertEqual(content.count(b"VERSION:00000000"), 1)
        program = site.server.path("bin/probe")
        supervisor = site.supervisor()

        def replace(count: Callable[[], int], site: Site = site) -> None:
            for version in range(1, REPLACEMENTS + 1):
                new = b"VERSION:%08d" % version
                Path(program + ".new").write_bytes(content.replace(b"VERSION:00000000", new))
                os.chmod(program + ".new", 0o755)
                os.rename(program + ".new", program)
                os.kill(supervisor, signal.SIGHUP)
                least = REQUESTS * version // (REPLACEMENTS + 1)
                wait_until(
                    lambda: count() >= least and site.ask("header&version").body == new,
                    f"no version {version}",
                )

        self.assertEqual(self.load(site, REQUESTS, replace), [])
        self.assertEqual(site.server.log(), "")
        self.assertEqual(site.supervisor(), supervisor)
        wait_until(lambda: len(site.server.processes()) == 2, "an old worker stays")

    @under(*NGINX, options="--children 4")
    def test_killing_workers_under_load_loses_only_running_requests(self, site: Site) -> None:
        kills = 3

        def kill(count: Callable[[], int]) -> None:
            for number in range(1, kills + 1):
                least = count() + 200
                wait_until(lambda least=least: count() >= least, "no answers")  # type: ignore[misc]
                os.kill(site.worker(), signal.SIGKILL)
                wait_until(
                    lambda number=number: self.count_killed(site) == number,  # type: ignore[misc]
                    "no line in the log",
                )

        wrong = self.load(site, 1000, kill)
        self.assertEqual([reply for reply in wrong if reply.whole and reply.status < 500], [])
        # Those that ran, and those that nginx sent on a connection that it kept.
        self.assertLessEqual(len(wrong), kills * 2 * CLIENTS)
        print(f"{site.way}: {len(wrong)} requests lost", flush=True)

    @staticmethod
    def count_killed(site: Site) -> int:
        return site.server.log().count("signal 9 ended a worker")

    @under(*ALL)
    def test_killing_a_worker_within_an_answer_does_not_make_it_whole(self, site: Site) -> None:
        with Visitor(site.server.port, stays=False) as visitor:
            visitor.send(f"header&text=half&flush&note=script&{LONG}")
            script = site.wait_for_note("script")[0]
            if site.way in ("lighttpd", "HAProxy"):  # the others collect the answer
                self.assertTrue(visitor.sees(b"half"))
            os.kill(site.worker(), signal.SIGKILL)
            reply = visitor.reply()
            self.assertFalse(reply.whole and reply.status < 500, reply)
            wait_for_end(script)
        wait_until(lambda: site.ask("header&text=next").body == b"next", "it does not serve")

    @under(*NGINX)
    def test_killing_the_supervisor_ends_everything(self, site: Site) -> None:
        with site.visitor() as visitor:
            visitor.send(f"ignore&stubborn=600000&note=script&{LONG}")
            site.wait_for_note("script")
            os.kill(site.supervisor(), signal.SIGKILL)
            reply = visitor.reply()
            self.assertEqual((reply.status, reply.whole), (502, True))
        wait_until(lambda: not site.server.processes(), "a process stays")
        self.assertEqual(site.ask("header").status, 502)

    @under(*ALL, options="--children 4")
    def test_sigterm_lets_running_requests_end(self, site: Site) -> None:
        visitors = [Visitor(site.server.port, stays=False) for _ in range(8)]
        for i, visitor in enumerate(visitors):
            visitor.send(f"header&sleep=2000&text={i}")
        wait_until(lambda: site.status("waiting") == 4, "four do not wait")
        self.assertEqual(site.status("running"), 4)
        before = len(site.server.log())
        os.kill(site.supervisor(), signal.SIGTERM)
        replies = [visitor.reply() for visitor in visitors]
        for visitor in visitors:
            visitor.leave()
        answered = [Reply(200, str(i).encode(), True) for i in range(8)]
        self.assertEqual(replies, answered)
        wait_until(lambda: not site.server.processes(), "a process stays")
        self.assertIn(site.ask("header").status, (502, 503))
        self.assertEqual(site.server.log()[before:], "")


if __name__ == "__main__":
    unittest.main()
