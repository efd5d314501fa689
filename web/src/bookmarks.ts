// The bookmarks module's logic without the page: the folder tree, the
// editor's checks (the daemon's own rules, so most mistakes are named before
// sending; the daemon checks again), the changes to send, and what a dropped
// file becomes.
import type { BookmarkDetails } from './api';

export const TITLE_ENCODINGS = ['auto', 'UTF-8', 'ISO-8859-1', 'CP1252', 'CP1251'] as const;
export const REC_OFFSET_LIMIT = 30;

export interface TreeGroup {
  /** The folder's path in the bookmarks folder; "" for the top. */
  path: string;
  name: string;
  bookmarks: BookmarkDetails[];
  groups: TreeGroup[];
}

/** The bookmarks as their folders hold them, each level sorted by name (any case). */
export function buildTree(list: BookmarkDetails[]): TreeGroup {
  const root: TreeGroup = { path: '', name: '', bookmarks: [], groups: [] };
  for (const b of list) {
    let at = root;
    const parts = b.entry.split('/').slice(0, -1);
    parts.forEach((part, i) => {
      const path = parts.slice(0, i + 1).join('/');
      let next = at.groups.find((g) => g.path === path);
      if (!next) {
        next = { path, name: part, bookmarks: [], groups: [] };
        at.groups.push(next);
      }
      at = next;
    });
    at.bookmarks.push(b);
  }
  const byName = (a: string, b: string) => a.localeCompare(b, undefined, { sensitivity: 'base' });
  const sort = (g: TreeGroup) => {
    g.bookmarks.sort((a, b) => byName(a.entry, b.entry));
    g.groups.sort((a, b) => byName(a.name, b.name));
    g.groups.forEach(sort);
  };
  sort(root);
  return root;
}

/** What the editor holds: every field the daemon lets the user change. */
export interface BookmarkForm {
  name: string;
  genre: string;
  separator: string;
  recOffset: string;
  titleEncoding: string;
  trackNum: boolean;
  sortArtists: boolean;
  clean: boolean;
  noSplit: boolean;
  allowUntrusted: boolean;
}

export type Changes = Partial<Omit<BookmarkForm, 'recOffset'> & { recOffset: number }>;

export function formOf(b: BookmarkDetails): BookmarkForm {
  return {
    name: b.name,
    genre: b.genre,
    separator: b.separator,
    recOffset: String(b.recOffset),
    titleEncoding: b.titleEncoding || 'auto',
    trackNum: b.trackNum,
    sortArtists: b.sortArtists,
    clean: b.clean,
    noSplit: b.noSplit,
    allowUntrusted: b.allowUntrusted,
  };
}

/** The mistakes in a form, by field, in words; empty when it may be sent. */
export function checkForm(f: Pick<BookmarkForm, 'name' | 'recOffset'>): Partial<Record<keyof BookmarkForm, string>> {
  const errors: Partial<Record<keyof BookmarkForm, string>> = {};
  if (!f.name.trim()) errors.name = 'The name is empty.';
  else if ([...f.name].some((c) => c.codePointAt(0)! > 0xff))
    errors.name = 'Names are limited to Latin-1 characters (no emoji, no Cyrillic or Asian letters).';
  else if (!/[\p{L}\p{N}]/u.test(f.name)) errors.name = 'A name needs a letter or digit.';
  else if (f.name.includes('/')) errors.name = 'A name cannot hold "/": groups are folders.';
  const offset = f.recOffset.trim();
  if (!/^[+-]?\d+$/.test(offset)) errors.recOffset = 'The record offset is a whole number of seconds.';
  else if (Math.abs(Number(offset)) > REC_OFFSET_LIMIT)
    errors.recOffset = `The record offset is from −${REC_OFFSET_LIMIT} to ${REC_OFFSET_LIMIT} seconds.`;
  return errors;
}

/** Only the fields the user changed, as the daemon takes them. */
export function changesBetween(before: BookmarkForm, after: BookmarkForm): Changes {
  const out: Changes = {};
  for (const key of Object.keys(after) as (keyof BookmarkForm)[]) {
    if (after[key] === before[key]) continue;
    if (key === 'recOffset') out.recOffset = Number(after.recOffset.trim());
    else (out as Record<string, unknown>)[key] = after[key];
  }
  return out;
}

const ENTITIES: Record<string, string> = { amp: '&', lt: '<', gt: '>', quot: '"', apos: "'" };

function plistString(text: string, key: string): string | undefined {
  const m = text.match(new RegExp(`<key>${key}</key>\\s*<string>([^<]*)</string>`));
  return m?.[1].replace(/&(amp|lt|gt|quot|apos);/g, (_, e: string) => ENTITIES[e]);
}

/** A bookmark's address as the user reads it (no password). */
export function addressOf(b: Pick<BookmarkDetails, 'scheme' | 'user' | 'hasPassword' | 'host' | 'port' | 'path'>): string {
  const user = b.user ? `${b.user}${b.hasPassword ? ':…' : ''}@` : '';
  return `${b.scheme}://${user}${b.host}${b.port ? `:${b.port}` : ''}${b.path}`;
}

/** The request a dropped or pasted file makes: POST /api/bookmarks. */
type FromLocation = { location: string; name?: string; genre?: string; separator?: string };

export function requestForFile(fileName: string, text: string): FromLocation | { playlist: string } {
  if (!/\.qlnbk$/i.test(fileName)) return { playlist: text };
  // A bookmark file is a property list: its address is in its parts (the
  // daemon's playlist reader would take the DTD's address for the stream).
  const host = plistString(text, 'host');
  if (!host) throw new Error(`${fileName} holds no station address.`);
  const scheme = plistString(text, 'scheme') || 'http';
  const port = plistString(text, 'port');
  const path = plistString(text, 'path') || '/';
  const location = `${scheme}://${host}${port ? `:${port}` : ''}${path.startsWith('/') ? '' : '/'}${path}`;
  const out: FromLocation = { location };
  for (const key of ['name', 'genre', 'separator'] as const) {
    const value = plistString(text, key);
    if (value) out[key] = value;
  }
  return out;
}
