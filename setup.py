"""Builds the Python package: CMake makes the extension module and the libraries that lie beside it (krrendcore/lib).

KR_BUILD_DIR names a build of this tree to take them from; without it there is one in build/wheel.
"""

import os
import re
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


class BuildByCMake(build_ext):
    """Runs CMake, and installs what it made into the package."""

    def build_extension(self, ext: Extension) -> None:
        package = Path(self.get_ext_fullpath(ext.name)).resolve().parent
        build = Path(os.environ.get("KR_BUILD_DIR", ROOT / "build" / "wheel"))
        if "KR_BUILD_DIR" not in os.environ:
            parts = [f"-DKR_BUILD_{part}=OFF" for part in ("TESTS", "EXAMPLES", "BENCHMARKS")]
            self._run("--preset", "release", "-B", build, "-DKR_BUILD_PYTHON=ON", f"-DPython_EXECUTABLE={sys.executable}",
                      *parts)
        self._run("--build", build, "--target", "krPyCore")
        self._run("--install", build, "--component", "wheel", "--strip", "--prefix", package.parent)

    def _run(self, *arguments: object) -> None:
        subprocess.run(["cmake", *map(str, arguments)], cwd=ROOT, check=True)


def version() -> str:
    """That of the libraries."""
    found = re.search(r"project\(KrRendCore VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"))
    assert found
    return found.group(1)


# What setuptools writes on the way belongs beside what CMake does.
(ROOT / "build").mkdir(exist_ok=True)
setup(
    version=version(),
    packages=["krrendcore"],
    package_dir={"": "python"},
    package_data={"krrendcore": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("krrendcore._core", [])],
    cmdclass={"build_ext": BuildByCMake},
    options={"egg_info": {"egg_base": "build"}, "build": {"build_base": "build/setuptools"}},
)
