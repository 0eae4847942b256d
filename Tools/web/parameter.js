// One parameter, opened: its value, how it went, and another value for it.

const POINTS = 160;
const find = (id) => document.getElementById(id);

export class Parameter {
  constructor(model, image, set) {
    Object.assign(this, {model, image, number: -1, history: []});
    this.dialog = find("parameter");
    const ask = () => {
      this.edited = false;
      set(this.number, find("parameter-value").value.replace(/^"|"$/g, ""));
    };
    find("parameter-value").addEventListener("input", () => (this.edited = true));
    find("parameter-set").addEventListener("click", ask);
    find("parameter-value").addEventListener("keydown", (event) => {
      if (event.key !== "Enter") return;
      event.preventDefault();
      ask();
    });
  }

  open(number) {
    Object.assign(this, {number, history: [], edited: false});
    find("parameter-name").textContent = this.image.name(number);
    find("parameter-address").textContent = this.model.text(number);
    find("parameter-value").value = this.image.valueText(number);
    this.say("");
    this.draw();
    this.dialog.showModal();
    find("parameter-value").select();
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
    if (!this.edited) find("parameter-value").value = this.image.valueText(number);
    this.say(`now ${this.image.valueText(number)}`);
    this.history.push(Number(this.image.value(number)) || 0);
    if (this.history.length > POINTS) this.history.shift();
    this.draw();
  }
}
