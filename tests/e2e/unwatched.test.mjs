// A Core is never left running unwatched.
import assert from 'node:assert/strict';
import { readFile, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { coreImage } from '../../tools/stage/core.mjs';
import { installMonitor, monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until } from '../../tools/stage/waiting.mjs';
import { buildFolder, seconds, useStage } from './support/stage.mjs';
import { launched, quit } from './support/steps.mjs';

const stage = useStage();

// The Core is launched, cannot be watched for the reason given, and is ended.
async function launchedInVain(vosk, reason) {
  const [, pid] = await vosk.log.next(/^\[INFO\] New Target Process PID: (\d+)$/, seconds(40));
  await vosk.log.next(reason, seconds(10));
  await vosk.log.next(new RegExp(`^\\[ERROR\\] Successfully relaunched target PID ${pid}, but FAILED to launch ProcDump monitor!$`), seconds(5));
  await vosk.log.next(/^\[WARN\] Crash dump generation will NOT occur\.$/, seconds(5));
  await vosk.log.next(/^\[ERROR\] Terminating the newly launched target process\.$/, seconds(5));
  await vosk.log.next(/^\[INFO\] TerminateProcessL: TerminateProcess API succeeded for PID: /, seconds(5));
  await until(async () => (await stage.machine.processes(coreImage)).length === 0, seconds(3),
    'no Core is left');
  return Number(pid);
}

test('a Core whose monitor cannot be started is ended and tried again', async () => {
  const site = await stage.folder('unwatched', { stats: false });
  const vosk = stage.vosk(site);
  const err = path.join(site, 'vosk.err');
  await vosk.start({ err });
  await vosk.log.next(/^\[WARN\] Target log root directory does not exist or is not accessible: .*TestNet/, seconds(20));
  await vosk.log.next(/^\[INFO\] Log Source Dir: N\/A \(Not Found\/Accessible\)$/, seconds(5));
  await rm(path.join(site, monitorImage));  // after VOSK has made sure of it
  const first = await launchedInVain(vosk,
    /^\[ERROR\] ProcDump executable not found in application directory: Checked .*procdump64\.exe and fallback\.$/);
  // Under its second name, and no program at all: 193 is ERROR_BAD_EXE_FORMAT.
  const broken = path.join(site, 'procdump.exe');
  await writeFile(broken, 'this is no program');
  const second = await launchedInVain(vosk,
    /^\[ERROR\] Failed to launch ProcDump for PID \d+\. CreateProcessW error code: 193$/);
  assert.equal(vosk.log.matching(/Using fallback ProcDump executable: .*procdump\.exe$/).length, 1);
  await rm(broken);
  await installMonitor(site, buildFolder);
  const third = await launched(vosk);
  assert.equal(new Set([first, second, third]).size, 3);
  assert.equal((await stage.machine.processes(monitorImage)).length, 1);
  assert.equal(vosk.log.matching(/abnormally/).length, 0, 'ending an unwatched Core is no crash');
  await quit(vosk);
  assert.deepEqual(await stage.machine.processes(coreImage), []);

  // Only error redirected: the console took escape sequences, so the lines are coloured.
  assert.match(await readFile(err, 'utf8'), /\x1b\[91mERROR\x1b\[0m/);
});
