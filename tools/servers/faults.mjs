// What a collection server can do wrong, by name. Each fault replaces some steps of an honest TUS
// exchange; a step gets the exchange ({request, response, upload, server}) and answers it.
//
// `upload` holds fileName, size, offset, patches (how many PATCH requests came) and body (the
// bytes kept so far).

const mebibyte = 1024 * 1024;

/** Ends the request with a status, headers and a short body. */
export function answer({ response }, status, headers = {}, body = '') {
  response.writeHead(status, { 'Tus-Resumable': '1.0.0', ...headers });
  response.end(body);
}

async function readBody(request, limit = Infinity) {
  const parts = [];
  let length = 0;
  for await (const part of request.iterator({ destroyOnReturn: false })) {
    parts.push(part);
    length += part.length;
    if (length >= limit) break;
  }
  return Buffer.concat(parts);
}

const keep = (upload, bytes) => {
  upload.body = Buffer.concat([upload.body.subarray(0, upload.offset), bytes]);
  upload.offset = upload.body.length;
};

/** How a server that does nothing wrong answers. */
export const honest = {
  post: (exchange) => answer(exchange, 201, { Location: exchange.server.urlOf(exchange.upload) }),
  head: (exchange) => answer(exchange, 200, {
    'Upload-Offset': exchange.upload.offset, 'Upload-Length': exchange.upload.size }),
  async patch(exchange) {
    const { request, upload } = exchange;
    if (Number(request.headers['upload-offset']) !== upload.offset) return answer(exchange, 409);
    keep(upload, await readBody(request));
    answer(exchange, 204, { 'Upload-Offset': upload.offset });
  },
  other: (exchange) => answer(exchange, 404, {}, 'no such page'),
};

const refuse = (exchange) => answer(exchange, 500, {}, 'out of order');

// Hangs up when half of the first PATCH has come; later ones are served honestly.
const cutFirstPatch = (keepsHalf) => async (exchange) => {
  const { request, upload } = exchange;
  if (upload.patches > 1) return honest.patch(exchange);
  const half = Math.floor(Number(request.headers['content-length']) / 2);
  const bytes = await readBody(request, half);
  if (keepsHalf) keep(upload, bytes);
  request.socket.destroy();
};

// Holds only half of the first PATCH and says so.
async function keepHalf(exchange) {
  const { request, upload } = exchange;
  if (upload.patches > 1) return honest.patch(exchange);
  const bytes = await readBody(request);
  keep(upload, bytes.subarray(0, Math.floor(bytes.length / 2)));
  answer(exchange, 204, { 'Upload-Offset': upload.offset });
}

const patchAnswer = (headersOf) => async (exchange) => {
  keep(exchange.upload, await readBody(exchange.request));
  answer(exchange, 204, headersOf(exchange.upload));
};

// Writes header lines until the client hangs up.
function pourHeaders({ request: { socket } }) {
  const line = `X-Filler: ${'x'.repeat(1000)}\r\n`;
  const pour = () => {
    while (!socket.destroyed && socket.write(line));
  };
  socket.on('drain', pour);
  socket.write('HTTP/1.1 201 Created\r\nTus-Resumable: 1.0.0\r\n');
  pour();
}

const longBody = 'A long story, told by a server. '.repeat((20 * mebibyte) / 32);

export const faults = {
  honest: {},
  reset: { post: ({ request }) => request.socket.destroy() },
  status_500: { post: refuse, head: refuse, patch: refuse, other: refuse },
  cut_patch: { patch: cutFirstPatch(false) },
  cut_patch_kept: { patch: cutFirstPatch(true) },
  smaller_offset: { patch: keepHalf },
  larger_offset: { patch: patchAnswer((upload) => ({ 'Upload-Offset': upload.offset + 1000 })) },
  relative_location: {
    post: (exchange) => answer(exchange, 201, { Location: `/${exchange.upload.id}` }),
  },
  head_404: { head: (exchange) => answer(exchange, 404) },
  head_bare_length: {
    head: (exchange) => answer(exchange, 200, { 'Upload-Length': exchange.upload.size }),
  },
  head_no_number: { head: (exchange) => answer(exchange, 200, { 'Upload-Offset': 'many' }) },
  patch_no_number: { patch: patchAnswer(() => ({ 'Upload-Offset': '12 bytes' })) },
  patch_no_offset: { patch: patchAnswer(() => ({})) },
  endless_headers: { post: pourHeaders },
  big_body: {
    post: (exchange) => answer(exchange, 201,
      { Location: exchange.server.urlOf(exchange.upload), 'Content-Length': longBody.length },
      longBody),
  },
};
