import type { Decoder } from './decoders.js';
import { abortable, cancelled } from './limits.js';
import type { RangeCache } from './rangecache.js';
import { crashed, notStarted, outOfMemory, type Answer, type FileBytes, type Job } from './protocol.js';
import {
  CloudError, type Box, type BoxQuery, type ByteSource, type Cloud, type Description, type Points, type RangeQuery,
  type SampleType, type Samples, type Traffic,
} from './types.js';

/** Blocks of digests have this number of points. */
const blockPoints = 2 ** 20;
// Of the library.
const invalidArgument = 40007;
const noSuchChannel = 40012;
const unsupported = 40211;

type Kind = 'opened' | 'ranges' | 'points';
type Result<K extends Kind> = Extract<Answer, { kind: K }>['value'];

interface OpenDecoder {
  readonly decoder: Decoder;
  hasOpened: boolean;
  /** Its worker could not be started. */
  isBroken: boolean;
}

/** A file with decoders that share the bytes received. */
export class DecodedCloud implements Cloud {
  description!: Description; // set by open()
  private readonly idle: OpenDecoder[] = [];
  private readonly all: OpenDecoder[] = [];
  private readonly waiting: ((decoder: OpenDecoder) => void)[] = [];
  private readonly closing = new AbortController();

  private constructor(
    private readonly source: ByteSource,
    private readonly cache: RangeCache,
    readonly concurrency: number,
    private readonly createDecoder: () => Decoder,
  ) {}

  static async open(
    source: ByteSource, cache: RangeCache, concurrency: number, createDecoder: () => Decoder, signal?: AbortSignal,
  ): Promise<DecodedCloud> {
    const cloud = new DecodedCloud(source, cache, concurrency, createDecoder);
    try {
      const native = await cloud.withDecoder(signal, false, (opened) =>
        cloud.work(opened, { kind: 'open' }, 'opened', signal));
      const channels = native.channels.map((channel) => ({ ...channel, type: channel.type as SampleType }));
      cloud.description = { ...native, channels, name: source.name, size: source.size };
    } catch (error) {
      cloud.close();
      throw error;
    }
    return cloud;
  }

  get traffic(): Traffic {
    return this.cache.traffic;
  }

  numPoints(level: number): number {
    this.checkLevel(level);
    const { numPoints } = this.description;
    return numPoints === 0 ? 0 : Math.floor((numPoints - 1) / 2 ** level) + 1;
  }

  async readRange({ level, first, count, channels, box, isUrgent = false, signal }: RangeQuery): Promise<Points> {
    const total = this.numPoints(level);
    if (!Number.isSafeInteger(first) || !Number.isSafeInteger(count) || first < 0 || count < 1 || first + count > total)
      throw new CloudError('argument', `Level ${level} of ${this.source.name} has ${total} points.`);
    return this.decode(level, [first, count], box ?? null, this.choose(channels), false, isUrgent, signal);
  }

  async *read({ box, level = 0, channels, signal }: BoxQuery = {}): AsyncGenerator<Points, void, void> {
    const total = this.numPoints(level);
    const names = this.choose(channels);
    const ranges = box
      ? await this.run({ kind: 'ranges', level, box: checkBox(box) }, 'ranges', signal)
      : total === 0 ? [] : [0, total];
    for (const block of divide(ranges, box ? blockPoints / 8 : blockPoints))
      yield await this.decode(level, block, box ?? null, names, level === 0 && !box, false, signal);
  }

  close(): void {
    this.closing.abort();
    for (const { decoder } of this.all) decoder.close();
    this.source.close?.();
  }

  private checkLevel(level: number): void {
    if (!Number.isInteger(level) || level < 0 || level >= this.description.numLevels)
      throw new CloudError('argument', `${this.source.name} has levels 0 to ${this.description.numLevels - 1}.`);
  }

  /** The indices of the channels of a query, without the coordinates, which every query has. */
  private choose(names: readonly string[] | undefined): number[] {
    const { channels } = this.description;
    const isCoordinate = (name: string) => name === 'X' || name === 'Y' || name === 'Z';
    if (!names) return [...channels.keys()].filter((index) => !isCoordinate(channels[index]!.name));
    const wanted = [...new Set(names)].filter((name) => !isCoordinate(name));
    return wanted.map((name) => {
      const index = channels.findIndex((channel) => channel.name === name);
      if (index < 0) throw new CloudError('argument', `${this.source.name} has no channel "${name}".`);
      return index;
    });
  }

  private async decode(
    level: number, ranges: number[], box: Box | null, channels: number[], verifies: boolean, isUrgent: boolean,
    signal?: AbortSignal,
  ): Promise<Points> {
    const job: Job = { kind: 'points', level, ranges, box: box && checkBox(box), channels, verifies };
    const { count, samples } = await this.run(job, 'points', signal, isUrgent);
    const names = ['X', 'Y', 'Z', ...channels.map((index) => this.description.channels[index]!.name)];
    const byName: Record<string, Samples> = Object.create(null); // a channel may be named "__proto__"
    names.forEach((name, i) => (byName[name] = samples[i]!));
    return { level, first: ranges[0] ?? 0, count, channels: byName };
  }

  private run<K extends Kind>(job: Job, kind: K, signal?: AbortSignal, isUrgent = false): Promise<Result<K>> {
    return this.withDecoder(signal, isUrgent, async (opened) => {
      if (!opened.hasOpened) await this.work(opened, { kind: 'open' }, 'opened', signal);
      return this.work(opened, job, kind, signal);
    });
  }

  private async withDecoder<T>(
    signal: AbortSignal | undefined, isUrgent: boolean, use: (decoder: OpenDecoder) => Promise<T>,
  ): Promise<T> {
    this.throwIfStopped(signal);
    const opened = this.idle.pop() ?? this.addDecoder() ?? await this.waitForDecoder(signal, isUrgent);
    try {
      this.throwIfStopped(signal);
      return await use(opened);
    } finally {
      this.release(opened);
    }
  }

  private addDecoder(): OpenDecoder | undefined {
    if (this.all.length === this.concurrency) return undefined;
    const opened = { decoder: this.createDecoder(), hasOpened: false, isBroken: false };
    this.all.push(opened);
    return opened;
  }

  private async waitForDecoder(signal: AbortSignal | undefined, isUrgent: boolean): Promise<OpenDecoder> {
    let take!: (opened: OpenDecoder) => void;
    const taken = new Promise<OpenDecoder>((resolve) => (take = resolve));
    if (isUrgent) this.waiting.unshift(take);
    else this.waiting.push(take);
    try {
      return await abortable(taken, signal);
    } catch (error) {
      const index = this.waiting.indexOf(take);
      if (index >= 0) this.waiting.splice(index, 1);
      else this.release(await taken);
      throw error;
    }
  }

  /** Passes a decoder on. */
  private release(opened: OpenDecoder): void {
    if (opened.isBroken) {
      this.all.splice(this.all.indexOf(opened), 1);
      opened.decoder.close();
    }
    const next = this.waiting.shift();
    const free = opened.isBroken ? next && this.addDecoder() : opened;
    if (next && free) next(free);
    else if (free) this.idle.push(free);
  }

  /** Repeats a job until it has the bytes that it needs. */
  private async work<K extends Kind>(
    opened: OpenDecoder, job: Job, kind: K, signal?: AbortSignal,
  ): Promise<Result<K>> {
    const { decoder } = opened;
    let added: FileBytes[] = [];
    try {
      for (;;) {
        const answer = await decoder.step(job, added);
        this.throwIfStopped(signal);
        if (answer.kind === 'error') throw this.toError(opened, answer.code, answer.message);
        if (answer.kind !== 'missing') {
          if (answer.kind !== kind) throw new Error('the decoder answered another question');
          if (kind === 'opened') opened.hasOpened = true;
          return answer.value as Result<K>;
        }
        const { ranges } = answer;
        const bytes = await abortable(this.cache.read(ranges, signal), this.closing.signal).catch((error: unknown) => {
          this.throwIfStopped(signal); // says why
          throw error;
        });
        added = bytes.map((part, i) => ({ begin: ranges[2 * i]!, bytes: part }));
      }
    } finally {
      decoder.end();
    }
  }

  private throwIfStopped(signal?: AbortSignal): void {
    if (this.closing.signal.aborted) throw new CloudError('aborted', `${this.source.name} was closed.`);
    if (signal?.aborted) throw cancelled();
  }

  private toError(opened: OpenDecoder, code: number, text: string): CloudError {
    const { name } = this.source;
    const message = text.replace(/[\p{Cc}\p{Cf}]/gu, '?'); // may have names of the file
    if (code === outOfMemory) {
      opened.hasOpened = false; // the memory may have been lost with the instance
      return new CloudError('memory', `There is not enough memory to decode ${name}.`);
    }
    if (code === unsupported) return new CloudError('unsupported', `${name} cannot be read: ${message}.`);
    if (code === invalidArgument || code === noSuchChannel) return new CloudError('argument', `${name}: ${message}.`);
    opened.isBroken = code === notStarted;
    if (code === notStarted) return new CloudError('network', `The decoder (worker.js) cannot be started: ${message}.`);
    if (code === crashed) {
      opened.hasOpened = false;
      return new CloudError('damaged', `${name} cannot be decoded: ${message}.`);
    }
    return new CloudError('damaged', `${name} is damaged: ${message}.`);
  }
}

function checkBox(box: Box): Box {
  const isGood = (corner: unknown) =>
    Array.isArray(corner) && corner.length === 3 && corner.every((value) => typeof value === 'number' && !Number.isNaN(value));
  if (!isGood(box?.min) || !isGood(box?.max))
    throw new CloudError('argument', 'A box has two corners of three numbers.');
  return { min: [...box.min], max: [...box.max] };
}

/** Divides ranges, as first point and number of points, at multiples of `size`. */
function* divide(ranges: readonly number[], size: number): Generator<number[], void, void> {
  let block: number[] = [];
  let blockIndex = -1;
  for (let i = 0; i + 1 < ranges.length; i += 2) {
    const end = ranges[i]! + ranges[i + 1]!;
    for (let first = ranges[i]!; first < end; ) {
      const index = Math.floor(first / size);
      if (index !== blockIndex && block.length !== 0) {
        yield block;
        block = [];
      }
      blockIndex = index;
      const next = Math.min((index + 1) * size, end);
      block.push(first, next - first);
      first = next;
    }
  }
  if (block.length !== 0) yield block;
}
