// Finds parameters by address or by name: as one types, the nearest first.

const MOST = 8;
const STRIPS = "MicInput"; // whose strips are numbered from 1

export class Search {
  // found(number) when one was chosen; looked(number) when one is looked at, -1: none; left() when it is left with nothing.
  constructor(model, image, form, {found, looked, left}) {
    Object.assign(this, {model, image, found, looked, left, hits: [], at: -1});
    this.input = form.elements.text;
    this.list = form.querySelector("ul");
    this.input.addEventListener("input", () => this.look());
    this.input.addEventListener("keydown", (event) => this.key(event));
    this.input.addEventListener("blur", () => {
      this.show([]);
      this.looked(-1);
    });
    form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.choose(Math.max(0, this.at));
    });
    addEventListener("keydown", (event) => {
      if (event.key === "/" && !event.target.closest("input, dialog")) {
        event.preventDefault();
        this.input.focus();
      }
    });
  }

  look() {
    const text = this.input.value.trim();
    this.show(text === "" ? [] : this.matches(text));
  }

  // An address first; then what has all words of the text in its names, by group and path: what has a role there before the others.
  matches(text) {
    const exact = this.model.numberOfText(text);
    const words = text.toLowerCase().split(/[\s/]+/).filter(Boolean);
    const [hits, others] = [exact === undefined ? [] : [exact], []];
    for (const [group, {name, paths}] of this.model.groups.entries()) {
      const candidates = this.candidatesOf(group);
      for (let path = 0; path < paths && hits.length < MOST; ++path) {
        const names = `${name} ${this.image.pathName(group, path)}`.toLowerCase();
        const left = words.filter((word) => (/^\d+$/.test(word) ? !this.isPath(word, group, path) && !names.includes(word) : !names.includes(word)));
        for (const {role, type, param} of candidates) {
          const own = (role || this.model.types[type]).toLowerCase();
          if (left.every((word) => own.startsWith(word))) (role ? hits : others).push(this.model.numberOf(type, group, path, param));
        }
        others.length = Math.min(others.length, MOST);
      }
    }
    return [...new Set([...hits, ...others])].slice(0, MOST);
  }

  // As an address has it, as far as it has been typed; or as a strip has it.
  isPath(word, group, path) {
    return String(path).startsWith(word) || (this.model.groups[group].name === STRIPS && path + 1 === Number(word));
  }

  // The parameters of each path that have a role, and the first of each type.
  candidatesOf(group) {
    const roles = this.model.common.filter((one) => one.params[group] >= 0 && !/^Common/.test(one.name))
      .map((one) => ({role: one.name, type: one.type, param: one.params[group]}));
    const firsts = this.model.groups[group].params.flatMap((count, type) => (count > 0 ? [{role: "", type, param: 0}] : []));
    return [...roles, ...firsts];
  }

  show(hits) {
    this.hits = hits;
    this.at = -1;
    this.list.replaceChildren(...hits.map((number, n) => {
      const item = Object.assign(document.createElement("li"), {id: `found-${n}`, role: "option", ariaSelected: "false"});
      for (const text of [this.image.name(number), this.model.text(number), this.image.valueText(number)]) {
        item.append(Object.assign(document.createElement("span"), {textContent: text}));
      }
      item.addEventListener("pointerdown", (event) => {
        event.preventDefault(); // the list stays until it has been chosen from
        this.choose(n);
      });
      return item;
    }));
    if (hits.length === 0) {
      this.list.append(Object.assign(document.createElement("li"), {textContent: "nothing is called so", className: "none"}));
    }
    this.list.hidden = this.input.value.trim() === "" || document.activeElement !== this.input;
    this.input.ariaExpanded = String(!this.list.hidden);
    this.input.removeAttribute("aria-activedescendant");
  }

  // Once a frame: the values as they are.
  draw() {
    this.hits.forEach((number, n) => {
      const value = this.list.children[n].lastElementChild;
      const text = this.image.valueText(number);
      if (value.textContent !== text) value.textContent = text;
    });
  }

  key(event) {
    const step = {ArrowDown: 1, ArrowUp: -1}[event.key];
    if (event.key === "Escape") this.left();
    if (!step || this.hits.length === 0) return;
    event.preventDefault();
    this.at = (this.at + step + this.hits.length) % this.hits.length;
    [...this.list.children].forEach((item, n) => (item.ariaSelected = String(n === this.at)));
    this.input.setAttribute("aria-activedescendant", `found-${this.at}`);
    this.looked(this.hits[this.at]);
  }

  choose(n) {
    if (this.hits[n] === undefined) return;
    const number = this.hits[n];
    this.input.blur();
    this.found(number);
  }
}
