// Checks what a collection server holds of one crash, with programs that are not ours.
import assert from 'node:assert/strict';
import path from 'node:path';

import { parseMinidump } from '../../../tools/servers/minidump.mjs';
import { checkArchive, listEntries, readEntry } from '../../../tools/servers/zip_archive.mjs';
import { until } from '../../../tools/stage/waiting.mjs';
import { seconds } from './stage.mjs';

export const customMemory = 0x1064n;
export const fullMemory = 2n;
export const threadInfo = 0x1000n;
export const accessViolation = 0xc0000005;

const logs = ['TestNet/CoreVersion.txt', 'TestNet/core.log', 'TestNet/node/',
  'TestNet/node/blocks.log'];

/** A zip holds a dump first, the host information and the Core's logs. Returns the dump's bytes. */
export async function dumpIn(zip) {
  await checkArchive(zip);
  const [dump, ...others] = await listEntries(zip);
  assert.deepEqual(others.sort(), [...logs, dump.replace(/\.dmp$/, '_hostInfo.txt')].sort());
  return readEntry(zip, dump);
}

/**
 * The server has received `count` reports; the last is such a zip, whole, its dump of that kind.
 * Returns its name.
 */
export async function checkReport({ folder, received }, count, tag, dumpType, exceptionCode) {
  // VOSK may log the upload before the server announces it.
  await until(() => received.length >= count, seconds(20), `${count} reports on the server`);
  assert.equal(received.length, count);
  const report = received.at(-1);
  assert.match(report.fileName, new RegExp(`^VELDRAN.Core.*_\\d{6}_\\d{6}_[^_]+_${tag}\\.zip$`));
  assert.equal(report.size, report.announcedSize);
  assert.deepEqual(report.metadata, { filename: report.fileName, filetype: 'application/zip' });
  const dump = parseMinidump(await dumpIn(path.join(folder, report.fileName)));
  assert.equal(dump.type, dumpType);
  assert.equal(dump.exception?.code, exceptionCode);
  return report.fileName;
}
