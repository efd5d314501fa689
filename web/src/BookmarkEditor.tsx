import { useEffect, useState } from 'preact/hooks';
import { api, ApiFailure, BookmarkDetails } from './api';
import { addressOf, BookmarkForm, changesBetween, checkForm, formOf, REC_OFFSET_LIMIT, TITLE_ENCODINGS } from './bookmarks';

type Answer = { kind: 'none' } | { kind: 'saved' } | { kind: 'failed'; text: string; nameTaken: boolean };

const CHECKS: [keyof BookmarkForm, string, string][] = [
  ['trackNum', 'Number the tracks', 'Puts a running number before each file name.'],
  ['sortArtists', 'Sort by artist', 'Files finished tracks in a folder for each artist.'],
  ['clean', 'Clean titles', 'Keeps only letters, digits, blanks, "-" and "&" in titles.'],
  ['noSplit', 'Do not split on titles', 'The stream\u2019s titles do not start new files.'],
  ['allowUntrusted', 'Allow an untrusted certificate', 'Records over https even when the certificate is not trusted.'],
];

/** Every field of a bookmark the daemon lets the user change, its answer in words next to the form. */
export function BookmarkEditor({
  bookmark,
  onRenamed,
  onDelete,
}: {
  bookmark: BookmarkDetails;
  onRenamed(entry: string): void;
  onDelete(): void;
}) {
  const [form, setForm] = useState(() => formOf(bookmark));
  const [busy, setBusy] = useState(false);
  const [answer, setAnswer] = useState<Answer>({ kind: 'none' });
  const original = formOf(bookmark);

  // Another bookmark, or this one changed (here or elsewhere): the form shows
  // the saved fields; the last answer stays for the bookmark it was about.
  useEffect(() => setForm(formOf(bookmark)), [bookmark.entry, JSON.stringify(original)]);
  useEffect(() => setAnswer({ kind: 'none' }), [bookmark.entry]);

  const errors = checkForm(form);
  const changes = changesBetween(original, form);
  const unchanged = Object.keys(changes).length === 0;
  const set = <K extends keyof BookmarkForm>(key: K, value: BookmarkForm[K]) => {
    setForm((f) => ({ ...f, [key]: value }));
    setAnswer({ kind: 'none' });
  };

  const save = (force: boolean) => {
    if (Object.keys(errors).length > 0 || unchanged) return;
    setBusy(true);
    api
      .editBookmark(bookmark.entry, force ? { ...changes, force } : changes)
      .then(() => {
        setAnswer({ kind: 'saved' });
        if (changes.name) onRenamed(bookmark.group ? `${bookmark.group}/${changes.name}` : changes.name);
      })
      .catch((e) =>
        setAnswer({
          kind: 'failed',
          text: e instanceof ApiFailure ? e.message : String(e),
          nameTaken: e instanceof ApiFailure && e.status === 409,
        }),
      )
      .finally(() => setBusy(false));
  };

  const field = (key: 'name' | 'genre' | 'separator', label: string, help: string) => (
    <div class="field">
      <label for={`bm-${key}`}>{label}</label>
      <input
        id={`bm-${key}`}
        type="text"
        value={form[key]}
        spellcheck={false}
        aria-invalid={errors[key] ? true : undefined}
        aria-describedby={`bm-${key}-help`}
        onInput={(e) => set(key, (e.target as HTMLInputElement).value)}
      />
      <p id={`bm-${key}-help`} class={errors[key] ? 'form-error' : 'help'}>
        {errors[key] ?? help}
      </p>
    </div>
  );

  return (
    <form
      class="editor"
      aria-label={`Edit ${bookmark.name}`}
      onSubmit={(e) => {
        e.preventDefault();
        save(false);
      }}
    >
      <h3>{bookmark.name}</h3>
      <p class="readonly">
        {addressOf(bookmark)}
        <br />
        Saved as {bookmark.file}
      </p>
      {field('name', 'Name', 'Latin-1 letters, with at least one letter or digit.')}
      {field('genre', 'Genre', 'Used for the playlist of the music library.')}
      {field('separator', 'Separator', 'What parts artist from title in the stream\u2019s titles, e.g. " - ".')}
      <div class="field">
        <label for="bm-recOffset">Record offset (seconds)</label>
        <input
          id="bm-recOffset"
          type="number"
          min={-REC_OFFSET_LIMIT}
          max={REC_OFFSET_LIMIT}
          step={1}
          value={form.recOffset}
          aria-invalid={errors.recOffset ? true : undefined}
          aria-describedby="bm-recOffset-help"
          onInput={(e) => set('recOffset', (e.target as HTMLInputElement).value)}
        />
        <p id="bm-recOffset-help" class={errors.recOffset ? 'form-error' : 'help'}>
          {errors.recOffset ?? `Moves the split between tracks, from −${REC_OFFSET_LIMIT} to ${REC_OFFSET_LIMIT} s.`}
        </p>
      </div>
      <div class="field">
        <label for="bm-titleEncoding">Title encoding</label>
        <select
          id="bm-titleEncoding"
          value={form.titleEncoding}
          onChange={(e) => set('titleEncoding', (e.target as HTMLSelectElement).value)}
        >
          {TITLE_ENCODINGS.map((t) => (
            <option key={t} value={t}>
              {t === 'auto' ? 'Automatic' : t}
            </option>
          ))}
        </select>
      </div>
      {CHECKS.map(([key, label, help]) => (
        <div class="field" key={key}>
          <label class="check">
            <input
              type="checkbox"
              checked={form[key] as boolean}
              onChange={(e) => set(key, (e.target as HTMLInputElement).checked)}
            />
            {label}
          </label>
          <p class="help">{help}</p>
        </div>
      ))}
      <p role="status" class={answer.kind === 'failed' ? 'form-error' : 'help'}>
        {answer.kind === 'saved' ? 'Saved.' : answer.kind === 'failed' ? answer.text : ''}
      </p>
      <div class="controls">
        <button type="submit" disabled={busy || unchanged || Object.keys(errors).length > 0}>
          {busy ? 'Saving…' : 'Save'}
        </button>
        {answer.kind === 'failed' && answer.nameTaken && (
          <button type="button" class="danger" onClick={() => save(true)}>
            Replace the other bookmark
          </button>
        )}
        <button type="button" class="quiet" disabled={busy || unchanged} onClick={() => setForm(original)}>
          Undo changes
        </button>
        <button type="button" class="danger" onClick={onDelete}>
          Delete…
        </button>
      </div>
    </form>
  );
}
