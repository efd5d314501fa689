import { describe, expect, it } from 'vitest';
import { changes, CUSTOM_AGENT, enabledFields, fieldOfRefusal, formValues, genresFromText, USER_AGENTS, Values, withChange } from './model';

const base = formValues({});

describe('which controls take input', () => {
  it.each([
    ['proxyHost', { proxyOn: 'NO' }, false],
    ['proxyHost', { proxyOn: 'YES' }, true],
    ['proxyPort', { proxyOn: 'YES' }, true],
    ['chunkSize', { split: 'NO' }, false],
    ['chunkSize', { split: 'YES' }, true],
    ['skip', { log: 'NO' }, false],
    ['skip', { log: 'YES' }, true],
    ['playlistType', { feediTunes: 'NO' }, false],
    ['playlistType', { feediTunes: 'YES' }, true],
    ['playlistname', { feediTunes: 'YES', playlistType: '3' }, false],
    ['playlistname', { feediTunes: 'NO', playlistType: '4' }, false],
    ['playlistname', { feediTunes: 'YES', playlistType: '4' }, true],
    ['UserAgent name', { UserAgent: USER_AGENTS[1] }, false],
    ['UserAgent name', { UserAgent: CUSTOM_AGENT }, true],
    ['relayPort', { proxyOn: 'NO', split: 'NO', log: 'NO' }, true],
  ] as [string, Values, boolean][])('%s with %j: %s', (key, values, on) =>
    expect(enabledFields({ ...base, ...values })[key]).toBe(on));
});

describe('what follows from a change', () => {
  it('switching the history off switches skipping off', () => {
    const v = withChange({ ...base, log: 'YES', skip: 'YES' }, 'log', 'NO');
    expect(v.skip).toBe('NO');
    expect(withChange({ ...base, log: 'NO', skip: 'NO' }, 'log', 'YES').skip).toBe('NO');
  });
  it('a listed user agent is the text sent; a custom one keeps the typed text', () => {
    expect(withChange({ ...base, 'UserAgent name': 'mine' }, 'UserAgent', USER_AGENTS[2])['UserAgent name']).toBe(USER_AGENTS[2]);
    expect(withChange({ ...base, 'UserAgent name': 'mine' }, 'UserAgent', CUSTOM_AGENT)['UserAgent name']).toBe('mine');
  });
});

describe('the values of the daemon\'s answer', () => {
  it('reads switches as YES/NO, numbers as text, an unknown agent as custom', () => {
    const v = formValues({ proxyOn: 'YES', reconnect: true, relayPort: 9000, UserAgent: 'Something else', _genres: ['Jazz'] });
    expect([v.proxyOn, v.reconnect, v.split, v.relayPort, v.UserAgent, v._genres]).toEqual(['YES', 'YES', 'NO', '9000', CUSTOM_AGENT, ['Jazz']]);
    expect(formValues({}).UserAgent).toBe(USER_AGENTS[0]);
  });
});

describe('one save', () => {
  it('sends only the changed keys, the genre list whole', () => {
    const saved = formValues({ relayPort: '9000', _genres: ['Jazz', 'Rock'] });
    const now = withChange(withChange(saved, 'relayPort', '9100'), '_genres', genresFromText('Jazz\n\n Rock \nPop\n'));
    expect(changes(saved, now)).toEqual({ relayPort: '9100', _genres: ['Jazz', 'Rock', 'Pop'] });
    expect(changes(saved, saved)).toEqual({});
  });
});

describe('the field a refusal names', () => {
  it.each([
    ["RelayPort must be a port number from 1 to 65535, not '99999'.", 'relayPort'],
    ["UserAgent name must be one line of text without control characters.", 'UserAgent name'],
    ["MailServer must be a host name with an optional :port, not 'a b'.", 'mailServer'],
    ['Skip can only be turned on while log is YES.', 'skip'],
    ["Unknown setting 'frobnicate'.", null],
    ['Cannot write the preferences file /p.', null],
  ])('%s → %s', (message, key) => expect(fieldOfRefusal(message)).toBe(key));
});
