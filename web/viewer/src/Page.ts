// The page around the canvas: files, tools, panels and the link.
import { openCloud, type Cloud, type CloudError } from '@vxunpack/decoder';
import { ClipPanel } from './ClipPanel.js';
import { colorModes, isColorMode, modeNames, type ColorMode } from './ColorModes.js';
import { sceneUnit } from './CoordinateSystem.js';
import { button, byId, definitions, element } from './Dom.js';
import { ErrorBox } from './ErrorBox.js';
import { boxEdges, cornersOf, diagonalOf, distanceToBox, isProper, map, type Box, type Vector } from './Geometry.js';
import { describePoint, InfoPanel } from './InfoPanel.js';
import { keyHelp, listenToKeys } from './Keyboard.js';
import { Legend } from './Legend.js';
import { Measurement } from './Measurement.js';
import { MeasurePanel, withUnit } from './MeasurePanel.js';
import type { OverlayItems } from './Overlay.js';
import { defaultSettings, SettingsPanel } from './Settings.js';
import { decimalsOf, formatCount, printable } from './Text.js';
import { Toolbar } from './Toolbar.js';
import { backgrounds, budgets, decodeView, encodeView, type ViewState } from './ViewLink.js';
import { Viewer } from './Viewer.js';

/** What the page is doing, for tests and for pages that embed it. */
export interface PageState {
  status: 'empty' | 'opening' | 'refining' | 'idle' | 'error';
  shownPoints: number;
  drawnNodes: number;
  /** Nodes that will be loaded or are being loaded. */
  pendingQueries: number;
  /** Milliseconds from opening to the first frame with points; null before. */
  firstPictureMs: number | null;
  framesRendered: number;
  requests: number;
  bytes: number;
  /** The message that is shown. */
  error: string | null;
}

/** `window.vxviewer`. */
export interface Remote {
  state(): PageState;
  open(source: string | File): Promise<void>;
  /** In coordinates of the file. */
  setView(view: { position: Vector; target: Vector }): void;
  setColor(mode: ColorMode): void;
  setClip(box: Box | null): void;
  setBudget(points: number): void;
  /** The point near a place on the canvas, in CSS pixels: approximate coordinates and position in the file. */
  pick(x: number, y: number): { position: Vector; fileIndex: number } | null;
}

const linkPause = 400; // milliseconds; browsers limit how often the address changes
const hoverPause = 80;
const clickRadius = { mouse: 6, touch: 18 }; // pixels

/** Everything that the user sees. */
export class Page {
  readonly remote: Remote;
  private readonly viewer: Viewer;
  private readonly isSmall = matchMedia('(pointer: coarse), (max-width: 700px)').matches;
  private readonly settings = defaultSettings(this.isSmall);
  private readonly settingsPanel: SettingsPanel;
  private readonly errorBox = new ErrorBox(byId('error'));
  private readonly info = new InfoPanel(byId('info'));
  private readonly legend: Legend;
  private readonly clipPanel: ClipPanel;
  private readonly toolbar: Toolbar;
  private readonly measurement = new Measurement();
  private readonly measurePanel: MeasurePanel;
  private readonly canvas = byId<HTMLCanvasElement>('canvas');
  private readonly pointCard = byId('point-card');

  private cloud: Cloud | null = null;
  private source: string | File | null = null;
  private opening: AbortController | null = null;
  private openTime = 0;
  private firstPictureMs: number | null = null;
  private pendingView: ViewState = {};
  private isMeasuring = false;
  private lastMemoryError = -Infinity;
  private hasLoadError = false; // is shown
  private linkTimer: ReturnType<typeof setTimeout> | undefined;
  private ownHash = '';
  private pickNumber = 0;
  private pickedPosition: Vector | null = null; // of the point whose card is open

  constructor() {
    this.viewer = new Viewer(this.canvas, {
      ready: () => this.onReady(),
      legendChanged: () => this.updateLegend(),
      failed: (error, isFinal) => this.onFailed(error, isFinal),
      drawn: () => this.onDrawn(),
      moved: () => this.scheduleLink(),
      contextLost: () => this.errorBox.show('The graphics processor was reset. Waiting until it is ready again.'),
      contextRestored: () => this.errorBox.hide(),
    });
    this.canvas.after(this.viewer.overlay.element);
    this.viewer.overlayItems = () => this.makeOverlay();

    this.toolbar = new Toolbar(byId('toolbar'), {
      open: () => byId('file').click(),
      home: () => this.fit('south'),
      top: () => this.fit('above'),
      measure: () => this.setMeasuring(!this.isMeasuring),
      clip: () => this.toggleClip(),
      help: () => byId<HTMLDialogElement>('help').showModal(),
      panel: () => this.togglePanel(),
    });
    this.settingsPanel = new SettingsPanel(byId('settings'), this.settings, () => {
      this.applySettings();
      this.scheduleLink();
    });
    this.clipPanel = new ClipPanel(byId('clip'), () => this.applyClip(), () => {
      const seen = this.viewer.boundsOnScreen();
      return seen && (this.viewer.scene?.space.boxToFile(seen) ?? null);
    });
    this.legend = new Legend(byId('legend'), (codes) => this.setHiddenClasses(codes));
    this.measurePanel = new MeasurePanel(
      byId('measure-card'), this.measurement, () => this.updateMeasurement(), () => this.setMeasuring(false));
    this.makeModes();
    this.makeHelp();
    byId('share').append(this.makeCopyButton());
    this.listenToFiles();
    this.listenToPointer();
    this.listenToKeyboard();
    this.applySettings();
    this.closeCloud();
    this.togglePanel(!this.isSmall);
    this.remote = this.makeRemote();
  }

  /** Opens the file of the page's address, or asks for one. */
  start(): void {
    this.pendingView = decodeView(location.hash);
    window.addEventListener('hashchange', () => {
      if (location.hash !== this.ownHash) this.applyView(decodeView(location.hash));
    });
    const source = new URLSearchParams(location.search).get('src');
    if (source) void this.open(source);
    else byId('welcome').hidden = false;
  }

  private async open(source: string | File): Promise<void> {
    this.opening?.abort();
    this.closeCloud();
    this.errorBox.hide();
    this.hasLoadError = false;
    this.source = source;
    byId('welcome').hidden = true;
    const view = this.pendingView;
    const opening = this.opening = new AbortController();
    const name = typeof source === 'string' ? source.split(/[?#]/)[0]!.split('/').at(-1) || source : source.name;
    this.setTitle(name);
    this.openTime = performance.now();
    this.updateCounts();
    try {
      const cloud = await openCloud(typeof source === 'string' ? toWebAddress(source) : source,
                                    { signal: opening.signal });
      if (this.opening !== opening) {
        cloud.close();
        return;
      }
      this.opening = null;
      this.showCloud(cloud, view);
    } catch (error) {
      if (this.opening !== opening) return; // another file was opened
      this.opening = null;
      this.updateCounts();
      byId('welcome').hidden = false;
      const canRetry = (error as CloudError).code === 'network';
      this.errorBox.show(messageOf(error), canRetry ? () => {
        this.pendingView = view;
        void this.open(source);
      } : null);
    }
  }

  private showCloud(cloud: Cloud, view: ViewState): void {
    this.cloud = cloud;
    const { description } = cloud;
    this.setTitle(description.name);
    Object.assign(this.settings, {
      ...(view.pointSize !== undefined && { pointSize: view.pointSize }),
      ...(view.budget !== undefined && { budget: view.budget }),
      ...(view.shading !== undefined && { shading: view.shading }),
      ...(view.background !== undefined && { background: view.background }),
    });
    this.settingsPanel.update();
    const scene = this.viewer.show(cloud, view.mode ?? null);
    this.pendingView = view;
    this.applySettings();
    const bounds = isProper(description.bounds) ? description.bounds
                                                : { min: [0, 0, 0], max: [0, 0, 0] } as const;
    this.clipPanel.begin(bounds, this.decimals);
    if (view.hiddenClasses) this.viewer.setHiddenClasses(view.hiddenClasses);
    if (view.clip) this.clipPanel.set(view.clip, true);
    this.info.show(description, scene.system);
    this.updateModes();
    this.toolbar.setEnabled(true);
    if (scene.isEmpty) this.errorBox.show(`${description.name} has no points.`);
  }

  private closeCloud(): void {
    this.viewer.clear();
    this.cloud?.close();
    this.cloud = null;
    this.firstPictureMs = null;
    this.setMeasuring(false);
    this.measurement.clear();
    this.closePointCard();
    this.info.clear();
    this.toolbar.setEnabled(false);
    this.updateModes();
    this.updateLegend();
    this.setTitle('');
  }

  // The first points are known.
  private onReady(): void {
    const view = this.pendingView;
    this.pendingView = {};
    this.fit('south');
    this.applyCamera(view);
    this.updateModes();
    this.updateLegend();
  }

  private onDrawn(): void {
    if (this.firstPictureMs === null && this.viewer.scene && this.viewer.scene.numDrawnPoints > 0)
      this.firstPictureMs = performance.now() - this.openTime;
    if (this.hasLoadError && this.viewer.scene?.pending.final === 0) {
      this.hasLoadError = false;
      this.errorBox.hide();
    }
    this.updateCounts();
  }

  private onFailed(error: CloudError, isFinal: boolean): void {
    if (error.code === 'memory' && performance.now() - this.lastMemoryError > 3000) {
      this.lastMemoryError = performance.now();
      this.settings.budget = Math.max(budgets.min, Math.round(this.settings.budget / 2));
      this.settingsPanel.update();
      this.applySettings();
      this.errorBox.show(`${messageOf(error)} At most ${formatCount(this.settings.budget)} points are shown now.`);
    } else if (isFinal && error.code !== 'memory') {
      this.hasLoadError = true;
      const { source } = this;
      // Points of two versions of a file do not fit together.
      if (error.code === 'changed' && source)
        this.errorBox.show(messageOf(error), () => void this.open(source));
      else this.errorBox.show(messageOf(error), () => this.viewer.retry());
    }
    this.viewer.requestFrame();
  }

  // A view of a link that is wrong for this file would show nothing.
  private applyCamera(view: ViewState): void {
    const { scene } = this.viewer;
    if (!scene || !view.eye || !view.target) return;
    const bounds = scene.robustBounds ?? { min: [0, 0, 0], max: [0, 0, 0] } as const;
    const eye = scene.space.toScene(view.eye), target = scene.space.toScene(view.target);
    const farthest = 1000 * (diagonalOf(bounds) + 1);
    if (distanceToBox(eye, bounds) < farthest && distanceToBox(target, bounds) < farthest)
      this.viewer.setView(eye, target);
  }

  private applyView(view: ViewState): void {
    const { scene } = this.viewer;
    if (!scene) return;
    if (view.pointSize !== undefined) this.settings.pointSize = view.pointSize;
    if (view.budget !== undefined) this.settings.budget = view.budget;
    if (view.shading !== undefined) this.settings.shading = view.shading;
    if (view.background !== undefined) this.settings.background = view.background;
    this.settingsPanel.update();
    this.applySettings();
    if (view.mode && scene.modes.includes(view.mode)) this.setMode(view.mode);
    this.setHiddenClasses(new Set(view.hiddenClasses));
    this.clipPanel.set(view.clip ?? null, true);
    this.applyCamera(view);
  }

  private applySettings(): void {
    const { pointSize, budget, shading, background } = this.settings;
    this.viewer.budget = budget;
    this.viewer.setPointSize(pointSize);
    this.viewer.setShading(shading);
    this.viewer.setBackground(backgrounds[background] ?? backgrounds['dark'] as string);
  }

  private applyClip(): void {
    const { scene } = this.viewer;
    const { clip } = this.clipPanel;
    this.viewer.setClip(scene && clip ? scene.space.boxToScene(clip) : null);
    this.toolbar.setPressed('clip', clip !== null);
    this.scheduleLink();
  }

  private toggleClip(): void {
    if (!this.viewer.scene) return;
    this.clipPanel.toggle();
    if (this.clipPanel.clip) {
      byId<HTMLDetailsElement>('clip-section').open = true;
      this.togglePanel(true);
      byId('clip-section').scrollIntoView({ block: 'nearest' });
    }
  }

  private setMode(mode: ColorMode): void {
    if (!this.viewer.scene?.modes.includes(mode)) return;
    this.viewer.setMode(mode);
    this.updateModes();
    this.updateLegend();
    this.scheduleLink();
  }

  private setHiddenClasses(codes: ReadonlySet<number>): void {
    this.viewer.setHiddenClasses(codes);
    this.updateLegend();
    this.scheduleLink();
  }

  private fit(from: 'south' | 'above'): void {
    const { scene } = this.viewer;
    const bounds = scene?.clip ?? scene?.robustBounds;
    if (bounds) this.viewer.fit(bounds, from);
  }

  private setTitle(name: string): void {
    const text = printable(name, 120);
    byId('title').textContent = text || 'No file';
    document.title = text ? `${text} – Point cloud viewer` : 'Point cloud viewer';
  }

  private makeModes(): void {
    byId('modes').append(element('div', { class: 'segments' }, ...colorModes.map((mode) => {
      const input = element('input', { type: 'radio', name: 'mode', value: mode });
      input.addEventListener('change', () => this.setMode(mode));
      return element('label', {}, input, element('span', {}, modeNames[mode]));
    })));
  }

  private updateModes(): void {
    const scene = this.viewer.scene;
    for (const input of byId('modes').querySelectorAll('input')) {
      const mode = input.value as ColorMode;
      input.disabled = !scene?.modes.includes(mode);
      input.checked = scene?.mode === mode;
      (input.parentElement as HTMLElement).title = input.disabled && scene ? 'The file has no such channel' : '';
    }
  }

  private updateLegend(): void {
    const { scene } = this.viewer;
    const numbers = (values: Iterable<number> = []) => [...values].sort((a, b) => a - b);
    const heightOf = (z: number) => scene?.space.toFile([0, 0, z])[2] ?? z;
    const elevations = scene?.elevationRange;
    this.legend.update({
      mode: scene?.mode ?? 'rgb',
      elevations: elevations ? { min: heightOf(elevations.min), max: heightOf(elevations.max) } : null,
      elevationUnit: scene?.system.vertical?.symbol ?? '',
      intensities: scene?.intensityRange ?? null,
      classes: numbers(new Set([...scene?.classes ?? [], ...scene?.hiddenClasses ?? []])),
      classNames: this.cloud?.description.classNames ?? [],
      hiddenClasses: new Set(scene?.hiddenClasses),
      returns: numbers(scene?.returns),
    });
  }

  private updateCounts(): void {
    const { scene } = this.viewer;
    const { cloud } = this;
    const counts = byId('counts');
    let text = '';
    if (this.opening) text = 'Opening …';
    else if (scene && cloud) {
      const { none, waiting } = scene.pending;
      text = `${formatCount(scene.numDrawnPoints)} of ${formatCount(cloud.description.numPoints)} points`;
      if (scene.clip || scene.hiddenClasses.size > 0) text += ' (before hiding some)';
      if (waiting > 0) text += ' · trying again after an error';
      else if (none > 0) text += ' · loading';
      this.info.showTraffic(cloud.traffic, cloud.description.size);
    }
    if (counts.textContent !== text) counts.textContent = text;
  }

  private get decimals(): readonly [number, number, number] {
    const { channels } = this.cloud?.description ?? { channels: [] };
    const of = (name: string) => decimalsOf(channels.find((channel) => channel.name === name)?.quantization ?? 0);
    return [of('X'), of('Y'), of('Z')];
  }

  // Points and lengths.

  private onClick(x: number, y: number, radius: number): void {
    const { scene } = this.viewer;
    const picked = this.viewer.pick(x, y, radius);
    if (!scene || !this.cloud || !picked) {
      if (!this.isMeasuring) this.closePointCard();
      return;
    }
    const { cloud } = this;
    const exact = cloud.readRange({
      level: 0, first: picked.fileIndex, count: 1, isUrgent: true, ...this.isMeasuring ? { channels: [] } : {},
    });
    if (this.isMeasuring) {
      const replace = this.measurement.add(picked.position);
      this.updateMeasurement();
      exact.then(({ channels }) => {
        const position = ['X', 'Y', 'Z'].map((name) => Number(channels[name]?.[0]));
        if (this.cloud !== cloud || !position.every(Number.isFinite)) return;
        replace(scene.space.toScene(position as unknown as Vector));
        this.updateMeasurement();
      }, () => undefined); // the approximate point stays
      return;
    }
    const number = ++this.pickNumber;
    this.pickedPosition = picked.position;
    this.viewer.requestFrame();
    this.showPoint(`Point ${formatCount(picked.fileIndex)}`, [['', 'Reading …']]);
    exact.then(({ channels }) => {
      if (number === this.pickNumber)
        this.showPoint(`Point ${formatCount(picked.fileIndex)}`,
                       describePoint(cloud.description, (name) => channels[name]?.[0]));
    }, (error: unknown) => {
      if (number !== this.pickNumber) return;
      this.showPoint(`Point ${formatCount(picked.fileIndex)}`, this.coordinatesOf(picked.position)
        .map((text, axis) => ['XYZ'[axis] as string, `about ${text}`] as const));
      this.errorBox.show(messageOf(error));
    });
  }

  private showPoint(title: string, rows: readonly (readonly [string, string])[]): void {
    this.pointCard.hidden = false;
    this.pointCard.replaceChildren(
      element('h2', {}, title),
      button('×', () => this.closePointCard(), { class: 'close', 'aria-label': 'Close' }),
      definitions(rows));
  }

  private closePointCard(): void {
    ++this.pickNumber;
    this.pickedPosition = null;
    this.pointCard.hidden = true;
    this.viewer.requestFrame();
  }

  private coordinatesOf(position: Vector): string[] {
    const inFile = this.viewer.scene?.space.toFile(position) ?? position;
    return map((axis) => inFile[axis]).map((value, axis) => value.toFixed(this.decimals[axis]));
  }

  private setMeasuring(isOn: boolean): void {
    this.isMeasuring = isOn && this.viewer.scene !== null;
    if (this.isMeasuring) this.closePointCard();
    else this.measurement.clear();
    byId('measure-card').hidden = !this.isMeasuring;
    this.toolbar?.setPressed('measure', this.isMeasuring);
    this.canvas.classList.toggle('measuring', this.isMeasuring);
    this.updateMeasurement();
  }

  private updateMeasurement(): void {
    this.measurePanel?.update(this.lengthUnit);
    this.viewer.requestFrame();
  }

  private get lengthUnit(): string {
    const { scene } = this.viewer;
    return printable((scene && sceneUnit(scene.system)?.symbol) ?? '', 20);
  }

  private makeOverlay(): OverlayItems {
    const { scene } = this.viewer;
    const clip = scene?.isReady ? scene.clip : null;
    const corners = clip ? cornersOf(clip) : [];
    const { segments, vertices } = this.measurement;
    return {
      lines: [
        ...corners.length > 0 ? boxEdges.map(([a, b]) =>
          ({ from: corners[a] as Vector, to: corners[b] as Vector, kind: 'clip' as const })) : [],
        ...segments.map(({ from, to }) => ({ from, to, kind: 'measure' as const })),
      ],
      dots: this.pickedPosition ? [...vertices, this.pickedPosition] : vertices,
      labels: segments.map(({ from, to, length }) => ({
        at: map((axis) => (from[axis] + to[axis]) / 2), text: withUnit(length, this.lengthUnit),
      })),
    };
  }

  // What the user does.

  private listenToFiles(): void {
    const input = byId<HTMLInputElement>('file');
    const openLocal = (file: File) => {
      this.pendingView = {};
      // The address must not name a file that is not shown.
      this.replaceAddress(`${location.pathname}`);
      void this.open(file);
    };
    input.addEventListener('change', () => {
      const file = input.files?.[0];
      if (file) openLocal(file);
      input.value = ''; // so that the same file can be opened again
    });
    byId('welcome-open').addEventListener('click', () => input.click());
    byId('url-form').addEventListener('submit', (event) => {
      event.preventDefault();
      const url = byId<HTMLInputElement>('url').value.trim();
      if (!url) return;
      this.pendingView = {};
      this.replaceAddress(`?src=${encodeURIComponent(url)}`);
      void this.open(url);
    });

    const hasFiles = (event: DragEvent) => event.dataTransfer?.types.includes('Files') ?? false;
    const drop = byId('drop');
    window.addEventListener('dragover', (event) => {
      if (!hasFiles(event)) return;
      event.preventDefault();
      drop.hidden = false;
    });
    window.addEventListener('dragleave', (event) => {
      if (event.relatedTarget === null) drop.hidden = true;
    });
    window.addEventListener('drop', (event) => {
      if (!hasFiles(event)) return;
      event.preventDefault();
      drop.hidden = true;
      const file = event.dataTransfer?.files[0];
      if (file) openLocal(file);
    });
  }

  private listenToPointer(): void {
    const { canvas } = this;
    let down: { x: number; y: number } | null = null;
    canvas.addEventListener('pointerdown', (event) => down = { x: event.clientX, y: event.clientY });
    canvas.addEventListener('click', (event) => {
      const hasMoved = down && Math.hypot(event.clientX - down.x, event.clientY - down.y) > 5;
      if (hasMoved || event.detail > 1) return; // a drag, or the second click of two
      const isMouse = (event as PointerEvent).pointerType !== 'touch';
      this.onClick(event.offsetX, event.offsetY, isMouse ? clickRadius.mouse : clickRadius.touch);
    });
    canvas.addEventListener('dblclick', (event) => {
      const picked = this.isMeasuring ? null : this.viewer.pick(event.offsetX, event.offsetY, clickRadius.touch);
      if (picked) this.viewer.lookAt(picked.position);
    });

    const cursor = byId('cursor');
    let hover: ReturnType<typeof setTimeout> | undefined;
    let at = { x: 0, y: 0 };
    canvas.addEventListener('pointermove', (event) => {
      if (event.pointerType !== 'mouse' || event.buttons !== 0) return;
      at = { x: event.offsetX, y: event.offsetY };
      hover ??= setTimeout(() => {
        hover = undefined;
        const picked = this.viewer.pick(at.x, at.y, clickRadius.mouse);
        cursor.textContent = picked ? this.coordinatesOf(picked.position).join('  ') : '';
      }, hoverPause);
    });
    canvas.addEventListener('pointerleave', () => {
      clearTimeout(hover);
      hover = undefined;
      cursor.textContent = '';
    });
  }

  private listenToKeyboard(): void {
    const { viewer } = this;
    const arrow = (x: number, y: number) => (event: KeyboardEvent) =>
      event.shiftKey ? viewer.moveBy('rotate', -x * 0.1, -y * 0.1) : viewer.moveBy('pan', x * 60, y * 60);
    const zoom = (factor: number) => () => viewer.moveBy('zoom', factor);
    listenToKeys({
      ArrowLeft: arrow(1, 0), ArrowRight: arrow(-1, 0), ArrowUp: arrow(0, 1), ArrowDown: arrow(0, -1),
      '+': zoom(1 / 0.8), '=': zoom(1 / 0.8), '-': zoom(0.8), _: zoom(0.8),
      Home: () => this.fit('south'),
      t: () => this.fit('above'),
      m: () => this.setMeasuring(!this.isMeasuring),
      c: () => this.toggleClip(),
      '?': () => byId<HTMLDialogElement>('help').showModal(),
      Escape: () => {
        if (this.isMeasuring) this.setMeasuring(false);
        else if (!this.pointCard.hidden) this.closePointCard();
        else if (this.isSmall) this.togglePanel(false);
      },
      ...Object.fromEntries(colorModes.map((mode, i) => [String(i + 1), () => this.setMode(mode)])),
    });
  }

  private makeHelp(): void {
    const help = byId<HTMLDialogElement>('help');
    help.append(
      element('h2', { id: 'help-title' }, 'Keys and mouse'),
      definitions(keyHelp.map(({ keys, meaning }) => [keys, meaning])),
      button('Close', () => help.close(), { class: 'primary' }));
    help.addEventListener('click', (event) => {
      if (event.target === help) help.close(); // outside
    });
  }

  private togglePanel(isOpen = document.body.classList.contains('panel-closed')): void {
    document.body.classList.toggle('panel-closed', !isOpen);
    byId('panel').inert = !isOpen;
    this.toolbar.setPressed('panel', isOpen);
  }

  // The link.

  private makeCopyButton(): HTMLElement {
    const copy = button('Copy link to this view', async () => {
      this.updateLink();
      try {
        await navigator.clipboard.writeText(location.href);
        copy.textContent = 'Copied';
      } catch {
        copy.textContent = 'Copy it from the address bar';
      }
      setTimeout(() => copy.textContent = 'Copy link to this view', 2000);
    });
    return copy;
  }

  private scheduleLink(): void {
    this.linkTimer ??= setTimeout(() => this.updateLink(), linkPause);
  }

  private updateLink(): void {
    clearTimeout(this.linkTimer);
    this.linkTimer = undefined;
    const { scene } = this.viewer;
    if (!scene?.isReady) return;
    const { pointSize, budget, shading, background } = this.settings;
    const usual = defaultSettings(this.isSmall);
    const { clip } = this.clipPanel;
    const view: ViewState = {
      eye: scene.space.toFile(this.viewer.eye),
      target: scene.space.toFile(this.viewer.target),
      mode: scene.mode,
      hiddenClasses: [...scene.hiddenClasses],
      ...(pointSize !== usual.pointSize && { pointSize }),
      ...(budget !== usual.budget && { budget }),
      ...(shading !== usual.shading && { shading }),
      ...(background !== usual.background && { background }),
      ...(clip && { clip }),
    };
    this.ownHash = encodeView(view);
    this.replaceAddress(location.pathname + location.search + this.ownHash);
  }

  private replaceAddress(address: string): void {
    try {
      history.replaceState(null, '', address);
    } catch {
      // Browsers refuse too many changes, and changes in sandboxed frames: the link is a little old then.
    }
  }

  private makeRemote(): Remote {
    const { viewer } = this;
    return {
      state: () => this.state,
      open: async (source) => {
        this.pendingView = {};
        await this.open(source);
      },
      setView: ({ position, target }) => this.applyCamera({ eye: position, target }),
      setColor: (mode) => {
        if (isColorMode(mode)) this.setMode(mode);
      },
      setClip: (box) => this.clipPanel.set(box && isProper(box) ? box : null, true),
      setBudget: (points) => {
        this.settings.budget = Math.min(budgets.max, Math.max(budgets.min, points));
        this.settingsPanel.update();
        this.applySettings();
      },
      pick: (x, y) => {
        const picked = viewer.pick(x, y, clickRadius.mouse);
        return picked && viewer.scene
          ? { position: viewer.scene.space.toFile(picked.position), fileIndex: picked.fileIndex } : null;
      },
    };
  }

  private get state(): PageState {
    const { scene } = this.viewer;
    const { message } = this.errorBox;
    const pending = scene?.pending ?? { none: 0, waiting: 0, final: 0 };
    const isBusy = scene !== null &&
      (pending.none + pending.waiting > 0 || scene.numRunning > 0 || this.viewer.isFramePending);
    const atRest = message !== null ? 'error' : scene ? 'idle' : 'empty';
    const status = this.opening ? 'opening' : isBusy ? 'refining' : atRest;
    return {
      status,
      shownPoints: scene?.numDrawnPoints ?? 0,
      drawnNodes: scene?.selection.drawn.length ?? 0,
      pendingQueries: pending.none + pending.waiting,
      firstPictureMs: this.firstPictureMs,
      framesRendered: this.viewer.framesRendered,
      requests: this.cloud?.traffic.requests ?? 0,
      bytes: this.cloud?.traffic.bytes ?? 0,
      error: message,
    };
  }
}

// Other schemes could run scripts, or read what the page may not.
function toWebAddress(source: string): URL {
  let url: URL | null = null;
  try {
    url = new URL(source, location.href);
  } catch {
    // reported below
  }
  if (!url || !['http:', 'https:'].includes(url.protocol))
    throw new Error(`${printable(source, 200)} is not the address of a file on a web server.`);
  return url;
}

function messageOf(error: unknown): string {
  return error instanceof Error ? error.message : String(error);
}
