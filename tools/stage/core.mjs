// Gives orders to the sample Core, and starts one by hand.
import { rename, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { within } from './wine_machine.mjs';

export const coreImage = 'VELDRAN Core.exe';
const startLimitMs = 20_000;

/**
 * Leaves an order for the Core that runs in `folder`, or that will be started there.
 * @param {string} order one or more lines such as "exit 7", "crash", "hang", "protect"
 * @param {number} [pid] for one of several Cores
 */
export async function orderCore(folder, order, pid) {
  const name = pid ? `core_command.${pid}.txt` : 'core_command.txt';
  const file = path.join(folder, name);
  await writeFile(`${file}.part`, `${order}\n`);
  await rename(`${file}.part`, file);
}

/** Starts a Core as a user would, before VOSK. Resolves with its Windows PID once it runs. */
export async function startCore(machine, folder) {
  const child = machine.spawn(path.join(folder, coreImage), [], { cwd: folder });
  const ended = new Promise((resolve) => child.on('exit', resolve));
  const pid = await within(startLimitMs, new Promise((resolve) => {
    let output = '';
    child.stdout.on('data', (text) => {
      output += text;
      const match = /PID (\d+)/.exec(output);
      if (match) resolve(Number(match[1]));
    });
  }), 'The Core did not start.');
  return { pid, ended };
}
