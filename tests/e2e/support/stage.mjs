// The stage of one test file: a lane of its own with a Windows machine that lives as long as the
// file's tests, and for each test a fresh folder with VOSK, the Core and the monitor.
import { existsSync } from 'node:fs';
import { mkdir, rm } from 'node:fs/promises';
import path from 'node:path';
import { after, before } from 'node:test';
import { fileURLToPath } from 'node:url';

import { makePackages } from '../../../tools/sample_package/make.mjs';
import { makeCertificate } from '../../../tools/servers/certificate.mjs';
import { startFaultyServer } from '../../../tools/servers/faulty_server.mjs';
import { startSiteServer } from '../../../tools/servers/site_server.mjs';
import { startTusServer } from '../../../tools/servers/tus_server.mjs';
import { installFolder, removeInstalled } from '../../../tools/stage/installation.mjs';
import { layOut, VoskRun } from '../../../tools/stage/vosk_run.mjs';
import { WineMachine } from '../../../tools/stage/wine_machine.mjs';
import { takeLane } from './lane.mjs';

const root = fileURLToPath(new URL('../../../', import.meta.url));
const e2eFolder = path.join(root, 'build/e2e');
export const buildFolder = path.join(root, 'build/release');
export const toolsFolder = path.join(buildFolder, 'tools');
const driver = path.join(toolsFolder, 'console_driver.exe');

/** Milliseconds. Limits are many times what a step takes on a machine with nothing else to do. */
export const seconds = (count) => count * 1000;

class Stage {
  /** Up from the file's first test to its last. */
  machine;
  #lane;

  async open() {
    this.#lane = await takeLane();
    this.machine = await WineMachine.start(path.join(e2eFolder, this.#lane.site));
  }

  async close() {
    await this.machine?.stop();
    this.#lane?.release();
  }

  /** A fresh folder for one test. `stats` says whether the Core has run on this machine before. */
  async folder(name, { stats = true, vosk = true, ...parts } = {}) {
    // Whatever a failed test left running must not disturb this one.
    await this.machine.endPrograms();
    if (existsSync(installFolder(this.machine))) await removeInstalled(this.machine);
    const folder = path.join(e2eFolder, 'runs', name);
    await layOut(folder, buildFolder, { vosk: vosk && this.#lane.site, ...parts });
    await rm(this.machine.statsFolder, { recursive: true, force: true });
    if (stats) await mkdir(this.machine.statsFolder, { recursive: true });
    return folder;
  }

  /** A VOSK that has not been started, in a folder that `folder` made. */
  vosk(folder, driverLog = 'driver.log') {
    return new VoskRun(this.machine, folder, driver, { driverLog });
  }

  /** The executable that every VOSK of this stage is a copy of. */
  get program() {
    return path.join(buildFolder, this.#lane.site, 'VOSK.exe');
  }

  /** A collection server until the test ends; what it has got comes into `received`. */
  async collect(t, name) {
    const folder = await serverFolder(name);
    const received = [];
    const server = await startTusServer({ folder, port: this.#lane.collectionPort,
      onEvent: (event) => event.event === 'received' && received.push(event) });
    t.after(() => server.close());
    return { folder, received };
  }

  /** A collection server that misbehaves, until the test ends. */
  async collectBadly(t, name) {
    const certificate = await makeCertificate(await serverFolder(name));
    const server = await startFaultyServer({ port: this.#lane.collectionPort, certificate });
    t.after(() => server.close());
    return server;
  }

  /** The sites that VOSK asks and loads from, until the test ends. */
  async publish(t, name) {
    const folder = await this.packages();
    const certificate = await makeCertificate(await serverFolder(name));
    const site = await startSiteServer({ folder, certificate, port: this.#lane.sitePort });
    t.after(() => site.close());
    return site;
  }

  /** The folder with the packages that `publish` offers. */
  packages() {
    return makePackages(buildFolder, this.#lane.site);
  }
}

/** Call once at the top of a test file. */
export function useStage() {
  const stage = new Stage();
  before(() => stage.open());
  after(() => stage.close());
  return stage;
}

async function serverFolder(name) {
  const folder = path.join(e2eFolder, 'servers', name);
  await rm(folder, { recursive: true, force: true });
  await mkdir(folder, { recursive: true });
  return folder;
}
