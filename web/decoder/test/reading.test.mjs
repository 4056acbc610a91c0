import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createServer } from 'node:http';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { openCloud } from '../dist/node.js';
import { digestPoints, makeCloud } from '../../tests/native.mjs';

const numPoints = 400_000; // more than 16 MiB
const temporary = mkdtempSync(join(tmpdir(), 'decoder-'));
const path = join(temporary, 'hills.vxl');
makeCloud(numPoints, path);
const content = readFileSync(path);
const delimiter = '\r\n--';

/** Changes of an answer, by the path of the URL. `answer.number` counts the requests for that path. */
const faults = {
  '/good': () => undefined,
  '/reversed': (answer) => answer.parts.reverse(),
  '/joined': (answer) => (answer.parts = [[answer.parts[0][0], answer.parts.at(-1)[1]]]),
  '/quoted': (answer) => (answer.type = 'Multipart/Byteranges; charset=x; boundary="B-B"'),
  '/lacking': (answer) => answer.parts.length > 1 && answer.parts.pop(),
  '/garbled': (answer) => (answer.boundary = 'C-C'),
  '/long': (answer) => (answer.describe = (first, last) => `bytes ${first}-${last + 1e6}/${content.length}`),
  '/single': (answer) => answer.parts.length > 1 && (answer.parts = [answer.parts[0]]),
  '/whole-for-many': (answer) => answer.parts.length > 1 && (answer.status = 200),
  '/busy': (answer) => answer.number % 2 === 0 && (answer.status = 503),
  '/cut': (answer) => answer.number % 2 === 0 && (answer.length = 1000),
  '/lost': (answer) => answer.number > 0 && (answer.length = 1000),
  '/changed': (answer) => answer.number > 0 && (answer.etag = '"two"'),
  '/shorter': (answer) => answer.number > 0 && (answer.status = 416),
  '/whole': (answer) => (answer.status = 200),
  '/missing': (answer) => (answer.status = 404),
  '/refused': (answer) => (answer.status = 403),
};

const counts = {};
const happened = new Set(); // paths with a changed answer
let server;
let address;

before(async () => {
  server = createServer((request, response) => {
    const parts = [...(request.headers.range ?? '').matchAll(/(\d+)-(\d+)/g)]
      .map(([, first, last]) => [Number(first), Math.min(Number(last), content.length - 1)]);
    const answer = {
      number: (counts[request.url] = (counts[request.url] ?? -1) + 1),
      status: 206, parts, etag: '"one"', boundary: 'B-B', type: 'multipart/byteranges; boundary=B-B', length: Infinity,
      describe: (first, last) => `bytes ${first}-${last}/${content.length}`,
    };
    const isMany = parts.length > 1;
    const usual = JSON.stringify(answer) + answer.describe(0, 0);
    faults[request.url](answer);
    if (JSON.stringify(answer) + answer.describe(0, 0) !== usual) happened.add(request.url.slice(1));
    const bytes = (first, last) => content.subarray(first, last + 1);
    let body = Buffer.alloc(0);
    const headers = { ETag: answer.etag };
    if (answer.status === 200) {
      body = content;
    } else if (answer.status === 206 && isMany && request.url !== '/single') {
      headers['Content-Type'] = answer.type;
      const pieces = answer.parts.flatMap(([first, last]) => [
        `${delimiter}${answer.boundary}\r\nContent-Type: x/y\r\nContent-Range: ${answer.describe(first, last)}\r\n\r\n`,
        bytes(first, last),
      ]);
      body = Buffer.concat([...pieces, `${delimiter}${answer.boundary}--\r\n`].map((piece) => Buffer.from(piece)));
    } else if (answer.status === 206) {
      headers['Content-Range'] = `bytes ${parts[0][0]}-${parts[0][1]}/${content.length}`;
      body = bytes(...parts[0]);
    }
    response.writeHead(answer.status, { ...headers, 'Content-Length': body.length });
    response.write(body.subarray(0, answer.length));
    if (answer.length < body.length) setTimeout(() => response.destroy(), 20);
    else response.end();
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  address = `http://127.0.0.1:${server.address().port}`;
});
after(() => {
  server.close();
  rmSync(temporary, { recursive: true });
});

// Far from everything, and with separate ranges.
const query = { level: 1, channels: ['Intensity', 'Red'] };

test('any correct answer, and a few failures, give the same points', async () => {
  const cloud = await openCloud(path);
  const expected = await digestPoints(cloud, query);
  cloud.close();
  const good = [
    'good', 'reversed', 'joined', 'quoted', 'lacking', 'garbled', 'long', 'single', 'whole-for-many', 'busy', 'cut',
  ];
  await Promise.all(good.map(async (name) => {
    const remote = await openCloud(`${address}/${name}`);
    assert.deepEqual(await digestPoints(remote, query), expected, name);
    remote.close();
  }));
  assert.deepEqual(good.filter((name) => !happened.has(name)), ['good']);
});

test('errors of servers have codes and the name of the file', async () => {
  const errors = {
    lost: 'network', changed: 'changed', shorter: 'changed', whole: 'no-ranges', missing: 'not-found',
    refused: 'not-found',
  };
  await Promise.all(Object.entries(errors).map(async ([name, code]) => {
    const read = async () => {
      const { error } = await digestPoints(await openCloud(`${address}/${name}`), query);
      if (error) throw error;
    };
    await assert.rejects(read, (error) => error.code === code && error.message.startsWith(`${name} `), name);
    assert.ok(happened.has(name), name);
  }));
  const refused = openCloud('http://127.0.0.1:9/none.vxl');
  await assert.rejects(refused, { code: 'network', message: /^none\.vxl cannot be read/ });
});

/** A source of its own that notes what is read. */
class NotingSource {
  name = 'noted';
  size = content.length;
  running = 0;
  most = 0;
  seen = new Set();
  repeated = 0;

  async read(begin, end, signal) {
    this.most = Math.max(this.most, ++this.running);
    for (let page = begin; page < end; page += 4096) {
      if (this.seen.has(page)) ++this.repeated;
      this.seen.add(page);
    }
    await new Promise((resolve) => setTimeout(resolve, 5));
    --this.running;
    if (signal?.aborted) throw signal.reason;
    return content.subarray(begin, end);
  }
}

test('queries share what they read, and can be cancelled', async () => {
  const source = new NotingSource();
  const cloud = await openCloud(source);
  const count = numPoints / 10;
  const ranges = Array.from({ length: 10 }, (_, i) => ({ level: 0, first: count * i, count }));
  const parts = await Promise.all(ranges.map((query) => cloud.readRange(query)));
  assert.ok(source.repeated < source.seen.size / 20, `${source.repeated} of ${source.seen.size}`); // in gaps
  assert.ok(source.most <= 6);
  const whole = await cloud.readRange({ level: 0, first: 0, count: numPoints });
  assert.deepEqual(parts.flatMap((part) => [...part.channels.X]), [...whole.channels.X]);
  assert.deepEqual(parts.flatMap((part) => [...part.channels.Red]), [...whole.channels.Red]);
  cloud.close();
  await assert.rejects(cloud.readRange(ranges[0]), { code: 'aborted' });

  const other = await openCloud(new NotingSource(), { cacheBytes: 4096 });
  const abort = new AbortController();
  const cancelled = other.readRange({ ...ranges[5], signal: abort.signal });
  const kept = other.readRange(ranges[5]);
  abort.abort();
  await assert.rejects(cancelled, { code: 'aborted' });
  assert.deepEqual((await kept).channels.X, parts[5].channels.X);
  other.close();
});

test('queries are checked', async () => {
  const cloud = await openCloud(path);
  const { numLevels } = cloud.description;
  for (const query of [{ level: numLevels, first: 0, count: 1 }, { level: 0, first: numPoints, count: 1 },
    { level: 0, first: -1, count: 1 }, { level: 0.5, first: 0, count: 1 },
    { level: 0, first: 0, count: 1, channels: ['Pink'] },
    { level: 0, first: 0, count: 1, box: { min: [0, 0], max: [1, 1, 1] } }])
    await assert.rejects(cloud.readRange(query), { code: 'argument' }, JSON.stringify(query));
  const box = { min: [0, 0, 0], max: [1, 1, 1] };
  const none = await cloud.readRange({ level: 0, first: 0, count: 9, channels: [], box });
  assert.deepEqual([none.count, Object.keys(none.channels)], [0, ['X', 'Y', 'Z']]);
  cloud.close();
  const small = await openCloud(path, { maxMemory: 0 }); // the least is 16 MiB
  assert.equal((await small.readRange({ level: 0, first: 0, count: 5000 })).count, 5000);
  await assert.rejects(async () => { for await (const points of small.read()) assert.ok(points); }, { code: 'memory' });
  assert.equal((await small.readRange({ level: 0, first: 0, count: 5000 })).count, 5000);
  small.close();
});
