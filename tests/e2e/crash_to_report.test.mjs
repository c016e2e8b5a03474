// The main job with a real TUS server: whatever ends the Core, it runs again, and every dump
// becomes a report.
import assert from 'node:assert/strict';
import { readFile, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { parseMinidump } from '../../tools/servers/minidump.mjs';
import { startTusServer } from '../../tools/servers/tus_server.mjs';
import { checkArchive, listEntries, readEntry } from '../../tools/servers/zip_archive.mjs';
import { coreImage } from '../../tools/stage/core.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until } from '../../tools/stage/waiting.mjs';
import { seconds, serverFolder, useStage } from './support/stage.mjs';
import { launched, quit, terminated } from './support/steps.mjs';

const stage = useStage();

async function twoDumpsBecomeTwoReports(vosk, pid, received) {
  const behaviour = path.join(vosk.folder, 'monitor_behaviour.txt');
  await vosk.order('crash');
  await terminated(vosk, pid, 0xc0000005);
  await vosk.log.next(/^\[ERROR\] Target process exited abnormally \(Code: 3221225477\)\. Assuming crash #1$/, seconds(5));
  await vosk.log.next(/^\[INFO\] Waiting 2500ms for dump file generation\.\.\.$/, seconds(5));
  await vosk.log.next(/^\[INFO\] Found 2 new dump file\(s\) to process\.$/, seconds(10));
  for (let report = 0; report < 2; ++report) {
    await vosk.log.next(/^\[INFO\] Successfully uploaded and processed: .*_CRASH\.zip$/, seconds(30));
  }
  await writeFile(behaviour, 'one_dump');
  await until(() => received.length === 2, seconds(5),
    'two reports on the server');
  assert.notEqual(received[0].fileName, received[1].fileName);
  // The host report goes after the line that tells of the upload.
  await until(async () => (await vosk.storedFiles()).length === 0, seconds(5),
    'nothing is left behind');
}

async function checkReport(folder, report) {
  const file = path.join(folder, report.fileName);
  assert.equal(report.size, report.announcedSize);
  assert.deepEqual(report.metadata, { filename: report.fileName, filetype: 'application/zip' });
  await checkArchive(file);
  const entries = await listEntries(file);
  const dumpName = report.fileName.replace(/_[^_]+_CRASH\.zip$/, '.dmp');
  assert.match(dumpName, /^VELDRAN Core\.exe_\d{6}_\d{6}\.dmp$/);
  assert.equal(entries[0], dumpName, 'the dump comes first');
  const withLogs = ['TestNet/CoreVersion.txt', 'TestNet/core.log', 'TestNet/node/',
    'TestNet/node/blocks.log'];
  assert.deepEqual(entries.filter((name) => name.startsWith('TestNet/')).sort(), withLogs.sort());
  const dump = parseMinidump(await readEntry(file, dumpName));
  assert.equal(dump.exception.code, 0xc0000005);
  assert.equal(dump.type, 0x1064n);
  assert.match((await readEntry(file, 'TestNet/core.log')).toString(), /command: crash/);
}

async function normalExit(vosk, pid) {
  await sleep(seconds(1));  // one cycle must see it running, or its end is no news
  await vosk.order('exit 0');
  await terminated(vosk, pid, 0);
  await vosk.log.next(/^\[INFO\] Target process exited normally \(Code 0\)\.$/, seconds(5));
  await vosk.log.next(/^\[INFO\] No new dump files found in storage directory\.$/, seconds(10));
  await vosk.log.next(/^\[INFO\] --- Target process is not running ---$/, seconds(5));
  await vosk.log.next(/^\[INFO\] Crash Count So Far: 1$/, seconds(5));
}

async function crashWithoutDump(vosk, pid) {
  await vosk.order('exit 7');
  await terminated(vosk, pid, 7);
  await vosk.log.next(/Assuming crash #2$/, seconds(5));
  await vosk.log.next(/^\[WARN\] CRITICAL: Target process termination indicated a crash \(Exit Code: 7\), but NO DUMP FILE was found!$/, seconds(10));
}

// The system gives 259 as the exit code of a process that still runs, so VOSK takes a Core that
// ended with it for a running one as long as it holds its handle: no crash is counted.
async function exitWith259(vosk) {
  const before = vosk.log.lines.length;
  await vosk.order('exit 259');
  await until(async () => (await stage.machine.processes(coreImage)).length === 0, seconds(10),
    'the Core has ended');
  await sleep(seconds(3));
  await vosk.log.update();
  const since = vosk.log.lines.slice(before).map((line) => line.text);
  assert.deepEqual(since.filter((text) => /terminated|abnormally|relaunch/.test(text)), []);
}

test('crash, normal exit, crash without a dump, exit code 259, quit', async (t) => {
  const folder = await serverFolder('crash_to_report');
  const received = [];
  const server = await startTusServer({ folder,
    onEvent: (event) => event.event === 'received' && received.push(event) });
  t.after(() => server.close());
  const site = await stage.folder('crash_to_report');
  await writeFile(path.join(site, 'monitor_behaviour.txt'), 'two_dumps');
  const vosk = stage.vosk(site);
  await vosk.start();

  const first = await launched(vosk);
  await twoDumpsBecomeTwoReports(vosk, first, received);
  for (const report of received) await checkReport(folder, report);
  const second = await launched(vosk);
  assert.notEqual(second, first);
  await normalExit(vosk, second);
  const third = await launched(vosk);
  await crashWithoutDump(vosk, third);
  await launched(vosk);
  await exitWith259(vosk);
  await quit(vosk);

  assert.equal(received.length, 2, 'no report without a dump');
  assert.deepEqual(await stage.machine.processes(monitorImage), []);
  const log = await readFile(vosk.log.file, 'utf8');
  assert.match(log, /^\r?\n--- Log Session Start ---\r?\n/);
});
