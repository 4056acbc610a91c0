"""Writing arrays, tables, clouds and streams."""

import importlib.util
import os
import pathlib
import subprocess
import sys

import numpy as np
import pytest

import vxl

from conftest import NUM_POINTS
from test_cloud import assert_same

XYZ = {"X": np.arange(3.0), "Y": np.zeros(3), "Z": np.arange(3)}


def write_and_read(data, path="out.vxl", **options):
    vxl.write(path, data, **options)
    return vxl.open(path).read()


def test_all_forms_of_points_give_the_same_file(cloud_path, arrays, folder):
    cloud = vxl.open(cloud_path)
    table = cloud.read()
    options = {"scale": (0.25, 0.25, 0.01), "crs": 25832}
    forms = {
        "cloud": (cloud, {}),
        "table": (table, {"crs": cloud.crs}),
        "structured": (table.to_structured(), options),
        "chunks": (cloud.chunks(70_000), {"crs": cloud.crs}),
        "arrays": ([{name: values[i::2] for name, values in arrays.items()} for i in range(2)], options),
        "threads": (arrays, {**options, "threads": 1}),
    }
    if importlib.util.find_spec("pandas"):
        forms["frame"] = (table.to_pandas(), options)
    files = {}
    for name, (data, given) in forms.items():
        assert vxl.write(f"{name}.vxl", data, **given) == NUM_POINTS
        files[name] = pathlib.Path(f"{name}.vxl").read_bytes()
    np.testing.assert_array_equal(vxl.open("arrays.vxl").read()["Id"][1:3], arrays["Id"][2:6:2])
    del files["arrays"], files["cloud"]  # other points; metadata of the writer of the source
    assert set(files.values()) == {cloud_path.read_bytes()}
    assert_same(vxl.open("cloud.vxl").read(), arrays)
    assert sorted(os.listdir()) == sorted(f"{name}.vxl" for name in forms)


def test_options_choose_points_and_formats(cloud_path, arrays, folder):
    cloud = vxl.open(cloud_path)
    assert vxl.write("part.vxl", cloud, box=(500_000, 500_000.25, None, None), channels=["class"]) == 600
    assert list(vxl.open("part.vxl").channels) == ["X", "Y", "Z", "ClassId"]
    assert vxl.write("null", cloud, fraction=0.5) == NUM_POINTS // 2
    with pytest.warns(vxl.VxlWarning, match="Amplitude"):
        vxl.write("part.laz", cloud)
    laz = vxl.open("part.laz")
    assert laz.channels["X"].scale == 0.25 and laz.crs.epsg == 25832
    np.testing.assert_array_equal(laz.read()["Classification"], arrays["ClassId"])
    rounded = write_and_read({**XYZ, "X": [0.1, 0.26, 0.4]}, quantize=0.25)
    np.testing.assert_array_equal(rounded["X"], [0, 0.25, 0.5])
    las = write_and_read({**XYZ, "X": [0.1, 0.26, 0.4]}, "out.las", scale=0.25, offset=(0, 5, 0))
    np.testing.assert_array_equal(las["X"], [0, 0.25, 0.5])
    by_time = write_and_read({**XYZ, "GpsTime": [3.0, 1, 2]}, order="time")
    np.testing.assert_array_equal(by_time["GPSTime"], [1, 2, 3])
    assert vxl.write("empty.vxl", iter([]), layout={"X": "f8", "Y": "f8", "Z": "f8", "class": "u1"}) == 0
    assert vxl.open("empty.vxl").channels["ClassId"].dtype == np.uint8


@pytest.mark.parametrize("given, stored", [
    (np.array([1, 2, 255]), np.uint8),  # int64 becomes the type of the channel in LAS
    (np.array([True, False, True]), np.uint8),
    (np.array([1, 2, 300], np.uint16), np.uint16),
    (np.array([1, 2, 3], ">u2"), np.uint16),
    (np.array([0.5, 2, 3], np.float32), np.float32),
    (np.arange(6, dtype=np.uint8)[::2], np.uint8),
])
def test_samples_keep_their_values(folder, given, stored):
    column = write_and_read({**XYZ, "Classification": given})["ClassId"]
    assert column.dtype == stored
    np.testing.assert_array_equal(column, given)


@pytest.mark.parametrize("dtype", ["i1", "u4", "<f4", ">f8", "i8", "f2"])
def test_coordinates_of_any_number_type(folder, dtype):
    table = write_and_read({name: np.array([1, 2, 100], dtype) for name in "xyz"})
    np.testing.assert_array_equal(table["X"], [1.0, 2, 100])


@pytest.mark.parametrize("data, options, error, message", [
    ({"X": [1.0], "Y": [1.0]}, {}, vxl.ChannelError, "no channel 'Z'; the channels are X, Y"),
    ({**XYZ, "A": np.zeros(3, complex)}, {}, TypeError, "complex128; a channel is one of uint8"),
    ({**XYZ, "A": ["a", "b", "c"]}, {}, TypeError, "one of uint8"),
    ({**XYZ, "X": np.zeros(3, bool)}, {}, TypeError, "coordinates are integers or floats"),
    ([{**XYZ, "A": np.zeros(4)}], {}, ValueError, "'A' has 4 samples and 'X' has 3"),
    ({**XYZ, "A": np.zeros((3, 1))}, {}, ValueError, "2 dimensions"),
    ({**XYZ, "class": [1, 2, 3], "ClassId": [1, 2, 3]}, {}, ValueError, "two channels 'ClassId'"),
    ({**XYZ, "class": [1, 2, 300]}, {}, ValueError, "does not hold all values from 1 to 300"),
    ({**XYZ, "class": np.array([1, 2, 300], "u2")}, {"path": "out.las"}, ValueError, "1 to 300"),
    ({**XYZ, "class": np.array([1, 2, 2.5])}, {"path": "out.las"}, ValueError, "1.0 to 2.5"),
    ({**XYZ, 5: [1, 2, 3]}, {}, TypeError, "named by a str"),
    ([XYZ, {**XYZ, "A": np.zeros(3)}], {}, ValueError, "'A' is not in the layout"),
    ([{**XYZ, "A": np.zeros(3)}, XYZ], {}, vxl.ChannelError, "no channel 'A'"),
    ([XYZ, 5], {}, TypeError, "an item of the iterator"),
    ([], {}, ValueError, "empty; give a layout"),
    (5, {}, TypeError, "the points are a Cloud"),
    ("cloud.vxl", {}, TypeError, "the points are a Cloud"),
    (XYZ, {"path": "out.vlx"}, ValueError, "unsupported output format 'out.vlx'"),
    (XYZ, {"path": "absent/out.vxl"}, FileNotFoundError, "absent"),
    (iter([XYZ]), {"path": "absent/out.vxl"}, FileNotFoundError, "absent"),
    (XYZ, {"format": "lazz"}, ValueError, "one of vxl, las, laz"),
    (XYZ, {"order": "random"}, ValueError, "one of input, time, hilbert"),
    (XYZ, {"order": "time"}, vxl.Error, "GPSTime"),
    (XYZ, {"scale": (1, 2)}, ValueError, "one number, or three"),
    (XYZ, {"crs": "nowhere"}, ValueError, "'nowhere' is not understood"),
    (XYZ, {"channels": ["A"]}, vxl.ChannelError, "'A'; its channels are X, Y, Z"),
    (XYZ, {"layout": {"X": "f8", "Y": "f8"}}, vxl.ChannelError, "no channel 'Z'"),
    (XYZ, {"progress": lambda done: False}, vxl.Cancelled, "cancel"),
    (XYZ, {"progress": lambda done: 1 / 0}, ZeroDivisionError, ""),
])
def test_mistakes_leave_no_output(folder, data, options, error, message):
    with pytest.raises(error, match=message):
        vxl.write(**{"path": "out.vxl", "data": data, **options})
    assert os.listdir() == []


def test_an_output_is_replaced_only_by_a_complete_one(cloud_path, folder):
    vxl.write("out.vxl", XYZ)
    with pytest.raises(ZeroDivisionError):
        vxl.write("out.vxl", ({**XYZ, "X": XYZ["X"] / i} for i in (1, 1 // 0)))
    with pytest.raises(vxl.Error, match="is the input file"):
        vxl.write("out.vxl", vxl.open("out.vxl"))
    assert vxl.open("out.vxl").num_points == 3
    assert os.listdir() == ["out.vxl"]


def test_ctrl_c_leaves_no_output(cloud_path, folder):
    script = ("import os, signal, sys, threading, vxl\n"
              "threading.Timer(0.5, os.kill, (os.getpid(), signal.SIGINT)).start()\n"
              "vxl.write('out.vxl', vxl.open([sys.argv[1]] * 100), quantize=0.5)\n")
    done = subprocess.run([sys.executable, "-c", script, cloud_path], capture_output=True, text=True)
    assert "KeyboardInterrupt" in done.stderr and done.returncode != 0
    assert os.listdir() == []


def test_a_stream_needs_little_memory(folder):
    script = ("import resource, numpy as np, vxl\n"
              "def chunks(count):\n"
              "    for i in range(count):\n"
              "        x = np.arange(100_000) * 0.25\n"
              "        yield {'X': x, 'Y': x + i, 'Z': x, 'A': (x * 4).astype(np.int64)}\n"
              "def write(count):\n"
              "    vxl.write('out.vxl', chunks(count))\n"
              "    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss\n"
              "few = write(5)\n"
              "print(write(25) - few)\n")
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True)
    assert int(done.stdout) < 40_000  # kB; the points have 80 MB
