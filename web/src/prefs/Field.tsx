import { FieldDef, genresFromText, genresText, isOn, Value } from './model';

/** One preference's control, greyed out while its governing switch is off. */
export function Field({
  def,
  value,
  enabled,
  error,
  onChange,
}: {
  def: FieldDef;
  value: Value | undefined;
  enabled: boolean;
  error?: string;
  onChange: (v: Value) => void;
}) {
  const id = `pref-${def.key.replace(/\W/g, '-')}`;
  const note = error ?? def.help;
  const common = {
    id,
    disabled: !enabled,
    'aria-invalid': !!error,
    'aria-describedby': note ? `${id}-note` : undefined,
  };
  const text = (e: Event) => onChange((e.target as HTMLInputElement).value);
  const noteLine = note ? (
    <p id={`${id}-note`} class={error ? 'field-error' : 'help'} role={error ? 'alert' : undefined}>
      {note}
    </p>
  ) : null;

  if (def.kind === 'state')
    return (
      <div class={`field check-field${enabled ? '' : ' off'}`}>
        <label class="check">
          <input type="checkbox" {...common} checked={isOn(value)} onChange={(e) => onChange((e.target as HTMLInputElement).checked ? 'YES' : 'NO')} />
          {def.label}
        </label>
        {noteLine}
      </div>
    );
  return (
    <div class={`field${enabled ? '' : ' off'}`}>
      <label for={id}>{def.label}</label>
      {def.kind === 'select' ? (
        <select {...common} value={String(value ?? '')} onChange={text}>
          {!def.options?.some(([v]) => v === value) && <option value={String(value ?? '')}>{String(value ?? '') || '—'}</option>}
          {def.options?.map(([v, label]) => (
            <option key={v} value={v}>
              {label}
            </option>
          ))}
        </select>
      ) : def.kind === 'genres' ? (
        <textarea {...common} rows={6} value={genresText(value)} onChange={(e) => onChange(genresFromText((e.target as HTMLTextAreaElement).value))} />
      ) : (
        <input
          {...common}
          type="text"
          inputMode={def.kind === 'text' ? undefined : 'numeric'}
          spellcheck={false}
          value={String(value ?? '')}
          onInput={text}
        />
      )}
      {noteLine}
    </div>
  );
}
