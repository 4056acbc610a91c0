"""dask DataFrames of clouds."""

import numpy as np
import pytest

import vxl

pytest.importorskip("dask.dataframe", reason="dask is not installed")
import vxl.dask  # noqa: E402
from dask.dataframe.optimize import optimize_dataframe_getitem  # noqa: E402


@pytest.fixture
def tiles(folder):
    """Two tiles; only the second one has a channel Amplitude."""
    x = np.arange(1000) * 0.25
    columns = {"X": x, "Y": x % 7, "Z": x, "ClassId": (x % 5).astype("u1")}
    vxl.write("a.vxl", columns, scale=0.25)
    vxl.write("b.vxl", {**columns, "X": x + 250, "Amplitude": x.astype("f4")}, scale=0.25)
    (folder / "tiles.list").write_text("a.vxl\nb.vxl\n")
    return folder


def computed(frame):
    return frame.compute(scheduler="synchronous")


@pytest.mark.filterwarnings("ignore::vxl.VxlWarning")
@pytest.mark.parametrize("source", ["tiles.list", ["a.vxl", "b.vxl"]])
def test_partitions_of_a_set_are_its_files(tiles, source):
    frame = vxl.dask.read(source)
    assert frame.npartitions == 2
    points = computed(frame)
    expected = vxl.open(source).read().to_pandas()
    assert (points.reset_index(drop=True) == expected).all().all() and list(points) == list(expected)
    assert dict(points.dtypes) == dict(frame.dtypes)
    inside = vxl.dask.read(source, box=(260, 300, None, None))
    assert inside.npartitions == 1 and len(computed(inside)) == 161


@pytest.mark.parametrize("npartitions", [3, 9])
def test_every_point_of_a_file_is_in_one_partition(tiles, npartitions):
    frame = vxl.dask.read("a.vxl", npartitions=npartitions)
    assert frame.npartitions == npartitions
    x = np.sort(computed(frame).X)
    assert np.array_equal(x, np.arange(1000) * 0.25)  # some are on the borders of partitions


@pytest.mark.filterwarnings("ignore::vxl.VxlWarning")
def test_unused_columns_and_partitions_are_not_read(tiles):
    frame = vxl.dask.read("b.vxl", columns=["amplitude", "Z", "ClassId"])
    assert list(frame.columns) == ["Amplitude", "Z", "ClassId"]
    height = frame[["Z"]] + 1
    layers = optimize_dataframe_getitem(height.dask, height.__dask_keys__()).layers.values()
    assert [layer.io_func.columns for layer in layers if hasattr(layer, "io_func")] == [["Z"]]
    pair = vxl.dask.read(["a.vxl", "b.vxl"], columns=["X"], box=(0, 100, None, None))
    (tiles / "b.vxl").unlink()
    assert len(computed(pair)) == 401
