// How the link is: rates as small plots of the last minute, the age of each message type, what was lost in which layer, and senders.

const POINTS = 120; // two a second
const HEIGHT = 40;

const grouped = (number) => Math.round(number).toLocaleString("en");

// The next of 1, 2, 5, 10, 20, ...: so a plot's scale stays as it is for a while.
function roundedUp(value) {
  const ten = 10 ** Math.floor(Math.log10(Math.max(value, 1)));
  return [1, 2, 5, 10].map((one) => one * ten).find((one) => one >= value);
}

class Plot {
  constructor(list, title, unit) {
    Object.assign(this, {values: [], unit});
    const part = (name, className) => Object.assign(document.createElement(name), {className});
    const pair = document.createElement("div");
    const term = part("dt", "");
    const value = part("dd", "");
    this.now = part("output", "now");
    this.scale = part("span", "scale");
    this.canvas = part("canvas", "");
    term.append(title, this.scale);
    value.append(this.now, this.canvas);
    pair.append(term, value);
    list.append(pair);
  }

  add(value, text) {
    this.values.push(value);
    if (this.values.length > POINTS) this.values.shift();
    this.now.textContent = text ?? `${grouped(value)} ${this.unit}`;
    this.draw();
  }

  draw() {
    const scale = Math.max(1, Math.round(devicePixelRatio));
    const width = this.canvas.clientWidth * scale;
    const height = HEIGHT * scale;
    if (this.canvas.width !== width || this.canvas.height !== height) Object.assign(this.canvas, {width, height});
    const most = roundedUp(Math.max(...this.values));
    this.scale.textContent = `0–${grouped(most)}`;
    const context = this.canvas.getContext("2d");
    context.clearRect(0, 0, width, height);
    const x = (n) => width - (this.values.length - 1 - n) * width / (POINTS - 1);
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

function fill(table, rows) {
  const body = table.tBodies[0];
  while (body.rows.length > rows.length) body.deleteRow(-1);
  rows.forEach(({cells, state}, n) => {
    const row = body.rows[n] ?? body.insertRow();
    cells.forEach((cell, column) => {
      const place = row.cells[column] ?? row.insertCell();
      if (place.textContent !== cell) place.textContent = cell;
      place.className = table.tHead.rows[0].cells[column].className;
    });
    row.dataset.state = state ?? "";
  });
}

export class Health {
  constructor(model, elements) {
    Object.assign(this, {model, elements, lost: -1});
    this.updates = new Plot(elements.plots, "updates", "/s");
    this.changes = new Plot(elements.plots, "changes", "/s");
    this.period = new Plot(elements.plots, "longest gap", "ms");
    this.losses = new Plot(elements.plots, "lost", "");
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.draw());
    this.take({link: "", updates: 0, gap: 0, lost: [], senders: [], types: model.types.map(() => ({state: "waiting", age: -1, changes: 0}))});
  }

  draw() {
    for (const plot of [this.updates, this.changes, this.period, this.losses]) plot.draw();
  }

  take(health) {
    const {types, senders, lost} = this.elements;
    this.elements.link.textContent = health.link;
    const all = health.lost.reduce((sum, [, count]) => sum + count, 0);
    const mean = health.updates > 0 ? 1000 / health.updates : 0;
    this.updates.add(health.updates);
    this.changes.add(health.types.reduce((sum, type) => sum + type.changes, 0));
    this.period.add(1000 * health.gap, `${grouped(1000 * health.gap)} ms, mean ${grouped(mean)}`);
    this.losses.add(this.lost < 0 ? 0 : Math.max(0, all - this.lost), `${grouped(all)} in all`);
    this.lost = health.link === "" ? -1 : all;
    fill(types, health.types.map(({state, age, changes}, n) =>
      ({cells: [this.model.types[n], state, age < 0 ? "–" : `${age.toFixed(2)} s`, grouped(changes)], state})));
    fill(lost, health.lost.map(([layer, count]) => ({cells: [layer, grouped(count)], state: count > 0 ? "lost" : ""})));
    fill(senders, health.senders.map((sender) => ({cells: [sender.name, grouped(sender.datagrams), grouped(sender.bytes / 1000)]})));
  }
}
