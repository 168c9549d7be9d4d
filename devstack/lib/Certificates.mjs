// Certificates for the two TLS ports of the object store: one signed by a certificate authority
// that is made here, and a self-signed one that no client should trust. openssl makes them, valid
// for 30 days.
import fs from 'node:fs';
import path from 'node:path';
import { run } from './Children.mjs';

const names = 'subjectAltName=DNS:localhost,DNS:*.localhost,IP:127.0.0.1';
const newKey = ['-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes'];

/** Resolves to {caFile, good: {key, cert}, wrong: {key, cert}}. */
export async function makeCertificates(folder) {
  fs.mkdirSync(folder, { recursive: true, mode: 0o700 });
  const at = (name) => path.join(folder, name);
  const selfSigned = (name, subject, ...extensions) => run('openssl',
    ['req', '-x509', ...newKey, '-keyout', at(`${name}.key`), '-out', at(`${name}.crt`), '-days', '30',
      '-subj', subject, ...extensions.flatMap((e) => ['-addext', e])]);
  await Promise.all([
    selfSigned('ca', '/CN=devstack CA', 'keyUsage=critical,keyCertSign,cRLSign'),
    selfSigned('wrong', '/CN=localhost', names),
    run('openssl', ['req', '-new', ...newKey, '-keyout', at('store.key'), '-out', at('store.csr'),
      '-subj', '/CN=localhost']),
  ]);
  fs.writeFileSync(at('store.ext'), `${names}\nextendedKeyUsage=serverAuth\n`);
  await run('openssl', ['x509', '-req', '-in', at('store.csr'), '-CA', at('ca.crt'), '-CAkey', at('ca.key'),
    '-CAcreateserial', '-out', at('store.crt'), '-days', '30', '-extfile', at('store.ext')]);
  const pair = (name) => ({ key: fs.readFileSync(at(`${name}.key`)), cert: fs.readFileSync(at(`${name}.crt`)) });
  return { caFile: at('ca.crt'), good: pair('store'), wrong: pair('wrong') };
}
