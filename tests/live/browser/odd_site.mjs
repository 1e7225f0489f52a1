// A site of pages that do what is hard for a proxy. Each page puts what it has seen into `window.seen`; that must not
// depend on the way to the server.
import {createHash} from 'node:crypto';
import http from 'node:http';
import http2 from 'node:http2';
import {setTimeout as pause} from 'node:timers/promises';
import zlib from 'node:zlib';

export const HOSTS = ['odd.test', 'other.test'];

const MEDIA = Buffer.from(Array.from({length: 100_000}, (_, i) => (i * 7) & 255));
const TEXT = 'All that is gold does not glitter, not all those who wander are lost. '.repeat(50);
const SCRIPT = 'window.ran = (window.ran ?? 0) + 1;';
const integrity = (text) => `sha256-${createHash('sha256').update(text).digest('base64')}`;

// Runs in every page: `see(name, promise)` notes a result, `tell(response)` what can be seen of a response.
const PRELUDE = `
const seen = {};
const notes = [];
const see = (name, promise) => notes.push(Promise.resolve(promise).then((value) => { seen[name] = value; }, (error) => { seen[name] = error.name; }));
const tell = async (response) => {
  const bytes = new Uint8Array(await response.arrayBuffer());
  const samples = Array.from({length: 60}, (_, i) => bytes[Math.floor(i * bytes.length / 60)]).join(' ');
  return [response.status, response.type, response.redirected, new URL(response.url || location.href).pathname, response.headers.get('content-type'), response.headers.get('content-range'), bytes.length, samples];
};
const get = (url, options) => fetch(url, options).then(tell);
const finish = () => Promise.all(notes).then(() => { window.seen = seen; });
`;

// By name: what the page does, between the prelude and finish().
export const CASES = {
  'bodies': `
    for (const name of ['plain', 'chunked', 'gzip', 'brotli', 'empty', 'no-length', 'early-hints', 'created', 'missing']) see(name, get('/body/' + name));
    see('head', get('/body/plain', {method: 'HEAD'}));
    see('text', fetch('/body/gzip').then((response) => response.text()).then((text) => text.length));`,
  'conditions': `
    see('first', get('/tagged'));
    see('again', Promise.resolve().then(() => get('/tagged', {cache: 'no-cache'})));
    see('reload', get('/tagged', {cache: 'reload'}));
    see('own', get('/tagged', {headers: {'If-None-Match': '"tag"'}}));
    see('other', get('/tagged', {headers: {'If-None-Match': '"old"'}}));`,
  'range': `
    see('middle', get('/media', {headers: {Range: 'bytes=1000-1999'}}));
    see('end', get('/media', {headers: {Range: 'bytes=-10'}}));
    see('beyond', get('/media', {headers: {Range: 'bytes=900000-'}}));
    see('whole', get('/media'));`,
  'redirects': `
    see('one', get('/redirect/1'));
    see('five', get('/redirect/5'));
    see('circle', get('/redirect/circle'));
    see('manual', fetch('/redirect/1', {redirect: 'manual'}).then((response) => response.type));
    see('post', get('/redirect/see-other', {method: 'POST', body: 'x'}));
    see('keeps', get('/redirect/temporary', {method: 'POST', body: 'kept'}));`,
  'uploads': `
    see('echo', fetch('/echo', {method: 'POST', body: 'hello'}).then((response) => response.text()));
    see('big', fetch('/echo-length', {method: 'PUT', body: new Uint8Array(3_000_000)}).then((response) => response.text()));
    see('delete', get('/echo', {method: 'DELETE'}));
    const form = new FormData();
    form.append('file', new Blob(['content']), 'name.txt');
    see('form', fetch('/echo-length', {method: 'POST', body: form}).then((response) => response.status));`,
  'cookies': `
    see('story', (async () => {
      const who = () => fetch('/who').then((response) => response.text());
      const told = [await who()];
      await fetch('/login', {method: 'POST'});
      told.push(await who());
      document.cookie = 'theme=dark; path=/';
      told.push(await who());
      await fetch('/logout', {method: 'POST'});
      told.push(await who());
      document.cookie = 'theme=; max-age=0; path=/';
      told.push(await who(), await fetch('/who', {credentials: 'omit'}).then((response) => response.text()));
      return told;
    })());`,
  'cors': `
    const other = location.protocol + '//other.test';
    see('allowed', get(other + '/cors'));
    see('with-credentials', get(other + '/cors?credentials', {credentials: 'include'}));
    see('refused', get(other + '/body/plain'));
    see('opaque', get(other + '/body/plain', {mode: 'no-cors'}));
    see('preflight', get(other + '/cors', {method: 'PUT', headers: {'X-Own': '1'}, body: 'x'}));`,
  'variants': `
    see('en', fetch('/language', {headers: {'Accept-Language': 'en'}}).then((response) => response.text()));
    see('sv', fetch('/language', {headers: {'Accept-Language': 'sv'}}).then((response) => response.text()));
    see('en-again', fetch('/language', {headers: {'Accept-Language': 'en'}}).then((response) => response.text()));`,
  'elements': `
    const load = (name, make) => see(name, new Promise((resolve) => {
      const element = make();
      element.onload = () => resolve('load');
      element.onerror = () => resolve('error');
      document.head.append(element);
    }));
    const script = (src, more) => () => Object.assign(document.createElement('script'), {src, ...more});
    load('integrity', script('/script.js', {integrity: '${integrity(SCRIPT)}'}));
    load('wrong-integrity', script('/script.js?wrong', {integrity: '${integrity('else')}'}));
    load('module', script('/module.js', {type: 'module'}));
    load('missing', script('/missing.js'));
    load('style', () => Object.assign(document.createElement('link'), {rel: 'stylesheet', href: '/style.css'}));
    load('image', () => Object.assign(new Image(), {src: '/picture.svg'}));`,
  'policy': `
    const other = location.protocol + '//other.test';
    see('refused', get(other + '/cors'));
    see('own', get('/body/plain'));
    document.addEventListener('securitypolicyviolation', (event) => { seen.violated = event.effectiveDirective; });`,
  'frames': `
    see('frame', new Promise((resolve) => {
      addEventListener('message', (event) => resolve(event.data));
      const frame = document.createElement('iframe');
      frame.src = '/frame';
      document.documentElement.append(frame);
    }));
    see('denied', new Promise((resolve) => {
      const frame = document.createElement('iframe');
      frame.src = '/denied';
      frame.onload = () => resolve(frame.contentDocument === null);
      document.documentElement.append(frame);
    }));`,
  'streams': `
    see('events', new Promise((resolve) => {
      const source = new EventSource('/events');
      const told = [];
      source.onmessage = (event) => { told.push(event.data); if (told.length === 3) { source.close(); resolve(told); } };
    }));
    see('slow', (async () => {
      const reader = (await fetch('/slow')).body.getReader();
      const {value} = await reader.read();
      await reader.cancel();
      return new TextDecoder().decode(value);
    })());
    see('aborted', (async () => {
      const control = new AbortController();
      setTimeout(() => control.abort(), 50);
      return get('/never', {signal: control.signal});
    })());
    see('cut', get('/cut'));
    see('beacon', navigator.sendBeacon('/echo', 'x'));
    see('socket', new Promise((resolve, reject) => {
      const socket = new WebSocket(location.href.replace('http', 'ws').replace(/page.*/, 'socket'));
      socket.onopen = () => socket.send('over the socket');
      socket.onmessage = (event) => { resolve(event.data); socket.close(); };
      socket.onerror = () => reject(new Error());
    }));`,
  'worker': `
    see('worker', (async () => {
      if (!navigator.serviceWorker) return 'none over plain http';
      await navigator.serviceWorker.register('/worker.js');
      await navigator.serviceWorker.ready;
      if (!navigator.serviceWorker.controller) await new Promise((resolve) => navigator.serviceWorker.addEventListener('controllerchange', resolve));
      return [await fetch('/from-worker').then((response) => response.text()), await get('/body/plain')];
    })());`,
};

const page = (name) => `<!doctype html><title>${name}</title><body><script>${PRELUDE}${CASES[name]}\nfinish();</script>`;

// Status, headers and body by path; a function answers by itself.
function answer(url, request) {
  const {pathname, search} = url;
  const html = {'Content-Type': 'text/html', 'Cache-Control': 'no-store'};
  const plain = {'Content-Type': 'text/plain', 'Cache-Control': 'no-store'};
  const cookies = request.headers.cookie ?? 'none';
  const cors = {
    'Access-Control-Allow-Origin': request.headers.origin ?? '*', 'Access-Control-Allow-Credentials': 'true',
    'Access-Control-Allow-Headers': 'X-Own', 'Access-Control-Allow-Methods': 'PUT', 'Vary': 'Origin',
  };
  const name = pathname.split('/').at(-1);
  if (pathname.startsWith('/page/') && name in CASES) {
    const policy = name === 'policy' ? {'Content-Security-Policy': "default-src 'self' 'unsafe-inline'"} : {};
    return [200, {...html, ...policy}, page(name)];
  }
  if (pathname.startsWith('/redirect/')) {
    const target = {1: '/body/plain', circle: '/redirect/circle', 'see-other': '/echo', temporary: '/echo'}[name] ?? `/redirect/${Number(name) - 1}`;
    return [{'see-other': 303, temporary: 307}[name] ?? 302, {...plain, Location: target}, ''];
  }
  switch (pathname) {
    case '/body/plain': return [200, plain, TEXT];
    case '/body/chunked': return [200, plain, [TEXT.slice(0, 1000), TEXT.slice(1000)]];
    case '/body/gzip': return [200, {...plain, 'Content-Encoding': 'gzip'}, zlib.gzipSync(TEXT)];
    case '/body/brotli': return [200, {...plain, 'Content-Encoding': 'br'}, zlib.brotliCompressSync(TEXT)];
    case '/body/empty': return [204, {'Cache-Control': 'no-store'}, ''];
    case '/body/no-length': return [200, {...plain, 'Cache-Control': 'max-age=60'}, [TEXT]];
    case '/body/early-hints': return [200, plain, TEXT, {early: true}];
    case '/body/created': return [201, {...plain, Location: '/body/plain'}, 'made'];
    case '/tagged': return request.headers['if-none-match'] === '"tag"' ? [304, {ETag: '"tag"', 'Cache-Control': 'max-age=60'}, '']
      : [200, {'Content-Type': 'text/plain', ETag: '"tag"', 'Cache-Control': 'max-age=60'}, TEXT];
    case '/media': return range(request.headers.range);
    case '/who': return [200, plain, cookies];
    case '/login': return [200, {...plain, 'Set-Cookie': ['id=7; Path=/; HttpOnly', 'seen=1; Path=/']}, ''];
    case '/logout': return [200, {...plain, 'Set-Cookie': ['id=; Path=/; Max-Age=0', 'seen=; Path=/; Max-Age=0']}, ''];
    case '/cors': return [200, {...plain, ...cors}, `${request.method}${search}`];
    case '/language': return [200, {'Content-Type': 'text/plain', 'Cache-Control': 'max-age=60', Vary: 'Accept-Language'}, request.headers['accept-language'] ?? 'none'];
    case '/script.js': return [200, {'Content-Type': 'text/javascript'}, SCRIPT];
    case '/module.js': return [200, {'Content-Type': 'text/javascript'}, 'import "/script.js?imported"; export const one = 1;'];
    case '/style.css': return [200, {'Content-Type': 'text/css'}, '@import "/more.css"; body { background: url(/picture.svg?css) }'];
    case '/more.css': return [200, {'Content-Type': 'text/css', 'Cache-Control': 'max-age=0', ETag: '"css"'}, 'p { color: red }'];
    case '/picture.svg': return [200, {'Content-Type': 'image/svg+xml', 'Cache-Control': 'max-age=1'}, '<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"/>'];
    case '/frame': return [200, html, '<script>parent.postMessage("from " + location.pathname, "*")</script>'];
    case '/denied': return [200, {...html, 'X-Frame-Options': 'DENY'}, 'never shown'];
    case '/worker.js': return [200, {'Content-Type': 'text/javascript', 'Cache-Control': 'no-cache'},
      'self.addEventListener("install", () => self.skipWaiting()); self.addEventListener("activate", (event) => event.waitUntil(clients.claim()));' +
      'self.addEventListener("fetch", (event) => { if (event.request.url.endsWith("/from-worker")) event.respondWith(new Response("the worker")); });'];
  }
  return [404, plain, 'nothing here'];
}

function range(text) {
  const headers = {'Content-Type': 'video/mp4', 'Accept-Ranges': 'bytes', 'Cache-Control': 'no-store'};
  if (text === undefined) return [200, headers, MEDIA];
  const [, first, last] = /^bytes=(\d*)-(\d*)$/.exec(text);
  const begin = first === '' ? MEDIA.length - Number(last) : Number(first);
  const end = first === '' || last === '' ? MEDIA.length - 1 : Math.min(Number(last), MEDIA.length - 1);
  if (begin >= MEDIA.length) return [416, {...headers, 'Content-Range': `bytes */${MEDIA.length}`}, ''];
  return [206, {...headers, 'Content-Range': `bytes ${begin}-${end}/${MEDIA.length}`}, MEDIA.subarray(begin, end + 1)];
}

async function handle(request, response, scheme) {
  const url = new URL(request.url, `${scheme}://${request.headers[':authority'] ?? request.headers.host}`);
  const chunks = [];
  for await (const chunk of request) chunks.push(chunk);
  const body = Buffer.concat(chunks);
  const plain = {'Content-Type': 'text/plain', 'Cache-Control': 'no-store'};
  const send = async (status, headers, parts, {early} = {}) => {
    if (early) response.writeEarlyHints({link: '</script.js>; rel=preload; as=script'});
    const whole = Array.isArray(parts) ? undefined : Buffer.from(parts);
    const hasLength = whole !== undefined && status !== 204 && status !== 304;
    response.writeHead(status, {...headers, ...(hasLength && {'Content-Length': whole.length})});
    if (request.method === 'HEAD') return response.end();
    const all = whole === undefined ? [...parts] : [whole];
    // A last part that is written before the end lets the next request of the connection in, and node then sends the
    // head of its response before its early hints.
    const last = all.pop();
    for (const part of all) {
      response.write(part);
      await pause(5);
    }
    response.end(last);
  };
  switch (url.pathname) {
    case '/echo': return send(200, plain, `${request.method} ${body}`);
    case '/echo-length': return send(200, plain, String(body.length > 1000 ? body.length : 'a form'));
    case '/events':
      response.writeHead(200, {'Content-Type': 'text/event-stream', 'Cache-Control': 'no-store'});
      for (let i = 0; i < 3; ++i) {
        response.write(`data: event ${i}\n\n`);
        await pause(30);
      }
      return undefined; // the page closes it
    case '/slow':
      response.writeHead(200, plain);
      response.write('first');
      return undefined;
    case '/never': return undefined;
    case '/cut':
      response.writeHead(200, {...plain, 'Content-Length': 1000});
      response.write('only this');
      await pause(20);
      return response.stream ? response.stream.close(2) : response.socket.destroy();
  }
  return send(...answer(url, request));
}

// Echoes the first message of a WebSocket.
function upgrade(request, socket) {
  const accept = createHash('sha1').update(`${request.headers['sec-websocket-key']}258EAFA5-E914-47DA-95CA-C5AB0DC85B11`).digest('base64');
  socket.write(`HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: ${accept}\r\n\r\n`);
  socket.on('error', () => {});
  socket.once('data', (frame) => {
    const length = frame[1] & 127;
    const mask = frame.subarray(2, 6);
    const text = Buffer.from(frame.subarray(6, 6 + length).map((byte, i) => byte ^ mask[i & 3]));
    socket.write(Buffer.concat([Buffer.from([0x81, text.length]), text]));
  });
}

// Listens on a port that the system picks unless one is given. Returns {port, close}.
export async function serveOddSite(certificates, port = 0, address = '127.0.0.1') {
  const scheme = certificates === undefined ? 'http' : 'https';
  const onRequest = (request, response) => {
    response.on('error', () => {});
    handle(request, response, scheme).catch((error) => {
      if (!response.destroyed && error.code !== 'ECONNRESET' && error.message !== 'aborted') console.error(error);
      (response.stream ?? response).destroy();
    });
  };
  const server = certificates === undefined ? http.createServer(onRequest) : http2.createSecureServer({...certificates, allowHTTP1: true}, onRequest);
  server.on('upgrade', upgrade);
  const sockets = new Set();
  server.on('connection', (socket) => {
    sockets.add(socket);
    socket.once('close', () => sockets.delete(socket));
  });
  await new Promise((resolve) => server.listen(port, address, resolve));
  return {
    port: server.address().port,
    close: () => {
      server.close();
      for (const socket of sockets) socket.destroy();
    },
  };
}
