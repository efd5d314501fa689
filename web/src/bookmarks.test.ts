import { describe, expect, test } from 'vitest';
import { addressOf, buildTree, changesBetween, checkForm, formOf, requestForFile } from './bookmarks';
import type { BookmarkDetails } from './api';

const bookmark = (entry: string, extra: Partial<BookmarkDetails> = {}): BookmarkDetails => ({
  entry,
  name: entry.split('/').pop()!,
  group: entry.split('/').slice(0, -1).join('/'),
  scheme: 'http',
  host: 'h',
  port: '8000',
  path: '/',
  user: '',
  hasPassword: false,
  genre: '-',
  separator: ' - ',
  clean: false,
  noSplit: false,
  sortArtists: false,
  trackNum: false,
  recOffset: 0,
  titleEncoding: 'auto',
  allowUntrusted: false,
  file: `/b/${entry}.qlnbk`,
  ...extra,
});

describe('the bookmarks tree', () => {
  test('folders nest, each level sorted by name in any case', () => {
    const tree = buildTree([bookmark('zebra'), bookmark('Talk/News/bbc'), bookmark('Talk/Ard'), bookmark('alpha')]);
    expect(tree.bookmarks.map((b) => b.entry)).toEqual(['alpha', 'zebra']);
    expect(tree.groups.map((g) => g.path)).toEqual(['Talk']);
    expect(tree.groups[0].bookmarks.map((b) => b.name)).toEqual(['Ard']);
    expect(tree.groups[0].groups[0]).toMatchObject({ path: 'Talk/News', name: 'News' });
    expect(tree.groups[0].groups[0].bookmarks.map((b) => b.entry)).toEqual(['Talk/News/bbc']);
  });
});

describe('the editor', () => {
  test.each([
    ['Jazz FM', '0', {}],
    ['', '0', { name: 'The name is empty.' }],
    ['Радио', '0', { name: expect.stringContaining('Latin-1') }],
    ['-- --', '0', { name: expect.stringContaining('letter or digit') }],
    ['Café', '-30', {}],
    ['Jazz', '31', { recOffset: expect.stringContaining('−30 to 30') }],
    ['Jazz', '1.5', { recOffset: expect.stringContaining('whole number') }],
    ['Jazz', '', { recOffset: expect.stringContaining('whole number') }],
  ])('name %j, offset %j', (name, recOffset, errors) => expect(checkForm({ name, recOffset })).toEqual(errors));

  test('only the changed fields are sent, the offset as a number', () => {
    const before = formOf(bookmark('Jazz'));
    expect(changesBetween(before, { ...before })).toEqual({});
    expect(changesBetween(before, { ...before, recOffset: ' -5', clean: true, titleEncoding: 'CP1251' })).toEqual({
      recOffset: -5,
      clean: true,
      titleEncoding: 'CP1251',
    });
  });
});

describe('a dropped file', () => {
  test('a playlist goes as its text', () => {
    expect(requestForFile('x.pls', '[playlist]\nFile1=http://a/\n')).toEqual({ playlist: '[playlist]\nFile1=http://a/\n' });
    expect(requestForFile('x.m3u', 'http://a/\n')).toEqual({ playlist: 'http://a/\n' });
  });
  test('a bookmark file gives its address from its parts, not the DTD', () => {
    const plist = `<?xml version="1.0"?><!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict><key>host</key><string>127.0.0.1</string><key>name</key><string>Rock &amp; Roll</string>
<key>path</key><string>/live</string><key>port</key><string>8000</string><key>scheme</key><string>https</string></dict></plist>`;
    expect(requestForFile('Rock.QLNBK', plist)).toEqual({ location: 'https://127.0.0.1:8000/live', name: 'Rock & Roll' });
    expect(() => requestForFile('empty.qlnbk', '<plist><dict/></plist>')).toThrow(/no station address/);
  });
});


describe('the address shown', () => {
  test.each([
    [{}, 'http://h:8000/'],
    [{ user: 'me', hasPassword: true, port: '', path: '/live', scheme: 'https' }, 'https://me:…@h/live'],
    [{ user: 'me' }, 'http://me@h:8000/'],
  ])('%j', (extra, text) => expect(addressOf(bookmark('x', extra))).toBe(text));
});
