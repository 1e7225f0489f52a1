// Serves the example site: one HTTP/1.1 listener per origin, all on 127.0.0.1, on ports the system
// picks. A browser reaches them through the resolver rules that startSite hands out.
// Run by itself it prints those rules and serves until it is interrupted.
import http from 'node:http';
import {pathToFileURL} from 'node:url';
import {answer} from './answer.mjs';
import {origins, pages} from './routes.mjs';

// Starts every listener. Returns {resolverRules, close}: the value for the browser's
// --host-resolver-rules, and a function that stops the site and drops its connections.
export async function startSite() {
  const servers = [];
  const rules = [];
  for (const [origin, resources] of origins) {
    const server = http.createServer((request, response) => {
      answer(resources, request, response).catch((error) => {
        console.error(`site: ${origin}${request.url}: ${error.stack}`);
        response.destroy();
      });
    });
    server.keepAliveTimeout = 30000;
    await new Promise((resolve, reject) => {
      server.once('error', reject);
      server.listen(0, '127.0.0.1', resolve);
    });
    const [host, port = '80'] = origin.split(':');
    rules.push(`MAP ${host}:${port} 127.0.0.1:${server.address().port}`);
    servers.push(server);
  }
  const close = () => servers.forEach((server) => { server.close(); server.closeAllConnections(); });
  return {resolverRules: rules.join(','), close};
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  const site = await startSite();
  console.log(`chromium --user-data-dir=$(mktemp -d) --host-resolver-rules="${site.resolverRules}" ${pages[0]}`);
  process.once('SIGINT', site.close);
  process.once('SIGTERM', site.close);
}
