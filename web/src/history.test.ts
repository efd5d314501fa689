import { describe, expect, test } from 'vitest';
import { deleteQuestion, parsePaths } from './history';

describe('the history', () => {
  test.each([
    ['', { problem: expect.stringContaining('Type the path') }],
    ['/music/a.mp3\n\n  /music/b  \n', { paths: ['/music/a.mp3', '/music/b'] }],
    ['/music/a.mp3\nmusic/b', { problem: expect.stringContaining('music/b') }],
  ])('paths %j', (text, answer) => expect(parsePaths(text)).toMatchObject(answer));

  test('the question names the days and counts the tracks', () => {
    const titles = new Map([['2026_11_23', 'Monday, 23 November 2026']]);
    expect(deleteQuestion(['2026_11_23', '2026_11_22:1', '2026_11_22:2'], titles)).toMatch(
      /^Delete the whole of Monday, 23 November 2026 and 2 tracks from the history\?/,
    );
    expect(deleteQuestion(['2026_11_22:3'], titles)).toMatch(/^Delete 1 track from/);
  });
});
