// Bundles the loader, with the glue of the WebAssembly module and the inflater, to dist/.
import { build } from 'esbuild';
import { copyFile, mkdir, readFile, writeFile } from 'node:fs/promises';

const common = {
  bundle: true, format: 'esm', minify: true, target: 'es2022', legalComments: 'none', logLevel: 'warning',
};
const notices = {
  vxunpack: '../../LICENSE',
  pako: '../node_modules/pako/LICENSE',
  'the C and C++ libraries of Emscripten': '/usr/share/doc/emscripten/copyright',
  xxHash: '/usr/share/doc/libxxhash-dev/copyright',
};

/** What the licenses of the parts ask for. */
async function writeNotices() {
  const texts = Object.entries(notices).map(async ([name, path]) =>
    `=== ${name} ===\n\n${await readFile(path, 'utf8')}`);
  await writeFile('dist/LICENSES.txt', (await Promise.all(texts)).join('\n'));
}

await mkdir('dist', { recursive: true });
await Promise.all([
  build({ ...common, entryPoints: ['src/index.ts', 'src/worker.ts'], outdir: 'dist' }),
  build({ ...common, entryPoints: ['src/node.ts'], outdir: 'dist', platform: 'node' }),
  copyFile('build/decoder.wasm', 'dist/decoder.wasm'),
  writeNotices(),
]);
