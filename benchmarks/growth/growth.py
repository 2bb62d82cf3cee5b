#!/usr/bin/env python3
"""Draws what time and memory do when a scene grows, and says what grows faster than it should.

    growth.py FOLDER-OF-PROGRAMS [--images FOLDER] [--rounds 5] [--series NAME]... [--largest FRACTION] [--json FILE]
              [--redraw FILE]

Asks krGrowthBenchmark for one size after the other, in rounds: each round goes through all sizes, so that what the
machine does besides falls on all of them. A figure is the median of the rounds. How fast it grows is the exponent k of
x^k that fits a round's figures over the last decade of x; its median over the rounds is what counts. Time is that of the
processor, of all threads together. One SVG picture a series goes to --images (docs/images of the source tree).

Ends with 1 when a figure grows with an exponent above 1.1. Times of reading and of frames that do are counted in
instructions before they are judged, with valgrind, at a hundredth and a tenth of the largest size: what no longer fits
the processor's caches takes longer without being more work. Frames that are read back grow as the driver's own clearing
and reading does, which is measured beside them: memory is slower than caches.
"""
import argparse
import json
import math
import os
import re
import statistics
import subprocess
import sys

LIMIT = 1.1

# What grows, the sizes that are asked for, and what the sizes count.
SERIES = {
    "chain": ([10, 100, 1000, 2000, 5000, 10000], "links, each on the one before it"),
    "star": ([10, 100, 1000, 2000, 5000, 10000], "links on one parent"),
    "robots": ([1, 10, 100, 200, 500, 1000], "robots of six links"),
    "triangles": ([10000, 100000, 1000000, 2000000, 5000000, 10000000], "triangles of one mesh"),
    "shapes": ([10, 100, 1000, 2000, 5000, 10000], "shapes of one link"),
    "selection": ([10, 100, 1000, 2000, 5000, 10000], "shapes of one link, the other half selected in each frame"),
    "colors": ([10, 100, 1000, 2000, 5000, 10000], "triangles of one mesh, each of another colour"),
    "translucent": ([10, 100, 1000, 2000, 5000, 10000], "translucent links"),
    "pixels": ([256 ** 2, 1024 ** 2, 2600 ** 2, 4096 ** 2, 5800 ** 2, 8192 ** 2], "pixels, captured into memory"),
    # Small windows are another case for a driver that draws by software: it fits more views into one go.
    "views": ([1, 8, 26, 64, 128, 256], "views of one window"),
}
# Functions of krGrowthBenchmark whose instructions are counted.
COUNTED = {"load_s": "krGrowthRead", "frame_s": "krGrowthFrame"}
# The figures of a size: key, name in the picture, unit, colour, mark. Colours that the colour-blind tell apart (Okabe
# and Ito, 2008), and marks that need no colours.
FIGURES = [
    ("load_s", "reading the file", "s", "#d55e00", "square"),
    ("build_s", "building, first frame", "s", "#0072b2", "circle"),
    ("frame_s", "frame", "s", "#009e73", "triangle"),
    ("driver_s", "clearing, reading back", "s", "#777777", "diamond"),
    ("memory_mib", "most memory held", "MiB", "#aa4499", "circle"),
]


def ask(program, series, count):
    environment = dict(os.environ)
    environment.setdefault("KR_WINDOW", "egl")
    answer = subprocess.run([program, series, str(count)], capture_output=True, text=True, env=environment)
    if answer.returncode != 0:
        sys.stderr.write("%s %d: not measured: %s\n" % (series, count, answer.stderr.strip().split("\n")[-1]))
        return None
    return json.loads(answer.stdout.strip().split("\n")[-1])


def instructions(program, series, count, key):
    """Of a figure, at one size; None where they cannot be counted."""
    environment = dict(os.environ, LP_NUM_THREADS="0")
    environment.setdefault("KR_WINDOW", "egl")
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
               "--toggle-collect=" + COUNTED[key], program, series, str(count)]
    try:
        answer = subprocess.run(command, capture_output=True, text=True, env=environment)
    except FileNotFoundError:
        return None
    collected = re.search(r"Collected : (\d+)", answer.stderr)
    if answer.returncode != 0 or not collected:
        return None
    frames = json.loads(answer.stdout.strip().split("\n")[-1])["frames"] if key == "frame_s" else 1
    return int(collected.group(1)) / frames


def counted_exponent(program, series, curve):
    """How fast a figure's instructions grow; None where they are not counted."""
    if curve.key not in COUNTED:
        return None
    largest = curve.points[-1][0]
    points = [(count, instructions(program, series, count, curve.key)) for count in (largest // 100, largest // 10)]
    return exponent(points) if all(value for _, value in points) else None


def exponent(points):
    """k of the x^k that fits best: the slope of the straight line through the logarithms."""
    largest = max(x for x, _ in points)
    upper = [(math.log(x), math.log(y)) for x, y in points if 10 * x >= 0.999 * largest and y > 0]
    if len(upper) < 2:
        return None
    mean_x = sum(x for x, _ in upper) / len(upper)
    mean_y = sum(y for _, y in upper) / len(upper)
    return sum((x - mean_x) * (y - mean_y) for x, y in upper) / sum((x - mean_x) ** 2 for x, _ in upper)


class Curve:
    """One figure of a series: its rounds at each size."""

    def __init__(self, figure, answers):
        self.key, self.name, self.unit, self.colour, self.mark = figure
        self.points = []
        rounds = {}
        for count, found in sorted(answers.items()):
            values = [answer[self.key] for answer in found]
            if min(values, default=0) > 0:
                self.points.append((count, statistics.median(values)))
                for number, value in enumerate(values):
                    rounds.setdefault(number, []).append((count, value))
        exponents = [exponent(points) for points in rounds.values()]
        exponents = [k for k in exponents if k is not None]
        self.exponent = statistics.median(exponents) if exponents else None

    def is_too_fast(self, curves):
        """Not the driver's own, and a frame that holds it only when it outgrows that."""
        driver = next((curve.exponent for curve in curves if curve.key == "driver_s"), None)
        limit = max(LIMIT, driver + 0.05) if driver and self.key == "frame_s" else LIMIT
        return self.key != "driver_s" and self.exponent is not None and self.exponent > limit


def number(value):
    """Short: 10000000 is 10M."""
    for limit, letter in ((1e6, "M"), (1e3, "k")):
        if value >= limit:
            return "%.3g%s" % (value / limit, letter)
    return "%.3g" % value


def measured(value, unit):
    """A mark of an axis, with its unit: 0.0001 s is 100 µs."""
    if unit == "MiB":
        return "%g GiB" % (value / 1000) if value >= 1000 else "%g MiB" % value
    for limit, name in ((1, "s"), (1e-3, "ms")):
        if value >= 0.999 * limit:
            return "%.3g %s" % (value / limit, name)
    return "%.3g µs" % (value * 1e6)


def mark(shape, x, y, colour):
    paths = {"circle": "m-3 0a3 3 0 1 0 6 0a3 3 0 1 0 -6 0z", "square": "m-2.8 -2.8h5.6v5.6h-5.6z",
             "triangle": "m0 -3.8l3.6 6.4h-7.2z", "diamond": "m0 -3.8l3.8 3.8l-3.8 3.8l-3.8 -3.8z"}
    return '<path d="M%.1f %.1f%s" fill="%s"/>' % (x, y, paths[shape], colour)


def apart(heights, least):
    """The heights of labels, each as near as may be to what it names, from the highest on."""
    placed = []
    for height in sorted(heights):
        placed.append(max(height, placed[-1] + least) if placed else height)
    # What the lowest were moved down by too much is shared with those above.
    excess = (placed[-1] - max(heights)) / 2
    return [height - excess for height in placed]


PANEL = {"s": ("Processor time", 62, 290), "MiB": ("Memory", 562, 190)}  # title, left, width
PANEL_TOP, PANEL_HEIGHT = 46, 200


def panel(shown):
    """One unit's curves, both axes logarithmic, each curve named at its end; dashed lines grow linearly."""
    unit = shown[0].unit
    title, left, width = PANEL[unit]
    xs = [x for curve in shown for x, _ in curve.points]
    ys = [y for curve in shown for _, y in curve.points]
    x0, x1 = math.log10(min(xs)), max(math.log10(max(xs)), math.log10(min(xs)) + 0.1)
    steps = [(power, digit) for power in range(-8, 8) for digit in (1, 2, 5)]
    # Whole decades, or less where that holds everything.
    if max(ys) / min(ys) > 30:
        steps = [step for step in steps if step[1] == 1]
    levels = [digit * 10.0 ** power for power, digit in steps]
    low = max(level for level in levels if level <= min(ys))
    high = min(level for level in levels if level >= 1.02 * max(ys) and level > low)
    y0, y1 = math.log10(low), math.log10(high)
    bottom = PANEL_TOP + PANEL_HEIGHT

    def place(x, y):
        return (left + width * (math.log10(x) - x0) / (x1 - x0),
                bottom - PANEL_HEIGHT * (math.log10(y) - y0) / (y1 - y0))

    out = ['<text x="%g" y="%g" font-weight="bold">%s</text>' % (left, PANEL_TOP - 9, title)]
    for level in levels:
        if low <= level <= high:
            y = place(10 ** x0, level)[1]
            out.append('<path d="M%g %.1fh%g" stroke="#dddddd"/><text x="%g" y="%.1f" text-anchor="end">%s</text>'
                       % (left, y, width, left - 6, y + 4, measured(level, unit)))
    # Rounded, since the logarithm of a power of ten may lie a little beside it.
    for power in range(math.ceil(round(x0, 6)), math.floor(round(x1, 6)) + 1):
        x = place(10 ** power, low)[0]
        out.append('<path d="M%.1f %gv%g" stroke="#dddddd"/><text x="%.1f" y="%g" text-anchor="middle">%s</text>'
                   % (x, PANEL_TOP, PANEL_HEIGHT, x, bottom + 16, number(10 ** power)))
    out.append('<rect x="%g" y="%g" width="%g" height="%g" fill="none" stroke="#888888"/>'
               % (left, PANEL_TOP, width, PANEL_HEIGHT))
    shown = sorted(shown, key=lambda curve: -curve.points[-1][1])
    heights = apart([place(*curve.points[-1])[1] for curve in shown], 30)
    for curve, height in zip(shown, heights):
        # Through the largest size, downwards while it stays in the panel.
        last_x, last_y = curve.points[-1]
        x = max(10 ** x0, last_x * low / last_y)
        out.append('<path d="M%.1f %.1fL%.1f %.1f" stroke="%s" stroke-dasharray="3 4"/>'
                   % (*place(x, last_y * x / last_x), *place(last_x, last_y), curve.colour))
        path = " ".join("%s%.1f %.1f" % ("L" if i else "M", *place(x, y)) for i, (x, y) in enumerate(curve.points))
        out.append('<path d="%s" fill="none" stroke="%s" stroke-width="2"/>' % (path, curve.colour))
        out.extend(mark(curve.mark, *place(x, y), curve.colour) for x, y in curve.points)
        growth = ("" if curve.exponent is None else
                  ', <tspan font-style="italic">x</tspan><tspan dy="-4" font-size="9">%.2f</tspan>' % curve.exponent)
        out.append(mark(curve.mark, left + width + 14, height - 3, curve.colour))
        out.append('<text x="%g" y="%.1f">%s</text><text x="%g" y="%.1f" fill="#444444">%s%s</text>'
                   % (left + width + 23, height + 1, curve.name, left + width + 23, height + 14,
                      measured(float("%.2g" % last_y), unit), growth))
    return out


def svg(title, curves):
    """Seconds on the left, MiB on the right. With a ground of its own: pages may be dark."""
    width, height = 900, PANEL_TOP + PANEL_HEIGHT + 52
    out = ['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %d %d" width="%d" height="%d" fill="#111111"'
           ' font-family="sans-serif" font-size="12">' % (width, height, width, height),
           '<title>%s</title>' % title, '<rect width="100%" height="100%" rx="6" fill="#ffffff"/>']
    for unit, (_, left, panel_width) in PANEL.items():
        shown = [curve for curve in curves if curve.unit == unit and curve.points]
        if shown:
            out.extend(panel(shown))
            out.append('<text x="%g" y="%g" text-anchor="middle">%s</text>'
                       % (left + panel_width / 2, PANEL_TOP + PANEL_HEIGHT + 33, title))
    out.append('<text x="%g" y="%g" font-size="11" fill="#444444" text-anchor="end">dashed: in proportion; '
               '<tspan font-style="italic">x</tspan><tspan dy="-4" font-size="8">k</tspan>'
               '<tspan dx="4" dy="4">fits the last decade of sizes</tspan></text></svg>' % (width - 10, 18))
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(description="What time and memory do when a scene grows.")
    parser.add_argument("programs", help="folder of krGrowthBenchmark")
    parser.add_argument("--images", help="folder for the pictures")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--series", action="append", choices=sorted(SERIES), help="only this one; may be given again")
    parser.add_argument("--largest", type=float, default=1.0, help="this part of every size: for a quick look")
    parser.add_argument("--json", help="file for all answers")
    parser.add_argument("--redraw", help="such a file, whose answers are taken instead of asking")
    options = parser.parse_args()
    program = os.path.join(options.programs, "krGrowthBenchmark")

    answers = {series: {} for series in SERIES if not options.series or series in options.series}
    if options.redraw:
        with open(options.redraw, encoding="utf-8") as file:
            kept = json.load(file)
        answers = {series: {int(count): found for count, found in kept[series].items()}
                   for series in answers if series in kept}
    for turn in range(0 if options.redraw else options.rounds):
        for series, found in answers.items():
            for size in SERIES[series][0]:
                count = max(1, round(size * options.largest))
                answer = ask(program, series, count)
                if answer is not None:
                    found.setdefault(count, []).append(answer)
        sys.stderr.write("round %d of %d\n" % (turn + 1, options.rounds))

    too_fast = False
    for series, found in answers.items():
        curves = [Curve(figure, found) for figure in FIGURES]
        for curve in curves:
            if not curve.points:
                continue
            is_too_fast = curve.is_too_fast(curves)
            counted = counted_exponent(program, series, curve) if is_too_fast else None
            if counted is not None:
                is_too_fast = counted > LIMIT
            too_fast = too_fast or is_too_fast
            last_x, last_y = curve.points[-1]
            print("%-10s %-26s %10.4g %-4s at %-5s %s%s" % (
                series, curve.name, last_y, curve.unit, number(last_x),
                "" if curve.exponent is None else "x^%.2f" % curve.exponent,
                ("" if counted is None else ", instructions x^%.2f" % counted) +
                ("  FASTER THAN LINEAR" if is_too_fast else "")))
        if options.images:
            with open(os.path.join(options.images, "growth-%s.svg" % series), "w", encoding="utf-8") as file:
                file.write(svg(SERIES[series][1], curves))
    if options.json:
        with open(options.json, "w", encoding="utf-8") as file:
            json.dump(answers, file, indent=1)
    return 1 if too_fast else 0


if __name__ == "__main__":
    sys.exit(main())
