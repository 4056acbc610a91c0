// Bundles the viewer to dist/: static files for any web server.
//
//   node build.mjs            minified
//   node build.mjs --debug    readable, with source maps
import { build } from 'esbuild';
import { copyFile, mkdir, readFile, rm, writeFile } from 'node:fs/promises';

const here = new URL('./', import.meta.url);
const target = new URL('dist/', here);
const debug = process.argv.includes('--debug');

await rm(target, { recursive: true, force: true });
await mkdir(target, { recursive: true });
await build({
  absWorkingDir: new URL('.', here).pathname,
  entryPoints: ['src/main.ts'],
  outdir: 'dist',
  bundle: true,
  format: 'esm',
  target: 'es2022',
  minify: !debug,
  sourcemap: debug,
  legalComments: 'none',
});
for (const name of ['index.html', 'style.css'])
  await copyFile(new URL(`src/${name}`, here), new URL(name, target));
// What the licenses of the parts ask for.
const ofDecoder = await readFile(new URL('../decoder/dist/LICENSES.txt', here), 'utf8');
const ofThree = await readFile(new URL('../node_modules/three/LICENSE', here), 'utf8');
await writeFile(new URL('LICENSES.txt', target), `${ofDecoder}\n=== three.js ===\n\n${ofThree}`);
// The decoder loads them from the folder of the script.
for (const name of ['worker.js', 'decoder.wasm'])
  await copyFile(new URL(`../decoder/dist/${name}`, here), new URL(name, target));
