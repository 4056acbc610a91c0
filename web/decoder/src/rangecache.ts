import { CloudError, type ByteSource, type Traffic } from './types.js';

const pageBytes = 4096;
// A gap of this size is read rather than asked around.
const maxGapPages = 8;
const maxRequestPages = 1024;
const maxRequests = 6; // at a time; browsers open no more connections to a server

interface Request {
  readonly first: number; // page
  readonly end: number;
  readonly abort: AbortController;
  waiters: number;
  readonly done: Promise<Uint8Array>;
}

/**
 * Reads byte ranges of a file by pages: joins those that are near each other, shares requests between readers, and keeps
 * the pages that were used last.
 */
export class RangeCache {
  private readonly pages = new Map<number, Uint8Array>(); // the page that was used last is the last one
  private readonly requests = new Map<number, Request>(); // by each page that is being received
  private readonly maxPages: number;
  private running = 0;
  private readonly queue: (() => void)[] = [];
  private numRequests: number;
  private numBytes: number;

  /** `head` are the first bytes of the file, if they are known. */
  constructor(private readonly source: ByteSource, maxBytes: number, head: Uint8Array = new Uint8Array()) {
    this.maxPages = Math.max(1, Math.floor(maxBytes / pageBytes));
    this.numRequests = head.length === 0 ? 0 : 1;
    this.numBytes = head.length;
    for (let begin = 0; begin + pageBytes <= head.length || (begin < head.length && head.length === source.size); ) {
      const bytes = head.slice(begin, begin + pageBytes);
      this.pages.set(begin / pageBytes, bytes);
      begin += pageBytes;
    }
  }

  get traffic(): Traffic {
    return { requests: this.numRequests, bytes: this.numBytes };
  }

  /** Returns the bytes of ranges of the file, which are begin, end, begin, end and so on. */
  async read(ranges: readonly number[], signal?: AbortSignal): Promise<Uint8Array[]> {
    // Pages are held here, so that it does not matter which ones the cache drops meanwhile.
    const held = new Map<number, Uint8Array>();
    const wanted: number[] = [];
    for (let i = 0; i + 1 < ranges.length; i += 2) {
      const end = Math.ceil(ranges[i + 1]! / pageBytes);
      for (let page = Math.floor(ranges[i]! / pageBytes); page < end; ++page) {
        const bytes = this.use(page);
        if (bytes) held.set(page, bytes);
        else wanted.push(page);
      }
    }
    await this.receive([...new Set(wanted)].sort((a, b) => a - b), held, signal);
    const results: Uint8Array[] = [];
    for (let i = 0; i + 1 < ranges.length; i += 2) results.push(join(held, ranges[i]!, ranges[i + 1]!));
    return results;
  }

  private use(page: number): Uint8Array | undefined {
    const bytes = this.pages.get(page);
    if (bytes) {
      this.pages.delete(page);
      this.pages.set(page, bytes);
    }
    return bytes;
  }

  private async receive(wanted: number[], held: Map<number, Uint8Array>, signal?: AbortSignal): Promise<void> {
    const sources = new Map<number, Request>();
    for (let i = 0; i < wanted.length; ) {
      const first = wanted[i]!;
      let end = first + 1;
      let request = this.requests.get(first);
      ++i;
      if (!request) {
        for (; i < wanted.length; ++i) {
          const page = wanted[i]!;
          if (page - end > maxGapPages || page - first >= maxRequestPages || this.requests.has(page)) break;
          end = page + 1;
        }
        request = this.start(first, end);
      }
      for (let page = first; page < end; ++page) sources.set(page, request);
    }
    const requests = [...new Set(sources.values())];
    for (const request of requests) ++request.waiters;
    try {
      await abortable(Promise.all(requests.map((request) => request.done)), signal);
    } finally {
      for (const request of requests) if (--request.waiters === 0) request.abort.abort();
    }
    for (const page of wanted) {
      const request = sources.get(page)!;
      held.set(page, pageOf(await request.done, page - request.first));
    }
    this.trim();
  }

  private start(first: number, end: number): Request {
    const abort = new AbortController();
    const request: Request = { first, end, abort, waiters: 0, done: this.run(first, end, abort.signal) };
    request.done.catch(() => undefined); // its readers report it
    for (let page = first; page < end; ++page) if (!this.requests.has(page)) this.requests.set(page, request);
    const forget = () => {
      for (let page = first; page < end; ++page) if (this.requests.get(page) === request) this.requests.delete(page);
    };
    request.done.then(forget, forget);
    return request;
  }

  private async run(first: number, end: number, signal: AbortSignal): Promise<Uint8Array> {
    if (this.running === maxRequests) await new Promise<void>((resolve) => this.queue.push(resolve));
    else ++this.running;
    try {
      if (signal.aborted) throw new CloudError('aborted', 'The query was cancelled.');
      const begin = first * pageBytes;
      const length = Math.min(end * pageBytes, this.source.size) - begin;
      ++this.numRequests;
      const bytes = await this.source.read(begin, begin + length, signal);
      if (bytes.length !== length)
        throw new CloudError('network', `${this.source.name}: the answer has ${bytes.length} bytes instead of ${length}.`);
      this.numBytes += length;
      // Copies, so that a page does not keep the bytes around it in memory.
      for (let page = first; page < end; ++page) this.pages.set(page, pageOf(bytes, page - first).slice());
      return bytes;
    } finally {
      const next = this.queue.shift();
      if (next) next();
      else --this.running;
    }
  }

  private trim(): void {
    for (const page of this.pages.keys()) {
      if (this.pages.size <= this.maxPages) break;
      this.pages.delete(page);
    }
  }
}

function pageOf(bytes: Uint8Array, index: number): Uint8Array {
  return bytes.subarray(index * pageBytes, (index + 1) * pageBytes);
}

function join(pages: Map<number, Uint8Array>, begin: number, end: number): Uint8Array {
  const result = new Uint8Array(Math.max(end - begin, 0));
  for (let page = Math.floor(begin / pageBytes); page * pageBytes < end; ++page) {
    const bytes = pages.get(page);
    if (!bytes) throw new Error('a page was not received'); // cannot happen
    const from = Math.max(begin - page * pageBytes, 0);
    const part = bytes.subarray(from, end - page * pageBytes);
    result.set(part, page * pageBytes + from - begin);
  }
  return result;
}

/** Rejects as soon as the signal is aborted, though the work may go on. */
export function abortable<T>(work: Promise<T>, signal?: AbortSignal): Promise<T> {
  if (!signal) return work;
  return new Promise<T>((resolve, reject) => {
    const stop = () => reject(new CloudError('aborted', 'The query was cancelled.'));
    if (signal.aborted) return stop();
    signal.addEventListener('abort', stop, { once: true });
    work.then(resolve, reject).finally(() => signal.removeEventListener('abort', stop));
  });
}
