// A report of recordings in a real Chromium, which the tests of the page use as a person would. KIV_REPLAY names the
// program. Whatever the page complains of is collected: nothing may be refused by its own policy.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {Browser} from '../../../live/measure/browser.mjs';

export class OpenedReport {
  static async open(recordings, options = []) {
    const report = new OpenedReport();
    report.folder = mkdtempSync(join(tmpdir(), 'kiv_report_'));
    report.path = join(report.folder, 'report.html');
    execFileSync(process.env.KIV_REPLAY, ['--html', report.path, ...options, ...recordings], {stdio: 'ignore'});
    report.browser = new Browser('chromium', join(report.folder, 'profile'), []);
    report.session = await report.browser.openPage();
    report.complaints = [];
    report.requested = [];
    report.browser.listen(({method, params}) => {
      if (method === 'Runtime.exceptionThrown') report.complaints.push(params.exceptionDetails.exception?.description);
      if (method === 'Log.entryAdded') report.complaints.push(params.entry.text);
      if (method === 'Network.requestWillBeSent') report.requested.push(params.request.url);
    });
    for (const domain of ['Page', 'Runtime', 'Log', 'Network']) await report.send(domain + '.enable');
    await report.resize(1280, 900);
    await report.send('Page.navigate', {url: 'file://' + report.path});
    await report.run(`new Promise((done) => {
      const look = () => document.readyState === 'complete' && location.protocol === 'file:' ? done() : setTimeout(look, 10);
      look();
    })`);
    return report;
  }

  send(method, params = {}) {
    return this.browser.send(method, params, this.session);
  }

  // The value of an expression in the page.
  async run(expression) {
    const {result, exceptionDetails} = await this.send('Runtime.evaluate', {expression, returnByValue: true, awaitPromise: true});
    if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
    return result.value;
  }

  resize(width, height) {
    return this.send('Emulation.setDeviceMetricsOverride', {width, height, deviceScaleFactor: 1, mobile: false});
  }

  // Until what the page does after an event is drawn.
  drawn() {
    return this.run('new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))');
  }

  // Whether something becomes true within five seconds: the browser turns touches into clicks when it has time.
  becomes(expression) {
    return this.run(`(async () => {
      for (let n = 0; n < 250 && !(${expression}); ++n) await new Promise((done) => setTimeout(done, 20));
      return ${expression};
    })()`);
  }

  async press(key) {
    const text = key === 'Enter' ? '\r' : key.length === 1 ? key : undefined;
    const keyCode = key === 'Enter' ? 13 : undefined;
    await this.send('Input.dispatchKeyEvent', {type: 'keyDown', key, text, windowsVirtualKeyCode: keyCode});
    await this.send('Input.dispatchKeyEvent', {type: 'keyUp', key, windowsVirtualKeyCode: keyCode});
    await this.drawn();
  }

  // Where the middle of an element is, once it is in view.
  async middleOf(expression) {
    const box = await this.run(`(() => {
      const element = ${expression};
      element.scrollIntoView({block: 'center'});
      const {left, top, width, height} = element.getBoundingClientRect();
      return {x: left + width / 2, y: top + height / 2};
    })()`);
    assert.ok(box.x > 0 && box.y > 0, expression);
    return box;
  }

  mouse(type, {x, y}, more = {}) {
    return this.send('Input.dispatchMouseEvent', {type, x, y, ...more});
  }

  async click(expression) {
    const at = await this.middleOf(expression);
    for (const type of ['mousePressed', 'mouseReleased']) await this.mouse(type, at, {button: 'left', clickCount: 1});
    await this.drawn();
  }

  async close() {
    await this.browser.close();
    rmSync(this.folder, {recursive: true, force: true, maxRetries: 5, retryDelay: 200});
  }
}
