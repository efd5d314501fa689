// The page's modules besides the activity list, each at its own hash address.
import { ComponentType } from 'preact';
import { useEffect, useState } from 'preact/hooks';
import { Schedules } from './schedules/Schedules';
import { Preferences } from './prefs/Preferences';
import { Directory } from './directory/Directory';
import './modules.css';

export interface ModuleProps {
  onProblem: (text: string) => void;
}

export const ROUTES: { hash: string; label: string; View: ComponentType<ModuleProps> }[] = [
  { hash: '#/schedules', label: 'Schedules', View: Schedules },
  { hash: '#/prefs', label: 'Preferences', View: Preferences },
  { hash: '#/directory', label: 'Directory', View: Directory },
];

/** The module the address names; null for the activity list. */
export function useRoute() {
  const [hash, setHash] = useState(location.hash);
  useEffect(() => {
    const on = () => setHash(location.hash);
    addEventListener('hashchange', on);
    return () => removeEventListener('hashchange', on);
  }, []);
  return ROUTES.find((r) => r.hash === hash) ?? null;
}

export function Nav({ current }: { current: string | null }) {
  const items = [{ hash: '#/', label: 'Activity' }, ...ROUTES];
  return (
    <nav class="nav" aria-label="Modules">
      {items.map((r) => {
        const here = (current ?? '#/') === r.hash;
        return (
          <a key={r.hash} href={r.hash} aria-current={here ? 'page' : undefined}>
            {r.label}
          </a>
        );
      })}
    </nav>
  );
}
