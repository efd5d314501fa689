// Texts the activity module shows for the numbers a row carries.

const KiB = 1024;
const MiB = KiB * 1024;
const GiB = MiB * 1024;

/** Bytes received, in the largest unit that keeps a number of at least 1. */
export function formatBytes(bytes: number): string {
  if (!Number.isFinite(bytes) || bytes < 0) return '';
  if (bytes < KiB) return `${Math.floor(bytes)} B`;
  if (bytes < MiB) return `${(bytes / KiB).toFixed(1)} KiB`;
  if (bytes < GiB) return `${(bytes / MiB).toFixed(1)} MiB`;
  return `${(bytes / GiB).toFixed(2)} GiB`;
}

/** A duration as h:mm:ss, or m:ss below an hour. */
export function formatDuration(seconds: number): string {
  if (!Number.isFinite(seconds) || seconds < 0) return '';
  const total = Math.floor(seconds);
  const h = Math.floor(total / 3600);
  const m = Math.floor((total % 3600) / 60);
  const s = total % 60;
  const ss = String(s).padStart(2, '0');
  return h > 0 ? `${h}:${String(m).padStart(2, '0')}:${ss}` : `${m}:${ss}`;
}

/**
 * The time of audio that `bytes` hold at `kbps` kbit/s: streams are sent at a
 * constant bit rate, so this is the time recorded. Nothing without a bit rate.
 */
export function recordedSeconds(bytes: number, kbps: number): number | undefined {
  if (!(kbps > 0) || !(bytes >= 0)) return undefined;
  return (bytes * 8) / (kbps * 1000);
}

const BITRATE_CLASSES: Record<string, string> = {
  none: 'No bit rate yet',
  low: 'Low quality',
  med: 'Medium quality',
  high: 'High quality',
};

/** The words for a bit-rate class ("none", "low", "med", "high") and rate. */
export function formatBitrate(bitrateClass: string, kbps: number): string {
  const words = BITRATE_CLASSES[bitrateClass] ?? 'Unknown quality';
  return kbps > 0 ? `${words}, ${kbps} kbit/s` : words;
}

/** Listeners of the relay, in words. */
export function formatListeners(count: number): string {
  if (!(count > 0)) return 'No listeners';
  return count === 1 ? '1 listener' : `${count} listeners`;
}

/** The state numbers the daemon shares with the relay. */
export const State = {
  Finished: 0,
  Stopped: 1,
  Connecting: 2,
  WaitingToReconnect: 3,
  Redirected: 4,
  Recording: 5,
  Relaying: 6,
} as const;

/** Whether a connection in `state` still runs (stop applies, start does not). */
export function isRunning(state: number): boolean {
  return state >= State.Connecting;
}
