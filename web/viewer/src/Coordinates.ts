// Coordinates as text.
import type { Description } from '@vxunpack/decoder';
import type { CloudScene } from './CloudScene.js';
import { map, type Vector } from './Geometry.js';
import { decimalsOf } from './Text.js';

/** How many decimals X, Y and Z of a file have. */
export function decimalsOfAxes({ channels }: Description): Vector {
  return map((axis) => decimalsOf(channels.find(({ name }) => name === 'XYZ'[axis])?.quantization ?? 0));
}

/** X, Y and Z in the file of a position in the scene. */
export function formatPosition(scene: CloudScene, position: Vector): string[] {
  const decimals = decimalsOfAxes(scene.cloud.description);
  return scene.space.toFile(position).map((value, axis) => value.toFixed(decimals[axis]));
}
