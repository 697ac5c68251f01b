"""Counts the cost of fixed requests and compares it with counts.json. Usage: see scripts/counts."""

import concurrent.futures
import json
import os
import sys

import bodies
import forms
import measure
import report

RECORDED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "counts.json")

REQUESTS = {
    "GET, 3 fields": bodies.query,
    "POST, 3 fields": bodies.form,
    "upload of 4 KiB": bodies.small_upload,
    "1,000 pairs": lambda: bodies.pairs(1000),
    "upload of 256 KiB": lambda: bodies.upload(256 * bodies.KIB),
    "200 parts": lambda: bodies.parts(200),
    "64 KiB of escapes": lambda: bodies.escapes(64 * bodies.KIB),
}

# The same for process/form.c: a request, and what is done with it.
FORMS = {
    "form of 3 fields": (forms.small_form, "text"),
    "form of 3 fields, looked up": (forms.small_form, "load"),
    "form with a file of 4 KiB": (forms.small_upload, "text"),
    "form with a file of 256 KiB": (lambda: forms.upload(256 * bodies.KIB), "skip"),
    "form of 1,000 fields": (lambda: forms.pairs(1000), "text"),
    "form of 1,000 fields, looked up": (lambda: forms.pairs(1000), "load"),
    "form of 200 parts": (lambda: forms.parts(200), "text"),
    "form of 200 parts, looked up": (lambda: forms.parts(200), "load"),
}

# How much these figures may grow, in per cent. All others must not grow.
MARGIN = {"instructions": 2, "instructions in main()": 2}

# How much more the same script may cost with tarn.hpp, in per cent.
CXX_MARGIN = 3


def count(make, program="./tarn"):
    request = make()
    with measure.body_file(request.body) as body:
        arguments = (program, request.variables, body, request.answer)
        instructions = measure.instructions(*arguments)
        allocations = measure.allocations(*arguments)
        return {
            "instructions": instructions.total,
            "instructions in main()": instructions.main,
            "system calls": measure.system_calls(*arguments),
            "allocations": allocations.blocks,
            "bytes allocated": allocations.total_bytes,
        }


def compare(make, programs=("./tarn", "./tarn-c++")):
    """The cost of the script in C, and in C++."""
    request = make()
    # By default the loader binds a function at its first call, in main(). That cost does not depend
    # on the language, so bind everything at the start.
    variables = request.variables | {"LD_BIND_NOW": "1"}
    with measure.body_file(request.body) as body:
        return [
            measure.instructions(program, variables, body, request.answer) for program in programs
        ]


def count_form(form):
    make, operation = form
    return count(make, f"./form {operation}")


def compare_form(form):
    make, operation = form
    return compare(make, [f"./form {operation}", f"./form-c++ {operation}"])


def measure_all(measured, requests):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return dict(zip(requests, pool.map(measured, requests.values())))


def changes(recorded, counted):
    """Each figure that changed by more than its margin, as (grown, text)."""
    for name, figures in counted.items():
        for what, now in figures.items():
            before = recorded.get(name, {}).get(what, 0)
            if abs(now - before) > before * MARGIN.get(what, 0) / 100:
                yield now > before, f"{name}: {what} {before:,} -> {now:,} ({now - before:+,})"


def table_of_cxx(compared):
    """The instructions in main() in C and in C++, as in docs/performance.md."""
    rows = [["", "in C", "in C++", "×"]]
    for name, (in_c, in_cxx) in compared.items():
        ratio = f"{in_cxx.main / in_c.main:.3f}"
        rows.append([name, f"{in_c.main:,}", f"{in_cxx.main:,}", ratio])
    return report.table(rows)


def extra_cost_in_cxx(compared):
    """How much more each script costs in C++ than in C: a percentage and a text."""
    for name, (in_c, in_cxx) in compared.items():
        for what, before, now in zip(("instructions", "instructions in main()"), in_c, in_cxx):
            text = f"{name}: {what} {before:,} in C, {now:,} in C++ ({now - before:+,})"
            yield 100 * (now / before - 1), text


def main(arguments):
    counted = measure_all(count, REQUESTS) | measure_all(count_form, FORMS)
    if arguments == ["--update"]:
        with open(RECORDED, "w", encoding="utf-8") as file:
            json.dump(counted, file, indent=2)
            file.write("\n")
        return 0
    with open(RECORDED, encoding="utf-8") as file:
        recorded = json.load(file)
    found = list(changes(recorded, counted))
    for grown, text in found:
        print("more:" if grown else "less:", text)
    if any(grown for grown, _ in found):
        return "scripts/counts: a request costs more than bench/counts.json records."
    print(f"{len(counted)} requests cost no more than bench/counts.json records.")
    if found:
        print("Some cost less: run scripts/counts --update to record that.")
    compared = measure_all(compare, REQUESTS) | measure_all(compare_form, FORMS)
    print(f"\nInstructions in main():\n\n{table_of_cxx(compared)}")
    percent, text = max(extra_cost_in_cxx(compared))
    print(f"In C++ they cost at most {percent:.2f} % more than in C. {text}")
    if percent > CXX_MARGIN:
        return f"scripts/counts: C++ may cost at most {CXX_MARGIN} % more."
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
