// Loads the pages of a served site, or those of a list, in all ways, interleaved, and writes a line of JSON for each
// load. Runs on the client's side of kiv_link, or anywhere the pages can be reached.
import {cpSync, existsSync, mkdirSync, openSync, readFileSync, rmSync, statSync, writeFileSync, writeSync} from 'node:fs';
import {join} from 'node:path';
import {setTimeout as pause} from 'node:timers/promises';
import {pathToFileURL} from 'node:url';
import {parseArgs} from 'node:util';
import {Browser, proxyFlags} from './browser.mjs';
import {harOf} from './har.mjs';
import {loadPage} from './page_load.mjs';
import {Proxy} from './proxy.mjs';
import {BadUrlList, checkReachable, readUrlList, unusualPorts} from './url_list.mjs';
import {CACHES, WAYS, isHinted} from './ways.mjs';

const HELP = `Loads the pages of a served site in all ways, interleaved, and writes a line of JSON for each load.

Usage: node live/measure/measure.mjs --folder FOLDER --site NAME --proxy PROGRAM [OPTIONS]

  --folder FOLDER     where the server has written served.json, pid and log.jsonl; profiles and state are put there
  --site NAME         what the site is called in the results
  --urls FILE         pages of any servers instead, one URL per line; requests and bytes are not counted then
  --proxy PROGRAM     kiv_proxy
  --browser PROGRAM   [chromium]
  --loads N           of each page in each way [7]
  --ways LIST         of ${Object.keys(WAYS).join(', ')} [all]
  --caches LIST       of ${Object.keys(CACHES).join(', ')} [stale,cold]
  --pages N           only the first N pages of the site [all]
  --filmstrip         one more load of each, which is not counted, with pictures of what was seen
  --har FOLDER        record instead: --loads cold loads by the browser alone, one HAR file for each page
  --out FILE          append to this file [standard output]
`;

const SETTLED_MS = 4500; // after which kiv_proxy takes a page for loaded, and what is short-lived is stale

// One measurement: what was served, where files go, and the processes that stay.
class Measurement {
  constructor(options) {
    this.options = options;
    this.folder = options.folder;
    mkdirSync(options.folder, {recursive: true});
    if (options.urls === undefined) {
      this.#readServed();
    } else {
      const pages = readUrlList(options.urls);
      this.served = {pages, httpsPorts: unusualPorts(pages)};
    }
    this.proxies = new Map(); // those that live through all rounds, by way
  }

  #readServed() {
    this.served = JSON.parse(readFileSync(this.path('served.json'), 'utf8'));
    this.serverId = Number(readFileSync(this.path('pid'), 'utf8'));
    this.log = this.path('log.jsonl');
    this.hosts = this.path('hosts');
    writeFileSync(this.hosts, this.served.resolverRules.split(',').map((rule) => {
      const [, name, address] = rule.split(' ');
      return `${address} ${name}\n`;
    }).join(''));
  }

  path(...names) {
    return join(this.folder, ...names);
  }

  // The state file is a copy of `state` where there is one, else new.
  startProxy(way, name, state) {
    const file = this.path(`${name}.db`);
    for (const suffix of ['', '-wal', '-shm']) {
      rmSync(file + suffix, {force: true});
      if (state !== undefined && existsSync(state + suffix)) cpSync(state + suffix, file + suffix);
    }
    const servers = this.hosts === undefined ? [] : ['--hosts', this.hosts];
    if (this.served.ca !== undefined) servers.push('--upstream-ca', this.served.ca);
    const secure = this.served.ca === undefined && this.hosts !== undefined ? [] : ['--intercept', '--ca-dir', this.path('ca')];
    return Proxy.start(this.options.proxy, ['--state', file, '--mark', ...servers, ...this.tunnelPorts(), ...secure, ...WAYS[way].proxy]);
  }

  browser(profile, proxy) {
    const keys = [this.served.spki, this.proxyKey()].filter((key) => key !== undefined);
    const flags = keys.length > 0 ? [`--ignore-certificate-errors-spki-list=${keys.join(',')}`] : [];
    if (proxy !== undefined) flags.push(...proxyFlags(proxy.address));
    else if (this.served.resolverRules !== undefined) flags.push(`--host-resolver-rules=${this.served.resolverRules}`);
    return new Browser(this.options.browser, profile, flags);
  }

  // Of the pages' resources, which have ports of their own.
  tunnelPorts() {
    return this.served.httpsPorts.flatMap((port) => ['--tunnel-port', String(port)]);
  }

  proxyKey() {
    const file = this.path('ca', 'spki');
    return existsSync(file) ? readFileSync(file, 'utf8').trim() : undefined;
  }

  // One load in a browser that is started for it, in a copy of the profile. `keep`: the profile stays as it is after
  // the load.
  async load(way, page, profile, proxy, {filmstrip = false, keep} = {}) {
    writeFileSync(this.path('hints'), WAYS[way].hints);
    if (this.serverId !== undefined) process.kill(this.serverId, 'SIGUSR2'); // nobody finds a connection of an earlier load
    const own = this.path('profile');
    rmSync(own, {recursive: true, force: true});
    if (profile !== undefined) cpSync(profile, own, {recursive: true});
    const browser = this.browser(own, proxy);
    try {
      await browser.send('Browser.getVersion');
      await pause(400); // it has things of its own to do first
      const logged = this.log === undefined ? 0 : statSync(this.log).size;
      const load = await loadPage(browser, page, {filmstrip});
      await pause(150); // the server's log is complete
      return {...load, ...this.serverFigures(logged)};
    } finally {
      await browser.close();
      if (keep !== undefined) {
        rmSync(keep, {recursive: true, force: true});
        cpSync(own, keep, {recursive: true});
      }
      rmSync(own, {recursive: true, force: true});
    }
  }

  serverFigures(from) {
    if (this.log === undefined) return {server_requests: null, server_bytes: null};
    const lines = readFileSync(this.log).subarray(from).toString().split('\n').filter(Boolean).map((line) => JSON.parse(line));
    const sum = (name) => lines.reduce((all, line) => all + (line[name] ?? 0), 0);
    return {server_requests: lines.length, server_bytes: sum('bodyBytes') + sum('headerBytes')};
  }

  // Profiles as a first start and as two visits leave them, and proxies that know the pages.
  async prepare(pages, ways, caches) {
    const empty = this.path('profile-empty');
    const browser = this.browser(empty);
    await browser.send('Browser.getVersion');
    await pause(1500);
    await browser.close();
    this.profileFor = {cold: () => empty, first: () => empty, stale: (way, page) => this.path(`profile-${WAYS[way].hints}-${pages.indexOf(page)}`)};
    if (caches.includes('stale')) {
      for (const hints of new Set(ways.map((way) => WAYS[way].hints))) {
        const way = ways.find((name) => WAYS[name].hints === hints && !WAYS[name].proxy) ?? 'alone';
        for (const page of pages) {
          const keep = this.profileFor.stale(way, page);
          await this.load(way, page, empty, undefined, {keep});
          await pause(2500);
          await this.load(way, page, keep, undefined, {keep});
        }
      }
    }
    for (const way of ways.filter((name) => WAYS[name].proxy)) {
      const proxy = await this.startProxy(way, `known-${way}`);
      for (const page of pages) {
        await this.load(way, page, empty, proxy);
        await pause(SETTLED_MS);
        await this.load(way, page, caches.includes('stale') ? this.profileFor.stale(way, page) : empty, proxy);
        await pause(SETTLED_MS);
      }
      if (caches.includes('stale')) this.proxies.set(way, proxy);
      if (caches.includes('cold')) {
        if (!caches.includes('stale')) await proxy.stop();
        this.known ??= new Map();
        this.known.set(way, this.path(`known-${way}.db`));
      }
    }
  }

  async measured(way, page, cache, more) {
    const profile = this.profileFor[cache](way, page);
    if (WAYS[way].proxy === undefined) return this.load(way, page, profile, undefined, more);
    if (cache === 'stale') return this.load(way, page, profile, this.proxies.get(way), more);
    const proxy = await this.startProxy(way, `one-${way}`, cache === 'cold' ? this.known.get(way) : undefined);
    try {
      return await this.load(way, page, profile, proxy, more);
    } finally {
      await proxy.stop();
    }
  }

  async close() {
    for (const proxy of this.proxies.values()) await proxy.stop();
  }
}

// Cold loads of all pages, one round after the other.
async function record(options) {
  const measurement = new Measurement(options);
  const pages = measurement.served.pages.slice(0, options.pages === undefined ? undefined : Number(options.pages));
  await measurement.prepare(pages, [], []);
  const loads = [];
  for (let round = 0; round < Number(options.loads); ++round) {
    for (const page of pages) loads.push({page, ...await measurement.measured('alone', page, 'cold')});
  }
  mkdirSync(options.har, {recursive: true});
  pages.forEach((page, index) => {
    writeFileSync(join(options.har, `${options.site}-${index + 1}.har`), JSON.stringify(harOf(loads.filter((load) => load.page === page))));
  });
}

async function measure(options) {
  const list = (name, known) => {
    const names = options[name] === undefined ? Object.keys(known) : options[name].split(',');
    const unknown = names.find((each) => !(each in known));
    if (unknown !== undefined) throw new UsageError(`--${name} must name some of ${Object.keys(known).join(', ')}, got '${unknown}'`);
    return names;
  };
  const foreign = options.urls !== undefined;
  const ways = list('ways', foreign ? Object.fromEntries(Object.entries(WAYS).filter(([way]) => !isHinted(way))) : WAYS);
  const caches = list('caches', CACHES);
  if (options.har !== undefined) return record(options);
  if (!/^[1-9]\d{0,3}$/.test(options.loads)) throw new UsageError(`--loads must be a whole number from 1 to 9999, got '${options.loads}'`);
  const measurement = new Measurement(options);
  const pages = measurement.served.pages.slice(0, options.pages === undefined ? undefined : Number(options.pages));
  if (foreign) await checkReachable(pages);
  const out = options.out === undefined ? 1 : openSync(options.out, 'a');
  const write = (record) => writeSync(out, `${JSON.stringify({site: options.site, ...record})}\n`);
  try {
    await measurement.prepare(pages, ways, caches);
    for (const cache of caches) {
      for (let round = 0; round < Number(options.loads); ++round) {
        for (const page of pages) {
          for (const way of round % 2 === 0 ? ways : [...ways].reverse()) {
            try {
              const {requests, frames, ...figures} = await measurement.measured(way, page, cache);
              write({page, cache, way, round, ...figures});
            } catch (error) {
              if (!foreign) throw error;
              console.error(`measure: ${way}, round ${round + 1}: ${error.message}`);
            }
          }
        }
        console.error(`measure: ${options.site}, ${cache}: round ${round + 1} of ${options.loads}`);
      }
      if (!options.filmstrip) continue;
      for (const page of pages) {
        for (const way of ways) {
          const {requests, ...film} = await measurement.measured(way, page, cache, {filmstrip: true});
          write({page, cache, way, filmstrip: true, ...film, requests: requests.map(({detail, ...request}) => request)});
        }
      }
    }
  } finally {
    await measurement.close();
  }
}

class UsageError extends Error {}

function parseOptions(args) {
  const text = (value) => ({type: 'string', ...(value !== undefined && {default: value})});
  let values;
  try {
    ({values} = parseArgs({args, options: {
      folder: text(), site: text(), proxy: text(), browser: text('chromium'), loads: text('7'), ways: text(), caches: text('stale,cold'),
      pages: text(), urls: text(), filmstrip: {type: 'boolean'}, har: text(), out: text(), help: {type: 'boolean'},
    }}));
  } catch (error) {
    throw new UsageError(`${error.message} (see --help)`);
  }
  for (const name of ['folder', 'site', 'proxy']) {
    if (values[name] === undefined && !values.help) throw new UsageError(`--${name} is missing (see --help)`);
  }
  return values;
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  try {
    const options = parseOptions(process.argv.slice(2));
    if (options.help) console.log(HELP);
    else await measure(options);
  } catch (error) {
    console.error(`measure: ${error.message}`);
    process.exitCode = error instanceof UsageError || error instanceof BadUrlList ? 2 : 1;
  }
}
