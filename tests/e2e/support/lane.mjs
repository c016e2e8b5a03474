// Test files run side by side. What two of them must not share is a lane: the ports of the servers,
// the VOSK that was built to ask there, and a Windows machine.
import { once } from 'node:events';
import net from 'node:net';
import { setTimeout as sleep } from 'node:timers/promises';

// src/CMakeLists.txt builds a VOSK for each of these sites.
const lanes = [
  { site: 'loopback', collectionPort: 18443, sitePort: 18444, claimPort: 18453 },
  { site: 'loopback2', collectionPort: 18445, sitePort: 18446, claimPort: 18455 },
  { site: 'loopback3', collectionPort: 18447, sitePort: 18448, claimPort: 18457 },
];
const limitMs = 600_000;
const pollMs = 200;

// A lane's own port marks it as taken: the port is free again however the process ends.
async function claim(lane) {
  const holder = net.createServer();
  holder.listen(lane.claimPort, '127.0.0.1');
  try {
    await once(holder, 'listening');
  } catch (error) {
    if (error.code === 'EADDRINUSE') return undefined;
    throw error;
  }
  return { ...lane, release: () => holder.close() };
}

/** Waits for a free lane and takes it until `release` is called or the process ends. */
export async function takeLane() {
  for (const deadline = Date.now() + limitMs; Date.now() < deadline; await sleep(pollMs)) {
    for (const lane of lanes) {
      const taken = await claim(lane);
      if (taken) return taken;
    }
  }
  throw new Error('Every lane is taken.');
}
