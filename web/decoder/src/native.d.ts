// The interface of the module that CMake builds from cpp/.
declare module '*/build/decoder.mjs' {
  interface NativeError {
    error: { code: number; message: string };
  }
  /** Byte ranges as begin, end, begin, end and so on. */
  interface NativeMissing {
    missing: number[];
  }
  type NativeAnswer<T> = T | NativeError | NativeMissing;

  export interface NativeDescription {
    format: string;
    numPoints: number;
    numLevels: number;
    bounds: { min: [number, number, number]; max: [number, number, number] };
    channels: { name: string; type: string; bits: number; quantization: number }[];
    wkt: string | null;
    classNames: (string | null)[];
    metadata: { name: string; description: string; value: string | number[] | Uint8Array }[];
    metadataFailure: string | null;
  }
  export interface NativeSession {
    open(): NativeAnswer<NativeDescription>;
    add(offset: number, length: number): NativeAnswer<Uint8Array>;
    drop(): void;
    findRanges(level: number, box: unknown): NativeAnswer<number[]>;
    /** Returns X, Y and Z, then the channels with these indices. */
    decode(level: number, ranges: number[], box: unknown, channels: number[], verifies: boolean):
      NativeAnswer<{ count: number; channels: { type: string; bytes: Uint8Array<ArrayBuffer> }[] }>;
    delete(): void;
  }
  export interface NativeModule {
    Session: new (size: number) => NativeSession;
  }
  export default function createModule(options: {
    wasmMemory: WebAssembly.Memory;
    instantiateWasm(
      imports: WebAssembly.Imports,
      done: (instance: WebAssembly.Instance, module: WebAssembly.Module) => void,
    ): object;
    inflateRaw(stream: Uint8Array, out: Uint8Array): string;
  }): Promise<NativeModule>;
}
