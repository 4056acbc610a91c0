import type { ByteRange } from './types.js';

/** A part of an answer to a request for several byte ranges. */
interface Part {
  readonly begin: number;
  readonly bytes: Uint8Array;
}

/**
 * Takes ranges from an answer of the type multipart/byteranges (RFC 9110, section 14.6), whose parts may be in another
 * order, or joined. Returns null if it lacks some of the bytes, or is malformed.
 */
export function takeRanges(contentType: string, body: Uint8Array, ranges: readonly ByteRange[]): Uint8Array[] | null {
  const boundary = /^multipart\/byteranges\s*;.*boundary="?([^";]+)"?/i.exec(contentType)?.[1];
  const parts = boundary ? parse(body, boundary) : null;
  if (!parts) return null;
  const taken: Uint8Array[] = [];
  for (const { begin, end } of ranges) {
    const part = parts.find((each) => each.begin <= begin && end <= each.begin + each.bytes.length);
    if (!part) return null;
    taken.push(part.bytes.subarray(begin - part.begin, end - part.begin));
  }
  return taken;
}

function parse(body: Uint8Array, boundary: string): Part[] | null {
  const maxHead = 1024; // bytes of a boundary with its headers
  const decoder = new TextDecoder('latin1');
  const parts: Part[] = [];
  for (let at = 0; ; ) {
    const text = decoder.decode(body.subarray(at, at + maxHead));
    const delimiter = /^(?:\r\n)*--/.exec(text)?.[0];
    if (delimiter === undefined || !text.startsWith(boundary, delimiter.length)) return null;
    const afterBoundary = delimiter.length + boundary.length;
    if (text.startsWith('--', afterBoundary)) return parts;
    const headEnd = text.indexOf('\r\n\r\n', afterBoundary);
    const match = /^content-range:\s*bytes\s+(\d+)-(\d+)\//im.exec(text.slice(afterBoundary, headEnd));
    if (headEnd < 0 || !match) return null;
    const begin = Number(match[1]);
    const length = Number(match[2]) + 1 - begin;
    const start = at + headEnd + 4;
    if (!(length > 0) || start + length > body.length) return null;
    parts.push({ begin, bytes: body.subarray(start, start + length) });
    at = start + length;
  }
}
