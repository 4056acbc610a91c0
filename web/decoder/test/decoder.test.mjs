import assert from 'node:assert/strict';
import { mkdtempSync, readFileSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { CloudError, openCloud } from '../dist/node.js';
import { boxQuery, decodeNatively, digestPoints, sampleFiles } from '../../tests/native.mjs';

const temporary = mkdtempSync(join(tmpdir(), 'decoder-'));
after(() => rmSync(temporary, { recursive: true }));

/** Compares everything that native.py describes. Returns the number of errors. */
async function compare(path, native) {
  let cloud;
  try {
    cloud = await openCloud(path);
  } catch (error) {
    assert.ok(error instanceof CloudError, error);
    // Damage of the descriptions is an error of opening here, and of all queries there.
    const expected = native.error ?? Object.values(native.levels ?? {})[0]?.error;
    assert.ok(expected, `${path}: only this decoder refuses it: ${error.message}`);
    compareErrors(error, expected, path);
    return 1;
  }
  let numErrors = 0;
  try {
    const { numPoints, numLevels } = cloud.description;
    assert.equal(native.error, undefined, `${path}: only this decoder opens it`);
    assert.equal(numPoints, native.numPoints, path);
    const queries = Object.entries(native.levels ?? {})
      .filter(([level]) => level < numLevels)
      .map(([level, expected]) => [{ level: Number(level) }, expected]);
    if (native.boxed) queries.push([boxQuery(native.box), native.boxed]);
    for (const [query, expected] of queries) {
      if (expected.error?.includes("codec can't decode")) continue; // names that are no text, in Python
      const found = await digestPoints(cloud, query);
      if (query.box && found.count === 0) continue; // nothing was decoded, so nothing can be wrong
      const place = `${path} ${JSON.stringify(query)}`;
      if (expected.error || found.error) {
        assert.ok(expected.error, `${place}: only this decoder has an error: ${found.error}`);
        assert.ok(found.error, `${place}: only the native decoder has an error: ${expected.error}`);
        compareErrors(found.error, expected.error, place);
        ++numErrors;
      } else {
        assert.deepEqual(found, expected, place);
      }
    }
  } finally {
    cloud.close();
  }
  return numErrors;
}

function compareErrors(error, native, place) {
  const text = native.split(' path = ')[0];
  // Both limit their memory, at different sizes.
  if (error.code === 'memory' || text === 'std::bad_alloc') return;
  // The native module estimates the number of points first, with the index.
  if (error.message.includes('the index: digest differs')) return;
  // Names that are not printable are shown differently.
  const plain = (message) => message.replace(/(\\x[0-9a-f]{2}|[^\x20-\x7e]|\?)+/g, '?');
  assert.ok(plain(error.message).includes(plain(text)), `${place}: ${error.message}, natively: ${text}`);
}

test('values and errors are those of the native decoder', async () => {
  const files = sampleFiles();
  for (const [path, native] of Object.entries(decodeNatively(files))) await compare(path, native);
});

test('damaged files have the same values and errors', async () => {
  let seed = 1;
  const random = (limit) => {
    seed = (Math.imul(seed, 1103515245) + 12345) >>> 0;
    return Math.floor((seed / 2 ** 32) * limit);
  };
  const originals = sampleFiles().filter((path) => statSync(path).size < 30_000);
  const files = [];
  for (let i = 0; i < 600; ++i) {
    const bytes = readFileSync(originals[i % originals.length]);
    for (let n = random(3); n >= 0; --n) bytes[random(bytes.length)] = random(4) === 0 ? 255 : random(256);
    files.push(join(temporary, `${i}.vxl`));
    writeFileSync(files.at(-1), random(8) === 0 ? bytes.subarray(0, random(bytes.length)) : bytes);
  }
  let numErrors = 0;
  for (const [path, native] of Object.entries(decodeNatively(files, 2))) numErrors += await compare(path, native);
  assert.ok(numErrors > 100, `${numErrors} errors`);
});
