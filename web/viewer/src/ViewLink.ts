// A view as the fragment of a URL. What comes from a URL is checked: anybody can write one.
import { isColorMode, type ColorMode } from './ColorModes.js';
import { isProper, type Box, type Vector } from './Geometry.js';

/** Everything is optional. Coordinates are those of the file. */
export interface ViewState {
  eye?: Vector;
  target?: Vector;
  mode?: ColorMode;
  hiddenClasses?: readonly number[];
  /** A factor. */
  pointSize?: number;
  /** In points. */
  budget?: number;
  shading?: boolean;
  background?: string;
  clip?: Box;
}

export const backgrounds: Readonly<Record<string, string>> = {
  dark: '#14181d', black: '#000000', gray: '#6b7075', light: '#eef0f2',
};
export const pointSizes = { min: 0.25, max: 4 } as const;
export const budgets = { min: 100_000, max: 10_000_000 } as const;

const farthest = 1e12;
const longest = 4000; // characters

/** The fragment, with '#'. */
export function encodeView(view: ViewState): string {
  const parts: string[] = [];
  // Millimetres of coordinates with seven digits before the point, or of degrees.
  const add = (key: string, numbers: readonly number[]) =>
    parts.push(`${key}=${numbers.map((number) => Number(number.toPrecision(12))).join(',')}`);
  if (view.eye) add('eye', view.eye);
  if (view.target) add('at', view.target);
  if (view.mode) parts.push(`color=${view.mode}`);
  if (view.hiddenClasses?.length) add('hide', view.hiddenClasses);
  if (view.pointSize !== undefined) add('size', [view.pointSize]);
  if (view.budget !== undefined) add('budget', [view.budget]);
  if (view.shading !== undefined) add('shade', [view.shading ? 1 : 0]);
  if (view.background) parts.push(`back=${view.background}`);
  if (view.clip) add('clip', [...view.clip.min, ...view.clip.max]);
  return `#${parts.join('&')}`;
}

/** The parts of the fragment that are valid. */
export function decodeView(fragment: string): ViewState {
  const view: ViewState = {};
  if (fragment.length > longest) return view;
  let fields: URLSearchParams;
  try {
    fields = new URLSearchParams(fragment.replace(/^#/, ''));
  } catch {
    return view;
  }
  const numbers = (key: string): number[] | null => {
    const values = (fields.get(key) ?? '').split(',').map((text) => (text.trim() === '' ? NaN : Number(text)));
    return values.every((value) => Math.abs(value) <= farthest) ? values : null;
  };
  const vector = (key: string): Vector | null => {
    const values = numbers(key);
    return values?.length === 3 ? (values as unknown as Vector) : null;
  };
  const number = (key: string, { min, max }: { min: number; max: number }): number | null => {
    const values = numbers(key);
    return values?.length === 1 && (values[0] as number) >= min && (values[0] as number) <= max
      ? values[0] as number : null;
  };

  const eye = vector('eye'), target = vector('at');
  if (eye && target && Math.hypot(...eye.map((value, i) => value - (target[i] as number))) > 0)
    Object.assign(view, { eye, target });
  const mode = fields.get('color');
  if (isColorMode(mode)) view.mode = mode;
  const hidden = numbers('hide');
  if (hidden?.every((code) => Number.isInteger(code) && code >= 0 && code <= 255))
    view.hiddenClasses = [...new Set(hidden)];
  const pointSize = number('size', pointSizes), budget = number('budget', budgets);
  if (pointSize !== null) view.pointSize = pointSize;
  if (budget !== null) view.budget = Math.round(budget);
  const shading = number('shade', { min: 0, max: 1 });
  if (shading !== null) view.shading = shading >= 0.5;
  const background = fields.get('back');
  if (background !== null && Object.hasOwn(backgrounds, background)) view.background = background;
  const clip = numbers('clip');
  if (clip?.length === 6) {
    const box = { min: clip.slice(0, 3), max: clip.slice(3) } as unknown as Box;
    if (isProper(box)) view.clip = box;
  }
  return view;
}
