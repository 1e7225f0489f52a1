// The HTML report in a real Chromium: every control is used. KIV_EXAMPLE_RECORDING names what is replayed.
import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {OpenedReport} from './opened_report.mjs';

let report;
const run = (expression) => report.run(expression);

before(async () => {
  const recording = process.env.KIV_EXAMPLE_RECORDING;
  report = await OpenedReport.open([recording, recording], ['--log', '4']);
});
after(() => report.close());

const set = async (id, value) => {
  await run(`{ const input = document.getElementById('${id}'); input.value = '${value}'; input.dispatchEvent(new Event('input')); }`);
};
const SHOWN = `[...document.querySelectorAll('details.visit')].filter((visit) => visit.offsetParent)`;

test('a column sorts the recordings, up and down', async () => {
  const heading = `[...document.querySelectorAll('th[data-sort]')]`;
  await report.click(`${heading}.find(({textContent}) => textContent === 'plugin').firstChild`);
  assert.equal(await run(`document.querySelector('[aria-sort]').textContent`), 'plugin');
  await report.click(`${heading}[0].firstChild`);
  await report.click(`${heading}[0].firstChild`);
  assert.equal(await run(`document.querySelector('[aria-sort]').getAttribute('aria-sort')`), 'descending');
  const names = await run(`[...document.querySelectorAll('.recordings tbody tr')].map((row) => row.cells[0].textContent)`);
  assert.equal(names.length, 2);
  assert.ok(names[0] > names[1], names.join());
});

test('search and filter leave what was asked for', async () => {
  assert.equal(await run(SHOWN + '.length'), 18);
  await set('kind', 'real');
  assert.equal(await run(SHOWN + '.length'), 12);
  assert.equal(await run(`document.getElementById('found').textContent`), '12 visits of 2 recordings');
  const page = await run(`document.querySelector('.page h3').textContent`);
  await set('search', page.toUpperCase() + ' recording');
  assert.equal(await run(`${SHOWN}.every((visit) => visit.closest('.page').querySelector('h3').textContent.includes('${page}'))`), true);
  await set('search', 'nothing like this');
  assert.equal(await run(SHOWN + '.length'), 0);
  await set('search', '');
  await set('kind', '');
  assert.equal(await run(SHOWN + '.length'), 18);
});

test('visits are ordered by what they gain, and stay with their pages', async () => {
  const gains = `[...document.querySelectorAll('.recording .page')].map((page) =>
    [...page.querySelectorAll('.visit:not(.first)')].map(({dataset}) => Number(dataset.load)))`;
  const recorded = await run(gains);
  for (const [order, sign] of [['load least', 1], ['load most', -1]]) {
    await set('order', order);
    const sorted = (await run(gains)).map((visits) => visits.map((gain) => sign * gain));
    const ascending = (list) => list.every((value, index) => index === 0 || list[index - 1] <= value);
    assert.ok(sorted.every(ascending), JSON.stringify(sorted));
    assert.ok(ascending(sorted.slice(0, 3).map(([first]) => first)), 'the pages of a recording, too');
  }
  await set('order', '');
  assert.deepEqual(await run(gains), recorded);
});

// A real repeat visit, opened by its link.
const openVisit = async () => {
  await run(`location.hash = document.querySelectorAll('details[data-tags~=real]')[1].id`);
  await report.drawn();
  await run(`window.visit = document.querySelector('details.visit[open]'); window.panel = document.querySelector('.panel')`);
};
const LINES = `[...visit.querySelectorAll('.lines tr')].filter((row) => row.offsetParent)`;

test('a visit opens by its link, and folds away what the disk cache answered', async () => {
  await openVisit();
  const all = await run(`visit.querySelectorAll('.lines tr').length`);
  const few = await run(LINES + '.length');
  assert.ok(few < all && few > 5, `${few} of ${all}`);
  const edge = (part, side) => `row.querySelector('${part}').getBoundingClientRect().${side}`;
  const fits = await run(`${LINES}.every((row) => ${edge('.name button', 'right')} <= ${edge('.kind', 'left')})`);
  assert.ok(fits, 'long names end at their column');
  await report.click(`visit.querySelector('.toggle')`);
  assert.equal(await run(LINES + '.length'), all);
  await report.click(`visit.querySelector('.toggle')`);
  assert.equal(await run(LINES + '.length'), few);
});

test('the moments of every way are marked, and what ended the load', async () => {
  const ways = await run(`[...visit.querySelectorAll('.ways th')].map(({textContent}) => textContent)`);
  assert.deepEqual(ways, ['off', 'plugin', 'hints', 'preconnect', 'reachable', 'oracle']);
  for (const mark of ['paint', 'content', 'load']) assert.equal(await run(`visit.querySelectorAll('.ways i.${mark}').length`), 6);
  const flags = await run(`${LINES}.map((row) => row.querySelector('.tag.ended')?.textContent ?? '').join('')`);
  assert.match(flags, /both|off.*plugin|plugin.*off/);
});

test('the waterfall zooms and pans by buttons, keys, wheel and mouse', async () => {
  const shown = async () => (await run(`visit.querySelector('.time output').textContent`)).match(/[\d.]+/g).map(Number);
  const whole = await shown();
  const width = async () => { const [from, to] = await shown(); return (to - from) / whole[1]; };
  const near = (actual, expected) => assert.ok(Math.abs(actual - expected) < 0.01, `${actual} is not ${expected}`);
  const tool = (name) => report.click(`visit.querySelector('.time [title="${name}"]')`);

  await tool('Zoom in');
  near(await width(), 1 / 1.5);
  const [from] = await shown();
  await tool('Later');
  near(((await shown())[0] - from) / whole[1], 0.2 / 1.5);
  await tool('Earlier');
  assert.deepEqual((await shown())[0], from);
  await tool('Zoom out');
  assert.deepEqual(await shown(), whole);

  await run(`visit.querySelector('.lines button').focus()`);
  for (const [key, expected] of [['+', 1 / 1.5], ['+', 1 / 2.25], ['-', 1 / 1.5]]) {
    await report.press(key);
    near(await width(), expected);
  }
  const before = (await shown())[0];
  await report.press('ArrowRight');
  assert.ok((await shown())[0] > before);
  await report.press('0');
  assert.deepEqual(await shown(), whole);

  const lane = await report.middleOf(`${LINES}[1].querySelector('.plugin .w')`);
  await report.mouse('mouseWheel', lane, {deltaX: 0, deltaY: -240, modifiers: 2});
  await report.drawn();
  near(await width(), 0.5);
  const [left] = await shown();
  await report.mouse('mousePressed', lane, {button: 'left', clickCount: 1});
  await report.mouse('mouseMoved', {x: lane.x - 40, y: lane.y}, {button: 'left', buttons: 1});
  await report.mouse('mouseReleased', {x: lane.x - 40, y: lane.y}, {button: 'left', clickCount: 1});
  await report.drawn();
  assert.ok((await shown())[0] > left, 'what is later comes into view');
  assert.equal(await run('panel.hidden'), true, 'the end of a drag is no click');
  await tool('Show the whole time');
  assert.deepEqual(await shown(), whole);
});

test('a request tells all, by keyboard and by mouse, and the focus comes back', async () => {
  await run(`window.rows = ${LINES}; rows[1].querySelector('button').focus()`);
  await report.press('ArrowDown');
  await report.press('Enter');
  assert.equal(await run('panel.hidden'), false);
  const text = await run('panel.innerText');
  for (const part of ['HTTP/', '200', 'off', 'plugin', 'preconnect', 'oracle', 'first byte', 'KIV_PROC']) assert.ok(text.includes(part), text);
  await report.press('Escape');
  assert.equal(await run('panel.hidden'), true);
  assert.equal(await run(`document.activeElement === rows[2].querySelector('button')`), true);

  await report.click(`rows[0].querySelector('.off .w')`);
  const first = await run(`panel.querySelector('h3').textContent`);
  await report.click(`[...panel.querySelectorAll('button')].find(({textContent}) => textContent === 'Next')`);
  const second = await run(`panel.querySelector('h3').textContent`);
  assert.notEqual(second, first);
  await report.click(`[...panel.querySelectorAll('button')].find(({textContent}) => textContent === 'Previous')`);
  assert.equal(await run(`panel.querySelector('h3').textContent`), first);
  await report.click(`[...panel.querySelectorAll('button')].find(({textContent}) => textContent === 'Close')`);
  assert.equal(await run('panel.hidden'), true);
});

test('fingers choose a request, pinch the time and move it', async () => {
  await report.send('Emulation.setTouchEmulationEnabled', {enabled: true, maxTouchPoints: 2});
  const shown = async () => (await run(`visit.querySelector('.time output').textContent`)).match(/[\d.]+/g).map(Number);
  const touch = (type, ...places) => report.send('Input.dispatchTouchEvent', {type, touchPoints: places.map((place, id) => ({...place, id}))});
  const {x, y} = await report.middleOf(`${LINES}[1].querySelector('.plugin .w')`);
  const [, whole] = await shown();
  await touch('touchStart', {x, y});
  await touch('touchEnd');
  assert.ok(await report.becomes('!panel.hidden'));
  await report.press('Escape');
  await touch('touchStart', {x: x - 30, y}, {x: x + 30, y});
  await touch('touchMove', {x: x - 60, y}, {x: x + 60, y});
  await touch('touchEnd');
  await report.drawn();
  const [from, to] = await shown();
  assert.ok(Math.abs((to - from) / whole - 0.5) < 0.05, `${from} to ${to} of ${whole}`);
  await touch('touchStart', {x, y});
  for (const step of [10, 30, 60]) await touch('touchMove', {x: x + step, y});
  await touch('touchEnd');
  await report.drawn();
  assert.ok((await shown())[0] < from, 'what is earlier comes into view');
  assert.equal(await run('panel.hidden'), true);
  await run(`visit.querySelector('.time [title="Show the whole time"]').click()`);
  await report.send('Emulation.setTouchEmulationEnabled', {enabled: false});
});

test('the legend stays in view while a visit is open', async () => {
  await run(`visit.scrollIntoView()`);
  const [top, bottom] = await run(`(() => { const {top, bottom} = document.querySelector('.legend').getBoundingClientRect(); return [top, bottom]; })()`);
  assert.ok(top > 0 && bottom <= 900, `${top} to ${bottom}`);
});

test('on a phone the names of the recordings stay in view', async () => {
  await report.resize(390, 844);
  await run(`document.querySelector('.scroll').scrollLeft = 400`);
  const left = await run(`document.querySelector('.recordings tbody th').getBoundingClientRect().left`);
  assert.ok(left >= 0 && left < 30, String(left));
  const width = await run('document.documentElement.scrollWidth');
  assert.ok(width <= 390, 'the page itself does not scroll sideways: ' + width);
  await report.resize(1280, 900);
});

test('it prints, asks for nothing, and its policy refuses what is not its own and nothing else', async () => {
  const {data} = await report.send('Page.printToPDF', {preferCSSPageSize: true});
  assert.equal(Buffer.from(data, 'base64').subarray(0, 5).toString(), '%PDF-');
  assert.deepEqual(report.complaints, []);
  assert.deepEqual(report.requested.filter((url) => url !== 'data:,'), ['file://' + report.path]);
  await run(`{ const script = document.createElement('script'); script.textContent = 'window.intruder = true'; document.body.append(script); }`);
  assert.equal(await run('window.intruder === undefined'), true);
});
