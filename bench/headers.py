"""Measures how long compilers take to read the C++ headers.

Usage: python3 -B bench/headers.py [ROUNDS]

Prints the processor time (user and system) of reading tarn.hpp, and each of its parts alone, beside
that of <string> and <vector>. Compilers and headers take turns; the figures are medians. Other work
on the machine changes the times, and the ratios less."""

import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile

import measure
import report

INCLUDE = pathlib.Path(measure.ROOT, "include")
COMPILERS = {
    "g++": ["g++"],
    "clang++": ["clang++"],
    "clang++, libc++": ["clang++", "-stdlib=libc++"],
}
BASE = "<string> and <vector>"
HEADERS = {
    BASE: ["string", "vector"],
    "tarn.hpp": ["tarn.hpp"],
    **{
        f"tarn/{path.name}": [f"tarn/{path.name}"]
        for path in sorted(INCLUDE.glob("tarn/*.hpp"))
        if not path.read_text(encoding="utf-8").startswith("// Internal: ")
    },
}


def processor_time(command):
    """The seconds that a command takes."""
    with subprocess.Popen(command) as started:
        _, status, used = os.wait4(started.pid, 0)
        started.returncode = os.waitstatus_to_exitcode(status)
    if started.returncode != 0:
        raise SystemExit(f"failed: {command}")
    return used.ru_utime + used.ru_stime


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 15
    compilers = {name: words for name, words in COMPILERS.items() if shutil.which(words[0])}
    taken = {(name, header): [] for header in HEADERS for name in compilers}
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder, "headers.cpp")
        for _ in range(rounds):
            for header, names in HEADERS.items():
                text = "".join(f"#include <{name}>\n" for name in names)
                source.write_text(text, encoding="utf-8")
                for name, words in compilers.items():
                    flags = ["-std=c++17", f"-I{INCLUDE}", "-fsyntax-only", str(source)]
                    taken[name, header].append(processor_time([*words, *flags]))
    medians = {key: statistics.median(times) for key, times in taken.items()}
    rows = [["", *(cell for name in compilers for cell in (f"{name}, ms", "×"))]]
    for header in HEADERS:
        row = [header]
        for name in compilers:
            seconds = medians[name, header]
            row += [f"{seconds * 1e3:,.0f}", f"{seconds / medians[name, BASE]:.2f}"]
        rows.append(row)
    print(f"{rounds} rounds.\n\n{report.table(rows)}", end="")


if __name__ == "__main__":
    main()
