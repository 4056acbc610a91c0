// The attributes of a point that the user has clicked.
import type { PickedPoint } from './CloudScene.js';
import { formatPosition } from './Coordinates.js';
import { button, definitions, element } from './Dom.js';
import { messageOf, type ErrorBox } from './ErrorBox.js';
import type { Vector } from './Geometry.js';
import { describePoint } from './InfoPanel.js';
import { formatCount } from './Text.js';
import type { Viewer } from './Viewer.js';

/** A card with all attributes of a point, which are read from the file. */
export class PointCard {
  private shownPosition: Vector | null = null;
  private pickNumber = 0; // so that late answers can be told from that for the point that is shown

  constructor(
    private readonly box: HTMLElement, private readonly viewer: Viewer, private readonly errorBox: ErrorBox,
  ) {}

  get isOpen(): boolean {
    return !this.box.hidden;
  }

  /** Where the point is in the scene; null if the card is closed. */
  get position(): Vector | null {
    return this.shownPosition;
  }

  async show(picked: PickedPoint): Promise<void> {
    const { scene } = this.viewer;
    if (!scene) return;
    const { cloud } = scene;
    const number = ++this.pickNumber;
    const title = `Point ${formatCount(picked.fileIndex)}`;
    this.shownPosition = picked.position;
    this.viewer.requestFrame();
    this.fill(title, [['', 'Reading …']]);
    try {
      const { channels } = await cloud.readRange({ level: 0, first: picked.fileIndex, count: 1, isUrgent: true });
      if (number === this.pickNumber)
        this.fill(title, describePoint(cloud.description, (name) => channels[name]?.[0]));
    } catch (error) {
      if (number !== this.pickNumber) return;
      this.fill(title, formatPosition(scene, picked.position)
        .map((text, axis) => ['XYZ'[axis] as string, `about ${text}`] as const));
      this.errorBox.show(messageOf(error));
    }
  }

  close(): void {
    ++this.pickNumber;
    this.shownPosition = null;
    this.box.hidden = true;
    this.viewer.requestFrame();
  }

  private fill(title: string, rows: readonly (readonly [string, string])[]): void {
    this.box.hidden = false;
    this.box.replaceChildren(
      element('h2', {}, title),
      button('×', () => this.close(), { class: 'close', 'aria-label': 'Close' }),
      definitions(rows));
  }
}
