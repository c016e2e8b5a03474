// VOSK.exe as the file that an operator copies to a machine.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { buildFolder } from './support/stage.mjs';

const program = path.join(buildFolder, 'VOSK.exe');
const objdump = (...args) =>
  execFileSync('x86_64-w64-mingw32-objdump', args, { encoding: 'utf8', maxBuffer: 1 << 28 });

// All of them are in system32 of every Windows 10.
const windowsDlls = new Set(['advapi32.dll', 'bcrypt.dll', 'crypt32.dll', 'dbghelp.dll',
  'iphlpapi.dll', 'kernel32.dll', 'msi.dll', 'msvcrt.dll', 'ole32.dll', 'secur32.dll', 'shell32.dll', 'user32.dll',
  'version.dll', 'ws2_32.dll']);

test('it imports only DLLs of Windows itself', () => {
  const imported = [...objdump('-p', program).matchAll(/DLL Name: (\S+)/g)]
    .map(([, name]) => name.toLowerCase());
  assert.ok(imported.includes('kernel32.dll'), 'the import table was read');
  assert.deepEqual(imported.filter((name) => !windowsDlls.has(name)), []);
});

test('it is stripped, its debug information beside it, and tells its version', () => {
  const sections = objdump('-h', program);
  assert.doesNotMatch(sections, /\.debug_/);
  assert.match(sections, /\.gnu_debuglink/);
  assert.match(objdump('-h', `${program}.debug`), /\.debug_info/);
  const bytes = readFileSync(program);
  const resource = bytes.indexOf(Buffer.from('VS_VERSION_INFO', 'utf16le'));
  assert.notEqual(resource, -1);
  const fixed = bytes.indexOf(Buffer.from([0xbd, 0x04, 0xef, 0xfe]), resource);
  assert.ok(fixed - resource < 64, 'fixed version information follows its name');
  assert.deepEqual([bytes.readUInt16LE(fixed + 10), bytes.readUInt16LE(fixed + 8)], [3, 3]);
  assert.ok(bytes.includes(Buffer.from('Vigilant Oversight & Supervision Kit', 'utf16le')));
});
