// The page's modules, in the order of the navigation. A new module is one
// line here: its address (#/id), its name and its component.
import type { ComponentType } from 'preact';
import type { EventBus } from './events';
import { ActivityModule } from './ActivityModule';
import { BookmarksModule } from './BookmarksModule';
import { HistoryModule } from './HistoryModule';
import { Schedules } from './schedules/Schedules';
import { Directory } from './directory/Directory';
import { Preferences } from './prefs/Preferences';
import './modules.css';

export interface ModuleProps {
  /** Whether the module is the one shown; hidden ones stay mounted (a player keeps playing). */
  active: boolean;
  events: EventBus;
  /** Shows a sentence until the user dismisses it. */
  notify(text: string): void;
  /** Shows a failed call in words. */
  failed(e: unknown): void;
}

export interface PageModule {
  id: string;
  title: string;
  view: ComponentType<ModuleProps>;
}

export const modules: PageModule[] = [
  { id: 'activity', title: 'Activity', view: ActivityModule },
  { id: 'bookmarks', title: 'Bookmarks', view: BookmarksModule },
  { id: 'history', title: 'History', view: HistoryModule },
  { id: 'schedules', title: 'Schedules', view: Schedules },
  { id: 'directory', title: 'Directory', view: Directory },
  { id: 'prefs', title: 'Preferences', view: Preferences },
];
