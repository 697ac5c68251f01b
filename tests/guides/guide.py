#!/usr/bin/env python3
"""Runs a guide as printed: writes its files, runs its commands and compares their output.

Of a guide's fenced blocks, one that begins with

  ```c greet.c    (a language and a name) is a file of that name in the guide's folder;
  ```console      has commands after "$ ", continued after "> ". Each is followed by its output,
                  standard output and standard error together. "…" matches any text within a line,
                  or any lines if it is alone on a line;

and all others are ignored. A single bash runs the blocks in order, in a new folder, as a user with
Tarn installed and its source in ~/tarn, and in a network namespace of its own. Every command must
succeed, and none may leave a process behind. Links must lead to files that exist, and `name(3)`
must be one of Tarn's manual pages.

A page with a comment

  <!-- files: FOLDER -->

prints all configurations in that folder, and these blocks must match the files.
"""

import argparse
import ctypes
import difflib
import os
import re
import secrets
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import NamedTuple

SOURCE = Path(__file__).resolve().parents[2]
# Ends a guide that waits for ever. One builds everything, beside other builds.
SECONDS_TO_RUN = 1500
# How long processes have to end after SIGTERM.
SECONDS_TO_END = 60.0
NO_STATUS = -1
PR_SET_CHILD_SUBREAPER = 36
ORDINARY_USER = "www-data"
SKIPPED = 77
CONFIGURATIONS = ("*.conf", "*.cfg", "*.sh", "*.yaml", "Containerfile")
FOLDER_OF_FILES = re.compile(r"<!-- files: (\S+) -->")


class Wrong(Exception):
    """A fault in a guide: line number, text."""


class File(NamedTuple):
    line: int
    name: str
    text: str


class Command(NamedTuple):
    line: int
    text: str
    shown: slice  # the lines of the page that show its output


Step = File | Command
Page = list[str]  # lines


# ---- Reading a guide -----------------------------------------------------------------------------


def blocks(page: Page) -> Iterator[tuple[str, int, int]]:
    """The fenced blocks: info string, index of the first line, index of the closing fence."""
    start = None
    for index, line in enumerate(page):
        if start is None and line.lstrip().startswith("```"):
            if line != line.lstrip():
                raise Wrong(index + 1, "a fence must start at the margin")
            start = index + 1
        elif start is not None and line == "```":
            yield page[start - 1].removeprefix("```").strip(), start, index
            start = None
    if start is not None:
        raise Wrong(start, "this block does not end")


def commands(page: Page, index: int, end: int) -> Iterator[Command]:
    def skip_while(condition: Callable[[str], bool]) -> slice:
        nonlocal index
        first = index
        while index < end and condition(page[index]):
            index += 1
        return slice(first, index)

    while index < end:
        if not page[index].startswith("$ "):
            raise Wrong(index + 1, 'a block of commands begins with "$ "')
        first = index
        index += 1
        continued = skip_while(lambda line: line.startswith("> "))
        text = "\n".join(line[2:] for line in page[first : continued.stop])
        yield Command(first + 1, text, skip_while(lambda line: not line.startswith("$ ")))


def steps(page: Page) -> list[Step]:
    found: list[Step] = []
    for info, start, end in blocks(page):
        words = info.split()
        if words == ["console"]:
            found += commands(page, start, end)
        elif len(words) == 2:
            found.append(File(start, words[1], "".join(line + "\n" for line in page[start:end])))
    return found


def check_links(guide: Path, page: Page, manual: Path) -> None:
    prose = list(page)
    for _, start, end in blocks(page):
        prose[start:end] = [""] * (end - start)
    for number, line in enumerate(prose, 1):
        for link in re.findall(r"\]\((?!https?:)([^)#]+)[^)]*\)", line):
            if not (guide.parent / link).exists():
                raise Wrong(number, f"{link} does not exist")
        for name, section in re.findall(r"`([\w-]+)\((\d)\)`", line):
            if not (manual / f"man{section}/{name}.{section}").exists():
                raise Wrong(number, f"{name}({section}) is not a manual page")
    if guide.name == "README.md":
        for other in guide.parent.glob("*.md"):
            if other != guide and not any(f"]({other.name})" in line for line in prose):
                raise Wrong(1, f"the index has no link to {other.name}")


def folder_of_files(guide: Path, page: Page) -> Path | None:
    """The folder whose configurations the page prints, or None."""
    for number, line in enumerate(page, 1):
        if found := FOLDER_OF_FILES.fullmatch(line):
            folder = guide.parent / found[1]
            if not folder.is_dir():
                raise Wrong(number, f"{found[1]} is not a folder")
            return folder
    return None


def page_with_files(page: Page, folder: Path) -> tuple[Page, list[int]]:
    """The page with the configurations copied from the folder, and the lines of the blocks that
    differed."""
    files = {path.name: path for pattern in CONFIGURATIONS for path in folder.glob(pattern)}
    if not files:
        raise Wrong(1, f"{folder} has no configurations")
    printed, differ = list(page), []
    for step in reversed(steps(page)):
        if isinstance(step, File) and (path := files.pop(step.name, None)):
            text = path.read_text(encoding="utf-8")
            if text != step.text:
                printed[step.line : step.line + step.text.count("\n")] = text.splitlines()
                differ.append(step.line)
    if files:
        raise Wrong(1, f"the page does not print {', '.join(sorted(files))}")
    return printed, differ[::-1]


# ---- Running it ----------------------------------------------------------------------------------


def shell_script(todo: list[Step], copies: Path, mark: str) -> str:
    """A bash script that prints the mark and the status after each step and stops at a failure."""
    script = []
    for number, step in enumerate(todo):
        if isinstance(step, File):
            copy = copies / str(number)
            copy.write_text(step.text, encoding="utf-8")
            script.append(f"install -D -m 644 {copy} {shlex.quote(step.name)}")
        else:
            script.append(f"eval {shlex.quote(step.text)}")
        script.append(f'_status=$?; printf "{mark} %d\\n" $_status; ((_status == 0)) || exit')
    return "\n".join(script) + "\n"


def user_environment(home: Path, installed: Path) -> dict[str, str]:
    return {
        "HOME": str(home),
        "LANG": "C.UTF-8",
        "PATH": f"{installed}/bin:/usr/local/bin:/usr/bin:/bin",
        "LD_LIBRARY_PATH": f"{installed}/lib",
        "PKG_CONFIG_PATH": f"{installed}/lib/pkgconfig",
    }


def own_network(run_by: str = "") -> list[str]:
    """A prefix that runs a command as an ordinary user in a network where every port is free, or
    without that network if the system does not allow one. Root can choose to run the command as
    root, or as a real ordinary user."""
    rights = [] if os.getuid() == 0 else ["--map-root-user"]
    then = "exec unshare --map-user=1000 --map-group=1000" if not run_by else "exec"
    unshare = ["unshare", *rights, "--net", "sh", "-c", f'ip link set lo up && {then} "$@"', "sh"]
    allowed = subprocess.run([*unshare, "true"], stderr=subprocess.DEVNULL).returncode == 0
    change = ["setpriv", *(f"--re{kind}id={ORDINARY_USER}" for kind in "ug"), "--clear-groups"]
    return (unshare if allowed else []) + (change if run_by == "ordinary" else [])


def end_processes(seconds: float) -> list[str]:
    """Kills the processes that the guide left running, and returns their names."""
    left = []
    deadline = time.monotonic() + seconds
    try:
        while True:
            if os.waitpid(-1, os.WNOHANG)[0] != 0:
                continue
            time.sleep(0.02)
            if time.monotonic() > deadline:
                for child in Path(f"/proc/self/task/{os.getpid()}/children").read_text().split():
                    left.append(Path(f"/proc/{child}/comm").read_text().strip())
                    os.kill(int(child), signal.SIGKILL)
                    os.waitpid(int(child), 0)
    except ChildProcessError:
        return left


def run(
    todo: list[Step], installed: Path, run_by: str = "", patience: float = SECONDS_TO_END
) -> tuple[list[tuple[str, int]], list[str]]:
    """The output and status of each step. If a step fails, it is the last one returned."""
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    mark = secrets.token_hex(16)
    with tempfile.TemporaryDirectory(prefix="tarn-guide-") as folder:
        home, copies, printed = (Path(folder) / name for name in ("home", "copies", "printed"))
        (home / "guide").mkdir(parents=True)
        (home / "tarn").symlink_to(SOURCE)
        copies.mkdir()
        script = Path(folder) / "script"
        script.write_text(shell_script(todo, copies, mark), encoding="utf-8")
        # A server started by root runs as another user, who needs access to these folders.
        Path(folder).chmod(0o755)
        if run_by == "ordinary":
            # Only root may have access to the build folder.
            installed = shutil.copytree(installed, Path(folder) / "installed", symlinks=True)
            subprocess.run(["chown", "-R", ORDINARY_USER, folder], check=True)
        with open(printed, "wb") as output:
            shell = subprocess.Popen(
                [*own_network(run_by), "bash", script],
                cwd=home / "guide",
                env=user_environment(home, installed),
                stdin=subprocess.DEVNULL,
                stdout=output,
                stderr=subprocess.STDOUT,
                start_new_session=True,
            )
            try:
                shell.wait(SECONDS_TO_RUN)
            except subprocess.TimeoutExpired:
                os.killpg(shell.pid, signal.SIGKILL)
                shell.wait()
        left = end_processes(patience)
        text = printed.read_text(encoding="utf-8", errors="replace").replace("\r\n", "\n")
    *pieces, rest = re.split(f"{mark} ([0-9]+)\n", text)
    results = [(output, int(status)) for output, status in zip(pieces[::2], pieces[1::2])]
    if len(results) < len(todo) and (not results or results[-1][1] == 0):
        results.append((rest, NO_STATUS))
    return results, left


# ---- Comparing -----------------------------------------------------------------------------------


def output_pattern(lines: Page) -> str:
    """A regular expression for the output of a command, with the line ends."""
    return "".join(
        "(?:.*\n)*?" if line == "…" else "[^\n]*".join(map(re.escape, line.split("…"))) + "\n"
        for line in lines
    )


def page_with_output(
    page: Page, todo: list[Step], results: list[tuple[str, int]]
) -> tuple[Page, list[int]]:
    """The page with the actual output where it differs, and the lines of those steps."""
    ran, differ = list(page), []
    for step, (output, _) in reversed(list(zip(todo, results))):
        shown = step.shown if isinstance(step, Command) else slice(step.line, step.line)
        lines = output.splitlines()
        if not re.fullmatch(output_pattern(page[shown]), "".join(line + "\n" for line in lines)):
            ran[shown] = lines
            differ.append(step.line)
    return ran, differ[::-1]


def write_page(guide: Path, page: Page) -> None:
    guide.write_text("".join(line + "\n" for line in page), encoding="utf-8")


def print_difference(guide: Path, page: Page, other: Page, name: str) -> None:
    print(*difflib.unified_diff(page, other, str(guide), name, lineterm=""), sep="\n")


def check_files(guide: Path, update: bool = False) -> bool:
    """Tells whether the page prints the configurations in its folder unchanged."""
    page = guide.read_text(encoding="utf-8").splitlines()
    folder = folder_of_files(guide, page)
    if folder is None:
        return False
    printed, differ = page_with_files(page, folder)
    if differ and update:
        write_page(guide, printed)
    elif differ:
        print_difference(guide, page, printed, "the files")
        raise Wrong(differ[0], "the file is different; --update copies it to the page")
    return True


def check(
    guide: Path,
    installed: Path,
    update: bool = False,
    run_by: str = "",
    patience: float = SECONDS_TO_END,
) -> None:
    check_files(guide, update)
    page = guide.read_text(encoding="utf-8").splitlines()
    check_links(guide, page, installed / "share/man")
    todo = steps(page)
    results, left = run(todo, installed, run_by, patience)
    ran, differ = page_with_output(page, todo, results)
    if update:
        write_page(guide, ran)
    elif differ:
        print_difference(guide, page, ran, "as it ran")
    status = results[-1][1] if results else 0
    if status != 0:
        ended = "the shell, or timed out" if status == NO_STATUS else f"with status {status}"
        raise Wrong(todo[len(results) - 1].line, f"ended {ended}")
    if differ and not update:
        raise Wrong(differ[0], "the output is different")
    if left:
        raise Wrong(len(page), f"still running: {', '.join(left)}")


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("installed", type=Path, help="the folder in which Tarn is installed")
    parser.add_argument("guide", type=Path)
    parser.add_argument("--update", action="store_true", help="write what is printed to the guide")
    parser.add_argument(
        "--files-only", action="store_true", help="run nothing, only compare the files it prints"
    )
    parser.add_argument(
        "--user",
        choices=("root", "ordinary"),
        default="",
        help="run by root: whose commands it has",
    )
    parser.add_argument(
        "--patience",
        type=float,
        default=SECONDS_TO_END,
        help="seconds until a process that the guide left running is killed",
    )
    chosen = parser.parse_args()
    if chosen.user and os.getuid() != 0:
        print("Only root can choose a user.")
        sys.exit(SKIPPED)
    try:
        if chosen.files_only:
            if not check_files(chosen.guide, chosen.update):
                raise Wrong(1, "the page does not say which files it prints")
            return
        check(chosen.guide, chosen.installed.resolve(), chosen.update, chosen.user, chosen.patience)
    except Wrong as wrong:
        line, what = wrong.args
        sys.exit(f"{chosen.guide}:{line}: {what}")


if __name__ == "__main__":
    main()
