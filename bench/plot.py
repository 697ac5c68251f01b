"""Plots growth as SVG: lines on logarithmic axes."""

import math
from html import escape

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
