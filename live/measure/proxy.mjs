// A running kiv_proxy, for one way of loading pages.
import {spawn} from 'node:child_process';
import {createInterface} from 'node:readline';

export class Proxy {
  // Started when this resolves. `options` are those of the program besides the address.
  static async start(program, options) {
    const proxy = new Proxy();
    proxy.process = spawn(program, ['--listen', '127.0.0.1:0', ...options], {stdio: ['ignore', 'pipe', 'inherit']});
    proxy.ended = new Promise((resolve) => proxy.process.once('exit', resolve));
    const lines = createInterface({input: proxy.process.stdout});
    proxy.address = await new Promise((resolve, reject) => {
      proxy.process.once('error', (error) => reject(new Error(`${program} cannot be started: ${error.message}`)));
      proxy.process.once('exit', (status) => reject(new Error(`${program} ended with status ${status}`)));
      lines.on('line', (line) => {
        const address = /(127\.0\.0\.1:\d+)/.exec(line)?.[1];
        if (address) resolve(address);
      });
    });
    return proxy;
  }

  // Lets it store what it has learnt, and end.
  async stop() {
    this.process.kill('SIGTERM');
    const late = setTimeout(() => this.process.kill('SIGKILL'), 5000);
    await this.ended;
    clearTimeout(late);
  }
}
