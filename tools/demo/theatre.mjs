// What every demo needs: its places, the narrator's voice, and an end in good order.
import { existsSync } from 'node:fs';
import { mkdir, readFile } from 'node:fs/promises';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { installFolder, removeInstalled } from '../stage/installation.mjs';
import { WineMachine } from '../stage/wine_machine.mjs';

const root = fileURLToPath(new URL('../../', import.meta.url));
export const buildFolder = path.join(root, 'build/release');
export const demoFolder = path.join(root, 'build/demo');
export const driver = path.join(buildFolder, 'tools/console_driver.exe');
export const serverProgram = path.join(root, 'tools/servers/tus_server.mjs');
const stateFile = path.join(demoFolder, 'state.json');

const totalLimitMs = 240_000;
export const seconds = (count) => count * 1000;
export const local = (file) => path.relative(process.cwd(), file) || '.';

export const say = (...lines) => lines.forEach((line) => console.log(line));
export const narrate = (...lines) => say('', ...lines.map((line) => `>> ${line}`));
export const showLine = ({ time, level, text }) => say(`   VOSK.log | ${time} [${level}] ${text}`);

/** Prints what was to be seen; throws unless all of it was. */
export function judge(verdicts, complaint) {
  verdicts.forEach(([what, seen]) => say(`   ${seen ? 'yes' : 'NO '}  ${what}`));
  if (!verdicts.every(([, seen]) => seen)) throw new Error(complaint);
}

/** What the demo that `--keep` left running has noted; undefined when there is none. */
export const readState = async () =>
  (existsSync(stateFile) ? JSON.parse(await readFile(stateFile, 'utf8')) : undefined);
export { stateFile };

export const serverRuns = async (pid) =>
  (await readFile(`/proc/${pid}/cmdline`, 'utf8').catch(() => '')).includes(serverProgram);

/** The demos' Windows machine, without a Core that a demo before has installed. */
export async function startMachine() {
  await mkdir(demoFolder, { recursive: true });
  const machine = await WineMachine.start(demoFolder);
  if (existsSync(installFolder(machine))) await removeInstalled(machine);
  return machine;
}

/**
 * Runs a show to its end and ends the process with status 1 when it fails, takes too long or is
 * interrupted.
 * @param {(stage: object) => Promise<void>} show notes in `stage` what it starts
 * @param {(stage: object) => Promise<void>} tearDown ends what `stage` holds; on success it is
 *   called only when `keep` is false
 */
export async function perform(show, tearDown, keep = false) {
  const state = await readState();
  if (state && (await serverRuns(state.serverPid))) {
    throw new Error('A demo is still running here. End it with: scripts/demo --stop');
  }
  const stage = {};
  const giveUp = async (reason) => {
    say('', `demo: ${reason}`);
    await tearDown(stage);
    process.exit(1);
  };
  setTimeout(() => giveUp(`not finished within ${totalLimitMs / 1000} s`), totalLimitMs).unref();
  process.on('SIGINT', () => giveUp('interrupted'));
  process.on('SIGTERM', () => giveUp('interrupted'));
  try {
    await show(stage);
  } catch (error) {
    await giveUp(error.message);
  }
  if (!keep) await tearDown(stage);
}
