import { useCallback, useEffect, useRef, useState } from 'preact/hooks';
import { failureWords as words } from '../api';
import { useEvents } from '../events';
import type { ModuleProps } from '../modules';
import { directoryApi, Entry, entryFacts, FilterBar, filterRequest, Source, Tree, updateRequest } from './directory';


const OUTCOME: Record<string, string> = {
  updated: 'The directory was updated.',
  upToDate: 'The directory is up to date.',
  checkFailed: 'The directory server could not be asked for its version',
  updateFailed: 'The update failed; the directory stays as it was',
};

function EntryRow({ e, onNote }: { e: Entry; onNote: (text: string) => void }) {
  const [busy, setBusy] = useState(false);
  const act = async (record: boolean) => {
    setBusy(true);
    try {
      const b = await directoryApi.bookmark(e.id || `${e.genre}/${e.name}`);
      if (record) await directoryApi.record(b.file);
      onNote(record ? `Recording "${b.name}": see Activity.` : `Saved as the bookmark "${b.entry ?? b.name}".`);
    } catch (err) {
      onNote(words(err));
    } finally {
      setBusy(false);
    }
  };
  return (
    <li class="entry">
      <div>
        <span class={`rate rate-${e.class === 'medium' ? 'med' : e.class}`}>{e.name}</span>
        <span class="label"> · {entryFacts(e)}</span>
        {e.description && <p class="help">{e.description}</p>}
      </div>
      <div class="controls">
        <button type="button" disabled={busy} onClick={() => act(true)} aria-label={`Record ${e.name}`}>
          Record
        </button>
        <button type="button" class="quiet" disabled={busy} onClick={() => act(false)} aria-label={`Save ${e.name} as a bookmark`}>
          Save
        </button>
      </div>
    </li>
  );
}

/** The station directory: genres and streams, the filter bar, and the update from the server. */
export function Directory({ events }: ModuleProps) {
  const [tree, setTree] = useState<Tree | null>(null);
  const [bar, setBar] = useState<FilterBar>({ keywords: '', min: '', max: '' });
  const [problem, setProblem] = useState('');
  const [progress, setProgress] = useState<{ text: string; percent: number } | null>(null);
  const [note, setNote] = useState('');
  const timer = useRef<number | null>(null);
  // The daemon's source until the user picks one: a later read never overrides a choice.
  const [source, setSource] = useState<Source | null>(null);
  const [allCodecs, setAllCodecs] = useState(false);

  const read = useCallback(() => {
    directoryApi.tree().then(
      (t) => {
        setTree(t);
        setSource((chosen) => chosen ?? t.source ?? 'server');
        if (!t.updating) setProgress(null);
      },
      (e) => setProblem(words(e)),
    );
  }, []);
  useEffect(read, [read]);
  useEvents(events, ['directory', 'resync'], read);
  useEvents(events, ['directoryProgress'], (e) => setProgress({ text: String(e.text ?? ''), percent: Number(e.percent) || 0 }));
  useEvents(events, ['directoryUpdate'], (e) => {
    setProgress(null);
    const outcome = OUTCOME[String(e.outcome)] ?? String(e.outcome);
    setNote(e.message ? `${outcome.replace(/\.$/, '')}: ${String(e.message)}` : outcome);
    read();
  });

  // Results as you type: the daemon filters on its own thread and says "directory" when done.
  const change = (next: FilterBar) => {
    setBar(next);
    const req = filterRequest(next);
    if ('problem' in req) {
      setProblem(req.problem);
      return;
    }
    setProblem('');
    if (timer.current !== null) clearTimeout(timer.current);
    timer.current = window.setTimeout(() => directoryApi.filter(req.body).catch((e) => setProblem(words(e))), 150);
  };
  useEffect(() => () => void (timer.current !== null && clearTimeout(timer.current)), []);

  const update = () => {
    setNote('');
    const from = source ?? 'server';
    setProgress({ text: from === 'radio-browser' ? 'Asking Radio Browser…' : 'Asking the directory server…', percent: 0 });
    directoryApi.update(updateRequest(from, allCodecs)).catch((e) => {
      setProgress(null);
      setNote(words(e));
    });
  };
  const field = (key: keyof FilterBar) => (e: Event) => change({ ...bar, [key]: (e.target as HTMLInputElement).value });

  return (
    <section aria-labelledby="directory-head">
      <div class="section-head">
        <h2 id="directory-head">Station directory</h2>
        <div class="controls source">
          <label>
            Source
            <select value={source ?? 'server'} onChange={(e) => setSource((e.target as HTMLSelectElement).value as Source)}>
              <option value="server">Directory server</option>
              <option value="radio-browser">Radio Browser</option>
            </select>
          </label>
          {source === 'radio-browser' && (
            <label>
              <input type="checkbox" checked={allCodecs} onChange={(e) => setAllCodecs((e.target as HTMLInputElement).checked)} />
              All codecs (not only MP3)
            </label>
          )}
          <button type="button" onClick={update} disabled={progress !== null || tree?.updating}>
            Update
          </button>
        </div>
      </div>
      {progress && (
        <div class="progress">
          <label for="directory-progress">{progress.text}</label>
          <progress id="directory-progress" max={100} value={progress.percent}>
            {progress.percent} %
          </progress>
        </div>
      )}
      <p role="status" aria-live="polite" class="help">
        {note}
      </p>
      <form class="filter" role="search" aria-label="Filter the directory" onSubmit={(e) => e.preventDefault()}>
        <label>
          Words
          <input type="search" value={bar.keywords} onInput={field('keywords')} placeholder="jazz news" />
        </label>
        <label>
          From kbit/s
          <input type="text" inputMode="numeric" value={bar.min} onInput={field('min')} placeholder="0" aria-invalid={/minimum/i.test(problem)} />
        </label>
        <label>
          To kbit/s
          <input type="text" inputMode="numeric" value={bar.max} onInput={field('max')} placeholder="320" aria-invalid={/maximum/i.test(problem)} />
        </label>
      </form>
      {problem && (
        <p class="field-error" role="alert">
          {problem}
        </p>
      )}
      {tree === null ? (
        <p class="empty">Reading the directory…</p>
      ) : tree.count === 0 ? (
        <p class="empty">
          {tree.filtered
            ? 'No station matches the filter.'
            : source === 'radio-browser'
              ? 'The directory is empty: "Update" fetches it from Radio Browser.'
              : 'The directory is empty: "Update" fetches it from the directory server (preference tunerServer).'}
        </p>
      ) : (
        <>
          <p class="help">
            {tree.count} {tree.count === 1 ? 'station' : 'stations'}
            {tree.filtered ? (tree.count === 1 ? ' matches the filter' : ' match the filter') : ''}
            {tree.version ? ` · version ${tree.version}` : ''}
          </p>
          <ul class="tree" aria-label="Genres">
            {tree.genres
              .filter((g) => g.streams.length > 0)
              .map((g) => (
                <li key={g.name}>
                  <details open={tree.filtered}>
                    <summary>
                      {g.name} <span class="label">({g.streams.length})</span>
                    </summary>
                    <ul class="entries">
                      {g.streams.map((e) => (
                        <EntryRow key={e.id || e.name} e={e} onNote={setNote} />
                      ))}
                    </ul>
                  </details>
                </li>
              ))}
          </ul>
        </>
      )}
    </section>
  );
}
