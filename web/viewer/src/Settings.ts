// How points are drawn, as the user wants it.
import { element, labeled } from './Dom.js';
import { formatCount } from './Text.js';
import type { Viewer } from './Viewer.js';
import { backgrounds, budgets, pointSizes } from './ViewLink.js';

export interface Settings {
  pointSize: number;
  budget: number;
  shading: boolean;
  background: string;
}

// Small screens and fingers are of small devices.
function defaultSettings(isSmall: boolean): Settings {
  return { pointSize: 1, budget: isSmall ? 600_000 : 2_000_000, shading: true, background: 'dark' };
}

// Sliders are logarithmic.
function slider(range: { min: number; max: number }, steps: number): HTMLInputElement {
  return element('input', { type: 'range', min: Math.log2(range.min), max: Math.log2(range.max), step: 1 / steps });
}

/** The settings of a viewer, and their inputs. */
export class SettingsPanel {
  private readonly settings: Settings;
  private readonly size = slider(pointSizes, 8);
  private readonly sizeText = element('output');
  private readonly budget = slider(budgets, 8);
  private readonly budgetText = element('output');
  private readonly shading = element('input', { type: 'checkbox' });
  private readonly background = element('select', {}, ...Object.keys(backgrounds).map((name) =>
    element('option', { value: name }, name[0]!.toUpperCase() + name.slice(1))));

  /** Calls `onChange` when the user changes a setting. */
  constructor(
    box: HTMLElement, private readonly viewer: Viewer, private readonly isSmall: boolean, onChange: () => void,
  ) {
    const settings = this.settings = defaultSettings(isSmall);
    const listen = (input: HTMLElement, read: () => void) => input.addEventListener('input', () => {
      read();
      this.update();
      onChange();
    });
    listen(this.size, () => settings.pointSize = 2 ** Number(this.size.value));
    listen(this.budget, () => {
      const points = 2 ** Number(this.budget.value);
      settings.budget = Number(points.toPrecision(2));
    });
    listen(this.shading, () => settings.shading = this.shading.checked);
    listen(this.background, () => settings.background = this.background.value);
    box.append(
      element('label', { class: 'switch' }, this.shading, 'Shading'),
      labeled('Point size', this.size, this.sizeText),
      labeled('Maximum points', this.budget, this.budgetText),
      labeled('Background', this.background));
    this.update();
  }

  get values(): Readonly<Settings> {
    return this.settings;
  }

  /** The settings that are not the usual ones of this device. */
  get changes(): Partial<Settings> {
    const { pointSize, budget, shading, background } = this.settings;
    const usual = defaultSettings(this.isSmall);
    return {
      ...(pointSize !== usual.pointSize && { pointSize }),
      ...(budget !== usual.budget && { budget }),
      ...(shading !== usual.shading && { shading }),
      ...(background !== usual.background && { background }),
    };
  }

  /** Changes some settings. */
  set({ pointSize, budget, shading, background }: Partial<Settings>): void {
    const { settings } = this;
    settings.pointSize = pointSize ?? settings.pointSize;
    settings.budget = budget ?? settings.budget;
    settings.shading = shading ?? settings.shading;
    settings.background = background ?? settings.background;
    this.update();
  }

  private update(): void {
    const { pointSize, budget, shading, background } = this.settings;
    this.size.value = String(Math.log2(pointSize));
    this.sizeText.textContent = `× ${pointSize.toFixed(2)}`;
    this.budget.value = String(Math.log2(budget));
    this.budgetText.textContent = formatCount(budget);
    this.shading.checked = shading;
    this.background.value = background;
    this.viewer.budget = budget;
    this.viewer.setPointSize(pointSize);
    this.viewer.setShading(shading);
    this.viewer.setBackground(backgrounds[background] ?? backgrounds['dark'] as string);
  }
}
