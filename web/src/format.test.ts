import { describe, expect, it } from 'vitest';
import { formatBitrate, formatBytes, formatDuration, formatListeners, isRunning, recordedSeconds } from './format';

describe('formatBytes', () => {
  it.each([
    [0, '0 B'],
    [1023, '1023 B'],
    [1024, '1.0 KiB'],
    [1536, '1.5 KiB'],
    [1048575, '1024.0 KiB'],
    [1048576, '1.0 MiB'],
    [5 * 1073741824, '5.00 GiB'],
    [-1, ''],
    [Number.NaN, ''],
  ])('%d bytes read as "%s"', (bytes, text) => expect(formatBytes(bytes)).toBe(text));
});

describe('formatDuration', () => {
  it.each([
    [0, '0:00'],
    [59.9, '0:59'],
    [61, '1:01'],
    [3599, '59:59'],
    [3600, '1:00:00'],
    [36061, '10:01:01'],
    [-5, ''],
    [Number.POSITIVE_INFINITY, ''],
  ])('%d s read as "%s"', (seconds, text) => expect(formatDuration(seconds)).toBe(text));
});

describe('recordedSeconds', () => {
  it.each([
    // 128 kbit/s is 16000 bytes a second.
    [16000, 128, 1],
    [16000 * 90, 128, 90],
    [0, 128, 0],
    [16000, 0, undefined],
    [-1, 128, undefined],
  ])('%d bytes at %d kbit/s hold %s s', (bytes, kbps, seconds) => expect(recordedSeconds(bytes, kbps)).toBe(seconds));
});

describe('words', () => {
  it.each([
    ['high', 128, 'High quality, 128 kbit/s'],
    ['low', 24, 'Low quality, 24 kbit/s'],
    ['none', 0, 'No bit rate yet'],
    ['bogus', 0, 'Unknown quality'],
  ])('bit rate class %s at %d', (cls, kbps, text) => expect(formatBitrate(cls, kbps)).toBe(text));

  it.each([
    [0, 'No listeners'],
    [1, '1 listener'],
    [3, '3 listeners'],
  ])('%d listeners', (n, text) => expect(formatListeners(n)).toBe(text));

  it.each([
    [0, false],
    [1, false],
    [2, true],
    [3, true],
    [5, true],
    [6, true],
  ])('state %d runs: %s', (state, running) => expect(isRunning(state)).toBe(running));
});
