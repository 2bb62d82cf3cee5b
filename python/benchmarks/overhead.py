"""What a frame costs from Python, and how much of that the library's own call takes:  overhead.py ROBOT [FRAMES]"""

import statistics
import sys
import time

import numpy as np

import krrendcore as kr
from krrendcore import _frame


def main(path: str, frames: str = "300") -> None:
    robot, count = kr.load(path), int(frames)
    q = np.zeros(len(robot.joints))
    print(f"{'picture':>12} {'kinds':>7} {'Python':>9} {'library':>9} {'added':>9}   (ms, median of 5 rounds of {count} frames)")
    for size, kinds in (((64, 48), ["color"]), ((64, 48), list(_frame.KINDS)), ((640, 480), list(_frame.KINDS))):
        with kr.Renderer(robot, *size, samples=1) as renderer:
            out = {k: np.empty((size[1], size[0], *_frame.KINDS[k][1]), _frame.KINDS[k][0]) for k in kinds}
            renderer.render(q, out=out)
            images = [out.get(kind) for kind in _frame.KINDS]
            rounds = []
            for _ in range(5):
                begin = time.perf_counter()
                for _ in range(count):
                    renderer.render(q, out=out)
                python = time.perf_counter() - begin
                rounds.append((python, renderer._core.seconds_of_drawing(renderer._options, *images, count)))
            python, library, added = (
                1e3 * statistics.median(values) / count
                for values in ([a for a, _ in rounds], [b for _, b in rounds], [a - b for a, b in rounds])
            )
            print(f"{size[0]:>6} x {size[1]:<4}{len(kinds):>6} {python:>9.3f} {library:>9.3f} {added:>9.3f}")


if __name__ == "__main__":
    main(*sys.argv[1:])
