// A Web Worker with one decoder. Messages are a Start, then Requests, which are answered in their order. A page that
// decodes in its own thread imports this module, too, so that there is only one copy of the decoder.
import type { Answer, FileBytes, Job } from './protocol.js';
import { Session, type SessionOptions } from './session.js';

export { Session };

export type Start = SessionOptions;
export type Request = { job: Job; added: FileBytes[] } | 'end';

let session: Session | undefined;

// A part of the type of a worker's global object; the other one is that of a window.
const scope = globalThis as unknown as {
  onmessage: (event: MessageEvent<Start | Request>) => void;
  postMessage(message: Answer, transfer: Transferable[]): void;
};

if (typeof document === 'undefined') scope.onmessage = async ({ data }) => {
  if (data === 'end') {
    session?.end();
  } else if ('module' in data) {
    session = new Session(data);
  } else if (session) {
    const answer = await session.step(data.job, data.added);
    const arrays = answer.kind === 'points' ? answer.value.samples : [];
    scope.postMessage(answer, arrays.map((array) => array.buffer as ArrayBuffer));
  }
};
