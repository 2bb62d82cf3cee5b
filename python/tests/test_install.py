"""What pip installs works on its own, from any folder, without the build tree."""

import os
import subprocess
import sys
import unittest

import support

DRAW = """
import sys
import krrendcore as kr
from krrendcore import _core
assert kr.__file__.startswith(sys.argv[1]), kr.__file__
libraries = {line.split()[-1] for line in open("/proc/self/maps") if "libkr" in line}
assert libraries and all(path.startswith(sys.argv[1]) for path in libraries), libraries
with kr.Renderer(kr.load(sys.argv[2]), 64, 48) as renderer:
    print(renderer.render(labels=True).labels.any())
with kr.Renderer(kr.load(sys.argv[3]), 64, 48) as renderer:
    renderer.render()
"""


class TestInstall(support.Test):
    def test_pip_installs_a_package_that_draws(self) -> None:
        target = self.folder / "site"
        environment = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
        result = subprocess.run(
            [sys.executable, "-m", "pip", "install", "--no-build-isolation", "--no-deps", "--no-index", "--target", target,
             support.ROOT],
            capture_output=True, text=True, env=environment, check=False,
        )
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        # Of the build tree nothing is needed, nor found.
        os.environ["PYTHONPATH"] = str(target)
        self.addCleanup(os.environ.update, PYTHONPATH=environment.get("PYTHONPATH", ""))
        plume = support.ROOT / "samples" / "plume.xml"
        self.assertEqual(self.run_python(DRAW, target, support.ARM, plume), "True\n")
        self.assertTrue((target / "krrendcore" / "py.typed").exists() and (target / "krrendcore" / "_core.pyi").exists())


if __name__ == "__main__":
    unittest.main()
