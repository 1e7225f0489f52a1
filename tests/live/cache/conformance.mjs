// Runs the tests for HTTP caches of the package `http-cache-tests` through kiv_proxy, whose own cache is a browser's. They
// were written for caches of all kinds, so that not all can pass: KNOWN says which do not, and why. Not a part of the
// ordinary tests, because the package has to be fetched.
import {spawn} from 'node:child_process';
import {mkdtempSync, rmSync, writeFileSync} from 'node:fs';
import http from 'node:http';
import {tmpdir} from 'node:os';
import {join, resolve} from 'node:path';
import {Proxy} from '../../../live/measure/proxy.mjs';

const HELP = `Usage: node tests/live/cache/conformance.mjs PROGRAM FOLDER [TEST]

PROGRAM is kiv_proxy. FOLDER is where "npm install --prefix FOLDER http-cache-tests" has put the package. With TEST, shows
what is sent and answered in that one. Exit status 0 when no required test fails but those that are known to.`;

const PORT = 8000;

// By the beginnings of the tests' names.
const KNOWN = {
  '304-etag-update-response-Content-MD5': 'RFC 9111 has a 304 update all headers but those of the body\'s coding and length',
  '304-etag-update-response-ETag': 'a 304 with another ETag is about another response, which is then asked for',
  '304-etag-update-response-Set-Cookie': 'a cookie reaches the browser once, and is not stored',
  'headers-store-Set-Cookie': 'a cookie reaches the browser once, and is not stored',
  'headers-store-Transfer-Encoding': 'a transfer coding that nobody has asked for is refused',
  'age-parse-': 'RFC 9111 has a cache take the first number of a list, and leave out what is no number',
  'cc-resp-private-shared': 'the cache is a private one',
  'freshness-s-maxage-shared': 'the cache is a private one',
  'other-authorization-': 'the cache is a private one, and asks the server itself when credentials are sent',
  'partial-': 'a request for a part goes to the server, and parts are not stored',
  'vary-normalise-': 'values are compared as they are, but for blanks and lines',
  'method-POST': 'only responses to GET are stored',
  'heuristic-599-cached': 'a status that is not understood has no heuristic lifetime',
  'conditional-lm-fresh-no-lm': 'without Last-Modified the whole response is given, which is always right',
};

// Sends requests as to a proxy, and as a browser does whose user has asked for them.
class ThroughProxy extends http.Agent {
  constructor(address) {
    super({keepAlive: true});
    [this.proxyHost, this.proxyPort] = address.split(':');
  }

  addRequest(request, options) {
    request.path = `http://${options.host}:${options.port}${request.path}`;
    request.setHeader('Sec-Fetch-Site', 'none');
    super.addRequest(request, {...options, host: this.proxyHost, port: Number(this.proxyPort)});
  }
}

async function run(program, packageFolder, only) {
  const load = (file) => import(join(packageFolder, file));
  const {default: fetch} = await load('../node-fetch/lib/index.mjs');
  const {runTests, getResults} = await load('client/runner.mjs');
  const {determineTestResult} = await load('lib/display.mjs');
  const {default: suites} = await load('tests/index.mjs');
  const tests = suites.flatMap((suite) => suite.tests);

  const folder = mkdtempSync(join(tmpdir(), 'cache-tests-'));
  const server = spawn(process.execPath, ['server/server.mjs'], {
    cwd: packageFolder, stdio: ['ignore', 'pipe', 'inherit'],
    env: {...process.env, npm_config_protocol: 'http', npm_config_port: String(PORT), npm_config_pidfile: join(folder, 'pid')},
  });
  await new Promise((listens) => server.stdout.once('data', listens));
  server.stdout.resume();
  writeFileSync(join(folder, 'hosts'), '127.0.0.1 cache.test\n');
  const proxy = await Proxy.start(program, ['--state', join(folder, 'pages.db'), '--hosts', join(folder, 'hosts')]);
  try {
    const agent = new ThroughProxy(proxy.address);
    const chosen = suites.map((suite) => ({...suite, tests: suite.tests.filter(({id}) => only === undefined || id === only)}));
    for (const {tests: some} of chosen) for (const test of some) test.dump = only !== undefined;
    await runTests(chosen, (url, init) => fetch(url, {...init, agent}), false, `http://cache.test:${PORT}`);
  } finally {
    await proxy.stop();
    server.kill();
    rmSync(folder, {recursive: true, force: true});
  }

  const counts = {};
  let unknown = 0;
  for (const [id, result] of Object.entries(getResults())) {
    const {kind = 'required', name} = tests.find((test) => test.id === id);
    const sign = determineTestResult(suites, id, getResults())[2];
    counts[`${kind} ${sign}`] = (counts[`${kind} ${sign}`] ?? 0) + 1;
    if (kind === 'check' || sign === '✅' || sign === '⚪️') continue;
    const why = Object.entries(KNOWN).find(([begin]) => id.startsWith(begin))?.[1];
    if (why === undefined && kind === 'required') ++unknown;
    console.log(`${sign} ${id} (${name}): ${result[1]}${why ? `; known: ${why}` : ''}`);
  }
  console.log(counts);
  return unknown === 0;
}

const [program, folder, only] = process.argv.slice(2);
if (program === undefined || folder === undefined || program === '--help') {
  console.log(HELP);
  process.exitCode = program === '--help' ? 0 : 2;
} else {
  process.exitCode = await run(resolve(program), join(resolve(folder), 'node_modules/http-cache-tests'), only) ? 0 : 1;
}
