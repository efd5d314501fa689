import { describe, expect, it } from 'vitest';
import { boardAfter, cancelChoice, emptyBoard, withQuestions } from './board';

describe('the board of questions and alerts', () => {
  it('adds a question once, and drops it when it is answered', () => {
    const q = { type: 'question', id: 3, kind: 'chooseFolder', key: 'K', text: 'Choose' };
    let b = boardAfter(emptyBoard, q);
    b = boardAfter(b, q);
    expect(b.questions).toEqual([{ id: 3, kind: 'chooseFolder', key: 'K', text: 'Choose', choices: [] }]);
    expect(boardAfter(b, { type: 'answered', id: 4 }).questions).toHaveLength(1);
    expect(boardAfter(b, { type: 'answered', id: 3 }).questions).toHaveLength(0);
  });

  it('queues alerts in order, the same text while shown only once, empty ones never', () => {
    let b = emptyBoard;
    for (const text of ['Disk almost full', 'Disk almost full', '  ', 'Bad bookmark']) b = boardAfter(b, { type: 'alert', key: 'k', text });
    expect(b.alerts.map((a) => a.text)).toEqual(['Disk almost full', 'Bad bookmark']);
    expect(new Set(b.alerts.map((a) => a.seq)).size).toBe(2);
  });

  it('takes the daemon\'s list as it is after a reconnection', () => {
    const b = boardAfter(emptyBoard, { type: 'question', id: 1, kind: 'x', key: '', text: 'old' });
    expect(withQuestions(b, [{ id: 2, kind: 'y', key: '', text: 'new', choices: ['OK'] }]).questions.map((q) => q.id)).toEqual([2]);
  });
});

describe('the choice Escape gives', () => {
  it.each([
    [['Delete', 'Cancel'], 'Cancel'],
    [["Don't Save", 'Save'], "Don't Save"],
    [['OK'], null],
    [[], null],
  ])('%j → %s', (choices, cancel) => expect(cancelChoice(choices)).toBe(cancel));
});
