"""Prints digests of what the native library decodes of .vxl files, as JSON.

    native.py [--levels N] <NAMES      NAMES has a file name per line

For each file: {"numPoints", "levels": {"0": DECODED, ...}, "box": [XMIN, XMAX, YMIN, YMAX], "boxed": DECODED}, where
DECODED is {"count", "channels": {NAME: SHA-256 of the samples}} or {"error": TEXT}, or {"error": TEXT} for a file that
cannot be opened. The box is the middle ninth of the cloud.
"""

import argparse
import hashlib
import json
import sys

import numpy as np
import vxl


def decode(cloud, **query):
    try:
        table = cloud.read(**query)
    except Exception as error:
        return {"error": str(error)}
    channels = {name: hashlib.sha256(np.ascontiguousarray(table[name])).hexdigest() for name in table}
    return {"count": table.num_points, "channels": channels}


def describe(path, levels):
    try:
        cloud = vxl.open(path)
        bounds = cloud.bounds
    except Exception as error:
        return {"error": str(error)}
    result = {"numPoints": cloud.num_points}
    if cloud.num_points == 0:
        return result
    # A fraction slightly larger than a power of two would be the finer level.
    result["levels"] = {level: decode(cloud, fraction=2.0**-level) for level in range(levels)
                        if cloud.num_points >> level}
    width, height = bounds.xmax - bounds.xmin, bounds.ymax - bounds.ymin
    box = (bounds.xmin + width / 3, bounds.xmax - width / 3, bounds.ymin + height / 3, bounds.ymax - height / 3)
    if np.isfinite(box).all():
        result["box"], result["boxed"] = box, decode(cloud, box=box)
    return result


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--levels", type=int, default=4)
    levels = parser.parse_args().levels
    print(json.dumps({path: describe(path, levels) for path in sys.stdin.read().splitlines()}, allow_nan=False))


main()
