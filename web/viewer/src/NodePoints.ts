// The points of a node as arrays for drawing and picking.
import type { Points, Samples } from '@vxunpack/decoder';
import { type Box, type Vector } from './Geometry.js';
import { countFirstHalf, type Halves } from './NodeTree.js';
import { SceneSpace } from './SceneSpace.js';
import { boundsOf, estimateSpacing, findMedian } from './Statistics.js';

/** Samples by what they are drawn as; missing until they are queried. */
export interface NodeSamples {
  /** Red, green, blue, 0 of each point. */
  colors?: Uint8Array;
  intensities?: Float32Array;
  /** ClassId of each point. */
  classes?: Uint8Array;
  /** ReturnNum of each point. */
  returns?: Uint8Array;
}

/** The points of a node. Positions are relative to `origin`, which is in the scene. */
export interface NodePoints {
  /** Position in the file, in points of its level, of the first point. */
  readonly first: number;
  readonly level: number;
  readonly count: number;
  readonly origin: Vector;
  /** x, y, z of each point. Single precision is exact to millimetres in a node, but not in a country. */
  readonly positions: Float32Array;
  /** In the scene. */
  readonly bounds: Box;
  readonly halves: Halves;
}

const colorChannels = ['Red', 'Green', 'Blue'];

/** Converts coordinates. The channels X, Y and Z must be there. */
export function convertPositions(points: Points, space: SceneSpace): NodePoints {
  const { count } = points;
  const axes = ['X', 'Y', 'Z'].map((name) => points.channels[name] as Float64Array);
  // Among most of the points, even if a few are far away.
  const [x, y, z] = axes.map((column) => findMedian(column, count));
  const origin: Vector =
    x === undefined || y === undefined || z === undefined ? [0, 0, 0] : space.toScene([x, y, z]);
  const positions = new Float32Array(3 * count);
  for (const axis of [0, 1, 2] as const) {
    const column = axes[axis] as Float64Array;
    const scale = space.scale[axis];
    // Both subtractions are exact enough only in double precision.
    const offset = space.center[axis], inScene = origin[axis];
    for (let i = 0; i < count; ++i)
      positions[3 * i + axis] = ((column[i] as number) - offset) * scale - inScene;
  }
  const half = (begin: number, end: number) => {
    const box = boundsOf(positions, begin, end);
    const spacing = estimateSpacing(positions, begin, end);
    return { count: end - begin, spacing, bounds: moved(box, origin) };
  };
  const middle = countFirstHalf(count);
  const halves: Halves = [half(0, middle), half(middle, count)];
  return {
    first: points.first, level: points.level, count, origin, positions, halves,
    bounds: moved(boundsOf(positions, 0, count), origin),
  };
}

/** Converts the channels that are there. `colorBits` is the number of significant bits of colours. */
export function convertSamples(points: Points, colorBits: number): NodeSamples {
  const { count } = points;
  const column = (name: string) => {
    const samples = points.channels[name];
    return samples && toNumbers(samples);
  };
  const result: NodeSamples = {};
  const [red, green, blue] = colorChannels.map(column);
  if (red && green && blue) {
    const colors = new Uint8Array(4 * count);
    const factor = 255 / (2 ** colorBits - 1);
    [red, green, blue].forEach((channel, part) => {
      for (let i = 0; i < count; ++i)
        colors[4 * i + part] = Math.min(255, Math.max(0, (channel[i] as number) * factor + 0.5));
    });
    result.colors = colors;
  }
  const intensities = column('Intensity');
  if (intensities) result.intensities = Float32Array.from(intensities);
  const toBytes = (channel: ArrayLike<number>) =>
    channel instanceof Uint8Array ? channel : Uint8Array.from(channel, (value) => Math.min(255, Math.max(0, value)));
  const classes = column('ClassId');
  if (classes) result.classes = toBytes(classes);
  const returns = column('ReturnNum');
  if (returns) result.returns = toBytes(returns);
  return result;
}

/**
 * Files have colours of 8, 10, 12 or 16 bits, whatever the type of the channels is. A few larger values are errors of
 * the file.
 */
export function countColorBits(points: Points): number {
  const usual = [8, 10, 12];
  const tooLarge = usual.map(() => 0);
  for (const name of colorChannels) {
    const samples = points.channels[name];
    if (!samples) continue;
    for (const value of toNumbers(samples) as Iterable<number>)
      for (let i = 0; i < usual.length && value >= 2 ** (usual[i] as number); ++i) ++(tooLarge[i] as number);
  }
  return usual.find((_, i) => (tooLarge[i] as number) <= 3 * points.count / 500) ?? 16;
}

/** True if the points have colours, and not all have the same. */
export function haveDifferentColors(points: Points): boolean {
  const channels = colorChannels.map((name) => points.channels[name]);
  return channels.every((samples) => samples !== undefined) &&
    channels.some((samples) => (toNumbers(samples) as Float64Array).some((value, _, all) => value !== all[0]));
}

/** Samples as numbers; 64-bit integers are rounded. */
export function toNumbers(samples: Samples): Exclude<Samples, BigUint64Array | BigInt64Array> {
  return samples instanceof BigUint64Array || samples instanceof BigInt64Array ? Float64Array.from(samples, Number)
                                                                               : samples;
}

function moved(box: Box, by: Vector): Box {
  const add = (point: Vector): Vector => [point[0] + by[0], point[1] + by[1], point[2] + by[2]];
  return { min: add(box.min), max: add(box.max) };
}
