// The stage of one test file: a Windows machine that lives as long as the file's tests, and for
// each test a fresh folder with VOSK, the Core and the monitor.
import { existsSync } from 'node:fs';
import { mkdir, rm } from 'node:fs/promises';
import path from 'node:path';
import { after, before } from 'node:test';
import { fileURLToPath } from 'node:url';

import { installFolder, removeInstalled } from '../../../tools/stage/installation.mjs';
import { layOut, VoskRun } from '../../../tools/stage/vosk_run.mjs';
import { WineMachine } from '../../../tools/stage/wine_machine.mjs';

const root = fileURLToPath(new URL('../../../', import.meta.url));
const e2eFolder = path.join(root, 'build/e2e');
export const buildFolder = path.join(root, 'build/release');
export const toolsFolder = path.join(buildFolder, 'tools');
const driver = path.join(toolsFolder, 'console_driver.exe');

/** Milliseconds. Limits are several times what a step takes on a slow machine. */
export const seconds = (count) => count * 1000;

class Stage {
  /** Up from the file's first test to its last. */
  machine;

  /** A fresh folder for one test. `stats` says whether the Core has run on this machine before. */
  async folder(name, { stats = true, ...parts } = {}) {
    // Whatever a failed test left running must not meet this one.
    await this.machine.endPrograms();
    if (existsSync(installFolder(this.machine))) await removeInstalled(this.machine);
    const folder = path.join(e2eFolder, 'runs', name);
    await layOut(folder, buildFolder, parts);
    await rm(this.machine.statsFolder, { recursive: true, force: true });
    if (stats) await mkdir(this.machine.statsFolder, { recursive: true });
    return folder;
  }

  /** A VOSK that has not been started, in a folder that `folder` made. */
  vosk(folder, driverLog = 'driver.log') {
    return new VoskRun(this.machine, folder, driver, { driverLog });
  }
}

/** Call once at the top of a test file. */
export function useStage() {
  const stage = new Stage();
  before(async () => {
    stage.machine = await WineMachine.start(e2eFolder);
  });
  after(() => stage.machine?.stop());
  return stage;
}

/** A folder for what a server of the test receives. */
export async function serverFolder(name) {
  const folder = path.join(e2eFolder, 'servers', name);
  await rm(folder, { recursive: true, force: true });
  await mkdir(folder, { recursive: true });
  return folder;
}
