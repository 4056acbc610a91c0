import assert from 'node:assert/strict';
import { basename } from 'node:path';
import { after, before, test } from 'node:test';
import { decodeNatively, root, sampleFiles } from './native.mjs';
import { startBrowser } from './support/browser.mjs';

let browser, natives;
before(async () => {
  natives = decodeNatively(sampleFiles());
  browser = await startBrowser({ '/vectors/': `${root}../shared/vectors/files/`, '/examples/': `${root}examples/` });
});
after(() => browser?.stop());

/** An error of this decoder contains the text of the native one. */
function compare(found, expected, place) {
  if (expected.error) assert.ok(found.error?.includes(expected.error.split(' path = ')[0]), `${place}: ${found.error}`);
  else if (expected.count === 0) assert.equal(found.count, 0, place);
  else assert.deepEqual(found, expected, place);
}

for (const [where, options] of [['Workers decode', { workers: 3 }], ['A page decodes', { workers: 0 }]])
  test(`${where} the values and errors of the native decoder`, { timeout: 60_000 }, async () => {
    const page = await browser.open('/pages/');
    let numPoints = 0;
    for (const [path, native] of Object.entries(natives)) {
      const expected = Object.values(native.levels ?? {});
      const queries = expected.map((_, level) => ({ level }));
      if (native.boxed) {
        expected.unshift(native.boxed);
        const [xmin, xmax, ymin, ymax] = native.box; // JSON has no infinity for the elevations
        queries.unshift({ box: { min: [xmin, ymin, -1e300], max: [xmax, ymax, 1e300] } });
      }
      const url = `/${path.includes('/vectors/') ? 'vectors' : 'examples'}/${encodeURIComponent(basename(path))}`;
      const found = await page.evaluate((...args) => window.decode(...args), url, queries, options);
      if (found.error || native.error) {
        compare(found, native.error ? native : expected[0], path);
        continue;
      }
      assert.equal(found.numPoints, native.numPoints, path);
      found.results.forEach((result, i) => compare(result, expected[i], `${path} ${JSON.stringify(queries[i])}`));
      numPoints += found.results.length && found.numPoints;
    }
    assert.ok(numPoints >= 2400, `${numPoints} points`);
    assert.deepEqual(browser.failures, []);
    await page.close();
  });
