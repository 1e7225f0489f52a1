// Tests of the server for measurements, on ports that the system picks: node --test examples/site/serve_test.mjs
import assert from 'node:assert/strict';
import {once} from 'node:events';
import {existsSync, mkdtempSync, readFileSync, rmSync} from 'node:fs';
import http2 from 'node:http2';
import net from 'node:net';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import tls from 'node:tls';
import {after, test} from 'node:test';
import {setTimeout as pause} from 'node:timers/promises';
import {UsageError, parseOptions, serveSite} from './serve.mjs';

const folder = mkdtempSync(join(tmpdir(), 'serve-test-'));
after(() => rmSync(folder, {recursive: true}));

async function serving(args, work) {
  const served = await serveSite(parseOptions(['--ca-dir', folder, ...args]), () => 0);
  try {
    return await work(served);
  } finally {
    served.close();
  }
}

// One request over HTTP/1.1, byte for byte: {status, headers, body, bytes}; several values of a header are an array.
async function get(served, url, more = {}) {
  const {host, hostname, port, pathname} = new URL(url);
  const socket = net.connect(served.ports.get(Number(port || 80)), '127.0.0.1');
  const lines = Object.entries({Host: host, Connection: 'close', ...more}).map(([name, value]) => `${name}: ${value}\r\n`);
  socket.write(`GET ${pathname} HTTP/1.1\r\n${lines.join('')}\r\n`);
  const answer = Buffer.concat(await socket.toArray());
  assert.ok(answer.length > 0, `${hostname}${pathname} is answered`);
  const text = answer.toString('latin1');
  const informational = text.startsWith('HTTP/1.1 103') ? text.indexOf('\r\n\r\n') + 4 : 0;
  const end = text.indexOf('\r\n\r\n', informational);
  const headers = {};
  for (const line of text.slice(informational, end).split('\r\n').slice(1)) {
    const [, name, value] = /^([^:]+): (.*)$/.exec(line);
    headers[name.toLowerCase()] = name.toLowerCase() in headers ? [headers[name.toLowerCase()], value].flat() : value;
  }
  return {
    status: Number(text.slice(informational + 9, informational + 12)), headers, body: text.slice(end + 4), bytes: answer.length,
    early: text.slice(0, informational),
  };
}

// One request over HTTP/2: {status, headers, early, body}. The CA of the folder must have signed the certificate.
async function getHttps(served, url) {
  const {origin, port, pathname, hostname} = new URL(url);
  const client = http2.connect(origin, {
    createConnection: () => tls.connect({
      host: '127.0.0.1', port: served.ports.get(Number(port || 443)), servername: hostname, ca: readFileSync(served.ca), ALPNProtocols: ['h2'],
    }),
  });
  const stream = client.request({':path': pathname});
  let early;
  stream.once('headers', (headers) => { early = headers; });
  const [headers] = await once(stream, 'response');
  const body = Buffer.concat(await stream.toArray()).toString();
  client.close();
  return {status: headers[':status'], headers, early, body};
}

const PICTURE = 'http://img.example.test/hero/headland.png';
const SHEET = 'http://static.example.test/css/base.css';

test('lifetimes and validation', async () => {
  const table = [
    // url, Cache-Control as written, Cache-Control with --lifetimes short, whether it has an ETag
    [PICTURE, 'max-age=86400', 'max-age=2', true],
    ['http://fonts.example.test/tideline-display.woff2', 'public, max-age=31536000, immutable', 'max-age=2', true],
    ['http://static.example.test/css/print.css', undefined, 'max-age=2', true], // nothing said
    ['http://static.example.test/css/grid.css', undefined, 'max-age=2', true], // Expires
    ['http://www.example.test/', 'no-cache', 'no-cache', true],
    ['http://www.example.test/stories/the-long-ebb', 'no-store', 'no-store', false],
    ['http://api.example.test:8081/v1/tide.json', 'no-store', 'no-store', false],
    ['http://static.example.test/img/badge-2019.png', undefined, 'max-age=2', false], // status 404
  ];
  for (const [column, lifetimes] of [[1, 'as-written'], [2, 'short']]) {
    await serving(['--protocols', 'http', '--lifetimes', lifetimes], async (served) => {
      for (const row of table) {
        const first = await get(served, row[0]);
        assert.equal(first.headers['cache-control'], row[column], row[0]);
        assert.equal(first.headers.etag !== undefined, row[3], row[0]);
        if (lifetimes === 'short') assert.equal(first.headers.expires, undefined, row[0]);
        if (!row[3]) continue;
        const again = await get(served, row[0], {'If-None-Match': `"other", ${first.headers.etag}`});
        assert.deepEqual([again.status, again.body, again.headers.etag], [304, '', first.headers.etag], row[0]);
        assert.equal((await get(served, row[0], {'If-None-Match': '"other"'})).status, 200, row[0]);
      }
      assert.equal((await get(served, 'http://static.example.test/no/such')).status, 404);
      assert.equal((await get(served, 'http://nobody.example.test/')).status, 404);
    });
  }
});

test('hints, and addresses over HTTPS', async () => {
  for (const [hints, hasLinks, hasEarly] of [['none', false, false], ['preload', true, false], ['early-hints', true, true]]) {
    await serving(['--hints', hints], async (served) => {
      assert.equal(served.pages[0], 'https://www.example.test/');
      const sheet = 'https://static.example.test/css/base.css';
      const page = await getHttps(served, served.pages[0]);
      assert.equal(page.status, 200);
      assert.equal(String(page.headers.link).includes(`<${sheet}>; rel=preload; as=style`), hasLinks, hints);
      assert.equal(String(page.early?.link).includes(`<${sheet}>; rel=preload; as=style`), hasEarly, hints);
      assert.ok(page.body.includes(`href="${sheet}"`) && !page.body.includes('http://'), 'the page names HTTPS addresses only');
      const overHttp = await get(served, 'http://www.example.test/');
      assert.equal([overHttp.headers.link].flat().includes(`<${SHEET}>; rel=preload; as=style`), hasLinks, hints);
      assert.equal(overHttp.early.includes(SHEET), hasEarly, hints);
      assert.ok(overHttp.body.includes(`href="${SHEET}"`));
      const redirect = await getHttps(served, 'https://example.test/gallery');
      assert.deepEqual([redirect.status, redirect.headers.location], [301, 'https://www.example.test/gallery/']);
      assert.match((await getHttps(served, 'https://static.example.test/js/app.js')).body, /https:\/\/api\.example\.test:8444\/v1/);
    });
  }
});

test('the log has a line for each response, with its size', async () => {
  const log = join(folder, 'log.jsonl');
  await serving(['--log', log], async (served) => {
    const whole = await get(served, PICTURE);
    const zipped = await get(served, SHEET, {'Accept-Encoding': 'gzip'});
    const notModified = await get(served, PICTURE, {'If-None-Match': whole.headers.etag});
    const {body} = await getHttps(served, 'https://api.example.test:8444/v1/comments.json');
    const leaves = net.connect(served.ports.get(80), '127.0.0.1');
    leaves.write('GET /js/tides.js HTTP/1.1\r\nHost: static.example.test\r\n\r\n', () => leaves.destroy());
    const lines = () => (existsSync(log) ? readFileSync(log, 'utf8').split('\n').filter(Boolean).map((line) => JSON.parse(line)) : []);
    while (lines().length < 5) await pause(10);
    const [first, second, third, fourth, fifth] = lines();
    assert.deepEqual([first.method, first.url, first.status, first.protocol, first.complete], ['GET', PICTURE, 200, 'HTTP/1.1', true]);
    for (const [line, answer] of [[first, whole], [second, zipped], [third, notModified]]) {
      assert.equal(line.bodyBytes, answer.body.length, line.url);
      assert.equal(line.bodyBytes + line.headerBytes, answer.bytes, line.url);
    }
    assert.equal(third.status, 304);
    assert.deepEqual([fourth.url, fourth.protocol, fourth.bodyBytes], ['https://api.example.test:8444/v1/comments.json', 'HTTP/2', body.length]);
    assert.deepEqual([fifth.complete, fifth.bodyBytes], [false, null], 'the client left early');
  });
});

test('what the sites name is there', async () => {
  for (const path of ['./routes.mjs', '../site-b/routes.mjs']) {
    const {origins, pages, hints} = await import(path);
    const isServed = (url) => {
      const {host, pathname} = new URL(url);
      return origins.get(host)?.has(pathname);
    };
    const named = [...pages, ...[...hints].flatMap(([page, links]) => [page, ...links.map((link) => /<(.*)>/.exec(link)[1])])];
    for (const [origin, resources] of origins) {
      for (const [own, {type, body, headers}] of resources) {
        if (headers.Location) named.push(new URL(headers.Location, `http://${origin}${own}`).href);
        if (!/html|css|javascript|json/.test(type)) continue;
        const text = (typeof body === 'function' ? body(0) : body).toString();
        named.push(...text.match(/http:\/\/[\w.:/-]+(?=["'?)])/g) ?? []);
      }
    }
    assert.ok(named.length > 100, path);
    assert.deepEqual(named.filter((url) => !isServed(url) && !/:808\d(\/v1)?$/.test(url)), [], path);
  }
});

test('the command line', async () => {
  for (const [args, part] of [
    [['--site', 'c'], /--site must be one of site, site-b, got 'c'/], [['--hints', 'all'], /--hints .*early-hints/],
    [['--protocols', 'h3'], /--protocols/], [['--lifetimes', '2'], /--lifetimes/], [['--bind', 'localhost'], /--bind .*'localhost'/],
    [['--addresses', '10.77.1.250'], /--addresses/], [['--port', '80'], /--port/], [['x'], /'x'/],
  ]) {
    assert.throws(() => parseOptions(args), (error) => error instanceof UsageError && part.test(error.message), args.join(' '));
  }
  await serving(['--site', 'site-b', '--protocols', 'http', '--addresses', '10.77.1.9'], async ({resolverRules, pages, ca}) => {
    assert.match(resolverRules, /^MAP www\.kettle\.test 10\.77\.1\.9,MAP assets\.kettle\.test 10\.77\.1\.10,/);
    assert.deepEqual([pages[0], ca], ['http://www.kettle.test/', undefined]);
  });
});
