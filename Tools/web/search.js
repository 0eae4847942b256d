// Finds parameters by address or by name: as one types, the nearest first.

const MOST = 8;

export class Search {
  // found(number) when one was chosen; looked(number) when one is looked at.
  constructor(model, image, form, {found, looked}) {
    Object.assign(this, {model, image, found, looked, hits: [], at: -1});
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

  matches(text) {
    const exact = this.model.numberOfText(text);
    const hits = exact === undefined ? [] : [exact];
    const low = text.toLowerCase();
    for (const [group, {name, paths}] of this.model.groups.entries()) {
      const byGroup = name.toLowerCase().startsWith(low.split("/")[0]);
      for (let path = 0; path < paths && hits.length < MOST; ++path) {
        const own = this.image.pathName(group, path);
        const wanted = low.split("/")[1];
        const byPath = byGroup && (wanted === undefined ? path === 0 : String(path).startsWith(wanted));
        if (!byPath && !own.toLowerCase().includes(low)) continue;
        const roles = this.model.common.filter((one) => one.params[group] >= 0 && !/^Common/.test(one.name));
        hits.push(...roles.map((role) => this.model.numberOf(role.type, group, path, role.params[group])));
        if (roles.length === 0) hits.push(this.firstOf(group, path));
      }
    }
    return [...new Set(hits)].slice(0, MOST);
  }

  firstOf(group, path) {
    const type = this.model.groups[group].params.findIndex((count) => count > 0);
    return this.model.numberOf(type, group, path, 0);
  }

  show(hits) {
    this.hits = hits;
    this.at = -1;
    this.list.hidden = hits.length === 0 && this.input.value.trim() === "";
    this.list.replaceChildren(...hits.map((number, n) => {
      const item = document.createElement("li");
      item.setAttribute("role", "option");
      for (const text of [this.image.name(number), this.model.text(number), this.image.valueText(number)]) {
        item.append(Object.assign(document.createElement("span"), {textContent: text}));
      }
      item.addEventListener("pointerdown", (event) => {
        event.preventDefault(); // the list stays until it has been chosen from
        this.choose(n);
      });
      return item;
    }));
    if (!this.list.hidden && hits.length === 0) {
      this.list.append(Object.assign(document.createElement("li"), {textContent: "nothing is called so", className: "none"}));
    }
    if (this.input.value.trim() === "" || document.activeElement !== this.input) this.list.hidden = true;
  }

  key(event) {
    const step = {ArrowDown: 1, ArrowUp: -1}[event.key];
    if (event.key === "Escape") this.input.blur();
    if (!step || this.hits.length === 0) return;
    event.preventDefault();
    this.at = (this.at + step + this.hits.length) % this.hits.length;
    [...this.list.children].forEach((item, n) => item.setAttribute("aria-selected", String(n === this.at)));
    this.looked(this.hits[this.at]);
  }

  choose(n) {
    if (this.hits[n] === undefined) return;
    const number = this.hits[n];
    this.input.blur();
    this.found(number);
  }
}
