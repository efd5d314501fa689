import { useState } from 'preact/hooks';
import { api, Bookmark } from './api';

/** A station by its stream address, or a saved bookmark by its name. */
export function AddStation({
  bookmarks,
  onAdd,
}: {
  bookmarks: Bookmark[];
  onAdd: (work: Promise<unknown>) => Promise<unknown>;
}) {
  const [value, setValue] = useState('');
  const [busy, setBusy] = useState(false);

  const submit = (e: Event) => {
    e.preventDefault();
    const text = value.trim();
    if (!text) return;
    const isUrl = /^https?:\/\//i.test(text);
    setBusy(true);
    const work = isUrl ? api.addUrl(text) : api.addBookmark(text);
    // The field is emptied only when the station was added.
    work.then(() => setValue('')).catch(() => undefined);
    onAdd(work).finally(() => setBusy(false));
  };

  return (
    <form class="add" onSubmit={submit} aria-label="Add a station">
      <label for="station">Station address or bookmark</label>
      <div class="add-row">
        <input
          id="station"
          name="station"
          type="text"
          inputMode="url"
          autoComplete="off"
          spellcheck={false}
          placeholder="http://host:8000/stream"
          list="bookmark-names"
          value={value}
          onInput={(e) => setValue((e.target as HTMLInputElement).value)}
          aria-describedby="station-help"
        />
        <button type="submit" disabled={busy || !value.trim()}>
          {busy ? 'Adding…' : 'Add station'}
        </button>
      </div>
      <p id="station-help" class="help">
        A stream address (http or https) or the name of a saved bookmark. Press / to come back here; arrow
        keys move between connections.
      </p>
      <datalist id="bookmark-names">
        {bookmarks.map((b) => (
          <option key={b.entry} value={b.entry} />
        ))}
      </datalist>
    </form>
  );
}
