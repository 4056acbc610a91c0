// Arrays of points: conversion, statistics, picking.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { load, randomNumbers } from './support/load.mjs';

const { convertPositions, convertSamples, countColorBits, haveDifferentColors } = await load('NodePoints');
const { estimateSpacing, findRange } = await load('Statistics');
const { pickPoint, isNearRay } = await load('Picking');
const { decimalsOf, printable } = await load('Text');
const { SceneSpace } = await load('SceneSpace');

const points = (channels) => ({ level: 0, first: 0, count: Object.values(channels)[0].length, channels });

test('coordinates of a country keep their millimetres', () => {
  const random = randomNumbers(7);
  const column = (base) => Float64Array.from({ length: 1000 }, () => base + Math.round(random() * 1e6) / 1000);
  const X = column(4e6), Y = column(-5e6), Z = column(8000);
  X[3] = NaN;
  const space = new SceneSpace([3.9e6, -4.9e6, 0], [1, 1, 2]);
  const { positions, origin, bounds, halves } = convertPositions(points({ X, Y, Z }), space);
  for (let i = 0; i < 1000; ++i) {
    const scene = [0, 1, 2].map((axis) => positions[3 * i + axis] + origin[axis]);
    space.toFile(scene).forEach((value, axis) => {
      const exact = [X, Y, Z][axis][i];
      if (Number.isNaN(exact)) assert.ok(Number.isNaN(value));
      else assert.ok(Math.abs(value - exact) < 1e-4);
    });
  }
  assert.ok([...bounds.min, ...bounds.max].every(Number.isFinite));
  assert.deepEqual(halves.map((half) => half.count), [1000, 0]);
});

test('colours of 8 and 16 bits, and samples of any type', () => {
  const color = (Red, Green = Red, Blue = Red) => points({ Red, Green, Blue });
  const many = (value) => new Uint16Array(1000).fill(value);
  const faulty = many(200);
  faulty[5] = 65535;
  assert.equal(countColorBits(color(many(255))), 8);
  assert.equal(countColorBits(color(faulty)), 8);
  assert.equal(countColorBits(color(many(1000))), 10);
  assert.equal(countColorBits(color(many(256), many(60000))), 16);
  assert.equal(haveDifferentColors(color(many(7))), false);
  assert.equal(haveDifferentColors(color(faulty)), true);
  assert.equal(haveDifferentColors(points({ Red: faulty })), false);
  assert.deepEqual([...convertSamples(color(Uint16Array.of(0, 32768, 65535)), 16).colors],
                   [0, 0, 0, 0, 128, 128, 128, 0, 255, 255, 255, 0]);
  const odd = convertSamples(
    points({ ClassId: BigInt64Array.of(-1n, 3n, 999n), Intensity: Float64Array.of(1, 2, 3) }), 8);
  assert.deepEqual([...odd.classes], [0, 3, 255]);
  assert.deepEqual([...odd.intensities], [1, 2, 3]);
});

test('spacing is the distance of neighbours, also in strips, and ranges leave out the tails', () => {
  const grid = (columns, rows, place) => {
    const positions = new Float32Array(3 * columns * rows);
    for (let i = 0; i < columns * rows; ++i) positions.set(place(i % columns, Math.floor(i / columns)), 3 * i);
    const bounds = { min: [Infinity, Infinity, Infinity], max: [-Infinity, -Infinity, -Infinity] };
    positions.forEach((value, i) => {
      bounds.min[i % 3] = Math.min(bounds.min[i % 3], value);
      bounds.max[i % 3] = Math.max(bounds.max[i % 3], value);
    });
    return estimateSpacing(positions, 0, columns * rows, bounds);
  };
  const isNear = (actual, expected) => assert.ok(actual > expected / 1.5 && actual < expected * 1.5, `${actual}`);
  isNear(grid(200, 200, (x, y) => [3 * x, 3 * y, 0]), 3); // a plain
  isNear(grid(200, 200, (x, y) => [0.5 * x, 0, 0.5 * y]), 0.5); // a wall
  isNear(grid(2000, 20, (x, y) => [x, x + 1.4 * y, 0]), 1.2); // a flight line across its box
  assert.equal(grid(1, 1, () => [5, 5, 5]), 0);

  const values = Float64Array.from({ length: 1001 }, (_, i) => i);
  values[0] = -1e9;
  values[7] = NaN;
  const { min, max } = findRange(values, 0.02);
  assert.ok(min > 10 && min < 30 && max > 970 && max < 990);
  assert.deepEqual(findRange([4, 4, 4], 0.02), { min: 4, max: 4 });
  assert.equal(findRange([NaN], 0.02), null);
});

test('the point in front is picked, unless it is hidden', () => {
  // A camera at the origin that looks along -z, 100 by 100 pixels, 90 degrees: a point is at x / -z.
  const matrix = [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1, -1, 0, 0, -0.2, 0];
  const cursor = { x: 50, y: 50, width: 100, height: 100, radius: 5, pixelsPerUnit: 50 };
  const positions = Float32Array.of(0, 0, -20, /**/ 0.2, 0, -10, /**/ 0, 0, 10, /**/ 3, 0, -10, /**/ NaN, 0, -5);
  const pick = (changes = {}, range = {}) =>
    pickPoint([{ positions, begin: 0, end: 5, matrix, ...range }], { ...cursor, ...changes });
  assert.deepEqual(pick(), { range: 0, index: 1 }); // a pixel beside the cursor, but far in front of point 0
  assert.deepEqual(pick({}, { isVisible: (i) => i !== 1 }), { range: 0, index: 0 });
  assert.deepEqual(pick({}, { end: 1 }), { range: 0, index: 0 });
  assert.deepEqual(pick({ x: 65 }), { range: 0, index: 3 });
  assert.equal(pick({ y: 80 }), null);
  const surface = Float32Array.from({ length: 300 }, (_, i) => (i % 3 === 2 ? -10 : i % 3 === 0 ? i / 3 * 0.05 : 0));
  assert.equal(pick({ x: 60 }, { positions: surface, end: 100 }).index, 40);
});

test('no node with a point near the ray is left out', () => {
  const random = randomNumbers(11);
  const vector = () => [0, 1, 2].map(() => 20 * random() - 10);
  let hits = 0;
  for (let i = 0; i < 5000; ++i) {
    const origin = vector(), center = vector(), offset = vector(), radius = 5 * random();
    const length = Math.hypot(...offset);
    const point = center.map((value, axis) => value + offset[axis] / length * radius * random());
    const toPoint = point.map((value, axis) => value - origin[axis]);
    const direction = toPoint.map((value) => value / Math.hypot(...toPoint));
    assert.ok(isNearRay(origin, direction, 0.01, center, radius));
    if (isNearRay(origin, vector().map((value, _, all) => value / Math.hypot(...all)), 0.01, center, radius)) ++hits;
  }
  assert.ok(hits < 2500); // most others are
});

test('text of files is cut and has no control characters; decimals are those of the step', () => {
  assert.equal(printable('a\u0000b\u202ec\u001b[31m\r\nd\u200b'), 'abc[31m\nd');
  assert.equal(printable('x'.repeat(50), 10), `${'x'.repeat(10)} …`);
  for (const [step, decimals] of
    [[0.01, 2], [0.001, 3], [1, 0], [0.25, 2], [1e-7, 7], [0.01 / 3, 3], [0, 3], [NaN, 3], [100, 0], [1e-30, 9]])
    assert.equal(decimalsOf(step), decimals, String(step));
});
