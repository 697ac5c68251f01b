"""The processes of a service: how they begin, follow each other and end."""

import os
import re
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
    PROBE,
    Client,
    Service,
    children_of,
    error_text,
    is_alive,
    processor_ticks,
    record,
    request,
    state_of,
    wait_for_end,
    wait_until,
)

LONG = "sleep=600000"
REQUESTS = int(os.environ.get("REQUESTS", "1500"))
TOOL = os.environ["TOOL"]
# Versions of the probe that do not serve. One closes its files, the other does nothing at all.
USELESS = 66666666
IDLE = 55555555
PAIRS = int(os.environ.get("PAIRS", "50"))
REPLACEMENTS = int(os.environ.get("REPLACEMENTS", "5"))


class Program:
    """A copy of the probe that tests can replace."""

    def __init__(self, folder: str) -> None:
        self.path = os.path.join(folder, "program")
        self.content = Path(PROBE).read_bytes()
        assert self.content.count(b"VERSION:00000000") == 1

    def replace(self, version: int) -> None:
        """As an installation does: the new file takes the name of the old one."""
        self.write(self.content.replace(b"VERSION:00000000", b"VERSION:%08d" % version))

    def write(self, content: bytes) -> None:
        new = self.path + ".new"
        Path(new).write_bytes(content)
        os.chmod(new, 0o755)
        os.rename(new, self.path)


class Start(unittest.TestCase):
    def test_fails_with_the_status_of_the_callback(self) -> None:
        with Service(environment={"PREPARE": "7"}) as service:
            self.assertEqual(service.process.wait(100), 7)
            self.assertEqual(service.log_lines(), ["tarn-serve: a worker ended with status 7"])
            service.process.returncode = 0

    def test_fails_if_the_first_worker_crashes(self) -> None:
        with Service(environment={"PREPARE": "crash"}) as service:
            self.assertEqual(service.process.wait(100), 1)
            self.assertIn("signal 6 ended a worker", service.log())
            service.process.returncode = 0

    def test_listens_where_an_option_says(self) -> None:
        options = (
            "--listen=unix:{folder}/socket",
            "--socket-mode",
            "0640",
            "--listen",
            "tcp:[::1]:0",
        )
        with Service(*options, listens=False) as service:
            service.wait_until_it_listens()
            self.assertEqual(service.ask("header&text=a").body, b"a")
            self.assertEqual(os.stat(service.path("socket")).st_mode & 0o777, 0o640)
            service.process.terminate()
            self.assertEqual(service.process.wait(100), 0)
            self.assertFalse(os.path.exists(service.path("socket")))

    def test_takes_the_sockets_that_systemd_passes(self) -> None:
        # The listening socket becomes descriptor 3.
        wrapper = ("sh", "-c", 'exec 3<&0 0</dev/null; LISTEN_FDS=1 LISTEN_PID=$$ exec "$@"', "sh")
        with Service(wrapper=wrapper) as service:
            lines = service.ask("header&env").lines
            self.assertFalse([line for line in lines if line.startswith("LISTEN_")])

    def test_bears_a_number_of_passed_sockets_that_is_a_lie(self) -> None:
        passed = f"LISTEN_FDS={2**63 - 1} LISTEN_PID=$$"
        wrapper = ("sh", "-c", f'exec 3<&0 0</dev/null; {passed} exec "$@"', "sh")
        with Service(wrapper=wrapper) as service:
            self.assertEqual(service.ask("header&text=a").body, b"a")
        # Without a socket, the probe is a CGI script that ends.
        wrapper = ("sh", "-c", f'{passed} exec "$@"', "sh")
        with Service(wrapper=wrapper, listens=False) as service:
            self.assertEqual(service.process.wait(100), 0)

    def test_keeps_variables_of_systemd_from_scripts_wherever_it_listens(self) -> None:
        passed = ("LISTEN_FDS=1", "LISTEN_PID=1", "LISTEN_FDNAMES=a", "LISTENERS=7")
        for options in ((), ("--listen", "unix:{folder}/socket")):
            with (
                self.subTest(options),
                Service(*options, wrapper=("env", *passed), listens=not options) as service,
            ):
                service.wait_until_it_listens()
                lines = service.ask("header&env").lines
                self.assertEqual(
                    [line for line in lines if line.startswith("LISTEN")], ["LISTENERS=7"]
                )

    def test_of_two_on_one_old_socket_gives_it_to_exactly_one(self) -> None:
        for _ in range(PAIRS):
            with tempfile.TemporaryDirectory() as folder:
                path = os.path.join(folder, "socket")
                with socket.socket(socket.AF_UNIX) as old:
                    old.bind(path)
                options = ("--listen", f"unix:{path}")
                with (
                    Service(*options, listens=False) as first,
                    Service(*options, listens=False) as second,
                ):
                    pair = (first, second)
                    wait_until(
                        lambda: any(service.process.poll() is not None for service in pair),
                        "both serve",
                    )
                    winner, loser = pair if second.process.poll() is not None else pair[::-1]
                    self.assertEqual(loser.process.wait(100), 1)
                    problem = (
                        f"another service listens there: {error_text('Address already in use')}"
                    )
                    self.assertEqual(loser.log_lines(), [f"tarn-serve: unix:{path}: {problem}"])
                    loser.process.returncode = 0
                    winner.address = path
                    self.assertEqual(winner.ask("header&text=a").body, b"a")
                    self.assertEqual(os.listdir(folder), ["socket"])
                    winner.process.terminate()
                    self.assertEqual(winner.process.wait(100), 0)
                    self.assertEqual(os.listdir(folder), [])

    def test_needs_a_program_that_a_tool_runs_only_then(self) -> None:
        """Later, a missing one is a failure of requests."""
        with tempfile.TemporaryDirectory() as folder:
            script = Path(folder, "script")
            script.write_text("#!/bin/sh\nprintf 'Content-Type: text/plain\\r\\n\\r\\nhere'\n")
            script.chmod(0o755)
            with Service("--", str(script), program=TOOL) as service, service.client() as client:
                for reloads in (False, True):
                    self.assertEqual(client.ask("", keep=True).body, b"here")
                    script.rename(f"{script}.away")
                    if reloads:
                        os.kill(service.process.pid, signal.SIGHUP)
                        os.kill(service.process.pid, signal.SIGUSR1)
                        service.wait_for_log(" 2 started, 0 failed")
                    for _ in range(2):
                        answer = client.ask("", keep=True)
                        self.assertTrue(answer.output.startswith(b"Status: 500 "), answer)
                        self.assertEqual(answer.status, 127)
                    os.rename(f"{script}.away", script)
                self.assertEqual(client.ask("", keep=True).body, b"here")
                failures = [line for line in service.log_lines() if "ended with status 127" in line]
                self.assertEqual(len(failures), 4, service.log())

    def test_ends_at_once_if_told_while_the_callback_runs(self) -> None:
        with Service(environment={"PREPARE": "wait"}) as service:
            worker = service.wait_for_note("preparing")[0]
            service.process.terminate()
            self.assertEqual(service.process.wait(100), 0)
            self.assertFalse(is_alive(worker))


PRELOADED = "HANGUP_LIBRARY" in os.environ
SIGNALS_BLOCKED = re.compile(r"(?m)^SigBlk:\s+([0-9a-f]+)$")


class EarlySignals(unittest.TestCase):
    """SIGHUP and SIGUSR1 to a program that has just called tarn_serve()."""

    @unittest.skipUnless(PRELOADED, "needs a library that can be preloaded")
    def test_are_obeyed_once_the_service_can(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            file = Path(folder, "hangup")
            environment = {"LD_PRELOAD": os.environ["HANGUP_LIBRARY"], "HANGUP": str(file)}
            for program, options in ((PROBE, ()), (TOOL, ("--", PROBE))):
                file.touch()
                with (
                    self.subTest(program),
                    Service(*options, program=program, environment=environment) as service,
                ):
                    service.wait_for_log(" 2 started, 0 failed")
                    self.assertFalse(file.exists())
                    self.assertEqual(service.ask("header&text=a").body, b"a")

    def test_are_not_blocked_in_a_cgi_script(self) -> None:
        self.assertEqual(signal.pthread_sigmask(signal.SIG_BLOCK, ()), set())
        command = {"QUERY_STRING": "header&status"}
        for arguments, environment in (
            ([PROBE], command | {"REQUEST_METHOD": "GET"}),
            ([PROBE], command),
            ([TOOL, "--", PROBE], command),
        ):
            with self.subTest(arguments=arguments, environment=environment):
                done = subprocess.run(
                    arguments,
                    stdin=subprocess.DEVNULL,
                    capture_output=True,
                    env=os.environ | environment,
                    text=True,
                    check=True,
                )
                found = SIGNALS_BLOCKED.search(done.stdout)
                assert found, done
                self.assertEqual(int(found[1], 16), 0)


class Systemd(unittest.TestCase):
    """A unit of Type=notify."""

    def test_is_told_when_the_service_is_ready_reloads_and_stops(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            program = Program(folder)
            for address in (f"{folder}/notify", f"@tarn-notify-{os.getpid()}"):
                program.replace(1)
                with self.subTest(address), socket.socket(
                    socket.AF_UNIX, socket.SOCK_DGRAM
                ) as told:
                    told.settimeout(60)
                    told.bind(address.replace("@", "\0"))
                    self.check(program, {"NOTIFY_SOCKET": address}, told)

    def check(self, program: Program, environment: dict[str, str], told: socket.socket) -> None:
        with Service(program=program.path, environment=environment) as service:
            self.assertEqual(told.recv(1000), b"READY=1")
            lines = service.ask("header&env").lines
            self.assertFalse([line for line in lines if line.startswith("NOTIFY_")])
            for _ in range(2):  # the second one fails
                before = time.clock_gettime_ns(time.CLOCK_MONOTONIC) // 1000
                os.kill(service.process.pid, signal.SIGHUP)
                match = re.fullmatch(rb"RELOADING=1\nMONOTONIC_USEC=(\d+)", told.recv(1000))
                assert match
                after = time.clock_gettime_ns(time.CLOCK_MONOTONIC) // 1000
                self.assertTrue(before <= int(match[1]) <= after)
                self.assertEqual(told.recv(1000), b"READY=1")
                self.assertEqual(service.ask("header&text=a").body, b"a")
                program.write(b"#!/nonexistent\n")
            service.process.terminate()
            self.assertEqual(told.recv(1000), b"STOPPING=1")

    def test_need_not_be_there(self) -> None:
        for address in ("/nonexistent/notify", "@", "notify", "/" + "x" * 200, ""):
            with self.subTest(address), Service(environment={"NOTIFY_SOCKET": address}) as service:
                self.assertEqual(service.ask("header&text=a").body, b"a")


class End(unittest.TestCase):
    def test_answers_running_requests_and_waiting_ones_but_accepts_no_new_one(self) -> None:
        with Service("--children", "1", tcp=True) as service:
            running, waiting, idle = (service.client() for _ in range(3))
            self.assertTrue(idle.ask("header", keep=True).ended)
            running.send(request("header&note=begun&sleep=400&text=one", keep=True))
            service.wait_for_note("begun")
            waiting.send(request("header&text=two", keep=True))
            os.kill(service.process.pid, signal.SIGTERM)
            self.assertTrue(idle.is_closed())
            with self.assertRaises(ConnectionRefusedError):
                service.client()
            self.assertEqual(running.answer().body, b"one")
            self.assertEqual(waiting.answer().body, b"two")
            for client in (running, waiting, idle):
                self.assertTrue(client.is_closed())
                client.socket.close()
            self.assertEqual(service.process.wait(100), 0)
            self.assertEqual(service.log_lines(), [])

    def test_answers_requests_that_only_the_system_has_accepted(self) -> None:
        for tcp in (False, True):
            with self.subTest(tcp=tcp), Service(tcp=tcp) as service:
                worker = service.worker()
                os.kill(worker, signal.SIGSTOP)
                clients = [service.client() for _ in range(20)]
                for i, client in enumerate(clients[1:]):
                    client.send(request(f"header&text={i}"))
                os.kill(service.process.pid, signal.SIGTERM)
                wait_until(lambda: is_pending(worker, signal.SIGTERM), "no signal")
                os.kill(worker, signal.SIGCONT)
                for i, client in enumerate(clients[1:]):
                    self.assertEqual(client.answer().body, str(i).encode())
                # The first sends its request only now.
                clients[0].send(request("header&text=late", keep=True))
                self.assertEqual(clients[0].answer().body, b"late")
                self.assertTrue(clients[0].is_closed())
                self.assertEqual(service.process.wait(100), 0)
                self.assertEqual(service.log_lines(), [])
                for client in clients:
                    client.socket.close()

    def test_waits_a_few_seconds_for_requests_that_have_begun(self) -> None:
        whole = request("header&body", b"text")
        with Service() as service:
            first, second, third = (service.client() for _ in range(3))
            first.send(whole[:-20])
            second.send(whole[:-20])
            self.assertTrue(service.ask("header").ended)
            os.kill(service.process.pid, signal.SIGINT)
            wait_until(lambda: not is_listening(service), "it listens")
            first.send(whole[-20:])
            self.assertEqual(first.answer().body, b"text")
            # The second sends nothing more, the third nothing at all.
            self.assertEqual(service.process.wait(100), 0)
            for client in (first, second, third):
                self.assertTrue(client.is_closed())
                client.socket.close()
            self.assertEqual(
                service.log_lines(),
                ["tarn-serve: the request did not arrive in time: /probe?header&body"],
            )

    def test_leaves_the_socket_of_another_service_that_took_its_name(self) -> None:
        options = ("--listen", "unix:{folder}/socket", "--status", "unix:{folder}/status")
        with Service(*options, listens=False) as first:
            first.wait_until_it_listens()
            # Once it answers, it has made both sockets.
            self.assertEqual(first.ask("header&text=a").body, b"a")
            for name in ("socket", "status"):
                os.remove(first.path(name))
            at = [option.replace("{folder}", first.folder.name) for option in options]
            with Service(*at, listens=False) as second:
                second.address = first.address
                second.wait_until_it_listens()
                wait_until(lambda: os.path.exists(first.path("status")), "no status")
                first.process.terminate()
                self.assertEqual(first.process.wait(100), 0)
                self.assertEqual(second.ask("header&text=a").body, b"a")
                self.assertTrue(os.path.exists(first.path("status")))
            for name in ("socket", "status"):
                self.assertFalse(os.path.exists(first.path(name)))

    def test_nobody_stays_if_the_supervisor_is_killed(self) -> None:
        with Service() as service, service.client() as client:
            worker = service.worker()
            client.send(request(f"ignore&stubborn=600000&note=script&{LONG}"))
            left = service.wait_for_note("left") + service.wait_for_note("script")
            service.process.kill()
            for pid in (worker, *left):
                wait_for_end(pid)
            service.process.wait()

    def test_scripts_end_if_supervisor_and_worker_are_killed_at_once(self) -> None:
        with Service() as service, service.client() as client:
            worker = service.worker()
            client.send(request(f"ignore&note=script&{LONG}"))
            script = service.wait_for_note("script")[0]
            os.kill(service.process.pid, signal.SIGSTOP)
            os.kill(worker, signal.SIGKILL)
            service.process.kill()
            wait_for_end(script)
            self.assertFalse(client.answer().ended)
            service.process.wait()

    def test_as_process_1_takes_everything_with_it(self) -> None:
        wrapper = ("unshare", "--pid", "--fork", "--mount-proc", "--kill-child=KILL")
        if subprocess.run([*wrapper, "true"], capture_output=True, check=False).returncode != 0:
            self.skipTest("not allowed to make process namespaces")
        with Service(wrapper=wrapper) as service, service.client() as client:
            self.assertTrue(service.ask("header").ended)
            init = children_of(service.process.pid)[0]
            client.send(request(f"ignore&stubborn=600000&note=script&{LONG}"))
            service.wait_for_note("script")
            # The notes have the numbers of the namespace.
            processes = descendants_of(init)
            self.assertEqual(len(processes), 3)
            worker = children_of(init)[0]
            os.kill(worker, signal.SIGSTOP)
            os.kill(init, signal.SIGKILL)
            for pid in processes:
                wait_for_end(pid)
            self.assertFalse(client.answer().ended)
            service.process.wait(100)
            service.process.returncode = 0

    def test_as_process_1_reaps_zombies_and_obeys_signals(self) -> None:
        wrapper = ("unshare", "--pid", "--fork", "--mount-proc", "--kill-child=KILL")
        if subprocess.run([*wrapper, "true"], capture_output=True, check=False).returncode != 0:
            self.skipTest("not allowed to make process namespaces")
        with Service(wrapper=wrapper) as service:
            init = None
            self.assertEqual(service.ask("header&group").lines, ["1"])
            init = children_of(service.process.pid)[0]
            # Processes that scripts leave behind belong to process 1 when they end.
            for _ in range(5):
                self.assertTrue(service.ask("header&leave=50").ended)
            wait_until(lambda: len(children_of(init)) == 1, "zombies stay")
            os.kill(init, signal.SIGHUP)
            self.assertTrue(service.ask("header").ended)
            os.kill(init, signal.SIGTERM)
            self.assertEqual(service.process.wait(100), 0)


def descendants_of(pid: int) -> list[int]:
    return [pid for child in children_of(pid) for pid in (child, *descendants_of(child))]


def is_pending(pid: int, number: int) -> bool:
    """Whether a process has yet to take a signal."""
    status = Path(f"/proc/{pid}/status").read_text()
    return bool(int(status.partition("ShdPnd:")[2].split()[0], 16) >> (number - 1) & 1)


def is_listening(service: Service) -> bool:
    try:
        service.client().socket.close()
        return True
    except (FileNotFoundError, ConnectionRefusedError, ConnectionResetError):
        return False


class Crash(unittest.TestCase):
    def test_of_a_worker_ends_its_children_and_starts_another(self) -> None:
        with Service() as service, service.client() as client:
            worker = service.worker()
            client.send(request(f"stubborn=600000&note=script&{LONG}"))
            left = service.wait_for_note("left") + service.wait_for_note("script")
            os.kill(worker, signal.SIGKILL)
            for pid in left:
                wait_for_end(pid)
            self.assertFalse(client.answer().ended)
            self.assertNotEqual(service.worker(), worker)
            self.assertEqual(service.log_lines(), ["tarn-serve: signal 9 ended a worker"])

    @unittest.skipUnless("FAILING_LIBRARY" in os.environ, "needs a library that can be preloaded")
    def test_of_a_worker_that_has_just_started_a_child_ends_it_too(self) -> None:
        for program, options in ((PROBE, ()), (TOOL, ("--", PROBE))):
            with tempfile.TemporaryDirectory() as folder:
                file = os.path.join(folder, "failing")
                environment = {"LD_PRELOAD": os.environ["FAILING_LIBRARY"], "FAILING": file}
                with (
                    self.subTest(program),
                    Service(*options, program=program, environment=environment) as service,
                    service.client() as client,
                ):
                    worker = service.worker()
                    Path(file).write_text("setpgid 0")
                    client.send(request(f"stubborn=600000&note=script&{LONG}"))
                    left = service.wait_for_note("left") + service.wait_for_note("script")
                    wait_until(lambda: state_of(worker) == "T", "the worker does not stand still")
                    os.remove(file)
                    os.kill(worker, signal.SIGKILL)
                    for pid in left:
                        wait_for_end(pid)

    def test_of_a_worker_during_the_two_seconds_of_a_group_ends_that_too(self) -> None:
        with Service() as service, service.client() as client:
            worker = service.worker()
            client.send(request(f"stubborn=600000&{LONG}"))
            left = service.wait_for_note("left")[0]
            client.send(record(2))
            self.assertTrue(client.answer().ended)
            os.kill(worker, signal.SIGKILL)
            wait_for_end(left)


class Reload(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = os.path.join(os.environ.get("TMPDIR", "/tmp"), f"tarn-reload-{os.getpid()}")
        os.makedirs(self.folder)
        self.addCleanup(shutil.rmtree, self.folder)
        self.program = Program(self.folder)
        self.program.replace(1)

    def version(self, service: Service) -> int:
        return int(service.ask("header&version").body.removeprefix(b"VERSION:"))

    def reload(self, service: Service) -> None:
        service.worker()  # the old version has to serve first
        os.kill(service.process.pid, signal.SIGHUP)

    def wait_until_moved(self, client: Client) -> None:
        """Waits until version 2 has this connection. For a moment, both versions serve."""
        wait_until(
            lambda: client.ask("header&version", keep=True).body == b"VERSION:00000002",
            "a connection stays with the old worker",
        )

    def wait_for_version(self, service: Service, version: int) -> None:
        wait_until(lambda: self.version(service) == version, f"no version {version}")

    def test_starts_the_new_program_under_the_same_process_number(self) -> None:
        with Service(program=self.program.path) as service:
            self.assertEqual(self.version(service), 1)
            worker = service.worker()
            self.program.replace(2)
            self.assertEqual(self.version(service), 1)
            self.reload(service)
            self.wait_for_version(service, 2)
            wait_for_end(worker)
            new = service.worker()
            self.assertEqual(Path(f"/proc/{new}/comm").read_text(), "program\n")
            self.assertEqual(
                Path(f"/proc/{new}/cmdline").read_bytes(),
                Path(f"/proc/{service.process.pid}/cmdline").read_bytes(),
            )
            lines = service.ask("header&descriptors&env").lines
            self.assertEqual(lines[:3], ["0", "1", "2"])
            self.assertFalse([line for line in lines if line.startswith("3")])
            names = {line.partition("=")[0] for line in lines if line.startswith("TARN_")}
            self.assertEqual(set(), names - os.environ.keys())
            self.assertEqual(service.log_lines(), [])

    def test_as_soon_as_the_socket_is_there(self) -> None:
        for _ in range(20):
            with Service(
                "--listen", "unix:{folder}/socket", program=self.program.path, listens=False
            ) as service:
                while not os.path.exists(service.path("socket")):
                    pass
                os.kill(service.process.pid, signal.SIGHUP)
                wait_until(lambda: is_listening(service), "it does not listen")
                self.assertEqual(self.version(service), 1)
                self.assertEqual(service.log_lines(), [])

    def test_keeps_connections_and_lets_running_requests_end(self) -> None:
        with Service(program=self.program.path) as service:
            clients = [service.client() for _ in range(30)]
            running, begun, *idle = clients
            for client in idle:
                self.assertTrue(client.ask("header", keep=True).ended)
            worker = service.worker()
            running.send(request("header&note=begun&sleep=1000&version", keep=True))
            service.wait_for_note("begun")
            whole = request("header&version", b"x", keep=True)
            begun.send(whole[:-9])
            self.program.replace(2)
            self.reload(service)
            self.wait_for_version(service, 2)
            self.assertTrue(is_alive(worker))
            for client in idle:
                self.wait_until_moved(client)
            begun.send(whole[-9:])
            # The old worker answers what it has begun, and hands the connection over then.
            for client in (begun, running):
                self.assertEqual(client.answer().body, b"VERSION:00000001")
                self.wait_until_moved(client)
            wait_for_end(worker)
            for client in clients:
                client.socket.close()
            self.assertEqual(service.log_lines(), [])

    def test_to_a_program_that_does_not_start_leaves_the_old_one(self) -> None:
        broken = {
            "no program": b"#!/nonexistent\n",
            "empty": b"",
            "crashes": Path(shutil.which("false") or "").read_bytes(),
        }
        with Service(program=self.program.path) as service:
            self.program.replace(2)
            self.reload(service)
            self.wait_for_version(service, 2)
            count = 0
            for name, content in broken.items():
                with self.subTest(name):
                    self.program.write(content)
                    self.reload(service)
                    count += 1
                    wait_until(
                        lambda: service.log().count("a worker ended with") == count, "no message"
                    )
                    self.assertEqual(self.version(service), 2)
            os.remove(self.program.path)
            self.reload(service)
            service.wait_for_log("cannot open")
            # A restart uses the program that worked, although its file is gone.
            worker = service.worker()
            os.kill(worker, signal.SIGKILL)
            wait_for_end(worker)
            self.assertEqual(self.version(service), 2)
            self.program.replace(3)
            self.reload(service)
            self.wait_for_version(service, 3)

    def test_to_a_program_that_does_not_serve_leaves_the_old_one(self) -> None:
        """It closes all its files, and runs on."""
        with Service(program=self.program.path) as service:
            worker = service.worker()
            self.program.replace(USELESS)
            self.reload(service)
            wait_until(lambda: len(children_of(service.process.pid)) == 2, "nothing was started")
            useless = children_of(service.process.pid)[-1]
            self.assertNotEqual(useless, worker)
            wait_until(lambda: not os.listdir(f"/proc/{useless}/fd"), "it has files")
            before = processor_ticks(service.process.pid)
            time.sleep(0.5)
            self.assertLess(processor_ticks(service.process.pid) - before, 10, "it spins")
            self.assertEqual(service.worker(), worker)
            wait_for_end(useless)
            wait_until(lambda: len(service.log_lines()) == 2, service.log())
            self.assertEqual(
                service.log_lines(),
                [
                    "tarn-serve: a worker closed its files instead of serving, and is killed",
                    "tarn-serve: signal 9 ended a worker",
                ],
            )
            self.assertEqual(service.worker(), worker)
            self.program.replace(2)
            self.reload(service)
            self.wait_for_version(service, 2)

    def test_to_a_program_that_does_nothing_does_not_keep_the_service_from_ending(self) -> None:
        with Service(program=self.program.path) as service:
            self.program.replace(IDLE)
            self.reload(service)
            wait_until(lambda: len(children_of(service.process.pid)) == 2, "nothing was started")
            idle = children_of(service.process.pid)[-1]
            wait_until(lambda: b"TARN_SERVE_WORKER" in variables_of(idle), "it has not begun")
            service.process.terminate()
            self.assertEqual(service.process.wait(20), 0)
            wait_for_end(idle)

    def test_whose_callback_fails_leaves_the_old_one(self) -> None:
        word = Path(self.folder, "word")
        word.write_text("nothing")
        environment = {"PREPARE": f"@{word}"}
        with Service(program=self.program.path, environment=environment) as service:
            worker = service.worker()
            for bad, message in (("7", "ended with status 7"), ("crash", "signal 6 ended")):
                word.write_text(bad)
                self.reload(service)
                service.wait_for_log(message)
                self.assertEqual(service.worker(), worker)
            word.write_text("nothing")
            self.reload(service)
            wait_until(lambda: service.worker() != worker, "no new worker")
            self.assertEqual(len(service.log_lines()), 2)

    def test_during_another_reload(self) -> None:
        with Service(program=self.program.path) as service:
            for version in range(2, 8):
                self.program.replace(version)
                self.reload(service)
            self.wait_for_version(service, 7)
            wait_until(lambda: len(children_of(service.process.pid)) == 1, "old workers stay")

    def test_under_load_loses_and_doubles_nothing(self) -> None:
        """Clients on new connections and on ones that stay, while the program is replaced."""
        problems: list[object] = []
        seen = set()
        clients = 8
        asked = REQUESTS // clients

        def ask(number: int) -> None:
            try:
                client = service.client()
                for i in range(asked):
                    if number % 2 == 0:
                        client.socket.close()
                        client = service.client()
                    word = f"r{number}-{i}"
                    answer = client.ask(f"header&version&text={word}&note={word}", keep=True)
                    if answer.body[16:] != word.encode() or not answer.ended:
                        problems.append((word, answer))
                    seen.add(answer.body[:16])
                client.socket.close()
            except Exception as error:
                problems.append((number, error))

        with Service("--queue", "100", program=self.program.path) as service:
            threads = [threading.Thread(target=ask, args=(i,)) for i in range(clients)]
            for thread in threads:
                thread.start()
            for version in range(2, REPLACEMENTS + 2):
                wait_until(
                    lambda: len(lines(service.notes)) * (REPLACEMENTS + 1)
                    >= (version - 1) * asked * clients,
                    "requests stopped",
                )
                self.program.replace(version)
                self.reload(service)
            for thread in threads:
                thread.join()
            self.assertEqual(problems, [])
            done = [line.split()[0] for line in lines(service.notes)]
            self.assertEqual(len(done), asked * clients)
            self.assertEqual(len(set(done)), len(done))
            self.assertGreater(len(seen), 2)
            self.assertEqual(service.log_lines(), [])


def variables_of(pid: int) -> bytes:
    return Path(f"/proc/{pid}/environ").read_bytes()


def lines(path: str) -> list[str]:
    try:
        return Path(path).read_text().splitlines()
    except FileNotFoundError:
        return []


if __name__ == "__main__":
    unittest.main()
