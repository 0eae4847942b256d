// The live page: brings the parts together, and draws once a frame.

import {Channels} from "./channels.js";
import {Health} from "./health.js";
import {Link} from "./link.js";
import {Image, Model} from "./model.js";
import {Picture} from "./picture.js";
import {Search} from "./search.js";

const SILENT = 0.6; // seconds without an update: an MC sends one every few hundredths
const find = (id) => document.getElementById(id);

class Parameter {
  constructor(model, image, set) {
    Object.assign(this, {model, image, number: -1, history: []});
    this.dialog = find("parameter");
    const ask = () => set(this.number, find("parameter-value").value.replace(/^"|"$/g, ""));
    find("parameter-set").addEventListener("click", ask);
    find("parameter-value").addEventListener("keydown", (event) => {
      if (event.key !== "Enter") return;
      event.preventDefault();
      ask();
    });
  }

  open(number) {
    Object.assign(this, {number, history: []});
    find("parameter-name").textContent = this.image.name(number) || "no name";
    find("parameter-address").textContent = this.model.text(number);
    find("parameter-value").value = this.image.valueText(number);
    this.say("");
    this.dialog.showModal();
  }

  say(text) {
    find("parameter-note").textContent = text;
  }

  changed(number) {
    if (number !== this.number || !this.dialog.open) return;
    if (document.activeElement !== find("parameter-value")) find("parameter-value").value = this.image.valueText(number);
    this.say(`now ${this.image.valueText(number)}`);
    this.history.push(Number(this.image.value(number)) || 0);
    if (this.history.length > 160) this.history.shift();
    const canvas = find("parameter-plot");
    const context = canvas.getContext("2d");
    const [least, most] = [Math.min(...this.history), Math.max(...this.history)];
    context.clearRect(0, 0, canvas.width, canvas.height);
    context.beginPath();
    this.history.forEach((value, n) => context.lineTo(2 * n, 58 - 52 * (value - least) / (most - least || 1)));
    context.strokeStyle = getComputedStyle(canvas).color;
    context.lineWidth = 2;
    context.stroke();
  }
}

class Page {
  constructor(model) {
    this.model = model;
    this.image = new Image(model);
    this.heard = {open: false, health: null, healthAt: 0};
    const set = (number, text) => this.link.set(model.text(number), text);
    this.parameter = new Parameter(model, this.image, set);
    this.picture = new Picture(model, this.image,
                               {map: find("map"), bitmap: find("bitmap"), labels: find("labels"), tip: find("tip"), cursor: find("cursor")},
                               (number) => this.parameter.open(number));
    this.channels = new Channels(model, this.image, find("strips"), set);
    this.health = new Health(model, {plots: find("plots"), types: find("types"), lost: find("lost"), senders: find("senders"), link: find("link")});
    new Search(model, this.image, find("search"), {
      found: (number) => this.parameter.open(number),
      looked: (number) => this.picture.moveTo(number),
    });
    this.link = new Link({
      image: (buffer) => this.take(buffer),
      health: (health) => this.takeHealth(health),
      refused: (text) => this.parameter.say(text),
      mayChange: () => {},
      open: (open) => this.takeOpen(open),
    }, location.hash.slice(1));
    this.drawn = performance.now();
    requestAnimationFrame((now) => this.draw(now));
    setInterval(() => this.tellState(), 100);
  }

  take(buffer) {
    const first = !this.image.whole;
    this.image.take(buffer, (number) => {
      this.picture.light(number);
      this.channels.changed(number);
      this.parameter.changed(number);
    });
    if (first) {
      this.picture.recolour();
      for (const strip of this.channels.visible) this.channels.see(strip, true);
    }
  }

  takeHealth(health) {
    Object.assign(this.heard, {health, healthAt: performance.now()});
    this.health.take(health);
    this.tellState();
  }

  takeOpen(open) {
    this.heard.open = open;
    this.tellState();
  }

  // What there is to know at a glance.
  tellState() {
    const {open, health, healthAt} = this.heard;
    const silent = health && health.silent >= 0 ? health.silent + (performance.now() - healthAt) / 1000 : -1;
    const losing = this.health.losses.values.slice(-6).some((count) => count > 0);
    const [state, text] = !open ? ["gone", "consolectl is gone"]
      : !health || health.silent < 0 ? ["waiting", "waiting for an MC"]
      : silent > SILENT ? ["silent", `MC silent for ${silent.toFixed(1)} s`]
      : !health.whole ? ["waiting", "waiting for the whole image"]
      : losing ? ["losing", "losing updates"]
      : ["step", `in step with ${health.mc}`];
    const element = find("state");
    document.documentElement.dataset.state = state;
    if (element.textContent !== text) element.textContent = text;
    element.dataset.state = state;
  }

  draw(now) {
    this.link.flush();
    this.channels.draw();
    this.picture.draw((now - this.drawn) / 1000);
    this.drawn = now;
    requestAnimationFrame((next) => this.draw(next));
  }
}

const answer = await fetch("model.json");
window.page = new Page(new Model(await answer.json())); // for who looks at it from the console
find("picture-note").textContent = `${window.page.model.count.toLocaleString("en")}, a pixel each; lit when one changes`;
