// The points of an open cloud in the scene.
import { CloudError, type Cloud, type Points } from '@vxunpack/decoder';
import * as THREE from 'three';
import { availableModes, neededChannels, type ColorMode } from './ColorModes.js';
import { axisScales, parseCoordinateSystem, type CoordinateSystem } from './CoordinateSystem.js';
import { centerOf, GrowingBox, isProper, type Box, type Vector } from './Geometry.js';
import { NodeLoader, type Failure, type Job } from './NodeLoader.js';
import {
  convertPositions, convertSamples, countColorBits, haveDifferentColors, type NodePoints, type NodeSamples,
} from './NodePoints.js';
import { NodeTree, type NodeView, type Selection, type TreeNode } from './NodeTree.js';
import { isNearRay, pickPoint, type Cursor, type PickRange } from './Picking.js';
import type { PointMaterial } from './PointMaterial.js';
import { SceneSpace } from './SceneSpace.js';
import { findRange, findRobustBounds, type Range } from './Statistics.js';

export interface CloudSceneEvents {
  /** The picture must be drawn again: points have been loaded. */
  changed(): void;
  /** The first points have been loaded. Colours and bounds are known now. */
  ready(): void;
  /** Classes, returns or intensities were seen for the first time. */
  legendChanged(): void;
  failed(error: CloudError, isFinal: boolean): void;
}

export interface PickedPoint {
  /** In the scene. */
  readonly position: Vector;
  /** About where it is in the file. */
  readonly fileIndex: number;
}

interface LoadedNode {
  readonly points: NodePoints;
  readonly samples: NodeSamples;
  readonly queried: Set<string>;
  readonly object: THREE.Points;
  spacing: number;
}

/** Loads and shows the nodes of a cloud. Does not close the cloud. */
export class CloudScene {
  readonly group = new THREE.Group();
  readonly space: SceneSpace;
  readonly system: CoordinateSystem;
  readonly modes: readonly ColorMode[];
  readonly classes = new Set<number>();
  readonly returns = new Set<number>();
  readonly hiddenClasses = new Set<number>();
  /** In the scene; null until the first points are loaded. */
  robustBounds: Box | null = null;
  elevationRange: Range | null = null;
  intensityRange: Range | null = null;
  selection: Selection = { drawn: [], wanted: [], numPoints: 0 };
  clip: Box | null = null;

  private readonly tree: NodeTree;
  private readonly loader: NodeLoader;
  private readonly nodes = new Map<TreeNode, LoadedNode>();
  private readonly extent = new GrowingBox();
  private readonly channelNames: ReadonlySet<string>;
  private colorBits: number | null = null; // until there are colours

  /** `mode` is shown if the file has it. Without it, colours are shown if there are any, or elevations. */
  constructor(
    readonly cloud: Cloud,
    private readonly material: PointMaterial,
    private readonly events: CloudSceneEvents,
    private currentMode: ColorMode | null,
  ) {
    const { description } = cloud;
    const isBounded = isProper(description.bounds);
    const center = isBounded ? centerOf(description.bounds) : [0, 0, 0] as const;
    this.system = parseCoordinateSystem(description.wkt);
    this.space = new SceneSpace(center, axisScales(this.system, center[1]));
    this.channelNames = new Set(description.channels.map((channel) => channel.name));
    this.modes = availableModes(this.channelNames);
    if (currentMode && !this.modes.includes(currentMode)) this.currentMode = null;
    const everywhere = { min: [-1e30, -1e30, -1e30], max: [1e30, 1e30, 1e30] } as const;
    this.tree = new NodeTree(
      description.numPoints, description.numLevels, isBounded ? this.space.boxToScene(description.bounds) : everywhere);
    this.loader = new NodeLoader(cloud, {
      loaded: (job, points) => this.addPoints(job, points),
      failed: (_, error, isFinal) => this.events.failed(error, isFinal),
      wake: () => this.events.changed(),
    });
    material.setMode(this.mode);
  }

  get mode(): ColorMode {
    return this.currentMode ?? (this.modes.includes('rgb') ? 'rgb' : 'elevation');
  }

  set mode(mode: ColorMode) {
    this.currentMode = mode;
    this.material.setMode(mode);
  }

  get isReady(): boolean {
    return this.robustBounds !== null;
  }

  get isEmpty(): boolean {
    return this.tree.roots.length === 0;
  }

  /** Queries that run. */
  get numRunning(): number {
    return this.loader.numRunning;
  }

  /** Nodes of the picture that are not drawn yet, or not with all samples, by their failures. */
  get pending(): Readonly<Record<Failure, number>> {
    const counts = { none: 0, waiting: 0, final: 0 };
    for (const { node } of this.jobs()) ++counts[this.loader.failureOf(node)];
    return counts;
  }

  /** Points that are drawn, including those that the shader clips. */
  get numDrawnPoints(): number {
    return this.selection.drawn.reduce((sum, range) => sum + range.end - range.begin, 0);
  }

  /** Contains all points that have been loaded, in the scene. */
  get loadedBounds(): Box {
    return this.extent;
  }

  /** Chooses the nodes of the picture, asks for those that are missing, and shows the others. */
  update(view: NodeView, budget: number): void {
    const { selection } = this;
    this.selection = this.tree.select(this.isReady ? view : anywhere, budget);
    // Keeps the points that are drawn, the same number in coarser nodes, and in nodes that were drawn before.
    for (const node of this.tree.evict(3 * budget)) this.remove(node);
    const jobs = this.jobs();
    this.loader.update(this.isReady ? jobs : jobs.slice(0, 1));
    for (const { node } of selection.drawn) {
      const loaded = this.nodes.get(node);
      if (loaded) loaded.object.visible = false;
    }
    for (const { node, begin, end, spacing } of this.selection.drawn) {
      const { object } = this.nodes.get(node) as LoadedNode;
      object.visible = true;
      object.geometry.setDrawRange(begin, end - begin);
      (this.nodes.get(node) as LoadedNode).spacing = spacing;
    }
  }

  /** Tries failed nodes again with the next update. */
  retry(): void {
    this.loader.retry();
  }

  /** The same for failures that may have passed. */
  retryLost(): void {
    this.loader.retryLost();
  }

  /** The drawn point near a cursor, or null. */
  pick(cursor: Cursor, camera: THREE.PerspectiveCamera): PickedPoint | null {
    const pointer = new THREE.Vector2(cursor.x / cursor.width * 2 - 1, 1 - cursor.y / cursor.height * 2);
    const raycaster = new THREE.Raycaster();
    raycaster.setFromCamera(pointer, camera);
    const origin = raycaster.ray.origin.toArray(), direction = raycaster.ray.direction.toArray();
    const slope = 2 * cursor.radius / cursor.pixelsPerUnit;
    const candidates: TreeNode[] = [];
    const ranges: PickRange[] = [];
    for (const range of this.visibleRanges(camera)) {
      const { min, max } = range.node.bounds;
      const radius = Math.hypot(max[0] - min[0], max[1] - min[1], max[2] - min[2]) / 2;
      if (!isNearRay(origin, direction, slope, centerOf(range.node.bounds), radius)) continue;
      candidates.push(range.node);
      ranges.push(range);
    }
    const found = pickPoint(ranges, cursor);
    if (!found) return null;
    const node = candidates[found.range] as TreeNode;
    const { points } = this.nodes.get(node) as LoadedNode;
    return {
      position: positionOf(points, found.index),
      fileIndex: Math.min(
        this.cloud.description.numPoints - 1, (points.first + found.index) * 2 ** points.level),
    };
  }

  /** The box of the points that are on the screen; null if there are none. */
  boundsOnScreen(camera: THREE.PerspectiveCamera): Box | null {
    const box = new GrowingBox();
    for (const { node, positions, begin, end, matrix: m, isVisible } of this.visibleRanges(camera)) {
      const { points } = this.nodes.get(node) as LoadedNode;
      for (let i = begin; i < end; ++i) {
        const x = positions[3 * i] as number, y = positions[3 * i + 1] as number, z = positions[3 * i + 2] as number;
        const row = (at: number) => m[at]! * x + m[at + 4]! * y + m[at + 8]! * z + m[at + 12]!;
        const w = row(3);
        if (w > 0 && Math.abs(row(0)) <= w && Math.abs(row(1)) <= w && (!isVisible || isVisible(i)))
          box.add(...positionOf(points, i));
      }
    }
    return box.isEmpty ? null : box;
  }

  dispose(): void {
    this.loader.close();
    for (const node of [...this.nodes.keys()]) this.remove(node);
  }

  private jobs(): Job[] {
    const needed = neededChannels(this.mode, this.hiddenClasses.size > 0).filter((name) => this.channelNames.has(name));
    const jobs: Job[] = [];
    for (const node of this.selection.wanted) {
      const queried = this.nodes.get(node)?.queried;
      const channels = queried ? needed.filter((name) => !queried.has(name)) : needed;
      if (!queried || channels.length > 0) jobs.push({ node, channels });
    }
    return jobs;
  }

  private addPoints(job: Job, points: Points): void {
    this.learn(points);
    const samples = convertSamples(points, this.colorBits ?? 8);
    const known = this.nodes.get(job.node);
    if (known) this.addSamples(known, samples, job.channels);
    else this.addNode(job.node, convertPositions(points, this.space), samples, job.channels);
    if (!this.isReady) this.finishFirst(job.node);
    this.events.changed();
  }

  private addNode(node: TreeNode, points: NodePoints, samples: NodeSamples, channels: readonly string[]): void {
    const geometry = new THREE.BufferGeometry();
    geometry.setAttribute('position', new THREE.BufferAttribute(points.positions, 3));
    const object = new THREE.Points(geometry, this.material);
    object.position.set(...points.origin);
    object.updateMatrix();
    object.matrixAutoUpdate = false;
    object.frustumCulled = false; // the tree does this
    object.visible = false;
    const loaded: LoadedNode = { points, samples: {}, queried: new Set(), object, spacing: 0 };
    object.onBeforeRender = () => {
      const { spacing, samples: ofNode } = loaded;
      this.material.setNode(spacing, hasSamplesOf(ofNode, this.mode), ofNode.classes !== undefined);
    };
    this.nodes.set(node, loaded);
    this.group.add(object);
    this.extent.addBox(points.bounds);
    this.tree.setLoaded(node, points.bounds, points.halves);
    this.addSamples(loaded, samples, channels);
  }

  private addSamples(loaded: LoadedNode, samples: NodeSamples, channels: readonly string[]): void {
    const { geometry } = loaded.object;
    const { colors, intensities, classes, returns } = samples;
    if (colors) geometry.setAttribute('rgb', new THREE.BufferAttribute(colors, 4, true));
    if (intensities) geometry.setAttribute('intensity', new THREE.BufferAttribute(intensities, 1));
    if (classes) geometry.setAttribute('classId', new THREE.BufferAttribute(classes, 1));
    if (returns) geometry.setAttribute('returnNumber', new THREE.BufferAttribute(returns, 1));
    Object.assign(loaded.samples, samples);
    for (const name of channels) loaded.queried.add(name);

    const before = this.classes.size + this.returns.size;
    for (const code of new Set(classes)) this.classes.add(code);
    for (const number of new Set(returns)) this.returns.add(number);
    let isNew = this.classes.size + this.returns.size > before;
    if (intensities && !this.intensityRange) {
      this.intensityRange = findRange(intensities, tail);
      if (this.intensityRange) this.material.setIntensityRange(this.intensityRange);
      isNew = true;
    }
    if (isNew) this.events.legendChanged();
  }

  // What must be known before samples can be converted.
  private learn(points: Points): void {
    if (this.colorBits !== null || !points.channels['Red']) return;
    this.colorBits = countColorBits(points);
    if (!this.isReady && this.currentMode === null && !haveDifferentColors(points)) this.mode = 'elevation';
  }

  private finishFirst(node: TreeNode): void {
    const { points } = this.nodes.get(node) as LoadedNode;
    const heights = new Float64Array(points.count);
    for (let i = 0; i < points.count; ++i) heights[i] = (points.positions[3 * i + 2] as number) + points.origin[2];
    this.elevationRange = findRange(heights, tail) ?? { min: 0, max: 1 };
    this.material.setElevationRange(this.elevationRange);
    const bounds = findRobustBounds(points.positions, points.origin);
    this.robustBounds = bounds ?? { min: [0, 0, 0], max: [0, 0, 0] };
    this.events.ready();
    const { name } = this.cloud.description;
    if (!bounds) this.events.failed(new CloudError('damaged', `The points of ${name} have no coordinates.`), true);
  }

  private *visibleRanges(camera: THREE.PerspectiveCamera): Generator<PickRange & { node: TreeNode }> {
    const toClip = new THREE.Matrix4().multiplyMatrices(camera.projectionMatrix, camera.matrixWorldInverse);
    const matrix = new THREE.Matrix4();
    for (const { node, begin, end } of this.selection.drawn) {
      const { points, samples, object } = this.nodes.get(node) as LoadedNode;
      matrix.multiplyMatrices(toClip, object.matrix);
      const { classes } = samples;
      const { clip, hiddenClasses } = this;
      const isVisible = clip || hiddenClasses.size > 0
        ? (i: number) => !(classes && hiddenClasses.has(classes[i] as number)) &&
            (!clip || positionOf(points, i).every((value, axis) =>
              value >= (clip.min[axis] as number) && value <= (clip.max[axis] as number)))
        : undefined;
      yield { node, positions: points.positions, begin, end, matrix: [...matrix.elements], isVisible };
    }
  }

  private remove(node: TreeNode): void {
    const loaded = this.nodes.get(node);
    if (!loaded) return;
    this.group.remove(loaded.object);
    loaded.object.geometry.dispose();
    this.nodes.delete(node);
  }
}

// Of robust ranges: 2 % of the values are below, and 2 % above.
const tail = 0.02;

// Before the first points are known, there is no camera.
const anywhere: NodeView = { pixelsPerUnit: () => 1e-30 };

function hasSamplesOf(samples: NodeSamples, mode: ColorMode): boolean {
  const of = {
    rgb: samples.colors, elevation: true, intensity: samples.intensities, class: samples.classes,
    return: samples.returns,
  };
  return of[mode] !== undefined;
}

function positionOf(points: NodePoints, index: number): Vector {
  const { positions, origin } = points;
  return [
    (positions[3 * index] as number) + origin[0],
    (positions[3 * index + 1] as number) + origin[1],
    (positions[3 * index + 2] as number) + origin[2],
  ];
}
