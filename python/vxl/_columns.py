"""Points that callers give, as arrays of the types that files have."""

from __future__ import annotations

from collections.abc import Iterable, Mapping
from typing import Any, NamedTuple

import numpy as np

from ._channels import COORDINATES, STANDARD, find
from ._errors import ChannelError
from ._table import Table

TYPES = ("uint8", "int8", "uint16", "int16", "uint32", "int32", "uint64", "int64", "float32", "float64")


class Column(NamedTuple):
    name: str
    dtype: np.dtype
    scale: float


class Layout(dict[str, Column]):
    """The channels of a file to be written, in order."""

    @staticmethod
    def parse(given: Any) -> Layout:
        """A layout of a user: a structured dtype, or a mapping of names to dtypes or to `Channel`."""
        if isinstance(given, (np.dtype, list)):
            dtype = np.dtype(given)
            if dtype.names is None:
                raise TypeError("layout is a structured dtype, or a mapping of channel names to dtypes")
            given = {name: dtype[name] for name in dtype.names}
        if not isinstance(given, Mapping):
            raise TypeError("layout is a structured dtype, or a mapping of channel names to dtypes")
        layout = Layout()
        for name, value in given.items():
            dtype, scale = value if isinstance(value, tuple) else (value, 0.0)
            layout._add(name, np.dtype(dtype), scale)
        layout._check()
        return layout

    @staticmethod
    def of(arrays: Mapping[str, np.ndarray], scales: Mapping[str, float]) -> Layout:
        """The layout of arrays by their names."""
        layout = Layout()
        for name, array in arrays.items():
            layout._add(name, array.dtype, scales.get(name, 0.0))
        layout._check()
        return layout

    def _add(self, given: str, dtype: np.dtype, scale: float) -> None:
        name = own_name(given)
        if name in self:
            raise ValueError(f"there are two channels {name!r}, one of them as {given!r}")
        self[name] = Column(name, stored_type(name, dtype), float(scale))

    def _check(self) -> None:
        for name in COORDINATES:
            if name not in self:
                raise ChannelError(f"there is no channel {name!r}; the channels are {', '.join(self)}")

    def with_scale(self, scale: tuple[float, float, float]) -> Layout:
        """The same with these scales of X, Y and Z."""
        steps = dict(zip(COORDINATES, scale))
        return Layout(
            (name, column._replace(scale=steps.get(name, column.scale))) for name, column in self.items()
        )


def own_name(name: object) -> str:
    """The name of a channel in files: a standard one for a name of LAS or PDAL, otherwise the name itself."""
    if not isinstance(name, str) or not name:
        raise TypeError(f"a channel is named by a str, not {name!r}")
    return find(STANDARD, name) or name


def stored_type(name: str, dtype: np.dtype) -> np.dtype:
    """The type in which samples of `dtype` are stored. TypeError if there is none."""
    if name in COORDINATES:
        if dtype.kind in "iuf" and dtype.itemsize <= 8:
            return np.dtype(np.float64)
        raise TypeError(f"channel {name!r} has the type {dtype}; coordinates are integers or floats")
    if dtype.kind == "b":
        return np.dtype(np.uint8)
    # NumPy's default type of integers: rarely meant.
    if dtype.kind == "i" and dtype.itemsize == 8 and name in STANDARD and STANDARD[name] != "f8":
        return np.dtype(STANDARD[name])
    native = dtype.newbyteorder("=")
    if native.name not in TYPES:
        raise TypeError(f"channel {name!r} has the type {dtype}; a channel is one of {', '.join(TYPES)}")
    return native


def columns_of(data: Any) -> tuple[dict[str, np.ndarray], dict[str, float]] | None:
    """The arrays of points in one of the accepted forms, and their scales; None for other objects."""
    if isinstance(data, Table):
        return dict(data), data.scales
    if isinstance(data, np.ndarray) and data.dtype.names is not None:
        return {name: data[name] for name in data.dtype.names}, {}
    if isinstance(data, Mapping):
        return {name: np.asarray(column) for name, column in data.items()}, {}
    if hasattr(data, "columns") and hasattr(data, "to_numpy"):  # a DataFrame
        return {name: data[name].to_numpy() for name in data.columns}, {}
    return None


def arrange(arrays: Mapping[str, np.ndarray], layout: Layout, for_las: bool) -> list[np.ndarray]:
    """The arrays in the order and the types of the layout. Copies only where it must."""
    named = {own_name(name): array for name, array in arrays.items()}
    for name in layout:
        if name not in named:
            raise ChannelError(f"there is no channel {name!r}; the channels are {', '.join(arrays)}")
    surplus = [name for name in named if name not in layout]
    if surplus:
        raise ValueError(f"channel {surplus[0]!r} is not in the layout, which has {', '.join(layout)}")
    count = len(named["X"])
    arranged = []
    for name, column in layout.items():
        array = named[name]
        if array.ndim != 1:
            raise ValueError(f"channel {name!r} has {array.ndim} dimensions, not 1")
        if len(array) != count:
            raise ValueError(f"channel {name!r} has {len(array)} samples and 'X' has {count}")
        arranged.append(np.ascontiguousarray(convert(name, array, column.dtype)))
        if for_las:
            check_for_las(name, array)
    return arranged


def convert(name: str, array: np.ndarray, dtype: np.dtype) -> np.ndarray:
    """Samples as `dtype`. ValueError if it does not hold all of them; any number can be a coordinate."""
    stored_type(name, array.dtype)
    if name in COORDINATES or np.can_cast(array.dtype, dtype, "safe"):
        return array.astype(dtype, copy=False)
    with np.errstate(invalid="ignore"):
        converted = array.astype(dtype)
    if not np.array_equal(converted, array, equal_nan=array.dtype.kind == "f"):
        raise ValueError(
            f"channel {name!r} is stored as {dtype}, which does not hold all values from {array.min()} to "
            f"{array.max()}"
        )
    return converted


def check_for_las(name: str, array: np.ndarray) -> None:
    """ValueError for samples that a field of a LAS record does not hold: it would keep some of their bits."""
    if name in COORDINATES or name not in STANDARD or array.dtype.kind == "b":
        return
    dtype = np.dtype(STANDARD[name])
    if dtype.kind != "f" and array.dtype != dtype:
        convert(name, array, dtype)


def names_of(columns: Iterable[Column]) -> list[tuple[str, str, float]]:
    """The layout for the extension."""
    return [(column.name, column.dtype.str.lstrip("<>|="), column.scale) for column in columns]
