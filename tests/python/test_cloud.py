"""Opening, describing and reading clouds."""

import ctypes
import functools
import http.server
import multiprocessing
import os
import pickle
import signal
import subprocess
import sys
import threading
import time
import weakref
from concurrent.futures import ThreadPoolExecutor

import numpy as np
import pytest

import vxl

from conftest import NUM_POINTS


def assert_same(table, expected):
    assert list(table) == list(expected)
    for name, values in expected.items():
        assert table[name].dtype == values.dtype, name
        np.testing.assert_array_equal(table[name], values, name)


def concatenate(tables):
    tables = list(tables)
    return {name: np.concatenate([table[name] for table in tables]) for name in tables[0]}


def test_describes_files_without_reading_points(cloud_path, arrays, survey):
    cloud = vxl.open(cloud_path)
    assert cloud.num_points == NUM_POINTS
    assert cloud.bounds == (500_000, 500_249.75, 4_100_000, 4_100_074.75, 0, arrays["Z"].max())
    assert cloud.crs.epsg == 25832 and cloud.crs.wkt.startswith("PROJCS")
    assert {name: channel.dtype for name, channel in cloud.channels.items()} == {
        name: values.dtype for name, values in arrays.items()}
    assert cloud.channels["classification"] == cloud.channels["ClassId"] == (np.uint8, 0)
    assert cloud.channels["Z"].scale == 0.01
    assert vxl.open(survey).metadata["PreCompressionPointCount"] == "2400"
    assert vxl.open(survey).class_names[2] == "Ground"
    assert vxl.CRS('COMPD_CS["a",PROJCS["[",AUTHORITY["EPSG","1"]],AUTHORITY["EPSG","7415"]]').epsg == 7415
    assert vxl.CRS('PROJCRS["x",BASEGEOGCRS["y",ID["EPSG",4326]]]').epsg is None


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


def test_reads_from_a_server(survey):
    handler = functools.partial(QuietHandler, directory=survey.parent)
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        url = f"http://127.0.0.1:{server.server_port}/survey.vxl"
        assert_same(pickle.loads(pickle.dumps(vxl.open(url))).read(), vxl.open(survey).read())
        (survey.parent / "far.list").write_text(url + "\n")
        assert vxl.open("far.list", allow_remote=True).num_points == 2400
        with pytest.raises(vxl.Error, match="remote file that another file names"):
            vxl.open("far.list")
        with pytest.raises(vxl.Error, match="404"):
            vxl.open(url.replace("survey", "none"))
        server.shutdown()


def test_reads_points_of_a_query(cloud_path, arrays):
    cloud = vxl.open(cloud_path)
    assert_same(cloud.read(), arrays)
    assert_same(cloud.read(channels=[]), {name: arrays[name] for name in "XYZ"})
    some = cloud.read(channels=["classification", "id"])
    assert_same(some, {name: arrays[name] for name in ("X", "Y", "Z", "ClassId", "Id")})
    assert some.scales == {"X": 0.25, "Y": 0.25, "Z": 0.01, "ClassId": 0, "Id": 0}
    inside = (arrays["X"] >= 500_100) & (arrays["Y"] <= 4_100_020) & (arrays["Z"] <= 50)
    box = (500_100, None, None, 4_100_020, None, 50)
    assert_same(cloud.read(box=box), {name: values[inside] for name, values in arrays.items()})
    assert cloud.read(box=(0, 1, 0, 1)).num_points == 0
    assert cloud.read(fraction=0.25).num_points == NUM_POINTS // 4
    # Many more points than there is memory for at first.
    assert_same(cloud.read(box=(500_000, None, None, None)), arrays)


def test_chunks_are_the_points_in_order(cloud_path, arrays):
    cloud = vxl.open(cloud_path)
    chunks = list(cloud.chunks(70_000))
    assert [chunk.num_points for chunk in chunks] == [70_000] * 4 + [20_000]
    assert_same(concatenate(chunks), arrays)
    # One that is abandoned stops decoding.
    begun = threading.active_count()
    for chunk in cloud.chunks(1000):
        assert threading.active_count() == begun + 1
        break
    del chunk
    assert threading.active_count() == begun


def test_several_files_are_one_cloud(cloud_path, survey):
    with pytest.warns(vxl.VxlWarning, match="coordinate system"):
        cloud = vxl.open([cloud_path, str(survey)])
    assert cloud.num_points == NUM_POINTS + 2400
    assert cloud.files == [str(cloud_path), str(survey)]
    assert vxl.open(survey.parent).num_points == 2400
    (survey.parent / "text.txt").write_text("title\n1 2 3\n4 5 6\n")
    with pytest.raises(vxl.Error, match="requires the argument columns: 'text.txt'"):
        vxl.open("text.txt").read()
    text = vxl.open("text.txt", columns="xyz", skip_lines=1)
    assert text.num_points is None
    np.testing.assert_array_equal(text.read()["y"], [2, 5])


def test_statistics_are_those_of_the_array(cloud_path, arrays, folder):
    cloud = vxl.open(cloud_path)
    for name in ("Z", "ScanAngle", "Amplitude"):
        stats, values = cloud.stats(name), arrays[name].astype(np.float64)
        assert stats.count == stats.num_seen == stats.num_points == NUM_POINTS
        np.testing.assert_allclose(stats[1:5], (values.min(), values.max(), values.mean(), values.std()))
    assert cloud.stats("Z", box=(500_000, 500_000, None, None)).count == 300
    assert np.isnan(cloud.stats("Z", box=(0, 1, 0, 1)).mean)
    x = np.arange(3_000_000) * 1.0
    vxl.write(folder / "large.vxl", {"X": x, "Y": x, "Z": np.where(x % 2 == 0, np.nan, x)})
    cloud = vxl.open("large.vxl")
    assert cloud.stats("Z").count == cloud.num_points // 2
    sample = cloud.stats("X", exact=False)
    assert 900_000 < sample.num_seen < 1_100_000 and sample.num_points == 3_000_000
    assert abs(sample.mean - 1_500_000) < 1000


def count_points(cloud):
    return cloud.read(channels=["Id"], threads=2).num_points


def test_threads_and_processes_share_clouds(cloud_path, arrays, monkeypatch):
    monkeypatch.chdir(cloud_path.parent)
    cloud = vxl.open("cloud.vxl", verify=False)
    cloud.read()  # starts threads, which a forked process does not have
    with multiprocessing.get_context("fork").Pool(2) as pool:
        assert pool.map_async(count_points, [cloud] * 4).get(60) == [NUM_POINTS] * 4
    monkeypatch.chdir("/")
    cloud = pickle.loads(pickle.dumps(cloud))
    assert cloud.paths == [str(cloud_path)]
    with ThreadPoolExecutor(4) as pool:
        boxes = [(500_000 + i, 500_000.75 + i, None, None) for i in range(8)]
        tables = list(pool.map(lambda box: cloud.read(box=box, threads=2), boxes))
    assert [table.num_points for table in tables] == [300 * 4] * 8
    for i, table in enumerate(tables):
        assert table["X"].min() == 500_000 + i
    vxl.set_threads(1)
    assert_same(cloud.read(channels=["Id"]), {name: arrays[name] for name in ("X", "Y", "Z", "Id")})
    vxl.set_threads(None)
    assert pickle.loads(pickle.dumps(vxl.FileNotFound("a", 2))).args == ("a", 2)


@pytest.mark.parametrize("call, error, message", [
    (lambda cloud: cloud.read(channels=["Colour"]), vxl.ChannelError, "'Colour'; its channels are X, Y,"),
    (lambda cloud: cloud.read(channels="Z"), TypeError, "list of names: .'Z'."),
    (lambda cloud: cloud.read()["Colour"], KeyError, "the table has no channel"),
    (lambda cloud: cloud.stats("Colour"), KeyError, "its channels are"),
    (lambda cloud: cloud.read(box=(1, 0, 0, 1)), ValueError, "box is empty in x: 1 to 0"),
    (lambda cloud: cloud.read(box=(0, 1, 0, float("nan"))), ValueError, "box is empty in y: 0 to nan"),
    (lambda cloud: cloud.read(box=(1, 2, 3)), ValueError, "4 or 6 numbers"),
    (lambda cloud: cloud.read(box=5), TypeError, "xmin, xmax"),
    (lambda cloud: cloud.read(fraction=0), ValueError, "above 0 and at most 1"),
    (lambda cloud: cloud.read(threads=-1), ValueError, "0 .one per core. to 1024"),
    (lambda cloud: cloud.chunks(0), ValueError, "at least one point"),
    (lambda cloud: cloud.read(progress=5), TypeError, "function"),
    (lambda cloud: cloud.read(progress=lambda done: False), vxl.Cancelled, "cancelled"),
    (lambda cloud: cloud.read(progress=lambda done: 1 / 0), ZeroDivisionError, ""),
    (lambda cloud: list(cloud.chunks(10, progress=lambda done: 1 / 0)), ZeroDivisionError, ""),
    (lambda cloud: vxl.open("absent.vxl"), FileNotFoundError, "absent.vxl"),
    (lambda cloud: vxl.open("absent.vxl"), vxl.Error, "absent.vxl"),
    (lambda cloud: vxl.open([]), ValueError, "no file to open"),
    (lambda cloud: [cloud.close(), cloud.read()], ValueError, "the cloud is closed"),
])
def test_mistakes_are_errors(cloud_path, call, error, message):
    with pytest.raises(error, match=message):
        call(vxl.open(cloud_path))


def test_damage_is_an_error_with_its_code(cloud_path, folder):
    damaged = bytearray(cloud_path.read_bytes())
    damaged[len(damaged) // 2] ^= 1
    (folder / "damaged.vxl").write_bytes(damaged)
    cloud = vxl.open("damaged.vxl")
    with pytest.raises(vxl.Error, match="damaged.vxl") as caught:
        cloud.read()
    assert caught.value.code == 40231
    with pytest.raises(vxl.Error):
        list(cloud.chunks(1000))


def test_ctrl_c_stops_reading(cloud_path):
    def interrupt():
        time.sleep(0.2)
        os.kill(os.getpid(), signal.SIGINT)

    # Nothing is in the box, so that the call returns to Python when all points are decoded: after seconds.
    cloud = vxl.open([str(cloud_path)] * 200)
    thread = threading.Thread(target=interrupt)
    begin = time.process_time()
    thread.start()
    with pytest.raises(KeyboardInterrupt):
        cloud.read(box=(None, None, None, None, 0.001, 0.009))
    assert time.process_time() - begin < 1.5
    thread.join()


class ArrowSchema(ctypes.Structure):
    pass


class ArrowArray(ctypes.Structure):
    pass


class ArrowStream(ctypes.Structure):
    pass


@pytest.mark.parametrize("reading", [
    "chunks = cloud.chunks(1000); next(chunks)",
    "threading.Thread(target=cloud.read, daemon=True).start(); time.sleep(0.2)",
])
def test_a_process_ends_while_it_reads(cloud_path, reading):
    script = f"import sys, threading, time, vxl\ncloud = vxl.open([sys.argv[1]] * 200)\n{reading}"
    done = subprocess.run([sys.executable, "-c", script, cloud_path], stderr=subprocess.PIPE, timeout=60)
    assert (done.returncode, done.stderr) == (0, b"")


def function(*arguments):
    return ctypes.CFUNCTYPE(ctypes.c_int, *map(ctypes.POINTER, arguments))


def release(kind, struct):
    ctypes.CFUNCTYPE(None, ctypes.POINTER(kind))(struct.release)(struct)


TAIL = [("release", ctypes.c_void_p), ("private_data", ctypes.c_void_p)]
ArrowSchema._fields_ = [
    ("format", ctypes.c_char_p), ("name", ctypes.c_char_p), ("metadata", ctypes.c_char_p),
    ("flags", ctypes.c_int64), ("n_children", ctypes.c_int64),
    ("children", ctypes.POINTER(ctypes.POINTER(ArrowSchema))), ("dictionary", ctypes.c_void_p), *TAIL]
ArrowArray._fields_ = [
    *((name, ctypes.c_int64) for name in ("length", "null_count", "offset", "n_buffers", "n_children")),
    ("buffers", ctypes.POINTER(ctypes.c_void_p)), ("children", ctypes.POINTER(ctypes.POINTER(ArrowArray))),
    ("dictionary", ctypes.c_void_p), *TAIL]
ArrowStream._fields_ = [
    ("get_schema", function(ArrowStream, ArrowSchema)), ("get_next", function(ArrowStream, ArrowArray)),
    ("get_last_error", ctypes.c_void_p), *TAIL]


def test_arrow_shares_the_arrays(cloud_path, arrays):
    table = vxl.open(cloud_path).read()
    capsule = table.__arrow_c_stream__()
    get_pointer = ctypes.pythonapi.PyCapsule_GetPointer
    get_pointer.restype, get_pointer.argtypes = ctypes.c_void_p, [ctypes.py_object, ctypes.c_char_p]
    stream = ArrowStream.from_address(get_pointer(capsule, b"arrow_array_stream"))
    schema, batch, end = ArrowSchema(), ArrowArray(), ArrowArray()
    assert stream.get_schema(stream, schema) == 0
    assert stream.get_next(stream, batch) == stream.get_next(stream, end) == 0
    assert schema.format == b"+s" and batch.length == NUM_POINTS and not end.release
    fields = {schema.children[i].contents.name.decode(): i for i in range(schema.n_children)}
    assert list(fields) == list(arrays)
    assert b"".join(schema.children[i].contents.format for i in fields.values()) == b"gggSCslf"
    columns = [batch.children[i].contents for i in fields.values()]
    assert [column.buffers[1] for column in columns] == [array.ctypes.data for array in table.values()]
    # The arrays live until the consumer releases the batch.
    alive = weakref.ref(table["Z"])
    del table, capsule
    release(ArrowSchema, schema)
    assert alive() is not None
    release(ArrowArray, batch)
    assert alive() is None and not batch.release
