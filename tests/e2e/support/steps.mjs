// Steps that many lives of VOSK share, checked by its log.
import assert from 'node:assert/strict';

import { seconds } from './stage.mjs';

// Wine takes a second or two to write a dump, and far longer on a busy machine.
const crashLimitMs = seconds(120);

const escaped = (text) => text.replace(/[.+?^${}()|[\]\\]/g, '\\$&').replaceAll('*', '.*');

/**
 * Sees these messages come, in this order, others between them. Each is a whole message as
 * "[LEVEL] text", in which "*" stands for anything. Returns the last one's match.
 */
export async function tells(vosk, limitMs, ...messages) {
  let match;
  for (const message of messages) {
    match = await vosk.log.next(new RegExp(`^${escaped(message)}$`), limitMs);
  }
  return match;
}

/** VOSK launches a Core and attaches its monitor. Returns the Core's PID. */
export async function launched(vosk) {
  const [, pid] = await vosk.log.next(/^\[INFO\] New Target Process PID: (\d+)$/, seconds(60));
  await tells(vosk, seconds(60), `[INFO] ProcDump monitor started for new target PID ${pid}`);
  return Number(pid);
}

/** The Core has ended; VOSK logs which code it ended with. */
export async function terminated(vosk, pid, code) {
  await tells(vosk, crashLimitMs,
    `[WARN] Previously monitored target process (PID ${pid}) has terminated.`,
    `[INFO] Target process final exit code: ${code} (0x${code.toString(16)})`);
}

/** What crashes a Core. VOSK tells of a monitor as soon as it runs, a little before it watches. */
export const crashOrder = 'watched\ncrash';

/** Presses Q and sees VOSK go. */
export async function quit(vosk) {
  await vosk.press('q');
  await tells(vosk, seconds(60), '[WARN] Quit signal received by user. Shutting down...',
    '[INFO] VELDRAN Core Autonomous VOSK shutting down.');
  assert.equal(await vosk.ended(seconds(60)), 0, 'VOSK ends with 0');
}

/**
 * A step of a life, counted as a test of its own. The next one begins where it ended, so its
 * failure ends the life.
 */
export async function step(t, name, body) {
  let failed = true;
  await t.test(name, async (t) => {
    await body(t);
    failed = false;
  });
  if (failed) throw new Error(`The rest was not tried: "${name}" failed.`);
}
