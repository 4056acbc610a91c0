"""Work on sets of files as plans of independent units, which any engine can run.

>>> from vxl import jobs
>>> plan = jobs.plan("survey.vxl", "retile", "tiles", tile_size=100, box=(500000, 500200, 4100000, 4100100))
>>> plan
<vxl.jobs.Plan tiles/plan.jsonl: retile, 2 units>
>>> plan[1].output, plan[1].box
('5001_41000.vxl', [500100.0, 500200.0, 4100000.0, 4100100.0])
>>> jobs.run(plan[1]).num_points
1060
>>> jobs.run(plan[1]).is_skipped, jobs.finish(plan).missing
(True, [0])
>>> jobs.run(plan[0]).num_points
1331
>>> jobs.finish(plan).merged["points"]
2391

`run_all` runs all units in local processes or on a Dask cluster, and `slurm` makes the script of a Slurm
array. ``python3 -m vxl.jobs`` does the same from the command line.
"""

from __future__ import annotations

import os
from collections.abc import Iterator
from dataclasses import dataclass, field
from typing import Any

from .._cloud import Path
from . import _operations, _receipts, _sources
from ._engines import Summary, UnitError, run, run_all, slurm
from ._operations import Convert, Operation, Outcome
from ._plan import Job, Plan, Unit, write_plan
from ._receipts import Receipt

__all__ = [
    "Convert", "Job", "Operation", "Outcome", "Plan", "Receipt", "Report", "Summary", "Unit", "UnitError",
    "finish", "plan", "run", "run_all", "slurm", "status",
]


def plan(source: _sources.Source, operation: str, out: Path, *, path: Path | None = None,
         **options: Any) -> Plan:
    """Write a plan.

    Parameters
    ----------
    source : path or list of paths
        Files, directories, lists and indexes. Directories and lists are fast to plan if only the names of
        the files are needed (convert, stats, check); for large sets to retile, make an index first.
    operation : {"convert", "retile", "query", "raster", "stats", "check"} or "module:Class"
        ======== ======================================= ==================================================
        name     unit                                    options
        ======== ======================================= ==================================================
        convert  a file, to another format               format, box, fraction, channels, order, crs, scale,
                                                         quantize, restore: as for `vxl.write`
        retile   a square tile with the points of all    tile_size (required), buffer, box; format,
                 files there                             channels, order, crs, scale, quantize
        query    the whole source, to one file           name; the same as convert
        raster   a square of cells, from all files there resolution (required), what, box, fraction: as for
                                                         `vxl.raster`; cells (of an edge), dtype
        stats    a file: statistics of its channels      channels, box, fraction
        check    a file: a complete check by vxinfo
        ======== ======================================= ==================================================
    out : path
        The folder of the outputs; it is made. All workers see it at the same path.
    path : path, optional
        Of the plan; by default ``plan.jsonl`` in the folder `out`.

    The same arguments make the same plan as long as the files are the same.
    """
    made = _operations.find(operation)
    for name in options:
        if name not in made.options:
            choices = ", ".join(made.options) or "none"
            raise TypeError(f"{operation} has no option {name!r}; its options are: {choices}")
    for name in made.required:
        if options.get(name) is None:
            raise TypeError(f"{operation} needs the option {name!r}")
    folder = os.path.abspath(os.fsdecode(out))
    chosen = {name: _as_json(value) for name, value in {**made.options, **options}.items()}
    made.check(chosen)
    job = Job(operation, _sources.as_paths(source), folder, chosen)
    made.prepare(job)
    os.makedirs(folder, exist_ok=True)
    where = os.path.join(folder, "plan.jsonl") if path is None else os.path.abspath(os.fsdecode(path))
    return write_plan(where, job, _guarded(job, made.units(job)))


def _as_json(value: Any) -> Any:
    """Plain values for JSON."""
    if value is None or isinstance(value, (str, bool, int, float)):
        return value
    if hasattr(value, "item") and not getattr(value, "shape", ()):
        return value.item()  # a number of NumPy
    if isinstance(value, (list, tuple)) or hasattr(value, "tolist"):
        return [_as_json(each) for each in value]
    raise TypeError(f"{value!r} cannot be an option: it is not a number, text or a list of those")


def _guarded(job: Job, units: Iterator[dict[str, Any]]) -> Iterator[dict[str, Any]]:
    """The units; ValueError if an output could replace an input."""
    def place(path: str) -> tuple[str, str]:
        folder, name = os.path.split(path)
        if folder not in folders:
            folders[folder] = os.path.realpath(folder)
        return folders[folder], os.path.splitext(name)[1].lower()

    folders: dict[str, str] = {}
    inputs: set[tuple[str, str]] = set()
    outputs: set[tuple[str, str]] = set()
    for values in units:
        inputs.update(place(path) for path, _, _ in values["inputs"])
        outputs.add(place(os.path.join(job.out, values["output"])))
        yield values
    for folder, ending in inputs & outputs:
        raise ValueError(f"{folder} has inputs that end in {ending}; choose another folder for the outputs")


@dataclass
class Report:
    """The state of a job.

    Attributes
    ----------
    num_units : int
    missing : list of int
        Units without a valid receipt; those that failed are also in `errors`.
    errors : dict
        Unit to the error of its last run.
    merged : dict
        What `finish` made: ``points``, and the path of the index, statistics or report. Empty while units
        are missing.
    """

    num_units: int
    missing: list[int] = field(default_factory=list)
    errors: dict[int, str] = field(default_factory=dict)
    merged: dict[str, Any] = field(default_factory=dict)

    @property
    def is_complete(self) -> bool:
        return not self.missing


def _load(given: Plan | Path) -> Plan:
    return given if isinstance(given, Plan) else Plan(given)


def status(plan: Plan | Path, *, verify: bool = False) -> Report:
    """Compare the receipts with the plan.

    With `verify`, the digests of all outputs are computed again.
    """
    opened = _load(plan)
    report = Report(len(opened))
    for unit in opened:
        if _receipts.read(unit, verify) is None:
            report.missing.append(unit.id)
            error = _receipts.read_failure(unit)
            if error is not None:
                report.errors[unit.id] = error
    return report


def finish(plan: Plan | Path, *, verify: bool = False, overview: bool | float = True) -> Report:
    """Verify all receipts and join the results.

    ======== ======================================================================================
    convert  ``tiles.index`` in the folder `out`, with an overview
    retile   the same
    query    nothing: there is one file
    raster   ``raster.tif``: a cloud-optimized GeoTIFF
    stats    ``statistics.json``: count, minimum, maximum, mean and deviation of each channel
    check    ``check.json``: the files that are not sound, with their problems
    ======== ======================================================================================

    If a unit is missing, nothing is joined.

    Parameters
    ----------
    verify : bool
        Compute the digests of all outputs again.
    overview : bool or number
        The fraction of the points in the overview of the index. True: 1/16, at most about 10 million points.
    """
    opened = _load(plan)
    report = status(opened, verify=verify)
    if report.is_complete:
        receipts = ((unit, receipt) for unit in opened if (receipt := _receipts.read(unit)) is not None)
        report.merged = _operations.find(opened.job.operation).merge(opened, receipts, overview)
    _receipts.sweep(opened.job, report.is_complete)
    return report
