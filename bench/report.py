"""The results of a workload, as Markdown and as plots."""

import math
import os
import statistics
from html import escape
from typing import NamedTuple

import measure

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
    return plot(f"{name}: {report.title}", report.unit, f"ms of {report.time}", points)


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


# ---- Growth as SVG: lines on logarithmic axes ---------------------------------------------------

WIDTH, HEIGHT = 720, 440
LEFT, RIGHT, TOP, BOTTOM = 80, 170, 44, 56
# For a white page, and safe for red-green colour blindness.
COLOURS = ["#000000", "#0072b2", "#d55e00", "#009e73", "#cc79a7", "#8a6d00", "#56b4e9", "#777777"]


def decades(values):
    """The exponents of the powers of ten just below and above some values."""
    first = math.floor(math.log10(min(values)))
    return first, max(first + 1, math.ceil(math.log10(max(values))))


def label(exponent):
    return f"{10 ** exponent:,}" if exponent >= 0 else f"{10.0 ** exponent:g}"


class Axis:
    def __init__(self, values, start, end):
        self.first, self.last = decades(values)
        self.start, self.end = start, end

    def at(self, value):
        share = (math.log10(value) - self.first) / (self.last - self.first)
        return round(self.start + share * (self.end - self.start), 1)

    def marks(self):
        for exponent in range(self.first, self.last + 1):
            yield label(exponent), self.at(10.0**exponent)


def text(x, y, words, more=""):
    return f'<text x="{x}" y="{y}" {more}>{escape(words)}</text>'


def line(x1, y1, x2, y2, colour):
    return f'<line x1="{x1}" y1="{y1}" x2="{x2}" y2="{y2}" stroke="{colour}"/>'


def plot(title, across, up, lines):
    """Returns the SVG. `lines` has the points (x, y) of each line by name."""
    points = [point for line_points in lines.values() for point in line_points]
    right, bottom = WIDTH - RIGHT, HEIGHT - BOTTOM
    horizontal = Axis([x for x, _ in points], LEFT, right)
    vertical = Axis([y for _, y in points], bottom, TOP)
    half = (TOP + bottom) / 2
    middle = 'text-anchor="middle"'
    drawn = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
        'font-family="sans-serif" font-size="13">',
        f'<rect width="{WIDTH}" height="{HEIGHT}" fill="#ffffff"/>',
        text(LEFT, 24, title, 'font-size="16"'),
        text((LEFT + right) / 2, HEIGHT - 14, across, middle),
        text(18, half, up, f'{middle} transform="rotate(-90 18 {half})"'),
    ]
    for words, x in horizontal.marks():
        drawn += [line(x, TOP, x, bottom, "#dddddd"), text(x, bottom + 18, words, middle)]
    for words, y in vertical.marks():
        drawn.append(line(LEFT, y, right, y, "#dddddd"))
        drawn.append(text(LEFT - 8, y + 4, words, 'text-anchor="end"'))
    for i, (name, line_points) in enumerate(lines.items()):
        colour = COLOURS[i % len(COLOURS)]
        places = [(horizontal.at(x), vertical.at(y)) for x, y in line_points]
        path = " ".join(f"{x},{y}" for x, y in places)
        drawn.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>')
        drawn += [f'<circle cx="{x}" cy="{y}" r="3.5" fill="{colour}"/>' for x, y in places]
        x, y = right + 16, TOP + 14 + 22 * i
        drawn.append(f'<rect x="{x}" y="{y - 10}" width="12" height="12" fill="{colour}"/>')
        drawn.append(text(x + 20, y, name))
    return "\n".join([*drawn, "</svg>", ""])
