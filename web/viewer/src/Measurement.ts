// Lengths along picked points.
import type { Vector } from './Geometry.js';

export interface Segment {
  readonly from: Vector;
  readonly to: Vector;
  /** In space, in units of the scene. */
  readonly length: number;
  /** In the plane, in units of the scene. */
  readonly horizontal: number;
  /** Height of the second point above the first one, in units of the scene. */
  readonly vertical: number;
}

/** A line through points of the scene. */
export class Measurement {
  private readonly points: Vector[] = [];

  get vertices(): readonly Vector[] {
    return this.points;
  }

  get segments(): Segment[] {
    return this.points.slice(1).map((to, i) => {
      const from = this.points[i] as Vector;
      const horizontal = Math.hypot(to[0] - from[0], to[1] - from[1]);
      const vertical = to[2] - from[2];
      return { from, to, horizontal, vertical, length: Math.hypot(horizontal, vertical) };
    });
  }

  get total(): { readonly length: number; readonly horizontal: number } {
    const { segments } = this;
    const sum = (key: 'length' | 'horizontal') => segments.reduce((all, segment) => all + segment[key], 0);
    return { length: sum('length'), horizontal: sum('horizontal') };
  }

  /** Returns a function that replaces the point by a more exact one, if it is still there. */
  add(point: Vector): (exact: Vector) => void {
    this.points.push(point);
    return (exact) => {
      const at = this.points.indexOf(point);
      if (at >= 0) this.points[at] = exact;
    };
  }

  undo(): void {
    this.points.pop();
  }

  clear(): void {
    this.points.length = 0;
  }
}
