// Finding the point under the cursor.
import type { Vector } from './Geometry.js';

/** Points of a node that are drawn. */
export interface PickRange {
  /** x, y, z of each point. */
  readonly positions: Float32Array;
  readonly begin: number;
  readonly end: number;
  /** From positions to clip coordinates: a 4 by 4 matrix by columns. */
  readonly matrix: ArrayLike<number>;
  /** False for points that are hidden. */
  readonly isVisible?: ((index: number) => boolean) | undefined;
}

export interface Cursor {
  /** Pixels from the left and from the top. */
  readonly x: number;
  readonly y: number;
  readonly width: number;
  readonly height: number;
  /** Pixels around the cursor. */
  readonly radius: number;
  /** Pixels of a unit of the scene at distance 1. */
  readonly pixelsPerUnit: number;
}

export interface Pick {
  /** Of the ranges. */
  readonly range: number;
  readonly index: number;
}

/**
 * The point near the cursor that is nearest to the camera: a point that is a little farther from the cursor wins if the
 * others are much farther from the camera. Null if there is no point.
 */
export function pickPoint(ranges: readonly PickRange[], cursor: Cursor): Pick | null {
  const { width, height, radius, pixelsPerUnit } = cursor;
  const cursorX = cursor.x / width * 2 - 1, cursorY = 1 - cursor.y / height * 2;
  const halfWidth = width / 2, halfHeight = height / 2;
  let best: Pick | null = null;
  let bestX = 0, bestDepth = Infinity; // distance from the cursor in pixels, depth in the scene
  ranges.forEach(({ positions, begin, end, matrix, isVisible }, range) => {
    const m = Array.from({ length: 16 }, (_, i) => matrix[i] as number) as unknown as Matrix;
    for (let i = begin; i < end; ++i) {
      const x = positions[3 * i] as number, y = positions[3 * i + 1] as number, z = positions[3 * i + 2] as number;
      const w = m[3] * x + m[7] * y + m[11] * z + m[15];
      if (!(w > 0)) continue;
      const dx = ((m[0] * x + m[4] * y + m[8] * z + m[12]) / w - cursorX) * halfWidth;
      if (!(dx > -radius && dx < radius)) continue;
      const dy = ((m[1] * x + m[5] * y + m[9] * z + m[13]) / w - cursorY) * halfHeight;
      const distance = Math.sqrt(dx * dx + dy * dy);
      if (!(distance < radius)) continue;
      // Depths in pixels, so that the choice does not depend on the distance of the camera.
      if (best) {
        const farther = (w - bestDepth) * pixelsPerUnit / Math.min(w, bestDepth);
        if (farther + depthPerPixel * (distance - bestX) >= 0) continue;
      }
      if (isVisible && !isVisible(i)) continue;
      best = { range, index: i };
      bestX = distance;
      bestDepth = w;
    }
  });
  return best;
}

// How much nearer to the camera a point must be that is one pixel farther from the cursor. Surfaces that are seen at
// flat angles have a few pixels of depth per pixel.
const depthPerPixel = 4;

type Matrix = readonly [
  number, number, number, number, number, number, number, number,
  number, number, number, number, number, number, number, number,
];

/** True if a sphere meets the cone of `slope` around the ray from `origin` along the unit vector `direction`. */
export function isNearRay(origin: Vector, direction: Vector, slope: number, center: Vector, radius: number): boolean {
  const to = [center[0] - origin[0], center[1] - origin[1], center[2] - origin[2]] as const;
  const along = to[0] * direction[0] + to[1] * direction[1] + to[2] * direction[2];
  const squared = to[0] ** 2 + to[1] ** 2 + to[2] ** 2;
  if (along + radius < 0) return false;
  const reach = radius + Math.max(0, along + radius) * slope;
  return squared - along * along <= reach * reach;
}
