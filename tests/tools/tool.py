"""Runs tarn-run, and writes scripts for it to run."""

import os
import subprocess
import tempfile
import textwrap
import unittest
from pathlib import Path
from typing import Any, NamedTuple

from servers import Lighttpd

TOOLS = Path(os.environ["TOOLS"])

# Prints the environment byte for byte, as the kernel has it, then the body.
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
    errors: list[str]  # lines

    @property
    def body(self) -> bytes:
        return self.output.partition(b"\n\n")[2]


class Request(NamedTuple):
    """The request that a script received."""

    environment: dict[bytes, bytes]
    body: bytes


def parse_dump(body: bytes) -> Request:
    variables, _, rest = body.partition(b"\0\0")
    pairs = (line.partition(b"=") for line in variables.split(b"\0"))
    return Request({name: value for name, _, value in pairs}, rest)


def is_running(process: int | str) -> bool:
    try:
        state = Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0]
    except FileNotFoundError:
        return False
    return state not in "ZX"


class ToolTest(unittest.TestCase):
    """Tests that share a folder of scripts; serve() runs them under lighttpd too."""

    folder: Path
    dump: Path
    server: Lighttpd

    @classmethod
    def setUpClass(cls) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tarn-tools-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.dump = cls.write_script("dump", DUMP)

    @classmethod
    def serve(cls, **scripts: Path) -> None:
        cls.server = cls.enterClassContext(Lighttpd(scripts))

    @classmethod
    def write_file(cls, name: str, content: str | bytes) -> Path:
        path = cls.folder / name
        path.write_bytes(content.encode() if isinstance(content, str) else content)
        return path

    @classmethod
    def write_script(cls, name: str, lines: str) -> Path:
        path = cls.write_file(name, textwrap.dedent(lines).lstrip("\n"))
        path.chmod(0o755)
        return path

    def run_tool(self, *arguments: str | Path, **options: Any) -> Run:
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

    def request_received(self, *options: str | Path, **more: Any) -> Request:
        """The request that the script receives. tarn-run must report no fault."""
        ran = self.run_tool(*options, self.dump, **more)
        self.assertEqual((ran.status, ran.errors), (0, []))
        return parse_dump(ran.body)

    def refusal_message(self, *arguments: str | Path, status: int = 125) -> str:
        """The first line of the error message."""
        ran = self.run_tool(*arguments)
        self.assertEqual((ran.status, ran.output), (status, b""))
        self.assertTrue(ran.errors)
        return ran.errors[0]
