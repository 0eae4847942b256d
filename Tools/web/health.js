// How the link is: rates as small plots of the last minute, the age of each message type, what was lost in which layer, and senders.

const POINTS = 120; // two a second

class Plot {
  constructor(list, title, unit) {
    this.values = [];
    this.unit = unit;
    const term = document.createElement("dt");
    term.textContent = title;
    const definition = document.createElement("dd");
    this.now = document.createElement("output");
    this.canvas = document.createElement("canvas");
    Object.assign(this.canvas, {width: 2 * POINTS, height: 56});
    definition.append(this.now, this.canvas);
    const pair = document.createElement("div");
    pair.append(term, definition);
    list.append(pair);
  }

  add(value, text) {
    this.values.push(value);
    if (this.values.length > POINTS) this.values.shift();
    this.now.textContent = text ?? `${Math.round(value).toLocaleString("en")} ${this.unit}`;
    this.draw();
  }

  draw() {
    const {width, height} = this.canvas;
    const context = this.canvas.getContext("2d");
    const most = Math.max(...this.values, 1e-9);
    context.clearRect(0, 0, width, height);
    context.beginPath();
    this.values.forEach((value, n) => context.lineTo(width - 2 * (this.values.length - 1 - n), height - 3 - (height - 8) * value / most));
    context.strokeStyle = getComputedStyle(this.canvas).color;
    context.lineWidth = 2;
    context.stroke();
  }
}

function fill(table, rows) {
  const body = table.tBodies[0];
  while (body.rows.length > rows.length) body.deleteRow(-1);
  rows.forEach((cells, n) => {
    const row = body.rows[n] ?? body.insertRow();
    cells.forEach((cell, column) => {
      const place = row.cells[column] ?? row.insertCell();
      if (place.textContent !== cell) place.textContent = cell;
      place.className = column > 0 && cell !== "" && !isNaN(parseFloat(cell)) ? "number" : "";
    });
    row.dataset.state = cells[1];
  });
}

const grouped = (number) => Math.round(number).toLocaleString("en");

export class Health {
  constructor(model, elements) {
    Object.assign(this, {model, elements, lost: 0});
    this.updates = new Plot(elements.plots, "updates", "/s");
    this.changes = new Plot(elements.plots, "changes", "/s");
    this.period = new Plot(elements.plots, "update period", "ms");
    this.losses = new Plot(elements.plots, "lost", "");
  }

  take(health) {
    const {types, senders, lost} = this.elements;
    this.elements.link.textContent = health.link;
    const all = Object.values(health.lost).reduce((sum, count) => sum + count, 0);
    this.updates.add(health.updates);
    this.changes.add(health.types.reduce((sum, type) => sum + type.changes, 0));
    this.period.add(health.updates > 0 ? 1000 / health.updates : 0);
    this.losses.add(Math.max(0, all - this.lost), `${grouped(all)} in all`);
    this.lost = all;
    fill(types, health.types.map((type, n) =>
      [this.model.types[n], type.state, type.age < 0 ? "" : `${type.age.toFixed(2)} s`, grouped(type.changes)]));
    fill(lost, Object.entries(health.lost).map(([layer, count]) => [layer, grouped(count)]));
    fill(senders, health.senders.map((sender) => [sender.name, grouped(sender.datagrams), grouped(sender.bytes / 1000)]));
  }
}
