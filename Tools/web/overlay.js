// What is laid over the picture: what has changed since, what a show holds, what its recall would do.

const FRAME_SHOW = 3;
const STORED = 1, RECALLED = 2, DIFFERS = 4, MOVES = 8; // of a show's marks
const AGAIN = 1000; // ms, while a show is looked at

// How each parameter is marked, plain, noted or marked, and what these are called.
const KINDS = {
  scope: {
    title: (show) => `${show}: scope`,
    words: ["not in the show", "stored, not recalled", "recalled"],
    of: (mark) => (mark & RECALLED ? 2 : mark & STORED ? 1 : 0),
  },
  recall: {
    title: (show) => `${show}: recall`,
    words: ["as it is", "differs, and stays", "would move"],
    of: (mark) => (mark & MOVES ? 2 : mark & DIFFERS ? 1 : 0),
  },
};
const SINCE = ["the same", "", "changed since"];
const NOTHING = "no values have come yet";
const grouped = (number) => number.toLocaleString("en");

export class Overlay {
  // ask(show) has the server tell of a show.
  constructor(model, image, picture, {select, legend}, ask) {
    Object.assign(this, {model, image, picture, select, legend, ask, kind: "", show: "", marks: new Uint8Array(model.count),
                         told: new Uint8Array(model.count), values: new Map()});
    select.addEventListener("change", () => this.choose(select.value));
    setInterval(() => this.kind in KINDS && !document.hidden && ask(this.show), AGAIN);
    this.setShows([]);
  }

  setShows(shows) {
    const options = [["", "none"], ["since/", "changed from now on"]];
    for (const show of shows) for (const kind of Object.keys(KINDS)) options.push([`${kind}/${show}`, KINDS[kind].title(show)]);
    const chosen = this.select.value;
    this.select.replaceChildren(...options.map(([value, text]) => new Option(text, value, false, value === chosen)));
    if (this.select.value !== chosen) return this.choose(this.select.value);
    this.tell();
    if (this.kind in KINDS) this.ask(this.show);
  }

  choose(value) {
    const slash = value.indexOf("/");
    Object.assign(this, {kind: value.slice(0, Math.max(0, slash)), show: value.slice(slash + 1)});
    this.before = this.image.whole ? this.image.copy() : null;
    this.clear();
    this.tell();
    this.ask(this.kind in KINDS ? this.show : "");
  }

  // A show's marks, and its values that differ.
  take(buffer) {
    const bytes = new DataView(buffer);
    if (bytes.getUint8(0) !== FRAME_SHOW || !(this.kind in KINDS)) return;
    this.told.set(new Uint8Array(buffer, 1, this.model.count));
    this.values.clear();
    this.image.readValues(bytes, 1 + this.model.count, (number, value) => this.values.set(number, value));
    const of = KINDS[this.kind].of;
    this.told.forEach((mark, number) => (this.marks[number] = of(mark)));
    this.picture.setOverlay(this.marks);
    this.tell();
  }

  // Why there is no such show to be seen.
  fail(text) {
    if (!(this.kind in KINDS)) return;
    this.clear();
    this.legend.textContent = text;
  }

  // All values are there, for the first time or anew: what changed meanwhile has changed since, too.
  whole() {
    this.before ??= this.image.copy();
    if (this.kind === "since") {
      for (let number = 0; number < this.model.count; ++number) {
        if (this.image.differs(number, this.before)) this.marks[number] = 2;
      }
      this.picture.setOverlay(this.marks);
    }
    this.tell();
  }

  // Nothing is known any more.
  forget() {
    if (this.kind in KINDS) this.clear();
    this.tell();
  }

  clear() {
    this.marks.fill(0);
    this.told.fill(0);
    this.values.clear();
    this.picture.setOverlay(this.kind ? this.marks : null);
  }

  changed(number) {
    if (this.kind !== "since" || this.marks[number]) return;
    this.marks[number] = 2;
    this.grown = true;
  }

  // Once a frame.
  draw() {
    if (this.grown) this.tell();
    this.grown = false;
  }

  // What it says of one parameter.
  text(number) {
    const mark = this.told[number];
    if (!(this.kind in KINDS) || !this.image.whole) return "";
    if (!(mark & STORED)) return "not in the show";
    const value = this.values.has(number) ? `${this.image.textOf(this.values.get(number))} in the show, ` : "";
    const stays = mark & RECALLED ? "stays: safe" : "stays: outside the recall scope";
    if (this.kind === "scope") return mark & RECALLED ? "stored and recalled" : "stored, not recalled";
    return !(mark & DIFFERS) ? "as in the show" : value + (mark & MOVES ? "would move" : stays);
  }

  tell() {
    if (this.kind && !this.image.whole) return void (this.legend.textContent = NOTHING);
    const words = this.kind === "since" ? SINCE : KINDS[this.kind]?.words ?? ["lower values", "higher", "changed just now"];
    const counts = [0, 0, 0];
    if (this.kind) for (const mark of this.marks) ++counts[mark];
    this.legend.replaceChildren(...words.flatMap((word, n) => (word ? [[word, n]] : [])).map(([word, n]) => {
      const item = document.createElement("span");
      const swatch = document.createElement("i");
      swatch.dataset.mark = `${this.kind ? "mark" : "value"}${n}`;
      item.append(swatch, this.kind ? `${word} ${grouped(counts[n])}` : word);
      return item;
    }));
  }
}
