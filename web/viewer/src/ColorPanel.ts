// What points are coloured by, which classes are hidden, and the legend.
import { colorModes, modeNames, type ColorMode } from './ColorModes.js';
import { element } from './Dom.js';
import { Legend } from './Legend.js';
import type { Viewer } from './Viewer.js';

/** Lets the user choose a colour mode and hide classes. */
export class ColorPanel {
  private readonly legend: Legend;
  private readonly inputs = new Map<ColorMode, HTMLInputElement>();

  constructor(
    modesBox: HTMLElement, legendBox: HTMLElement, private readonly viewer: Viewer,
    private readonly onChange: () => void,
  ) {
    this.legend = new Legend(legendBox, (codes) => this.setHiddenClasses(codes));
    modesBox.append(element('div', { class: 'segments' }, ...colorModes.map((mode) => {
      const input = element('input', { type: 'radio', name: 'mode', value: mode });
      input.addEventListener('change', () => this.setMode(mode));
      this.inputs.set(mode, input);
      return element('label', {}, input, element('span', {}, modeNames[mode]));
    })));
  }

  /** Does nothing if the file does not have this mode. */
  setMode(mode: ColorMode): void {
    if (!this.viewer.scene?.modes.includes(mode)) return;
    this.viewer.setMode(mode);
    this.updateModes();
    this.updateLegend();
    this.onChange();
  }

  setHiddenClasses(codes: ReadonlySet<number>): void {
    this.viewer.setHiddenClasses(codes);
    this.updateLegend();
    this.onChange();
  }

  /** Shows the mode of the scene, and which ones it has. */
  updateModes(): void {
    const { scene } = this.viewer;
    for (const [mode, input] of this.inputs) {
      input.disabled = !scene?.modes.includes(mode);
      input.checked = scene?.mode === mode;
      (input.parentElement as HTMLElement).title = input.disabled && scene ? 'The file has no such channel' : '';
    }
  }

  /** Shows what is known of the scene's points. */
  updateLegend(): void {
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
      classNames: scene?.cloud.description.classNames ?? [],
      hiddenClasses: new Set(scene?.hiddenClasses),
      returns: numbers(scene?.returns),
    });
  }
}
