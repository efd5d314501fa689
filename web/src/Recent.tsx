import { useCallback, useEffect, useState } from 'preact/hooks';
import { api, call, failureWords } from './api';
import { useEvents, type EventBus } from './events';

export interface RecentItem {
  name: string;
  file: string;
  location: string;
  available: boolean;
}

/** The stations connected lately, newest first, each started again from its bookmark copy. */
export function Recent({ events, onStatus }: { events: EventBus; onStatus(text: string): void }) {
  const [items, setItems] = useState<RecentItem[] | null>(null);
  const [problem, setProblem] = useState('');

  const read = useCallback(() => {
    call<{ items: RecentItem[] }>('GET', '/api/recent').then(
      (r) => {
        setItems(r.items);
        setProblem('');
      },
      (e) => setProblem(failureWords(e)),
    );
  }, []);
  useEffect(read, [read]);
  // The list changes only when a connection starts.
  useEvents(events, ['activity', 'resync'], read);

  const start = (item: RecentItem, listen: boolean) => {
    api
      .record(item.file, listen ? { relayOnly: true, listen: true } : {})
      .then(() => onStatus(`${listen ? 'Listening to' : 'Recording'} ${item.name}: see Activity.`))
      .catch((e) => onStatus(failureWords(e)));
  };

  return (
    <div class="panel recent">
      <h3 id="recent-heading">Recent</h3>
      {problem ? (
        <p class="empty">The recent list cannot be read: {problem}</p>
      ) : items === null ? (
        <p class="empty">Reading the recent list…</p>
      ) : items.length === 0 ? (
        <p class="empty">Nothing recorded yet: the stations you record show here.</p>
      ) : (
        <ul aria-label="Recent stations">
          {items.map((item) => (
            <li key={item.file} class="tree-item" data-recent={item.name}>
              <span class="pick">
                {item.name}
                <span class="label"> {item.available ? item.location : '· its bookmark copy is gone'}</span>
              </span>
              <button type="button" disabled={!item.available} onClick={() => start(item, false)} aria-label={`Record again: ${item.name}`}>
                Record
              </button>
              <button type="button" class="quiet" disabled={!item.available} onClick={() => start(item, true)} aria-label={`Listen again: ${item.name}`}>
                Listen
              </button>
            </li>
          ))}
        </ul>
      )}
    </div>
  );
}
