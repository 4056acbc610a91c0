"""Points in memory: one array per channel."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import numpy as np

from . import _vxl
from ._channels import ByChannel

if TYPE_CHECKING:
    import pandas


class Table(ByChannel[np.ndarray]):
    """Points, as a mapping from channel names to 1-D arrays of the same length.

    `len()` is the number of channels, `num_points` the number of points.

    >>> points = vxl.open("survey.vxl").read()
    >>> points.num_points, len(points)
    (2400, 15)
    >>> points["classification"].dtype       # the name in LAS, ignoring case
    dtype('uint8')
    >>> points.select(points["ClassId"] == 2).num_points
    2208
    """

    _owner = "the table"

    def __init__(self, columns: dict[str, np.ndarray], scales: dict[str, float] | None = None) -> None:
        lengths = {len(column) for column in columns.values()}
        if len(lengths) > 1:
            raise ValueError("the columns of a table have the same length")
        super().__init__(columns)
        self._scales = scales or {}

    @property
    def num_points(self) -> int:
        """The number of points."""
        return next((len(column) for column in self._values.values()), 0)

    @property
    def scales(self) -> dict[str, float]:
        """The step of which all values of a channel are multiples, 0 if there is none."""
        return {name: self._scales.get(name, 0.0) for name in self}

    @property
    def nbytes(self) -> int:
        """The size of all arrays in bytes."""
        return sum(column.nbytes for column in self._values.values())

    def select(self, index: Any) -> Table:
        """The points that a mask, a slice or an array of positions selects."""
        return Table({name: column[index] for name, column in self._values.items()}, self._scales)

    def to_structured(self) -> np.ndarray:
        """A copy as a structured array, with one field per channel.

        >>> vxl.open("survey.vxl").read(channels=["ClassId"]).to_structured().dtype.names
        ('X', 'Y', 'Z', 'ClassId')
        """
        rows = np.empty(self.num_points, [(name, column.dtype) for name, column in self._values.items()])
        for name, column in self._values.items():
            rows[name] = column
        return rows

    def to_pandas(self) -> pandas.DataFrame:
        """A pandas DataFrame, with one column per channel, without a copy of the arrays."""
        import pandas

        return pandas.DataFrame(dict(self._values), copy=False)

    def __arrow_c_stream__(self, requested_schema: object = None) -> object:
        """A stream of one batch of Arrow's C data interface, without a copy: ``pyarrow.table(points)``."""
        contiguous = [np.ascontiguousarray(column) for column in self._values.values()]
        return _vxl.arrow_stream(list(self._values), contiguous)

    def __repr__(self) -> str:
        shown = ", ".join(f"{name} {column.dtype}" for name, column in self._values.items())
        return f"<vxl.Table of {self.num_points:,} points: {shown}>"
