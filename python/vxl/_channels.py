"""Channel names and sample types."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Mapping
from typing import NamedTuple, TypeVar

import numpy as np

from . import _vxl
from ._errors import ChannelError

Value = TypeVar("Value")

# The channels of LAS, with the types of their samples there. A name of LAS or PDAL means one of them.
STANDARD: dict[str, str] = {
    "X": "f8", "Y": "f8", "Z": "f8", "Intensity": "u2", "ReturnNum": "u1", "NumReturns": "u1",
    "ScanDir": "u1", "EdgeFlightLine": "u1", "ClassId": "u1", "ClassFlags": "u1", "ScannerChannel": "u1",
    "ScanAngle": "i2", "UserData": "u1", "SourceId": "u2", "GPSTime": "f8", "GPSTime_Adjusted": "f8",
    "Red": "u2", "Green": "u2", "Blue": "u2", "NearInfrared": "u2",
}
COORDINATES = ("X", "Y", "Z")


class Channel(NamedTuple):
    """A channel of a cloud.

    Attributes
    ----------
    dtype : numpy.dtype
        The type of its samples.
    scale : float
        The step of which all values are multiples (plus an offset), 0 if there is none.
    """

    dtype: np.dtype
    scale: float


def find(names: Iterable[str], name: object) -> str | None:
    """The one of `names` that `name` means, if any."""
    known = list(names)
    if not isinstance(name, str):
        raise TypeError(f"a channel is named by a str, not {type(name).__name__}")
    index = _vxl.find_channel(known, name)
    return None if index < 0 else known[index]


def require(names: Iterable[str], name: object, owner: str = "the cloud") -> str:
    """The same; ChannelError if there is none."""
    known = list(names)
    found = find(known, name)
    if found is None:
        raise ChannelError(f"{owner} has no channel {name!r}; its channels are {', '.join(known)}")
    return found


def require_all(names: Iterable[str], wanted: Iterable[str], parameter: str = "channels") -> list[str]:
    """The channels that a list of names means; TypeError for one name in place of a list."""
    if isinstance(wanted, str):
        raise TypeError(f"{parameter} is a list of names: [{wanted!r}]")
    known = list(names)
    return [require(known, name) for name in wanted]


class ByChannel(Mapping[str, Value]):
    """A mapping whose keys are channels, found by any of their names."""

    _owner = "the cloud"

    def __init__(self, values: dict[str, Value]) -> None:
        self._values = values

    def __getitem__(self, name: str) -> Value:
        return self._values[require(self._values, name, self._owner)]

    def __contains__(self, name: object) -> bool:
        return isinstance(name, str) and find(self._values, name) is not None

    def __iter__(self) -> Iterator[str]:
        return iter(self._values)

    def __len__(self) -> int:
        return len(self._values)
