// Bundles the loader, with the glue of the WebAssembly module and the inflater, to dist/.
import { build } from 'esbuild';
import { copyFile, mkdir } from 'node:fs/promises';

const common = { bundle: true, format: 'esm', minify: true, target: 'es2022', legalComments: 'none', logLevel: 'warning' };
await mkdir('dist', { recursive: true });
await Promise.all([
  build({ ...common, entryPoints: ['src/index.ts', 'src/worker.ts'], outdir: 'dist' }),
  build({ ...common, entryPoints: ['src/node.ts'], outdir: 'dist', platform: 'node' }),
  copyFile('build/decoder.wasm', 'dist/decoder.wasm'),
]);
