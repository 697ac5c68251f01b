#!/usr/bin/env python3
"""What a script that was taken over gets when it is confined: nothing that no option names."""

import contextlib
import errno
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import unittest
from pathlib import Path

from fastcgi import (
    MUSL,
    PARAMS,
    STDIN,
    STDOUT,
    Client,
    begin,
    children_of,
    is_alive,
    pair,
    stream,
    wait_until,
)

PROBE = os.environ["PROBE"]
TARN_SERVE = os.environ["TARN_SERVE"]
OLDER_KERNEL = os.environ["OLDER_KERNEL"]
EXAMPLES = os.environ["EXAMPLES"]

# What the kernel, or the container that the tests run in, may refuse without Tarn.
MAY_FAIL_ANYWAY = {
    "trace the service",
    "read the service's memory",
    "read a process's memory",
    "read the service's environment",
    "open the service's memory",
    "slow the user",
    "share memory",
    "open a message queue",
    "unshare users",
    "clone users",
    "clone by a structure",
    "open AF_ALG",
    "send from streams",  # they are connected
    "io_uring",
    "bpf",
    "keys",
    "measure",
    "userfaultfd",
    "mount",
    "change the root",
    "a newer call",
    "capabilities",
    "calls of i386",
    "calls of x32",
}
if MUSL:
    MAY_FAIL_ANYWAY.add("schedule the service")  # its function only returns an error

NETWORK = {"connect by TCP", "connect by UDP", "bind a TCP port", "open netlink"}
UNIX_SOCKETS = {"connect to a Unix socket", "send from a pair"}
PROGRAMS = {"execute a shell", "execute memory"}
ATTRIBUTES = {"change a mode", "change an owner", "change times", "change a readable file"}


def whole_request(variables: dict[str, str], body: bytes = b"") -> bytes:
    variables = {"GATEWAY_INTERFACE": "CGI/1.1", "REQUEST_METHOD": "GET"} | variables
    pairs = (pair(name.encode(), value.encode()) for name, value in variables.items())
    return begin() + stream(PARAMS, b"".join(pairs)) + stream(STDIN, body)


def request(path: Path, variables: dict[str, str], body: bytes = b"") -> bytes:
    """Sends a request to a service and returns what the script wrote."""
    with Client(str(path)) as client:
        client.send(whole_request(variables, body))
        answer = client.answer()
    if not answer.ended:
        raise ConnectionError("the service closed the connection")
    return answer.output


def outcomes(answer: bytes) -> dict[str, int]:
    """The error number of each attempt, 0 for success, from the answer of the probe."""
    head, _, page = answer.partition(b"\n\n")
    if not head.startswith(b"Content-Type"):
        raise AssertionError(answer)
    lines = (line.rsplit(": ", 1) for line in page.decode().splitlines())
    return {name: int(result) for name, result in lines}


def setUpModule() -> None:
    done = subprocess.run(
        [PROBE],
        env={"GATEWAY_INTERFACE": "CGI/1.1", "OPTIONS": "confine", "QUERY_STRING": "basics"},
        capture_output=True,
        timeout=100,
        check=False,
    )
    if b"kernel" in done.stderr:
        raise unittest.SkipTest("this kernel cannot confine scripts")


# ---- Services ------------------------------------------------------------------------------------


class ConfineTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tarn-confine-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.addCleanup(self.check_nothing_runs)
        self.services: list[int] = []

    def check_nothing_runs(self):
        for group in self.services:
            with self.assertRaises(ProcessLookupError):
                os.killpg(group, 0)

    def make_targets(self) -> dict[str, str]:
        """What the probe tries to reach, as it was before any other attempt."""
        for name in ("outside", "readable", "data", "other"):
            shutil.rmtree(self.folder / name, ignore_errors=True)
            (self.folder / name).mkdir()
        for name in ("secret", "cut", "removable", "moving"):
            (self.folder / "outside" / name).write_text("secret")
        (self.folder / "readable" / "text").write_text("readable")
        (self.folder / "data" / "moving").write_text("data")
        return {
            name.upper(): str(self.folder / name)
            for name in ("outside", "readable", "data", "other")
        }

    @contextlib.contextmanager
    def listeners(self):
        """Sockets and a process for the probe to reach; yields the variables that name them."""
        abstract = f"tarn-confine-{os.getpid()}-{id(self)}"
        outside = self.folder / "outside"
        with contextlib.ExitStack() as stack:
            tcp = stack.enter_context(socket.create_server(("127.0.0.1", 0)))
            for address in (str(outside / "socket"), "\0" + abstract):
                local = stack.enter_context(socket.socket(socket.AF_UNIX))
                local.bind(address)
                local.listen(100)
            datagrams = stack.enter_context(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
            datagrams.bind(str(outside / "datagrams"))
            process = stack.enter_context(subprocess.Popen(["sleep", "1000"]))
            stack.callback(process.kill)
            self.other = process
            yield {
                "PORT": str(tcp.getsockname()[1]),
                "ABSTRACT": abstract,
                "PROCESS": str(process.pid),
            }

    def end(self, process: subprocess.Popen) -> None:
        process.terminate()
        process.wait(60)

    def start(self, command: list[str]) -> subprocess.Popen:
        self.socket = self.folder / "service"
        self.socket.unlink(missing_ok=True)
        with socket.socket(socket.AF_UNIX) as listener, (self.folder / "log").open("wb") as log:
            listener.bind(str(self.socket))
            listener.listen(100)
            process = subprocess.Popen(
                command, stdin=listener.fileno(), stderr=log, start_new_session=True
            )
        self.services.append(process.pid)
        self.addCleanup(self.end, process)
        return process

    def command(self, *options: str, program: list[str] | None = None, kernel: str = ""):
        command = [OLDER_KERNEL, kernel] if kernel else []
        command += [TARN_SERVE if program else PROBE, *options]
        return command + (["--", *program] if program else [])

    @contextlib.contextmanager
    def service(self, *options: str, program: list[str] | None = None, kernel: str = ""):
        process = self.start(self.command(*options, program=program, kernel=kernel))
        try:
            yield process
        finally:
            self.end(process)

    @property
    def log(self) -> str:
        return (self.folder / "log").read_text()

    def refused(self, *options: str, **how) -> tuple[int, str]:
        """The exit status and the log of a service that does not serve."""
        process = self.start(self.command(*options, **how))
        return process.wait(60), self.log

    def worker(self, service: subprocess.Popen) -> int:
        """The only worker, when it is ready."""
        self.ask("list /")
        workers = workers_of(service)
        self.assertEqual(1, len(workers))
        return workers.pop()

    def ask(self, query: str = "", **variables: str) -> dict[str, int]:
        return outcomes(request(self.socket, {"QUERY_STRING": query} | variables))

    def attempts(self, *options: str, **how) -> dict[str, int]:
        """What the probe gets when it tries everything."""
        targets = self.make_targets()
        with self.listeners() as others, self.service(*options, **how):
            results = self.ask(**targets, **others)
        self.assertGreater(len(results), 50)
        return results

    def granted(self) -> list[str]:
        return [
            *("--read", str(self.folder / "readable")),
            *("--write", str(self.folder / "data")),
            *("--write", str(self.folder / "other")),
        ]

    def assert_only(self, expected: set[str], results: dict[str, int]) -> None:
        """Exactly these attempts succeed."""
        self.assertEqual(expected, {name for name, result in results.items() if result == 0})


def workers_of(service: subprocess.Popen) -> set[int]:
    """The workers, or the only one if the service is ready and does not start another."""
    exe = Path(f"/proc/{service.pid}/exe").readlink()
    workers = set()
    for child in children_of(service.pid):
        with contextlib.suppress(OSError):
            if Path(f"/proc/{child}/exe").readlink() == exe:
                workers.add(child)
    return workers


class WithoutConfinementTest(ConfineTest):
    """These show that the probe can do what it tries."""

    def assert_everything_works(self, results: dict[str, int]) -> None:
        failed = {name for name, result in results.items() if result != 0}
        self.assertEqual(set(), failed - MAY_FAIL_ANYWAY)

    def test_a_function_can_do_everything(self):
        self.assert_everything_works(self.attempts())

    def test_a_program_can_do_everything(self):
        self.assert_everything_works(self.attempts(program=[PROBE]))

    def test_a_file_can_send_a_signal_to_another_process(self):
        self.make_targets()
        with self.listeners() as others, self.service():
            self.assertEqual({"signal by a file": 0}, self.ask("signal by a file", **others))
            self.assertEqual(-signal.SIGTERM, self.other.wait(60))

    def test_a_script_can_kill_its_service(self):
        with self.service() as service:
            worker = self.worker(service)
            with self.assertRaises(ConnectionError):
                self.ask("kill the service")
            wait_until(lambda: not is_alive(worker), "the worker is alive")


class ConfinedFunctionTest(ConfineTest):
    program: list[str] | None = None

    def test_nothing_is_reached_without_rights(self):
        self.assert_only(set(), self.attempts("--confine", program=self.program))

    def test_nothing_is_reached_with_rights_to_other_files(self):
        self.make_targets()
        results = self.attempts(*self.granted(), program=self.program)
        self.assert_only(set(), results)
        outside = self.folder / "outside"
        self.assertEqual(
            {"secret", "cut", "removable", "moving", "socket", "datagrams"},
            {path.name for path in outside.iterdir()},
        )
        self.assertEqual("secret", (outside / "cut").read_text())
        self.assertEqual({"moving"}, {path.name for path in (self.folder / "data").iterdir()})
        self.assertEqual("readable", (self.folder / "readable" / "text").read_text())

    def test_errors_say_permission_denied(self):
        results = self.attempts("--confine", program=self.program)
        for name in ("read a file", "list /", "create a file", "connect by TCP", "execute a shell"):
            self.assertEqual(errno.EACCES, results[name], name)

    def test_named_files_can_be_used(self):
        targets = self.make_targets()
        with self.service(*self.granted(), program=self.program):
            wanted = {"granted": 0, "basics": 0, "move between": 0}
            self.assertEqual(wanted, self.ask("+".join(wanted), **targets))
        self.assertTrue((self.folder / "other" / "first").exists())

    def test_a_named_file_is_not_its_folder(self):
        self.make_targets()
        secret = str(self.folder / "outside" / "secret")
        results = self.attempts("--read", secret, program=self.program)
        self.assert_only({"read a file", "read in a child"}, results)

    def test_network_opens_the_network_alone(self):
        self.assert_only(NETWORK, self.attempts("--network", program=self.program))

    def test_unix_sockets_opens_them_alone(self):
        self.assert_only(UNIX_SOCKETS, self.attempts("--unix-sockets", program=self.program))

    def test_unix_sockets_can_be_bound_in_a_writable_folder(self):
        targets = self.make_targets()
        with self.service("--unix-sockets", *self.granted(), program=self.program):
            self.assertEqual({"bind a socket": 0}, self.ask("bind a socket", **targets))

    def test_exec_opens_that_program_alone(self):
        self.assert_only(PROGRAMS, self.attempts("--exec", "/bin/sh", program=self.program))
        self.assert_only(set(), self.attempts("--exec", "/bin/true", program=self.program))

    def test_exec_opens_the_programs_of_a_folder(self):
        self.assertEqual(
            0, self.attempts("--exec", "/bin", program=self.program)["execute a shell"]
        )

    def test_attributes_opens_them_alone(self):
        results = self.attempts("--attributes", *self.granted(), program=self.program)
        self.assert_only(ATTRIBUTES, results)

    def test_other_processes_get_no_signals(self):
        self.make_targets()
        with self.listeners() as others, self.service("--confine", program=self.program) as service:
            worker = self.worker(service)
            self.ask("signal by a file", **others)
            self.assertEqual(
                {"kill the service": errno.EPERM}, self.ask("kill the service", **others)
            )
            self.assertIsNone(self.other.poll())
            self.assertTrue(is_alive(worker))

    def test_scripts_do_not_reach_each_other(self):
        with self.service("--confine", "--children", "2", program=self.program):
            with Client(str(self.socket)) as waiting:
                waiting.send(whole_request({"QUERY_STRING": "wait"}))
                answer = b""
                for kind, _, content in waiting.records():
                    self.assertEqual(STDOUT, kind)
                    answer += content
                    if b"process " in answer and answer.endswith(b"\n"):
                        break
                process = answer.rpartition(b"process ")[2].strip().decode()
                wanted = {"signal a process", "queue a signal", "signal a thread"}
                wanted |= {"read a process's memory"}
                results = self.ask("+".join(wanted), PROCESS=process)
                self.assertEqual({name: errno.EPERM for name in wanted}, results)

    def test_only_standard_descriptors_are_inherited(self):
        with self.service("--confine", program=self.program):
            self.assertEqual({"descriptors": errno.EBADF}, self.ask("descriptors"))

    def test_a_crash_is_still_a_signal(self):
        with self.service("--confine", program=self.program):
            self.assertEqual({"abort": 1000 + signal.SIGABRT}, self.ask("abort"))

    def test_confining_again_changes_nothing(self):
        with self.service("--confine", program=self.program):
            results = self.ask("confine again+read /etc/passwd")
        self.assertNotEqual(0, results["read /etc/passwd"])
        if not self.program:
            self.assertEqual(0, results["confine again"])

    def test_a_new_worker_confines_too(self):
        with self.service("--confine", program=self.program) as service:
            old = self.worker(service)
            service.send_signal(signal.SIGHUP)
            wait_until(lambda: not is_alive(old), "the old worker is alive")
            self.assertEqual({"list /": errno.EACCES}, self.ask("list /"))


class ConfinedProgramTest(ConfinedFunctionTest):
    program = [PROBE]

    def run_script(self, text: str, *options: str, **variables: str) -> bytes:
        script = self.folder / "script"
        script.write_text(text)
        script.chmod(0o700)
        with self.service(*options, program=[str(script)]):
            return request(self.socket, variables)

    def test_a_shell_script_runs_without_any_right(self):
        for line in ("#!/bin/sh", "#! /usr/bin/env sh", "#!/usr/bin/env -S A=1 sh -u"):
            text = f"{line}\nprintf 'Status: 200\\n\\nfine'\nread x < /etc/passwd && echo $x\n"
            self.assertEqual(b"Status: 200\n\nfine", self.run_script(text, "--confine"), line)
            self.assertRegex(self.log, "/etc/passwd: Permission denied")

    def test_a_script_runs_by_an_interpreter_that_is_a_script(self):
        interpreter = self.folder / "interpreter"
        interpreter.write_text("#!/bin/sh\nprintf 'Status: 200\\n\\nfine'\n")
        interpreter.chmod(0o700)
        answer = self.run_script(f"#!{interpreter}\nanything\n", "--confine")
        self.assertEqual(b"Status: 200\n\nfine", answer)

    def test_a_shell_script_starts_no_other_program(self):
        text = "#!/bin/sh\nprintf 'Status: 200\\n\\n'\n/bin/cat /dev/null || printf refused\n"
        self.assertEqual(b"Status: 200\n\nrefused", self.run_script(text, "--confine"))
        answer = self.run_script(text, "--exec", "/bin/cat")
        self.assertEqual(b"Status: 200\n\n", answer)

    def test_a_python_script_needs_its_library(self):
        text = (
            "#!/usr/bin/python3 -I\nimport json\nprint('Status: 200\\n\\n' + json.dumps('fine'))\n"
            "open('/etc/passwd')\n"
        )
        answer = self.run_script(text, "--read", "/usr/lib/python3", *python_library())
        self.assertEqual(b'Status: 200\n\n"fine"\n', answer)
        self.assertRegex(self.log, "PermissionError: .*'/etc/passwd'")

    def test_a_program_is_found_in_the_path(self):
        with self.service("--confine", program=["true"]):
            self.assertIn(b"500", request(self.socket, {}))
        self.assertNotIn("Permission denied", self.log)

    def test_a_program_is_not_searched_in_a_path_that_the_request_has(self):
        """Apache, for one, sends its own."""
        with self.service("--confine", program=["true"]):
            self.assertIn(b"500", request(self.socket, {"PATH": "/nonexistent"}))
        self.assertIn("the script sent no header", self.log)

    def test_a_missing_program_is_an_error(self):
        status, log = self.refused("--confine", program=["no-such-program"])
        self.assertEqual(127, status)
        self.assertIn("no-such-program: No such file or directory", log)


def python_library() -> list[str]:
    """The options for the standard library of the system's Python."""
    version = Path("/usr/bin/python3").resolve().name
    return ["--read", f"/usr/lib/{version}"]


class OptionsTest(ConfineTest):
    def test_what_cannot_be_granted_is_an_error(self):
        for option in ("--read", "--write", "--exec"):
            status, log = self.refused(option, "/nonexistent/place")
            self.assertEqual(1, status)
            self.assertIn("/nonexistent/place: No such file or directory", log)

    def test_wrong_options_are_refused(self):
        for options, message in (
            (["--confine=yes"], "--confine=yes has no value"),
            (["--read"], "--read needs a file or a directory"),
            (["--write="], "--write= needs a file or a directory"),
            (["--read", "/"] * 65, "--read is allowed 64 times"),
        ):
            status, log = self.refused(*options)
            self.assertEqual(2, status)
            self.assertIn(message.split("=")[0], log)
            self.assertIn(message.rsplit(" ", 1)[1], log)

    def test_a_flag_takes_no_value_of_the_command_line(self):
        self.make_targets()
        results = self.attempts("--network", "--confine", *self.granted())
        self.assert_only(NETWORK, results)


class CgiTest(ConfineTest):
    """Without a service, the script is confined in its own process."""

    def run_cgi(self, query: str, options: str = "", **variables: str) -> dict[str, int]:
        environment = {"GATEWAY_INTERFACE": "CGI/1.1", "REQUEST_METHOD": "GET"}
        environment |= {"QUERY_STRING": query, "OPTIONS": options} | variables
        done = subprocess.run([PROBE], env=environment, capture_output=True, timeout=100)
        self.assertEqual((0, b""), (done.returncode, done.stderr))
        return outcomes(done.stdout)

    def test_options_of_the_program_confine_it(self):
        targets = self.make_targets()
        with self.listeners() as others:
            results = self.run_cgi("", f"read={targets['READABLE']} network", **targets, **others)
        self.assertGreater(len(results), 50)
        # The parent is this test, whose memory is not that of the probe.
        self.assert_only(NETWORK, results)

    def test_a_script_can_confine_itself_after_it_opened_its_files(self):
        targets = self.make_targets()
        self.assertEqual({"confine late": 0}, self.run_cgi("confine late", **targets))

    def test_a_script_that_cannot_be_confined_does_not_run(self):
        done = subprocess.run(
            [OLDER_KERNEL, "none", PROBE],
            env={"GATEWAY_INTERFACE": "CGI/1.1", "OPTIONS": "confine"},
            capture_output=True,
            timeout=100,
        )
        self.assertEqual((1, b""), (done.returncode, done.stdout))
        self.assertIn(b"this kernel has no Landlock", done.stderr)

    def test_confining_reports_failure(self):
        targets = self.make_targets()
        done = subprocess.run(
            [OLDER_KERNEL, "none", PROBE],
            env={"GATEWAY_INTERFACE": "CGI/1.1", "QUERY_STRING": "confine late"} | targets,
            capture_output=True,
            timeout=100,
        )
        self.assertEqual({"confine late": errno.ENOSYS}, outcomes(done.stdout))
        self.assertIn(b"this kernel has no Landlock", done.stderr)


class OlderKernelTest(ConfineTest):
    LACKS = {
        "none": "this kernel has no Landlock, which needs Linux 5.13",
        "off": "Landlock is not enabled in this kernel; see its parameter lsm",
        "no-filters": "this kernel has no seccomp filters",
    }

    def test_a_kernel_that_cannot_confine_is_refused(self):
        for kernel, message in self.LACKS.items():
            for program in (None, [PROBE]):
                status, log = self.refused("--confine", kernel=kernel, program=program)
                self.assertEqual(1, status)
                self.assertIn(f"cannot confine the script: {message}", log)

    def test_a_kernel_that_cannot_confine_is_used_when_asked(self):
        for kernel, message in self.LACKS.items():
            results = self.attempts("--confine", "--unconfined-if-unsupported", kernel=kernel)
            self.assertIn(f"the script is not fully confined: {message}", self.log)
            works, fails = "read a file", "connect by TCP"
            if kernel == "no-filters":
                works, fails = "connect by UDP", "read a file"
            self.assertEqual(0, results[works], kernel)
            self.assertNotEqual(0, results[fails], kernel)

    def test_nothing_is_reached_on_kernels_with_fewer_rules(self):
        self.make_targets()
        for version in ("1", "2", "3", "4", "5", "6"):
            for program in (None, [PROBE]):
                with self.subTest(version=version, program=program):
                    self.assert_only(
                        set(), self.attempts(*self.granted(), kernel=version, program=program)
                    )

    def test_named_files_can_be_used_on_kernels_with_fewer_rules(self):
        for version in ("1", "2", "3", "4", "5", "6"):
            targets = self.make_targets()
            with self.service(*self.granted(), kernel=version):
                between = errno.EXDEV if version == "1" else 0
                wanted = {"granted": 0, "basics": 0, "move between": between}
                self.assertEqual(wanted, self.ask("+".join(wanted), **targets), version)

    def test_signals_stay_inside_on_kernels_with_fewer_rules(self):
        for version in ("1", "5", "6"):
            self.make_targets()
            with self.listeners() as others, self.service("--confine", kernel=version):
                self.ask("signal by a file", **others)
                self.assertEqual({"kill the service": errno.EPERM}, self.ask("kill the service"))
                self.assertIsNone(self.other.poll())


class ExamplesTest(ConfineTest):
    """The examples that store data need the folder, and nothing else."""

    def test_guestbook(self):
        data = self.folder / "data"
        data.mkdir()
        form = b"name=Ada&message=Hello"
        variables = {
            "TARN_GUESTBOOK_FILE": str(data / "entries"),
            "REQUEST_METHOD": "POST",
            "CONTENT_TYPE": "application/x-www-form-urlencoded",
            "CONTENT_LENGTH": str(len(form)),
            "SCRIPT_NAME": "/guestbook",
            "HTTP_SEC_FETCH_SITE": "same-origin",
        }
        with self.service("--write", str(data), program=[f"{EXAMPLES}/guestbook"]):
            self.assertIn(b"Status: 303", request(self.socket, variables, form))
            shown = request(self.socket, variables | {"REQUEST_METHOD": "GET"})
        self.assertIn(b"Ada", shown)
        self.assertEqual("", self.log)

    def test_counter(self):
        data = self.folder / "data"
        data.mkdir()
        variables = {"TARN_COUNTER_FILE": str(data / "count")}
        with self.service("--write", str(data), program=[f"{EXAMPLES}/counter"]):
            for _ in range(3):
                answer = request(self.socket, variables)
        self.assertIn(b"<strong>3</strong>", answer)
        self.assertEqual("", self.log)

    def test_upload(self):
        data = self.folder / "data"
        data.mkdir()
        content = os.urandom(5_000_000)
        body = (
            b'--XYZ\r\nContent-Disposition: form-data; name="file"; filename="a.bin"\r\n\r\n'
            + content
            + b"\r\n--XYZ--\r\n"
        )
        variables = {
            "TARN_UPLOAD_DIR": str(data),
            "TMPDIR": str(data),
            "REQUEST_METHOD": "POST",
            "CONTENT_TYPE": "multipart/form-data; boundary=XYZ",
            "CONTENT_LENGTH": str(len(body)),
            "SCRIPT_NAME": "/upload",
            "HTTP_SEC_FETCH_SITE": "same-origin",
        }
        with self.service("--write", str(data), program=[f"{EXAMPLES}/upload"]):
            answer = request(self.socket, variables, body)
            self.assertIn(b"saved as a.bin", answer)
            variables |= {
                "REQUEST_METHOD": "GET",
                "CONTENT_LENGTH": "",
                "QUERY_STRING": "file=a.bin",
            }
            self.assertEqual(content, request(self.socket, variables).partition(b"\n\n")[2])
        self.assertEqual(content, (data / "a.bin").read_bytes())
        self.assertEqual("", self.log)


if __name__ == "__main__":
    unittest.main()
