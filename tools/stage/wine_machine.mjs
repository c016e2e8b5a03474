// A small Windows machine for one run: a Wine prefix of its own and a private display, so that
// programs can have console windows. The user's own Wine and screen are not touched.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { closeSync, existsSync, openSync } from 'node:fs';
import { mkdir, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';

import { within } from './waiting.mjs';

const prefixLimitMs = 120_000;
const programLimitMs = 60_000;
const displayLimitMs = 15_000;
const keyPauseMs = 50;

/** The name under which programs on the machine know an absolute path. */
export const windowsPath = (file) => `Z:${file.replaceAll('/', '\\')}`;

async function startDisplay(logFile) {
  const log = openSync(logFile, 'a');
  const xvfb = spawn('Xvfb', ['-displayfd', '3', '-screen', '0', '1280x1024x24',
    '-nolisten', 'tcp'], { detached: true, stdio: ['ignore', log, log, 'pipe'] });
  xvfb.unref();
  let number = '';
  const numberCame = (async () => {
    // Reads to the line's end: the display server dies if it cannot write all of it.
    for await (const text of xvfb.stdio[3]) {
      number += text;
      if (number.endsWith('\n')) return;
    }
    throw new Error('The display server ended.');
  })();
  await within(displayLimitMs, numberCame, 'The display server did not start.');
  return { display: `:${number.trim()}`, xvfbPid: xvfb.pid };
}

export class WineMachine {
  #runs = 0;

  constructor(folder, { display, xvfbPid }) {
    this.folder = folder;
    this.prefix = path.join(folder, 'wine');
    this.display = display;
    this.xvfbPid = xvfbPid;
    this.environment = {
      ...process.env,
      WINEPREFIX: this.prefix,
      WINEDEBUG: '-all',
      // No menu entries on the host, no offers to install Mono or Gecko.
      WINEDLLOVERRIDES: 'winemenubuilder.exe,mscoree,mshtml=',
      DISPLAY: display,
    };
  }

  /** Starts a machine below `folder`. The first start there takes some seconds more. */
  static async start(folder) {
    await mkdir(folder, { recursive: true });
    const screen = await startDisplay(path.join(folder, 'display.log'));
    const machine = new WineMachine(folder, screen);
    try {
      await machine.#makePrefix();
    } catch (error) {
      await machine.stop();
      throw error;
    }
    return machine;
  }

  /** What another process needs to take the machine over with `new WineMachine(folder, ...)`. */
  get screen() {
    return { display: this.display, xvfbPid: this.xvfbPid };
  }

  async #makePrefix() {
    const ready = path.join(this.prefix, 'ready');
    // Ends whatever an interrupted run left behind in this prefix.
    if (existsSync(this.prefix)) await this.endPrograms();
    if (existsSync(ready)) return;
    await rm(this.prefix, { recursive: true, force: true });
    await this.run('wineboot', ['-i'], prefixLimitMs);
    // As on a server, no debugger is set to start at a crash.
    await this.run('wine', ['reg', 'delete',
      'HKLM\\Software\\Microsoft\\Windows NT\\CurrentVersion\\AeDebug', '/v', 'Debugger', '/f']);
    await writeFile(ready, '');
  }

  /** Starts a Windows program and leaves it running; its output goes to one file. */
  spawn(program, args, outputFile, options = {}) {
    return this.#spawn('wine', [program, ...args], outputFile, options);
  }

  // Output goes to a file, not to a pipe: the machine's own services inherit it from the program
  // that happens to come first, and would hold the pipe open as long as they run.
  #spawn(program, args, outputFile, options = {}) {
    const output = openSync(outputFile, 'w');
    const child = spawn(program, args,
      { env: this.environment, stdio: ['ignore', output, output], ...options });
    closeSync(output);
    return child;
  }

  /** Runs a program of the host or, through wine, of the machine to its end. */
  async run(program, args, limitMs = programLimitMs) {
    const outputFile = path.join(this.folder, `output.${++this.#runs}`);
    const child = this.#spawn(program, args, outputFile);
    try {
      const [code] = await within(limitMs, once(child, 'exit'),
        `${program} ${args[0]} took more than ${limitMs} ms.`);
      return { code, output: await readFile(outputFile, 'utf8') };
    } catch (error) {
      child.kill('SIGKILL');
      throw error;
    } finally {
      await rm(outputFile, { force: true });
    }
  }

  /**
   * Waits for a window whose title matches the pattern, clicks into it and types X keys ("m",
   * "Down"). Without the click, Wine gives the keys to the window that came last.
   */
  async typeInto(title, keys) {
    const { output } = await this.run('xdotool', ['search', '--sync', '--name', title]);
    const [window] = output.split('\n');
    const { code } = await this.run('xdotool', ['windowraise', window,
      'mousemove', '--window', window, '5', '5', 'click', '1', 'windowfocus', '--sync', window,
      'key', '--delay', String(keyPauseMs), ...keys]);
    if (code !== 0) throw new Error(`The keys were not typed: ${keys.join(' ')}`);
  }

  /** The name under which the machine's programs know a file of the host. */
  nameOf(file) {
    const inside = path.relative(path.join(this.prefix, 'drive_c'), file);
    return inside.startsWith('..') ? windowsPath(file) : `C:\\${inside.replaceAll('/', '\\')}`;
  }

  /** The roaming application data folder of the machine's user. */
  get roamingFolder() {
    return path.join(this.prefix, 'drive_c/users', os.userInfo().username, 'AppData/Roaming');
  }

  get statsFolder() {
    return path.join(this.roamingFolder, 'VELDRAN/stats/TestNet');
  }

  /** The host's process ids of the machine's running programs of one name. */
  async processes(imageName) {
    const found = [];
    for (const pid of (await readdir('/proc')).filter((name) => /^\d+$/.test(name))) {
      const [image] = (await readFile(`/proc/${pid}/cmdline`, 'utf8').catch(() => '')).split('\0');
      if (image.split(/[\\/]/).pop().toLowerCase() !== imageName.toLowerCase()) continue;
      const environment = await readFile(`/proc/${pid}/environ`, 'utf8').catch(() => '');
      if (environment.split('\0').includes(`WINEPREFIX=${this.prefix}`)) found.push(Number(pid));
    }
    return found;
  }

  /** Ends every program of the machine; the next one starts it anew. */
  async endPrograms() {
    await this.run('wineserver', ['-k']);
    await this.run('wineserver', ['-w']);
  }

  /** Ends every program of the machine, then its display. */
  async stop() {
    await this.endPrograms().catch(() => {});
    const image = await readFile(`/proc/${this.xvfbPid}/cmdline`, 'utf8').catch(() => '');
    if (image.startsWith('Xvfb\0')) process.kill(this.xvfbPid);
  }
}
