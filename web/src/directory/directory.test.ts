import { describe, expect, it } from 'vitest';
import { filterRequest } from './directory';

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
