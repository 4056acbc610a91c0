"""Pictures of vxview against an independent one of all points, made with NumPy."""

import os
import pathlib
import struct
import subprocess
import zlib

import numpy as np
import pytest

import vxl
import vxl.jobs

ROOT = pathlib.Path(__file__).resolve().parents[2]
REAL_FILES = sorted(pathlib.Path(os.environ.get("VX_SHARED", ROOT.parent / "shared")).glob("data/la[sz]/[aMT]*.la[sz]"))
BACKGROUND = (1, 2, 3)  # no shade of grey


def load_png(path: pathlib.Path) -> np.ndarray:
    """Rows, columns and RGB of an 8-bit file whose rows have no filter."""
    data, at, packed = path.read_bytes(), 8, b""
    while at < len(data):
        size, = struct.unpack_from(">I", data, at)
        kind, content = data[at + 4:at + 8], data[at + 8:at + 8 + size]
        assert zlib.crc32(kind + content) == struct.unpack_from(">I", data, at + 8 + size)[0]
        if kind == b"IHDR":
            width, height, *header = struct.unpack(">IIBBBBB", content)
            assert header == [8, 2, 0, 0, 0]
        packed += content if kind == b"IDAT" else b""
        at += 12 + size
    rows = np.frombuffer(zlib.decompress(packed), np.uint8).reshape(height, 1 + width * 3)
    assert (rows[:, 0] == 0).all()
    return rows[:, 1:].reshape(height, width, 3)


def paint(points, size: int) -> np.ndarray:
    """The grey level of the highest point of each cell, the first of several; -1 where there is none."""
    x, y, z, values = points["X"], points["Y"], points["Z"], points["Intensity"]
    cell = max(np.ptp(x), np.ptp(y)) / size
    columns, rows = (int(np.ceil(np.ptp(axis) / cell - 1e-3)) for axis in (x, y))
    column = np.minimum((x - x.min()) / cell, columns - 1).astype(int)
    row = np.minimum((y.max() - y) / cell, rows - 1).astype(int)
    index = row * columns + column
    order = np.lexsort((np.arange(len(z)), -z, index))
    front = order[np.unique(index[order], return_index=True)[1]]
    shown = values[front].astype(float)
    ranked = np.sort(shown[:: len(shown) // 65536 + 1])
    low, high = (ranked[int(share * (len(ranked) - 1) + 0.5)] for share in (0.02, 0.98))
    levels = np.full(rows * columns, -1)
    levels[index[front]] = np.clip((shown - low) / (high - low) * 255 + 0.5, 0, 255).astype(int)
    return levels.reshape(rows, columns)


@pytest.mark.parametrize("real", [None, *REAL_FILES], ids=lambda path: path.name if path else "cloud")
def test_cells_show_the_highest_of_all_points(cloud_path, folder, real):
    path, size = real or cloud_path, 150
    points = vxl.open(path).read(channels=["X", "Y", "Z", "Intensity"])
    expected = paint(points, size)
    picture = folder / "out.png"
    subprocess.run([vxl.jobs._operations.program("vxview"), "-q", path, "-o", picture, "-by", "intensity", "-size", str(size),
                    "-s", "1", "-noLegend", "-background", "%02x%02x%02x" % BACKGROUND], check=True)
    found = load_png(picture)
    scale = found.shape[1] // expected.shape[1]
    assert found.shape == (expected.shape[0] * scale, expected.shape[1] * scale, 3)
    found = found[::scale, ::scale]
    shown = expected >= 0
    assert shown.mean() > 0.2
    assert (found[shown] == found[shown][:, :1]).all()
    # Levels between two numbers may be rounded in either way.
    np.testing.assert_allclose(found[shown][:, 0].astype(int), expected[shown], rtol=0, atol=1)
    # Other cells are empty if there is no point near them, and grey or empty if there is one.
    near = np.pad(shown, 7)
    near = np.any([near[i:i + shown.shape[0], j:j + shown.shape[1]] for i in range(15) for j in range(15)], axis=0)
    is_empty = (found == BACKGROUND).all(axis=2)
    assert is_empty[~near].all() and (is_empty | (found == found[:, :, :1]).all(axis=2)).all()
