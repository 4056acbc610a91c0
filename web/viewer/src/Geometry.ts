// Vectors and boxes without a graphics library.
import type { Box } from '@vxunpack/decoder';

export type { Box };
export type Vector = readonly [number, number, number];

/** A box that contains nothing, and grows. */
export class GrowingBox {
  readonly min: [number, number, number] = [Infinity, Infinity, Infinity];
  readonly max: [number, number, number] = [-Infinity, -Infinity, -Infinity];

  get isEmpty(): boolean {
    return !(this.min[0] <= this.max[0]);
  }

  add(x: number, y: number, z: number): void {
    if (x < this.min[0]) this.min[0] = x;
    if (y < this.min[1]) this.min[1] = y;
    if (z < this.min[2]) this.min[2] = z;
    if (x > this.max[0]) this.max[0] = x;
    if (y > this.max[1]) this.max[1] = y;
    if (z > this.max[2]) this.max[2] = z;
  }

  addBox(box: Box): void {
    if (box.min[0] <= box.max[0]) {
      this.add(...box.min);
      this.add(...box.max);
    }
  }
}

export function map(f: (axis: 0 | 1 | 2) => number): Vector {
  return [f(0), f(1), f(2)];
}

/** True if all numbers are finite, and no side is negative. */
export function isProper(box: Box): boolean {
  return ([0, 1, 2] as const).every((axis) =>
    Number.isFinite(box.min[axis]) && Number.isFinite(box.max[axis]) && box.min[axis] <= box.max[axis]);
}

export function centerOf(box: Box): Vector {
  return map((axis) => box.min[axis] + (box.max[axis] - box.min[axis]) / 2);
}

export function diagonalOf(box: Box): number {
  return Math.hypot(...map((axis) => box.max[axis] - box.min[axis]));
}

/** The box with a margin on all sides: a share of its length, and a distance. */
export function enlarged(box: Box, share: number, distance: number): Box {
  const margin = map((axis) => (box.max[axis] - box.min[axis]) * share + distance);
  return { min: map((axis) => box.min[axis] - margin[axis]), max: map((axis) => box.max[axis] + margin[axis]) };
}

export function doIntersect(a: Box, b: Box): boolean {
  return ([0, 1, 2] as const).every((axis) => a.min[axis] <= b.max[axis] && b.min[axis] <= a.max[axis]);
}

export function distanceToBox(point: Vector, box: Box): number {
  return Math.hypot(...map((axis) =>
    Math.max(box.min[axis] - point[axis], 0, point[axis] - box.max[axis])));
}

export function cornersOf(box: Box): Vector[] {
  return Array.from({ length: 8 }, (_, i) => map((axis) => (i >> axis & 1 ? box.max : box.min)[axis]));
}

/** Pairs of corners of `cornersOf`. */
export const boxEdges: readonly (readonly [number, number])[] = [
  [0, 1], [2, 3], [4, 5], [6, 7], [0, 2], [1, 3], [4, 6], [5, 7], [0, 4], [1, 5], [2, 6], [3, 7],
];
