// Asks the store's token service for the short-lived credentials of a scope.
import { AssumeRoleCommand, STSClient } from '@aws-sdk/client-sts';
import { sessionPolicy } from './Scopes.mjs';

export class Tokens {
  #sts;
  #store;
  lifetimeSeconds;

  /** store.sts may be null: then everybody gets the store's own keys, and only for trying things out. */
  constructor(store, lifetimeSeconds) {
    this.#store = store;
    this.lifetimeSeconds = lifetimeSeconds;
    this.#sts = store.sts ? new STSClient({ endpoint: store.sts, region: store.region, maxAttempts: 2,
      credentials: { accessKeyId: store.broker.accessKey, secretAccessKey: store.broker.secretKey } }) : null;
  }

  /** Resolves to {accessKey, secretKey, sessionToken, expiration (Date)}. */
  async forScope(scope, userId) {
    if (!this.#sts) {
      const { accessKey, secretKey } = this.#store.owner;
      return { accessKey, secretKey, sessionToken: '',
        expiration: new Date(Date.now() + this.lifetimeSeconds * 1000) };
    }
    const answer = await this.#sts.send(new AssumeRoleCommand({
      RoleArn: this.#store.roleArn,
      RoleSessionName: `user-${userId}`.replace(/[^\w+=,.@-]/g, '-').slice(0, 64),
      Policy: sessionPolicy(scope, userId, this.#store.bucket),
      DurationSeconds: this.lifetimeSeconds,
    }));
    const c = answer.Credentials;
    return { accessKey: c.AccessKeyId, secretKey: c.SecretAccessKey, sessionToken: c.SessionToken,
      expiration: c.Expiration };
  }

  close() {
    this.#sts?.destroy();
  }
}
