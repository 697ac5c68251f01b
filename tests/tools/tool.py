"""tarn-run, and scripts for it to run."""

import os
import subprocess
import tempfile
import textwrap
import unittest
from pathlib import Path
from typing import NamedTuple

from servers import Lighttpd

TOOLS = Path(os.environ["TOOLS"])

# The environment byte for byte, as the kernel has it, and the body.
DUMP = r"""
    #!/bin/sh
    printf 'Content-Type: application/octet-stream\r\n\r\n'
    cat "/proc/$$/environ"
    printf '\0'
    cat
"""


class Run(NamedTuple):
    status: int
    output: bytes
    errors: list  # lines

    @property
    def body(self):
        return self.output.partition(b"\n\n")[2]


class Request(NamedTuple):
    """What a script was given."""

    environment: dict
    body: bytes


def dumped(body):
    variables, _, rest = body.partition(b"\0\0")
    return Request(dict(line.split(b"=", 1) for line in variables.split(b"\0")), rest)


def living(process):
    try:
        state = Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0]
    except FileNotFoundError:
        return False
    return state not in "ZX"


class ToolTest(unittest.TestCase):
    """Tests that share a folder, the scripts in which run under lighttpd too where one says so."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="tarn-tools-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.dump = cls.script("dump", DUMP)

    @classmethod
    def serve(cls, **scripts):
        cls.server = cls.enterClassContext(Lighttpd(scripts))

    @classmethod
    def file(cls, name, content):
        path = cls.folder / name
        path.write_bytes(content.encode() if isinstance(content, str) else content)
        return path

    @classmethod
    def script(cls, name, lines):
        path = cls.file(name, textwrap.dedent(lines).lstrip("\n"))
        path.chmod(0o755)
        return path

    def run_tool(self, *arguments, **options):
        options = {"stdin": subprocess.DEVNULL} | options
        if "input" in options:
            del options["stdin"]
        ran = subprocess.run(
            [TOOLS / "tarn-run", *arguments],
            capture_output=True,
            timeout=60,
            cwd=self.folder,
            check=False,
            **options,
        )
        return Run(ran.returncode, ran.stdout, ran.stderr.decode().splitlines())

    def given(self, *options, **more):
        """What the script is given; nothing is complained about."""
        ran = self.run_tool(*options, self.dump, **more)
        self.assertEqual((ran.status, ran.errors), (0, []))
        return dumped(ran.body)

    def refused(self, *arguments, status=125):
        """The first line of the message."""
        ran = self.run_tool(*arguments)
        self.assertEqual((ran.status, ran.output), (status, b""))
        self.assertTrue(ran.errors)
        return ran.errors[0]
