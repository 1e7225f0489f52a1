// What kiv_proxy costs: time per request, requests per second on one processor, and memory of idle connections, beside
// nginx and Squid under the same load in the same run.
import {spawn} from 'node:child_process';
import {chmodSync, mkdtempSync, readFileSync, rmSync} from 'node:fs';
import {get} from 'node:http';
import {availableParallelism, cpus, release, tmpdir} from 'node:os';
import {dirname, join} from 'node:path';
import {fileURLToPath} from 'node:url';
import {parseArgs} from 'node:util';
import {measureIdle} from './idle_connections.mjs';
import {OTHER_CORE, startKivProxy, startNginxProxy, startOrigin, startSquid} from './servers.mjs';

const HELP = `Usage: scripts/bench-proxy [--rounds N] [--seconds N] [--json]

Measures what kiv_proxy costs, beside nginx and Squid under the same load in the same run.

  --rounds N    of every load with every proxy [5]
  --seconds N   that each takes [2]
  --json        one object per figure on standard output instead of the table
`;

const IDLE = 1000;
// As many connections as a browser opens to one server, and one alone.
const LOADS = [
  {name: 'one request at a time, 1 kB', connections: 1, path: '/1k'},
  {name: '6 connections, 1 kB', connections: 6, path: '/1k'},
  {name: '6 connections, 100 kB', connections: 6, path: '/100k'},
];

// The page is asked for first, so that what follows belongs to it.
function openPage(proxy, origin) {
  return new Promise((resolve, reject) => {
    get({host: '127.0.0.1', port: proxy.port, path: `${origin.base}/page`,
      headers: {'Host': `127.0.0.1:${origin.port}`, 'Accept': 'text/html', 'Upgrade-Insecure-Requests': '1'}}, (response) => {
      response.resume().once('end', () => resolve());
      if (response.statusCode !== 200) reject(new Error(`${proxy.name} answers with status ${response.statusCode}`));
    }).once('error', reject);
  });
}

function runWrk(proxy, origin, {connections, path}, seconds) {
  const script = join(dirname(fileURLToPath(import.meta.url)), 'load.lua');
  const direct = proxy === origin;
  const wrk = spawn('taskset', ['-c', OTHER_CORE, 'wrk', '-t', '1', '-c', String(connections), '-d', `${seconds}s`, '-s', script,
    `http://127.0.0.1:${proxy.port}/`, '--', direct ? '-' : origin.base, path, `${origin.base}/page`], {stdio: ['ignore', 'pipe', 'inherit']});
  let output = '';
  wrk.stdout.on('data', (text) => { output += text; });
  return new Promise((resolve, reject) => {
    wrk.once('error', (error) => reject(new Error(`wrk cannot be started: ${error.message}`)));
    wrk.once('close', () => {
      const line = /^RESULT (.*)$/m.exec(output)?.[1];
      if (line === undefined) return reject(new Error(`wrk has failed:\n${output}`));
      const result = JSON.parse(line);
      if (result.errors > 0 || result.requests === 0) return reject(new Error(`${result.errors} requests through ${proxy.name} have failed`));
      resolve({rate: result.requests / (result.us / 1e6), megabytes: result.bytes / result.us, p50Us: result.p50_us, p99Us: result.p99_us});
    });
  });
}

function median(values) {
  const sorted = [...values].sort((a, b) => a - b);
  const middle = sorted.length >> 1;
  return sorted.length % 2 === 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

// Each proxy's results of all rounds, which run them in alternating order, and the ratios of each round.
async function measureLoad(load, proxies, origin, options) {
  const results = new Map(proxies.map((proxy) => [proxy, []]));
  for (let round = 0; round < options.rounds; ++round) {
    for (const proxy of round % 2 === 0 ? proxies : [...proxies].reverse()) {
      if (proxy !== origin) await openPage(proxy, origin);
      results.get(proxy).push(await runWrk(proxy, origin, load, options.seconds));
    }
  }
  const of = (name) => results.get(proxies.find((proxy) => proxy.name === name));
  const paired = (own, other, take) => (other === undefined ? null : median(own.map((result, round) => take(result, other[round]))));
  return proxies.map((proxy) => {
    const own = results.get(proxy);
    return {
      load: load.name,
      proxy: proxy === origin ? 'none' : proxy.name,
      requests_per_s: median(own.map(({rate}) => rate)),
      mbytes_per_s: median(own.map(({megabytes}) => megabytes)),
      p50_us: median(own.map(({p50Us}) => p50Us)),
      p99_us: median(own.map(({p99Us}) => p99Us)),
      beyond_direct_us: paired(own, of('server'), (mine, direct) => mine.p50Us - direct.p50Us),
      of_nginx: paired(own, of('nginx'), (mine, nginx) => mine.rate / nginx.rate),
    };
  });
}

function table(rows) {
  const widths = rows[0].map((_, column) => Math.max(...rows.map((row) => row[column].length)));
  return rows.map((row) => row.map((text, column) => (column < 2 ? text.padEnd(widths[column]) : text.padStart(widths[column]))).join('  ').trimEnd()).join('\n');
}

function print(figures, idle) {
  const number = (value, digits = 0) => (value === null ? '-' : value.toFixed(digits));
  console.log(`machine: ${cpus()[0].model}, ${availableParallelism()} processors, Linux ${release()}, load ${readFileSync('/proc/loadavg', 'utf8').split(' ')[0]} at the end\n`);
  console.log(table([['load', 'proxy', 'requests/s', 'of nginx', 'MB/s', 'median us', 'beyond direct', '99 % us'],
    ...figures.map((row) => [row.load, row.proxy, number(row.requests_per_s), number(row.of_nginx, 2), number(row.mbytes_per_s, 1), number(row.p50_us),
      number(row.beyond_direct_us), number(row.p99_us)])]));
  console.log('');
  console.log(table([[`memory with ${IDLE} idle connections`, '', 'before, MB', 'with them, MB', 'kB for each'],
    ...idle.map((row) => [row.proxy, '', number(row.before / 1e6, 1), number(row.after / 1e6, 1), number((row.after - row.before) / IDLE / 1e3, 1)])]));
}

async function bench(options) {
  if (availableParallelism() < 2) throw new Error('two processors are needed: one for the proxy, one for the server and who asks');
  const folder = mkdtempSync(join(tmpdir(), 'bench-proxy-'));
  chmodSync(folder, 0o755); // Squid gives up root's rights
  const running = [];
  const started = async (promise) => {
    const server = await promise;
    running.push(server);
    return server;
  };
  try {
    const origin = await started(startOrigin(folder));
    const kivProxy = await started(startKivProxy(folder, options.proxy, origin, false));
    const nginx = await started(startNginxProxy(folder, origin));
    const squid = await started(startSquid(folder));
    const figures = [];
    for (const load of LOADS) figures.push(...await measureLoad(load, [origin, kivProxy, nginx, squid], origin, options));
    for (const server of running.splice(1)) await server.stop();
    const idle = [];
    for (const [start, secure] of [[() => startKivProxy(folder, options.proxy, origin, false), false],
      [() => startKivProxy(folder, options.proxy, origin, true), true], [() => startNginxProxy(folder, origin), false], [() => startSquid(folder), false]]) {
      const proxy = await started(start());
      idle.push({proxy: proxy.name, ...await measureIdle(proxy, origin, IDLE, secure)});
      await running.pop().stop();
    }
    if (options.json) for (const row of [...figures, ...idle.map((row) => ({...row, connections: IDLE}))]) console.log(JSON.stringify(row));
    else print(figures, idle);
  } finally {
    for (const server of running) await server.stop();
    rmSync(folder, {recursive: true, force: true});
  }
}

class UsageError extends Error {}

function parseOptions() {
  let values;
  try {
    ({values} = parseArgs({options: {proxy: {type: 'string'}, rounds: {type: 'string', default: '5'}, seconds: {type: 'string', default: '2'},
      json: {type: 'boolean'}, help: {type: 'boolean'}}}));
  } catch (error) {
    throw new UsageError(`${error.message} (see --help)`);
  }
  for (const name of ['rounds', 'seconds']) {
    if (!/^[1-9]\d?$/.test(values[name])) throw new UsageError(`--${name} must be a whole number from 1 to 99, got '${values[name]}'`);
    values[name] = Number(values[name]);
  }
  return values;
}

try {
  const options = parseOptions();
  if (options.help) console.log(HELP);
  else await bench(options);
} catch (error) {
  console.error(`bench-proxy: ${error.message}`);
  process.exitCode = error instanceof UsageError ? 2 : 1;
}
