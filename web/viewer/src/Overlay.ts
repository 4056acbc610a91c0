// Lines, dots and labels over the canvas.
import * as THREE from 'three';
import { boxEdges, cornersOf, type Box, type Vector } from './Geometry.js';

export interface OverlayLine {
  readonly from: Vector;
  readonly to: Vector;
  readonly kind: 'clip' | 'measure';
}

export interface OverlayItems {
  readonly lines: readonly OverlayLine[];
  readonly dots: readonly Vector[];
  readonly labels: readonly { readonly at: Vector; readonly text: string }[];
}

const svgNamespace = 'http://www.w3.org/2000/svg';

/** Draws items of the scene where the camera sees them. */
export class Overlay {
  readonly element = document.createElement('div');
  private readonly svg = document.createElementNS(svgNamespace, 'svg');

  constructor() {
    this.element.className = 'overlay';
    this.element.append(this.svg);
    this.svg.setAttribute('aria-hidden', 'true');
  }

  /** Sizes are in CSS pixels. */
  draw(items: OverlayItems, camera: THREE.PerspectiveCamera, width: number, height: number): void {
    if (this.isEmpty && items.lines.length + items.dots.length === 0) return;
    const shapes: SVGElement[] = [];
    const make = (name: string, kind: string, attributes: Record<string, number>) => {
      const shape = document.createElementNS(svgNamespace, name);
      shape.setAttribute('class', kind);
      for (const [key, value] of Object.entries(attributes)) shape.setAttribute(key, value.toFixed(1));
      shapes.push(shape);
    };
    const onScreen = (point: THREE.Vector3) => {
      const { x, y } = point.clone().applyMatrix4(camera.projectionMatrix);
      return { x: (x + 1) / 2 * width, y: (1 - y) / 2 * height };
    };
    const inView = (point: Vector) => new THREE.Vector3(...point).applyMatrix4(camera.matrixWorldInverse);
    for (const { from, to, kind } of items.lines) {
      const ends = clipToNear(inView(from), inView(to), camera.near);
      if (!ends) continue;
      const a = onScreen(ends[0]), b = onScreen(ends[1]);
      make('line', kind, { x1: a.x, y1: a.y, x2: b.x, y2: b.y });
    }
    for (const dot of items.dots) {
      const point = inView(dot);
      if (point.z > -camera.near) continue;
      const { x, y } = onScreen(point);
      make('circle', 'measure', { cx: x, cy: y, r: 4.5 });
    }
    this.svg.replaceChildren(...shapes);
    const labels = items.labels.flatMap(({ at, text }) => {
      const point = inView(at);
      if (point.z > -camera.near) return [];
      const { x, y } = onScreen(point);
      const label = document.createElement('span');
      label.textContent = text;
      label.style.transform = `translate(-50%, -50%) translate(${x.toFixed(1)}px, ${y.toFixed(1)}px)`;
      return [label];
    });
    this.element.replaceChildren(this.svg, ...labels);
  }

  private get isEmpty(): boolean {
    return this.svg.childElementCount === 0;
  }
}

/** The edges of a clipping box. */
export function clipLines(box: Box): OverlayLine[] {
  const corners = cornersOf(box);
  return boxEdges.map(([a, b]) => ({ from: corners[a] as Vector, to: corners[b] as Vector, kind: 'clip' }));
}

// The part of a line before the camera's near plane is cut off, in view coordinates; null if nothing is left.
function clipToNear(a: THREE.Vector3, b: THREE.Vector3, near: number): [THREE.Vector3, THREE.Vector3] | null {
  const limit = -near;
  if (a.z > limit && b.z > limit) return null;
  const cut = (outside: THREE.Vector3, inside: THREE.Vector3) =>
    inside.clone().lerp(outside, (limit - inside.z) / (outside.z - inside.z));
  return [a.z > limit ? cut(a, b) : a, b.z > limit ? cut(b, a) : b];
}
