// An update can fail after the Core was stopped and VOSK's executable renamed. Whatever fails, a
// Core runs watched in the end and VOSK.exe is in its place; only where the repair fails too, VOSK
// ends and says what is to be done.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { coreImage, orderCore, startCore } from '../../tools/stage/core.mjs';
import { installedProducts, installFolder, installTarget } from '../../tools/stage/installation.mjs';
import { until } from '../../tools/stage/waiting.mjs';
import { buildFolder, seconds, useStage } from './support/stage.mjs';
import { launched, tells, terminated } from './support/steps.mjs';
import { assertInOrder, forceReinstall, installedVosk, installRelease, movedAside, preparedUpdate,
  stepLimit, useSite } from './support/updates.mjs';

const stage = useStage();
const up = useSite();

const goesBack = [
  '[ERROR] Update: Update sequence failed at some step.',
  "[ERROR] Update: Attempting to rename self back from '.old'...",
  '[INFO] Update: Renamed self back successfully.',
  '[INFO] --- Update Sequence Finished (Overall Success: No) ---',
  '[ERROR] Menu: Force reinstall failed. Will continue with current installation.',
];

// The package that is published when the Core turns out to be missing cures it.
const setbacks = [
  { name: 'an installation that is refused', file: 'refused.zip', cure: '1.2.3', leaves: '1.2.3',
    tells: ['[INFO] Installer: Install process finished with exit code: 1603',
      '[ERROR] Update: Installation command failed (Code: 1603). Check install log. Aborting update.'] },
  { name: 'a package without VOSK', file: 'without_vosk.zip', leaves: '1.3.0',
    tells: ['[INFO] Update: Core executable verified post-install.',
      `[ERROR] Update: New VOSK executable not found after install at: ${installTarget}\\VOSK.exe. Cannot relaunch.`] },
  { name: 'a new VOSK that does not start', file: 'broken_vosk.zip', leaves: '1.3.0',
    tells: ['[WARN] Update: New VOSK instance not detected. Attempting manual launch...',
      '[ERROR] Update: FAILED to launch NEW VOSK manually! Error: 193'] },
];

async function hearsOfNoRelease(vosk) {
  up.site.version = null;
  await vosk.press('m', 'down', 'down', 'down', 'down', 'enter');
  await tells(vosk, stepLimit, '[WARN] Menu: Force reinstall of VELDRAN Core requested.',
    '[ERROR] FetchVersion: API Error: No release is published.',
    '[ERROR] Menu: Could not fetch latest version from network. Reinstall aborted.');
  up.site.publish('1.2.3');
}

async function resists(vosk, core) {
  const folder = installFolder(stage.machine);
  await orderCore(folder, 'protect');
  await until(async () => (await readFile(path.join(stage.machine.statsFolder, 'core.log'), 'utf8'))
    .includes('command: protect'), seconds(5), 'the order is taken');
  await forceReinstall(vosk, '1.2.3');
  await preparedUpdate(vosk, '1.2.3', core.pid);
  await tells(vosk, stepLimit,
    '[INFO] TerminateProcess failed for Core (Error: 5) - likely already stopped.',
    `[ERROR] Update Error: Target Core process (PID: ${core.pid}) did not terminate within timeout! Aborting update.`,
    '[ERROR] Menu: Force reinstall failed. Will continue with current installation.',
    `[INFO] Successfully attached to existing PID ${core.pid}. Starting monitoring.`,
    '[INFO] ProcDump launched successfully. Monitor Process ID: *');
  await assertInOrder(vosk, installedVosk(stage.machine), '1.2.3');
  await orderCore(folder, 'exit 0');
  await terminated(vosk, core.pid, 0);
}

async function isRepaired(vosk, cure) {
  up.site.publish(cure);
  await tells(vosk, stepLimit,
    '[ERROR] Failed to launch target process: *.',
    '[WARN] Attempting automated download and installation/repair of VELDRAN Core...',
    '[INFO] Installer: Install command reported success (Exit Code: 0)',
    '[INFO] Automated installation succeeded. Will attempt relaunch next cycle.');
}

async function fallsBack(vosk, pid, { file, tells: messages, cure, leaves }) {
  const codes = (await installedProducts(stage.machine)).map(({ code }) => code);
  up.site.publish('1.2.3', file);
  await forceReinstall(vosk, '1.2.3');
  await preparedUpdate(vosk, '1.3.0', pid);
  await movedAside(vosk, `${installTarget}\\VOSK.exe`, codes);
  await tells(vosk, stepLimit, ...messages, ...goesBack);
  if (cure) await isRepaired(vosk, cure);
  const next = await launched(vosk);
  await until(() => existsSync(path.join(stage.machine.statsFolder, 'CoreVersion.txt')), seconds(5),
    'the Core tells its version');
  await assertInOrder(vosk, installedVosk(stage.machine), leaves);
  return next;
}

// A package without the Core: it neither updates nor repairs.
async function givesUp(vosk, pid) {
  const core = `${installTarget}\\VELDRAN Core.exe`;
  up.site.publish('1.2.3', 'without_core.zip');
  await forceReinstall(vosk, '1.2.3');
  await preparedUpdate(vosk, '1.3.0', pid);
  await tells(vosk, stepLimit,
    '[INFO] Update Step 7/7: Installation command reported success (Code: 0)',
    `[ERROR] Update: Core executable NOT FOUND after install at: ${core}`, ...goesBack,
    '[ERROR] Failed to launch target process: 2.',
    '[INFO] Installer: Install command reported success (Exit Code: 0)',
    `[ERROR] Installer: Install reported success, but target executable NOT FOUND at expected location: ${core}. Error checking: *`,
    '[ERROR] Installer: VELDRAN Core installation failed.',
    '[ERROR] Automated installation failed. Cannot relaunch VELDRAN Core automatically.',
    '[ERROR] Please install VELDRAN Core manually and restart the reporter.',
    '[WARN] Reporter will exit in 15 seconds due to installation failure.',
    '[WARN] Monitoring loop terminated (g_terminateMonitoring is true).',
    '[INFO] VELDRAN Core Autonomous VOSK shutting down.');
  assert.equal(await vosk.ended(seconds(10)), 0);
}

test('updates that fail half-way', async (t) => {
  const folder = await stage.folder('setbacks', { vosk: false, monitor: false, core: false });
  await installRelease(stage, '1.2.3');
  const core = await startCore(stage.machine, installFolder(stage.machine));
  up.site.publish('1.2.3');
  const vosk = stage.vosk(folder);
  const program = installedVosk(stage.machine);
  await vosk.start({ program });
  await tells(vosk, stepLimit,
    '[INFO] Startup update check: Already running latest version (1.2.3).',
    `[INFO] Successfully attached to existing PID ${core.pid}. Starting monitoring.`,
    '[INFO] ProcDump launched successfully. Monitor Process ID: *');

  await t.test('no release to be had', () => hearsOfNoRelease(vosk));
  await t.test('a Core that cannot be terminated', () => resists(vosk, core));
  let pid = await launched(vosk);
  for (const setback of setbacks) {
    await t.test(setback.name, async () => {
      pid = await fallsBack(vosk, pid, setback);
    });
  }
  await t.test('a package without the Core, and no other: VOSK ends', async () => {
    await givesUp(vosk, pid);
    assert.deepEqual(await stage.machine.processes(coreImage), []);
    assert.ok((await readFile(program))
      .equals(await readFile(path.join(buildFolder, 'loopback/VOSK.exe'))));
    assert.ok(!existsSync(`${program}.old`));
  });
});
