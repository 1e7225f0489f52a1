// The report as one HTML file that needs nothing from elsewhere: the tables, and for each page the waterfalls of all
// ways one below the other on one scale, with pictures of what was seen.
import {overPages} from './figures.mjs';
import {groupBy} from './report_text.mjs';
import {CACHES, METRICS, WAYS} from './ways.mjs';

const ROW_PX = 11;
const WIDTH_PX = 1000;
const FRAMES = 10; // in a filmstrip

const STYLE = `
body{font:15px/1.45 system-ui,sans-serif;color:#1c2430;background:#fff;margin:0 auto;padding:24px;max-width:1060px}
h1{font-size:26px;margin:0 0 4px}h2{font-size:20px;margin:36px 0 8px;overflow-wrap:anywhere}h3{font-size:15px;margin:18px 0 4px}
p{max-width:72ch}.scroll{overflow-x:auto}table{border-collapse:collapse;font-variant-numeric:tabular-nums;font-size:14px}
th,td{padding:3px 10px;text-align:right;white-space:nowrap;border-bottom:1px solid #d8dee6}th:first-child,td:first-child{text-align:left}
td small{color:#5b6675}.faster{color:#0b6b3a;font-weight:600}.slower{color:#a3330f;font-weight:600}
svg{display:block;width:100%;height:auto;background:#f7f9fb}.strip{display:flex;gap:3px;overflow-x:auto}
figure{margin:0}.strip img{width:96px;display:block;border:1px solid #c3ccd6}figcaption{font-size:11px;color:#5b6675;text-align:center}
.bar{fill:#7b8ea6}.served{fill:#1f7a4d}.joined{fill:#2f6fb3}.cached{fill:#d3dae2}.failed{fill:#a3330f}
.paint{stroke:#8a2be2}.load{stroke:#d2691e}.legend span{display:inline-block;margin-right:18px}.key{width:12px;height:12px;vertical-align:-1px}
@media (max-width:600px){body{padding:12px}}@media print{body{max-width:none}.strip{overflow:hidden}}
`;

const escapeHtml = (text) => String(text).replace(/[&<>"']/g, (character) => `&#${character.charCodeAt(0)};`);
const figure = (value, digits = 0) => (value === null ? '–' : value.toFixed(digits));

// A share counts as a difference only where its whole interval lies on one side of 1.
function shareCell({share, low, high}) {
  const sure = low !== null && (high < 1 ? 'faster' : low > 1 ? 'slower' : '');
  const interval = low === null ? '' : ` <small>${figure(low, 2)} to ${figure(high, 2)}</small>`;
  return `<td${sure ? ` class="${sure}"` : ''}>${figure(share, 2)}${interval}</td>`;
}

function table(rows, cells) {
  const head = Object.values(METRICS).map((title) => `<th scope="col">${title}</th>`).join('');
  const body = rows.map((row) => `<tr><td>${WAYS[row.way].title}</td>${Object.keys(METRICS).map((metric) => cells(row, metric)).join('')}</tr>`);
  return `<div class="scroll" tabindex="0"><table><thead><tr><th scope="col">way</th>${head}</tr></thead><tbody>${body.join('')}</tbody></table></div>`;
}

function barClass({failed, fromCache, note}) {
  if (failed) return 'failed';
  if (fromCache) return 'cached';
  if (note?.startsWith('served')) return 'served';
  return note?.startsWith('joined') ? 'joined' : 'bar';
}

function waterfall(load, longestMs) {
  const x = (ms) => (Math.max(ms, 0) / longestMs * WIDTH_PX).toFixed(1);
  const height = load.requests.length * ROW_PX + 14;
  const bars = load.requests.map((request, row) => {
    const end = request.end_ms ?? longestMs;
    const title = `${request.url}, ${figure(request.start_ms)} to ${figure(end)} ms${request.note ? `, ${request.note}` : ''}`;
    return `<rect class="${barClass(request)}" x="${x(request.start_ms)}" y="${row * ROW_PX + 13}" width="${Math.max(x(end) - x(request.start_ms), 1).toFixed(1)}" height="${ROW_PX - 3}"><title>${escapeHtml(title)}</title></rect>`;
  });
  // The texts stand on both sides of their lines, so that marks that are close together stay readable.
  const mark = (name, ms, anchor) => (ms === null ? '' : `<line class="${name}" x1="${x(ms)}" x2="${x(ms)}" y1="0" y2="${height}" stroke-width="1.5"/><text x="${x(ms)}" y="9" font-size="9" dx="${anchor === 'end' ? -3 : 3}" text-anchor="${anchor}">${name} ${figure(ms)}</text>`);
  return `<svg viewBox="0 0 ${WIDTH_PX} ${height}" role="img" aria-label="${load.requests.length} requests; first paint ${figure(load.first_paint_ms)} ms, load ${figure(load.load_ms)} ms">${bars.join('')}${mark('paint', load.first_paint_ms, 'end')}${mark('load', load.load_ms, 'start')}</svg>`;
}

// What was on the screen at equal steps of time.
function filmstrip(load, longestMs) {
  const frames = load.frames.filter(({jpeg}) => /^[A-Za-z0-9+/=]+$/.test(jpeg));
  if (frames.length === 0) return '';
  const shown = Array.from({length: FRAMES}, (_, step) => {
    const at = longestMs * (step + 1) / FRAMES;
    const frame = frames.findLast(({at_ms: ms}) => ms <= at);
    const picture = frame === undefined ? '<div></div>' : `<img alt="the screen after ${figure(at)} ms" src="data:image/jpeg;base64,${frame.jpeg}">`;
    return `<figure>${picture}<figcaption>${figure(at)} ms</figcaption></figure>`;
  });
  return `<div class="strip" tabindex="0" role="group" aria-label="Filmstrip">${shown.join('')}</div>`;
}

function pageSection(group, films) {
  const {page, cache, loads} = group[0];
  const longestMs = Math.max(...films.map((film) => Math.max(film.last_response_ms, film.load_ms)), 1);
  const pictures = films.map((film) => `<h3>${WAYS[film.way].title}</h3>${filmstrip(film, longestMs)}${waterfall(film, longestMs)}`);
  return `<h2>${escapeHtml(page)}, ${cache}</h2><p>${CACHES[cache]}. ${loads} loads each way; the browser alone in milliseconds, requests and bytes, the others as shares of it with the interval of the median.</p>${
    table(group, (record, metric) => (record.way === 'alone' ? `<td>${figure(record[metric])}</td>` : shareCell(record.shares[metric])))}${pictures.join('')}`;
}

// `films` are loads with requests and frames.
export function reportHtml(records, films, title) {
  const sites = groupBy(overPages(records), ({site, cache}) => JSON.stringify([site, cache])).map((group) =>
    `<h2>${escapeHtml(group[0].site)}, ${group[0].cache}</h2><p>The median of ${group[0].pages} pages, and the worst of them.</p>${
      table(group.filter(({way}) => way !== 'alone'), ({shares}, metric) => `<td>${figure(shares[metric].share, 2)} <small>${figure(shares[metric].worst, 2)}</small></td>`)}`);
  const pages = groupBy(records, ({site, page, cache}) => JSON.stringify([site, page, cache])).map((group) =>
    pageSection(group, films.filter(({site, page, cache}) => site === group[0].site && page === group[0].page && cache === group[0].cache)));
  const key = (name, text) => `<span><svg class="key" viewBox="0 0 12 12" style="display:inline;width:12px"><rect class="${name}" width="12" height="12"/></svg> ${text}</span>`;
  return `<!doctype html><html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; img-src data:">
<title>${escapeHtml(title)}</title><style>${STYLE}</style></head><body><h1>${escapeHtml(title)}</h1>
<p>Shares of the browser alone: below 1 is faster. Green and red are differences whose whole 95% interval lies on one side of 1.</p>
<p class="legend">${key('bar', 'from the network')}${key('served', 'served from a preload')}${key('joined', 'joined a running preload')}${key('cached', "from the browser's cache")}${key('failed', 'failed')}</p>
${sites.join('')}${pages.join('')}</body></html>
`;
}
