import { CloudError, type ByteRange, type ByteSource } from './types.js';

/** Requests at a time; browsers open no more connections to a server. */
export const maxRequests = 6;

/** As ByteSource.readMany(), with a request for each range. */
export async function readEach(
  source: ByteSource, ranges: readonly ByteRange[], count: (bytes: number) => void, signal?: AbortSignal,
): Promise<Uint8Array[]> {
  const received: Uint8Array[] = [];
  let next = 0;
  const runner = async () => {
    while (next < ranges.length) {
      const index = next++;
      const { begin, end } = ranges[index]!;
      const bytes = await source.read(begin, end, signal);
      count(bytes.length);
      received[index] = bytes;
    }
  };
  await Promise.all(Array.from({ length: Math.min(maxRequests, ranges.length) }, runner));
  return received;
}

export function cancelled(): CloudError {
  return new CloudError('aborted', 'The query was cancelled.');
}

/** Rejects as soon as the signal is aborted, though the work may go on. */
export function abortable<T>(work: Promise<T>, signal?: AbortSignal): Promise<T> {
  if (!signal) return work;
  return new Promise<T>((resolve, reject) => {
    const stop = () => reject(cancelled());
    work.then(resolve, reject).finally(() => signal.removeEventListener('abort', stop));
    if (signal.aborted) stop();
    else signal.addEventListener('abort', stop, { once: true });
  });
}
