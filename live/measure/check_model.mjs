// Does the replay tell the truth? Compares what kiv_replay predicts for a longer link, from recordings that were made
// over a short one, with what was measured over the longer one.
import {execFileSync} from 'node:child_process';
import {readFileSync} from 'node:fs';
import {pathToFileURL} from 'node:url';
import {parseArgs} from 'node:util';
import {median} from './figures.mjs';

const HELP = `Usage: node live/measure/check_model.mjs --replay PROGRAM --rtt MS --down MBIT --records FILE RECORDING...

RECORDING is a HAR file of cold loads of one page, as measure.mjs --har writes it; FILE has the records of the same pages
with cold caches over the link of --rtt and --down, as report.mjs --json writes them.
`;

// Which way of the replay stands for which measured one.
const PAIRS = {plugin: 'plugin', preconnect: 'preconnect', hints: 'rel-preload'};
const METRICS = {first_paint_ms: 'first paint', load_ms: 'load'};

function ranks(values) {
  return values.map((value) => {
    const below = values.filter((other) => other < value).length;
    const equal = values.filter((other) => other === value).length;
    return below + (equal + 1) / 2;
  });
}

// Spearman's; null when one side does not vary.
export function rankCorrelation(a, b) {
  const [x, y] = [ranks(a), ranks(b)];
  const mean = (a.length + 1) / 2;
  const sum = (f) => x.reduce((all, _, i) => all + f(i), 0);
  const spread = Math.sqrt(sum((i) => (x[i] - mean) ** 2) * sum((i) => (y[i] - mean) ** 2));
  return spread === 0 ? null : sum((i) => (x[i] - mean) * (y[i] - mean)) / spread;
}

// `predictions` are [{page, replay}], `replay` being the JSON object of kiv_replay; `records` are those of the report.
// Returns [{page, way, metric, predicted, measured}]: gains as shares of the load without help.
export function compare(predictions, records) {
  const rows = [];
  for (const {page, replay} of predictions) {
    const visits = replay.real.visits > 0 ? replay.real : replay.copies;
    for (const [way, measuredWay] of Object.entries(PAIRS)) {
      const record = records.find((each) => each.page === page && each.cache === 'cold' && each.way === measuredWay);
      for (const metric of Object.keys(METRICS)) {
        const measured = record?.shares[metric].share;
        const {off, [way]: helped} = visits[metric] ?? {};
        if (measured == null || !(off > 0)) continue;
        rows.push({page, way, metric, predicted: 1 - helped / off, measured: 1 - measured});
      }
    }
  }
  return rows;
}

export function comparisonText(rows) {
  const percent = (share) => `${share < 0 ? '−' : '+'}${(Math.abs(share) * 100).toFixed(0)}%`;
  const lines = rows.map(({page, way, metric, predicted, measured}) =>
    `${percent(predicted).padStart(9)}  ${percent(measured).padStart(8)}  ${METRICS[metric].padEnd(11)}  ${way.padEnd(10)}  ${page}`);
  const sums = Object.entries(METRICS).map(([metric, title]) => {
    const own = rows.filter((row) => row.metric === metric);
    if (own.length === 0) return `${title}: nothing to compare`;
    const error = median(own.map(({predicted, measured}) => Math.abs(predicted - measured)));
    const bias = median(own.map(({predicted, measured}) => predicted - measured));
    const correlation = rankCorrelation(own.map(({predicted}) => predicted), own.map(({measured}) => measured));
    return `${title}: median error ${(error * 100).toFixed(0)} points of a hundred, bias ${percent(bias)}, rank correlation ${correlation === null ? '–' : correlation.toFixed(2)} over ${own.length} pairs of page and way`;
  });
  return `predicted  measured  gain in      way         page\n${lines.join('\n')}\n\n${sums.join('\n')}\n`;
}

function main() {
  const {values, positionals} = parseArgs({allowPositionals: true, options: {
    replay: {type: 'string'}, rtt: {type: 'string'}, down: {type: 'string'}, records: {type: 'string'}, help: {type: 'boolean'}}});
  const isComplete = ['replay', 'rtt', 'down', 'records'].every((name) => values[name] !== undefined) && positionals.length > 0;
  if (values.help || !isComplete) {
    console.log(HELP);
    process.exitCode = values.help ? 0 : 2;
    return;
  }
  const records = readFileSync(values.records, 'utf8').split('\n').filter(Boolean).map((line) => JSON.parse(line));
  const predictions = positionals.map((file) => ({
    page: JSON.parse(readFileSync(file, 'utf8')).log.pages[0].title,
    replay: JSON.parse(execFileSync(values.replay, ['--rtt', values.rtt, '--down', values.down, '--json', '-', file],
      {encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore']}).split('\n')[0]),  // the line of the recording
  }));
  console.log(comparisonText(compare(predictions, records)));
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  try {
    main();
  } catch (error) {
    console.error(`check_model: ${error.message}`);
    process.exitCode = 2;
  }
}
