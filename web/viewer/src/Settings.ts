// How points are drawn, as the user wants it.
import { backgrounds, budgets, pointSizes } from './ViewLink.js';
import { element, labeled } from './Dom.js';
import { formatCount } from './Text.js';

export interface Settings {
  pointSize: number;
  budget: number;
  shading: boolean;
  background: string;
}

/** Small screens and fingers are of small devices. */
export function defaultSettings(isSmall: boolean): Settings {
  return { pointSize: 1, budget: isSmall ? 600_000 : 2_000_000, shading: true, background: 'dark' };
}

// Sliders are logarithmic.
function slider(range: { min: number; max: number }, steps: number): HTMLInputElement {
  return element('input', { type: 'range', min: Math.log2(range.min), max: Math.log2(range.max), step: 1 / steps });
}

/** The inputs of the settings. */
export class SettingsPanel {
  private readonly size = slider(pointSizes, 8);
  private readonly sizeText = element('output');
  private readonly budget = slider({ min: budgets.min, max: 10_000_000 }, 8);
  private readonly budgetText = element('output');
  private readonly shading = element('input', { type: 'checkbox' });
  private readonly background = element('select', {}, ...Object.keys(backgrounds).map((name) =>
    element('option', { value: name }, name[0]!.toUpperCase() + name.slice(1))));

  constructor(box: HTMLElement, private readonly settings: Settings, onChange: () => void) {
    const listen = (input: HTMLElement, apply: () => void) => input.addEventListener('input', () => {
      apply();
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
      element('label', { class: 'switch' }, this.shading, 'Shade shapes'),
      labeled('Point size', this.size, this.sizeText),
      labeled('Most points', this.budget, this.budgetText),
      labeled('Background', this.background));
    this.update();
  }

  /** Shows settings that were changed elsewhere. */
  update(): void {
    const { pointSize, budget, shading, background } = this.settings;
    this.size.value = String(Math.log2(pointSize));
    this.sizeText.textContent = `× ${pointSize.toFixed(2)}`;
    this.budget.value = String(Math.log2(budget));
    this.budgetText.textContent = formatCount(budget);
    this.shading.checked = shading;
    this.background.value = background;
  }
}
