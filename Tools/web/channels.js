// Channels as people know them: a strip for each mic input, with name, meter, fader and mute.

import {Bridge} from "./bridge.js";
import {FADER, METER, STRING, SWITCH} from "./model.js";

const GROUP = "MicInput";
const TOP = 10, BOTTOM = -60; // dB
const STEP = 0.5;
const TRACK = 144; // px, as high as the style has it
const SETTLED = 600; // ms after which the MC's value counts, whatever was asked for

const shareOf = (level) => Math.min(1, Math.max(0, (level - BOTTOM) / (TOP - BOTTOM)));
const levelText = (level) => (level <= BOTTOM ? "-∞" : level < 1000 ? level.toFixed(1) : level.toPrecision(2));

export class Channels {
  // set(number, text) asks for a change.
  constructor(model, image, {element, bridge}, set) {
    Object.assign(this, {model, image, element, set, locked: true});
    this.group = model.groups.findIndex((group) => group.name === GROUP);
    const mute = model.common.find((common) => common.type === SWITCH && common.params[this.group] >= 0);
    const params = {name: [STRING, model.names[this.group]], fader: [FADER, model.commonParameter("Fader", this.group)],
                    meter: [METER, 0], mute: [SWITCH, mute.params[this.group]]};
    this.strips = [];
    this.stripOf = new Map(); // by a parameter's number: its strip and which part of it
    this.due = new Set(); // strips and parts to draw
    for (let path = 0; path < model.groups[this.group].paths; ++path) {
      const strip = this.make(path);
      for (const [part, [type, param]] of Object.entries(params)) {
        strip[part] = model.numberOf(type, this.group, path, param);
        this.stripOf.set(strip[part], {strip, part});
      }
      this.strips.push(strip);
    }
    element.replaceChildren(...this.strips.map((strip) => strip.root));
    this.bridge = new Bridge(bridge, this.strips.length, (path) => this.strips[path] && this.show(this.strips[path], "center"));
    this.makeCurrent(this.strips[0]);
    this.visible = new Set();
    const observer = new IntersectionObserver((entries) => {
      for (const entry of entries) this.see(this.strips[entry.target.dataset.path], entry.isIntersecting);
    }, {root: element, rootMargin: "0px 200px"});
    for (const strip of this.strips) observer.observe(strip.root);
  }

  make(path) {
    const root = document.createElement("div");
    root.className = "strip";
    root.dataset.path = path;
    root.innerHTML = `<span class="number"></span><span class="name"></span>
      <div class="fader"><i class="meter"><i class="level-now"></i></i>
        <div class="track" tabindex="-1" role="slider" aria-orientation="vertical" aria-valuemin="${BOTTOM}" aria-valuemax="${TOP}">
          <i class="knob"></i></div></div>
      <span class="level"></span><button class="mute" type="button" tabindex="-1" aria-pressed="false">mute</button>`;
    const part = (name) => root.querySelector(`.${name}`);
    const strip = {path, root, track: part("track"), knob: part("knob"), bar: part("level-now"), label: part("name"), level: part("level"),
                   button: part("mute"), dragged: false, asked: new Map()};
    part("number").textContent = path + 1;
    root.addEventListener("focusin", () => this.makeCurrent(strip));
    strip.track.addEventListener("pointerdown", (event) => this.grab(strip, event));
    strip.track.addEventListener("pointermove", (event) => strip.dragged && this.drag(strip, event));
    for (const end of ["pointerup", "pointercancel"]) strip.track.addEventListener(end, () => this.letGo(strip));
    strip.track.addEventListener("keydown", (event) => this.key(strip, event));
    strip.button.addEventListener("click", () => this.ask(strip, "mute", this.valueOf(strip, "mute") ? 0 : 1));
    return strip;
  }

  // Of all strips Tab reaches one: the last that was used.
  makeCurrent(strip) {
    for (const [one, index] of [[this.current, -1], [strip, 0]]) {
      for (const element of one ? [one.track, one.button] : []) element.tabIndex = index;
    }
    this.current = strip;
  }

  see(strip, visible) {
    if (!visible) return void this.visible.delete(strip);
    this.visible.add(strip);
    for (const part of ["name", "fader", "meter", "mute"]) this.drawPart(strip, part);
  }

  // A parameter has another value.
  changed(number) {
    const found = this.stripOf.get(number);
    if (!found) return;
    if (this.visible.has(found.strip) || found.part === "name") this.due.add(found);
    this.drawOnBridge(found.strip, found.part);
  }

  draw() {
    for (const {strip, part} of this.due) this.drawPart(strip, part);
    this.due.clear();
    this.bridge.draw();
  }

  drawAll() {
    for (const strip of this.strips) {
      for (const part of ["name", "fader", "meter", "mute"]) {
        this.drawOnBridge(strip, part);
        this.drawPart(strip, part);
      }
    }
  }

  // What was asked for, as long as it may be under way; then the MC's.
  valueOf(strip, part) {
    return strip.asked.get(part)?.value ?? this.image.value(strip[part]);
  }

  ask(strip, part, value) {
    if (this.locked) return;
    this.forget(strip, part);
    strip.asked.set(part, {value, timer: setTimeout(() => this.settle(strip, part), SETTLED)});
    this.set(strip[part], String(value));
    this.drawPart(strip, part);
  }

  forget(strip, part) {
    clearTimeout(strip.asked.get(part)?.timer);
    strip.asked.delete(part);
  }

  settle(strip, part) {
    if (part === "fader" && strip.dragged) return;
    this.forget(strip, part);
    this.drawPart(strip, part);
  }

  // What has been asked for won't happen any more.
  giveUp() {
    for (const strip of this.strips) {
      this.letGo(strip);
      for (const part of ["fader", "mute"]) this.settle(strip, part);
    }
  }

  drawOnBridge(strip, part) {
    const value = this.image.value(strip[part]);
    if (part === "fader") this.bridge.set("levels", strip.path, shareOf(value));
    if (part === "meter") this.bridge.set("meters", strip.path, value / 255);
    if (part === "mute") this.bridge.set("muted", strip.path, value);
  }

  drawPart(strip, part) {
    const held = this.image.value(strip[part]);
    if (strip.asked.get(part)?.value === Math.round(10 * held) / 10 && !strip.dragged) this.forget(strip, part); // it has come back
    const value = this.valueOf(strip, part);
    if (part === "name") {
      strip.label.textContent = strip.label.title = value;
      strip.track.setAttribute("aria-label", value || `mic input ${strip.path + 1}`);
    } else if (part === "meter") {
      strip.bar.style.transform = `scaleY(${value / 255})`;
    } else if (part === "mute") {
      strip.button.setAttribute("aria-pressed", String(value !== 0));
    } else {
      strip.knob.style.transform = `translateY(${TRACK * (1 - shareOf(value))}px)`;
      strip.level.textContent = levelText(value);
      strip.track.setAttribute("aria-valuenow", value.toFixed(1));
      strip.track.setAttribute("aria-valuetext", `${levelText(value)} dB`);
    }
  }

  // By its knob, which stays where it is under the pointer; elsewhere the knob comes to the pointer.
  grab(strip, event) {
    if (this.locked || event.button !== 0) return;
    strip.track.setPointerCapture(event.pointerId);
    strip.dragged = true;
    strip.root.classList.add("dragged");
    const knob = strip.knob.getBoundingClientRect();
    const onKnob = event.clientY >= knob.top && event.clientY <= knob.bottom;
    strip.held = onKnob ? event.clientY - (knob.top + knob.bottom) / 2 : 0;
    if (!onKnob) this.drag(strip, event);
  }

  drag(strip, event) {
    const box = strip.track.getBoundingClientRect();
    const share = 1 - (event.clientY - strip.held - box.top) / box.height;
    this.askLevel(strip, BOTTOM + share * (TOP - BOTTOM));
  }

  askLevel(strip, level) {
    this.ask(strip, "fader", Math.round(Math.min(TOP, Math.max(BOTTOM, level)) * 10) / 10);
  }

  letGo(strip) {
    if (!strip.dragged) return;
    strip.dragged = false;
    strip.root.classList.remove("dragged");
    const asked = strip.asked.get("fader");
    if (asked) this.ask(strip, "fader", asked.value); // and from then on the MC's value counts again
  }

  key(strip, event) {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    const level = this.valueOf(strip, "fader");
    const levels = {ArrowUp: level + STEP, ArrowDown: level - STEP, PageUp: level + 6, PageDown: level - 6, Home: TOP, End: BOTTOM};
    const beside = {ArrowLeft: -1, ArrowRight: 1}[event.key];
    if (beside !== undefined) this.focus(strip.path + beside);
    else if (event.key in levels) this.askLevel(strip, levels[event.key]);
    else if (event.key.toLowerCase() === "m") strip.button.click();
    else return;
    event.preventDefault();
  }

  focus(path) {
    const strip = this.strips[path];
    if (!strip) return;
    this.show(strip, "nearest");
    strip.track.focus({preventScroll: true});
  }

  // The strips alone scroll, not the page.
  show(strip, where) {
    const {offsetLeft, offsetWidth} = strip.root;
    const {scrollLeft, clientWidth} = this.element;
    const [from, to] = [offsetLeft + offsetWidth - clientWidth, offsetLeft];
    this.element.scrollLeft = where === "center" ? (from + to) / 2 : Math.min(Math.max(scrollLeft, from), to);
  }
}
