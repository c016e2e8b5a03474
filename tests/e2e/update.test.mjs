// A newer release is published while the Core runs. As long as its package is bad, the Core runs on
// untouched; then the new Core and the new VOSK take over.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { coreImage, startCore } from '../../tools/stage/core.mjs';
import { install, installedProducts, installFolder, installTarget }
  from '../../tools/stage/installation.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until, within } from '../../tools/stage/waiting.mjs';
import { seconds, useStage } from './support/stage.mjs';
import { launched, step, tells } from './support/steps.mjs';
import { assertInOrder, forceReinstall, getsProcDump, goesBack, installerName, replaces, stepLimit }
  from './support/updates.mjs';

const stage = useStage();

const failed = '[INFO] --- Update Sequence Finished (Overall Success: No) ---';
const runningVosk = `${installTarget}\\VOSK.exe`;

// Installs a release with its VOSK; a user has started its Core.
async function installedMachine(site) {
  const folder = await stage.folder('update', { vosk: false, monitor: false, core: false });
  await install(stage.machine, path.join(site.folder, 'core-1.2.2', installerName));
  return { folder, core: await startCore(stage.machine, installFolder(stage.machine)) };
}

async function refusesAtStart(vosk, core) {
  await getsProcDump(vosk);
  await tells(vosk, stepLimit,
    '[WARN] Startup update check: Newer version available! Current: 1.2.2, Latest: 1.2.3. Updating before monitoring starts.',
    "[ERROR] GetMsiProductVersion: Failed to open MSI database '*VELDRAN Core Installer.msi'. Error: *",
    '[ERROR] Update: Could not read ProductVersion from MSI. Aborting.', failed,
    '[WARN] Startup update: Update sequence did not fully succeed. Proceeding with current version.',
    `[INFO] Successfully attached to existing PID ${core.pid}. Starting monitoring.`);
}

// VOSK tries again in the next cycle, since the announced version stays newer; after that it waits.
async function refusesWhileWatching(vosk, core, site) {
  site.package = 'two_numbers.zip';
  await tells(vosk, stepLimit,
    '[WARN] Newer version detected! Current: 1.2.2, Latest: 1.2.3. Initiating self-update sequence.',
    `[INFO] Pre-Update: Target process PID ${core.pid} confirmed running.`,
    '[ERROR] Update: VERSION TOO OLD! Expected at least: 1.2.3, MSI contains: 1.3. *', failed);
  for (const image of [coreImage, monitorImage]) {
    assert.equal((await stage.machine.processes(image)).length, 1, image);
  }
}

// The Core of this package is good; its VOSK is no program.
async function takesBack(vosk, site) {
  const [product] = await installedProducts(stage.machine);
  site.package = 'broken_vosk.zip';
  await forceReinstall(vosk, '1.2.3');
  await replaces(vosk, '1.2.3', runningVosk, product);
  await goesBack(vosk, '[INFO] Update: Core executable verified post-install.',
    '[WARN] Update: New VOSK instance not detected. Attempting manual launch...',
    '[ERROR] Update: FAILED to launch NEW VOSK manually! Error: 193');
}

async function handsOver(vosk, site) {
  const [product] = await installedProducts(stage.machine);
  site.publish('1.3.0');
  await forceReinstall(vosk, '1.3.0');
  await replaces(vosk, '1.3.0', runningVosk, product);
  const [, pid] = await vosk.log.next(
    /^\[WARN\] Update: Successfully launched NEW VOSK manually \(PID: (\d+)\)\. Old VOSK will now exit\.$/,
    stepLimit);
  await vosk.ended(seconds(60));
  vosk.pid = Number(pid);
}

test('a newer release', async (t) => {
  const site = await stage.publish(t, 'update');
  const { folder, core } = await installedMachine(site);
  const program = path.join(installFolder(stage.machine), 'VOSK.exe');
  const vosk = stage.vosk(folder);
  site.publish('1.2.3', 'no_database.zip');
  await vosk.start({ program });

  await step(t, 'with an installer that is none', () => refusesAtStart(vosk, core));
  await step(t, 'with a version of two numbers', () => refusesWhileWatching(vosk, core, site));
  await step(t, 'with a VOSK that does not start', async () => {
    await takesBack(vosk, site);
    await within(seconds(20), core.ended, 'The former Core runs on.');
    await launched(vosk);
    await assertInOrder(stage, vosk, program, '1.2.3');
  });
  await step(t, 'that is good: Core and VOSK are replaced', async () => {
    await handsOver(vosk, site);
    await launched(vosk);
    await assertInOrder(stage, vosk, program, '1.3.0');
    assert.ok(existsSync(`${program}.old`), 'the former VOSK lies beside the new one');
  });
  await step(t, 'Q ends the successor with the Core', async () => {
    await vosk.press('q');
    await tells(vosk, seconds(60), '[INFO] VELDRAN Core Autonomous VOSK shutting down.');
    for (const image of ['VOSK.exe', coreImage]) {
      await until(async () => (await stage.machine.processes(image)).length === 0, seconds(20),
        `no ${image} is left`);
    }
  });
});
