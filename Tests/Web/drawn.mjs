// What is drawn: pixels, strips, plots and tables, held against the values that they stand for.

import {expect, run, sleep, start, until, untilState} from "./harness.mjs";

// The colour of a parameter's pixel on the bitmap, and how much of the halo lies over it.
const pixelOf = (page, address) => page.evaluate((one) => {
  const {picture, model} = window.page;
  const at = picture.pixelOf[model.numberOfText(one)];
  const [x, y] = [at % picture.width, Math.floor(at / picture.width)];
  const {bitmap, glow} = picture.elements;
  return {colour: [...picture.context.getImageData(x, y, 1, 1).data.slice(0, 3)],
          shown: [bitmap.clientWidth, bitmap.clientHeight].every((size) => size > 100),
          halo: glow.getContext("2d").getImageData(Math.floor(x * glow.width / picture.width), Math.floor(y / 4), 1, 1).data[3]};
}, address);

const ACCENT = [198, 63, 8];
const distance = (a, b) => Math.max(...a.map((one, n) => Math.abs(one - b[n])));
const grey = ([r, , b]) => Math.abs(r - b) < 12;

// How many pixels of a canvas have ink.
const inkOf = (page, selector) => page.evaluate((one) => [...document.querySelectorAll(one)].map((canvas) =>
  canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data.filter((part, n) => n % 4 === 3 && part > 100).length), selector);

export const drawn = (inStep) => ({
  // Darker is higher; what has just changed is lit, and cools.
  picture: async () => {
    const {page} = await inStep();
    await run("set", "MicInput/5/Fader/0", "-60", "MicInput/6/Fader/0", "5", "--timeout", "30");
    await until("its value", () => page.evaluate(() => window.page.image.value(window.page.model.numberOfText("MicInput/6/Fader/0")) === 5));
    await until("it cools", async () => (await page.evaluate(() => window.page.picture.hot.length)) === 0);
    const [low, high] = [await pixelOf(page, "MicInput/5/Fader/0"), await pixelOf(page, "MicInput/6/Fader/0")];
    expect(low.shown, "the bitmap is not to be seen");
    expect(grey(low.colour) && grey(high.colour), `without a change they are ${low.colour} and ${high.colour}`);
    expect(high.colour[0] < low.colour[0] - 30, `a high one is ${high.colour}, a low one ${low.colour}`);
    expect(low.halo === 0, `without a change there is a halo of ${low.halo}`);
    await run("set", "MicInput/5/Fader/0", "-59.5", "--timeout", "30");
    await until("it is lit", async () => distance((await pixelOf(page, "MicInput/5/Fader/0")).colour, ACCENT) < 60, 3);
    expect((await pixelOf(page, "MicInput/5/Fader/0")).halo > 20, "there is no halo around it");
    expect(distance((await pixelOf(page, "MicInput/6/Fader/0")).colour, high.colour) === 0, "its neighbour is lit, too");
    await until("it cools again", async () => distance((await pixelOf(page, "MicInput/5/Fader/0")).colour, low.colour) < 3, 5);
    // A pixel each, and each its own.
    const places = await page.evaluate(() => new Set(window.page.picture.pixelOf).size);
    expect(places === 241339, `${places} pixels`);
    // Readable in the dark.
    const ground = () => page.evaluate(() => getComputedStyle(document.documentElement).backgroundColor);
    const light = await ground();
    await page.emulateMedia({colorScheme: "dark"});
    expect(await ground() !== light, "there is no dark");
    await until("the picture in the dark", async () => (await pixelOf(page, "MicInput/6/Fader/0")).colour[0] > (await pixelOf(page, "MicInput/5/Fader/0")).colour[0], 3);
  },

  strips: async () => {
    const {page} = await inStep();
    const part = (name) => page.locator(".strip").nth(4).locator(name);
    const top = async (name) => (await part(name).boundingBox()).y;
    await run("set", "MicInput/4/Name", "Choir", "MicInput/4/Fader/0", "-50", "--timeout", "30");
    await until("the level", async () => (await part(".level").textContent()) === "-50.0");
    expect(await part(".name").textContent() === "Choir", `the name is ${await part(".name").textContent()}`);
    const [low, ink] = [await top(".knob"), (await inkOf(page, "#bridge"))[0]];
    await run("set", "MicInput/4/Fader/0", "4", "MicInput/*/Fader/0", "4", "--timeout", "30");
    await until("the level", async () => (await part(".level").textContent()) === "4.0");
    expect(Math.abs(low - await top(".knob") - 144 * 54 / 70) < 2, `54 dB are ${low - await top(".knob")} pixels`);
    expect(ink > 100, `the row of all inputs has ${ink} pixels`);
    // As high as the meter is.
    const meter = () => page.evaluate(() => [window.page.image.value(window.page.channels.strips[4].meter),
                                             document.querySelectorAll(".level-now")[4].getBoundingClientRect().height]);
    await until("the meter", async () => (([value, height]) => value > 0 && Math.abs(height - 144 * value / 255) < 1)(await meter()));
    // One that is far off is brought by the row, and knows its name before it is seen.
    await run("set", "MicInput/140/Name", "Far", "--timeout", "30");
    await until("the name of one that isn't seen", async () => (await page.getAttribute(".strip:nth-child(141) .track", "aria-label")) === "Far");
    const box = await page.locator("#bridge").boundingBox();
    await page.mouse.click(box.x + box.width * 140.5 / 144, box.y + 20);
    await until("the strip that was asked for", () => page.locator(".strip").nth(140).evaluate((strip) => {
      const [inner, outer] = [strip.getBoundingClientRect(), strip.parentElement.getBoundingClientRect()];
      return inner.left >= outer.left && inner.right <= outer.right;
    }));
  },

  // Each table and plot says what the tool says.
  link: async () => {
    const {mc, page} = await inStep(["--moving-faders", "8"]);
    const rows = (table) => page.$$eval(`#${table} tbody tr`, (all) => all.map((row) => [...row.cells].map((cell) => cell.textContent)));
    await sleep(3);
    const types = await rows("types");
    expect(types.map(([name]) => name).join() === "String,Rotary,Switch,Integer,Fader,Other,Meter", `types: ${types}`);
    expect(types.every(([, state, , age]) => state === "complete" && /^0\.\d\d s$/.test(age)), `types: ${types}`);
    expect(types[0][2] === "0" && Number(types[4][2].replace(",", "")) > 100, `changes: ${types}`);
    const lost = await rows("lost");
    expect(lost.map((row) => row.slice(0, 2).join(" ")).join() === "kernel 0,frame size 0,header 0,ring 0,fragments 0,decode 0", `lost: ${lost}`);
    const senders = await rows("senders");
    expect(senders.some(([name, bytes, count]) => /^127\.0\.0\.1:\d+$/.test(name) && Number(bytes.replace(",", "")) > 1000 && Number(count) > 50), `senders: ${senders}`);
    for (const [what, least] of [["#plots canvas", 10], ["#types canvas", 3], ["#lost canvas", 3], ["#senders canvas", 3]]) {
      const ink = await inkOf(page, what);
      expect(ink.length > 0 && ink.every((count) => count >= least), `ink of ${what}: ${ink}`);
    }
    expect(await page.title() === "Console", `the title: ${await page.title()}`);
    await mc.stop();
    await untilState(page, "silent");
    await sleep(2);
    expect(await page.title() === "SILENT: Console", `the title: ${await page.title()}`);
    expect((await rows("types")).every(([, , , age]) => Number(age.split(" ")[0]) > 1.5), `ages: ${await rows("types")}`);
    const gap = await page.evaluate(() => window.page.health.valuesOf("longest gap").at(-1));
    expect(gap > 1500, `after two seconds of silence the longest gap is ${gap} ms`);
    const dimmed = await page.evaluate(() => getComputedStyle(document.getElementById("bitmap")).opacity);
    expect(dimmed === "0.4", `the picture of a silent MC stands there with ${dimmed}`);
    // What is lost is told by where.
    start("mc", "--loss", "5", "--seconds", "60");
    await untilState(page, "losing", 20);
    expect((await rows("lost")).some(([name, count]) => /ring|fragments/.test(name) && Number(count) > 0), `lost: ${await rows("lost")}`);
  },
});
