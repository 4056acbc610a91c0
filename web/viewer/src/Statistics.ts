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
  const size = ([0, 1, 2] as const).map((axis) => bounds.max[axis] - bounds.min[axis]);
  const longest = Math.max(...size);
  if (count < 2 || !(longest > 0)) return 0;
  // About 16 points in each voxel of a surface. Fewer would count gaps between points as gaps in the surface.
  const cells = Math.min(64, Math.max(2, Math.floor(Math.sqrt(count) / 4)));
  const cell = longest / cells;
  const numCells = size.map((length) => Math.min(cells, Math.floor(length / cell) + 1));
  const [columns, rows, layers] = numCells as [number, number, number];
  const isOccupied = new Uint8Array(columns * rows * layers);
  let occupied = 0;
  for (let i = begin; i < end; ++i) {
    const x = Math.min(columns - 1, Math.floor(((positions[3 * i] as number) - bounds.min[0]) / cell));
    const y = Math.min(rows - 1, Math.floor(((positions[3 * i + 1] as number) - bounds.min[1]) / cell));
    const z = Math.min(layers - 1, Math.floor(((positions[3 * i + 2] as number) - bounds.min[2]) / cell));
    const at = x + columns * (y + rows * z);
    if (isOccupied[at] === 0) {
      isOccupied[at] = 1;
      ++occupied;
    }
  }
  return cell * Math.sqrt(Math.max(1, occupied) / count);
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
