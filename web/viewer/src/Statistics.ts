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

/** About the middle one of the first `count` values; undefined if none is finite. */
export function findMedian(values: Float64Array, count: number): number | undefined {
  const sample = takeSample(values, 0, count, 1, 0);
  return sample[sample.length >> 1];
}

/** The box of most of the points [begin, end), without the outermost ones; null if there are none. */
function findUsualBounds(positions: Float32Array, begin: number, end: number): Box | null {
  const ranges = ([0, 1, 2] as const).map((axis) => findRange(takeSample(positions, begin, end, 3, axis), 0.01));
  const [x, y, z] = ranges;
  return x && y && z ? { min: [x.min, y.min, z.min], max: [x.max, y.max, z.max] } : null;
}

// Sorted finite values at begin, begin + 1 and so on, at most about a thousand.
function takeSample(
  values: Float32Array | Float64Array, begin: number, end: number, stride: number, offset: number,
): Float64Array {
  const step = Math.max(1, Math.floor((end - begin) / 1024));
  const sample: number[] = [];
  for (let i = begin; i < end; i += step) {
    const value = values[stride * i + offset] as number;
    if (Number.isFinite(value)) sample.push(value);
  }
  return Float64Array.from(sample).sort();
}

/**
 * The distance between neighbouring points on the surfaces that the points [begin, end) sample: the square root of the
 * area of a point. The area is the number of voxels that have points, since boxes of flight lines are mostly empty.
 * Single points far from all others do not matter.
 */
export function estimateSpacing(positions: Float32Array, begin: number, end: number): number {
  const bounds = findUsualBounds(positions, begin, end);
  if (!bounds) return 0;
  const count = end - begin;
  const longest = Math.max(...([0, 1, 2] as const).map((axis) => bounds.max[axis] - bounds.min[axis]));
  if (count < 2 || !(longest > 0)) return 0;
  // Fewer points in a voxel would count gaps between points as gaps in the surface.
  const perVoxel = 16;
  const side = (voxels: number) => Math.min(256, Math.max(2, Math.floor(Math.sqrt(voxels / perVoxel))));
  let cells = side(Math.min(count, perVoxel * 64 ** 2));
  let counts = countVoxels(positions, begin, end, bounds, longest / cells);
  // Points in a part of the box allow smaller voxels, which fit it better.
  const finer = side(cells ** 2 * counts.points / counts.voxels);
  if (finer >= 1.5 * cells) {
    cells = finer;
    counts = countVoxels(positions, begin, end, bounds, longest / cells);
  }
  return longest / cells * Math.sqrt(counts.voxels / counts.points);
}

// How many cubes with this side have points, and how many points they have. At least one.
function countVoxels(
  positions: Float32Array, begin: number, end: number, bounds: Box, side: number,
): { voxels: number; points: number } {
  const { min, max } = bounds;
  const lengths = ([0, 1, 2] as const).map((axis) => Math.floor((max[axis] - min[axis]) / side) + 1);
  const [columns, rows, layers] = lengths as [number, number, number];
  let points = 0;
  const isOccupied = new Set<number>();
  for (let i = begin; i < end; ++i) {
    const x = Math.floor(((positions[3 * i] as number) - min[0]) / side);
    const y = Math.floor(((positions[3 * i + 1] as number) - min[1]) / side);
    const z = Math.floor(((positions[3 * i + 2] as number) - min[2]) / side);
    if (!(x >= 0 && x < columns && y >= 0 && y < rows && z >= 0 && z < layers)) continue;
    ++points;
    isOccupied.add(x + columns * (y + rows * z));
  }
  return { voxels: Math.max(1, isOccupied.size), points: Math.max(1, points) };
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
