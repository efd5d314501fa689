import { describe, expect, it } from 'vitest';
import { DaemonEvent, EventSourceLike, EventStream, FIRST_RETRY_MS, MAX_RETRY_MS } from './events';

class FakeSource implements EventSourceLike {
  onmessage: ((e: MessageEvent<string>) => void) | null = null;
  onerror: ((e: Event) => void) | null = null;
  closed = false;
  send(data: string) {
    this.onmessage?.(new MessageEvent('message', { data }));
  }
  fail() {
    this.onerror?.(new Event('error'));
  }
  close() {
    this.closed = true;
  }
}

// A stream over fake sources and timers the test fires by hand.
function setUp() {
  const sources: FakeSource[] = [];
  const timers: { fn: () => void; ms: number; cleared: boolean }[] = [];
  const log: string[] = [];
  const events: DaemonEvent[] = [];
  const stream = new EventStream(
    '/api/events',
    (url) => {
      expect(url).toBe('/api/events');
      const s = new FakeSource();
      sources.push(s);
      return s;
    },
    {
      connected: () => log.push('connected'),
      disconnected: (ms) => log.push(`lost ${ms}`),
      event: (e) => events.push(e),
      malformed: (data) => log.push(`malformed ${data}`),
    },
    {
      setTimeout: (fn, ms) => {
        const t = { fn, ms, cleared: false };
        timers.push(t);
        return t;
      },
      clearTimeout: (h) => {
        (h as { cleared: boolean }).cleared = true;
      },
    },
  );
  return { stream, sources, timers, log, events };
}

describe('EventStream', () => {
  it('reports hello as connected and hands on every other event', () => {
    const { stream, sources, log, events } = setUp();
    stream.start();
    sources[0].send('{"type":"hello"}');
    sources[0].send('{"type":"connection","id":3,"title":"A - b"}');
    expect(log).toEqual(['connected']);
    expect(events).toEqual([{ type: 'connection', id: 3, title: 'A - b' }]);
  });

  it.each([['not json'], ['[1,2]'], ['{"id":3}'], ['null'], ['{"type":4}']])('reports %s as malformed', (data) => {
    const { stream, sources, log, events } = setUp();
    stream.start();
    sources[0].send(data);
    expect(events).toEqual([]);
    expect(log).toEqual([`malformed ${data}`]);
  });

  it('reopens after a failure, waiting longer each time up to a limit, and starts over after a hello', () => {
    const { stream, sources, timers, log } = setUp();
    stream.start();
    const waits: number[] = [];
    for (let i = 0; i < 6; i++) {
      sources[sources.length - 1].fail();
      expect(sources[sources.length - 1].closed).toBe(true);
      const timer = timers[timers.length - 1];
      waits.push(timer.ms);
      timer.fn();
    }
    expect(waits).toEqual([FIRST_RETRY_MS, 1000, 2000, 4000, MAX_RETRY_MS, MAX_RETRY_MS]);
    expect(sources).toHaveLength(7);
    // The daemon is back: its hello reads the lists again and resets the wait.
    sources[6].send('{"type":"hello"}');
    expect(log[log.length - 1]).toBe('connected');
    sources[6].fail();
    expect(timers[timers.length - 1].ms).toBe(FIRST_RETRY_MS);
  });

  it('ignores what an abandoned source still delivers', () => {
    const { stream, sources, timers, events, log } = setUp();
    stream.start();
    const old = sources[0];
    old.fail();
    timers[0].fn();
    old.send('{"type":"activity","rows":[]}');
    old.fail();
    expect(events).toEqual([]);
    expect(log).toEqual([`lost ${FIRST_RETRY_MS}`]);
    expect(timers).toHaveLength(1);
  });

  it('stops for good: the pending retry is cancelled and nothing reopens', () => {
    const { stream, sources, timers } = setUp();
    stream.start();
    sources[0].fail();
    stream.stop();
    expect(timers[0].cleared).toBe(true);
    timers[0].fn();
    expect(sources).toHaveLength(1);
  });
});
