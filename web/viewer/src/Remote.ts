// window.vxviewer: the page for tests, and for pages that embed it.
import type { ColorMode } from './ColorModes.js';
import type { Box, Vector } from './Geometry.js';
import type { Viewer } from './Viewer.js';

/** What the page is doing. */
export interface PageState {
  status: 'empty' | 'opening' | 'refining' | 'idle' | 'error';
  shownPoints: number;
  drawnNodes: number;
  /** Nodes that will be loaded or are being loaded. */
  pendingQueries: number;
  /** Milliseconds from opening to the first frame with points; null before. */
  firstPictureMs: number | null;
  framesRendered: number;
  requests: number;
  bytes: number;
  /** The message that is shown. */
  error: string | null;
}

/** `window.vxviewer`. */
export interface Remote {
  state(): PageState;
  open(source: string | File): Promise<void>;
  /** In coordinates of the file. */
  setView(view: { position: Vector; target: Vector }): void;
  setColor(mode: ColorMode): void;
  setClip(box: Box | null): void;
  setBudget(points: number): void;
  /** The point near a place on the canvas, in CSS pixels: approximate coordinates and position in the file. */
  pick(x: number, y: number): { position: Vector; fileIndex: number } | null;
}

/** The state of a page from what the viewer shows and what only the page knows. */
export function stateOf(
  viewer: Viewer, page: { isOpening: boolean; firstPictureMs: number | null; error: string | null },
): PageState {
  const { scene } = viewer;
  const { firstPictureMs, error } = page;
  const pending = scene?.pending ?? { none: 0, waiting: 0, final: 0 };
  const isBusy = scene !== null &&
    (pending.none + pending.waiting > 0 || scene.numRunning > 0 || viewer.isFramePending);
  const atRest = error !== null ? 'error' : scene ? 'idle' : 'empty';
  return {
    status: page.isOpening ? 'opening' : isBusy ? 'refining' : atRest,
    shownPoints: scene?.numDrawnPoints ?? 0,
    drawnNodes: scene?.selection.drawn.length ?? 0,
    pendingQueries: pending.none + pending.waiting,
    firstPictureMs,
    framesRendered: viewer.framesRendered,
    requests: scene?.cloud.traffic.requests ?? 0,
    bytes: scene?.cloud.traffic.bytes ?? 0,
    error,
  };
}
