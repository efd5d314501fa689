import { useCallback, useEffect, useState } from 'preact/hooks';
import { api, Bookmark } from '../api';
import { useEvents } from '../events';
import type { ModuleProps } from '../modules';
import { Dialog } from '../alerts/Dialog';
import { RuleEditor } from './RuleEditor';
import { Upcoming } from './Upcoming';
import { Action, DAY_NAMES, draftFromRule, Rule, schedulesApi } from './rules';

type BookmarkFile = Bookmark & { file?: string };

function when(rule: Rule): string {
  if (rule.type === 'oneOff') return `Once, from ${rule.from} to ${rule.to}`;
  const days = (rule.days ?? []).map((d) => DAY_NAMES[d] ?? d).join(', ');
  return `${days} at ${rule.at} for ${rule.runFor}`;
}

/** The schedule rules, their editor and the planned starts of the next four weeks. */
export function Schedules({ events, failed }: ModuleProps) {
  const [rules, setRules] = useState<Rule[] | null>(null);
  const [actions, setActions] = useState<Action[] | null>(null);
  const [bookmarks, setBookmarks] = useState<BookmarkFile[]>([]);
  const [editing, setEditing] = useState<{ rule: Rule | null } | null>(null);
  const [deleting, setDeleting] = useState<Rule | null>(null);

  const reload = useCallback(() => {
    schedulesApi.rules().then((r) => setRules(r.rules), failed);
    schedulesApi.upcoming().then((a) => setActions(a.actions), failed);
  }, [failed]);
  const reloadBookmarks = useCallback(() => {
    api.bookmarks().then((b) => setBookmarks(b.bookmarks), () => setBookmarks([]));
  }, []);

  useEffect(() => {
    reload();
    reloadBookmarks();
  }, [reload, reloadBookmarks]);
  useEvents(events, ['schedules', 'resync'], reload);
  useEvents(events, ['bookmarks'], reloadBookmarks);

  const entryOf = (rule: Rule) => bookmarks.find((b) => b.file === rule.bookmarkPath)?.entry;

  return (
    <section aria-labelledby="schedules-head">
      <div class="section-head">
        <h2 id="schedules-head">Schedules</h2>
        <button type="button" onClick={() => setEditing({ rule: null })} disabled={editing !== null}>
          New schedule
        </button>
      </div>
      {editing && (
        <RuleEditor
          key={editing.rule?.id ?? 'new'}
          rule={editing.rule}
          initial={editing.rule ? draftFromRule(editing.rule, entryOf(editing.rule)) : undefined}
          bookmarks={bookmarks}
          onDone={() => setEditing(null)}
        />
      )}
      {rules === null ? (
        <p class="empty">Reading the schedules…</p>
      ) : rules.length === 0 ? (
        <p class="empty">No schedules yet: "New schedule" records a bookmark on chosen days or once.</p>
      ) : (
        <ul class="rules">
          {rules.map((r) => (
            <li key={r.id} class={`rule card${r.active ? '' : ' inactive'}`}>
              <div class="conn-head">
                <h3>{r.name || r.bookmark}</h3>
                <span class="label">
                  {r.running ? 'Running now' : r.active ? 'Enabled' : 'Disabled'}
                  {r.relayOnly ? ' · relay only' : ''}
                  {r.listen ? ' · listen' : ''}
                </span>
              </div>
              <p class="conn-status">
                {when(r)} · bookmark {r.bookmark}
              </p>
              <div class="controls">
                <label class="check">
                  <input
                    type="checkbox"
                    checked={r.active}
                    onChange={(e) =>
                      schedulesApi.setActive(r.id, (e.target as HTMLInputElement).checked).then(reload, failed)
                    }
                  />
                  Enabled
                </label>
                <button type="button" class="quiet" onClick={() => setEditing({ rule: r })} aria-label={`Edit ${r.name}`}>
                  Edit
                </button>
                <button type="button" class="danger" onClick={() => setDeleting(r)} aria-label={`Delete ${r.name}`}>
                  Delete
                </button>
              </div>
            </li>
          ))}
        </ul>
      )}
      <Upcoming actions={actions} />
      {deleting && (
        <Dialog title="Delete this schedule?" role="alertdialog" onEscape={() => setDeleting(null)}>
          <p>
            "{deleting.name}" ({when(deleting)}) will no longer record. A recording it started goes on until you
            stop it.
          </p>
          <div class="controls">
            <button
              type="button"
              class="danger"
              onClick={() => {
                const rule = deleting;
                setDeleting(null);
                schedulesApi.remove(rule.id).then(reload, failed);
              }}
            >
              Delete
            </button>
            <button type="button" class="quiet" data-autofocus onClick={() => setDeleting(null)}>
              Cancel
            </button>
          </div>
        </Dialog>
      )}
    </section>
  );
}
