// Clicks and movements of the pointer on the canvas, as far as they do not move the camera.

/** How far from the pointer a point may be, in CSS pixels. */
export const clickRadius = { mouse: 6, touch: 18 } as const;

const hoverPause = 80; // milliseconds
const dragDistance = 5; // CSS pixels

/** Places are in CSS pixels on the canvas. */
export interface PointerActions {
  click(x: number, y: number, radius: number): void;
  doubleClick(x: number, y: number, radius: number): void;
  /** The mouse moves without a button; not called for each movement. */
  hover(x: number, y: number, radius: number): void;
  leave(): void;
}

/** Calls the actions. Drags are no clicks. */
export function listenToPointer(canvas: HTMLCanvasElement, actions: PointerActions): void {
  let down: { x: number; y: number } | null = null;
  canvas.addEventListener('pointerdown', (event) => down = { x: event.clientX, y: event.clientY });
  canvas.addEventListener('click', (event) => {
    const hasMoved = down && Math.hypot(event.clientX - down.x, event.clientY - down.y) > dragDistance;
    if (hasMoved || event.detail > 1) return; // a drag, or the second click of two
    const isMouse = (event as PointerEvent).pointerType !== 'touch';
    actions.click(event.offsetX, event.offsetY, isMouse ? clickRadius.mouse : clickRadius.touch);
  });
  canvas.addEventListener('dblclick', (event) =>
    actions.doubleClick(event.offsetX, event.offsetY, clickRadius.touch));

  let hover: ReturnType<typeof setTimeout> | undefined;
  let at = { x: 0, y: 0 };
  canvas.addEventListener('pointermove', (event) => {
    if (event.pointerType !== 'mouse' || event.buttons !== 0) return;
    at = { x: event.offsetX, y: event.offsetY };
    hover ??= setTimeout(() => {
      hover = undefined;
      actions.hover(at.x, at.y, clickRadius.mouse);
    }, hoverPause);
  });
  canvas.addEventListener('pointerleave', () => {
    clearTimeout(hover);
    hover = undefined;
    actions.leave();
  });
}
