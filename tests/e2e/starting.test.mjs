// What VOSK changes on a machine when it starts: the two crash dialogs in the registry and the
// contents of the dump storage directory.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { mkdir, readFile, symlink, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { readKey, setKey } from './support/registry.mjs';
import { seconds, useStage } from './support/stage.mjs';
import { tells } from './support/steps.mjs';

const stage = useStage();

const native = 'SOFTWARE\\';
const wow = 'SOFTWARE\\WOW6432Node\\';
const wer = 'Microsoft\\Windows\\Windows Error Reporting';
const jit = 'Microsoft\\Windows NT\\CurrentVersion\\AeDebug';
const silent = { DontShowUI: 'REG_DWORD 0x1' };
const disabled = { Auto: 'REG_SZ 0' };

const summary = {
  wer: '[INFO] WER Dialog settings checked/updated successfully.',
  jit: '[INFO] JIT Debugger settings checked/updated successfully.',
};
const werSet = "[INFO]   Successfully set existing 'DontShowUI' value to 1.";
const werCreated = "[INFO]   Successfully created key and set 'DontShowUI' to 1.";
const werMissing = '[INFO]   Registry key does not exist. Attempting to create it.';
const werRight = "[INFO]   'DontShowUI' value already set correctly (1).";
const jitAbsent = '[INFO]   Registry key does not exist (JIT debugging not configured here).';
const jitDeleted = "[INFO]   Successfully deleted JIT 'Debugger' value.";
const jitNone = "[INFO]   JIT 'Debugger' value not found (already effectively disabled).";
const autoSet = "[INFO]   Successfully set JIT 'Auto' value to \"0\".";

// For each start: what the four keys hold before (undefined = no key), what VOSK says, what they
// hold after. The third start finds what the second has left.
const starts = [
  { name: 'no key is there',
    before: {},
    tells: { wer: [[werMissing, werCreated], [werMissing, werCreated]],
      jit: [[jitAbsent], [jitAbsent]] },
    after: { [native + wer]: silent, [wow + wer]: silent } },
  { name: 'every value is another',
    before: { [native + wer]: { DontShowUI: 'REG_SZ yes' }, [wow + wer]: { DontShowUI: 'REG_DWORD 7' },
      [native + jit]: { Debugger: 'REG_SZ winedbg.exe', Auto: 'REG_SZ 1' },
      [wow + jit]: { Other: 'REG_SZ kept' } },
    tells: {
      wer: [["[WARN]   'DontShowUI' value exists but has unexpected type (1) or size (8). Attempting to overwrite.", werSet],
        ["[INFO]   'DontShowUI' value found with different data (7). Attempting to change.", werSet]],
      jit: [[jitDeleted, autoSet], [jitNone, autoSet]] },
    after: { [native + wer]: silent, [wow + wer]: silent, [native + jit]: disabled,
      [wow + jit]: { Other: 'REG_SZ kept', ...disabled } } },
  { name: 'all is as it should be',
    tells: { wer: [[werRight], [werRight]], jit: [[jitNone, autoSet], [jitNone, autoSet]] },
    after: { [native + wer]: silent, [wow + wer]: silent, [native + jit]: disabled,
      [wow + jit]: { Other: 'REG_SZ kept', ...disabled } } },
];

const keys = [native + wer, wow + wer, native + jit, wow + jit];

async function litter(vosk) {
  const outside = path.join(vosk.folder, 'outside');
  await mkdir(path.join(vosk.dumpFolder, 'nested/deeper'), { recursive: true });
  await mkdir(outside, { recursive: true });
  await writeFile(path.join(outside, 'precious.txt'), 'not VOSK\'s');
  await writeFile(path.join(vosk.dumpFolder, 'old.dmp'), 'old');
  await writeFile(path.join(vosk.dumpFolder, 'nested/deeper/old.zip.failed_upload'), 'old');
  await symlink(outside, path.join(vosk.dumpFolder, 'link'));
  return path.join(outside, 'precious.txt');
}

test('starting', async (t) => {
  const vosk = stage.vosk(await stage.folder('starting'));
  const precious = await litter(vosk);
  for (const [index, start] of starts.entries()) {
    await t.test(`crash dialogs when ${start.name}`, async () => {
      for (const key of start.before ? keys : []) {
        await setKey(stage.machine, `HKLM\\${key}`, start.before[key]);
      }
      vosk.driverLog = path.join(vosk.folder, `driver.${index}.log`);
      await vosk.start();  // which ends the one before
      await tells(vosk, seconds(20),
        '[INFO] Attempting to disable Windows Error Reporting (WER) crash dialog UI...',
        `[INFO] Checking WER settings in: HKLM\\${native}${wer}`, ...start.tells.wer[0],
        `[INFO] Checking WER settings in: HKLM\\${wow}${wer}`, ...start.tells.wer[1], summary.wer,
        '[INFO] Attempting to disable system Just-In-Time (JIT) Debugger settings...',
        `[INFO] Checking JIT settings in: HKLM\\${native}${jit}`, ...start.tells.jit[0],
        `[INFO] Checking JIT settings in: HKLM\\${wow}${jit}`, ...start.tells.jit[1], summary.jit);
      for (const key of keys) {
        assert.deepEqual(await readKey(stage.machine, `HKLM\\${key}`), start.after[key], key);
      }
    });
  }
  // Told to remove a link, Wine tries to remove the directory that it leads to, which is not empty.
  // Had VOSK gone through the link, nothing would have stood against that.
  await t.test('the dump storage directory was emptied, the link not followed', async () => {
    const [failed] = vosk.log.matching(/^\[ERROR\] ClearDirectory: /);
    assert.match(failed.text, /Failed to delete \[.*\\link\] after retries\. Error: Directory is not empty\.$/);
    const [cleared] = vosk.log.matching(/ClearDirectory: Finished clearing/);
    assert.equal(cleared.text, `ClearDirectory: Finished clearing [${vosk.windowsDumpFolder}]. Deleted: 2, Failed: 1`);
    assert.equal(await readFile(precious, 'utf8'), 'not VOSK\'s');
    for (const name of ['old.dmp', 'nested']) {
      assert.ok(!existsSync(path.join(vosk.dumpFolder, name)), name);
    }
  });
});
