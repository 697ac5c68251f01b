"""Runs the programs in process/ and measures them."""

import contextlib
import os
import re
import shutil
import statistics
import subprocess
import tempfile
from typing import NamedTuple

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PROGRAMS = os.path.join(ROOT, "build/bench/bench/process")


class Sample(NamedTuple):
    wall: float  # seconds
    cpu: float
    memory: int  # bytes, peak
    faults: int


class Candidate(NamedTuple):
    name: str
    program: str  # a path, from PROGRAMS
    answer: str
    every: int = 1  # run in every n-th round


@contextlib.contextmanager
def body_file(body):
    """The descriptor of a file in memory that contains the body."""
    file = os.memfd_create("body")
    try:
        with open(file, "wb", closefd=False) as writer:
            writer.write(body)
        yield file
    finally:
        os.close(file)


@contextlib.contextmanager
def sparse_file(head, size, tail):
    """The descriptor of a file in memory with a hole between head and tail."""
    with body_file(head) as file:
        os.pwrite(file, tail, len(head) + size)
        yield file


def rounds_of(candidates, variables, body, rounds):
    """Runs the candidates in turn; returns the samples of each."""
    arguments = [os.path.join(PROGRAMS, "driver"), str(rounds), str(body)]
    for candidate in candidates:
        arguments += [str(candidate.every), candidate.program, candidate.answer]
    done = subprocess.run(
        arguments, cwd=PROGRAMS, env=variables, pass_fds=[body], capture_output=True, check=False
    )
    if done.returncode != 0:
        raise SystemExit(f"{done.stderr.decode()}scripts/bench: no results")
    samples = {candidate.name: [] for candidate in candidates}
    for line in done.stdout.splitlines():
        index, wall, cpu, memory, faults = map(int, line.split())
        sample = Sample(wall / 1e9, cpu / 1e6, memory * 1024, faults)
        samples[candidates[index].name].append(sample)
    return samples


def median(samples):
    return Sample(*(statistics.median(column) for column in zip(*samples)))


def watched(watcher, program, variables, body, answer):
    """Runs a program under a tool and returns what the tool prints to standard error.

    `program` may have arguments, separated by spaces."""
    os.lseek(body, 0, os.SEEK_SET)
    command = [shutil.which(watcher[0]), *watcher[1:], *program.split()]
    # The loader processes the name of the folder, so its length must not vary.
    with tempfile.TemporaryDirectory(dir="/tmp") as folder:
        for file in os.listdir(PROGRAMS):
            os.symlink(os.path.join(PROGRAMS, file), os.path.join(folder, file))
        done = subprocess.run(
            command,
            cwd=folder,
            env=variables,
            stdin=body,
            capture_output=True,
            text=True,
            check=False,
        )
    if done.returncode != 0 or done.stdout != answer:
        raise SystemExit(f"{' '.join(command)} answered\n{done.stdout}\n{done.stderr}")
    return done.stderr


class Instructions(NamedTuple):
    total: int
    main: int  # in main() and below, without process start


def instructions(*arguments):
    """Counts with callgrind, whose result does not depend on the processor."""
    with tempfile.TemporaryDirectory() as folder:
        output = os.path.join(folder, "out")
        watcher = ["valgrind", "-q", "--tool=callgrind", "--compress-strings=no"]
        watched([*watcher, f"--callgrind-out-file={output}"], *arguments)
        with open(output, encoding="utf-8") as file:
            text = file.read()
    # Two lines follow the name of a called function: the number of calls, then the place and cost.
    main = re.search(r"^cfn=main$\ncalls=1 .*\n\S+ (\d+)$", text, re.MULTILINE)
    total = int(re.search(r"^totals: (\d+)$", text, re.MULTILINE)[1])
    # Programs without symbols have no name for it.
    return Instructions(total, int(main[1]) if main else 0)


def system_calls(*arguments):
    with tempfile.NamedTemporaryFile("r") as trace:
        watched(["strace", "-qq", "-f", "--signal=none", "-o", trace.name], *arguments)
        return len(trace.readlines())


class Allocations(NamedTuple):
    blocks: int
    total_bytes: int


def allocations(*arguments):
    """Counts with memcheck, which also fails on an access outside a block."""
    text = watched(["valgrind", "--leak-check=no", "--error-exitcode=99"], *arguments)
    found = re.search(r"total heap usage: ([\d,]+) allocs, [\d,]+ frees, ([\d,]+) bytes", text)
    return Allocations(*(int(number.replace(",", "")) for number in found.groups()))
