"""The command line of vxl.jobs."""

from __future__ import annotations

import argparse
import json
import os
import signal
import sys
from collections.abc import Iterator
from typing import Any, NoReturn

from . import Plan, Report, Unit, UnitError, finish, plan, run, run_all, slurm, status


def _value(text: str) -> Any:
    """The value of an option: JSON, several values with commas, or text."""
    try:
        return json.loads(text)
    except ValueError:
        pass
    if "," in text:
        return [None if not part.strip() else _value(part.strip()) for part in text.split(",")]
    return text


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(allow_abbrev=False,
        prog="python3 -m vxl.jobs", description="Work on sets of point clouds as plans of independent units.")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")

    def command(name: str, text: str) -> argparse.ArgumentParser:
        added = commands.add_parser(name, help=text, description=text, allow_abbrev=False)
        if name != "plan":
            added.add_argument("plan", metavar="PLAN", help="the file of a plan")
        return added

    planned = command("plan", "Write a plan.")
    planned.add_argument("operation", help="convert, retile, query, raster, stats, check, or module:Class")
    planned.add_argument("source", nargs="+", help="files, directories, lists and indexes")
    planned.add_argument("-o", "--out", required=True, help="the folder of the outputs")
    planned.add_argument("--path", help="the file of the plan; by default OUT/plan.jsonl")
    planned.epilog = ("Other options are those of the operation, such as --tile-size=500 or --box=0,9,0,9; "
                      "the documentation of vxl.jobs.plan lists them.")

    ran = command("run", "Run units of a plan. Exit status 1 if one of them fails.")
    ran.add_argument("units", nargs="*", metavar="UNIT", help="numbers of units, or ranges such as 100-199")
    ran.add_argument("--task", type=int, help="run the units of a task of an array, numbered from 0")
    ran.add_argument("--of", type=int, help="the number of tasks of the array")
    ran.add_argument("--threads", type=int, help="by default one per core")
    ran.add_argument("--force", action="store_true", help="also if the outputs are there")

    all_units = command("run-all", "Run all units in local processes, or on a Dask cluster.")
    all_units.add_argument("--dask", metavar="ADDRESS", help="of the scheduler, or a scheduler file")
    all_units.add_argument("--processes", type=int, help="local processes; by default one per core")
    all_units.add_argument("--retries", type=int, default=2)
    all_units.add_argument("--threads", type=int, default=1, help="that a unit uses; 1 by default")
    all_units.add_argument("-q", "--quiet", action="store_true", help="do not report the progress")

    finished = command("finish", "Verify all receipts and join the results. Exit status 1 if units are "
                                 "missing or files are not sound.")
    finished.add_argument("--verify", action="store_true", help="compute the digests of all outputs again")
    finished.add_argument("--overview", type=float, metavar="FRACTION", help="of the points; 0: no overview")

    script = command("slurm", "Print a script for sbatch.")
    script.add_argument("--tasks", type=int, help="the size of the array; by default at most 1000")
    script.add_argument("--cpus", type=int, default=1, help="of a task")
    for name in ("memory", "time", "partition"):
        script.add_argument(f"--{name}", help="of a task, as for sbatch")
    script.add_argument("--option", action="append", default=[],
                        help="another option of sbatch, such as --option=--account=me")

    command("status", "Count the units that are complete, failed and missing.")
    return parser


def _plan_options(parser: argparse.ArgumentParser, given: list[str]) -> dict[str, Any]:
    options: dict[str, Any] = {}
    rest = iter(given)
    for each in rest:
        if not each.startswith("--"):
            parser.error(f"unexpected argument {each}; put all sources before the options")
        name, equals, value = each[2:].partition("=")
        if not equals:
            value = next(rest, "true")
        options[name.replace("-", "_")] = _value(value)
    if isinstance(options.get("channels"), str):
        options["channels"] = [options["channels"]]
    return options


def _chosen(opened: Plan, arguments: argparse.Namespace) -> Iterator[Unit]:
    if (arguments.task is None) != (arguments.of is None):
        raise ValueError("--task and --of are given together")
    if arguments.task is not None:
        from ._engines import slice_of

        yield from opened.units(*slice_of(len(opened), arguments.task, arguments.of))
    for text in arguments.units:
        first, _, last = text.partition("-")
        if not first.isdigit() or not (last or first).isdigit() or int(last or first) >= len(opened):
            raise ValueError(f"a unit is a number below {len(opened)}, or a range such as 0-9, not {text}")
        yield from opened.units(int(first), int(last or first) + 1)


def _report(report: Report) -> int:
    done = report.num_units - len(report.missing)
    print(f"{done:,} of {report.num_units:,} units are complete; {len(report.errors):,} failed")
    for unit, error in report.errors.items():
        print(f"unit {unit}: {error}", file=sys.stderr)
    pending = [unit for unit in report.missing if unit not in report.errors]
    if pending:
        shown = ", ".join(map(str, pending[:20])) + (", ..." if len(pending) > 20 else "")
        print(f"not run: {shown}", file=sys.stderr)
    for name, value in report.merged.items():
        if name != "unsound":
            print(f"{name}: {value}")
    unsound = report.merged.get("unsound", [])
    for each in unsound:
        print(f"{each['file']}: {each['problems'][0] if each['problems'] else 'not sound'}", file=sys.stderr)
    return 0 if report.is_complete and not unsound else 1


def _run_all(arguments: argparse.Namespace) -> int:
    client = None
    if arguments.dask:
        from distributed import Client

        is_file = os.path.isfile(arguments.dask)
        client = Client(scheduler_file=arguments.dask) if is_file else Client(arguments.dask)
    try:
        summary = run_all(arguments.plan, client, processes=arguments.processes, retries=arguments.retries,
                          threads=arguments.threads, progress=not arguments.quiet)
    finally:
        if client is not None:
            client.close()
    for unit, error in summary.errors.items():
        print(f"unit {unit}: {error}", file=sys.stderr)
    return 0 if summary.is_complete else 1


def main(argv: list[str] | None = None) -> int:
    parser = _parser()
    given = sys.argv[1:] if argv is None else argv
    arguments, others = parser.parse_known_args(given)
    if others and arguments.command != "plan":
        parser.error(f"unrecognized arguments: {' '.join(others)}")
    if arguments.command == "plan":
        options = _plan_options(parser, others)
        made = plan(arguments.source, arguments.operation, arguments.out, path=arguments.path, **options)
        print(f"{made.path}: {len(made):,} units")
        return 0
    if arguments.command == "run":
        status_code = 0
        for unit in _chosen(Plan(arguments.plan), arguments):
            try:
                run(unit, force=arguments.force, threads=arguments.threads)
            except UnitError as error:
                print(error, file=sys.stderr)
                status_code = 1
        return status_code
    if arguments.command == "run-all":
        return _run_all(arguments)
    if arguments.command == "finish":
        part = arguments.overview
        return _report(finish(arguments.plan, verify=arguments.verify,
                              overview=True if part is None else part if part > 0 else False))
    if arguments.command == "status":
        return _report(status(arguments.plan))
    print(slurm(arguments.plan, tasks=arguments.tasks, cpus=arguments.cpus, memory=arguments.memory,
                time=arguments.time, partition=arguments.partition, options=tuple(arguments.option)), end="")
    return 0


def _terminate(number: int, _: object) -> NoReturn:
    sys.exit(128 + number)  # which removes incomplete files


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, _terminate)
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
    except (OSError, ValueError, TypeError, KeyError, RuntimeError, UnitError) as error:
        print(f"vxl.jobs: {error}", file=sys.stderr)
        sys.exit(1)
