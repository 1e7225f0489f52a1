// Certificates for a site on this machine, made with openssl.
import {execFileSync} from 'node:child_process';
import {X509Certificate, createHash} from 'node:crypto';
import {existsSync, mkdirSync, readFileSync} from 'node:fs';
import {join} from 'node:path';

const NEW_KEY = ['-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-noenc'];

function openssl(...args) {
  try {
    execFileSync('openssl', args, {stdio: ['ignore', 'ignore', 'pipe']});
  } catch (error) {
    throw new Error(`openssl ${args[0]} failed: ${error.stderr?.toString().trim() || error.message}`);
  }
}

// A certificate for all of `hosts`, signed by the CA in `folder` (ca.pem and ca-key.pem). Makes the folder and the CA
// where they are missing. Returns {key, cert, caPath, spki}: the server's key and certificate in PEM form, the path of
// the CA's certificate, and the hash of the server's public key that a browser can be told to trust.
export function makeCertificates(folder, hosts) {
  mkdirSync(folder, {recursive: true});
  const [ca, caKey, server, serverKey] = ['ca.pem', 'ca-key.pem', 'server.pem', 'server-key.pem'].map((name) => join(folder, name));
  if (!existsSync(ca) || !existsSync(caKey)) {
    openssl('req', '-x509', ...NEW_KEY, '-keyout', caKey, '-out', ca, '-days', '365', '-subj', '/CN=Example sites',
      '-addext', 'basicConstraints=critical,CA:TRUE', '-addext', 'keyUsage=critical,keyCertSign');
  }
  openssl('req', '-x509', '-CA', ca, '-CAkey', caKey, ...NEW_KEY, '-keyout', serverKey, '-out', server, '-days', '365',
    '-subj', `/CN=${hosts[0]}`, '-addext', `subjectAltName=${hosts.map((host) => `DNS:${host}`).join(',')}`,
    '-addext', 'basicConstraints=critical,CA:FALSE', '-addext', 'extendedKeyUsage=serverAuth');
  const cert = readFileSync(server);
  const publicKey = new X509Certificate(cert).publicKey.export({type: 'spki', format: 'der'});
  const spki = createHash('sha256').update(publicKey).digest('base64');
  return {key: readFileSync(serverKey), cert, caPath: ca, spki};
}
