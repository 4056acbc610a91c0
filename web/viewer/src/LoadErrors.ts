// Points that cannot be loaded.
import type { CloudError } from '@vxunpack/decoder';
import { messageOf, type ErrorBox } from './ErrorBox.js';
import type { SettingsPanel } from './Settings.js';
import { formatCount } from './Text.js';
import type { Viewer } from './Viewer.js';
import { budgets } from './ViewLink.js';

const memoryPause = 3000; // milliseconds; several nodes fail before the smaller budget has an effect

/** Tells the user about failed nodes, and shows fewer points if memory is short. */
export class LoadErrors {
  private isShown = false;
  private lastMemoryError = -Infinity;

  constructor(
    private readonly errorBox: ErrorBox,
    private readonly viewer: Viewer,
    private readonly settings: SettingsPanel,
    private readonly reopen: () => void,
  ) {}

  /** Begins with another file, for which the caller has hidden the message. */
  reset(): void {
    this.isShown = false;
  }

  report(error: CloudError, isFinal: boolean): void {
    if (error.code === 'memory' && performance.now() - this.lastMemoryError > memoryPause) {
      this.lastMemoryError = performance.now();
      const budget = Math.max(budgets.min, Math.round(this.settings.values.budget / 2));
      this.settings.set({ budget });
      this.errorBox.show(`${messageOf(error)} At most ${formatCount(budget)} points are shown now.`);
    } else if (isFinal && error.code !== 'memory') {
      this.isShown = true;
      // Points of two versions of a file do not fit together.
      const retry = error.code === 'changed' ? this.reopen : () => this.viewer.retry();
      this.errorBox.show(messageOf(error), retry);
    }
    this.viewer.requestFrame();
  }

  /** Hides the message when nothing is missing any more. */
  update(): void {
    if (!this.isShown || this.viewer.scene?.pending.final !== 0) return;
    this.isShown = false;
    this.errorBox.hide();
  }
}
