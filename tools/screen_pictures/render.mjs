// Draws a stored screen (tests/console/screens/*.txt) as an SVG picture.
// usage: node render.mjs SCREEN.txt PICTURE.svg
import { readFileSync, writeFileSync } from 'node:fs';
import { basename } from 'node:path';

const CELL_WIDTH = 8.43;
const ROW_HEIGHT = 18;
const FONT_SIZE = 14;
const BASELINE = 13.5;
const MARGIN = 12;

// The palette of a Windows console.
const WINDOW = '#0c0c0c';
const OWN_INK = '#cccccc';
const INKS = {
  k: '#767676', r: '#e74856', g: '#16c60c', y: '#f9f1a5',
  b: '#3b78ff', m: '#d65ac8', c: '#61d6d6', w: '#f2f2f2',
};
const BACKGROUNDS = { blue: '#0037da', red: '#c50f1f' };

// Strokes of the double frame in thirds of a cell, as [x1, y1, x2, y2] with 0 left or top, 1 right
// or bottom, and "a" and "z" the first and the second line of the pair.
const FRAME_STROKES = {
  '═': ['0 a 1 a', '0 z 1 z'],
  '║': ['a 0 a 1', 'z 0 z 1'],
  '╔': ['a 1 a a 1 a', 'z 1 z z 1 z'],
  '╗': ['z 1 z a 0 a', 'a 1 a z 0 z'],
  '╚': ['a 0 a z 1 z', 'z 0 z a 1 a'],
  '╝': ['z 0 z z 0 z', 'a 0 a a 0 a'],
};

function fail(message) {
  console.error(`render: ${message}`);
  process.exit(1);
}

// Returns the rows between two edges of a frame that starts at or after line `from`.
function readFrame(lines, from) {
  const top = lines.findIndex((line, at) => at >= from && /^\+-+\+$/.test(line));
  const bottom = lines.findIndex((line, at) => at > top && line === lines[top]);
  if (top < 0 || bottom < 0) fail('a frame is missing');
  return { rows: lines.slice(top + 1, bottom).map((line) => [...line].slice(1, -1)), end: bottom + 1 };
}

function readScreen(path) {
  const lines = readFileSync(path, 'utf8').split('\n');
  const size = /^(\d+) x (\d+), cursor (shown|hidden) at row (\d+), column (\d+)$/.exec(lines[0]);
  if (!size) fail(`${path} is no stored screen`);
  const [columns, rows] = [Number(size[1]), Number(size[2])];
  const text = readFrame(lines, 1);
  const ink = readFrame(lines, text.end);
  if ([...text.rows, ...ink.rows].some((row) => row.length !== columns)) {
    fail(`${path} has rows that are not ${columns} characters long`);
  }
  const background = Array.from({ length: rows }, () => Array(columns).fill(''));
  for (const line of lines.slice(ink.end)) {
    const row = /^row (\d+): (.*)$/.exec(line);
    if (!row) continue;
    for (const [, name, first, last] of row[2].matchAll(/(\w+) from (\d+) to (\d+)/g)) {
      background[row[1] - 1].fill(name, first - 1, Number(last));
    }
  }
  const cursor = size[3] === 'shown' ? { row: size[4] - 1, column: size[5] - 1 } : null;
  return { columns, rows, text: text.rows, ink: ink.rows, background, cursor };
}

const number = (value) => String(Math.round(value * 100) / 100);
const x = (column) => MARGIN + column * CELL_WIDTH;
const y = (row) => MARGIN + row * ROW_HEIGHT;
const escape = (text) => text.replace(/&/g, '&amp;').replace(/</g, '&lt;').replace(/>/g, '&gt;');

function rectangle(row, column, width, colour) {
  return `<rect x="${number(x(column))}" y="${number(y(row))}" width="${number(width * CELL_WIDTH)}"` +
    ` height="${ROW_HEIGHT}" fill="${colour}" shape-rendering="crispEdges"/>`;
}

function frameStrokes(row, column, character, colour) {
  const across = { 0: 0, a: 0.35, z: 0.65, 1: 1 };
  const down = { 0: 0, a: 0.42, z: 0.58, 1: 1 };
  return FRAME_STROKES[character].map((stroke) => {
    const points = [];
    const steps = stroke.split(' ');
    for (let at = 0; at < steps.length; at += 2) {
      points.push(`${number(x(column + across[steps[at]]))},${number(y(row + down[steps[at + 1]]))}`);
    }
    return `<polyline points="${points.join(' ')}" fill="none" stroke="${colour}"/>`;
  });
}

// Returns how one cell looks: its character, and the colours after reverse video.
function look(screen, row, column) {
  const letter = screen.ink[row][column];
  const ink = INKS[letter.toLowerCase()] ?? OWN_INK;
  const background = screen.background[row][column];
  return {
    character: screen.text[row][column],
    bold: letter !== letter.toLowerCase(),
    ink: background === 'reverse' ? WINDOW : ink,
    background: background === 'reverse' ? ink : BACKGROUNDS[background],
  };
}

// Calls `draw` with each longest run of a row's cells with the same key.
function forEachRun(cells, keyOf, draw) {
  for (let first = 0, end = 0; first < cells.length; first = end) {
    while (end < cells.length && keyOf(cells[end]) === keyOf(cells[first])) end += 1;
    draw(first, cells.slice(first, end));
  }
}

function drawRow(screen, row) {
  const cells = Array.from({ length: screen.columns }, (_, column) => look(screen, row, column));
  const shapes = [];
  forEachRun(cells, (cell) => cell.background, (first, run) => {
    if (run[0].background) shapes.push(rectangle(row, first, run.length, run[0].background));
  });
  const blocks = (cell) => cell.character === '█';
  forEachRun(cells, (cell) => blocks(cell) && cell.ink, (first, run) => {
    if (blocks(run[0])) shapes.push(rectangle(row, first, run.length, run[0].ink));
  });
  cells.forEach(({ character, ink }, column) => {
    if (character in FRAME_STROKES) shapes.push(...frameStrokes(row, column, character, ink));
  });
  const written = (cell) => cell.character !== ' ' && !blocks(cell) && !(cell.character in FRAME_STROKES);
  forEachRun(cells, (cell) => written(cell) && `${cell.ink}${cell.bold}`, (first, run) => {
    if (!written(run[0])) return;
    const text = escape(run.map((cell) => cell.character).join(''));
    shapes.push(`<text x="${number(x(first))}" y="${number(y(row) + BASELINE)}" fill="${run[0].ink}"` +
      `${run[0].bold ? ' font-weight="bold"' : ''} textLength="${number(run.length * CELL_WIDTH)}"` +
      ` lengthAdjust="spacingAndGlyphs">${text}</text>`);
  });
  return shapes;
}

function drawCursor({ row, column }) {
  return `<rect x="${number(x(column))}" y="${number(y(row) + ROW_HEIGHT - 4)}"` +
    ` width="${CELL_WIDTH}" height="2" fill="${OWN_INK}"/>`;
}

function drawScreen(screen, title) {
  const width = number(2 * MARGIN + screen.columns * CELL_WIDTH);
  const height = number(2 * MARGIN + screen.rows * ROW_HEIGHT);
  const shapes = [];
  for (let row = 0; row < screen.rows; row += 1) shapes.push(...drawRow(screen, row));
  if (screen.cursor) shapes.push(drawCursor(screen.cursor));
  return [
    `<svg xmlns="http://www.w3.org/2000/svg" width="${width}" height="${height}"` +
      ` viewBox="0 0 ${width} ${height}" font-size="${FONT_SIZE}"` +
      ` font-family="Consolas, 'DejaVu Sans Mono', Menlo, monospace">`,
    `<title>${escape(title)}</title>`,
    `<rect width="100%" height="100%" rx="8" fill="${WINDOW}"/>`,
    ...shapes,
    '</svg>',
    '',
  ].join('\n');
}

const [input, output] = process.argv.slice(2);
if (!output) fail('usage: node render.mjs SCREEN.txt PICTURE.svg');
writeFileSync(output, drawScreen(readScreen(input), `VOSK console: ${basename(input, '.txt')}`));
