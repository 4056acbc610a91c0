// Shades that make shapes visible without normals.
//
// A pixel is darker the farther it is from the camera compared with its neighbours: Boucheny, "Visualisation
// scientifique de grands volumes de données : pour une approche perceptive", 2009. Differences of depth are divided by
// the size of a pixel at this depth, so that they are slopes of the surface, and shades do not change with the distance
// of the camera.
import * as THREE from 'three';

const vertexShader = /* glsl */ `
out vec2 at;

void main() {
  at = position.xy * .5 + .5;
  gl_Position = vec4(position.xy, 0., 1.);
}`;

const fragmentShader = /* glsl */ `
in vec2 at;
out vec4 color;

uniform sampler2D points;
uniform sampler2D depths;
uniform vec3 background;
uniform vec2 pixel; // of the texture
uniform float near;
uniform float far;
uniform float slopePerDepth; // 1 / (size of a pixel at distance 1)
uniform float radius; // pixels
uniform float strength;

float toDistance(float depth) {
  return near * far / (far - depth * (far - near));
}

void main() {
  float depth = texture(depths, at).r;
  if (depth >= 1.) {
    color = vec4(background, 1.);
    return;
  }
  vec3 lit = texture(points, at).rgb;
  if (strength > 0.) {
    float center = toDistance(depth);
    float sum = 0.;
    for (int i = 0; i < 8; ++i) {
      float angle = float(i) * .785398163;
      vec2 offset = vec2(cos(angle), sin(angle)) * radius;
      float neighbour = texture(depths, at + offset * pixel).r;
      if (neighbour < 1.) {
        float slope = (center - toDistance(neighbour)) / center * slopePerDepth / radius;
        sum += clamp(slope, 0., 12.);
      }
    }
    lit *= exp(-strength * sum / 8.);
  }
  color = vec4(lit, 1.);
}`;

/** Draws a scene into a texture, and the texture with shades and a background on the canvas. */
export class EyeDomeLighting {
  isEnabled = true;
  private readonly target: THREE.WebGLRenderTarget;
  private readonly material: THREE.ShaderMaterial;
  private readonly quad: THREE.Mesh;
  private readonly quadScene = new THREE.Scene();
  private readonly quadCamera = new THREE.Camera();

  constructor() {
    this.target = new THREE.WebGLRenderTarget(1, 1, {
      minFilter: THREE.NearestFilter,
      magFilter: THREE.NearestFilter,
      depthTexture: new THREE.DepthTexture(1, 1, THREE.FloatType),
    });
    this.material = new THREE.ShaderMaterial({
      glslVersion: THREE.GLSL3,
      vertexShader,
      fragmentShader,
      depthTest: false,
      depthWrite: false,
      uniforms: {
        points: { value: this.target.texture },
        depths: { value: this.target.depthTexture },
        background: { value: new THREE.Vector3() },
        pixel: { value: new THREE.Vector2() },
        near: { value: 1 },
        far: { value: 2 },
        slopePerDepth: { value: 1 },
        radius: { value: 1 },
        strength: { value: 0 },
      },
    });
    // A triangle that covers the screen.
    const geometry = new THREE.BufferGeometry();
    geometry.setAttribute('position', new THREE.BufferAttribute(new Float32Array([-1, -1, 0, 3, -1, 0, -1, 3, 0]), 3));
    this.quad = new THREE.Mesh(geometry, this.material);
    this.quad.frustumCulled = false;
    this.quadScene.add(this.quad);
  }

  setSize(width: number, height: number): void {
    this.target.setSize(width, height);
  }

  /** As '#rrggbb'. */
  setBackground(color: string): void {
    const number = Number.parseInt(color.slice(1), 16);
    this.uniform<THREE.Vector3>('background').value
      .set(number >> 16 & 255, number >> 8 & 255, number & 255).divideScalar(255);
  }

  /** `pixelsPerUnit` is at distance 1. */
  render(
    renderer: THREE.WebGLRenderer, scene: THREE.Scene, camera: THREE.PerspectiveCamera, pixelsPerUnit: number,
  ): void {
    this.uniform<THREE.Vector2>('pixel').value.set(1 / this.target.width, 1 / this.target.height);
    this.uniform<number>('near').value = camera.near;
    this.uniform<number>('far').value = camera.far;
    this.uniform<number>('slopePerDepth').value = pixelsPerUnit;
    this.uniform<number>('radius').value = Math.max(1, 1.2 * renderer.getPixelRatio());
    this.uniform<number>('strength').value = this.isEnabled ? 0.35 : 0;
    renderer.setRenderTarget(this.target);
    renderer.clear();
    renderer.render(scene, camera);
    renderer.setRenderTarget(null);
    renderer.render(this.quadScene, this.quadCamera);
  }

  dispose(): void {
    this.target.depthTexture?.dispose();
    this.target.dispose();
    this.material.dispose();
    this.quad.geometry.dispose();
  }

  private uniform<T>(name: string): THREE.IUniform<T> {
    return this.material.uniforms[name] as THREE.IUniform<T>;
  }
}
