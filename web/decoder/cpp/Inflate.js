// The function that Inflate.cpp calls. Module.inflateRaw(stream, out) is the inflater of the loader; it returns a
// message, or '' if `out` is filled and the stream ends there.
mergeInto(LibraryManager.library, {
  vx_inflate: function (stream, length, out, size, message) {
    var text = Module['inflateRaw'](HEAPU8.subarray(stream, stream + length), HEAPU8.subarray(out, out + size));
    if (text) stringToUTF8(text, message, 128);
    return text === '';
  },
});
