// Whatever the collection server does, a report is either sent or kept, and VOSK goes on. One
// crash leaves a dump for each fault; the faulty server takes the fault from the report's name.
import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import { readFile, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { makeCertificate } from '../../tools/servers/certificate.mjs';
import { startFaultyServer } from '../../tools/servers/faulty_server.mjs';
import { loopbackPort } from '../../tools/servers/tus_server.mjs';
import { checkArchive, listEntries, readEntry } from '../../tools/servers/zip_archive.mjs';
import { seconds, serverFolder, useStage } from './support/stage.mjs';
import { launched, quit, terminated } from './support/steps.mjs';

const stage = useStage();
const failedPost = /^\[ERROR\] TUS POST request failed\. CURLcode: [1-9]\d* \(.+\), HTTP Status: \d+$/;
const completed = /^\[INFO\] TUS Upload successfully completed for: /;

// `requests`: method and offset of everything the server was asked. After a question for the
// offset the client's handle no longer sends PATCH requests; it goes on with GET, which no server
// takes for an upload, so such a report is kept.
const cases = [
  { fault: 'honest', sent: true, lines: [/Server offset confirmed: \d+$/, completed],
    requests: ['POST', 'HEAD', 'PATCH 0'] },
  { fault: 'reset', sent: false, lines: [failedPost], requests: ['POST'] },
  { fault: 'status_500', sent: false, requests: ['POST'],
    lines: [/TUS POST request failed\. CURLcode: 0 \(.+\), HTTP Status: 500$/,
      /Response Body: out of order/] },
  { fault: 'cut_patch', sent: false, requests: ['POST', 'HEAD', 'PATCH 0', 'HEAD', 'GET 0'],
    lines: [/TUS PATCH failed \(Attempt 1\/4\)\. CURLcode: [1-9]\d* /,
      /Checking server offset before retry\.\.\.$/, /Retrying chunk in 3000 ms\.\.\.$/,
      /PATCH Attempt 2\/4: Offset=0, /,
      /Non-retriable HTTP error \(404\) received during TUS PATCH\. Aborting upload\.$/] },
  { fault: 'cut_patch_kept', sent: false, requests: ['POST', 'HEAD', 'PATCH 0', 'HEAD', 'GET +'],
    lines: [/TUS PATCH failed \(Attempt 1\/4\)\. CURLcode: [1-9]\d* /,
      /Server offset advanced to \d+ during failed attempt\./,
      /Non-retriable HTTP error \(404\) received during TUS PATCH\. Aborting upload\.$/] },
  { fault: 'smaller_offset', sent: true, requests: ['POST', 'HEAD', 'PATCH 0', 'PATCH +'],
    lines: [/Server offset mismatch after PATCH! Expected: \d+, Server returned: \d+\. Trusting server offset\.$/,
      /-> Bytes read by callback for chunk: \d+, Bytes reported sent by CURL: \d+$/, completed] },
  { fault: 'larger_offset', sent: true, requests: ['POST', 'HEAD', 'PATCH 0'],
    lines: [/Server offset mismatch after PATCH!/, completed] },
  { fault: 'relative_location', sent: true, requests: ['POST', 'HEAD', 'PATCH 0'],
    lines: [/Resource created\. Upload URL: https:\/\/localhost:18443\/upload\d+$/, completed] },
  { fault: 'head_404', sent: true, requests: ['POST', 'HEAD', 'PATCH 0'],
    lines: [/TUS HEAD: Resource not found or access denied \(HTTP 404\)\. Assuming offset is 0\.$/,
      completed] },
  { fault: 'head_bare_length', sent: true, requests: ['POST', 'HEAD', 'PATCH 0'],
    lines: [/TUS HEAD: Upload-Offset header missing, but Upload-Length found\. Assuming offset is 0\.$/,
      completed] },
  { fault: 'head_no_number', sent: false, requests: ['POST', 'HEAD'],
    lines: [/TUS HEAD: Invalid argument parsing Upload-Offset 'many': /,
      /Failed to determine initial upload offset via HEAD request\.$/] },
  { fault: 'patch_no_number', sent: false, requests: ['POST', 'HEAD', 'PATCH 0'],
    lines: [/Failed to parse 'Upload-Offset' header \('12 bytes'\) after successful PATCH: Invalid characters after offset number\. Aborting\.$/] },
  { fault: 'patch_no_offset', sent: false, requests: ['POST', 'HEAD', 'PATCH 0'],
    lines: [/required 'Upload-Offset' header is missing in response\. Aborting\.$/] },
  { fault: 'endless_headers', sent: false, lines: [failedPost], requests: ['POST'] },
  { fault: 'big_body', sent: false, lines: [failedPost], requests: ['POST'] },
];

const dumpBytes = 20_000;
const longDumpBytes = 400_000;  // what is cut or halved takes many network buffers

async function storeDumps(vosk, names) {
  const dumps = new Map();
  for (const name of names) {
    const bytes = randomBytes(/cut|smaller/.test(name) ? longDumpBytes : dumpBytes);
    dumps.set(name, bytes);
    await writeFile(path.join(vosk.dumpFolder, `${name}.dmp`), bytes);
  }
  return dumps;
}

// The messages about one report, "[LEVEL] text" each.
function linesAbout(vosk, name) {
  const lines = vosk.log.lines.map((line) => `[${line.level}] ${line.text}`);
  const start = lines.findIndex((line) => line.endsWith(`Processing dump file: ${
    vosk.windowsDumpFolder}\\${name}.dmp`));
  assert.notEqual(start, -1, `${name}.dmp was processed`);
  const end = lines.findIndex((line, index) => index > start && /^\[INFO\] -{55}$/.test(line));
  return lines.slice(start, end);
}

function assertInOrder(lines, patterns, name) {
  let from = 0;
  for (const pattern of patterns) {
    const at = lines.findIndex((line, index) => index >= from && pattern.test(line));
    assert.notEqual(at, -1, `${name}: ${pattern} in\n${lines.map((l) => l.slice(0, 300)).join('\n')}`);
    from = at + 1;
  }
}

async function assertHolds(zip, name, dump) {
  await checkArchive(zip);
  const [first, ...rest] = await listEntries(zip);
  assert.equal(first, `${name}.dmp`);
  assert.deepEqual(rest.sort(), ['TestNet/CoreVersion.txt', 'TestNet/core.log', 'TestNet/node/',
    'TestNet/node/blocks.log', `${name}_hostInfo.txt`]);
  assert.ok(dump.equals(await readEntry(zip, `${name}.dmp`)), `${name}: the dump is whole`);
}

const asked = (server, name) => server.requests
  .filter((request) => request.fileName?.startsWith(`${name}_`) &&
    !request.fileName.startsWith(`${name}_kept_`))
  .map(({ method, uploadOffset }) => {
    if (method !== 'PATCH' && method !== 'GET') return method;
    return `${method} ${uploadOffset === '0' ? '0' : '+'}`;
  });

async function checkCase(vosk, server, folder, { fault, sent, lines, requests }, dump) {
  const about = linesAbout(vosk, fault);
  assertInOrder(about, lines, fault);
  assert.deepEqual(asked(server, fault), requests);
  const left = (await vosk.storedFiles())
    .filter((name) => new RegExp(`^${fault}(_[^_]+_CRASH)?\\.`).test(name));
  if (sent) {
    assertInOrder(about, [/^\[INFO\] Successfully uploaded and processed: /], fault);
    assert.deepEqual(left, []);
    const copy = path.join(folder, `${fault}.zip`);
    await writeFile(copy, server.upload(`${fault}_`).body);
    return assertHolds(copy, fault, dump);
  }
  assertInOrder(about, [/^\[ERROR\] Failed to upload zip via TUS: .*\. Renaming to \.zip\.failed_upload$/,
    /^\[WARN\] IMPORTANT: Original dump was already deleted\./], fault);
  assert.equal(left.length, 1);
  assert.match(left[0], /_CRASH\.zip\.failed_upload$/);
  return assertHolds(path.join(vosk.dumpFolder, left[0]), fault, dump);
}

async function crashWith(vosk, pid, dumps) {
  await vosk.order('exit 5');
  await terminated(vosk, pid, 5);
  await vosk.log.next(
    new RegExp(`^\\[INFO\\] Found ${dumps.size} new dump file\\(s\\) to process\\.$`), seconds(20));
}

test('every fault of the collection server', async (t) => {
  const folder = await serverFolder('collection_faults');
  const certificate = await makeCertificate(path.join(folder, 'certificates'));
  let server = await startFaultyServer({ port: loopbackPort, certificate });
  t.after(() => server?.close());
  const site = await stage.folder('collection_faults');
  const vosk = stage.vosk(site);
  await vosk.start();

  const first = await launched(vosk);
  const dumps = await storeDumps(vosk, cases.map((item) => item.fault));
  await crashWith(vosk, first, dumps);
  await vosk.log.next(/^\[INFO\] Attempting relaunch of VELDRAN Core /, seconds(90));
  const second = await launched(vosk);  // nothing of it stopped VOSK
  for (const item of cases) {
    await t.test(`${item.fault}: ${item.sent ? 'sent' : 'kept'}`, () =>
      checkCase(vosk, server, folder, item, dumps.get(item.fault)));
  }

  await server.close();
  server = undefined;
  const lastDump = await storeDumps(vosk, ['down']);
  await crashWith(vosk, second, lastDump);
  await vosk.log.next(/^\[ERROR\] TUS POST request failed\. CURLcode: 7 \(.+\), HTTP Status: 0$/, seconds(20));
  await vosk.log.next(/^\[INFO\] Renamed failed upload to: .*down_.*_CRASH\.zip\.failed_upload$/, seconds(5));
  await t.test('down: kept', async () => {
    const [name] = (await vosk.storedFiles())
      .filter((file) => file.startsWith('down_') && file.endsWith('.failed_upload'));
    await assertHolds(path.join(vosk.dumpFolder, name), 'down', lastDump.get('down'));
  });
  await quit(vosk);
});
