// The help about keys and mouse.
import { button, definitions, element } from './Dom.js';

const keys = [
  ['Drag', 'Turn (one finger)'],
  ['Right drag, Shift + drag', 'Move (two fingers)'],
  ['Wheel, + and −', 'Zoom (two fingers)'],
  ['Arrow keys', 'Move; turn with Shift'],
  ['Click', 'Show the attributes of a point'],
  ['Double click', 'Turn around this point'],
  ['Home', 'Show all points'],
  ['t', 'Look from above, with the north at the top'],
  ['1 to 5', 'Colour by RGB, elevation, intensity, class, return'],
  ['m', 'Measure'],
  ['c', 'Clip: show only points in a box'],
  ['Escape', 'End measuring, close windows'],
  ['?', 'This help'],
] as const;

/** Fills a dialog. */
export function fillHelp(dialog: HTMLDialogElement): void {
  dialog.append(
    element('h2', { id: 'help-title' }, 'Keys and mouse'),
    definitions(keys),
    button('Close', () => dialog.close(), { class: 'primary' }));
  dialog.addEventListener('click', (event) => {
    if (event.target === dialog) dialog.close(); // outside
  });
}
