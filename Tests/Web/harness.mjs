// What the tests of the live page share: programs, a browser, and what is expected.

import {spawn} from "node:child_process";
import {createRequire} from "node:module";
import {mkdtempSync, rmSync} from "node:fs";
import {tmpdir} from "node:os";
import {join, resolve} from "node:path";

const [, , modules, updated, ...consolectl] = process.argv;
const {chromium} = createRequire(resolve(modules, "x"))("playwright-core");
const QUIET = ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
               "--disable-component-update", "--disable-sync"];

export const screenshots = updated; // where to; empty: nowhere
export const work = mkdtempSync(join(tmpdir(), "web-"));
export const sleep = (seconds) => new Promise((done) => setTimeout(done, 1000 * seconds));
const running = new Set();
let failures = 0;

export function fail(text) {
  console.log(`FAILED: ${text}`);
  ++failures;
}

export function expect(holds, text) {
  if (!holds) fail(text);
}

// Waits until something holds, and says how many seconds that took; what doesn't within a while is a failure.
export async function until(what, holds, most = 10) {
  const start = performance.now();
  const seconds = () => (performance.now() - start) / 1000;
  while (seconds() < most) {
    if (await holds()) return seconds();
    await sleep(0.02);
  }
  fail(`${what}: not within ${most} seconds`);
  return seconds();
}

// A program that goes on.
export function start(...args) {
  const process = spawn(consolectl[0], [...consolectl.slice(1), ...args], {stdio: ["ignore", "pipe", "pipe"]});
  const program = {process, log: ""};
  for (const stream of [process.stdout, process.stderr]) stream.on("data", (text) => (program.log += text));
  running.add(program);
  program.ended = new Promise((done) => process.on("close", (status) => done(running.delete(program) && status)));
  program.stop = (signal = "SIGTERM") => (process.kill(signal), program.ended);
  return program;
}

// One that ends by itself: what it printed.
export async function run(...args) {
  const program = start(...args);
  const status = await program.ended;
  expect(status === 0, `consolectl ${args.join(" ")}: status ${status}: ${program.log}`);
  return program.log;
}

// Another value than the MC's: the one that consolectl reads there.
export async function valueOf(address) {
  const rows = (await run("get", address, "--format", "json")).split("\n").filter((line) => line.startsWith("{"));
  return rows.length === 1 ? JSON.parse(rows[0]).value : undefined;
}

export async function startWeb(...args) {
  const web = start("web", "--web-port", "0", ...args);
  await until("consolectl web", () => /the page: \S+/.test(web.log));
  web.url = web.log.match(/the page: (\S+)/)[1];
  return web;
}

let browser = null;

// A new page; what goes wrong on it is a failure.
export async function openPage(url, {width = 1440, height = 1000, dark = false, args = []} = {}) {
  browser ??= await chromium.launch({executablePath: "/usr/bin/chromium", args: [...QUIET, ...args]});
  const context = await browser.newContext({viewport: {width, height}, colorScheme: dark ? "dark" : "light"});
  const page = await context.newPage();
  page.on("pageerror", (error) => fail(`the page: ${error.message}`));
  page.on("console", (line) => line.type() === "error" && !page.mayFail && fail(`the page says: ${line.text()}`));
  if (url) await page.goto(url);
  return page;
}

export async function closeBrowser() {
  await browser?.close();
  browser = null;
}

// Takes a fader by its knob and leaves it at a level, unless it is to be held.
export async function dragTo(page, path, level, {held = false} = {}) {
  const strip = page.locator(".strip").nth(path);
  const centre = ({x, y, width, height}) => [x + width / 2, y + height / 2];
  const track = await strip.locator(".track").boundingBox();
  await page.mouse.move(...centre(await strip.locator(".knob").boundingBox()));
  await page.mouse.down();
  await page.mouse.move(track.x + track.width / 2, track.y + track.height * (10 - level) / 70, {steps: 8});
  if (!held) await page.mouse.up();
}

export const stateOf = (page) => page.evaluate(() => document.documentElement.dataset.state);
export const untilState = (page, state, most) => until(`the state "${state}"`, async () => (await stateOf(page)) === state, most);

// The tests in their order, and the end of everything.
export async function runAll(tests) {
  setTimeout(() => (fail("it takes too long"), process.exit(1)), 240000).unref();
  const only = process.env.ONLY?.split(",");
  for (const [name, test] of Object.entries(tests).filter(([name]) => !only || only.includes(name))) {
    console.log(`-- ${name}`);
    try {
      await test();
    } catch (error) {
      fail(`${name}: ${error.stack}`);
    }
    for (const program of running) await program.stop("SIGKILL");
    await closeBrowser();
  }
  rmSync(work, {recursive: true, force: true});
  console.log(failures === 0 ? "passed" : `${failures} failed`);
  process.exit(failures === 0 ? 0 : 1);
}
