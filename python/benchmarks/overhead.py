"""What Python adds to a frame, beside the library's own call:  overhead.py ROBOT [FRAMES]

In processor time of the thread that calls: the time by the clock is the driver's, which draws on threads of its own.
"""

import statistics
import sys
import time

import numpy as np

import krrendcore as kr
from krrendcore import _frame


def main(path: str, frames: str = "300") -> None:
    robot, count = kr.load(path), int(frames)
    q = np.zeros(len(robot.joints))
    print(f"{'picture':>12} {'kinds':>7} {'Python':>9} {'library':>9} {'added':>9}   (ms a frame, median of 5 rounds of {count})")
    for size, kinds in (((64, 48), ["color"]), ((64, 48), list(_frame.KINDS)), ((640, 480), list(_frame.KINDS))):
        with kr.Renderer(robot, *size, samples=1) as renderer:
            out = {k: np.empty((size[1], size[0], *_frame.KINDS[k][1]), _frame.KINDS[k][0]) for k in kinds}
            renderer.render(q, out=out)
            images = [out.get(kind) for kind in _frame.KINDS]
            rounds = []
            for _ in range(5):
                begin = time.thread_time()
                for _ in range(count):
                    renderer.render(q, out=out)
                middle = time.thread_time()
                renderer._core.draw_again(renderer._options, *images, count)
                rounds.append((middle - begin, time.thread_time() - middle))
            python, library, added = (
                1e3 * statistics.median(values) / count
                for values in ([a for a, _ in rounds], [b for _, b in rounds], [a - b for a, b in rounds])
            )
            print(f"{size[0]:>6} x {size[1]:<4}{len(kinds):>6} {python:>9.3f} {library:>9.3f} {added:>9.3f}")


if __name__ == "__main__":
    main(*sys.argv[1:])
