import { Row } from './api';
import { formatBitrate, formatBytes, formatDuration, formatListeners, isRunning, recordedSeconds } from './format';

interface Actions {
  onStop(id: number): void;
  onStart(id: number): void;
  onStopAfterTrack(id: number, on: boolean): void;
  onRemove(id: number): void;
  onClear(): void;
  onListen(id: number): void;
  onReveal(id: number): void;
}

// Arrow keys move between the connections, Home and End to the first and last.
function moveFocus(e: KeyboardEvent) {
  const keys = ['ArrowDown', 'ArrowUp', 'Home', 'End'];
  if (!keys.includes(e.key) || e.target !== e.currentTarget) return;
  const cards = Array.from(document.querySelectorAll<HTMLElement>('.connection'));
  const at = cards.indexOf(e.currentTarget as HTMLElement);
  const to =
    e.key === 'Home' ? 0 : e.key === 'End' ? cards.length - 1 : at + (e.key === 'ArrowDown' ? 1 : -1);
  if (to < 0 || to >= cards.length) return;
  e.preventDefault();
  cards[to].focus();
}

function Connection({ row, playing, ...a }: { row: Row; playing: boolean } & Actions) {
  const running = isRunning(row.state);
  const seconds = recordedSeconds(row.bytes, row.bitrate);
  const name = row.connName || 'Station';
  const titleId = `conn-${row.id}-name`;
  return (
    <li class={`connection ${running ? 'running' : 'stopped'}`} tabIndex={0} aria-labelledby={titleId} onKeyDown={moveFocus}>
      <div class="conn-head">
        <h3 id={titleId} class={`rate rate-${row.bitrateClass || 'none'}`}>
          {name}
        </h3>
        <p class="conn-status" data-testid="status">
          {row.status}
        </p>
      </div>
      <p class="conn-title" data-testid="title">
        {row.track ? (
          <>
            <span class="label">Now: </span>
            {row.track}
          </>
        ) : (
          <span class="label">No title yet</span>
        )}
      </p>
      <dl class="facts">
        <div>
          <dt>Quality</dt>
          <dd>{formatBitrate(row.bitrateClass, row.bitrate)}</dd>
        </div>
        <div>
          <dt>Received</dt>
          <dd data-testid="bytes">{formatBytes(row.bytes)}</dd>
        </div>
        <div>
          <dt>{row.relayOnly ? 'Relayed' : 'Recorded'}</dt>
          <dd>{seconds === undefined ? '–' : formatDuration(seconds)}</dd>
        </div>
        <div>
          <dt>Relay</dt>
          <dd>{row.relayPort ? `port ${row.relayPort}, ${formatListeners(row.listeners).toLowerCase()}` : 'Off'}</dd>
        </div>
        {row.scheduleInformation ? (
          <div>
            <dt>Schedule</dt>
            <dd>{row.scheduleInformation}</dd>
          </div>
        ) : null}
      </dl>
      <div class="controls">
        {running ? (
          <button type="button" onClick={() => a.onStop(row.id)} aria-label={`Stop ${name}`}>
            Stop
          </button>
        ) : (
          <button type="button" onClick={() => a.onStart(row.id)} aria-label={`Start ${name} again`}>
            Start
          </button>
        )}
        <label class="check">
          <input
            type="checkbox"
            checked={row.closeAfterThisTrack}
            disabled={!row.streaming}
            onChange={(e) => a.onStopAfterTrack(row.id, (e.target as HTMLInputElement).checked)}
          />
          Stop after this track
        </label>
        <button
          type="button"
          disabled={!row.streaming && !playing}
          aria-pressed={playing}
          onClick={() => a.onListen(row.id)}
          aria-label={playing ? `Stop listening to ${name}` : `Listen to ${name}`}
        >
          {playing ? 'Stop listening' : 'Listen'}
        </button>
        <button type="button" onClick={() => a.onReveal(row.id)} aria-label={`Show where ${name} records`}>
          Reveal
        </button>
        <button type="button" class="danger" onClick={() => a.onRemove(row.id)} aria-label={`Remove ${name}`}>
          Remove
        </button>
      </div>
    </li>
  );
}

export function ConnectionList({ rows, playing, ...a }: { rows: Row[] | null; playing: number | null } & Actions) {
  const stopped = rows?.filter((r) => !isRunning(r.state)).length ?? 0;
  return (
    <section class="activity" aria-labelledby="activity-heading">
      <div class="section-head">
        <h2 id="activity-heading">Connections</h2>
        <button type="button" class="quiet" onClick={a.onClear} disabled={stopped === 0}>
          Clear stopped
        </button>
      </div>
      {rows === null ? (
        <p class="empty">Reading the connections…</p>
      ) : rows.length === 0 ? (
        <p class="empty">No connections yet: add a station.</p>
      ) : (
        <ul class="connections">
          {rows.map((r) => (
            <Connection key={r.id} row={r} playing={r.id === playing} {...a} />
          ))}
        </ul>
      )}
    </section>
  );
}
