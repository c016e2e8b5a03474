// A newer release is published while the Core runs. As long as its package is no good, the Core
// runs on untouched; then the new Core and the new VOSK take over.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { coreImage, startCore } from '../../tools/stage/core.mjs';
import { installedProducts, installFolder, installTarget } from '../../tools/stage/installation.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { within } from '../../tools/stage/waiting.mjs';
import { seconds, useStage } from './support/stage.mjs';
import { launched, tells } from './support/steps.mjs';
import { assertInOrder, handedOver, installedVosk, installRelease, movedAside, preparedUpdate,
  quitAfterHandOver, stepLimit, useSite } from './support/updates.mjs';

const stage = useStage();
const up = useSite();

// In this order; VOSK tries again with every cycle, since the announced version stays newer.
const badPackages = [
  { name: 'missing', file: null, tells: [
    '[ERROR] DownloadFile: Download failed. CURLcode: 22*, HTTP Status: 404',
    '[ERROR] Update: Failed download. Aborting before touching local installation.'] },
  { name: 'truncated', file: 'truncated.zip', tells: [
    '[ERROR] Installer: Failed init zip reader for *VELDRANCore_latest.zip. Error: *',
    '[ERROR] Update: Failed extraction. Aborting.'] },
  { name: 'without an installer', file: 'without_installer.zip', tells: [
    "[ERROR] Installer: Could not find 'VELDRAN Core Installer.msi' in *VELDRANCore_latest.zip",
    '[ERROR] Update: Failed extraction. Aborting.'] },
  { name: 'climbing out of its folder', file: 'climbing.zip', tells: [
    "[ERROR] Installer: Could not find 'VELDRAN Core Installer.msi' in *VELDRANCore_latest.zip",
    '[ERROR] Update: Failed extraction. Aborting.'] },
  { name: 'with an installer that is none', file: 'no_database.zip', tells: [
    "[ERROR] GetMsiProductVersion: Failed to open MSI database '*VELDRAN Core Installer.msi'. Error: *",
    '[ERROR] Update: Could not read ProductVersion from MSI. Aborting.',
    '[WARN] Update: Deleted downloaded ZIP to prevent retry loop.'] },
  { name: 'too old', file: 'core-1.2.2.zip', tells: [
    '[ERROR] Update: VERSION TOO OLD! Expected at least: 1.2.3, MSI contains: 1.2.2. The download package is older than the version reported by the network.',
    '[WARN] Update: Deleted ZIP file: *VELDRANCore_latest.zip'] },
  { name: 'with a version of two numbers', file: 'two_numbers.zip', tells: [
    '[ERROR] Update: VERSION TOO OLD! Expected at least: 1.2.3, MSI contains: 1.3. *',
    '[WARN] Update: Deleted ZIP file: *VELDRANCore_latest.zip'] },
];

const failed = '[INFO] --- Update Sequence Finished (Overall Success: No) ---';

async function refusesAtStart(vosk, core) {
  await tells(vosk, stepLimit,
    '[INFO] --- Startup Update Check ---',
    '[INFO] FetchVersion: Latest version reported by API: 1.2.3',
    '[WARN] Startup update check: Newer version available! Current: 1.2.2, Latest: 1.2.3. Updating before monitoring starts.',
    ...badPackages[0].tells, failed,
    '[WARN] Startup update: Update sequence did not fully succeed. Proceeding with current version.',
    '[INFO] --- Startup Update Check Complete ---',
    `[INFO] Successfully attached to existing PID ${core.pid}. Starting monitoring.`);
}

async function refuses(vosk, core, bad) {
  up.site.package = bad.file;
  await tells(vosk, stepLimit, ...bad.tells, failed,
    '[ERROR] Update sequence did not complete successfully or failed to launch new VOSK.',
    '[WARN] Newer version detected! Current: 1.2.2, Latest: 1.2.3. Initiating self-update sequence.',
    '[INFO] Pre-Update Validation: Verifying state before proceeding...',
    `[INFO] Pre-Update: Target process PID ${core.pid} confirmed running.`,
    '[INFO] Pre-Update: ProcDump process (PID: *) confirmed running.');
  assert.equal((await stage.machine.processes(coreImage)).length, 1);
  assert.equal((await stage.machine.processes(monitorImage)).length, 1);
  assert.ok(!existsSync(path.join(vosk.folder, 'tmp/VELDRAN Core Installer.msi')));
}

test('a newer release, published while the Core runs', async (t) => {
  const folder = await stage.folder('update', { vosk: false, monitor: false, core: false });
  await installRelease(stage, '1.2.2');
  const core = await startCore(stage.machine, installFolder(stage.machine));
  up.site.publish('1.2.3', badPackages[0].file);
  const vosk = stage.vosk(folder);
  const program = installedVosk(stage.machine);
  await vosk.start({ program });
  await refusesAtStart(vosk, core);
  for (const bad of badPackages.slice(1)) {
    await t.test(`a package ${bad.name}: the Core runs on`, () => refuses(vosk, core, bad));
  }
  const codes = (await installedProducts(stage.machine)).map(({ code }) => code);
  assert.equal(codes.length, 1);

  await t.test('a good package: Core and VOSK are replaced', async () => {
    up.site.publish('1.2.3');
    await preparedUpdate(vosk, '1.2.3', core.pid);
    await movedAside(vosk, `${installTarget}\\VOSK.exe`, codes);
    await tells(vosk, stepLimit,
      '[INFO] Installer: Install process finished with exit code: 0',
      '[INFO] Update: Core executable verified post-install.',
      '[INFO] Update: Waiting 5 seconds for MSI to potentially auto-launch new VOSK...');
    await handedOver(vosk);
    await tells(vosk, stepLimit,
      '[INFO] Startup update check: Current version unknown (0.0.0). Skipping update to avoid reinstall before first run.');
    const pid = await launched(vosk);
    await tells(vosk, seconds(5),
      '[INFO] Detected Core version changed/read: 1.2.3 (Previous known: 0.0.0)');
    assert.notEqual(pid, core.pid);
    await assertInOrder(vosk, program, '1.2.3');
    assert.ok(existsSync(`${program}.old`), 'the former VOSK lies beside the new one');
    await within(seconds(5), core.ended, 'The former Core runs on.');
  });
  await quitAfterHandOver(vosk);
});
