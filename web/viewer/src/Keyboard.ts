// Keys of the whole page.

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
