// One life of VOSK.exe in a folder of its own: the folder holds VOSK, the dump monitor and the
// Core, and below tmp/ everything that VOSK writes into the temporary directory.
import { copyFile, mkdir, readdir, rm } from 'node:fs/promises';
import path from 'node:path';

import { coreImage, orderCore } from './core.mjs';
import { LogFollower } from './log_follower.mjs';
import { textIn } from './waiting.mjs';
import { windowsPath } from './wine_machine.mjs';

export const monitorImage = 'procdump64.exe';
const startLimitMs = 20_000;

/**
 * Makes `folder` afresh with VOSK, the sample Core and the sample monitor from a build folder.
 * @param {string} buildFolder the release build
 * @param {{vosk?: string | false}} [parts] `vosk` is the site whose VOSK to take; each part may be
 *   left out by false
 */
export async function layOut(folder, buildFolder,
  { vosk = 'loopback', monitor = true, core = true } = {}) {
  const parts = [
    vosk && `${vosk}/VOSK.exe`, core && `tools/${coreImage}`, monitor && `tools/${monitorImage}`,
  ];
  await rm(folder, { recursive: true, force: true });
  await mkdir(path.join(folder, 'tmp'), { recursive: true });
  for (const part of parts.filter(Boolean)) {
    await copyFile(path.join(buildFolder, part), path.join(folder, path.basename(part)));
  }
}

export class VoskRun {
  constructor(machine, folder, driver, { onLine, driverLog = 'driver.log' } = {}) {
    this.machine = machine;
    this.folder = folder;
    this.driver = driver;
    this.dumpFolder = path.join(folder, 'tmp/VELDRAN_VOSK_Dumps');
    this.log = new LogFollower(path.join(folder, 'tmp/VOSK.log'), onLine);
    this.driverLog = path.join(folder, driverLog);
  }

  /**
   * Starts VOSK in a console window of its own and resolves with its Windows PID.
   * @param {{out?: string, err?: string, args?: string[], program?: string}} [options] files
   *   (absolute) that take its standard output and error; the VOSK.exe to start when it is not the
   *   one in the folder
   */
  async start({ out, err, args = [], program = path.join(this.folder, 'VOSK.exe') } = {}) {
    const temporary = windowsPath(path.join(this.folder, 'tmp'));
    const options = ['--cwd', this.machine.nameOf(path.dirname(program)),
      '--env', `TMP=${temporary}`, '--env', `TEMP=${temporary}`];
    if (out) options.push('--out', windowsPath(out));
    if (err) options.push('--err', windowsPath(err));
    const child = this.machine.spawn(this.driver,
      ['start', ...options, '--', this.machine.nameOf(program), ...args],
      this.driverLog, { detached: true });
    child.unref();
    this.pid = await this.#driverSays(/pid (\d+)/, startLimitMs);
    return this.pid;
  }

  async #driverSays(pattern, limitMs) {
    return Number((await textIn(this.driverLog, pattern, limitMs))[1]);
  }

  /** Types X keys on the display's keyboard while VOSK's window has the focus. */
  type(...keys) {
    return this.machine.typeInto('VOSK\\.exe$', keys);
  }

  /** The texts of a box that VOSK shows. */
  async boxTexts(title) {
    const { code, output } = await this.machine.run('wine', [this.driver, 'read', title]);
    if (code !== 0) throw new Error(`The box was not read: ${output}`);
    return output.replaceAll('\r', '').trim();
  }

  /** Presses keys in VOSK's console, each a character or "up", "down" or "enter". */
  async press(...keys) {
    const { code, output } = await this.machine.run('wine',
      [this.driver, 'press', String(this.pid), ...keys]);
    if (code !== 0) throw new Error(`The keys were not pressed: ${output}`);
  }

  /** VOSK's exit code, once the one that was started here has ended. */
  ended(limitMs) {
    return this.#driverSays(/exit (\d+)/, limitMs);
  }

  /** The dump storage directory as VOSK logs it. */
  get windowsDumpFolder() {
    return windowsPath(this.dumpFolder);
  }

  order(line, pid) {
    return orderCore(this.folder, line, pid);
  }

  /** The names of the files in the dump storage directory. */
  async storedFiles() {
    return (await readdir(this.dumpFolder).catch(() => [])).sort();
  }
}
