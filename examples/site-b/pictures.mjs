// The shop's pictures: kettles in front of a wall, drawn from a seed.
import {mix, png, randomFrom, seedOf} from '../site/pictures.mjs';

const METALS = [[184, 115, 51], [196, 164, 88], [150, 156, 162], [60, 66, 74], [172, 60, 48]];

// Exactly `bytes` bytes. `turn`, from 0 to 1, is how far the kettle is turned; its spout is to the right at 0.
export function kettlePicture(path, size, bytes, turn = 0) {
  const random = randomFrom(seedOf(path.replace(/-\d+\.png$/, '')));  // all pictures of a kettle show the same one
  const metal = METALS[Math.floor(random() * METALS.length)];
  const wall = mix([236, 228, 214], metal, 0.1 + 0.15 * random());
  const [wide, high, slope] = [0.26 + 0.06 * random(), 0.2 + 0.1 * random(), 0.6 + 0.5 * random()];
  const side = Math.cos(turn * 2 * Math.PI);
  return png(seedOf(path), size, size, bytes, (px, py) => {
    const [x, y] = [px / size - 0.5, py / size - 0.58];
    const inBody = (x / wide) ** 2 + (y / high) ** 2 < 1 && y < high * 0.8;
    const inLid = Math.hypot(x, y + high) < 0.035;
    const along = x * Math.sign(side) - wide * 0.8 * Math.abs(side);
    const inSpout = along > 0 && along < 0.18 * Math.abs(side) && Math.abs(y + along * slope) < 0.035;
    const ring = Math.hypot(x / wide, (y + high * 0.7) / (high * 1.1));
    if (inLid) return mix(metal, [20, 20, 20], 0.5);
    if (inBody || inSpout) return mix(metal, [255, 250, 240], Math.max(0, 0.5 - 4 * Math.hypot(x + 0.1, y + 0.08)));
    if (y < -high * 0.7 && ring > 0.9 && ring < 1.05) return [48, 40, 36];
    return y > high * 0.8 ? mix(wall, [90, 70, 50], 0.5) : wall;
  });
}

export const brandSign = (name) => Buffer.from(
  `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 160 48"><rect width="160" height="48" rx="${seedOf(name) % 24}" fill="none" stroke="#333"/>
<text x="80" y="31" font-family="sans-serif" font-size="20" letter-spacing="${seedOf(name) % 5}" text-anchor="middle">${name}</text></svg>\n`);
