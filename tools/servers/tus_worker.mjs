// The process that tus_server.mjs keeps alive: @tus/server at the root path of an HTTPS server.
// It gets its options as one JSON argument and sends its parent an object for each event, or prints
// it if there is no parent.
import { link, mkdir, readFile, rename, stat, writeFile } from 'node:fs/promises';
import https from 'node:https';
import path from 'node:path';

import { FileStore } from '@tus/file-store';
import { Server } from '@tus/server';

const { folder, port, keyFile, certFile } = JSON.parse(process.argv[2]);
const store = path.join(folder, '.uploads');
const tell = (event) => (process.send ? process.send(event) : console.log(JSON.stringify(event)));

// The client names the file; only its last component may name a file here.
const safeName = (name, id) => path.basename((name ?? '').replaceAll('\\', '/')) || id;

// Links a finished upload under its own name, with a number if the name is taken.
async function keep(upload) {
  const { name, ext } = path.parse(safeName(upload.metadata?.filename, upload.id));
  for (let number = 1; ; ++number) {
    const fileName = number === 1 ? name + ext : `${name} (${number})${ext}`;
    const file = path.join(folder, fileName);
    try {
      await link(path.join(store, upload.id), file);
    } catch (error) {
      if (error.code === 'EEXIST') continue;
      throw error;
    }
    const { size } = await stat(file);
    const record = { fileName, size, metadata: upload.metadata, announcedSize: upload.size };
    // This is written aside first, so that nobody sees half a record.
    await writeFile(`${file}.upload.part`, JSON.stringify(record, null, 2) + '\n');
    await rename(`${file}.upload.part`, `${file}.upload.json`);
    return record;
  }
}

await mkdir(store, { recursive: true });
const tus = new Server({
  path: '/',
  // The default would start with http://, since TLS ends before @tus/server sees the request.
  generateUrl: (request, { host, id }) => `https://${host}/${id}`,
  datastore: new FileStore({ directory: store }),
  onUploadFinish: async (request, upload) => {
    tell({ event: 'received', ...(await keep(upload)) });
    return {};
  },
});

const server = https.createServer(
  { key: await readFile(keyFile), cert: await readFile(certFile) },
  (request, response) => {
    response.on('close', () => tell({
      event: 'request',
      method: request.method,
      url: request.url,
      uploadOffset: request.headers['upload-offset'],
      status: response.writableFinished ? response.statusCode : 0,
    }));
    tus.handle(request, response);
  },
);
server.on('error', (error) => {
  tell({ event: 'failed', reason: error.message });
  process.exitCode = 1;
  process.disconnect?.();
});
server.listen(port, 'localhost', () => tell({ event: 'listening', port }));
process.on('disconnect', () => process.exit());
