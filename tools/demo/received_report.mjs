// Looks at one report on the collection server.
import { readFile } from 'node:fs/promises';
import path from 'node:path';

import { parseMinidump } from '../servers/minidump.mjs';
import { checkArchive, listEntries, readEntry } from '../servers/zip_archive.mjs';

const recordSuffix = '.upload.json';
const accessViolation = 0xc0000005;
const hex = (number) => `0x${number.toString(16).toUpperCase()}`;

/** Everything that the server's folder holds about one upload. Rejects when the zip is damaged. */
export async function examineReport(folder, recordName) {
  const record = JSON.parse(await readFile(path.join(folder, recordName), 'utf8'));
  const file = path.join(folder, recordName.slice(0, -recordSuffix.length));
  await checkArchive(file);
  const entries = await listEntries(file);
  const dumpName = entries.find((name) => name.endsWith('.dmp'));
  const dump = dumpName && parseMinidump(await readEntry(file, dumpName));
  return { file, record, entries, dumpName, dump };
}

/** The same in plain lines. */
export function describeReport({ file, record, entries, dumpName, dump }) {
  const lines = [
    `file      ${file}`,
    `size      ${record.size} bytes (announced: ${record.announcedSize})`,
    ...Object.entries(record.metadata).map(([key, value]) => `metadata  ${key} = ${value}`),
    ...entries.map((name) => `entry     ${name}`),
  ];
  if (!dump) return lines;
  lines.push(`minidump  ${dumpName}: type ${hex(dump.type)}, ${dump.streams.length} streams`);
  if (!dump.exception) return lines;
  const { code, threadId, address } = dump.exception;
  lines.push(`exception ${hex(code)} in thread ${threadId} at ${hex(address)}`);
  return lines;
}

/** What a whole report must show, each with whether it does. */
export function judgeReport({ record, entries, dump }) {
  return [
    ['the server got every byte that was announced', record.size === record.announcedSize],
    ['the metadata names the report and its type',
      /_CRASH\.zip$/.test(record.metadata.filename) && record.metadata.filetype === 'application/zip'],
    ['the zip holds the Core\'s logs, sub-folder included',
      ['TestNet/core.log', 'TestNet/node/', 'TestNet/node/blocks.log']
        .every((name) => entries.includes(name))],
    ['the dump is a minidump of an access violation', dump?.exception?.code === accessViolation],
  ];
}
