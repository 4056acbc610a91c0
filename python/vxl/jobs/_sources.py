"""The files of a source, without reading their points."""

from __future__ import annotations

import os
from collections.abc import Iterable, Iterator, Sequence
from typing import NamedTuple, Union

import numpy as np

from .. import _vxl
from .._cloud import Path, absolute, check_box, open as open_cloud

ENDINGS = (".vxl", ".las", ".laz", ".bpf", ".list")  # that are taken from a directory
_BATCH = 4096

Source = Union[Path, Sequence[Path]]


class Tile(NamedTuple):
    """A file of a set.

    `num_points` is -1 and `bounds` has no points (its minima are above its maxima) if they are unknown.
    """

    path: str
    num_points: int
    bounds: tuple[float, ...]


class Extents(NamedTuple):
    """The tiles of a set, for queries of all of them. `boxes` has a row per tile: x, x, y, y, z, z."""

    paths: list[str]
    boxes: np.ndarray
    num_points: int


def as_paths(source: Source) -> list[str]:
    """The absolute paths of a source; URLs are kept."""
    given = [source] if isinstance(source, (str, os.PathLike)) else list(source)
    if not given:
        raise ValueError("source names at least one file")
    return [absolute(os.fsdecode(each)) for each in given]


def names(paths: Iterable[str]) -> Iterator[str]:
    """The paths of all files, in order: those of directories by name, those of lists and indexes."""
    for path in paths:
        if os.path.isdir(path):
            with os.scandir(path) as entries:
                found = sorted(each.path for each in entries if each.name.lower().endswith(ENDINGS))
            yield from names(found)
        elif path.endswith(".index"):
            yield from (tile.path for tile in tiles([path]))
        elif path.endswith(".list"):
            yield from map(absolute, open_cloud(path).files)
        else:
            yield path


def tiles(paths: Iterable[str]) -> Iterator[Tile]:
    """The same with numbers of points and bounds: from the index, or from the header of each file."""
    for path in paths:
        if path.endswith(".index"):
            index = _vxl.Index(path)
            for first in range(0, len(index), _BATCH):
                for name, num_points, bounds in index.tiles(first, _BATCH):
                    yield Tile(os.path.abspath(os.fsdecode(name)), num_points, bounds)
        else:
            for name in names([path]):
                with open_cloud(name) as cloud:
                    count = cloud.num_points
                    yield Tile(name, -1 if count is None else count, cloud.bounds)


def extents(paths: Iterable[str]) -> Extents:
    """All tiles that have points. Uses about 150 bytes per tile."""
    found: list[str] = []
    boxes: list[np.ndarray] = []
    batch: list[tuple[float, ...]] = []
    num_points = 0
    for tile in tiles(paths):
        if not tile.bounds[0] <= tile.bounds[1]:
            continue
        found.append(tile.path)
        batch.append(tile.bounds)
        num_points += max(tile.num_points, 0)
        if len(batch) == _BATCH:
            boxes.append(np.array(batch))
            batch.clear()
    boxes.append(np.array(batch).reshape(-1, 6))
    return Extents(found, np.concatenate(boxes), num_points)


def meets(boxes: np.ndarray, box: Sequence[float | None] | None) -> np.ndarray:
    """Which of the boxes have a point in common with a closed box."""
    corners = np.array(check_box(box))
    return ((boxes[:, ::2] <= corners[1::2]) & (boxes[:, 1::2] >= corners[::2])).all(axis=1)
