// What pages see in a real Chromium must not depend on whether it goes through kiv_proxy, with preloading or without.
// node --test tests/live/browser/same_page_test.mjs, with KIV_PROXY naming the program.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {after, before, describe, test} from 'node:test';
import {setTimeout as pause} from 'node:timers/promises';
import {makeCertificates} from '../../../examples/site/certificates.mjs';
import {Browser} from '../../../live/measure/browser.mjs';
import {Proxy} from '../../../live/measure/proxy.mjs';
import {CASES, HOSTS, serveOddSite} from './odd_site.mjs';

const WAYS = {alone: undefined, proxy: ['--preload', 'off', '--preconnect', 'off'], plugin: []};
const SETTLED_MS = 4000; // after which the proxy has learnt from a visit
const program = process.env.KIV_PROXY;

function missing() {
  if (!program) return 'KIV_PROXY does not name the program';
  try {
    execFileSync('chromium', ['--version'], {stdio: 'ignore'});
    return false;
  } catch {
    return 'chromium is not installed: scripts/setup live installs it';
  }
}

const SNAPSHOT = `new Promise((resolve) => {
  const look = () => {
    if (window.seen) resolve({seen: window.seen, dom: document.documentElement.outerHTML.length});
    else setTimeout(look, 20);
  };
  look();
})`;

// Loads all pages twice in one profile, and reloads one in all manners. Returns what they saw, by step.
async function browse(folder, server, certificates, way) {
  const secure = certificates !== undefined;
  const hosts = join(folder, 'hosts');
  writeFileSync(hosts, HOSTS.map((host) => `127.0.0.1 ${host}\n`).join(''));
  const intercept = secure ? ['--intercept', '--ca-dir', join(folder, `ca-${way}`), '--upstream-ca', certificates.caPath] : [];
  const proxy = WAYS[way] && await Proxy.start(program, [
    '--hosts', hosts, '--state', join(folder, `${way}-${secure}.db`), '--connect-port', String(server.port), ...intercept, ...WAYS[way]]);
  const keyFile = join(folder, `ca-${way}`, 'spki');
  const keys = [certificates?.spki, existsSync(keyFile) ? readFileSync(keyFile, 'utf8').trim() : undefined].filter(Boolean);
  const browser = new Browser('chromium', join(folder, `profile-${way}-${secure}`), [
    ...(keys.length > 0 ? [`--ignore-certificate-errors-spki-list=${keys.join(',')}`] : []),
    ...(proxy ? [`--proxy-server=${proxy.address}`, '--proxy-bypass-list=<-loopback>'] : [`--host-resolver-rules=MAP *.test 127.0.0.1:${server.port}`]),
  ]);
  try {
    const session = await browser.openPage();
    const send = (method, params) => browser.send(method, params, session);
    await send('Page.enable');
    const look = async () => {
      const {result, exceptionDetails} = await send('Runtime.evaluate', {expression: SNAPSHOT, awaitPromise: true, returnByValue: true});
      return result.value ?? exceptionDetails;
    };
    const act = async (command, params) => {
      const loaded = new Promise((resolve) => {
        const stop = browser.listen(({method, sessionId}) => {
          if (sessionId === session && method === 'Page.loadEventFired') resolve(stop());
        });
      });
      const answer = await send(command, params);
      if (answer?.errorText) return {errorText: answer.errorText};
      await Promise.race([loaded, pause(3000)]); // a page out of the back-forward cache fires no such event
      return look();
    };
    const address = (name) => `${secure ? 'https' : 'http'}://odd.test/page/${name}`;
    const saw = {};
    for (const visit of [1, 2]) {
      for (const name of Object.keys(CASES)) saw[`${name}, visit ${visit}`] = await act('Page.navigate', {url: address(name)});
      await pause(SETTLED_MS);
    }
    await act('Page.navigate', {url: address('bodies')});
    saw.reload = await act('Page.reload', {});
    saw['hard reload'] = await act('Page.reload', {ignoreCache: true});
    await act('Page.navigate', {url: address('range')});
    const {entries, currentIndex} = await send('Page.getNavigationHistory');
    saw.back = await act('Page.navigateToHistoryEntry', {entryId: entries[currentIndex - 1].id});
    return saw;
  } finally {
    await browser.close();
    await proxy?.stop();
  }
}

describe('pages see the same through the proxy', {skip: missing()}, () => {
  let folder;
  before(() => { folder = mkdtempSync(join(tmpdir(), 'same-page-')); });
  after(() => rmSync(folder, {recursive: true, force: true}));

  for (const scheme of ['http', 'https']) {
    test(scheme, {timeout: 400_000}, async () => {
      const certificates = scheme === 'https' ? makeCertificates(join(folder, 'server-ca'), HOSTS) : undefined;
      const server = await serveOddSite(certificates);
      try {
        const expected = await browse(folder, server, certificates, 'alone');
        for (const [step, saw] of Object.entries(expected)) assert.ok(Object.keys(saw?.seen ?? {}).length > 0, `${step}: the page itself works`);
        for (const way of ['proxy', 'plugin']) {
          const saw = await browse(folder, server, certificates, way);
          for (const step of Object.keys(expected)) assert.deepEqual(saw[step], expected[step], `${way}: ${step}`);
        }
      } finally {
        server.close();
      }
    });
  }
});
