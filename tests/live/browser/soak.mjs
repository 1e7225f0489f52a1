// Browses at random through kiv_proxy while server and proxy are killed and started again: whatever loads must see what it
// sees without the proxy, and the proxy must not grow.
import {readFileSync, mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {setTimeout as pause} from 'node:timers/promises';
import {isDeepStrictEqual} from 'node:util';
import {CASES, serveOddSite} from './odd_site.mjs';
import {Visitor, startProxy} from './visitor.mjs';

const HELP = 'Usage: node tests/live/browser/soak.mjs PROGRAM [MINUTES] [SEED]\n\nPROGRAM is kiv_proxy. 5 minutes unless told otherwise.';

// A small generator, so that a seed gives the same walk again.
function randomNumbers(seed) {
  let state = seed >>> 0;
  return (below) => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return Math.floor(state / 2 ** 32 * below);
  };
}

const residentMb = (processId) => Number(/VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${processId}/status`, 'utf8'))[1]) / 1024;

async function soak(program, minutes, seed) {
  const random = randomNumbers(seed);
  const folder = mkdtempSync(join(tmpdir(), 'soak-'));
  const names = Object.keys(CASES);
  let server = await serveOddSite();
  const {port} = server;
  const start = () => startProxy(program, folder, port, undefined, ['--state', join(folder, 'pages.db')]);

  const alone = await Visitor.start(folder, 'profile-alone', port, undefined, undefined);
  const expected = {};
  for (const name of names) expected[name] = await alone.open(name);
  await alone.close();

  let proxy = await start();
  let visitor = await Visitor.start(folder, 'profile', port, undefined, proxy.address);
  const counts = {visits: 0, wrong: 0, serverKills: 0, proxyKills: 0};
  const sizes = [];
  const end = Date.now() + minutes * 60_000;
  while (Date.now() < end) {
    const chance = random(100);
    if (chance < 3) { // the server goes away in the middle of a load, and comes back
      ++counts.serverKills;
      const broken = visitor.open(names[random(names.length)]);
      await pause(random(100));
      server.close();
      await pause(random(300));
      server = await serveOddSite(undefined, port);
      await Promise.race([broken, pause(8000)]);
    } else if (chance < 5) { // and so does the proxy
      ++counts.proxyKills;
      const broken = visitor.open(names[random(names.length)]).catch(() => {});
      await pause(random(100));
      proxy.process.kill('SIGKILL');
      await Promise.race([broken, pause(2000)]);
      await visitor.close();
      proxy = await start();
      visitor = await Visitor.start(folder, 'profile', port, undefined, proxy.address);
      sizes.length = 0;
    }
    const name = names[random(names.length)];
    const saw = await visitor.open(name);
    ++counts.visits;
    if (!isDeepStrictEqual(saw, expected[name])) {
      ++counts.wrong;
      console.error(`soak: ${name} saw ${JSON.stringify(saw)}\ninstead of ${JSON.stringify(expected[name])}`);
    }
    if (counts.visits % 20 === 0) sizes.push(residentMb(proxy.process.pid));
    if (random(4) === 0) await pause(random(5000)); // long enough for a page to settle, now and then
  }
  await visitor.close();
  await proxy.stop();
  server.close();
  rmSync(folder, {recursive: true, force: true});
  console.log(`${counts.visits} visits in ${minutes} minutes, ${counts.serverKills} kills of the server, ${counts.proxyKills} of the proxy; ` +
    `${counts.wrong} pages saw something else; resident memory since the last kill: ${sizes.map((mb) => mb.toFixed(1)).join(', ')} MB`);
  return counts.wrong === 0;
}

const [program, minutes = '5', seed = '1'] = process.argv.slice(2);
if (program === undefined || program === '--help' || !(Number(minutes) > 0) || !Number.isInteger(Number(seed))) {
  console.log(HELP);
  process.exitCode = program === '--help' ? 0 : 2;
} else {
  process.exitCode = await soak(program, Number(minutes), Number(seed)) ? 0 : 1;
}
