// What points are coloured by.

/** In the order of the keys 1 to 5 and of the numbers in the shader. */
export const colorModes = ['rgb', 'elevation', 'intensity', 'class', 'return'] as const;
export type ColorMode = (typeof colorModes)[number];

export const modeNames: Readonly<Record<ColorMode, string>> = {
  rgb: 'RGB', elevation: 'Elevation', intensity: 'Intensity', class: 'Class', return: 'Return',
};

const channels: Readonly<Record<ColorMode, readonly string[]>> = {
  rgb: ['Red', 'Green', 'Blue'], elevation: [], intensity: ['Intensity'], class: ['ClassId'], return: ['ReturnNum'],
};

export function isColorMode(text: unknown): text is ColorMode {
  return (colorModes as readonly unknown[]).includes(text);
}

/** The modes that a file with these channels has. */
export function availableModes(channelNames: ReadonlySet<string>): ColorMode[] {
  return colorModes.filter((mode) => channels[mode].every((name) => channelNames.has(name)));
}

/** The channels that are drawn or filtered, besides X, Y and Z. */
export function neededChannels(mode: ColorMode, areClassesHidden: boolean): readonly string[] {
  return areClassesHidden && mode !== 'class' ? [...channels[mode], ...channels.class] : channels[mode];
}
