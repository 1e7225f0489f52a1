// What the site serves: one table per origin, path by path, with each resource's think time and
// freshness. Bodies are built once, when the site starts; only a few answers depend on the visit.
import {readFileSync} from 'node:fs';
import {avatar, grainPicture, mapTile, randomFrom} from './pictures.mjs';
import {
  check, data, day, font, hint, inAnHour, json, minutes, never, numbered, openToPages, picture, pixel, redirect, resource,
  silent, tableOf, year,
} from './resources.mjs';

const twoDigits = (number) => String(number).padStart(2, '0');

const file = (name) => readFileSync(new URL(`files/${name}`, import.meta.url));

const fromFile = (folder) => (path, think, freshness, more) =>
  resource(path, file(folder + path), think, freshness, more);

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
  redirect('/gallery', 'http://www.example.test/gallery/', 301, 15, day, 'html'),
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
  redirect('/cover/current', '/cover/issue-31.png', 302, 20, never, 'png'),
  picture('/cover/issue-31.png', 220, 300, 24000, 25, year),
];

// The same host on another port: a second set of connections, and the large pictures.
const largeImages = [
  picture('/full/estuary-panorama.png', 1200, 600, 2250000, 120, day),
  ...numbered(3, (i) => picture(`/full/shore-${twoDigits(i)}.png`, 720, 480, 70000 + 8000 * i, 60, day)),
];

const api = [
  data('/v1/tide.json', json({high: '11:42', low: '17:55', metres: 5.4}), 40),
  data('/v1/latest.json', latestStories, 110),
  data('/v1/poll.json', json({question: 'Buns or sandwiches? ', picture: 'http://static.example.test/img/poll.svg'}), 60),
  data('/v1/related.json', json(numbered(6, (i) => ({title: `Walk ${i}`, picture: `http://img.example.test/thumb/near-${i}.png`}))), 80),
  data('/v1/comments.json', json(Object.entries(COMMENTS).map(([name, text]) => ({name, text}))), 120, {chunked: true}),
  data('/v1/captions.json', json(numbered(18, (i) => `Shore no. ${i}`)), 70, {chunked: true}),
];

const metrics = [
  resource('/hit.gif', pixel, 15, never),
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

export const origins = tableOf({
  'www.example.test': www,
  'example.test': apex,
  'static.example.test': still,
  'fonts.example.test': fonts,
  'img.example.test': images,
  'img.example.test:8080': largeImages,
  'api.example.test:8081': api,
  'metrics.example.test:8082': metrics,
  'frames.example.test:8083': frames,
});

// The pages in the order in which a reader takes them.
export const pages = [
  'http://www.example.test/',
  'http://www.example.test/stories/the-long-ebb',
  'http://example.test/gallery',
];

// What a careful author would have the browser fetch ahead: the sheets (those found in sheets as well), the fonts of
// what is seen first, the picture at the top. No page has a script that holds it up.
const fontsOfHeadings = hint('font', 'http://fonts.example.test/tideline-display.woff2', 'http://fonts.example.test/tideline-text-regular.woff2');
const sheets = (...names) => hint('style', ...names.map((name) => `http://static.example.test/css/${name}.css`));
export const hints = new Map(Object.entries({
  'http://www.example.test/': [...sheets('base', 'type', 'grid', 'home'), ...fontsOfHeadings, ...hint('image', 'http://img.example.test/hero/headland.png')],
  'http://www.example.test/stories/the-long-ebb': [...sheets('base', 'type', 'grid', 'article'), ...fontsOfHeadings, ...hint('image', 'http://img.example.test/story/ebb-1.png')],
  'http://www.example.test/gallery/': [...sheets('base', 'type', 'grid', 'gallery'), ...fontsOfHeadings],
}));
