// How the rows of a site's table are made: a path with its body, think time and freshness. Bodies are built once, when
// the site starts.
import {coastPicture, randomBytes, seedOf} from './pictures.mjs';

const TYPES = {
  html: 'text/html; charset=utf-8',
  css: 'text/css; charset=utf-8',
  js: 'text/javascript; charset=utf-8',
  json: 'application/json',
  txt: 'text/plain',
  svg: 'image/svg+xml',
  png: 'image/png',
  gif: 'image/gif',
  woff2: 'font/woff2',
};

// Freshness as the response headers tell it; {} says nothing, which leaves it to heuristics.
export const year = {'Cache-Control': 'public, max-age=31536000, immutable'};
export const day = {'Cache-Control': 'max-age=86400'};
export const minutes = {'Cache-Control': 'max-age=300'};
export const check = {'Cache-Control': 'no-cache', ETag: '"tideline-31"'};
export const never = {'Cache-Control': 'no-store'};
export const silent = {'Last-Modified': 'Mon, 02 Jun 2025 08:00:00 GMT'};
export const inAnHour = {expiresInSeconds: 3600}; // an Expires header instead of Cache-Control

export const openToPages = {'Access-Control-Allow-Origin': '*'};
export const pixel = Buffer.from('R0lGODlhAQABAIAAAP///wAAACH5BAEAAAAALAAAAAABAAEAAAICRAEAOw==', 'base64');

export const numbered = (count, make) => Array.from({length: count}, (_, i) => make(i + 1));
export const json = (value) => Buffer.from(JSON.stringify(value, null, 1));

// A resource: body is a Buffer, or a function of how often the resource was asked for before.
// think is in milliseconds. Text is gzipped for clients that take it.
export function resource(path, body, think, freshness, more = {}) {
  const {expiresInSeconds, ...headers} = freshness;
  const {headers: moreHeaders = {}, ...rest} = more;
  const type = TYPES[(more.extension ?? path.split('.').pop())];
  return [path, {body, think, type, status: 200, expiresInSeconds, headers: {...headers, ...moreHeaders}, ...rest}];
}

export const picture = (path, width, height, bytes, think, freshness) =>
  resource(path, coastPicture(seedOf(path), width, height, bytes), think, freshness);

export const font = (path, bytes, think) =>
  resource(path, Buffer.concat([Buffer.from('wOF2'), randomBytes(seedOf(path), bytes - 4)]), think, year, {headers: openToPages});

export const data = (path, body, think, more = {}) =>
  resource(path, body, think, never, {extension: 'json', ...more, headers: openToPages});

export const redirect = (path, location, status, think, freshness, extension) =>
  resource(path, Buffer.alloc(0), think, freshness, {extension, status, headers: {Location: location}});

// The table of a site: origin (host, with the port where it is not 80) to path to resource.
export const tableOf = (rowsOfOrigins) =>
  new Map(Object.entries(rowsOfOrigins).map(([origin, rows]) => [origin, new Map(rows)]));

// What a page's author lists for the browser to fetch ahead: the value of a Link header for each.
export const hint = (as, ...urls) =>
  urls.map((url) => `<${url}>; rel=preload; as=${as}${as === 'font' ? '; crossorigin' : ''}`);
