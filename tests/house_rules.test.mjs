// The rules of the house that no compiler checks.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

import { drawFloors } from '../tools/floors/draw.mjs';
import { floorOf, includes } from '../tools/floors/floors.mjs';

const tracked = execFileSync('git', ['ls-files'], { encoding: 'utf8' }).trim().split('\n');
const read = (path) => readFileSync(path, 'utf8');
const cpp = tracked.filter((path) => /\.(cpp|h)$/.test(path));
const sources = cpp.filter((path) => path.startsWith('src/'));

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

test('the picture of the floors is the one that the includes draw', () => {
  assert.equal(read('docs/pictures/floors.svg'), drawFloors(), 'scripts/draw-floors draws it anew');
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
    for (const { at, length } of functions(lines)) {
      if (length > 60) long.push(`${path}:${at}: ${length} lines`);
    }
  }
  assert.deepEqual(long, []);
});

// Layout is clang-format's: a function (a test as well) begins at column one, its body opens with
// a line that ends in " {", and "}" at column one closes it. A table has a "=" before the brace.
function functions(lines) {
  const found = [];
  let head = -1;
  let start = -1;
  lines.forEach((line, index) => {
    if (/^}/.test(line)) {
      if (start >= 0) found.push({ at: start + 1, length: index - start, head: lines[start] });
      head = start = -1;
    } else if (start < 0 && /^[A-Za-z]/.test(line)) {
      const other = /^(class|struct|namespace|enum|union|using|template)\b/;
      head = other.test(line) || /;$/.test(line) ? -1 : index;
    }
    if (head < 0 || start >= 0 || !/ \{$/.test(line)) return;
    const text = lines.slice(head, index + 1).join(' ');
    if (text.includes('(') && !/ = /.test(text)) start = head;
    else head = -1;
  });
  return found;
}

test('a unit is a .h and a .cpp of the same name', () => {
  // fmt's own code, compiled once.
  const withoutHeader = ['src/main.cpp', 'src/fmt_library.cpp'];
  const strays = sources.filter((path) => path.endsWith('.cpp') && !withoutHeader.includes(path))
    .filter((path) => {
      const header = path.replace(/cpp$/, 'h');
      // A file of the Windows side implements the interface of the same name.
      return !tracked.includes(header) && !tracked.includes(header.replace('/windows/', '/'));
    });
  assert.deepEqual(strays, []);

  const homes = new Map();
  for (const path of sources.filter((name) => name.endsWith('.cpp'))) {
    for (const { head } of functions(read(path).split('\n'))) {
      const owner = /(\w+)::~?\w+\(/.exec(head)?.[1];
      if (!owner || !/^[A-Z]/.test(owner)) continue;
      // The two sides of a name may differ; the floor tells them apart.
      const key = `${path.split('/').slice(0, -1).join('/')} ${owner}`;
      homes.set(key, (homes.get(key) ?? new Set()).add(path));
    }
  }
  const spread = [...homes].filter(([, files]) => files.size > 1).map(([key, files]) => `${key}: ${[...files].join(', ')}`);
  assert.deepEqual(spread, []);
});

test('state has owners', () => {
  // There are neither singletons nor variables that outlive everybody.
  const strays = sources.filter((path) => /^\s*static [^(]*\binstance\b|^(static|extern) (?!const)[\w:<>]+ \w+(;| =|\{)/m.test(read(path)));
  assert.deepEqual(strays, []);
});

test('layout is what clang-format says', () => {
  execFileSync('clang-format', ['--dry-run', '--Werror', ...cpp], { stdio: 'pipe' });
});

// The hosts that this machine fetches packages from.
function packageHosts() {
  const configured = (command, args) => {
    try {
      return execFileSync(command, args, { encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'] });
    } catch {
      return '';
    }
  };
  const settings = [configured('apt-get', ['indextargets', '--format', '$(SITE)']),
    configured('npm', ['config', 'get', 'registry'])].join('\n');
  const hosts = [...settings.matchAll(/https?:\/\/([^/\s:]+)/g)].map((match) => match[1]);
  return [...new Set(hosts)].filter((host) => !/^(localhost|127\.)/.test(host));
}

// Whether a lock file pins its packages to the place that they were fetched from.
function locksHost(path) {
  if (!path.endsWith('package-lock.json')) return false;
  return Object.values(JSON.parse(read(path)).packages).some((entry) => 'resolved' in entry);
}

test('texts name no machine and no registry', () => {
  const hosts = packageHosts();
  assert.notEqual(hosts.length, 0);
  const strays = [];
  for (const path of tracked.filter((name) => !/\.(png|ico)$/.test(name))) {
    const text = read(path);
    const names = /\/root\/|\/home\/\w+\//.test(text);
    if (names || locksHost(path) || hosts.some((host) => text.includes(host))) strays.push(path);
  }
  assert.deepEqual(strays, []);
});
