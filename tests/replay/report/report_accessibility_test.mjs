// What axe-core, a checker of accessibility, finds in the HTML report: nothing serious, in any state of the page. It is not
// part of this project; `npm ci` in this folder installs it.
import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';
import {createRequire} from 'node:module';
import {after, before, test} from 'node:test';
import {OpenedReport} from './opened_report.mjs';

let report;
before(async () => {
  report = await OpenedReport.open([process.env.KIV_EXAMPLE_RECORDING]);
  await report.run(readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8') + '; 0');
});
after(() => report.close());

const check = async () => {
  const {checked, found} = await report.run(`axe.run(document).then(({passes, violations}) => ({checked: passes.length, found: violations
    .map(({id, impact, nodes}) => ({id, impact, where: nodes.slice(0, 3).map(({html}) => html.slice(0, 160))}))}))`);
  assert.ok(checked > 20, 'so many rules apply: ' + checked);
  assert.deepEqual(found.filter(({impact}) => impact === 'serious' || impact === 'critical'), []);
};

for (const scheme of ['light', 'dark']) {
  test(`nothing serious in ${scheme} colours, closed and open, wide and narrow`, async () => {
    await report.send('Emulation.setEmulatedMedia', {features: [{name: 'prefers-color-scheme', value: scheme}]});
    await check();
    await report.run(`document.querySelectorAll('details.visit')[1].open = true`);
    await report.drawn();
    await check();
    await report.run(`document.querySelectorAll('.toggle, .time [title="Zoom in"], .lines button')
      .forEach((button) => { if (button.closest('.visit[open]') && button.offsetParent) button.click(); })`);
    await report.drawn();
    assert.equal(await report.run(`document.querySelector('.panel').hidden`), false);
    await check();
    await report.resize(390, 844);
    await report.drawn();
    await check();
    await report.run(`document.querySelectorAll('details.visit').forEach((visit) => { visit.open = false; })`);
    await report.press('Escape');
    await report.resize(1280, 900);
  });
}
