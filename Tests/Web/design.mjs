// How the page looks in each of its states: what can be read, what moves, what is laid over the picture.

import {closeBrowser, expect, openPage, run, screenshots, sleep, start, startWeb, until, untilState, work} from "./harness.mjs";
import {execFileSync} from "node:child_process";
import {statSync} from "node:fs";
import {join} from "node:path";

const LEAST_CONTRAST = 4.5;
const LEAST_SIZE = 11; // px
const MOST_BYTES = 180000; // of a picture in the documentation

// Texts that are too small, or too near to what is behind them.
const unreadable = (page) => page.evaluate(([contrast, size]) => {
  const context = document.createElement("canvas").getContext("2d", {willReadFrequently: true});
  const rgba = (colour) => {
    context.clearRect(0, 0, 1, 1);
    context.fillStyle = colour;
    context.fillRect(0, 0, 1, 1);
    return [...context.getImageData(0, 0, 1, 1).data];
  };
  const light = (rgb) => rgb.map((one) => one / 255).map((one) => (one <= 0.03928 ? one / 12.92 : ((one + 0.055) / 1.055) ** 2.4))
    .reduce((sum, one, n) => sum + one * [0.2126, 0.7152, 0.0722][n], 0);
  const behind = (element) => {
    for (let one = element; one; one = one.parentElement) {
      const colour = rgba(getComputedStyle(one).backgroundColor);
      if (colour[3] === 255) return colour.slice(0, 3);
    }
    return [255, 255, 255];
  };
  const bad = [];
  const look = (element, text, style) => {
    const [a, b] = [light(rgba(style.color).slice(0, 3)), light(behind(element))].sort((x, y) => y - x);
    if ((a + 0.05) / (b + 0.05) < contrast) bad.push(`"${text}" has a contrast of ${((a + 0.05) / (b + 0.05)).toFixed(1)}`);
    if (parseFloat(style.fontSize) < size) bad.push(`"${text}" has ${style.fontSize}`);
  };
  for (const element of document.querySelectorAll("body *")) {
    if (!element.checkVisibility()) continue;
    const text = [...element.childNodes].filter((node) => node.nodeType === 3).map((node) => node.textContent.trim()).join("");
    if (text) look(element, text, getComputedStyle(element));
    if (element.placeholder) look(element, element.placeholder, getComputedStyle(element, "::placeholder"));
  }
  return [...new Set(bad)].slice(0, 5);
}, [LEAST_CONTRAST, LEAST_SIZE]);

// A picture for who wants to look at each state: LOOK is a folder.
async function look(page, name) {
  const bad = await unreadable(page);
  expect(bad.length === 0, `${name}: ${bad.join("; ")}`);
  const [inner, all] = await page.evaluate(() => [innerWidth, document.documentElement.scrollWidth]);
  expect(all <= inner, `${name}: ${all} pixels wide, in ${inner}`);
  if (process.env.LOOK) await page.screenshot({path: join(process.env.LOOK, `${name}.png`)});
}

export const design = (inStep, drawsOn) => ({
  states: async () => {
    for (const dark of [false, true]) {
      const name = (state) => `${state}-${dark ? "dark" : "light"}`;
      const web = await startWeb();
      const page = await openPage(web.url, {dark});
      await untilState(page, "waiting");
      await look(page, name("waiting"));
      const losing = start("mc", "--loss", "5", "--seconds", "60");
      await untilState(page, "losing", 20);
      await look(page, name("losing"));
      await losing.stop();
      await untilState(page, "silent");
      await look(page, name("silent"));
      const mc = start("mc", "--seconds", "60");
      await untilState(page, "step", 20);
      await page.keyboard.press("/");
      await page.keyboard.type("SubMix/3");
      await page.keyboard.press("ArrowDown");
      await look(page, name("search"));
      await page.keyboard.press("Escape");
      await page.evaluate(() => window.page.parameter.open(window.page.model.numberOfText("MicInput/3/Fader/0")));
      await sleep(2);
      await look(page, name("parameter"));
      page.mayFail = true;
      await web.stop();
      await untilState(page, "gone");
      await look(page, name("gone"));
      await mc.stop();
      await closeBrowser();
    }
  },

  narrow: async () => {
    const {page} = await inStep(["--moving-faders", "24"], [], {width: 390, height: 844});
    await look(page, "narrow");
    for (const [width, height] of [[901, 800], [1101, 800], [1440, 900], [1920, 1080]]) {
      await page.setViewportSize({width, height});
      await sleep(0.3);
      await look(page, `wide-${width}`);
      const over = await page.evaluate(() => [...document.querySelectorAll("#labels span, .title > *, td, th")].filter((one) => {
        const section = one.closest("section, aside").getBoundingClientRect();
        return one.getBoundingClientRect().right > section.right + 1 || one.scrollWidth > one.clientWidth + 1;
      }).map((one) => one.textContent));
      expect(over.length === 0, `${width} wide, over the edge: ${over}`);
    }
    await page.setViewportSize({width: 390, height: 844});
    const track = page.locator(".strip").nth(1).locator(".track");
    await track.scrollIntoViewIfNeeded();
    expect(await track.isVisible(), "no fader is to be seen in a narrow window");
  },

  // 8,000 changes a second: nothing shifts, and the page draws on.
  busy: async () => {
    const {page} = await inStep(["--moving-faders", "24"]);
    await sleep(1);
    await page.evaluate(() => {
      window.shifts = [];
      new PerformanceObserver((list) => list.getEntries().forEach((entry) =>
        window.shifts.push(...entry.sources.map((source) => source.node?.id || source.node?.className || source.node?.nodeName))))
        .observe({type: "layout-shift"});
    });
    await drawsOn(page, async () => {
      start("send", "*/*/Rotary/*", "--from", "-1", "--to", "1", "--rate", "8000", "--count", "80000");
      await until("8,000 changes a second", () => page.evaluate(() => window.page.health.valuesOf("changes").at(-1) > 6000));
      await sleep(2);
    });
    await look(page, "busy");
    const shifts = await page.evaluate(() => window.shifts);
    expect(shifts.length === 0, `numbers that change shift ${[...new Set(shifts)]}`);
  },

  // What a show holds, and what its recall would do: on the picture what show preview says.
  shows: async () => {
    if (!(await run("--help")).includes("\n  show ")) return console.log("   left out: there is no SQLite");
    const file = join(work, "shows");
    const mc = start("mc", "--seconds", "60", "--moving-faders", "0");
    await run("show", "save", file, "Monday", "--scope", "MicInput/0-9/*/*", "--timeout", "30");
    await run("show", "scope", file, "Monday", "MicInput/3/*/*", "--recall", "off");
    await run("set", "MicInput/0-5/Rotary/0-99", "-7.5", "--timeout", "30");
    const web = await startWeb("--shows", file, "--safe", "MicInput/4/*/*");
    const page = await openPage(web.url);
    await untilState(page, "step");
    await page.selectOption("#overlay", "scope/Monday");
    const legend = () => page.textContent("#legend");
    await until("what the show holds", async () => /recalled [1-9]/.test(await legend()));
    const marks = () => page.evaluate(() => [0, 1, 2].map((kind) => window.page.overlay.marks.reduce((sum, mark) => sum + (mark === kind), 0)));
    const perPath = await page.evaluate(() => window.page.model.groups.find((one) => one.name === "MicInput").params.slice(0, 6).reduce((a, b) => a + b));
    const holds = await marks();
    expect(holds[1] === perPath && holds[2] === 9 * perPath, `stored ${holds[1]}, recalled ${holds[2]}, with ${perPath} a path`);
    await look(page, "scope");
    await page.selectOption("#overlay", "recall/Monday");
    await until("what a recall would move", async () => /would move 4\d\d/.test(await legend()));
    // The same as the tool says.
    const rows = (await run("show", "preview", file, "Monday", "--safe", "MicInput/4/*/*", "--format", "json", "--timeout", "30"))
      .split("\n").filter((line) => line.startsWith("{") && line.includes("reason")).map((line) => JSON.parse(line));
    const wrong = await page.evaluate((rows) => rows.map(({address, reason}) => [address, reason, window.page.overlay.text(window.page.model.numberOfText(address))])
      .filter(([, reason, said]) => !said.includes(reason.startsWith("moves") ? "would move" : reason)), rows);
    expect(rows.length > 500 && wrong.length === 0, `${rows.length} differ; ${wrong.slice(0, 3)}`);
    const [, stays, moves] = await marks();
    expect(stays + moves === rows.length, `${stays} stay, ${moves} move; the tool has ${rows.length}`);
    await look(page, "recall");
    // As the MC moves on, so does what would move.
    await run("set", "MicInput/9/Fader/0", "-3.25", "--timeout", "30");
    await until("one more would move", async () => (await marks())[2] === moves + 1);
    await page.selectOption("#overlay", "since/");
    await run("set", "MicInput/100/Fader/0", "-3.25", "MicInput/101/Fader/0", "-3.25", "--timeout", "30");
    await until("what has changed since", async () => (await legend()).includes("changed since 2"));
    await mc.stop();
  },

  // The documentation's pictures.
  pictures: async () => {
    if (!screenshots) return;
    for (const dark of [false, true]) {
      const {mc, web, page} = await inStep(["--moving-faders", "24"], [], {dark, width: 1500, height: 1020});
      await run("set", ...["Kick", "Snare", "Hat", "Tom", "Bass", "Guitar L", "Guitar R", "Keys", "Lead Vocal", "Choir", "Brass", "Strings"]
        .flatMap((name, n) => [`MicInput/${n}/Name`, name]), "--timeout", "30");
      const one = start("send", "SubMix/*/Rotary/*", "--from", "-1", "--to", "1", "--rate", "400", "--count", "20000");
      const other = start("send", "MicInput/30-90/Rotary/90-200", "--from", "-1", "--to", "1", "--rate", "1500", "--count", "60000");
      await sleep(30);
      const path = join(screenshots, `live-${dark ? "dark" : "light"}.png`);
      await page.screenshot({path});
      execFileSync("optipng", ["-quiet", "-o4", path]);
      expect(statSync(path).size < MOST_BYTES, `${path} has ${statSync(path).size} bytes`);
      for (const program of [one, other, mc, web]) await program.stop("SIGKILL");
      await closeBrowser();
    }
  },
});
