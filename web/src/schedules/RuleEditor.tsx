import type { ComponentChildren, JSX } from 'preact';
import { useState } from 'preact/hooks';
import { ApiFailure, Bookmark, failureWords } from '../api';
import { DAY_NAMES, DAYS, Draft, DraftField, emptyDraft, fieldOfError, formFromDraft, Rule, schedulesApi } from './rules';

type Errors = Partial<Record<DraftField | 'form', string>>;
type TextKey = 'bookmark' | 'name' | 'at' | 'runFor' | 'from' | 'to';

function FieldError({ id, text }: { id: string; text?: string }) {
  return text ? (
    <p id={id} class="field-error" role="alert">
      {text}
    </p>
  ) : null;
}

/** Adds a rule, or changes one: the daemon checks the form and says what is wrong next to the field. */
export function RuleEditor({
  rule,
  initial,
  bookmarks,
  onDone,
}: {
  rule: Rule | null;
  initial?: Draft;
  bookmarks: Bookmark[];
  onDone: () => void;
}) {
  const [d, setD] = useState<Draft>(initial ?? emptyDraft());
  const [errors, setErrors] = useState<Errors>({});
  const [busy, setBusy] = useState(false);
  const set = <K extends DraftField>(key: K, value: Draft[K]) => setD((x) => ({ ...x, [key]: value }));
  const text = (key: DraftField) => (e: Event) => set(key, (e.target as HTMLInputElement).value as never);
  const described = (key: DraftField) => (errors[key] ? `rule-${key}-error` : undefined);
  // A labelled input of the draft, the daemon's refusal of it underneath.
  const field = (key: TextKey, label: ComponentChildren, input: JSX.InputHTMLAttributes = {}) => (
    <label>
      {label}
      <input
        type="text"
        {...input}
        value={d[key]}
        onInput={text(key)}
        aria-invalid={!!errors[key]}
        aria-describedby={described(key)}
      />
      <FieldError id={`rule-${key}-error`} text={errors[key]} />
    </label>
  );

  const submit = async (e: Event) => {
    e.preventDefault();
    const form = formFromDraft(d);
    setBusy(true);
    setErrors({});
    try {
      const saved = rule ? await schedulesApi.update(rule.id, form) : await schedulesApi.add(form);
      if (saved.active !== d.active) await schedulesApi.setActive(saved.id, d.active);
      onDone();
    } catch (err) {
      const message = failureWords(err);
      const field = err instanceof ApiFailure && err.status === 400 ? fieldOfError(message, form) : null;
      setErrors({ [field ?? 'form']: message });
    } finally {
      setBusy(false);
    }
  };

  return (
    <form class="editor card" onSubmit={submit} aria-labelledby="rule-editor-head" noValidate>
      <h3 id="rule-editor-head">{rule ? `Change "${rule.name}"` : 'New schedule'}</h3>
      <fieldset class="choice">
        <legend>Kind</legend>
        <label class="check">
          <input type="radio" name="type" checked={d.type === 'weekly'} onChange={() => set('type', 'weekly')} />
          Weekly
        </label>
        <label class="check">
          <input type="radio" name="type" checked={d.type === 'oneOff'} onChange={() => set('type', 'oneOff')} />
          Once
        </label>
      </fieldset>
      <div class="grid">
        {field('bookmark', 'Bookmark', { list: 'rule-bookmarks' })}
        {field(
          'name',
          <>
            Name <span class="label">(the bookmark's when empty)</span>
          </>,
        )}
      </div>
      <datalist id="rule-bookmarks">
        {bookmarks.map((b) => (
          <option key={b.entry} value={b.entry} />
        ))}
      </datalist>
      {d.type === 'weekly' ? (
        <>
          <fieldset class="choice" aria-describedby={described('days')}>
            <legend>Days</legend>
            {DAYS.map((day) => (
              <label class="check" key={day}>
                <input
                  type="checkbox"
                  checked={d.days.includes(day)}
                  onChange={(e) =>
                    set(
                      'days',
                      (e.target as HTMLInputElement).checked ? [...d.days, day] : d.days.filter((x) => x !== day),
                    )
                  }
                />
                <abbr title={DAY_NAMES[day]}>{DAY_NAMES[day].slice(0, 3)}</abbr>
              </label>
            ))}
          </fieldset>
          <FieldError id="rule-days-error" text={errors.days} />
          <div class="grid">
            {field('at', 'Starts at', { type: 'time' })}
            {field(
              'runFor',
              <>
                Runs for <span class="label">(hours:minutes)</span>
              </>,
              { inputMode: 'numeric', placeholder: '1:30' },
            )}
          </div>
        </>
      ) : (
        <div class="grid">
          {field('from', 'From', { type: 'datetime-local' })}
          {field('to', 'To', { type: 'datetime-local' })}
        </div>
      )}
      <div class="controls">
        <label class="check">
          <input type="checkbox" checked={d.relayOnly} onChange={(e) => set('relayOnly', (e.target as HTMLInputElement).checked)} />
          Relay only (no files)
        </label>
        <label class="check">
          <input type="checkbox" checked={d.listen} onChange={(e) => set('listen', (e.target as HTMLInputElement).checked)} />
          Listen when it starts
        </label>
        <label class="check">
          <input type="checkbox" checked={d.active} onChange={(e) => set('active', (e.target as HTMLInputElement).checked)} />
          Enabled
        </label>
      </div>
      <FieldError id="rule-form-error" text={errors.form} />
      <div class="controls">
        <button type="submit" disabled={busy}>
          {busy ? 'Saving…' : rule ? 'Save changes' : 'Add schedule'}
        </button>
        <button type="button" class="quiet" onClick={onDone}>
          Cancel
        </button>
      </div>
    </form>
  );
}
