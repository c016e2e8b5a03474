// What the tests of installing and updating share: the long stories of the log, and the facts of a
// machine.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { readFile } from 'node:fs/promises';
import path from 'node:path';

import { coreImage } from '../../../tools/stage/core.mjs';
import { installedProducts, installTarget, versionOnDisk }
  from '../../../tools/stage/installation.mjs';
import { monitorImage } from '../../../tools/stage/vosk_run.mjs';
import { until } from '../../../tools/stage/waiting.mjs';
import { seconds } from './stage.mjs';
import { tells } from './steps.mjs';

export const installerName = 'VELDRAN Core Installer.msi';
export const stepLimit = seconds(120);

const installCommand = `msiexec.exe /i "*\\VELDRAN_Install\\${installerName}" /qn TARGETDIR="${installTarget}" /L*v "*\\VELDRAN_Install\\VELDRAN_Core_Install_Log.txt"`;

/** On a machine without ProcDump. */
export async function getsProcDump(vosk) {
  await tells(vosk, stepLimit,
    '[WARN] ProcDump not found in application directory (*). Attempting download and extraction...',
    '[INFO] Attempting download from URL: https://localhost:*/files/Procdump.zip',
    '[INFO] DownloadFile: Download completed successfully.',
    '[INFO] Cleaned up downloaded ProcDump zip file: *\\Procdump.zip',
    '[INFO] ProcDump successfully downloaded and extracted to: *');
}

/** On a machine without a Core. */
export async function installsTheCore(vosk) {
  await tells(vosk, stepLimit,
    "[WARN] Target executable 'VELDRAN Core.exe' not found. Attempting automatic installation...",
    '[INFO] Installer: Downloading from: https://localhost:*/VELDRANCore.zip',
    '[INFO] Installer: No existing related products found using UpgradeCode.',
    `[INFO] Installer: Executing Install Command: ${installCommand}`,
    '[INFO] Installer: Install process finished with exit code: 0',
    `[INFO] Installer: Confirmed target executable exists after installation: ${installTarget}\\VELDRAN Core.exe`,
    '[INFO] Startup update check: Current version unknown (0.0.0). Skipping update to avoid reinstall before first run.');
}

export async function forceReinstall(vosk, version) {
  await vosk.press('m', 'down', 'down', 'down', 'down', 'enter');
  await tells(vosk, stepLimit, '[WARN] Menu: Force reinstall of VELDRAN Core requested.',
    `[INFO] Menu: Latest version reported by network: ${version}`,
    `[WARN] --- Starting Update Sequence to Version ${version} ---`);
}

/**
 * A package with `version` is found good; the Core ends, VOSK, whose name is given, makes way, the
 * installed `product` goes, the new one is being installed.
 */
export async function replaces(vosk, version, name, { code }) {
  await tells(vosk, stepLimit,
    `[INFO] Update Step 3/7: MSI version* ${version} *`,
    '[INFO] Update Step 4/7: Core process termination confirmed.',
    `[INFO] RenameSelf: Successfully renamed running executable to: ${name}.old`,
    `[INFO] Installer: Step Uninstall - Executing Command: msiexec.exe /x ${code} /qn MSIRESTARTMANAGERCONTROL=Disable /L*v "*\\VELDRAN_Install\\VELDRAN_Core_Uninstall_${code}_Log.txt"`,
    '[INFO] Installer: Uninstall process finished with exit code: 0',
    `[INFO] Installer: Step Install - Executing Command: ${installCommand}`);
}

/** The update has failed behind that; VOSK has its place again. */
export async function goesBack(vosk, ...messages) {
  await tells(vosk, stepLimit, ...messages,
    '[ERROR] Update: Update sequence failed at some step.',
    "[ERROR] Update: Attempting to rename self back from '.old'...",
    '[INFO] Update: Renamed self back successfully.',
    '[INFO] --- Update Sequence Finished (Overall Success: No) ---');
}

/** The facts of a machine in good order: one VOSK, one Core of `version`, one monitor. */
export async function assertInOrder(stage, vosk, program, version) {
  const { machine } = stage;
  for (const image of ['VOSK.exe', coreImage, monitorImage]) {
    await until(async () => (await machine.processes(image)).length === 1, seconds(20),
      `exactly one ${image} runs`);
  }
  assert.ok((await readFile(program)).equals(await readFile(stage.program)),
    'VOSK.exe is in its place');
  assert.equal(await versionOnDisk(machine), version);
  assert.deepEqual((await installedProducts(machine)).map((product) => product.version), [version]);
  const told = path.join(machine.statsFolder, 'CoreVersion.txt');
  await until(async () =>
    await readFile(told, 'utf8').catch(() => undefined) === `${version}\r\n`, seconds(20),
  'the Core tells its version');
  assert.ok(!existsSync(path.join(vosk.folder, 'tmp/VELDRAN_Install')), 'no leftovers');
}
