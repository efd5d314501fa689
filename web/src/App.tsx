import { useCallback, useEffect, useRef, useState } from 'preact/hooks';
import { api, ApiFailure, Bookmark, Row } from './api';
import { DaemonEvent, EventStream } from './events';
import { AddStation } from './AddStation';
import { ConnectionList } from './ConnectionList';
import { Player } from './Player';
import { Notices, Notice } from './Notices';
import { publish } from './bus';
import { Nav, useRoute } from './routes';
import { Alerts } from './alerts/Alerts';

type Feed = { kind: 'connecting' } | { kind: 'live' } | { kind: 'lost'; retryMs: number };

/** A "connection" event carries only the fields that change while streaming. */
function mergeConnection(rows: Row[], e: DaemonEvent): Row[] {
  return rows.map((r) => (r.id === e.id ? { ...r, ...(e as Partial<Row>), id: r.id } : r));
}

export function App() {
  const [rows, setRows] = useState<Row[] | null>(null);
  const [bookmarks, setBookmarks] = useState<Bookmark[]>([]);
  const [feed, setFeed] = useState<Feed>({ kind: 'connecting' });
  const [notices, setNotices] = useState<Notice[]>([]);
  const [playing, setPlaying] = useState<number | null>(null);
  const nextNotice = useRef(1);

  const notify = useCallback((text: string) => {
    const id = nextNotice.current++;
    // The same sentence twice in a row is shown once.
    setNotices((list) => (list.some((n) => n.text === text) ? list : [...list, { id, text }]));
  }, []);

  const failed = useCallback(
    (e: unknown) => notify(e instanceof ApiFailure ? e.message : `Something went wrong: ${String(e)}.`),
    [notify],
  );

  const reload = useCallback(() => {
    api
      .activity()
      .then((a) => setRows(a.rows))
      .catch(failed);
    api
      .bookmarks()
      .then((b) => setBookmarks(b.bookmarks))
      // Without a bookmarks folder a URL still works: say why the list is empty.
      .catch((e) => {
        setBookmarks([]);
        if (e instanceof ApiFailure && e.status === 401) failed(e);
      });
  }, [failed]);

  useEffect(() => {
    const stream = new EventStream('/api/events', (url) => new EventSource(url), {
      connected: () => {
        setFeed({ kind: 'live' });
        reload();
        publish({ type: 'resync' });
      },
      disconnected: (retryMs) => setFeed({ kind: 'lost', retryMs }),
      malformed: (data) => notify(`The recorder sent an event this page cannot read: ${data.slice(0, 80)}`),
      event: (e) => {
        publish(e);
        switch (e.type) {
          case 'activity':
            setRows((e.rows as Row[]) ?? []);
            break;
          case 'connection':
            setRows((list) => (list ? mergeConnection(list, e) : list));
            break;
          case 'resync':
            reload();
            break;
          case 'bookmarks':
            api
              .bookmarks()
              .then((b) => setBookmarks(b.bookmarks))
              .catch(() => setBookmarks([]));
            break;
        }
      },
    });
    stream.start();
    return () => stream.stop();
  }, [reload, notify]);

  // "/" goes to the station field from anywhere but another field.
  useEffect(() => {
    const onKey = (e: KeyboardEvent) => {
      const target = e.target as HTMLElement | null;
      if (e.key !== '/' || e.ctrlKey || e.metaKey || e.altKey) return;
      if (target && (target.isContentEditable || ['INPUT', 'TEXTAREA', 'SELECT'].includes(target.tagName))) return;
      e.preventDefault();
      document.getElementById('station')?.focus();
    };
    document.addEventListener('keydown', onKey);
    return () => document.removeEventListener('keydown', onKey);
  }, []);

  // Act on a connection; the event stream brings the new state.
  const act = useCallback((work: Promise<unknown>) => work.then(() => undefined).catch(failed), [failed]);

  const playingRow = rows?.find((r) => r.id === playing) ?? null;
  const route = useRoute();

  return (
    <div class="page">
      <header class="top">
        <h1>Quillon</h1>
        <p class={`feed feed-${feed.kind}`} role="status" aria-live="polite">
          {feed.kind === 'live'
            ? 'Connected to the recorder'
            : feed.kind === 'connecting'
              ? 'Connecting to the recorder…'
              : `The recorder is not answering; trying again in ${Math.ceil(feed.retryMs / 1000)} s…`}
        </p>
        <Nav current={route?.hash ?? null} />
      </header>
      <main>
        <Notices
          notices={notices}
          onDismiss={(id) => setNotices((list) => list.filter((n) => n.id !== id))}
        />
        {route ? <route.View onProblem={notify} /> : <>
        <AddStation bookmarks={bookmarks} onAdd={(work) => act(work)} />
        <ConnectionList
          rows={rows}
          playing={playing}
          onStop={(id) => act(api.stop(id))}
          onStart={(id) => act(api.start(id))}
          onStopAfterTrack={(id, on) => act(api.stopAfterTrack(id, on))}
          onRemove={(id) => {
            if (id === playing) setPlaying(null);
            act(api.remove(id));
          }}
          onClear={() => act(api.clear())}
          onListen={(id) => setPlaying(id === playing ? null : id)}
        />
        </>}
      </main>
      <Alerts onProblem={notify} />
      {playingRow && (
        <Player
          row={playingRow}
          onClose={() => setPlaying(null)}
          onProblem={(text) => notify(text)}
        />
      )}
    </div>
  );
}
