// One parameter, opened: its value, how it went, and another value for it.

const POINTS = 160;
const find = (id) => document.getElementById(id);

export class Parameter {
  // set(number, text) asks for a change.
  constructor(model, image, set) {
    Object.assign(this, {model, image, number: -1, history: [], locked: ""});
    this.dialog = find("parameter");
    this.input = find("parameter-value");
    const ask = () => {
      if (this.locked) return;
      this.edited = false;
      set(this.number, this.input.value);
    };
    this.input.addEventListener("input", () => (this.edited = true));
    find("parameter-set").addEventListener("click", ask);
    this.input.addEventListener("keydown", (event) => {
      if (event.key !== "Enter") return;
      event.preventDefault();
      ask();
    });
  }

  // Why nothing can be set; empty: it can.
  lock(why) {
    this.locked = why;
    this.input.readOnly = find("parameter-set").disabled = why !== "";
    if (this.dialog.open) this.say(why);
  }

  open(number) {
    Object.assign(this, {number, history: [], edited: false});
    find("parameter-name").textContent = this.image.name(number);
    find("parameter-address").textContent = this.model.text(number);
    this.input.value = this.entry();
    this.say(this.locked);
    this.draw();
    this.dialog.showModal();
    this.input.select();
  }

  // The value as one would type it.
  entry() {
    const value = this.image.whole ? this.image.value(this.number) : "";
    return typeof value === "string" ? value : this.image.textOf(value);
  }

  // Its last values, one beside the other.
  draw() {
    const canvas = find("parameter-plot");
    const context = canvas.getContext("2d");
    const [least, most] = [Math.min(...this.history), Math.max(...this.history)];
    context.clearRect(0, 0, canvas.width, canvas.height);
    context.beginPath();
    this.history.forEach((value, n) =>
      context.lineTo(canvas.width - 4 * (this.history.length - 1 - n), canvas.height - 6 - (canvas.height - 12) * (value - least) / (most - least || 1)));
    context.strokeStyle = getComputedStyle(canvas).color;
    context.lineWidth = 3;
    context.stroke();
  }

  say(text) {
    find("parameter-note").textContent = text;
  }

  changed(number) {
    if (number !== this.number || !this.dialog.open) return;
    if (!this.edited) this.input.value = this.entry();
    this.say(`now ${this.image.valueText(number)}`);
    this.history.push(Number(this.image.value(number)) || 0);
    if (this.history.length > POINTS) this.history.shift();
    this.draw();
  }
}
