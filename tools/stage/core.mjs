// Gives orders to the sample Core, and starts one by hand.
import { rename, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { textIn } from './waiting.mjs';

export const coreImage = 'VELDRAN Core.exe';
const startLimitMs = 20_000;

/**
 * Leaves an order for the Core that runs in `folder`, or that will be started there.
 * @param {string} order one or more lines such as "exit 7", "crash", "hang", "protect",
 *   "watched" (wait for a monitor)
 * @param {number} [pid] for one of several Cores
 */
export async function orderCore(folder, order, pid) {
  const name = pid ? `core_command.${pid}.txt` : 'core_command.txt';
  const file = path.join(folder, name);
  await writeFile(`${file}.part`, `${order}\n`);
  await rename(`${file}.part`, file);
}

/**
 * Starts a Core as a user would, before VOSK. Resolves with its Windows PID once it runs; `ended`
 * is the lower byte of its exit code, later.
 */
export async function startCore(machine, folder, outputName = 'core.out') {
  const output = path.join(folder, outputName);
  const child = machine.spawn(path.join(folder, coreImage), [], output, { cwd: folder });
  const ended = new Promise((resolve) => child.on('exit', resolve));
  const [, pid] = await textIn(output, /PID (\d+)/, startLimitMs);
  return { pid: Number(pid), ended };
}
