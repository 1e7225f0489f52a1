// Somebody who browses the odd site with a real Chromium, through kiv_proxy or without it.
import {existsSync, readFileSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';
import {setTimeout as pause} from 'node:timers/promises';
import {Browser, proxyFlags} from '../../../live/measure/browser.mjs';
import {Proxy} from '../../../live/measure/proxy.mjs';
import {HOSTS} from './odd_site.mjs';

// A page is complete when it has written down what it saw. One that did not load has nothing to write with.
const SNAPSHOT = `new Promise((resolve) => {
  const look = () => {
    if (window.seen) resolve({seen: window.seen, dom: document.documentElement.outerHTML.length});
    else if (location.href.startsWith('chrome-error:')) resolve({failed: true});
    else setTimeout(look, 20);
  };
  look();
})`;

// The site has the ports that belong to http and https, whatever the one is that it listens on. `certificates` are those
// of the server; undefined for plain http. The CA of interception stays in the folder.
export function startProxy(program, folder, port, certificates, options, address = '127.0.0.1') {
  const hosts = join(folder, 'hosts');
  writeFileSync(hosts, HOSTS.map((host) => `${address} ${host}\n`).join(''));
  const intercept = certificates ? ['--intercept', '--ca-dir', join(folder, 'ca'), '--upstream-ca', certificates.caPath] : [];
  return Proxy.start(program, ['--hosts', hosts, '--connect-port', String(port), ...intercept, ...options]);
}

export class Visitor {
  // `proxyAddress` is undefined for none.
  static async start(folder, profile, port, certificates, proxyAddress, address = '127.0.0.1') {
    const visitor = new Visitor();
    visitor.origin = `${certificates ? 'https' : 'http'}://odd.test`;
    const keyFile = join(folder, 'ca', 'spki');
    const keys = [certificates?.spki, existsSync(keyFile) ? readFileSync(keyFile, 'utf8').trim() : undefined].filter(Boolean);
    visitor.browser = new Browser('chromium', join(folder, profile), [
      ...(keys.length > 0 ? [`--ignore-certificate-errors-spki-list=${keys.join(',')}`] : []),
      ...(proxyAddress ? proxyFlags(proxyAddress) : [`--host-resolver-rules=MAP *.test ${address}:${port}`]),
    ]);
    visitor.session = await visitor.browser.openPage();
    await visitor.send('Page.enable');
    return visitor;
  }

  send(method, params = {}) {
    return this.browser.send(method, params, this.session);
  }

  // What the page has seen, once it is complete: {seen, dom}; {failed: true} for one that does not load.
  async act(command, params = {}) {
    const loaded = new Promise((resolve) => {
      const stop = this.browser.listen(({method, sessionId}) => {
        if (sessionId !== this.session || method !== 'Page.loadEventFired') return;
        stop();
        resolve();
      });
    });
    const {errorText} = await this.send(command, params);
    if (errorText) return {failed: true};
    await Promise.race([loaded, pause(3000)]); // a page out of the back-forward cache fires no such event
    const {result, exceptionDetails} = await this.send('Runtime.evaluate', {expression: SNAPSHOT, awaitPromise: true, returnByValue: true});
    return result.value ?? exceptionDetails;
  }

  open(name) {
    return this.act('Page.navigate', {url: `${this.origin}/page/${name}`});
  }

  async back() {
    const {entries, currentIndex} = await this.send('Page.getNavigationHistory');
    return this.act('Page.navigateToHistoryEntry', {entryId: entries[currentIndex - 1].id});
  }

  close() {
    return this.browser.close();
  }
}
