// Tests of the figures: node --test live/measure/figures_test.mjs
import assert from 'node:assert/strict';
import {test} from 'node:test';
import {compare, comparisonText, rankCorrelation} from './check_model.mjs';
import {median, medianInterval, overPages, summarize} from './figures.mjs';
import {reportText} from './report_text.mjs';

test('medians and their intervals', () => {
  assert.equal(median([3, 1, 2]), 2);
  assert.equal(median([4, 1, 2, 3]), 2.5);
  assert.equal(median([null, 7]), 7);
  assert.equal(median([]), null);
  // The ranks that statistics books give for 95%.
  for (const [n, low, high] of [[5, null], [6, 1, 6], [8, 1, 8], [9, 2, 8], [20, 6, 15]]) {
    const values = Array.from({length: n}, (_, i) => n - i);
    assert.deepEqual(medianInterval(values), low === null ? null : [low, high], `of ${n}`);
  }
});

const load = (way, page, round, paint, more = {}) => ({
  site: 'site', page, cache: 'stale', way, round, first_paint_ms: paint, lcp_ms: paint, dom_content_loaded_ms: paint, load_ms: 2 * paint,
  last_response_ms: 3 * paint, server_requests: 10, server_bytes: 1000, ...more,
});

test('loads are compared with the load of the browser alone in the same round', () => {
  const loads = [];
  for (let round = 0; round < 7; ++round) {
    const slow = 100 + 50 * round; // the machine becomes slower and slower
    loads.push(load('alone', 'a', round, slow), load('plugin', 'a', round, slow * 0.8));
    loads.push(load('alone', 'b', round, slow), load('plugin', 'b', round, slow * 1.1, {server_requests: 12, lcp_ms: null}));
  }
  loads.push(load('plugin', 'a', 99, 1)); // has no partner
  const records = summarize(loads);
  const plugin = records.filter(({way}) => way === 'plugin');
  assert.deepEqual(plugin.map(({page, loads: count}) => [page, count]), [['a', 8], ['b', 7]]);
  for (const edge of ['share', 'low', 'high']) assert.ok(Math.abs(plugin[0].shares.first_paint_ms[edge] - 0.8) < 1e-9);
  assert.equal(plugin[1].shares.server_requests.share, 1.2);
  assert.equal(plugin[1].shares.lcp_ms.share, null);
  const [, both] = overPages(records);
  assert.equal(both.way, 'plugin');
  assert.equal(both.pages, 2);
  assert.ok(Math.abs(both.shares.first_paint_ms.share - 0.95) < 1e-9);
  assert.ok(Math.abs(both.shares.first_paint_ms.worst - 1.1) < 1e-9);

  const text = reportText(records);
  assert.match(text, /proxy with everything +0\.80 \[0\.80, 0\.80\]/);
  assert.match(text, /proxy with everything +1\.10/);
  assert.match(text, /–/, 'what was not measured is not shown as a figure');
});

test('predictions are compared page by page and way by way', () => {
  assert.equal(rankCorrelation([1, 2, 3], [10, 20, 30]), 1);
  assert.equal(rankCorrelation([1, 2, 3], [30, 20, 10]), -1);
  assert.ok(Math.abs(rankCorrelation([1, 2, 2, 4], [1, 3, 2, 4]) - 0.949) < 0.001);
  assert.equal(rankCorrelation([1, 1], [1, 2]), null);

  const times = (off, plugin) => ({visits: 1, first_paint_ms: {off, plugin, hints: off, preconnect: off}, load_ms: {off, plugin, hints: off, preconnect: off}});
  const share = (value) => ({first_paint_ms: {share: value}, load_ms: {share: null}});
  const rows = compare(
    [{page: 'a', replay: {real: {visits: 0}, copies: times(1000, 800)}}, {page: 'b', replay: {real: times(1000, 900), copies: {visits: 0}}}],
    [{page: 'a', cache: 'cold', way: 'plugin', shares: share(0.7)}, {page: 'b', cache: 'cold', way: 'plugin', shares: share(1.1)},
      {page: 'a', cache: 'stale', way: 'rel-preload', shares: share(0.1)}]);
  assert.deepEqual(rows.map(({page, way, metric}) => [page, way, metric]), [['a', 'plugin', 'first_paint_ms'], ['b', 'plugin', 'first_paint_ms']]);
  const text = comparisonText(rows);
  assert.match(text, /\+20% +\+30% +first paint/);
  assert.match(text, /\+10% +−10% +first paint/);
  assert.match(text, /first paint: median error 15 points/);
  assert.match(text, /load: nothing to compare/);
});
