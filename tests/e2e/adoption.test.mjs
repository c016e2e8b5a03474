// A Core that already runs is adopted as it is, by the first VOSK and by the next.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { startTusServer } from '../../tools/servers/tus_server.mjs';
import { coreImage, orderCore, startCore } from '../../tools/stage/core.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until, within } from '../../tools/stage/waiting.mjs';
import { seconds, serverFolder, useStage } from './support/stage.mjs';
import { quit, terminated } from './support/steps.mjs';

const stage = useStage();

async function adopted(vosk, pid) {
  await vosk.log.next(
    new RegExp(`^\\[INFO\\] Found existing instance of target \\(PID: ${pid}\\)\\.$`), seconds(30));
  await vosk.log.next(new RegExp(
    `^\\[INFO\\] Successfully attached to existing PID ${pid}\\. Starting monitoring\\.$`),
  seconds(5));
  await vosk.log.next(new RegExp(
    `^\\[INFO\\] Launching ProcDump monitor for PID ${pid}: ".*\\\\procdump64\\.exe" -accepteula ` +
    `-mc 1064 -e ${pid} ".*\\\\VELDRAN_VOSK_Dumps"$`), seconds(5));
  await vosk.log.next(/^\[INFO\] ProcDump launched successfully\. Monitor Process ID: \d+$/,
    seconds(5));
}

test('a second VOSK.exe ends the first and takes over its Core', async (t) => {
  const folder = await serverFolder('adoption');
  const received = [];
  const server = await startTusServer({ folder,
    onEvent: (event) => event.event === 'received' && received.push(event) });
  t.after(() => server.close());
  const site = await stage.folder('adoption');
  const core = await startCore(stage.machine, site);

  const first = stage.vosk(site, 'first.log');
  const firstOut = path.join(site, 'first.out');
  await first.start({ out: firstOut });
  await adopted(first, core.pid);

  const second = stage.vosk(site, 'second.log');
  const out = path.join(site, 'second.out');
  const err = path.join(site, 'second.err');
  second.log = first.log;  // both write the same file
  await second.start({ out, err, args: ['ignored', 'too'] });
  assert.equal(await first.ended(seconds(20)), 1, 'the first was terminated');
  await adopted(second, core.pid);
  assert.equal((await stage.machine.processes(coreImage)).length, 1, 'the Core was not restarted');
  await until(async () => (await stage.machine.processes(monitorImage)).length === 1, seconds(5),
    'one monitor for the Core');

  await orderCore(site, 'crash');
  await terminated(second, core.pid, 0xc0000005);
  await second.log.next(/^\[INFO\] Successfully uploaded and processed: /, seconds(40));
  assert.equal(received.length, 1, 'the adopted Core was watched');
  await quit(second);

  const shown = await readFile(out, 'utf8');
  const warned = await readFile(err, 'utf8');
  await t.test('the second VOSK says whom it ended', () => {
    assert.match(shown, /Found 2 VOSK process\(es\)\. Terminating others\.\.\./);
    assert.match(warned,
      new RegExp(`Attempting to terminate other VOSK instance with PID: ${first.pid}\\b`));
    assert.match(shown, /TerminateProcDumpInstances: Found matching process: procdump64\.exe/);
    assert.match(shown, /Arguments received: "ignored" "too" /);
  });
  await t.test('output and error both redirected: plain lines, each in its stream', () => {
    assert.doesNotMatch(shown + warned, /\x1b/);
    assert.match(shown, /^\d\d:\d\d:\d\d \[INFO\] Target process final exit code: /m);
    assert.match(warned, /^\d\d:\d\d:\d\d \[ERROR\] Target process exited abnormally /m);
    assert.doesNotMatch(shown, /\[(WARN|ERROR)\]/);
    assert.doesNotMatch(warned, /\[INFO\]/);
  });
  await t.test('only output redirected: coloured, but the cursor stays', async () => {
    const coloured = await readFile(firstOut, 'utf8');
    assert.match(coloured, /\x1b\[96mINFO\x1b\[0m/);
    assert.doesNotMatch(coloured, /\x1b\[\d+;1H\x1b\[90m/);
  });
});

test('of two running Cores the first is taken; one that resists stays alive', async () => {
  const site = await stage.folder('two_cores');
  const cores = [await startCore(stage.machine, site, 'one.out'),
    await startCore(stage.machine, site, 'two.out')];
  const vosk = stage.vosk(site);
  await vosk.start();
  const [, text] = await vosk.log.next(/^\[WARN\] Multiple instances of 'VELDRAN Core\.exe' found\. Monitoring first detected \(PID: (\d+)\)\.$/, seconds(30));
  const pid = Number(text);
  const taken = cores.find((core) => core.pid === pid);
  assert.ok(taken, `${pid} is one of the two`);
  await adopted(vosk, pid);
  assert.equal((await stage.machine.processes(coreImage)).length, 2, 'no third Core');

  await orderCore(site, 'protect', pid);
  await until(async () =>
    (await readFile(path.join(stage.machine.statsFolder, 'core.log'), 'utf8'))
      .includes(`[${pid}] command: protect`), seconds(5),
    'the order is taken');
  await vosk.press('q');
  await vosk.log.next(/^\[INFO\] Terminating monitored target process \(if still running\) during shutdown\.\.\.$/, seconds(20));
  await vosk.log.next(/^\[ERROR\] TerminateProcessL: TerminateProcess API failed\. Error: 5$/, seconds(5));
  await vosk.log.next(new RegExp(`^\\[INFO\\] TerminateProcessL: Executing fallback: taskkill /F /PID ${pid}$`), seconds(5));
  await vosk.log.next(/^\[ERROR\] TerminateProcessL: Fallback 'taskkill \/F' command failed or returned error\. Result code: [1-9]\d*$/, seconds(20));
  assert.equal(await vosk.ended(seconds(20)), 0);

  assert.equal((await stage.machine.processes(coreImage)).length, 2);
  for (const core of cores) {
    await orderCore(site, 'exit 0', core.pid);
    assert.equal(await within(seconds(10), core.ended, 'The Core did not end.'), 0);
  }
});
