// All parameters as a bitmap, a pixel each, arranged by group and path; lit where a value changed within the last seconds.

import {Glow} from "./glow.js";
import {FADER, INTEGER, METER, ROTARY, STRING, SWITCH} from "./model.js";

const LIT_SECONDS = 2.4;
const SHADES = 16; // of lit, from the next to the last to the first
const LEVELS = 4; // of values
const GAP = 14;
const SHELF = 8; // between rows of groups
const BELOW = 4;
const WIDEST = 180; // that a column may grow to for what stands below
const LABEL = 14;
const BESIDE = 12; // the most that a group is high whose label stands beside it
const BETWEEN = 6; // it and its label
const LEAST_ROWS = 8; // of a group that can be folded

// How much of its range a value has, from 0 to LEVELS - 1: what a pixel shows while nothing happens.
function levelOf(type, value) {
  if (type === STRING) return value === "" ? 0 : 2;
  if (type === SWITCH) return value ? 3 : 0;
  if (type === METER) return value >> 6;
  if (type === FADER) return value <= -59 ? 0 : value < -20 ? 1 : value < -3 ? 2 : 3;
  if (value === 0) return 0;
  const size = Math.abs(value);
  return type === ROTARY || type === INTEGER ? (size < 1 ? 1 : size < 1000 ? 2 : 3) : 2;
}

// A block of pixels for each group: a path a row, or several rows where that is too long, or there are too few. Its label, as wide
// as measured, stands above it, or beside it where it is small.
function arrange(groups, width, measured) {
  const blocks = groups.map((group, index) => {
    const perPath = group.params.reduce((sum, count) => sum + count, 0);
    let fold = Math.ceil(perPath / width);
    while (group.paths * fold < LEAST_ROWS && perPath / fold > 2 * LEAST_ROWS) ++fold;
    const [w, h, text] = [Math.ceil(perPath / fold), group.paths * fold, Math.ceil(measured(group.name))];
    const beside = h <= BESIDE && w < text;
    return {group: index, name: group.name, perPath, fold, w, h, beside, x: 0, y: 0,
            wide: beside ? w + BETWEEN + text : Math.max(w, text), high: beside ? LABEL : LABEL + h};
  });
  const order = [...blocks].sort((a, b) => b.high - a.high || b.w - a.w);
  // The highest that is left and fits, placed.
  const put = (x, y, mostWidth, mostHeight) => {
    const found = order.findIndex((block) => block.wide <= mostWidth && block.high <= mostHeight);
    const [block] = found < 0 ? [] : order.splice(found, 1);
    return block && Object.assign(block, {x, y: y + (block.beside ? Math.floor((LABEL - block.h) / 2) : LABEL), top: y});
  };
  let y = 0;
  while (order.length) {
    const shelf = order[0].high;
    let x = 0;
    // A column begins with the highest; below it stand others, as long as there is room.
    for (let top = put(x, y, Infinity, Infinity); top; top = put(x, y, width - x, shelf)) {
      let wide = top.wide;
      let at = y + top.high + BELOW;
      for (let next; (next = put(x, at, Math.max(wide, Math.min(width - x, WIDEST)), y + shelf - at)); at += next.high + BELOW) {
        wide = Math.max(wide, next.wide);
      }
      x += wide + GAP;
    }
    y += shelf + SHELF;
  }
  return {blocks, height: y - SHELF};
}

function colour(style, name) {
  const [r, g, b] = style.getPropertyValue(name).trim().match(/[0-9a-f]{2}/gi).map((hex) => parseInt(hex, 16));
  return [r, g, b];
}

const mixed = (a, b, share) => a.map((part, n) => Math.round(part + (b[n] - part) * share));

export class Picture {
  constructor(model, image, elements, open) {
    Object.assign(this, {model, image, elements, open});
    this.heat = new Uint8Array(model.count);
    this.hot = []; // the numbers with heat
    this.overlay = null;
    this.cursor = -1; // where the keys are, or were
    this.shown = {number: -1}; // what is marked
    this.under = -1; // the pointer
    this.note = () => ""; // what else is to be said of a parameter
    this.glow = new Glow(elements.glow);
    this.context = elements.bitmap.getContext("2d", {alpha: false});
    new ResizeObserver(() => this.layOut()).observe(elements.map.parentElement);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.recolour());
    elements.map.addEventListener("pointermove", (event) => this.hover(event));
    elements.map.addEventListener("pointerleave", () => this.show(this.hasKeys() ? this.cursor : -1));
    elements.map.addEventListener("pointerdown", (event) => this.hover(event));
    elements.map.addEventListener("click", () => this.openAt(this.cursor = this.under));
    elements.map.addEventListener("keydown", (event) => this.key(event));
    elements.map.addEventListener("focus", () => this.show(this.cursor));
    elements.map.addEventListener("blur", () => this.show(-1));
    this.layOut();
  }

  layOut() {
    const width = Math.floor(this.elements.map.parentElement.clientWidth);
    if (width === this.width || width < 50) return;
    this.width = width;
    this.context.font = getComputedStyle(this.elements.labels).font;
    const {blocks, height} = arrange(this.model.groups, width, (text) => this.context.measureText(text).width);
    Object.assign(this, {blocks, height});
    this.numberOfPixel = new Int32Array(width * height).fill(-1);
    this.pixelOf = new Int32Array(this.model.count);
    for (const block of blocks) this.place(block);
    Object.assign(this.elements.bitmap, {width, height});
    this.pixels = this.context.createImageData(width, height);
    this.words = new Uint32Array(this.pixels.data.buffer);
    this.elements.labels.replaceChildren(...blocks.map((block) => {
      const label = document.createElement("span");
      label.textContent = block.name;
      label.style.left = `${block.x + (block.beside ? block.w + BETWEEN : 0)}px`;
      label.style.top = `${block.top}px`;
      return label;
    }));
    this.glow.layOut(width, height);
    this.recolour();
  }

  place(block) {
    const {params, paths} = this.model.groups[block.group];
    for (let path = 0; path < paths; ++path) {
      let column = 0;
      for (let type = 0; type < params.length; ++type) {
        const first = this.model.numberOf(type, block.group, path, 0);
        for (let param = 0; param < params[type]; ++param, ++column) {
          const x = block.x + (column % block.w);
          const y = block.y + path * block.fold + Math.floor(column / block.w);
          this.numberOfPixel[y * this.width + x] = first + param;
          this.pixelOf[first + param] = y * this.width + x;
        }
      }
    }
  }

  recolour() {
    const style = getComputedStyle(document.documentElement);
    const ground = colour(style, "--ground");
    const accent = colour(style, "--accent");
    const ink = colour(style, "--ink");
    const word = ([r, g, b]) => (255 << 24) | (b << 16) | (g << 8) | r;
    const bases = [0.07, 0.14, 0.23, 0.36].map((share) => mixed(ground, ink, share));
    const overlays = [mixed(ground, ink, 0.08), mixed(ground, ink, 0.55), accent];
    this.glow.colour(accent);
    // By level, each from plain to lit; then the colours of an overlay, whatever moves.
    const lit = (n) => (n === 0 ? 0 : 0.25 + 0.75 * n / SHADES);
    const shades = (base, share) => Uint32Array.from({length: SHADES + 1}, (_, n) => word(mixed(base, accent, share(n))));
    this.palette = [...bases.map((base) => shades(base, lit)), ...overlays.map((base) => shades(base, () => 0))];
    this.words.fill(word(ground));
    for (let number = 0; number < this.model.count; ++number) this.paint(number);
    this.context.putImageData(this.pixels, 0, 0);
  }

  paint(number) {
    const row = this.overlay ? LEVELS + this.overlay[number] : !this.image.whole ? 0 : levelOf(this.model.typeOfNumber[number], this.image.value(number));
    this.words[this.pixelOf[number]] = this.palette[row][Math.ceil(this.heat[number] * SHADES / 255)];
  }

  // What a parameter is marked as, from 0 to 2; none: its value.
  setOverlay(marks) {
    this.overlay = marks;
    this.recolour();
  }

  light(number) {
    if (this.heat[number] === 0) this.hot.push(number);
    this.heat[number] = 255;
  }

  // Brings the picture to now; seconds have passed since it was.
  draw(seconds) {
    const cooler = Math.max(1, Math.round(255 * seconds / LIT_SECONDS));
    let kept = 0;
    for (const number of this.hot) {
      this.paint(number);
      this.heat[number] = Math.max(0, this.heat[number] - cooler);
      if (this.heat[number] > 0) this.hot[kept++] = number;
      else this.paint(number);
    }
    if (this.hot.length > 0) this.context.putImageData(this.pixels, 0, 0);
    this.hot.length = kept;
    this.glow.draw(this.overlay ? [] : this.hot, this.heat, this.pixelOf);
    if (this.shown.number >= 0) this.tell();
  }

  numberAt(event) {
    const box = this.elements.bitmap.getBoundingClientRect();
    const x = Math.floor((event.clientX - box.left) * this.width / box.width);
    const y = Math.floor((event.clientY - box.top) * this.height / box.height);
    return x < 0 || y < 0 || x >= this.width || y >= this.height ? -1 : this.numberOfPixel[y * this.width + x];
  }

  hover(event) {
    this.under = this.numberAt(event);
    this.show(this.under, {clientX: event.clientX, clientY: event.clientY});
  }

  openAt(number) {
    if (number >= 0) this.open(number);
  }

  hasKeys() {
    return document.activeElement === this.elements.map;
  }

  key(event) {
    const steps = {ArrowLeft: -1, ArrowRight: 1, ArrowUp: -this.width, ArrowDown: this.width};
    const groups = {PageUp: -1, PageDown: 1};
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.key === "Enter") this.openAt(this.cursor);
    else if (event.key === "Escape") this.moveTo(-1);
    else if (event.key in steps) this.moveTo(this.nextPixel(steps[event.key]));
    else if (event.key in groups) this.moveTo(this.nextGroup(groups[event.key]));
    else return;
    event.preventDefault();
  }

  // The next parameter in a direction; where there is none, the same.
  nextPixel(step) {
    const first = this.numberOfPixel.findIndex((number) => number >= 0);
    let pixel = this.cursor < 0 ? first - step : this.pixelOf[this.cursor];
    do pixel += step;
    while (pixel >= 0 && pixel < this.numberOfPixel.length && this.numberOfPixel[pixel] < 0);
    return this.numberOfPixel[pixel] ?? this.cursor;
  }

  // The first parameter of the next group, or the one before.
  nextGroup(step) {
    const {group} = this.cursor < 0 ? {group: -step} : this.model.addressOf(this.cursor);
    const {x, y} = this.blocks[Math.min(Math.max(group + step, 0), this.blocks.length - 1)];
    return this.numberOfPixel[y * this.width + x];
  }

  moveTo(number) {
    this.cursor = number;
    this.show(number);
    this.elements.said.textContent = number < 0 ? "" : this.textsOf(number).join(", ");
  }

  // From elsewhere: the keys go on from there; -1: from where they were.
  goTo(number) {
    if (number >= 0) this.cursor = number;
    this.elements.map.focus({preventScroll: true});
    this.show(this.cursor);
  }

  // Marks what is looked at elsewhere.
  point(number) {
    this.show(number, {tip: false});
  }

  // Marks a parameter, with what there is to say of it beside it, or beside the pointer; -1: none.
  show(number, {tip = true, clientX, clientY} = {}) {
    this.shown = {number, tip, clientX, clientY};
    this.tell();
  }

  textsOf(number) {
    return [this.image.name(number), this.model.text(number), this.image.valueText(number), this.note(number)].filter(Boolean);
  }

  tell() {
    const {tip, cursor, bitmap} = this.elements;
    const {number, clientX, clientY} = this.shown;
    cursor.hidden = number < 0;
    tip.hidden = number < 0 || !this.shown.tip;
    if (number < 0) return;
    const x = this.pixelOf[number] % this.width;
    const y = Math.floor(this.pixelOf[number] / this.width);
    cursor.style.transform = `translate(${x - 3}px, ${y - 3}px)`;
    if (tip.hidden) return;
    const lines = this.textsOf(number).map((text) => Object.assign(document.createElement("span"), {textContent: text}));
    if (lines.map((line) => line.outerHTML).join("") !== tip.innerHTML) tip.replaceChildren(...lines);
    const box = bitmap.getBoundingClientRect();
    const left = (clientX ?? box.left + x) + 14;
    const top = (clientY ?? box.top + y) + 14;
    tip.style.left = `${Math.min(left, innerWidth - tip.offsetWidth - 8)}px`;
    tip.style.top = `${top + tip.offsetHeight > innerHeight ? top - tip.offsetHeight - 28 : top}px`;
  }
}
