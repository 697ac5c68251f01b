#!/usr/bin/env python3
"""An example of the reference prints what the reference shows, and calls each function it names.

Usage: examples_test.py SOURCE PROGRAM VERSION-SCRIPT

The commands of the transcript beside the source are run by a shell, beside the program; each has to
print what stands below it. The dynamic linker tells which functions are called.
"""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path


def main():
    source, program, version_script = map(Path, sys.argv[1:])
    exports = re.findall(r"^    (\w+);$", version_script.read_text(), re.MULTILINE)
    transcript = source.with_suffix(".txt")
    shown = transcript.read_text()
    named = set(re.findall(r"\b(\w+)\(", source.read_text())) & set(exports)
    commands = re.findall(r"^\$ ((?:.*\\\n)*.*)\n", shown, re.MULTILINE)
    if not any(f"./{program.name}" in command for command in commands):
        sys.exit(f"{transcript} does not call ./{program.name}")
    # Before a command runs, it is printed as the transcript has it.
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
                "LD_DEBUG": "bindings",
                "LD_DEBUG_OUTPUT": f"{folder}/linked",
            },
            stdout=subprocess.PIPE,
        )
        linked = "".join(file.read_text() for file in Path(folder).glob("linked.*"))
    printed = shell.stdout.decode().replace("\r\n", "\n")
    if shell.returncode != 0 or printed != shown:
        sys.exit(f"{transcript} shows:\n{shown}\nStatus {shell.returncode}, printed:\n{printed}")
    called = set(re.findall(rf"binding file \./{program.name} .* symbol `(\w+)\'", linked))
    # In C++ the header makes the calls.
    if (not named and source.suffix == ".c") or named - called:
        sys.exit(f'{source} names, and does not call: {", ".join(sorted(named - called))}')


main()
