#!/usr/bin/python3
"""What takes minutes, by hand or from `.ci/run long`:  endurance.py [RENDERERS [WORKERS [FRAMES]]]

Opens and closes renderers and watches the memory; then has spawned workers draw the same frames in orders of their own and
compares every byte.
"""

import hashlib
import multiprocessing
import random
import sys
import time

import numpy as np
import support
from test_lifetime import resident

import krrendcore as kr


def come_and_go(count: int) -> None:
    """Memory stays where it is after the first tenth, but for what one renderer in a hundred may take."""
    robots = [kr.load(support.ARM), kr.load(support.MESH)]
    begin, settled = time.monotonic(), 0.0
    for i in range(1, count + 1):
        with kr.Renderer(robots[i % 2], 64, 48, samples=1) as renderer:
            renderer.render(color=True, depth=True, labels=True, normals=True)
        if i % max(1, count // 10) == 0:
            settled = settled or resident()
            print(f"{i} renderers, {resident():.1f} MiB, {(time.monotonic() - begin) / i * 1e3:.1f} ms each", flush=True)
    grown = resident() - settled
    assert grown < 5.0, f"{grown:.1f} MiB more than after the first tenth"


def draw(task: "tuple[int, int]") -> "list[str]":
    """Frame by frame in an order of the worker's own; digests in the order of the frames."""
    seed, count = task
    robot = kr.load(support.ARM)
    digests = [""] * count
    order = list(range(count))
    random.Random(seed).shuffle(order)
    with kr.Renderer(robot, 160, 120, level_of_detail=0.5) as renderer:
        for i in order:
            q = np.sin(0.1 * i + np.arange(len(robot.joints)))
            camera = kr.Camera.look_at((2 + np.sin(i), -2, 1.5), (0.2, 0, 0.5))
            frame = renderer.render(q, camera=camera, color=True, depth=True, labels=True, normals=True)
            images = (frame.color, frame.depth, frame.labels, frame.normals)
            digests[i] = hashlib.sha256(b"".join(image.tobytes() for image in images)).hexdigest()
    return digests


def work(workers: int, frames: int) -> None:
    begin = time.monotonic()
    with multiprocessing.get_context("spawn").Pool(workers) as pool:
        first, *others = pool.map(draw, [(seed, frames) for seed in range(workers)], chunksize=1)
    differing = [sum(a != b for a, b in zip(first, other)) for other in others]
    print(f"{workers} workers, {frames} frames each in {time.monotonic() - begin:.0f} s, {sum(differing)} differ")
    assert not any(differing) and len(set(first)) > 1, differing


def main(renderers: str = "10000", workers: str = "4", frames: str = "500") -> None:
    work(int(workers), int(frames))
    come_and_go(int(renderers))


if __name__ == "__main__":
    main(*sys.argv[1:])
