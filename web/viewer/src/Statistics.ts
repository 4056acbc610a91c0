// Robust ranges of samples.
import { GrowingBox, type Box } from './Geometry.js';

export interface Range {
  readonly min: number;
  readonly max: number;
}

/** The values below and above which there is `tail` of all finite values; null if there is none. */
export function findRange(values: ArrayLike<number>, tail: number): Range | null {
  const sorted = Float64Array.from(values).filter(Number.isFinite).sort();
  if (sorted.length === 0) return null;
  const at = (share: number) => sorted[Math.round(share * (sorted.length - 1))] as number;
  const range = { min: at(tail), max: at(1 - tail) };
  return range.min < range.max ? range : { min: at(0), max: at(1) };
}

/** A box that leaves out single points far from all others. Positions are x, y, z, x, y, z, ... */
export function findRobustBounds(positions: Float32Array, origin: readonly [number, number, number]): Box | null {
  const column = new Float64Array(positions.length / 3);
  const ranges = ([0, 1, 2] as const).map((axis) => {
    for (let i = 0; i < column.length; ++i) column[i] = (positions[3 * i + axis] as number) + origin[axis];
    return findRange(column, 0.005);
  });
  const [x, y, z] = ranges;
  return x && y && z ? { min: [x.min, y.min, z.min], max: [x.max, y.max, z.max] } : null;
}

/**
 * The distance between neighbouring points on the surfaces that the points [begin, end) sample: the square root of the
 * area of a point. The area is the number of voxels that have points, since boxes of flight lines are mostly empty.
 */
export function estimateSpacing(positions: Float32Array, begin: number, end: number, bounds: Box): number {
  const count = end - begin;
  const longest = Math.max(...([0, 1, 2] as const).map((axis) => bounds.max[axis] - bounds.min[axis]));
  if (count < 2 || !(longest > 0)) return 0;
  // Fewer points in a voxel would count gaps between points as gaps in the surface.
  const perVoxel = 16;
  const side = (voxels: number) => Math.min(256, Math.max(2, Math.floor(Math.sqrt(voxels / perVoxel))));
  let cells = side(Math.min(count, perVoxel * 64 ** 2));
  let occupied = countVoxels(positions, begin, end, bounds, longest / cells);
  // Points in a part of the box allow smaller voxels, which fit to it better.
  const finer = side(cells ** 2 * count / occupied);
  if (finer >= 1.5 * cells) {
    cells = finer;
    occupied = countVoxels(positions, begin, end, bounds, longest / cells);
  }
  return longest / cells * Math.sqrt(occupied / count);
}

// How many cubes with this side have points.
function countVoxels(positions: Float32Array, begin: number, end: number, bounds: Box, side: number): number {
  const { min, max } = bounds;
  const lengths = ([0, 1, 2] as const).map((axis) => Math.floor((max[axis] - min[axis]) / side) + 1);
  const [columns, rows] = lengths as [number, number];
  const isOccupied = new Set<number>();
  for (let i = begin; i < end; ++i) {
    const x = Math.floor(((positions[3 * i] as number) - min[0]) / side);
    const y = Math.floor(((positions[3 * i + 1] as number) - min[1]) / side);
    const z = Math.floor(((positions[3 * i + 2] as number) - min[2]) / side);
    isOccupied.add(x + columns * (y + rows * z));
  }
  return Math.max(1, isOccupied.size);
}

/** The box of the points [begin, end), without those whose coordinates are not finite. */
export function boundsOf(positions: Float32Array, begin: number, end: number): GrowingBox {
  const box = new GrowingBox();
  for (let i = begin; i < end; ++i) {
    const x = positions[3 * i] as number, y = positions[3 * i + 1] as number, z = positions[3 * i + 2] as number;
    if (Number.isFinite(x + y + z)) box.add(x, y, z);
  }
  return box;
}
