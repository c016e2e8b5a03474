// Reads the streams and the exception of a Windows minidump, for a crash report.
import { readFile } from 'node:fs/promises';

const signature = 'MDMP';
const headerSize = 32;
const directoryEntrySize = 12;

const streamNames = new Map([
  [3, 'ThreadListStream'], [4, 'ModuleListStream'], [5, 'MemoryListStream'],
  [6, 'ExceptionStream'], [7, 'SystemInfoStream'], [9, 'Memory64ListStream'],
  [12, 'HandleDataStream'], [14, 'UnloadedModuleListStream'], [15, 'MiscInfoStream'],
  [16, 'MemoryInfoListStream'], [17, 'ThreadInfoListStream'],
]);
const exceptionStream = 6;

function readStreams(bytes) {
  const count = bytes.readUInt32LE(8);
  const directory = bytes.readUInt32LE(12);
  return Array.from({ length: count }, (_, index) => {
    const at = directory + index * directoryEntrySize;
    const type = bytes.readUInt32LE(at);
    const stream = { type, name: streamNames.get(type) ?? `stream ${type}`,
      size: bytes.readUInt32LE(at + 4), offset: bytes.readUInt32LE(at + 8) };
    if (stream.offset + stream.size > bytes.length) {
      throw new Error(`${stream.name} reaches past the end of the dump.`);
    }
    return stream;
  });
}

function readException(bytes, stream) {
  return {
    threadId: bytes.readUInt32LE(stream.offset),
    code: bytes.readUInt32LE(stream.offset + 8),
    address: bytes.readBigUInt64LE(stream.offset + 24),
  };
}

/**
 * @param {Buffer} bytes a whole minidump
 * @returns {{type: bigint, streams: object[], exception?: {threadId: number, code: number,
 *   address: bigint}}} `type` is the MINIDUMP_TYPE mask
 * @throws when the bytes are no minidump, or a cut one
 */
export function parseMinidump(bytes) {
  if (bytes.length < headerSize || bytes.toString('latin1', 0, 4) !== signature) {
    throw new Error('Not a minidump: the signature MDMP is missing.');
  }
  const streams = readStreams(bytes);
  const found = streams.find((stream) => stream.type === exceptionStream);
  return {
    type: bytes.readBigUInt64LE(24),
    streams,
    exception: found && readException(bytes, found),
  };
}

export const readMinidump = async (file) => parseMinidump(await readFile(file));
