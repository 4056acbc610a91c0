"""The programs, the files that they read, and the servers that these are on.

VX_PROGRAMS is the folder of the programs.
"""

import os
import pathlib
import signal
import subprocess
import sys

import pytest

from servers import FaultyServer, Nginx

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = pathlib.Path(os.environ.get("VX_PROGRAMS", ROOT / "build/release")).resolve()
WINDOW = ["-c", "500000", "500200", "4100000", "4100200", "-inf", "+inf"]  # 1 % of big.vxl

# Shells let background jobs ignore Ctrl-C, and the programs would inherit that.
signal.signal(signal.SIGINT, signal.default_int_handler)


def start(program, *arguments, cwd=None, **variables):
    environment = os.environ | {"no_proxy": "127.0.0.1"} | {name: str(value) for name, value in variables.items()}
    return subprocess.Popen([PROGRAMS / program, *arguments], cwd=cwd, env=environment, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def run(program, *arguments, cwd=None, **variables):
    """The exit status and the output on both streams."""
    process = start(program, *arguments, cwd=cwd, **variables)
    try:
        out, err = process.communicate(timeout=30)
    finally:
        process.kill()
    return process.returncode, out + err


def unpack(source, output, *options, **variables):
    """The points of a source as they are written to a file."""
    output.unlink(missing_ok=True)
    status, said = run("vxunpack", "-i", source, "-o", output, "-q", *options, **variables)
    assert status == 0, said
    return output.read_bytes()


@pytest.fixture(scope="session")
def www(tmp_path_factory) -> pathlib.Path:
    """A folder with small.vxl (smaller than the first request), medium.vxl (larger than a file without a table of its
    bands), old.vxl (whose layout is found by reading its bands), big.vxl (larger than a step of a query), and LAS and LAZ
    files."""
    folder = tmp_path_factory.mktemp("www")
    folder.joinpath("small.vxl").write_bytes((ROOT / "examples/survey.vxl").read_bytes())
    folder.joinpath("empty.vxl").touch()
    assert run("vxunpack", "-i", "small.vxl", "-o", "small.las", cwd=folder)[0] == 0
    for name, millions in ("medium", "0.06"), ("big", "1.8"):
        subprocess.run([sys.executable, ROOT / "scripts/tile_las.py", "small.las", f"{name}.las", millions], cwd=folder,
                       check=True)
        assert run("vxpack", f"{name}.las", cwd=folder)[0] == 0
    assert run("vxunpack", "-i", "medium.vxl", "-o", "medium.laz", cwd=folder)[0] == 0
    assert run("vxpack", "medium.las", "-o", "old.vxl", "-fileVersion", "1", cwd=folder)[0] == 0
    assert folder.joinpath("medium.vxl").stat().st_size > 256 << 10
    assert folder.joinpath("big.vxl").stat().st_size > 8 << 20
    return folder


@pytest.fixture(scope="session")
def nginx(www, tmp_path_factory):
    with Nginx(www, tmp_path_factory.mktemp("nginx")) as server:
        yield server


@pytest.fixture(scope="session")
def faulty(www):
    with FaultyServer(www) as server:
        yield server
