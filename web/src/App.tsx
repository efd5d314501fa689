import { useCallback, useEffect, useMemo, useRef, useState } from 'preact/hooks';
import { failureWords } from './api';
import { EventBus, EventStream } from './events';
import { Notices, Notice } from './Notices';
import { modules } from './modules';
import { hashFor, moduleFromHash } from './route';
import { Alerts } from './alerts/Alerts';

type Feed = { kind: 'connecting' } | { kind: 'live' } | { kind: 'lost'; retryMs: number };

const ids = modules.map((m) => m.id);

export function App() {
  const [feed, setFeed] = useState<Feed>({ kind: 'connecting' });
  const [notices, setNotices] = useState<Notice[]>([]);
  const [current, setCurrent] = useState(() => moduleFromHash(location.hash, ids));
  const nextNotice = useRef(1);
  const events = useMemo(() => new EventBus(), []);

  const notify = useCallback((text: string) => {
    const id = nextNotice.current++;
    // The same sentence twice in a row is shown once.
    setNotices((list) => (list.some((n) => n.text === text) ? list : [...list, { id, text }]));
  }, []);

  const failed = useCallback((e: unknown) => notify(failureWords(e)), [notify]);

  useEffect(() => {
    const onHash = () => setCurrent(moduleFromHash(location.hash, ids));
    window.addEventListener('hashchange', onHash);
    return () => window.removeEventListener('hashchange', onHash);
  }, []);

  useEffect(() => {
    document.title = `${modules.find((m) => m.id === current)?.title ?? ''} · Quillon`;
  }, [current]);

  useEffect(() => {
    const stream = new EventStream('/api/events', (url) => new EventSource(url), {
      connected: () => {
        setFeed({ kind: 'live' });
        // Every module reads its lists again: it may have missed changes.
        events.emit({ type: 'resync' });
      },
      disconnected: (retryMs) => setFeed({ kind: 'lost', retryMs }),
      malformed: (data) => notify(`The recorder sent an event this page cannot read: ${data.slice(0, 80)}`),
      event: (e) => {
        events.emit(e);
      },
    });
    stream.start();
    return () => stream.stop();
  }, [events, notify]);

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
      </header>
      <nav class="modules" aria-label="Modules">
        <ul>
          {modules.map((m) => (
            <li key={m.id}>
              <a href={hashFor(m.id)} aria-current={m.id === current ? 'page' : undefined}>
                {m.title}
              </a>
            </li>
          ))}
        </ul>
      </nav>
      <Notices notices={notices} onDismiss={(id) => setNotices((list) => list.filter((n) => n.id !== id))} />
      {modules.map((m) => (
        <main key={m.id} id={`module-${m.id}`} hidden={m.id !== current} aria-label={m.title}>
          <m.view active={m.id === current} events={events} notify={notify} failed={failed} />
        </main>
      ))}
      <Alerts events={events} failed={failed} />
    </div>
  );
}
