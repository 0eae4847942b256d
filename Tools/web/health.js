// How the link is, over the last minute: rates, and for each message type, layer and sender a row with a small plot of its own.

const POINTS = 120; // two a second

const grouped = (number) => Math.round(number).toLocaleString("en");

// The next of 1, 2, 5, 10, 20, ...: so a plot's scale stays as it is for a while.
function roundedUp(value) {
  const ten = 10 ** Math.floor(Math.log10(Math.max(value, 1)));
  return [1, 2, 5, 10].map((one) => one * ten).find((one) => one >= value);
}

// How a value went; as large as its style has it.
class Curve {
  constructor() {
    Object.assign(this, {values: [], canvas: document.createElement("canvas")});
    this.canvas.setAttribute("aria-hidden", "true");
  }

  get most() {
    return roundedUp(Math.max(...this.values));
  }

  add(value) {
    this.values.push(value);
    if (this.values.length > POINTS) this.values.shift();
    this.draw();
  }

  draw() {
    const scale = Math.max(1, Math.round(devicePixelRatio));
    const [width, height] = [this.canvas.clientWidth * scale, this.canvas.clientHeight * scale];
    if (this.canvas.width !== width || this.canvas.height !== height) Object.assign(this.canvas, {width, height});
    const context = this.canvas.getContext("2d");
    context.clearRect(0, 0, width, height);
    const x = (n) => width - (this.values.length - 1 - n) * width / (POINTS - 1);
    const {most} = this;
    const line = new Path2D();
    this.values.forEach((value, n) => line.lineTo(x(n), height - scale - (height - 3 * scale) * value / most));
    const area = new Path2D(line);
    area.lineTo(width, height);
    area.lineTo(x(0), height);
    context.fillStyle = context.strokeStyle = getComputedStyle(this.canvas).color;
    context.globalAlpha = 0.12;
    context.fill(area);
    context.globalAlpha = 1;
    context.lineWidth = 1.5 * scale;
    context.stroke(line);
  }
}

// A curve with its title, its scale and what it is now.
class Plot {
  constructor(list, title) {
    const part = (name, className) => Object.assign(document.createElement(name), {className});
    const pair = document.createElement("div");
    const term = part("dt", "");
    const value = part("dd", "");
    this.curve = new Curve();
    this.now = part("span", "now");
    this.scale = part("span", "scale");
    term.append(title, this.scale);
    value.append(this.now, this.curve.canvas);
    pair.append(term, value);
    list.append(pair);
  }

  add(value, text) {
    this.curve.add(value);
    this.now.textContent = text;
    this.scale.textContent = `0–${grouped(this.curve.most)}`;
  }
}

// A table whose last column is a curve for each row.
class Table {
  constructor(element) {
    Object.assign(this, {element, rows: new Map()});
  }

  // Each with the texts of its cells, the first of which names it; its value; and what its state is, if that is to be seen.
  take(rows) {
    const body = this.element.tBodies[0];
    const before = this.rows;
    this.rows = new Map(rows.map(({cells, value, state}) => {
      const kept = before.get(cells[0]) ?? this.make(cells.length);
      cells.forEach((cell, n) => kept.row.cells[n].textContent !== cell && (kept.row.cells[n].textContent = cell));
      kept.row.dataset.state = state ?? "";
      return [cells[0], {...kept, value}];
    }));
    const wanted = [...this.rows.values()].map(({row}) => row);
    if (wanted.length !== body.rows.length || wanted.some((row, n) => row !== body.rows[n])) body.replaceChildren(...wanted);
    for (const {curve, value} of this.rows.values()) curve.add(value);
  }

  make(count) {
    const row = document.createElement("tr");
    const curve = new Curve();
    for (let n = 0; n < count; ++n) row.insertCell().className = this.element.tHead.rows[0].cells[n].className;
    row.insertCell().append(curve.canvas);
    return {row, curve};
  }

  draw() {
    for (const {curve} of this.rows.values()) curve.draw();
  }
}

export class Health {
  constructor(model, elements) {
    Object.assign(this, {model, link: elements.link, lostBefore: null});
    this.plots = Object.fromEntries(["updates", "changes", "longest gap", "lost"].map((title) => [title, new Plot(elements.plots, title)]));
    this.tables = Object.fromEntries(["types", "lost", "senders"].map((name) => [name, new Table(elements[name])]));
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.draw());
  }

  draw() {
    for (const {curve} of Object.values(this.plots)) curve.draw();
    for (const table of Object.values(this.tables)) table.draw();
  }

  // What the plot of that title has had, the newest last.
  valuesOf(title) {
    return this.plots[title].curve.values;
  }

  take({link, updates, gap, types, lost, senders}) {
    this.link.textContent = link;
    const changes = types.reduce((sum, type) => sum + type.changes, 0);
    const mean = updates > 0 ? 1000 / updates : 0;
    const counts = Object.fromEntries(lost);
    const before = this.lostBefore ?? counts;
    const newly = (layer) => Math.max(0, counts[layer] - before[layer]);
    this.plots["updates"].add(updates, `${grouped(updates)} /s`);
    this.plots["changes"].add(changes, `${grouped(changes)} /s`);
    this.plots["longest gap"].add(1000 * gap, `${grouped(1000 * gap)} ms, mean ${grouped(mean)}`);
    this.plots["lost"].add(lost.reduce((sum, [layer]) => sum + newly(layer), 0), `${grouped(lost.reduce((sum, [, count]) => sum + count, 0))} in all`);
    this.tables.types.take(types.map(({state, age, changes}, n) =>
      ({cells: [this.model.types[n], state, grouped(changes), age < 0 ? "–" : `${age.toFixed(2)} s`], value: Math.max(0, age), state})));
    this.tables.lost.take(lost.map(([layer, count]) => ({cells: [layer, grouped(count)], value: newly(layer), state: count > 0 ? "lost" : ""})));
    this.tables.senders.take(senders.map(({name, datagrams, bytes}) =>
      ({cells: [name, grouped(bytes / 1000), grouped(datagrams)], value: datagrams})));
    this.lostBefore = counts;
  }
}
