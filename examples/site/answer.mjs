// Answers one request from the table of an origin, over HTTP/1.1 or HTTP/2. Used by the recorder's server, and with
// more of its settings by the one for measurements.
import {createHash} from 'node:crypto';
import {setTimeout as pause} from 'node:timers/promises';
import zlib from 'node:zlib';

const PAUSE_MARK = '<!--pause'; // where a resource with pauseMs stops sending for that long
const GZIP_FROM_BYTES = 400;
const SHORT_LIFETIME_S = 2;

// As the table says it, without more.
export const plain = {
  lifetimes: 'as-written', // or 'short': what may be stored without asking is stale after two seconds
  validates: false, // whether what may be stored has an ETag of its body, and is answered with 304 to who has it
  links: () => [], // values of Link headers, by path
  earlyHints: false, // whether a 103 response with these comes first, before the think time
  rewrite: undefined, // text to text, for addresses in bodies and headers
};

// Sends the whole response. Returns {status, headers, bodyBytes}, all as sent but for what the server adds.
export async function answer(resources, request, response, settings = plain) {
  const path = request.url.split('?')[0];
  const resource = resources?.get(path) ?? NOT_FOUND;
  request.resume();
  const asked = resource.asked ?? 0;
  resource.asked = asked + 1;
  const links = settings.links(path);
  if (settings.earlyHints && links.length > 0) response.writeEarlyHints({link: links});
  await pause(resource.think);
  const headers = headersOf(resource, settings);
  if (links.length > 0) headers.Link = links;
  const made = typeof resource.body === 'function' ? resource.body(asked) : resource.body;
  const body = settings.rewrite && isText(resource) ? rewritten(made, settings.rewrite) : made;
  if (isCompressed(resource, body)) headers.Vary = 'Accept-Encoding';
  if (settings.validates && isValidated(resource)) {
    headers.ETag = entityTag(body);
    if (sameTag(request.headers['if-none-match'], headers.ETag)) return send(response, 304, headers, []);
  }
  if (resource.pauseMs) return sendInTwo(response, resource, headers, body);
  return sendWhole(response, resource, headers, body, request.headers['accept-encoding'] ?? '');
}

const NOT_FOUND = {status: 404, type: 'text/plain', headers: {}, think: 0, body: Buffer.from('not found\n')};

const isText = ({type}) => !/^(image\/(png|gif)|font\/)/.test(type);
const isCompressed = (resource, body) => isText(resource) && !resource.pauseMs && body.length >= GZIP_FROM_BYTES;
const isStored = ({headers}) => headers['Cache-Control'] !== 'no-store';
const isValidated = (resource) => resource.status === 200 && isStored(resource) && Buffer.isBuffer(resource.body);

function headersOf({type, headers, expiresInSeconds}, {lifetimes, rewrite}) {
  const all = {...(type && {'Content-Type': type}), ...headers};
  if (lifetimes === 'short' && isStored({headers}) && headers['Cache-Control'] !== 'no-cache') {
    all['Cache-Control'] = `max-age=${SHORT_LIFETIME_S}`;
  } else if (expiresInSeconds) {
    all.Expires = new Date(Date.now() + expiresInSeconds * 1000).toUTCString();
  }
  if (rewrite && all.Location) all.Location = rewrite(all.Location);
  return all;
}

// What is made of a body is made once, since bodies stay the same objects.
function remembered(make) {
  const known = new WeakMap();
  return (body, ...more) => {
    if (!known.has(body)) known.set(body, make(body, ...more));
    return known.get(body);
  };
}
const rewritten = remembered((body, rewrite) => Buffer.from(rewrite(body.toString())));
const gzipped = remembered((body) => zlib.gzipSync(body));
// Weak, since it stands for the gzipped form as well.
const entityTag = remembered((body) => `W/"${createHash('sha256').update(body).digest('hex').slice(0, 16)}"`);

const sameTag = (condition, tag) => condition !== undefined && condition.split(',').some((each) => each.trim() === tag);

function sendWhole(response, resource, headers, body, accepted) {
  if (headers.Vary && /\bgzip\b/.test(accepted)) {
    headers['Content-Encoding'] = 'gzip';
    body = gzipped(body);
  }
  if (!resource.chunked && resource.status !== 204) headers['Content-Length'] = body.length;
  return send(response, resource.status, headers, [body]);
}

async function sendInTwo(response, resource, headers, body) {
  const at = body.indexOf(PAUSE_MARK);
  return send(response, resource.status, headers, [body.subarray(0, at), body.subarray(at)], resource.pauseMs);
}

async function send(response, status, headers, parts, pauseMs = 0) {
  response.writeHead(status, headers);
  let bodyBytes = 0;
  for (const part of parts) {
    if (bodyBytes > 0) await pause(pauseMs);
    if (part.length > 0) response.write(part); // end(part) would add the length that a chunked answer leaves out
    bodyBytes += part.length;
  }
  response.end();
  return {status, headers, bodyBytes};
}
