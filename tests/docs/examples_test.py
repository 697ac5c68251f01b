#!/usr/bin/env python3
"""The example of a manual page prints what the page shows.

Usage: examples_test.py TRANSCRIPT PROGRAM

The commands of the transcript are run by a shell, beside the program; each has to print what stands
below it.
"""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path


def main():
    transcript, program = map(Path, sys.argv[1:])
    shown = transcript.read_text()
    commands = re.findall(r'^\$ ((?:.*\\\n)*.*)\n', shown, re.MULTILINE)
    if not any(f'./{program.name}' in command for command in commands):
        sys.exit(f'{transcript} does not call ./{program.name}')
    # Before a command runs, it is printed as the transcript has it.
    script = 'set -eu -o pipefail\n' + ''.join(
        f"cat <<'END'\n$ {command}\nEND\n{command}\n" for command in commands)
    with tempfile.TemporaryDirectory() as folder:
        (Path(folder) / program.name).symlink_to(program)
        shell = subprocess.run(['bash', '-c', script], cwd=folder, stdin=subprocess.DEVNULL,
                               env={'PATH': os.environ['PATH']}, stdout=subprocess.PIPE)
    printed = shell.stdout.decode().replace('\r\n', '\n')
    if shell.returncode != 0 or printed != shown:
        sys.exit(f'{transcript} shows:\n{shown}\nStatus {shell.returncode}, printed:\n{printed}')


main()
