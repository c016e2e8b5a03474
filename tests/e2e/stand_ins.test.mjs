// The sample monitor must be strict, or VOSK's command line would be tested against nothing.
import assert from 'node:assert/strict';
import { mkdir, readdir } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { readMinidump } from '../../tools/servers/minidump.mjs';
import { orderCore, startCore } from '../../tools/stage/core.mjs';
import { monitorImage } from '../../tools/stage/vosk_run.mjs';
import { textIn, within } from '../../tools/stage/waiting.mjs';
import { windowsPath } from '../../tools/stage/wine_machine.mjs';
import { seconds, useStage } from './support/stage.mjs';

const stage = useStage();

const memory64List = 9;

async function monitorSite(name) {
  const site = await stage.folder(name, { vosk: false });
  const dumps = path.join(site, 'dumps');
  await mkdir(dumps);
  return { site, dumps, monitor: path.join(site, monitorImage) };
}

test('the monitor refuses what is not its command line, and a process that is not there',
  async () => {
    const { dumps, monitor } = await monitorSite('monitor_refuses');
    const target = windowsPath(dumps);
    const absent = '99996';
    for (const { args, code } of [
      { args: ['-accepteula', '-mc', '1064', '-e', absent], code: 2 },
      { args: ['-accepteula', '-mc', '1064', absent, target], code: 2 },
      { args: ['-accepteula', '-e', absent, target], code: 2 },
      { args: ['-accepteula', '-mc', 'full', '-e', absent, target], code: 2 },
      { args: ['-accepteula', '-ma', '-mc', '1064', '-e', absent, target], code: 2 },
      { args: ['-accepteula', '-mp', '-e', absent, target], code: 2 },
      { args: ['-accepteula', '-ma', '-e', absent, target], code: 1 },
    ]) {
      const result = await stage.machine.run('wine', [monitor, ...args]);
      assert.equal(result.code, code, args.join(' '));
    }
  });

test('a full-memory dump, a second debugger refused, the exit code of a real crash', async () => {
  const { site, dumps, monitor } = await monitorSite('monitor_watches');
  const core = await startCore(stage.machine, site);
  const args = ['-accepteula', '-ma', '-e', String(core.pid), windowsPath(dumps)];
  const output = path.join(site, 'monitor.out');
  const watching = stage.machine.spawn(monitor, args, output);
  const ended = new Promise((resolve) => watching.on('exit', resolve));
  await textIn(output, /Watching process/, seconds(10));
  assert.equal((await stage.machine.run('wine', [monitor, ...args])).code, 1);

  await orderCore(site, 'crash');
  assert.equal(await within(seconds(30), core.ended, 'The Core lives on.'), 0xc0000005 & 0xff);
  assert.equal(await within(seconds(10), ended, 'The monitor stays.'), 0);
  const files = await readdir(dumps);
  assert.equal(files.length, 1);
  assert.match(files[0], /^VELDRAN Core\.exe_\d{6}_\d{6}\.dmp$/);
  const dump = await readMinidump(path.join(dumps, files[0]));
  assert.equal(dump.type, 2n);
  assert.ok(dump.streams.some((stream) => stream.type === memory64List), 'it holds all memory');
  assert.equal(dump.exception.code, 0xc0000005);
});
