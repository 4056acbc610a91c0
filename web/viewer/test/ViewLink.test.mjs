import assert from 'node:assert/strict';
import { test } from 'node:test';
import { load } from './support/load.mjs';

const { decodeView, encodeView } = await load('ViewLink');

test('a link restores the view, with millimetres', () => {
  const view = {
    eye: [4000000.123, -5000000.987, 1234.567], target: [-94.6834654, 31.0367341, 0], mode: 'class',
    hiddenClasses: [2, 255], pointSize: 1.5, budget: 600000, shading: false, background: 'light',
    clip: { min: [1, 2, 3], max: [1, 5, 6.25] },
  };
  assert.deepEqual(decodeView(encodeView(view)), view);
  assert.deepEqual(decodeView(encodeView({})), {});
});

test('links that nobody has copied from here are ignored', () => {
  for (const part of [
    '', 'eye', 'eye=1,2,3', 'eye=1,2,3&at=1,2,3', 'eye=1,2&at=1,2,3', 'eye=1,2,NaN&at=0,0,0', 'eye=1,2,1e300&at=0,0,0',
    'eye=1,2,&at=0,0,0', 'color=evil', 'color=__proto__', 'hide=-1', 'hide=2.5', 'hide=256', 'hide=x', 'size=0',
    'size=1e9', 'size=1,2', 'budget=-5', 'budget=1e15', 'back=toString', 'back=%23fff', 'clip=1,2,3,4,5',
    'clip=9,0,0,1,1,1', 'clip=0,0,0,1,1,Infinity', '%E0%A4%A', `hide=${'1,'.repeat(5000)}1`,
  ])
    assert.deepEqual(decodeView(`#${part}`), {}, part);
  // What is valid is kept.
  assert.deepEqual(decodeView('#size=2&color=evil&hide=7,7'), { pointSize: 2, hiddenClasses: [7] });
});
