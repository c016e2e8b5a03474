// Makes Windows Installer packages as the Core's makers would, with wixl.
import { execFile } from 'node:child_process';
import { copyFile, mkdir, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { promisify } from 'node:util';

const component = ({ id, file }) => `
      <Component Id="${id}" Guid="*" Win64="yes">
        <File Id="${id}File" Source="${file}" Name="${file}" KeyPath="yes"/>
      </Component>`;

// If TARGETDIR is missing, as at an uninstallation, it is the Core's own place.
const definition = ({ version, upgradeCode, refuses }, files) => `<?xml version="1.0"?>
<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
  <Product Id="*" Name="VELDRAN Core" Manufacturer="VELDRAN Inc" Language="1033"
           Version="${version}" UpgradeCode="${upgradeCode}">
    <Package InstallerVersion="200" Compressed="yes" InstallScope="perMachine"/>
    <Media Id="1" Cabinet="core.cab" EmbedCab="yes"/>
    ${refuses ? '<Condition Message="No machine is good enough for this Core.">0</Condition>' : ''}
    <CustomAction Id="DefaultFolder" Property="TARGETDIR"
                  Value="[ProgramFiles64Folder]VELDRAN Inc\\VELDRAN Core"/>
    <InstallExecuteSequence>
      <Custom Action="DefaultFolder" Before="CostInitialize">NOT TARGETDIR</Custom>
    </InstallExecuteSequence>
    <Directory Id="TARGETDIR" Name="SourceDir">${files.map(component).join('')}
    </Directory>
    <Feature Id="Everything" Level="1">
      ${files.map(({ id }) => `<ComponentRef Id="${id}"/>`).join('')}
    </Feature>
  </Product>
</Wix>
`;

/**
 * Makes "VELDRAN Core Installer.msi" in `folder`, afresh.
 * @param {{version: string, upgradeCode: string, refuses?: boolean, core?: string,
 *   vosk?: string}} contents `refuses` ends every installation with code 1603; `core` and `vosk`
 *   are the executables to install, each of which may be left out
 * @returns {Promise<string>} its path
 */
export async function makeInstaller(folder, contents) {
  await rm(folder, { recursive: true, force: true });
  await mkdir(folder, { recursive: true });
  const files = [{ id: 'Version', file: 'installed_version.txt' }];
  await writeFile(path.join(folder, files[0].file), `${contents.version}\n`);
  for (const [id, source] of [['Core', contents.core], ['Vosk', contents.vosk]]) {
    if (!source) continue;
    const file = path.basename(source);
    files.push({ id, file });
    await copyFile(source, path.join(folder, file));
  }
  await writeFile(path.join(folder, 'core.wxs'), definition(contents, files));
  const name = 'VELDRAN Core Installer.msi';
  await promisify(execFile)('wixl', ['-a', 'x64', '-o', name, 'core.wxs'], { cwd: folder });
  return path.join(folder, name);
}
