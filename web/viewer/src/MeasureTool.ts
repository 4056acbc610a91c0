// Measuring along points that the user clicks.
import type { PickedPoint } from './CloudScene.js';
import { sceneUnit } from './CoordinateSystem.js';
import { map, type Vector } from './Geometry.js';
import { Measurement } from './Measurement.js';
import { MeasurePanel, withUnit } from './MeasurePanel.js';
import type { OverlayItems } from './Overlay.js';
import { printable } from './Text.js';
import type { Viewer } from './Viewer.js';

/** While it is on, points can be added. Switching it off clears the measurement. */
export class MeasureTool {
  private readonly measurement = new Measurement();
  private readonly panel: MeasurePanel;
  private isEnabled = false;

  constructor(
    private readonly box: HTMLElement, private readonly viewer: Viewer,
    private readonly onSwitch: (isOn: boolean) => void,
  ) {
    this.panel = new MeasurePanel(box, this.measurement, () => this.update(), () => this.switch(false));
  }

  get isOn(): boolean {
    return this.isEnabled;
  }

  /** It stays off without a file. */
  switch(isOn: boolean): void {
    this.isEnabled = isOn && this.viewer.scene !== null;
    if (!this.isEnabled) this.measurement.clear();
    this.box.hidden = !this.isEnabled;
    this.onSwitch(this.isEnabled);
    this.update();
  }

  /** Adds a drawn point at once, and moves it when its exact coordinates have been read. */
  async add({ position, fileIndex }: PickedPoint): Promise<void> {
    const { scene } = this.viewer;
    if (!scene) return;
    const exact = scene.cloud.readRange({ level: 0, first: fileIndex, count: 1, isUrgent: true, channels: [] });
    const replace = this.measurement.add(position);
    this.update();
    try {
      const { channels } = await exact;
      const point = ['X', 'Y', 'Z'].map((name) => Number(channels[name]?.[0]));
      if (this.viewer.scene !== scene || !point.every(Number.isFinite)) return;
      replace(scene.space.toScene(point as unknown as Vector));
      this.update();
    } catch {
      // The approximate point stays.
    }
  }

  /** What is drawn over the points. */
  get items(): OverlayItems {
    const { segments, vertices } = this.measurement;
    return {
      lines: segments.map(({ from, to }) => ({ from, to, kind: 'measure' })),
      dots: vertices,
      labels: segments.map(({ from, to, length }) => ({
        at: map((axis) => (from[axis] + to[axis]) / 2), text: withUnit(length, this.unit),
      })),
    };
  }

  private update(): void {
    this.panel.update(this.unit);
    this.viewer.requestFrame();
  }

  private get unit(): string {
    const { scene } = this.viewer;
    return printable((scene && sceneUnit(scene.system)?.symbol) ?? '', 20);
  }
}
