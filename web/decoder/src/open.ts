import { DecodedCloud } from './cloud.js';
import { LocalDecoder, WorkerDecoder } from './decoders.js';
import { RangeCache } from './rangecache.js';
import type { Session } from './session.js';
import { BlobSource, HTTPSource } from './sources.js';
import { CloudError, type ByteSource, type Cloud, type OpenOptions } from './types.js';

const defaultCacheBytes = 64 * 2 ** 20;
const defaultMaxMemory = 2 ** 30;

/** What browsers and Node.js do differently. */
export interface Platform {
  loadModule(): Promise<WebAssembly.Module>;
  readonly defaultWorkers: number;
  readonly workerURL?: URL;
  /** For decoding in the calling thread. */
  loadSession(): Promise<typeof Session>;
  /** The source of a name that is not an http or https URL. */
  openNamed(name: string, signal?: AbortSignal): Promise<ByteSource>;
}

export async function openWith(
  platform: Platform, source: string | URL | Blob | ByteSource, options: OpenOptions = {},
): Promise<Cloud> {
  const { signal, workers = platform.defaultWorkers, cacheBytes = defaultCacheBytes, maxMemory = defaultMaxMemory } = options;
  for (const [name, value] of Object.entries({ workers, cacheBytes, maxMemory }))
    if (!(value >= 0)) throw new CloudError('argument', `${name} must be a number that is not negative.`);
  if (workers > 0 && !platform.workerURL) throw new CloudError('argument', 'There are no Web Workers here.');
  const [module, opened] = await Promise.all([platform.loadModule(), openSource(platform, source, signal)]);
  const head = opened instanceof HTTPSource ? opened.head : undefined;
  const cache = new RangeCache(opened, cacheBytes, head);
  const session = { module, fileSize: opened.size, maxMemory };
  const LocalSession = workers > 0 ? undefined : await platform.loadSession();
  const createDecoder = () => LocalSession
    ? new LocalDecoder(new LocalSession(session))
    : new WorkerDecoder(platform.workerURL!, session);
  return DecodedCloud.open(opened, cache, Math.max(Math.floor(workers), 1), createDecoder, signal);
}

async function openSource(
  platform: Platform, source: string | URL | Blob | ByteSource, signal?: AbortSignal,
): Promise<ByteSource> {
  if (source instanceof Blob) return new BlobSource(source);
  if (typeof source === 'string' && !/^https?:/i.test(source)) return platform.openNamed(source, signal);
  if (typeof source === 'string' || source instanceof URL) return HTTPSource.open(toURL(source), signal);
  return source;
}

export function toURL(address: string | URL, base?: string): URL {
  try {
    return new URL(address, base);
  } catch {
    throw new CloudError('argument', `${address} is not an address.`);
  }
}
