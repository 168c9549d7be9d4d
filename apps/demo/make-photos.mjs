// Makes a few files that look like photographs to an encoder: gradients, soft shapes and grain.
//     node make-photos.mjs FOLDER
import fs from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';

const sharp = createRequire(new URL('../../devstack/package.json', import.meta.url))('sharp');

const photos = [
  // orientation 6: the camera was held upright, a viewer turns the picture by 90 degrees
  { name: 'portrait, camera held upright.jpg', width: 1600, height: 1200, sky: '#7fa8d8', ground: '#3c5a2c',
    encode: (image) => image.withMetadata({ orientation: 6 }).jpeg({ quality: 88 }) },
  { name: 'harbour.jpg', width: 2048, height: 1365, sky: '#f2b880', ground: '#2a3f5f',
    encode: (image) => image.jpeg({ quality: 90 }) },
  { name: 'Küste & Möwen.png', width: 900, height: 600, sky: '#b8d4e8', ground: '#c8b48a',
    encode: (image) => image.png({ compressionLevel: 6 }) },
];

const shapes = ({ width, height, sky, ground }) => Buffer.from(`
<svg xmlns="http://www.w3.org/2000/svg" width="${width}" height="${height}" viewBox="0 0 100 100" preserveAspectRatio="none">
  <defs><linearGradient id="g" x1="0" y1="0" x2="0.2" y2="1">
    <stop offset="0" stop-color="${sky}"/><stop offset="0.62" stop-color="#f6ead8"/>
    <stop offset="0.63" stop-color="${ground}"/><stop offset="1" stop-color="#101418"/></linearGradient></defs>
  <rect width="100" height="100" fill="url(#g)"/>
  <circle cx="72" cy="26" r="7" fill="#fff4d0" opacity="0.9"/>
  <path d="M0 66 Q18 44 34 63 T64 60 T100 66 V72 H0 Z" fill="${ground}" opacity="0.8"/>
  <ellipse cx="38" cy="84" rx="22" ry="5" fill="#000" opacity="0.25"/>
</svg>`);

const folder = process.argv[2];
fs.mkdirSync(folder, { recursive: true });
for (const photo of photos) {
  const { width, height } = photo;
  const grain = await sharp({ create: { width, height, channels: 3, background: '#808080',
    noise: { type: 'gaussian', mean: 128, sigma: 14 } } }).png({ compressionLevel: 1 }).toBuffer();
  const image = sharp(await sharp(shapes(photo)).blur(1.2).toBuffer()).flatten()
    .composite([{ input: grain, blend: 'soft-light' }]);
  await photo.encode(image).toFile(path.join(folder, photo.name));
}
