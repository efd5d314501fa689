import { useState } from 'preact/hooks';
import { Action, ActionKey, sortActions } from './rules';

const COLUMNS: { key: ActionKey; label: string }[] = [
  { key: 'name', label: 'Schedule' },
  { key: 'start', label: 'Starts' },
  { key: 'stop', label: 'Stops' },
];

/** The starts and stops of the next four weeks, as the daemon plans them. */
export function Upcoming({ actions }: { actions: Action[] | null }) {
  const [sort, setSort] = useState<{ key: ActionKey; ascending: boolean }>({ key: 'start', ascending: true });
  if (actions === null) return null;
  const sorted = sortActions(actions, sort.key, sort.ascending);
  return (
    <section aria-labelledby="upcoming-head">
      <h2 id="upcoming-head" class="section-head">
        Coming up (four weeks)
      </h2>
      {actions.length === 0 ? (
        <p class="empty">Nothing planned in the next four weeks.</p>
      ) : (
        <div class="table-wrap">
          <table class="upcoming">
            <thead>
              <tr>
                {COLUMNS.map((c) => (
                  <th
                    key={c.key}
                    scope="col"
                    aria-sort={sort.key === c.key ? (sort.ascending ? 'ascending' : 'descending') : 'none'}
                  >
                    <button
                      type="button"
                      class="quiet sort"
                      onClick={() =>
                        setSort((s) => ({ key: c.key, ascending: s.key === c.key ? !s.ascending : true }))
                      }
                    >
                      {c.label}
                      {sort.key === c.key ? (sort.ascending ? ' ▲' : ' ▼') : ''}
                    </button>
                  </th>
                ))}
              </tr>
            </thead>
            <tbody>
              {sorted.map((a, i) => (
                <tr key={`${a.id}-${a.start}-${i}`}>
                  <td>{a.name}</td>
                  <td>{a.startText}</td>
                  <td>{a.stopText}</td>
                </tr>
              ))}
            </tbody>
          </table>
        </div>
      )}
    </section>
  );
}
