// What the alerts module shows: the daemon's open questions (each waits for an
// answer through the API) and its alerts (each waits for the user to read it).
import { call } from '../api';
import type { DaemonEvent } from '../events';

export interface Question {
  id: number;
  kind: string;
  key: string;
  text: string;
  choices: string[];
}

export interface Alert {
  seq: number;
  key: string;
  text: string;
}

export interface Board {
  questions: Question[];
  alerts: Alert[];
  nextSeq: number;
}

export const emptyBoard: Board = { questions: [], alerts: [], nextSeq: 1 };

/** The board after one event; other events leave it as it is. */
export function boardAfter(board: Board, e: DaemonEvent): Board {
  switch (e.type) {
    case 'question': {
      const q: Question = {
        id: Number(e.id),
        kind: String(e.kind ?? ''),
        key: String(e.key ?? ''),
        text: String(e.text ?? ''),
        choices: Array.isArray(e.choices) ? e.choices.map(String) : [],
      };
      if (!Number.isFinite(q.id) || board.questions.some((x) => x.id === q.id)) return board;
      return { ...board, questions: [...board.questions, q] };
    }
    case 'answered':
      return { ...board, questions: board.questions.filter((q) => q.id !== Number(e.id)) };
    case 'alert': {
      const text = typeof e.text === 'string' ? e.text.trim() : '';
      // The same alert again while it is still shown is shown once.
      if (!text || board.alerts.some((a) => a.text === text)) return board;
      return { ...board, alerts: [...board.alerts, { seq: board.nextSeq, key: String(e.key ?? ''), text }], nextSeq: board.nextSeq + 1 };
    }
  }
  return board;
}

/** The board with the daemon's list of open questions, read after a (re)connection. */
export function withQuestions(board: Board, questions: Question[]): Board {
  return { ...board, questions: questions.map((q) => ({ ...q, choices: q.choices ?? [] })) };
}

/** The choice that answers "no" to a question, which Escape gives; null when it has none. */
export function cancelChoice(choices: string[]): string | null {
  return choices.find((c) => /^(cancel|no|don't|do not|keep)\b/i.test(c.trim())) ?? null;
}

/** A heading for the question by what it asks. */
export function questionTitle(q: Question): string {
  if (q.kind === 'chooseFolder') return 'Choose a folder';
  return q.choices.length > 0 ? 'Please confirm' : 'The recorder asks';
}

export const questionsApi = {
  list: () => call<{ questions: Question[] }>('GET', '/api/questions'),
  answer: (id: number, answer: string) => call<object>('POST', `/api/questions/${id}`, { answer }),
};
