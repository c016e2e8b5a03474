// Makes everything that the Core's makers and ProcDump's publish: installers in zips, good ones and
// bad ones, in packages/ beside the VOSK that they hold. They are made again only if something in
// them has changed.
//
// command: node make.mjs [BUILD_FOLDER]
import { execFile } from 'node:child_process';
import { createHash } from 'node:crypto';
import { mkdir, readFile, rename, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { makeInstaller } from './installer.mjs';

const here = path.dirname(fileURLToPath(import.meta.url));

/** The packages with an installer, by the name of their zip. Each is good but for what is said. */
const installers = {
  'core-1.2.2': { version: '1.2.2' },
  'core-1.2.3': { version: '1.2.3' },
  'core-1.3.0': { version: '1.3.0' },
  'two_numbers': { version: '1.3' },
  'refused': { version: '1.3.0', refuses: true },
  'broken_vosk': { version: '1.2.3', vosk: 'broken/VOSK.exe' },
};

async function zip(file, folder, members) {
  await rm(file, { force: true });
  await promisify(execFile)('7z', ['a', '-tzip', '-mx=1', file, ...members], { cwd: folder });
}

async function upgradeCodeOf(buildFolder) {
  const cache = await readFile(path.join(buildFolder, 'CMakeCache.txt'), 'utf8');
  return /^VOSK_CORE_UPGRADE_CODE:\w+=\{(.+)\}$/m.exec(cache)[1];
}

async function makeBadZip(folder) {
  const parts = path.join(folder, 'bad');
  await mkdir(parts);
  await writeFile(path.join(parts, 'VELDRAN Core Installer.msi'), 'This is no installer.\n');
  await zip(path.join(folder, 'no_database.zip'), parts, ['VELDRAN Core Installer.msi']);
}

async function makeAll(folder, { upgradeCode, core, vosk, monitor }) {
  await mkdir(path.join(folder, 'broken'), { recursive: true });
  const broken = path.join(folder, 'broken/VOSK.exe');
  await writeFile(broken, 'This is no program.\n');
  for (const [name, wanted] of Object.entries(installers)) {
    const contents = { upgradeCode, core, vosk, ...wanted };
    if (wanted.vosk) contents.vosk = broken;
    const installer = await makeInstaller(path.join(folder, name), contents);
    await zip(path.join(folder, `${name}.zip`), path.dirname(installer),
      [path.basename(installer)]);
  }
  await makeBadZip(folder);
  await zip(path.join(folder, 'procdump.zip'), path.dirname(monitor), [path.basename(monitor)]);
}

async function fingerprint(files, upgradeCode) {
  const hash = createHash('sha256').update(upgradeCode);
  for (const file of files) hash.update(await readFile(file));
  return hash.digest('hex');
}

/**
 * Makes what is missing.
 * @param {string} buildFolder the release build, with VOSK and the stand-ins
 * @param {string} [site] whose VOSK to pack
 * @returns {Promise<string>} the folder with the zips; the installer of "NAME.zip" is in "NAME/"
 */
export async function makePackages(buildFolder, site = 'loopback') {
  const parts = {
    upgradeCode: await upgradeCodeOf(buildFolder),
    core: path.join(buildFolder, 'tools/VELDRAN Core.exe'),
    vosk: path.join(buildFolder, site, 'VOSK.exe'),
    monitor: path.join(buildFolder, 'tools/procdump64.exe'),
  };
  const sources = [parts.core, parts.vosk, parts.monitor,
    path.join(here, 'installer.mjs'), path.join(here, 'make.mjs')];
  const wanted = await fingerprint(sources, parts.upgradeCode);
  const folder = path.join(buildFolder, site, 'packages');
  const stamp = path.join(folder, 'stamp');
  if (await readFile(stamp, 'utf8').catch(() => '') === wanted) return folder;
  const made = `${folder}.part`;
  await rm(made, { recursive: true, force: true });
  await makeAll(made, parts);
  await writeFile(path.join(made, 'stamp'), wanted);
  await rm(folder, { recursive: true, force: true });
  await rename(made, folder);
  return folder;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const buildFolder = path.resolve(process.argv[2] ?? path.join(here, '../../build/release'));
  console.log(await makePackages(buildFolder));
}
