// The module in the address ("#/bookmarks"), so that a reload or a shared
// address keeps it. Anything else is the first module.

export function moduleFromHash(hash: string, ids: readonly string[]): string {
  const id = hash.replace(/^#\/?/, '').split(/[/?]/)[0];
  return ids.includes(id) ? id : ids[0];
}

export function hashFor(id: string): string {
  return `#/${id}`;
}
