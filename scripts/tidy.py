#!/usr/bin/env python3
"""Runs clang-tidy over the sources of a build: scripts/tidy.py BUILD [FILE ...]

Sources are concatenated and checked together, with the options of all of them, so that headers are read only once. If a group has a finding, its sources are checked one by one, each with its own
options, and that result counts. A group that passed is not checked again until one of its sources, any header, .clang-tidy
or an option changes: the user's cache directory keeps its hash.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

MAX_SOURCES = 16  # a group's memory and time stay bounded, and there are groups for all processors
# What a file defines at the beginning of a line: a name that two sources of a group must not share.
DEFINITION = re.compile(r"^(?!using|namespace|return|#)(?:[\w:<>,*&\[\]]+ )+[*&]*([A-Za-z_]\w*)(?=[(\[{;]| =|$)", re.M)

CLANG_TIDY = shutil.which("clang-tidy-14") or shutil.which("clang-tidy")
# The static analyzer, which takes most of the time, explores at most a sixth of the states of a function that it would by
# default: a third of the time.
EXTRA = "-Wno-unknown-warning-option -Wreserved-identifier -Xclang -analyzer-config -Xclang max-nodes=40000"
COMMON = [CLANG_TIDY, "--quiet"] + ["--extra-arg=" + word for word in EXTRA.split()]


def options_of(entry):
    """The options of an entry of the compilation database that matter to clang-tidy."""
    words = shlex.split(entry["command"])
    kept = [word for word in words if re.match("-[DIW]|-std=", word)]
    kept += ["-isystem" + words[index + 1] for index, word in enumerate(words) if word == "-isystem"]
    return tuple(kept)


def groups_of(sources):
    """Splits sources into lists of sources that can be compiled as one."""
    groups = []  # (sources, names)
    for source in sorted(sources):
        names = set(DEFINITION.findall(pathlib.Path(source).read_text()))
        for members, taken in groups:
            if len(members) < MAX_SOURCES and not names & taken:
                members.append(source)
                taken |= names
                break
        else:
            groups.append(([source], names))
    return [members for members, _ in groups]


def headers_and_settings():
    """A hash of what concerns all sources."""
    digest = hashlib.sha256(subprocess.check_output([CLANG_TIDY, "--version"]))
    for header in [".clang-tidy", __file__] + subprocess.check_output(["git", "ls-files", "*.h"], text=True).split():
        digest.update(pathlib.Path(header).read_bytes())
    return digest


def check(members, sources, common, build, cache):
    """The findings in a group of {source: options}: empty text if there are none."""
    digest = common.copy()
    options = list(dict.fromkeys(option for source in members for option in sources[source]))
    text = "".join(f'#line 1 "{source}"\n{pathlib.Path(source).read_text()}\n' for source in members)
    digest.update(repr((options, text)).encode())
    passed = cache / digest.hexdigest()
    if passed.exists():
        return ""
    findings = ""
    if len(members) > 1:
        group = build / "tidy" / (passed.name[:16] + ".cpp")
        group.parent.mkdir(exist_ok=True)
        group.write_text(text)
        if subprocess.run(COMMON + [group, "--", *options], capture_output=True).returncode == 0:
            members = []
    for source in members:
        run = subprocess.run(COMMON + [source, "--", *sources[source]], capture_output=True, text=True)
        if run.returncode != 0:
            findings += run.stdout + (run.stderr if not run.stdout else "")
    if not findings:
        cache.mkdir(parents=True, exist_ok=True)
        passed.touch()
    return findings


def main():
    os.chdir(pathlib.Path(__file__).parent.parent)
    build = pathlib.Path(sys.argv[1])
    wanted = sys.argv[2:] or subprocess.check_output(["git", "ls-files", "qm_*.cpp"], text=True).split()
    sources = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        # Sources that need a missing library (PDAL) are not in the database.
        name = os.path.relpath(entry["file"])
        if name in wanted:
            sources.setdefault(name, options_of(entry))
    cache = pathlib.Path(os.environ.get("XDG_CACHE_HOME", pathlib.Path.home() / ".cache")) / "vxunpack" / "tidy"
    common = headers_and_settings()
    groups = sorted(groups_of(sources), key=len, reverse=True)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        findings = list(pool.map(lambda members: check(members, sources, common, build, cache), groups))
    print("".join(findings), end="")
    return 1 if any(findings) else 0


if __name__ == "__main__":
    sys.exit(main())
