"""Threads, processes, and how renderers come and go."""

import gc
import multiprocessing
import threading
import time
import unittest
import weakref
from pathlib import Path

import numpy as np
import support

import krrendcore as kr

Q = np.stack([np.linspace(-1, 1, 6), np.linspace(0, 0.5, 6)], 1)

FORKED = """
import os, sys
import krrendcore as kr
robot = kr.load(sys.argv[1])
renderer = kr.Renderer(robot, 32, 24)
renderer.render()
sys.stdout.flush()
child = os.fork()
if child == 0:
    for attempt in (lambda: renderer.render(), lambda: kr.Renderer(robot, 32, 24)):
        try:
            attempt()
        except kr.RenderError as error:
            print("spawn" in str(error))
    if sys.argv[2] == "drop":
        del renderer
    sys.exit(0)
_, status = os.waitpid(child, 0)
print(status, renderer.render().color.any())
"""

LEFT = """
import sys, threading
import krrendcore as kr
robot = kr.load(sys.argv[1])
renderer = kr.Renderer(robot, 32, 24)
renderer.render()
closed = []
def elsewhere():
    other = kr.Renderer(robot, 32, 24)
    other.render()
    closed.append(other)
thread = threading.Thread(target=elsewhere)
thread.start()
thread.join()
loop = [renderer]
loop.append(loop)
print("done")
"""


def resident() -> float:
    """MiB"""
    return int(Path("/proc/self/statm").read_text().split()[1]) / 256


def pictures(path: Path) -> "list[bytes]":
    """In a worker: the frames of Q."""
    with kr.Renderer(kr.load(path), 64, 48) as renderer:
        return [renderer.render(q).color.tobytes() for q in Q]


class TestThreads(support.Test):
    def test_another_thread_is_refused(self) -> None:
        renderer = kr.Renderer(self.robot(), 32, 24)
        told = []

        def use() -> None:
            for attempt in (renderer.render, renderer.close, lambda: renderer.pick(0, 0)):
                try:
                    attempt()  # type: ignore[operator]
                except kr.RenderError as error:
                    told.append(str(error))

        renderer.render()
        thread = threading.Thread(target=use)
        thread.start()
        thread.join()
        self.assertEqual(len(told), 3)
        self.assertTrue(all("belongs to the thread that made it" in text for text in told))
        self.assertTrue(renderer.render().color.any())
        renderer.close()

    def test_threads_with_a_renderer_each_draw_the_same_robot_at_once(self) -> None:
        robot = kr.load(support.ARM)
        q = np.linspace(0, 0.5, 4 * len(robot.joints)).reshape(4, -1)
        with kr.Renderer(robot, 64, 48) as renderer:
            expected = renderer.render_batch(q).color
        drawn = {}

        hooked = self.robot()

        def draw(i: int) -> None:
            # The library has something to say about this one, while the others draw.
            kr.Renderer(hooked, 32, 24, highlight=["hook"]).close()
            with kr.Renderer(robot, 64, 48) as own:
                drawn[i] = [own.render_batch(q).color for _ in range(3)]

        threads = [threading.Thread(target=draw, args=(i,)) for i in range(3)]
        with self.assertLogs("krrendcore", "WARNING") as log:
            for thread in threads:
                thread.start()
            for thread in threads:
                thread.join()
        self.assertEqual(len(log.output), 3)
        for i in range(3):
            for images in drawn[i]:
                np.testing.assert_array_equal(images, expected)

    def test_others_run_while_a_frame_is_drawn(self) -> None:
        renderer = kr.Renderer(kr.load(support.ARM), 1600, 1200, samples=16)
        renderer.render()
        stop, ticks = threading.Event(), []

        def tick() -> None:
            while not stop.wait(0.001):
                ticks.append(time.perf_counter())

        thread = threading.Thread(target=tick)
        thread.start()
        begin = time.perf_counter()
        renderer.render()
        end = time.perf_counter()
        stop.set()
        thread.join()
        renderer.close()
        # Held, Python's lock would let none through.
        self.assertGreater(len([at for at in ticks if begin < at < end]), 2)

    def test_one_that_is_dropped_elsewhere_waits_for_its_own_thread(self) -> None:
        robot = self.robot()
        held = [kr.Renderer(robot, 32, 24)]
        held[0].render()
        gone = weakref.ref(held[0])
        thread = threading.Thread(target=held.clear)
        thread.start()
        thread.join()
        self.assertIsNone(gone())
        with kr.Renderer(robot, 32, 24) as renderer:
            self.assertTrue(renderer.render().color.any())


class TestProcesses(support.Test):
    def test_a_forked_child_is_refused_and_ends_well(self) -> None:
        path = self.write("r.urdf", support.two_links())
        for what in ("drop", "keep"):
            self.assertEqual(self.run_python(FORKED, path, what).split(), ["True", "True", "0", "True"])

    def test_spawned_workers_draw_the_same_bytes(self) -> None:
        path = self.write("r.urdf", support.two_links())
        expected = pictures(path)
        with multiprocessing.get_context("spawn").Pool(2) as pool:
            for drawn in pool.map(pictures, [path] * 2):
                self.assertEqual(drawn, expected)

    def test_a_program_may_end_without_closing(self) -> None:
        path = self.write("r.urdf", support.two_links())
        self.assertEqual(self.run_python(LEFT, path), "done\n")


class TestLifetime(support.Test):
    def test_a_closed_renderer_says_so(self) -> None:
        renderer = kr.Renderer(self.robot(), 32, 24)
        with self.assertRaisesRegex(kr.RenderError, "drawn no frame yet"):
            renderer.pick(0, 0)
        color = renderer.render().color.copy()
        renderer.close()
        renderer.close()
        for attempt in (renderer.render, renderer.amodal_masks, lambda: renderer.pick(0, 0)):
            with self.assertRaisesRegex(RuntimeError, "is closed"):
                attempt()  # type: ignore[operator]
        self.assertTrue(color.any())

    def test_many_renderers_leave_nothing_behind(self) -> None:
        robot = self.robot()

        def use(count: int) -> None:
            for i in range(count):
                renderer = kr.Renderer(robot, 64, 48, samples=1)
                renderer.render(color=True, depth=True, labels=True)
                if i % 2 == 0:
                    renderer.close()
                del renderer
            gc.collect()

        use(50)
        before = resident()
        use(200)
        # A window of this size with its buffers takes more than 0.1 MiB.
        self.assertLess(resident() - before, 200 * 0.02)


if __name__ == "__main__":
    unittest.main()
