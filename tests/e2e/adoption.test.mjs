// Cores that already run are adopted as they are, by the first VOSK and by the next.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { coreImage, orderCore, startCore } from '../../tools/stage/core.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { textIn, until, within } from '../../tools/stage/waiting.mjs';
import { accessViolation, checkReport, customMemory } from './support/reports.mjs';
import { seconds, useStage } from './support/stage.mjs';
import { crashOrder, step, tells, terminated } from './support/steps.mjs';

const stage = useStage();

async function adopts(vosk, pid) {
  await tells(vosk, seconds(60),
    `[INFO] Found existing instance of target (PID: ${pid}).`,
    `[INFO] Successfully attached to existing PID ${pid}. Starting monitoring.`,
    `[INFO] Launching ProcDump monitor for PID ${pid}: "*\\procdump64.exe" -accepteula -mc 1064 -e ${pid} "*\\VELDRAN_VOSK_Dumps"`,
    '[INFO] ProcDump launched successfully. Monitor Process ID: *');
  await until(async () => (await stage.machine.processes(monitorImage)).length === 1, seconds(20),
    'one monitor for the Core');
}

// A second VOSK.exe, started like the first, ends it. Both write the same log.
async function takesOver(first, pid, files) {
  const second = stage.vosk(first.folder, 'second.log');
  second.log = first.log;
  await second.start({ ...files, args: ['ignored', 'too'] });
  assert.equal(await first.ended(seconds(60)), 1, 'the first was terminated');
  await adopts(second, pid);
  assert.equal((await stage.machine.processes(coreImage)).length, 2, 'no Core was restarted');
  return second;
}

// Not even taskkill may end a Core that denies it.
async function quitsWithout(vosk, pid) {
  await orderCore(vosk.folder, 'protect\nwait 1', pid);
  await textIn(path.join(stage.machine.statsFolder, 'core.log'),
    new RegExp(`\\[${pid}\\] command: wait`), seconds(20));
  await vosk.press('q');
  await tells(vosk, seconds(60),
    '[INFO] Terminating monitored target process (if still running) during shutdown...',
    '[ERROR] TerminateProcessL: TerminateProcess API failed. Error: 5',
    `[INFO] TerminateProcessL: Executing fallback: taskkill /F /PID ${pid}`,
    "[ERROR] TerminateProcessL: Fallback 'taskkill /F' command failed or returned error. Result code: *");
  assert.equal(await vosk.ended(seconds(60)), 0);
}

test('two Cores, two VOSKs', async (t) => {
  const folder = await stage.folder('adoption');
  const cores = [await startCore(stage.machine, folder, 'one.out'),
    await startCore(stage.machine, folder, 'two.out')];
  const [firstOut, out, err] = ['first.out', 'second.out', 'second.err']
    .map((name) => path.join(folder, name));
  let vosk = stage.vosk(folder, 'first.log');
  let taken;
  let other;

  await step(t, 'of two running Cores the first is taken', async () => {
    await vosk.start({ out: firstOut });
    const [, pid] = await vosk.log.next(/^\[WARN\] Multiple instances of 'VELDRAN Core\.exe' found\. Monitoring first detected \(PID: (\d+)\)\.$/, seconds(60));
    taken = cores.find((core) => core.pid === Number(pid));
    other = cores.find((core) => core !== taken);
    await adopts(vosk, taken.pid);
  });
  await step(t, 'a second VOSK.exe ends the first and takes over', async () => {
    vosk = await takesOver(vosk, taken.pid, { out, err });
  });
  await step(t, 'an adopted Core is watched; after its crash the other is adopted', async (t) => {
    const collected = await stage.collect(t, 'adoption');
    await orderCore(folder, crashOrder, taken.pid);
    await terminated(vosk, taken.pid, accessViolation);
    await tells(vosk, seconds(60), '[INFO] Successfully uploaded and processed: *');
    await checkReport(collected, 1, 'CRASH', customMemory, accessViolation);
    await adopts(vosk, other.pid);
  });
  await step(t, 'a Core that resists outlives VOSK', async () => {
    await quitsWithout(vosk, other.pid);
    assert.equal((await stage.machine.processes(coreImage)).length, 1);
    await orderCore(folder, 'exit 0', other.pid);
    assert.equal(await within(seconds(20), other.ended, 'The Core did not end.'), 0);
  });
  await step(t, 'what is redirected is plain, unless the console takes colours', async () => {
    const [coloured, shown, warned] =
      await Promise.all([firstOut, out, err].map((file) => readFile(file, 'utf8')));
    assert.match(shown, /Found 2 VOSK process\(es\)\. Terminating others\.\.\./);
    assert.match(shown, /Arguments received: "ignored" "too" /);
    assert.match(warned, /Attempting to terminate other VOSK instance with PID: \d+/);
    // Output and error both redirected: plain lines, each in its stream.
    assert.doesNotMatch(shown + warned, /\x1b/);
    assert.match(shown, /^\d\d:\d\d:\d\d \[INFO\] Target process final exit code: /m);
    assert.match(warned, /^\d\d:\d\d:\d\d \[ERROR\] Target process exited abnormally /m);
    assert.doesNotMatch(shown, /\[(WARN|ERROR)\]/);
    assert.doesNotMatch(warned, /\[INFO\]/);
    // Only output redirected: coloured, but the cursor stays.
    assert.match(coloured, /\x1b\[96mINFO\x1b\[0m/);
    assert.doesNotMatch(coloured, /\x1b\[\d+;1H\x1b\[90m/);
  });
});
