// The Core as Windows Installer installs it: where its files are and what is registered.
import { readFile, rm } from 'node:fs/promises';
import path from 'node:path';

const productsKey = 'HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall';

/** Where the installed Core and VOSK lie, as the machine's programs name it. */
export const installTarget = 'C:\\Program Files\\VELDRAN Inc\\VELDRAN Core';

/** The same folder as the host sees it. */
export const installFolder = (machine) =>
  path.join(machine.prefix, 'drive_c/Program Files/VELDRAN Inc/VELDRAN Core');

/** The version that the installed files carry; undefined when there is none. */
export const versionOnDisk = (machine) =>
  readFile(path.join(installFolder(machine), 'installed_version.txt'), 'utf8')
    .then((text) => text.trim(), () => undefined);

/** The Cores that the Windows Installer knows on the machine: {code, version} each. */
export async function installedProducts(machine) {
  const { output } = await machine.run('wine', ['reg', 'query', productsKey, '/s']);
  return output.split(/\r?\n(?=HKEY)/)
    .filter((entry) => /DisplayName +REG_SZ +VELDRAN Core\b/.test(entry))
    .map((entry) => ({ code: /\{[-\w]+\}/.exec(entry)[0],
      version: /DisplayVersion +REG_SZ +(\S+)/.exec(entry)[1] }));
}

/** Installs an MSI as an administrator would. */
export async function install(machine, installer) {
  const { code } = await machine.run('wine', ['msiexec', '/i', machine.nameOf(installer), '/qn',
    `TARGETDIR=${installTarget}`]);
  if (code !== 0) throw new Error(`msiexec /i ${installer} ended with ${code}.`);
}

/** Takes every Core off the machine, with whatever else lies in its folder. */
export async function removeInstalled(machine) {
  for (const { code } of await installedProducts(machine)) {
    await machine.run('wine', ['msiexec', '/x', code, '/qn']);
  }
  await rm(installFolder(machine), { recursive: true, force: true });
}
