// The station directory as the daemon answers it, and the filter bar's request.
import { call } from '../api';
import type { Bookmark } from '../api';

export interface Entry {
  name: string;
  description: string;
  genre: string;
  bitrate: number;
  class: 'low' | 'medium' | 'high';
  hasMeta: boolean;
  type: string;
  id: string;
  /** Given by Radio Browser entries ("MP3", "AAC", …); empty for the directory server's. */
  codec?: string;
  source?: Source;
}

export type Source = 'server' | 'radio-browser';

export interface Tree {
  version: string;
  filtered: boolean;
  count: number;
  updating: boolean;
  /** The source of the last finished update, which the next one uses unless told otherwise. */
  source?: Source;
  genres: { name: string; streams: Entry[] }[];
}

export interface FilterBar {
  keywords: string;
  min: string;
  max: string;
}

export const NEUTRAL_MAX = 320;

/** The filter request of the bar, or why the bar's rates cannot be sent. */
export function filterRequest(bar: FilterBar): { body: { keywords: string; minKbps: number; maxKbps: number } } | { problem: string } {
  const rate = (text: string, fallback: number, what: string) => {
    const t = text.trim();
    if (t === '') return fallback;
    if (!/^\d{1,5}$/.test(t) || Number(t) > 65535) return `${what} must be a whole number of kbit/s up to 65535`;
    return Number(t);
  };
  const min = rate(bar.min, 0, 'The minimum');
  if (typeof min === 'string') return { problem: min };
  const max = rate(bar.max, NEUTRAL_MAX, 'The maximum');
  if (typeof max === 'string') return { problem: max };
  if (min > max) return { problem: 'The minimum bit rate is above the maximum.' };
  return { body: { keywords: bar.keywords.trim(), minKbps: min, maxKbps: max } };
}

/** The update call's body: the codec switch means something to Radio Browser only. */
export function updateRequest(source: Source, allCodecs: boolean): { source: Source; allCodecs?: boolean } {
  return source === 'radio-browser' ? { source, allCodecs } : { source };
}

/** The facts shown after an entry's name: its rate, its codec when known, whether it sends titles. */
export function entryFacts(e: Pick<Entry, 'bitrate' | 'codec' | 'hasMeta'>): string {
  const codec = e.codec?.trim();
  return [`${e.bitrate} kbit/s`, codec, e.hasMeta ? 'titles' : ''].filter(Boolean).join(' · ');
}

export const directoryApi = {
  tree: () => call<Tree>('GET', '/api/directory'),
  filter: (body: { keywords: string; minKbps: number; maxKbps: number }) => call<object>('POST', '/api/directory/filter', body),
  update: (body: { source: Source; allCodecs?: boolean }) => call<object>('POST', '/api/directory/update', body),
  bookmark: (entry: string) => call<Bookmark & { file: string }>('POST', '/api/directory/bookmark', { entry }),
  record: (file: string) => call<object>('POST', '/api/activity', { bookmark: file }),
};
