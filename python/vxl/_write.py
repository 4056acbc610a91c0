"""Writing files."""

from __future__ import annotations

import itertools
import os
import tempfile
from collections.abc import Iterable, Iterator, Mapping
from typing import Any, Union

import numpy as np

from . import _vxl
from ._cloud import Box, Cloud, Path, Progress, check_box, check_fraction, check_progress
from ._channels import require_all
from ._columns import Layout, arrange, columns_of, names_of
from ._errors import warn
from ._table import Table
from ._threads import check_threads

Data = Union[Cloud, Table, Mapping[str, Any], np.ndarray, Any, Iterable[Any]]
Triple = Union[float, Iterable[float], None]

EXPECTED = "a Cloud, a Table, a mapping of names to arrays, a structured array or a DataFrame"
ORDERS = ("input", "time", "hilbert")
FORMATS = ("vxl", "las", "laz", "bpf", "txt", "null")


def write(
    path: Path,
    data: Data,
    *,
    layout: Any = None,
    format: str | None = None,
    crs: str | int | None = None,
    scale: Triple = None,
    offset: Triple = None,
    quantize: Triple = None,
    box: Box | None = None,
    fraction: float = 1.0,
    channels: Iterable[str] | None = None,
    order: str = "input",
    restore: bool = False,
    threads: int | None = None,
    progress: Progress | None = None,
) -> int:
    """Write points to a file, and return their number.

    The file is complete or absent: after an error, an existing file is unchanged.

    Parameters
    ----------
    path : str or path
        The ending is the format: .vxl, .las, .laz, .bpf, .txt, .csv or .xyz.
    data : Cloud, Table, mapping of names to arrays, structured array, DataFrame, or iterator of those
        Channels are named as in files (``"ClassId"``) or as in LAS and PDAL (``"classification"``). X, Y and
        Z are required, integers or floats of any type. Other channels keep their types: integers of 1 to 8
        bytes, float32 or float64. bool becomes uint8, and int64, NumPy's default, the type that LAS has for
        the channel. A value that the type does not hold is a ValueError. As in LAS, a ScanAngle of type int8
        is in degrees, one of type int16 in steps of 0.006 degrees.

        Arrays are not copied if they are contiguous, and must not change meanwhile. An iterator is read once,
        to temporary files in the folder of the output, as large as the arrays, since writers read some points
        twice; memory does not grow with their number. The temporary files have no names, so that none remains
        when the process is killed.
    layout : structured dtype or mapping of names to dtypes, optional
        The channels and their types. By default those of the data; of an iterator, those of its first
        item.
    format : {"vxl", "las", "laz", "bpf", "txt", "null"}, optional
        Regardless of the name; "null" writes nothing.
    crs : str or int, optional
        The coordinate system: "EPSG:25832", 25832, WKT. Points are not transformed. By default that of a
        Cloud.
    scale, offset : number or 3 numbers, optional
        Of X, Y and Z. LAS and LAZ round coordinates to `scale`. .vxl files keep coordinates exactly, and are
        smaller if all coordinates are multiples of it.
    quantize : number or 3 numbers, optional
        Round coordinates to these steps, for any format.
    box, fraction, channels
        The points to write, as for `Cloud.read`.
    order : {"input", "time", "hilbert"}
        Sort the points. "hilbert" makes boxes fast to read.
    restore : bool
        Give back the LAS or LAZ file that was packed.
    threads : int, optional
        The maximum; by default one per core.
    progress : function, optional
        Called with the fraction done, 0 to 1. If it returns False, `Cancelled` is raised.

    Examples
    --------
    >>> x = np.arange(1000) * 0.25
    >>> vxl.write("line.vxl", {"x": x, "y": 0 * x, "z": 0 * x, "classification": x > 100}, crs="EPSG:25832")
    1000
    >>> vxl.write("line.laz", vxl.open("line.vxl"), box=(0, 10, None, None))
    41

    Points that do not fit into memory are written chunk by chunk:

    >>> def higher(chunks):
    ...     for chunk in chunks:
    ...         yield {**chunk, "Z": chunk["Z"] + 5}
    >>> vxl.write("higher.vxl", higher(vxl.open("line.vxl").chunks(100)))
    1000
    """
    name = os.fsdecode(path)
    if order not in ORDERS:
        raise ValueError(f"order is one of {', '.join(ORDERS)}, not {order!r}")
    if format is not None and format not in FORMATS:
        raise ValueError(f"format is one of {', '.join(FORMATS)}, not {format!r}")
    corners, part = check_box(box), check_fraction(fraction)
    scales, offsets, steps = _triple("scale", scale), _triple("offset", offset), _triple("quantize", quantize)
    limit, report = check_threads(threads), check_progress(progress)
    for_las = (format or os.path.splitext(name)[1][1:].lower()) in ("las", "laz")
    wanted = None if layout is None else Layout.parse(layout)
    if isinstance(data, Cloud):
        if wanted is not None:
            raise TypeError("layout is for arrays; a Cloud has one")
        cloud, known = data._cloud, list(data.channels)
    else:
        cloud, known = _gather(data, wanted, scales, for_las, _spool_folder(name, format))
    names: list[str] = []
    if channels is not None:
        names = ["X", *require_all(known, channels)]
    if crs is not None:
        cloud = cloud.with_crs(f"EPSG:{crs}" if isinstance(crs, int) else str(crs))
    if steps is not None:
        cloud = cloud.quantized(steps)
    try:
        return _vxl.write(cloud, name, format or "", order, scales, offsets, bool(restore), limit, corners,
                          part, names, report)
    finally:
        warn(cloud.take_warnings())


def _spool_folder(path: str, format: str | None) -> str:
    return tempfile.gettempdir() if format == "null" or path == "null" else os.path.dirname(path) or "."


def _triple(name: str, value: Triple) -> tuple[float, float, float] | None:
    if value is None:
        return None
    if isinstance(value, (int, float, np.number)):
        return (float(value),) * 3
    numbers = tuple(float(number) for number in value)
    if len(numbers) != 3:
        raise ValueError(f"{name} is one number, or three for X, Y and Z, not {len(numbers)}")
    return numbers


def _gather(data: Any, layout: Layout | None, scale: tuple[float, float, float] | None, for_las: bool,
            folder: str) -> tuple[Any, list[str]]:
    """A cloud of the extension that has the points, and the names of its channels."""
    given = columns_of(data)
    if given is not None:
        layout = layout or Layout.of(*given)
        if scale is not None:
            layout = layout.with_scale(scale)
        arrays = arrange(given[0], layout, for_las)
        return _vxl.from_columns(list(zip(names_of(layout.values()), arrays))), list(layout)

    items = _iterate(data)
    if layout is None:
        first = next(items, None)
        if first is None:
            raise ValueError("the iterator is empty; give a layout to write a file without points")
        layout = Layout.of(*first)
        items = itertools.chain([first], items)
    if scale is not None:
        layout = layout.with_scale(scale)
    spool = _vxl.Spool(folder, names_of(layout.values()))
    for arrays_of_item, _ in items:
        spool.append(arrange(arrays_of_item, layout, for_las))
    return spool.cloud(), list(layout)


def _iterate(data: Any) -> Iterator[tuple[dict[str, np.ndarray], dict[str, float]]]:
    try:
        items = iter(data)
    except TypeError:
        items = None
    if items is None or isinstance(data, (str, bytes, np.ndarray)):
        raise TypeError(f"the points are {EXPECTED}, or an iterator of those, not {type(data).__name__}")
    for item in items:
        given = columns_of(item)
        if given is None:
            raise TypeError(f"an item of the iterator is {EXPECTED}, not {type(item).__name__}")
        yield given
