import { notStarted, type Answer, type FileBytes, type Job } from './protocol.js';
import type { Session, SessionOptions } from './session.js';

/** A decoder in this thread or in a worker. It does one job at a time. */
export interface Decoder {
  /** As Session.step(). */
  step(job: Job, added: FileBytes[]): Promise<Answer>;
  /** Ends a job. */
  end(): void;
  close(): void;
}

export class LocalDecoder implements Decoder {
  constructor(private readonly session: Session) {}

  step(job: Job, added: FileBytes[]): Promise<Answer> {
    return this.session.step(job, added);
  }

  end(): void {
    this.session.end();
  }

  close(): void {}
}

export class WorkerDecoder implements Decoder {
  private readonly worker: Worker;
  private settle: ((answer: Answer) => void) | undefined;
  private failure: Answer | undefined;

  constructor(url: URL, options: SessionOptions) {
    this.worker = new Worker(url, { type: 'module' });
    this.worker.onmessage = ({ data }: MessageEvent<Answer>) => this.answer(data);
    this.worker.onerror = (event) => this.fail(event.message || 'the worker cannot be started');
    this.worker.onmessageerror = () => this.fail('a message of the worker cannot be read');
    this.worker.postMessage(options);
  }

  step(job: Job, added: FileBytes[]): Promise<Answer> {
    if (this.failure) return Promise.resolve(this.failure);
    return new Promise((resolve) => {
      this.settle = resolve;
      this.worker.postMessage({ job, added });
    });
  }

  end(): void {
    this.worker.postMessage('end');
  }

  close(): void {
    this.worker.terminate();
    this.fail('the worker was stopped');
  }

  private answer(answer: Answer): void {
    this.settle?.(answer);
    this.settle = undefined;
  }

  private fail(message: string): void {
    this.failure = { kind: 'error', code: notStarted, message };
    this.answer(this.failure);
  }
}
