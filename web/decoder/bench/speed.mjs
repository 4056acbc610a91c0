// Compares this decoder with vxunpack of the release build, both on one processor, and prints their ratio and the sizes of
// what a page loads: taskset -c 0 node bench/speed.mjs FILE.vxl [ROUNDS]
import { spawnSync } from 'node:child_process';
import { statSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { openCloud } from '../dist/node.js';

const [file, rounds = '3'] = process.argv.slice(2);
if (!file) throw new Error('usage: taskset -c 0 node bench/speed.mjs FILE.vxl [ROUNDS]');
const vxunpack = fileURLToPath(new URL('../../../build/release/vxunpack', import.meta.url));

/** All channels of all points, in arrays of JavaScript. */
async function decode() {
  const cloud = await openCloud(file);
  for await (const { count } of cloud.read()) if (count === 0) throw new Error('no points');
  cloud.close();
}

/** To nothing. */
function decodeNatively() {
  const { status, stderr } = spawnSync(vxunpack, ['-i', file, '-o', 'null']);
  if (status !== 0) throw new Error(String(stderr));
}

async function time(work) {
  const begin = performance.now();
  await work();
  return (performance.now() - begin) / 1000;
}

const native = [];
const web = [];
for (let round = 0; round < Number(rounds); ++round) {
  native.push(await time(decodeNatively));
  web.push(await time(decode));
}
const fastest = [native, web].map((times) => Math.min(...times));
console.log(`vxunpack ${fastest[0].toFixed(2)} s, WebAssembly ${fastest[1].toFixed(2)} s: ` +
  `${(fastest[0] / fastest[1]).toFixed(2)} of its speed (the fastest of ${rounds} each)`);
const sizes = ['decoder.wasm', 'worker.js', 'index.js'].map((name) =>
  [name, statSync(new URL(`../dist/${name}`, import.meta.url)).size]);
console.log(`${sizes.map(([name, size]) => `${name} ${size}`).join(', ')}: ` +
  `${sizes.reduce((sum, [, size]) => sum + size, 0)} bytes`);
