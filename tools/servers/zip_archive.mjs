// Looks into a zip archive with Info-ZIP's unzip, so that a second implementation judges it.
import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

const maxEntryBytes = 512 * 1024 * 1024;
const unzip = (...args) =>
  promisify(execFile)('unzip', args, { encoding: 'buffer', maxBuffer: maxEntryBytes });

/** The names of all entries, in their order; directories end in "/". */
export async function listEntries(file) {
  const { stdout } = await unzip('-Z1', file);
  return stdout.toString('utf8').split('\n').filter(Boolean);
}

/** The bytes of one entry. */
export async function readEntry(file, name) {
  const literal = name.replace(/[[*?\\]/g, '[$&]');  // unzip takes names as patterns
  return (await unzip('-p', file, literal)).stdout;
}

/** Rejects with unzip's own words when the archive is damaged. */
export async function checkArchive(file) {
  await unzip('-tqq', file);
}
