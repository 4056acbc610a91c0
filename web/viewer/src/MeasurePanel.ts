// The list of measured lengths.
import { button, element } from './Dom.js';
import type { Measurement } from './Measurement.js';
import { formatLength } from './Text.js';

/** Shows a measurement. */
export class MeasurePanel {
  constructor(
    private readonly box: HTMLElement, private readonly measurement: Measurement, private readonly onChange: () => void,
    private readonly onClose: () => void,
  ) {}

  /** Lengths are followed by the unit. */
  update(unit: string): void {
    const { measurement } = this;
    const { segments, total } = measurement;
    const length = (value: number) => withUnit(value, unit);
    const rows = segments.map((segment, i) => element('tr', {}, ...[
      String(i + 1), length(segment.length), length(segment.horizontal), length(segment.vertical),
    ].map((text) => element('td', {}, text))));
    if (segments.length > 1)
      rows.push(element('tr', { class: 'total' }, ...['Sum', length(total.length), length(total.horizontal), '']
        .map((text) => element('td', {}, text))));
    const hint = measurement.vertices.length === 0 ? 'Click the first point.' :
      segments.length === 0 ? 'Click the next point.' : null;
    this.box.replaceChildren(
      element('h2', {}, 'Measure'),
      hint ? element('p', {}, hint) : element('table', {},
        element('thead', {}, element('tr', {}, ...['', '3D', 'Horizontal', 'Vertical']
          .map((text) => element('th', { scope: 'col' }, text)))),
        element('tbody', {}, ...rows)),
      element('div', { class: 'buttons' },
        button('Undo', () => {
          measurement.undo();
          this.onChange();
        }),
        button('Clear', () => {
          measurement.clear();
          this.onChange();
        }),
        button('Done', this.onClose)));
  }
}

/** A length with its unit, if it is known. */
export function withUnit(length: number, unit: string): string {
  return unit ? `${formatLength(length)} ${unit}` : formatLength(length);
}
