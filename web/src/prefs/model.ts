// The preferences the page edits, how they depend on one another, and what a
// save sends. The daemon's rules decide (it answers `_enabled` for what is
// stored and refuses bad values); these mirror its dependencies so that a
// control greys out as soon as its switch is turned off, before saving.
import { call } from '../api';

export type Value = string | string[];
export type Values = Record<string, Value>;

export type Kind = 'state' | 'text' | 'number' | 'port' | 'select' | 'genres';

export interface FieldDef {
  key: string;
  label: string;
  kind: Kind;
  help?: string;
  options?: [string, string][];
}

export interface SectionDef {
  title: string;
  fields: FieldDef[];
}

/** The user agents offered; any other text is a custom one. */
export const USER_AGENTS = ['QLN_Mac_OSX/1.7.2 (Macintosh; N; PPC)', 'iTunes/2.0.4 (Macintosh; N; PPC)', 'Audion/2.6.1'];
export const CUSTOM_AGENT = 'Custom';
const PLAYLIST_WITH_NAME = '4';

export const SECTIONS: SectionDef[] = [
  {
    title: 'Recording',
    fields: [
      { key: 'reconnect', label: 'Reconnect when a connection drops', kind: 'state' },
      { key: 'split', label: 'Cut recordings without titles into pieces', kind: 'state' },
      { key: 'chunkSize', label: 'Piece size (MiB)', kind: 'number' },
      { key: 'genreSort', label: "File recordings in a folder per genre", kind: 'state' },
      { key: 'subFolders', label: "File recordings in a folder per stream", kind: 'state' },
      { key: 'incomplete', label: 'Put the first, partial track into "Incomplete"', kind: 'state' },
      { key: 'log', label: 'Keep a history of recorded tracks', kind: 'state' },
      { key: 'skip', label: 'Skip tracks already in the history', kind: 'state' },
      { key: 'timeMode', label: 'Clock', kind: 'select', options: [['12', '12-hour'], ['24', '24-hour']] },
    ],
  },
  {
    title: 'Network',
    fields: [
      { key: 'proxyOn', label: 'Connect through an HTTP proxy', kind: 'state' },
      { key: 'proxyHost', label: 'Proxy host', kind: 'text' },
      { key: 'proxyPort', label: 'Proxy port', kind: 'port' },
      {
        key: 'UserAgent',
        label: 'User agent',
        kind: 'select',
        options: [...USER_AGENTS.map((a): [string, string] => [a, a]), [CUSTOM_AGENT, 'Custom…']],
      },
      { key: 'UserAgent name', label: 'User agent text sent', kind: 'text' },
      { key: 'relayPort', label: 'First relay port', kind: 'port', help: 'Players on this computer listen from here on.' },
      { key: 'relayAllInterfaces', label: 'Relay to other computers too', kind: 'state' },
      { key: 'relayMaxPlayers', label: 'Most players per relay', kind: 'number' },
      { key: 'playerCommand', label: 'Player command', kind: 'text' },
      { key: 'webPort', label: 'Web page port', kind: 'port', help: 'Counts from the next start of the recorder.' },
      { key: 'webAllInterfaces', label: 'Answer other computers (web page)', kind: 'state' },
    ],
  },
  {
    title: 'Servers and updates',
    fields: [
      { key: 'checkUpdates', label: 'Check for a new version at start', kind: 'state' },
      { key: 'versionHost', label: 'Version server (host[:port])', kind: 'text' },
      { key: 'tunerServer', label: 'Station directory server', kind: 'text' },
      { key: 'live365Host', label: 'Live365 title server (host[:port])', kind: 'text' },
    ],
  },
  {
    title: 'Music library',
    fields: [
      { key: 'feediTunes', label: 'Add finished tracks to a playlist', kind: 'state' },
      {
        key: 'playlistType',
        label: 'Playlist',
        kind: 'select',
        options: [['1', "The station's genre"], ['2', 'The date'], ['3', "The station's name"], ['4', 'A playlist of this name:']],
      },
      { key: 'playlistname', label: 'Playlist name', kind: 'text' },
      { key: 'libraryBackend', label: 'Library', kind: 'select', options: [['', 'M3U files (default)'], ['m3u', 'M3U files'], ['mpd', 'MPD']] },
      { key: 'libraryFolder', label: 'Playlist folder', kind: 'text' },
      { key: 'mpdHost', label: 'MPD host or socket path', kind: 'text' },
      { key: 'mpdPort', label: 'MPD port', kind: 'port' },
      { key: 'mpdMusicFolder', label: "MPD's music folder", kind: 'text' },
    ],
  },
  {
    title: 'Mail notices',
    fields: [
      { key: 'mailServer', label: 'Mail server (host[:port])', kind: 'text' },
      { key: 'mailFrom', label: 'From', kind: 'text' },
      { key: 'mailTo', label: 'To', kind: 'text' },
      { key: 'mailUser', label: 'User', kind: 'text' },
      { key: 'mailPasswordFile', label: 'Password file (its first line)', kind: 'text' },
      { key: 'mailOnScheduleEnd', label: 'When a scheduled recording ends', kind: 'state' },
      { key: 'mailOnDiskFull', label: 'When the disk is full', kind: 'state' },
      { key: 'mailOnGiveUp', label: 'When a connection gives up', kind: 'state' },
    ],
  },
  { title: 'Genres', fields: [{ key: '_genres', label: 'Genres for bookmarks (one per line)', kind: 'genres' }] },
];

export const FIELDS: FieldDef[] = SECTIONS.flatMap((s) => s.fields);
/** Never shown; sent only when the user types a new one. */
export const PASSWORD_KEY = 'mpdPassword';

const DEPENDENCIES: [string, string][] = [
  ['proxyHost', 'proxyOn'],
  ['proxyPort', 'proxyOn'],
  ['chunkSize', 'split'],
  ['skip', 'log'],
  ['playlistType', 'feediTunes'],
  ['playlistname', 'feediTunes'],
];

export const isOn = (v: Value | undefined) => v === 'YES';

/** Which fields take input, given the values on the form. */
export function enabledFields(values: Values): Record<string, boolean> {
  const out: Record<string, boolean> = {};
  for (const f of FIELDS) out[f.key] = true;
  for (const [key, governor] of DEPENDENCIES) out[key] = isOn(values[governor]);
  if (values.playlistType !== PLAYLIST_WITH_NAME) out.playlistname = false;
  out['UserAgent name'] = !USER_AGENTS.includes(String(values.UserAgent ?? ''));
  return out;
}

/** The form's values after the user changes one, with what follows from it. */
export function withChange(values: Values, key: string, value: Value): Values {
  const next = { ...values, [key]: value };
  // Switching the history off switches skipping off: the two never hold together.
  if (key === 'log' && !isOn(value)) next.skip = 'NO';
  // A listed user agent is sent as it reads.
  if (key === 'UserAgent' && typeof value === 'string' && USER_AGENTS.includes(value)) next['UserAgent name'] = value;
  return next;
}

/** The form's values from the daemon's answer: every field present, switches as YES/NO. */
export function formValues(prefs: Record<string, unknown>): Values {
  const out: Values = {};
  for (const f of FIELDS) {
    const v = prefs[f.key];
    if (f.kind === 'genres') out[f.key] = Array.isArray(v) ? v.map(String) : [];
    else if (f.kind === 'state') out[f.key] = v === true || v === 'YES' ? 'YES' : 'NO';
    else out[f.key] = v === undefined || v === null ? '' : String(v);
  }
  if (out.UserAgent === '') out.UserAgent = USER_AGENTS[0];
  else if (!USER_AGENTS.includes(String(out.UserAgent))) out.UserAgent = CUSTOM_AGENT;
  return out;
}

function same(a: Value | undefined, b: Value | undefined): boolean {
  return JSON.stringify(a ?? '') === JSON.stringify(b ?? '');
}

/** The keys the user changed, with their new values: what one save sends. */
export function changes(saved: Values, values: Values): Values {
  const out: Values = {};
  for (const f of FIELDS) if (!same(saved[f.key], values[f.key])) out[f.key] = values[f.key];
  return out;
}

/** The field a refusal names: the daemon's reasons begin with the key ("relayPort must be …"). */
export function fieldOfRefusal(message: string): string | null {
  const unknown = /unknown setting '([^']+)'/i.exec(message);
  if (unknown) return FIELDS.some((f) => f.key === unknown[1]) ? unknown[1] : null;
  let best: string | null = null;
  for (const f of [...FIELDS.map((x) => x.key), PASSWORD_KEY]) {
    const starts = message.startsWith(f + ' ') || message.startsWith(f + ':');
    if (starts && (!best || f.length > best.length)) best = f;
  }
  // The daemon writes a key as its sentence's first word, which the page capitalises.
  const lowered = message.charAt(0).toLowerCase() + message.slice(1);
  if (!best && lowered !== message) return fieldOfRefusal(lowered);
  return best;
}

/** Genres as the text area shows them and back. */
export const genresText = (g: Value | undefined) => (Array.isArray(g) ? g.join('\n') : '');
export const genresFromText = (t: string) =>
  t
    .split('\n')
    .map((x) => x.trim())
    .filter((x) => x.length > 0);

export interface Folder {
  module: string;
  key: string;
  path: string;
  usable: boolean;
  userMayChoose: boolean;
}
export interface Library {
  mpdPasswordSet: boolean;
  playlistFolder: string;
}
export interface VersionState {
  state: 'none' | 'running' | 'upToDate' | 'newVersion' | 'failed';
  latest: string | null;
}

export const prefsApi = {
  prefs: () => call<Record<string, unknown>>('GET', '/api/prefs'),
  save: (changed: Values) => call<Record<string, unknown>>('PUT', '/api/prefs', changed),
  folders: () => call<{ folders: Folder[] }>('GET', '/api/storage-folders'),
  setFolder: (module: string, path: string) => call<Folder>('PUT', `/api/storage-folders/${module}`, { path }),
  library: () => call<Library>('GET', '/api/library'),
  mail: () => call<{ problem: string }>('GET', '/api/mail'),
  version: () => call<VersionState>('GET', '/api/version'),
  checkVersion: () => call<VersionState>('POST', '/api/version/check', {}),
};
