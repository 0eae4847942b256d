// All inputs at once, above the strips: a meter and a fader each, as narrow as they get; where one clicks the strips go.

const HEIGHT = 36;
const SOFT = 0.45; // of a meter

export class Bridge {
  // go(path) shows that path's strip.
  constructor(canvas, count, go) {
    Object.assign(this, {canvas, count, levels: new Float32Array(count), meters: new Float32Array(count), muted: new Uint8Array(count), due: true});
    new ResizeObserver(() => this.layOut()).observe(canvas);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => (this.due = true));
    const at = (event) => Math.floor(event.offsetX / canvas.clientWidth * count);
    canvas.addEventListener("pointerdown", (event) => go(at(event)));
    canvas.addEventListener("pointermove", (event) => event.buttons && go(at(event)));
  }

  layOut() {
    const scale = Math.max(1, Math.round(devicePixelRatio));
    Object.assign(this.canvas, {width: this.canvas.clientWidth * scale, height: HEIGHT * scale});
    this.due = true;
  }

  // A share from 0 to 1 of a path.
  set(what, path, share) {
    this[what][path] = share;
    this.due = true;
  }

  // Once a frame: only when something moved.
  draw() {
    if (!this.due) return;
    this.due = false;
    const {width, height} = this.canvas;
    const context = this.canvas.getContext("2d");
    const step = width / this.count;
    const bar = Math.max(1, Math.floor(step) - 2);
    context.clearRect(0, 0, width, height);
    context.fillStyle = getComputedStyle(this.canvas).color;
    for (let path = 0; path < this.count; ++path) {
      const x = Math.round(path * step) + 1;
      context.globalAlpha = SOFT / (this.muted[path] ? 2.5 : 1);
      context.fillRect(x, height * (1 - this.meters[path]), bar, height * this.meters[path]);
      context.globalAlpha = this.muted[path] ? 0.35 : 1;
      context.fillRect(x, Math.round((height - 2) * (1 - this.levels[path])), bar, 2);
    }
    context.globalAlpha = 1;
  }
}
