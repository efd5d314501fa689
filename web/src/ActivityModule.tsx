import { useCallback, useEffect, useState } from 'preact/hooks';
import { api, ApiFailure, Bookmark, Row } from './api';
import { DaemonEvent } from './events';
import { AddStation } from './AddStation';
import { ConnectionList } from './ConnectionList';
import { Player } from './Player';
import type { ModuleProps } from './modules';

/** A "connection" event carries only the fields that change while streaming. */
function mergeConnection(rows: Row[], e: DaemonEvent): Row[] {
  return rows.map((r) => (r.id === e.id ? { ...r, ...(e as Partial<Row>), id: r.id } : r));
}

/** The connections: add, stop, start, listen, remove. */
export function ActivityModule({ active, events, notify, failed }: ModuleProps) {
  const [rows, setRows] = useState<Row[] | null>(null);
  const [bookmarks, setBookmarks] = useState<Bookmark[]>([]);
  const [playing, setPlaying] = useState<number | null>(null);

  const readBookmarks = useCallback(
    () =>
      api
        .bookmarks()
        .then((b) => setBookmarks(b.bookmarks))
        // Without a bookmarks folder a URL still works: say why the list is empty.
        .catch((e) => {
          setBookmarks([]);
          if (e instanceof ApiFailure && e.status === 401) failed(e);
        }),
    [failed],
  );

  useEffect(
    () =>
      events.on((e) => {
        switch (e.type) {
          case 'resync':
            api
              .activity()
              .then((a) => setRows(a.rows))
              .catch(failed);
            readBookmarks();
            break;
          case 'activity':
            setRows((e.rows as Row[]) ?? []);
            break;
          case 'connection':
            setRows((list) => (list ? mergeConnection(list, e) : list));
            break;
          case 'bookmarks':
            readBookmarks();
            break;
        }
      }),
    [events, failed, readBookmarks],
  );

  // "/" goes to the station field from anywhere but another field.
  useEffect(() => {
    if (!active) return;
    const onKey = (e: KeyboardEvent) => {
      const target = e.target as HTMLElement | null;
      if (e.key !== '/' || e.ctrlKey || e.metaKey || e.altKey) return;
      if (target && (target.isContentEditable || ['INPUT', 'TEXTAREA', 'SELECT'].includes(target.tagName))) return;
      e.preventDefault();
      document.getElementById('station')?.focus();
    };
    document.addEventListener('keydown', onKey);
    return () => document.removeEventListener('keydown', onKey);
  }, [active]);

  // Act on a connection; the event stream brings the new state.
  const act = useCallback((work: Promise<unknown>) => work.then(() => undefined).catch(failed), [failed]);

  const playingRow = rows?.find((r) => r.id === playing) ?? null;

  return (
    <>
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
        onReveal={(id) =>
          api
            .reveal(id)
            .then((r) => notify(`Recording into ${r.path}`))
            .catch(failed)
        }
      />
      {playingRow && <Player row={playingRow} onClose={() => setPlaying(null)} onProblem={notify} />}
    </>
  );
}
