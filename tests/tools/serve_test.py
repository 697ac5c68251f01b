#!/usr/bin/env python3
"""What tarn-serve does without a socket, and which command lines it refuses."""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

# Programs, and why they cannot be started.
MISSING = (
    ("no-such-program", 127, "No such file or directory"),
    ("/", 126, "Permission denied"),
    ("", 127, "No such file or directory"),
)

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

    def test_a_program_that_cannot_be_started_has_the_status_of_shells(self):
        for program, status, reason in MISSING:
            ran = run(program)
            self.assertEqual(
                (ran.returncode, ran.stderr), (status, f"tarn-serve: {program}: {reason}\n")
            )


class AsAService(unittest.TestCase):
    def test_a_program_that_cannot_be_started_is_refused(self):
        with tempfile.TemporaryDirectory() as folder:
            plain = Path(folder, "plain")
            plain.write_text("#!/bin/sh\n")
            plain.chmod(0o644)
            loop = Path(folder, "loop")
            loop.symlink_to("loop")
            for program, status, reason in (
                *MISSING,
                (str(plain), 126, "Permission denied"),
                (f"{plain}/x", 127, "Not a directory"),
                (str(loop), 126, "Too many levels of symbolic links"),
            ):
                for options in ((), ("--read", "/usr")):
                    with self.subTest(program=program, options=options):
                        ran = run("--listen", f"unix:{folder}/socket", *options, "--", program)
                        self.assertEqual(
                            (ran.returncode, ran.stderr),
                            (status, f"tarn-serve: {program}: {reason}\n"),
                        )
                        self.assertEqual(sorted(os.listdir(folder)), ["loop", "plain"])

    def test_an_address_that_is_wrong_is_explained(self):
        for address, problem in (
            ("unix:", "the path after unix: must have 1 to 107 bytes"),
            ("unix:/" + "x" * 107, "the path after unix: must have 1 to 107 bytes"),
            ("tcp:nonsense", "the address must be tcp:IPV4:PORT or tcp:[IPV6]:PORT, such as"
             " tcp:127.0.0.1:9000 or tcp:[::1]:9000"),
            ("nonsense", "the address must begin with unix: or tcp:"),
            ("", "the address must begin with unix: or tcp:"),
        ):  # fmt: skip
            for options in (
                ("--listen", address),
                ("--listen", "tcp:127.0.0.1:0", "--status", address),
            ):
                if not address and "--status" in options:
                    continue
                with self.subTest(options):
                    ran = run(*options, "true")
                    self.assertEqual(
                        (ran.returncode, ran.stderr), (1, f"tarn-serve: '{address}': {problem}\n")
                    )
        ran = run("--listen", "unix:/nonexistent/socket", "true")
        self.assertEqual(ran.returncode, 1)
        self.assertRegex(ran.stderr, r"\Atarn-serve: unix:/nonexistent/.*: No such file.*\n\Z")


class Help(unittest.TestCase):
    def test_and_the_version_are_options_like_others(self):
        help_text = run("--help").stdout
        self.assertTrue(help_text.startswith("Usage: tarn-serve [OPTION]... "))
        version = run("-V").stdout
        self.assertRegex(version, r"\Atarn-serve [0-9.]+\n\Z")
        for before in (
            (),
            ("--children", "4"),
            ("--children=4", "--confine", "--listen", "unix:/a"),
            ("--confine",),
        ):
            for after in ((), ("--nothing",), ("true",), ("--", "true")):
                for asked, output in (
                    ("--help", help_text),
                    ("-h", help_text),
                    ("--version", version),
                    ("-V", version),
                ):
                    with self.subTest((*before, asked, *after)):
                        ran = run(*before, asked, *after)
                        self.assertEqual((ran.returncode, ran.stdout, ran.stderr), (0, output, ""))

    def test_that_cannot_be_written_is_reported(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("there is no /dev/full")
        for asked in ("--help", "--version"):
            with open("/dev/full", "wb") as full:
                ran = subprocess.run([TARN_SERVE, asked], stdout=full, check=False, timeout=100)
            self.assertEqual(ran.returncode, 1, asked)

    def test_is_an_argument_of_the_program_after_its_name(self):
        for before in (("--children", "4"), ("--children=4", "--"), ("--",), ()):
            for asked in ("--help", "-h", "--version", "-V"):
                with self.subTest((*before, asked)):
                    self.assertEqual(run(*before, "printf", "%s", asked).stdout, asked)

    def test_comes_after_what_is_wrong_before_it(self):
        for wrong, message in (
            (("--children", "x"), "--children needs a number from 1 to 1000000000"),
            (("--nothing",), "--nothing is not an option"),
            (("-x",), "-x is not an option; see tarn-serve --help"),
            # It is no value of another option.
            (("--children",), "--children needs a value"),
        ):
            ran = run(*wrong, "--help")
            self.assertEqual(
                (ran.returncode, ran.stdout, ran.stderr), (2, "", f"tarn-serve: {message}\n")
            )


class WrongCommandLines(unittest.TestCase):
    def check(self, message: str, *arguments: str, **variables: str) -> None:
        ran = run(*arguments, **variables)
        self.assertEqual(
            (ran.returncode, ran.stdout, ran.stderr), (2, "", f"tarn-serve: {message}\n")
        )

    def test_have_no_program(self):
        for arguments in ((), ("--",), ("--children", "8"), ("--children", "8", "--")):
            self.check("no program given; see tarn-serve --help", *arguments)

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
