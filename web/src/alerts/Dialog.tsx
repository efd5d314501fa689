import { ComponentChildren } from 'preact';
import { useLayoutEffect, useRef } from 'preact/hooks';

const FOCUSABLE = 'button:not([disabled]), input:not([disabled]), select:not([disabled]), textarea, [href], [tabindex]:not([tabindex="-1"])';

/**
 * A modal dialog: focus moves into it and stays there (Tab wraps), Escape
 * calls `onEscape` when there is one (a question that cannot be cancelled
 * passes none), and focus goes back where it was when it closes.
 */
export function Dialog({
  title,
  children,
  onEscape,
  role = 'dialog',
}: {
  title: string;
  children: ComponentChildren;
  onEscape?: () => void;
  role?: 'dialog' | 'alertdialog';
}) {
  const box = useRef<HTMLDivElement>(null);
  const escape = useRef(onEscape);
  escape.current = onEscape;

  // Before the next key press can arrive: focus is inside from the first frame.
  useLayoutEffect(() => {
    const before = document.activeElement as HTMLElement | null;
    const first = box.current?.querySelector<HTMLElement>('[data-autofocus]') ??
      box.current?.querySelector<HTMLElement>(FOCUSABLE);
    first?.focus();
    return () => before?.focus?.();
  }, []);

  const onKeyDown = (e: KeyboardEvent) => {
    if (e.key === 'Escape') {
      e.stopPropagation();
      if (escape.current) {
        e.preventDefault();
        escape.current();
      }
      return;
    }
    if (e.key !== 'Tab' || !box.current) return;
    const items = [...box.current.querySelectorAll<HTMLElement>(FOCUSABLE)];
    if (items.length === 0) return;
    const first = items[0];
    const last = items[items.length - 1];
    if (e.shiftKey && document.activeElement === first) {
      e.preventDefault();
      last.focus();
    } else if (!e.shiftKey && document.activeElement === last) {
      e.preventDefault();
      first.focus();
    }
  };

  const titleId = `dialog-title-${title.replace(/\W+/g, '-').toLowerCase()}`;
  return (
    <div class="backdrop">
      <div
        class="dialog"
        role={role}
        aria-modal="true"
        aria-labelledby={titleId}
        ref={box}
        onKeyDown={onKeyDown}
      >
        <h2 id={titleId}>{title}</h2>
        {children}
      </div>
    </div>
  );
}
