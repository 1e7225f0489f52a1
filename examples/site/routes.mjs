// What the site serves: one table per origin, path by path, with each resource's think time and
// freshness. Bodies are built once, when the site starts; only a few answers depend on the visit.
import {readFileSync} from 'node:fs';
import {avatar, coastPicture, grainPicture, mapTile, randomBytes, randomFrom, seedOf} from './pictures.mjs';

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
const year = {'Cache-Control': 'public, max-age=31536000, immutable'};
const day = {'Cache-Control': 'max-age=86400'};
const minutes = {'Cache-Control': 'max-age=300'};
const check = {'Cache-Control': 'no-cache', ETag: '"tideline-31"'};
const never = {'Cache-Control': 'no-store'};
const silent = {'Last-Modified': 'Mon, 02 Jun 2025 08:00:00 GMT'};
const inAnHour = {expiresInSeconds: 3600}; // an Expires header instead of Cache-Control

const openToPages = {'Access-Control-Allow-Origin': '*'};
const twoDigits = (number) => String(number).padStart(2, '0');
const numbered = (count, make) => Array.from({length: count}, (_, i) => make(i + 1));

// A resource: body is a Buffer, or a function of how often the resource was asked for before.
// think is in milliseconds. Text is gzipped for clients that take it.
function resource(path, body, think, freshness, more = {}) {
  const {expiresInSeconds, ...headers} = freshness;
  const {headers: moreHeaders = {}, ...rest} = more;
  const type = TYPES[(more.extension ?? path.split('.').pop())];
  return [path, {body, think, type, status: 200, expiresInSeconds, headers: {...headers, ...moreHeaders}, ...rest}];
}

const file = (name) => readFileSync(new URL(`files/${name}`, import.meta.url));
const json = (value) => Buffer.from(JSON.stringify(value, null, 1));

const fromFile = (folder) => (path, think, freshness, more) =>
  resource(path, file(folder + path), think, freshness, more);

const picture = (path, width, height, bytes, think, freshness) =>
  resource(path, coastPicture(seedOf(path), width, height, bytes), think, freshness);

const font = (path, bytes, think) =>
  resource(path, Buffer.concat([Buffer.from('wOF2'), randomBytes(seedOf(path), bytes - 4)]), think, year, {headers: openToPages});

const answer = (path, body, think, more = {}) =>
  resource(path, body, think, never, {extension: 'json', ...more, headers: openToPages});

// A year of tide heights, a quarter of an hour apart: a script that is large for an honest reason.
function tideTable() {
  const random = randomFrom(31);
  const heights = numbered(365 * 96, (i) => (3 + 2.4 * Math.sin(i / 7.9) + random() * 0.2).toFixed(2));
  return Buffer.from(`var tideTable = [${heights.join(',')}];\n`);
}

const LATEST = ['A storm, briefly', 'Oyster money', 'New posts on the causeway', 'Who owns the foreshore?', 'Seals, again'];

// Three of the five stories, one step further at every asking.
const latestStories = (asked) => json([0, 1, 2].map((i) => {
  const at = (asked + i) % LATEST.length;
  return {title: LATEST[at], picture: `http://img.example.test/thumb/latest-${at + 1}.png`};
}));

const COMMENTS = {
  anwen: 'Did it last week. Bring the buns.', bashir: 'The third post has moved since.', carla: 'My dog overruled the tide table.',
  dmitri: 'Three hours is generous in April.', edda: 'Lovely panorama!', femi: 'Is the pier safe?', greta: 'No.', hugo: 'Define safe.',
};

const www = [
  resource('/', file('www/home.html'), 70, check, {extension: 'html', headers: {'Set-Cookie': 'reader=r31; Path=/; Max-Age=86400'}}),
  resource('/stories/the-long-ebb', file('www/story.html'), 60, never, {extension: 'html', pauseMs: 80}),
  resource('/gallery/', file('www/gallery.html'), 90, minutes, {extension: 'html'}),
];

const apex = [
  resource('/gallery', Buffer.alloc(0), 15, day, {extension: 'html', status: 301, headers: {Location: 'http://www.example.test/gallery/'}}),
];

const staticFile = fromFile('static');
const still = [
  ['base', 20, day], ['type', 25, day], ['grid', 15, inAnHour], ['home', 20, minutes], ['article', 20, day],
  ['gallery', 20, silent], ['lightbox', 30, day], ['print', 10, silent],
].map(([name, think, freshness]) => staticFile(`/css/${name}.css`, think, freshness)).concat([
  ['app', 25, check], ['latest', 30, minutes], ['poll', 20, inAnHour], ['comments', 30, day],
  ['related', 25, day], ['curve', 15, silent], ['lightbox', 35, day],
].map(([name, think, freshness]) => staticFile(`/js/${name}.js`, think, freshness)), [
  resource('/js/tides.js', tideTable(), 40, year),
  ...['logo', 'waves', 'rope', 'quote', 'frame', 'poll'].map((name) => staticFile(`/img/${name}.svg`, 10, day)),
  resource('/img/paper.png', grainPicture(1, 64, 3100, [248, 242, 230], 4), 10, year),
  resource('/img/cork.png', grainPicture(2, 64, 6400, [206, 170, 124], 24), 10, silent),
  picture('/img/postcard.png', 80, 60, 5200, 15, inAnHour),
  resource('/img/badge-2019.png', Buffer.from('no such badge\n'), 12, {}, {extension: 'txt', status: 404}),
]);

const fonts = [
  font('/tideline-text-regular.woff2', 31000, 20),
  font('/tideline-text-bold.woff2', 33400, 20),
  font('/tideline-display.woff2', 22800, 25),
];

const images = [
  picture('/hero/headland.png', 960, 480, 98000, 35, day),
  ...numbered(10, (i) => picture(`/thumb/walk-${twoDigits(i)}.png`, 320, 200, 11000 + 900 * i, 20 + 5 * (i % 4), i % 2 ? day : silent)),
  ...numbered(5, (i) => picture(`/thumb/latest-${i}.png`, 144, 90, 6000 + 400 * i, 25, minutes)),
  ...numbered(6, (i) => picture(`/thumb/near-${i}.png`, 160, 100, 7000 + 300 * i, 20, inAnHour)),
  ...numbered(5, (i) => picture(`/story/ebb-${i}.png`, 640, 400, 38000 + 6000 * i, 45, day)),
  ...numbered(18, (i) => picture(`/shores/shore-${twoDigits(i)}.png`, 240, 160, 9000 + 350 * i, 15 + 7 * (i % 5), i % 3 ? year : check)),
  ...Object.keys(COMMENTS).map((name) => resource(`/avatars/${name}.svg`, Buffer.from(avatar(name)), 15, day)),
  resource('/cover/current', Buffer.alloc(0), 20, never, {extension: 'png', status: 302, headers: {Location: '/cover/issue-31.png'}}),
  picture('/cover/issue-31.png', 220, 300, 24000, 25, year),
];

// The same host on another port: a second set of connections, and the large pictures.
const largeImages = [
  picture('/full/estuary-panorama.png', 1200, 600, 2250000, 120, day),
  ...numbered(3, (i) => picture(`/full/shore-${twoDigits(i)}.png`, 720, 480, 70000 + 8000 * i, 60, day)),
];

const api = [
  answer('/v1/tide.json', json({high: '11:42', low: '17:55', metres: 5.4}), 40),
  answer('/v1/latest.json', latestStories, 110),
  answer('/v1/poll.json', json({question: 'Buns or sandwiches? ', picture: 'http://static.example.test/img/poll.svg'}), 60),
  answer('/v1/related.json', json(numbered(6, (i) => ({title: `Walk ${i}`, picture: `http://img.example.test/thumb/near-${i}.png`}))), 80),
  answer('/v1/comments.json', json(Object.entries(COMMENTS).map(([name, text]) => ({name, text}))), 120, {chunked: true}),
  answer('/v1/captions.json', json(numbered(18, (i) => `Shore no. ${i}`)), 70, {chunked: true}),
];

const metrics = [
  resource('/hit.gif', Buffer.from('R0lGODlhAQABAIAAAP///wAAACH5BAEAAAAALAAAAAABAAEAAAICRAEAOw==', 'base64'), 15, never),
  resource('/timing', Buffer.alloc(0), 15, never, {status: 204, headers: openToPages}),
];

const frameFile = fromFile('frames');
const frames = [
  frameFile('/sponsor.html', 65, never),
  frameFile('/sponsor.css', 20, day),
  frameFile('/sponsor.js', 20, day),
  frameFile('/boots.svg', 15, day),
  frameFile('/stripes.svg', 10, silent),
  frameFile('/deal.svg', 55, never),
  frameFile('/map.html', 45, minutes),
  frameFile('/map.js', 20, day),
  ...[0, 1].flatMap((row) => [0, 1, 2].map((column) =>
    resource(`/tiles/12/${column}/${row}.png`, mapTile(column, row, 128, 9000 + 500 * column), 30, year))),
];

// Origin (host, with the port where it is not 80) to path to resource.
export const origins = new Map(Object.entries({
  'www.example.test': www,
  'example.test': apex,
  'static.example.test': still,
  'fonts.example.test': fonts,
  'img.example.test': images,
  'img.example.test:8080': largeImages,
  'api.example.test:8081': api,
  'metrics.example.test:8082': metrics,
  'frames.example.test:8083': frames,
}).map(([origin, rows]) => [origin, new Map(rows)]));

// The pages in the order in which a reader takes them.
export const pages = [
  'http://www.example.test/',
  'http://www.example.test/stories/the-long-ebb',
  'http://example.test/gallery',
];
