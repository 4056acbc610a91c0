// Which points are drawn, and which are needed.
//
// Level l of a file has ((N - 1) >> l) + 1 points, and point j of it is about point j * 2^l of the file. Node (l, i)
// has the points [i * C, (i + 1) * C) of level l. Its children (l - 1, 2 i) and (l - 1, 2 i + 1) have twice as many
// points for its two halves, and replace them.
import { enlarged, isProper, type Box } from './Geometry.js';

/** The most points of a node. */
export const nodeCapacity = 65536;

// Of files with few levels; more would exceed any budget.
const maxRoots = 4096;

/** Spacing of points on the screen that needs no more points, in pixels. */
export const finestSpacing = 1.3;

/** Half of the points of a node. */
export interface Half {
  readonly count: number;
  /** In the scene. */
  readonly bounds: Box;
  /** Distance between neighbouring points in the scene. */
  readonly spacing: number;
}

export type Halves = readonly [Half, Half];

export interface TreeNode {
  readonly level: number;
  readonly index: number;
  /** The first point at this level. */
  readonly first: number;
  readonly count: number;
  readonly parent: TreeNode | null;
  /** A guess until the node is loaded. */
  bounds: Box;
  /** Null until the node is loaded. */
  halves: Halves | null;
  readonly children: [TreeNode | null, TreeNode | null];
  /** When the node was last wanted, in selections. */
  lastWanted: number;
}

/** What the tree needs to know about the camera. */
export interface NodeView {
  /** Pixels of a unit of the scene at the nearest point of the box; 0 if no part of the box is visible. */
  pixelsPerUnit(box: Box): number;
}

/** A range of points of a loaded node. */
export interface DrawnRange {
  readonly node: TreeNode;
  /** Of the node. */
  readonly begin: number;
  readonly end: number;
  readonly spacing: number;
}

export interface Selection {
  readonly drawn: readonly DrawnRange[];
  /** All nodes of the picture, loaded or not, the most needed one first. */
  readonly wanted: readonly TreeNode[];
  readonly numPoints: number;
}

interface Candidate {
  readonly node: TreeNode;
  readonly priority: number;
}

/** The number of points of a level of a file with `numPoints` points. */
export function countAtLevel(numPoints: number, level: number): number {
  return numPoints === 0 ? 0 : Math.floor((numPoints - 1) / 2 ** level) + 1;
}

/** How many points of a node are in its first half, which its first child replaces. */
export function countFirstHalf(count: number): number {
  return Math.min(count, nodeCapacity / 2);
}

/** The nodes of a file. The owner reports loaded nodes by `setLoaded`. */
export class NodeTree {
  readonly roots: readonly TreeNode[];
  private selections = 0;
  private loadedPoints = 0;
  private readonly loaded = new Set<TreeNode>();

  /** `bounds` are those of the cloud in the scene. */
  constructor(private readonly numPoints: number, numLevels: number, bounds: Box) {
    let level = 0;
    while (level + 1 < numLevels && countAtLevel(numPoints, level) > nodeCapacity) ++level;
    const numRoots = Math.ceil(countAtLevel(numPoints, level) / nodeCapacity);
    const numUsed = Math.min(numRoots, maxRoots);
    this.roots = spreadOut(numUsed).map((index) =>
      this.makeNode(level, Math.floor(index * numRoots / numUsed), null, bounds));
  }

  /** Points of all loaded nodes. */
  get numLoadedPoints(): number {
    return this.loadedPoints;
  }

  /** The points of the node have been decoded. */
  setLoaded(node: TreeNode, bounds: Box, halves: Halves): void {
    if (!this.loaded.has(node)) this.loadedPoints += node.count;
    this.loaded.add(node);
    node.bounds = bounds;
    node.halves = halves;
    node.lastWanted = this.selections;
  }

  /**
   * Chooses the nodes of a picture with at most `budget` points. Where points on the screen are farthest from each
   * other, they are replaced by finer ones first. Points of missing nodes are counted, but those of their parents are
   * drawn.
   */
  select(view: NodeView, budget: number): Selection {
    ++this.selections;
    const queue = new PriorityQueue<Candidate>((a, b) => a.priority > b.priority);
    const wanted: TreeNode[] = [];
    const isVisible = new Map<TreeNode, [boolean, boolean]>();
    let numPoints = 0;

    const take = (node: TreeNode) => {
      const halves = node.halves;
      const { parent } = node;
      const side = node.index & 1;
      const replaced = parent && isVisible.get(parent)?.[side] ? parent.halves?.[side as 0 | 1]?.count ?? 0 : 0;
      if (numPoints + node.count - replaced > budget) return false;
      numPoints += node.count - replaced;
      node.lastWanted = this.selections;
      wanted.push(node);
      if (!halves) return true;
      const ofParent = parent && isVisible.get(parent);
      if (ofParent) ofParent[side] = false;
      const ofNode: [boolean, boolean] = [false, false];
      for (const i of [0, 1] as const) {
        const half = halves[i];
        ofNode[i] = half.count > 0 && view.pixelsPerUnit(half.bounds) > 0;
        if (!ofNode[i]) numPoints -= half.count;
        const child = this.childOf(node, i);
        const spacing = child ? half.spacing * view.pixelsPerUnit(child.bounds) : 0;
        if (child && spacing > finestSpacing) queue.push({ node: child, priority: spacing });
      }
      isVisible.set(node, ofNode);
      return true;
    };

    // Roots that do not fit are left out evenly, because of their order.
    for (const root of this.roots)
      if (view.pixelsPerUnit(root.bounds) > 0 && !take(root)) break;
    for (let next = queue.pop(); next && take(next.node); next = queue.pop());

    const drawn: DrawnRange[] = [];
    for (const [node, [first, second]] of isVisible) {
      const [a, b] = node.halves as Halves;
      if (!first && !second) continue;
      const spacing = first && second && b.count > 0 ? (a.spacing + b.spacing) / 2 : (first ? a : b).spacing;
      drawn.push({ node, begin: first ? 0 : a.count, end: second ? a.count + b.count : a.count, spacing });
    }
    return { drawn, wanted, numPoints };
  }

  /**
   * Forgets nodes that were not wanted for the longest time, until at most `maxPoints` points are loaded, and returns
   * them. Nodes of the last selection stay.
   */
  evict(maxPoints: number): TreeNode[] {
    if (this.loadedPoints <= maxPoints) return [];
    // A node is never older than its children, but may be as old: finer levels go first.
    const candidates = [...this.loaded]
      .filter((node) => node.lastWanted < this.selections && node !== this.roots[0])
      .sort((a, b) => a.lastWanted - b.lastWanted || a.level - b.level);
    const evicted: TreeNode[] = [];
    for (const node of candidates) {
      if (this.loadedPoints <= maxPoints) break;
      this.loaded.delete(node);
      this.loadedPoints -= node.count;
      node.halves = null;
      evicted.push(node);
    }
    return evicted;
  }

  private childOf(node: TreeNode, side: 0 | 1): TreeNode | null {
    if (node.level === 0 || !node.halves || node.halves[side].count === 0) return null;
    const { bounds, spacing } = node.halves[side];
    return node.children[side] ??= this.makeNode(
      // Finer points are a little outside the box of the coarser ones.
      node.level - 1, 2 * node.index + side, node, isProper(bounds) ? enlarged(bounds, 0.02, 2 * spacing) : bounds);
  }

  private makeNode(level: number, index: number, parent: TreeNode | null, bounds: Box): TreeNode {
    const first = index * nodeCapacity;
    const count = Math.min(nodeCapacity, countAtLevel(this.numPoints, level) - first);
    return { level, index, first, count, parent, bounds, halves: null, children: [null, null], lastWanted: 0 };
  }
}

/** The numbers below `count` in an order whose beginnings are spread over all of them (van der Corput, 1935). */
export function spreadOut(count: number): number[] {
  const bits = Math.ceil(Math.log2(Math.max(1, count)));
  const order: number[] = [];
  for (let i = 0; i < 2 ** bits; ++i) {
    let reversed = 0;
    for (let bit = 0; bit < bits; ++bit) reversed = reversed * 2 + (Math.floor(i / 2 ** bit) & 1);
    if (reversed < count) order.push(reversed);
  }
  return order;
}

/** A binary heap. */
class PriorityQueue<T> {
  private readonly items: T[] = [];

  constructor(private readonly isBefore: (a: T, b: T) => boolean) {}

  push(item: T): void {
    let at = this.items.push(item) - 1;
    while (at > 0) {
      const above = (at - 1) >> 1;
      if (!this.isBefore(item, this.items[above] as T)) break;
      this.items[at] = this.items[above] as T;
      at = above;
    }
    this.items[at] = item;
  }

  pop(): T | undefined {
    const top = this.items[0];
    const last = this.items.pop();
    if (this.items.length === 0 || last === undefined) return top;
    let at = 0;
    for (;;) {
      let below = 2 * at + 1;
      if (below >= this.items.length) break;
      if (below + 1 < this.items.length && this.isBefore(this.items[below + 1] as T, this.items[below] as T)) ++below;
      if (!this.isBefore(this.items[below] as T, last)) break;
      this.items[at] = this.items[below] as T;
      at = below;
    }
    this.items[at] = last;
    return top;
  }
}
