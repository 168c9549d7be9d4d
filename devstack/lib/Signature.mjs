// The backend's side of QX-SIGNATURE: "t=<unix seconds>,v1=<HMAC-SHA256 in hex>".
import { createHash, createHmac, timingSafeEqual } from 'node:crypto';

export const maxAgeSeconds = 300;

/** The value of the header for one request. path: path and query exactly as on the request line. */
export function signature({ accessToken, method, path, time, body }) {
  const bodyHash = createHash('sha256').update(body).digest('hex');
  const v1 = createHmac('sha256', accessToken).update(`${method}\n${path}\n${time}\n${bodyHash}`).digest('hex');
  return `t=${time},v1=${v1}`;
}

/** null when the header is right, else why not. */
export function signatureFault({ header, accessToken, method, path, body, now }) {
  if (header === undefined) return 'missing signature';
  const match = /^t=(\d{1,15}),v1=([0-9a-f]{64})$/.exec(header);
  if (!match) return 'malformed signature';
  const expected = Buffer.from(signature({ accessToken, method, path, time: match[1], body }));
  if (!timingSafeEqual(Buffer.from(header), expected)) return 'wrong signature';
  if (Math.abs(Number(match[1]) - now) > maxAgeSeconds) return 'signature too old or from the future';
  return null;
}
