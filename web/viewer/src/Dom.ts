// Making elements of the page. Text is only set as textContent, so text of files cannot become markup.

type Child = Node | string | null;

/** An element with attributes (`class`, `aria-label` and so on; false leaves one out) and children. */
export function element<K extends keyof HTMLElementTagNameMap>(
  tag: K, attributes: Readonly<Record<string, string | number | boolean>> = {}, ...children: Child[]
): HTMLElementTagNameMap[K] {
  const result = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes))
    if (value !== false) result.setAttribute(name, value === true ? '' : String(value));
  result.append(...children.filter((child) => child !== null));
  return result;
}

/** A button that does something. */
export function button(text: string, onClick: () => void, attributes: Record<string, string> = {}): HTMLButtonElement {
  const result = element('button', { type: 'button', ...attributes }, text);
  result.addEventListener('click', onClick);
  return result;
}

/** A list of names and values. */
export function definitions(rows: readonly (readonly [string, string | Node])[]): HTMLDListElement {
  return element('dl', {}, ...rows.flatMap(([name, value]) => [element('dt', {}, name), element('dd', {}, value)]));
}

let lastId = 0;

/** A label with its input below or beside it. */
export function labeled(text: string, input: HTMLElement, extra: Child = null): HTMLDivElement {
  input.id ||= `input-${++lastId}`;
  return element('div', { class: 'field' }, element('label', { for: input.id }, text), input, extra);
}

/** The element of the page with this id, which must be there. */
export function byId<T extends HTMLElement = HTMLElement>(id: string): T {
  const found = document.getElementById(id);
  if (!found) throw new Error(`The page has no element ${id}`);
  return found as T;
}
