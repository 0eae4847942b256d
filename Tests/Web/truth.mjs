// What the page shows is what there is, and what it asks for is what somebody wants now, whatever happens to consolectl and the MC.

import {closeBrowser, dragTo, expect, openPage, run, sleep, start, startWeb, stateOf, until, untilState, valueOf, work} from "./harness.mjs";
import {join} from "node:path";

const FADER = "MicInput/2/Fader/0";
const shownLevel = (page) => page.textContent(".strip:nth-child(3) .level");
const shows = (page, level) => until(`the strip shows ${level}`, async () => (await shownLevel(page)) === level, 5);

export const truth = (inStep, imageValue) => ({
  // What is done while nobody is there to take it is not done later.
  gone: async () => {
    const {web, page} = await inStep();
    await run("set", FADER, "-40", "--timeout", "30");
    await shows(page, "-40.0");
    page.mayFail = true;
    await web.stop("SIGKILL");
    await untilState(page, "gone");
    await dragTo(page, 2, 0);
    await page.locator(".strip").nth(2).locator(".mute").click();
    expect(await page.isDisabled("#parameter-set"), "without consolectl something can be set");
    expect(await shownLevel(page) === "-40.0", `without consolectl a fader moves to ${await shownLevel(page)}`);
    start("web", "--web-port", new URL(web.url).port);
    await untilState(page, "step");
    await sleep(1);
    expect(await valueOf(FADER) === -40, `what was done before has moved the MC to ${await valueOf(FADER)}`);
  },

  // A change that is lost on its way is not shown for ever.
  lostChange: async () => {
    const {mc, page} = await inStep();
    await mc.stop("SIGKILL");
    await untilState(page, "silent");
    await dragTo(page, 2, 0);
    start("mc", "--seconds", "60", "--moving-faders", "0");
    await untilState(page, "step", 20);
    await sleep(1);
    const held = await valueOf(FADER);
    expect(Number((await shownLevel(page)).replace("-∞", "-60")) === held, `the MC has ${held}, the page shows ${await shownLevel(page)}`);
  },

  // Two hands on one fader: the last counts, on all pages, and the MC's is what is shown.
  twoHands: async () => {
    const {web, page} = await inStep();
    const other = await openPage(web.url);
    await untilState(other, "step");
    await dragTo(page, 2, -10, {held: true});
    await until("the drag", async () => (await valueOf(FADER)) === -10);
    await run("set", FADER, "-30", "--timeout", "30");
    await shows(other, "-30.0");
    await page.mouse.up();
    await sleep(1);
    const held = await valueOf(FADER);
    for (const one of [page, other]) expect(Number(await shownLevel(one)) === held, `the MC has ${held}, a page shows ${await shownLevel(one)}`);
  },

  // Only the first button takes a fader, and taking it moves nothing.
  hold: async () => {
    const {page} = await inStep();
    await run("set", FADER, "-20", "--timeout", "30");
    await shows(page, "-20.0");
    const box = await page.locator(".strip").nth(2).locator(".knob").boundingBox();
    await page.mouse.click(box.x + box.width / 2, box.y - 30, {button: "right"});
    await page.mouse.move(box.x + box.width / 2, box.y + 1);
    await page.mouse.down();
    await page.mouse.up();
    await sleep(0.5);
    expect(await valueOf(FADER) === -20, `it is at ${await valueOf(FADER)}`);
  },

  // The value that is opened is all of it: setting it as it is changes nothing.
  exact: async () => {
    const {page} = await inStep();
    const address = "MicInput/3/Rotary/7";
    for (const value of ["0.12345679", "1e-40", "-0", "16777217", "1e30", "-2.5"]) {
      await run("set", address, value, "--timeout", "30");
      const held = await valueOf(address);
      await until(`${held}`, async () => Object.is(await imageValue(page, address), held === 0 ? -0 : Math.fround(held)));
      await page.evaluate((one) => window.page.parameter.open(window.page.model.numberOfText(one)), address);
      await page.keyboard.press("Enter");
      await sleep(0.3);
      expect(Object.is(await imageValue(page, address), held === 0 ? -0 : Math.fround(held)), `${held} has become ${await imageValue(page, address)}`);
      await page.keyboard.press("Escape");
    }
    await run("set", "MicInput/3/Name", 'Kick 22"', "--timeout", "30");
    await until("a name with a quote", async () => (await imageValue(page, "MicInput/3/Name")) === 'Kick 22"');
    await page.evaluate((one) => window.page.parameter.open(window.page.model.numberOfText(one)), "MicInput/3/Name");
    await page.fill("#parameter-value", 'Kick 24"');
    await page.keyboard.press("Enter");
    await until("its quote", async () => (await valueOf("MicInput/3/Name")) === 'Kick 24"');
  },

  // What another consolectl showed is forgotten when one comes that knows nothing yet.
  restart: async () => {
    const {mc, web, page} = await inStep();
    page.mayFail = true;
    await mc.stop("SIGKILL");
    await web.stop("SIGKILL");
    await untilState(page, "gone");
    const opacity = await page.evaluate(() => getComputedStyle(document.getElementById("types")).opacity);
    expect(opacity === "0.4", "what is said of the link stands there as if it were so");
    start("web", "--web-port", new URL(web.url).port);
    await untilState(page, "waiting");
    expect(!(await page.isVisible(".strip:first-child .knob")), "a fader is shown whose level nobody has sent");
    expect(await page.evaluate(() => !window.page.image.whole), "values are shown that nobody has sent");
  },

  // What changed while consolectl was gone has changed, too; and while nothing is known nothing is said of it.
  sinceGone: async () => {
    const {web, page} = await inStep();
    await page.selectOption("#overlay", "since/");
    page.mayFail = true;
    await web.stop("SIGKILL");
    await untilState(page, "gone");
    await run("set", "MicInput/77/Rotary/0-9", "0.25", "--timeout", "30");
    start("web", "--web-port", new URL(web.url).port);
    await untilState(page, "step");
    await until("what has changed meanwhile", async () => (await page.textContent("#legend")).includes("changed since 10"));
  },

  overlayWaiting: async () => {
    const web = await startWeb();
    const page = await openPage(web.url);
    await untilState(page, "waiting");
    await page.selectOption("#overlay", "since/");
    expect(await page.textContent("#legend") === "no values have come yet", `of nothing is said: ${await page.textContent("#legend")}`);
    start("mc", "--seconds", "60", "--moving-faders", "0");
    await untilState(page, "step");
    await until("the overlay of values", async () => (await page.textContent("#legend")).includes("the same 241,339"));
  },

  // It is consolectl that doesn't go on, not the MC.
  frozen: async () => {
    const {web, page} = await inStep();
    web.process.kill("SIGSTOP");
    await untilState(page, "gone", 5);
    expect((await page.textContent("#state")) === "consolectl doesn't go on", `it says: ${await page.textContent("#state")}`);
    web.process.kill("SIGCONT");
    await untilState(page, "step");
  },

  several: async () => {
    const {page} = await inStep();
    const other = start("mc", "--seconds", "60", "--moving-faders", "0");
    await untilState(page, "several");
    expect((await page.textContent("#state")) === "2 MCs at once", `it says: ${await page.textContent("#state")}`);
    await other.stop();
    await untilState(page, "step");
  },

  // The token in the tab that is open already; and the shows are told with or without it.
  tokenLater: async () => {
    if (!(await run("--help")).includes("\n  show ")) return console.log("   left out: there is no SQLite");
    start("mc", "--seconds", "60", "--moving-faders", "0");
    const file = join(work, "tokens");
    await run("show", "save", file, "Monday", "--timeout", "30");
    const web = await startWeb("--listen", "0.0.0.0", "--shows", file);
    const [address, token] = web.url.split("#");
    const page = await openPage(address);
    await untilState(page, "step");
    const may = () => page.getAttribute("html", "data-may-change");
    const overlays = () => page.locator("#overlay option").allTextContents();
    expect(await may() === "false", "without the token it may change something");
    await page.evaluate((one) => (location.hash = one), token);
    await until("the token's right", async () => (await may()) === "true");
    for (let n = 0; n < 5; ++n) {
      await page.goto("about:blank");
      await page.goto(web.url);
      await until("the token's right", async () => (await may()) === "true");
      expect((await overlays()).includes("Monday: scope"), `the overlays: ${await overlays()}`);
    }
    await closeBrowser();
  },
});
