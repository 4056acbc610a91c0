"""Writes a .vxl file with hills, houses and trees: make_cloud.py NUM_POINTS FILE."""

import sys

import numpy as np
import vxl

GROUND, TREES, BUILDINGS = 2, 5, 6


def make_points(first, count, width):
    """Points of a path that covers the area in strips, as a scanner does."""
    index = np.arange(first, first + count)
    random = np.random.default_rng(first)
    row, column = index // width, index % width
    x = (np.where(row % 2 == 0, column, width - 1 - column) + random.random(count)) * 0.5
    y = (row + random.random(count)) * 0.5
    z = 20 * np.sin(x / 150) * np.cos(y / 110) + 3 * np.sin(x / 23 + y / 31)
    kind = np.full(count, GROUND, np.uint8)
    house = ((x // 40 + y // 40) % 5 == 0) & (x % 40 < 15) & (y % 40 < 11)
    tree = ~house & (random.random(count) < 0.15) & (np.sin(x / 70) + np.sin(y / 50) > 0.5)
    kind[house], kind[tree] = BUILDINGS, TREES
    z = z + np.where(house, 8, 0) + np.where(tree, 12 * random.random(count), 0)
    shade = random.integers(0, 40, count)
    colors = {GROUND: (150, 130, 90), TREES: (50, 120, 40), BUILDINGS: (180, 90, 70)}
    red, green, blue = (np.choose(np.searchsorted([GROUND, TREES, BUILDINGS], kind),
                                  [color[i] for color in colors.values()]) for i in range(3))
    return {
        "X": 500_000 + x, "Y": 4_100_000 + y, "Z": 120 + z,
        "Intensity": (shade * 20 + 100).astype(np.uint16),
        "ReturnNum": np.where(tree & (shade % 2 == 0), 2, 1).astype(np.uint8),
        "NumReturns": np.where(tree, 2, 1).astype(np.uint8),
        "ClassId": kind,
        "GPSTime": 245_000 + index * 1e-5,
        "Red": ((red + shade) * 257).astype(np.uint16),
        "Green": ((green + shade) * 257).astype(np.uint16),
        "Blue": ((blue + shade) * 257).astype(np.uint16),
    }


def main():
    num_points, path = int(sys.argv[1]), sys.argv[2]
    width, block = int(num_points**0.5) + 1, 1_000_000
    blocks = (make_points(first, min(block, num_points - first), width) for first in range(0, num_points, block))
    vxl.write(path, blocks, quantize=(0.01, 0.01, 0.01), crs="EPSG:32613")


main()
