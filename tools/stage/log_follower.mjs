// Reads VOSK.log while it is written. The lines prove what VOSK did, so waiting goes strictly
// forward: each wait starts after the line that the last one found.
import { open } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

const pollMs = 50;
const shownCharacters = 300;  // of one message in an error; some messages hold a whole reply
const linePattern = /^\d{4}-\d\d-\d\d (\d\d:\d\d:\d\d) \[(\w+)\] ([^]*)$/;
const escapes = /\x1b\[[\d;]*m/g;

export class LogFollower {
  /** {time, level, text} of every message so far, without colours. */
  lines = [];
  #cursor = 0;
  #offset = 0;
  #rest = '';

  /** `onLine` hears every message as it comes. */
  constructor(file, onLine = () => {}) {
    this.file = file;
    this.onLine = onLine;
  }

  async #readNew() {
    const handle = await open(this.file).catch(() => undefined);
    if (!handle) return '';
    try {
      const { size } = await handle.stat();
      if (size <= this.#offset) return '';
      const { bytesRead, buffer } =
        await handle.read(Buffer.alloc(size - this.#offset), 0, size - this.#offset, this.#offset);
      this.#offset += bytesRead;
      return buffer.toString('utf8', 0, bytesRead);
    } finally {
      await handle.close();
    }
  }

  /** Takes in what was written since the last call. */
  async update() {
    const pieces = (this.#rest + (await this.#readNew())).split('\n');
    this.#rest = pieces.pop();
    for (const piece of pieces) {
      const match = linePattern.exec(piece.replace(/\r$/, '').replace(escapes, ''));
      if (match) {
        const [, time, level, text] = match;
        this.lines.push({ time, level, text });
        this.onLine(this.lines.at(-1));
      } else if (this.lines.length > 0 && piece.trim() !== '') {
        this.lines.at(-1).text += `\n${piece}`;  // a message of several lines
      }
    }
  }

  #findBehindCursor(pattern) {
    for (let index = this.#cursor; index < this.lines.length; ++index) {
      const line = this.lines[index];
      const match = pattern.exec(`[${line.level}] ${line.text}`);
      if (!match) continue;
      this.#cursor = index + 1;
      return match;
    }
    return undefined;
  }

  /**
   * Waits for the next message that matches; the pattern sees "[LEVEL] text".
   * @returns {Promise<RegExpExecArray>}
   * @throws with the last lines of the log when none comes in time
   */
  async next(pattern, limitMs) {
    const deadline = Date.now() + limitMs;
    for (;;) {
      await this.update();
      const match = this.#findBehindCursor(pattern);
      if (match) return match;
      if (Date.now() > deadline) {
        const tail = this.lines.slice(-25)
          .map((line) => `  ${line.time} [${line.level}] ${line.text.slice(0, shownCharacters)}`);
        throw new Error(
          `No line like ${pattern} within ${limitMs} ms. The log ends:\n${tail.join('\n')}`);
      }
      await sleep(pollMs);
    }
  }

  /** All messages so far that match, wherever waiting stands. */
  matching(pattern) {
    return this.lines.filter((line) => pattern.test(`[${line.level}] ${line.text}`));
  }
}
