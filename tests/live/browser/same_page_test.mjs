// What pages see in a real Chromium must not depend on whether it goes through kiv_proxy, with preloading or without.
// node --test tests/live/browser/same_page_test.mjs, with KIV_PROXY naming the program.
import assert from 'node:assert/strict';
import {mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {after, before, describe, test} from 'node:test';
import {setTimeout as pause} from 'node:timers/promises';
import {makeCertificates} from '../../../examples/site/certificates.mjs';
import {CASES, HOSTS, serveOddSite} from './odd_site.mjs';
import {Visitor, startProxy} from './visitor.mjs';

const WAYS = {alone: undefined, proxy: ['--preload', 'off', '--preconnect', 'off'], plugin: []};
const SETTLED_MS = 4000; // after which the proxy has learnt from a visit
const program = process.env.KIV_PROXY;

// Loads all pages twice in one profile, and reloads one in all manners. Returns what they saw, by step.
async function browse(folder, server, certificates, way) {
  const options = WAYS[way];
  const proxy = options && await startProxy(program, folder, server.port, certificates, ['--state', join(folder, `${way}.db`), ...options]);
  const visitor = await Visitor.start(folder, `profile-${way}`, server.port, certificates, proxy?.address);
  try {
    const saw = {};
    for (const visit of [1, 2]) {
      for (const name of Object.keys(CASES)) saw[`${name}, visit ${visit}`] = await visitor.open(name);
      if (visit === 1 && way === 'plugin') await pause(SETTLED_MS);
    }
    await visitor.open('bodies');
    saw.reload = await visitor.act('Page.reload');
    saw['hard reload'] = await visitor.act('Page.reload', {ignoreCache: true});
    await visitor.open('range');
    saw.back = await visitor.back();
    return saw;
  } finally {
    await visitor.close();
    await proxy?.stop();
  }
}

describe('pages see the same through the proxy', {skip: !program && 'KIV_PROXY does not name the program'}, () => {
  let folder;
  before(() => { folder = mkdtempSync(join(tmpdir(), 'same-page-')); });
  after(() => rmSync(folder, {recursive: true, force: true}));

  for (const scheme of ['http', 'https']) {
    test(scheme, {timeout: 400_000}, async () => {
      const own = mkdtempSync(join(folder, `${scheme}-`));
      const certificates = scheme === 'https' ? makeCertificates(join(own, 'server-ca'), HOSTS) : undefined;
      const server = await serveOddSite(certificates);
      try {
        const expected = await browse(own, server, certificates, 'alone');
        for (const [step, saw] of Object.entries(expected)) assert.ok(Object.keys(saw?.seen ?? {}).length > 0, `${step}: the page itself works`);
        for (const way of ['proxy', 'plugin']) {
          const saw = await browse(own, server, certificates, way);
          for (const step of Object.keys(expected)) assert.deepEqual(saw[step], expected[step], `${way}: ${step}`);
        }
      } finally {
        server.close();
      }
    });
  }
});
