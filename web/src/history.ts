// The history module's logic without the page: what a deletion names, the
// paths typed to add, and the order of the days.
import type { Day } from './api';

/** Newest day first: the daemon lists them oldest first. */
export function newestFirst(days: Day[]): Day[] {
  return [...days].sort((a, b) => b.day.localeCompare(a.day));
}

/** "1 track", "2 tracks". */
export function count(n: number, word: string): string {
  return n === 1 ? `1 ${word}` : `${n} ${word}s`;
}

/** A track as a deletion target: "YYYY_MM_DD:N", N as its day lists it. */
export function trackTarget(day: string, number: number): string {
  return `${day}:${number}`;
}

/** The question before deleting, naming what goes. */
export function deleteQuestion(targets: string[], titles: Map<string, string>): string {
  const days = targets.filter((t) => !t.includes(':'));
  const tracks = targets.length - days.length;
  const parts: string[] = [];
  if (days.length) parts.push(days.map((d) => `the whole of ${titles.get(d) ?? d}`).join(', '));
  if (tracks) parts.push(count(tracks, 'track'));
  return `Delete ${parts.join(' and ')} from the history? The recorded files stay; the entries cannot be brought back.`;
}

/** The paths typed, one per line; each must be absolute (the daemon reads them, not the browser). */
export function parsePaths(text: string): { paths: string[]; problem?: string } {
  const paths = text
    .split('\n')
    .map((p) => p.trim())
    .filter((p) => p.length > 0);
  if (paths.length === 0) return { paths, problem: 'Type the path of a recorded file or folder.' };
  const relative = paths.find((p) => !p.startsWith('/'));
  if (relative) return { paths, problem: `Not a full path (it starts with /): ${relative}` };
  return { paths };
}
