"""Data sets: what a recipe lets vary, drawn sample by sample and written in shards that are whole (docs/dataset.md).

::

    import krrendcore as kr

    made = kr.dataset.generate("arm.json", "arms", progress=lambda done, total: print(done, "of", total))
    kr.dataset.merge("arm.json", "arms")

The bytes of a sample follow from the recipe and its number alone, whichever process draws it. A recipe is the path of a JSON
file, or a dict of the same members; paths in a dict are relative to the current folder.
"""

from __future__ import annotations

import json
import os
from typing import Any, Callable, Mapping, NamedTuple, Union

from . import _core

Path = Union[str, "os.PathLike[str]"]
Recipe = Union[Path, Mapping[str, Any]]


class Made(NamedTuple):
    """What a call of :func:`generate` has done."""

    samples: int  #: made by this call
    shards: int  #: made by this call
    shards_there: int  #: of this process's, before
    shards_busy: int  #: that others were making


def generate(
    recipe: Recipe,
    out: Path,
    *,
    shard: tuple[int, int] = (0, 1),
    progress: Callable[[int, int], object] | None = None,
    require_gpu: bool = False,
) -> Made:
    """Makes the data set in a folder, or one process's share of it; what is there already stays.

    :param out: the folder; made if need be
    :param shard: (i, n): this is process i of n, from 0, which makes the shards s with s % n == i. Processes are spawned
        ones, or those of other machines: see :class:`Renderer`
    :param progress: called after each sample with how many are done, and how many this process has to make. What it
        raises ends the work; whole shards stay
    :param require_gpu: refuse a driver that draws by software
    :raises FormatError: the recipe is none
    :raises DatasetError: a sample cannot be drawn or written, or the folder holds something else
    """
    process, processes = shard
    if not 0 <= process < processes:
        raise ValueError(f"shard is (i, n) with i from 0 to n - 1, not {shard}")
    return Made(*_core.dataset_generate(*_source(recipe), os.fsencode(out), process, processes, require_gpu, progress))


def verify(recipe: Recipe, out: Path) -> list[str]:
    """Reads every file of a data set: a sentence for each shard that is missing, and each file that is not as it was
    written."""
    return _core.dataset_verify(*_source(recipe), os.fsencode(out))


def merge(recipe: Recipe, out: Path) -> None:
    """When all shards are there: writes index.json, and what the format has of the whole set.

    :raises DatasetError: shards are missing
    """
    _core.dataset_merge(*_source(recipe), os.fsencode(out))


def sample(recipe: Recipe, number: int, out: Path, *, require_gpu: bool = False) -> None:
    """Draws one sample again, as a shard of its own.

    :param number: of the sample, from 0
    :param out: the folder, which is not there yet
    """
    if number < 0:
        raise ValueError(f"samples are numbered from 0; there is no number {number}")
    _core.dataset_sample(*_source(recipe), os.fsencode(out), number, require_gpu)


def _source(recipe: Recipe) -> tuple[bytes | None, str | None, bytes]:
    if isinstance(recipe, Mapping):
        return None, json.dumps(recipe), os.fsencode(os.getcwd())
    return os.fsencode(recipe), None, b""
