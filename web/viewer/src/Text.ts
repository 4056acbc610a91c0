// Text from files, and numbers as text.

// Control characters, and those that change the direction of text or cannot be seen.
const unprintable = new RegExp(`[${[
  '\\0-\\x08', '\\x0b-\\x1f', '\\x7f-\\x9f', '\\u061c', '\\u200b-\\u200f', '\\u2028-\\u202e', '\\u2060-\\u206f',
  '\\ufeff', '\\ufff9-\\ufffb',
].join('')}]`, 'g');

/** Text of a file for display: without control characters, and cut if it is longer than `limit`. */
export function printable(text: string, limit = 2000): string {
  const cut = text.length > limit;
  const clean = (cut ? text.slice(0, limit) : text).replaceAll('\r\n', '\n').replace(unprintable, '');
  return cut ? `${clean} …` : clean;
}

/** A whole number with separators of thousands. */
export function formatCount(count: number): string {
  return Math.round(count).toLocaleString('en');
}

/** Bytes, as '1.4 MB'. */
export function formatBytes(bytes: number): string {
  const units = ['bytes', 'kB', 'MB', 'GB', 'TB'];
  let value = bytes, unit = 0;
  while (value >= 1000 && unit + 1 < units.length) {
    value /= 1000;
    ++unit;
  }
  return `${unit === 0 ? value : value.toFixed(value < 10 ? 1 : 0)} ${units[unit]}`;
}

/** How many decimals show the multiples of a step; 3 if there is no step. */
export function decimalsOf(step: number): number {
  const most = 9;
  if (!(step > 0) || !Number.isFinite(step)) return 3;
  for (let decimals = 0; decimals <= most; ++decimals) {
    const scaled = step * 10 ** decimals;
    if (scaled > 0.5 && Math.abs(scaled - Math.round(scaled)) < 1e-9 * scaled) return decimals;
  }
  // Steps that are not decimal fractions, such as a third of a millimetre.
  return Math.min(most, Math.max(0, Math.ceil(-Math.log10(step))));
}

/** A length, with about five significant digits and at most three decimals. */
export function formatLength(length: number): string {
  const magnitude = Math.abs(length);
  if (!Number.isFinite(length)) return '–';
  const decimals = magnitude < 100 ? 3 : magnitude < 1000 ? 2 : magnitude < 10000 ? 1 : 0;
  return length.toFixed(decimals);
}

/** A short label for a number between `min` and `max`. */
export function formatTick(value: number, min: number, max: number): string {
  const span = Math.abs(max - min);
  const decimals = span > 0 ? Math.min(6, Math.max(0, 2 - Math.floor(Math.log10(span)))) : 2;
  return value.toFixed(decimals);
}
