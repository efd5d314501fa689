import { useCallback, useEffect, useRef, useState } from 'preact/hooks';
import { api, ApiFailure, Day, recordingUrl, Track } from './api';
import { count, deleteQuestion, newestFirst, parsePaths, trackTarget } from './history';
import type { ModuleProps } from './modules';

const SEARCH_PAUSE_MS = 300;

function TrackItem({
  day,
  track,
  chosen,
  playing,
  onChoose,
  onPlay,
}: {
  day: string;
  track: Track;
  chosen: boolean;
  playing: boolean;
  onChoose(on: boolean): void;
  onPlay(): void;
}) {
  const state = track.skipped ? 'skipped' : track.complete ? 'complete' : 'incomplete';
  return (
    <li class="track" data-target={trackTarget(day, track.number)}>
      <label class="check">
        <input type="checkbox" checked={chosen} onChange={(e) => onChoose((e.target as HTMLInputElement).checked)} />
        <span class="visually-hidden">Choose {track.trackname}</span>
      </label>
      <p class="what">
        <strong>{track.trackname || 'Untitled'}</strong>
        <br />
        <span class="label">
          {track.radioname || 'Unknown station'} · {track.time} · {state}
        </span>
      </p>
      <button type="button" class="quiet" disabled={!track.path} aria-pressed={playing} onClick={onPlay} aria-label={`Play ${track.trackname}`}>
        {playing ? 'Stop' : 'Play'}
      </button>
    </li>
  );
}

/** The recording history: days, a day's tracks, search, deleting, adding files, playing a recording. */
export function HistoryModule({ events, failed, notify }: ModuleProps) {
  const [days, setDays] = useState<Day[] | null>(null);
  const [dayKey, setDayKey] = useState<string | null>(null);
  const [dayShown, setDayShown] = useState<Day | null>(null);
  const [query, setQuery] = useState('');
  const [found, setFound] = useState<Day[] | null>(null);
  const [searching, setSearching] = useState(false);
  const [chosen, setChosen] = useState<Set<string>>(new Set());
  const [asking, setAsking] = useState<string[] | null>(null);
  const [playing, setPlaying] = useState<Track | null>(null);
  const [pathsText, setPathsText] = useState('');
  const [addAnswer, setAddAnswer] = useState<{ ok: boolean; text: string } | null>(null);
  const [status, setStatus] = useState('');
  const searchSeq = useRef(0);

  const readDays = useCallback(() => api.days().then((d) => setDays(newestFirst(d.days))).catch(failed), [failed]);
  const readDay = useCallback(
    (key: string | null) => {
      if (!key) return setDayShown(null);
      api
        .day(key)
        .then(setDayShown)
        // The day was deleted meanwhile: nothing to show.
        .catch((e) => (e instanceof ApiFailure && e.status === 404 ? setDayShown(null) : failed(e)));
    },
    [failed],
  );
  const runSearch = useCallback(
    (words: string) => {
      const seq = ++searchSeq.current;
      if (!words.trim()) {
        setFound(null);
        setSearching(false);
        return;
      }
      setSearching(true);
      api
        .search(words.trim())
        .then((r) => seq === searchSeq.current && setFound(newestFirst(r.days)))
        .catch(failed)
        .finally(() => seq === searchSeq.current && setSearching(false));
    },
    [failed],
  );

  // Searching as the user types, once typing pauses.
  useEffect(() => {
    const handle = setTimeout(() => runSearch(query), SEARCH_PAUSE_MS);
    return () => clearTimeout(handle);
  }, [query, runSearch]);

  useEffect(() => readDay(dayKey), [dayKey, readDay]);

  useEffect(
    () =>
      events.on((e) => {
        if (e.type !== 'history' && e.type !== 'resync') return;
        readDays();
        readDay(dayKey);
        if (query.trim()) runSearch(query);
        setChosen(new Set());
      }),
    [events, readDays, readDay, runSearch, dayKey, query],
  );

  const choose = (target: string, on: boolean) =>
    setChosen((set) => {
      const next = new Set(set);
      if (on) next.add(target);
      else next.delete(target);
      return next;
    });

  const remove = (targets: string[]) => {
    api
      .deleteHistory(targets, true)
      .then((r) => {
        setStatus(
          `Deleted ${count(r.removedItems, 'track')}${r.removedDays.length ? ` and ${count(r.removedDays.length, 'day')}` : ''}.`,
        );
        if (dayKey && r.removedDays.includes(dayKey)) setDayKey(null);
      })
      .catch(failed)
      .finally(() => setAsking(null));
  };

  const addFiles = (e: Event) => {
    e.preventDefault();
    const { paths, problem } = parsePaths(pathsText);
    if (problem) return setAddAnswer({ ok: false, text: problem });
    setAddAnswer({ ok: true, text: 'Adding…' });
    api
      .addHistoryFiles(paths)
      .then((r) => {
        setAddAnswer({ ok: true, text: `Added ${count(r.tracks.length, 'track')}.` });
        setPathsText('');
      })
      .catch((err) => setAddAnswer({ ok: false, text: err instanceof ApiFailure ? err.message : String(err) }));
  };

  const titles = new Map((days ?? []).map((d) => [d.day, d.title]));
  const shown: Day[] = found ?? (dayShown ? [dayShown] : []);

  return (
    <section class="history" aria-labelledby="history-heading">
      <div class="section-head">
        <h2 id="history-heading">History</h2>
      </div>
      <div class="field">
        <label for="history-search">Search the tracks</label>
        <input
          id="history-search"
          type="search"
          value={query}
          placeholder="Artist, title or station"
          onInput={(e) => setQuery((e.target as HTMLInputElement).value)}
          aria-describedby="history-search-help"
        />
        <p id="history-search-help" class="help" role="status">
          {searching
            ? 'Searching…'
            : found
              ? `${count(found.reduce((n, d) => n + (d.tracks?.length ?? 0), 0), 'track')} found.`
              : 'Finds tracks by name or station, any case.'}
        </p>
      </div>
      <p role="status" class="help">
        {status}
      </p>
      {asking && (
        <div class="confirm" role="alertdialog" aria-label="Delete from the history?">
          <p>{deleteQuestion(asking, titles)}</p>
          <button type="button" class="danger" onClick={() => remove(asking)}>
            Delete
          </button>
          <button type="button" class="quiet" onClick={() => setAsking(null)}>
            Keep
          </button>
        </div>
      )}
      <div class="columns">
        <div class="panel">
          <h3>Days</h3>
          {days === null ? (
            <p class="empty">Reading the history…</p>
          ) : days.length === 0 ? (
            <p class="empty">No recorded tracks yet: recordings enter their tracks while the preference "log" is on, or add files below.</p>
          ) : (
            <ul class="days">
              {days.map((d) => (
                <li key={d.day} class="tree-item">
                  <button
                    type="button"
                    class="pick"
                    aria-pressed={d.day === dayKey && !found}
                    onClick={() => {
                      setQuery('');
                      setFound(null);
                      setDayKey(d.day);
                    }}
                  >
                    {d.title} ({d.items})
                  </button>
                  <button type="button" class="danger" onClick={() => setAsking([d.day])} aria-label={`Delete the day ${d.title}`}>
                    Delete
                  </button>
                </li>
              ))}
            </ul>
          )}
        </div>
        <div class="panel">
          {shown.length === 0 ? (
            <p class="empty">{found ? `No track matches "${query.trim()}".` : 'Choose a day to see its tracks.'}</p>
          ) : (
            shown.map((d) => (
              <div key={d.day} class="day">
                <h3>{d.title}</h3>
                <ul class="tracks">
                  {(d.tracks ?? []).map((t) => (
                    <TrackItem
                      key={t.number}
                      day={d.day}
                      track={t}
                      chosen={chosen.has(trackTarget(d.day, t.number))}
                      playing={playing?.path === t.path}
                      onChoose={(on) => choose(trackTarget(d.day, t.number), on)}
                      onPlay={() => setPlaying(playing?.path === t.path ? null : t)}
                    />
                  ))}
                </ul>
              </div>
            ))
          )}
          <div class="controls">
            <button type="button" class="danger" disabled={chosen.size === 0} onClick={() => setAsking([...chosen])}>
              Delete the chosen tracks{chosen.size ? ` (${chosen.size})` : ''}
            </button>
          </div>
        </div>
      </div>
      <form class="panel add-files" onSubmit={addFiles} aria-labelledby="add-files-heading">
        <h3 id="add-files-heading">Add recorded files</h3>
        <div class="field">
          <label for="history-paths">Paths on this computer, one per line (MP3 files, or folders to search)</label>
          <textarea id="history-paths" rows={2} value={pathsText} spellcheck={false} onInput={(e) => setPathsText((e.target as HTMLTextAreaElement).value)} />
          <p role="status" class={addAnswer && !addAnswer.ok ? 'form-error' : 'help'}>
            {addAnswer?.text ?? ''}
          </p>
        </div>
        <button type="submit">Add to the history</button>
      </form>
      {playing && (
        <aside class="player" aria-label="Playing a recording">
          <p class="now">
            <span class="label">Playing </span>
            <strong>{playing.trackname}</strong>
          </p>
          <audio
            src={recordingUrl(playing.path)}
            controls
            autoPlay
            aria-label={`Audio of ${playing.trackname}`}
            onError={() => notify(`Cannot play ${playing.trackname}: the recorder could not send ${playing.path}.`)}
          />
          <button type="button" class="quiet" onClick={() => setPlaying(null)}>
            Close player
          </button>
        </aside>
      )}
    </section>
  );
}
