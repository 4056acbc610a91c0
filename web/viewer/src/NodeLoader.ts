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
  /** A query that failed can be tried again: time for `update`. */
  wake(): void;
}

const pauses = [1000, 3000, 8000]; // milliseconds after each failure

interface Failure {
  count: number;
  /** Of the clock; Infinity if only `retry` helps. */
  nextTry: number;
}

/** Loads what `update` asks for. */
export class NodeLoader {
  private readonly running = new Map<TreeNode, { readonly job: Job; readonly controller: AbortController }>();
  private readonly failures = new Map<TreeNode, Failure>();
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

  /** How a node is, whose last query has failed. */
  failureOf(node: TreeNode): 'none' | 'waiting' | 'final' {
    const failure = this.failures.get(node);
    return !failure ? 'none' : failure.nextTry === Infinity ? 'final' : 'waiting';
  }

  /** Aborts queries that are not among `jobs`, and starts the first ones that there is room for. */
  update(jobs: readonly Job[]): void {
    if (this.isClosed) return;
    const wanted = new Set(jobs.map((job) => job.node));
    for (const [node, { controller }] of this.running)
      if (!wanted.has(node)) controller.abort();
    clearTimeout(this.timer);
    let wakeTime = Infinity;
    for (const job of jobs) {
      if (this.running.size >= Math.max(1, this.cloud.concurrency)) break;
      if (this.running.has(job.node)) continue;
      const nextTry = this.failures.get(job.node)?.nextTry ?? 0;
      if (nextTry <= this.now()) void this.run(job);
      else wakeTime = Math.min(wakeTime, nextTry);
    }
    if (wakeTime < Infinity) this.timer = setTimeout(() => this.events.wake(), wakeTime - this.now());
  }

  /** Forgets failures. */
  retry(): void {
    this.failures.clear();
  }

  /** Aborts everything; there are no events afterwards. */
  close(): void {
    this.isClosed = true;
    clearTimeout(this.timer);
    for (const { controller } of this.running.values()) controller.abort();
    this.running.clear();
  }

  private async run(job: Job): Promise<void> {
    const { node, channels } = job;
    const controller = new AbortController();
    this.running.set(node, { job, controller });
    try {
      const points = await this.cloud.readRange({
        level: node.level, first: node.first, count: node.count, channels, signal: controller.signal,
      });
      this.running.delete(node);
      this.failures.delete(node);
      // Even if it is not wanted any more: it will soon be wanted again.
      if (!this.isClosed) this.events.loaded(job, points);
    } catch (error) {
      this.running.delete(node);
      if (!this.isClosed) this.fail(job, error as CloudError, controller.signal.aborted);
    }
  }

  private fail(job: Job, error: CloudError, isAborted: boolean): void {
    if (isAborted || error.code === 'aborted') {
      this.events.wake(); // there is room for another query
      return;
    }
    const failure = this.failures.get(job.node) ?? { count: 0, nextTry: 0 };
    // Damage stays, but connections come back, and memory is freed.
    const isPassing = error.code === 'network' || error.code === 'memory';
    const pause = isPassing ? pauses[failure.count] : undefined;
    failure.count += 1;
    failure.nextTry = pause === undefined ? Infinity : this.now() + pause;
    this.failures.set(job.node, failure);
    this.events.failed(job, error, pause === undefined);
  }
}
