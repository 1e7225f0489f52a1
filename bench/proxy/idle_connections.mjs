// Connections through a proxy on which one request was answered and nothing happens any more.
import {createConnection} from 'node:net';
import {connect as connectTls} from 'node:tls';
import {NAME} from './servers.mjs';

const AT_A_TIME = 20;

// Resolves with what the peer has sent up to `end`.
function readTo(stream, end, what) {
  return new Promise((resolve, reject) => {
    let text = '';
    const onData = (bytes) => {
      text += bytes.toString('latin1');
      if (!text.includes(end)) return;
      stream.off('data', onData);
      resolve(text);
    };
    stream.on('data', onData);
    stream.once('error', reject);
    stream.once('close', () => reject(new Error(`a connection was closed before ${what}`)));
  });
}

async function open(proxyPort, origin, secure) {
  const socket = createConnection(proxyPort, '127.0.0.1');
  socket.setNoDelay();
  let stream = socket;
  if (secure) {
    socket.write(`CONNECT ${NAME}:443 HTTP/1.1\r\nHost: ${NAME}:443\r\n\r\n`);
    await readTo(socket, '\r\n\r\n', 'the tunnel stood');
    stream = connectTls({socket, servername: NAME, rejectUnauthorized: false});
  }
  const target = secure ? '/1k' : `${origin.base}/1k`;
  const host = secure ? NAME : `127.0.0.1:${origin.port}`;
  stream.write(`GET ${target} HTTP/1.1\r\nHost: ${host}\r\nAccept: */*\r\nSec-Fetch-Site: none\r\n\r\n`);
  const answer = await readTo(stream, 'x'.repeat(1000), 'a response had come');
  if (!answer.startsWith('HTTP/1.1 200')) throw new Error(`a request was answered with ${answer.slice(0, 60)}`);
  return socket;
}

// What the proxy takes before, and with `count` connections, in bytes.
export async function measureIdle(proxy, origin, count, secure) {
  await open(proxy.port, origin, secure).then((socket) => socket.destroy()); // what the first request sets up is there
  const before = proxy.memory();
  const sockets = [];
  while (sockets.length < count) {
    const batch = Array.from({length: Math.min(AT_A_TIME, count - sockets.length)}, () => open(proxy.port, origin, secure));
    sockets.push(...await Promise.all(batch));
  }
  const closed = sockets.filter((socket) => socket.destroyed || socket.readableEnded).length;
  if (closed > 0) throw new Error(`${proxy.name} has closed ${closed} of ${count} idle connections`);
  const after = proxy.memory();
  for (const socket of sockets) socket.destroy();
  return {before, after};
}
