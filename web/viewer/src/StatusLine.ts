// The line below the canvas.
import type { CloudScene } from './CloudScene.js';
import { formatCount } from './Text.js';

/** How many points are shown, and the coordinates under the pointer. */
export class StatusLine {
  constructor(private readonly counts: HTMLElement, private readonly cursor: HTMLElement) {}

  showCounts(scene: CloudScene | null, isOpening: boolean): void {
    const text = isOpening ? 'Opening …' : scene ? describeCounts(scene) : '';
    // Screen readers would read the same text again.
    if (this.counts.textContent !== text) this.counts.textContent = text;
  }

  showCursor(text: string): void {
    this.cursor.textContent = text;
  }
}

function describeCounts(scene: CloudScene): string {
  const { none, waiting } = scene.pending;
  let text = `${formatCount(scene.numDrawnPoints)} of ${formatCount(scene.cloud.description.numPoints)} points`;
  if (scene.clip || scene.hiddenClasses.size > 0) text += ' (before hiding some)';
  if (waiting > 0) text += ' · trying again after an error';
  else if (none > 0) text += ' · loading';
  return text;
}
