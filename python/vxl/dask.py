"""Point clouds as dask DataFrames, whose partitions are read where and when they are needed.

>>> import vxl.dask
>>> frame = vxl.dask.read("survey.vxl", npartitions=4)
>>> frame.npartitions
4
>>> float(frame.Z.max().compute(scheduler="synchronous"))
166.8
"""

from __future__ import annotations

import math
import operator
from collections.abc import Iterable, Sequence
from typing import Any, NamedTuple

import numpy as np

from ._channels import require_all
from ._cloud import Box, Cloud, absolute, check_box, check_fraction, open as open_cloud
from ._threads import check_threads
from .jobs import _sources

try:
    import dask.dataframe as _frames
    import pandas
except ImportError as error:
    raise ImportError(f"vxl.dask needs dask[dataframe]; {error}", name=error.name) from None

__all__ = ["read"]

_POINTS = 5_000_000  # in a partition of a file


class _Part(NamedTuple):
    """The points of a file, or of a half-open box of it."""

    path: str
    box: tuple[float, float, float, float] | None = None


class _ReadPart:
    """Reads a partition. dask replaces it by one that reads fewer columns (project_columns)."""

    def __init__(self, columns: list[str], dtypes: dict[str, str], box: tuple[float, ...], fraction: float,
                 threads: int | None) -> None:
        self.columns = columns
        self._dtypes, self._box, self._fraction, self._threads = dtypes, box, fraction, threads

    def project_columns(self, columns: Iterable[str]) -> _ReadPart:
        wanted = list(columns)
        if wanted == self.columns:
            return self
        return _ReadPart(wanted, self._dtypes, self._box, self._fraction, self._threads)

    @property
    def meta(self) -> pandas.DataFrame:
        return pandas.DataFrame({name: np.empty(0, self._dtypes[name]) for name in self.columns})

    def __call__(self, part: _Part) -> pandas.DataFrame:
        corners = list(self._box)
        if part.box is not None:
            west, east, south, north = part.box
            corners[:4] = [max(corners[0], west), min(corners[1], east),
                           max(corners[2], south), min(corners[3], north)]
        if corners[0] > corners[1] or corners[2] > corners[3]:
            return self.meta
        with open_cloud(part.path) as cloud:
            known = cloud.channels
            table = cloud.read(box=corners, fraction=self._fraction, threads=self._threads,
                               channels=[name for name in self.columns if name in known])
        if part.box is not None:
            # The box of a query is closed, and widened by half a step of the coordinates.
            x, y = table["X"], table["Y"]
            table = table.select((x >= west) & (x < east) & (y >= south) & (y < north))
        # Files of a set may lack some of its channels, or have a smaller type.
        return pandas.DataFrame({
            name: table[name].astype(self._dtypes[name], copy=False) if name in table
            else np.zeros(table.num_points, self._dtypes[name])
            for name in self.columns
        }, copy=False)


def read(
    source: _sources.Source,
    *,
    columns: Sequence[str] | None = None,
    box: Box | None = None,
    fraction: float = 1.0,
    npartitions: int | None = None,
    threads: int | None = 1,
) -> Any:
    """A dask DataFrame of points. Only headers are read, or an index instead of the headers of its tiles.

    A partition is a file of the source. If the source is one .vxl file, a partition is a part of its area,
    which the spatial index of the file makes fast to read. Partitions outside of the box are left out, and
    columns that a computation does not use are not decoded.

    Parameters
    ----------
    source : path or list of paths
        Files, directories, lists and indexes, which the workers see at the same paths.
    columns : list of str, optional
        By default all channels.
    box, fraction
        As for `Cloud.read`.
    npartitions : int, optional
        For one file: about this number of parts. By default one for each 5 million points of a .vxl file, and
        one for a file of another format, which is read once for each of them.
    threads : int or None
        That decode a partition; dask reads several at a time. None: one per core.
    """
    corners, part, limit = check_box(box), check_fraction(fraction), check_threads(threads)
    paths = _sources.as_paths(source)
    with open_cloud(paths) as cloud:
        known = cloud.channels
        names = list(known) if columns is None else require_all(known, columns, "columns")
        dtypes = {name: channel.dtype.str for name, channel in known.items()}
        files = cloud.files
        is_file = len(files) == 1 and not files[0].endswith(".index")
        parts = _split(cloud, absolute(files[0]), corners, part, npartitions) if is_file else None
    if parts is None:
        if npartitions is not None:
            raise ValueError("npartitions is for one file; the partitions of a set are its files")
        found = _sources.extents(paths)
        parts = [_Part(found.paths[index]) for index in np.flatnonzero(_sources.meets(found.boxes, corners))]
    reader = _ReadPart(names, dtypes, corners, part, limit)
    parts = parts or [_Part(paths[0], (math.inf, -math.inf, math.inf, -math.inf))]  # nothing, with columns
    return _frames.from_map(reader, parts, meta=reader.meta, label="read-vxl", enforce_metadata=False)


def _split(cloud: Cloud, path: str, box: tuple[float, ...], fraction: float,
           npartitions: int | None) -> list[_Part]:
    """Parts of a grid over the file."""
    if npartitions is None:
        count = cloud.num_points or 0
        wanted = math.ceil(count * fraction / _POINTS) if path.endswith(".vxl") else 1
    else:
        wanted = operator.index(npartitions)
        if wanted < 1:
            raise ValueError(f"npartitions is at least 1, not {wanted}")
    if wanted <= 1:
        return [_Part(path)]
    bounds = cloud.bounds
    west, east = max(bounds.xmin, box[0]), min(bounds.xmax, box[1])
    south, north = max(bounds.ymin, box[2]), min(bounds.ymax, box[3])
    if not (west <= east and south <= north):
        return []
    ratio = (east - west) / (north - south) if north > south else math.inf
    across = min(max(round(math.sqrt(wanted * ratio)), 1), wanted) if ratio < math.inf else wanted
    down = max(round(wanted / across), 1)

    def sides(low: float, high: float, count: int) -> list[float]:
        # The outer sides are open: bounds can be off by the rounding of a coordinate.
        return [-math.inf, *np.linspace(low, high, count + 1)[1:-1].tolist(), math.inf]

    columns, rows = sides(west, east, across), sides(south, north, down)
    return [_Part(path, (x0, x1, y0, y1))
            for y0, y1 in zip(rows, rows[1:]) for x0, x1 in zip(columns, columns[1:])]
