"""Rasters of the module, against NumPy."""

import math
import os
import pathlib

import numpy as np
import pytest

import vxl

from conftest import NUM_POINTS

LAYERS = ["count", "min", "max:Intensity", "mean", "mean@class=3,4"]


@pytest.fixture(scope="module")
def expected(arrays):
    """The layers in cells of 2.5, of which 10 columns of points are one."""
    column = np.floor((arrays["X"] - 500_000) / 2.5).astype(int)
    row = 29 - np.floor((arrays["Y"] - 4_100_000) / 2.5).astype(int)
    cell = row * 100 + column
    chosen = np.isin(arrays["ClassId"], (3, 4))

    def total(values, of=slice(None)):
        return np.bincount(cell[of], values[of], minlength=3000)

    least, most = np.full(3000, np.inf), np.full(3000, -np.inf)
    np.minimum.at(least, cell, arrays["Z"])
    np.maximum.at(most, cell, arrays["Intensity"])
    count, ones = np.bincount(cell, minlength=3000), np.ones(NUM_POINTS)
    values = [count, least, most, total(arrays["Z"]) / count,
              total(arrays["Z"], chosen) / total(ones, chosen)]
    return {name: array.reshape(30, 100) for name, array in zip(LAYERS, values)}


def test_layers_have_the_statistics_of_cells(cloud_path, arrays, expected):
    xyz = {name: arrays[name] for name in ("X", "Y", "Z", "Intensity", "ClassId")}
    cloud = vxl.open(cloud_path)
    for source in (cloud, cloud_path, [str(cloud_path)], xyz):
        raster = vxl.raster(source, 2.5, LAYERS)
        assert list(raster) == LAYERS and raster.shape == (30, 100) and raster.resolution == 2.5
        assert raster.extent == (500_000, 500_250, 4_100_000, 4_100_075)
        assert raster.grid.transform == (500_000, 2.5, 0, 4_100_075, 0, -2.5)
        assert raster["count"].dtype == np.int64
        for name, values in raster.items():
            np.testing.assert_allclose(values, expected[name], rtol=1e-13, err_msg=name)
    assert vxl.raster(cloud, 2.5).crs.epsg == 25832
    with pytest.raises(KeyError, match="its layers are count"):
        raster["min:Z"]


def test_boxes_fit_together(cloud_path):
    """Points are on the edges of cells and of boxes; a cell is the same in every raster."""
    cloud = vxl.open(cloud_path)
    whole = vxl.raster(cloud, 0.5, LAYERS)
    assert whole["count"].sum() == NUM_POINTS
    xmin, xmax, ymin, ymax = whole.extent
    columns = [xmin, xmin + 0.5, xmin + 99.5, xmax]
    rows = [ymax, ymax - 40, ymin]
    for name in LAYERS:
        parts = [[vxl.raster(cloud, 0.5, name, box=(left, right, bottom, top), threads=1)[name]
                  for left, right in zip(columns, columns[1:])] for top, bottom in zip(rows, rows[1:])]
        np.testing.assert_array_equal(np.block(parts), whole[name])
    inside = vxl.raster(cloud, 0.5, "count", box=(xmin + 0.1, xmin + 0.6, None, ymin + 0.2))
    assert inside.extent == (xmin, xmin + 1, ymin, ymin + 0.5), "boxes are widened to whole cells"


def test_files_are_complete_or_absent(cloud_path, folder):
    grid = vxl.raster(cloud_path, 2.5, ["count", "mean"], out=pathlib.Path("out.tif"))
    assert (grid.shape, grid.extent[3]) == ((30, 100), 4_100_075)
    before = pathlib.Path("out.tif").read_bytes()
    assert before[:2] == b"II" and b"LAYOUT=IFDS_BEFORE_DATA" in before and b"ETRS89 / UTM zone 32N" in before
    seen = []
    with pytest.raises(vxl.Cancelled):
        vxl.raster(cloud_path, 2.5, out="out.tif", progress=lambda done: seen.append(done))
        vxl.raster(cloud_path, 1, out="out.tif", progress=lambda done: False)
    assert seen and 0 <= min(seen) <= max(seen) <= 1
    vxl.raster(cloud_path, 2.5, ["count", "mean"], out="again.tif", threads=1)
    assert pathlib.Path("again.tif").read_bytes() == before
    assert sorted(os.listdir()) == ["again.tif", "out.tif"]


def test_parts_become_one_file(cloud_path, folder):
    cloud = vxl.open(cloud_path)
    vxl.raster(cloud, 0.5, ["count", "mean"], out="whole.tif")
    middle = 500_100.5
    parts = [vxl.raster(cloud, 0.5, ["mean", "count"], box=box + (None, None))
             for box in ((middle, None), (None, middle))]
    grid = vxl.RasterGrid.union(part.grid for part in parts)
    assert grid == vxl.raster(cloud, 0.5, "count").grid
    with vxl.RasterWriter("parts.tif", grid, ["count", "mean"], crs=cloud.crs) as writer:
        for part in parts:
            writer.write(part)
        assert os.path.exists("whole.tif") and not os.path.exists("parts.tif")
    assert pathlib.Path("parts.tif").read_bytes() == pathlib.Path("whole.tif").read_bytes()
    with pytest.raises(vxl.ArgumentError, match="not inside of the raster"):
        with vxl.RasterWriter("parts.tif", parts[0].grid, ["mean"]) as writer:
            writer.write(parts[1])
    with pytest.raises(ValueError, match="same resolution"):
        vxl.RasterGrid.union([grid, vxl.raster(cloud, 1, "count").grid])
    assert sorted(os.listdir()) == ["parts.tif", "whole.tif"]


def test_mistakes_are_errors(cloud_path, folder):
    cloud = vxl.open(cloud_path)
    cases = [
        (ValueError, "'median' is not a layer of a raster", {"what": "median"}),
        (ValueError, "there is no layer", {"what": []}),
        (vxl.ChannelError, "no channel 'Colour'; its channels are X, Y, Z", {"what": "min:Colour"}),
        (ValueError, "two layers 'min'", {"what": ["min", "min"]}),
        (ValueError, "resolution is above 0, not nan", {"resolution": math.nan}),
        (ValueError, "write it to a file", {"resolution": 0.01}),
        (ValueError, "too fine", {"resolution": 1e-8}),
        (ValueError, "4 or 6 numbers", {"box": (1, 2)}),
        (ValueError, "fraction", {"fraction": 2}),
        (ValueError, "max_bytes", {"max_bytes": -1}),
        (TypeError, "paths", {"source": 3}),
        (FileNotFoundError, "absent.vxl", {"source": "absent.vxl"}),
        (OSError, "absent", {"out": "absent/out.tif"}),
    ]
    for error, message, options in cases:
        with pytest.raises(error, match=message):
            vxl.raster(**{"source": cloud, "resolution": 1.0, **options})
    assert os.listdir() == []
