import assert from 'node:assert/strict';
import { test } from 'node:test';
import { load } from './support/load.mjs';

const { NodeLoader } = await load('NodeLoader');

// A cloud whose queries end when the test says so.
function makeLoader(concurrency) {
  const queries = [];
  const seen = { loaded: [], failed: [], wakes: 0 };
  let time = 0;
  const cloud = {
    concurrency,
    readRange: ({ first, signal }) => new Promise((resolve, reject) => {
      const query = { first, end: () => resolve({}), fail: (code) => reject({ code }), signal };
      signal.addEventListener('abort', () => reject({ code: 'aborted' }));
      queries.push(query);
    }),
  };
  const loader = new NodeLoader(cloud, {
    loaded: (job) => seen.loaded.push(job.node.first),
    failed: (job, error, isFinal) => seen.failed.push([job.node.first, error.code, isFinal]),
    wake: () => ++seen.wakes,
  }, () => time);
  const settle = () => new Promise((resolve) => setImmediate(resolve));
  return { loader, queries, seen, settle, advance: (by) => time += by };
}

const jobs = Array.from({ length: 8 }, (_, first) => ({ node: { first, level: 0, count: 1 }, channels: [] }));

test('the most needed nodes are loaded first, and others are aborted', async () => {
  const { loader, queries, seen, settle } = makeLoader(2);
  loader.update(jobs);
  assert.deepEqual(queries.map((query) => query.first), [0, 1]);
  loader.update([jobs[5], jobs[1], jobs[6]]);
  assert.deepEqual(queries.map((query) => query.signal.aborted), [true, false]);
  await settle();
  assert.equal(seen.wakes, 1);
  assert.deepEqual(seen.failed, []);
  loader.update([jobs[5], jobs[1], jobs[6]]);
  assert.deepEqual(queries.map((query) => query.first), [0, 1, 5]);
  queries[1].end();
  await settle();
  assert.deepEqual(seen.loaded, [1]);
  loader.close();
  await settle();
  assert.deepEqual([seen.failed, seen.wakes], [[], 1]);
});

test('damage of a node does not stop the others, and is not read again', async () => {
  const { loader, queries, seen, settle, advance } = makeLoader(1);
  loader.update(jobs.slice(0, 2));
  queries[0].fail('damaged');
  await settle();
  advance(1e6);
  loader.update(jobs.slice(0, 2));
  assert.deepEqual(queries.map((query) => query.first), [0, 1]);
  assert.deepEqual(seen.failed, [[0, 'damaged', true]]);
  assert.equal(loader.failureOf(jobs[0].node), 'final');
  queries[1].end();
  await settle();
  loader.retry();
  loader.update(jobs.slice(0, 1));
  assert.equal(queries.length, 3);
  loader.close();
});

test('a lost connection is tried a few times, with pauses, and again on demand', async () => {
  const { loader, queries, seen, settle, advance } = makeLoader(4);
  const failAll = async () => {
    const before = queries.length;
    loader.update(jobs);
    queries.slice(before).forEach((query) => query.fail('network'));
    await settle();
    return queries.length - before;
  };
  assert.equal(await failAll(), 4);
  assert.equal(loader.failureOf(jobs[7].node), 'waiting');
  assert.equal(await failAll(), 0);
  let tries = 0;
  for (let i = 0; i < 60; ++i) {
    advance(500);
    const started = await failAll();
    assert.ok(started <= 1);
    tries += started;
  }
  assert.ok(tries >= 1 && tries <= 4);
  assert.equal(loader.failureOf(jobs[7].node), 'final');
  assert.equal(seen.failed.at(-1)[2], true);
  loader.retry();
  loader.update(jobs);
  assert.equal(loader.numRunning, 4);
  queries.at(-1).end();
  await settle();
  assert.equal(loader.failureOf(jobs[7].node), 'none');
  loader.close();
});
