"""Clouds that the tests share."""

import pathlib
import shutil
import signal

import numpy as np
import pytest

import vxl

ROOT = pathlib.Path(__file__).resolve().parents[2]
NUM_POINTS = 300_000  # several blocks

# Shells let background jobs ignore Ctrl-C, and the processes of tests would inherit that.
signal.signal(signal.SIGINT, signal.default_int_handler)


@pytest.fixture(scope="session")
def arrays() -> dict[str, np.ndarray]:
    """Points along a path, with a channel of every kind of type."""
    steps = np.arange(NUM_POINTS)
    return {
        "X": 500_000 + (steps % 1000) * 0.25,
        "Y": 4_100_000 + (steps // 1000) * 0.25,
        "Z": (steps * 7919 % 10_000) * 0.01,
        "Intensity": (steps * 31).astype(np.uint16),
        "ClassId": (steps % 19).astype(np.uint8),
        "ScanAngle": (steps % 180 - 90).astype(np.int16),
        "Id": steps.astype(np.int64) << 20,
        "Amplitude": (steps * 0.1).astype(np.float32),
    }


@pytest.fixture(scope="session")
def cloud_path(arrays, tmp_path_factory) -> pathlib.Path:
    """A file of these points."""
    path = tmp_path_factory.mktemp("cloud") / "cloud.vxl"
    assert vxl.write(path, arrays, scale=(0.25, 0.25, 0.01), crs="EPSG:25832") == NUM_POINTS
    return path


@pytest.fixture
def folder(tmp_path, monkeypatch) -> pathlib.Path:
    """An empty folder, which is the current one."""
    monkeypatch.chdir(tmp_path)
    return tmp_path


@pytest.fixture
def survey(folder) -> pathlib.Path:
    """The example file, in the current folder."""
    return pathlib.Path(shutil.copy(ROOT / "examples/survey.vxl", folder))
