// Calls to the daemon's JSON API. The page holds no token: the login address
// set it as a cookie for this origin. Every failure becomes one sentence.

export interface Row {
  id: number;
  title: string;
  status: string;
  state: number;
  streaming: boolean;
  bitrate: number;
  bitrateClass: string;
  bytes: number;
  connName: string;
  relayPort: number;
  listeners: number;
  relayOnly: boolean;
  closeAfterThisTrack: boolean;
  downloadPath: string;
  scheduleInformation?: string;
  /** The track being received; empty before the first title. */
  track?: string;
}

export interface Activity {
  rows: Row[];
}

export interface Bookmark {
  entry: string;
  name: string;
}

/** A bookmark as the daemon lists it, with the fields the editor changes. */
export interface BookmarkDetails extends Bookmark {
  group: string;
  scheme: string;
  host: string;
  port: string;
  path: string;
  user: string;
  hasPassword: boolean;
  genre: string;
  separator: string;
  clean: boolean;
  noSplit: boolean;
  sortArtists: boolean;
  trackNum: boolean;
  recOffset: number;
  titleEncoding: string;
  allowUntrusted: boolean;
  file: string;
}

export interface Day {
  day: string;
  title: string;
  items: number;
  complete: boolean;
  tracks?: Track[];
}

export interface Track {
  number: number;
  trackname: string;
  radioname: string;
  tracknum: number;
  date: string;
  time: string;
  complete: boolean;
  skipped: boolean;
  path: string;
}

export class ApiFailure extends Error {
  constructor(
    message: string,
    readonly status: number,
  ) {
    super(message);
  }
}

/** The sentence for a failed answer: the daemon's own reason when it gave one. */
export function failureText(status: number, body: unknown): string {
  const reason =
    typeof body === 'object' && body !== null && typeof (body as { error?: unknown }).error === 'string'
      ? (body as { error: string }).error
      : '';
  if (status === 401) return 'Not logged in: run "quillon ui" to open this page again.';
  if (reason) return reason.charAt(0).toUpperCase() + reason.slice(1) + '.';
  return `The recorder answered with HTTP ${status}.`;
}

/** Any failure in words: a refused call by its reason, anything else as it is. */
export function failureWords(e: unknown): string {
  return e instanceof ApiFailure ? e.message : `Something went wrong: ${String(e)}.`;
}

export async function call<T>(method: string, path: string, body?: unknown): Promise<T> {
  let answer: Response;
  try {
    answer = await fetch(path, {
      method,
      // A changing call always sends JSON: the daemon refuses any other body (415),
      // and a bare string would go as text/plain.
      headers: method === 'GET' ? {} : { 'Content-Type': 'application/json' },
      body: method === 'GET' ? undefined : JSON.stringify(body ?? {}),
      credentials: 'same-origin',
    });
  } catch {
    throw new ApiFailure('The recorder cannot be reached: is "quillon serve" running?', 0);
  }
  let parsed: unknown = undefined;
  try {
    parsed = await answer.json();
  } catch {
    parsed = undefined;
  }
  if (!answer.ok) throw new ApiFailure(failureText(answer.status, parsed), answer.status);
  return parsed as T;
}

export const api = {
  activity: () => call<Activity>('GET', '/api/activity'),
  bookmarks: () => call<{ bookmarks: BookmarkDetails[] }>('GET', '/api/bookmarks'),
  newBookmark: (body: object) => call<BookmarkDetails>('POST', '/api/bookmarks', body),
  editBookmark: (entry: string, body: object) =>
    call<BookmarkDetails>('PUT', `/api/bookmarks/${entryPath(entry)}`, body),
  deleteBookmark: (entry: string) => call<{ file: string }>('DELETE', `/api/bookmarks/${entryPath(entry)}`),
  record: (bookmark: string, how: { relayOnly?: boolean; listen?: boolean }) =>
    call<Row>('POST', '/api/activity', { bookmark, ...how }),
  days: () => call<{ days: Day[] }>('GET', '/api/history/days'),
  day: (day: string) => call<Day>('GET', `/api/history/days/${encodeURIComponent(day)}`),
  search: (words: string) => call<{ days: Day[] }>('GET', `/api/history/search?q=${encodeURIComponent(words)}`),
  deleteHistory: (targets: string[], confirm: boolean) =>
    call<{ removedDays: string[]; removedItems: number }>('POST', '/api/history/delete', { targets, confirm }),
  addHistoryFiles: (paths: string[]) => call<{ tracks: Track[] }>('POST', '/api/history/files', { paths }),
  addUrl: (url: string) => call<Row>('POST', '/api/activity', { url }),
  addBookmark: (bookmark: string) => call<Row>('POST', '/api/activity', { bookmark }),
  stop: (id: number) => call<Row>('POST', `/api/activity/${id}/stop`),
  start: (id: number) => call<Row>('POST', `/api/activity/${id}/start`),
  stopAfterTrack: (id: number, on: boolean) => call<Row>('POST', `/api/activity/${id}/stop-after-track`, { on }),
  remove: (id: number) => call<object>('DELETE', `/api/activity/${id}`),
  reveal: (id: number) => call<{ path: string }>('POST', `/api/activity/${id}/reveal`),
  clear: () => call<{ removed: number }>('POST', '/api/activity/clear'),
};

/** A bookmark's entry in an address: each folder level escaped on its own. */
export function entryPath(entry: string): string {
  return entry.split('/').map(encodeURIComponent).join('/');
}

/** Where the page plays a recorded track: only files the history lists. */
export function recordingUrl(path: string): string {
  return `/api/history/file?path=${encodeURIComponent(path)}`;
}

/** Where the page plays a connection's relay: plain audio, no titles in it. */
export function audioUrl(id: number): string {
  return `/api/activity/${id}/audio`;
}
