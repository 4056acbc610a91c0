"""Running the units of a plan: in local processes, on Dask, and as a Slurm array."""

from __future__ import annotations

import os
import shlex
import sys
import time
from collections import deque
from collections.abc import Callable, Iterator
from concurrent.futures import FIRST_COMPLETED, Future, ProcessPoolExecutor, wait
from concurrent.futures.process import BrokenProcessPool
from dataclasses import dataclass, field
from multiprocessing import get_context
from typing import IO, Any

from . import _operations, _receipts
from ._plan import Plan, Unit
from ._receipts import Receipt


class UnitError(Exception):
    """A unit that failed; the message names it and the reason."""


def run(unit: Unit, *, force: bool = False, verify: bool = False, threads: int | None = None) -> Receipt:
    """Run a unit, unless its output is there already.

    The output is written to a temporary file, which is renamed when it is complete; then the receipt is
    written. Two workers can run the same unit at the same time.

    Parameters
    ----------
    unit : Unit
        ``plan[n]``
    force : bool
        Run it again in any case.
    verify : bool
        Compare the digest of an existing output, not only its size and time.
    threads : int, optional
        The maximum; by default one per core.

    Raises
    ------
    UnitError
        With the reason, which is also in the file OUTPUT.failed.json.
    """
    if not force:
        receipt = _receipts.read(unit, verify)
        if receipt is not None:
            return receipt
    begin = time.monotonic()
    try:
        for path, size, mtime in unit.inputs:
            if "://" not in path and _operations.input_of(path)[1:] != (size, mtime):
                raise RuntimeError(f"{path} has changed since the plan was made; make the plan again")
        operation = _operations.find(unit.job.operation)
        os.makedirs(os.path.dirname(unit.path), exist_ok=True)
        with _receipts.attempt(unit) as folder:
            path = os.path.join(folder, os.path.basename(unit.output))
            outcome = operation.run(unit, path, threads)
            size = mtime = digest = None
            if outcome.has_file:
                digest = _receipts.digest_of(path)
                found = _receipts.publish(path, unit.path)
                size, mtime = found.st_size, found.st_mtime_ns
            elif os.path.exists(unit.path):
                os.unlink(unit.path)  # of an earlier plan
        seconds = round(time.monotonic() - begin, 3)
        receipt = Receipt(unit.id, unit.fingerprint, size, mtime, digest, outcome.num_points, seconds,
                          result=outcome.result)
        _receipts.write(unit, receipt)
        return receipt
    except Exception as error:
        reason = f"{type(error).__name__}: {error}"
        _receipts.write_failure(unit, reason)
        raise UnitError(f"{unit}: {reason}") from None


@dataclass
class Summary:
    """What `run_all` did: numbers of units, and the errors of those that failed."""

    num_units: int
    num_done: int = 0
    num_skipped: int = 0
    errors: dict[int, str] = field(default_factory=dict)

    @property
    def is_complete(self) -> bool:
        return self.num_done + self.num_skipped == self.num_units


class _Progress:
    """A line on a terminal that is updated, or a line for each tenth in a log."""

    def __init__(self, summary: Summary, stream: IO[str] | None) -> None:
        self._summary, self._stream = summary, stream
        self._begin = self._shown = time.monotonic()
        self._tenth = 0

    def show(self, at_end: bool = False) -> None:
        if self._stream is None:
            return
        done = self._summary
        finished = done.num_done + done.num_skipped + len(done.errors)
        now = time.monotonic()
        is_terminal = self._stream.isatty()
        tenth = finished * 10 // max(done.num_units, 1)
        if at_end or (now - self._shown >= 0.5 if is_terminal else tenth > self._tenth):
            self._shown, self._tenth = now, tenth
            rate = (done.num_done + len(done.errors)) / max(now - self._begin, 1e-9)
            text = f"{finished:,} of {done.num_units:,} units"
            text += f", {len(done.errors):,} failed" if done.errors else ""
            text += f", {rate:.3g} per second" if rate else ""
            if rate and not at_end:
                text += f", {_duration((done.num_units - finished) / rate)} left"
            self._stream.write(f"\r\033[K{text}" if is_terminal else f"{text}\n")
            if is_terminal and at_end:
                self._stream.write("\n")
            self._stream.flush()


def _duration(seconds: float) -> str:
    if seconds < 100:
        return f"{seconds:.0f} s"
    return f"{seconds / 60:.0f} min" if seconds < 6000 else f"{seconds / 3600:.1f} h"


def run_all(
    plan: Plan | str | os.PathLike[str],
    client: Any = None,
    *,
    processes: int | None = None,
    retries: int = 2,
    threads: int | None = 1,
    progress: bool = True,
    on_error: Callable[[Unit, str], object] | None = None,
) -> Summary:
    """Run the units of a plan whose outputs are not there.

    A unit that fails does not stop the others.

    Parameters
    ----------
    plan : Plan or path
    client : distributed.Client, optional
        The cluster that runs them. Its workers need the paths of the plan, and the module vxl.
    processes : int, optional
        Without a client: the number of local processes; by default one per core.
    retries : int
        How often a failed unit is run again. A unit whose process dies counts as failed.
    threads : int or None
        That a unit uses; None: one per core.
    progress : bool
        Report the progress on standard error.
    on_error : function, optional
        Called with a unit and its error after the last retry.
    """
    if not isinstance(plan, Plan):
        plan = Plan(plan)
    summary = Summary(len(plan))
    report = _Progress(summary, sys.stderr if progress else None)

    def todo() -> Iterator[Unit]:
        for unit in plan:
            if _receipts.read(unit) is None:
                yield unit
            else:
                summary.num_skipped += 1

    def finished(unit: Unit, error: str | None) -> None:
        if error is None:
            summary.num_done += 1
        else:
            summary.errors[unit.id] = error
            _receipts.write_failure(unit, error)
            if on_error is not None:
                on_error(unit, error)
        report.show()

    try:
        if client is None:
            _run_locally(todo(), processes or os.cpu_count() or 1, retries, threads, finished)
        else:
            _run_on_dask(todo(), client, retries, threads, finished)
    finally:
        report.show(at_end=True)
        _receipts.sweep(plan.job)
    return summary


def _task(unit: Unit, threads: int | None) -> None:
    run(unit, threads=threads)


def _error_of(error: BaseException, unit: Unit) -> str:
    if isinstance(error, UnitError):
        return str(error).partition(": ")[2]
    return f"{type(error).__name__}: {error}"


def _run_on_dask(units: Iterator[Unit], client: Any, retries: int, threads: int | None,
                 finished: Callable[[Unit, str | None], None]) -> None:
    from distributed import as_completed

    completed = as_completed()
    running: dict[Any, Unit] = {}

    def submit() -> bool:
        unit = next(units, None)
        if unit is None:
            return False
        future = client.submit(_task, unit, threads, retries=retries, pure=False)
        running[future] = unit
        completed.add(future)
        return True

    try:
        # The scheduler knows only a few tasks per core at a time: a million of them would use gigabytes.
        has_more = True
        while running or has_more:
            workers = client.scheduler_info()["workers"].values()
            while has_more and len(running) < 16 + 4 * sum(worker["nthreads"] for worker in workers):
                has_more = submit()
            if not running:
                break
            future = next(completed)
            unit = running.pop(future)
            if future.status == "finished":
                finished(unit, None)
            elif future.status == "error":
                finished(unit, _error_of(future.exception(), unit))
            else:
                finished(unit, f"the task was {future.status}")
    finally:
        client.cancel(list(running))


def _run_locally(units: Iterator[Unit], processes: int, retries: int, threads: int | None,
                 finished: Callable[[Unit, str | None], None]) -> None:
    tries: dict[int, int] = {}  # of units that failed
    waiting: deque[Unit] = deque()
    # Units that ran when a process died. Which of them killed it is found by running them one at a time.
    suspects: deque[Unit] = deque()
    pool = _new_pool(processes)
    running: dict[Future[None], Unit] = {}

    def failed(unit: Unit, error: str, again: deque[Unit]) -> None:
        tries[unit.id] = tries.get(unit.id, 0) + 1
        if tries[unit.id] <= retries:
            again.append(unit)
        else:
            del tries[unit.id]
            finished(unit, error)

    try:
        while True:
            limit = 1 if suspects else 2 * processes
            while len(running) < limit:
                unit = suspects.popleft() if suspects else waiting.popleft() if waiting else next(units, None)
                if unit is None:
                    break
                try:
                    running[pool.submit(_task, unit, threads)] = unit
                except BrokenProcessPool:  # a process died while it had nothing to do
                    waiting.appendleft(unit)
                    if not running:
                        pool.shutdown(wait=True)
                        pool = _new_pool(processes)
                        continue
                    break
            if not running:
                return
            done, _ = wait(running, return_when=FIRST_COMPLETED)
            is_broken = False
            alone = len(running) == 1
            for future in done:
                unit = running.pop(future)
                error = future.exception()
                if error is None:
                    tries.pop(unit.id, None)
                    finished(unit, None)
                elif not isinstance(error, BrokenProcessPool):
                    failed(unit, _error_of(error, unit), waiting)
                else:
                    is_broken = True
                    if alone:
                        failed(unit, "its process was killed", suspects)
                    else:
                        suspects.append(unit)
            if is_broken:
                pool.shutdown(wait=True)
                suspects.extend(running.values())
                running.clear()
                pool = _new_pool(processes)
    finally:
        for future in running:
            future.cancel()
        pool.shutdown(wait=True, cancel_futures=True)


def _new_pool(processes: int) -> ProcessPoolExecutor:
    # Not forked: the library has threads.
    return ProcessPoolExecutor(processes, mp_context=get_context("spawn"))


def slice_of(num_units: int, task: int, num_tasks: int) -> tuple[int, int]:
    """The units of a task of an array: neighbours, which read the same files."""
    if not 0 <= task < num_tasks:
        raise ValueError(f"there are {num_tasks} tasks, from 0; there is no task {task}")
    return num_units * task // num_tasks, num_units * (task + 1) // num_tasks


def slurm(
    plan: Plan | str | os.PathLike[str],
    *,
    tasks: int | None = None,
    cpus: int = 1,
    memory: str | None = None,
    time: str | None = None,
    partition: str | None = None,
    options: tuple[str, ...] = (),
) -> str:
    """A script for ``sbatch`` that runs a plan as an array.

    Parameters
    ----------
    tasks : int, optional
        The size of the array; by default up to 1000, which is the limit of most clusters. A task runs its
        units one after the other.
    cpus : int
        Of a task, all of which its units use.
    memory, time, partition : str, optional
        Of a task, as for ``sbatch``.
    options : tuple of str
        Others, as ``"--account=survey"``.
    """
    if not isinstance(plan, Plan):
        plan = Plan(plan)
    count = min(len(plan), 1000 if tasks is None else tasks)
    if count < 1 or cpus < 1:
        raise ValueError("tasks and cpus are 1 or more")
    given = {"mem": memory, "time": time, "partition": partition}
    lines = [
        f"--job-name=vxl-{plan.job.operation.rpartition(':')[2]}",
        f"--array=0-{count - 1}",
        "--requeue",  # after the failure of a node; complete units are skipped
        "--open-mode=append",
        f"--cpus-per-task={cpus}",
        f"--output={os.path.join(plan.job.out, 'slurm-%A_%a.log')}",
        *(f"--{name}={value}" for name, value in given.items() if value is not None),
        *options,
    ]
    return "\n".join([
        "#!/bin/bash",
        *(f"#SBATCH {line}" for line in lines),
        f"export PYTHONPATH={shlex.quote(_import_path())}${{PYTHONPATH:+:$PYTHONPATH}}",
        f"exec {shlex.quote(sys.executable)} -m vxl.jobs run {shlex.quote(plan.path)} \\",
        f"  --task \"$SLURM_ARRAY_TASK_ID\" --of {count} --threads \"${{SLURM_CPUS_PER_TASK:-{cpus}}}\"",
        "",
    ])


def _import_path() -> str:
    """The folder that has the package vxl, which may consist of links."""
    import vxl

    return os.path.dirname(os.path.dirname(os.path.abspath(vxl.__file__)))
