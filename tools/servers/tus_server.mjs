// A crash-collection server for this machine: TUS 1.0.0 over HTTPS at the root path "/", with a
// certificate made on the spot. Finished uploads are in the folder under their own names, each with
// "<name>.upload.json" (size and metadata) beside it.
//
// command: node tus_server.mjs FOLDER [PORT]
import { fork } from 'node:child_process';
import { mkdir } from 'node:fs/promises';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { makeCertificate } from './certificate.mjs';

export const loopbackPort = 18443;
const workerFile = fileURLToPath(new URL('tus_worker.mjs', import.meta.url));
const restartPauseMs = 200;
const startLimitMs = 15_000;

/** Keeps one worker process alive until closed; `onEvent` hears what the worker tells. */
class TusServer {
  #worker;
  #closed = false;

  constructor(options, onEvent) {
    this.options = options;
    this.onEvent = onEvent;
    this.authorityFile = options.authorityFile;
  }

  start() {
    this.#worker = fork(workerFile, [JSON.stringify(this.options)]);
    this.#worker.on('message', this.onEvent);
    this.#worker.on('exit', (code) => {
      if (this.#closed) return;
      this.onEvent({ event: 'restart', code });
      setTimeout(() => this.#closed || this.start(), restartPauseMs);
    });
  }

  async close() {
    this.#closed = true;
    if (this.#worker.exitCode !== null) return;
    const ended = new Promise((resolve) => this.#worker.once('exit', resolve));
    this.#worker.kill();
    await ended;
  }
}

/**
 * Starts the server and resolves when it listens. Rejects when it does not within 15 seconds.
 * @param {{folder: string, port?: number, onEvent?: (event: object) => void}} options
 */
export async function startTusServer({ folder, port = loopbackPort, onEvent = () => {} }) {
  await mkdir(folder, { recursive: true });
  const certificates = path.join(folder, '.certificates');
  const { authorityFile } = await makeCertificate(certificates);
  const options = {
    folder, port, authorityFile,
    keyFile: path.join(certificates, 'server.key'),
    certFile: path.join(certificates, 'server.pem'),
  };
  let server;
  let limit;
  try {
    await new Promise((resolve, reject) => {
      limit = setTimeout(() => reject(new Error(`No server on port ${port}.`)), startLimitMs);
      server = new TusServer(options, (event) => {
        if (event.event === 'listening') resolve();
        onEvent(event);
        if (event.event === 'failed') reject(new Error(event.reason));
      });
      server.start();
    });
  } catch (error) {
    await server.close();
    throw error;
  } finally {
    clearTimeout(limit);
  }
  return server;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const [folder, port] = process.argv.slice(2);
  if (!folder) {
    console.error('usage: tus_server.mjs FOLDER [PORT]');
    process.exit(2);
  }
  const server = await startTusServer({
    folder: path.resolve(folder),
    port: port ? Number(port) : undefined,
    onEvent: (event) => console.log(JSON.stringify(event)),
  }).catch((error) => {
    console.error(error.message);
    process.exit(1);
  });
  console.log(`Certificate authority: ${server.authorityFile}`);
  const stop = () => server.close().then(() => process.exit(0));
  process.on('SIGTERM', stop);
  process.on('SIGINT', stop);
}
