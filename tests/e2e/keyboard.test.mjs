// The operator at a real keyboard: the control menu, its actions, and the boxes of a start-up that
// cannot go on.
import assert from 'node:assert/strict';
import { writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { parseMinidump } from '../../tools/servers/minidump.mjs';
import { startTusServer } from '../../tools/servers/tus_server.mjs';
import { checkArchive, listEntries, readEntry } from '../../tools/servers/zip_archive.mjs';
import { coreImage, startCore } from '../../tools/stage/core.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until } from '../../tools/stage/waiting.mjs';
import { seconds, serverFolder, useStage } from './support/stage.mjs';
import { launched, terminated } from './support/steps.mjs';

const stage = useStage();

const customMemory = 0x1064n;
const threadInfo = 0x1000n;

const chooseItem = (vosk, item) => vosk.type('m', ...Array(item - 1).fill('Down'), 'Return');

async function readVersions(vosk) {
  // To the C runtime, Page Down is a prefix and then a Q.
  await vosk.type('Next', 'Right', 'x');
  await chooseItem(vosk, 3);
  await vosk.log.next(/^\[INFO\] === Version Information ===$/, seconds(10));
  await vosk.log.next(/^\[INFO\] VOSK Version: 3\.3$/, seconds(5));
  await vosk.log.next(/^\[INFO\] VELDRAN Core Version: 1\.2\.3$/, seconds(5));
}

async function checkReport(folder, report, tag, dumpType) {
  const file = path.join(folder, report.fileName);
  assert.match(report.fileName, new RegExp(`_${tag}\\.zip$`));
  await checkArchive(file);
  const entries = await listEntries(file);
  assert.equal(entries[1], entries[0].replace(/\.dmp$/, '_hostInfo.txt'));
  assert.ok(entries.includes('TestNet/core.log'), 'the logs are there');
  const dump = parseMinidump(await readEntry(file, entries[0]));
  assert.equal(dump.type, dumpType);
  return dump;
}

async function submitReport(vosk, pid, folder, received) {
  await chooseItem(vosk, 4);
  await vosk.log.next(new RegExp(
    `^\\[INFO\\] Creating memory dump of running VELDRAN Core \\(PID: ${pid}\\)\\.\\.\\.$`),
  seconds(10));
  await vosk.log.next(/^\[INFO\] === Diagnostic report submitted successfully! ===$/, seconds(60));
  await until(() => received.length === 1, seconds(5), 'the report on the server');
  const dump = await checkReport(folder, received[0], 'LIVE', threadInfo);
  assert.equal(dump.exception, undefined, 'the Core lives');
  assert.deepEqual(await vosk.storedFiles(),
    [received[0].fileName.replace(/_[^_]+_LIVE\.zip$/, '_hostInfo.txt')]);
}

async function switchToRedAlert(vosk, pid) {
  await chooseItem(vosk, 6);
  await vosk.log.next(/^\[WARN\] RED ALERT MODE ACTIVATED - Full heap dumps \(-ma\) will be captured on crash\.$/, seconds(10));
  await vosk.log.next(
    new RegExp(`^\\[INFO\\] Launching ProcDump monitor for PID ${pid}: .* -ma -e ${pid} `),
    seconds(5));
  await vosk.log.next(/^\[INFO\] ProcDump monitor re-attached successfully\.$/, seconds(5));
}

async function restart(vosk) {
  await chooseItem(vosk, 1);
  await vosk.log.next(/^\[WARN\] Initiating graceful restart: Forced by User via Menu$/, seconds(10));
  const pid = await launched(vosk);
  await until(async () => (await stage.machine.processes(monitorImage)).length === 1, seconds(5),
    'the new Core has the only monitor');
  assert.equal(vosk.log.matching(/has terminated/).length, 0, 'a restart is no crash');
  return pid;
}

test('the control menu: versions, diagnostic report, Red Alert, restart, quit', async (t) => {
  const folder = await serverFolder('keyboard');
  const received = [];
  const server = await startTusServer({ folder,
    onEvent: (event) => event.event === 'received' && received.push(event) });
  t.after(() => server.close());
  const site = await stage.folder('keyboard');
  const core = await startCore(stage.machine, site);
  const vosk = stage.vosk(site);
  await vosk.start();
  await vosk.log.next(/^\[INFO\] ProcDump launched successfully\./, seconds(30));

  await readVersions(vosk);
  await submitReport(vosk, core.pid, folder, received);
  const second = await restart(vosk);
  assert.notEqual(second, core.pid);
  await switchToRedAlert(vosk, second);

  // The monitor that was there keeps the Core, and its own kind of dump, until the Core ends.
  await vosk.order('crash');
  await terminated(vosk, second, 0xc0000005);
  await vosk.log.next(/^\[INFO\] Successfully uploaded and processed: .*_CRASH_FD\.zip$/, seconds(60));
  await until(() => received.length === 2, seconds(5), 'the crash report on the server');
  const dump = await checkReport(folder, received[1], 'CRASH_FD', customMemory);
  assert.equal(dump.exception.code, 0xc0000005);
  await vosk.log.next(/^\[INFO\] Launching ProcDump monitor for PID (\d+): .* -ma -e \1 /,
    seconds(40));
  await vosk.log.next(/^\[INFO\] ProcDump monitor started for new target PID \d+$/, seconds(5));

  await vosk.type('m', 'q');
  await vosk.log.next(/^\[WARN\] Menu: Quit VOSK & VELDRAN Core requested via 'Q'\.$/, seconds(10));
  await vosk.log.next(/^\[INFO\] VELDRAN Core Autonomous VOSK shutting down\.$/, seconds(20));
  assert.equal(await vosk.ended(seconds(20)), 0);
  assert.deepEqual(await stage.machine.processes(coreImage), []);
  assert.deepEqual(await stage.machine.processes(monitorImage), []);
});

test('a start-up that cannot go on says why in a box', async () => {
  const site = await stage.folder('box');
  // No room for the dump storage directory.
  await writeFile(path.join(site, 'tmp/VELDRAN_VOSK_Dumps'), 'in the way');
  const vosk = stage.vosk(site);
  await vosk.start();
  const [, reason] = await vosk.log.next(
    /^\[ERROR\] FATAL Initialization Error: (Failed to create dump storage directory: .*)$/,
    seconds(30));
  await until(() => vosk.boxTexts('VOSK Error').catch(() => false), seconds(20), 'the box');
  assert.ok((await vosk.boxTexts('VOSK Error')).includes(
    `Initialization failed: ${reason}\n\nPlease check the VOSK.log file for details.`));
  await stage.machine.typeInto('^VOSK Error$', ['Return']);
  assert.equal(await vosk.ended(seconds(20)), 1);
});
