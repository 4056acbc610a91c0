"""What units do."""

from __future__ import annotations

import importlib
import itertools
import json
import math
import os
import shutil
import subprocess
import tempfile
from collections.abc import Iterable, Iterator
from dataclasses import dataclass, field
from typing import Any

import numpy as np

from .. import _vxl
from .._channels import Channel, require, require_all
from .._cloud import CRS, check_box, check_fraction, open as open_cloud
from .._moments import Moments
from .._raster import LAYERS, SAMPLES, Raster, RasterGrid, RasterWriter, raster
from .._table import Table
from .._write import FORMATS, ORDERS, write
from . import _sources
from ._plan import Job, Plan, Unit, replacing
from ._receipts import Receipt

_MAX_CELLS = 20_000_000
_MAX_PARTS = 100_000_000  # of tiles in cells
_IN_MEMORY = 1 << 30  # bytes of points; more are written through a temporary file


@dataclass
class Outcome:
    """What a run made: whether there is a file, the number of points, and a result for the receipt."""

    has_file: bool
    num_points: int
    result: dict[str, Any] = field(default_factory=dict)


class Operation:
    """What the units of a job do.

    A class of your own is given to `plan` as ``"module:Class"``; workers must be able to import the module.

    Attributes
    ----------
    options : dict
        The names of the options, with their defaults.
    """

    options: dict[str, Any] = {}
    required: tuple[str, ...] = ()

    def check(self, options: dict[str, Any]) -> None:
        """Refuse wrong options: ValueError or TypeError."""

    def prepare(self, job: Job) -> None:
        """Add to the options of the job what its units need to know about the source."""

    def units(self, job: Job) -> Iterator[dict[str, Any]]:
        """The units: `output`, `inputs` and `box` of `Unit`, always in the same order."""
        raise NotImplementedError

    def run(self, unit: Unit, path: str, threads: int | None) -> Outcome:
        """Make the output of a unit in the file `path`. The folder of `path` is empty, and removed later."""
        raise NotImplementedError

    def merge(self, plan: Plan, receipts: Iterable[tuple[Unit, Receipt]],
              overview: float | bool) -> dict[str, Any]:
        """Join the results of all units: name to path or value."""
        for _ in receipts:
            pass
        return {}


def find(name: str) -> Operation:
    """The operation of a name."""
    if name in OPERATIONS:
        return OPERATIONS[name]()
    module, _, attribute = name.partition(":")
    if not attribute:
        raise ValueError(f"operation is one of {', '.join(OPERATIONS)}, or module:Class, not {name!r}")
    try:
        made = getattr(importlib.import_module(module), attribute)()
    except (ImportError, AttributeError) as error:
        raise ValueError(f"there is no operation {name!r}: {error}") from None
    if not isinstance(made, Operation):
        raise TypeError(f"{name} is not a vxl.jobs.Operation")
    return made


def input_of(path: str) -> tuple[str, int | None, int | None]:
    if "://" in path:
        return path, None, None
    found = os.stat(path)
    return path, found.st_size, found.st_mtime_ns


class _PerFile(Operation):
    """A unit for each file of the source."""

    def _output(self, name: str, options: dict[str, Any]) -> str:
        return f"{name}.{type(self).__name__.lower()}"

    def units(self, job: Job) -> Iterator[dict[str, Any]]:
        taken: set[int] = set()  # hashes: less memory than the names
        local = [path for path in job.source if "://" not in path]
        folders = [path if os.path.isdir(path) else os.path.dirname(path) for path in local]
        top = os.path.join(os.path.commonpath(folders), "") if folders else "/"
        for path in _sources.names(job.source):
            name = path[len(top):] if path.startswith(top) else os.path.basename(path)
            output = self._output(name, job.options)
            key = hash(output)
            if key in taken:
                raise ValueError(f"{path}: another file of the source has the output {output}, too")
            taken.add(key)
            yield {"output": output, "inputs": [input_of(path)]}


_WRITE_OPTIONS = {
    "format": "vxl", "order": "input", "crs": None, "scale": None, "quantize": None, "channels": None,
}


def _check_write(options: dict[str, Any], formats: tuple[str, ...]) -> None:
    if options["format"] not in formats:
        raise ValueError(f"format is one of {', '.join(formats)}, not {options['format']!r}")
    if options["order"] not in ORDERS:
        raise ValueError(f"order is one of {', '.join(ORDERS)}, not {options['order']!r}")


class _WritesClouds(Operation):
    """The outputs are point clouds, which an index joins."""

    def merge(self, plan: Plan, receipts: Iterable[tuple[Unit, Receipt]],
              overview: float | bool) -> dict[str, Any]:
        out, total, count = plan.job.out, 0, 0
        with tempfile.NamedTemporaryFile("wb", suffix=".list", dir=out) as names:
            for unit, receipt in receipts:
                if receipt.has_file:
                    names.write(os.fsencode(unit.path) + b"\n")
                    total += receipt.num_points
                    count += 1
            names.flush()
            merged: dict[str, Any] = {"points": total, "files": count}
            if count == 0 or plan.job.options["format"] not in ("vxl", "las", "laz", "bpf"):
                return merged
            index = os.path.join(out, "tiles.index")
            command = [program("vxindex"), "-q", "-o", index]
            if overview is not False:
                part = min(1 / 16, 10_000_000 / total) if overview is True else float(overview)
                merged["overview"] = os.path.join(out, "overview.vxl")
                command += ["-overview", merged["overview"], "-createOverview"]
                command += ["-overviewFraction", repr(part)]
            _call([*command, names.name])
            merged["index"] = index
        return merged


class Convert(_PerFile, _WritesClouds):
    """Each file of the source to another format."""

    options = {**_WRITE_OPTIONS, "fraction": 1.0, "box": None, "restore": False}

    def check(self, options: dict[str, Any]) -> None:
        _check_write(options, FORMATS[:-1])
        check_fraction(options["fraction"])
        check_box(options["box"])

    def _output(self, name: str, options: dict[str, Any]) -> str:
        return f"{os.path.splitext(name)[0]}.{options['format']}"

    def run(self, unit: Unit, path: str, threads: int | None) -> Outcome:
        with open_cloud(unit.paths) as cloud:
            return Outcome(True, write(path, cloud, threads=threads, **unit.job.options))


class Query(_WritesClouds):
    """A box or a part of the points of the whole source to one file."""

    options = {**Convert.options, "name": "query"}

    def check(self, options: dict[str, Any]) -> None:
        Convert().check(options)
        if os.path.basename(options["name"]) != options["name"] or not options["name"]:
            raise ValueError(f"name is a file name without its folder and ending, not {options['name']!r}")

    def units(self, job: Job) -> Iterator[dict[str, Any]]:
        yield {"output": f"{job.options['name']}.{job.options['format']}",
               "inputs": [input_of(path) for path in job.source]}

    def run(self, unit: Unit, path: str, threads: int | None) -> Outcome:
        options = {name: value for name, value in unit.job.options.items() if name != "name"}
        with open_cloud(unit.paths) as cloud:
            return Outcome(True, write(path, cloud, threads=threads, **options))

    def merge(self, plan: Plan, receipts: Iterable[tuple[Unit, Receipt]],
              overview: float | bool) -> dict[str, Any]:
        return {"file": plan[0].path, "points": sum(receipt.num_points for _, receipt in receipts)}


class Retile(_WritesClouds):
    """The points of a set in square tiles, whose corners are multiples of the tile size.

    A tile has the points with xmin <= X < xmax and ymin <= Y < ymax: each point is in one tile. Tiles without
    points have no file. With a buffer, a tile that has points of its own also has those around it, and a
    channel "Buffer", which is 1 for them.

    All tiles have the same channels, scale and coordinate system: those of the set. Metadata are not copied.
    """

    options = {**_WRITE_OPTIONS, "tile_size": None, "buffer": 0.0, "box": None}
    required = ("tile_size",)

    def check(self, options: dict[str, Any]) -> None:
        _check_write(options, FORMATS[:-1])
        _positive("tile_size", options["tile_size"])
        check_box(options["box"])
        if not 0 <= options["buffer"] < math.inf:
            raise ValueError(f"buffer is 0 or above, not {options['buffer']}")

    def prepare(self, job: Job) -> None:
        # Workers open only a few of the files, which may lack some of the channels.
        with open_cloud(job.source) as cloud:
            known = cloud.channels
            wanted = list(known)
            if job.options["channels"] is not None:
                chosen = {"X", "Y", "Z", *require_all(known, job.options["channels"])}
                wanted = [name for name in known if name in chosen]
            job.options["layout"] = {
                name: [known[name].dtype.str.lstrip("<>|="), known[name].scale] for name in wanted
            }
            job.options["crs"] = job.options["crs"] or str(cloud.crs) or None

    def units(self, job: Job) -> Iterator[dict[str, Any]]:
        size = float(job.options["tile_size"])
        for column, row, inputs in cells(job, size, float(job.options["buffer"])):
            yield {"output": f"{column}_{row}.{job.options['format']}", "inputs": inputs,
                   "box": [column * size, (column + 1) * size, row * size, (row + 1) * size]}

    def run(self, unit: Unit, path: str, threads: int | None) -> Outcome:
        options = unit.job.options
        layout = {
            name: Channel(np.dtype(dtype), scale) for name, (dtype, scale) in options["layout"].items()
        }
        if options["buffer"]:
            layout["Buffer"] = Channel(np.dtype("u1"), 0.0)
        tables = _Tables(_exact(unit, list(layout), threads))
        held: list[Table] = []
        for table in tables:
            held.append(table)
            if sum(each.nbytes for each in held) > _IN_MEMORY:
                break
        following = next(tables, None)
        if following is not None:
            data: Any = itertools.chain(held, [following], tables)
        elif tables.num_own:
            data = {name: np.concatenate([table[name] for table in held]) for name in layout}
        else:
            return Outcome(False, 0)
        written = write(path, data, layout=layout, threads=threads,
                        **{name: options[name] for name in ("format", "order", "crs", "scale", "quantize")})
        num_own = tables.num_own
        return Outcome(num_own > 0, num_own, {"buffer": written - num_own} if options["buffer"] else {})


class _Tables(Iterator[Table]):
    """Tables, and the number of their points that are not in a buffer."""

    def __init__(self, tables: Iterator[Table]) -> None:
        self._tables = tables
        self.num_own = 0

    def __next__(self) -> Table:
        table = next(self._tables)
        self.num_own += table.num_points - (int(table["Buffer"].sum()) if "Buffer" in table else 0)
        return table


def _exact(unit: Unit, channels: list[str], threads: int | None) -> Iterator[Table]:
    """The points of the half-open box of a unit, and those of the buffer around it."""
    options = unit.job.options
    assert unit.box is not None
    west, east, south, north = unit.box
    buffer = options["buffer"]
    wide = (west - buffer, east + buffer, south - buffer, north + buffer)
    limits = check_box(options["box"])
    low, high = limits[::2], limits[1::2]
    corners = [min(max(side, low[axis]), high[axis]) for side, axis in zip(wide, (0, 0, 1, 1))]
    with open_cloud(unit.paths) as cloud:
        known = cloud.channels
        wanted = [name for name in channels if name in known]
        for table in cloud.chunks(1 << 18, box=(*corners, *limits[4:]), channels=wanted, threads=threads):
            x, y = table["X"], table["Y"]
            # The box of a query is closed, and widened by half a step of the coordinates.
            inside = (x >= wide[0]) & (x < wide[1]) & (y >= wide[2]) & (y < wide[3])
            if options["box"] is not None:
                for axis, name in enumerate("XYZ"):
                    inside &= (table[name] >= low[axis]) & (table[name] <= high[axis])
            columns = dict(table.select(inside))
            x, y = columns["X"], columns["Y"]
            if len(x) == 0:
                continue
            if "Buffer" in channels and buffer:
                outside = (x < west) | (x >= east) | (y < south) | (y >= north)
                columns["Buffer"] = outside.astype(np.uint8)
            for name in channels:
                if name not in columns:
                    columns[name] = np.zeros(len(x), options["layout"][name][0])
            yield Table({name: columns[name] for name in channels})


def cells(job: Job, size: float, buffer: float) -> Iterator[tuple[int, int, list[tuple[str, Any, Any]]]]:
    """The cells of a grid in which the set may have points, row by row: column, row, and the files to read.

    Two numbers in memory for each file of each cell.
    """
    paths, boxes, _ = _sources.extents(job.source)
    wanted = _sources.meets(boxes, job.options["box"])
    boxes = boxes[wanted]
    index_of = np.flatnonzero(wanted)
    if len(boxes) == 0:
        return
    limits = check_box(job.options["box"])
    # Bounds of files can be off by the rounding of a coordinate.
    slack = np.maximum(np.abs(boxes[:, :4]).max() * 1e-12, _step(job))
    west, east = np.maximum(boxes[:, 0] - slack, limits[0]), np.minimum(boxes[:, 1] + slack, limits[1])
    south, north = np.maximum(boxes[:, 2] - slack, limits[2]), np.minimum(boxes[:, 3] + slack, limits[3])
    own, first_column, first_row, width = _keys(west, east, south, north, size, None)
    used = np.unique(own[0])
    if buffer:
        near, *_ = _keys(west - buffer, east + buffer, south - buffer, north + buffer, size,
                         (first_column, first_row, width))
        keep = np.isin(near[0], used)
        own = near[0][keep], near[1][keep]
    order = np.lexsort((own[1], own[0]))
    keys, members = own[0][order], index_of[own[1][order]]
    begins = np.searchsorted(keys, used)
    ends = np.append(begins[1:], len(keys))
    known: dict[int, tuple[str, Any, Any]] = {}  # files of the last rows of cells
    for key, begin, end in zip(used.tolist(), begins.tolist(), ends.tolist()):
        row, column = divmod(key, width)
        inputs = []
        for member in members[begin:end].tolist():
            if member not in known:
                if len(known) > 100_000:
                    known.clear()
                known[member] = input_of(paths[member])
            inputs.append(known[member])
        yield column + first_column, row + first_row, inputs


def _keys(west: np.ndarray, east: np.ndarray, south: np.ndarray, north: np.ndarray, size: float,
          grid: tuple[int, int, int] | None) -> tuple[tuple[np.ndarray, np.ndarray], int, int, int]:
    """A pair (cell, box) for each cell that a box meets."""
    with np.errstate(over="ignore"):
        sides = np.floor(np.stack([west, east, south, north]) / size)
    if not (np.abs(sides) < 2**52).all():
        raise ValueError(f"a tile size of {size:g} is too small for these coordinates")
    columns, last_columns, rows, last_rows = sides.astype(np.int64)
    if grid is None:
        # A cell on each side, which a buffer can reach.
        grid = (int(columns.min()) - 1, int(rows.min()) - 1, int(last_columns.max() - columns.min()) + 3)
    first_column, first_row, width = grid
    columns = np.maximum(columns, first_column)
    last_columns = np.minimum(last_columns, first_column + width - 1)
    rows = np.maximum(rows, first_row)
    widths, heights = last_columns - columns + 1, last_rows - rows + 1
    counts = np.maximum(widths, 0) * np.maximum(heights, 0)
    if float(counts.astype(float).sum()) > _MAX_PARTS or float(width) * (last_rows.max() - first_row) > 2**62:
        raise ValueError(f"a tile size of {size:g} gives too many tiles")
    boxes = np.repeat(np.arange(len(counts)), counts)
    position = np.arange(len(boxes)) - np.repeat(np.cumsum(counts) - counts, counts)
    down, along = np.divmod(position, np.maximum(widths, 1)[boxes])
    keys = (rows[boxes] + down - first_row) * width + columns[boxes] + along - first_column
    if len(np.unique(keys)) > _MAX_CELLS:
        raise ValueError(f"a tile size of {size:g} gives more than {_MAX_CELLS:,} tiles")
    return (keys, boxes), first_column, first_row, width


def _step(job: Job) -> float:
    layout = job.options.get("layout") or {}
    return max((scale for name, (_, scale) in layout.items() if name in ("X", "Y")), default=0.0)


def _positive(name: str, value: Any) -> None:
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not 0 < value < math.inf:
        raise ValueError(f"{name} is a number above 0, not {value!r}")


class Rasters(Operation):
    """Statistics of the points in each cell of a grid, in square parts that are joined to one GeoTIFF.

    A part is a .npy file with an array of layers, rows and columns.
    """

    options = {"resolution": None, "what": list(LAYERS), "box": None, "fraction": 1.0, "cells": 1024,
               "dtype": None}
    required = ("resolution",)

    def check(self, options: dict[str, Any]) -> None:
        _positive("resolution", options["resolution"])
        check_fraction(options["fraction"])
        check_box(options["box"])
        if isinstance(options["what"], str):
            options["what"] = [options["what"]]
        if not isinstance(options["cells"], int) or not 0 < options["cells"] <= 32768:
            raise ValueError(f"cells is 1 to 32768, the edge of a part, not {options['cells']!r}")
        if options["dtype"] is None:
            are_counts = all(name.startswith("count") for name in options["what"])
            options["dtype"] = "uint32" if are_counts else "float32"
        if options["dtype"] not in SAMPLES:
            raise ValueError(f"dtype is one of {', '.join(SAMPLES)}, not {options['dtype']!r}")

    def prepare(self, job: Job) -> None:
        with open_cloud(job.source) as cloud:
            for layer in job.options["what"]:
                for name in _vxl.raster_channels(layer):
                    require(cloud.channels, name)
            job.options["crs"] = str(cloud.crs)

    def units(self, job: Job) -> Iterator[dict[str, Any]]:
        count = job.options["cells"]
        size = job.options["resolution"] * count
        for column, row, inputs in cells(job, size, 0.0):
            yield {"output": f"{column}_{row}.npy", "inputs": inputs,
                   "box": [column * size, (column + 1) * size, row * size, (row + 1) * size]}

    def _grid(self, unit: Unit) -> RasterGrid:
        assert unit.box is not None
        options = unit.job.options
        west, east, south, north = unit.box
        return RasterGrid((west, east, south, north), options["resolution"], (options["cells"],) * 2)

    def run(self, unit: Unit, path: str, threads: int | None) -> Outcome:
        options = unit.job.options
        limits = check_box(options["box"])
        size = options["resolution"]
        extent = self._grid(unit).extent
        # The middles of the outer cells: the raster has whole cells, and these ones regardless of rounding.
        inner = [extent[0] + size / 2, extent[1] - size / 2, extent[2] + size / 2, extent[3] - size / 2]
        low, high = limits[::2], limits[1::2]
        box = [min(max(side, low[axis]), high[axis]) for side, axis in zip(inner, (0, 0, 1, 1))]
        made = raster(unit.paths, size, options["what"], box=(*box, *limits[4:]),
                      fraction=options["fraction"], threads=threads)
        assert isinstance(made, Raster)
        top = round((extent[3] - made.extent[3]) / size)
        left = round((made.extent[0] - extent[0]) / size)
        stack = np.full((len(options["what"]), options["cells"], options["cells"]), np.nan)
        for layer, name in enumerate(options["what"]):
            if name.startswith("count"):
                stack[layer] = 0
            stack[layer, top:top + made.shape[0], left:left + made.shape[1]] = made[name]
        np.save(path, stack)
        counts = [layer.sum() for name, layer in zip(options["what"], stack) if name == "count"]
        return Outcome(True, int(counts[0]) if counts else 0)

    def merge(self, plan: Plan, receipts: Iterable[tuple[Unit, Receipt]],
              overview: float | bool) -> dict[str, Any]:
        options = plan.job.options
        whole = RasterGrid.union(self._grid(unit) for unit in plan)
        path = os.path.join(plan.job.out, "raster.tif")
        with RasterWriter(path, whole, options["what"], crs=options["crs"], dtype=options["dtype"]) as writer:
            for unit, _ in receipts:
                stack = np.load(unit.path)
                writer.write(Raster(self._grid(unit), dict(zip(options["what"], stack)), CRS(options["crs"])))
        return {"raster": path}


class Stats(_PerFile):
    """Statistics of the channels of each file, joined to those of the set."""

    options = {"channels": None, "box": None, "fraction": 1.0}

    def check(self, options: dict[str, Any]) -> None:
        check_fraction(options["fraction"])
        check_box(options["box"])

    def run(self, unit: Unit, path: str, threads: int | None) -> Outcome:
        moments: dict[str, Moments] = {}
        count = 0
        with open_cloud(unit.paths) as cloud:
            for table in cloud.chunks(1 << 18, threads=threads, **unit.job.options):
                count += table.num_points
                for name, values in table.items():
                    moments.setdefault(name, Moments()).add(values)
        return Outcome(False, count, {name: each.to_dict() for name, each in moments.items()})

    def merge(self, plan: Plan, receipts: Iterable[tuple[Unit, Receipt]],
              overview: float | bool) -> dict[str, Any]:
        moments: dict[str, Moments] = {}
        count = 0
        for _, receipt in receipts:
            count += receipt.num_points
            for name, values in receipt.result.items():
                moments.setdefault(name, Moments()).merge(Moments.from_dict(values))
        statistics = {name: each.summary() for name, each in moments.items()}
        path = os.path.join(plan.job.out, "statistics.json")
        with replacing(path) as file:
            json.dump({"points": count, "channels": statistics}, file, indent=1)
        return {"points": count, "statistics": path}


class Check(_PerFile):
    """A complete check of each file by vxinfo. A file that is not sound is a result, not a failed unit."""

    def run(self, unit: Unit, path: str, threads: int | None) -> Outcome:
        command = [program("vxinfo"), "-check", "-json"]
        if threads:
            command += ["-j", str(threads)]
        command += ["--", *unit.paths]
        done = subprocess.run(command, capture_output=True, text=True, errors="replace", check=False)
        try:
            report = json.loads(done.stdout)[0]
        except (ValueError, IndexError):
            raise RuntimeError(f"vxinfo: {done.stderr.strip() or f'exit status {done.returncode}'}") from None
        problems = report.get("problems") or []
        checked = report.get("check") or {}
        return Outcome(False, int(checked.get("numPoints") or 0),
                       {"file": unit.paths[0], "sound": report["sound"], "problems": problems,
                        "digests": checked.get("numDigests") or 0})

    def merge(self, plan: Plan, receipts: Iterable[tuple[Unit, Receipt]],
              overview: float | bool) -> dict[str, Any]:
        unsound, points, files, without_digests = [], 0, 0, 0
        for _, receipt in receipts:
            files += 1
            points += receipt.num_points
            without_digests += receipt.result["digests"] == 0
            if not receipt.result["sound"]:
                unsound.append({name: receipt.result[name] for name in ("file", "problems")})
        path = os.path.join(plan.job.out, "check.json")
        with replacing(path) as file:
            json.dump({"files": files, "points": points, "withoutDigests": without_digests,
                       "unsound": unsound}, file, indent=1)
        return {"points": points, "files": files, "report": path, "unsound": unsound}


OPERATIONS: dict[str, type[Operation]] = {
    "convert": Convert, "retile": Retile, "query": Query, "raster": Rasters, "stats": Stats, "check": Check,
}


def program(name: str) -> str:
    """The path of a program: of the build that the package belongs to, or of the system."""
    beside = os.path.join(os.path.dirname(os.path.abspath(_vxl.__file__)), os.pardir, os.pardir, name)
    found = beside if os.access(beside, os.X_OK) else shutil.which(name)
    if found is None:
        raise FileNotFoundError(f"the program {name} is not found; it is in the package vxunpack-tools")
    return os.path.normpath(found)


def _call(command: list[str]) -> None:
    done = subprocess.run(command, capture_output=True, text=True, errors="replace", check=False)
    if done.returncode:
        raise RuntimeError(f"{os.path.basename(command[0])}: {done.stderr.strip()}")
