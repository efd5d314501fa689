// The daemon's change feed. EventSource alone gives up for good when an
// attempt is answered with an error (a daemon that is still starting, or
// one that refuses), so this client closes the source on every error and
// opens a new one after a growing pause. Each (re)connection begins with the
// daemon's "hello": the page then reads the lists again, since it may have
// missed changes while it was away.

import { useEffect, useRef } from 'preact/hooks';

export interface DaemonEvent {
  type: string;
  [key: string]: unknown;
}

/** The part of EventSource this client uses. */
export interface EventSourceLike {
  onmessage: ((e: MessageEvent<string>) => void) | null;
  onerror: ((e: Event) => void) | null;
  close(): void;
}

export interface EventStreamHandlers {
  /** The feed is open: read the lists again. */
  connected(): void;
  /** The feed was lost; a new attempt comes after `retryMs`. */
  disconnected(retryMs: number): void;
  event(e: DaemonEvent): void;
  /** An event that is no JSON object: the daemon and page disagree. */
  malformed(data: string): void;
}

export interface Timers {
  setTimeout(fn: () => void, ms: number): unknown;
  clearTimeout(handle: unknown): void;
}

export const FIRST_RETRY_MS = 500;
export const MAX_RETRY_MS = 8000;

export class EventStream {
  private source: EventSourceLike | null = null;
  private retryHandle: unknown = null;
  private retryMs = FIRST_RETRY_MS;
  private stopped = true;

  constructor(
    private readonly url: string,
    private readonly open: (url: string) => EventSourceLike,
    private readonly handlers: EventStreamHandlers,
    private readonly timers: Timers = {
      setTimeout: (fn, ms) => globalThis.setTimeout(fn, ms),
      clearTimeout: (h) => globalThis.clearTimeout(h as number),
    },
  ) {}

  start(): void {
    this.stopped = false;
    this.connect();
  }

  stop(): void {
    this.stopped = true;
    if (this.retryHandle !== null) this.timers.clearTimeout(this.retryHandle);
    this.retryHandle = null;
    this.source?.close();
    this.source = null;
  }

  private connect(): void {
    this.retryHandle = null;
    const source = this.open(this.url);
    this.source = source;
    source.onmessage = (e) => {
      if (source !== this.source) return;
      let parsed: unknown;
      try {
        parsed = JSON.parse(e.data);
      } catch {
        parsed = undefined;
      }
      if (typeof parsed !== 'object' || parsed === null || typeof (parsed as DaemonEvent).type !== 'string') {
        this.handlers.malformed(e.data);
        return;
      }
      const event = parsed as DaemonEvent;
      if (event.type === 'hello') {
        this.retryMs = FIRST_RETRY_MS;
        this.handlers.connected();
        return;
      }
      this.handlers.event(event);
    };
    source.onerror = () => {
      if (source !== this.source || this.stopped) return;
      source.close();
      this.source = null;
      const wait = this.retryMs;
      this.retryMs = Math.min(this.retryMs * 2, MAX_RETRY_MS);
      this.handlers.disconnected(wait);
      this.retryHandle = this.timers.setTimeout(() => {
        if (!this.stopped) this.connect();
      }, wait);
    };
  }
}

/**
 * Hands the daemon's events to every module of the page. A module that
 * keeps lists reads them again on "resync", which the page also sends when
 * the feed (re)opens.
 */
export class EventBus {
  private readonly listeners = new Set<(e: DaemonEvent) => void>();

  on(listener: (e: DaemonEvent) => void): () => void {
    this.listeners.add(listener);
    return () => this.listeners.delete(listener);
  }

  emit(e: DaemonEvent): void {
    for (const listener of [...this.listeners]) listener(e);
  }
}

/** Calls `onEvent` for the bus's events of the given types while the component is mounted. */
export function useEvents(events: EventBus, types: string[], onEvent: (e: DaemonEvent) => void): void {
  const latest = useRef(onEvent);
  latest.current = onEvent;
  const key = types.join(',');
  useEffect(() => {
    const wanted = new Set(key.split(','));
    return events.on((e) => wanted.has(e.type) && latest.current(e));
  }, [events, key]);
}
