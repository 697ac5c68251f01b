"""What a script finds, and what comes back."""

import os
import random
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest
from pathlib import Path

from fastcgi import (
    ABORT,
    GET_VALUES,
    PARAMS,
    PROBE,
    STDIN,
    STDOUT,
    Service,
    begin,
    children_of,
    pair,
    parameters,
    pattern,
    record,
    request,
    stream,
    wait_for_end,
)

TOOL = os.environ["TOOL"]


def wait_until_stuck(service: Service) -> int:
    """Waits until the last script that began writes nothing more, or has written all. Returns how
    many bytes that were."""
    script = service.noted("begun")[-1]
    written, same = -1, 0
    while same < 20 and script not in service.noted("written"):
        try:
            found = Path(f"/proc/{script}/io").read_text().partition("wchar: ")[2].split()[0]
        except (FileNotFoundError, ProcessLookupError):  # it has ended meanwhile
            break
        same = same + 1 if int(found) == written else 0
        written = int(found)
        time.sleep(0.005)
    return written


def environment_of(lines: list[str]) -> dict[str, list[str]]:
    found: dict[str, list[str]] = {}
    for line in lines:
        name, _, value = line.partition("=")
        found.setdefault(name, []).append(value)
    return found


class Environment(unittest.TestCase):
    def test_has_the_parents_variables_and_the_parameters_of_the_request(self) -> None:
        inherited = {
            "KEPT": "from the parent",
            "QUERY_STRING": "old",
            "HTTP_COOKIE": "old",
            "CONTENT_TYPE": "old",
            "REMOTE_USER": "old",
            "LISTEN_FDS": "1",
            "HTTP_PROXY": "http://old/",
        }
        more = {"HTTP_PROXY": "http://new/", "HTTP_ACCEPT": "*/*", "KEPT2": "a=b", "EMPTY": ""}
        with Service(environment=inherited) as service:
            found = environment_of(service.ask("header&env", more=more).lines)
        self.assertEqual(found["KEPT"], ["from the parent"])
        self.assertEqual(found["QUERY_STRING"], ["header&env"])
        self.assertEqual(found["HTTP_ACCEPT"], ["*/*"])
        self.assertEqual((found["KEPT2"], found["EMPTY"]), (["a=b"], [""]))
        for name in ("HTTP_COOKIE", "CONTENT_TYPE", "REMOTE_USER", "LISTEN_FDS", "HTTP_PROXY"):
            self.assertNotIn(name, found)

    def test_of_two_parameters_with_the_same_name_has_the_last(self) -> None:
        twice = parameters("header&env", {"A": "1"}) + parameters("header&env", {"A": "2"})
        with Service() as service, service.client() as client:
            client.send(begin() + stream(PARAMS, twice) + stream(STDIN, b""))
            self.assertEqual(environment_of(client.answer().lines)["A"], ["2"])

    def test_as_cgi_loses_only_the_proxy(self) -> None:
        variables = {
            "PATH": "/bin",
            "REQUEST_METHOD": "GET",
            "QUERY_STRING": "header&env",
            "HTTP_PROXY": "http://evil/",
            "HTTP_COOKIE": "a",
            "PREPARE": "nothing",
        }
        run = subprocess.run([PROBE], env=variables, capture_output=True, check=True)
        found = environment_of(run.stdout.partition(b"\r\n\r\n")[2].decode().splitlines())
        del variables["HTTP_PROXY"]
        self.assertEqual(found, {name: [value] for name, value in variables.items()})
        self.assertTrue(run.stdout.startswith(b"Content-Type: "), "prepare()'s output is elsewhere")
        self.assertEqual(run.stderr, b"prepared\n")


class ExitStatus(unittest.TestCase):
    """1 if some of the output could not be written, even if the script has flushed it itself."""

    def setUp(self) -> None:
        if not os.path.exists("/dev/full"):
            self.skipTest("there is no /dev/full")

    def as_cgi(self, query: str, errors: str = os.devnull, more: str = "") -> int:
        variables = {"REQUEST_METHOD": "GET", "QUERY_STRING": query}
        if more:
            variables["PREPARE"] = more
        with open(errors, "wb") as log:
            run = subprocess.run([PROBE], env=variables, stdout=subprocess.PIPE, stderr=log)
        return run.returncode

    def test_as_cgi(self) -> None:
        self.assertEqual(self.as_cgi("header&text=x&flush"), 0)
        for query in ("header&full&text=x", "header&full&text=x&flush", "full&header&flush&text=x"):
            self.assertEqual(self.as_cgi(query), 1, query)

    def test_of_a_request(self) -> None:
        with Service() as service:
            self.assertEqual(service.ask("header&text=x&flush").status, 0)
            for query in ("header&full&text=x", "header&full&text=x&flush"):
                self.assertEqual(service.ask(query).status, 1, query)

    def test_does_not_depend_on_what_the_callback_wrote(self) -> None:
        self.assertEqual(self.as_cgi("header", errors="/dev/full", more="nothing"), 0)
        full = ("sh", "-c", 'exec "$@" >/dev/full', "sh")
        with Service(environment={"PREPARE": "nothing"}, wrapper=full) as service:
            self.assertEqual(service.ask("header").status, 0)


class Body(unittest.TestCase):
    def test_is_standard_input_at_any_size(self) -> None:
        with Service("--body-in-memory", "64K", tcp=True) as service:
            for size in (1, 65535, 65536, 65537, 3_000_000):
                with self.subTest(size):
                    body = pattern(size, size)
                    answer = service.ask("header&body", body)
                    self.assertTrue(answer.body == body, f"{len(answer.body)} bytes")

    def test_is_whole_in_records_of_any_size(self) -> None:
        body = pattern(700_000, 5)
        values = record(GET_VALUES, 0, pair(b"FCGI_MAX_REQS", b""))
        choice = random.Random(1)
        for most in (1, 8, 874, 4096, 32768, 65535):
            size = len(body) if most > 8 else 20_000 * most
            pieces, start = [], 0
            while start < size:
                piece = body[start : min(size, start + choice.randint(1, most))]
                pieces.append(record(STDIN, 1, piece, choice.choice((0, 1, 8, 255))))
                start += len(piece)
            # Something else between two of them.
            pieces.insert(len(pieces) // 2, values)
            more = {"CONTENT_LENGTH": str(size), "REQUEST_METHOD": "POST"}
            start_of_request = begin() + stream(PARAMS, parameters("header&body", more))
            sent = start_of_request + b"".join(pieces) + record(STDIN)
            for part in (len(sent), 100_001):
                with self.subTest(most=most, part=part), Service() as service:
                    with service.client() as client:
                        for place in range(0, len(sent), part):
                            client.send(sent[place : place + part])
                        found = [content for kind, _, content in client.records() if kind == STDOUT]
                        answer = b"".join(found).partition(b"\r\n\r\n")[2]
                        self.assertTrue(answer == body[:size], f"{len(answer)} bytes")

    def test_is_empty_without_one_and_the_length_stays(self) -> None:
        with Service() as service:
            answer = service.ask("header&size&env", more={"CONTENT_LENGTH": "7"})
            self.assertEqual(answer.lines[0], "0")
            self.assertIn("CONTENT_LENGTH=7", answer.lines)
            answer = service.ask("header&size&env", more={"CONTENT_LENGTH": ""})
            self.assertIn("CONTENT_LENGTH=", answer.lines)

    def test_content_length_is_what_arrived(self) -> None:
        with Service() as service:
            for declared in ("3", "", "x", "0"):
                more = {"CONTENT_LENGTH": declared}
                answer = service.ask("header&size&env", b"hello", more)
                self.assertEqual(answer.lines[0], "5")
                self.assertEqual(environment_of(answer.lines)["CONTENT_LENGTH"], ["5"])

    def test_need_not_be_read_and_may_be_read_after_a_large_answer(self) -> None:
        body = pattern(2_000_000)
        with Service() as service:
            self.assertEqual(service.ask("header&text=x", body).body, b"x")
            answer = service.ask("header&write=1000000&body", body)
            self.assertTrue(answer.body == pattern(1_000_000) + body)


class Child(unittest.TestCase):
    def test_has_three_blocking_descriptors(self) -> None:
        with Service(tcp=True) as service:
            # Others are open in the worker now.
            with service.client() as first, service.client() as second:
                first.send(request("header&sleep=300"))
                second.send(begin())
                self.assertEqual(service.ask("header&descriptors").lines, ["0", "1", "2"])
                self.assertEqual(service.ask("header&descriptors", b"x").lines, ["0", "1", "2"])
                self.assertTrue(first.answer().ended)

    def test_keeps_what_the_callback_opened(self) -> None:
        with Service(environment={"PREPARE": "open"}) as service:
            lines = service.ask("header&descriptors").lines
        self.assertEqual((lines[:3], lines[-1], len(lines)), (["0", "1", "2"], "100", 5))

    def test_does_not_see_what_the_callback_read_ahead(self) -> None:
        with Service(environment={"PREPARE": "read"}) as service:
            self.assertEqual(service.ask("header&body", b"whole").body, b"whole")
            self.assertNotIn(b"prepared", service.ask("header").output)

    def test_has_default_signals_and_a_group_of_its_own(self) -> None:
        with Service(environment={"HANDLERS": "1"}) as service:
            answer = service.ask("header&group&status")
        found = dict(line.split(":\t", 1) for line in answer.lines[1:])
        self.assertEqual(answer.lines[0], "1")
        for name in ("SigPnd", "ShdPnd", "SigBlk", "SigIgn"):
            self.assertEqual(int(found[name], 16), 0, name)
        # Sanitizers have handlers of their own.
        if os.environ.get("SANITIZED") != "ON":
            self.assertEqual(int(found["SigCgt"], 16), 0)

    def test_works_if_the_service_was_started_without_standard_descriptors(self) -> None:
        program = os.path.dirname(os.path.abspath(__file__)) + "/closed.sh"
        self.assertTrue(os.path.exists(program))
        for closed in ("0", "1", "2", "012"):
            with self.subTest(closed):
                wrapper = ("sh", program, closed)
                options = ("--listen", "unix:{folder}/socket")
                with Service(*options, wrapper=wrapper, listens=False) as service:
                    service.wait_until_it_listens()
                    answer = service.ask("header&descriptors&body&error=e", b"text")
                    self.assertEqual(answer.body, b"0\n1\n2\ntext")
                    self.assertEqual(answer.errors, b"e\n")


class Answers(unittest.TestCase):
    def test_are_streamed(self) -> None:
        with Service() as service, service.client() as client:
            client.send(request("header&text=now&flush&note=begun&sleep=600000"))
            # musl writes the first line at once, so there may be two records.
            wanted = b"Content-Type: text/plain\r\n\r\nnow"
            found = b""
            for _, _, content in client.records():
                found += content
                if len(found) >= len(wanted):
                    break
            self.assertEqual(found, wanted)
            child = service.wait_for_note("begun")[0]
            client.send(record(ABORT))
            self.assertTrue(client.answer().ended)
            self.assertNotIn(child, children_of(service.worker()))

    def test_can_be_large(self) -> None:
        for tcp in (False, True):
            with Service(tcp=tcp) as service:
                answer = service.ask("header&write=5000000&exit=3")
                self.assertTrue(answer.body == pattern(5_000_000))
                self.assertEqual((answer.ended, answer.status), (True, 3))

    def test_are_whole_if_the_script_ends_when_the_server_reads_on(self) -> None:
        """The service does not read from a script while the server does not read from it. Then both
        happens at once: the server reads on, and the script ends with something in its pipe."""
        with Service() as service:
            worker = service.worker()
            with service.client() as client:
                client.send(request("header&note=begun&write=10000000"))
                service.wait_for_note("begun")
                most = wait_until_stuck(service)
            for size in range(most - 60_000, most, 7500):
                before = service.noted("begun"), service.noted("written")
                with service.client() as client:
                    query = f"header&note=begun&write={size}&note=written&sleep=100&text=end"
                    client.send(request(query))
                    script = service.wait_for_note("begun", len(before[0]) + 1)[-1]
                    wait_until_stuck(service)
                    if service.noted("written") != before[1]:  # all fits into buffers
                        os.kill(worker, signal.SIGSTOP)
                        try:
                            client.received = client.socket.recv(10_000_000, socket.MSG_DONTWAIT)
                            wait_for_end(script)
                        finally:
                            os.kill(worker, signal.SIGCONT)
                    answer = client.answer()
                self.assertTrue(answer.ended)
                self.assertEqual(answer.body, pattern(size) + b"end", size)

    def test_carry_all_of_standard_error_to_the_server_and_the_log(self) -> None:
        with Service() as service:
            answer = service.ask("header&complain=300000&text=done&error=last")
            self.assertTrue(answer.errors == pattern(300_000) + b"last\n", len(answer.errors))
            self.assertEqual(answer.body, b"done")
            self.assertTrue(service.log() == answer.errors.decode())

    def test_wait_a_second_at_most_for_processes_left_behind(self) -> None:
        with Service() as service:
            answer = service.ask("header&text=a&leave=600000")
            self.assertEqual((answer.body, answer.ended), (b"a", True))
            left = service.wait_for_note("left")[0]
            os.kill(left, 0)  # it stays
            os.kill(left, 9)

    def test_never_mix(self) -> None:
        """Many clients, random sizes, on connections that stay and that do not."""
        problems = []

        def ask(seed: int) -> None:
            choose = random.Random(seed)
            try:
                for i in range(15):
                    size = choose.choice((0, 10, 5000, 70000, 200000))
                    body = pattern(choose.choice((0, 3, 3000, 150000)), seed + i)
                    query = f"header&body&seeded={seed}:{size}&error={seed}-{i}"
                    with service.client() as client:
                        for _ in range(choose.choice((1, 3))):
                            answer = client.ask(query, body, keep=True)
                            right = body + pattern(size, seed)
                            if answer.body != right or answer.errors != f"{seed}-{i}\n".encode():
                                problems.append((seed, i, size, len(body), answer.body[:99]))
            except Exception as error:
                problems.append(error)

        with Service() as service:
            threads = [threading.Thread(target=ask, args=(seed,)) for seed in range(12)]
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
            self.assertEqual(problems, [])
            self.assertEqual(service.log_lines(), [])


class Programs(unittest.TestCase):
    """A program begins in the memory of the worker, until it replaces it."""

    OPTIONS = ("--processor-seconds", "7", "--open-files", "50", "--processes", "1000")

    def test_find_what_a_function_finds(self) -> None:
        with Service(*self.OPTIONS, "--", PROBE, program=TOOL) as service:
            query = "header&limits&descriptors&group&parent&env"
            lines = service.ask(query, b"x").lines
            worker = int(lines[8])
            self.assertNotEqual(worker, service.process.pid)
            self.assertEqual(lines[:1] + lines[2:4], ["7", "50", "1000"])
            self.assertEqual(lines[4:8], ["0", "1", "2", "1"])
            self.assertIn(f"QUERY_STRING={query}", lines)
            status = service.ask("header&status").body.decode()
            for name in ("SigPnd", "ShdPnd", "SigBlk", "SigIgn"):
                self.assertEqual(int(status.partition(f"{name}:")[2].split()[0], 16), 0, name)
            self.assertEqual(service.ask("header&body", b"abc").body, b"abc")
            self.assertEqual(service.ask("header&exit=3").status, 3)

    def test_leave_the_worker_as_it_was(self) -> None:
        def of(pid: int) -> list[str]:
            fields = Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
            signals = [
                line
                for line in Path(f"/proc/{pid}/status").read_text().splitlines()
                if line.startswith(("SigBlk", "SigIgn", "SigCgt"))
            ]
            limits = Path(f"/proc/{pid}/limits").read_text()
            files = sorted(os.listdir(f"/proc/{pid}/fd"))
            return [*fields[1:4], *signals, limits, *files]

        with Service(*self.OPTIONS, "--", PROBE, program=TOOL) as service, service.client() as one:
            worker = int(one.ask("header&parent", keep=True).lines[0])
            before = of(worker)
            for query in ("header", "exit=5", "signal=9", "leave=10&header"):
                one.ask(query, b"body", keep=True)
            self.assertEqual(of(worker), before)
            self.assertEqual(int(one.ask("header&parent", keep=True).lines[0]), worker)

    def test_that_disappear_are_500(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            program = Path(folder, "program")
            shutil.copy(PROBE, program)
            with Service("--", str(program), program=TOOL) as service:
                self.assertEqual(service.ask("header&text=here").body, b"here")
                program.unlink()
                for _ in range(3):
                    answer = service.ask("header")
                    self.assertTrue(answer.output.startswith(b"Status: 500 "), answer)
                    self.assertEqual((answer.ended, answer.status), (True, 127))
                self.assertEqual(service.log().count("program: No such file or directory"), 3)

    def test_end_with_the_worker(self) -> None:
        with Service("--", PROBE, program=TOOL) as service, service.client() as client:
            client.send(request("header&note=script&parent&flush&sleep=600000"))
            script = service.wait_for_note("script")[0]
            worker = children_of(service.process.pid)[0]
            os.kill(worker, signal.SIGKILL)
            wait_for_end(script)


class Connections(unittest.TestCase):
    def test_serve_one_request_after_another(self) -> None:
        with Service() as service, service.client() as client:
            for i in range(5):
                answer = client.ask(f"header&text={i}", keep=True, number=i + 1)
                self.assertEqual(answer.body, str(i).encode())
            self.assertTrue(client.ask("header", number=9).ended)
            self.assertTrue(client.is_closed())

    def test_refuse_a_second_request_beside_the_first(self) -> None:
        with Service() as service, service.client() as client:
            client.send(request("header&text=one&sleep=200", number=1, keep=True))
            client.send(request("header&text=two", number=2, keep=True))
            second = client.answer(2)
            self.assertEqual((second.output, second.protocol), (b"", 1))
            self.assertEqual(client.answer(1).body, b"one")
            self.assertEqual(client.ask("header&text=three", number=2).body, b"three")

    def test_serve_requests_that_arrive_byte_by_byte(self) -> None:
        with Service() as service, service.client() as client:
            for byte in request("header&body", b"abc"):
                client.send(bytes([byte]))
            self.assertEqual(client.answer().body, b"abc")


if __name__ == "__main__":
    unittest.main()
