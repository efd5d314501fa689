import { useCallback, useEffect, useState } from 'preact/hooks';
import { api, ApiFailure, BookmarkDetails } from './api';
import { buildTree, TreeGroup } from './bookmarks';
import { BookmarkEditor } from './BookmarkEditor';
import { NewBookmark } from './NewBookmark';
import { Recent } from './Recent';
import type { ModuleProps } from './modules';

type How = { relayOnly?: boolean; listen?: boolean };

function Group({
  group,
  selected,
  onSelect,
  onStart,
}: {
  group: TreeGroup;
  selected: string | null;
  onSelect(entry: string): void;
  onStart(b: BookmarkDetails, how: How): void;
}) {
  return (
    <ul>
      {group.groups.map((g) => (
        <li key={g.path}>
          <p class="group">{g.name}</p>
          <Group group={g} selected={selected} onSelect={onSelect} onStart={onStart} />
        </li>
      ))}
      {group.bookmarks.map((b) => (
        <li key={b.entry} class="tree-item" data-entry={b.entry}>
          <button type="button" class="pick" aria-pressed={b.entry === selected} onClick={() => onSelect(b.entry)}>
            {b.name}
          </button>
          <button type="button" onClick={() => onStart(b, {})} aria-label={`Record ${b.name}`}>
            Record
          </button>
          <button type="button" class="quiet" onClick={() => onStart(b, { relayOnly: true })} aria-label={`Relay ${b.name}`}>
            Relay
          </button>
          <button type="button" class="quiet" onClick={() => onStart(b, { relayOnly: true, listen: true })} aria-label={`Listen to ${b.name}`}>
            Listen
          </button>
        </li>
      ))}
    </ul>
  );
}

/** The bookmarks folder: the tree, an editor, new bookmarks, and starting one. */
export function BookmarksModule({ events, failed }: ModuleProps) {
  const [list, setList] = useState<BookmarkDetails[] | null>(null);
  const [problem, setProblem] = useState('');
  const [selected, setSelected] = useState<string | null>(null);
  const [deleting, setDeleting] = useState<BookmarkDetails | null>(null);
  const [status, setStatus] = useState('');

  const read = useCallback(() => {
    api
      .bookmarks()
      .then((b) => {
        setList(b.bookmarks);
        setProblem('');
      })
      .catch((e) => {
        setList([]);
        setProblem(e instanceof ApiFailure ? e.message : String(e));
      });
  }, []);

  useEffect(() => events.on((e) => (e.type === 'resync' || e.type === 'bookmarks') && read()), [events, read]);

  const start = (b: BookmarkDetails, how: How) => {
    const what = how.listen ? 'Listening to' : how.relayOnly ? 'Relaying' : 'Recording';
    api
      .record(b.entry, how)
      .then(() => setStatus(`${what} ${b.name}: see Activity.`))
      .catch(failed);
  };

  const remove = (b: BookmarkDetails) => {
    api
      .deleteBookmark(b.entry)
      .then(() => {
        setStatus(`Deleted ${b.name}.`);
        if (selected === b.entry) setSelected(null);
      })
      .catch(failed)
      .finally(() => setDeleting(null));
  };

  const current = list?.find((b) => b.entry === selected) ?? null;

  return (
    <section class="bookmarks" aria-labelledby="bookmarks-heading">
      <div class="section-head">
        <h2 id="bookmarks-heading">Bookmarks</h2>
      </div>
      <p role="status" class="help">
        {status}
      </p>
      {deleting && (
        <div class="confirm" role="alertdialog" aria-label="Delete the bookmark?">
          <p>Delete the bookmark "{deleting.name}"? Its file {deleting.file} is removed; this cannot be undone.</p>
          <button type="button" class="danger" onClick={() => remove(deleting)}>
            Delete {deleting.name}
          </button>
          <button type="button" class="quiet" onClick={() => setDeleting(null)}>
            Keep it
          </button>
        </div>
      )}
      <div class="columns">
        <div>
          <div class="panel">
            {list === null ? (
              <p class="empty">Reading the bookmarks…</p>
            ) : problem ? (
              <p class="empty">No bookmarks to show: {problem}</p>
            ) : list.length === 0 ? (
              <p class="empty">No bookmarks yet: add one from a stream or playlist address.</p>
            ) : (
              <nav aria-label="Bookmarks" class="tree">
                <Group group={buildTree(list)} selected={selected} onSelect={setSelected} onStart={start} />
              </nav>
            )}
          </div>
          <Recent events={events} onStatus={setStatus} />
        </div>
        <div>
          {current ? (
            <div class="panel">
              <BookmarkEditor bookmark={current} onRenamed={setSelected} onDelete={() => setDeleting(current)} />
            </div>
          ) : (
            list !== null &&
            list.length > 0 && <p class="empty">Choose a bookmark to see and change its settings.</p>
          )}
          <NewBookmark onAdded={(b) => setSelected(b.entry ?? b.name)} />
        </div>
      </div>
    </section>
  );
}
