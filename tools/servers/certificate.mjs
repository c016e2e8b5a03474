// A certificate authority and a server certificate for this machine's loopback addresses, made on
// the spot with openssl. Nothing outside the folder trusts it.
import { execFile } from 'node:child_process';
import { mkdir, readFile, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { promisify } from 'node:util';

const openssl = (folder, ...args) => promisify(execFile)('openssl', args, { cwd: folder });
const validDays = '7';

async function makeAuthority(folder) {
  await openssl(folder, 'req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-days', validDays,
    '-subj', '/CN=VOSK loopback authority', '-keyout', 'authority.key', '-out', 'authority.pem');
}

async function makeServerCertificate(folder) {
  await writeFile(path.join(folder, 'server.ext'),
    'basicConstraints=CA:FALSE\nsubjectAltName=DNS:localhost,IP:127.0.0.1\n');
  await openssl(folder, 'req', '-newkey', 'rsa:2048', '-nodes', '-subj', '/CN=localhost',
    '-keyout', 'server.key', '-out', 'server.csr');
  await openssl(folder, 'x509', '-req', '-days', validDays, '-in', 'server.csr',
    '-CA', 'authority.pem', '-CAkey', 'authority.key', '-CAcreateserial',
    '-extfile', 'server.ext', '-out', 'server.pem');
}

/**
 * Makes both in `folder` and returns what a TLS server needs.
 * @returns {Promise<{key: Buffer, cert: Buffer, authorityFile: string}>}
 */
export async function makeCertificate(folder) {
  await mkdir(folder, { recursive: true });
  await makeAuthority(folder);
  await makeServerCertificate(folder);
  return {
    key: await readFile(path.join(folder, 'server.key')),
    cert: await readFile(path.join(folder, 'server.pem')),
    authorityFile: path.join(folder, 'authority.pem'),
  };
}
