import { cancelled, readEach } from './limits.js';
import { takeRanges } from './multipart.js';
import { CloudError, type ByteRange, type ByteSource } from './types.js';

const headBytes = 65536;
const maxRanges = 100; // of a request; some servers refuse more
const idleTimeout = 30_000; // ms, without any byte
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
  /** Absent if the server does not answer requests for several ranges. */
  readMany?: NonNullable<ByteSource['readMany']>;

  private constructor(
    readonly url: URL,
    readonly name: string,
    readonly size: number,
    /** The first bytes of the file. */
    readonly head: Uint8Array,
    private readonly version: string | null,
    origin: string,
  ) {
    // Other origins would have to allow such requests first.
    if (!globalThis.location || globalThis.location.origin === origin)
      this.readMany = (ranges, count, signal) => this.readTogether(ranges, count, signal);
  }

  /** Asks the server for the first bytes and the size. */
  static async open(url: URL, signal?: AbortSignal): Promise<HTTPSource> {
    const name = nameOf(url);
    return retry(name, signal, async (attempt) => {
      const answer = await request(url, name, [{ begin: 0, end: headBytes }], attempt);
      if (answer.status === 416) throw new CloudError('unsupported', `${name} is empty.`);
      checkStatus(answer, name);
      const head = await readBody(answer, name, attempt);
      checkRange(answer, name, 0, head.length);
      const size = sizeOf(answer) ?? (await askSize(url, name, attempt));
      if (head.length !== Math.min(size, headBytes)) throw connectionLost(name);
      // A redirection may lead to another origin.
      return new HTTPSource(url, name, size, head, versionOf(answer), new URL(answer.url).origin);
    });
  }

  async read(begin: number, end: number, signal?: AbortSignal): Promise<Uint8Array> {
    return retry(this.name, signal, async (attempt) => {
      const answer = await request(this.url, this.name, [{ begin, end }], attempt);
      this.check(answer);
      const bytes = await readBody(answer, this.name, attempt);
      checkRange(answer, this.name, begin, bytes.length);
      if (bytes.length !== end - begin) throw connectionLost(this.name);
      return bytes;
    });
  }

  private async readTogether(
    ranges: readonly ByteRange[], count: (bytes: number) => void, signal?: AbortSignal,
  ): Promise<Uint8Array[]> {
    const received: Uint8Array[] = [];
    while (this.readMany && received.length < ranges.length) {
      const group = ranges.slice(received.length, received.length + maxRanges);
      const taken = await retry(this.name, signal, (attempt) => this.readGroup(group, count, attempt));
      if (taken) received.push(...taken);
      else delete this.readMany;
    }
    return [...received, ...await readEach(this, ranges.slice(received.length), count, signal)];
  }

  /** With one request. Returns null if the server does not answer such requests. */
  private async readGroup(
    ranges: readonly ByteRange[], count: (bytes: number) => void, attempt: Attempt,
  ): Promise<Uint8Array[] | null> {
    const answer = await request(this.url, this.name, ranges, attempt);
    const type = answer.headers.get('Content-Type') ?? '';
    const isOne = answer.status === 206 && !type.toLowerCase().startsWith('multipart/');
    if (isOne || answer.status === 200 || answer.status === 400 || answer.status === 416) {
      void answer.body?.cancel();
      return null; // single requests find out whether it is an error
    }
    this.check(answer);
    const body = await readBody(answer, this.name, attempt);
    count(body.length);
    return takeRanges(type, body, ranges);
  }

  private check(answer: Response): void {
    if (answer.status === 416) throw this.changed();
    checkStatus(answer, this.name);
    const size = sizeOf(answer);
    if (versionOf(answer) !== this.version || (size !== undefined && size !== this.size)) throw this.changed();
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
    this.name = 'name' in blob && typeof blob.name === 'string' ? blob.name : 'the file';
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

function connectionLost(name: string): CloudError {
  return new CloudError('network', `${name} cannot be read: the connection was lost.`);
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

/** The answer must be the range that was asked for, if its header can be seen. */
function checkRange(answer: Response, name: string, begin: number, length: number): void {
  const match = /^bytes\s+(\d+)-(\d+)\//i.exec(answer.headers.get('Content-Range') ?? '');
  if (match && (Number(match[1]) !== begin || (length > 0 && Number(match[2]) < begin + length - 1)))
    throw new CloudError('network', `${name} cannot be read: the server answered with another range of bytes.`);
}

async function askSize(url: URL, name: string, attempt: Attempt): Promise<number> {
  const answer = await fetch(url, { method: 'HEAD', cache: 'no-store', signal: attempt.signal })
    .catch(() => { throw connectionLost(name); });
  const size = Number(answer.headers.get('Content-Length') ?? NaN);
  if (!answer.ok || !Number.isSafeInteger(size))
    throw new CloudError(
      'no-ranges', `The server does not say how large ${name} is. It must expose the header Content-Range.`);
  return size;
}

async function request(
  url: URL, name: string, ranges: readonly ByteRange[], attempt: Attempt,
): Promise<Response> {
  const wanted = ranges.map(({ begin, end }) => `${begin}-${end - 1}`).join(',');
  try {
    // A browser's cache would show the headers of the file that it has stored with the bytes of a newer one.
    return await fetch(url, { headers: { Range: `bytes=${wanted}` }, cache: 'no-store', signal: attempt.signal });
  } catch {
    const reason = 'the server cannot be reached, or does not allow this page to read it';
    throw new CloudError('network', `${name} cannot be read: ${reason}.`);
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

async function readBody(answer: Response, name: string, attempt: Attempt): Promise<Uint8Array> {
  const parts: Uint8Array[] = [];
  let length = 0;
  try {
    const reader = answer.body!.getReader();
    for (let part = await reader.read(); !part.done; part = await reader.read()) {
      attempt.progressed();
      parts.push(part.value);
      length += part.value.length;
    }
  } catch {
    throw connectionLost(name);
  }
  const bytes = new Uint8Array(length);
  let at = 0;
  for (const part of parts) {
    bytes.set(part, at);
    at += part.length;
  }
  return bytes;
}

/** One of several attempts to get an answer. */
interface Attempt {
  readonly signal: AbortSignal;
  /** Bytes have arrived, so that it may take longer. */
  progressed(): void;
}

/** Tries again after errors of the network, with a pause. */
async function retry<T>(
  name: string, signal: AbortSignal | undefined, work: (attempt: Attempt) => Promise<T>,
): Promise<T> {
  for (let attempt = 1; ; ++attempt) {
    const controller = new AbortController();
    const stop = () => controller.abort();
    if (signal?.aborted) stop();
    signal?.addEventListener('abort', stop);
    let timer = setTimeout(stop, idleTimeout);
    const progressed = () => {
      clearTimeout(timer);
      timer = setTimeout(stop, idleTimeout);
    };
    try {
      return await work({ signal: controller.signal, progressed });
    } catch (error) {
      if (signal?.aborted) throw cancelled();
      const isNetwork = !(error instanceof CloudError) || error.code === 'network';
      if (!isNetwork || attempt === maxAttempts) {
        if (!controller.signal.aborted) throw error;
        throw new CloudError('network', `${name} cannot be read: the server does not answer.`);
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
      if (signal?.aborted) reject(cancelled());
      else resolve();
    }
    signal?.addEventListener('abort', done);
  });
}
