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

export async function call<T>(method: string, path: string, body?: unknown): Promise<T> {
  let answer: Response;
  try {
    answer = await fetch(path, {
      method,
      // The daemon takes only JSON bodies on mutating calls, the empty "{}" included.
      headers: method === 'GET' ? {} : { 'Content-Type': 'application/json' },
      body: body === undefined ? (method === 'GET' ? undefined : '{}') : JSON.stringify(body),
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
  bookmarks: () => call<{ bookmarks: Bookmark[] }>('GET', '/api/bookmarks'),
  addUrl: (url: string) => call<Row>('POST', '/api/activity', { url }),
  addBookmark: (bookmark: string) => call<Row>('POST', '/api/activity', { bookmark }),
  stop: (id: number) => call<Row>('POST', `/api/activity/${id}/stop`),
  start: (id: number) => call<Row>('POST', `/api/activity/${id}/start`),
  stopAfterTrack: (id: number, on: boolean) => call<Row>('POST', `/api/activity/${id}/stop-after-track`, { on }),
  remove: (id: number) => call<object>('DELETE', `/api/activity/${id}`),
  clear: () => call<{ removed: number }>('POST', '/api/activity/clear'),
};

/** Where the page plays a connection's relay: plain audio, no titles in it. */
export function audioUrl(id: number): string {
  return `/api/activity/${id}/audio`;
}
