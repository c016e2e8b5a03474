// VOSK.exe alone on a machine gets everything else by itself, and replaces all of it when told to.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { readFile, rm } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { coreImage } from '../../tools/stage/core.mjs';
import { installedProducts, installFolder, installTarget, versionOnDisk } from '../../tools/stage/installation.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until } from '../../tools/stage/waiting.mjs';
import { seconds, toolsFolder, useStage } from './support/stage.mjs';
import { launched, tells } from './support/steps.mjs';
import { assertInOrder, forceReinstall, handedOver, installedVosk, movedAside, preparedUpdate,
  stepLimit, useSite } from './support/updates.mjs';

const stage = useStage();
const up = useSite();

async function getsProcDump(vosk) {
  await tells(vosk, stepLimit,
    '[WARN] ProcDump not found in application directory (*). Attempting download and extraction...',
    '[INFO] Attempting download from URL: https://localhost:18444/files/Procdump.zip',
    '[INFO] DownloadFile: Download completed successfully.',
    "[INFO] ExtractProcDump: Found 'procdump64.exe' in zip archive.",
    '[INFO] Cleaned up downloaded ProcDump zip file: *\\Procdump.zip',
    '[INFO] ProcDump successfully downloaded and extracted to: *');
}

async function installsTheCore(vosk) {
  await tells(vosk, stepLimit,
    "[WARN] Target executable 'VELDRAN Core.exe' not found. Attempting automatic installation...",
    '[INFO] Installer: Downloading from: https://localhost:18444/VELDRANCore.zip',
    '[INFO] Installer: Successfully extracted VELDRAN Core Installer.msi to *',
    '[INFO] Installer: No existing related products found using UpgradeCode.',
    `[INFO] Installer: Executing Install Command: msiexec.exe /i "*\\VELDRAN_Install\\VELDRAN Core Installer.msi" /qn TARGETDIR="${installTarget}" /L*v "*\\VELDRAN_Install\\VELDRAN_Core_Install_Log.txt"`,
    '[INFO] Installer: Install process finished with exit code: 0',
    `[INFO] Installer: Confirmed target executable exists after installation: ${installTarget}\\VELDRAN Core.exe`,
    '[INFO] Installer: Temporary directory cleaned up.',
    '[INFO] Target found at default location after installation.',
    '[INFO] --- Startup Update Check ---',
    '[INFO] Startup update check: Current version unknown (0.0.0). Skipping update to avoid reinstall before first run.',
    `[INFO] Executing Command Line: ${installTarget}\\VELDRAN Core.exe`);
}

// Where an update failed and VOSK's own executable is gone as well, VOSK ends.
async function cannotGoBack(vosk, program) {
  up.site.publish('1.2.3', 'refused.zip');
  await forceReinstall(vosk, '1.2.3');
  await tells(vosk, stepLimit, '[INFO] Update Step 6/7: Rename successful.');
  await rm(`${program}.old`);
  await tells(vosk, stepLimit,
    '[ERROR] Update: Installation command failed (Code: 1603). Check install log. Aborting update.',
    '[ERROR] Update: Update sequence failed at some step.',
    "[ERROR] Update: Attempting to rename self back from '.old'...",
    '[ERROR] Update: CRITICAL - Failed to rename self back! Manual intervention required. Error: *',
    '[INFO] --- Update Sequence Finished (Overall Success: No) ---',
    '[ERROR] Menu: Force reinstall failed. Will continue with current installation.',
    '[WARN] Monitoring loop terminated (g_terminateMonitoring is true).',
    '[INFO] VELDRAN Core Autonomous VOSK shutting down.');
  await until(async () => (await stage.machine.processes('VOSK.exe')).length === 0, seconds(10),
    'VOSK has ended');
}

test('from VOSK.exe alone to a watched Core, and a reinstallation of everything', async (t) => {
  const folder = await stage.folder('bare_machine', { monitor: false, core: false, stats: false });
  up.site.publish('1.2.2');
  const vosk = stage.vosk(folder);
  const copied = path.join(folder, 'VOSK.exe');
  const program = installedVosk(stage.machine);
  let pid;

  await t.test('it fetches ProcDump, installs the Core and watches it', async () => {
    await vosk.start();
    await getsProcDump(vosk);
    await installsTheCore(vosk);
    pid = await launched(vosk);
    await assertInOrder(vosk, copied, '1.2.2');
    assert.ok((await readFile(path.join(folder, monitorImage)))
      .equals(await readFile(path.join(toolsFolder, monitorImage))));
    assert.deepEqual(await vosk.storedFiles(), []);
  });

  await t.test('told to reinstall, it replaces Core and VOSK by the same version', async () => {
    const codes = (await installedProducts(stage.machine)).map(({ code }) => code);
    await forceReinstall(vosk, '1.2.2');
    await preparedUpdate(vosk, '1.2.2', pid);
    await movedAside(vosk, vosk.machine.nameOf(copied), codes);
    await handedOver(vosk);
    await getsProcDump(vosk);  // the new VOSK, in its new place
    await tells(vosk, stepLimit,
      '[INFO] Startup update check: Already running latest version (1.2.2).');
    assert.notEqual(await launched(vosk), pid);
    await assertInOrder(vosk, program, '1.2.2');
    assert.ok(existsSync(`${copied}.old`) && !existsSync(copied), 'the copy has made way');
    assert.equal(up.site.asked('/VELDRANCore.zip'), 2);
  });

  await t.test('an update that can neither be finished nor taken back ends VOSK', async () => {
    await cannotGoBack(vosk, program);
    assert.deepEqual(await stage.machine.processes(coreImage), []);
    assert.equal(await versionOnDisk(stage.machine), undefined);
    assert.ok(existsSync(path.join(installFolder(stage.machine), monitorImage)));
  });
});
