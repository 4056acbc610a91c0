// Where the user chooses a file: the file button, the form for an address, drag and drop.
import { byId } from './Dom.js';

/** Calls a function with what the user has chosen. */
export function listenToFiles(onFile: (file: File) => void, onAddress: (url: string) => void): void {
  const input = byId<HTMLInputElement>('file');
  input.addEventListener('change', () => {
    const file = input.files?.[0];
    if (file) onFile(file);
    input.value = ''; // so that the same file can be opened again
  });
  byId('welcome-open').addEventListener('click', askForFile);
  byId('url-form').addEventListener('submit', (event) => {
    event.preventDefault();
    const url = byId<HTMLInputElement>('url').value.trim();
    if (url) onAddress(url);
  });
  listenToDrops(onFile);
}

/** Shows the browser's dialog for local files. */
export function askForFile(): void {
  byId('file').click();
}

function listenToDrops(onFile: (file: File) => void): void {
  const hasFiles = (event: DragEvent) => event.dataTransfer?.types.includes('Files') ?? false;
  const drop = byId('drop');
  window.addEventListener('dragover', (event) => {
    if (!hasFiles(event)) return;
    event.preventDefault();
    drop.hidden = false;
  });
  window.addEventListener('dragleave', (event) => {
    if (event.relatedTarget === null) drop.hidden = true;
  });
  window.addEventListener('drop', (event) => {
    if (!hasFiles(event)) return;
    event.preventDefault();
    drop.hidden = true;
    const file = event.dataTransfer?.files[0];
    if (file) onFile(file);
  });
}
