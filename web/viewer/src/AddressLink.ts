// The address of the page, which is a link to what it shows.
import { button } from './Dom.js';
import { decodeView, encodeView, type ViewState } from './ViewLink.js';

const pause = 400; // milliseconds; browsers limit how often the address changes

/** Keeps the address up to date. */
export class AddressLink {
  private timer: ReturnType<typeof setTimeout> | undefined;
  private ownHash = '';

  /** `readView` returns null while there is no view to link to. */
  constructor(private readonly readView: () => ViewState | null) {}

  /** The address of the file, or null. */
  get source(): string | null {
    return new URLSearchParams(location.search).get('src');
  }

  get view(): ViewState {
    return decodeView(location.hash);
  }

  /** Calls a function when the user changes the view in the address. */
  listen(onChange: (view: ViewState) => void): void {
    window.addEventListener('hashchange', () => {
      if (location.hash !== this.ownHash) onChange(this.view);
    });
  }

  /** Makes the address that of a file; null for a local one, as the address must not name one that is not shown. */
  setSource(url: string | null): void {
    replaceAddress(url === null ? location.pathname : `?src=${encodeURIComponent(url)}`);
  }

  /** Updates the address soon. */
  schedule(): void {
    this.timer ??= setTimeout(() => this.update(), pause);
  }

  makeCopyButton(): HTMLElement {
    const text = 'Copy link to this view';
    const copy = button(text, async () => {
      this.update();
      try {
        await navigator.clipboard.writeText(location.href);
        copy.textContent = 'Copied';
      } catch {
        copy.textContent = 'Copy it from the address bar';
      }
      setTimeout(() => copy.textContent = text, 2000);
    });
    return copy;
  }

  private update(): void {
    clearTimeout(this.timer);
    this.timer = undefined;
    const view = this.readView();
    if (!view) return;
    this.ownHash = encodeView(view);
    replaceAddress(location.pathname + location.search + this.ownHash);
  }
}

function replaceAddress(address: string): void {
  try {
    history.replaceState(null, '', address);
  } catch {
    // Browsers refuse too many changes, and changes in sandboxed frames: the link is a little old then.
  }
}
