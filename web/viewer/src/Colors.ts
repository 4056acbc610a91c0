// The colours of quantities and of classes, as those of vxview. Colours are red, green and blue from 0 to 255.

export type Color = readonly [number, number, number];

interface Stop {
  readonly position: number;
  readonly lightness: number;
  readonly chroma: number;
  readonly hue: number;
}

/**
 * The colour of the OKLab space (Ottosson, "A perceptual color space for image processing", 2020) with a lightness from
 * 0 to 1, a chroma, and a hue in degrees. Colours that sRGB does not have are clipped.
 */
export function fromLightnessChromaHue(lightness: number, chroma: number, hue: number): Color {
  const angle = hue * Math.PI / 180;
  const a = chroma * Math.cos(angle), b = chroma * Math.sin(angle);
  const l = (lightness + 0.3963377774 * a + 0.2158037573 * b) ** 3;
  const m = (lightness - 0.1055613458 * a - 0.0638541728 * b) ** 3;
  const s = (lightness - 0.0894841775 * a - 1.2914855480 * b) ** 3;
  const toByte = (linear: number) => {
    const clipped = Math.min(1, Math.max(0, linear));
    const encoded = clipped <= 0.0031308 ? 12.92 * clipped : 1.055 * clipped ** (1 / 2.4) - 0.055;
    return Math.round(encoded * 255);
  };
  return [
    toByte(4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s),
    toByte(-1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s),
    toByte(-0.0041960863 * l - 0.7034186147 * m + 1.7076147010 * s),
  ];
}

function interpolate(stops: readonly Stop[]): Color[] {
  return Array.from({ length: 256 }, (_, i) => {
    const position = i / 255;
    const next = Math.max(1, stops.findIndex((stop) => stop.position >= position));
    const a = stops[next - 1] as Stop, b = stops[next] as Stop;
    const part = (position - a.position) / (b.position - a.position);
    const mix = (key: 'lightness' | 'chroma' | 'hue') => a[key] + (b[key] - a[key]) * part;
    return fromLightnessChromaHue(mix('lightness'), mix('chroma'), mix('hue'));
  });
}

/** 256 colours from blue over green to yellow, of steadily growing lightness. */
export const spectralRamp: readonly Color[] = interpolate([
  { position: 0, lightness: 0.4, chroma: 0.14, hue: 280 },
  { position: 0.5, lightness: 0.67, chroma: 0.12, hue: 190 },
  { position: 1, lightness: 0.94, chroma: 0.17, hue: 105 },
]);

/** 256 greys. Black would be lost on the background. */
export const grayRamp: readonly Color[] = interpolate([
  { position: 0, lightness: 0.35, chroma: 0, hue: 0 },
  { position: 1, lightness: 1, chroma: 0, hue: 0 },
]);

const usualClassColors: readonly Color[] = [
  [120, 120, 120], // never classified
  [160, 160, 160], // unclassified
  [165, 115, 65], // ground
  [165, 215, 100], // low vegetation
  [85, 175, 70], // medium vegetation
  [20, 115, 45], // high vegetation
  [225, 85, 45], // building
  [215, 40, 160], // low noise
  [245, 200, 60], // model key-point
  [55, 130, 215], // water
  [110, 75, 125], // rail
  [80, 80, 90], // road surface
  [225, 205, 175], // overlap
  [250, 225, 110], // wire guard
  [250, 175, 40], // wire conductor
  [150, 60, 30], // transmission tower
  [205, 140, 20], // wire connector
  [150, 140, 175], // bridge deck
  [240, 70, 200], // high noise
];

const usualClassNames: readonly string[] = [
  'Never classified', 'Unclassified', 'Ground', 'Low vegetation', 'Medium vegetation', 'High vegetation', 'Building',
  'Low noise', 'Model key-point', 'Water', 'Rail', 'Road surface', 'Overlap', 'Wire guard', 'Wire conductor',
  'Transmission tower', 'Wire connector', 'Bridge deck', 'High noise',
];

/** For small numbers, as those of returns. */
export function colorOfNumber(number: number): Color {
  const goldenAngle = 137.50776405; // no two hues of a few numbers are near each other
  return fromLightnessChromaHue(number % 2 === 0 ? 0.72 : 0.58, 0.14, 112.5 + number * goldenAngle);
}

/** Ground is brown, vegetation green, buildings red, water blue and so on. */
export function colorOfClass(code: number): Color {
  return usualClassColors[code] ?? colorOfNumber(code);
}

/** The name that the file gives to a class, or that LAS gives to it if the file names no classes; or ''. */
export function nameOfClass(code: number, fileNames: readonly (string | null)[]): string {
  return fileNames.some((name) => name) ? fileNames[code] ?? '' : usualClassNames[code] ?? '';
}

export function toCss(color: Color): string {
  return `rgb(${color.join(' ')})`;
}
