"""Makes large LAS files from a small one: tile_las.py SOURCE TARGET MILLIONS [FILES]

The target is a square of copies of the source (LAS 1.0 to 1.3, record formats 0 to 3). Each copy is later in time than
the one before, and has noise of -2 to 2 in its intensity. Equal arguments give equal files.
With FILES, the target is a list of FILES such files, side by side, each with a part of the points.
"""
import math
import operator
import random
import struct
import sys
from array import array

GPS_TIME = {1: 20, 3: 20}  # where it is in a record, by record format
INTENSITY = 12
NOISE = bytes(i % 5 for i in range(256))


def get_column(records, length, at, code):
    column = array(code)
    raw = bytearray(len(records) // length * column.itemsize)
    for i in range(column.itemsize):
        raw[i::column.itemsize] = records[at + i::length]
    column.frombytes(raw)
    return column


def set_column(records, length, at, column):
    raw = column.tobytes()
    for i in range(column.itemsize):
        records[at + i::length] = raw[i::column.itemsize]


def tile(source, target, num_points):
    with open(source, 'rb') as file:
        header = bytearray(file.read(227))
        start, = struct.unpack_from('<I', header, 96)
        record_format, length, count = struct.unpack_from('<BHI', header, 104)
        if header[:4] != b'LASF' or header[25] > 3 or record_format > 3 or count == 0:
            sys.exit(f'{source} cannot be tiled')
        header += file.read(start - len(header))
        records = bytearray(file.read(count * length))

    xs, ys = (get_column(records, length, at, 'i') for at in (0, 4))
    width, height = max(xs) - min(xs) + 1, max(ys) - min(ys) + 1
    # Two less than its value, so that noise of 0 to 4 can be added and stays within 16 bits.
    intensity = array('H', (min(max(value, 2), 65533) - 2 for value in get_column(records, length, INTENSITY, 'H')))
    time_at = GPS_TIME.get(record_format)
    times = get_column(records, length, time_at, 'd') if time_at else array('d', [0])
    duration = max(times) - min(times)
    noise = random.Random(11)

    copies = max(round(num_points / count), 1)
    columns = min(max(round(math.sqrt(copies * height / width)), 1), copies)
    with open(target, 'wb') as file:
        numbers_by_return = (number * copies for number in struct.unpack_from('<5I', header, 111))
        struct.pack_into('<6I', header, 107, count * copies, *numbers_by_return)
        for scale_at, max_at, steps in ((131, 179, (columns - 1) * width), (139, 195, (copies - 1) // columns * height)):
            scale, = struct.unpack_from('<d', header, scale_at)
            struct.pack_into('<d', header, max_at, struct.unpack_from('<d', header, max_at)[0] + steps * scale)
        file.write(header)
        for copy in range(copies):
            row, column = divmod(copy, columns)
            right, up, later = column * width, row * height, copy * duration
            set_column(records, length, 0, array('i', [x + right for x in xs]))
            set_column(records, length, 4, array('i', [y + up for y in ys]))
            noisy = map(operator.add, intensity, noise.randbytes(count).translate(NOISE))
            set_column(records, length, INTENSITY, array('H', noisy))
            if time_at:
                set_column(records, length, time_at, array('d', [time + later for time in times]))
            file.write(records)


def move(records, length, at, column, steps):
    set_column(records, length, at, array('i', [value + steps for value in column]))


def tile_files(source, target, num_points, num_files):
    names = [f'{target}{i}.las' for i in range(num_files)]
    tile(source, names[0], num_points / num_files)
    with open(names[0], 'rb') as file:
        content = bytearray(file.read())
    start, = struct.unpack_from('<I', content, 96)
    length, = struct.unpack_from('<H', content, 105)
    records = content[start:]
    scales, ends = struct.unpack_from('<2d', content, 131), struct.unpack_from('<4d', content, 179)
    xs, ys = (get_column(records, length, at, 'i') for at in (0, 4))
    width, height = max(xs) - min(xs) + 1, max(ys) - min(ys) + 1
    columns = min(max(round(math.sqrt(num_files * height / width)), 1), num_files)
    for i, name in enumerate(names[1:], 1):
        row, column = divmod(i, columns)
        move(records, length, 0, xs, column * width)
        move(records, length, 4, ys, row * height)
        right, up = column * width * scales[0], row * height * scales[1]
        struct.pack_into('<4d', content, 179, ends[0] + right, ends[1] + right, ends[2] + up, ends[3] + up)
        with open(name, 'wb') as file:
            file.write(content[:start])
            file.write(records)
    with open(target, 'w') as file:
        file.writelines(name + '\n' for name in names)


if __name__ == '__main__':
    if len(sys.argv) > 4:
        tile_files(sys.argv[1], sys.argv[2], float(sys.argv[3]) * 1e6, int(sys.argv[4]))
    else:
        tile(sys.argv[1], sys.argv[2], float(sys.argv[3]) * 1e6)
