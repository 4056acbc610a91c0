#!/usr/bin/env python3
"""Writes the inputs that reach most edges into an archive: keep_inputs.py CONTROL_FILE COUNT ARCHIVE

The control file is that of libFuzzer's -set_cover_merge: the number of inputs, a number that is not needed here, the
paths of the inputs, and a line "FT INDEX EDGE ..." for each of them. The archive is the same for the same inputs.
"""
import os
import sys
import zipfile


def choose(control, most):
    """Takes the input that adds most edges, and the smallest of those, again and again."""
    count = int(control[0])
    paths = control[2:2 + count]
    edges = {path: set() for path in paths}
    for line in control[2 + count:]:
        words = line.split()
        if words[0] == "FT":
            edges[paths[int(words[1])]] = set(map(int, words[2:]))
    chosen = []
    reached = set()
    while len(chosen) < most:
        best = max(paths, key=lambda path: (len(edges[path] - reached), -os.path.getsize(path), path))
        if edges[best] <= reached:
            break
        reached |= edges[best]
        chosen.append(best)
    return chosen


def main(control_file, most, archive):
    with open(control_file, encoding="utf-8") as file:
        chosen = choose(file.read().splitlines(), int(most))
    with zipfile.ZipFile(archive, "w") as zipped:
        for path in sorted(chosen, key=os.path.basename):
            with open(path, "rb") as file:
                zipped.writestr(zipfile.ZipInfo(os.path.basename(path)), file.read(), zipfile.ZIP_DEFLATED)
    print(f"{archive}: {len(chosen)} inputs")


main(*sys.argv[1:])
