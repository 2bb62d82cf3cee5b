"""What the tests have in common."""

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import krrendcore as kr

ROOT = Path(__file__).resolve().parents[2]
ARM = ROOT / "samples" / "industrial_arm.urdf"
MESH = ROOT / "samples" / "meshes" / "link_1.obj"

BOX = "<visual><origin xyz='{0}'/><geometry><box size='{1}'/></geometry><material name='m{0}'><color rgba='{2} 1'/></material></visual>"
JOINT = (
    "<joint name='{0}' type='{1}'><parent link='{2}'/><child link='{3}'/><origin xyz='{4}'/><axis xyz='{5}'/>"
    "<limit lower='-1' upper='2' effort='1' velocity='1'/>{6}</joint>"
)


def two_links(name: str = "r") -> str:
    """A red base, and 1 m above it a green bar along +x, turned about z by "swing"; "slide" lifts a hook without a
    shape, and "copy" follows twice as fast."""
    return (
        f"<robot name='{name}'><link name='base'>{BOX.format('0 0 0.1', '0.4 0.4 0.2', '1 0 0')}</link>"
        f"<link name='bar'>{BOX.format('0.5 0 0', '1 0.2 0.1', '0 1 0')}</link><link name='hook'/><link name='twin'/>"
        + JOINT.format("swing", "revolute", "base", "bar", "0 0 1", "0 0 1", "")
        + JOINT.format("slide", "prismatic", "bar", "hook", "1 0 0", "0 0 1", "")
        + JOINT.format("copy", "continuous", "base", "twin", "0 0 0", "0 0 1", "<mimic joint='swing' multiplier='2'/>")
        + "</robot>"
    )


class Test(unittest.TestCase):
    """With a folder of its own."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def write(self, name: str, text: str) -> Path:
        path = self.folder / name
        path.write_text(text)
        return path

    def robot(self, name: str = "r") -> kr.Robot:
        return kr.load(self.write(f"{name}.urdf", two_links(name)))

    def run_python(self, code: str, *arguments: object) -> str:
        """What a program of its own prints; it ends well and says nothing else."""
        script = self.write("script.py", code)
        result = subprocess.run(
            [sys.executable, "-X", "faulthandler", str(script), *map(str, arguments)],
            capture_output=True, text=True, timeout=120, cwd=self.folder, env=os.environ, check=False,
        )
        self.assertEqual((result.returncode, result.stderr), (0, ""), result.stdout)
        return result.stdout
