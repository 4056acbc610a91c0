// The viewer in a page: what it should show, and what it does show.
import { PNG } from 'pngjs';
import { openCloud } from '../../decoder/dist/node.js';

const tangent = Math.tan((50 / 2) * (Math.PI / 180)); // of half the field of view
const reach = 13; // pixels; points are at most 24 pixels wide

const subtract = (a, b) => a.map((value, i) => value - b[i]);
const dot = (a, b) => a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
const cross = (a, b) => [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
export const distance = (a, b) => Math.hypot(...subtract(a, b));
const unit = (a) => a.map((value) => value / Math.hypot(...a));

/** All points of a box, as objects with a value for each channel. */
export async function readPoints(path, min, max) {
  const cloud = await openCloud(path);
  const points = [];
  for await (const { channels, count } of cloud.read({ box: { min, max } }))
    for (let i = 0; i < count; ++i)
      points.push(Object.fromEntries(Object.entries(channels).map(([name, samples]) => [name, samples[i]])));
  cloud.close();
  return points;
}

/**
 * Adds to each point where it is on a canvas, as `pixel`, and returns those in a frame of the canvas that no point
 * nearer to the camera, and different, can cover.
 */
export function findUncovered(points, { eye, target }, { width, height }, frame, isDifferent = () => true) {
  const forward = unit(subtract(target, eye));
  const right = unit(cross(forward, [0, 0, 1]));
  const up = cross(right, forward);
  const cells = new Map();
  const cellOf = (x, y) => Math.floor(x / reach) * 10_000 + Math.floor(y / reach);
  for (const point of points) {
    const offset = subtract([point.X, point.Y, point.Z], eye);
    const depth = dot(offset, forward);
    const scale = height / 2 / tangent / depth;
    point.pixel = { x: width / 2 + dot(offset, right) * scale, y: height / 2 - dot(offset, up) * scale, depth };
    const cell = cellOf(point.pixel.x, point.pixel.y);
    if (!cells.has(cell)) cells.set(cell, []);
    cells.get(cell).push(point);
  }
  const covers = (nearer, point) => nearer.pixel.depth < point.pixel.depth && isDifferent(nearer, point) &&
    Math.hypot(nearer.pixel.x - point.pixel.x, nearer.pixel.y - point.pixel.y) < reach;
  const isCovered = (point) => [-1, 0, 1].some((i) => [-1, 0, 1].some((j) =>
    cells.get(cellOf(point.pixel.x + i * reach, point.pixel.y + j * reach))?.some((other) => covers(other, point))));
  return points.filter((point) => {
    const { x, y } = point.pixel;
    return x > frame.left && x < frame.right && y > frame.top && y < frame.bottom && !isCovered(point);
  });
}

/** Waits until everything is loaded and drawn. */
export async function settle(page) {
  await page.waitForFunction(() => ['idle', 'error'].includes(window.vxviewer?.state().status), { polling: 50 });
  return page.evaluate(() => window.vxviewer.state());
}

/** The picture of the canvas, with pixel(x, y) as [red, green, blue]. */
export async function takePicture(page) {
  await settle(page);
  const { data, width } = PNG.sync.read(Buffer.from(await page.screenshot()));
  return {
    data,
    pixel: ({ x, y }) => [...data.subarray(4 * (Math.floor(y) * width + Math.floor(x))).subarray(0, 3)],
  };
}

/** The camera, of the link in the address, which follows the view after a pause. The page is five times as fast. */
export async function readView(page) {
  await settle(page);
  await new Promise((done) => setTimeout(done, 150));
  const fields = new URLSearchParams(new URL(page.url()).hash.slice(1));
  const [eye, target] = ['eye', 'at'].map((key) => fields.get(key).split(',').map(Number));
  return { eye, target, fields };
}

export const encodeView = ({ eye, target }, rest = '') => `#eye=${eye}&at=${target}${rest}`;

/** The correlation of two lists of numbers. */
export function correlate(a, b) {
  const center = (list) => list.map((value) => value - list.reduce((sum, other) => sum + other, 0) / list.length);
  const [x, y] = [center(a), center(b)];
  const product = (u, v) => u.reduce((sum, value, i) => sum + value * v[i], 0);
  return product(x, y) / Math.sqrt(product(x, x) * product(y, y));
}
