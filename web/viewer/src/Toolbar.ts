// The buttons over the canvas.
import { button } from './Dom.js';

const svgNamespace = 'http://www.w3.org/2000/svg';

// Paths on 24 by 24 units.
const tools = {
  open: { text: 'Open', title: 'Open a file', path: 'M3 19V6h6l2 2h8v3M3 19l3-8h16l-3 8z' },
  home: { text: 'Home', title: 'Show all (Home)', path: 'M4 9V4h5M15 4h5v5M20 15v5h-5M9 20H4v-5M9 9h6v6H9z' },
  top: { text: 'Top', title: 'From above (t)', path: 'M12 3v10M8 9l4 4 4-4M4 17l8 4 8-4-8-4z' },
  measure: { text: 'Measure', title: 'Measure (m)', path: 'M3 17L17 3l4 4L7 21zM7 13l2 2M10 10l3 3M13 7l2 2' },
  clip: { text: 'Clip', title: 'Clip (c)', path: 'M12 3l8 4.5v9L12 21l-8-4.5v-9zM4 7.5l8 4.5 8-4.5M12 12v9' },
  help: { text: 'Help', title: 'Help (?)', path: 'M9 9a3 3 0 1 1 4 3c-1 .5-1 1-1 2M12 18v.01' },
  panel: {
    text: 'Panel', title: 'Settings and file',
    path: 'M4 7h10M18 7h2M4 12h2M10 12h10M4 17h8M16 17h4M16 5v4M8 10v4M14 15v4',
  },
} as const;

export type Tool = keyof typeof tools;

const needFile: readonly Tool[] = ['home', 'top', 'measure', 'clip'];
const switches: readonly Tool[] = ['measure', 'clip', 'panel'];

/** Buttons with icons. */
export class Toolbar {
  private readonly buttons = new Map<Tool, HTMLButtonElement>();

  constructor(box: HTMLElement, actions: Readonly<Record<Tool, () => void>>) {
    for (const [name, { text, title, path }] of Object.entries(tools) as [Tool, (typeof tools)[Tool]][]) {
      const tool = button('', actions[name], { 'aria-label': text, title });
      if (switches.includes(name)) tool.setAttribute('aria-pressed', 'false');
      const svg = document.createElementNS(svgNamespace, 'svg');
      svg.setAttribute('viewBox', '0 0 24 24');
      svg.setAttribute('aria-hidden', 'true');
      const shape = document.createElementNS(svgNamespace, 'path');
      shape.setAttribute('d', path);
      svg.append(shape);
      const label = document.createElement('span');
      label.textContent = text;
      tool.append(svg, label);
      this.buttons.set(name, tool);
      box.append(tool);
    }
  }

  setPressed(tool: Tool, isPressed: boolean): void {
    this.buttons.get(tool)?.setAttribute('aria-pressed', String(isPressed));
  }

  /** Without a file, only some tools make sense. */
  setEnabled(hasFile: boolean): void {
    for (const tool of needFile) (this.buttons.get(tool) as HTMLButtonElement).disabled = !hasFile;
  }
}
