// Shows an update on real input: a newer release is published while the Core runs, and VOSK
// replaces the Core and itself. scripts/demo prepares what this needs. The exit status is 0 only if
// every step was seen.
import { existsSync } from 'node:fs';
import { mkdir, readFile, rm } from 'node:fs/promises';
import path from 'node:path';

import { makePackages } from '../sample_package/make.mjs';
import { makeCertificate } from '../servers/certificate.mjs';
import { startSiteServer } from '../servers/site_server.mjs';
import { coreImage, startCore } from '../stage/core.mjs';
import { install, installedProducts, installFolder, installTarget, versionOnDisk }
  from '../stage/installation.mjs';
import { layOut, monitorImage, VoskRun } from '../stage/vosk_run.mjs';
import { until } from '../stage/waiting.mjs';
import { buildFolder, demoFolder, driver, judge, narrate, perform, say, seconds, showLine,
  startMachine } from './theatre.mjs';

const folder = path.join(demoFolder, 'update');
const [oldVersion, newVersion] = ['1.2.2', '1.2.3'];

async function tearDown({ machine, site }) {
  if (machine) await machine.stop();
  if (site) await site.close();
}

// Installs one release, its Core and its VOSK, and lets the Core begin to run.
async function prepare(stage) {
  narrate('Setting the stage below build/demo/: a Wine prefix with a private display, and on this',
    'machine the sites that VOSK asks over HTTPS: version service, package, ProcDump.');
  const packages = await makePackages(buildFolder);
  stage.site = await startSiteServer({ folder: packages,
    certificate: await makeCertificate(path.join(demoFolder, 'site_certificates')) });
  stage.site.publish(oldVersion);
  const { machine } = Object.assign(stage, { machine: await startMachine() });
  await layOut(folder, buildFolder, { vosk: false, core: false, monitor: false });
  await rm(machine.statsFolder, { recursive: true, force: true });
  await mkdir(machine.statsFolder, { recursive: true });

  narrate(`Release ${oldVersion} is installed by its MSI, as an administrator would: the Core and VOSK lie in`,
    `${installTarget}. The Core is started by hand.`);
  await install(machine,
    path.join(packages, `core-${oldVersion}`, 'VELDRAN Core Installer.msi'));
  const core = await startCore(machine, installFolder(machine));
  say(`   The Core runs as PID ${core.pid}, version ${await versionOnDisk(machine)}.`);
  return core;
}

async function showAdoption(vosk, core) {
  narrate('VOSK starts. There is no ProcDump on this machine, so it fetches one; no newer release is',
    'published; a Core runs already, so VOSK watches that one.');
  await vosk.start({ program: path.join(installFolder(vosk.machine), 'VOSK.exe') });
  await vosk.log.next(/ProcDump successfully downloaded and extracted to: /, seconds(40));
  await vosk.log.next(/Already running latest version \(1\.2\.2\)\./, seconds(20));
  await vosk.log.next(new RegExp(`Successfully attached to existing PID ${core.pid}\\.`), seconds(20));
  await vosk.log.next(/ProcDump launched successfully\./, seconds(10));
}

async function showSequence(vosk, site) {
  narrate(`Release ${newVersion} is published. VOSK would see that within five minutes; the operator does not`,
    'wait and picks "Force Reinstall VELDRAN Core" in the menu. Nothing is touched before the',
    'package is here and its version was read; then monitor and Core end, VOSK renames its own',
    'running executable, the old release goes and the new one comes.');
  site.publish(newVersion);
  await vosk.press('m', 'down', 'down', 'down', 'down', 'enter');
  for (const step of [/Update Step 1\/7: Temp directory ready\./,
    /Update Step 2\/7: Download and extraction complete\./,
    /Update Step 3\/7: MSI version verified: 1\.2\.3 matches expected 1\.2\.3/,
    /Update Step 4\/7: Process termination phase complete\./,
    /Update: Successfully removed .*CoreVersion\.txt/,
    /Update Step 6\/7: Rename successful\./,
    /Update Step 6b\/7: Uninstall attempt finished successfully for found versions\./,
    /Update Step 7\/7: Installation command reported success \(Code: 0\)/,
    /Update: Core executable verified post-install\./]) {
    await vosk.log.next(step, seconds(60));
  }
}

async function showHandOver(vosk) {
  narrate('An installer may start the new VOSK by itself; this one does not, so the old VOSK does it',
    'after five seconds and ends. The new one finds no Core running and launches it.');
  const [, pid] = await vosk.log.next(
    /Successfully launched NEW VOSK manually \(PID: (\d+)\)/, seconds(30));
  await vosk.ended(seconds(20));
  vosk.pid = Number(pid);
  const [, corePid] = await vosk.log.next(/New Target Process PID: (\d+)/, seconds(40));
  await vosk.log.next(/ProcDump monitor started for new target PID/, seconds(10));
  await vosk.log.next(/Detected Core version changed\/read: 1\.2\.3 /, seconds(10));
  return corePid;
}

async function showFacts(vosk) {
  const { machine } = vosk;
  const one = async (image) => (await machine.processes(image)).length === 1;
  const products = (await installedProducts(machine)).map((product) => product.version);
  const told = await readFile(path.join(machine.statsFolder, 'CoreVersion.txt'), 'utf8');
  narrate('Seen on the machine:');
  judge([
    [`the Windows Installer knows one Core, version ${products}`, products.join() === newVersion],
    [`the Core's own CoreVersion.txt says ${told.trim()}`, told.trim() === newVersion],
    ['one VOSK, one Core and one monitor run',
      (await one('VOSK.exe')) && (await one(coreImage)) && (await one(monitorImage))],
    ['the former VOSK lies beside the new one as VOSK.exe.old',
      existsSync(path.join(installFolder(machine), 'VOSK.exe.old'))],
    ['nothing is left of package, installer and logs',
      !existsSync(path.join(folder, 'tmp/VELDRAN_Install'))],
  ], 'The machine is not what it should be.');
}

async function show(stage) {
  const core = await prepare(stage);
  const vosk = new VoskRun(stage.machine, folder, driver, { onLine: showLine });
  await showAdoption(vosk, core);
  const oldPid = vosk.pid;
  await showSequence(vosk, stage.site);
  const corePid = await showHandOver(vosk);
  await showFacts(vosk);
  narrate('An operator presses Q in the new VOSK\'s console.');
  await vosk.press('q');
  await vosk.log.next(/VELDRAN Core Autonomous VOSK shutting down\./, seconds(20));
  await until(async () => (await stage.machine.processes(coreImage)).length === 0, seconds(10),
    'the Core is gone with VOSK');
  await vosk.log.update();
  narrate(`All seen: VOSK as PID ${oldPid} replaced Core ${oldVersion} (PID ${core.pid}) and itself; VOSK as PID`,
    `${vosk.pid} runs from the new release and watches Core ${newVersion} (PID ${corePid}).`);
}

try {
  await perform(show, tearDown);
} catch (error) {
  console.error(`demo: ${error.message}`);
  process.exitCode = 1;
}
