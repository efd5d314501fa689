import { useCallback, useEffect, useState } from 'preact/hooks';
import { failureWords } from '../api';
import { EventBus, useEvents } from '../events';
import { Dialog } from './Dialog';
import { Board, boardAfter, cancelChoice, emptyBoard, Question, questionsApi, questionTitle, withQuestions } from './board';

function QuestionDialog({ q, onLater }: { q: Question; onLater: () => void }) {
  const [folder, setFolder] = useState('');
  const [refusal, setRefusal] = useState('');
  const [busy, setBusy] = useState(false);
  const cancel = cancelChoice(q.choices);

  // The daemon closes the question with an "answered" event; a refusal keeps it open.
  const send = (answer: string) => {
    setBusy(true);
    setRefusal('');
    questionsApi
      .answer(q.id, answer)
      .catch((e) => setRefusal(failureWords(e)))
      .finally(() => setBusy(false));
  };

  return (
    <Dialog title={questionTitle(q)} role="alertdialog" onEscape={cancel ? () => send(cancel) : undefined}>
      <p id={`question-${q.id}-text`}>{q.text}</p>
      {q.kind === 'chooseFolder' && (
        <form
          onSubmit={(e) => {
            e.preventDefault();
            if (folder.trim()) send(folder.trim());
          }}
        >
          <label for={`question-${q.id}-folder`}>Folder (its full path)</label>
          <input
            id={`question-${q.id}-folder`}
            type="text"
            data-autofocus
            value={folder}
            spellcheck={false}
            onInput={(e) => setFolder((e.target as HTMLInputElement).value)}
            aria-invalid={!!refusal}
            aria-describedby={refusal ? `question-${q.id}-refusal` : undefined}
          />
          <div class="controls">
            <button type="submit" disabled={busy || !folder.trim()}>
              Use this folder
            </button>
          </div>
        </form>
      )}
      {refusal && (
        <p id={`question-${q.id}-refusal`} class="field-error" role="alert">
          {refusal}
        </p>
      )}
      <div class="controls">
        {q.choices.map((c) => (
          <button type="button" key={c} class={c === cancel ? 'quiet' : ''} disabled={busy} onClick={() => send(c)}>
            {c}
          </button>
        ))}
        {!cancel && (
          <button type="button" class="quiet" onClick={onLater}>
            Later
          </button>
        )}
      </div>
    </Dialog>
  );
}

/** The daemon's questions and alerts, one dialog at a time, questions first. */
export function Alerts({ events, failed }: { events: EventBus; failed: (e: unknown) => void }) {
  const [board, setBoard] = useState<Board>(emptyBoard);
  const [later, setLater] = useState<number[]>([]);

  const readQuestions = useCallback(() => {
    questionsApi.list().then(
      (r) => setBoard((b) => withQuestions(b, r.questions)),
      failed,
    );
  }, [failed]);
  useEffect(readQuestions, [readQuestions]);
  useEvents(events, ['resync'], readQuestions);
  useEvents(events, ['question', 'answered', 'alert'], (e) => setBoard((b) => boardAfter(b, e)));

  const question = board.questions.find((q) => !later.includes(q.id));
  const waiting = board.questions.filter((q) => later.includes(q.id));
  const alert = board.alerts[0];
  const dismiss = () => setBoard((b) => ({ ...b, alerts: b.alerts.slice(1) }));

  return (
    <>
      {waiting.length > 0 && !question && (
        <p class="waiting">
          <button type="button" class="quiet" onClick={() => setLater([])}>
            {waiting.length === 1 ? 'A question of the recorder is waiting' : `${waiting.length} questions of the recorder are waiting`}
          </button>
        </p>
      )}
      {question ? (
        <QuestionDialog key={question.id} q={question} onLater={() => setLater((l) => [...l, question.id])} />
      ) : (
        alert && (
          <Dialog key={alert.seq} title="The recorder says" role="alertdialog" onEscape={dismiss}>
            <p>{alert.text}</p>
            {board.alerts.length > 1 && <p class="label">{board.alerts.length - 1} more after this one.</p>}
            <div class="controls">
              <button type="button" data-autofocus onClick={dismiss}>
                OK
              </button>
            </div>
          </Dialog>
        )
      )}
    </>
  );
}
