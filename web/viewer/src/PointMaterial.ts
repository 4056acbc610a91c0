// How points are drawn.
import * as THREE from 'three';
import { colorModes, type ColorMode } from './ColorModes.js';
import { colorOfClass, colorOfNumber, grayRamp, spectralRamp, type Color } from './Colors.js';
import type { Box } from './Geometry.js';
import type { Range } from './Statistics.js';

const vertexShader = /* glsl */ `
in vec4 rgb;
in float intensity;
in float classId;
in float returnNumber;

uniform int mode;
uniform bool hasSamples; // of the mode
uniform bool hasClasses;
uniform float spacing;
uniform float pixelsPerUnit; // at distance 1
uniform float sizeFactor;
uniform vec2 sizeRange;
uniform vec2 elevationRange;
uniform vec2 intensityRange;
uniform vec3 clipMin;
uniform vec3 clipMax;
uniform sampler2D spectral;
uniform sampler2D gray;
uniform sampler2D classes; // alpha: visible
uniform sampler2D numbers;

out vec3 pointColor;
out float pointSize;

vec3 fromRamp(sampler2D ramp, vec2 range, float value) {
  float position = range.y > range.x ? (value - range.x) / (range.y - range.x) : .5;
  return texture(ramp, vec2((clamp(position, 0., 1.) * 255. + .5) / 256., .5)).rgb;
}

void main() {
  vec4 world = modelMatrix * vec4(position, 1.);
  vec4 view = modelViewMatrix * vec4(position, 1.);
  gl_Position = projectionMatrix * view;
  vec4 ofClass = texelFetch(classes, ivec2(int(classId), 0), 0);
  if (any(lessThan(world.xyz, clipMin)) || any(greaterThan(world.xyz, clipMax)) || (hasClasses && ofClass.a < .5)) {
    gl_Position = vec4(0., 0., 2., 1.); // outside
    gl_PointSize = 1.;
    return;
  }
  // Larger than the spacing, since points are not on a grid.
  float size = 1.4 * sizeFactor * spacing * pixelsPerUnit / gl_Position.w;
  // A single place has no spacing, and must be seen.
  gl_PointSize = clamp(spacing > 0. ? size : 8. * sizeFactor, sizeRange.x, sizeRange.y);
  pointSize = gl_PointSize;
  if (mode == 1)
    pointColor = fromRamp(spectral, elevationRange, world.z);
  else if (!hasSamples)
    pointColor = vec3(.45);
  else if (mode == 0)
    pointColor = rgb.rgb;
  else if (mode == 2)
    pointColor = fromRamp(gray, intensityRange, intensity);
  else if (mode == 3)
    pointColor = ofClass.rgb;
  else
    pointColor = texelFetch(numbers, ivec2(int(returnNumber), 0), 0).rgb;
}`;

const fragmentShader = /* glsl */ `
in vec3 pointColor;
in float pointSize;
out vec4 color;

void main() {
  vec2 fromCenter = gl_PointCoord - .5;
  if (pointSize > 3.5 && dot(fromCenter, fromCenter) > .25)
    discard;
  color = vec4(pointColor, 1.);
}`;

function makeTexture(colors: readonly Color[]): THREE.DataTexture {
  const data = new Uint8Array(4 * 256);
  for (let i = 0; i < 256; ++i) data.set([...(colors[i] as Color), 255], 4 * i);
  const texture = new THREE.DataTexture(data, 256, 1);
  texture.minFilter = texture.magFilter = THREE.NearestFilter;
  texture.needsUpdate = true;
  return texture;
}

const codes = Array.from({ length: 256 }, (_, code) => code);

/** The material of all points. Colours, sizes and clipping change without touching the points. */
export class PointMaterial extends THREE.ShaderMaterial {
  private readonly classTexture: THREE.DataTexture;

  constructor() {
    const classTexture = makeTexture(codes.map(colorOfClass));
    super({
      glslVersion: THREE.GLSL3,
      vertexShader,
      fragmentShader,
      uniforms: {
        mode: { value: 1 },
        hasSamples: { value: false },
        hasClasses: { value: false },
        spacing: { value: 1 },
        pixelsPerUnit: { value: 1 },
        sizeFactor: { value: 1 },
        sizeRange: { value: new THREE.Vector2(1, 24) },
        elevationRange: { value: new THREE.Vector2(0, 1) },
        intensityRange: { value: new THREE.Vector2(0, 1) },
        clipMin: { value: new THREE.Vector3() },
        clipMax: { value: new THREE.Vector3() },
        spectral: { value: makeTexture(spectralRamp) },
        gray: { value: makeTexture(grayRamp) },
        classes: { value: classTexture },
        numbers: { value: makeTexture(codes.map(colorOfNumber)) },
      },
    });
    this.classTexture = classTexture;
    this.setClip(null);
  }

  setMode(mode: ColorMode): void {
    this.set('mode', colorModes.indexOf(mode));
  }

  /** In the scene. */
  setElevationRange(range: Range): void {
    (this.uniforms['elevationRange'] as THREE.IUniform<THREE.Vector2>).value.set(range.min, range.max);
  }

  setIntensityRange(range: Range): void {
    (this.uniforms['intensityRange'] as THREE.IUniform<THREE.Vector2>).value.set(range.min, range.max);
  }

  /** Only points in the box, of the scene, are drawn; all points if it is null. */
  setClip(box: Box | null): void {
    const all = 1e30;
    (this.uniforms['clipMin'] as THREE.IUniform<THREE.Vector3>).value.set(...(box?.min ?? [-all, -all, -all]));
    (this.uniforms['clipMax'] as THREE.IUniform<THREE.Vector3>).value.set(...(box?.max ?? [all, all, all]));
  }

  setHiddenClasses(hidden: ReadonlySet<number>): void {
    const { data } = this.classTexture.image;
    for (const code of codes) (data as Uint8Array)[4 * code + 3] = hidden.has(code) ? 0 : 255;
    this.classTexture.needsUpdate = true;
  }

  /** Sizes are in pixels of the canvas. */
  setSizes(factor: number, pixelRatio: number, pixelsPerUnit: number): void {
    this.set('sizeFactor', factor);
    this.set('pixelsPerUnit', pixelsPerUnit);
    (this.uniforms['sizeRange'] as THREE.IUniform<THREE.Vector2>).value
      .set(Math.max(1, factor * pixelRatio), 24 * pixelRatio * Math.max(1, factor));
  }

  /** For the node that is drawn next. */
  setNode(spacing: number, hasSamples: boolean, hasClasses: boolean): void {
    this.set('spacing', spacing);
    this.set('hasSamples', hasSamples);
    this.set('hasClasses', hasClasses);
    this.uniformsNeedUpdate = true;
  }

  private set(name: string, value: unknown): void {
    (this.uniforms[name] as THREE.IUniform).value = value;
  }
}
