// What the native library decodes, and the same of this package.
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { existsSync, readdirSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { CloudError } from '../decoder/dist/node.js';

export const root = fileURLToPath(new URL('../../', import.meta.url));

/** All sample files; without them, that of the repository. */
export function sampleFiles() {
  const vectors = `${root}../shared/vectors/files`;
  const files = existsSync(vectors) ? readdirSync(vectors).filter((name) => name.endsWith('.vxl')) : [];
  return [...files.map((name) => `${vectors}/${name}`), `${root}examples/survey.vxl`];
}

/** Runs a Python program of this folder with the native library. */
function runPython(name, options, input = '') {
  const script = fileURLToPath(new URL(name, import.meta.url));
  const environment = { ...process.env, PYTHONPATH: `${root}build/release/python` };
  return execFileSync('/usr/bin/python3', [script, ...options], { env: environment, input, maxBuffer: 1 << 28 });
}

/** As native.py prints it. */
export function decodeNatively(files, levels = 4) {
  return JSON.parse(runPython('native.py', ['--levels', levels], files.join('\n')));
}

/** Writes a file with hills, houses and trees. */
export function makeCloud(numPoints, path) {
  runPython('make_cloud.py', [numPoints, path]);
}

/** The digests of the points of a query, as native.py has them. */
export async function digestPoints(cloud, query) {
  let count = 0;
  const hashes = {};
  try {
    for await (const points of cloud.read(query)) {
      count += points.count;
      for (const [name, samples] of Object.entries(points.channels)) {
        hashes[name] ??= createHash('sha256');
        hashes[name].update(new Uint8Array(samples.buffer, samples.byteOffset, samples.byteLength));
      }
    }
  } catch (error) {
    if (!(error instanceof CloudError)) throw error;
    return { error };
  }
  const channels = Object.fromEntries(Object.entries(hashes).map(([name, hash]) => [name, hash.digest('hex')]));
  return { count, channels };
}

/** A query of native.py's box. */
export function boxQuery([xmin, xmax, ymin, ymax]) {
  return { box: { min: [xmin, ymin, -Infinity], max: [xmax, ymax, Infinity] } };
}
