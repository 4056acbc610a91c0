"""Compares vxunpack and vxpack with LASzip and PDAL. scripts/compare.sh builds the programs and describes the options.

Every run is a process of its own. The commands run in turn, once per round, so that all have about the same share of the
machine in a round: ratios are taken within rounds. A first round is not counted. All input is in the page cache.
"""
import argparse
import collections
import json
import math
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
CORES = os.cpu_count()
IDLE_CORES = 0.2  # while others use more, a missed goal of several threads is marked "busy"
MIB = 1024 * 1024
# The peak memory of a child includes what it has before it becomes the other program: with vfork, all that this process
# has ever used.
subprocess._USE_VFORK = False
WINDOW_FRACTION = 0.01  # of the area and of the points
# By what vxpack prefers. .vxl / .laz, and the size compared with that of the usual file, at most.
SIZE_GOALS = {None: 1.40, 'size': 1.32}
SIZE_AIMS = {'speed': 1.04, 'size': 1.00}
MANY_POINTS = 10000  # smaller files are mostly headers and metadata

# name, threads (0: all cores), command
ROWS = [
    ('LASzip decode', 1, '{peer} decode {stem}.laz'),
    ('LASzip window', 1, '{peer} window {stem}.laz {box}'),
    ('LASzip encode', 1, '{peer} encode {stem}.las {out}/laszip.laz'),
    ('PDAL to text', 1, 'pdal translate {sample}.laz {out}/pdal.txt --writers.text.keep_unspecified=false'
                        ' --writers.text.order={columns}'),
    ('PDAL to LAS', 1, 'pdal translate {stem}.laz {out}/pdal.las --writers.las.forward=all'),
    ('PDAL to LAZ', 1, 'pdal translate {stem}.laz {out}/pdal.laz --writers.las.forward=all'),
    *((f'{name}, {threads}', count, '{vxunpack} -i {stem}.vxl -o ' + output + ' -j {threads}')
      for name, output in (('null', 'null'), ('text', '{out}/own.txt'), ('LAS', '{out}/own.las'), ('LAZ', '{out}/own.laz'))
      for threads, count in (('1 thread', 1), ('2 threads', 2), ('all cores', 0))),
    ('text, to a void', 2, '{vxunpack} -i {stem}.vxl -o /dev/null -of txt -j 2'),
    ('LAS, to a void', 2, '{vxunpack} -i {stem}.vxl -o /dev/null -of las12 -j 2'),
    ('window of 1 %', 1, '{vxunpack} -i {stem}.vxl -o null -j 1 -c {box} -inf +inf'),
    ('null, spatial', 1, '{vxunpack} -i {stem}_spatial.vxl -o null -j 1'),
    ('window, spatial', 1, '{vxunpack} -i {stem}_spatial.vxl -o null -j 1 -c {box} -inf +inf'),
    ('preview, 1 in 64', 1, '{vxunpack} -i {stem}.vxl -o null -j 1 -s 64'),
    ('every 4th point', 1, '{vxunpack} -i {stem}.vxl -o null -j 1 -s 4'),
    ('X, Y, Z only', 1, '{vxunpack} -i {stem}.vxl -o null -j 1 -ofld xyz'),
    *((f'null, {prefer}', 1, f'{{vxunpack}} -i {{stem}}_{prefer}.vxl -o null -j 1') for prefer in ('speed', 'size')),
    *((f'{name}, {threads}', count, command + ' -j {threads}')
      for name, command in (('LAZ in', '{vxinfo} -q -check {stem}.laz'),
                            ('encode', '{vxpack} -i {stem}.las -o {out}/own.vxl'),
                            ('encode LAZ', '{vxpack} -i {stem}.laz -o {out}/own.vxl'))
      for threads, count in (('1 thread', 1), ('2 threads', 2), ('all cores', 0))),
]
# The options that make the file STEM_NAME.vxl of a row.
VARIANTS = {'spatial': ['-order', 'hilbert'], 'speed': ['-prefer', 'speed'], 'size': ['-prefer', 'size']}

# row, quantity, peer, goal, floor. "speed" is to reach its bound at least, the others at most. A pair is a bound for one
# thread and what each further thread adds. Floors are for 1 million points, where start-up is much of a short run.
GOALS = [
    ('null, 1 thread', 'speed', 'LASzip decode', 0.70, 0.50),
    ('null, 2 threads', 'speed', 'LASzip decode', 1.35, 0.90),
    ('null, 2 threads', 'speed', 'null, 1 thread', 1.90, 1.15),
    ('null, all cores', 'speed', 'null, 1 thread', (0.90, 0.90), (0.50, 0.50)),
    ('text, 1 thread', 'over null', 'LASzip decode', 0.35, 0.90),
    ('text, 2 threads', 'speed', 'PDAL to text', 12.0, 6.0),
    ('LAS, 1 thread', 'wall', 'null, 1 thread', 1.08, 1.50),
    ('LAS, 2 threads', 'wall', 'null, 2 threads', 1.08, 1.60),
    ('LAZ, 1 thread', 'speed', 'PDAL to LAZ', 1.00, 1.00),
    ('LAZ, 1 thread', 'wall', 'LASzip decode', 1.46, 2.40),
    ('LAZ, 2 threads', 'speed', 'PDAL to LAZ', 2.00, 1.30),
    ('LAZ, 2 threads', 'wall', 'LASzip decode', 1.05, 2.10),
    ('text, to a void', 'speed', 'PDAL to text', None, 8.0),
    ('LAS, to a void', 'wall', 'null, 2 threads', None, 1.40),
    ('window of 1 %', 'wall', 'LASzip window', 1.50, 1.00),
    ('window, spatial', 'wall', 'null, spatial', 0.03, 0.20),
    ('window, spatial', 'wall', 'LASzip window', 1.50, 0.80),
    ('preview, 1 in 64', 'wall', 'null, 1 thread', 0.03, 0.10),
    ('every 4th point', 'wall', 'null, 1 thread', 0.30, 0.50),
    ('X, Y, Z only', 'wall', 'null, 1 thread', 0.55, 0.90),
    ('null, speed', 'speed', 'null, 1 thread', 1.15, 0.90),
    ('LAZ in, 1 thread', 'speed', 'LASzip decode', 0.95, 0.60),
    ('LAZ in, 2 threads', 'speed', 'LASzip decode', 1.80, 0.60),
    ('encode, 1 thread', 'speed', 'LASzip encode', 0.50, 0.22),
    ('encode, 2 threads', 'speed', 'LASzip encode', 0.95, 0.38),
    ('encode LAZ, 1 thread', 'wall', 'LASzip decode', None, 6.00),
    ('encode LAZ, 2 threads', 'wall', 'LASzip decode', 1.50, 4.00),
    *((f'{name}, {threads}', 'peak MiB', None, (24, 16), None)
      for name in ('text', 'LAS') for threads in ('1 thread', '2 threads', 'all cores')),
]
# The goal of a row for 1 million points. All others are for 10 million.
MILLION_AIMS = {('encode, 2 threads', 'LASzip encode'): 0.75}
# A small file, most of whose time is the start of the program.
START_ROWS = [row for row in ROWS if row[0] in ('LASzip decode', 'null, 1 thread', 'null, all cores')]
START_GOALS = [('null, all cores', 'wall', 'LASzip decode', 1.10, 1.80)]

# The columns of our text.
PDAL_COLUMNS = ('X:3,Y:3,Z:3,Intensity:0,ReturnNumber:0,NumberOfReturns:0,ScanDirectionFlag:0,EdgeOfFlightLine:0,'
                'Classification:0,ScanAngleRank:0,UserData:0,PointSourceId:0,GpsTime:6,Red:0,Green:0,Blue:0')


# Of one run: seconds by the clock and of CPU, CPU seconds that others used meanwhile, peak memory in MiB.
Usage = collections.namedtuple('Usage', 'wall cpu others peak')


def machine_seconds():
    user, nice, system = Path('/proc/stat').read_text().split(maxsplit=4)[1:4]
    return (int(user) + int(nice) + int(system)) / os.sysconf('SC_CLK_TCK')


def run(words):
    """Runs a command and returns its usage and what it printed."""
    words = [str(word) for word in words]
    with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors:
        machine, begin = machine_seconds(), time.monotonic()
        process = subprocess.Popen(words, stdout=output, stderr=errors)
        _, status, usage = os.wait4(process.pid, 0)
        wall = time.monotonic() - begin
        process.returncode = status
        if status != 0:
            errors.seek(0)
            sys.exit(f"'{' '.join(words)}' failed: {errors.read().decode(errors='replace').strip()}")
        output.seek(0)
        cpu = usage.ru_utime + usage.ru_stime
        others = max(machine_seconds() - machine - cpu, 0)
        return Usage(wall, cpu, others, usage.ru_maxrss / 1024), output.read().decode()


def count_of(words):
    """The number that a command prints last: of points."""
    return int(re.findall(r'(\d+)(?: points written)?\s*$', run(words)[1])[-1])


class Programs:
    def __init__(self, folder):
        self.vxpack, self.vxunpack, self.vxinfo, self.peer = (
            Path(folder) / name for name in ('vxpack', 'vxunpack', 'vxinfo', 'laszip_peer'))

    def pack(self, source, target, *options):
        run([self.vxpack, '-i', source, '-o', target, *options])

    def require_same(self, las, other):
        """Checks that a .vxl or LAZ file has the points of a LAS file."""
        if str(other).endswith('.vxl'):
            decoded = Path(other).with_suffix('.check.las')
            run([self.vxunpack, '-i', other, '-o', decoded])
            run([self.peer, 'same', las, decoded])
            decoded.unlink()
        else:
            run([self.peer, 'same', las, other])

    def make_las(self, source, target, millions, *num_files):
        # In a process of its own, which keeps this one small: a child's peak memory includes its parent's.
        run([sys.executable, ROOT / 'scripts/tile_las.py', source, target, millions, *num_files])


def find_window(las):
    """The square of 1 % of the area of a LAS file that comes closest to 1 % of its points: minX, maxX, minY, maxY."""
    per_side = 4  # cells of a histogram on each side of the square
    with open(las, 'rb') as file:
        header = file.read(227)
        start, = struct.unpack_from('<I', header, 96)
        length, num_points = struct.unpack_from('<HI', header, 105)
        scales, offsets = struct.unpack_from('<2d', header, 131), struct.unpack_from('<2d', header, 155)
        max_x, min_x, max_y, min_y = struct.unpack_from('<4d', header, 179)
        cell = (WINDOW_FRACTION * (max_x - min_x) * (max_y - min_y)) ** 0.5 / per_side
        # In steps of the grid.
        left, bottom = ((low - offset) / scale for low, offset, scale in zip((min_x, min_y), offsets, scales))
        width, height = (cell / scale for scale in scales)
        cells = collections.Counter()
        file.seek(start)
        records = struct.Struct(f'<2i{length - 8}x')
        for _ in range(0, num_points, 4096):
            cells.update((int((x - left) / width), int((y - bottom) / height))
                         for x, y in records.iter_unpack(file.read(4096 * length)))

    def error(corner):
        inside = sum(cells[corner[0] + i, corner[1] + j] for i in range(per_side) for j in range(per_side))
        return abs(inside - WINDOW_FRACTION * num_points)

    corners = [(column, row) for row in range(int((max_y - min_y) / cell) + 2 - per_side)
               for column in range(int((max_x - min_x) / cell) + 2 - per_side)]
    best = min(corners, key=error)
    # Sides are between the steps of the grid, so that a reader that looks half a step further finds the same points.
    return [f'{(math.floor(low + size * at) + between) * scale + offset:.6f}'
            for low, size, corner, scale, offset in zip((left, bottom), (width, height), best, scales, offsets)
            for at, between in ((corner, 0.75), (corner + per_side, 0.25))]


def prepare(programs, las, rows):
    """Makes the .vxl and LAZ files of a LAS file, checks them, and returns what commands and tables need of them."""
    stem = Path(las).with_suffix('')
    vxl, laz = f'{stem}.vxl', f'{stem}.laz'
    programs.pack(las, vxl)
    variants = {name: f'{stem}_{name}.vxl' for name in VARIANTS if any(f'_{name}.vxl' in row[2] for row in rows)}
    for name, variant in variants.items():
        programs.pack(las, variant, *VARIANTS[name])
    run([programs.peer, 'encode', las, laz, 'indexed'])
    programs.require_same(las, vxl)
    programs.require_same(las, laz)
    num_points = count_of([programs.peer, 'decode', laz])
    box = find_window(las)
    counts = {count_of([programs.peer, 'window', laz, *box])}
    for packed in (vxl, *variants.values()):
        counts.add(count_of([programs.vxunpack, '-i', packed, '-o', 'null', '-c', *box, '-inf', '+inf']))
    if len(counts) != 1:
        sys.exit(f'the window of {las} has different numbers of points: {counts}')
    return {'stem': stem, 'points': num_points, 'box': ' '.join(box), 'inside': counts.pop(),
            'vxl': os.path.getsize(vxl) / num_points, 'laz': os.path.getsize(laz) / num_points,
            'preferred': {name: os.path.getsize(variants[name]) / num_points for name in variants.keys() & SIZE_AIMS}}


def refresh_pages(directory, num_bytes):
    """Has the system touch the pages that the next output needs. On a virtual machine the first use of a page can cost
    ten times as much as writing it, so that times would depend on what ran before."""
    path = Path(directory) / 'pages'
    with open(path, 'wb') as file:
        for _ in range(0, num_bytes, MIB // 4):
            file.write(bytes(MIB // 4))
    path.unlink()


def run_rows(rows, source, values, rounds, has_pdal):
    """Runs the rows in turn. Returns threads, points and usages by name."""
    results, commands = {}, {}
    for name, count, command in rows:
        # With few cores "all cores" is one of the other rows.
        few = CORES <= 2 and any(row[0] == f'{name.rsplit(", ", 1)[0]}, 2 threads' for row in rows)
        is_pdal = command.startswith('pdal')
        if (count == 0 and few) or (is_pdal and not has_pdal) or ('{sample}' in command and not values['sample']):
            continue
        points = values['samplePoints'] if '{sample}' in command else source['points']
        results[name] = (count or CORES, points, [])
        replaced = {**values, **source, 'threads': count or CORES}
        commands[name] = [word for part in command.split() for word in
                          (part.format(**replaced).split() if part == '{box}' else [part.format(**replaced)])]
    for counted in range(rounds + 1):
        for name, words in commands.items():
            outputs = [word for word in words if word.startswith(values['out']) and os.path.exists(word)]
            refresh_pages(values['out'], sum(map(os.path.getsize, outputs)))
            usage, _ = run(words)
            if counted:
                results[name][2].append(usage)
    return results


def median(values):
    ordered = sorted(values)
    return (ordered[(len(ordered) - 1) // 2] + ordered[len(ordered) // 2]) / 2


def spread(values, decimals):
    return f'{median(values):.{decimals}f} ({min(values):.{decimals}f}..{max(values):.{decimals}f})'


def others_cores(usages):
    return sum(usage.others for usage in usages) / sum(usage.wall for usage in usages)


def ratios(goal, results, kind):
    """What the goal is about in each round, by 'wall' or 'cpu' time; None without its peer."""
    name, quantity, peer = goal[:3]
    threads, points, own = results[name]
    if quantity == 'peak MiB':
        return [usage.peak for usage in own]
    if peer not in results:
        return None
    _, peer_points, peers = results[peer]
    pairs = [(getattr(mine, kind), getattr(other, kind)) for mine, other in zip(own, peers)]
    if quantity == 'speed':
        return [other / mine * points / peer_points for mine, other in pairs]
    if quantity == 'over null':
        nulls = next(usages for row, (count, _, usages) in results.items() if row.startswith('null,') and count == threads)
        return [(mine - getattr(null, kind)) / other for (mine, other), null in zip(pairs, nulls)]
    return [mine / other for mine, other in pairs]


def judge(is_met, needs_cores, usages):
    if is_met:
        return 'met'
    return 'busy' if needs_cores and others_cores(usages) > IDLE_CORES else 'missed'


def describe_goal(goal, results, mode, is_judged, num_points):
    """The words of a goal's columns, and whether its floor is missed."""
    name, quantity, peer, aim, floor = goal
    if (name, peer) in MILLION_AIMS and 0.9e6 < num_points < 1.1e6:
        aim, is_judged = MILLION_AIMS[name, peer], mode == 'goals'
    threads, _, usages = results[name]
    reached = ratios(goal, results, 'wall')
    words = f"  {quantity if quantity == 'peak MiB' else f'{quantity} / {peer}':<25}"
    if reached is None:
        return words + f"{'no peer':>21}", False
    if quantity == 'peak MiB':
        words += f' {spread(reached, 1):>20}      '
    else:
        words += f" {spread(reached, 2):>20} {median(ratios(goal, results, 'cpu')):5.2f}"
    bound = floor if mode == 'check' else aim
    if bound is None:
        return words, False
    if isinstance(bound, tuple):
        bound = bound[0] + bound[1] * (threads - 1)
    at_least = quantity == 'speed'
    words += f" {'>=' if at_least else '<='} {bound:.2f}"
    if mode != 'check' and not is_judged:
        return words, False
    is_met = median(reached) >= bound if at_least else median(reached) <= bound
    verdict = judge(is_met, threads > 1 and quantity != 'peak MiB', usages)
    return f'{words} {verdict}', mode == 'check' and verdict == 'missed'


def print_rows(source, results, goals, mode, judged_points):
    """Prints a table and returns the goals whose floor is missed."""
    print(f"\n{source['stem'].name}: {source['points']} points, {source['vxl']:.3f} bytes a point as .vxl, "
          f"{source['laz']:.3f} as .laz; {source['inside']} points in the window")
    for name, size in sorted(source['preferred'].items()):
        ratio, aim = size / source['vxl'], SIZE_AIMS[name]
        verdict = '' if mode != 'goals' else f", goal <= {aim:.2f} {'met' if ratio <= aim else 'missed'}"
        print(f"-prefer {name}: {size:.3f} bytes a point, {ratio:.3f} of the usual file{verdict}")
    print(f"{'':21} {'seconds':>20} CPU s busy Mpts/s   MiB  {'compared':25} {'ratio':>20}   CPU  "
          f"{'floor' if mode == 'check' else 'goal'}")
    below = []
    for name, (_, points, usages) in results.items():
        wall, cpu = [usage.wall for usage in usages], median([usage.cpu for usage in usages])
        figures = (f'{name:21} {spread(wall, 3 if max(wall) < 10 else 2):>20} {cpu:5.{3 if cpu < 1 else 2}f} '
                   f'{others_cores(usages):4.2f} {points / median(wall) / 1e6:6.2f} {max(u.peak for u in usages):5.1f}')
        for goal in [goal for goal in goals if goal[0] == name]:
            is_judged = mode == 'goals' and source['points'] >= judged_points
            words, is_below = describe_goal(goal, results, mode, is_judged, source['points'])
            print((figures + words).rstrip())
            figures = ' ' * 66
            if is_below:
                below.append(f'{name}: {goal[1]} / {goal[2]}')
        if figures.strip():
            print(figures)
    return below


def find_pdal(laz, directory):
    """The version of the pdal on the PATH, if it works."""
    if not shutil.which('pdal'):
        return None
    version = re.search(r'pdal (\d\S*)', run(['pdal', '--version'])[1])
    run(['pdal', 'translate', laz, f'{directory}/pdal.las'])
    return version.group(1) if version else 'of unknown version'


def processor():
    found = re.search(r'model name\s*: (.*)', Path('/proc/cpuinfo').read_text())
    return found.group(1) if found else 'unknown processor'


def choose_rows(programs, pattern):
    """The rows whose names match, and those that their goals compare them with."""
    prefers = '-prefer' in run([programs.vxpack, '-help'])[1]
    rows = [row for row in ROWS if prefers or '_speed.vxl' not in row[2] and '_size.vxl' not in row[2]]
    wanted = {row[0] for row in rows if re.search(pattern, row[0])}
    goals = [goal for goal in GOALS if goal[0] in wanted]
    wanted.update(goal[2] for goal in goals)
    wanted.update(f'null, {goal[0].rsplit(", ", 1)[1]}' for goal in goals if goal[1] == 'over null')
    return [row for row in rows if row[0] in wanted]


def compare_speeds(programs, source, directory, options):
    """Returns whether nothing is below its floor."""
    rows = choose_rows(programs, options.rows)
    small, *inputs = [directory / f'{size:g}_million.las' for size in [options.small, *options.millions]]
    for las, size in zip([small, *inputs], [options.small, *options.millions]):
        programs.make_las(source, las, size)
    small, *inputs = [prepare(programs, las, START_ROWS if las == small else rows) for las in [small, *inputs]]
    out = directory / 'outputs'
    out.mkdir()
    pdal = find_pdal(f"{small['stem']}.laz", out)
    # PDAL writes text so slowly that it gets a file of at most a million points.
    sample = max((one for one in inputs if one['points'] <= 1.05e6), key=lambda one: one['points'], default=None)
    values = {'peer': programs.peer, 'vxunpack': programs.vxunpack, 'vxpack': programs.vxpack,
              'vxinfo': programs.vxinfo, 'out': str(out), 'columns': PDAL_COLUMNS, 'sample': sample and sample['stem'], 'samplePoints': sample and sample['points']}
    least_peak = run(['true'])[0].peak
    version = run([programs.peer, 'version'])[1].strip()
    print(f"{processor()}, {CORES} cores; {version}; {f'PDAL {pdal}' if pdal else 'no PDAL'}; "
          f'rounds: {options.rounds}, and one not counted\n'
          'Whole processes, run in turn: medians of the rounds, and least..most. busy: cores that others used\n'
          'meanwhile; what several threads miss while others use some is marked so. Mpts/s: points of the file,\n'
          'even if a run decodes fewer; PDAL writes text of at most one million. MiB: peak memory; what is below\n'
          f'{least_peak:.1f} shows as that. Ratios are taken within a round, by the clock; CPU: by the CPU time of all\n'
          'threads. over null: seconds in addition to those of null with the same number of threads.')
    if options.mode == 'goals':
        print('Goals are for 10 million points, for the start of programs 0.1 million, and one for 1 million.')
    if options.mode == 'check':
        print('Floors are far below the goals: a result worse than its floor is a fault.')
    results = run_rows(START_ROWS, small, values, 4 * options.rounds, pdal)
    below = print_rows(small, results, START_GOALS, options.mode, 5e4)
    for one in inputs:
        results = run_rows(rows, one, values, options.rounds, pdal)
        below += print_rows(one, results, GOALS, options.mode, 9.5e6)
    if below:
        print('\nBelow the floor:\n  ' + '\n  '.join(below))
    return not below


def print_sizes(programs, files, directory, prefer=None):
    goal = SIZE_GOALS.get(prefer, SIZE_GOALS[None])
    print('\nSizes. vxl: the whole file, with the VLRs of the input as metadata; bands: its samples only. laz: the whole\n'
          f'file, without VLRs except for the one that describes the compression. Goal: vxl / laz of at most {goal:.2f}.\n')
    print(f"{'':24} {'':9} {'vxl':>10} {'bands':>10} {'laz':>10} {'vxl':>8} {'bands':>8} {'laz':>8} {'vxl':>6}  bands")
    print(f"{'file':24} {'points':>9} {'bytes':>10} {'bytes':>10} {'bytes':>10} {'a point':>8} {'a point':>8} {'a point':>8}"
          '  / laz  / laz  goal')

    def print_row(name, points, vxl, bands, laz):
        per_point = ' '.join(f'{count / max(points, 1):8.3f}' for count in (vxl, bands, laz))
        print(f'{name:24} {points:9} {vxl:10} {bands:10} {laz:10} {per_point} {vxl / laz:6.3f} {bands / laz:6.3f}  '
              f"{'met' if vxl / laz <= goal else 'missed'}", flush=True)

    rows, tables = [], []
    vxl, laz = directory / 'sizes.vxl', directory / 'sizes.laz'
    for file in files:
        # A .vxl file holds no wave packets.
        programs.pack(file, vxl, '-dropWaveforms', *(['-prefer', prefer] if prefer else []))
        run([programs.peer, 'encode', file, laz])
        programs.require_same(file, vxl)
        programs.require_same(file, laz)
        report = json.loads(run([programs.vxinfo, '-json', vxl])[1])[0]
        records, points = report['compression']['records'], report['numPoints']
        rows.append((points, vxl.stat().st_size, sum(record['bytes'] for record in records), laz.stat().st_size))
        print_row(file.name, *rows[-1])
        if points >= MANY_POINTS:
            tables.append((file.name, points, records))
    print_row('all', *map(sum, zip(*rows)))
    large = [row for row in rows if row[0] >= MANY_POINTS]
    if large:
        print_row(f'those of {MANY_POINTS} and more', *map(sum, zip(*large)))
    for name, points, records in tables:
        print(f"\n{name}\n  {'record':20} {'bytes':>10} {'a point':>9} {'subblock':>9}  transform")
        for record in records:
            print(f"  {record['name']:20} {record['bytes']:10} {record['bytes'] / points:9.3f} {record['subblockSize']:9}  "
                  f"{record['transform']} ({record['transformName']})")


def print_memory(programs, source, directory, sizes):
    columns = ['pack', 'null', 'txt', 'las', 'laz']
    print('\nPeak memory and time of vxpack from a LAS file ("pack"), then of vxunpack from the result.')
    print(f"{'M points':>10}" + ''.join(f'{column + " MiB":>13}{column + " s":>11}' for column in columns))
    las, vxl = directory / 'in.las', directory / 'in.vxl'
    for size in sizes:
        programs.make_las(source, las, size)
        usages = [run([programs.vxpack, '-i', las, '-o', vxl])[0]]
        las.unlink()
        for column in columns[1:]:
            output = 'null' if column == 'null' else directory / f'out.{column}'
            usages.append(run([programs.vxunpack, '-i', vxl, '-o', output])[0])
            if column != 'null':
                output.unlink()
        print(f'{size:10g}' + ''.join(f'{usage.peak:13.1f}{usage.wall:11.1f}' for usage in usages), flush=True)


def box_of(las):
    """The bounds of a LAS file, larger by a part of a step."""
    with open(las, 'rb') as file:
        header = file.read(227)
    scales, (max_x, min_x, max_y, min_y) = struct.unpack_from('<2d', header, 131), struct.unpack_from('<4d', header, 179)
    x, y = (scale / 4 for scale in scales)
    return [f'{end:.6f}' for end in (min_x - x, max_x + x, min_y - y, max_y + y)]


def deleted_bytes(process):
    """What the files take that only this process has."""
    total = 0
    for link in Path(f'/proc/{process}/fd').glob('*'):
        try:
            if os.readlink(link).endswith('(deleted)'):
                total += os.stat(link).st_blocks * 512
        except OSError:
            pass  # closed meanwhile
    return total


def print_large(programs, source, directory, millions):
    """Packs many tiles of 10 million points into one file and reads it."""
    tiles = directory / 'tiles.list'
    num_tiles = max(round(millions / 10), 4)
    programs.make_las(source, tiles, millions, num_tiles)
    middle = f'{tiles}{num_tiles // 2}.las'
    points, box = count_of([programs.peer, 'decode', middle]), box_of(middle)
    vxl = directory / 'large.vxl'
    total = points * num_tiles
    print(f'\n{total} points, a list of {num_tiles} LAS files. temporary: MiB of unnamed files, at most.')
    print(f"{'':16} {'seconds':>9} {'CPU s':>9} {'Mpts/s':>7} {'MiB':>7} {'temporary':>10} {'points':>12}")
    commands = {
        'pack': ([programs.vxpack, '-i', tiles, '-o', vxl], None),
        'check': ([programs.vxinfo, '-q', '-check', vxl], None),
        'null': ([programs.vxunpack, '-i', vxl, '-o', 'null'], total),
        'window': ([programs.vxunpack, '-i', vxl, '-o', 'null', '-c', *box, '-inf', '+inf'], points),
        'preview, 1:1024': ([programs.vxunpack, '-i', vxl, '-o', 'null', '-s', 1024], -(-total // 1024)),
    }
    for name, (words, expected) in commands.items():
        temporary = [0]
        watcher = threading.Thread(target=watch_temporary, args=(temporary,), daemon=True)
        watcher.start()
        usage, output = run(words)
        temporary.append(None)  # the end
        watcher.join()
        found = int(re.findall(r'(\d+) points written', output)[-1]) if expected else total
        print(f'{name:16} {usage.wall:9.1f} {usage.cpu:9.1f} {found / usage.wall / 1e6:7.2f} {usage.peak:7.1f} '
              f'{temporary[0] / MIB:10.1f} {found:12}', flush=True)
        if expected and found != expected:
            sys.exit(f'{name}: {expected} points expected')
    print(f'{os.path.getsize(vxl)} bytes, {os.path.getsize(vxl) / total:.3f} a point')


def watch_temporary(most):
    """Keeps the largest size of the unnamed files of the child in most[0], until most has a second entry."""
    while len(most) == 1:
        children = Path(f'/proc/{os.getpid()}/task/{os.getpid()}/children').read_text().split()
        most[0] = max([most[0], *map(deleted_bytes, children)])
        time.sleep(0.2)


def print_scaling(programs, source, directory, options):
    print(f'\n{processor()}, {CORES} cores. Tasks of runs on one thread, scheduled on 1 to 64 cores. measured: whole runs\n'
          f'on that number of cores of this machine, the fastest of {options.rounds}.')
    las = directory / 'scaling.las'
    programs.make_las(source, las, options.millions[-1])
    command = [Path(programs.peer).with_name('scaling'), las, directory, options.rounds, *(options.scaling or [])]
    print(run(command)[1], end='')


def parse_options():
    parser = argparse.ArgumentParser(prog='compare.sh')
    kind = parser.add_mutually_exclusive_group()
    kind.add_argument('--check', dest='mode', action='store_const', const='check', default='goals')
    kind.add_argument('--smoke', dest='mode', action='store_const', const='smoke')
    kind.add_argument('--sizes', nargs='*', type=Path, metavar='FILE')
    kind.add_argument('--large', nargs='?', type=float, const=1000, metavar='MILLIONS')
    kind.add_argument('--scaling', nargs='*', metavar='JOB')
    kind.add_argument('--memory', nargs='*', type=float, metavar='MILLIONS')
    parser.add_argument('--millions', type=lambda words: [float(word) for word in words.split()])
    parser.add_argument('--rounds', type=int)
    parser.add_argument('--rows', default='', metavar='REGEX')
    parser.add_argument('--prefer', metavar='PREFERENCE')
    parser.add_argument('--programs', default=ROOT / 'build/release')
    options = parser.parse_args()
    millions, rounds, options.small = {
        'goals': ([1, 10], 5, 0.1), 'check': ([1], 3, 0.1), 'smoke': ([0.02], 1, 0.005)}[options.mode]
    options.millions = options.millions or millions
    options.rounds = options.rounds or rounds
    return options


def main():
    options = parse_options()
    programs = Programs(options.programs)
    data = Path(os.environ.get('VX_SHARED', ROOT.parent / 'shared')) / 'data'
    source = data / 'las/autzen_trim.las'
    files = sorted(data.glob('las/*.las')) + sorted(data.glob('laz/*.laz'))
    with tempfile.TemporaryDirectory() as temporary:
        directory = Path(temporary)
        if options.mode == 'smoke' or not source.exists():
            source = directory / 'survey.las'
            run([programs.vxunpack, '-i', ROOT / 'examples/survey.vxl', '-o', source])
            files = [source]
        if options.sizes is not None:
            print_sizes(programs, options.sizes or files, directory, options.prefer)
        elif options.large is not None:
            print_large(programs, source, directory, options.large)
        elif options.scaling is not None:
            print_scaling(programs, source, directory, options)
        elif options.memory is not None:
            print_memory(programs, source, directory, options.memory or [1, 10, 100])
        else:
            is_passed = compare_speeds(programs, source, directory, options)
            if options.mode == 'smoke':
                print_sizes(programs, files, directory)
                print_memory(programs, source, directory, options.millions)
                print_large(programs, source, directory, 4 * options.millions[-1])
                print_scaling(programs, source, directory, options)
            sys.exit(0 if is_passed else 1)


main()
