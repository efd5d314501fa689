import { describe, expect, test } from 'vitest';
import { moduleFromHash } from './route';

describe('the module in the address', () => {
  test.each([
    ['#/history', 'history'],
    ['#history', 'history'],
    ['#/bookmarks/Talk', 'bookmarks'],
    ['', 'activity'],
    ['#/nothing', 'activity'],
    ['#/', 'activity'],
  ])('%s is %s', (hash, id) => expect(moduleFromHash(hash, ['activity', 'bookmarks', 'history'])).toBe(id));
});

