#!/usr/bin/env python3
"""How tarn-run runs a script: with limits, repeatedly, and when tarn-run itself is killed."""

import os
import re
import resource
import signal
import subprocess
import time
import unittest

from tool import TOOLS, ToolTest, is_running

HEAD = "#!/bin/sh\nprintf 'Content-Type: text/plain\\n\\n'\n"

# Starts two more processes. One is in another process group and ignores SIGTERM.
LASTING = r"""
    #!/bin/sh
    printf 'Content-Type: text/plain\n\n'
    sleep 1000 & echo $! >>started
    setsid sh -c 'trap "" TERM; echo $$ >>started; while :; do sleep 1000; done' &
    echo $$ >>started
    wait
"""


class Limits(ToolTest):
    def test_timeout_stops_the_script_and_its_child_processes(self):
        script = self.write_script("lasting", LASTING)
        # On a busy machine, three processes take a while to start.
        ran = self.run_tool("--timeout", "4.5", script)
        self.assertEqual(
            (ran.status, ran.output), (124, b"HTTP/1.1 200 OK\nContent-Type: text/plain\n\n")
        )
        self.assertEqual(
            ran.errors, ["tarn-run: the script took longer than 4.5 s and was stopped"]
        )
        started = [int(line) for line in (self.folder / "started").read_text().split()]
        self.assertEqual(len(started), 3)
        self.assertEqual([process for process in started if is_running(process)], [])

    def test_timeout_without_output_is_504(self):
        script = self.write_script("silent", "#!/bin/sh\nexec sleep 1000\n")
        ran = self.run_tool("--timeout", ".2", script)
        self.assertEqual((ran.status, ran.output), (124, b"HTTP/1.1 504 Gateway Timeout\n\n"))
        self.assertEqual(
            ran.errors,
            [
                "tarn-run: the script printed nothing; a server would answer 504",
                "tarn-run: the script took longer than 0.2 s and was stopped",
            ],
        )

    def test_timeout_stops_a_script_that_prints_forever(self):
        script = self.write_script("endless", HEAD + "while :; do echo y; done\n")
        ran = self.run_tool("--timeout", "3", "--body", script)
        self.assertEqual(ran.status, 124)
        self.assertTrue(ran.output.startswith(b"y\ny\n"))

    def test_script_within_the_timeout_is_not_affected(self):
        ran = self.run_tool("--timeout", "999999999", self.dump)
        self.assertEqual((ran.status, ran.errors), (0, []))

    def test_memory_limit_applies_to_the_script(self):
        script = self.write_script("limit", HEAD + "ulimit -v\n")
        for size, kilobytes in (
            ("64M", 65536),
            ("1G", 1048576),
            ("65536K", 65536),
            ("67108864", 65536),
        ):
            ran = self.run_tool("--memory", size, "--body", script)
            self.assertEqual((ran.output, ran.errors), (b"%d\n" % kilobytes, []))
        ran = self.run_tool("--body", script)
        self.assertEqual(ran.output, b"unlimited\n")

    def test_memory_limit_too_low_for_the_script_is_reported(self):
        ran = self.run_tool("--memory", "1", self.dump)
        self.assertNotEqual(ran.status, 0)
        self.assertRegex(ran.errors[-1], "tarn-run: (killed by signal|.*: Cannot allocate memory)")

    def test_memory_limit_above_that_of_tarn_run_is_reported(self):
        low = 1 << 30
        ran = self.run_tool(
            "--memory",
            "2G",
            self.dump,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (low, low)),
        )
        self.assertEqual(
            (ran.status, ran.errors),
            (
                125,
                [f"tarn-run: --memory: exceeds the limit of {low} bytes that tarn-run itself has"],
            ),
        )


class Folder(ToolTest):
    def test_script_can_run_in_another_folder(self):
        script = self.write_script("where", HEAD + "pwd -P\n")
        (self.folder / "inner").mkdir()
        for folder in ("inner", str(self.folder / "inner")):
            ran = self.run_tool("--chdir", folder, "--body", "./where")
            self.assertEqual(
                (ran.output.decode(), ran.errors), (f'{(self.folder / "inner").resolve()}\n', [])
            )
        self.refusal_message("--chdir", "where", script)


class Repeated(ToolTest):
    def test_repeats_as_often_as_requested_and_prints_times(self):
        script = self.write_script("counting", HEAD + "echo run >>runs\ncat\n")
        ran = self.run_tool("--repeat", "7", "-d", "a=1", "--body", script)
        self.assertEqual((ran.status, ran.output), (0, b"a=1"))
        self.assertEqual((self.folder / "runs").read_text(), "run\n" * 7)
        self.assertEqual(len(ran.errors), 1)
        found = re.fullmatch(
            r"tarn-run: 7 of 7 runs: ([\d.]+) to ([\d.]+) ms, median ([\d.]+) ms;"
            r" ([\d.]+) ms of processor time each",
            ran.errors[0],
        )
        least, most, median, processor = map(float, found.groups())
        self.assertTrue(0 < least <= median <= most, ran.errors)
        self.assertGreater(processor, 0)

    def test_median_of_two_runs_is_their_mean(self):
        script = self.write_script(
            "slower",
            HEAD + "echo run >>slower-runs\n" '[ "$(wc -l <slower-runs)" -ne 2 ] || sleep 0.2\n',
        )
        ran = self.run_tool("--repeat", "2", script)
        least, most, median = map(
            float,
            re.search(
                r"runs: ([\d.]+) to ([\d.]+) ms, median ([\d.]+) ms;", ran.errors[0]
            ).groups(),
        )
        self.assertLess(least, most)
        self.assertAlmostEqual(median, (least + most) / 2, delta=0.11)  # the figures are rounded

    def test_repeating_stops_at_the_first_failure(self):
        script = self.write_script(
            "failing",
            HEAD + "echo run >>failing-runs\n" '[ "$(wc -l <failing-runs)" -lt 3 ] || exit 5\n',
        )
        ran = self.run_tool("--repeat", "9", script)
        self.assertEqual(ran.status, 5)
        self.assertEqual(len(ran.errors), 2)
        self.assertEqual(
            ran.errors[0], "tarn-run: the script failed (status 5) after it had answered"
        )
        self.assertTrue(ran.errors[1].startswith("tarn-run: 3 of 9 runs: "))

    def test_different_output_between_runs_is_reported(self):
        script = self.write_script(
            "different",
            HEAD + "echo run >>different-runs\n"
            '[ "$(wc -l <different-runs)" -ne 2 ] || echo more\n',
        )
        ran = self.run_tool("--repeat", "3", script)
        self.assertEqual(ran.errors[1:], ["tarn-run: run 2 printed something different from run 1"])


class Ended(ToolTest):
    def send_signal(self, number, *options):
        """Sends a signal to tarn-run while its script has child processes running."""
        started = self.folder / "started"
        started.unlink(missing_ok=True)
        script = self.write_script("lasting", LASTING)
        with subprocess.Popen(
            [TOOLS / "tarn-run", *options, script],
            cwd=self.folder,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            preexec_fn=reset_signals,
        ) as process:
            while not started.exists() or started.read_text().count("\n") < 3:
                time.sleep(0.01)
            process.send_signal(number)
            output, errors = process.communicate(timeout=60)
        processes = [int(line) for line in started.read_text().split()]
        self.assertEqual(len(processes), 3)
        return process.returncode, output, errors, [each for each in processes if is_running(each)]

    def test_signal_stops_the_script_and_its_child_processes(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT):
            self.assertEqual(self.send_signal(number), (-number, b"", b"", []))
        self.assertEqual(
            self.send_signal(signal.SIGTERM, "--exec", "sh -c '\"$@\"' sh", "-i"),
            (-signal.SIGTERM, b"", b"", []),
        )

    def test_ignored_signal_stays_ignored(self):
        script = self.write_script("short", HEAD + "kill -HUP $PPID\necho done\n")
        ran = self.run_tool(
            "--body", script, preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN)
        )
        self.assertEqual((ran.status, ran.output, ran.errors), (0, b"done\n", []))

    def test_signal_during_startup_prints_no_traceback(self):
        script = self.write_script("short", HEAD + "sleep 0.02\n")
        for milliseconds in range(0, 120, 8):
            for number in (signal.SIGINT, signal.SIGTERM):
                with subprocess.Popen(
                    [TOOLS / "tarn-run", "-d", "a", script],
                    stdin=subprocess.DEVNULL,
                    stdout=subprocess.PIPE,
                    stderr=subprocess.PIPE,
                    preexec_fn=reset_signals,
                ) as process:
                    time.sleep(milliseconds / 1000)
                    process.send_signal(number)
                    _, errors = process.communicate(timeout=60)
                self.assertIn(process.returncode, (0, -number))
                self.assertEqual(errors, b"")


def reset_signals():
    """Resets these signals, since the caller of the tests may ignore them."""
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)


class Output(ToolTest):
    """Output to a stream that is closed, full or not read."""

    def run_redirected(self, redirections, *options):
        """Runs tarn-run with these redirections."""
        command = f'exec "$0" "$@" {redirections}'
        return subprocess.run(
            ["sh", "-c", command, TOOLS / "tarn-run", *options],
            cwd=self.folder,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=60,
            check=False,
            text=True,
        )

    def test_closed_standard_output_is_reported(self):
        for options in (["dump"], ["--help"], ["--version"], ["-i", "dump"], ["none"]):
            ran = self.run_redirected(">&-", *options)
            self.assertEqual(
                (ran.returncode, ran.stderr), (125, "tarn-run: standard output is closed\n")
            )

    def test_full_standard_output_is_reported(self):
        self.run_tool("--record", "full", "dump")
        for options in (
            ["dump"],
            ["--help"],
            ["--version"],
            ["--body", "dump"],
            ["--show", "full"],
        ):
            ran = self.run_redirected(">/dev/full", *options)
            self.assertEqual(
                (ran.returncode, ran.stderr),
                (125, "tarn-run: standard output: No space left on device\n"),
            )
        ran = self.run_redirected(">/dev/full", "-i", "dump")
        self.assertEqual(
            (ran.returncode, ran.stderr.splitlines()[-1]),
            (125, "tarn-run: curl failed (status 23)"),
        )

    def test_standard_error_may_be_closed_or_full(self):
        for errors in ("2>&-", "2>/dev/full"):
            ran = self.run_redirected(errors, self.write_script("bare", "#!/bin/sh\necho hello\n"))
            self.assertEqual(
                (ran.returncode, ran.stdout), (0, "HTTP/1.1 500 Internal Server Error\n\nhello\n")
            )
            ran = self.run_redirected(errors, "--nothing")
            self.assertEqual((ran.returncode, ran.stdout), (125, ""))
        self.assertEqual(self.run_redirected(">&- 2>&-", "dump").returncode, 125)

    def test_closed_streams_are_not_mistaken_for_other_files(self):
        ran = self.run_redirected("<&- 2>&-", "-d", "@-", "dump")
        self.assertEqual((ran.returncode, ran.stderr), (0, ""))
        self.assertIn("CONTENT_LENGTH=0", ran.stdout)

    def test_broken_pipe_ends_tarn_run_without_a_traceback(self):
        script = self.write_script("large", HEAD + "head -c 3000000 /dev/zero\n")
        for options in ([], ["--body"], ["--repeat", "2"]):
            ran = subprocess.run(
                [
                    "bash",
                    "-c",
                    '"$@" | head -c 1; exit "${PIPESTATUS[0]}"',
                    "bash",
                    TOOLS / "tarn-run",
                    *options,
                    script,
                ],
                capture_output=True,
                timeout=60,
                check=False,
                text=True,
            )
            self.assertEqual(ran.returncode, 128 + signal.SIGPIPE)
            self.assertNotIn("Traceback", ran.stderr)

    def test_slow_reader_gets_everything(self):
        script = self.write_script("large", HEAD + "head -c 3000000 /dev/zero\n")
        read, write = os.pipe()
        os.set_blocking(write, False)
        with open(read, "rb") as stream:
            with subprocess.Popen([TOOLS / "tarn-run", "--body", script], stdout=write) as process:
                os.close(write)
                self.assertEqual(stream.read(), bytes(3000000))
            self.assertEqual(process.returncode, 0)


class TemporaryFiles(ToolTest):
    def test_temporary_files_are_not_needed(self):
        body = bytes(3000000)
        given = self.request_received(
            "--data-binary", "@-", input=body, env={**os.environ, "TMPDIR": "/dev/null/none"}
        )
        self.assertEqual(given.body, body)


if __name__ == "__main__":
    unittest.main()
