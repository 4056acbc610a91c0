/**
 * Decodes .vxl point clouds in browsers. index.js loads worker.js and decoder.wasm from its own folder.
 *
 * ```
 * const cloud = await openCloud('https://example.com/survey.vxl');
 * for await (const points of cloud.read({ box, level: 2, channels: ['ClassId'] })) {
 *   const { X, Y, Z, ClassId } = points.channels;
 * }
 * ```
 */
import { openWith, toURL, type Platform } from './open.js';
import type { Session } from './session.js';
import { HTTPSource } from './sources.js';
import { CloudError, type ByteSource, type Cloud, type OpenOptions } from './types.js';

export * from './types.js';
export { HTTPSource, BlobSource } from './sources.js';

const workerURL = new URL('./worker.js', import.meta.url);
const wasmURL = new URL('./decoder.wasm', import.meta.url);
let compiled: Promise<WebAssembly.Module> | undefined;

async function compile(): Promise<WebAssembly.Module> {
  const answer = await fetch(wasmURL).catch(() => undefined);
  if (!answer?.ok) throw new CloudError('network', 'The decoder (decoder.wasm) cannot be loaded from the server.');
  // Servers that do not know the type of .wasm files prevent compileStreaming().
  return /^application\/wasm/.test(answer.headers.get('Content-Type') ?? '')
    ? WebAssembly.compileStreaming(answer)
    : WebAssembly.compile(await answer.arrayBuffer());
}

const browser: Platform = {
  loadModule() {
    compiled ??= compile();
    compiled.catch(() => (compiled = undefined)); // the next call tries again
    return compiled;
  },
  defaultWorkers: Math.min(Math.max((globalThis.navigator?.hardwareConcurrency ?? 2) - 1, 1), 8),
  workerURL,
  async loadSession() {
    const worker: { Session: typeof Session } = await import(workerURL.href);
    return worker.Session;
  },
  openNamed: async (name, signal) => HTTPSource.open(toURL(name, globalThis.location?.href), signal),
};

/** Opens a file by its URL, which may be relative to the page, a File of the user, or another source of bytes. */
export function openCloud(source: string | URL | Blob | ByteSource, options?: OpenOptions): Promise<Cloud> {
  return openWith(browser, source, options);
}
