// The server that is asked, and the proxies that are compared, each with one process that works, on one processor.
import {spawn, spawnSync} from 'node:child_process';
import {readdirSync, readFileSync, writeFileSync} from 'node:fs';
import {createConnection, createServer} from 'node:net';
import {join} from 'node:path';
import {setTimeout as pause} from 'node:timers/promises';

export const PROXY_CORE = '0';
export const OTHER_CORE = '1'; // of the server and of who asks

export const NAME = 'bench.test'; // what the server is called over https

async function freePort() {
  const server = createServer();
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const {port} = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

// Bytes that a process and its children take, memory shared with others in proportion.
function memoryOf(id) {
  const children = readdirSync('/proc').filter((name) => /^\d+$/.test(name)).filter((name) => {
    try {
      return readFileSync(`/proc/${name}/stat`, 'utf8').split(') ')[1].split(' ')[1] === String(id);
    } catch {
      return false; // it has ended
    }
  });
  const own = Number(/^Pss:\s+(\d+)/m.exec(readFileSync(`/proc/${id}/smaps_rollup`, 'utf8'))[1]) * 1024;
  return children.reduce((sum, child) => sum + memoryOf(Number(child)), own);
}

// A process that listens on `port` of this machine.
class Server {
  constructor(name, core, port, command) {
    Object.assign(this, {name, port});
    this.process = spawn('taskset', ['-c', core, ...command], {stdio: ['ignore', 'ignore', 'inherit']});
    this.process.once('error', (error) => { this.failure = `${command[0]} cannot be started: ${error.message}`; });
    this.process.once('exit', (status) => { this.failure = `${name} has ended with status ${status}`; });
  }

  async listens() {
    for (const deadline = Date.now() + 10_000; Date.now() < deadline; await pause(50)) {
      if (this.failure) throw new Error(this.failure);
      const reached = await new Promise((resolve) => {
        const socket = createConnection(this.port, '127.0.0.1', () => { socket.destroy(); resolve(true); });
        socket.once('error', () => resolve(false));
      });
      if (reached) return this;
    }
    throw new Error(`${this.name} does not listen on port ${this.port}`);
  }

  memory() { return memoryOf(this.process.pid); }

  async stop() {
    if (this.process.exitCode !== null || this.process.signalCode !== null) return;
    const ended = new Promise((resolve) => this.process.once('exit', resolve));
    this.process.kill('SIGTERM');
    const late = setTimeout(() => this.process.kill('SIGKILL'), 3000);
    await ended;
    clearTimeout(late);
  }
}

function startNginx(folder, name, core, port, http) {
  const path = (file) => join(folder, `${name}-${file}`);
  const temporary = ['client_body', 'proxy', 'fastcgi', 'uwsgi', 'scgi'].map((kind) => `${kind}_temp_path ${path(kind)};`).join(' ');
  writeFileSync(path('conf'), `daemon off; worker_processes 1; worker_rlimit_nofile 8192; pid ${path('pid')}; error_log stderr crit;
${process.getuid() === 0 ? 'user root;' : ''}
events { worker_connections 4096; }
http { access_log off; keepalive_requests 100000000; keepalive_timeout 600s; ${temporary}
${http}
}
`);
  return new Server(name, core, port, ['nginx', '-p', folder, '-c', path('conf'), '-e', '/dev/null']).listens();
}

// Files of 1 kB and 100 kB, which no cache may keep, over http and https.
export async function startOrigin(folder) {
  const [port, securePort] = [await freePort(), await freePort()];
  for (const [file, size] of [['1k', 1000], ['100k', 100_000], ['page', 1000]]) writeFileSync(join(folder, file), 'x'.repeat(size));
  const [key, certificate] = [join(folder, 'key.pem'), join(folder, 'cert.pem')];
  const made = spawnSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-days', '2',
    '-subj', `/CN=${NAME}`, '-addext', `subjectAltName=DNS:${NAME}`, '-keyout', key, '-out', certificate]);
  if (made.status !== 0) throw new Error(`no certificate can be made: ${made.error?.message ?? made.stderr}`);
  const origin = await startNginx(folder, 'server', OTHER_CORE, port, `server { listen 127.0.0.1:${port} backlog=4096;
  listen 127.0.0.1:${securePort} ssl backlog=4096; ssl_certificate ${certificate}; ssl_certificate_key ${key};
  root ${folder}; default_type image/png; add_header Cache-Control no-store; }`);
  return Object.assign(origin, {securePort, certificate, base: `http://127.0.0.1:${port}`});
}

// As shipped. `secure`: stands in for the server over https.
export async function startKivProxy(folder, program, origin, secure) {
  const port = await freePort();
  const name = secure ? 'kiv_proxy, https' : 'kiv_proxy';
  writeFileSync(join(folder, 'hosts'), `127.0.0.1 ${NAME}\n`);
  const more = secure ? ['--intercept', '--ca-dir', join(folder, 'ca'), '--upstream-ca', origin.certificate, '--hosts', join(folder, 'hosts'),
    '--connect-port', String(origin.securePort)] : [];
  return new Server(name, PROXY_CORE, port, [program, '--listen', `127.0.0.1:${port}`, '--state', join(folder, `${port}.db`), ...more]).listens();
}

// It knows its one server ahead, because only then it keeps connections to it open: the fastest that it can be.
export async function startNginxProxy(folder, origin) {
  const port = await freePort();
  return startNginx(folder, 'nginx', PROXY_CORE, port, `upstream origin { server 127.0.0.1:${origin.port}; keepalive 64; keepalive_requests 100000000; }
server { listen 127.0.0.1:${port} backlog=4096; location / { proxy_pass http://origin; proxy_http_version 1.1;
  proxy_set_header Connection ""; proxy_set_header Host $http_host; } }`);
}

export async function startSquid(folder) {
  const port = await freePort();
  const file = join(folder, 'squid.conf');
  writeFileSync(file, `http_port 127.0.0.1:${port}
http_access allow all
cache deny all
access_log none
cache_log /dev/null
pid_filename none
coredump_dir ${folder}
pinger_enable off
client_db off
max_filedescriptors 8192
client_idle_pconn_timeout 10 minutes
shutdown_lifetime 0 seconds
`);
  return new Server('squid', PROXY_CORE, port, ['squid', '-N', '-f', file]).listens();
}
