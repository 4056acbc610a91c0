"""Plans of units, and the engines that run them."""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys

import numpy as np
import pytest

import vxl
from vxl import jobs

pytestmark = pytest.mark.filterwarnings("ignore::vxl.VxlWarning")
SIDE = 20.0  # of the area, with a point every 0.25


class KilledOnce(jobs.Convert):
    """Its process dies while it writes tile 1, once."""

    def run(self, unit, path, threads):
        marker = pathlib.Path(unit.job.source[0], "killed")
        if unit.id == 1 and not marker.exists():
            marker.touch()
            pathlib.Path(path).write_bytes(b"half")
            os.kill(os.getpid(), signal.SIGKILL)
        return super().run(unit, path, threads)


class FailsTwice(jobs.Convert):
    """Tile 2 fails twice."""

    def run(self, unit, path, threads):
        outcome = super().run(unit, path, threads)
        marker = pathlib.Path(unit.job.source[0], "tries")
        tries = len(marker.read_text()) if marker.exists() else 0
        if unit.id == 2 and tries < 2:
            marker.write_text("x" * (tries + 1))
            raise OSError(f"failure {tries + 1}")
        return outcome


@pytest.fixture
def tiles(folder):
    """A folder of five tiles, columns of the area that share their borders."""
    (folder / "set").mkdir()
    x, y = (side.ravel() for side in np.meshgrid(np.arange(0, SIDE, 0.25), np.arange(0, SIDE, 0.25)))
    for i in range(5):
        own = (x // 4).astype(int) == i
        z = x[own] + y[own] / 8
        columns = {"X": x[own] - 10, "Y": y[own], "Z": z, "ClassId": (z % 3).astype("u1")}
        name = f"set/{i}.{'laz' if i == 3 else 'vxl'}"
        vxl.write(name, columns, scale=0.03125, crs="EPSG:25832")
    return folder / "set"


@pytest.fixture
def workers(monkeypatch):
    """Processes that import the operations of this module."""
    here = str(pathlib.Path(__file__).parent)
    monkeypatch.syspath_prepend(here)
    monkeypatch.setenv("PYTHONPATH", os.pathsep.join([here, *sys.path]))


def contents(folder, suffixes=(".vxl", ".laz")):
    """The names and bytes of the outputs; no other file is there than receipts, and no temporary one."""
    found = {}
    for path in pathlib.Path(folder).rglob("*"):
        assert not path.name.startswith("."), path
        if path.suffix in suffixes:
            found[path.name] = path.read_bytes()
    return found


def test_plans_are_reproducible_and_units_are_found_by_number(tiles):
    made = [jobs.plan(tiles, "retile", "out", tile_size=1, path=f"plan{i}") for i in range(2)]
    assert pathlib.Path("plan0").read_bytes() == pathlib.Path("plan1").read_bytes()
    units = list(made[0])
    # Bounds are widened by a step: a file that ends at a border is also read for the next tile.
    assert [unit.id for unit in units] == list(range(len(made[0]))) and len(units) >= 400
    assert all(made[0][unit.id] == unit for unit in units)
    with pytest.raises(IndexError):
        made[0][len(units)]
    with open("plan0", "r+b") as file:
        file.truncate(os.path.getsize("plan0") - 50)
    with pytest.raises(ValueError, match="damaged"):
        list(jobs.Plan("plan0"))


@pytest.mark.parametrize("operation, options, message", [
    ("convert", {"tile_size": 1}, "no option 'tile_size'"),
    ("convert", {"format": "doc"}, "format is one of"),
    ("retile", {}, "needs the option 'tile_size'"),
    ("retile", {"tile_size": 1e-9}, "too small|too many"),
    ("melt", {}, "operation is one of"),
    ("retile", {"tile_size": 1, "box": (50, 60, None, None)}, "nothing to do"),
])
def test_wrong_plans_are_refused(tiles, operation, options, message):
    with pytest.raises((TypeError, ValueError), match=message):
        jobs.plan(tiles, operation, "out", **options)
    assert not os.path.exists("out/plan.jsonl")


def test_outputs_cannot_replace_inputs(tiles):
    with pytest.raises(ValueError, match="choose another folder"):
        jobs.plan(tiles, "convert", tiles)
    shutil.copy(tiles / "3.laz", tiles / "2.laz")
    with pytest.raises(ValueError, match="2.vxl: another file .* 2.las"):
        jobs.plan(tiles, "convert", "out", format="las")


@pytest.mark.parametrize("size, buffer, fmt", [(4, 0, "vxl"), (3, 0.5, "laz")])
def test_each_point_is_in_one_tile_of_a_grid(tiles, size, buffer, fmt):
    # 4: many points are on the borders of the tiles.
    subprocess.run([jobs._operations.program("vxindex"), "-q", "-o", "set.index", tiles], check=True)
    plan = jobs.plan("set.index", "retile", "out", tile_size=size, buffer=buffer, format=fmt)
    assert jobs.run_all(plan, processes=1, progress=False).is_complete
    total = 0
    whole = vxl.open("set.index").read()
    for unit in plan:
        west, east, south, north = unit.box
        x, y = whole["X"], whole["Y"]
        own = int(((x >= west) & (x < east) & (y >= south) & (y < north)).sum())
        near = int(((x >= west - buffer) & (x < east + buffer) & (y >= south - buffer)
                    & (y < north + buffer)).sum())
        assert os.path.exists(unit.path) == (own > 0)
        if own:
            points = vxl.open(unit.path).read()
            assert points.num_points == near
            assert "Buffer" not in points or int((points["Buffer"] == 0).sum()) == own
        total += own
    report = jobs.finish(plan)
    assert report.merged["points"] == total == whole.num_points
    if not buffer:
        again = vxl.open(report.merged["index"]).read()
        order, expected = (np.lexsort((each["Y"], each["X"])) for each in (again, whole))
        for name in ("X", "Y", "Z", "ClassId"):
            assert np.array_equal(again[name][order], whole[name][expected])
        assert vxl.open(report.merged["index"]).crs.epsg == 25832


def test_a_raster_of_parts_is_that_of_the_whole(tiles):
    what = ["count", "mean", "max:ClassId"]
    plan = jobs.plan(tiles, "raster", "out", resolution=0.5, what=what, cells=7)
    assert jobs.run_all(plan, processes=1, progress=False).is_complete
    whole = vxl.raster(tiles, 0.5, what)
    left, top = whole.extent[0], whole.extent[3]
    joined = {name: np.full(whole.shape, 0 if name == "count" else np.nan) for name in what}
    total = 0
    for unit in plan:
        for name, part in zip(what, np.load(unit.path)):
            total += part.sum() if name == "count" else 0
            row, column = round((top - unit.box[3]) / 0.5), round((unit.box[0] - left) / 0.5)
            rows = slice(max(row, 0), min(row + 7, whole.shape[0]))
            columns = slice(max(column, 0), min(column + 7, whole.shape[1]))
            joined[name][rows, columns] = part[rows.start - row:rows.stop - row,
                                               columns.start - column:columns.stop - column]
    assert total == vxl.open(tiles).num_points
    for name in what:
        assert np.array_equal(joined[name], whole[name], equal_nan=True)
    assert os.path.getsize(jobs.finish(plan).merged["raster"]) > 0


def test_statistics_of_files_are_joined_to_those_of_the_set(tiles):
    plan = jobs.plan(tiles, "stats", "out")
    assert jobs.run_all(plan, processes=1, progress=False).is_complete
    with open(jobs.finish(plan).merged["statistics"]) as file:
        found = json.load(file)
    z = vxl.open(tiles).read()["Z"]
    stats = found["channels"]["Z"]
    assert (found["points"], stats["count"], stats["min"], stats["max"]) == (len(z), len(z), z.min(), z.max())
    assert np.allclose([stats["mean"], stats["std"]], [z.mean(), z.std()], rtol=1e-12)


def test_valid_outputs_are_skipped_and_others_made_again(tiles):
    plan = jobs.plan(tiles, "convert", "out", format="vxl", box=(-7, 7, None, None))
    unit = plan[1]
    first = jobs.run(unit)
    assert not first.is_skipped and jobs.run(unit).is_skipped
    data = pathlib.Path(unit.path).read_bytes()
    os.utime(unit.path)  # copied
    assert jobs.run(unit).is_skipped
    times = os.stat(unit.path)
    pathlib.Path(unit.path).write_bytes(data[:-1] + b"?")
    os.utime(unit.path, ns=(times.st_atime_ns, first.mtime))
    assert jobs.run(unit).is_skipped  # the same size and time
    assert not jobs.run(unit, verify=True).is_skipped
    assert pathlib.Path(unit.path).read_bytes() == data
    other = jobs.plan(tiles, "convert", "out", format="vxl", fraction=0.5)
    assert not jobs.run(other[1]).is_skipped
    os.utime(other[2].paths[0])
    with pytest.raises(jobs.UnitError, match="unit 2 .*has changed since"):
        jobs.run(other[2])


@pytest.mark.parametrize("engine", ["processes", "dask"])
def test_engines_survive_faults(tiles, workers, engine):
    serial = jobs.plan(tiles, "convert", "serial", format="laz")
    for unit in serial:
        jobs.run(unit)
    expected = contents("serial")
    damaged = tiles / "4.vxl"
    good = damaged.read_bytes()
    damaged.write_bytes(good[:-300])

    if engine == "dask":
        distributed = pytest.importorskip("distributed", reason="distributed is not installed")
        cluster = distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None,
                                           silence_logs=50)
        client = distributed.Client(cluster)
    else:
        cluster = client = None
    try:
        for operation in ("KilledOnce", "FailsTwice"):
            out = f"out-{operation}"
            plan = jobs.plan(tiles, f"test_jobs:{operation}", out, format="laz")
            summary = jobs.run_all(plan, client, processes=2, progress=False)
            assert list(summary.errors) == [4] and summary.num_done == 4
            report = jobs.finish(plan)
            assert report.missing == [4] and "4.vxl" in report.errors[4] and not report.merged
            found = contents(out)
            assert found == {name: data for name, data in expected.items() if name != "4.laz"}
            assert (tiles / "killed").exists()
        damaged.write_bytes(good)
        plan = jobs.plan(tiles, "test_jobs:FailsTwice", out, format="laz")
        summary = jobs.run_all(plan, client, processes=2, progress=False)
        assert (summary.num_skipped, summary.num_done, summary.errors) == (4, 1, {})
    finally:
        if client is not None:
            client.close()
            cluster.close()
    assert contents(out) == expected
    assert jobs.finish(plan).merged["files"] == 5


def command(*arguments, **options):
    done = subprocess.run([sys.executable, "-W", "ignore", "-m", "vxl.jobs", *map(str, arguments)], text=True,
                          env={**os.environ, "PYTHONPATH": os.pathsep.join(sys.path)}, capture_output=True,
                          check=False, **options)
    return done.returncode, done.stdout, done.stderr


def test_the_command_line_runs_arrays_and_checks(tiles):
    damaged = tiles / "2.vxl"
    data = bytearray(damaged.read_bytes())
    data[len(data) // 2] ^= 255
    damaged.write_bytes(data)
    assert command("plan", "check", tiles, "--out=out")[1] == f"{tiles.parent}/out/plan.jsonl: 5 units\n"
    status, out, _ = command("slurm", "out/plan.jsonl", "--tasks=2", "--cpus=1", "--time=1:00:00")
    assert status == 0 and "#SBATCH --array=0-1" in out and "#SBATCH --time=1:00:00" in out
    pathlib.Path("job.sh").write_text(out)
    status, _, errors = command("finish", "out/plan.jsonl")
    assert status == 1 and "not run: 0, 1, 2, 3, 4" in errors
    for task in range(2):
        subprocess.run(["bash", "job.sh"], env={**os.environ, "SLURM_ARRAY_TASK_ID": str(task)}, check=True)
    status, out, errors = command("finish", "out/plan.jsonl")
    assert status == 1 and "5 of 5 units are complete" in out
    assert errors.startswith(str(damaged)) and len(errors.splitlines()) == 1
