// Serves a site for measurements: on its real ports, over HTTP/1.1, and over HTTPS with HTTP/2 on ports of their own.
// Every response becomes a line of the log.
import {mkdtempSync, openSync, readFileSync, writeSync} from 'node:fs';
import http from 'node:http';
import http2 from 'node:http2';
import {isIPv4} from 'node:net';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {pathToFileURL} from 'node:url';
import {parseArgs} from 'node:util';
import {answer, plain} from './answer.mjs';
import {makeCertificates} from './certificates.mjs';

const SITES = {site: './routes.mjs', 'site-b': '../site-b/routes.mjs'};
const CHOICES = {
  site: Object.keys(SITES),
  protocols: ['http', 'https', 'both'],
  lifetimes: ['as-written', 'short'],
  hints: ['none', 'preload', 'early-hints'],
};
const HELP = `Serves one of the example sites for measurements.

Usage: node examples/site/serve.mjs [OPTIONS]

  --site site|site-b                  which site [site]
  --bind ADDRESS                      listen on this IPv4 address [127.0.0.1]
  --addresses FIRST                   clients reach each host name at an address of its own, counted up from FIRST;
                                      needs --bind 0.0.0.0 [all at the address of --bind]
  --protocols http|https|both         https is HTTP/2, or HTTP/1.1 for clients that ask for it [both]
  --ca-dir FOLDER                     holds the CA (ca.pem, ca-key.pem), made where it is missing [a temporary folder]
  --lifetimes as-written|short        short: what may be stored is stale after two seconds [as-written]
  --hints none|preload|early-hints    name what a page needs first in Link headers of its response, or in a
                                      103 response before it as well [none]
  --hints-file FILE                   read the choice of --hints from this file at each request
  --log FILE                          append a JSON object for each response

HTTP uses ports 80, 8080 and so on as in the pages' addresses; HTTPS the same and 363 more: 443, 8443 and so on.
Prints one JSON object when it serves: pages, resolver rules for a browser, and for HTTPS the CA's path and the hash of
the server's public key. SIGUSR2 closes all connections, as a server does with those that have been idle.
`;

export class UsageError extends Error {}

// Starts listeners. `options` are those of the command line; `listenPort` gives the port to listen on for a port of
// the site. Returns what is printed, and the ports: {pages, resolverRules, ca, spki, ports, close}.
export async function serveSite(options, listenPort = (port) => port) {
  const site = await import(SITES[options.site]);
  const hosts = [...new Set([...site.origins.keys()].map((origin) => origin.split(':')[0]))];
  const schemes = options.protocols === 'both' ? ['http', 'https'] : [options.protocols];
  const certificates = schemes.includes('https')
    ? makeCertificates(options['ca-dir'] ?? mkdtempSync(join(tmpdir(), 'example-ca-')), hosts) : undefined;
  const toHttps = httpsRewriter(hosts);
  const log = options.log === undefined ? undefined : openSync(options.log, 'a');
  const servers = [];
  const sockets = new Set();
  const ports = new Map(); // those of the site to those listened on
  for (const scheme of schemes) {
    for (const plainPort of new Set([...site.origins.keys()].map((origin) => Number(origin.split(':')[1] ?? 80)))) {
      const port = scheme === 'https' ? httpsPort(plainPort) : plainPort;
      const handle = handler({site, options, scheme, plainPort, toHttps, log});
      const server = scheme === 'https' ? http2.createSecureServer({...certificates, allowHTTP1: true}, handle) : http.createServer(handle);
      server.keepAliveTimeout = 60000;
      server.on('connection', (socket) => {
        sockets.add(socket);
        socket.once('close', () => sockets.delete(socket));
      });
      await new Promise((resolve, reject) => {
        server.once('error', reject);
        server.listen(listenPort(port), options.bind, resolve);
      });
      ports.set(port, server.address().port);
      servers.push(server);
    }
  }
  const start = schemes.at(-1) === 'https' ? toHttps : (text) => text;
  return {
    pages: site.pages.map(start),
    resolverRules: resolverRules(hosts, options),
    httpsPorts: schemes.includes('https') ? [...new Set([...site.origins.keys()].map((origin) => httpsPort(Number(origin.split(':')[1] ?? 80))))] : [],
    ca: certificates?.caPath,
    spki: certificates?.spki,
    ports,
    closeConnections: () => sockets.forEach((socket) => socket.destroy()),
    close: () => servers.forEach((server) => { server.close(); server.closeAllConnections?.(); }),
  };
}

const httpsPort = (port) => port + 363;

// Changes the site's addresses in a text from http to https.
function httpsRewriter(hosts) {
  const names = hosts.map((host) => host.replaceAll('.', '\\.')).join('|');
  const address = new RegExp(`http://(${names})(?::(\\d+))?(?![\\w.-])`, 'g');
  return (text) => text.replace(address, (_, host, port = '80') => `https://${host}${port === '80' ? '' : `:${httpsPort(Number(port))}`}`);
}

function resolverRules(hosts, {bind, addresses}) {
  const address = (index) => {
    if (addresses === undefined) return bind;
    const parts = addresses.split('.').map(Number);
    return [...parts.slice(0, 3), parts[3] + index].join('.');
  };
  return hosts.map((host, index) => `MAP ${host} ${address(index)}`).join(',');
}

function handler({site, options, scheme, plainPort, toHttps, log}) {
  return async (request, response) => {
    const startTime = Date.now();
    const {socket} = request;
    const socketBytesBefore = socket.bytesWritten;
    const authority = request.headers[':authority'] ?? request.headers.host ?? '';
    const origin = authority.split(':')[0] + (plainPort === 80 ? '' : `:${plainPort}`);
    const choice = options['hints-file'] === undefined ? options.hints : readFileSync(options['hints-file'], 'utf8').trim();
    const hints = choice === 'none' ? undefined : site.hints;
    const settings = {
      ...plain,
      lifetimes: options.lifetimes,
      validates: true,
      links: (path) => (hints?.get(`http://${origin}${path}`) ?? []).map((link) => (scheme === 'https' ? toHttps(link) : link)),
      earlyHints: choice === 'early-hints',
      rewrite: scheme === 'https' ? toHttps : undefined,
    };
    const isComplete = new Promise((resolve) => response.once('close', () => resolve(response.writableFinished)));
    response.on('error', () => {}); // the client has gone: the log says so
    let sent = {status: 0, headers: {}, bodyBytes: 0};
    try {
      sent = await answer(site.origins.get(origin), request, response, settings);
    } catch (error) {
      console.error(`serve: ${scheme}://${authority}${request.url}: ${error.stack}`);
      (response.stream ?? response).destroy();
    }
    const complete = await isComplete;
    if (log === undefined) return;
    const isHttp2 = request.httpVersionMajor === 2;
    const line = {
      time: startTime,
      durationMs: Date.now() - startTime,
      protocol: isHttp2 ? 'HTTP/2' : 'HTTP/1.1',
      method: request.method,
      url: `${scheme}://${authority}${request.url}`,
      status: sent.status,
      bodyBytes: complete ? sent.bodyBytes : null,
      headerBytes: !complete ? null : isHttp2 ? uncompressedBytes(sent) : socket.bytesWritten - socketBytesBefore - sent.bodyBytes,
      complete,
    };
    writeSync(log, `${JSON.stringify(line)}\n`);
  };
}

// Of the response's own header fields, as "name: value" lines.
const uncompressedBytes = ({headers}) => Object.entries(headers).reduce(
  (sum, [name, value]) => sum + [value].flat().reduce((all, each) => all + name.length + String(each).length + 4, 0), 0);

export function parseOptions(args) {
  const text = (value) => ({type: 'string', ...(value !== undefined && {default: value})});
  let values;
  try {
    ({values} = parseArgs({args, options: {
      site: text('site'), bind: text('127.0.0.1'), addresses: text(), protocols: text('both'), 'ca-dir': text(),
      lifetimes: text('as-written'), hints: text('none'), 'hints-file': text(), log: text(), help: {type: 'boolean'},
    }}));
  } catch (error) {
    throw new UsageError(`${error.message} (see --help)`);
  }
  for (const [name, choices] of Object.entries(CHOICES)) {
    if (!choices.includes(values[name])) throw new UsageError(`--${name} must be one of ${choices.join(', ')}, got '${values[name]}'`);
  }
  for (const name of ['bind', 'addresses']) {
    if (values[name] !== undefined && !isIPv4(values[name])) throw new UsageError(`--${name} must be an IPv4 address, got '${values[name]}'`);
  }
  if (Number(values.addresses?.split('.')[3]) > 200) {
    throw new UsageError(`--addresses must leave room for the host names above it, got '${values.addresses}'`);
  }
  return values;
}

async function main() {
  const options = parseOptions(process.argv.slice(2));
  if (options.help) return console.log(HELP);
  const {ports, close, closeConnections, ...told} = await serveSite(options);
  console.log(JSON.stringify(told));
  process.on('SIGUSR2', closeConnections);
  for (const signal of ['SIGINT', 'SIGTERM']) process.once(signal, () => process.exit(0));
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  try {
    await main();
  } catch (error) {
    console.error(`serve: ${error.message}`);
    process.exit(error instanceof UsageError ? 2 : 1);
  }
}
