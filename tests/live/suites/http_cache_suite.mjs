// Runs an independent test suite for HTTP caches (npm package http-cache-tests) through kiv_proxy.
// node tests/live/suites/http_cache_suite.mjs SUITE_FOLDER PROXY_PROGRAM; scripts/conformance installs the suite.
// Prints what does not pass, with the reason where one is known. Exit status 1 when something else fails than is
// known, or when something passes that is known to fail.
import {spawn} from 'node:child_process';
import {once} from 'node:events';
import {mkdtempSync, rmSync, writeFileSync} from 'node:fs';
import http from 'node:http';
import {tmpdir} from 'node:os';
import {join, resolve} from 'node:path';
import {setTimeout as pause} from 'node:timers/promises';
import {Proxy} from '../../../live/measure/proxy.mjs';

const PRIVATE = 'the cache is private: it ignores s-maxage and may store private responses';
const AGE = 'RFC 9111, section 5.1: an invalid Age is ignored, and the first one of several is used';
const COOKIES = 'cookies are not stored: a response sets them once';
const KNOWN = {
  'freshness-s-maxage-shared': PRIVATE,
  'cc-resp-private-shared': PRIVATE,
  'age-parse-nonnumeric': AGE,
  'age-parse-negative': AGE,
  'age-parse-float': AGE,
  'age-parse-prefix-twoline': AGE,
  'age-parse-dup-0': AGE,
  'age-parse-dup-0-twoline': AGE,
  'age-parse-dup-old': AGE,
  'age-parse-parameter': AGE,
  'age-parse-numeric-parameter': AGE,
  'headers-store-Set-Cookie': COOKIES,
  'headers-store-Set-Cookie2': COOKIES,
  '304-etag-update-response-Set-Cookie': COOKIES,
  '304-etag-update-response-Set-Cookie2': COOKIES,
  '304-etag-update-response-Content-MD5': 'RFC 9111, section 3.2, does not except this header from the update',
  'headers-store-Transfer-Encoding': 'the suite\'s server answers with an unknown coding and never ends its response',
};
const RESULTS = {'✅': 'passed', '⛔️': 'failed', '⚠️': 'left out (optional)', '⚪️': 'depends on one that did not pass', '🔹': 'could not be set up',
  '⁉️': 'broke off', '↻': 'asked again', 'Y': 'does so (either is right)', 'N': 'does not (either is right)', '-': 'for browsers only'};
const REQUEST_TIMEOUT_MS = 12_000;

// Hands on to the proxy what a client asks of it as if it were the server.
async function startGateway(proxyAddress, origin) {
  const [host, port] = proxyAddress.split(':');
  const gateway = http.createServer((request, response) => {
    const headers = request.rawHeaders.map((text, index) => (request.rawHeaders[index - 1]?.toLowerCase() === 'host' && index % 2 === 1 ? new URL(origin).host : text));
    const onward = http.request({host, port, method: request.method, path: origin + request.url, headers}, (answer) => {
      response.writeHead(answer.statusCode, answer.statusMessage, answer.rawHeaders);
      answer.pipe(response);
    });
    onward.on('error', () => response.destroy());
    request.pipe(onward);
  });
  gateway.listen(0, '127.0.0.1');
  await once(gateway, 'listening');
  return gateway;
}

async function freePort() {
  const server = http.createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const {port} = server.address();
  server.close();
  return port;
}

async function main(suite, program) {
  const folder = mkdtempSync(join(tmpdir(), 'cache-suite-'));
  const port = await freePort();
  const origin = `http://origin.test:${port}`;
  const hosts = join(folder, 'hosts');
  writeFileSync(hosts, '127.0.0.1 origin.test\n');
  const server = spawn(process.execPath, ['--no-warnings', 'server/server.mjs'], {cwd: suite, stdio: ['ignore', 'pipe', 'inherit'],
    env: {...process.env, npm_config_port: port, npm_config_protocol: 'http', npm_config_pidfile: join(folder, 'pid')}});
  let proxy;
  try {
    await Promise.race([once(server.stdout, 'data'), pause(10_000)]);
    proxy = await Proxy.start(program, ['--hosts', hosts, '--state', join(folder, 'state.db'), '--allow-private']);
    const gateway = await startGateway(proxy.address, origin);
    const load = (name) => import(join(suite, name));
    const {default: tests} = await load('tests/index.mjs');
    const {runTests, getResults} = await load('client/runner.mjs');
    const {determineTestResult} = await load('lib/display.mjs');
    const {default: fetch} = await load('../node-fetch/lib/index.mjs');
    const patient = (url, init) => fetch(url, {...init, timeout: REQUEST_TIMEOUT_MS});
    await runTests(tests, patient, false, `http://127.0.0.1:${gateway.address().port}`, 50);
    const results = getResults();
    const counts = {};
    let surprises = 0;
    for (const {id} of tests.flatMap((group) => group.tests)) {
      const symbol = determineTestResult(tests, id, results)[2];
      counts[symbol] = (counts[symbol] ?? 0) + 1;
      const failed = symbol === '⛔️' || symbol === '⁉️';
      if (failed !== (id in KNOWN)) ++surprises;
      if (failed) console.log(`${id}: ${KNOWN[id] ?? `UNEXPECTED: ${results[id][1]}`}`);
      else if (id in KNOWN) console.log(`${id}: passes, though it is known to fail`);
    }
    console.log();
    for (const [symbol, count] of Object.entries(counts)) console.log(`${String(count).padStart(5)}  ${RESULTS[symbol] ?? symbol}`);
    return surprises === 0 ? 0 : 1;
  } finally {
    await proxy?.stop();
    server.kill();
    rmSync(folder, {recursive: true, force: true});
  }
}

if (process.argv.length !== 4) {
  console.error('usage: node tests/live/suites/http_cache_suite.mjs SUITE_FOLDER PROXY_PROGRAM');
  process.exit(2);
}
process.exit(await main(resolve(process.argv[2]), resolve(process.argv[3])));
