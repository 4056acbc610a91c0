import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, renameSync, rmSync, truncateSync, utimesSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { makeCloud } from './native.mjs';
import { startBrowser } from './support/browser.mjs';
import { startFaultyServer } from './support/faults.mjs';

const timeout = 20_000;
const folder = mkdtempSync(join(tmpdir(), 'errors-'));
const path = join(folder, 'hills.vxl');
let browser, content, server;
before(async () => {
  makeCloud(200_000, path);
  content = readFileSync(path);
  server = await startFaultyServer(content);
  browser = await startBrowser({ '/files/': folder });
});
after(async () => {
  await browser?.stop();
  server?.stop();
  rmSync(folder, { recursive: true });
});

/** Of a decode() of a page, which may have failed when it opened the file or when it read it. */
const errorOf = (found) => (found.error ? found : found.results.find(({ error }) => error) ?? found);

const damaged = () => {
  const bytes = Buffer.from(content);
  bytes[Math.floor(bytes.length / 2)] ^= 0x10;
  return bytes;
};

// What is wrong, how, the code and the message, and the number of requests, if it matters.
const cases = [
  ['the file is absent', (answer) => { answer.status = 404; }, 'not-found',
    /^hills\.vxl was not found on the server \(404/, 1],
  ['the server fails', (answer) => { answer.status = 500; }, 'network', /^hills\.vxl .*"500/, 3],
  ['there are no ranges', (answer) => { answer.status = 200; }, 'no-ranges',
    /^hills\.vxl .*does not support range requests/, 1],
  ['other pages are not permitted', (answer) => { answer.sharing = {}; }, 'network',
    /^hills\.vxl .*does not allow this page/],
  ['the file is empty', (answer) => { answer.content = Buffer.alloc(0); }, 'unsupported', /^hills\.vxl is empty/, 1],
  ['the file is a page', (answer) => { answer.content = Buffer.from('<!doctype html>'.repeat(9)); }, 'unsupported',
    /^hills\.vxl .*not a/],
  ['the connection is lost', (answer) => { answer.sent = 1000; }, 'network', /^hills\.vxl .*connection was lost/],
  ['the file has changed', (answer) => { if (answer.count === 2) answer.headers.ETag = '"two"'; }, 'changed',
    /^hills\.vxl has changed on the server/],
  ['the file becomes shorter', (answer) => { if (answer.count > 1) answer.content = content.subarray(0, 70_000); },
    'changed', /^hills\.vxl has changed on the server/],
  ['the file is cut', (answer) => { answer.content = content.subarray(0, content.length / 2); }, 'damaged',
    /^hills\.vxl is damaged: /],
  ['a byte is damaged', (answer) => { answer.content = damaged(); }, 'damaged', /^hills\.vxl is damaged: /],
];

test('errors have codes and messages for users', { timeout, concurrency: true }, async (t) => {
  const page = await browser.open('/pages/');
  await Promise.all(cases.map(([name, fault, code, message, numRequests]) => t.test(name, { timeout }, async () => {
    const url = server.add(fault);
    const found = errorOf(await page.evaluate((source) => window.decode(source), url));
    assert.equal(found.code, code, found.error);
    assert.match(found.error, message);
    if (numRequests !== undefined) assert.equal(server.countRequests(url), numRequests);
  })));
});

test('a server that does not answer is an error', { timeout }, async () => {
  const page = await browser.open('/pages/', 100);
  const silent = server.add((answer) => { answer.isSilent = true; });
  const found = await page.evaluate((source) => window.decode(source), silent);
  assert.deepEqual(found, { code: 'network', error: 'hills.vxl cannot be read: the server does not answer.' });
  assert.equal(server.countRequests(silent), 3);
});

test('lost connections and hidden headers do no harm', { timeout }, async () => {
  const page = await browser.open('/pages/');
  const sources = [
    '/files/hills.vxl',
    server.add((answer) => { if (answer.count === 2) answer.sent = 1000; }),
    server.add((answer) => { delete answer.sharing['Access-Control-Expose-Headers']; }),
  ];
  const [exact, ...others] = await page.evaluate((urls) => Promise.all(urls.map((url) => window.decode(url))), sources);
  assert.equal(exact.results[0].count, 200_000);
  for (const found of others) assert.deepEqual(found, exact);
});

test('a file that is replaced on nginx has changed', { timeout }, async () => {
  const page = await browser.open('/pages/');
  const [served, next] = ['served.vxl', 'next.vxl'].map((name) => join(folder, name));
  writeFileSync(served, content);
  await page.evaluate(async () => { window.cloud = await window.openCloud('/files/served.vxl'); });
  writeFileSync(next, damaged());
  utimesSync(next, 1e9, 1e9); // nginx makes the ETag of the time and the size
  renameSync(next, served);
  const found = await page.evaluate(() => window.cloud.read().next().catch(window.toError));
  assert.equal(found.code, 'changed', found.error);
});

test('queries end at once when they are cancelled, and when the cloud is closed', { timeout }, async () => {
  const page = await browser.open('/pages/');
  let isSilent = false;
  const url = server.add((answer) => { answer.isSilent = isSilent; });
  await page.evaluate(async (source) => { window.cloud = await window.openCloud(source); }, url);
  isSilent = true;
  const [codes, ms] = await page.evaluate(async () => {
    const { cloud } = window;
    const query = { level: 0, first: 100_000, count: 1000 };
    const read = (signal) => cloud.readRange({ ...query, signal }).catch(({ code }) => code);
    const controller = new AbortController();
    const begin = performance.now();
    const queries = [read(controller.signal), read()];
    setTimeout(() => controller.abort(), 100);
    const cancelled = await queries[0];
    cloud.close();
    return [[cancelled, await queries[1], await read()], performance.now() - begin];
  });
  assert.deepEqual(codes, ['aborted', 'aborted', 'aborted']);
  assert.ok(ms < 2000, `${ms} ms`);
});

test('too little memory is an error, and other clouds go on', { timeout }, async () => {
  makeCloud(1_000_000, join(folder, 'large.vxl'));
  const page = await browser.open('/pages/');
  const [small, large] = await page.evaluate((source) => Promise.all(
    [window.decode(source, [{}], { maxMemory: 2 ** 24 }), window.decode(source)]), '/files/large.vxl');
  assert.deepEqual(errorOf(small), { code: 'memory', error: 'There is not enough memory to decode large.vxl.' });
  assert.equal(large.results[0].count, 1_000_000);
});

test('a file of the user is read, and must not change', { timeout }, async () => {
  const page = await browser.open('/pages/');
  const chosen = join(folder, 'chosen.vxl');
  writeFileSync(chosen, content);
  await (await page.$('input')).uploadFile(chosen);
  const [local, remote] = [await page.evaluate(() => window.decode()),
    await page.evaluate(() => window.decode('/files/hills.vxl'))];
  assert.deepEqual(local, remote);
  truncateSync(chosen, 100_000);
  assert.deepEqual(errorOf(await page.evaluate(() => window.decode())),
    { code: 'changed', error: 'chosen.vxl cannot be read. It may have changed since it was opened.' });
});

test('no script of a page has failed', () => assert.deepEqual(browser.failures, []));
