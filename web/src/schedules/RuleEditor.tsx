import { useState } from 'preact/hooks';
import { ApiFailure, Bookmark, failureWords } from '../api';
import { DAY_NAMES, DAYS, Draft, DraftField, emptyDraft, fieldOfError, formFromDraft, Rule, schedulesApi } from './rules';

type Errors = Partial<Record<DraftField | 'form', string>>;

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
        <label>
          Bookmark
          <input
            type="text"
            list="rule-bookmarks"
            value={d.bookmark}
            onInput={text('bookmark')}
            aria-invalid={!!errors.bookmark}
            aria-describedby={described('bookmark')}
          />
          <FieldError id="rule-bookmark-error" text={errors.bookmark} />
        </label>
        <label>
          Name <span class="label">(the bookmark's when empty)</span>
          <input
            type="text"
            value={d.name}
            onInput={text('name')}
            aria-invalid={!!errors.name}
            aria-describedby={described('name')}
          />
          <FieldError id="rule-name-error" text={errors.name} />
        </label>
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
            <label>
              Starts at
              <input
                type="time"
                value={d.at}
                onInput={text('at')}
                aria-invalid={!!errors.at}
                aria-describedby={described('at')}
              />
              <FieldError id="rule-at-error" text={errors.at} />
            </label>
            <label>
              Runs for <span class="label">(hours:minutes)</span>
              <input
                type="text"
                inputMode="numeric"
                placeholder="1:30"
                value={d.runFor}
                onInput={text('runFor')}
                aria-invalid={!!errors.runFor}
                aria-describedby={described('runFor')}
              />
              <FieldError id="rule-runFor-error" text={errors.runFor} />
            </label>
          </div>
        </>
      ) : (
        <div class="grid">
          <label>
            From
            <input
              type="datetime-local"
              value={d.from}
              onInput={text('from')}
              aria-invalid={!!errors.from}
              aria-describedby={described('from')}
            />
            <FieldError id="rule-from-error" text={errors.from} />
          </label>
          <label>
            To
            <input
              type="datetime-local"
              value={d.to}
              onInput={text('to')}
              aria-invalid={!!errors.to}
              aria-describedby={described('to')}
            />
            <FieldError id="rule-to-error" text={errors.to} />
          </label>
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
