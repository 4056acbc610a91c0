// The view that a link describes: camera, colours, hidden classes, settings and clipping box.
import type { Cloud } from '@vxunpack/decoder';
import type { ClipPanel } from './ClipPanel.js';
import type { CloudScene } from './CloudScene.js';
import type { ColorPanel } from './ColorPanel.js';
import { decimalsOfAxes } from './Coordinates.js';
import { diagonalOf, distanceToBox, isProper } from './Geometry.js';
import type { SettingsPanel } from './Settings.js';
import type { Viewer } from './Viewer.js';
import type { ViewState } from './ViewLink.js';

const nothing = { min: [0, 0, 0], max: [0, 0, 0] } as const;

/** Reads and changes the view of the file that is shown. */
export class LinkedView {
  private pendingView: ViewState = {};

  constructor(
    private readonly viewer: Viewer,
    private readonly settings: SettingsPanel,
    private readonly colors: ColorPanel,
    private readonly clipPanel: ClipPanel,
  ) {}

  /** The view of a file that was shown, until its first points are known. */
  get pending(): ViewState {
    return this.pendingView;
  }

  /** The view; null before the first points are known. */
  get current(): ViewState | null {
    const { scene } = this.viewer;
    if (!scene?.isReady) return null;
    const { clip } = this.clipPanel;
    return {
      eye: scene.space.toFile(this.viewer.eye),
      target: scene.space.toFile(this.viewer.target),
      mode: scene.mode,
      hiddenClasses: [...scene.hiddenClasses],
      ...this.settings.changes,
      ...(clip && { clip }),
    };
  }

  /** Shows a file with a view. */
  show(cloud: Cloud, view: ViewState): CloudScene {
    const { description } = cloud;
    this.settings.set(view);
    const scene = this.viewer.show(cloud, view.mode ?? null);
    this.pendingView = view;
    this.clipPanel.begin(isProper(description.bounds) ? description.bounds : nothing, decimalsOfAxes(description));
    if (view.hiddenClasses) this.viewer.setHiddenClasses(view.hiddenClasses);
    if (view.clip) this.clipPanel.set(view.clip, true);
    return scene;
  }

  /** Begins with the camera of the view, or one that sees all points, when the first points are known. */
  placeCamera(): void {
    const view = this.pendingView;
    this.pendingView = {};
    this.fit('south');
    this.setCamera(view);
  }

  /** Changes the view of the file that is shown. */
  apply(view: ViewState): void {
    const { scene } = this.viewer;
    if (!scene) return;
    this.settings.set(view);
    if (view.mode) this.colors.setMode(view.mode);
    this.colors.setHiddenClasses(new Set(view.hiddenClasses));
    this.clipPanel.set(view.clip ?? null, true);
    this.setCamera(view);
  }

  /** Moves the camera, but not to where it would see nothing, as that of a link to another file. */
  setCamera({ eye, target }: Pick<ViewState, 'eye' | 'target'>): void {
    const { scene } = this.viewer;
    if (!scene || !eye || !target) return;
    const bounds = scene.robustBounds ?? nothing;
    const from = scene.space.toScene(eye), to = scene.space.toScene(target);
    const farthest = 1000 * (diagonalOf(bounds) + 1);
    if (distanceToBox(from, bounds) < farthest && distanceToBox(to, bounds) < farthest) this.viewer.setView(from, to);
  }

  /** Shows all points, or all in the clipping box. */
  fit(from: 'south' | 'above'): void {
    const { scene } = this.viewer;
    const bounds = scene?.clip ?? scene?.robustBounds;
    if (bounds) this.viewer.fit(bounds, from);
  }
}
