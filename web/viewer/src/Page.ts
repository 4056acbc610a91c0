// The page around the canvas: connects files, tools, panels and the link.
import type { Cloud, CloudError } from '@vxunpack/decoder';
import { AddressLink } from './AddressLink.js';
import { ClipPanel } from './ClipPanel.js';
import { CloudOpener, nameOf, type Source } from './CloudOpener.js';
import { colorModes, isColorMode } from './ColorModes.js';
import { ColorPanel } from './ColorPanel.js';
import { formatPosition } from './Coordinates.js';
import { byId } from './Dom.js';
import { ErrorBox, messageOf } from './ErrorBox.js';
import { askForFile, listenToFiles } from './FileInput.js';
import { isProper } from './Geometry.js';
import { fillHelp } from './Help.js';
import { InfoPanel } from './InfoPanel.js';
import { listenToKeys } from './Keyboard.js';
import { LinkedView } from './LinkedView.js';
import { LoadErrors } from './LoadErrors.js';
import { MeasureTool } from './MeasureTool.js';
import { clipLines, type OverlayItems } from './Overlay.js';
import { PointCard } from './PointCard.js';
import { clickRadius, listenToPointer } from './PointerInput.js';
import { stateOf, type Remote } from './Remote.js';
import { SettingsPanel } from './Settings.js';
import { StatusLine } from './StatusLine.js';
import { printable } from './Text.js';
import { Toolbar } from './Toolbar.js';
import { Viewer } from './Viewer.js';
import { budgets, type ViewState } from './ViewLink.js';

const contextLost = 'The graphics processor was reset. Waiting until it is ready again.';

/** Everything that the user sees. */
export class Page {
  readonly remote: Remote;
  private readonly canvas = byId<HTMLCanvasElement>('canvas');
  private readonly help = byId<HTMLDialogElement>('help');
  private readonly isSmall = matchMedia('(pointer: coarse), (max-width: 700px)').matches;
  private readonly viewer: Viewer;
  private readonly toolbar: Toolbar;
  private readonly errorBox = new ErrorBox(byId('error'));
  private readonly loadErrors: LoadErrors;
  private readonly statusLine = new StatusLine(byId('counts'), byId('cursor'));
  private readonly info = new InfoPanel(byId('info'));
  private readonly settings: SettingsPanel;
  private readonly colors: ColorPanel;
  private readonly clipPanel: ClipPanel;
  private readonly pointCard: PointCard;
  private readonly measureTool: MeasureTool;
  private readonly view: LinkedView;
  private readonly link = new AddressLink(() => this.view.current);

  private readonly opener = new CloudOpener();
  private cloud: Cloud | null = null;
  private source: Source | null = null;
  private openTime = 0;
  private firstPictureMs: number | null = null;

  /** Throws if the browser has no WebGL 2. */
  constructor() {
    const viewer = this.viewer = new Viewer(this.canvas, {
      ready: () => this.onReady(),
      legendChanged: () => this.colors.updateLegend(),
      failed: (error, isFinal) => this.loadErrors.report(error, isFinal),
      drawn: () => this.onDrawn(),
      moved: () => this.link.schedule(),
      contextLost: () => this.errorBox.show(contextLost),
      contextRestored: () => {
        if (this.errorBox.message === contextLost) this.errorBox.hide();
      },
    });
    this.canvas.after(viewer.overlay.element);
    viewer.overlayItems = () => this.makeOverlay();

    this.toolbar = new Toolbar(byId('toolbar'), {
      open: askForFile,
      home: () => this.view.fit('south'),
      top: () => this.view.fit('above'),
      measure: () => this.toggleMeasuring(),
      clip: () => this.toggleClip(),
      help: () => this.help.showModal(),
      panel: () => this.togglePanel(),
    });
    const onChange = () => this.link.schedule();
    this.settings = new SettingsPanel(byId('settings'), viewer, this.isSmall, onChange);
    this.colors = new ColorPanel(byId('modes'), byId('legend'), viewer, onChange);
    this.clipPanel = new ClipPanel(byId('clip'), () => this.applyClip(), () => {
      const seen = viewer.boundsOnScreen();
      return seen && (viewer.scene?.space.boxToFile(seen) ?? null);
    });
    this.pointCard = new PointCard(byId('point-card'), viewer, this.errorBox);
    this.measureTool = new MeasureTool(byId('measure-card'), viewer, (isOn) => this.onMeasuring(isOn));
    this.view = new LinkedView(viewer, this.settings, this.colors, this.clipPanel);
    this.loadErrors = new LoadErrors(this.errorBox, viewer, this.settings, () => this.reopen());
    fillHelp(this.help);
    byId('share').append(this.link.makeCopyButton());
    this.listen();
    this.closeCloud();
    this.togglePanel(!this.isSmall);
    this.remote = this.makeRemote();
  }

  /** Opens the file of the page's address, or asks for one. */
  start(): void {
    this.link.listen((view) => this.view.apply(view));
    const { source, view } = this.link;
    if (source) void this.open(source, view);
    else byId('welcome').hidden = false;
  }

  // Files.

  private async open(source: Source, view: ViewState): Promise<void> {
    this.closeCloud();
    this.errorBox.hide();
    this.loadErrors.reset();
    this.source = source;
    byId('welcome').hidden = true;
    this.setTitle(nameOf(source));
    this.openTime = performance.now();
    const end = this.opener.open(source, (cloud) => this.showCloud(cloud, view), (error) => {
      this.updateCounts();
      byId('welcome').hidden = false;
      const canRetry = (error as CloudError).code === 'network';
      this.errorBox.show(messageOf(error), canRetry ? () => void this.open(source, view) : null);
    });
    this.updateCounts();
    await end;
  }

  private reopen(): void {
    if (this.source !== null) void this.open(this.source, this.view.pending);
  }

  private showCloud(cloud: Cloud, view: ViewState): void {
    this.cloud = cloud;
    const { description } = cloud;
    this.setTitle(description.name);
    const scene = this.view.show(cloud, view);
    this.info.show(description, scene.system);
    this.colors.updateModes();
    this.toolbar.setEnabled(true);
    if (scene.isEmpty) this.errorBox.show(`${description.name} has no points.`);
  }

  private closeCloud(): void {
    this.viewer.clear();
    this.cloud?.close();
    this.cloud = null;
    this.firstPictureMs = null;
    this.measureTool.switch(false);
    this.pointCard.close();
    this.info.clear();
    this.toolbar.setEnabled(false);
    this.toolbar.setPressed('clip', false);
    this.colors.updateModes();
    this.colors.updateLegend();
    this.setTitle('');
  }

  // The first points are known.
  private onReady(): void {
    this.view.placeCamera();
    this.colors.updateModes();
    this.colors.updateLegend();
  }

  private onDrawn(): void {
    const { scene } = this.viewer;
    if (this.firstPictureMs === null && scene && scene.numDrawnPoints > 0)
      this.firstPictureMs = performance.now() - this.openTime;
    this.loadErrors.update();
    this.updateCounts();
  }

  private updateCounts(): void {
    const { isOpening } = this.opener;
    this.statusLine.showCounts(this.viewer.scene, isOpening);
    if (this.cloud && !isOpening) this.info.showTraffic(this.cloud.traffic, this.cloud.description.size);
  }

  private setTitle(name: string): void {
    const text = printable(name, 120);
    byId('title').textContent = text || 'No file';
    document.title = text ? `${text} – Point cloud viewer` : 'Point cloud viewer';
  }

  // Tools.

  private applyClip(): void {
    const { scene } = this.viewer;
    const { clip } = this.clipPanel;
    this.viewer.setClip(scene && clip ? scene.space.boxToScene(clip) : null);
    this.toolbar.setPressed('clip', clip !== null);
    this.link.schedule();
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

  private toggleMeasuring(): void {
    this.measureTool.switch(!this.measureTool.isOn);
  }

  private onMeasuring(isOn: boolean): void {
    if (isOn) this.pointCard.close();
    this.toolbar.setPressed('measure', isOn);
    this.canvas.classList.toggle('measuring', isOn);
  }

  private onClick(x: number, y: number, radius: number): void {
    const picked = this.viewer.pick(x, y, radius);
    if (picked) void (this.measureTool.isOn ? this.measureTool.add(picked) : this.pointCard.show(picked));
    else if (!this.measureTool.isOn) this.pointCard.close();
  }

  private makeOverlay(): OverlayItems {
    const { scene } = this.viewer;
    const { position } = this.pointCard;
    const { lines, dots, labels } = this.measureTool.items;
    return {
      lines: scene?.isReady && scene.clip ? [...clipLines(scene.clip), ...lines] : lines,
      dots: position ? [...dots, position] : dots,
      labels,
    };
  }

  private togglePanel(isOpen = document.body.classList.contains('panel-closed')): void {
    document.body.classList.toggle('panel-closed', !isOpen);
    byId('panel').inert = !isOpen;
    this.toolbar.setPressed('panel', isOpen);
  }

  // What the user does.

  private listen(): void {
    const { viewer } = this;
    listenToFiles((file) => {
      this.link.setSource(null);
      void this.open(file, {});
    }, (url) => {
      this.link.setSource(url);
      void this.open(url, {});
    });
    listenToPointer(this.canvas, {
      click: (x, y, radius) => this.onClick(x, y, radius),
      doubleClick: (x, y, radius) => {
        const picked = this.measureTool.isOn ? null : viewer.pick(x, y, radius);
        if (picked) viewer.lookAt(picked.position);
      },
      hover: (x, y, radius) => {
        const picked = viewer.pick(x, y, radius);
        this.statusLine.showCursor(viewer.scene && picked
          ? formatPosition(viewer.scene, picked.position).join('  ') : '');
      },
      leave: () => this.statusLine.showCursor(''),
    });
    const arrow = (x: number, y: number) => (event: KeyboardEvent) =>
      event.shiftKey ? viewer.moveBy('rotate', -x * 0.1, -y * 0.1) : viewer.moveBy('pan', x * 60, y * 60);
    const zoom = (factor: number) => () => viewer.moveBy('zoom', factor);
    listenToKeys({
      ArrowLeft: arrow(1, 0), ArrowRight: arrow(-1, 0), ArrowUp: arrow(0, 1), ArrowDown: arrow(0, -1),
      '+': zoom(1 / 0.8), '=': zoom(1 / 0.8), '-': zoom(0.8), _: zoom(0.8),
      Home: () => this.view.fit('south'),
      t: () => this.view.fit('above'),
      m: () => this.toggleMeasuring(),
      c: () => this.toggleClip(),
      '?': () => this.help.showModal(),
      Escape: () => {
        if (this.measureTool.isOn) this.measureTool.switch(false);
        else if (this.pointCard.isOpen) this.pointCard.close();
        else if (this.isSmall) this.togglePanel(false);
      },
      ...Object.fromEntries(colorModes.map((mode, i) => [String(i + 1), () => this.colors.setMode(mode)])),
    });
  }

  private makeRemote(): Remote {
    const { viewer } = this;
    return {
      state: () => stateOf(viewer, {
        isOpening: this.opener.isOpening, firstPictureMs: this.firstPictureMs, error: this.errorBox.message,
      }),
      open: (source) => {
        this.link.setSource(typeof source === 'string' ? source : null);
        return this.open(source, {});
      },
      setView: ({ position, target }) => this.view.setCamera({ eye: position, target }),
      setColor: (mode) => {
        if (isColorMode(mode)) this.colors.setMode(mode);
      },
      setClip: (box) => this.clipPanel.set(box && isProper(box) ? box : null, true),
      setBudget: (points) => {
        if (points > 0) this.settings.set({ budget: Math.min(budgets.max, Math.max(budgets.min, points)) });
      },
      pick: (x, y) => {
        const picked = viewer.pick(x, y, clickRadius.mouse);
        return picked && viewer.scene
          ? { position: viewer.scene.space.toFile(picked.position), fileIndex: picked.fileIndex } : null;
      },
    };
  }
}
