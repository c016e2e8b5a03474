// What a collection server can do wrong, by name. Each fault replaces some steps of an honest TUS
// exchange; a step gets the exchange ({request, response, upload, server}) and answers it.
//
// `upload` holds fileName, size, offset, patches (how many PATCH requests came) and body (the bytes
// kept so far).

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

// Hangs up after half of the first PATCH, and keeps that half; later ones are served honestly.
async function cutFirstPatch(exchange) {
  const { request, upload } = exchange;
  if (upload.patches > 1) return honest.patch(exchange);
  keep(upload, await readBody(request, Math.floor(Number(request.headers['content-length']) / 2)));
  request.socket.destroy();
}

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

export const faults = {
  honest: {},
  reset: { post: ({ request }) => request.socket.destroy() },
  cut_patch: { patch: cutFirstPatch },
  endless_headers: { post: pourHeaders },
};
