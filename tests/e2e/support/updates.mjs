// What the tests of installing and updating share: the sites, machines at different stages of
// life, and the long stories of the log.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { after, before } from 'node:test';

import { makePackages } from '../../../tools/sample_package/make.mjs';
import { makeCertificate } from '../../../tools/servers/certificate.mjs';
import { startSiteServer } from '../../../tools/servers/site_server.mjs';
import { coreImage } from '../../../tools/stage/core.mjs';
import { install, installedProducts, installFolder, installTarget, versionOnDisk }
  from '../../../tools/stage/installation.mjs';
import { monitorImage } from '../../../tools/stage/vosk_run.mjs';
import { until } from '../../../tools/stage/waiting.mjs';
import { buildFolder, seconds, serverFolder } from './stage.mjs';
import { tells } from './steps.mjs';

const installerName = 'VELDRAN Core Installer.msi';
export const stepLimit = seconds(40);

/** Call once at the top of a test file. `site` of the result is up for all its tests. */
export function useSite() {
  const up = {};
  before(async () => {
    const folder = await makePackages(buildFolder);
    const certificate = await makeCertificate(await serverFolder('site'));
    up.site = await startSiteServer({ folder, certificate });
  });
  after(() => up.site?.close());
  return up;
}

/** Puts a release on the machine as its installer does, VOSK with it. */
export const installRelease = async (stage, version) =>
  install(stage.machine,
    path.join(await makePackages(buildFolder), `core-${version}`, installerName));

/** The VOSK that the installer has put beside the Core. */
export const installedVosk = (machine) => path.join(installFolder(machine), 'VOSK.exe');

export async function forceReinstall(vosk, version) {
  await vosk.press('m', 'down', 'down', 'down', 'down', 'enter');
  await tells(vosk, stepLimit, '[WARN] Menu: Force reinstall of VELDRAN Core requested.',
    `[INFO] Menu: Latest version reported by network: ${version}`,
    `[WARN] --- Starting Update Sequence to Version ${version} ---`);
}

/** A package is fetched and found good; with a Core that runs watched as `pid`, both end. */
export async function preparedUpdate(vosk, version, pid) {
  await tells(vosk, stepLimit,
    '[INFO] Update Step 1/7: Temp directory ready.',
    '[INFO] Update Step 2/7: Downloading and extracting new version...',
    '[INFO] Attempting download from URL: https://localhost:18444/VELDRANCore.zip',
    '[INFO] DownloadFile: Download completed successfully.',
    '[INFO] Update Step 2/7: Download and extraction complete.',
    `[INFO] Update Step 3/7: MSI version* ${version} *`,
    '[INFO] Update Step 4/7: Terminating current processes...',
    '[INFO] Terminating ProcDump (PID: *)...',
    `[INFO] Terminating VELDRAN Core (PID: ${pid})...`);
}

/** VOSK makes way; what is installed goes. `name` is the running VOSK.exe's, `codes` the products'. */
export async function movedAside(vosk, name, codes) {
  await tells(vosk, stepLimit,
    '[INFO] Update Step 4/7: Core process termination confirmed.',
    '[INFO] Update Step 4/7: Process termination phase complete.',
    '[INFO] Update Step 5/7: Clearing old CoreVersion.txt file...',
    '[INFO] Update Step 6/7: Renaming current VOSK executable...',
    `[INFO] RenameSelf: Successfully renamed running executable to: ${name}.old`,
    '[INFO] Update Step 6/7: Rename successful.',
    ...codes.flatMap((code) => [`[INFO] Update: Uninstalling ProductCode: ${code}`,
      `[INFO] Installer: Step Uninstall - Executing Command: msiexec.exe /x ${code} /qn MSIRESTARTMANAGERCONTROL=Disable /L*v "*\\VELDRAN_Install\\VELDRAN_Core_Uninstall_${code}_Log.txt"`,
      '[INFO] Installer: Uninstall process finished with exit code: 0']),
    '[INFO] Update Step 6b/7: Uninstall attempt finished successfully for found versions.',
    '[INFO] Update Step 7/7: Installing new version...',
    `[INFO] Installer: Step Install - Executing Command: msiexec.exe /i "*\\VELDRAN_Install\\${installerName}" /qn TARGETDIR="${installTarget}" /L*v "*\\VELDRAN_Install\\VELDRAN_Core_Install_Log.txt"`);
}

/** The new release is in place and its VOSK takes over; `vosk` stands for that one from here on. */
export async function handedOver(vosk) {
  const [, pid] = await vosk.log.next(
    /^\[WARN\] Update: Successfully launched NEW VOSK manually \(PID: (\d+)\)\. Old VOSK will now exit\.$/,
    stepLimit);
  await vosk.ended(seconds(20));
  vosk.pid = Number(pid);
}

/** Presses Q in the VOSK that took over, and sees it go with the Core. */
export async function quitAfterHandOver(vosk) {
  await vosk.press('q');
  await tells(vosk, seconds(20), '[WARN] Quit signal received by user. Shutting down...',
    '[INFO] VELDRAN Core Autonomous VOSK shutting down.');
  for (const image of ['VOSK.exe', coreImage]) {
    await until(async () => (await vosk.machine.processes(image)).length === 0, seconds(10),
      `no ${image} is left`);
  }
}

/** The facts of a machine in good order: one VOSK, one Core of `version`, one monitor. */
export async function assertInOrder(vosk, program, version) {
  const { machine } = vosk;
  for (const image of ['VOSK.exe', coreImage, monitorImage]) {
    await until(async () => (await machine.processes(image)).length === 1, seconds(5),
      `exactly one ${image} runs`);
  }
  assert.ok((await readFile(program)).equals(await readFile(path.join(buildFolder,
    'loopback/VOSK.exe'))), 'VOSK.exe is in its place');
  assert.equal(await versionOnDisk(machine), version);
  assert.deepEqual((await installedProducts(machine)).map((product) => product.version), [version]);
  assert.equal(await readFile(path.join(machine.statsFolder, 'CoreVersion.txt'), 'utf8'),
    `${version}\r\n`);
  assert.ok(!existsSync(path.join(vosk.folder, 'tmp/VELDRAN_Install')), 'no leftovers');
}
