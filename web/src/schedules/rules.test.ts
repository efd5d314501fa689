import { describe, expect, it } from 'vitest';
import { Action, Draft, draftFromRule, emptyDraft, fieldOfError, formFromDraft, Rule, sortActions } from './rules';

const weekly: Rule = {
  id: 7,
  type: 'weekly',
  active: false,
  name: 'Evening',
  bookmark: 'Jazz FM',
  bookmarkPath: '/b/Jazz FM.qlnbk',
  days: ['thu', 'mon'],
  at: '21:30',
  runFor: '1:30',
  relayOnly: true,
  listen: false,
  running: false,
};

describe('the form sent for a draft', () => {
  it('holds a weekly rule\'s days in week order and no dates', () => {
    const d: Draft = { ...emptyDraft(), bookmark: ' Jazz FM ', days: ['sat', 'mon'], at: '07:05', runFor: '0:45', from: '2030-01-01T10:00' };
    expect(formFromDraft(d)).toEqual({
      bookmark: 'Jazz FM',
      name: '',
      days: ['mon', 'sat'],
      at: '07:05',
      runFor: '0:45',
      relayOnly: false,
      listen: false,
    });
  });

  it('holds a one-off rule\'s local dates with a space and no days', () => {
    const d: Draft = { ...emptyDraft(), type: 'oneOff', bookmark: 'News', days: ['mon'], from: '2030-12-24T21:00', to: '2030-12-24T23:00' };
    expect(formFromDraft(d)).toEqual({
      bookmark: 'News',
      name: '',
      from: '2030-12-24 21:00',
      to: '2030-12-24 23:00',
      relayOnly: false,
      listen: false,
    });
  });

  it.each([
    ['a weekly rule', weekly],
    ['a one-off rule', { ...weekly, type: 'oneOff', days: undefined, at: undefined, runFor: undefined, from: '2030-05-01 08:00:00', to: '2030-05-01 09:15:00' } as Rule],
  ])('survives a round trip through the editor for %s', (_, rule) => {
    const form = formFromDraft(draftFromRule(rule, 'Jazz FM'));
    if (rule.type === 'weekly') expect(form).toMatchObject({ days: ['mon', 'thu'], at: '21:30', runFor: '1:30', relayOnly: true });
    else expect(form).toMatchObject({ from: '2030-05-01 08:00', to: '2030-05-01 09:15' });
    expect(form.bookmark).toBe('Jazz FM');
  });

  it('keeps the rule\'s file when the bookmarks folder does not list it', () => {
    expect(draftFromRule(weekly).bookmark).toBe('/b/Jazz FM.qlnbk');
    expect(draftFromRule(weekly).active).toBe(false);
  });
});

describe('the field a refusal is about', () => {
  const sent = { bookmark: 'x', name: '', from: '2030-01-01 10:00', to: 'soon', relayOnly: false, listen: false };
  it.each([
    ['No bookmark named "x" (a name as `quillon bookmark list` shows it, or a .qlnbk file).', 'bookmark'],
    ['Rule names are limited to Latin-1 characters: "☃".', 'name'],
    ['Give the days of a weekly rule (e.g. mon,wed).', 'days'],
    ["Not a time of day: '25:00' (expected HH:MM, 00:00 to 23:59).", 'at'],
    ['The run time must be more than 0:00.', 'runFor'],
    ["Not a run time: 'long' (expected H:MM, less than 168:00).", 'runFor'],
    ['The stop must come after the start.', 'to'],
    ['The start has passed: 2020-01-01 10:00.', 'from'],
    ["Not a local date and time: 'soon' (expected YYYY-MM-DD HH:MM[:SS]).", 'to'],
    ["Not a local date and time: '2030-01-01 10:00' (expected YYYY-MM-DD HH:MM[:SS]).", 'from'],
    ['Cannot write the schedules file /x.', null],
  ])('%s → %s', (message, field) => expect(fieldOfError(message, sent)).toBe(field));
});

describe('sorting the upcoming actions', () => {
  const a = (name: string, start: string, stop: string | null): Action => ({ id: 1, name, start, stop, startText: start, stopText: stop ?? '' });
  const list = [a('b', '2030-01-02 10:00:00', '2030-01-02 11:00:00'), a('A', '2030-01-01 10:00:00', null), a('c', '2030-01-01 10:00:00', '2030-01-03 09:00:00')];
  it.each([
    ['start', true, ['A', 'c', 'b']],
    ['start', false, ['b', 'A', 'c']],
    ['stop', true, ['A', 'b', 'c']],
    ['name', true, ['A', 'b', 'c']],
    ['name', false, ['c', 'b', 'A']],
  ] as const)('by %s, ascending %s', (key, ascending, names) =>
    expect(sortActions(list, key, ascending).map((x) => x.name)).toEqual(names));
});
