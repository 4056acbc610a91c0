import { CloudError, type ByteSource } from './types.js';

const headBytes = 65536;
const answerTimeout = 30_000; // ms
const maxAttempts = 3;
const firstPause = 500; // ms

/** The name of a file in messages. */
export function nameOf(url: URL): string {
  const last = url.pathname.split('/').pop() || url.hostname;
  try {
    return decodeURIComponent(last);
  } catch {
    return last;
  }
}

/** A file on an HTTP server that answers requests for byte ranges. */
export class HTTPSource implements ByteSource {
  private constructor(
    readonly url: URL,
    readonly name: string,
    readonly size: number,
    /** The first bytes of the file. */
    readonly head: Uint8Array,
    private readonly version: string | null,
  ) {}

  /** Asks the server for the first bytes and the size. */
  static async open(url: URL, signal?: AbortSignal): Promise<HTTPSource> {
    const name = nameOf(url);
    return retry(name, signal, async (attempt) => {
      const answer = await request(url, name, 0, headBytes, attempt);
      if (answer.status === 416) throw new CloudError('unsupported', `${name} is empty.`);
      checkStatus(answer, name);
      const head = await readBody(answer, name);
      const size = sizeOf(answer) ?? (await askSize(url, name, attempt));
      if (head.length !== Math.min(size, headBytes))
        throw new CloudError('network', `${name}: the connection was lost.`);
      return new HTTPSource(url, name, size, head, versionOf(answer));
    });
  }

  async read(begin: number, end: number, signal?: AbortSignal): Promise<Uint8Array> {
    return retry(this.name, signal, async (attempt) => {
      const answer = await request(this.url, this.name, begin, end, attempt);
      if (answer.status === 416) throw this.changed();
      checkStatus(answer, this.name);
      const size = sizeOf(answer);
      if (versionOf(answer) !== this.version || (size !== undefined && size !== this.size)) throw this.changed();
      const bytes = await readBody(answer, this.name);
      if (bytes.length !== end - begin) throw new CloudError('network', `${this.name}: the connection was lost.`);
      return bytes;
    });
  }

  private changed(): CloudError {
    return new CloudError('changed', `${this.name} has changed on the server since it was opened. Open it again.`);
  }
}

/** A file that the user chose, or bytes in memory. */
export class BlobSource implements ByteSource {
  readonly name: string;
  readonly size: number;

  constructor(private readonly blob: Blob) {
    this.name = blob instanceof File ? blob.name : 'the file';
    this.size = blob.size;
  }

  async read(begin: number, end: number): Promise<Uint8Array> {
    try {
      return new Uint8Array(await this.blob.slice(begin, end).arrayBuffer());
    } catch {
      throw new CloudError('changed', `${this.name} cannot be read. It may have changed since it was opened.`);
    }
  }
}

function versionOf(answer: Response): string | null {
  return answer.headers.get('ETag') ?? answer.headers.get('Last-Modified');
}

/** From the header "Content-Range: bytes 0-9/100", which other origins must allow scripts to read. */
function sizeOf(answer: Response): number | undefined {
  const match = /\/(\d+)$/.exec(answer.headers.get('Content-Range') ?? '');
  const size = match ? Number(match[1]) : NaN;
  return Number.isSafeInteger(size) ? size : undefined;
}

async function askSize(url: URL, name: string, signal: AbortSignal): Promise<number> {
  const answer = await fetch(url, { method: 'HEAD', signal });
  const size = Number(answer.headers.get('Content-Length') ?? NaN);
  if (!answer.ok || !Number.isSafeInteger(size))
    throw new CloudError('no-ranges', `The server does not say how large ${name} is. It must expose the header Content-Range.`);
  return size;
}

async function request(url: URL, name: string, begin: number, end: number, signal: AbortSignal): Promise<Response> {
  try {
    return await fetch(url, { headers: { Range: `bytes=${begin}-${end - 1}` }, signal });
  } catch {
    throw new CloudError('network', `${name} cannot be read: the server cannot be reached, or does not allow this page to read it.`);
  }
}

function checkStatus(answer: Response, name: string): void {
  if (answer.status === 206) return;
  void answer.body?.cancel();
  if (answer.ok)
    throw new CloudError('no-ranges', `${name} cannot be read: the server does not support range requests.`);
  const status = `${answer.status} ${answer.statusText}`.trim();
  if (answer.status >= 500 || answer.status === 429)
    throw new CloudError('network', `${name} cannot be read: the server answered "${status}".`);
  if (answer.status === 404 || answer.status === 410)
    throw new CloudError('not-found', `${name} was not found on the server (${status}).`);
  throw new CloudError('not-found', `${name} cannot be read: the server refused it (${status}).`);
}

async function readBody(answer: Response, name: string): Promise<Uint8Array> {
  try {
    return new Uint8Array(await answer.arrayBuffer());
  } catch {
    throw new CloudError('network', `${name} cannot be read: the connection was lost.`);
  }
}

/** Tries again after errors of the network, with a pause. */
async function retry<T>(name: string, signal: AbortSignal | undefined, work: (attempt: AbortSignal) => Promise<T>): Promise<T> {
  for (let attempt = 1; ; ++attempt) {
    const controller = new AbortController();
    const stop = () => controller.abort();
    if (signal?.aborted) stop();
    signal?.addEventListener('abort', stop);
    const timer = setTimeout(stop, answerTimeout);
    try {
      return await work(controller.signal);
    } catch (error) {
      if (signal?.aborted) throw new CloudError('aborted', 'The query was cancelled.');
      const isNetwork = !(error instanceof CloudError) || error.code === 'network';
      if (!isNetwork || attempt === maxAttempts) {
        if (controller.signal.aborted) throw new CloudError('network', `${name} cannot be read: the server does not answer.`);
        throw error;
      }
    } finally {
      clearTimeout(timer);
      signal?.removeEventListener('abort', stop);
    }
    await pause(firstPause * attempt, signal);
  }
}

function pause(ms: number, signal?: AbortSignal): Promise<void> {
  return new Promise((resolve, reject) => {
    const timer = setTimeout(done, ms);
    function done(): void {
      clearTimeout(timer);
      signal?.removeEventListener('abort', done);
      if (signal?.aborted) reject(new CloudError('aborted', 'The query was cancelled.'));
      else resolve();
    }
    signal?.addEventListener('abort', done);
  });
}
