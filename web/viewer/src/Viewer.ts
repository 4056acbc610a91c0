// The canvas: camera, controls and frames.
import type { Cloud } from '@vxunpack/decoder';
import * as THREE from 'three';
import { OrbitControls } from 'three/addons/controls/OrbitControls.js';
import { CloudScene, type CloudSceneEvents, type PickedPoint } from './CloudScene.js';
import type { ColorMode } from './ColorModes.js';
import { EyeDomeLighting } from './EyeDomeLighting.js';
import { centerOf, cornersOf, diagonalOf, distanceToBox, doIntersect, type Box, type Vector } from './Geometry.js';
import type { NodeView } from './NodeTree.js';
import { Overlay, type OverlayItems } from './Overlay.js';
import { PointMaterial } from './PointMaterial.js';

export interface ViewerEvents extends Omit<CloudSceneEvents, 'changed'> {
  /** After each frame. */
  drawn(): void;
  /** The camera has moved. */
  moved(): void;
  contextLost(): void;
  contextRestored(): void;
}

const fieldOfView = 50; // degrees
const maxPixelRatio = 2;
const anchorRadius = 24; // pixels
const anchorPause = 120; // milliseconds; wheels turn faster

/** Shows a cloud on a canvas. Frames are drawn only if something has changed. */
export class Viewer {
  readonly overlay = new Overlay();
  scene: CloudScene | null = null;
  budget = 2_000_000;
  /** What is drawn over the points. */
  overlayItems: () => OverlayItems = () => ({ lines: [], dots: [], labels: [] });
  framesRendered = 0;

  private readonly renderer: THREE.WebGLRenderer;
  private readonly threeScene = new THREE.Scene();
  private readonly camera = new THREE.PerspectiveCamera(fieldOfView, 1, 0.1, 1000);
  private readonly controls: OrbitControls;
  private readonly material = new PointMaterial();
  private readonly lighting = new EyeDomeLighting();
  private frameRequest = 0;
  private pointSize = 1;
  private lastAnchor = -Infinity;

  /** Throws if the browser has no WebGL 2. */
  constructor(readonly canvas: HTMLCanvasElement, private readonly events: ViewerEvents) {
    this.renderer = new THREE.WebGLRenderer({ canvas, antialias: false, powerPreference: 'high-performance' });
    this.renderer.autoClear = false;
    this.renderer.sortObjects = false; // points are opaque
    this.renderer.setClearColor(0, 0);
    this.camera.up.set(0, 0, 1);
    this.camera.position.set(0, -1, 1);
    this.controls = new OrbitControls(this.camera, canvas);
    this.controls.zoomToCursor = true;
    this.controls.screenSpacePanning = true;
    this.controls.addEventListener('change', () => {
      this.events.moved();
      this.requestFrame();
    });
    // Before the controls see the events.
    const anchor = (event: MouseEvent) => this.anchor(event.offsetX, event.offsetY);
    canvas.addEventListener('pointerdown', anchor, { capture: true });
    canvas.addEventListener('wheel', anchor, { capture: true, passive: true });
    this.controls.addEventListener('start', () => {
      if (!this.scene || this.scene.pending.final === 0) return;
      this.scene.retryLost();
      this.requestFrame();
    });
    canvas.addEventListener('webglcontextlost', () => this.events.contextLost());
    canvas.addEventListener('webglcontextrestored', () => {
      this.events.contextRestored();
      this.requestFrame();
    });
    new ResizeObserver(() => this.resize()).observe(canvas); // also called for the first size
  }

  get isFramePending(): boolean {
    return this.frameRequest !== 0;
  }

  get eye(): Vector {
    return this.camera.position.toArray();
  }

  get target(): Vector {
    return this.controls.target.toArray();
  }

  /** Replaces the cloud that is shown. Does not close it. */
  show(cloud: Cloud, mode: ColorMode | null): CloudScene {
    this.clear();
    this.scene = new CloudScene(cloud, this.material, {
      changed: () => this.requestFrame(),
      ready: () => this.events.ready(),
      legendChanged: () => this.events.legendChanged(),
      failed: (error, isFinal) => this.events.failed(error, isFinal),
    }, mode);
    this.threeScene.add(this.scene.group);
    this.requestFrame();
    return this.scene;
  }

  clear(): void {
    if (this.scene) {
      this.threeScene.remove(this.scene.group);
      this.scene.dispose();
    }
    this.scene = null;
    this.setClip(null);
    this.setHiddenClasses([]);
    this.requestFrame();
  }

  /** Draws a frame soon. */
  requestFrame(): void {
    if (this.frameRequest === 0) this.frameRequest = requestAnimationFrame(() => this.drawFrame());
  }

  /** Tries again what has failed. */
  retry(): void {
    this.scene?.retry();
    this.requestFrame();
  }

  setMode(mode: ColorMode): void {
    if (this.scene) this.scene.mode = mode;
    this.requestFrame();
  }

  setHiddenClasses(codes: Iterable<number>): void {
    const hidden = new Set(codes);
    if (this.scene) {
      this.scene.hiddenClasses.clear();
      for (const code of hidden) this.scene.hiddenClasses.add(code);
    }
    this.material.setHiddenClasses(hidden);
    this.requestFrame();
  }

  /** A box of the scene, or null. */
  setClip(box: Box | null): void {
    if (this.scene) this.scene.clip = box;
    this.material.setClip(box);
    this.requestFrame();
  }

  setPointSize(factor: number): void {
    this.pointSize = factor;
    this.requestFrame();
  }

  setShading(isEnabled: boolean): void {
    this.lighting.isEnabled = isEnabled;
    this.requestFrame();
  }

  /** As '#rrggbb'. */
  setBackground(color: string): void {
    this.lighting.setBackground(color);
    this.requestFrame();
  }

  /** Positions in the scene. */
  setView(eye: Vector, target: Vector): void {
    this.camera.position.set(...eye);
    this.controls.target.set(...target);
    this.controls.update();
    this.requestFrame();
  }

  /** Shows a box from the south, or from above with the north at the top. */
  fit(box: Box, from: 'south' | 'above'): void {
    const center = new THREE.Vector3(...centerOf(box));
    // Almost from above: the direction that is up must be known.
    const toCamera = from === 'above' ? new THREE.Vector3(0, -1e-4, 1) : new THREE.Vector3(0.25, -1, 0.85);
    toCamera.normalize();
    const right = new THREE.Vector3(0, 0, 1).cross(toCamera).normalize();
    const up = toCamera.clone().cross(right);
    const margin = 1.06;
    const tanY = Math.tan(fieldOfView / 2 * Math.PI / 180) / margin, tanX = tanY * this.camera.aspect;
    const corners = cornersOf(box).map((corner) => new THREE.Vector3(...corner).sub(center));
    // A corner is on the screen if |across - position| <= tan * (distance - along).
    const fitAxis = (axis: THREE.Vector3, tan: number) => {
      const highest = Math.max(...corners.map((corner) => corner.dot(axis) + tan * corner.dot(toCamera)));
      const lowest = Math.min(...corners.map((corner) => corner.dot(axis) - tan * corner.dot(toCamera)));
      return { distance: (highest - lowest) / (2 * tan), position: (highest + lowest) / 2 };
    };
    const x = fitAxis(right, tanX), y = fitAxis(up, tanY);
    const distance = Math.max(x.distance, y.distance, 1e-3);
    const target = center.clone().addScaledVector(right, x.position).addScaledVector(up, y.position);
    const eye = target.clone().addScaledVector(toCamera, distance);
    // The camera turns around a point as high as the centre.
    target.addScaledVector(toCamera, (center.z - target.z) / toCamera.z);
    this.setView(eye.toArray(), target.toArray());
  }

  /** Pixels, radians, or a factor. */
  moveBy(action: 'pan' | 'rotate' | 'zoom', x: number, y = 0): void {
    this.anchor(this.canvas.clientWidth / 2, this.canvas.clientHeight / 2);
    if (action === 'pan') this.controls.pan(x, y);
    else if (action === 'rotate') {
      this.controls.rotateLeft(x);
      this.controls.rotateUp(y);
    } else this.controls.dollyIn(1 / x);
    this.controls.update();
  }

  /** Turns and zooms around a point of the scene from now on. */
  lookAt(point: Vector): void {
    const offset = new THREE.Vector3(...this.eye).sub(new THREE.Vector3(...this.target));
    this.setView(new THREE.Vector3(...point).add(offset).toArray(), point);
  }

  /** The point near a place on the canvas, in CSS pixels. */
  pick(x: number, y: number, radius: number): PickedPoint | null {
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (!this.scene || width === 0) return null;
    this.camera.updateMatrixWorld();
    return this.scene.pick({ x, y, width, height, radius, pixelsPerUnit: this.pixelsPerUnit(height) }, this.camera);
  }

  /** The box of the points on the screen, in the scene. */
  boundsOnScreen(): Box | null {
    this.camera.updateMatrixWorld();
    return this.scene?.boundsOnScreen(this.camera) ?? null;
  }

  // Moves the point that the camera turns around to the depth of what the user points at, so that points follow the
  // pointer, and the zoom does not stop before them. The picture stays the same.
  private anchor(x: number, y: number): void {
    if (performance.now() - this.lastAnchor < anchorPause) return;
    this.lastAnchor = performance.now();
    const { clientWidth: width, clientHeight: height } = this.canvas;
    const found = this.pick(x, y, anchorRadius) ?? this.pick(width / 2, height / 2, anchorRadius);
    if (!found) return;
    const forward = this.camera.getWorldDirection(new THREE.Vector3());
    const depth = new THREE.Vector3(...found.position).sub(this.camera.position).dot(forward);
    if (depth > 0) this.controls.target.copy(this.camera.position).addScaledVector(forward, depth);
  }

  private resize(): void {
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (width === 0 || height === 0) return;
    this.renderer.setPixelRatio(Math.min(maxPixelRatio, window.devicePixelRatio));
    this.renderer.setSize(width, height, false);
    const size = this.renderer.getDrawingBufferSize(new THREE.Vector2());
    this.lighting.setSize(size.x, size.y);
    this.camera.aspect = width / height;
    // Resizing clears the canvas: an empty frame would be seen before the next one.
    cancelAnimationFrame(this.frameRequest);
    this.drawFrame();
  }

  private drawFrame(): void {
    this.frameRequest = 0;
    this.setDepthRange();
    const height = this.renderer.domElement.height;
    this.scene?.update(this.makeNodeView(height), this.budget);
    const pixelsPerUnit = this.pixelsPerUnit(height);
    this.material.setSizes(this.pointSize, this.renderer.getPixelRatio(), pixelsPerUnit);
    this.lighting.render(this.renderer, this.threeScene, this.camera, pixelsPerUnit);
    this.overlay.draw(this.overlayItems(), this.camera, this.canvas.clientWidth, this.canvas.clientHeight);
    ++this.framesRendered;
    this.events.drawn();
  }

  private pixelsPerUnit(height: number): number {
    return height / (2 * Math.tan(fieldOfView / 2 * Math.PI / 180));
  }

  private setDepthRange(): void {
    const distance = this.controls.getDistance();
    const bounds = this.scene?.loadedBounds;
    let far = 10 * distance;
    if (bounds && bounds.min[0] <= bounds.max[0])
      far = Math.max(distance, distanceToBox(this.eye, bounds) + diagonalOf(bounds)) * 1.01;
    this.camera.near = distance * 5e-3;
    this.camera.far = Math.max(far, this.camera.near * 2);
    this.camera.updateProjectionMatrix();
    this.camera.updateMatrixWorld();
  }

  private makeNodeView(height: number): NodeView {
    const frustum = new THREE.Frustum().setFromProjectionMatrix(
      new THREE.Matrix4().multiplyMatrices(this.camera.projectionMatrix, this.camera.matrixWorldInverse));
    const pixelsPerUnit = this.pixelsPerUnit(height);
    const { eye } = this;
    const clip = this.scene?.clip;
    // A camera inside a large box is not near all of its points.
    const nearest = this.controls.getDistance() / 4;
    const box3 = new THREE.Box3();
    return {
      pixelsPerUnit: (box) => {
        if (clip && !doIntersect(box, clip)) return 0;
        box3.min.set(...box.min);
        box3.max.set(...box.max);
        if (!frustum.intersectsBox(box3)) return 0;
        return pixelsPerUnit / Math.max(distanceToBox(eye, box), nearest);
      },
    };
  }
}
