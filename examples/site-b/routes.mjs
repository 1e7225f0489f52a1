// The second site, a shop: what it serves, path by path. It is kept aside: nothing in the plugin, the host or the
// replay was tuned on it, so what is measured on it shows how they do on a site that they do not know.
import {readFileSync} from 'node:fs';
import {grainPicture} from '../site/pictures.mjs';
import {
  check, data, day, font, hint, inAnHour, json, minutes, never, numbered, openToPages, pixel, redirect, resource, silent,
  tableOf, year,
} from '../site/resources.mjs';
import {frontPage, productPage} from './pages.mjs';
import {brandSign, kettlePicture} from './pictures.mjs';

const NAMES = ['Whistler', 'Pot Belly', 'Long Neck', 'Camp', 'Samovar', 'Stove Top', 'Goose', 'Dripper'];
const BRANDS = ['ORME', 'Talbot', 'Vapor', 'Ember', 'Quill', 'Dunmore'];
const FRAMES = 12;
const PICKS = 8;

const kettles = numbered(30, (i) => ({id: `no-${i}`, name: `${NAMES[i % NAMES.length]} no. ${i}`, pounds: 20 + (i * 37) % 90}));
const onFront = kettles.slice(0, 24);
const seven = kettles[6];
const views = numbered(5, (i) => `no-7-${480 + i}.png`); // an address for each side that is seen
const file = (name) => readFileSync(new URL(`files/${name}`, import.meta.url));
const fromFile = (name, think, freshness, more) => resource(`/${name}`, file(name), think, freshness, more);
const drawing = (name, shape) => resource(`/${name}.svg`,
  Buffer.from(`<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 40 40" fill="none" stroke="#7a4a20" stroke-width="3">${shape}</svg>\n`), 10, day);

const www = [
  resource('/', Buffer.from(frontPage(onFront, BRANDS)), 110, never, {extension: 'html', headers: {'Set-Cookie': 'basket=31; Path=/'}}),
  resource('/kettles/no-7', Buffer.from(productPage(seven, views, kettles.slice(10, 16))), 70, check, {extension: 'html', pauseMs: 60}),
  data('/basket.json', json({pieces: 2, total: 9850}), 65),
];

const script = {headers: openToPages};
const assets = [
  ...['consent', 'main', 'basket', 'money', 'picks', 'stars', 'spin'].map((name, i) =>
    fromFile(`${name}.js`, 15 + 3 * i, [minutes, check, day, year, day, silent, inAnHour][i], {...script, chunked: name === 'stars'})),
  ...['shop', 'type', 'front', 'product'].map((name, i) => fromFile(`${name}.css`, 20, [day, day, check, inAnHour][i])),
  font('/fonts/steam-regular.woff2', 26400, 15),
  font('/fonts/steam-bold.woff2', 27900, 15),
  font('/fonts/brass.woff2', 41800, 20),
  resource('/linen.png', grainPicture(8, 64, 5200, [246, 241, 232], 6), 10, year),
  drawing('logo', '<circle cx="20" cy="24" r="12"/><path d="M10 14q10-16 20 0"/>'),
  drawing('lens', '<circle cx="17" cy="17" r="9"/><path d="M24 24l10 10"/>'),
  drawing('basket', '<path d="M6 16h28l-4 16H10z"/>'),
  drawing('steam', '<path d="M12 36q-6-8 0-16t0-16M26 36q-6-8 0-16t0-16"/>'),
  drawing('tag', '<path d="M4 20L20 4h16v16L20 36z"/>'),
  ...BRANDS.map((name) => resource(`/brands/${name}.svg`, brandSign(name), 10, silent)),
];

const kettle = (path, size, bytes, think, freshness, turn) =>
  resource(path, kettlePicture(path, size, bytes, turn), think, freshness);
const media = [
  ...kettles.map(({id}, i) => kettle(`/k/${id}-240.png`, 240, 9000 + 530 * (i % 11), 15 + 4 * (i % 6), [day, year, silent][i % 3])),
  ...views.map((view, i) => kettle(`/k/${view}`, 480, 52000 + 7000 * i, 40, day, i / 10)),
  ...numbered(FRAMES, (i) => kettle(`/spin/no-7-${i}.png`, 200, 12000, 20, inAnHour, i / FRAMES)),
  redirect('/banner/today', '/banner/autumn.png', 302, 25, never, 'png'),
  kettle('/banner/autumn.png', 480, 118000, 45, day, 0.1),
];

// Eight of the thirty, two further at every asking.
const picksOf = (asked) => json(numbered(PICKS, (i) => {
  const {id, name, pounds} = kettles[(22 + 2 * asked + i) % kettles.length];
  return {picture: `http://media.kettle.test/k/${id}-240.png`, name, pence: pounds * 100};
}));

const shopData = [
  data('/picks.json', picksOf, 130),
  data('/ratings.json', json(Object.fromEntries(kettles.map(({id}, i) => [id, 2 + (i * 7) % 4]))), 60, {chunked: true}),
  data('/frames.json', json({frames: numbered(FRAMES, (i) => `http://media.kettle.test/spin/no-7-${i}.png`)}), 80),
  resource('/reviews.json', json(numbered(4, (i) => ({picture: `http://media.kettle.test/k/no-${i + 20}-240.png`, text: `Sings in ${'ABCD'[i - 1]} flat.`}))), 90, minutes,
    {headers: openToPages}),
];

const adverts = [
  fromFile('tag.js', 45, minutes),
  redirect('/sync', '/px.gif', 302, 30, never, 'gif'),
  resource('/px.gif', pixel, 20, never),
  data('/bid.json', (asked) => json({creative: `http://tags.adverts.test:8082/creative-${asked % 3}.png`}), 140),
  ...[0, 1, 2].map((i) => kettle(`/creative-${i}.png`, 120, 14000 + 900 * i, 30, day)),
];

export const origins = tableOf({
  'www.kettle.test': www,
  'assets.kettle.test': assets,
  'media.kettle.test': media,
  'data.kettle.test:8081': shopData,
  'tags.adverts.test:8082': adverts,
});

export const pages = ['http://www.kettle.test/', 'http://www.kettle.test/kettles/no-7'];

const asset = (path) => `http://assets.kettle.test/${path}`;
const ofEveryPage = [
  ...hint('style', asset('shop.css'), asset('type.css')),
  ...hint('script', asset('consent.js')),
  ...hint('font', asset('fonts/steam-regular.woff2'), asset('fonts/brass.woff2')),
];
export const hints = new Map(Object.entries({
  [pages[0]]: [...ofEveryPage, ...hint('style', asset('front.css')), ...hint('image', 'http://media.kettle.test/banner/autumn.png')],
  [pages[1]]: [...ofEveryPage, ...hint('style', asset('product.css')), ...hint('image', `http://media.kettle.test/k/${views[0]}`)],
}));
