// Serves the example site: one HTTP/1.1 listener per origin, all on 127.0.0.1, on ports the system
// picks. A browser reaches them through the resolver rules that startSite hands out.
// Run by itself it prints those rules and serves until it is interrupted.
import http from 'node:http';
import {setTimeout as pause} from 'node:timers/promises';
import {pathToFileURL} from 'node:url';
import zlib from 'node:zlib';
import {origins, pages} from './routes.mjs';

const PAUSE_MARK = '<!--pause'; // where a resource with pauseMs stops sending for that long
const GZIP_FROM_BYTES = 400;

// Starts every listener. Returns {resolverRules, close}: the value for the browser's
// --host-resolver-rules, and a function that stops the site and drops its connections.
export async function startSite() {
  const servers = [];
  const rules = [];
  for (const [origin, resources] of origins) {
    const server = http.createServer((request, response) => {
      answer(resources, request, response).catch((error) => {
        console.error(`site: ${origin}${request.url}: ${error.stack}`);
        response.destroy();
      });
    });
    server.keepAliveTimeout = 30000;
    await new Promise((resolve, reject) => {
      server.once('error', reject);
      server.listen(0, '127.0.0.1', resolve);
    });
    const [host, port = '80'] = origin.split(':');
    rules.push(`MAP ${host}:${port} 127.0.0.1:${server.address().port}`);
    servers.push(server);
  }
  const close = () => servers.forEach((server) => { server.close(); server.closeAllConnections(); });
  return {resolverRules: rules.join(','), close};
}

async function answer(resources, request, response) {
  const {pathname} = new URL(request.url, 'http://site');
  const resource = resources.get(pathname);
  if (!resource) {
    response.writeHead(404, {'Content-Type': 'text/plain', 'Content-Length': 10}).end('not found\n');
    return;
  }
  request.resume();
  const asked = resource.asked ?? 0;
  resource.asked = asked + 1;
  await pause(resource.think);
  const headers = {...(resource.type && {'Content-Type': resource.type}), ...resource.headers};
  if (resource.expiresInSeconds) headers.Expires = new Date(Date.now() + resource.expiresInSeconds * 1000).toUTCString();
  const body = typeof resource.body === 'function' ? resource.body(asked) : resource.body;
  if (resource.pauseMs) return sendInTwo(response, resource, headers, body);
  sendWhole(response, resource, headers, body, request.headers['accept-encoding'] ?? '');
}

function sendWhole(response, resource, headers, body, accepted) {
  const isText = !/^(image\/(png|gif)|font\/)/.test(resource.type);
  if (isText && body.length >= GZIP_FROM_BYTES) {
    headers.Vary = 'Accept-Encoding';
    if (/\bgzip\b/.test(accepted)) {
      headers['Content-Encoding'] = 'gzip';
      body = zlib.gzipSync(body);
    }
  }
  if (!resource.chunked && resource.status !== 204) headers['Content-Length'] = body.length;
  response.writeHead(resource.status, headers);
  if (body.length > 0) response.write(body); // end(body) would add the length that chunked leaves out
  response.end();
}

async function sendInTwo(response, resource, headers, body) {
  const at = body.indexOf(PAUSE_MARK);
  response.writeHead(resource.status, headers);
  response.write(body.subarray(0, at));
  await pause(resource.pauseMs);
  response.end(body.subarray(at));
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  const site = await startSite();
  console.log(`chromium --user-data-dir=$(mktemp -d) --host-resolver-rules="${site.resolverRules}" ${pages[0]}`);
  process.once('SIGINT', site.close);
  process.once('SIGTERM', site.close);
}
