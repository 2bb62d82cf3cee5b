"""Cameras."""

from __future__ import annotations

import math
from typing import Any, Callable, Sequence

import numpy as np
import numpy.typing as npt

from . import _core
from ._system import Matrix, Poses, Positions, System

AZIMUTH = math.radians(-50.0)
ELEVATION = math.radians(22.0)
FIELD_OF_VIEW = math.radians(30.0)

Resolve = Callable[[int, int, _core.Aids], _core.Camera]


class Camera:
    """From where, and through which lens, a picture is taken. Does not change.

    Optical axes everywhere: x right, y down, z forward. Pixels: the outer corner of the upper left pixel is (0, 0), and
    the centre of the pixel in column c and row r is at (c + 0.5, r + 0.5); the middle of the picture is at
    (width / 2, height / 2). For programs that put centres at whole numbers subtract 0.5 from cx and cy.
    """

    def __init__(
        self, K: npt.ArrayLike, T_world_camera: npt.ArrayLike, size: tuple[int, int] | None = None
    ) -> None:
        """A pinhole camera.

        :param K: [[fx, 0, cx], [0, fy, cy], [0, 0, 1]], pixels; the principal point may lie anywhere
        :param T_world_camera: 4 x 4, optical camera axes to the world, m
        :param size: width and height, pixels, of the picture that ``K`` is for; that of the renderer by default. A
            picture of another size shows the same, scaled
        """
        k, pose = np.array(K, np.float64), np.array(T_world_camera, np.float64)

        def resolve(width: int, height: int, aids: _core.Aids) -> _core.Camera:
            scaled = k.copy() if k.shape == (3, 3) else k
            if size is not None and scaled.shape == (3, 3):
                scaled[0] *= width / size[0]
                scaled[1] *= height / size[1]
            return _core.pinhole(scaled, pose, width, height)

        self._set(resolve, (Camera, (k, pose, size)))
        # What is wrong is told here, and not with the first picture.
        resolve(*(size or (640, 480)), _NO_AIDS)

    def _set(self, resolve: Resolve, reduced: tuple[Any, ...]) -> Camera:
        self._resolve = resolve
        self._reduced = reduced
        return self

    def __reduce__(self) -> tuple[Any, ...]:
        return self._reduced

    @staticmethod
    def fit(
        scene: System,
        q: Positions | npt.NDArray[np.float64] = None,
        *,
        poses: Poses | None = None,
        azimuth: float = AZIMUTH,
        elevation: float = ELEVATION,
        field_of_view: float = FIELD_OF_VIEW,
    ) -> Camera:
        """From a direction, so near that everything fills the picture, whatever its size is.

        :param q: the joint positions that must fit; rows (N, J) of ``scene.joints`` for all poses of a motion
        :param azimuth: of the eye about z, from +x, which a robot faces, rad
        :param elevation: of the eye above the horizon, rad
        :param field_of_view: full vertical angle, rad
        """
        if q is None or not np.ndim(q) == 2:  # type: ignore[arg-type]
            columns, values = scene._columns(q)
            rows = values.reshape(1, -1)
        else:
            columns, rows = scene._rows(q, None)  # type: ignore[arg-type]
        bases = scene._bases(poses)

        def resolve(width: int, height: int, aids: _core.Aids) -> _core.Camera:
            return _core.fit(
                scene._core, aids, columns, rows, bases, azimuth, elevation, field_of_view, width / height
            )

        camera = Camera.__new__(Camera)
        arguments = {"azimuth": azimuth, "elevation": elevation, "field_of_view": field_of_view, "poses": poses}
        return camera._set(resolve, (_fit, (scene, q, arguments)))

    @staticmethod
    def look_at(
        eye: Sequence[float],
        target: Sequence[float] = (0.0, 0.0, 0.0),
        *,
        up: Sequence[float] = (0.0, 0.0, 1.0),
        field_of_view: float = FIELD_OF_VIEW,
    ) -> Camera:
        """From an eye point, world frame, m.

        :param target: what is in the middle of the picture, m
        :param up: the direction that is upwards in the picture
        :param field_of_view: full vertical angle, rad
        """
        resolved = _core.look_at(_triple(eye), _triple(target), _triple(up), field_of_view)
        camera = Camera.__new__(Camera)
        arguments = {"up": tuple(up), "field_of_view": field_of_view}
        return camera._set(lambda width, height, aids: resolved, (_look_at, (tuple(eye), tuple(target), arguments)))


_NO_AIDS = _core.Aids([], [], 1.0, True, None)


def _fit(scene: System, q: Any, arguments: Any) -> Camera:
    return Camera.fit(scene, q, **arguments)


def _look_at(eye: Any, target: Any, arguments: Any) -> Camera:
    return Camera.look_at(eye, target, **arguments)


def _triple(values: Sequence[float]) -> tuple[float, float, float]:
    x, y, z = values
    return float(x), float(y), float(z)
