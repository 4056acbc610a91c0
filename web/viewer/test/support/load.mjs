// Imports modules of the viewer, which are TypeScript.
import { build } from 'esbuild';
import { fileURLToPath } from 'node:url';

export async function load(name) {
  const { outputFiles } = await build({
    entryPoints: [fileURLToPath(new URL(`../../src/${name}.ts`, import.meta.url))],
    bundle: true, format: 'esm', platform: 'node', write: false, sourcemap: 'inline',
  });
  return import(`data:text/javascript;base64,${Buffer.from(outputFiles[0].contents).toString('base64')}`);
}

/** Numbers from 0 to 1 that are the same in each run (Park and Miller, 1988). */
export function randomNumbers(seed) {
  let state = seed;
  return () => (state = state * 48271 % 2147483647) / 2147483647;
}
