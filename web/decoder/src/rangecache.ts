import { abortable, cancelled, maxRequests, readEach } from './limits.js';
import { CloudError, type ByteRange, type ByteSource, type Traffic } from './types.js';

const pageBytes = 4096;
// A gap of this size is read rather than skipped.
const maxGapPages = 8;
const maxRunPages = 1024;

type Pages = Map<number, Uint8Array>;

/** Consecutive pages. */
interface Run {
  readonly first: number;
  readonly end: number;
}

interface Request {
  readonly abort: AbortController;
  waiters: number;
  readonly done: Promise<Pages>;
  /** Lets queries that come later start a request of their own. */
  readonly forget: () => void;
}

/**
 * Reads byte ranges of a file by pages: joins those that are near each other, shares requests between readers, and
 * keeps the pages that were used last.
 */
export class RangeCache {
  private readonly pages: Pages = new Map(); // the page that was used last is the last one
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
    const isWhole = head.length === source.size;
    const end = isWhole ? Math.ceil(head.length / pageBytes) : Math.floor(head.length / pageBytes);
    for (let page = 0; page < end; ++page)
      this.pages.set(page, head.slice(page * pageBytes, (page + 1) * pageBytes));
  }

  get traffic(): Traffic {
    return { requests: this.numRequests, bytes: this.numBytes };
  }

  /** Returns the bytes of ranges of the file, which are begin, end, begin, end and so on. */
  async read(ranges: readonly number[], signal?: AbortSignal): Promise<Uint8Array[]> {
    // Pages are held here, so that it does not matter which ones the cache drops meanwhile.
    const held: Pages = new Map();
    const missing = new Set<number>();
    for (let i = 0; i + 1 < ranges.length; i += 2) {
      const end = Math.ceil(ranges[i + 1]! / pageBytes);
      for (let page = Math.floor(ranges[i]! / pageBytes); page < end; ++page) {
        const bytes = this.use(page);
        if (bytes) held.set(page, bytes);
        else missing.add(page);
      }
    }
    await this.receive([...missing].sort((a, b) => a - b), held, signal);
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

  private async receive(missing: number[], held: Pages, signal?: AbortSignal): Promise<void> {
    const started = missing.filter((page) => this.requests.has(page)).map((page) => this.requests.get(page)!);
    const runs = joinPages(missing.filter((page) => !this.requests.has(page)));
    const requests = [...new Set(started), ...this.start(runs)];
    for (const request of requests) ++request.waiters;
    try {
      const received = await abortable(Promise.all(requests.map((request) => request.done)), signal);
      for (const pages of received) for (const page of missing) if (pages.has(page)) held.set(page, pages.get(page)!);
    } finally {
      for (const request of requests) {
        if (--request.waiters > 0) continue;
        request.forget();
        request.abort.abort();
      }
    }
    for (const page of this.pages.keys()) {
      if (this.pages.size <= this.maxPages) break;
      this.pages.delete(page);
    }
  }

  /** With one request, if the source can, otherwise with one per run. */
  private start(runs: Run[]): Request[] {
    if (runs.length === 0) return [];
    const groups = this.source.readMany && runs.length > 1 ? [runs] : runs.map((run) => [run]);
    return groups.map((group) => {
      const abort = new AbortController();
      const pages = group.flatMap(({ first, end }) => Array.from({ length: end - first }, (_, i) => first + i));
      const forget = () => {
        for (const page of pages) if (this.requests.get(page) === request) this.requests.delete(page);
      };
      const request: Request = { abort, waiters: 0, done: this.run(group, abort.signal), forget };
      for (const page of pages) if (!this.requests.has(page)) this.requests.set(page, request);
      request.done.then(forget, forget); // its readers report an error
      return request;
    });
  }

  private async run(runs: readonly Run[], signal: AbortSignal): Promise<Pages> {
    if (this.running === maxRequests) await new Promise<void>((resolve) => this.queue.push(resolve));
    else ++this.running;
    try {
      if (signal.aborted) throw cancelled();
      const ranges = runs.map(({ first, end }) => ({
        begin: first * pageBytes, end: Math.min(end * pageBytes, this.source.size),
      }));
      const received = await this.readRanges(ranges, signal);
      const pages: Pages = new Map();
      runs.forEach(({ first, end }, i) => {
        // Copies, so that a page does not keep the bytes around it in memory.
        for (let page = first; page < end; ++page)
          pages.set(page, received[i]!.slice((page - first) * pageBytes, (page - first + 1) * pageBytes));
      });
      for (const [page, bytes] of pages) this.pages.set(page, bytes);
      return pages;
    } finally {
      const next = this.queue.shift();
      if (next) next();
      else --this.running;
    }
  }

  private async readRanges(ranges: readonly ByteRange[], signal: AbortSignal): Promise<Uint8Array[]> {
    const count = (bytes: number) => {
      ++this.numRequests;
      this.numBytes += bytes;
    };
    const { source } = this;
    // The source may have found out meanwhile that it cannot read several ranges.
    const received = ranges.length > 1 && source.readMany
      ? await source.readMany(ranges, count, signal)
      : await readEach(source, ranges, count, signal);
    ranges.forEach(({ begin, end }, i) => {
      if (received[i]?.length !== end - begin)
        throw new CloudError('network', `${source.name} cannot be read: a response has the wrong length.`);
    });
    return received;
  }
}

/** Joins sorted pages to runs. */
function joinPages(pages: readonly number[]): Run[] {
  const runs: { first: number; end: number }[] = [];
  for (const page of pages) {
    const last = runs.at(-1);
    if (last && page - last.end <= maxGapPages && page - last.first < maxRunPages) last.end = page + 1;
    else runs.push({ first: page, end: page + 1 });
  }
  return runs;
}

function join(pages: Pages, begin: number, end: number): Uint8Array {
  const result = new Uint8Array(Math.max(end - begin, 0));
  for (let page = Math.floor(begin / pageBytes); page * pageBytes < end; ++page) {
    const from = Math.max(begin - page * pageBytes, 0);
    const part = pages.get(page)!.subarray(from, end - page * pageBytes);
    result.set(part, page * pageBytes + from - begin);
  }
  return result;
}
