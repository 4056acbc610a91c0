// What colours mean. Classes can be hidden here.
import { modeNames, type ColorMode } from './ColorModes.js';
import { colorOfClass, colorOfNumber, grayRamp, nameOfClass, spectralRamp, toCss, type Color } from './Colors.js';
import { button, element } from './Dom.js';
import type { Range } from './Statistics.js';
import { formatTick, printable } from './Text.js';

export interface LegendContent {
  readonly mode: ColorMode;
  /** In the unit of the file. */
  readonly elevations: Range | null;
  readonly elevationUnit: string;
  readonly intensities: Range | null;
  readonly classes: readonly number[];
  readonly classNames: readonly (string | null)[];
  readonly hiddenClasses: ReadonlySet<number>;
  readonly returns: readonly number[];
}

const mostReturns = 16;

/** Shows the legend in an element, and reports which classes the user hides. */
export class Legend {
  constructor(private readonly box: HTMLElement, private readonly onHide: (codes: ReadonlySet<number>) => void) {}

  update(content: LegendContent): void {
    // Buttons that are replaced lose the focus.
    const focused = this.box.contains(document.activeElement) ? document.activeElement?.getAttribute('data-key') : null;
    const parts = this.makeParts(content);
    this.box.hidden = parts.length === 0;
    this.box.replaceChildren(...parts);
    if (focused) this.box.querySelector<HTMLElement>(`[data-key="${focused}"]`)?.focus();
  }

  private makeParts(content: LegendContent): HTMLElement[] {
    const { mode, elevations, intensities, hiddenClasses } = content;
    const parts: HTMLElement[] = [];
    const title = (text: string) => element('h2', {}, text);
    if (mode === 'elevation' && elevations) {
      const unit = content.elevationUnit ? ` (${printable(content.elevationUnit, 20)})` : '';
      parts.push(title(modeNames.elevation + unit), makeRamp(spectralRamp, elevations));
    }
    if (mode === 'intensity' && intensities) parts.push(title(modeNames.intensity), makeRamp(grayRamp, intensities));
    if (mode === 'return' && content.returns.length > 0)
      parts.push(title(modeNames.return), element('ul', {}, ...content.returns.slice(0, mostReturns).map((number) =>
        element('li', {}, swatch(colorOfNumber(number)), String(number)))));
    if (mode === 'class' && content.classes.length > 0)
      parts.push(title('Classes'), this.makeClasses(content));
    else if (hiddenClasses.size > 0)
      parts.push(
        element('p', {}, hiddenClasses.size === 1 ? '1 class is hidden' : `${hiddenClasses.size} classes are hidden`),
        button('Show all', () => this.onHide(new Set()), { 'data-key': 'all' }));
    return parts;
  }

  private makeClasses({ classes, classNames, hiddenClasses }: LegendContent): HTMLElement {
    const list = element('ul', { class: 'classes' }, ...classes.map((code) => {
      const box = element('input', { type: 'checkbox', 'data-key': `class-${code}` });
      box.checked = !hiddenClasses.has(code);
      box.addEventListener('change', () => {
        const hidden = new Set(hiddenClasses);
        if (box.checked) hidden.delete(code);
        else hidden.add(code);
        this.onHide(hidden);
      });
      const name = printable(nameOfClass(code, classNames), 40);
      return element('li', {}, element('label', {}, box, swatch(colorOfClass(code)), `${code} ${name}`));
    }));
    return element('div', {}, list, element('div', { class: 'buttons' },
      button('All', () => this.onHide(new Set()), { 'data-key': 'all', 'aria-label': 'Show all classes' }),
      button('None', () => this.onHide(new Set(classes)), { 'data-key': 'none', 'aria-label': 'Hide all classes' })));
  }
}

function swatch(color: Color): HTMLElement {
  const result = element('span', { class: 'swatch', 'aria-hidden': 'true' });
  result.style.background = toCss(color);
  return result;
}

function makeRamp(colors: readonly Color[], { min, max }: Range): HTMLElement {
  const stops = Array.from({ length: 17 }, (_, i) => toCss(colors[Math.round(i / 16 * 255)] as Color));
  const bar = element('div', { class: 'ramp', 'aria-hidden': 'true' });
  bar.style.background = `linear-gradient(to right, ${stops.join(', ')})`;
  const ticks = [min, (min + max) / 2, max].map((value) => element('span', {}, formatTick(value, min, max)));
  return element('div', {}, bar, element('div', { class: 'ticks' }, ...ticks));
}
