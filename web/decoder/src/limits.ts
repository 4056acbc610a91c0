import { CloudError } from './types.js';

/** The results of all values, of which `limit` are worked on at a time. */
export async function mapLimited<T, R>(
  values: readonly T[], limit: number, work: (value: T) => Promise<R>,
): Promise<R[]> {
  const results: R[] = [];
  let next = 0;
  const runner = async () => {
    while (next < values.length) {
      const index = next++;
      results[index] = await work(values[index]!);
    }
  };
  await Promise.all(Array.from({ length: Math.min(limit, values.length) }, runner));
  return results;
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
