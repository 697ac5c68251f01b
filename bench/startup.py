#!/usr/bin/env python3
"""Usage: bench/startup.py [RUNS]

Compares builds of the README's script in C: size, time from spawn to exit, instructions, and
how many of them are CPUID. Needs the presets release and musl, both built.
"""

import os
import re
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
RELEASE = SOURCE / "build/release"
ENVIRONMENT = {"QUERY_STRING": "name=Ada&polite=on", "LD_LIBRARY_PATH": str(RELEASE)}


def build(folder):
    """Returns the programs by name."""
    readme = (SOURCE / "README.md").read_text()
    (folder / "greet.c").write_text(re.findall(r"^```c\n(.*?)^```", readme, re.M | re.S)[0])
    musl = folder / "musl"
    install = ["cmake", "--install", SOURCE / "build/musl", "--prefix", musl]
    subprocess.run(install, check=True, stdout=subprocess.DEVNULL)
    common = ["-std=c99", "-O2", "-s", "greet.c"]
    glibc = ["cc", "-I", SOURCE / "include", *common]
    archive = RELEASE / "libtarn_form.a"
    commands = {
        "glibc, libtarn_form.so": [*glibc, "-L", RELEASE, "-ltarn_form"],
        "glibc, libtarn_form.a": [*glibc, archive],
        "glibc, static": [*glibc, "-static", archive],
        "musl, static-pie": [musl / "bin/tarn-cc", *common, "-static-pie"],
        "musl": [musl / "bin/tarn-cc", *common],
    }
    programs = {}
    for number, (name, command) in enumerate(commands.items()):
        programs[name] = folder / f"greet-{number}"
        subprocess.run([*command, "-o", programs[name]], cwd=folder, check=True)
    step = ["cc", "-O1", SOURCE / "bench/process/step.c", "-o", folder / "step"]
    subprocess.run(step, check=True)
    return programs


def milliseconds(program, null):
    begin = time.perf_counter()
    actions = [(os.POSIX_SPAWN_DUP2, null, 1)]
    child = os.posix_spawn(program, [program], ENVIRONMENT, file_actions=actions)
    _, status = os.waitpid(child, 0)
    if status != 0:
        sys.exit(f"{program} ended with status {status}")
    return (time.perf_counter() - begin) * 1000


def main():
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 1000
    with tempfile.TemporaryDirectory() as name, open(os.devnull, "wb") as null:
        folder = Path(name)
        programs = build(folder)
        times = {name: [] for name in programs}
        for _ in range(runs):
            for name, program in programs.items():
                times[name].append(milliseconds(program, null.fileno()))
        print("| linked with | spawn to exit | size | instructions | CPUID |")
        print("| --- | ---: | ---: | ---: | ---: |")
        for name, program in programs.items():
            step = subprocess.run(
                [folder / "step", program],
                env=ENVIRONMENT,
                check=True,
                capture_output=True,
                text=True,
            )
            instructions, identifications = map(int, step.stdout.split())
            size = program.stat().st_size / 1000
            print(
                f"| {name} | {statistics.median(times[name]):.2f} ms | {size:.0f} KB "
                f"| {instructions:,} | {identifications} |"
            )


if __name__ == "__main__":
    main()
