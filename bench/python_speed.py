"""Compares the Python module with the programs: python_speed.py BUILD LAS-FILE [OPTIONS]

A LAS file with copies of the given one is packed. Then `vxunpack -o null` and `vxl.Cloud.read` decode all
channels, and `vxpack` (from LAS) and `vxl.write` (from arrays) encode them, in turns. Prints the median user
CPU times, and their ratios; those of Python without and with the start of the interpreter.
"""

import argparse
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile

READ = """
import resource, sys
import vxl
def user():
    return resource.getrusage(resource.RUSAGE_SELF).ru_utime
begin = user()
table = vxl.open(sys.argv[1]).read(threads=int(sys.argv[2]))
print(user() - begin)
"""
WRITE = READ + """
begin = user()
vxl.write(sys.argv[3], table, threads=int(sys.argv[2]))
print(user() - begin)
"""


def run(command: list, build: pathlib.Path) -> tuple[float, list[float]]:
    """The user CPU time of a process, and the numbers that it prints."""
    environment = {**os.environ, "PYTHONPATH": str(build / "python")}
    before = os.times().children_user
    done = subprocess.run(command, env=environment, stdout=subprocess.PIPE, check=True, text=True)
    parts = [float(line) for line in done.stdout.split()] if command[0] == sys.executable else []
    return os.times().children_user - before, parts


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=lambda path: pathlib.Path(path).resolve())
    parser.add_argument("source")
    parser.add_argument("--millions", default="10")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("-j", default="2")
    options = parser.parse_args()
    tile = pathlib.Path(__file__).resolve().parents[1] / "scripts/tile_las.py"
    build = options.build
    with tempfile.TemporaryDirectory() as folder:
        las, packed, out = (f"{folder}/{name}" for name in ("tiled.las", "tiled.vxl", "out.vxl"))
        subprocess.run([sys.executable, tile, options.source, las, options.millions], check=True)
        pack = [build / "vxpack", "-q", "-f", "-j", options.j, "-i", las, "-o"]
        subprocess.run([*pack, packed], check=True)
        times: dict[str, list[float]] = {}
        for _ in range(options.runs):
            for name, command in {
                "vxunpack -o null": [build / "vxunpack", "-q", "-j", options.j, "-i", packed, "-o", "null"],
                "read": [sys.executable, "-c", READ, packed, options.j],
                "vxpack": [*pack, out],
                "write": [sys.executable, "-c", WRITE, packed, options.j, out],
            }.items():
                whole, parts = run(command, build)
                times.setdefault(name, []).append(parts[-1] if parts else whole)
                times.setdefault(name + ", process", []).append(whole)
        median = {name: statistics.median(values) for name, values in times.items()}
        print(f"{options.millions} million points, {options.j} threads, median user CPU times")
        for python, program in (("read", "vxunpack -o null"), ("read, process", "vxunpack -o null"),
                                ("write", "vxpack")):
            ratio = statistics.median(a / b for a, b in zip(times[python], times[program]))
            shown = f"{python:14} {median[python]:6.2f} s   {program:16} {median[program]:6.2f} s"
            print(f"{shown}   {ratio:.2f}")
        print(f"sizes: {os.path.getsize(packed)} (vxpack), {os.path.getsize(out)} (write)")


if __name__ == "__main__":
    main()
