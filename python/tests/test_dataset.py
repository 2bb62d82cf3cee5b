"""Data sets from Python: what is handed in and out. What is in them is the library's own test."""

import json
import unittest
from pathlib import Path
from typing import Any

import support

import krrendcore as kr


def files(folder: Path) -> "dict[str, bytes]":
    return {str(path.relative_to(folder)): path.read_bytes() for path in sorted(folder.rglob("*")) if path.is_file()}


class TestDataset(support.Test):
    def setUp(self) -> None:
        super().setUp()
        self.write("r.urdf", support.two_links())
        self.recipe: "dict[str, Any]" = {
            "version": 1,
            "name": "small",
            "seed": 3,
            "count": 4,
            "samplesPerShard": 2,
            "size": [32, 24],
            "kinds": ["color", "depth"],
            "robots": [{"file": str(self.folder / "r.urdf")}],
            "cameras": [{"name": "c", "fieldOfView": "40deg", "shell": {"distance": [3, 4], "elevation": ["10deg", "60deg"]}}],
        }
        self.path = self.write("recipe.json", json.dumps(self.recipe))

    def test_shares_make_the_whole_whoever_makes_them(self) -> None:
        told = []
        whole, parts = self.folder / "whole", self.folder / "parts"
        made = kr.dataset.generate(self.path, whole, progress=lambda done, total: told.append((done, total)))
        self.assertEqual(made, kr.dataset.Made(samples=4, shards=2, shards_there=0, shards_busy=0))
        self.assertEqual(told, [(1, 4), (2, 4), (3, 4), (4, 4)])
        with self.assertRaisesRegex(kr.DatasetError, "missing|shard"):
            kr.dataset.generate(self.path, parts, shard=(0, 2))
            kr.dataset.merge(self.path, parts)
        self.assertEqual(len(kr.dataset.verify(self.path, parts)), 1)
        kr.dataset.generate(self.path, parts, shard=(1, 2))
        for folder in (whole, parts):
            self.assertEqual(kr.dataset.verify(self.path, folder), [])
            kr.dataset.merge(self.path, folder)
        self.assertEqual(files(whole), files(parts))
        self.assertEqual(kr.dataset.generate(self.path, whole), kr.dataset.Made(0, 0, 2, 0))

    def test_a_dict_is_a_recipe_as_well_and_a_sample_can_be_drawn_again(self) -> None:
        kr.dataset.generate(self.recipe, self.folder / "all")
        kr.dataset.sample(self.recipe, 3, self.folder / "one")
        made = {Path(name).name: data for name, data in files(self.folder / "all").items()}
        again = {Path(name).name: data for name, data in files(self.folder / "one").items() if name.endswith(".png")}
        self.assertTrue(again)
        for name, data in again.items():
            self.assertEqual(made[name], data)

    def test_what_progress_raises_ends_the_work(self) -> None:
        class Enough(Exception):
            pass

        def stop(done: int, total: int) -> None:
            raise Enough(done)

        with self.assertRaises(Enough) as raised:
            kr.dataset.generate(self.recipe, self.folder / "all", progress=stop)
        self.assertEqual(raised.exception.args, (1,))
        self.assertEqual(kr.dataset.generate(self.recipe, self.folder / "all").samples, 4)

    def test_refusals(self) -> None:
        for recipe, error in (
            ({"version": 1}, kr.FormatError),
            (self.folder / "none.json", FileNotFoundError),
            ({**self.recipe, "robots": [{"file": "none.urdf"}]}, kr.DatasetError),
        ):
            with self.subTest(recipe=recipe), self.assertRaises(error):
                kr.dataset.generate(recipe, self.folder / "all")  # type: ignore[arg-type]
        with self.assertRaises(ValueError):
            kr.dataset.generate(self.recipe, self.folder / "all", shard=(2, 2))
        with self.assertRaises(kr.DatasetError):
            kr.dataset.sample(self.recipe, 99, self.folder / "one")


if __name__ == "__main__":
    unittest.main()
