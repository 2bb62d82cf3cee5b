"""Draws a motion on all cores, a process each:  workers.py ROBOT [FOLDER [FRAMES]]"""

import multiprocessing
import sys
from pathlib import Path

import numpy as np
import numpy.typing as npt

import krrendcore as kr

_renderer: kr.Renderer


def open_renderer(path: str) -> None:
    """Once in each worker: a renderer belongs to its process."""
    global _renderer
    _renderer = kr.Renderer(kr.load(path), 320, 240)


def draw(q: npt.NDArray[np.float64]) -> bytes:
    return _renderer.render(q).png()


def main(path: str, folder: str = ".", frames: str = "8") -> None:
    robot = kr.load(path)
    low = np.array([max(joint.lower, -1.0) for joint in robot.joints])
    high = np.array([min(joint.upper, 1.0) for joint in robot.joints])
    motion = low + np.linspace(0.0, 1.0, int(frames))[:, None] * (high - low)
    # Not fork: graphics drivers do not survive it.
    with multiprocessing.get_context("spawn").Pool(2, open_renderer, (path,)) as pool:
        for i, png in enumerate(pool.imap(draw, motion)):
            Path(folder, f"frame_{i:04d}.png").write_bytes(png)
    print(frames, "frames")


if __name__ == "__main__":
    main(*sys.argv[1:])
