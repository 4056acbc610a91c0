"""Rasters: a statistic of the points in each cell of a grid."""

from __future__ import annotations

import math
import operator
import os
from collections.abc import Iterable, Iterator, Mapping
from typing import Any, NamedTuple, Union

import numpy as np

from . import _vxl
from ._channels import require
from ._cloud import CRS, Box, Cloud, Path, Progress, check_box, check_fraction, check_progress, open
from ._columns import columns_of
from ._errors import warn
from ._threads import check_threads
from ._write import EXPECTED, _gather

Source = Union[Cloud, Path, Iterable[Path], Mapping[str, Any], np.ndarray, Any]

LAYERS = ("count", "min", "max", "mean")
SAMPLES = ("float32", "float64", "uint32")


class RasterGrid(NamedTuple):
    """The cells of a raster: squares, in rows from north to south.

    Attributes
    ----------
    extent : tuple
        xmin, xmax, ymin, ymax, as matplotlib's ``imshow`` takes it.
    resolution : float
        The edge of a cell.
    shape : tuple
        Rows and columns.
    """

    extent: tuple[float, float, float, float]
    resolution: float
    shape: tuple[int, int]

    @property
    def transform(self) -> tuple[float, float, float, float, float, float]:
        """The geotransform, in GDAL's order."""
        return self.extent[0], self.resolution, 0.0, self.extent[3], 0.0, -self.resolution

    @classmethod
    def union(cls, grids: Iterable[RasterGrid]) -> RasterGrid:
        """The smallest grid that has the cells of all `grids`, whose resolutions are equal."""
        parts = list(grids)
        if len({part.resolution for part in parts}) != 1:
            raise ValueError("a union is of one or more grids with the same resolution")
        size = parts[0].resolution
        west, east, south, north = (
            round(choose(part.extent[side] for part in parts) / size)
            for side, choose in enumerate((min, max, min, max)))
        return cls((west * size, east * size, south * size, north * size), size, (north - south, east - west))


class Raster(Mapping[str, np.ndarray]):
    """Layers of a raster: a mapping of their names to 2-D arrays, whose first row is the northern one.

    Counts are int64 and 0 for cells without points. Other layers are float64 and NaN there.
    """

    def __init__(self, grid: RasterGrid, layers: dict[str, np.ndarray], crs: CRS) -> None:
        #: The cells.
        self.grid = grid
        #: The coordinate system.
        self.crs = crs
        self._layers = layers

    @property
    def extent(self) -> tuple[float, float, float, float]:
        """xmin, xmax, ymin, ymax of all cells."""
        return self.grid.extent

    @property
    def resolution(self) -> float:
        """The edge of a cell."""
        return self.grid.resolution

    @property
    def shape(self) -> tuple[int, int]:
        """Rows and columns."""
        return self.grid.shape

    def __getitem__(self, name: str) -> np.ndarray:
        if name not in self._layers:
            raise KeyError(f"the raster has no layer {name!r}; its layers are {', '.join(self._layers)}")
        return self._layers[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self._layers)

    def __len__(self) -> int:
        return len(self._layers)

    def __repr__(self) -> str:
        rows, columns = self.shape
        return f"<vxl.Raster of {rows:,} x {columns:,} cells: {', '.join(self._layers)}>"


def raster(
    source: Source,
    resolution: float,
    what: str | Iterable[str] = LAYERS,
    *,
    box: Box | None = None,
    out: Path | None = None,
    fraction: float = 1.0,
    max_bytes: int = 1 << 30,
    threads: int | None = None,
    progress: Progress | None = None,
) -> Raster | RasterGrid:
    """Count the points, or take the minimum, maximum or mean of a channel, in each cell of a grid.

    The edges of cells are multiples of the resolution, so that rasters of neighbouring boxes fit together. A
    cell has its lower edges and not its upper ones: a point is in exactly one cell. Every cell has the same
    value, however the raster is divided and with any number of threads.

    Parameters
    ----------
    source : Cloud, path or paths, or points in memory as for `write`
    resolution : float
        The edge of a cell, in the units of the coordinates.
    what : str or list of str
        Layers: ``STATISTIC[:CHANNEL][@first|@last][@class=N,...]``, where the statistic is "count", "min",
        "max" or "mean", by default of Z, such as ``"max:Z@first"`` or ``"mean:Intensity@class=2,9"``. The
        text is the name of the layer. "ground" is the mean elevation of ground points,
        ``"mean:Z@last@class=2"``. Points without return numbers are both first and last returns.
    box : sequence of 4 or 6 numbers, optional
        xmin, xmax, ymin, ymax, zmin, zmax; None for a side that is unbounded. In X and Y it is widened to
        whole cells; by default the raster has all points. In Z it selects points.
    out : str or path, optional
        Write a cloud-optimized GeoTIFF with a band for each layer, instead of returning arrays. NaN is the
        no-data value. The file is complete or absent.
    fraction : float
        Above 0 and up to 1: use an even sample of the points.
    max_bytes : int
        The memory for cells. A larger raster can be written to a file: it is made in parts, for each of which
        the points in its box are read. A warning says if the source has no index for that.
    threads : int, optional
        The maximum; by default one per core.
    progress : function, optional
        Called with the fraction done, 0 to 1. If it returns False, `Cancelled` is raised.

    Returns
    -------
    Raster, or RasterGrid if the raster was written to a file

    Raises
    ------
    ChannelError
        For an unknown channel.
    ArgumentError
        For an unknown statistic, a resolution that is too fine, or a raster that does not fit into memory.

    Examples
    --------
    >>> dem = vxl.raster("survey.vxl", 10, ["count", "ground"])
    >>> dem
    <vxl.Raster of 5 x 19 cells: count, ground>
    >>> dem["count"].sum(), round(np.nanmax(dem["ground"]), 2)
    (2400, 156.23)
    >>> vxl.raster("survey.vxl", 10, "max:Intensity", out="intensity.tif").extent
    (499990.0, 500180.0, 4099990.0, 4100040.0)
    """
    layers = [what] if isinstance(what, str) else list(what)
    if not layers:
        raise ValueError("there is no layer to compute")
    size = float(resolution)
    if not (math.isfinite(size) and size > 0):
        raise ValueError(f"resolution is above 0, not {size:g}")
    cloud, names = _open(source)
    for layer in layers:
        for name in _vxl.raster_channels(layer):
            require(names, name)
    memory = operator.index(max_bytes)
    if memory < 0:
        raise ValueError(f"max_bytes is at least 0, not {memory}")
    arguments = (size, layers, check_box(box), check_fraction(fraction), memory, check_threads(threads),
                 check_progress(progress))
    try:
        if out is not None:
            return _grid(_vxl.write_raster(cloud, os.fsdecode(out), *arguments))
        made, bands = _vxl.raster(cloud, *arguments)
    finally:
        warn(cloud.take_warnings())
    return Raster(_grid(made), dict(bands), CRS(cloud.crs()))


class RasterWriter:
    """Write a GeoTIFF from rasters that were made before, such as those of neighbouring boxes.

    The file is complete or absent: it appears when the ``with`` block ends without an exception. Cells that
    no raster has are no-data.

    Parameters
    ----------
    path : str or path
    grid : RasterGrid
        All cells. Those of `RasterGrid.union` hold several rasters.
    layers : list of str
        The bands, which each raster has.
    crs : str
        The coordinate system as WKT; empty if it is unknown.
    dtype : {"float32", "float64", "uint32"}
        Of the samples. "uint32" is for counts and has no no-data value.
    threads : int, optional
        The maximum; by default one per core.

    Examples
    --------
    >>> west = vxl.raster("survey.vxl", 1, "max", box=(None, 500090, None, None))
    >>> east = vxl.raster("survey.vxl", 1, "max", box=(500090, None, None, None))
    >>> whole = vxl.RasterGrid.union([west.grid, east.grid])
    >>> with vxl.RasterWriter("max.tif", whole, ["max"], crs=west.crs) as writer:
    ...     for part in west, east:
    ...         writer.write(part)
    """

    def __init__(self, path: Path, grid: RasterGrid, layers: Iterable[str], *, crs: str = "",
                 dtype: str = "float32", threads: int | None = None) -> None:
        if dtype not in SAMPLES:
            raise ValueError(f"dtype is one of {', '.join(SAMPLES)}, not {dtype!r}")
        self._layers = list(layers)
        self._writer = _vxl.RasterWriter(os.fsdecode(path), _made(grid), self._layers, dtype, str(crs),
                                         check_threads(threads))

    def __enter__(self) -> RasterWriter:
        return self

    def __exit__(self, kind: object, *_: object) -> None:
        if kind is None:
            self.commit()
        self.close()

    def write(self, raster: Raster) -> None:
        """Write the layers of a raster; its place follows from its grid."""
        self._writer.write(_made(raster.grid), [
            np.ascontiguousarray(raster[layer], np.float64) for layer in self._layers])

    def commit(self, progress: Progress | None = None) -> None:
        """Complete the file."""
        try:
            self._writer.commit(check_progress(progress))
        finally:
            warn(self._writer.take_warnings())

    def close(self) -> None:
        """Remove what was written, unless the file is complete."""
        self._writer.close()


def _made(grid: RasterGrid) -> tuple[float, float, float, int, int]:
    rows, columns = grid.shape
    return grid.extent[0], grid.extent[3], grid.resolution, columns, rows


def _grid(made: tuple[float, float, float, int, int]) -> RasterGrid:
    xmin, ymax, resolution, columns, rows = made
    # As multiples of the resolution, which the sum of an edge and a length need not be.
    xmax = (round(xmin / resolution) + columns) * resolution
    ymin = (round(ymax / resolution) - rows) * resolution
    return RasterGrid((xmin, xmax, ymin, ymax), resolution, (rows, columns))


def _open(source: Source) -> tuple[Any, list[str]]:
    """A cloud of the extension, and the names of its channels."""
    if columns_of(source) is not None:
        return _gather(source, None, None, False, ".")
    if not isinstance(source, Cloud):
        paths = [source] if isinstance(source, (str, os.PathLike)) else source
        try:
            paths = list(paths)
        except TypeError:
            paths = []
        if not paths or not all(isinstance(path, (str, os.PathLike)) for path in paths):
            raise TypeError(f"the points are a path, paths, {EXPECTED}, not {type(source).__name__}")
        source = open(paths)
    return source._cloud, list(source.channels)
