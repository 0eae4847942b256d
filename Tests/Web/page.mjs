// What people do with the live page, and what they see.

import {dragTo, expect, fail, openPage, run, runAll, screenshots, sleep, start, startWeb, until, untilState, valueOf, work} from "./harness.mjs";
import {readFileSync} from "node:fs";
import {join} from "node:path";
import {access} from "./access.mjs";
import {design} from "./design.mjs";
import {drawn} from "./drawn.mjs";
import {truth} from "./truth.mjs";

const ALL = 241339;
const LONGEST = 1000; // ms that the page may stand still
const TRIES = 3; // a page that stands still does so each time; a machine that does, now and then
const text = (page, selector) => page.textContent(selector);

// A page in step with an MC.
async function inStep(mcArgs = ["--moving-faders", "0"], webArgs = [], how = {}) {
  const mc = start("mc", "--seconds", "120", ...mcArgs);
  const web = await startWeb(...webArgs);
  const page = await openPage(web.url, how);
  await untilState(page, "step");
  await until("the whole image", () => page.evaluate(() => window.page.image.whole));
  return {mc, web, page};
}

const imageValue = (page, address) =>
  page.evaluate((one) => window.page.image.value(window.page.model.numberOfText(one)), address);

// Every value of the page is the one that the MC had in the end.
async function compareImages(page, mc, mcFile) {
  await mc.stop();
  const rows = (await run("get", "--from", mcFile, "*/*/*/*", "--format", "json")).split("\n").filter((line) => line.startsWith("{"));
  const wanted = rows.map((line) => JSON.parse(line)).map(({address, value}) => [address, value]);
  const wrong = await page.evaluate((rows) => {
    const {model, image} = window.page;
    const same = (number, value) => Object.is(image.value(number), typeof value === "number" && !Number.isInteger(image.value(number))
      ? Math.fround(value) : value);
    return rows.filter(([address, value]) => {
      const number = model.numberOfText(address);
      return number === undefined || model.text(number) !== address || !same(number, value);
    }).slice(0, 5).map(([address, value]) => `${address} ${value}, not ${image.value(model.numberOfText(address))}`);
  }, wanted);
  expect(wanted.length === ALL, `${wanted.length} values to compare`);
  expect(wrong.length === 0, `other values: ${wrong.join("; ")}`);
}

const muteOf = (page, path) => page.evaluate((one) => window.page.image.value(window.page.channels.strips[one].mute), path);

// How long the page doesn't draw, at the longest, until what is told has been done.
async function longestGap(page, doIt) {
  await page.evaluate(() => {
    const frames = (window.frames_ = {longest: 0, count: 0, last: performance.now(), on: true});
    const next = (now) => {
      frames.longest = Math.max(frames.longest, now - frames.last);
      frames.last = now;
      ++frames.count;
      if (frames.on) requestAnimationFrame(next);
    };
    requestAnimationFrame(next);
  });
  await doIt();
  return page.evaluate(() => (window.frames_.on = false, window.frames_));
}

// The page goes on drawing while something is done, which can be done again.
async function drawsOn(page, doIt) {
  for (let tried = 1; tried <= TRIES; ++tried) {
    const {count, longest} = await longestGap(page, doIt);
    console.log(`   ${count} frames, the longest ${Math.round(longest)} ms`);
    if (longest < LONGEST) return;
  }
  fail(`the page stood still for more than ${LONGEST} ms, ${TRIES} times`);
}

async function values() {
  const file = join(work, "mc");
  const {mc, page} = await inStep(["--moving-faders", "24", "--save", file]);
  await run("set", "MicInput/*/Rotary/7", "0.1", "MicInput/5/Name", "Grüße", "MicInput/6/Name", "日本語", "--timeout", "30");
  await sleep(0.5);
  await compareImages(page, mc, file);
}

async function drag() {
  const {page} = await inStep();
  await dragTo(page, 3, -25);
  await until("the dragged fader comes back", async () => Math.abs((await imageValue(page, "MicInput/3/Fader/0")) + 25) < 1);
  const shown = Number(await text(page, ".strip:nth-child(4) .level"));
  const held = await valueOf("MicInput/3/Fader/0");
  expect(Math.abs(held - shown) < 0.05, `the MC has ${held}, the page shows ${shown}`);
  expect(Math.abs(held + 25) < 1, `dragged to the middle, it is ${held}`);
  const mute = page.locator(".strip").nth(3).locator(".mute");
  const before = await mute.getAttribute("aria-pressed");
  await mute.click();
  await until("the mute", async () => (await muteOf(page, 3)) === (before === "true" ? 0 : 1));
  expect(await mute.getAttribute("aria-pressed") !== before, "a mute that has come back is not shown");
}

async function keyboard() {
  const {page} = await inStep();
  await run("set", "MicInput/0-2/Fader/0", "-20", "--timeout", "30");
  await until("-20", async () => (await imageValue(page, "MicInput/1/Fader/0")) === -20);
  await page.locator(".strip").nth(0).locator(".track").focus();
  for (const key of ["ArrowRight", "ArrowUp"]) await page.keyboard.press(key);
  await until("half a dB more", async () => (await imageValue(page, "MicInput/1/Fader/0")) === -19.5);
  await page.keyboard.press("PageDown");
  await until("6 dB less", async () => (await valueOf("MicInput/1/Fader/0")) === -25.5);
  // However fast they are: each key counts from what the one before has asked for.
  for (let n = 0; n < 10; ++n) await page.keyboard.press("ArrowUp");
  await until("ten keys are 5 dB", async () => (await valueOf("MicInput/1/Fader/0")) === -20.5);
  const before = await muteOf(page, 1);
  await page.keyboard.press("Control+m");
  await page.keyboard.press("M");
  await until("the mute", async () => (await muteOf(page, 1)) !== before);
  for (let n = 0; n < 2; ++n) await page.keyboard.press("m");
  await sleep(0.8);
  expect(await muteOf(page, 1) !== before, "two keys m are not as none");
  // All that can be used is reached by Tab, and shows it.
  await page.reload();
  await untilState(page, "step");
  const reached = new Set();
  for (let n = 0; n < 12; ++n) {
    await page.keyboard.press("Tab");
    reached.add(await page.evaluate(() => {
      const element = document.activeElement;
      const {outlineStyle, outlineWidth} = getComputedStyle(element);
      return `${element.id || element.className || element.name} ${outlineStyle === "none" || outlineWidth === "0px" ? "unseen" : "seen"}`;
    }));
  }
  for (const one of ["text", "overlay", "map", "track", "mute"]) expect(reached.has(`${one} seen`), `by Tab: ${[...reached]}`);
  // On the picture the arrows move, and Enter opens.
  await page.locator("#map").focus();
  for (const key of ["ArrowRight", "ArrowRight", "ArrowLeft", "Enter"]) await page.keyboard.press(key);
  expect(await text(page, "#parameter-address") === "MicInput/0/String/0", `opened: ${await text(page, "#parameter-address")}`);
  await page.keyboard.press("Escape");
  expect(!(await page.isVisible("#parameter")), "Escape closes it");
  await page.keyboard.press("ArrowRight");
  expect((await text(page, "#tip")).includes("MicInput/0/String/1"), `the keys go on elsewhere: ${await text(page, "#tip")}`);
  expect((await text(page, "#said")).includes("MicInput/0/String/1"), `it is not said: ${await text(page, "#said")}`);
  await page.keyboard.press("PageDown");
  expect((await text(page, "#tip")).includes("/0/String/0"), `the next group begins at ${await text(page, "#tip")}`);
  await page.keyboard.press("PageUp");
  expect((await text(page, "#tip")).includes("MicInput/0/String/0"), `the group before begins at ${await text(page, "#tip")}`);
  await page.keyboard.press("Escape");
  expect(!(await page.isVisible("#tip")), "Escape leaves the picture's mark");
}

async function search() {
  const {page} = await inStep();
  await run("set", "MicInput/77/Name", "Lead Vocal", "--timeout", "30");
  await until("the name", async () => (await imageValue(page, "MicInput/77/Name")) === "Lead Vocal");
  await page.keyboard.press("/");
  await page.keyboard.type("lead v");
  expect((await text(page, "#found li")).includes("Lead Vocal"), `found by name: ${await text(page, "#found")}`);
  await page.fill("#search input", "SubMix/3/Rotary/5");
  expect((await text(page, "#found li:first-child")).includes("SubMix/3/Rotary/5"), `found by address: ${await text(page, "#found")}`);
  await page.keyboard.press("ArrowDown");
  expect(await page.isVisible("#cursor"), "what is looked at is not marked on the picture");
  const marked = await page.getAttribute("#search input", "aria-activedescendant");
  expect(await page.getAttribute(`#${marked}`, "aria-selected") === "true", "the marked one is not told to a reader");
  await page.keyboard.press("Enter");
  expect(await text(page, "#parameter-address") === "SubMix/3/Rotary/5", `opened: ${await text(page, "#parameter-address")}`);
  await page.fill("#parameter-value", "0.5");
  await page.click("#parameter-set");
  await until("the value that was set", async () => (await valueOf("SubMix/3/Rotary/5")) === 0.5);
  await page.fill("#parameter-value", "loud");
  await page.click("#parameter-set");
  await until("a refusal", async () => (await text(page, "#parameter-note")).includes("no value of type Rotary"));
  await page.keyboard.press("Escape");
  await page.keyboard.press("/");
  await page.fill("#search input", "nobody is called so");
  expect(!(await page.isVisible("#cursor")), "what is looked at no more is still marked on the picture");
  expect((await text(page, "#found")).includes("nothing is called so"), "nothing is found");
  // What the page itself calls it.
  for (const [words, found] of [["Lead Vocal Fader", "MicInput/77/Fader/0"], ["micinput 77 fad", "MicInput/77/Fader/0"], ["mic input 78", "MicInput/77/"],
                                ["fader", "MicInput/0/Fader/0"], ["MicInput/77/Rot", "MicInput/77/Rotary/0"], ["SubMix/5", "SubMix/5/"]]) {
    await page.fill("#search input", words);
    expect((await text(page, "#found")).includes(found), `"${words}" finds ${await text(page, "#found")}`);
  }
  await page.fill("#search input", "MicInput/77/Mute");
  expect((await text(page, "#found")).includes("nothing is called so"), `a role that isn't there: ${await text(page, "#found")}`);
  await run("set", "MicInput/78/Name", "Été 日本", "--timeout", "30");
  await until("a name beyond ASCII", async () => (await imageValue(page, "MicInput/78/Name")) === "Été 日本");
  await page.fill("#search input", "日本");
  expect((await text(page, "#found")).includes("MicInput/78/Fader/0"), `it is not found: ${await text(page, "#found")}`);
  // Values of what was found go on.
  await run("set", "MicInput/78/Fader/0", "-7.5", "--timeout", "30");
  await until("a value in the list", async () => (await text(page, "#found")).includes("-7.5"));
  await page.keyboard.press("Escape");
  expect(await page.evaluate(() => document.activeElement.id) === "map", "after a search the keys are nowhere");
}

async function hover() {
  const {page} = await inStep();
  const point = (address) => page.evaluate((one) => {
    const {picture, model} = window.page;
    const pixel = picture.pixelOf[model.numberOfText(one)];
    const box = picture.elements.bitmap.getBoundingClientRect();
    return [box.left + pixel % picture.width + 0.5, box.top + Math.floor(pixel / picture.width) + 0.5];
  }, address);
  for (const address of ["MicInput/0/String/0", "MicInput/143/Fader/0", "SubMix/7/Switch/2"]) {
    const [x, y] = await point(address);
    await page.mouse.move(x, y);
    await until(`hover over ${address}`, async () => (await text(page, "#tip")).includes(address));
    const shown = await page.evaluate((one) => window.page.image.valueText(window.page.model.numberOfText(one)), address);
    expect((await text(page, "#tip")).includes(shown), `its value, ${shown}: ${await text(page, "#tip")}`);
    await page.mouse.click(x, y);
    expect(await text(page, "#parameter-address") === address, `opened: ${await text(page, "#parameter-address")}`);
    await page.keyboard.press("Escape");
  }
  // What is under a pointer that doesn't move goes on.
  const [x, y] = await point("MicInput/9/Fader/0");
  await page.mouse.move(x, y);
  await run("set", "MicInput/9/Fader/0", "-3.5", "--timeout", "30");
  await until("the tip's new value", async () => (await text(page, "#tip")).includes("-3.5"));
}

// All that there is changes at once: another MC takes the place of the first.
async function all() {
  const {mc, page} = await inStep(["--moving-faders", "0", "--seed", "1"]);
  const file = join(work, "mc");
  let [last, seed] = [mc, 1];
  await drawsOn(page, async () => {
    await page.evaluate(() => {
      const image = window.page.image;
      const take = image.take.bind(image);
      window.most = 0;
      image.take = (buffer, changed) => {
        let count = 0;
        take(buffer, (number) => (++count, changed(number)));
        window.most = Math.max(window.most, count);
      };
    });
    await last.stop("SIGKILL");
    last = start("mc", "--seconds", "120", "--seed", String(++seed), "--moving-faders", "144", "--save", file);
    await until("much has changed in one message", () => page.evaluate((least) => window.most > least, ALL / 4), 20);
    await untilState(page, "step");
    await sleep(1);
  });
  console.log(`   ${await page.evaluate(() => window.most)} values in one message`);
  await compareImages(page, last, file);
}

// Each single one at once, ten times, as no MC does.
async function each() {
  const {page} = await inStep();
  await drawsOn(page, async () => {
    for (let n = 1; n <= 10; ++n) {
      const count = await page.evaluate((value) => {
        const {first, count, types} = window.page.model;
        const sizes = types.map((type, n) => first[n + 1] - first[n]).map((count, type) =>
          [13 * count, 0, Math.ceil(count / 8), 0, 0, 0, count][type] || 4 * count);
        const bytes = new DataView(new ArrayBuffer(18 + sizes.reduce((sum, size) => sum + 4 + size, 0)));
        new Uint8Array(bytes.buffer).fill(value % 2 ? 0x55 : 0xaa);
        bytes.setUint8(0, 1);
        sizes.reduce((at, size) => (bytes.setInt32(at, size), at + 4 + size), 18);
        let changed = 0;
        const light = window.page.picture.light;
        window.page.picture.light = (number) => (++changed, light.call(window.page.picture, number));
        window.page.take(bytes.buffer);
        window.page.picture.light = light;
        return changed;
      }, n);
      if (n > 1) expect(count === ALL, `${count} values changed at once`);
      await sleep(0.1);
    }
  });
}

async function lost() {
  const {mc, web, page} = await inStep(["--moving-faders", "24"]);
  let [last, silent] = [mc, 0];
  for (let tried = 1; tried <= TRIES && (tried === 1 || silent >= 1); ++tried) {
    await untilState(page, "step");
    await last.stop("SIGKILL");
    silent = await untilState(page, "silent", 5);
    console.log(`   silent after ${silent.toFixed(2)} s`);
    last = start("mc", "--seconds", "60");
  }
  expect(silent < 1, `a lost MC is shown after ${silent} s`);
  await untilState(page, "step");
  await last.stop("SIGKILL");
  await until("for how long", async () => /MC silent for [1-3] s/.test(await text(page, "#state")));
  start("mc", "--seconds", "60");
  await untilState(page, "step");
  page.mayFail = true; // the browser says itself that a connection is refused
  await web.stop("SIGKILL");
  await untilState(page, "gone", 5);
  const port = new URL(web.url).port;
  start("web", "--web-port", port);
  await untilState(page, "step");
}

await runAll({
  waiting: async () => {
    const web = await startWeb();
    const page = await openPage(web.url);
    await untilState(page, "waiting");
    expect(!(await page.isVisible(".strip:first-child .knob")), "a fader is shown whose level nobody has sent");
    await page.locator("#map").focus();
    await page.keyboard.press("ArrowRight");
    expect(/–$/.test(await text(page, "#tip")), `of a value that nobody has sent is said: ${await text(page, "#tip")}`);
    await page.keyboard.press("Enter");
    expect(await page.inputValue("#parameter-value") === "" && await page.isDisabled("#parameter-set"), "what nobody has sent can be set");
    await page.keyboard.press("Escape");
    start("mc", "--seconds", "60");
    await untilState(page, "step");
    await until("it can be moved", async () => !(await page.isDisabled("#parameter-set")));
    expect(/^in step with [0-9.:]+$/.test(await text(page, "#state")), `it says: ${await text(page, "#state")}`);
  },
  values, drag, keyboard, search, hover, all, each, lost, ...access(inStep), ...truth(inStep, imageValue), ...drawn(inStep), ...design(inStep, drawsOn),
});
