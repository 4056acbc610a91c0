import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { makeCloud } from './native.mjs';
import { startBrowser } from './support/browser.mjs';
import { startFaultyServer } from './support/faults.mjs';
import {
  correlate, distance, encodeView, findUncovered, readPoints, readView, settle, takePicture,
} from './support/viewer.mjs';

const timeout = 30_000;
const folder = mkdtempSync(join(tmpdir(), 'viewer-'));
const small = '/viewer/?src=/files/small.vxl';
const classColors = { 2: [165, 115, 65], 5: [20, 115, 45], 6: [225, 85, 45] };
const background = [0x14, 0x18, 0x1d];
// A house between trees, obliquely from above.
const house = [500_087, 4_100_125, 125];
const view = { eye: [500_082, 4_100_105, 180], target: house };
const frame = { left: 200, right: 800, top: 120, bottom: 560 };
const corner = (sign) => house.map((value) => value + sign * 60);

let browser, points, server;
before(async () => {
  makeCloud(10_000_000, join(folder, 'large.vxl'));
  makeCloud(100_000, join(folder, 'small.vxl'));
  points = await readPoints(join(folder, 'small.vxl'), corner(-1), corner(1));
  server = await startFaultyServer(readFileSync(join(folder, 'small.vxl')));
  browser = await startBrowser({ '/files/': folder });
});
after(async () => {
  await browser?.stop();
  server?.stop();
  rmSync(folder, { recursive: true });
});

async function open(path, haste = 1, viewport = { width: 1280, height: 800 }) {
  const page = await browser.open('/pages/', haste);
  await page.setViewport(viewport);
  await page.goto(browser.url + path);
  return page;
}

/** The points of the canvas that are certainly seen. */
async function findVisible(page, isDifferent) {
  const size = await page.$eval('#canvas', (canvas) => ({ width: canvas.clientWidth, height: canvas.clientHeight }));
  return findUncovered(points, view, size, frame, isDifferent);
}

test('the first picture of 10 million points needs little', { timeout }, async (t) => {
  await browser.takeLog();
  const page = await open('/viewer/?src=/files/large.vxl', 1, { width: 900, height: 500 });
  const first = await page.waitForFunction(() => {
    const state = window.vxviewer?.state();
    return state?.firstPictureMs && state;
  }, { polling: 'raf' });
  const { shownPoints, firstPictureMs, requests, bytes } = await first.jsonValue();
  t.diagnostic(`first picture after ${Math.round(firstPictureMs)} ms: ${requests} requests, ${bytes} bytes`);
  assert.ok(shownPoints > 10_000);
  assert.ok(bytes <= 1e6 && requests <= 10, `${bytes} bytes, ${requests} requests`);

  const idle = await settle(page);
  const log = (await browser.takeLog()).filter(({ path }) => path === '/files/large.vxl');
  assert.equal(log.length, idle.requests);
  assert.equal(log.reduce((sum, request) => sum + request.bytes, 0), idle.bytes);
  await new Promise((done) => setTimeout(done, 300));
  assert.deepEqual(await page.evaluate(() => window.vxviewer.state()), idle, 'frames are drawn though nothing changes');

  await page.mouse.move(400, 400);
  await page.mouse.down();
  const begin = performance.now();
  await page.mouse.move(300, 420, { steps: 5 });
  const { framesRendered } = await page.evaluate(() => window.vxviewer.state());
  const seconds = (performance.now() - begin) / 1000;
  await page.mouse.up();
  const numFrames = framesRendered - idle.framesRendered;
  t.diagnostic(`${numFrames} frames of ${idle.shownPoints} points in ${seconds.toFixed(1)} s`);
  assert.ok(numFrames > 1);
  assert.equal((await settle(page)).status, 'idle');
});

const isNear = (color, expected) => color.every((value, i) => Math.abs(value - expected[i]) <= 2);
const shareOf = (list, isGood) => list.filter(isGood).length / list.length;
/** The share of points that the picture shows in a colour. */
const shareShown = (picture, list, colorOf) =>
  shareOf(list, (point) => isNear(picture.pixel(point.pixel), colorOf(point)));
const colorOfClass = ({ ClassId }) => classColors[ClassId];
const areOfDifferentClasses = (a, b) => a.ClassId !== b.ClassId;

test('pictures show the points where they are, in their colours', { timeout }, async () => {
  const page = await open(`${small}${encodeView(view, '&color=class&shade=0')}`);
  const visible = await findVisible(page, areOfDifferentClasses);
  for (const code of [2, 5, 6]) assert.ok(visible.filter(({ ClassId }) => ClassId === code).length > 300);
  const byClass = shareShown(await takePicture(page), visible, colorOfClass);

  const single = await findVisible(page);
  const draw = async (key) => {
    await page.keyboard.press(key);
    return takePicture(page);
  };
  const colorOf = ({ Red, Green, Blue }) => [Red, Green, Blue].map((value) => value >> 8);
  const byColor = shareShown(await draw('1'), single, colorOf);
  const lightness = (picture) => single.map(({ pixel }) => picture.pixel(pixel).reduce((sum, value) => sum + value, 0));
  const byElevation = correlate(lightness(await draw('2')), single.map(({ Z }) => Z));
  const byIntensity = correlate(lightness(await draw('3')), single.map(({ Intensity }) => Intensity));
  const returns = await draw('5');
  const colors = [1, 2].map((number) => returns.pixel(single.find(({ ReturnNum }) => ReturnNum === number).pixel));
  const byReturn = shareShown(returns, single, ({ ReturnNum }) => colors[ReturnNum - 1]);
  for (const share of [byClass, byColor, byReturn, byElevation, byIntensity]) assert.ok(share > 0.95, share);
  assert.notDeepEqual(colors[0], colors[1]);
});

test('classes and the clipping box hide points', { timeout }, async () => {
  const page = await open(`${small}${encodeView(view, '&color=class&shade=0')}`);
  const visible = await findVisible(page, areOfDifferentClasses);
  await settle(page);
  await page.$$eval('#legend label', (labels) => labels.find((label) => label.textContent === '6 Building').click());
  const withoutHouses = await takePicture(page);
  const isHouse = ({ ClassId }) => ClassId === 6;
  const houses = shareShown(withoutHouses, visible.filter(isHouse), colorOfClass);
  const others = shareShown(withoutHouses, visible.filter((point) => !isHouse(point)), colorOfClass);
  assert.ok(houses === 0 && others > 0.95, `${houses}, ${others}`);

  await page.$$eval('#legend button', (buttons) => buttons.find(({ textContent }) => textContent === 'All').click());
  await page.$eval('input[aria-label="X max"]', (input, value) => {
    input.value = value;
    input.dispatchEvent(new Event('change'));
  }, house[0]);
  const clipped = await takePicture(page);
  const inside = shareShown(clipped, visible.filter(({ X }) => X < house[0] - 1), colorOfClass);
  const outside = shareShown(clipped, visible.filter(({ X }) => X > house[0] + 3), () => background);
  assert.ok(inside > 0.95 && outside > 0.95, `${inside}, ${outside}`);
});

const click = (page, { pixel }) => page.mouse.click(pixel.x, pixel.y);
const waitForText = (page, selector, text) => page.waitForFunction(
  (...expected) => document.querySelector(expected[0])?.textContent.includes(expected[1]), {}, selector, text);
const readCard = (page) => page.$eval('#point-card dl', (list) =>
  Object.fromEntries([...list.querySelectorAll('dt')].map((term) => [term.textContent, term.nextSibling.textContent])));

test('clicks show the exact attributes of points, and measure', { timeout }, async () => {
  const page = await open(`${small}${encodeView(view)}`);
  await settle(page);
  const visible = (await findVisible(page)).filter(({ pixel }) => pixel.x > 400); // beside the cards
  const first = visible.find(({ ClassId }) => ClassId === 6);
  const last = visible.findLast(({ ClassId }) => ClassId === 5);
  for (const point of [first, last]) {
    await click(page, point);
    await waitForText(page, '#point-card dl', point.X.toFixed(2));
    const card = await readCard(page);
    for (const name of ['X', 'Y', 'Z']) assert.equal(card[name], point[name].toFixed(2));
    assert.equal(card.ClassId, point.ClassId === 6 ? '6 Building' : '5 High vegetation');
    for (const name of ['Intensity', 'ReturnNum', 'Red', 'Green', 'Blue'])
      assert.equal(card[name], String(point[name]));
    assert.ok(Math.abs(card.GPSTime - point.GPSTime) < 1e-6);
  }

  await page.keyboard.press('m');
  await click(page, first);
  await click(page, last);
  const [dx, dy, dz] = ['X', 'Y', 'Z'].map((name) => last[name] - first[name]);
  const expected = [Math.hypot(dx, dy, dz), Math.hypot(dx, dy), dz].map((length) => `${length.toFixed(3)} m`);
  await waitForText(page, '#measure-card tbody', expected[0]);
  const cells = await page.$$eval('#measure-card tbody td', (found) => found.map((cell) => cell.textContent));
  assert.deepEqual(cells, ['1', ...expected]);
  await page.keyboard.press('Escape');
  assert.ok(await page.$eval('#measure-card', (card) => card.hidden));
});

test('a link restores the view', { timeout }, async () => {
  const page = await open(small, 5);
  await settle(page);
  await page.mouse.move(400, 400);
  await page.mouse.down();
  await page.mouse.move(300, 350, { steps: 2 });
  await page.mouse.up();
  await page.keyboard.press('4');
  await page.keyboard.press('+');
  const { framesRendered } = await settle(page);
  assert.ok(framesRendered > 5);
  await readView(page); // is in the address now
  const before = await takePicture(page);
  const after = await takePicture(await open(page.url().slice(browser.url.length)));
  const rows = Array.from({ length: frame.bottom - frame.top }, (_, i) => frame.top + i);
  const columns = Array.from({ length: frame.right - frame.left }, (_, i) => frame.left + i);
  const pixels = rows.flatMap((y) => columns.map((x) => ({ x, y })));
  const same = shareOf(pixels, (place) => isNear(before.pixel(place), after.pixel(place)));
  assert.ok(same > 0.995, same);
});

test('the keyboard does what the mouse does', { timeout }, async () => {
  const page = await open(small, 5);
  const home = await readView(page);
  const after = async (...keys) => {
    for (const key of keys) await page.keyboard.press(key);
    return readView(page);
  };
  const moved = await after('ArrowLeft', 'ArrowLeft');
  assert.ok(moved.eye[0] < home.eye[0] - 1 && Math.abs(moved.eye[2] - home.eye[2]) < 0.01);
  const near = await after('+');
  assert.ok(distance(near.eye, home.target) < 0.9 * distance(moved.eye, home.target));
  const above = await after('t');
  assert.ok(Math.abs(above.eye[2] - above.target[2]) > 0.999 * distance(above.eye, above.target));
  const again = await after('Home');
  assert.deepEqual([again.eye, again.target], [home.eye, home.target]);
  assert.equal((await after('3')).fields.get('color'), 'intensity');
  await after('?');
  assert.ok(await page.$eval('#help', (help) => help.open));
  await after('Escape');
  assert.ok(!(await page.$eval('#help', (help) => help.open)));
  // The first stop of the Tab key is seen.
  await page.keyboard.press('Tab');
  assert.notEqual(await page.evaluate(() => document.activeElement.tagName), 'BODY');
});

test('a small screen has room, and fingers turn, zoom and pick', { timeout }, async () => {
  const page = await open(small, 5, { width: 390, height: 844, isMobile: true, hasTouch: true });
  const home = await readView(page);
  const layout = await page.evaluate(() => ({
    width: document.documentElement.scrollWidth,
    canvas: document.querySelector('#canvas').clientHeight,
    panel: document.querySelector('#panel').inert,
    small: [...document.querySelectorAll('#toolbar button')].map((button) => button.getBoundingClientRect())
      .filter(({ width, height }) => width < 40 || height < 40).length,
  }));
  assert.deepEqual({ ...layout, canvas: layout.canvas > 600 }, { width: 390, canvas: true, panel: true, small: 0 });

  const finger = await page.touchscreen.touchStart(200, 400);
  for (let x = 210; x <= 280; x += 20) await finger.move(x, 400);
  await finger.end();
  const turned = await readView(page);
  assert.ok(distance(turned.eye, home.eye) > 5);
  const [left, right] = [await page.touchscreen.touchStart(150, 400), await page.touchscreen.touchStart(240, 400)];
  for (let step = 20; step <= 60; step += 20) {
    await left.move(150 - step, 400);
    await right.move(240 + step, 400);
  }
  await left.end();
  await right.end();
  assert.ok(distance((await readView(page)).eye, home.target) < 0.8 * distance(turned.eye, home.target));
  await page.touchscreen.tap(195, 422);
  await page.waitForSelector('#point-card dl dt ~ dt');
  const card = await readCard(page);
  assert.match(`${card.X} ${card.Y}`, /^500\d{3}\.\d\d 4100\d{3}\.\d\d$/);
});

test('a file that is dropped on the page is shown', { timeout }, async () => {
  const page = await open('/viewer/');
  await page.waitForFunction(() => window.vxviewer?.state().status === 'empty');
  const data = { items: [], files: [join(folder, 'small.vxl')], dragOperationsMask: 1 };
  const session = await page.createCDPSession();
  for (const type of ['dragEnter', 'dragOver', 'drop'])
    await session.send('Input.dispatchDragEvent', { type, x: 300, y: 300, data });
  await page.waitForFunction(() => window.vxviewer.state().shownPoints > 0);
  assert.equal(await page.title(), 'small.vxl – Point cloud viewer');
});

test('errors are shown in words, and lost connections can be tried again', { timeout }, async () => {
  const alertOf = async (page) => {
    const text = await page.waitForSelector('[role=alert] p', { visible: true });
    return text.evaluate((p) => p.textContent);
  };
  const tryAgain = (page) => page.$$eval('[role=alert] button', (buttons) =>
    buttons.find(({ textContent }) => textContent === 'Try again').click());
  assert.match(await alertOf(await open('/viewer/?src=/files/none.vxl')), /^none\.vxl was not found on the server/);
  assert.match(await alertOf(await open('/viewer/?src=/pages/index.html')), /^index\.html cannot be read: not a/);

  let isLost = false;
  const url = server.add((answer) => { if (isLost) answer.sent = 100; });
  const page = await open(`/viewer/?src=${encodeURIComponent(url)}`, 20);
  await page.waitForFunction(() => window.vxviewer?.state().shownPoints > 0);
  isLost = true;
  await page.evaluate((place) => window.vxviewer.setView(place), { position: view.eye, target: view.target });
  assert.match(await alertOf(page), /^hills\.vxl cannot be read: the connection was lost/);
  const lost = await settle(page);
  assert.ok(lost.shownPoints > 0);
  isLost = false;
  await tryAgain(page);
  const { status, error, shownPoints } = await settle(page);
  assert.deepEqual({ status, error }, { status: 'idle', error: null });
  assert.ok(shownPoints > lost.shownPoints);
});

test('no script of a page has failed', () => assert.deepEqual(browser.failures, []));
