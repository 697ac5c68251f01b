#!/usr/bin/env python3
"""Checks that an example of the reference prints what the reference shows, and calls each function
that its source names.

Usage: examples_test.py SOURCE PROGRAM [VERSION-SCRIPT]

The source ends with a transcript in a comment. A shell runs the commands of the transcript in a
folder with the program. Each must print what the transcript shows below it. The dynamic linker
reports the functions called; for a static program there is no version script and no report.
"""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

from tree import program_and_transcript


def main():
    source, program, *version_scripts = map(Path, sys.argv[1:])
    exports = [
        name
        for script in version_scripts
        for name in re.findall(r"^    (\w+);$", script.read_text(), re.MULTILINE)
    ]
    code, shown = program_and_transcript(source)
    named = set(re.findall(r"\b(\w+)\(", code)) & set(exports)
    commands = re.findall(r"^\$ ((?:.*\\\n)*.*)\n", shown, re.MULTILINE)
    if not any(f"./{program.name}" in command for command in commands):
        sys.exit(f"the output in {source} has no call of ./{program.name}")
    # The shell prints each command before it runs it, as the transcript does.
    script = "set -eu -o pipefail\n" + "".join(
        f"cat <<'END'\n$ {command}\nEND\n{command}\n" for command in commands
    )
    with tempfile.TemporaryDirectory() as folder:
        (Path(folder) / program.name).symlink_to(program)
        shell = subprocess.run(
            ["bash", "-c", script],
            cwd=folder,
            stdin=subprocess.DEVNULL,
            env={
                "PATH": os.environ["PATH"],
                "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", ""),
                "LD_DEBUG": "bindings",
                "LD_DEBUG_OUTPUT": f"{folder}/linked",
            },
            stdout=subprocess.PIPE,
        )
        linked = "".join(file.read_text() for file in Path(folder).glob("linked.*"))
    printed = shell.stdout.decode().replace("\r\n", "\n")
    if shell.returncode != 0 or printed != shown:
        sys.exit(f"{source} shows:\n{shown}\nStatus {shell.returncode}, printed:\n{printed}")
    called = set(re.findall(rf"binding file \./{program.name} .* symbol `(\w+)\'", linked))
    # In C++ it is the header that calls the functions.
    named_none = version_scripts and not named and source.suffix == ".c"
    if named_none or named - called:
        sys.exit(f'{source} names, and does not call: {", ".join(sorted(named - called))}')


main()
