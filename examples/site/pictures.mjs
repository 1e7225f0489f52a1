// The site's pictures and other opaque bodies, all drawn from a seed: the same seed gives the same
// bytes on every machine with the same zlib, and the same length on every machine.
import zlib from 'node:zlib';

const PNG_SIGNATURE = Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]);
const CHUNK_OVERHEAD = 12; // length, type and checksum around a PNG chunk's data

// Sky at the top, sky at the horizon, sea: one row for each time of day.
const PALETTES = [
  [[252, 214, 170], [246, 158, 120], [70, 92, 128]],
  [[120, 176, 220], [214, 234, 244], [44, 110, 148]],
  [[44, 52, 96], [206, 112, 118], [28, 44, 84]],
  [[176, 190, 200], [226, 230, 230], [96, 124, 132]],
];

// A small seeded generator (mulberry32); returns a function that yields numbers in [0, 1).
export function randomFrom(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let t = state;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
}

export function seedOf(text) {
  let hash = 2166136261;
  for (const byte of Buffer.from(text)) hash = Math.imul(hash ^ byte, 16777619);
  return hash >>> 0;
}

export function randomBytes(seed, count) {
  const random = randomFrom(seed);
  const bytes = Buffer.alloc(count);
  for (let i = 0; i < count; ++i) bytes[i] = Math.floor(random() * 256);
  return bytes;
}

export const mix = (a, b, t) => a.map((from, i) => Math.round(from + (b[i] - from) * t));

function chunk(type, data) {
  const body = Buffer.concat([Buffer.from(type, 'latin1'), data]);
  const framed = Buffer.alloc(body.length + 8);
  framed.writeUInt32BE(data.length, 0);
  body.copy(framed, 4);
  framed.writeUInt32BE(crc32(body), body.length + 4);
  return framed;
}

function crc32(bytes) {
  let crc = 0xffffffff;
  for (const byte of bytes) crc = CRC_TABLE[(crc ^ byte) & 0xff] ^ (crc >>> 8);
  return (crc ^ 0xffffffff) >>> 0;
}

const CRC_TABLE = Uint32Array.from({length: 256}, (_, n) => {
  for (let bit = 0; bit < 8; ++bit) n = n & 1 ? 0xedb88320 ^ (n >>> 1) : n >>> 1;
  return n;
});

// An RGB PNG of `colourAt(x, y)`, brought to exactly `bytes` bytes by an ancillary chunk of seeded
// bytes that viewers skip. Throws when the picture alone is already larger.
export function png(seed, width, height, bytes, colourAt) {
  const rows = Buffer.alloc(height * (1 + width * 3));
  for (let y = 0, at = 0; y < height; ++y) {
    rows[at++] = 0; // no row filter
    for (let x = 0; x < width; ++x) for (const part of colourAt(x, y)) rows[at++] = part;
  }
  const header = Buffer.alloc(13);
  header.writeUInt32BE(width, 0);
  header.writeUInt32BE(height, 4);
  header.set([8, 2, 0, 0, 0], 8); // 8 bits per part, RGB, default methods, not interlaced
  const before = [PNG_SIGNATURE, chunk('IHDR', header), chunk('IDAT', zlib.deflateSync(rows, {level: 9}))];
  const end = chunk('IEND', Buffer.alloc(0));
  const used = before.reduce((sum, part) => sum + part.length, end.length);
  const padding = bytes - used - CHUNK_OVERHEAD;
  if (padding < 0) throw new Error(`a ${width}x${height} picture needs ${used} bytes, asked for ${bytes}`);
  return Buffer.concat([...before, chunk('tiDe', randomBytes(seed, padding)), end]);
}

// A coast at some time of day: sky, sun, sea and two headlands.
export function coastPicture(seed, width, height, bytes) {
  const random = randomFrom(seed);
  const [sky, horizon, sea] = PALETTES[Math.floor(random() * PALETTES.length)];
  const seaLevel = height * (0.5 + 0.2 * random());
  const sun = {x: width * (0.2 + 0.6 * random()), y: seaLevel * (0.3 + 0.6 * random()), r: height * 0.07};
  const headlands = [0.35, 0.6].map((shade) => ({
    colour: mix(sea, [20, 32, 30], shade),
    side: random() < 0.5 ? 0 : width,
    reach: width * (0.35 + 0.4 * random()),
    rise: height * (0.12 + 0.2 * random()) * (1.2 - shade),
    wave: 3 + 5 * random(),
    foot: seaLevel + height * 0.3 * (shade - 0.35),
  }));
  const isLand = (land, x, y) => {
    const along = 1 - Math.abs(x - land.side) / land.reach;
    if (along <= 0 || y > land.foot + height * 0.05 * along) return false;
    const bumps = 1 + 0.25 * Math.sin(along * land.wave * 2) + 0.08 * Math.sin(along * land.wave * 9);
    return y > land.foot - land.rise * Math.sqrt(along) * bumps;
  };
  return png(seed, width, height, bytes, (x, y) => {
    const land = headlands.findLast((candidate) => isLand(candidate, x, y));
    if (land) return land.colour;
    if (y > seaLevel) return mix(sea, horizon, Math.max(0, 0.5 - (y - seaLevel) / (height - seaLevel)));
    if (Math.hypot(x - sun.x, y - sun.y) < sun.r) return [255, 244, 214];
    return mix(sky, horizon, y / seaLevel);
  });
}

// A square of one colour with some grain, made to be repeated behind a page.
export function grainPicture(seed, size, bytes, colour, grain) {
  const random = randomFrom(seed);
  return png(seed, size, size, bytes, () => {
    const darker = Math.floor(random() * grain);
    return colour.map((part) => part - darker);
  });
}

// One square of a coast map; neighbouring squares join up.
export function mapTile(column, row, size, bytes) {
  return png(seedOf(`tile ${column} ${row}`), size, size, bytes, (x, y) => {
    const [east, south] = [column * size + x, row * size + y];
    const shore = size + 46 * Math.sin(east / 61) + 18 * Math.sin(east / 17 + 1);
    if (Math.abs(south - shore) < 3) return [238, 220, 168];
    if (south < shore) return Math.abs(south - shore + 40) < 1.5 ? [200, 90, 70] : [206, 222, 184];
    return south > shore + 50 ? [128, 176, 206] : [160, 202, 222];
  });
}

export function avatar(name) {
  const hue = seedOf(name) % 360;
  return `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 48 48">
  <circle cx="24" cy="24" r="24" fill="hsl(${hue} 45% 62%)"/>
  <text x="24" y="31" font-family="sans-serif" font-size="20" text-anchor="middle" fill="#fff">${name[0].toUpperCase()}</text>
</svg>
`;
}
