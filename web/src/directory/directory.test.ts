import { describe, expect, it } from 'vitest';
import { entryFacts, filterRequest, updateRequest } from './directory';

describe('the filter bar\'s request', () => {
  it.each([
    [{ keywords: ' Jazz ', min: '', max: '' }, { body: { keywords: 'Jazz', minKbps: 0, maxKbps: 320 } }],
    [{ keywords: '', min: '64', max: '128' }, { body: { keywords: '', minKbps: 64, maxKbps: 128 } }],
    [{ keywords: '', min: '400', max: '' }, { problem: 'The minimum bit rate is above the maximum.' }],
    [{ keywords: '', min: 'x', max: '' }, { problem: 'The minimum must be a whole number of kbit/s up to 65535' }],
    [{ keywords: '', min: '', max: '70000' }, { problem: 'The maximum must be a whole number of kbit/s up to 65535' }],
    [{ keywords: '', min: '-1', max: '' }, { problem: 'The minimum must be a whole number of kbit/s up to 65535' }],
  ])('%j', (bar, expected) => expect(filterRequest(bar)).toEqual(expected));
});

describe('the update request', () => {
  it.each([
    ['server', true, { source: 'server' }],
    ['server', false, { source: 'server' }],
    ['radio-browser', true, { source: 'radio-browser', allCodecs: true }],
    ['radio-browser', false, { source: 'radio-browser', allCodecs: false }],
  ] as const)('%s, all codecs %s', (source, all, expected) => expect(updateRequest(source, all)).toEqual(expected));
});

describe('an entry\'s facts', () => {
  it.each([
    [{ bitrate: 128, codec: '', hasMeta: true }, '128 kbit/s · titles'],
    [{ bitrate: 64, hasMeta: false }, '64 kbit/s'],
    [{ bitrate: 96, codec: ' AAC+ ', hasMeta: true }, '96 kbit/s · AAC+ · titles'],
    [{ bitrate: 0, codec: 'OGG', hasMeta: false }, '0 kbit/s · OGG'],
  ])('%j', (entry, expected) => expect(entryFacts(entry)).toBe(expected));
});
