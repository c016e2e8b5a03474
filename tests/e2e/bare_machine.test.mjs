// Alone on a machine, VOSK.exe fetches everything else by itself, and repairs what an installer
// broke.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { installedProducts } from '../../tools/stage/installation.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { until } from '../../tools/stage/waiting.mjs';
import { toolsFolder, useStage } from './support/stage.mjs';
import { launched, quit, step, tells } from './support/steps.mjs';
import { assertInOrder, forceReinstall, getsProcDump, goesBack, installsTheCore, replaces,
  stepLimit } from './support/updates.mjs';

const stage = useStage();

// An installer that refuses leaves no Core at all; the next package, published meanwhile, repairs
// this.
async function isRepaired(vosk, site) {
  const [product] = await installedProducts(stage.machine);
  site.publish('1.2.3', 'refused.zip');
  await forceReinstall(vosk, '1.2.3');
  await until(() => site.asked('/VELDRANCore.zip') === 2, stepLimit, 'the package is fetched');
  site.publish('1.2.3');
  await replaces(vosk, '1.3.0', stage.machine.nameOf(path.join(vosk.folder, 'VOSK.exe')), product);
  await goesBack(vosk, '[INFO] Installer: Install process finished with exit code: 1603',
    '[ERROR] Update: Installation command failed (Code: 1603). Check install log. Aborting update.');
  await tells(vosk, stepLimit,
    '[ERROR] Failed to launch target process: *.',
    '[WARN] Attempting automated download and installation/repair of VELDRAN Core...',
    '[INFO] Installer: Install command reported success (Exit Code: 0)',
    '[INFO] Automated installation succeeded. Will attempt relaunch next cycle.');
}

test('VOSK.exe alone', async (t) => {
  const site = await stage.publish(t, 'bare_machine');
  const folder = await stage.folder('bare_machine', { monitor: false, core: false, stats: false });
  site.publish('1.2.2');
  const vosk = stage.vosk(folder);
  const program = path.join(folder, 'VOSK.exe');

  await step(t, 'asked for versions, it tells them and does nothing else', async () => {
    const { code, output } = await stage.machine.run('wine', [program, '--version']);
    assert.equal(code, 0);
    assert.deepEqual(output.split(/\r?\n/), ['VOSK (Vigilant Oversight & Supervision Kit) v3.3',
      'VELDRAN Core: Not installed or version file not found', '']);
    assert.deepEqual(site.requests, []);
  });
  await step(t, 'started, it fetches ProcDump, installs the Core and watches it', async () => {
    await vosk.start();
    await getsProcDump(vosk);
    await installsTheCore(vosk);
    await launched(vosk);
    await assertInOrder(stage, vosk, program, '1.2.2');
    assert.ok((await readFile(path.join(folder, monitorImage)))
      .equals(await readFile(path.join(toolsFolder, monitorImage))));
  });
  await step(t, 'an installation that is refused is taken back and repaired', async () => {
    await isRepaired(vosk, site);
    await launched(vosk);
    await assertInOrder(stage, vosk, program, '1.2.3');
    assert.ok(!existsSync(`${program}.old`));
    await quit(vosk);
  });
});
