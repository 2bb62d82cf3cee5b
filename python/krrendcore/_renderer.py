"""Drawing."""

from __future__ import annotations

import operator
import weakref
from dataclasses import dataclass
from types import TracebackType
from typing import Any, Iterable, Mapping, NamedTuple, Sequence

import numpy as np
import numpy.typing as npt

from . import _core
from ._camera import Camera, _triple
from ._errors import RenderError
from ._frame import KINDS, Frame, Frames, Label
from ._system import Poses, Positions, Robot, Scene, System

Color = Sequence[float]
"""Red, green, blue, each in [0, 1]."""


@dataclass(frozen=True)
class Light:
    """One lamp, as OpenGL's fixed pipeline understands it; there are eight at most."""

    position: tuple[float, float, float] = (0.0, 0.0, 1.0)  #: world frame, m; the direction towards a far away one
    positional: bool = False  #: a lamp at ``position``, otherwise parallel light from there
    diffuse: tuple[float, float, float] = (1.0, 1.0, 1.0)  #: red, green, blue in [0, 1]
    specular: tuple[float, float, float] = (1.0, 1.0, 1.0)  #: of its highlights
    ambient: tuple[float, float, float] = (0.0, 0.0, 0.0)  #: what it adds to everything
    at_eye: bool = False  #: follows the eye point: a headlight
    attenuation: tuple[float, float, float] = (1.0, 0.0, 0.0)  #: of a lamp at d m: light / (a + b d + c d^2)

    def _numbers(self) -> _core._Light:
        return (
            _triple(self.position),
            self.positional,
            _triple(self.diffuse),
            _triple(self.specular),
            _triple(self.ambient),
            self.at_eye,
            _triple(self.attenuation),
        )


class Pick(NamedTuple):
    """The surface behind a pixel. World and link frame, m."""

    robot: str
    link: str
    shape: int  #: among the link's shapes
    point_world: tuple[float, float, float]
    point_link: tuple[float, float, float]
    normal_world: tuple[float, float, float]  #: unit, turned to the eye
    distance: float  #: from the eye, m


class Renderer:
    """Draws one robot or scene, without a display.

    A renderer belongs to the thread and the process that made it; others get a :class:`RenderError`. Worker processes
    are started with spawn (``multiprocessing.get_context("spawn")``). Each frame depends on its arguments alone, not on
    the frames before it.
    """

    def __init__(
        self,
        scene: System | Iterable[Robot | tuple[Robot, npt.ArrayLike]],
        width: int = 640,
        height: int = 480,
        *,
        camera: Camera | None = None,
        samples: int = 4,
        background: Color = _core.BACKGROUND,
        ambient: Color = _core.AMBIENT,
        lights: Iterable[Light] | None = None,
        aids: Iterable[str] = (),
        axis_length: float | None = None,
        shapes: bool = True,
        highlight: Iterable[str] = (),
        fade: float = 0.15,
        level_of_detail: float = 0.0,
        label_level: str = "link",
        depth: str = "planar",
        normals: str = "camera",
    ) -> None:
        """
        :param scene: what :func:`load` or :class:`Scene` gave, or a list of robots or of (robot, pose)
        :param width: of each image, pixels
        :param height: of each image, pixels
        :param camera: of frames that have none of their own; by default the scene as the files have it fills the picture
        :param samples: drawn pixels for each one of a colour image, 1, 4, 9 or 16: smooth edges. Other images have one
            sample, at each pixel's centre
        :param background: red, green, blue in [0, 1]
        :param ambient: the light from everywhere
        :param lights: by default three lamps about each frame's camera
        :param aids: what is drawn besides: "axes", "volumes", "mass", "collision"
        :param axis_length: of the links' axes, m
        :param shapes: whether what is visible of the links is drawn
        :param highlight: links, "link" or "robot/link"; the others fade
        :param fade: opacity of the others, in [0, 1]
        :param level_of_detail: the error that meshes may show, pixels of the drawn picture; 0 draws every triangle
        :param label_level: what labels tell apart: "robot", "link" or "shape"
        :param depth: "planar", along the direction of view, or "euclidean", along each pixel's ray
        :param normals: in the axes of the "camera" (x right, y down, z forward) or of the "world"
        :raises RenderError: there is no OpenGL context to draw with
        """
        self._system = scene if isinstance(scene, System) else Scene(scene)
        width, height = operator.index(width), operator.index(height)
        if width < 1 or height < 1:
            raise ValueError(f"a picture of {width} x {height} pixels has none")
        if samples not in (1, 4, 9, 16):
            raise ValueError(f"samples are 1, 4, 9 or 16, not {samples}")
        for name, value, known in (("depth", depth, ("planar", "euclidean")), ("normals", normals, ("camera", "world"))):
            if value not in known:
                raise ValueError(f"{name} are of the kind {' or '.join(known)}, not {value!r}")
        self._size = (width, height)
        self._level = label_level
        self._options = _core.Options(label_level, normals == "world", depth == "euclidean")
        self._aids = _core.Aids(list(aids), list(highlight), fade, shapes, axis_length)
        self._camera = camera if camera is not None else Camera.fit(self._system)
        self._resolved: tuple[Camera, _core.Camera] = (
            self._camera,
            self._camera._resolve(width, height, self._aids),
        )
        self._core = _core.Renderer(
            self._system._core,
            self._resolved[1],
            width,
            height,
            samples,
            _triple(background),
            _triple(ambient),
            None if lights is None else [light._numbers() for light in lights],
            self._aids,
            level_of_detail,
        )
        robots = self._system.robots
        self._labels = {
            i: Label(robots[robot], link if label_level != "robot" else "", shape)
            for i, (robot, link, shape) in enumerate(self._system._core.labels(label_level), 1)
        }
        # Closed in time, too, by a program that ends without closing it: before Python takes itself apart.
        self._finalizer = weakref.finalize(self, _close_quietly, self._core)

    def __enter__(self) -> Renderer:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def close(self) -> None:
        """Gives the graphics memory back. Images stay; drawing raises. Harmless when it is closed."""
        self._core.close()
        self._finalizer.detach()

    @property
    def width(self) -> int:
        """Of each image, pixels."""
        return self._size[0]

    @property
    def height(self) -> int:
        """Of each image, pixels."""
        return self._size[1]

    @property
    def joints(self) -> tuple[str, ...]:
        """The names of the columns of ``q``."""
        return tuple(joint.name for joint in self._system.joints)

    @property
    def labels(self) -> dict[int, Label]:
        """What each label in an image stands for: 1, 2, ... The same in every run and on every machine."""
        return dict(self._labels)

    def render(
        self,
        q: Positions = None,
        *,
        poses: Poses | None = None,
        camera: Camera | None = None,
        color: bool | None = None,
        depth: bool = False,
        labels: bool = False,
        normals: bool = False,
        out: Mapping[str, npt.NDArray[Any]] | None = None,
    ) -> Frame:
        """Draws one frame.

        :param q: joint positions by name, or (J,) in the order of ``joints``, rad or m; joints that are not named are
            where the file has them, and followers follow. Beyond limits, too
        :param poses: base link frames to the world, 4 x 4, by the robot's name; the others are where the scene has them
        :param camera: instead of the renderer's
        :param color: whether colours are wanted; they are, unless ``out`` says what is
        :param depth: whether depths are wanted; ``labels`` and ``normals`` likewise, see :class:`Frame`
        :param out: arrays to write into by kind ("color", "depth", ...), which are then drawn, too. Each must be of the
            image's very shape and type, C-contiguous and writable
        :raises ValueError: an array of ``out`` is not; nothing is drawn then
        """
        images = self._images((), color, depth, labels, normals, out)
        columns, values = self._system._columns(q)
        description = self._draw(columns, values, self._system._bases(poses), camera, images)
        return Frame(images, description, self._labels)

    def render_batch(
        self,
        q: npt.ArrayLike,
        *,
        joints: Iterable[str] | None = None,
        poses: Mapping[str, npt.ArrayLike] | None = None,
        cameras: Camera | Sequence[Camera] | None = None,
        color: bool | None = None,
        depth: bool = False,
        labels: bool = False,
        normals: bool = False,
        out: Mapping[str, npt.NDArray[Any]] | None = None,
    ) -> Frames:
        """Draws N frames, one for each row of ``q``.

        :param q: (N, J) joint positions, rad or m
        :param joints: the names of the columns; all in the order of ``joints`` by default
        :param poses: as of :meth:`render`, (N, 4, 4), or (4, 4) for all frames
        :param cameras: one for all frames, or N of them
        :param out: as of :meth:`render`, with a leading dimension of N
        """
        columns, rows = self._system._rows(q, joints)
        if rows.ndim != 2:
            raise ValueError(f"q has the shape {rows.shape} instead of (N, {len(columns)})")
        count = len(rows)
        chosen = [cameras] * count if cameras is None or isinstance(cameras, Camera) else list(cameras)
        if len(chosen) != count:
            raise ValueError(f"there are {len(chosen)} cameras for {count} frames")
        bases = [(robot, _for_all(pose, count)) for robot, pose in self._system._bases(poses)]
        images = self._images((count,), color, depth, labels, normals, out)
        descriptions = [
            self._draw(
                columns,
                rows[i],
                [(robot, all_poses[i]) for robot, all_poses in bases],
                chosen[i],
                {kind: image[i] for kind, image in images.items()},
            )
            for i in range(count)
        ]
        return Frames(images, descriptions, self._labels)

    def pick(self, x: int, y: int) -> Pick | None:
        """What lies behind the centre of a pixel of the latest frame; None where nothing is.

        :param x: column, from the left
        :param y: row, from the top
        """
        x, y = operator.index(x), operator.index(y)
        if not (0 <= x < self.width and 0 <= y < self.height):
            raise ValueError(f"pixel ({x}, {y}) is not in the picture of {self.width} x {self.height}")
        found = self._core.pick(x, y)
        return None if found is None else Pick(self._system.robots[found[0]], *found[1:])

    def amodal_masks(self) -> npt.NDArray[np.bool_]:
        """(n_labels, H, W): the pixels that each part of the latest frame would cover if it were drawn alone; label i's
        are ``masks[i - 1]``. See :meth:`Frame.visible_shares`."""
        return self._core.amodal(self._level)

    def _images(
        self,
        count: tuple[int, ...],
        color: bool | None,
        depth: bool,
        labels: bool,
        normals: bool,
        out: Mapping[str, npt.NDArray[Any]] | None,
    ) -> dict[str, npt.NDArray[Any]]:
        wanted = {"color": out is None if color is None else color, "depth": depth, "labels": labels, "normals": normals}
        given = out or {}
        for kind in given:
            if kind not in KINDS:
                raise ValueError(f"out[{kind!r}]: the kinds of image are {', '.join(KINDS)}")
        images: dict[str, npt.NDArray[Any]] = {}
        for kind, (dtype, pixel) in KINDS.items():
            shape = (*count, self.height, self.width, *pixel)
            if kind in given:
                _core.check(given[kind], kind, shape)
                images[kind] = given[kind]
            elif wanted[kind]:
                images[kind] = np.empty(shape, dtype)
        if not images:
            raise ValueError("nothing is to be drawn: ask for color, depth, labels or normals")
        return images

    def _draw(
        self,
        columns: npt.NDArray[np.uint32],
        values: npt.NDArray[np.float64],
        bases: list[tuple[int, npt.NDArray[np.float64]]],
        camera: Camera | None,
        images: Mapping[str, npt.NDArray[Any]],
    ) -> _core.Description:
        chosen = camera if camera is not None else self._camera
        if chosen is not self._resolved[0]:
            self._resolved = (chosen, chosen._resolve(*self._size, self._aids))
        return self._core.draw(
            columns,
            values,
            bases,
            self._resolved[1],
            self._options,
            images.get("color"),
            images.get("depth"),
            images.get("labels"),
            images.get("normals"),
        )


def _for_all(poses: npt.NDArray[np.float64], count: int) -> npt.NDArray[np.float64]:
    if poses.shape == (4, 4):
        return np.broadcast_to(poses, (count, 4, 4))
    if poses.shape != (count, 4, 4):
        raise ValueError(f"poses have the shape {poses.shape} instead of ({count}, 4, 4)")
    return poses


def _close_quietly(core: _core.Renderer) -> None:
    try:
        core.close()
    except RenderError:
        pass  # another thread's, or the parent's: see KrPyRenderer::Deleter
