"""Measures whole scripts, from posix_spawn() to wait4(). Usage: see scripts/bench."""

import argparse
import datetime
import json
import os
import platform
import re
import sys
import textwrap

import form_peers
import forms
import report
import serving
import workloads

ALL = workloads.ALL | forms.ALL | serving.ALL
ON_DEMAND = [*forms.WITH_PEERS, *serving.ALL]


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        found = re.search(r"^model name\s*: (.*)$", file.read(), re.MULTILINE)
    return found[1] if found else platform.machine()


def introduction(options, load):
    command = ["scripts/bench", *options.given]
    text = (
        f"One run of `{' '.join(command)}` on {datetime.date.today()}: "
        f"{os.cpu_count()} × {processor()}, Linux {platform.release()}, "
        f"{' '.join(platform.libc_ver())}, load {load:.1f} at the start."
    )
    if options.quick:
        text += " A quick run only shows that everything works."
    return textwrap.fill(text, 100) + "\n"


def chosen(words, parser):
    """The workloads that the arguments name. A letter stands for all that begin with it."""
    names = []
    for word in words:
        found = [name for name in ALL if word in (name, name[0])]
        if not found:
            parser.error(f"unknown workload {word}; known: {', '.join(ALL)}")
        names += found
    return names or [name for name in ALL if name not in ON_DEMAND]


def parse(arguments):
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("workloads", nargs="*", type=str.upper, metavar="WORKLOAD")
    parser.add_argument("--rounds", type=int)
    parser.add_argument("--json")
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--peers", action="store_true")
    parser.add_argument("--update-docs", action="store_true")
    options = parser.parse_args(arguments)
    options.given = [word for word in arguments if word != "--update-docs"]
    options.workloads = chosen(options.workloads, parser)
    if options.peers:
        options.workloads += [name for name in forms.WITH_PEERS if name not in options.workloads]
    elif set(options.workloads) & set(forms.WITH_PEERS):
        parser.error(f"{', '.join(forms.WITH_PEERS)}: only with --peers")
    if options.rounds is not None and options.rounds < 1:
        parser.error("--rounds must be at least 1")
    options.groups = [
        group
        for group in sorted({name[0] for name in ALL})
        if {name for name in ALL if name[0] == group} <= set(options.workloads)
    ]
    if options.update_docs and not options.groups:
        parser.error("--update-docs needs all workloads W, all of F with --peers, or all of S")
    return options


def main():
    options = parse(sys.argv[1:])
    intro = introduction(options, os.getloadavg()[0])
    print(intro)
    if options.peers:
        form_peers.build()
    how = workloads.Options(options.rounds, options.quick)
    reports = {}
    for name in options.workloads:
        reports[name] = ALL[name](how)
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
        for group in options.groups:
            of_group = {name: made for name, made in reports.items() if name[0] == group}
            report.update_document(intro, group, of_group)


main()
