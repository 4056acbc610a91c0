// Six numbers and sliders of the clipping box.
import { button, element } from './Dom.js';
import { map, type Box } from './Geometry.js';

/** Edits a box in coordinates of the file. */
export class ClipPanel {
  private readonly isOn = element('input', { type: 'checkbox', id: 'clip-on' });
  private readonly sliders: HTMLInputElement[] = [];
  private readonly numbers: HTMLInputElement[] = [];
  private bounds: Box = { min: [0, 0, 0], max: [1, 1, 1] };
  private decimals: readonly number[] = [3, 3, 3];
  /** min x, max x, min y, ... */
  private values = [0, 1, 0, 1, 0, 1];

  constructor(
    box: HTMLElement, private readonly onChange: (clip: Box | null) => void, boundsOnScreen: () => Box | null,
  ) {
    const rows = ['X', 'Y', 'Z'].flatMap((axis, i) =>
      ['min', 'max'].map((end, j) => this.makeRow(axis, end, 2 * i + j)));
    this.isOn.addEventListener('change', () => this.notify());
    box.append(
      element('label', { class: 'switch' }, this.isOn, 'Show only points in a box'),
      element('div', { class: 'clip-rows' }, ...rows),
      element('div', { class: 'buttons' },
        button('Clip to view', () => {
          const seen = boundsOnScreen();
          if (seen) this.set(this.roundedUp(seen), true);
        }),
        button('Reset', () => this.set(null, true))));
  }

  /** Begins with a new file. */
  begin(bounds: Box, decimals: readonly number[]): void {
    this.bounds = bounds;
    this.decimals = decimals;
    for (const [i, slider] of this.sliders.entries()) {
      const axis = i >> 1 as 0 | 1 | 2;
      slider.min = '0';
      slider.max = '1000';
      const number = this.numbers[i] as HTMLInputElement;
      number.step = String(10 ** -(decimals[axis] ?? 3));
    }
    this.set(null, false);
  }

  /** The box, or null if it is off. */
  get clip(): Box | null {
    if (!this.isOn.checked) return null;
    const [x0, x1, y0, y1, z0, z1] = this.values as [number, number, number, number, number, number];
    return {
      min: [Math.min(x0, x1), Math.min(y0, y1), Math.min(z0, z1)],
      max: [Math.max(x0, x1), Math.max(y0, y1), Math.max(z0, z1)],
    };
  }

  set(clip: Box | null, doNotify: boolean): void {
    this.isOn.checked = clip !== null;
    const { min, max } = clip ?? this.bounds;
    this.values = [min[0], max[0], min[1], max[1], min[2], max[2]];
    this.showValues();
    if (doNotify) this.onChange(this.clip);
  }

  toggle(): void {
    this.isOn.checked = !this.isOn.checked;
    this.notify();
  }

  // Coordinates of the scene are less exact than those of the file: no point at the sides must be lost.
  private roundedUp({ min, max }: Box): Box {
    const round = (axis: 0 | 1 | 2, to: (value: number) => number, value: number) => {
      const factor = 10 ** (this.decimals[axis] ?? 3);
      return to(value * factor) / factor;
    };
    return {
      min: map((axis) => round(axis, Math.floor, min[axis])), max: map((axis) => round(axis, Math.ceil, max[axis])),
    };
  }

  private makeRow(axis: string, end: string, i: number): HTMLElement {
    const name = `${axis} ${end}`;
    const slider = element('input', { type: 'range', 'aria-label': `${name}, slider` });
    const number = element('input', { type: 'number', 'aria-label': name, inputmode: 'decimal' });
    this.sliders[i] = slider;
    this.numbers[i] = number;
    slider.addEventListener('input', () => {
      const { min, max } = this.sideOf(i);
      this.values[i] = min + (max - min) * Number(slider.value) / 1000;
      this.isOn.checked = true;
      this.showValues();
      this.notify();
    });
    number.addEventListener('change', () => {
      const value = number.value.trim() === '' ? NaN : Number(number.value);
      if (Number.isFinite(value)) {
        this.values[i] = value;
        this.isOn.checked = true;
        this.notify();
      }
      this.showValues();
    });
    return element('div', { class: 'clip-row' }, element('span', { 'aria-hidden': 'true' }, name), slider, number);
  }

  private showValues(): void {
    for (const [i, value] of this.values.entries()) {
      const { min, max } = this.sideOf(i);
      (this.sliders[i] as HTMLInputElement).value = String(max > min ? (value - min) / (max - min) * 1000 : 0);
      (this.numbers[i] as HTMLInputElement).value = value.toFixed(this.decimals[i >> 1] ?? 3);
    }
  }

  private sideOf(i: number): { min: number; max: number } {
    const axis = i >> 1 as 0 | 1 | 2;
    return { min: this.bounds.min[axis], max: this.bounds.max[axis] };
  }

  private notify(): void {
    this.onChange(this.clip);
  }
}
