import createModule, { type NativeAnswer, type NativeModule, type NativeSession } from '../build/decoder.mjs';
import { inflateRaw } from './inflate.js';
import { crashed, outOfMemory, type Answer, type FileBytes, type Job } from './protocol.js';
import type { SampleType, Samples } from './types.js';

const pageBytes = 65536;
const initialPages = 256; // as linked

export interface SessionOptions {
  readonly module: WebAssembly.Module;
  readonly fileSize: number;
  readonly maxMemory: number;
}

/**
 * An instance of the decoder, for one file. Its memory does not shrink, but is bounded. After a crash, as by a stack
 * overflow, it starts again with an empty memory, and the file must be opened again.
 */
export class Session {
  private native: NativeSession | undefined;

  constructor(private readonly options: SessionOptions) {}

  /** Adds bytes and does a job as far as it can. Call it again with the bytes that are missing. */
  async step(job: Job, added: readonly FileBytes[]): Promise<Answer> {
    try {
      this.native ??= await this.start();
      const session = this.native;
      for (const { begin, bytes } of added) {
        const memory = session.add(begin, bytes.length);
        if (!(memory instanceof Uint8Array)) return toAnswer(memory, () => this.lost());
        memory.set(bytes);
      }
      switch (job.kind) {
        case 'open':
          return toAnswer(session.open(), (value) => ({ kind: 'opened', value }));
        case 'ranges':
          return toAnswer(session.findRanges(job.level, job.box), (value) => ({ kind: 'ranges', value }));
        case 'points':
          return toAnswer(
            session.decode(job.level, job.ranges, job.box, job.channels, job.verifies),
            ({ count, channels }) => ({ kind: 'points', value: { count, samples: channels.map(toSamples) } }),
          );
      }
    } catch (error) {
      this.native = undefined; // in an unknown state
      const isMemory = error instanceof RangeError && /memory/i.test(error.message);
      return { kind: 'error', code: isMemory ? outOfMemory : crashed, message: String(error) };
    }
  }

  /** Ends a job: drops the bytes that were added for it. */
  end(): void {
    this.native?.drop();
  }

  private lost(): Answer {
    return { kind: 'error', code: crashed, message: 'the decoder is in an unknown state' };
  }

  private async start(): Promise<NativeSession> {
    const { module, fileSize, maxMemory } = this.options;
    const maximum = Math.min(Math.max(Math.floor(maxMemory / pageBytes), initialPages), 32768);
    const native = await new Promise<NativeModule>((resolve, reject) => {
      createModule({
        wasmMemory: new WebAssembly.Memory({ initial: initialPages, maximum }),
        instantiateWasm(imports, done) {
          WebAssembly.instantiate(module, imports).then((instance) => done(instance, module)).catch(reject);
          return {};
        },
        inflateRaw,
      }).then(resolve, reject);
    });
    return new native.Session(fileSize);
  }
}

function toAnswer<T>(result: NativeAnswer<T>, wrap: (value: T) => Answer): Answer {
  const object = result as { error?: { code: number; message: string }; missing?: number[] };
  if (object.error) return { kind: 'error', ...object.error };
  if (object.missing) return { kind: 'missing', ranges: object.missing };
  return wrap(result as T);
}

const arrayTypes = {
  uint8: Uint8Array, int8: Int8Array, uint16: Uint16Array, int16: Int16Array, uint32: Uint32Array, int32: Int32Array,
  uint64: BigUint64Array, int64: BigInt64Array, float32: Float32Array, float64: Float64Array,
};

function toSamples({ type, bytes }: { type: string; bytes: Uint8Array<ArrayBuffer> }): Samples {
  return new arrayTypes[type as SampleType](bytes.buffer);
}
