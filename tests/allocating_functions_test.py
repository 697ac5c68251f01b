#!/usr/bin/env python3
"""Usage: allocating_functions_test.py LIBRARY [--never FUNCTION]... SOURCE...

The machine code shows which exported functions can allocate. The scenarios in the sources must call
exactly those through FailingMemory. FUNCTION calls code that can allocate, but never does so there;
the sources call it in withoutMemory().
"""
import argparse
import pathlib
import re
import subprocess
import sys

ALLOCATORS = {"malloc", "calloc", "realloc"}


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def calls_of(library):
    """Maps each function to those that it calls or jumps to."""
    calls = {}
    callee_of = re.compile(r"\b(?:call|jmp|j[a-z]+)\s+[0-9a-f]+ <([^>+@]+)(?:@plt)?>$")
    for line in output_of("objdump", "--disassemble", "--no-show-raw-insn", library).splitlines():
        if start := re.match(r"[0-9a-f]+ <([^>]+)>:$", line):
            callees = calls.setdefault(start[1], set())
        elif callee := callee_of.search(line):
            callees.add(callee[1])
    return calls


def allocates(function, calls):
    seen = set()
    ahead = [function]
    while ahead:
        name = ahead.pop()
        if name in ALLOCATORS:
            return True
        if name not in seen:
            seen.add(name)
            ahead += calls.get(name, ())
    return False


def main(arguments):
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    parser.add_argument("--never", action="append", default=[])
    parser.add_argument("sources", nargs="+")
    options = parser.parse_args(arguments)
    library, never, sources = options.library, options.never, options.sources
    calls = calls_of(library)
    exported = {
        line.split("@")[0].split()[-1]
        for line in output_of("nm", "--dynamic", "--defined-only", library).splitlines()
        if line.split()[-2] == "T"
    }
    allocating = {function for function in exported if allocates(function, calls)}
    called = set()
    for source in sources:
        text = pathlib.Path(source).read_text(encoding="utf-8")
        for action in re.findall(r"withoutMemory\(\s*\[&\] \{(.*?)\}\);", text, re.DOTALL):
            called |= {function for function in never if f"{function}(" in action}
        called |= set(re.findall(r"memory\.call\(\s*\[&?\] \{\s*(?:return )?(\w+)\(", text))
    for function in sorted(allocating - called):
        print(f"{function} allocates, but no scenario makes that fail")
    for function in sorted(called - allocating):
        print(f"{function} is called by a scenario, but does not allocate")
    print(f"{len(allocating)} of {len(exported)} functions allocate")
    return 1 if allocating != called or not allocating else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
