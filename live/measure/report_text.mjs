// The tables for the terminal.
import {overPages} from './figures.mjs';
import {CACHES, METRICS, WAYS} from './ways.mjs';

const METRIC_NAMES = Object.keys(METRICS);

const figure = (value, digits) => (value === null ? '–' : value.toFixed(digits));

function cell(record, metric) {
  if (record.way === 'alone') return figure(record[metric], 0);
  const {share, low, high} = record.shares[metric];
  return low === null ? figure(share, 2) : `${figure(share, 2)} [${figure(low, 2)}, ${figure(high, 2)}]`;
}

// The first column is aligned to the left, the others to the right.
function table(rows) {
  const widths = rows[0].map((_, column) => Math.max(...rows.map((row) => row[column].length)));
  const line = (row) => row.map((text, column) => (column === 0 ? text.padEnd(widths[0]) : text.padStart(widths[column]))).join('  ').trimEnd();
  return rows.map(line).join('\n');
}

export function groupBy(records, keyOf) {
  const groups = new Map();
  for (const record of records) {
    const key = keyOf(record);
    groups.set(key, [...(groups.get(key) ?? []), record]);
  }
  return [...groups.values()];
}

// One table for each page and cache. The browser alone is in milliseconds, requests and bytes; the other rows are
// shares of that, each with the interval of its median. Then one for all pages of a site together.
export function reportText(records) {
  const head = ['', ...Object.values(METRICS)];
  const pages = groupBy(records, ({site, page, cache}) => JSON.stringify([site, page, cache])).map((group) => {
    const {page, cache, loads} = group[0];
    const rows = group.map((record) => [WAYS[record.way].title, ...METRIC_NAMES.map((metric) => cell(record, metric))]);
    return `${page}, ${cache} (${CACHES[cache]}), ${loads} loads each way\n${table([head, ...rows])}\n`;
  });
  const sites = groupBy(overPages(records), ({site, cache}) => JSON.stringify([site, cache])).map((group) => {
    const rows = group.filter(({way}) => way !== 'alone').map(({way, shares}) => [
      WAYS[way].title, ...METRIC_NAMES.map((metric) => `${figure(shares[metric].share, 2)} (${figure(shares[metric].worst, 2)})`)]);
    return `${group[0].site}, ${group[0].cache}: the median page and, in brackets, the worst of ${group[0].pages}\n${table([head, ...rows])}\n`;
  });
  return [...pages, ...sites].join('\n');
}
