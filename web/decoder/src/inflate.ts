import { Z_NO_FLUSH, Z_OK, Z_STREAM_END, ZStream, zlibInflate, zlibInflateInit2, zlibInflateReset } from 'pako';

const rawDeflate = -15; // window bits; negative means no zlib wrapper
let inflater: ZStream | undefined;

/** Inflates a raw deflate stream of exactly the length of `out`. Returns '', or a message. */
export function inflateRaw(stream: Uint8Array, out: Uint8Array): string {
  if (!inflater) {
    inflater = new ZStream();
    if (zlibInflateInit2(inflater, rawDeflate) !== Z_OK) throw new Error('cannot inflate');
  } else if (zlibInflateReset(inflater) !== Z_OK) {
    return 'buffer error';
  }
  inflater.msg = '';
  inflater.input = stream;
  inflater.next_in = 0;
  inflater.avail_in = stream.length;
  inflater.output = out as Uint8Array<ArrayBuffer>;
  inflater.next_out = 0;
  inflater.avail_out = out.length;
  const status = zlibInflate(inflater, Z_NO_FLUSH);
  const isGood = status === Z_STREAM_END && inflater.avail_out === 0;
  return isGood ? '' : inflater.msg || 'buffer error';
}
