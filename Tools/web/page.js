// The live page: brings the parts together, and draws once a frame.

import {Channels} from "./channels.js";
import {Health} from "./health.js";
import {Link} from "./link.js";
import {Image, Model} from "./model.js";
import {Overlay} from "./overlay.js";
import {Parameter} from "./parameter.js";
import {Picture} from "./picture.js";
import {Search} from "./search.js";

const SILENT = 0.6; // seconds without an update: an MC sends one every few hundredths
const HINT = "drag a fader, or use the arrow keys";
const TITLES = {gone: "gone: ", waiting: "waiting: ", silent: "SILENT: ", losing: "losing updates: ", step: ""};
const find = (id) => document.getElementById(id);

class Page {
  constructor(model) {
    this.model = model;
    this.image = new Image(model);
    this.heard = {open: false, health: null, healthAt: 0};
    const set = (number, text) => this.link.set(model.text(number), text);
    this.parameter = new Parameter(model, this.image, set);
    this.picture = new Picture(model, this.image,
                               {map: find("map"), bitmap: find("bitmap"), glow: find("glow"), labels: find("labels"), tip: find("tip"), cursor: find("cursor")},
                               (number) => this.parameter.open(number));
    this.channels = new Channels(model, this.image, {element: find("strips"), bridge: find("bridge")}, set);
    this.overlay = new Overlay(model, this.image, this.picture, {select: find("overlay"), legend: find("legend")},
                               (show) => this.link?.say({show}));
    this.picture.note = (number) => this.overlay.text(number);
    this.health = new Health(model, {plots: find("plots"), types: find("types"), lost: find("lost"), senders: find("senders"), link: find("link")});
    new Search(model, this.image, find("search"), {
      found: (number) => this.parameter.open(number),
      looked: (number) => this.picture.moveTo(number),
    });
    this.link = new Link({
      image: (buffer) => this.take(buffer),
      health: (health) => this.takeHealth(health),
      shows: (shows) => this.overlay.setShows(shows),
      refused: (text) => this.parameter.say(text),
      mayChange: (may) => this.takeMayChange(may),
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
      this.overlay.changed(number);
    });
    this.overlay.take(buffer);
    if (!first || !this.image.whole) return;
    document.documentElement.dataset.whole = "true";
    this.picture.recolour();
    this.channels.drawAll();
  }

  takeHealth(health) {
    Object.assign(this.heard, {health, healthAt: performance.now()});
    this.health.take(health);
    this.tellState();
  }

  takeMayChange(may) {
    document.documentElement.dataset.mayChange = may;
    find("parameter-value").readOnly = find("parameter-set").disabled = this.channels.locked = !may;
    find("channels-note").textContent = may ? HINT : "this page may only look: to change something, open the address that consolectl printed";
  }

  takeOpen(open) {
    this.heard.open = open;
    this.tellState();
  }

  // What there is to know at a glance.
  tellState() {
    const {open, health, healthAt} = this.heard;
    const silent = health && health.silent >= 0 ? health.silent + (performance.now() - healthAt) / 1000 : -1;
    const losing = this.health.valuesOf("lost").slice(-6).some((count) => count > 0);
    const [state, text] = !open ? ["gone", "consolectl is gone"]
      : !health || health.silent < 0 ? ["waiting", "waiting for an MC"]
      : silent > SILENT ? ["silent", silent < 1 ? "MC silent" : `MC silent for ${Math.floor(silent)} s`]
      : !health.whole ? ["waiting", "waiting for the whole image"]
      : losing ? ["losing", "losing updates"]
      : ["step", `in step with ${health.mc}`];
    const element = find("state");
    document.documentElement.dataset.state = state;
    if (element.textContent !== text) element.textContent = text;
    element.dataset.state = state;
    const title = `${TITLES[state]}Console`;
    if (document.title !== title) document.title = title;
  }

  draw(now) {
    this.link.flush();
    this.channels.draw();
    this.overlay.draw();
    this.picture.draw((now - this.drawn) / 1000);
    this.drawn = now;
    requestAnimationFrame((next) => this.draw(next));
  }
}

const answer = await fetch("model.json");
window.page = new Page(new Model(await answer.json())); // for who looks at it from the console
find("picture-title").textContent = `${window.page.model.count.toLocaleString("en")} parameters`;
