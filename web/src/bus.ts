// The daemon's events handed on to the page's modules. The activity module
// owns the one event stream; the others listen here, so that the page keeps a
// single connection to the daemon.
import { useEffect, useRef } from 'preact/hooks';
import type { DaemonEvent } from './events';

type Listener = (e: DaemonEvent) => void;

const listeners = new Set<Listener>();

/** Every event, and {type: "resync"} after each (re)connection. */
export function publish(e: DaemonEvent): void {
  for (const l of [...listeners]) l(e);
}

export function subscribe(listener: Listener): () => void {
  listeners.add(listener);
  return () => listeners.delete(listener);
}

/** Calls `onEvent` for the events of the given types while the component is shown. */
export function useDaemonEvents(types: string[], onEvent: (e: DaemonEvent) => void): void {
  const latest = useRef(onEvent);
  latest.current = onEvent;
  const key = types.join(',');
  useEffect(() => {
    const wanted = new Set(key.split(','));
    return subscribe((e) => wanted.has(e.type) && latest.current(e));
  }, [key]);
}
