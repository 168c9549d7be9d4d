// The upload scopes: the path below which each may write, and whether its objects may be read.

export const scopes = {
  'avatar': { folder: 'avatars/', readable: true },
  'item-image': { folder: 'items/', readable: true },
  'private-file': { folder: 'private/', readable: false },
};

export const authorizedPath = (scope, userId) => `${scopes[scope].folder}${userId}/`;

/** What anybody may read by the public URL of an object. */
export const publicPrefixes = Object.values(scopes).filter((s) => s.readable).map((s) => s.folder);

/**
 * The session policy of one scope of one user, as text without blanks: Ceph's token service does not
 * turn the "+" of a form body back into a blank.
 */
export function sessionPolicy(scope, userId, bucket) {
  const Action = ['s3:PutObject'];
  if (scopes[scope].readable) Action.push('s3:GetObject');
  return JSON.stringify({ Version: '2012-10-17', Statement: [
    { Effect: 'Allow', Action, Resource: [`arn:aws:s3:::${bucket}/${authorizedPath(scope, userId)}*`] }] });
}
