// Coordinates of the file and coordinates of the scene.
import { map, type Box, type Vector } from './Geometry.js';

/**
 * Scene coordinates are relative to a centre and have the same unit on all axes, so that degrees and metres, or metres
 * and feet, are drawn in proportion.
 */
export class SceneSpace {
  /** `scale` has positive numbers: units of the scene per unit of the file. */
  constructor(readonly center: Vector, readonly scale: Vector) {}

  toScene(point: Vector): Vector {
    return map((axis) => (point[axis] - this.center[axis]) * this.scale[axis]);
  }

  toFile(point: Vector): Vector {
    return map((axis) => point[axis] / this.scale[axis] + this.center[axis]);
  }

  boxToScene(box: Box): Box {
    return { min: this.toScene(box.min), max: this.toScene(box.max) };
  }

  boxToFile(box: Box): Box {
    return { min: this.toFile(box.min), max: this.toFile(box.max) };
  }
}
