// The operator at a real keyboard: the control menu, its actions, and the message box of a start-up
// that cannot go on.
import assert from 'node:assert/strict';
import { writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';
import { isDeepStrictEqual } from 'node:util';

import { coreImage, startCore } from '../../tools/stage/core.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until } from '../../tools/stage/waiting.mjs';
import { accessViolation, checkReport, fullMemory, threadInfo } from './support/reports.mjs';
import { seconds, useStage } from './support/stage.mjs';
import { crashOrder, launched, step, tells, terminated } from './support/steps.mjs';

const stage = useStage();

const chooseItem = (vosk, item) => vosk.type('m', ...Array(item - 1).fill('Down'), 'Return');

const runs = (image, count) => until(
  async () => (await stage.machine.processes(image)).length === count, seconds(20),
  `${count} ${image}`);

async function readsVersions(vosk) {
  // In the C runtime, Page Down is a prefix and then a Q.
  await vosk.type('Next', 'Right', 'x');
  await chooseItem(vosk, 3);
  await tells(vosk, seconds(20), '[INFO] === Version Information ===',
    '[INFO] VOSK Version: 3.3', '[INFO] VELDRAN Core Version: 1.2.3');
}

async function submitsReport(vosk, pid, collected) {
  await chooseItem(vosk, 4);
  await tells(vosk, seconds(60),
    `[INFO] Creating memory dump of running VELDRAN Core (PID: ${pid})...`,
    '[INFO] === Diagnostic report submitted successfully! ===');
  // No exception: the Core lives.
  const name = await checkReport(collected, 1, 'LIVE', threadInfo);
  assert.deepEqual(await vosk.storedFiles(), [name.replace(/_[^_]+_LIVE\.zip$/, '_hostInfo.txt')]);
}

// A process has one debugger at most: the new monitor is refused and ends again.
async function switchesToRedAlert(vosk, pid) {
  const monitors = await stage.machine.processes(monitorImage);
  await chooseItem(vosk, 6);
  await tells(vosk, seconds(20),
    '[WARN] RED ALERT MODE ACTIVATED - Full heap dumps (-ma) will be captured on crash.',
    `[INFO] Launching ProcDump monitor for PID ${pid}: * -ma -e ${pid} *`,
    '[WARN] The present ProcDump monitor keeps the VELDRAN Core. *');
  await until(async () => isDeepStrictEqual(await stage.machine.processes(monitorImage), monitors),
    seconds(20), 'the former monitor alone');
}

async function restarts(vosk) {
  await chooseItem(vosk, 1);
  await tells(vosk, seconds(20), '[WARN] Initiating graceful restart: Forced by User via Menu');
  const pid = await launched(vosk);
  await runs(monitorImage, 1);
  assert.equal(vosk.log.matching(/has terminated/).length, 0, 'a restart is no crash');
  return pid;
}

// A dump of the whole memory is uploaded in many parts.
async function reportsFullMemory(vosk, pid, collected) {
  await vosk.order(crashOrder);
  await terminated(vosk, pid, accessViolation);
  await tells(vosk, seconds(240), '[INFO] Successfully uploaded and processed: *_CRASH_FD.zip');
  await checkReport(collected, 2, 'CRASH_FD', fullMemory, accessViolation);
  await launched(vosk);
}

test('the control menu', async (t) => {
  const collected = await stage.collect(t, 'keyboard');
  const folder = await stage.folder('keyboard');
  const core = await startCore(stage.machine, folder);
  const vosk = stage.vosk(folder);
  await vosk.start();
  await tells(vosk, seconds(60), '[INFO] ProcDump launched successfully.*');
  let pid = core.pid;

  await step(t, 'versions', () => readsVersions(vosk));
  await step(t, 'diagnostic report', () => submitsReport(vosk, pid, collected));
  await step(t, 'Red Alert', () => switchesToRedAlert(vosk, pid));
  await step(t, 'restart', async () => {
    pid = await restarts(vosk);
    assert.notEqual(pid, core.pid);
  });
  await step(t, 'a crash in Red Alert', () => reportsFullMemory(vosk, pid, collected));
  await step(t, 'Q', async () => {
    await vosk.type('m', 'q');
    await tells(vosk, seconds(20), "[WARN] Menu: Quit VOSK & VELDRAN Core requested via 'Q'.",
      '[INFO] VELDRAN Core Autonomous VOSK shutting down.');
    assert.equal(await vosk.ended(seconds(20)), 0);
    for (const image of [coreImage, monitorImage]) await runs(image, 0);
  });
});

test('a start-up that cannot go on says why in a box', async () => {
  const folder = await stage.folder('Jürgen');
  // No room for the dump storage directory.
  await writeFile(path.join(folder, 'tmp/VELDRAN_VOSK_Dumps'), 'in the way');
  const vosk = stage.vosk(folder);
  await vosk.start();
  const [, reason] = await vosk.log.next(
    /^\[ERROR\] FATAL Initialization Error: (Failed to create dump storage directory: .*)$/,
    seconds(60));
  await until(() => vosk.boxTexts('VOSK Error').catch(() => false), seconds(60), 'the box');
  assert.ok((await vosk.boxTexts('VOSK Error')).includes(
    `Initialization failed: ${reason}\n\nPlease check the VOSK.log file for details.`));
  await stage.machine.typeInto('^VOSK Error$', ['Return']);
  assert.equal(await vosk.ended(seconds(60)), 1);
});
