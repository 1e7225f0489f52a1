// Browses at random through kiv_proxy, over kiv_link, while the server, the proxy and the link are killed or stopped and
// start again: whatever loads must see what it sees without the proxy, and the proxy must not grow.
import {spawn} from 'node:child_process';
import {mkdtempSync, readFileSync, readdirSync, rmSync, statSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {setTimeout as pause} from 'node:timers/promises';
import {fileURLToPath} from 'node:url';
import {isDeepStrictEqual} from 'node:util';
import {CASES, serveOddSite} from './odd_site.mjs';
import {Visitor, startProxy} from './visitor.mjs';

const HELP = `Usage: node tests/live/browser/soak.mjs FOLDER [MINUTES] [SEED]

FOLDER has kiv_proxy and kiv_link, such as build/release/bin. 5 minutes unless told otherwise; 60 for a thorough run.
Exit status 0 when every page saw what it should and the proxy's memory did not grow by more than 5%.`;

const SELF = fileURLToPath(import.meta.url);
const PORT = 8000;
const SERVER = '10.77.0.1'; // on the link
const MOST_GROWTH = 1.05;
// What comes and goes on top of that: connections, and the log of the page database, which is written to its limit.
const SLACK = {'resident kB': 0, 'descriptors': 4, 'state bytes': 4 * 1024 * 1024};

// A small generator, so that a seed gives the same walk again.
function randomNumbers(seed) {
  let state = seed >>> 0;
  return (below) => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return Math.floor(state / 2 ** 32 * below);
  };
}

const median = (numbers) => [...numbers].sort((a, b) => a - b)[Math.floor(numbers.length / 2)];

function signal(processId, name) {
  try {
    process.kill(processId, name);
  } catch {
    // It has just ended, and starts again.
  }
}

// What the proxy takes.
function sizesOf(processId, statePath) {
  const fields = readFileSync(`/proc/${processId}/status`, 'utf8');
  return {
    'resident kB': Number(/VmRSS:\s+(\d+)/.exec(fields)[1]),
    'descriptors': readdirSync(`/proc/${processId}/fd`).length,
    'state bytes': ['', '-wal'].reduce((sum, ending) => sum + (statSync(statePath + ending, {throwIfNoEntry: false})?.size ?? 0), 0),
  };
}

// Compares the first third of the samples with the last. Returns lines for people, and whether nothing has grown.
function growth(samples) {
  const third = Math.ceil(samples.length / 3);
  let flat = samples.length >= 6;
  const lines = Object.keys(samples[0] ?? {}).map((name) => {
    const [before, after] = [samples.slice(0, third), samples.slice(-third)].map((part) => median(part.map((sample) => sample[name])));
    if (after > before * MOST_GROWTH + SLACK[name]) flat = false;
    return `${name}: ${before} to ${after}`;
  });
  return {lines, flat};
}

// On the client's side of the link. Proxies are killed in the first half of the time only, so that the second shows
// whether one of them grows.
async function browse(programs, folder, minutes, seed) {
  const random = randomNumbers(seed);
  const names = Object.keys(CASES);
  const statePath = join(folder, 'pages.db');
  const linkId = Number(readFileSync(join(folder, 'link.pid'), 'utf8'));
  const startOne = () => startProxy(join(programs, 'kiv_proxy'), folder, PORT, undefined, ['--state', statePath], SERVER);
  const visit = (proxy) => Visitor.start(folder, proxy ? 'profile' : 'profile-alone', PORT, undefined, proxy?.address, SERVER);

  const alone = await visit(undefined);
  const expected = {};
  for (const name of names) expected[name] = await alone.open(name);
  await alone.close();

  let proxy = await startOne();
  let visitor = await visit(proxy);
  const counts = {visits: 0, wrong: 0, 'kills of the server': 0, 'kills of the proxy': 0, 'stops of the link': 0};
  const samples = [];
  const begun = Date.now();
  const half = begun + minutes * 30_000;
  const end = begun + minutes * 60_000;
  // In the middle of a load, after which the page may have seen anything.
  const disturb = async (what, action) => {
    ++counts[what];
    const broken = visitor.open(names[random(names.length)]).catch(() => {});
    await pause(random(150));
    await action();
    await Promise.race([broken, pause(8000)]);
  };
  while (Date.now() < end) {
    const chance = random(100);
    if (chance < 3) {
      await disturb('kills of the server', async () => {
        signal(Number(readFileSync(join(folder, 'server.pid'), 'utf8')), 'SIGKILL');
        await pause(1500); // a new one listens by then
      });
    } else if (chance < 5 && Date.now() < half) {
      await disturb('kills of the proxy', async () => proxy.process.kill('SIGKILL'));
      await visitor.close();
      proxy = await startOne();
      visitor = await visit(proxy);
    } else if (chance < 7) {
      await disturb('stops of the link', async () => {
        signal(linkId, 'SIGSTOP');
        await pause(random(3000));
        signal(linkId, 'SIGCONT');
      });
    }
    const name = names[random(names.length)];
    const saw = await visitor.open(name);
    ++counts.visits;
    if (!isDeepStrictEqual(saw, expected[name])) {
      ++counts.wrong;
      console.error(`soak: ${name} saw ${JSON.stringify(saw)}\ninstead of ${JSON.stringify(expected[name])}`);
    }
    if (random(4) === 0) await pause(random(5000)); // long enough for a page to settle, now and then
    if (Date.now() >= half) samples.push(sizesOf(proxy.process.pid, statePath));
  }
  await visitor.close();
  await proxy.stop();
  const {lines, flat} = growth(samples);
  console.log([...Object.entries(counts).map(([what, count]) => `${what}: ${count}`), ...lines].join('\n'));
  return counts.wrong === 0 && flat;
}

// Runs the server behind the link, again whenever it is killed, and the browsing before it.
async function soak(programs, minutes, seed) {
  const folder = mkdtempSync(join(tmpdir(), 'soak-'));
  const inside = (what) => [process.execPath, SELF, what, programs, folder, minutes, seed].map((word) => `'${word}'`).join(' ');
  const link = spawn(join(programs, 'kiv_link'),
    ['--rtt', '20', '--down', '50', '--up', '50', '--server', `exec 2>/dev/null; while :; do ${inside('--serve')}; done`, '--ready', String(PORT), '--', inside('--browse')],
    {stdio: ['ignore', 'inherit', 'pipe']});
  writeFileSync(join(folder, 'link.pid'), String(link.pid));
  let said = '';
  link.stderr.on('data', (text) => { said += text; });
  const status = await new Promise((resolve) => link.once('close', resolve));
  // A link that was stopped has no figures, and ends with 3 when its client has ended with 0.
  const passed = status === 0 || status === 3;
  if (!passed) console.error(said);
  rmSync(folder, {recursive: true, force: true});
  return passed;
}

const [first, ...others] = process.argv.slice(2);
if (first === '--serve') {
  await serveOddSite(undefined, PORT, '0.0.0.0');
  writeFileSync(join(others[1], 'server.pid'), String(process.pid));
} else if (first === '--browse') {
  process.exitCode = await browse(others[0], others[1], Number(others[2]), Number(others[3])) ? 0 : 1;
} else {
  const [minutes = '5', seed = '1'] = others;
  const bad = first === undefined || !(Number(minutes) > 0) || !Number.isInteger(Number(seed));
  if (bad || first === '--help') console.log(HELP);
  process.exitCode = first === '--help' ? 0 : bad ? 2 : await soak(first, minutes, seed) ? 0 : 1;
}
