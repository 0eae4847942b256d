// Who may look, and who may change something.

import {createServer} from "node:http";
import {execFileSync} from "node:child_process";
import {closeBrowser, expect, openPage, run, start, startWeb, until, untilState, valueOf} from "./harness.mjs";

const OWN_ADDRESS = "10.9.8.7"; // one that isn't this machine's alone

// What a page's script gets of a server's values: "open", or why not.
const tryLive = (page, url) =>
  page.evaluate((live) => new Promise((done) => {
    const socket = new WebSocket(live);
    socket.onopen = () => (socket.close(), done("open"));
    socket.onerror = () => done("refused");
  }), url.replace(/^http/, "ws").replace(/#.*/, "") + "live");

export const access = (inStep) => ({
  // A page of another site neither reads nor hears anything, whatever name it gives this machine.
  foreign: async () => {
    const {web, page} = await inStep();
    expect(await tryLive(page, web.url) === "open", "the own page's script is let in");
    await closeBrowser();
    const site = createServer((_, answer) => answer.setHeader("Content-Type", "text/html").end("<p>another site</p>"));
    await new Promise((done) => site.listen(0, "127.0.0.1", done));
    const other = await openPage("", {args: ["--host-resolver-rules=MAP evil.example 127.0.0.1"]});
    other.mayFail = true;
    await other.goto(`http://127.0.0.1:${site.address().port}/`);
    expect(await tryLive(other, web.url) === "refused", "another site's page was let in");
    const read = await other.evaluate((url) => fetch(url).then(() => "read", () => "refused"), `${web.url}model.json`);
    expect(read === "refused", "another site's page has read something");
    const named = web.url.replace("127.0.0.1", "evil.example");
    const answer = await other.goto(named);
    expect(answer.status() === 421, `by another name: ${answer.status()}`);
    expect(await tryLive(other, named) === "refused", "by another name it was let in");
    site.close();
  },

  // Beyond this machine: with the address that was printed one may change something, with that of the page alone only look.
  token: async () => {
    execFileSync("ip", ["addr", "add", `${OWN_ADDRESS}/32`, "dev", "lo"]);
    start("mc", "--seconds", "60", "--moving-faders", "0");
    const web = await startWeb("--listen", OWN_ADDRESS);
    const [address, token] = web.url.split("#");
    expect(/^[0-9a-f]{32}$/.test(token), `the token: ${web.url}`);
    const before = await valueOf("MicInput/1/Fader/0");
    for (const [url, may] of [[address, false], [`${address}#${token.replace(/./, (c) => (c === "0" ? "1" : "0"))}`, false], [web.url, true]]) {
      const page = await openPage(url);
      await untilState(page, "step");
      await until("the whole image", () => page.evaluate(() => window.page.image.whole));
      const told = await page.getAttribute("html", "data-may-change");
      expect(told === String(may), `${url}: the page says it may change: ${told}`);
      // What the page itself would not do is asked for all the same.
      await page.evaluate(() => (window.page.link.set("MicInput/1/Fader/0", "-33"), window.page.link.flush()));
      await page.waitForTimeout(500);
      const value = await valueOf("MicInput/1/Fader/0");
      expect(value === (may ? -33 : before), `${url}: it is ${value}, it was ${before}`);
      if (!may) {
        const box = await page.locator(".strip .track").first().boundingBox();
        await page.mouse.click(box.x + box.width / 2, box.y + 5);
        await page.waitForTimeout(300);
        expect(await valueOf("MicInput/0/Fader/0") !== 8, "a page that may only look has moved a fader");
        expect((await page.textContent("#channels-note")).includes("only look"), "it doesn't say that it may only look");
      }
    }
    await run("set", "MicInput/1/Fader/0", "-1", "--timeout", "30");
  },
});
