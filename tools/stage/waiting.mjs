// Waiting with a limit.
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

const pollMs = 50;

/** Rejects with `message` when `promise` takes longer than `limitMs`. */
export async function within(limitMs, promise, message) {
  let timer;
  const limit = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(message)), limitMs);
  });
  try {
    return await Promise.race([promise, limit]);
  } finally {
    clearTimeout(timer);
  }
}

/** Waits until `condition` (which may be async) holds; rejects with `what` when it takes too long. */
export async function until(condition, limitMs, what) {
  const deadline = Date.now() + limitMs;
  while (!(await condition())) {
    if (Date.now() > deadline) throw new Error(`Not within ${limitMs} ms: ${what}`);
    await sleep(pollMs);
  }
}

/** Waits until a file that others write holds the pattern; resolves with the match. */
export async function textIn(file, pattern, limitMs) {
  let text = '';
  let match;
  const holds = async () => {
    text = await readFile(file, 'utf8').catch(() => '');
    match = pattern.exec(text);
    return match;
  };
  await until(holds, limitMs, `${pattern} in ${file}`).catch((error) => {
    throw new Error(`${error.message}\n${text}`);
  });
  return match;
}
