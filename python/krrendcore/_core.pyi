"""What krrendcore calls of the libraries; not for use by itself."""

from typing import Any, Callable, Sequence

import numpy as np
import numpy.typing as npt

_Triple = tuple[float, float, float]
_Matrix = npt.NDArray[np.float64]
_Joints = npt.NDArray[np.uint32]
_Bases = Sequence[tuple[int, _Matrix]]
_Light = tuple[_Triple, bool, _Triple, _Triple, _Triple, bool, _Triple]
_Image = npt.NDArray[Any] | None

AMBIENT: _Triple
BACKGROUND: _Triple

class System:
    @property
    def name(self) -> str: ...
    @property
    def report(self) -> str: ...
    @property
    def robots(self) -> list[str]: ...
    @property
    def links(self) -> list[tuple[int, str]]: ...
    @property
    def joints(self) -> list[tuple[int, str, str, float, float]]: ...
    def labels(self, level: str) -> list[tuple[int, str, int]]: ...
    def why_no_joint(self, name: str) -> str: ...
    def fk(self, joints: _Joints, positions: _Matrix, bases: _Bases) -> _Matrix: ...

class Camera: ...

class Aids:
    def __init__(
        self, names: Sequence[str], highlight: Sequence[str], fade: float, shapes: bool, axis_length: float | None
    ) -> None: ...

class Options:
    def __init__(self, label_level: str, world_normals: bool, euclidean_depth: bool) -> None: ...

class Description:
    def K(self) -> _Matrix: ...
    def T_world_camera(self) -> _Matrix: ...
    def json(self) -> str: ...

class Renderer:
    def __init__(
        self,
        system: System,
        camera: Camera,
        width: int,
        height: int,
        samples: int,
        background: _Triple,
        ambient: _Triple,
        lights: Sequence[_Light] | None,
        aids: Aids,
        level_of_detail: float,
    ) -> None: ...
    def draw(
        self,
        joints: _Joints,
        positions: _Matrix,
        bases: _Bases,
        camera: Camera,
        options: Options,
        color: _Image,
        depth: _Image,
        labels: _Image,
        normals: _Image,
    ) -> Description: ...
    def draw_again(
        self, options: Options, color: _Image, depth: _Image, labels: _Image, normals: _Image, count: int
    ) -> None: ...
    def pick(self, x: int, y: int) -> tuple[int, str, int, _Triple, _Triple, _Triple, float] | None: ...
    def amodal(self, level: str) -> npt.NDArray[np.bool_]: ...
    def close(self) -> None: ...

def load(path: bytes, package_paths: Sequence[bytes], use_cache: bool) -> System: ...
def compose(parts: Sequence[tuple[System, _Matrix, str]]) -> System: ...
def fit(
    system: System,
    aids: Aids,
    joints: _Joints,
    positions: _Matrix,
    bases: _Bases,
    azimuth: float,
    elevation: float,
    field_of_view: float,
    aspect_ratio: float,
) -> Camera: ...
def look_at(eye: _Triple, target: _Triple, up: _Triple, field_of_view: float) -> Camera: ...
def pinhole(K: _Matrix, T_world_camera: _Matrix, width: int, height: int) -> Camera: ...
def check(array: object, kind: str, shape: Sequence[int]) -> None: ...
def png(picture: npt.NDArray[np.uint8]) -> bytes: ...
def dataset_generate(
    path: bytes | None,
    text: str | None,
    folder: bytes,
    out: bytes,
    process: int,
    processes: int,
    require_gpu: bool,
    progress: Callable[[int, int], object] | None,
) -> tuple[int, int, int, int]: ...
def dataset_verify(path: bytes | None, text: str | None, folder: bytes, out: bytes) -> list[str]: ...
def dataset_merge(path: bytes | None, text: str | None, folder: bytes, out: bytes) -> None: ...
def dataset_sample(
    path: bytes | None, text: str | None, folder: bytes, out: bytes, number: int, require_gpu: bool
) -> None: ...
