// Schedule rules as the API stores them, and the editor's draft of one. The
// editor keeps browser-friendly values (a datetime-local text, the days as
// switches); the form sent holds exactly the API's keys for the rule's kind.
import { call } from '../api';

export type RuleType = 'weekly' | 'oneOff';

/** What POST and PUT /api/schedules take. */
export interface RuleForm {
  bookmark: string;
  name: string;
  days?: string[];
  at?: string;
  runFor?: string;
  from?: string;
  to?: string;
  relayOnly: boolean;
  listen: boolean;
}

export interface Rule extends RuleForm {
  id: number;
  type: RuleType;
  active: boolean;
  bookmarkPath: string;
  running: boolean;
}

export interface Action {
  id: number;
  name: string;
  start: string;
  stop: string | null;
  startText: string;
  stopText: string;
}

export interface Draft {
  type: RuleType;
  name: string;
  bookmark: string;
  days: string[];
  at: string;
  runFor: string;
  /** As an <input type="datetime-local"> holds it: YYYY-MM-DDTHH:MM. */
  from: string;
  to: string;
  relayOnly: boolean;
  listen: boolean;
  active: boolean;
}

export type DraftField = keyof Draft;

/** In the order the daemon counts them (0 = Sunday). */
export const DAYS = ['sun', 'mon', 'tue', 'wed', 'thu', 'fri', 'sat'] as const;
export const DAY_NAMES: Record<string, string> = {
  sun: 'Sunday',
  mon: 'Monday',
  tue: 'Tuesday',
  wed: 'Wednesday',
  thu: 'Thursday',
  fri: 'Friday',
  sat: 'Saturday',
};

export function emptyDraft(): Draft {
  return {
    type: 'weekly',
    name: '',
    bookmark: '',
    days: [],
    at: '',
    runFor: '1:00',
    from: '',
    to: '',
    relayOnly: false,
    listen: false,
    active: true,
  };
}

/** "YYYY-MM-DD HH:MM[:SS]" to a datetime-local value, seconds dropped. */
export function toInputDate(text: string | undefined): string {
  const m = /^(\d{4}-\d{2}-\d{2})[ T](\d{2}:\d{2})/.exec(text ?? '');
  return m ? `${m[1]}T${m[2]}` : '';
}

/** A datetime-local value to the API's local "YYYY-MM-DD HH:MM". */
export function fromInputDate(value: string): string {
  return value.replace('T', ' ').trim();
}

/** The draft of an existing rule; `bookmarkEntry` names its bookmark when the folder holds it. */
export function draftFromRule(rule: Rule, bookmarkEntry?: string): Draft {
  return {
    type: rule.type,
    name: rule.name,
    bookmark: bookmarkEntry ?? rule.bookmarkPath,
    days: DAYS.filter((d) => rule.days?.includes(d)),
    at: rule.at ?? '',
    runFor: rule.runFor ?? '',
    from: toInputDate(rule.from),
    to: toInputDate(rule.to),
    relayOnly: rule.relayOnly,
    listen: rule.listen,
    active: rule.active,
  };
}

/** The API's form: a weekly rule's days and times, or a one-off rule's dates; never both. */
export function formFromDraft(d: Draft): RuleForm {
  const common = { bookmark: d.bookmark.trim(), name: d.name.trim(), relayOnly: d.relayOnly, listen: d.listen };
  if (d.type === 'weekly')
    return { ...common, days: DAYS.filter((x) => d.days.includes(x)), at: d.at.trim(), runFor: d.runFor.trim() };
  return { ...common, from: fromInputDate(d.from), to: fromInputDate(d.to) };
}

/** Which field of the editor a refusal of the daemon is about; null for the form as a whole. */
export function fieldOfError(message: string, sent: RuleForm): DraftField | null {
  const m = message.toLowerCase();
  if (/bookmark/.test(m)) return 'bookmark';
  if (/rule names?/.test(m)) return 'name';
  if (/days? of (a weekly rule|the week)|^days /.test(m)) return 'days';
  if (/time of day/.test(m)) return 'at';
  if (/run time/.test(m)) return 'runFor';
  if (/stop must come after/.test(m)) return 'to';
  if (/start has passed/.test(m)) return 'from';
  const date = /local date and time: '([^']*)'/.exec(message);
  if (date) return date[1] === sent.to && date[1] !== sent.from ? 'to' : 'from';
  return null;
}

export type ActionKey = 'name' | 'start' | 'stop';

/** The upcoming actions sorted by one column; ties keep the daemon's order (earliest first). */
export function sortActions(actions: Action[], key: ActionKey, ascending: boolean): Action[] {
  const value = (a: Action) => (key === 'name' ? a.name.toLocaleLowerCase() : (a[key] ?? ''));
  return actions
    .map((a, i) => ({ a, i }))
    .sort((x, y) => {
      const vx = value(x.a);
      const vy = value(y.a);
      const c = vx < vy ? -1 : vx > vy ? 1 : 0;
      return (ascending ? c : -c) || x.i - y.i;
    })
    .map((x) => x.a);
}

export const schedulesApi = {
  rules: () => call<{ rules: Rule[] }>('GET', '/api/schedules'),
  upcoming: () => call<{ actions: Action[] }>('GET', '/api/schedules/upcoming'),
  add: (form: RuleForm) => call<Rule>('POST', '/api/schedules', form),
  update: (id: number, form: RuleForm) => call<Rule>('PUT', `/api/schedules/${id}`, form),
  setActive: (id: number, on: boolean) => call<Rule>('POST', `/api/schedules/${id}/${on ? 'enable' : 'disable'}`, {}),
  remove: (id: number) => call<object>('DELETE', `/api/schedules/${id}`),
};
