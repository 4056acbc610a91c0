"""Makes a cloud of hills with houses: make_cloud.py POINTS OUT.vxl

The area is a square of 2,000 units, sampled in rows. Houses are 24 by 16 units, at each multiple of 80 units, 8 units
high, red and of class 6; the ground is green and of class 2.
"""

import math
import sys

import numpy as np
import vxl

SIDE = 2000.0


def main():
    points, out = int(sys.argv[1]), sys.argv[2]
    columns = math.isqrt(points)
    index = np.arange(points)
    random = np.random.default_rng(1)
    x = (index % columns + random.random(points)) * SIDE / columns
    y = (index // columns + random.random(points)) * SIDE / columns
    z = 20 * np.sin(x / 90) * np.cos(y / 70) + random.normal(0, 0.03, points)
    house = (x % 80 < 24) & (y % 80 < 16)
    noise = random.integers(0, 40, points)
    vxl.write(out, {
        "X": np.round(636000 + x, 2),
        "Y": np.round(849000 + y, 2),
        "Z": np.round(400 + z + 8 * house, 2),
        "Intensity": (20 + 4 * noise).astype(np.uint16),
        "ClassId": np.where(house, 6, 2).astype(np.uint8),
        "Red": np.where(house, 200 + noise, 30 + noise).astype(np.uint16),
        "Green": np.where(house, 30 + noise, 150 + noise).astype(np.uint16),
        "Blue": (30 + noise).astype(np.uint16),
        "GPSTime": index * 1e-5,
    }, crs="EPSG:25832")


main()
