import { useCallback, useEffect, useState } from 'preact/hooks';
import { failureWords as words } from '../api';
import { useEvents } from '../events';
import type { ModuleProps } from '../modules';
import { Field } from './Field';
import {
  changes,
  enabledFields,
  fieldOfRefusal,
  Folder,
  formValues,
  Library,
  PASSWORD_KEY,
  prefsApi,
  SECTIONS,
  Values,
  VersionState,
  withChange,
} from './model';

const VERSION_TEXT: Record<VersionState['state'], string> = {
  none: 'Not checked yet.',
  running: 'Checking…',
  upToDate: 'This is the newest version.',
  newVersion: 'A new version is out',
  failed: 'The check failed: the version server did not answer.',
};


/** Every preference with its dependencies, the storage folders, and the version check; saved as one set. */
export function Preferences({ events }: ModuleProps) {
  const [saved, setSaved] = useState<Values | null>(null);
  const [values, setValues] = useState<Values>({});
  const [folders, setFolders] = useState<Folder[]>([]);
  const [folderEdits, setFolderEdits] = useState<Record<string, string>>({});
  const [password, setPassword] = useState('');
  const [library, setLibrary] = useState<Library | null>(null);
  const [mailProblem, setMailProblem] = useState('');
  const [version, setVersion] = useState<VersionState | null>(null);
  const [errors, setErrors] = useState<Record<string, string>>({});
  const [status, setStatus] = useState('');
  const [loadError, setLoadError] = useState('');
  const [busy, setBusy] = useState(false);

  const readExtras = useCallback(() => {
    prefsApi.library().then(setLibrary, () => setLibrary(null));
    prefsApi.mail().then((m) => setMailProblem(m.problem), () => setMailProblem(''));
    prefsApi.folders().then((f) => setFolders(f.folders), (e) => setLoadError(words(e)));
  }, []);
  const read = useCallback(() => {
    prefsApi.prefs().then(
      (p) => {
        const v = formValues(p);
        setSaved(v);
        setValues(v);
        setLoadError('');
      },
      (e) => setLoadError(words(e)),
    );
    prefsApi.version().then(setVersion, () => setVersion(null));
    readExtras();
  }, [readExtras]);
  useEffect(read, [read]);
  // Another client's save: read it again unless this form holds changes of its own.
  useEvents(events, ['prefs', 'resync'], () => {
    if (saved && Object.keys(changes(saved, values)).length === 0) read();
    else readExtras();
  });
  useEvents(events, ['version'], (e) => setVersion({ state: e.state as VersionState['state'], latest: (e.latest as string) ?? null }));

  if (saved === null)
    return <p class={loadError ? 'field-error' : 'empty'}>{loadError || 'Reading the preferences…'}</p>;

  const enabled = enabledFields(values);
  const changed = changes(saved, values);
  const changedFolders = folders.filter((f) => folderEdits[f.module] !== undefined && folderEdits[f.module] !== f.path);
  const dirty = Object.keys(changed).length > 0 || password !== '' || changedFolders.length > 0;

  const save = async (e: Event) => {
    e.preventDefault();
    setBusy(true);
    setErrors({});
    setStatus('');
    const set: Values = { ...changed };
    if (password) set[PASSWORD_KEY] = password;
    const refused: Record<string, string> = {};
    try {
      // One call: the daemon applies every change or none.
      if (Object.keys(set).length > 0) {
        const answer = await prefsApi.save(set);
        const v = formValues(answer);
        setSaved(v);
        setValues(v);
        setPassword('');
      }
    } catch (err) {
      const key = fieldOfRefusal(words(err));
      refused[key && key in values ? key : key === PASSWORD_KEY ? PASSWORD_KEY : 'form'] = words(err);
    }
    if (Object.keys(refused).length === 0) {
      for (const f of changedFolders) {
        try {
          await prefsApi.setFolder(f.module, folderEdits[f.module]);
        } catch (err) {
          refused[`folder:${f.module}`] = words(err);
        }
      }
      readExtras();
      if (Object.keys(refused).length === 0) setFolderEdits({});
    }
    setErrors(refused);
    setStatus(Object.keys(refused).length === 0 ? 'Saved.' : 'Not saved: see the marked field.');
    setBusy(false);
  };

  const checkNow = () =>
    prefsApi.checkVersion().then(setVersion, (err) => setErrors((x) => ({ ...x, version: words(err) })));

  return (
    <form class="prefs" onSubmit={save} aria-labelledby="prefs-head" noValidate>
      <div class="section-head">
        <h2 id="prefs-head">Preferences</h2>
        <button type="submit" disabled={busy || !dirty}>
          {busy ? 'Saving…' : 'Save'}
        </button>
      </div>
      <p class="help" role="status" aria-live="polite">
        {status || (dirty ? 'Changes not saved yet.' : 'Everything here is saved.')}
      </p>
      {errors.form && (
        <p class="field-error" role="alert">
          {errors.form}
        </p>
      )}
      {SECTIONS.map((s) => (
        <fieldset class="card prefs-section" key={s.title}>
          <legend>{s.title}</legend>
          {s.fields.map((f) => (
            <Field
              key={f.key}
              def={f}
              value={values[f.key]}
              enabled={enabled[f.key]}
              error={errors[f.key]}
              onChange={(v) => setValues((x) => withChange(x, f.key, v))}
            />
          ))}
          {s.title === 'Music library' && (
            <>
              <div class="field">
                <label for="pref-mpdPassword">MPD password</label>
                <input
                  id="pref-mpdPassword"
                  type="password"
                  autoComplete="new-password"
                  placeholder={library?.mpdPasswordSet ? 'Set (type to replace)' : 'None'}
                  value={password}
                  onInput={(e) => setPassword((e.target as HTMLInputElement).value)}
                  aria-invalid={!!errors[PASSWORD_KEY]}
                />
                {errors[PASSWORD_KEY] && <p class="field-error">{errors[PASSWORD_KEY]}</p>}
              </div>
              {library && <p class="help">M3U playlists go to {library.playlistFolder}.</p>}
            </>
          )}
          {s.title === 'Mail notices' && (
            <p class={mailProblem ? 'field-error' : 'help'}>
              {mailProblem ? `Notices cannot go out: ${mailProblem}` : 'Notices can go out.'}
            </p>
          )}
          {s.title === 'Servers and updates' && (
            <div class="controls">
              <button type="button" class="quiet" onClick={checkNow} disabled={version?.state === 'running'}>
                Check for a new version now
              </button>
              <span role="status" aria-live="polite">
                {version ? VERSION_TEXT[version.state] + (version.latest ? `: ${version.latest}.` : '') : ''}
              </span>
              {errors.version && <p class="field-error">{errors.version}</p>}
            </div>
          )}
        </fieldset>
      ))}
      <fieldset class="card prefs-section">
        <legend>Storage folders</legend>
        {folders.length === 0 && <p class="empty">No storage folders known.</p>}
        {folders.map((f) => {
          const id = `folder-${f.module}`;
          const error = errors[`folder:${f.module}`];
          return (
            <div class="field" key={f.module}>
              <label for={id}>{f.module.charAt(0).toUpperCase() + f.module.slice(1)}</label>
              <input
                id={id}
                type="text"
                spellcheck={false}
                disabled={!f.userMayChoose}
                value={folderEdits[f.module] ?? f.path}
                onInput={(e) => setFolderEdits((x) => ({ ...x, [f.module]: (e.target as HTMLInputElement).value }))}
                aria-invalid={!!error || !f.usable}
                aria-describedby={`${id}-note`}
              />
              <p id={`${id}-note`} class={error || !f.usable ? 'field-error' : 'help'}>
                {error ?? (f.usable ? (f.userMayChoose ? 'In use.' : 'Fixed.') : 'This folder cannot be used: choose another.')}
              </p>
            </div>
          );
        })}
      </fieldset>
      <div class="controls">
        <button type="submit" disabled={busy || !dirty}>
          {busy ? 'Saving…' : 'Save'}
        </button>
        <button
          type="button"
          class="quiet"
          disabled={busy || !dirty}
          onClick={() => {
            setValues(saved);
            setFolderEdits({});
            setPassword('');
            setErrors({});
          }}
        >
          Undo changes
        </button>
      </div>
    </form>
  );
}
