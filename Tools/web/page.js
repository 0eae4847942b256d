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
const TOLD = 0.5; // seconds after which consolectl tells how the link is
const STUCK = 1.5; // seconds after which it is itself what doesn't go on
const REFUSED = 5; // seconds that a refusal stands
const HINT = "drag a fader, or use the arrow keys";
const LOOKS = "this page may only look: to change something, open the address that consolectl printed";
const TITLES = {gone: "gone: ", waiting: "waiting: ", silent: "SILENT: ", several: "SEVERAL MCs: ", losing: "losing updates: ", step: ""};
const find = (id) => document.getElementById(id);

class Page {
  constructor(model) {
    this.model = model;
    this.image = new Image(model);
    this.heard = {open: false, may: false, health: null, healthAt: 0};
    const set = (number, text) => this.link.set(model.text(number), text);
    this.parameter = new Parameter(model, this.image, set);
    this.picture = new Picture(model, this.image,
                               {map: find("map"), bitmap: find("bitmap"), glow: find("glow"), labels: find("labels"), tip: find("tip"),
                                cursor: find("cursor"), said: find("said")},
                               (number) => this.parameter.open(number));
    this.channels = new Channels(model, this.image, {element: find("strips"), bridge: find("bridge")}, set);
    this.overlay = new Overlay(model, this.image, this.picture, {select: find("overlay"), legend: find("legend")},
                               (show) => this.link?.say({show}));
    this.picture.note = (number) => this.overlay.text(number);
    this.health = new Health(model, {plots: find("plots"), types: find("types"), lost: find("lost"), senders: find("senders"), link: find("link")});
    this.search = new Search(model, this.image, find("search"), {
      found: (number) => {
        this.picture.goTo(number);
        this.parameter.open(number);
      },
      looked: (number) => this.picture.point(number),
      left: () => this.picture.goTo(-1),
    });
    this.link = new Link({
      image: (buffer) => this.take(buffer),
      health: (health) => this.takeHealth(health),
      shows: (shows) => this.overlay.setShows(shows),
      refused: (text) => this.takeRefused(text),
      noShow: (text) => this.overlay.fail(text),
      mayChange: (may) => this.tellLocks({may}),
      open: (open) => this.takeOpen(open),
    });
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
    this.overlay.whole();
    this.tellLocks({});
  }

  takeHealth(health) {
    Object.assign(this.heard, {health, healthAt: performance.now()});
    this.health.take(health);
    this.tellState();
  }

  // Who can't reach the console, doesn't know it yet, or may not, moves nothing.
  tellLocks(news) {
    Object.assign(this.heard, news);
    const {open, may} = this.heard;
    const why = !open ? "consolectl is gone" : !may ? LOOKS : this.image.whole ? "" : "no values have come yet";
    document.documentElement.dataset.mayChange = may;
    this.channels.locked = why !== "";
    this.parameter.lock(why);
    find("channels-note").textContent = open && !may ? LOOKS : HINT;
  }

  takeOpen(open) {
    // What the last connection told says nothing of what there is now.
    if (open) {
      Object.assign(this.heard, {health: null, may: false});
      this.forget();
    } else {
      this.channels.giveUp();
    }
    this.tellLocks({open});
    this.tellState();
  }

  forget() {
    this.image.forget();
    delete document.documentElement.dataset.whole;
    this.picture.recolour();
    this.channels.drawAll();
    this.overlay.forget();
  }

  takeRefused(text) {
    if (this.parameter.dialog.open) return this.parameter.say(text);
    find("channels-note").textContent = text;
    clearTimeout(this.refused);
    this.refused = setTimeout(() => this.tellLocks({}), 1000 * REFUSED);
  }

  // What there is to know at a glance.
  tellState() {
    const {open, health, healthAt} = this.heard;
    const age = (performance.now() - healthAt) / 1000; // of what consolectl has told
    const silent = health && health.silent >= 0 ? health.silent + Math.min(age, TOLD) : -1;
    const losing = this.health.valuesOf("lost").slice(-6).some((count) => count > 0);
    const [state, text] = !open ? ["gone", "consolectl is gone"]
      : health && age > STUCK ? ["gone", "consolectl doesn't go on"]
      : !health || health.silent < 0 ? ["waiting", "waiting for an MC"]
      : silent > SILENT ? ["silent", silent < 1 ? "MC silent" : `MC silent for ${Math.floor(silent)} s`]
      : !health.whole ? ["waiting", "waiting for the whole image"]
      : health.mcs > 1 ? ["several", `${health.mcs} MCs at once`]
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
    this.search.draw();
    this.drawn = now;
    requestAnimationFrame((next) => this.draw(next));
  }
}

const answer = await fetch("model.json");
window.page = new Page(new Model(await answer.json())); // for who looks at it from the console
find("picture-title").textContent = `${window.page.model.count.toLocaleString("en")} parameters`;
