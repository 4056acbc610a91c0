import assert from 'node:assert/strict';
import { test } from 'node:test';
import { load, randomNumbers } from './support/load.mjs';

const { NodeTree, nodeCapacity, spreadOut, countFirstHalf } = await load('NodeTree');

// A cloud whose points are on a line: point i is at x = i.
function makeTree(numPoints, numLevels) {
  return new NodeTree(numPoints, numLevels, { min: [0, 0, 0], max: [numPoints, 0, 0] });
}

function loadNode(tree, node) {
  const step = 2 ** node.level;
  const box = (begin, end) => ({
    min: [(node.first + begin) * step, 0, 0], max: [(node.first + end - 1) * step, 0, 0],
  });
  const middle = countFirstHalf(node.count);
  const half = (begin, end) => ({ count: end - begin, bounds: box(begin, end), spacing: step });
  tree.setLoaded(node, box(0, node.count), [half(0, middle), half(middle, node.count)]);
}

// Loads all that is wanted, in the given order.
function loadAll(tree, view, budget, choose = (missing) => missing[0]) {
  for (;;) {
    const selection = tree.select(view, budget);
    const missing = selection.wanted.filter((node) => !node.halves);
    if (missing.length === 0) return selection;
    loadNode(tree, choose(missing));
  }
}

const everything = { pixelsPerUnit: () => 1000 };
const visibleUpTo = (end) => ({ pixelsPerUnit: (box) => (box.min[0] <= end ? 1000 : 0) });

test('whatever is loaded, each point of the file is drawn once', () => {
  for (const [numPoints, numLevels] of
    [[1, 1], [nodeCapacity, 3], [nodeCapacity + 1, 2], [98305, 9], [1_000_003, 12], [700_001, 2]]) {
    const random = randomNumbers(numPoints);
    const tree = makeTree(numPoints, numLevels);
    for (const root of tree.roots) loadNode(tree, root);
    const check = ({ drawn }) => {
      const parts = drawn.map(({ node, begin, end }) =>
        [(node.first + begin) * 2 ** node.level, (node.first + end) * 2 ** node.level]).sort((a, b) => a[0] - b[0]);
      assert.equal(parts[0][0], 0);
      parts.slice(1).forEach((part, i) => assert.equal(part[0], parts[i][1]));
      assert.ok(parts.at(-1)[1] >= numPoints);
    };
    const last = loadAll(tree, everything, Infinity, (missing) => {
      check(tree.select(everything, Infinity));
      return missing[Math.floor(random() * missing.length)];
    });
    check(last);
    assert.equal(last.numPoints, numPoints);
    assert.ok(last.drawn.every(({ node }) => node.level === 0));
  }
});

test('budgets are kept, and the nearest points are refined first', () => {
  const numPoints = 5_000_000;
  const view = { pixelsPerUnit: (box) => 1e9 / (1000 + Math.max(0, box.min[0])) };
  for (const budget of [200_000, 500_000, 2_000_000]) {
    const tree = makeTree(numPoints, 15);
    const { drawn, wanted, numPoints: counted } = loadAll(tree, view, budget);
    const shown = drawn.reduce((sum, { begin, end }) => sum + end - begin, 0);
    assert.equal(shown, counted);
    assert.ok(shown <= budget && shown > budget - 2 * nodeCapacity);
    const start = ({ node, begin }) => (node.first + begin) * 2 ** node.level;
    const inOrder = [...drawn].sort((a, b) => start(a) - start(b));
    assert.ok(inOrder.at(0).node.level < inOrder.at(-1).node.level);
    assert.ok(wanted.every((node, i) => !node.parent || wanted.indexOf(node.parent) < i));
  }
});

test('what cannot be seen is neither loaded nor drawn', () => {
  const tree = makeTree(5_000_000, 15);
  const { drawn, wanted, numPoints } = loadAll(tree, visibleUpTo(400_000), Infinity);
  const most = 400_000 + nodeCapacity;
  assert.ok(wanted.every((node) => node.bounds.min[0] <= 400_000 || !node.parent));
  assert.equal(drawn.reduce((sum, { begin, end }) => sum + end - begin, 0), numPoints);
  assert.ok(numPoints <= most);
  assert.equal(tree.select({ pixelsPerUnit: () => 0 }, Infinity).drawn.length, 0);
  // Points that are fine enough are not replaced.
  const coarse = makeTree(5_000_000, 15);
  assert.equal(loadAll(coarse, { pixelsPerUnit: () => 1e-3 }, Infinity).wanted.length, 1);
});

test('nodes of the picture and parents of loaded nodes are not forgotten', () => {
  const tree = makeTree(5_000_000, 15);
  loadAll(tree, everything, Infinity);
  const { wanted } = tree.select(visibleUpTo(100_000), Infinity);
  const evicted = new Set(tree.evict(1_000_000));
  assert.ok(tree.numLoadedPoints <= 1_000_000);
  assert.ok(wanted.every((node) => node.halves));
  for (const node of evicted)
    for (const child of node.children) assert.ok(!child?.halves);
  // They are loaded again when they are needed.
  assert.equal(loadAll(tree, everything, Infinity).numPoints, 5_000_000);
});

test('files without coarse levels are shown evenly', () => {
  assert.deepEqual(spreadOut(6), [0, 4, 2, 1, 5, 3]);
  const tree = makeTree(10_000_000, 1);
  const { drawn } = loadAll(tree, everything, 1_000_000);
  const starts = drawn.map(({ node }) => node.first).sort((a, b) => a - b);
  assert.equal(starts.length, 15);
  starts.slice(1).forEach((start, i) => assert.ok(start - starts[i] < 2_000_000));
});
