import assert from 'node:assert/strict';
import { test } from 'node:test';
import { load } from './support/load.mjs';

const { axisScales, parseCoordinateSystem } = await load('CoordinateSystem');

const geographic = 'GEOGCS["WGS 84",DATUM["WGS_1984",SPHEROID["WGS 84",6378137,298.257]],UNIT["degree",0.01745]]';
const projected = (unit) => `PROJCS["Zone ""1"" North", ${geographic}, PROJECTION["Transverse_Mercator"], ${unit}]`;

test('names and units are those of the axes, and not of the base system', () => {
  for (const [wkt, name, horizontal, vertical] of [
    [projected('UNIT["metre",1]'), 'Zone "1" North', 'm', 'm'],
    [projected('UNIT["US survey foot",0.3048006096012192]'), 'Zone "1" North', 'ftUS', 'ftUS'],
    [projected('UNIT("Foot",0.3048)').replaceAll('[', '(').replaceAll(']', ')'), 'Zone "1" North', 'ft', 'ft'],
    [projected('UNIT["link",0.201168]'), 'Zone "1" North', 'link', 'link'],
    [`COMPD_CS["Both",${projected('UNIT["metre",1]')},VERT_CS["h",UNIT["foot",0.3048]]]`, 'Both', 'm', 'ft'],
    [geographic, 'WGS 84', '°', 'm'],
    ['PROJCRS["Two",BASEGEOGCRS["B",UNIT["degree",0.01]],CS[Cartesian,2],AXIS["(E)",east,LENGTHUNIT["metre",1]]]',
      'Two', 'm', 'm'],
    ['PROJCS["unnamed",UNIT["",-1]]', null, undefined, undefined],
    ['', null, undefined, undefined],
    ['no WKT at all', null, undefined, undefined],
    ['PROJCS["cut', 'cut', undefined, undefined],
    [`PROJCS["deep",${'A['.repeat(20000)}`, 'deep', undefined, undefined],
  ]) {
    const system = parseCoordinateSystem(wkt);
    assert.equal(system.name, name, wkt.slice(0, 80));
    assert.equal(system.horizontal?.symbol, horizontal, wkt.slice(0, 80));
    assert.equal(system.vertical?.symbol, vertical, wkt.slice(0, 80));
  }
});

test('axes are drawn in the same unit', () => {
  const isNear = (actual, expected) =>
    actual.forEach((value, i) => assert.ok(Math.abs(value / expected[i] - 1) < 1e-3, `${actual} and ${expected}`));
  const degrees = parseCoordinateSystem(geographic);
  // Lengths of a degree on the ellipsoid, from tables.
  isNear(axisScales(degrees, 0), [111320, 110574, 1]);
  isNear(axisScales(degrees, 45), [78847, 111132, 1]);
  assert.ok(axisScales(degrees, NaN).every((scale) => scale > 0));
  const mixed = `COMPD_CS["Both",${projected('UNIT["metre",1]')},VERT_CS["h",UNIT["foot",0.3048]]]`;
  isNear(axisScales(parseCoordinateSystem(mixed), 0), [1, 1, 0.3048]);
});
