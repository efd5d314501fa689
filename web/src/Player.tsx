import { useEffect, useRef } from 'preact/hooks';
import { audioUrl, Row } from './api';

const MEDIA_ERRORS: Record<number, string> = {
  1: 'listening was stopped',
  2: 'the network failed',
  3: 'the audio could not be decoded',
  4: 'this browser cannot play the stream',
};

/** The connection's relay, played in the page; the title comes from the event stream. */
export function Player({ row, onClose, onProblem }: { row: Row; onClose(): void; onProblem(text: string): void }) {
  const audio = useRef<HTMLAudioElement>(null);

  useEffect(() => {
    audio.current?.play().catch((e: unknown) => {
      // A browser that wants a click first: the controls are there for it.
      if (!(e instanceof DOMException && e.name === 'NotAllowedError'))
        onProblem(`Cannot play ${row.connName}: ${String(e)}.`);
    });
  }, [row.id]);

  return (
    <aside class="player" aria-label="Listening">
      <p class="now">
        <span class="label">Listening to </span>
        <strong>{row.connName}</strong>
        {row.track ? <span data-testid="player-title"> — {row.track}</span> : null}
      </p>
      <audio
        ref={audio}
        src={audioUrl(row.id)}
        controls
        preload="none"
        aria-label={`Audio of ${row.connName}`}
        onError={() => {
          const code = audio.current?.error?.code ?? 0;
          onProblem(`Cannot play ${row.connName}: ${MEDIA_ERRORS[code] ?? 'the stream failed'}.`);
        }}
        onEnded={() => onProblem(`${row.connName} stopped sending audio.`)}
      />
      <button type="button" class="quiet" onClick={onClose}>
        Close player
      </button>
    </aside>
  );
}
