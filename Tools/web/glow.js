// A halo around what is lit, so that a single pixel is seen from afar: the picture's heat, coarser and smoothed.

const CELL = 4;
const HALF = 900; // heat in a cell that gives most of the halo
const MOST = 200;

export class Glow {
  constructor(canvas) {
    this.canvas = canvas;
    this.context = canvas.getContext("2d");
    this.shown = false;
  }

  layOut(width, height) {
    Object.assign(this.canvas, {width: Math.ceil(width / CELL), height: Math.ceil(height / CELL)});
    this.canvas.style.width = `${this.canvas.width * CELL}px`;
    this.canvas.style.height = `${this.canvas.height * CELL}px`;
    this.image = this.context.createImageData(this.canvas.width, this.canvas.height);
    this.sums = new Uint32Array(this.canvas.width * this.canvas.height);
    this.width = width;
  }

  colour(accent) {
    for (let at = 0; at < this.image.data.length; at += 4) this.image.data.set(accent, at);
  }

  draw(numbers, heat, pixelOf) {
    if (numbers.length === 0 && !this.shown) return;
    this.sums.fill(0);
    for (const number of numbers) {
      const y = Math.floor(pixelOf[number] / this.width);
      const x = pixelOf[number] - y * this.width;
      this.sums[Math.floor(y / CELL) * this.canvas.width + Math.floor(x / CELL)] += heat[number];
    }
    for (let cell = 0; cell < this.sums.length; ++cell) {
      this.image.data[4 * cell + 3] = MOST * this.sums[cell] / (this.sums[cell] + HALF);
    }
    this.context.putImageData(this.image, 0, 0);
    this.shown = numbers.length > 0;
  }
}
