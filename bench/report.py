"""The results of a workload, as Markdown."""

import math
import os
import statistics
from typing import NamedTuple

import measure
import plot

DOCUMENT = os.path.join(measure.ROOT, "docs/performance.md")
PICTURES = os.path.join(measure.ROOT, "docs/performance")
BEGIN = "<!-- scripts/bench --update-docs writes {} from here -->\n"
END = "<!-- to here -->\n"
MIB = 1 << 20


class Target(NamedTuple):
    text: str
    measured: float
    limit: float
    unit: str = ""
    at_least: bool = False

    @property
    def reached(self):
        return self.measured >= self.limit if self.at_least else self.measured <= self.limit

    def cells(self):
        return [
            f"{self.text} {'≥' if self.at_least else '≤'} {self.limit:g}{self.unit}",
            f"{self.measured:,.2f}{self.unit}",
            "reached" if self.reached else "**not reached**",
        ]


class Report(NamedTuple):
    title: str
    text: str
    targets: list
    data: dict
    lines: dict = {}  # plotted growth: points (size, seconds) by candidate
    unit: str = ""  # of the sizes
    time: str = "wall time"


def table(rows, texts=1):
    """A Markdown table. The first row is the heading; the first `texts` columns are not numbers."""
    widths = [max(map(len, column)) for column in zip(*rows)]
    rule = ["-" * width if i < texts else "-" * (width - 1) + ":" for i, width in enumerate(widths)]
    lines = []
    for row in [rows[0], rule, *rows[1:]]:
        cells = [
            cell.ljust(width) if i < texts else cell.rjust(width)
            for i, (cell, width) in enumerate(zip(row, widths))
        ]
        lines.append(f"| {' | '.join(cells)} |\n")
    return "".join(lines)


def milliseconds(seconds):
    return f"{seconds * 1e3:,.{3 if seconds < 0.01 else 1}f}"


def mebibytes(size):
    return f"{size / MIB:,.1f}"


def processes(medians, counts=None):
    """A row for each candidate; `counts` adds columns for some of them."""
    more = list(next(iter(counts.values()))) if counts else []
    rows = [["", "wall, ms", "CPU, ms", "× floor", "peak, MiB", "faults", *more]]
    for name, sample in medians.items():
        counted = counts.get(name, {}) if counts else {}
        rows.append(
            [
                name,
                milliseconds(sample.wall),
                milliseconds(sample.cpu),
                f"{sample.wall / medians['floor'].wall:.2f}",
                mebibytes(sample.memory),
                f"{sample.faults:,.0f}",
                *(f"{counted[what]:,}" if counted else "" for what in more),
            ]
        )
    return table(rows)


def exponent(points):
    """The exponent of growth: the slope of a least-squares fit on the logarithms."""
    sizes, values = zip(*((math.log(size), math.log(value)) for size, value in points))
    return statistics.linear_regression(sizes, values).slope


def growth(lines):
    rows = [["time grows with", ""]]
    rows += [[name, f"size ^ {exponent(points):.2f}"] for name, points in lines.items()]
    return table(rows)


def targets(reports):
    rows = [["", "target", "measured", ""]]
    for name, report in reports.items():
        rows += [[name, *target.cells()] for target in report.targets]
    return table(rows, texts=2)


def picture(name, report):
    points = {
        candidate: [(size, seconds * 1e3) for size, seconds in line]
        for candidate, line in report.lines.items()
    }
    return plot.plot(f"{name}: {report.title}", report.unit, f"ms of {report.time}", points)


def sections(reports, pictures):
    """The sections of all workloads, with the plots if `pictures` is true."""
    texts = []
    for name, report in reports.items():
        texts.append(f"### {name}: {report.title}\n\n{report.text}")
        if pictures and report.lines:
            texts.append(f"![{name}, time by size](performance/{name.lower()}.svg)\n")
    return "\n".join(texts)


def update_document(intro, group, reports):
    """Replaces the part of the document about a group of workloads, W or F."""
    begin = BEGIN.format(group)
    with open(DOCUMENT, encoding="utf-8") as file:
        before, rest = file.read().split(begin)
    _, after = rest.split(END, 1)
    text = f"\n{intro}\n{targets(reports)}\n{sections(reports, pictures=True)}\n"
    with open(DOCUMENT, "w", encoding="utf-8") as file:
        file.write(before + begin + text + END + after)
    os.makedirs(PICTURES, exist_ok=True)
    for name, report in reports.items():
        if report.lines:
            path = os.path.join(PICTURES, f"{name.lower()}.svg")
            with open(path, "w", encoding="utf-8") as file:
                file.write(picture(name, report))
