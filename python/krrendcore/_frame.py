"""What was drawn."""

from __future__ import annotations

import json
from typing import Any, Mapping, NamedTuple, Sequence

import numpy as np
import numpy.typing as npt

from . import _core
from ._system import Matrix


class Label(NamedTuple):
    """What bears a label."""

    robot: str
    link: str  #: empty where labels tell robots apart
    shape: int  #: among the link's shapes; 0 where labels tell no shapes apart


Images = Mapping[str, npt.NDArray[Any]]
KINDS: dict[str, Any] = {
    "color": (np.uint8, (3,)),
    "depth": (np.float32, ()),
    "labels": (np.uint32, ()),
    "normals": (np.float32, (3,)),
}
"""Of each kind of image the type, and the shape of a pixel."""


class _Drawn:
    """Images, C-contiguous, the top row first. They are the caller's: they outlive the renderer."""

    def __init__(self, images: Images) -> None:
        self._images = images

    def _image(self, kind: str) -> npt.NDArray[Any]:
        try:
            return self._images[kind]
        except KeyError:
            raise AttributeError(f"{kind} were not drawn: ask for them with {kind}=True") from None

    @property
    def color(self) -> npt.NDArray[np.uint8]:
        """(H, W, 3), red, green, blue; smoothed over the renderer's samples. Of several frames (N, H, W, 3)."""
        return self._image("color")

    @property
    def depth(self) -> npt.NDArray[np.float32]:
        """(H, W), m, one sample at each pixel's centre; inf where nothing is. Along the direction of view, or along each
        pixel's ray: see ``Renderer(depth=...)``. Of several frames (N, H, W)."""
        return self._image("depth")

    @property
    def labels(self) -> npt.NDArray[np.uint32]:
        """(H, W), keys of ``Renderer.labels``, at each pixel's centre; 0 where nothing is. Of several frames
        (N, H, W)."""
        return self._image("labels")

    @property
    def normals(self) -> npt.NDArray[np.float32]:
        """(H, W, 3), unit vectors, at each pixel's centre; 0 where nothing is. In optical camera axes or in the world's:
        see ``Renderer(normals=...)``. Of several frames (N, H, W, 3)."""
        return self._image("normals")


class Frame(_Drawn):
    """One frame."""

    def __init__(self, images: Images, description: _core.Description, table: Mapping[int, Label]) -> None:
        """Frames come from :meth:`Renderer.render`."""
        super().__init__(images)
        self._description = description
        self._table = table

    @property
    def K(self) -> Matrix:
        """(3, 3) [[fx, 0, cx], [0, fy, cy], [0, 0, 1]], pixels; centres of pixels at (column + 0.5, row + 0.5), see
        :class:`Camera`."""
        return self._description.K()

    @property
    def T_world_camera(self) -> Matrix:
        """(4, 4), optical camera axes (x right, y down, z forward) to the world, for column vectors, m."""
        return self._description.T_world_camera()

    def to_dict(self) -> dict[str, Any]:
        """The frame in numbers: camera, time, joints, labels (docs/camera.md), ready for ``json.dump``."""
        whole: dict[str, Any] = json.loads(self._description.json())
        if "labels" in self._images:
            whole["labels"] = [
                {"id": i, **{"manipulator" if key == "robot" else key: value for key, value in label._asdict().items()}}
                for i, label in self._table.items()
            ]
        return whole

    def visible_shares(self, masks: npt.NDArray[np.bool_]) -> Matrix:
        """How much of each part is seen: (n_labels,), pixels in ``labels`` by pixels in the part's mask; nan for parts
        outside the picture. Both are counted at the centres of pixels.

        :param masks: of this frame, from :meth:`Renderer.amodal_masks`
        """
        # The type that it counts with, which a 32-bit machine does not reach from that of labels by itself.
        seen = np.bincount(self.labels.ravel().astype(np.intp), minlength=len(masks) + 1)[1:]
        alone = np.count_nonzero(masks, axis=(1, 2))
        return np.divide(seen, alone, out=np.full(len(masks), np.nan), where=alone > 0)

    def png(self) -> bytes:
        """The colours as a PNG file."""
        return _core.png(self.color)

    def _repr_png_(self) -> bytes | None:
        return self.png() if "color" in self._images else None

    def __repr__(self) -> str:
        shape = next(iter(self._images.values())).shape
        return f"<krrendcore.Frame {shape[1]} x {shape[0]}: {', '.join(self._images)}>"


class Frames(_Drawn):
    """N frames: the images of all of them, with a leading dimension of N."""

    def __init__(
        self, images: Images, descriptions: Sequence[_core.Description], table: Mapping[int, Label]
    ) -> None:
        """Frames come from :meth:`Renderer.render_batch`."""
        super().__init__(images)
        self._descriptions = descriptions
        self._table = table

    def __len__(self) -> int:
        return len(self._descriptions)

    def __getitem__(self, i: int) -> Frame:
        """Frame ``i``, whose images are views of these."""
        return Frame({kind: image[i] for kind, image in self._images.items()}, self._descriptions[i], self._table)

    @property
    def K(self) -> Matrix:
        """(N, 3, 3), as of a frame."""
        return np.array([description.K() for description in self._descriptions]).reshape(-1, 3, 3)

    @property
    def T_world_camera(self) -> Matrix:
        """(N, 4, 4), as of a frame."""
        return np.array([description.T_world_camera() for description in self._descriptions]).reshape(-1, 4, 4)

    def to_dicts(self) -> list[dict[str, Any]]:
        """Each frame in numbers, see :meth:`Frame.to_dict`."""
        return [self[i].to_dict() for i in range(len(self))]
