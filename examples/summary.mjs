// Prints the figures of a recording: node summary.mjs [FILE], by default recording.har.
import {readFileSync} from 'node:fs';

const SOCKETS_PER_HOST = 6; // what browsers open at most to one host and port
const HELD_AT_MOST = 2097152; // bytes; larger bodies are the ones a preloader would not keep

const name = process.argv[2] ?? new URL('recording.har', import.meta.url).pathname;
const {bytes, log} = read(name);

function read(file) {
  try {
    const content = readFileSync(file);
    const {log: recording} = JSON.parse(content);
    if (!Array.isArray(recording?.entries) || !Array.isArray(recording.pages)) throw new Error('no log with pages and entries');
    return {bytes: content, log: recording};
  } catch (error) {
    console.error(`summary: ${file}: ${error.message}`);
    process.exit(2);
  }
}

const hostOf = (entry) => new URL(entry.request.url).host;
const header = (entry, wanted) => entry.response.headers.find((h) => h.name.toLowerCase() === wanted)?.value;
const declared = (entry) => header(entry, 'content-length');
const initiatorUrl = (entry) => typeof entry._initiator === 'object' ? entry._initiator?.url : entry._initiator;
const kib = (count) => `${Math.round(count / 1024)} KiB`;

function counts(values) {
  const found = new Map();
  for (const value of values) found.set(value, (found.get(value) ?? 0) + 1);
  return [...found].sort((a, b) => b[1] - a[1]);
}

const listed = (values) => counts(values).map(([value, count]) => `${value} ${count}`).join(', ') || 'none';

function freshness(entry) {
  const control = header(entry, 'cache-control');
  if (control) return /max-age=\d+|no-store|no-cache/.exec(control)?.[0] ?? control;
  return header(entry, 'expires') ? 'Expires' : 'nothing said';
}

function printPage(page, entries) {
  const started = Date.parse(page.startedDateTime);
  const hosts = counts(entries.map(hostOf));
  const busy = hosts.filter(([, count]) => count > SOCKETS_PER_HOST).length;
  const afterLoad = entries.filter((entry) => Date.parse(entry.startedDateTime) - started > page.pageTimings.onLoad).length;
  const size = entries.reduce((sum, entry) => sum + Math.max(0, entry.response.bodySize), 0);
  console.log(`${page.id}  ${page.title}`);
  console.log(`        ${entries.length} requests, ${hosts.length} hosts, ${busy} of them with more than ${SOCKETS_PER_HOST} requests, ` +
    `${kib(size)}, load event ${Math.round(page.pageTimings.onLoad)} ms, ${afterLoad} requests after it`);
}

// Among the loads of one page: how many addresses came every time, and how many did not.
function printAgreement(title, loads) {
  const seen = counts(loads.flatMap((entries) => [...new Set(entries.map((entry) => entry.request.url))]));
  const always = seen.filter(([, count]) => count === loads.length).length;
  console.log(`${title}: ${loads.length} loads, ${always} addresses in all of them, ${seen.length - always} in some`);
}

const {entries, pages} = log;
const entriesOf = (page) => entries.filter((entry) => entry.pageref === page.id);
console.log(`${bytes.length} bytes, ${pages.length} pages, ${entries.length} requests, ${log.browser?.name} ${log.browser?.version}\n`);
for (const page of pages) printPage(page, entriesOf(page));
console.log();
for (const [title] of counts(pages.map((page) => page.title))) {
  printAgreement(title, pages.filter((page) => page.title === title).map(entriesOf));
}

const known = new Set(entries.map((entry) => entry.request.url));
const withUrl = entries.filter(initiatorUrl);
const repeats = pages.flatMap((page) => counts(entriesOf(page).map((entry) => entry.request.url))).filter(([, count]) => count > 1);
const large = entries.filter((entry) => Number(declared(entry)) > HELD_AT_MOST);
console.log(`
hosts: ${listed(entries.map(hostOf))}
kinds: ${listed(entries.map((entry) => entry._resourceType))}
methods: ${listed(entries.map((entry) => entry.request.method))}
statuses: ${listed(entries.map((entry) => entry.response.status))}
freshness: ${listed(entries.map(freshness))}
initiators: ${withUrl.length} name an address, ${withUrl.filter((entry) => known.has(initiatorUrl(entry))).length} of them one of this file; kinds: ${listed(entries.map((entry) => entry._initiator_type))}
length declared: ${entries.filter(declared).length}; not declared: ${listed(entries.filter((entry) => !declared(entry)).map((entry) => new URL(entry.request.url).pathname))}
over ${HELD_AT_MOST} bytes: ${listed(large.map((entry) => `${entry.request.url} (${declared(entry)})`))}
asked for twice in a page: ${listed(repeats.map(([url]) => url))}
gzipped: ${entries.filter((entry) => header(entry, 'content-encoding') === 'gzip').length}; setting a cookie: ${entries.filter((entry) => header(entry, 'set-cookie')).length}; with bodies in the file: ${entries.filter((entry) => entry.response.content.text !== undefined).length}`);
