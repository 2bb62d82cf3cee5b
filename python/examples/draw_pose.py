"""Draws a robot in a pose:  draw_pose.py ROBOT [FOLDER]"""

import sys
from pathlib import Path

import krrendcore as kr


def main(path: str, folder: str = ".") -> None:
    robot = kr.load(path)
    # A quarter of the way from the lower limit of each joint that has one.
    q = {j.name: j.lower + 0.25 * (j.upper - j.lower) for j in robot.joints if j.type != "continuous"}
    with kr.Renderer(robot, width=640, height=480, camera=kr.Camera.fit(robot, q)) as renderer:
        frame = renderer.render(q, color=True, labels=True)
        seen = {renderer.labels[int(label)].link for label in set(frame.labels.flat) if label}
    Path(folder, "pose.png").write_bytes(frame.png())
    print("seen:", ", ".join(sorted(seen)))


if __name__ == "__main__":
    main(*sys.argv[1:])
