// Draws the floors of src/ as a picture: a box for each folder, a line from each folder to those
// that it includes. Lines to console/, text/ and platform/, which nearly everybody uses, are thin.
import { floorOf, floors, passages } from './floors.mjs';

const width = 860;
const rowHeight = 92;
const box = { width: 150, height: 38 };
const what = {
  supervisor: 'start-up, monitoring, reports',
  install: 'installing and replacing',
  dumps: 'ProcDump',
  report: 'host report, archive, upload',
  hostsettings: 'crash dialogs',
  process: 'finding and ending',
  net: 'downloads, versions',
  files: 'trees and paths',
  zip: 'reading and writing',
  console: 'log, bar, menu',
  text: 'UTF-16 and UTF-8',
  platform: 'the seam to Windows',
};
const everywhere = ['console', 'text', 'platform'];

function placeOf(folder) {
  const row = floorOf(folder);
  const floor = floors[row];
  const gap = width / floor.length;
  return { x: gap * (floor.indexOf(folder) + 0.5), y: 20 + row * rowHeight };
}

export function drawFloors() {
  const parts = [];
  for (const [from, to] of passages()) {
    const start = placeOf(from);
    const end = placeOf(to);
    const thin = everywhere.includes(to);
    // A line past a whole floor swings around the boxes in its way.
    const swing = (floorOf(to) - floorOf(from) - 1) * (start.x <= width / 2 ? -34 : 34);
    const middle = { x: (start.x + end.x) / 2 + swing, y: (start.y + box.height + end.y) / 2 };
    parts.push(`<path class="${thin ? 'thin' : 'thick'}" d="M${start.x} ${start.y + box.height}Q${middle.x} ${middle.y} ${end.x} ${end.y}"/>`);
  }
  for (const folder of floors.flat()) {
    const { x, y } = placeOf(folder);
    parts.push(`<rect x="${x - box.width / 2}" y="${y}" width="${box.width}" height="${box.height}" rx="5"/>`
      + `<text class="name" x="${x}" y="${y + 16}">${folder}/</text>`
      + `<text x="${x}" y="${y + 30}">${what[folder]}</text>`);
  }
  return `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 ${width} ${20 + floors.length * rowHeight - 30}" font-family="sans-serif">
<style>rect{fill:#f4f7fb;stroke:#3b5b7e}text{text-anchor:middle;font-size:10px;fill:#333}.name{font-size:13px;font-weight:bold;fill:#1d3550}path{fill:none;stroke:#3b5b7e}.thick{stroke-width:1.4}.thin{stroke-width:.5;stroke:#9fb2c8}</style>
<rect width="100%" height="100%" style="fill:#fff;stroke:none"/>
${parts.join('\n')}
</svg>
`;
}

if (import.meta.url === `file://${process.argv[1]}`) process.stdout.write(drawFloors());
