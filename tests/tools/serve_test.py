#!/usr/bin/env python3
"""What tarn-serve does without a socket, and which command lines it refuses."""

import os
import subprocess
import unittest
from pathlib import Path

TARN_SERVE = Path(os.environ["TOOLS"]) / "tarn-serve"


def run(*arguments: str, **variables: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [TARN_SERVE, *arguments], env={"PATH": os.environ["PATH"], **variables},
        stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False, timeout=100,
    )  # fmt: skip


class WithoutASocket(unittest.TestCase):
    def test_the_program_runs_once(self):
        ran = run("--children", "8", "sh", "-c", "echo $0 ${HTTP_PROXY-none}; exit 3", "a")
        self.assertEqual((ran.returncode, ran.stdout, ran.stderr), (3, "a none\n", ""))
        ran = run("--", "printenv", "HTTP_PROXY", HTTP_PROXY="evil")
        self.assertEqual((ran.returncode, ran.stdout), (1, ""))

    def test_a_program_that_cannot_be_started_is_status_127(self):
        for program, reason in (
            ("no-such-program", "No such file or directory"),
            ("/", "Permission denied"),
        ):
            ran = run(program)
            self.assertEqual(
                (ran.returncode, ran.stderr), (127, f"tarn-serve: {program}: {reason}\n")
            )


class WrongCommandLines(unittest.TestCase):
    def check(self, message: str, *arguments: str, **variables: str) -> None:
        ran = run(*arguments, **variables)
        self.assertEqual(
            (ran.returncode, ran.stdout, ran.stderr), (2, "", f"tarn-serve: {message}\n")
        )

    def test_have_no_program(self):
        for arguments in ((), ("--",), ("--children", "8"), ("--children", "8", "--")):
            self.check("names no program; see tarn-serve --help", *arguments)

    def test_have_an_unknown_option(self):
        for arguments in (("-x", "true"), ("--children", "8", "-x", "true"), ("-", "true")):
            option = arguments[-2]
            self.check(f"{option} is not an option; see tarn-serve --help", *arguments)
        self.check("--child is not an option", "--child", "8", "true")
        ran = run("--", "-x")
        self.assertEqual(
            (ran.returncode, ran.stderr), (127, "tarn-serve: -x: No such file or directory\n")
        )

    def test_are_those_of_a_cgi_script(self):
        """A visitor can choose them."""
        self.check("cannot run as a CGI script", "true", GATEWAY_INTERFACE="CGI/1.1")


if __name__ == "__main__":
    unittest.main()
