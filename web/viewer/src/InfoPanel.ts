// What the file says about itself. All of it is text that anybody may have written.
import type { Description, MetadataRecord, Traffic } from '@vxunpack/decoder';
import { nameOfClass } from './Colors.js';
import type { CoordinateSystem } from './CoordinateSystem.js';
import { decimalsOfAxes } from './Coordinates.js';
import { definitions, element } from './Dom.js';
import { decimalsOf, formatBytes, formatCount, printable } from './Text.js';

const mostRecords = 200;

/** The description of a file. */
export class InfoPanel {
  private readonly traffic = element('dd');

  constructor(private readonly box: HTMLElement) {}

  show(description: Description, system: CoordinateSystem): void {
    const { bounds, channels } = description;
    const decimals = decimalsOfAxes(description);
    const list = definitions([
      ['Name', printable(description.name, 300)],
      ['Format', printable(description.format, 60)],
      ['Points', formatCount(description.numPoints)],
      ['Levels', String(description.numLevels)],
      ['Size', formatBytes(description.size)],
      ...['X', 'Y', 'Z'].map((name, axis) => [name,
        `${bounds.min[axis]!.toFixed(decimals[axis])} to ${bounds.max[axis]!.toFixed(decimals[axis])}`] as const),
      ['Coordinate system', system.name === null ? description.wkt ? 'without a name' : 'not stated'
                                                 : printable(system.name, 200)],
    ]);
    list.append(element('dt', {}, 'Read'), this.traffic);
    const parts: HTMLElement[] = [list];
    if (description.wkt) {
      const text = element('pre', { tabindex: 0 }, printable(description.wkt, 20000));
      parts.push(details('Coordinate system (WKT)', text));
    }
    parts.push(details(`Channels (${channels.length})`, table(['Name', 'Type', 'Bits', 'Step'],
      channels.slice(0, mostRecords).map((channel) => [
        printable(channel.name, 80), channel.type, String(channel.bits), channel.quantization === 0 ? '' :
          String(Number(channel.quantization.toPrecision(6)))]))));
    const named = description.classNames.flatMap((name, code) => (name ? [[String(code), printable(name, 80)]] : []));
    if (named.length > 0)
      parts.push(details(`Class names (${named.length})`, table(['Class', 'Name'], named.slice(0, 256))));
    if (description.metadataFailure !== null)
      parts.push(element('p', { class: 'quiet' }, printable(description.metadataFailure, 300)));
    if (description.metadata.length > 0)
      parts.push(details(`Metadata (${description.metadata.length})`, ...makeRecords(description.metadata)));
    this.box.replaceChildren(...parts);
  }

  showTraffic(traffic: Traffic, size: number): void {
    const share = size > 0 ? ` (${(100 * traffic.bytes / size).toFixed(1)}\u00a0% of the file)` : '';
    const requests = traffic.requests === 1 ? '1 request' : `${formatCount(traffic.requests)} requests`;
    const text = `${formatBytes(traffic.bytes)} in ${requests}${share}`;
    if (this.traffic.textContent !== text) this.traffic.textContent = text;
  }

  clear(): void {
    this.box.replaceChildren(element('p', { class: 'quiet' }, 'No file is open.'));
  }
}

/** All attributes of a point, as rows of a table. `sampleOf` returns undefined for channels that are not there. */
export function describePoint(
  description: Description, sampleOf: (channel: string) => number | bigint | undefined,
): [string, string][] {
  const maxRows = 100; // files can have 65,535 channels
  return description.channels.slice(0, maxRows).flatMap(({ name, type, quantization }) => {
    const value = sampleOf(name);
    if (value === undefined) return [];
    let text = String(value);
    if (typeof value === 'number' && quantization > 0 && type.startsWith('float'))
      text = value.toFixed(decimalsOf(quantization));
    if (name === 'ClassId') {
      const className = printable(nameOfClass(Number(value), description.classNames), 80);
      if (className) text += ` ${className}`;
    }
    return [[printable(name, 80), text]];
  });
}

function details(title: string, ...children: HTMLElement[]): HTMLElement {
  return element('details', {}, element('summary', {}, title), ...children);
}

function table(head: readonly string[], rows: readonly (readonly string[])[]): HTMLElement {
  return element('table', {},
    element('thead', {}, element('tr', {}, ...head.map((text) => element('th', { scope: 'col' }, text)))),
    element('tbody', {}, ...rows.map((row) => element('tr', {}, ...row.map((text) => element('td', {}, text))))));
}

function makeRecords(records: readonly MetadataRecord[]): HTMLElement[] {
  const list = element('dl', { class: 'records' });
  for (const { name, description, value } of records.slice(0, mostRecords)) {
    const title = printable(name, 120) + (description ? ` – ${printable(description, 200)}` : '');
    list.append(element('dt', {}, title), element('dd', {}, element('pre', {}, textOfValue(value))));
  }
  const left = records.length - mostRecords;
  return left > 0 ? [list, element('p', { class: 'quiet' }, `${formatCount(left)} more records`)] : [list];
}

function textOfValue(value: MetadataRecord['value']): string {
  if (typeof value === 'string') return printable(value);
  const most = 64;
  const items = Array.from(value.slice(0, most), (item) =>
    value instanceof Uint8Array ? item.toString(16).padStart(2, '0') : String(item));
  return items.join(' ') + (value.length > most ? ` … (${formatCount(value.length)})` : '');
}
