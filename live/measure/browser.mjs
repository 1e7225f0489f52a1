// A headless Chromium in a profile folder of its own, spoken to through the DevTools protocol over pipes.
import {spawn} from 'node:child_process';

// What a browser does besides loading the page would take the link and the processor, differently each time.
const QUIET = [
  '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--no-default-browser-check',
  '--disable-background-networking', '--disable-component-update', '--disable-sync', '--disable-extensions',
  '--disable-default-apps', '--disable-domain-reliability', '--disable-client-side-phishing-detection',
  '--metrics-recording-only', '--mute-audio', '--hide-scrollbars', '--disable-site-isolation-trials',
  '--disable-features=IsolateOrigins,site-per-process,OptimizationHints,MediaRouter,Translate,HttpsUpgrades,HttpsFirstBalancedModeAutoEnable,SpareRendererForSitePerProcess',
  '--window-size=1280,900',
];

// For a browser that goes through a proxy: what it wants from its maker's servers is no affair of the proxy's.
export const proxyFlags = (address) => [`--proxy-server=${address}`, '--proxy-bypass-list=<-loopback>;*.google.com;*.googleapis.com'];

export class Browser {
  // `program` is looked up in the PATH. The profile folder is made where it is missing.
  constructor(program, profile, flags) {
    this.process = spawn(program, [...QUIET, `--user-data-dir=${profile}`, ...flags, '--remote-debugging-pipe', 'about:blank'], {
      stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'],
      detached: true, // a process group of its own, so that all its processes can be ended
    });
    this.ended = new Promise((resolve) => this.process.once('exit', resolve));
    this.lastId = 0;
    this.waiting = new Map();
    this.listeners = new Set();
    const [toBrowser, fromBrowser] = [this.process.stdio[3], this.process.stdio[4]];
    toBrowser.on('error', () => {});
    this.toBrowser = toBrowser;
    let rest = '';
    fromBrowser.setEncoding('utf8');
    fromBrowser.on('data', (text) => {
      const messages = (rest + text).split('\0');
      rest = messages.pop();
      for (const message of messages) this.#receive(JSON.parse(message));
    });
    const fail = (why) => {
      for (const {reject} of this.waiting.values()) reject(new Error(why));
      this.waiting.clear();
    };
    this.process.once('error', (error) => fail(`${program} cannot be started: ${error.message}`));
    this.process.once('exit', (status) => fail(`the browser ended with status ${status}`));
  }

  #receive(message) {
    if (message.id === undefined) {
      for (const listener of this.listeners) listener(message);
      return;
    }
    const {resolve, reject, method} = this.waiting.get(message.id) ?? {};
    this.waiting.delete(message.id);
    if (message.error) reject?.(new Error(`${method}: ${message.error.message}`));
    else resolve?.(message.result);
  }

  // Sends a command; to a page when its session is given. Returns what it answers.
  send(method, params = {}, sessionId = undefined) {
    const id = ++this.lastId;
    return new Promise((resolve, reject) => {
      this.waiting.set(id, {resolve, reject, method});
      this.toBrowser.write(`${JSON.stringify({id, method, params, sessionId})}\0`);
    });
  }

  // Calls `listener` for each event until the returned function is called.
  listen(listener) {
    this.listeners.add(listener);
    return () => this.listeners.delete(listener);
  }

  // The session of a new, empty page.
  async openPage() {
    const {targetId} = await this.send('Target.createTarget', {url: 'about:blank'});
    const {sessionId} = await this.send('Target.attachToTarget', {targetId, flatten: true});
    return sessionId;
  }

  // Lets the browser write its profile and end; ends it by force when it does not.
  async close() {
    this.send('Browser.close').catch(() => {});
    const late = setTimeout(() => this.kill(), 5000);
    await this.ended;
    clearTimeout(late);
    this.kill(); // what is left of its group
  }

  kill() {
    try {
      process.kill(-this.process.pid, 'SIGKILL');
    } catch {
      // The group is gone.
    }
  }
}
