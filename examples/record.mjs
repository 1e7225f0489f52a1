// Makes recording.har: starts the example site, walks headless Chromium through its pages in three
// rounds over an emulated mobile network, and writes what the browser reported.
// The file is replaced only by a recording that is complete and valid.
import {spawn} from 'node:child_process';
import {existsSync, mkdtempSync, readFileSync, renameSync, rmSync, writeFileSync} from 'node:fs';
import {createRequire} from 'node:module';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {setTimeout as pause} from 'node:timers/promises';
import Ajv from 'ajv';
import {harFromMessages} from 'chrome-har';
import CDP from 'chrome-remote-interface';
import {pages} from './site/routes.mjs';
import {startSite} from './site/server.mjs';

const CHROMIUM = process.env.CHROMIUM ?? '/usr/bin/chromium';
const OUTPUT = new URL('recording.har', import.meta.url).pathname;
const ROUNDS = 3;
// No latency is emulated: the round trip is the replay's to add, and the browser's emulated one is only a
// floor under the wait for an answer, in which the site's think times would vanish.
const NETWORK = {offline: false, latency: 0, downloadThroughput: 9e6 / 8, uploadThroughput: 3e6 / 8, connectionType: 'cellular4g'};
const SCREEN = {width: 412, height: 915, deviceScaleFactor: 2, mobile: true};
const QUIET_MS = 1500; // a load is over when nothing was in flight for so long after its load event
const LOAD_LIMIT_MS = 60000;

class RecordingError extends Error {}

async function startBrowser(resolverRules) {
  if (!existsSync(CHROMIUM)) throw new RecordingError(`no browser at ${CHROMIUM}: install Debian's chromium or set CHROMIUM`);
  const profile = mkdtempSync(join(tmpdir(), 'recording-'));
  const child = spawn(CHROMIUM, [
    '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
    '--disable-component-update', '--disable-sync', '--disable-default-apps', '--disable-extensions',
    '--disable-features=HttpsUpgrades,HttpsFirstBalancedModeAutoEnable',
    `--user-data-dir=${profile}`, `--host-resolver-rules=${resolverRules}`, '--remote-debugging-port=0', 'about:blank',
  ], {stdio: ['ignore', 'ignore', 'pipe']});
  const ended = new Promise((resolve) => child.once('close', resolve));
  const stop = async () => {
    child.kill();
    await ended;
    rmSync(profile, {recursive: true, force: true, maxRetries: 5, retryDelay: 200});
  };
  let said = '';
  const address = new Promise((resolve, reject) => {
    child.stderr.on('data', (text) => {
      said += text;
      const match = /DevTools listening on (ws:\S+)/.exec(said);
      if (match) resolve(match[1]);
    });
    child.once('error', reject);
    child.once('close', () => reject(new RecordingError(`${CHROMIUM} ended before it could be driven:\n${said}`)));
  });
  try {
    return {client: await CDP({target: await address, local: true}), stop};
  } catch (error) {
    await stop();
    throw error;
  }
}

// One cold load: the browser context is new, so there is no cache, no cookie and no open connection.
// Returns the protocol messages of the load.
async function load(client, url) {
  const {browserContextId} = await client.Target.createBrowserContext();
  const {targetId} = await client.Target.createTarget({url: 'about:blank', browserContextId});
  const {sessionId} = await client.Target.attachToTarget({targetId, flatten: true});
  const send = (method, params) => client.send(method, params, sessionId);
  const messages = [];
  const inFlight = new Map();
  let loaded = false;
  let lastChange = Date.now();
  const onEvent = (message) => {
    if (message.sessionId !== sessionId) return;
    const {method, params} = message;
    messages.push({method, params});
    if (method === 'Network.requestWillBeSent') inFlight.set(params.requestId, params.request.url);
    else if (method === 'Network.loadingFinished') inFlight.delete(params.requestId);
    else if (method === 'Network.loadingFailed') throw new RecordingError(`${inFlight.get(params.requestId)}: ${params.errorText}`);
    else if (method === 'Page.loadEventFired') loaded = true;
    else return;
    lastChange = Date.now();
  };
  let failure;
  const listener = (message) => { try { onEvent(message); } catch (error) { failure = error; } };
  client.on('event', listener);
  try {
    await send('Emulation.setDeviceMetricsOverride', SCREEN);
    await send('Emulation.setUserAgentOverride', {userAgent: await mobileUserAgent(client), platform: 'Linux armv8l'});
    await send('Page.enable');
    await send('Network.enable');
    await send('Network.emulateNetworkConditions', NETWORK);
    await send('Page.navigate', {url});
    const deadline = Date.now() + LOAD_LIMIT_MS;
    while (!(loaded && inFlight.size === 0 && Date.now() - lastChange > QUIET_MS)) {
      if (failure) throw failure;
      if (Date.now() > deadline) throw new RecordingError(`${url} did not finish; waiting for: ${[...inFlight.values()].join(', ') || 'its load event'}`);
      await pause(50);
    }
  } finally {
    client.off('event', listener);
    await client.Target.disposeBrowserContext({browserContextId});
  }
  return messages;
}

async function mobileUserAgent(client) {
  const {product} = await client.Browser.getVersion();
  return `Mozilla/5.0 (Linux; Android 10; K) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/${product.split('/')[1].split('.')[0]}.0.0.0 Mobile Safari/537.36`;
}

// Runs work(client) with the site up and a browser that reaches it; both are gone afterwards.
async function withBrowserOnSite(work) {
  const site = await startSite();
  try {
    const browser = await startBrowser(site.resolverRules);
    try {
      return await work(browser.client);
    } finally {
      await browser.client.close();
      await browser.stop();
    }
  } finally {
    site.close();
  }
}

const isHttp = ({params}) => /^https?:/.test(params.request.url);

// "Name: value" lines below the first, as they came over the wire.
function headersOf(text) {
  return text.split('\r\n').slice(1).filter(Boolean).map((line) => {
    const colon = line.indexOf(':');
    return {name: line.slice(0, colon), value: line.slice(colon + 1).trim()};
  });
}

function cookiesOf(headers) {
  const lines = headers.filter(({name}) => name.toLowerCase() === 'set-cookie').map(({value}) => value);
  return lines.map((line) => {
    const [, name, value] = /^([^=;]*)=([^;]*)/.exec(line);
    return {name, value};
  });
}

const valueOf = (headers, name) => headers.find((header) => header.name.toLowerCase() === name)?.value;

// Headers and sizes as sent. The converter is not told of the wire's headers, because it gives those of
// a redirect to the answer at its end; a redirect's steps share a request id and come in order.
function addWireHeaders(entries, messages, url) {
  const steps = new Map();
  const stepsOf = (id) => steps.get(id) ?? steps.set(id, {requests: [], responses: [], bytes: 0, taken: 0}).get(id);
  for (const {method, params} of messages) {
    if (method === 'Network.requestWillBeSentExtraInfo') stepsOf(params.requestId).requests.push(params.headers);
    else if (method === 'Network.responseReceivedExtraInfo') stepsOf(params.requestId).responses.push(params.headersText);
    else if (method === 'Network.loadingFinished') stepsOf(params.requestId).bytes = params.encodedDataLength;
  }
  const asked = messages.filter((message) => message.method === 'Network.requestWillBeSent' && isHttp(message));
  if (entries.length !== asked.length) throw new RecordingError(`${url}: ${asked.length} requests, but ${entries.length} entries`);
  asked.forEach(({params}, i) => {
    const {request, response} = entries[i];
    const step = stepsOf(params.requestId);
    const [sent, received] = [step.requests[step.taken], step.responses[step.taken]];
    ++step.taken;
    if (request.url !== params.request.url || !sent || !received) throw new RecordingError(`${request.url}: headers not reported`);
    request.headers = Object.entries(sent).map(([name, value]) => ({name, value}));
    request.headersSize = -1; // not reported
    response.headers = headersOf(received);
    response.cookies = cookiesOf(response.headers);
    response.headersSize = Buffer.byteLength(received);
    const declared = valueOf(response.headers, 'content-length');
    response.bodySize = declared === undefined ? Math.max(0, step.bytes - response.headersSize) : Number(declared);
  });
}

// One load as a HAR page and its entries. Ids that differ from run to run for no reason are left out.
function convert(messages, url, pageNumber) {
  const {pages: [page, ...others], entries} = harFromMessages(messages.filter(({method}) => !method.endsWith('ExtraInfo'))).log;
  if (!page || others.length > 0) throw new RecordingError(`${url}: expected one page, got ${others.length + (page ? 1 : 0)}`);
  addWireHeaders(entries, messages, url);
  const id = `page_${pageNumber}`;
  for (const entry of entries) {
    for (const name of ['_requestId', '_requestTime', '_chunks', '_initiator_detail', '_initiator_script_id']) delete entry[name];
    entry.pageref = id;
  }
  entries.sort((a, b) => a.startedDateTime < b.startedDateTime ? -1 : a.startedDateTime > b.startedDateTime ? 1 : 0);
  return {page: {...page, id, title: url}, entries};
}

function assertValid(har) {
  const require = createRequire(import.meta.url);
  const ajv = new Ajv({allErrors: true, schemaId: 'auto'});
  ajv.addMetaSchema(require('ajv/lib/refs/json-schema-draft-06.json'));
  const schemas = require('har-schema');
  for (const schema of Object.values(schemas)) ajv.addSchema(schema);
  if (!ajv.validate('har.json#', har)) {
    throw new RecordingError(`the recording is no valid HAR: ${ajv.errorsText(ajv.errors.slice(0, 5), {dataVar: 'har'})}`);
  }
}

// Indented, but with name-and-value pairs on one line each: half the lines, and diffs that read well.
function format(har) {
  const text = JSON.stringify(har, null, 1);
  return text.replace(/\{\n\s+("name": .*)\n\s+("value": .*)\n\s+\}/g, '{$1 $2}') + '\n';
}

async function record() {
  const {version} = JSON.parse(readFileSync(new URL('package.json', import.meta.url)));
  return withBrowserOnSite(async (client) => {
    const [name, browserVersion] = (await client.Browser.getVersion()).product.split('/');
    const log = {
      version: '1.2',
      creator: {name: 'record.mjs', version},
      browser: {name: name.replace('HeadlessChrome', 'Chromium').replace(/^Chrome$/, 'Chromium'), version: browserVersion},
      pages: [],
      entries: [],
    };
    for (let round = 1; round <= ROUNDS; ++round) {
      for (const url of pages) {
        const {page, entries} = convert(await load(client, url), url, log.pages.length + 1);
        log.pages.push(page);
        log.entries.push(...entries);
        console.log(`round ${round}: ${url}: ${entries.length} requests, load event after ${Math.round(page.pageTimings.onLoad)} ms`);
      }
    }
    return {log};
  });
}

if (import.meta.filename === process.argv[1]) {
  try {
    const har = JSON.parse(JSON.stringify(await record())); // as a reader will see it: without undefined fields
    assertValid(har);
    const unfinished = `${OUTPUT}.part`;
    writeFileSync(unfinished, format(har));
    renameSync(unfinished, OUTPUT);
    console.log(`wrote ${OUTPUT}`);
  } catch (error) {
    if (!(error instanceof RecordingError)) throw error;
    console.error(`record: ${error.message}`);
    process.exitCode = 2;
  }
}
