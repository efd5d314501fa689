import { useState } from 'preact/hooks';
import { api, ApiFailure, BookmarkDetails } from './api';
import { addressOf, requestForFile } from './bookmarks';

type State =
  | { kind: 'idle' }
  | { kind: 'busy'; what: string }
  | { kind: 'added'; bookmark: BookmarkDetails }
  | { kind: 'failed'; text: string; retry?: object };

const PLAYLIST_FILES = '.pls,.m3u,.m3u8,.qlnbk';

/**
 * A new bookmark from a stream or playlist address, or from a .pls, .m3u or
 * .qlnbk file dropped, pasted or chosen. The daemon fetches the location
 * before it answers, so the form says it is busy until then.
 */
export function NewBookmark({ onAdded }: { onAdded(b: BookmarkDetails): void }) {
  const [location, setLocation] = useState('');
  const [name, setName] = useState('');
  const [over, setOver] = useState(false);
  const [state, setState] = useState<State>({ kind: 'idle' });
  const busy = state.kind === 'busy';

  const send = (body: object, what: string) => {
    setState({ kind: 'busy', what });
    api
      .newBookmark(body)
      .then((b) => {
        setState({ kind: 'added', bookmark: b });
        setLocation('');
        setName('');
        onAdded(b);
      })
      .catch((e) =>
        setState({
          kind: 'failed',
          text: e instanceof ApiFailure ? e.message : String(e),
          retry: e instanceof ApiFailure && e.status === 409 ? { ...body, force: true } : undefined,
        }),
      );
  };

  const withName = (body: object) => (name.trim() ? { ...body, name: name.trim() } : body);

  const fromFile = async (file: File) => {
    try {
      if (file.size > 1024 * 1024) throw new Error(`${file.name} is larger than 1 MiB: no playlist is that big.`);
      send(withName(requestForFile(file.name, await file.text())), file.name);
    } catch (e) {
      setState({ kind: 'failed', text: e instanceof Error ? e.message : String(e) });
    }
  };

  const fromText = (text: string) => {
    const trimmed = text.trim();
    if (/^https?:\/\/\S+$/i.test(trimmed)) setLocation(trimmed);
    else if (trimmed) send(withName({ playlist: trimmed }), 'the pasted playlist');
  };

  return (
    <section class="panel new-bookmark" aria-labelledby="new-bookmark-heading" aria-busy={busy}>
      <h3 id="new-bookmark-heading">New bookmark</h3>
      <form
        onSubmit={(e) => {
          e.preventDefault();
          if (location.trim()) send(withName({ location: location.trim() }), location.trim());
        }}
      >
        <div class="field">
          <label for="nb-location">Stream or playlist address</label>
          <input
            id="nb-location"
            type="text"
            inputMode="url"
            spellcheck={false}
            placeholder="http://host:8000/listen.pls"
            value={location}
            onInput={(e) => setLocation((e.target as HTMLInputElement).value)}
          />
        </div>
        <div class="field">
          <label for="nb-name">Name (optional)</label>
          <input id="nb-name" type="text" value={name} onInput={(e) => setName((e.target as HTMLInputElement).value)} />
        </div>
        <div
          class={`drop ${over ? 'over' : ''}`}
          tabIndex={0}
          role="group"
          aria-label="Drop or paste a playlist file"
          onDragOver={(e) => {
            e.preventDefault();
            setOver(true);
          }}
          onDragLeave={() => setOver(false)}
          onDrop={(e) => {
            e.preventDefault();
            setOver(false);
            const file = e.dataTransfer?.files[0];
            if (file) fromFile(file);
            else fromText(e.dataTransfer?.getData('text/plain') ?? '');
          }}
          onPaste={(e) => {
            const file = e.clipboardData?.files[0];
            e.preventDefault();
            if (file) fromFile(file);
            else fromText(e.clipboardData?.getData('text/plain') ?? '');
          }}
        >
          Drop a .pls, .m3u or .qlnbk file here, or paste one (or its text) after clicking here, or{' '}
          <label class="quiet">
            choose one:{' '}
            <input
              type="file"
              accept={PLAYLIST_FILES}
              disabled={busy}
              onChange={(e) => {
                const input = e.target as HTMLInputElement;
                const file = input.files?.[0];
                if (file) fromFile(file);
                input.value = '';
              }}
            />
          </label>
        </div>
        <div class="controls">
          <button type="submit" disabled={busy || !location.trim()}>
            {busy ? 'Fetching…' : 'Add bookmark'}
          </button>
        </div>
        <p role="status" class={state.kind === 'failed' ? 'form-error' : 'help'}>
          {state.kind === 'busy'
            ? `Fetching ${state.what} to find the stream…`
            : state.kind === 'added'
              ? `Added "${state.bookmark.name}" (${addressOf(state.bookmark)}).`
              : state.kind === 'failed'
                ? state.text
                : ''}
        </p>
        {state.kind === 'failed' && state.retry && (
          <button type="button" class="danger" onClick={() => send(state.retry!, 'the location again')}>
            Replace the bookmark of that name
          </button>
        )}
      </form>
    </section>
  );
}
