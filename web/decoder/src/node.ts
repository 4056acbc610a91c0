/** The same for Node.js. Decodes in the calling thread. */
import { open, readFile, type FileHandle } from 'node:fs/promises';
import { basename } from 'node:path';
import { openWith, type Platform } from './open.js';
import { Session } from './session.js';
import { CloudError, type ByteSource, type Cloud, type OpenOptions } from './types.js';

export * from './types.js';
export { HTTPSource, BlobSource } from './sources.js';

/** A file on this computer. */
export class FileSource implements ByteSource {
  private constructor(readonly name: string, readonly size: number, private readonly file: FileHandle) {}

  static async open(path: string): Promise<FileSource> {
    try {
      const file = await open(path);
      return new FileSource(basename(path), (await file.stat()).size, file);
    } catch (error) {
      throw new CloudError('not-found', `${path} cannot be opened: ${(error as Error).message}`);
    }
  }

  async read(begin: number, end: number): Promise<Uint8Array> {
    const bytes = new Uint8Array(end - begin);
    let length = 0;
    while (length < bytes.length) {
      const { bytesRead } = await this.file.read(bytes, length, bytes.length - length, begin + length);
      if (bytesRead === 0) throw new CloudError('changed', `${this.name} has become shorter since it was opened.`);
      length += bytesRead;
    }
    return bytes;
  }

  close(): void {
    void this.file.close();
  }
}

let compiled: Promise<WebAssembly.Module> | undefined;

async function compile(): Promise<WebAssembly.Module> {
  return WebAssembly.compile(new Uint8Array(await readFile(new URL('./decoder.wasm', import.meta.url))));
}

const node: Platform = {
  loadModule: () => (compiled ??= compile()),
  defaultWorkers: 0,
  loadSession: async () => Session,
  openNamed: (name) => FileSource.open(name),
};

/** Opens a file by its URL or path, or another source of bytes. */
export function openCloud(source: string | URL | Blob | ByteSource, options?: OpenOptions): Promise<Cloud> {
  return openWith(node, source, options);
}
