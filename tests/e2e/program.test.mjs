// VOSK.exe as a file: what an operator copies, and what it says when asked for its version.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { existsSync, readFileSync } from 'node:fs';
import { rm, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { buildFolder, useStage } from './support/stage.mjs';

const stage = useStage();
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

test('it is stripped and its debug information lies beside it', () => {
  const sections = objdump('-h', program);
  assert.doesNotMatch(sections, /\.debug_/);
  assert.match(sections, /\.gnu_debuglink/);
  assert.match(objdump('-h', `${program}.debug`), /\.debug_info/);
});

test('it carries a version resource', () => {
  const bytes = readFileSync(program);
  const resource = bytes.indexOf(Buffer.from('VS_VERSION_INFO', 'utf16le'));
  assert.notEqual(resource, -1);
  const fixed = bytes.indexOf(Buffer.from([0xbd, 0x04, 0xef, 0xfe]), resource);
  assert.ok(fixed - resource < 64, 'fixed version information follows its name');
  assert.deepEqual([bytes.readUInt16LE(fixed + 10), bytes.readUInt16LE(fixed + 8)], [3, 3]);
  assert.ok(bytes.includes(Buffer.from('Vigilant Oversight & Supervision Kit', 'utf16le')));
});

for (const { option, file, core } of [
  { option: '-v', file: '1.2.3\n', core: '1.2.3' },
  { option: '--version', file: undefined, core: 'Not installed or version file not found' },
  { option: '-version', file: '0.0.0\n', core: 'Not installed or version file not found' },
]) {
  test(`${option} names VOSK and the Core (${core}) and does nothing else`, async () => {
    const folder = await stage.folder('version_query', { core: false, monitor: false });
    const versionFile = path.join(stage.machine.statsFolder, 'CoreVersion.txt');
    if (file) await writeFile(versionFile, file);
    else await rm(versionFile, { force: true });
    const log = path.join(stage.machine.prefix, 'drive_c/users',
      path.basename(path.resolve(stage.machine.roamingFolder, '../..')), 'Temp/VOSK.log');
    await rm(log, { force: true });
    const { code, output } = await stage.machine.run('wine', [path.join(folder, 'VOSK.exe'), option]);
    assert.equal(code, 0);
    assert.deepEqual(output.split(/\r?\n/),
      ['VOSK (Vigilant Oversight & Supervision Kit) v3.3', `VELDRAN Core: ${core}`, '']);
    assert.ok(!existsSync(log), 'no log session was begun');
  });
}
