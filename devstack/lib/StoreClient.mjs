// The independent S3 client of the devstack: settings that suit a store on loopback.
import { S3Client } from '@aws-sdk/client-s3';

/** credentials: {accessKey, secretKey, sessionToken (optional)}. The caller destroys the client. */
export function storeClient({ url, region, credentials, maxAttempts = 1 }) {
  const client = new S3Client({
    endpoint: url, region, forcePathStyle: true, maxAttempts,
    // Sends only the checksums that the request needs, because not every store knows the checksum
    // headers.
    requestChecksumCalculation: 'WHEN_REQUIRED', responseChecksumValidation: 'WHEN_REQUIRED',
    credentials: {
      accessKeyId: credentials.accessKey, secretAccessKey: credentials.secretKey,
      ...(credentials.sessionToken ? { sessionToken: credentials.sessionToken } : {}),
    },
  });
  // The gateway does not answer "Expect: 100-continue" on every request, and the client then waits
  // six seconds for it.
  client.middlewareStack.remove('addExpectContinueMiddleware');
  return client;
}
