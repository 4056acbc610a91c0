// The types of the public interface.

/** The bytes from `begin` up to `end`, which is not included. */
export interface ByteRange {
  readonly begin: number;
  readonly end: number;
}

/** A file that is read by byte ranges. Implement it to read files from other places, or with authentication. */
export interface ByteSource {
  /** Used in messages. */
  readonly name: string;
  /** Bytes. */
  readonly size: number;
  /**
   * Reads the bytes from `begin` up to `end`, which is not included. Both are inside the file. Several calls may run at
   * a time. Rejects with a CloudError, or any other error, if the bytes cannot be read, or when `signal` is aborted.
   */
  read(begin: number, end: number, signal?: AbortSignal): Promise<Uint8Array>;
  /**
   * Optional: reads several ranges, which are sorted and disjoint, with fewer requests than ranges. Calls `count` with
   * the bytes of each request.
   */
  readMany?(
    ranges: readonly ByteRange[], count: (bytes: number) => void, signal?: AbortSignal,
  ): Promise<Uint8Array[]>;
  /** Called when the cloud is closed. */
  close?(): void;
}

export type SampleType =
  'uint8' | 'int8' | 'uint16' | 'int16' | 'uint32' | 'int32' | 'uint64' | 'int64' | 'float32' | 'float64';

/** The samples of a channel. 64-bit integers are BigInts. */
export type Samples =
  | Uint8Array | Int8Array | Uint16Array | Int16Array | Uint32Array | Int32Array
  | BigUint64Array | BigInt64Array | Float32Array | Float64Array;

export interface Channel {
  /** 'X', 'Y', 'Z', 'Intensity', 'ReturnNum', 'NumReturns', 'ClassId', 'GPSTime', 'Red', 'Green', 'Blue' and others. */
  readonly name: string;
  readonly type: SampleType;
  /** Significant bits. */
  readonly bits: number;
  /** The step between two values, in the unit of the channel; 0 if there is none. */
  readonly quantization: number;
}

/** Both corners belong to the box. */
export interface Box {
  readonly min: readonly [number, number, number];
  readonly max: readonly [number, number, number];
}

export interface MetadataRecord {
  readonly name: string;
  readonly description: string;
  /** Text, numbers or bytes. */
  readonly value: string | number[] | Uint8Array;
}

/** What is known without decoding points. */
export interface Description {
  readonly name: string;
  /** As 'VX7 4.0.0.4'. */
  readonly format: string;
  readonly size: number;
  readonly numPoints: number;
  /** Level 0 has all points, and each further level half of the points of the level before. */
  readonly numLevels: number;
  readonly bounds: Box;
  readonly channels: readonly Channel[];
  /** The coordinate system, or null. */
  readonly wkt: string | null;
  /** The names of classes 0, 1 and so on; null for a class without a name. */
  readonly classNames: readonly (string | null)[];
  readonly metadata: readonly MetadataRecord[];
  /** Why the metadata is empty or incomplete, if it is damaged; otherwise null. The points can be read. */
  readonly metadataFailure: string | null;
}

/**
 * Points as arrays, by channel. All arrays have `count` samples. X, Y and Z are Float64Arrays of exact coordinates.
 */
export interface Points {
  readonly level: number;
  /** Index, at that level, of the first point that was decoded. */
  readonly first: number;
  readonly count: number;
  readonly channels: Readonly<Record<string, Samples>>;
}

export interface RangeQuery {
  readonly level: number;
  /** Index of the first point at that level. Point i of level l is at position i * 2^l of the file. */
  readonly first: number;
  readonly count: number;
  /** Names of channels besides X, Y and Z; all by default. */
  readonly channels?: readonly string[];
  /** Only points in this box are returned. */
  readonly box?: Box;
  /** Goes before the queries that wait for a decoder, as for a point that the user has chosen. */
  readonly isUrgent?: boolean;
  readonly signal?: AbortSignal;
}

export interface BoxQuery {
  /** All points by default. */
  readonly box?: Box;
  /** 0, all points, by default. */
  readonly level?: number;
  /** Names of channels besides X, Y and Z; all by default. */
  readonly channels?: readonly string[];
  readonly signal?: AbortSignal;
}

export interface OpenOptions {
  /** Web Workers that decode; 0 decodes in the calling thread. By default one fewer than the number of processors, at
      most 8, and 0 in Node.js. */
  readonly workers?: number;
  /** Bytes of the file that are kept; by default 64 MiB. */
  readonly cacheBytes?: number;
  /** Bytes of memory that each decoder may use; by default 1 GiB. */
  readonly maxMemory?: number;
  readonly signal?: AbortSignal;
}

/** Of a cloud, since it was opened. */
export interface Traffic {
  readonly requests: number;
  readonly bytes: number;
}

export type ErrorCode =
  /** The server cannot be reached, or the connection was lost. */
  | 'network'
  /** The server refuses the file, or does not have it. */
  | 'not-found'
  /** The server sends no byte ranges. */
  | 'no-ranges'
  /** The file has changed since it was opened. */
  | 'changed'
  /** This is not a .vxl file, or one of an unsupported version. */
  | 'unsupported'
  /** The file is damaged. */
  | 'damaged'
  /** There is not enough memory. */
  | 'memory'
  /** The query has an argument out of range, or a channel that the file does not have. */
  | 'argument'
  /** The signal of the query was aborted, or the cloud was closed. */
  | 'aborted';

/** The error of all functions. Its message is meant for users and contains the name of the file. */
export class CloudError extends Error {
  constructor(readonly code: ErrorCode, message: string) {
    super(message);
    this.name = 'CloudError';
  }
}

/** An open file. All functions reject with a CloudError. */
export interface Cloud {
  readonly description: Description;
  readonly traffic: Traffic;
  /** How many queries run at the same time; more of them wait. */
  readonly concurrency: number;
  /** The number of points of a level. */
  numPoints(level: number): number;
  /** Decodes a range of points of a level in one step. A few 100,000 points are a good number. */
  readRange(query: RangeQuery): Promise<Points>;
  /**
   * Decodes the points in a box in the order of the file, in blocks. Samples of complete blocks of level 0 are compared
   * with their digests, if the file has them.
   */
  read(query?: BoxQuery): AsyncGenerator<Points, void, void>;
  /** Stops the workers and closes the source. Queries that run are rejected. */
  close(): void;
}
