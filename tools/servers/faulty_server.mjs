// A collection server that misbehaves on purpose, to show that a client copes with it. The fault is
// one of the names in faults.mjs: set once for every upload, or taken from the start of the
// uploaded file's name ("reset_HOST_CRASH.zip"), so that one crash with a dump for each fault meets
// them all.
//
// command: node faulty_server.mjs PORT [FAULT]
import https from 'node:https';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { makeCertificate } from './certificate.mjs';
import { answer, faults, honest } from './faults.mjs';

function decodeFileName(metadata = '') {
  const pair = metadata.split(',').find((item) => item.startsWith('filename '));
  return Buffer.from(pair?.split(' ')[1] ?? '', 'base64').toString('utf8');
}

const faultOf = (fileName) =>
  Object.keys(faults).find((name) => fileName.startsWith(`${name}_`)) ?? 'honest';

class FaultyServer {
  #uploads = new Map();
  #server;

  constructor(port, fault) {
    this.port = port;
    this.fault = fault;
  }

  async listen(certificate) {
    this.#server = https.createServer(certificate, (request, response) =>
      this.#serve(request, response).catch(() => request.destroy()));
    await new Promise((resolve, reject) => {
      this.#server.once('error', reject);
      this.#server.listen(this.port, 'localhost', resolve);
    });
  }

  async close() {
    const closed = new Promise((resolve) => this.#server.close(resolve));
    this.#server.closeAllConnections();
    await closed;
  }

  urlOf(upload) {
    return `https://localhost:${this.port}/${upload.id}`;
  }

  #create(request) {
    const fileName = decodeFileName(request.headers['upload-metadata']);
    const upload = {
      id: `upload${this.#uploads.size + 1}`, fileName, fault: this.fault ?? faultOf(fileName),
      size: Number(request.headers['upload-length']), offset: 0, patches: 0, body: Buffer.alloc(0),
    };
    this.#uploads.set(upload.id, upload);
    return upload;
  }

  async #serve(request, response) {
    const creates = request.method === 'POST' && request.url === '/';
    const upload = creates ? this.#create(request) : this.#uploads.get(request.url.slice(1));
    const exchange = { request, response, upload, server: this };
    if (!upload) return answer(exchange, 404);
    const step = creates ? 'post' : { HEAD: 'head', PATCH: 'patch' }[request.method] ?? 'other';
    if (step === 'patch') ++upload.patches;
    await (faults[upload.fault][step] ?? honest[step])(exchange);
  }
}

/**
 * @param {{port: number, certificate: {key: Buffer, cert: Buffer}, fault?: string}} options
 * @returns {Promise<FaultyServer>} listening
 */
export async function startFaultyServer({ port, certificate, fault }) {
  if (fault && !faults[fault]) throw new Error(`Unknown fault ${fault}.`);
  const server = new FaultyServer(port, fault);
  await server.listen(certificate);
  return server;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const [port, fault] = process.argv.slice(2);
  if (!port) {
    console.error(`usage: faulty_server.mjs PORT [FAULT]\nfaults: ${Object.keys(faults).join(' ')}`);
    process.exit(2);
  }
  const certificate = await makeCertificate(path.join(os.tmpdir(), `faulty_server_${port}`));
  const server = await startFaultyServer({ port: Number(port), certificate, fault });
  console.log(`Listening on https://localhost:${port}/ with ${certificate.authorityFile}`);
  process.on('SIGTERM', () => server.close().then(() => process.exit(0)));
  process.on('SIGINT', () => server.close().then(() => process.exit(0)));
}
