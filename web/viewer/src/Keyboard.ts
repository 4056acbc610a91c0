// Keys of the whole page.

export interface KeyHelp {
  readonly keys: string;
  readonly meaning: string;
}

/** What the help shows. */
export const keyHelp: readonly KeyHelp[] = [
  { keys: 'Drag', meaning: 'Turn (one finger)' },
  { keys: 'Right drag, Shift + drag', meaning: 'Move (two fingers)' },
  { keys: 'Wheel, + and −', meaning: 'Zoom (two fingers)' },
  { keys: 'Arrow keys', meaning: 'Move; turn with Shift' },
  { keys: 'Click', meaning: 'Show the attributes of a point' },
  { keys: 'Double click', meaning: 'Turn around this point' },
  { keys: 'Home', meaning: 'Show all points' },
  { keys: 't', meaning: 'Look from above, with the north at the top' },
  { keys: '1 to 5', meaning: 'Colour by RGB, elevation, intensity, class, return' },
  { keys: 'm', meaning: 'Measure' },
  { keys: 'c', meaning: 'Clip: show only points in a box' },
  { keys: 'Escape', meaning: 'End measuring, close windows' },
  { keys: '?', meaning: 'This help' },
];

/** Calls the action of a key, named as in KeyboardEvent.key, unless the user is writing. */
export function listenToKeys(actions: Readonly<Record<string, (event: KeyboardEvent) => void>>): void {
  window.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey || event.defaultPrevented) return;
    const target = event.target as HTMLElement | null;
    if (target?.closest?.('dialog[open]')) return; // the browser closes it
    const isInput = target?.closest?.('input, select, textarea, pre, summary') != null;
    if (isInput && event.key !== 'Escape') return;
    const action = actions[event.key.length === 1 ? event.key.toLowerCase() : event.key];
    if (!action) return;
    event.preventDefault();
    action(event);
  });
}
