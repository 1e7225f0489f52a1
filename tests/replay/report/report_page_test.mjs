// The HTML report in a real Chromium, which is driven over its debugging pipe: every control is used, and nothing
// may be refused by the page's own policy. KIV_REPLAY and KIV_EXAMPLE_RECORDING name the program and what it
// replays. Exit status 77, for "skipped", where there is no Chromium.
import assert from "node:assert/strict";
import { execFileSync, spawn, spawnSync } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, before, test } from "node:test";

if (spawnSync("chromium", ["--version"]).status !== 0) {
  console.error("SKIPPED: the report was not tested in a browser, because chromium is not installed");
  process.exit(77);
}

const folder = mkdtempSync(join(tmpdir(), "kiv_report_"));
const report = join(folder, "report.html");
const complaints = [];
let chromium, nextId = 0, session;
const waiting = new Map();

const send = (method, params = {}) => new Promise((resolve, reject) => {
  const id = ++nextId;
  waiting.set(id, { resolve, reject });
  chromium.stdio[3].write(JSON.stringify({ id, method, params, sessionId: session }) + "\0");
});

const receive = (message) => {
  if (message.id) {
    const { resolve, reject } = waiting.get(message.id);
    waiting.delete(message.id);
    if (message.error) reject(new Error(message.error.message)); else resolve(message.result);
  }
  if (message.method === "Runtime.exceptionThrown") complaints.push(message.params.exceptionDetails.text);
  if (message.method === "Log.entryAdded") complaints.push(message.params.entry.text);
};

// The value of an expression in the page.
const run = async (expression) => {
  const { result, exceptionDetails } = await send("Runtime.evaluate", { expression, returnByValue: true, awaitPromise: true });
  if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
  return result.value;
};
const resize = (width, height) => send("Emulation.setDeviceMetricsOverride", { width, height, deviceScaleFactor: 1, mobile: false });
const press = async (key) => {
  for (const type of ["keyDown", "keyUp"]) await send("Input.dispatchKeyEvent", { type, key, code: key, ...(key === "Enter" ? { text: "\r", windowsVirtualKeyCode: 13 } : {}) });
};

before(async () => {
  const recording = process.env.KIV_EXAMPLE_RECORDING;
  execFileSync(process.env.KIV_REPLAY, ["--html", report, recording, recording], { stdio: "ignore" });
  chromium = spawn("chromium", ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--remote-debugging-pipe", "--user-data-dir=" + join(folder, "profile")],
  { stdio: ["ignore", "ignore", "ignore", "pipe", "pipe"] });
  let text = "";
  chromium.stdio[4].on("data", (chunk) => {
    const parts = (text + chunk).split("\0");
    text = parts.pop();
    for (const part of parts) receive(JSON.parse(part));
  });
  const { targetId } = await send("Target.createTarget", { url: "about:blank" });
  session = (await send("Target.attachToTarget", { targetId, flatten: true })).sessionId;
  for (const domain of ["Page", "Runtime", "Log"]) await send(domain + ".enable");
  await resize(1280, 900);
  await send("Page.navigate", { url: "file://" + report });
  await run("new Promise((done) => { const look = () => document.readyState === 'complete' && location.protocol === 'file:' ? done() : setTimeout(look, 20); look(); })");
});

after(async () => {
  chromium.kill();
  await new Promise((resolve) => chromium.on("exit", resolve));
  rmSync(folder, { recursive: true, force: true, maxRetries: 5, retryDelay: 200 });
});

test("a column sorts the recordings, up and down", async () => {
  await run("window.gain = [...document.querySelectorAll('th[data-sort]')].find((heading) => heading.textContent === 'plugin'); gain.querySelector('button').click()");
  assert.equal(await run("gain.getAttribute('aria-sort')"), "ascending");
  await run("document.querySelector('th[data-sort] button').click(); document.querySelector('th[data-sort] button').click()");
  assert.equal(await run("gain.hasAttribute('aria-sort')"), false);
  const names = await run("[...document.querySelectorAll('.recordings tbody tr')].map((row) => row.cells[0].textContent)");
  assert.equal(names.length, 2);
  assert.ok(names[0] > names[1], names.join());
});

test("search and filter leave what was asked for", async () => {
  const shown = "[...document.querySelectorAll('details.visit')].filter((visit) => !visit.hidden && visit.offsetParent).length";
  const all = await run(shown);
  const set = (id, value) => run(`{ const input = document.getElementById("${id}"); input.value = "${value}"; input.dispatchEvent(new Event("input")); }`);
  assert.equal(all, 18);
  await set("kind", "real");
  assert.equal(await run(shown), 12);
  assert.equal(await run("found.textContent"), "12 visits of 2 recordings");
  await set("search", "nothing like this");
  assert.equal(await run(shown), 0);
  await set("search", "");
  await set("kind", "");
  assert.equal(await run(shown), all);
});

test("a visit opens, a request tells all by keyboard, and the focus comes back", async () => {
  await run("window.visit = document.querySelectorAll('details.visit')[1]; visit.open = true");
  await run("new Promise((done) => setTimeout(done, 100))");
  const rows = await run("visit.querySelectorAll('.waterfall tbody tr').length");
  assert.ok(rows > 20, String(rows));
  const cached = await run("[...visit.querySelectorAll('tr.cached')].filter((row) => row.offsetParent).length");
  assert.equal(cached, 0, "what the disk cache answered is folded away");
  await run("visit.querySelector('.toggle').click()");
  assert.ok(await run("visit.querySelectorAll('tr.cached')[0].offsetParent !== null"));
  assert.equal(await run("[...visit.querySelectorAll('.tag.ended')].filter((tag) => /both|off/.test(tag.textContent)).length"), 1);

  const requests = "[...visit.querySelectorAll('.waterfall tbody tr')].filter((row) => row.querySelector('.off [role=img]'))";
  await run(`window.third = ${requests}[2]; third.previousElementSibling.querySelector('button').focus()`);
  await press("ArrowDown");
  await press("Enter");
  assert.equal(await run("document.querySelector('.panel').hidden"), false);
  const text = await run("document.querySelector('.panel').innerText");
  for (const part of ["status 200", "off", "plugin", "reachable", "oracle"]) assert.ok(text.includes(part), text);
  await press("Escape");
  assert.equal(await run("document.querySelector('.panel').hidden"), true);
  assert.equal(await run("document.activeElement === third.querySelector('button')"), true);
});

test("on a phone the names of the recordings stay in view", async () => {
  await resize(390, 844);
  await run("document.querySelector('.scroll').scrollLeft = 400");
  const [left, width] = await run("(() => { const box = document.querySelector('.recordings tbody th').getBoundingClientRect(); return [box.left, document.documentElement.scrollWidth]; })()");
  assert.ok(left >= 0 && left < 30, String(left));
  assert.ok(width <= 390, "the page itself does not scroll sideways: " + width);
  await resize(1280, 900);
});

test("it prints, and its policy refused nothing of its own", async () => {
  const { data } = await send("Page.printToPDF", { preferCSSPageSize: true });
  assert.ok(Buffer.from(data, "base64").subarray(0, 5).toString() === "%PDF-");
  assert.deepEqual(complaints, []);
});

test("its policy refuses what is not its own", async () => {
  await run("{ const script = document.createElement('script'); script.textContent = 'window.intruder = true'; document.body.append(script); }");
  assert.equal(await run("window.intruder === undefined"), true);
});
