"""Measures whole scripts, from posix_spawn() to wait4(). Usage: see scripts/bench."""

import argparse
import datetime
import json
import os
import platform
import re
import sys
import textwrap

import report
import workloads


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        found = re.search(r"^model name\s*: (.*)$", file.read(), re.MULTILINE)
    return found[1] if found else platform.machine()


def introduction(options, load):
    command = ["scripts/bench"]
    if options.quick:
        command.append("--quick")
    if options.rounds:
        command.append(f"--rounds {options.rounds}")
    text = (
        f"One run of `{' '.join(command)}` on {datetime.date.today()}: "
        f"{os.cpu_count()} × {processor()}, Linux {platform.release()}, "
        f"{' '.join(platform.libc_ver())}, load {load:.1f} at the start."
    )
    if options.quick:
        text += " A quick run only shows that everything works."
    return textwrap.fill(text, 100) + "\n"


def parse(arguments):
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("workloads", nargs="*", type=str.upper, metavar="WORKLOAD")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--json")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--update-docs", action="store_true")
    options = parser.parse_args(arguments)
    unknown = set(options.workloads) - set(workloads.ALL)
    if unknown:
        parser.error(f"unknown workload {', '.join(unknown)}; known: {', '.join(workloads.ALL)}")
    if options.rounds is not None and options.rounds < 1:
        parser.error("--rounds must be at least 1")
    if options.update_docs and options.workloads:
        parser.error("--update-docs needs a run of all workloads")
    return options


def main():
    options = parse(sys.argv[1:])
    intro = introduction(options, os.getloadavg()[0])
    print(intro)
    how = workloads.Options(options.rounds, options.quick)
    reports = {}
    for name in options.workloads or workloads.ALL:
        reports[name] = workloads.ALL[name](how)
        print(report.sections({name: reports[name]}, pictures=False), flush=True)
    if any(made.targets for made in reports.values()):
        print(report.targets(reports))
    if options.json:
        figures = {
            name: {"title": made.title, "targets": [t._asdict() for t in made.targets]} | made.data
            for name, made in reports.items()
        }
        with open(options.json, "w", encoding="utf-8") as file:
            json.dump({"run": intro, "workloads": figures}, file, indent=1)
    if options.update_docs:
        report.update_document(intro, reports)


main()
