"""Makes a point cloud of what a depth camera sees of a robot:  point_cloud.py ROBOT [FOLDER]"""

import sys
from pathlib import Path

import numpy as np

import krrendcore as kr


def main(path: str, folder: str = ".") -> None:
    robot = kr.load(path)
    with kr.Renderer(robot, 320, 240, normals="world") as renderer:
        frame = renderer.render(color=True, depth=True, normals=True)
    seen = np.isfinite(frame.depth)
    rows, columns = np.nonzero(seen)
    # The centre of pixel (column, row) is at (column + 0.5, row + 0.5).
    pixels = np.stack([columns + 0.5, rows + 0.5, np.ones(len(rows))])
    camera = np.linalg.inv(frame.K) @ pixels * frame.depth[seen]
    world = frame.T_world_camera[:3, :3] @ camera + frame.T_world_camera[:3, 3:]
    table = np.hstack([world.T, frame.normals[seen], frame.color[seen]])
    np.savetxt(Path(folder, "points.xyz"), table, fmt="%.5f", header="x y z nx ny nz red green blue")
    print(len(table), "points between", world.min(axis=1).round(3), "and", world.max(axis=1).round(3), "m")


if __name__ == "__main__":
    main(*sys.argv[1:])
