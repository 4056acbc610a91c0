// Messages about what went wrong.
import { button, element } from './Dom.js';
import { printable } from './Text.js';

/** An alert with a message, and a button that tries again where this makes sense. Shows one message at a time. */
export class ErrorBox {
  private text = '';
  private closedText = '';

  constructor(private readonly box: HTMLElement) {
    this.hide();
  }

  /** The message that is shown, or null. */
  get message(): string | null {
    return this.box.hidden ? null : this.text;
  }

  show(message: string, retry: (() => void) | null = null): void {
    const text = printable(message, 600);
    // Each node of a lost connection says the same, also after the user has read it.
    if ((!this.box.hidden && text === this.text) || text === this.closedText) return;
    this.text = text;
    this.box.hidden = false;
    this.box.replaceChildren(
      element('p', {}, text),
      element('div', { class: 'buttons' },
        retry && button('Try again', () => {
          this.hide();
          retry();
        }, { class: 'primary' }),
        button('Close', () => {
          this.closedText = this.text;
          this.hideMessage();
        })));
  }

  /** Hides the message. The same one can be shown again. */
  hide(): void {
    this.closedText = '';
    this.hideMessage();
  }

  private hideMessage(): void {
    this.box.hidden = true;
    this.box.replaceChildren();
    this.text = '';
  }
}

/** What an exception says. */
export function messageOf(error: unknown): string {
  return error instanceof Error ? error.message : String(error);
}
