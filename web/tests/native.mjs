// What the native library decodes, and the same of this package.
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { existsSync, readdirSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { CloudError } from '../decoder/dist/node.js';

export const root = fileURLToPath(new URL('../../', import.meta.url));
export const pythonEnvironment = { ...process.env, PYTHONPATH: `${root}build/release/python` };

/** All sample files; without them, that of the repository. */
export function sampleFiles() {
  const vectors = `${root}../shared/vectors/files`;
  const files = existsSync(vectors) ? readdirSync(vectors).filter((name) => name.endsWith('.vxl')) : [];
  return [...files.map((name) => `${vectors}/${name}`), `${root}examples/survey.vxl`];
}

/** As web/tests/native.py prints it. */
export function decodeNatively(files, levels = 4) {
  const script = fileURLToPath(new URL('native.py', import.meta.url));
  const text = execFileSync('/usr/bin/python3', [script, '--levels', levels, ...files],
    { env: pythonEnvironment, maxBuffer: 1 << 28 });
  return JSON.parse(text);
}

/** The digests of the points of a query, as web/tests/native.py has them. */
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
