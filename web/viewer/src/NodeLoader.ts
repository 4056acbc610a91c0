// Queries of nodes: the most needed ones first, as many at a time as the cloud runs, with pauses after failures.
import type { Cloud, CloudError, Points } from '@vxunpack/decoder';
import type { TreeNode } from './NodeTree.js';

/** Channels that a node needs. */
export interface Job {
  readonly node: TreeNode;
  readonly channels: readonly string[];
}

export interface LoaderEvents {
  loaded(job: Job, points: Points): void;
  /** A query has failed. `isFinal` is true if it is not tried again before `retry`. */
  failed(job: Job, error: CloudError, isFinal: boolean): void;
  /** Something may be loaded now that could not be loaded before: time for `update`. */
  wake(): void;
}

/** What has become of a node that is not loaded. */
export type Failure = 'none' | 'waiting' | 'final';

const pauses = [1000, 3000, 8000]; // milliseconds after each failure
const lostAfter = 3; // nodes in a row that could not be read

// Counts failures, and says when the next try is.
class Backoff {
  private count = 0;
  mayPass = true;
  /** Of the clock; Infinity if only the user can decide. */
  nextTry = 0;

  fail(now: number, mayPass: boolean): void {
    this.mayPass = mayPass;
    const pause = mayPass ? pauses[this.count] : undefined;
    ++this.count;
    this.nextTry = pause === undefined ? Infinity : now + pause;
  }
}

/** Loads what `update` asks for. */
export class NodeLoader {
  private readonly running = new Map<TreeNode, AbortController>();
  private readonly failures = new Map<TreeNode, Backoff>();
  // If nothing can be read, it is of no use to try each node.
  private connection = new Backoff();
  private failedInRow = 0;
  private timer: ReturnType<typeof setTimeout> | undefined;
  private isClosed = false;

  constructor(
    private readonly cloud: Pick<Cloud, 'readRange' | 'concurrency'>,
    private readonly events: LoaderEvents,
    private readonly now: () => number = () => performance.now(),
  ) {}

  /** Queries that run. */
  get numRunning(): number {
    return this.running.size;
  }

  failureOf(node: TreeNode): Failure {
    const nextTry = Math.max(this.connection.nextTry, this.failures.get(node)?.nextTry ?? 0);
    return nextTry === 0 ? 'none' : nextTry === Infinity ? 'final' : 'waiting';
  }

  /** Aborts queries that are not among `jobs`, and starts the first ones, up to the concurrency of the cloud. */
  update(jobs: readonly Job[]): void {
    if (this.isClosed) return;
    const wanted = new Set(jobs.map((job) => job.node));
    for (const [node, controller] of this.running) if (!wanted.has(node)) controller.abort();
    clearTimeout(this.timer);
    // One query shows whether the connection is back.
    const maxRunning = this.failedInRow >= lostAfter ? 1 : Math.max(1, this.cloud.concurrency);
    let wakeTime = Infinity;
    for (const job of jobs) {
      if (this.running.size >= maxRunning) break;
      if (this.running.has(job.node)) continue;
      const nextTry = Math.max(this.connection.nextTry, this.failures.get(job.node)?.nextTry ?? 0);
      if (nextTry <= this.now()) void this.run(job);
      else wakeTime = Math.min(wakeTime, nextTry);
    }
    if (wakeTime < Infinity) this.timer = setTimeout(() => this.events.wake(), wakeTime - this.now());
  }

  /** Forgets failures. */
  retry(): void {
    this.failures.clear();
    this.connection = new Backoff();
    this.failedInRow = 0;
  }

  /** Forgets failures that may have passed: those of the network and of memory. */
  retryLost(): void {
    for (const [node, failure] of this.failures) if (failure.mayPass) this.failures.delete(node);
    if (!this.connection.mayPass) return;
    this.connection = new Backoff();
    this.failedInRow = 0;
  }

  /** Aborts everything; there are no events afterwards. */
  close(): void {
    this.isClosed = true;
    clearTimeout(this.timer);
    for (const controller of this.running.values()) controller.abort();
    this.running.clear();
  }

  private async run(job: Job): Promise<void> {
    const { node, channels } = job;
    const controller = new AbortController();
    this.running.set(node, controller);
    try {
      const points = await this.cloud.readRange({
        level: node.level, first: node.first, count: node.count, channels, signal: controller.signal,
      });
      this.running.delete(node);
      this.failures.delete(node);
      this.connection = new Backoff();
      this.failedInRow = 0;
      // Even if it is not wanted any more: it will soon be wanted again.
      if (!this.isClosed) this.events.loaded(job, points);
    } catch (error) {
      this.running.delete(node);
      if (this.isClosed) return;
      if (controller.signal.aborted) this.events.wake(); // another query can start
      else this.fail(job, error as CloudError);
    }
  }

  private fail(job: Job, error: CloudError): void {
    const isLost = error.code === 'network' || error.code === 'changed';
    if (isLost && ++this.failedInRow >= lostAfter) {
      this.connection.fail(this.now(), error.code === 'network');
    } else {
      // Damage stays, but memory is freed.
      const failure = this.failures.get(job.node) ?? new Backoff();
      failure.fail(this.now(), error.code === 'network' || error.code === 'memory');
      this.failures.set(job.node, failure);
    }
    this.events.failed(job, error, this.failureOf(job.node) === 'final');
  }
}
