"""krrendcore draws robots: robot descriptions and meshes in, arrays out, without a display.

::

    import krrendcore as kr

    robot = kr.load("robot.urdf")
    with kr.Renderer(robot, width=640, height=480) as renderer:
        frame = renderer.render({"elbow": 0.4}, color=True, depth=True)
    frame.color  # (480, 640, 3) uint8
    frame.depth  # (480, 640) float32, m

Metres, radians, kilograms, seconds. Matrices are for column vectors and say from where to where: ``T_world_camera``
maps camera coordinates into the world. Messages of the libraries go to the logger "krrendcore".
"""

from . import dataset
from ._camera import Camera
from ._errors import DatasetError, Error, FormatError, MissingFileError, RenderError, UnknownNameError
from ._frame import Frame, Frames, Label
from ._renderer import Light, Pick, Renderer
from ._system import Joint, Robot, Scene, load, pose

__all__ = [
    "Camera",
    "DatasetError",
    "Error",
    "FormatError",
    "Frame",
    "Frames",
    "Joint",
    "Label",
    "Light",
    "MissingFileError",
    "Pick",
    "RenderError",
    "Renderer",
    "Robot",
    "Scene",
    "UnknownNameError",
    "dataset",
    "load",
    "pose",
]
