// Opening files and addresses.
import { openCloud, type Cloud } from '@vxunpack/decoder';
import { printable } from './Text.js';

/** An address, relative to that of the page, or a local file. */
export type Source = string | File;

/** Opens one file at a time. */
export class CloudOpener {
  private opening: AbortController | null = null;

  get isOpening(): boolean {
    return this.opening !== null;
  }

  /** Calls one of the functions, or none if another file is opened before this one is open. */
  async open(source: Source, opened: (cloud: Cloud) => void, failed: (error: unknown) => void): Promise<void> {
    this.opening?.abort();
    const opening = this.opening = new AbortController();
    let cloud: Cloud;
    try {
      cloud = await openCloud(typeof source === 'string' ? toWebAddress(source) : source, { signal: opening.signal });
    } catch (error) {
      if (this.opening !== opening) return;
      this.opening = null;
      failed(error);
      return;
    }
    if (this.opening !== opening) {
      cloud.close();
      return;
    }
    this.opening = null;
    opened(cloud);
  }
}

/** The name of a file before it is open. */
export function nameOf(source: Source): string {
  return typeof source === 'string' ? source.split(/[?#]/)[0]!.split('/').at(-1) || source : source.name;
}

// Other schemes could run scripts, or read what the page may not.
function toWebAddress(source: string): URL {
  let url: URL | null = null;
  try {
    url = new URL(source, location.href);
  } catch {
    // reported below
  }
  if (!url || !['http:', 'https:'].includes(url.protocol))
    throw new Error(`${printable(source, 200)} is not the address of a file on a web server.`);
  return url;
}
