// The floors of src/ and their connections, read from the #include lines.
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';

// From the top floor to the ground; an #include goes downwards or stays in its folder.
export const floors = [
  ['supervisor'],
  ['install'],
  ['dumps', 'report', 'hostsettings'],
  ['process', 'net', 'files', 'zip'],
  ['console'],
  ['text'],
  ['platform'],
];
export const floorOf = (folder) => floors.findIndex((floor) => floor.includes(folder));

export function includes(path) {
  return [...readFileSync(path, 'utf8').matchAll(/^#include ["<]([^">]+)[">]/gm)].map((match) => match[1]);
}

export function sources() {
  return execFileSync('git', ['ls-files', 'src'], { encoding: 'utf8' }).trim().split('\n')
    .filter((path) => /\.(cpp|h)$/.test(path));
}

// Every pair of folders of which the first includes a header of the second, once.
export function passages() {
  const found = new Map();
  for (const path of sources()) {
    // The Windows side is behind the seam; nothing above knows it.
    if (path.startsWith('src/platform/windows/')) continue;
    const from = path.split('/')[1];
    for (const included of includes(path)) {
      const to = included.split('/')[0];
      if (to !== from && floorOf(from) >= 0 && floorOf(to) >= 0) found.set(`${from} ${to}`, [from, to]);
    }
  }
  return [...found.keys()].sort().map((key) => found.get(key));
}
