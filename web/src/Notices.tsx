export interface Notice {
  id: number;
  text: string;
}

/** Failures and the daemon's alerts, in words, until the user dismisses them. */
export function Notices({ notices, onDismiss }: { notices: Notice[]; onDismiss: (id: number) => void }) {
  return (
    <section class="notices" aria-label="Messages" role="alert">
      {notices.map((n) => (
        <p class="notice" key={n.id}>
          <span>{n.text}</span>
          <button type="button" class="quiet" onClick={() => onDismiss(n.id)} aria-label={`Dismiss: ${n.text}`}>
            Dismiss
          </button>
        </p>
      ))}
    </section>
  );
}
