"""Robots and scenes of several of them."""

from __future__ import annotations

import json
import logging
import os
from typing import Any, Iterable, Mapping, NamedTuple, Sequence

import numpy as np
import numpy.typing as npt

from . import _core
from ._errors import UnknownNameError

Matrix = npt.NDArray[np.float64]
Positions = Mapping[str, float] | Sequence[float] | npt.NDArray[np.floating[Any]] | None
"""Joint positions: by name, or one for each of ``joints`` in their order; rad, m for prismatic joints."""
Poses = Mapping[str, npt.ArrayLike]
"""Base link frames to the world frame, by the robot's name: 4 x 4 matrices for column vectors, m."""
Bases = list[tuple[int, Matrix]]

IDENTITY = np.eye(4)
_LOG = logging.getLogger("krrendcore")


class Joint(NamedTuple):
    """A joint that is free to move: not fixed, and no follower of another one."""

    name: str  #: in a scene of several robots "robot/joint"
    type: str  #: "revolute", "continuous" or "prismatic"
    lower: float  #: rad or m; -inf without a limit. Positions beyond a limit are drawn all the same
    upper: float  #: rad or m; inf without a limit


class System:
    """What robots and scenes have in common. Does not change: several renderers and threads may share one."""

    def __init__(self, core: _core.System) -> None:
        self._core = core
        self._robots = tuple(core.robots)
        bare = [name for _, name, _, _, _ in core.joints]
        self._joints = tuple(Joint(self._name(j[0], j[1]), j[2], j[3], j[4]) for j in core.joints)
        # A joint's own name will do in a scene where no other robot has a joint of that name.
        self._index = {name: i for i, name in enumerate(bare) if bare.count(name) == 1}
        self._index.update((joint.name, i) for i, joint in enumerate(self._joints))
        self._links = tuple(self._name(robot, link) for robot, link in core.links)

    @property
    def joints(self) -> tuple[Joint, ...]:
        """The joints that are free to move, in the order of the columns of positions."""
        return self._joints

    @property
    def links(self) -> tuple[str, ...]:
        """The names of all links, in a scene of several robots "robot/link"; of each robot the base first."""
        return self._links

    @property
    def robots(self) -> tuple[str, ...]:
        """The names of the robots; one for a robot that is alone, its own."""
        return self._robots

    def fk(self, q: Positions = None, *, poses: Poses | None = None) -> dict[str, Matrix]:
        """Where the links are: for each name in ``links`` the link frame to the world frame, a 4 x 4 float64 matrix
        for column vectors (``T @ [x, y, z, 1]``), m.

        :param q: joint positions; joints that are not named are where the file has them. Followers follow
        :param poses: base link frames to the world, by the robot's name
        """
        columns, values = self._columns(q)
        matrices = self._core.fk(columns, values, self._bases(poses))
        return dict(zip(self._links, matrices))

    def _name(self, robot: int, name: str) -> str:
        return f"{self._robots[robot]}/{name}" if len(self._robots) > 1 else name

    def _joint(self, name: str) -> int:
        try:
            return self._index[name]
        except KeyError:
            raise UnknownNameError(self._core.why_no_joint(name)) from None

    def _robot(self, name: str) -> int:
        try:
            return self._robots.index(name)
        except ValueError:
            raise UnknownNameError(
                f'there is no robot "{name}" here, there is {", ".join(self._robots)}'
            ) from None

    def _columns(self, q: Positions) -> tuple[npt.NDArray[np.uint32], Matrix]:
        """The joints of one state, and their positions."""
        if q is None:
            return np.empty(0, np.uint32), np.empty(0)
        if isinstance(q, Mapping):
            columns = np.array([self._joint(name) for name in q], np.uint32)
            return columns, np.array(list(q.values()), np.float64)
        columns, rows = self._rows(q, None)
        if rows.ndim != 1:
            raise ValueError(f"q has the shape {rows.shape} instead of ({len(self._joints)},)")
        return columns, rows

    def _rows(self, q: npt.ArrayLike, joints: Iterable[str] | None) -> tuple[npt.NDArray[np.uint32], Matrix]:
        """The joints of several states (or one), and their positions in the last dimension."""
        rows = np.ascontiguousarray(q, np.float64)
        if joints is None:
            columns = np.arange(len(self._joints), dtype=np.uint32)
        else:
            columns = np.array([self._joint(name) for name in joints], np.uint32)
        if rows.ndim == 0 or rows.shape[-1] != len(columns):
            raise ValueError(f"q has the shape {rows.shape}; its last dimension is of {len(columns)} joints")
        return columns, rows

    def _bases(self, poses: Poses | None) -> Bases:
        return [(self._robot(name), np.asarray(pose, np.float64)) for name, pose in (poses or {}).items()]


class Robot(System):
    """What one file holds: a robot, several of them (native files), or a single mesh."""

    def __init__(self, core: _core.System, path: str, options: tuple[tuple[str, ...], bool]) -> None:
        """Use :func:`load`."""
        super().__init__(core)
        self._path = path
        self._options = options

    def __reduce__(self) -> tuple[Any, ...]:
        # A worker process reads the file anew.
        return (_load, (self._path, *self._options))

    def __repr__(self) -> str:
        return f"<krrendcore.Robot {self.name!r}, {len(self.joints)} joints, {len(self.links)} links>"

    @property
    def name(self) -> str:
        """The robot's name in its file; the file's own for native files and meshes."""
        return self._core.name

    @property
    def path(self) -> str:
        """The file it was read from."""
        return self._path

    @property
    def report(self) -> dict[str, Any]:
        """What was found, mended and left out: "counts", "warnings", "meshes" and more (docs/formats.md)."""
        return json.loads(self._core.report)  # type: ignore[no-any-return]


class Scene(System):
    """Several robots and meshes in one world. Does not change; where its robots are, a frame may say anew.

    ::

        scene = kr.Scene({"left": (arm, kr.pose(y=0.5)), "right": (arm, kr.pose(y=-0.5)), "box": box})
        renderer.render({"left/elbow": 0.3}, poses={"box": kr.pose(z=1.0)})
    """

    def __init__(
        self,
        parts: Mapping[str, Robot | tuple[Robot, npt.ArrayLike]] | Iterable[Robot | tuple[Robot, npt.ArrayLike]],
    ) -> None:
        """
        :param parts: robots, or pairs of a robot and its 4 x 4 pose (robot to world, m), by names or in a list. In a
            list a robot bears its own name; when that is taken, with a number: "arm", "arm_2"
        """
        if not isinstance(parts, Mapping):
            named: dict[str, Robot | tuple[Robot, npt.ArrayLike]] = {}
            for part in parts:
                robot = part[0] if isinstance(part, tuple) else part
                name, number = robot.name, 2
                while name in named:
                    name, number = f"{robot.name}_{number}", number + 1
                named[name] = part
            parts = named
        if not parts:
            raise ValueError("a scene has at least one robot")
        self._parts: dict[str, tuple[Robot, Matrix]] = {}
        for name, part in parts.items():
            robot, pose = part if isinstance(part, tuple) else (part, IDENTITY)
            self._parts[name] = (robot, np.asarray(pose, np.float64))
        super().__init__(_core.compose([(robot._core, pose, name) for name, (robot, pose) in self._parts.items()]))

    def __reduce__(self) -> tuple[Any, ...]:
        return (Scene, (self._parts,))

    def __repr__(self) -> str:
        return f"<krrendcore.Scene of {', '.join(self.robots)}>"


def _load(path: str, package_paths: tuple[str, ...], use_cache: bool) -> Robot:
    core = _core.load(os.fsencode(path), [os.fsencode(folder) for folder in package_paths], use_cache)
    robot = Robot(core, path, (package_paths, use_cache))
    report = robot.report
    for warning in report.get("warnings", ()):
        _LOG.info("%s: %s: %s", warning["file"], warning["element"], warning["text"])
    missing = report["counts"]["missingMeshes"]
    if missing:
        what = "1 mesh is" if missing == 1 else f"{missing} meshes are"
        _LOG.warning("%s: %s missing: the robot's report tells more", path, what)
    return robot


def load(
    path: str | os.PathLike[str],
    *,
    package_paths: Iterable[str | os.PathLike[str]] = (),
    use_cache: bool = False,
) -> Robot:
    """Reads a robot description (URDF), a native system file, or a single mesh (STL, OBJ, DAE, PLY, OFF, glTF); its
    content says which. What had to be mended is in the robot's ``report``.

    :param package_paths: folders searched for packages, after the file's own surroundings
    :param use_cache: keep prepared meshes on disk, so that the next process loads them faster
    :raises MissingFileError: there is no such file
    :raises FormatError: it holds nothing that can be drawn
    """
    name = os.fsdecode(path)
    if "\0" in name:
        raise ValueError("a path holds no null character")
    return _load(name, tuple(os.fsdecode(folder) for folder in package_paths), use_cache)


def pose(
    x: float = 0.0, y: float = 0.0, z: float = 0.0, *, roll: float = 0.0, pitch: float = 0.0, yaw: float = 0.0
) -> Matrix:
    """A 4 x 4 pose for column vectors: a translation, m, and fixed-axis roll (x), pitch (y), yaw (z), rad
    (R = Rz(yaw) Ry(pitch) Rx(roll))."""
    (cr, cp, cy), (sr, sp, sy) = np.cos([roll, pitch, yaw]), np.sin([roll, pitch, yaw])
    return np.array(
        [
            [cy * cp, cy * sp * sr - sy * cr, cy * sp * cr + sy * sr, x],
            [sy * cp, sy * sp * sr + cy * cr, sy * sp * cr - cy * sr, y],
            [-sp, cp * sr, cp * cr, z],
            [0.0, 0.0, 0.0, 1.0],
        ]
    )
