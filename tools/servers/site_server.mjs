// The sites that VOSK contacts, on this machine over HTTPS: the version service, the Core's package
// and ProcDump's zip. Their answers may be changed while they run.
//
// command: node site_server.mjs PACKAGES_FOLDER VERSION [PORT]
import { createReadStream } from 'node:fs';
import { stat } from 'node:fs/promises';
import https from 'node:https';
import os from 'node:os';
import path from 'node:path';
import { pipeline } from 'node:stream/promises';
import { fileURLToPath } from 'node:url';

import { makeCertificate } from './certificate.mjs';

export const sitePort = 18444;

class SiteServer {
  /** The published version; null = the version service is out of order. */
  version = null;
  /** Names of files in the packages folder; null = answered with 404. */
  package = null;
  procdump = 'procdump.zip';
  /** Every request so far: {url, status}; status 0 = never answered to the end. */
  requests = [];
  #server;

  constructor(folder) {
    this.folder = folder;
  }

  /** Publishes a release; its package is that version's unless another or none (null) is named. */
  publish(version, packageFile = `core-${version}.zip`) {
    this.version = version;
    this.package = packageFile;
  }

  async listen(port, certificate) {
    this.#server = https.createServer(certificate, (request, response) =>
      this.#serve(request, response).catch(() => request.destroy()));
    await new Promise((resolve, reject) => {
      this.#server.once('error', reject);
      this.#server.listen(port, 'localhost', resolve);
    });
  }

  async close() {
    const closed = new Promise((resolve) => this.#server.close(resolve));
    this.#server.closeAllConnections();
    await closed;
  }

  /** How often one address was asked for so far. */
  asked(url) {
    return this.requests.filter((request) => request.url === url).length;
  }

  async #serve(request, response) {
    const entry = { url: request.url, status: 0 };
    this.requests.push(entry);
    response.on('close', () => {
      if (response.writableFinished) entry.status = response.statusCode;
    });
    if (request.url === '/api/getVersion') return this.#tellVersion(response);
    const file = { '/VELDRANCore.zip': this.package, '/files/Procdump.zip': this.procdump };
    await this.#send(response, file[request.url]);
  }

  #tellVersion(response) {
    const reply = this.version ? { result: 0, version: this.version }
      : { result: 7, errorDescription: 'No release is published.' };
    response.writeHead(200, { 'Content-Type': 'application/json' });
    response.end(JSON.stringify(reply));
  }

  async #send(response, name) {
    if (!name) {
      response.writeHead(404);
      response.end('There is no such file.');
      return;
    }
    const file = path.join(this.folder, name);
    const { size } = await stat(file);
    response.writeHead(200, { 'Content-Type': 'application/zip', 'Content-Length': size });
    await pipeline(createReadStream(file), response);
  }
}

/**
 * @param {{folder: string, certificate: {key: Buffer, cert: Buffer}, port?: number}} options
 *   `folder` holds the zips
 * @returns {Promise<SiteServer>} listening; nothing is published yet
 */
export async function startSiteServer({ folder, certificate, port = sitePort }) {
  const site = new SiteServer(folder);
  await site.listen(port, certificate);
  return site;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const [folder, version, port = sitePort] = process.argv.slice(2);
  if (!version) {
    console.error('usage: site_server.mjs PACKAGES_FOLDER VERSION [PORT]');
    process.exit(2);
  }
  const certificate = await makeCertificate(path.join(os.tmpdir(), `site_server_${port}`));
  const site = await startSiteServer(
    { folder: path.resolve(folder), certificate, port: Number(port) });
  site.publish(version);
  console.log(`Version ${version} is published on https://localhost:${port}/`);
  for (const signal of ['SIGTERM', 'SIGINT']) {
    process.on(signal, () => site.close().then(() => process.exit(0)));
  }
}
