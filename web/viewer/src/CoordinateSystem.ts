// Name and units of a coordinate system, from its WKT (version 1 or 2).
import type { Vector } from './Geometry.js';

export interface Unit {
  readonly symbol: string;
  /** NaN for degrees. */
  readonly metres: number;
}

export interface CoordinateSystem {
  readonly name: string | null;
  /** True if X and Y are longitude and latitude. */
  readonly isGeographic: boolean;
  readonly horizontal: Unit | null;
  readonly vertical: Unit | null;
}

// KEYWORD["text", number, KEYWORD[...], ...]
interface Part {
  keyword: string;
  texts: string[];
  numbers: number[];
  parts: Part[];
}

const deepest = 32; // usual texts have seven levels
const longest = 65536;

const metre: Unit = { symbol: 'm', metres: 1 };
const degree: Unit = { symbol: '°', metres: NaN };

/** What is known of the system with this text. Texts that cannot be read have no name and no units. */
export function parseCoordinateSystem(wkt: string | null): CoordinateSystem {
  const root = wkt ? new Parser(wkt.slice(0, longest)).parse(0) : null;
  const system = root && findFirst(root, [
    'PROJCS', 'PROJCRS', 'PROJECTEDCRS', 'GEOGCS', 'GEOGCRS', 'GEOGRAPHICCRS', 'GEODCRS', 'GEODETICCRS', 'GEOCCS',
    'LOCAL_CS', 'ENGCRS']);
  if (!root || !system) return { name: null, isGeographic: false, horizontal: null, vertical: null };
  const isGeographic =
    ['GEOGCS', 'GEOGCRS', 'GEOGRAPHICCRS', 'GEODCRS', 'GEODETICCRS'].includes(system.keyword) &&
    !findFirst(system, ['AXIS'])?.texts[0]?.includes('(X)'); // geocentric
  const horizontal = isGeographic ? degree : unitOf(system);
  const heights = findFirst(root, ['VERT_CS', 'VERTCRS', 'VERTICALCRS']);
  // A system without heights has them in its own unit, as in GeoTIFF keys.
  const vertical = heights ? unitOf(heights) : isGeographic ? metre : horizontal;
  const names = [root === system ? system.texts[0] : root.texts[0], system.texts[0]];
  const name = names.find((text) => text && !['unnamed', 'unknown'].includes(text.toLowerCase())) ?? null;
  return { name, isGeographic, horizontal, vertical };
}

/** Metres, or other units of length, per unit of each axis at a latitude. The scene is drawn in them. */
export function axisScales(system: CoordinateSystem, latitude: number): Vector {
  const { isGeographic, horizontal, vertical } = system;
  if (isGeographic) {
    // Series for the ellipsoid of WGS 84.
    const phi = Math.max(-89, Math.min(89, Number.isFinite(latitude) ? latitude : 0)) * Math.PI / 180;
    const perLongitude = 111412.84 * Math.cos(phi) - 93.5 * Math.cos(3 * phi) + 0.118 * Math.cos(5 * phi);
    const perLatitude = 111132.92 - 559.82 * Math.cos(2 * phi) + 1.175 * Math.cos(4 * phi);
    return [perLongitude, perLatitude, vertical?.metres ?? 1];
  }
  return [1, 1, horizontal && vertical ? vertical.metres / horizontal.metres : 1];
}

/** The unit of the scene: that of `axisScales`. */
export function sceneUnit(system: CoordinateSystem): Unit | null {
  return system.isGeographic ? metre : system.horizontal;
}

function unitOf(system: Part): Unit | null {
  const keywords = ['UNIT', 'LENGTHUNIT'];
  const axes = system.parts.filter((part) => part.keyword === 'AXIS');
  const part = system.parts.find((each) => keywords.includes(each.keyword)) ??
    axes.map((axis) => findFirst(axis, keywords)).find((each) => each);
  if (!part) return null;
  const text = (part.texts[0] ?? '').toLowerCase();
  const known: [string[], Unit][] = [
    [['metre', 'meter', 'metres', 'meters', 'm'], metre],
    [['foot', 'feet', 'ft', 'international foot'], { symbol: 'ft', metres: 0.3048 }],
    [['us survey foot', 'foot_us', 'u.s. foot', 'us foot', 'us-ft', 'foot us', 'us survey feet'],
      { symbol: 'ftUS', metres: 1200 / 3937 }],
  ];
  for (const [names, unit] of known) if (names.includes(text)) return unit;
  const metres = part.numbers[0];
  return metres !== undefined && metres > 1e-6 && metres < 1e6 ? { symbol: part.texts[0] ?? '', metres } : null;
}

function findFirst(part: Part, keywords: readonly string[]): Part | null {
  if (keywords.includes(part.keyword)) return part;
  for (const each of part.parts) {
    const found = findFirst(each, keywords);
    if (found) return found;
  }
  return null;
}

class Parser {
  private at = 0;

  constructor(private readonly text: string) {}

  parse(depth: number): Part {
    const part: Part = { keyword: this.match(/[\w.+-]*/y).toUpperCase(), texts: [], numbers: [], parts: [] };
    if (part.keyword === '' || !this.match(/[[(]/y)) return part;
    while (depth < deepest && this.at < this.text.length && !this.match(/[\])]/y)) {
      const before = this.at;
      const quoted = this.match(/"(?:[^"]|"")*"?/y);
      if (quoted) {
        part.texts.push(quoted.replace(/^"|"$/g, '').replaceAll('""', '"'));
      } else {
        const inner = this.parse(depth + 1);
        const number = Number(inner.keyword);
        if (inner.keyword !== '' && Number.isFinite(number)) part.numbers.push(number);
        else if (inner.keyword !== '') part.parts.push(inner);
      }
      this.match(/,/y);
      if (this.at === before) ++this.at;
    }
    return part;
  }

  private match(pattern: RegExp): string {
    const blanks = /\s*/y;
    blanks.lastIndex = this.at;
    blanks.exec(this.text);
    pattern.lastIndex = blanks.lastIndex;
    const found = pattern.exec(this.text)?.[0] ?? '';
    if (found) this.at = blanks.lastIndex + found.length;
    return found;
  }
}
