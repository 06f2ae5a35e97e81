"""Plots as SVG, without a library: lines over a parameter, and the ratios of all cases as dots."""
import math
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 720, 380
LEFT, RIGHT, TOP, BOTTOM = 70, 190, 34, 48
# Told apart by people who do not see all colours; the library is black.
COLOURS = ["#000000", "#e69f00", "#56b4e9", "#009e73", "#d55e00", "#0072b2", "#cc79a7", "#999999",
           "#8c510a"]


def text(x, y, content, anchor="start", extra=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {extra}>{escape(str(content))}</text>'


def line(x1, y1, x2, y2, colour="#cccccc", width=1.0):
    return (f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" '
            f'stroke-width="{width}"/>')


def dot(x, y, colour):
    return f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>'


def document(width, height, parts):
    head = (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'width="{width}" height="{height}" font-family="sans-serif" font-size="12">')
    return "\n".join([head, f'<rect width="{width}" height="{height}" fill="#ffffff"/>', *parts,
                      "</svg>", ""])


def short(value):
    """10000 as 10k."""
    for limit, letter in ((1e6, "M"), (1e3, "k")):
        if value >= limit:
            return f"{value / limit:g}{letter}"
    return f"{value:g}"


class Axis:
    """Maps values to a place between two ends; a logarithmic one where values span decades."""

    def __init__(self, values, begin, end, is_log):
        self.is_log = is_log
        self.begin, self.end = begin, end
        if is_log:
            self.low = math.floor(math.log10(min(values)))
            self.high = max(math.ceil(math.log10(max(values))), self.low + 1)
        else:
            self.low, self.high = 0, max(values) * 1.1 or 1

    def place(self, value):
        at = math.log10(value) if self.is_log else value
        return self.begin + (at - self.low) / (self.high - self.low) * (self.end - self.begin)

    def ticks(self):
        if self.is_log:
            return [10.0 ** k for k in range(self.low, self.high + 1)]
        step = 10 ** math.floor(math.log10(self.high))
        step = next(s for s in (step / 5, step / 2, step, 2 * step) if self.high / s <= 6)
        return [k * step for k in range(int(self.high / step) + 1)]


def series(cases):
    """By variant: its points (parameter, spread), in the order in which they appear."""
    rows = {}
    for case in cases:
        for variant in case.variants:
            if variant.samples and min(variant.samples) > 0:
                rows.setdefault(variant.name, []).append((case.value, variant.spread))
    return rows


def lines(cases):
    """Every variant's median over the parameter, with its quartiles as a bar."""
    first, rows = cases[0], series(cases)
    values = [s.median for points in rows.values() for _, s in points]
    ups = Axis(values, HEIGHT - BOTTOM, TOP, max(values) > 8 * min(values))
    marks = sorted({case.value for case in cases})
    # The values of a parameter stand at even distances: they grow by factors, or are few.
    across = {v: LEFT + 20 + k * (WIDTH - LEFT - RIGHT - 40) / max(len(marks) - 1, 1)
              for k, v in enumerate(marks)}
    parts = [text(LEFT, 20, f"{first.title} ({first.unit}"
                  f"{', more is better' if first.more_is_better else ''})", extra='font-size="14"')]
    for tick in ups.ticks():
        y = ups.place(tick)
        parts += [line(LEFT, y, WIDTH - RIGHT, y), text(LEFT - 6, y + 4, short(tick), "end")]
    parts += [text(across[v], HEIGHT - BOTTOM + 18, short(v), "middle") for v in marks]
    parts.append(text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 10, first.parameter, "middle"))
    for k, (name, points) in enumerate(rows.items()):
        parts += curve(points, across, ups, COLOURS[k % len(COLOURS)])
        y = TOP + 12 + 18 * k
        parts += [line(WIDTH - RIGHT + 14, y, WIDTH - RIGHT + 34, y, COLOURS[k % len(COLOURS)], 2),
                  text(WIDTH - RIGHT + 40, y + 4, name)]
    return document(WIDTH, HEIGHT, parts)


def curve(points, across, ups, colour):
    places = [(across[value], ups.place(s.median)) for value, s in points]
    parts = [line(*a, *b, colour, 1.5) for a, b in zip(places, places[1:])]
    for (x, y), (_, s) in zip(places, points):
        parts += [dot(x, y, colour), line(x, ups.place(s.low), x, ups.place(s.high), colour)]
    return parts


def overview(cases):
    """The library's ratio to its floor in every case: a dot, and a bar from quartile to quartile."""
    rows = []
    for case in cases:
        for variant in case.variants:
            ratio = case.ratio(variant) if variant.role == "floor" else None
            if ratio is not None:
                rows.append((f"{case.target}: {case.text}", ratio))
    if not rows:
        return None
    left, height = 330, 16 * len(rows) + 66
    bounds = [b for _, r in rows for b in (r.low, r.high) if b > 0] + [0.5, 2.0]
    axis = Axis(bounds, left, WIDTH - 30, True)
    parts = [text(10, 20, "library / floor, all cases", extra='font-size="14"')]
    few = axis.high - axis.low <= 2  # decades; among more, the labels between would touch
    for decade in axis.ticks():
        for tick in (decade, 2 * decade, 5 * decade):
            if axis.place(tick) <= WIDTH - 29:
                x = axis.place(tick)
                parts += [line(x, 44, x, height - 12, "#888888" if tick == 1 else "#dddddd"),
                          text(x, 40, f"{tick:g}" if few or tick == decade else "", "middle")]
    for k, (name, ratio) in enumerate(rows):
        y = 58 + 16 * k
        parts += [text(left - 10, y + 4, name, "end", 'font-size="11"'),
                  line(axis.place(max(ratio.low, 1e-3)), y, axis.place(ratio.high), y, "#0072b2", 3),
                  dot(axis.place(ratio.median), y, "#000000")]
    return document(WIDTH, height, parts)
