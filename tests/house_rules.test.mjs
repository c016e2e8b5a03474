// The rules of the house that no compiler checks.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

const tracked = execFileSync('git', ['ls-files'], { encoding: 'utf8' }).trim().split('\n');
const read = (path) => readFileSync(path, 'utf8');
const cpp = tracked.filter((path) => /\.(cpp|h)$/.test(path));
const sources = cpp.filter((path) => path.startsWith('src/'));

// From the top floor to the ground; an #include goes downwards or stays in its folder.
const floors = [
  ['supervisor'],
  ['install'],
  ['dumps', 'report', 'hostsettings'],
  ['process', 'net', 'files', 'zip'],
  ['console'],
  ['text'],
  ['platform'],
];
const floorOf = (folder) => floors.findIndex((floor) => floor.includes(folder));

function includes(path) {
  return [...read(path).matchAll(/^#include ["<]([^">]+)[">]/gm)].map((match) => match[1]);
}

test('includes go down the floors only', () => {
  const upward = [];
  for (const path of sources) {
    const folder = path.split('/')[1];
    if (!path.startsWith(`src/${folder}/`)) continue;
    assert.notEqual(floorOf(folder), -1, `${path}: its folder belongs to no floor`);
    for (const included of includes(path)) {
      const target = included.split('/')[0];
      if (target === folder || floorOf(target) === -1) continue;
      const inWindowsSide = path.startsWith('src/platform/windows/') && target === 'text';
      if (floorOf(target) <= floorOf(folder) && !inWindowsSide) {
        upward.push(`${path} includes ${included}`);
      }
    }
  }
  assert.deepEqual(upward, []);
});

test('the headers of Windows stay in their room', () => {
  const strays = sources
    .filter((path) => !path.startsWith('src/platform/windows/') && path !== 'src/main.cpp')
    .filter((path) => includes(path).some((name) => /^(windows|winsock2?|tlhelp32|shlobj|msi|dbghelp|psapi|conio)\.h$/i.test(name)));
  assert.deepEqual(strays, []);
});

test('no file passes 400 lines, no function 60', () => {
  const long = [];
  for (const path of cpp) {
    const lines = read(path).split('\n');
    if (lines.length > 400) long.push(`${path}: ${lines.length} lines`);
    // Layout is clang-format's: a function's first line stands at column one, its body opens with a
    // line that ends in " {" a few lines on at most, and closes with a "}" at column one.
    let head = -1;
    let start = -1;
    lines.forEach((line, index) => {
      if (/^}/.test(line)) {
        if (start >= 0 && index - start > 60) long.push(`${path}:${start + 1}: ${index - start} lines`);
        head = start = -1;
      } else if (/^[A-Za-z]/.test(line)) {
        const other = /^(class|struct|namespace|enum|union|using|template|const|TEST)/;
        head = other.test(line) || /;$/.test(line) ? -1 : index;
      }
      if (head >= 0 && start < 0 && / \{$/.test(line) && index - head < 8) start = head;
    });
  }
  assert.deepEqual(long, []);
});

test('state has owners', () => {
  // Neither singletons nor variables that outlive everybody.
  const strays = sources.filter((path) => /^\s*static [^(]*\binstance\b|^(static|extern) (?!const)[\w:<>]+ \w+(;| =|\{)/m.test(read(path)));
  assert.deepEqual(strays, []);
});

test('layout is what clang-format says', () => {
  execFileSync('clang-format', ['--dry-run', '--Werror', ...cpp], { stdio: 'pipe' });
});

test('texts name no machine and no registry', () => {
  const strays = [];
  for (const path of tracked.filter((name) => !/\.(png|ico)$/.test(name))) {
    const words = /\/root\/|\/home\/\w+\/|registry\.npmjs|deb\.debian\.org|"resolved": "http/;
    if (path !== 'tests/house_rules.test.mjs' && words.test(read(path))) strays.push(path);
  }
  assert.deepEqual(strays, []);
});
