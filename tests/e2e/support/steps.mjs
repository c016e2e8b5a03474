// Steps that many lives of VOSK share, told by its log.
import assert from 'node:assert/strict';

import { seconds } from './stage.mjs';

// Wine takes a second or two to write a dump, very many times that on a busy machine.
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
  const [, pid] = await vosk.log.next(/^\[INFO\] New Target Process PID: (\d+)$/, seconds(40));
  await vosk.log.next(
    new RegExp(`^\\[INFO\\] ProcDump monitor started for new target PID ${pid}$`), seconds(10));
  return Number(pid);
}

/** The Core has ended; VOSK logs which code it ended with. */
export async function terminated(vosk, pid, code) {
  await vosk.log.next(new RegExp(
    `^\\[WARN\\] Previously monitored target process \\(PID ${pid}\\) has terminated\\.$`),
  crashLimitMs);
  const hex = code.toString(16);
  await vosk.log.next(
    new RegExp(`^\\[INFO\\] Target process final exit code: ${code} \\(0x${hex}\\)$`, 'i'),
    seconds(5));
}

/** Presses Q and sees VOSK go. */
export async function quit(vosk) {
  await vosk.press('q');
  await vosk.log.next(/^\[WARN\] Quit signal received by user\. Shutting down\.\.\.$/, seconds(20));
  await vosk.log.next(/^\[INFO\] VELDRAN Core Autonomous VOSK shutting down\.$/, seconds(30));
  assert.equal(await vosk.ended(seconds(20)), 0, 'VOSK ends with 0');
}
