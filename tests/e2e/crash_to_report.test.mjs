// The main job: VOSK prepares the machine, the Core crashes, its dump becomes a report, the Core
// runs again. A server that misbehaves on the wire costs neither a report nor VOSK.
import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import { existsSync } from 'node:fs';
import { mkdir, readFile, symlink, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until } from '../../tools/stage/waiting.mjs';
import { readKey, setKey } from './support/registry.mjs';
import { accessViolation, checkReport, customMemory, dumpIn } from './support/reports.mjs';
import { seconds, useStage } from './support/stage.mjs';
import { crashOrder, launched, quit, step, tells, terminated } from './support/steps.mjs';

const stage = useStage();

const native = 'HKLM\\SOFTWARE\\Microsoft\\';
const wow = 'HKLM\\SOFTWARE\\WOW6432Node\\Microsoft\\';
const wer = 'Windows\\Windows Error Reporting';
const jit = 'Windows NT\\CurrentVersion\\AeDebug';
const silent = { DontShowUI: 'REG_DWORD 0x1' };
const disabled = { Auto: 'REG_SZ 0' };

// The crash dialogs' keys: the key, its values before and after VOSK's start. undefined = no key.
const keys = [
  [native + wer, { DontShowUI: 'REG_SZ yes' }, silent],
  [wow + wer, undefined, silent],
  [native + jit, { Debugger: 'REG_SZ winedbg.exe', Auto: 'REG_SZ 1' }, disabled],
  [wow + jit, { Other: 'REG_SZ kept' }, { Other: 'REG_SZ kept', ...disabled }],
];

// Puts old dumps into the dump storage directory, and a link out of it to a file that is not
// VOSK's.
async function litter(vosk) {
  const outside = path.join(vosk.folder, 'outside');
  await mkdir(path.join(vosk.dumpFolder, 'nested/deeper'), { recursive: true });
  await mkdir(outside);
  await writeFile(path.join(outside, 'precious.txt'), 'not VOSK\'s');
  await writeFile(path.join(vosk.dumpFolder, 'nested/deeper/old.dmp'), 'old');
  await symlink(outside, path.join(vosk.dumpFolder, 'link'));
  return path.join(outside, 'precious.txt');
}

// Wine removes the target of a link instead of the link, which fails because it is not empty. If
// VOSK had followed the link, the target would be empty and gone.
async function assertPrepared(vosk, precious) {
  for (const [key, , after] of keys) {
    assert.deepEqual(await readKey(stage.machine, key), after, key);
  }
  assert.ok(!existsSync(path.join(vosk.dumpFolder, 'nested')), 'the dump storage was emptied');
  assert.equal(await readFile(precious, 'utf8'), 'not VOSK\'s');
}

async function crashBecomesReport(t, vosk, pid) {
  const collected = await stage.collect(t, 'crash_to_report');
  await vosk.order(crashOrder);
  await terminated(vosk, pid, accessViolation);
  await tells(vosk, seconds(60),
    '[ERROR] Target process exited abnormally (Code: 3221225477). Assuming crash #1',
    '[INFO] Waiting 2500ms for dump file generation...',
    '[INFO] Found 1 new dump file(s) to process.',
    '[INFO] Successfully uploaded and processed: *_CRASH.zip');
  await checkReport(collected, 1, 'CRASH', customMemory, accessViolation);
  const next = await launched(vosk);
  assert.notEqual(next, pid);
  assert.deepEqual((await vosk.storedFiles()).filter((name) => name !== 'link'), []);
  return next;
}

// One crash leaves a dump for each; the faulty server takes the fault from the report's name. These
// are the faults that Windows' sockets and Schannel report in their own words.
const faults = [
  { name: 'reset', bytes: 20_000, tells: [
    '[ERROR] TUS POST request failed. CURLcode: *, HTTP Status: 0'] },
  // After an offset query the client's handle sends GET instead of PATCH, which no server takes for
  // an upload, so the report stays unsent.
  { name: 'cut_patch', bytes: 400_000, tells: [  // many network buffers
    '[*] TUS PATCH failed (Attempt 1/4). CURLcode: *',
    '[*] Server offset advanced to * during failed attempt.*',
    '[*] Non-retriable HTTP error (404) received during TUS PATCH. Aborting upload.'] },
  { name: 'endless_headers', bytes: 20_000, tells: [
    '[ERROR] TUS POST request failed. CURLcode: *'] },
];

async function reportsAreKept(t, vosk, pid) {
  await stage.collectBadly(t, 'faults');
  const dumps = new Map(faults.map(({ name, bytes }) => [name, randomBytes(bytes)]));
  for (const [name, bytes] of dumps) {
    await writeFile(path.join(vosk.dumpFolder, `${name}.dmp`), bytes);
  }
  await vosk.order('exit 5');
  await terminated(vosk, pid, 5);
  const remaining = new Set(faults);
  while (remaining.size > 0) {  // in the file system's order
    const [, name] = await vosk.log.next(/Processing dump file: .*\\(\w+)\.dmp$/, seconds(60));
    const fault = faults.find((item) => item.name === name);
    remaining.delete(fault);
    await tells(vosk, seconds(60), ...fault.tells,
      '[ERROR] Failed to upload zip via TUS: *. Renaming to .zip.failed_upload',
      '[WARN] IMPORTANT: Original dump was already deleted.*');
  }
  await launched(vosk);  // nothing of it stopped VOSK
  const kept = (await vosk.storedFiles()).filter((file) => file.endsWith('.failed_upload'));
  assert.equal(kept.length, faults.length, kept.join());
  for (const file of kept) {
    const [, name] = /^(\w+)_[^_]+_CRASH\.zip\.failed_upload$/.exec(file);
    assert.ok(dumps.get(name).equals(await dumpIn(path.join(vosk.dumpFolder, file))), name);
  }
}

test('from start-up to a quit', async (t) => {
  const vosk = stage.vosk(await stage.folder('crash_to_report'));
  for (const [key, before] of keys) await setKey(stage.machine, key, before);
  const precious = await litter(vosk);
  await vosk.start();
  let pid = await launched(vosk);

  await step(t, 'crash dialogs are off, the dump storage is empty', () =>
    assertPrepared(vosk, precious));
  await step(t, 'a crash becomes a report', async (t) => {
    pid = await crashBecomesReport(t, vosk, pid);
  });
  await step(t, 'what cannot be sent is kept', (t) => reportsAreKept(t, vosk, pid));
  await step(t, 'Q ends Core and monitor', async () => {
    await quit(vosk);
    await until(async () => (await stage.machine.processes(monitorImage)).length === 0, seconds(20),
      'no monitor is left');
    assert.match(await readFile(vosk.log.file, 'utf8'), /^\r?\n--- Log Session Start ---\r?\n/);
  });
});
