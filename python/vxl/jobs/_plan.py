"""Plans: files with one line per unit of work."""

from __future__ import annotations

import contextlib
import hashlib
import json
import os
import secrets
from collections.abc import Iterator
from dataclasses import dataclass, field
from typing import IO, Any

from .. import _vxl
from .._cloud import Path

_FORMAT = 1


@dataclass(frozen=True)
class Job:
    """What all units of a plan have in common: the first line of the plan.

    Attributes
    ----------
    operation : str
    source : list of str
        What was planned, as absolute paths.
    out : str
        The absolute path of the folder of the outputs.
    options : dict
        The options of the operation.
    num_units : int
    version : str
        Of the program that made the plan.
    """

    operation: str
    source: list[str]
    out: str
    options: dict[str, Any]
    num_units: int = 0
    version: str = _vxl.version

    def to_json(self) -> str:
        return json.dumps({"vxl_plan": _FORMAT, **self.__dict__})


@dataclass(frozen=True)
class Unit:
    """A part of a job that can be run alone, in any order and more than once.

    Attributes
    ----------
    id : int
        Its position in the plan.
    output : str
        The path of the file that it makes, relative to the folder of the job. The receipt has the same name
        with the ending .receipt.json.
    inputs : list of (path, size, mtime in ns)
        The files that it reads; size and time are None for a URL.
    box : list of 4 numbers or None
        The half-open box of the points that belong to the unit: xmin, xmax, ymin, ymax.
    """

    job: Job = field(repr=False)
    id: int
    output: str
    inputs: list[tuple[str, int | None, int | None]]
    box: list[float] | None = None

    def to_json(self) -> str:
        line: dict[str, Any] = {"id": self.id, "output": self.output, "inputs": self.inputs}
        if self.box is not None:
            line["box"] = self.box
        return json.dumps(line, separators=(",", ":"))

    @property
    def path(self) -> str:
        """The absolute path of the output."""
        return os.path.join(self.job.out, self.output)

    @property
    def paths(self) -> list[str]:
        """The paths of the inputs."""
        return [path for path, _, _ in self.inputs]

    @property
    def fingerprint(self) -> str:
        """A digest of all that decides the output."""
        text = json.dumps([self.job.operation, self.job.options, self.to_json()], sort_keys=True)
        return hashlib.blake2b(text.encode(), digest_size=16).hexdigest()

    def __str__(self) -> str:
        return f"unit {self.id} ({self.output})"


class Plan:
    """A plan in a file: a sequence of `Unit`, of which only those that are asked for are in memory.

    The first line of the file is the job, each following one a unit, as JSON. ``plan[n]`` finds a line by
    bisection: lines are in the order of their numbers.
    """

    def __init__(self, path: Path) -> None:
        self.path = os.path.abspath(os.fsdecode(path))
        with self._open() as file:
            try:
                head = json.loads(file.readline())
                version = head.pop("vxl_plan")
                self.job = Job(**head)
            except (ValueError, KeyError, TypeError, AttributeError):
                raise ValueError(f"{self.path} is not a plan") from None
            if version != _FORMAT:
                raise ValueError(f"{self.path} has version {version} of the format of plans, not {_FORMAT}")
            self._begin = file.tell()
            self._end = file.seek(0, os.SEEK_END)

    def _open(self) -> IO[bytes]:
        return open(self.path, "rb")

    def __len__(self) -> int:
        return self.job.num_units

    def __iter__(self) -> Iterator[Unit]:
        return self.units(0, len(self))

    def __getitem__(self, index: int) -> Unit:
        for unit in self.units(index, index + 1):
            return unit
        raise IndexError(f"{self.path} has {len(self)} units; there is no unit {index}")

    def units(self, begin: int, end: int) -> Iterator[Unit]:
        """The units `begin` to `end` - 1."""
        begin, end = max(begin, 0), min(end, len(self))
        if begin >= end:
            return
        with self._open() as file:
            file.seek(self._find(file, begin))
            for number in range(begin, end):
                unit = self._parse(file.readline())
                if unit.id != number:
                    raise ValueError(f"{self.path} is damaged: unit {unit.id} follows unit {number - 1}")
                yield unit

    def _parse(self, line: bytes) -> Unit:
        try:
            values = json.loads(line)
            values["inputs"] = [tuple(each) for each in values["inputs"]]
            return Unit(self.job, **values)
        except (ValueError, KeyError, TypeError):
            raise ValueError(f"{self.path} is damaged or incomplete: {line[:60]!r} is not a unit") from None

    def _find(self, file: IO[bytes], number: int) -> int:
        """The position of the line of a unit."""
        low, high = self._begin, self._end  # the line begins in [low, high)
        while low < high:
            middle = (low + high) // 2
            file.seek(middle)
            if middle > self._begin:
                file.seek(middle - 1)
                file.readline()  # to the first line that begins at `middle` or later
            begin = file.tell()
            line = file.readline()
            if begin >= high or not line:
                high = middle
                continue
            found = self._parse(line).id
            if found == number:
                return begin
            if found < number:
                low = begin + len(line)
            else:
                high = middle
        raise ValueError(f"{self.path} is damaged: there is no unit {number}")

    def __repr__(self) -> str:
        return f"<vxl.jobs.Plan {os.path.relpath(self.path)}: {self.job.operation}, {len(self):,} units>"


@contextlib.contextmanager
def replacing(path: str) -> Iterator[IO[str]]:
    """A text file that replaces `path` when it is complete."""
    folder, name = os.path.split(path)
    temporary = os.path.join(folder, f".{name}.{secrets.token_hex(6)}")
    try:
        with open(temporary, "x", encoding="ascii") as file:
            yield file
            file.flush()
            os.fsync(file.fileno())
        os.replace(temporary, path)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(temporary)
        raise


def write_plan(path: str, job: Job, units: Iterator[dict[str, Any]]) -> Plan:
    """Write a plan, unit by unit."""
    with replacing(path) as file:
        # The number of units is not known before the last one: the line has space for it.
        width = len(job.to_json()) + 20
        file.write(" " * width + "\n")
        count = 0
        for values in units:
            file.write(Unit(job, count, **values).to_json() + "\n")
            count += 1
        if count == 0:
            raise ValueError("there is nothing to do: no file of the source has points there")
        file.seek(0)
        file.write(Job(**{**job.__dict__, "num_units": count}).to_json().ljust(width))
    return Plan(path)
