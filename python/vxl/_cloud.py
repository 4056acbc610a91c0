"""Opening clouds, and reading their points."""

from __future__ import annotations

import concurrent.futures
import contextlib
import math
import operator
import os
import threading
from collections.abc import Callable, Iterable, Iterator, Mapping, Sequence
from typing import Any, NamedTuple, Optional, Union

import numpy as np

from . import _vxl
from ._channels import ByChannel, Channel, require, require_all
from ._errors import Error, FileNotFound, warn
from ._moments import Moments
from ._table import Table
from ._threads import check_threads

Path = Union[str, "os.PathLike[str]"]
Box = Sequence[Optional[float]]
Progress = Callable[[float], Optional[bool]]

_BLOCK = 1 << 18  # points that are read between two checks for Ctrl-C
_UNBOUNDED = (-math.inf, math.inf) * 3


class Bounds(NamedTuple):
    """A box around all points."""

    xmin: float
    xmax: float
    ymin: float
    ymax: float
    zmin: float
    zmax: float


class Stats(NamedTuple):
    """Statistics of a channel, without NaNs.

    `std` is the deviation of the points that were read: `num_seen` of `num_points`.
    """

    count: int
    min: float
    max: float
    mean: float
    std: float
    num_seen: int
    num_points: int | None


class Channels(ByChannel[Channel]):
    """The channels of a cloud: name to (dtype, scale)."""

    def __repr__(self) -> str:
        return "{" + ", ".join(f"{name!r}: {channel.dtype}" for name, channel in self.items()) + "}"


class CRS(str):
    """A coordinate system as WKT; empty if it is unknown."""

    @property
    def wkt(self) -> str:
        """The same as a plain str."""
        return str(self)

    @property
    def epsg(self) -> int | None:
        """The EPSG code that the WKT states for the whole system, if any."""
        depth = 0
        start = code = None
        for position, char in _outside_quotes(self):
            if char in "[(":
                depth += 1
                if depth == 2:
                    keyword = self[:position].rpartition(",")[2].strip().upper()
                    start = position if keyword in ("AUTHORITY", "ID") else None
            elif char in "])":
                if depth == 2 and start is not None:
                    parts = [part.strip().strip('"') for part in self[start + 1:position].split(",")]
                    if len(parts) >= 2 and parts[0].upper() == "EPSG" and parts[1].isdigit():
                        code = int(parts[1])
                depth -= 1
        return code


def _outside_quotes(text: str) -> Iterator[tuple[int, str]]:
    is_quoted = False
    for position, char in enumerate(text):
        if char == '"':
            is_quoted = not is_quoted
        elif not is_quoted:
            yield position, char


class Metadata(Mapping[str, Any]):
    """The records of a file: key to str, bytes or array.

    Several records may have the same key; the mapping has the first of them, `records` has all.
    """

    def __init__(self, records: list[tuple[str, str, Any]]) -> None:
        #: A list of (key, description, value).
        self.records = records

    def __getitem__(self, key: str) -> Any:
        for each, _, value in self.records:
            if each == key:
                return value
        raise KeyError(key)

    def __iter__(self) -> Iterator[str]:
        return iter(dict.fromkeys(key for key, _, _ in self.records))

    def __len__(self) -> int:
        return len({key for key, _, _ in self.records})

    def __repr__(self) -> str:
        return repr(dict(self))


def is_remote(name: str) -> bool:
    """Whether a name is a URL or a path of a virtual file system of GDAL."""
    return "://" in name or name.startswith("/vsi")


def absolute(path: str) -> str:
    """The absolute path; names of remote files are kept."""
    return path if is_remote(path) else os.path.abspath(path)


def check_box(box: Box | None) -> tuple[float, ...]:
    """Six numbers."""
    if box is None:
        return _UNBOUNDED
    try:
        sides = list(box)
    except TypeError:
        raise TypeError("box is (xmin, xmax, ymin, ymax) or (xmin, xmax, ymin, ymax, zmin, zmax)") from None
    if len(sides) not in (4, 6):
        raise ValueError(f"box has 4 or 6 numbers (xmin, xmax, ymin, ymax, zmin, zmax), not {len(sides)}")
    sides += [None] * (6 - len(sides))
    full = tuple(default if side is None else float(side) for side, default in zip(sides, _UNBOUNDED))
    for axis, low, high in zip("xyz", full[::2], full[1::2]):
        if not low <= high:
            raise ValueError(f"box is empty in {axis}: {low:g} to {high:g}")
    return full


def check_fraction(fraction: float) -> float:
    number = float(fraction)
    if not 0 < number <= 1:
        raise ValueError(f"fraction is above 0 and at most 1, not {number:g}")
    return number


def check_progress(progress: Progress | None) -> Progress | None:
    if progress is not None and not callable(progress):
        raise TypeError("progress is a function of the fraction done, 0 to 1")
    return progress


class Cloud:
    """A point cloud that was opened with `open`.

    Several threads can use one cloud at the same time. A cloud can be pickled: its files are opened again
    when it is loaded.
    """

    def __init__(self, paths: list[str], options: dict[str, Any]) -> None:
        self._paths = paths
        # Another process, and this one later, may have another current folder.
        self._absolute = [absolute(path) for path in paths]
        self._options = options
        try:
            self._opened: Any = _vxl.Cloud.open(paths, *options.values())
        except Error as error:  # which names an option of the programs
            message = error.message.replace("a format parse string '-parse'", "the argument columns")
            raise type(error)(message, error.code) from None
        self._warn(depth=5)

    def __reduce__(self) -> tuple[Any, ...]:
        return _reopen, (self._absolute, self._options)

    def __enter__(self) -> Cloud:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Close the files. Readings that have begun continue."""
        self._opened = None

    @property
    def _cloud(self) -> Any:
        if self._opened is None:
            raise ValueError("the cloud is closed")
        return self._opened

    def _warn(self, depth: int = 4) -> None:
        opened = self._opened
        if opened is not None:
            warn(opened.take_warnings(), depth)

    @property
    def paths(self) -> list[str]:
        """The names that were opened."""
        return list(self._paths)

    @property
    def files(self) -> list[str]:
        """The files: those of directories and lists, but not the tiles of an index."""
        return self._cloud.files()

    @property
    def num_points(self) -> int | None:
        """The number of points; None if it is unknown: text that has not been read yet."""
        return self._cloud.num_points()

    @property
    def bounds(self) -> Bounds:
        """The box of all points, from the header; text is read once to find it.

        >>> vxl.open("survey.vxl").bounds.zmax
        166.8
        """
        return Bounds(*self._cloud.bounds())

    @property
    def crs(self) -> CRS:
        """The coordinate system.

        >>> vxl.open("survey.vxl").crs[:30]
        'PROJCS["WGS 84 / UTM zone 13N"'
        """
        return CRS(self._cloud.crs())

    @property
    def channels(self) -> Channels:
        """The channels.

        >>> vxl.open("survey.vxl").channels["Intensity"]
        Channel(dtype=dtype('uint16'), scale=0.0)
        """
        known = self._cloud.channels()
        return Channels({name: Channel(np.dtype(dtype), scale) for name, dtype, scale in known})

    @property
    def metadata(self) -> Metadata:
        """The metadata records, such as the VLRs of a LAS file."""
        return Metadata(self._cloud.metadata())

    @property
    def class_names(self) -> dict[int, str]:
        """The names of classes, if the file has some."""
        return self._cloud.class_names()

    def __repr__(self) -> str:
        if self._opened is None:
            return f"<vxl.Cloud {self._paths}, closed>"
        name = self._paths[0] if len(self._paths) == 1 else f"{len(self._paths)} paths"
        count = self.num_points
        return f"<vxl.Cloud {name}: {'unknown' if count is None else format(count, ',')} points>"

    def read(
        self,
        *,
        box: Box | None = None,
        fraction: float = 1.0,
        channels: Iterable[str] | None = None,
        threads: int | None = None,
        progress: Progress | None = None,
    ) -> Table:
        """Read points into memory.

        Parameters
        ----------
        box : sequence of 4 or 6 numbers, optional
            xmin, xmax, ymin, ymax, zmin, zmax; None for a side that is unbounded. Borders belong to the
            box.
        fraction : float
            Above 0 and up to 1: an even sample, 0.1 every tenth point. Coarser levels of .vxl files make
            small fractions fast.
        channels : list of str, optional
            By default all. X, Y and Z are always read.
        threads : int, optional
            The maximum; by default one per core.
        progress : function, optional
            Called with the fraction done, 0 to 1. If it returns False, `Cancelled` is raised.

        Raises
        ------
        ChannelError
            For an unknown channel; the message lists the known ones.
        Error
            If the file is damaged, for example.

        Examples
        --------
        >>> cloud = vxl.open("survey.vxl")
        >>> cloud.read(fraction=0.01, channels=["intensity"])
        <vxl.Table of 24 points: X float64, Y float64, Z float64, Intensity uint16>
        >>> cloud.read(box=(None, 500010, None, None)).num_points
        136
        """
        query = self._query(box, fraction, channels)
        reading = _Reading(self, query, check_threads(threads), check_progress(progress))
        with contextlib.closing(reading):
            return reading.table(None)

    def chunks(
        self,
        num_points: int = 1_000_000,
        *,
        box: Box | None = None,
        fraction: float = 1.0,
        channels: Iterable[str] | None = None,
        threads: int | None = None,
        progress: Progress | None = None,
    ) -> Iterator[Table]:
        """Read points in tables of `num_points`; the last one may be smaller.

        The next table is decoded while the caller uses one, so that two of them are in memory. The parameters
        are those of `read`.

        >>> cloud = vxl.open("survey.vxl")
        >>> [chunk.num_points for chunk in cloud.chunks(1000, channels=["Z"])]
        [1000, 1000, 400]
        """
        size = operator.index(num_points)
        if size < 1:
            raise ValueError(f"a chunk has at least one point, not {size}")
        query = self._query(box, fraction, channels)
        return self._generate(size, query, check_threads(threads), check_progress(progress))

    def _generate(
        self, size: int, query: _Query, threads: int, progress: Progress | None
    ) -> Iterator[Table]:
        cancelled = threading.Event()

        def report(done: float) -> bool:
            return not cancelled.is_set() and (progress is None or progress(done) is not False)

        with concurrent.futures.ThreadPoolExecutor(1, "vxl.chunks") as pool:
            reading = _Reading(self, query, threads, report)
            following = pool.submit(reading.table, size)
            try:
                while (table := following.result()).num_points != 0:
                    following = pool.submit(reading.table, size)
                    yield table
            finally:
                cancelled.set()  # a reading that nobody waits for ends soon
                concurrent.futures.wait([following])
                reading.close()

    def stats(
        self,
        channel: str,
        *,
        exact: bool = True,
        box: Box | None = None,
        threads: int | None = None,
        progress: Progress | None = None,
    ) -> Stats:
        """Statistics of a channel, in bounded memory.

        Parameters
        ----------
        channel : str
        exact : bool
            False reads an even sample of about a million points from coarse levels. Minimum and maximum are
            then those of the sample.
        box, threads, progress
            As for `read`.

        Examples
        --------
        >>> stats = vxl.open("survey.vxl").stats("Z")
        >>> stats.count, stats.min, stats.max, round(stats.mean, 3)
        (2400, 120.75, 166.8, 140.904)
        """
        name = require(self.channels, channel)
        corners = check_box(box)
        fraction = 1.0
        if not exact:
            estimate = self._cloud.estimate(corners, 1.0)
            fraction = min(1.0, 1_000_000 / estimate) if estimate > 0 else 1.0
        moments = Moments()
        num_seen = 0
        for chunk in self.chunks(1 << 18, box=box, fraction=fraction, channels=[name], threads=threads,
                                 progress=progress):
            num_seen += chunk.num_points
            moments.add(chunk[name])
        if moments.count == 0:
            return Stats(0, math.nan, math.nan, math.nan, math.nan, num_seen, self.num_points)
        return Stats(moments.count, float(moments.low), float(moments.high), moments.mean, moments.std, num_seen,
                     self.num_points)

    def _query(self, box: Box | None, fraction: float, channels: Iterable[str] | None) -> _Query:
        return _Query(check_box(box), check_fraction(fraction), self._choose(channels))

    def _choose(self, channels: Iterable[str] | None) -> list[str]:
        if channels is None:
            return []
        return ["X", *require_all(self.channels, channels)]  # an empty list is not "all"


class _Query(NamedTuple):
    box: tuple[float, ...]
    fraction: float
    channels: list[str]


class _Reading:
    """The points of a query, table by table."""

    def __init__(self, cloud: Cloud, query: _Query, threads: int, progress: Progress | None) -> None:
        opened = cloud._cloud
        self._reader = _vxl.Reader(opened, query.box, query.fraction, query.channels, threads, progress)
        self._source = cloud
        self._whole = query.box == _UNBOUNDED
        self._estimate = opened.estimate(query.box, query.fraction)

    def table(self, size: int | None) -> Table:
        """The next `size` points, or all."""
        expected = self._expected(size)
        read = 0
        while size is None or read < size:
            added = self._reader.fill(_BLOCK if size is None else min(_BLOCK, size - read), expected)
            if added == 0:
                break
            read += added
        self._source._warn()
        columns = self._reader.take()
        scales = {name: scale for name, _, scale in columns}
        return Table({name: array for name, array, _ in columns}, scales)

    def _expected(self, size: int | None) -> int:
        """For how many points to reserve memory, which costs nothing until it is used."""
        estimate = int(self._estimate) + 1 if math.isfinite(self._estimate) else 0
        if size is not None:
            return min(size, 1 << 24)
        return estimate if self._whole else min(estimate, 1 << 22)

    def close(self) -> None:
        self._reader.close()


def _reopen(paths: list[str], options: dict[str, Any]) -> Cloud:
    return Cloud(paths, options)


def open(
    path: Path | Iterable[Path],
    *,
    columns: str = "",
    skip_lines: int = 0,
    drop_waveforms: bool = False,
    verify: bool = True,
    gps_week: int | None = None,
    allow_remote: bool = False,
) -> Cloud:
    """Open a point cloud. Points are read only when they are requested.

    Parameters
    ----------
    path : str, path or list of them
        .vxl, .las, .laz, .bpf, text, .list (a file per line) and .index files by their endings, or the files
        of a directory. Several files become one cloud. Files of points can be remote: ``"https://..."``,
        ``"s3://..."`` or a path of a virtual file system of GDAL (``"/vsicurl/..."``).
    columns : str
        Of text files: a letter or a name per column (``"xyzi"``, ``"X,Y,Z,Intensity"``). By default the first
        line names them.
    skip_lines : int
        Lines to skip at the beginning of text files.
    drop_waveforms : bool
        Read LAS files with waveforms without them; otherwise such files are an `Error`.
    verify : bool
        Compare what is read from .vxl files with their digests.
    gps_week : int, optional
        Converts week time to adjusted standard time in joined files.
    allow_remote : bool
        Read remote files that a list or an index names. By default only `path` may be remote.

    Raises
    ------
    FileNotFound, FileError, Error
        `FileNotFound` is also a ``FileNotFoundError``, `FileError` an ``OSError``.

    Examples
    --------
    >>> with vxl.open("survey.vxl") as cloud:
    ...     cloud
    <vxl.Cloud survey.vxl: 2,400 points>
    """
    names = [path] if isinstance(path, (str, os.PathLike)) else list(path)
    paths = [os.fsdecode(name) for name in names]
    if not paths:
        raise ValueError("there is no file to open")
    for name in paths:
        if not is_remote(name) and not os.path.exists(name):
            raise FileNotFound(f"No such file or directory: '{name}'", 2)
    options = {
        "columns": columns,
        "skip_lines": operator.index(skip_lines),
        "drop_waveforms": bool(drop_waveforms),
        "verify": bool(verify),
        "gps_week": gps_week,
        "allow_remote": bool(allow_remote),
    }
    return Cloud(paths, options)
