// What a cloud and its decoders say to each other.
import type { NativeDescription } from '../build/decoder.mjs';
import type { Box, Samples } from './types.js';

/** Bytes of the file. */
export interface FileBytes {
  readonly begin: number;
  readonly bytes: Uint8Array;
}

/**
 * What a decoder is asked for. `ranges` are first point and number of points of each range; `channels` are indices,
 * since the names of damaged files may not be text.
 */
export type Job =
  | { kind: 'open' }
  | { kind: 'ranges'; level: number; box: Box }
  | { kind: 'points'; level: number; ranges: number[]; box: Box | null; channels: number[]; verifies: boolean };

/** The samples of X, Y, Z and the channels of the job. */
export interface DecodedPoints {
  count: number;
  samples: Samples[];
}

/** The result of a job, or the byte ranges that it needs, as begin, end, begin, end and so on. */
export type Answer =
  | { kind: 'opened'; value: NativeDescription }
  | { kind: 'ranges'; value: number[] }
  | { kind: 'points'; value: DecodedPoints }
  | { kind: 'missing'; ranges: number[] }
  | { kind: 'error'; code: number; message: string };

/** Codes of errors besides those of the library: the decoder has failed, or its worker cannot be loaded. */
export const crashed = -1000;
export const notStarted = -1001;
export const outOfMemory = 48; // ENOMEM of WebAssembly's C library
