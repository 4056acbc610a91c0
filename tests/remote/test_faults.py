"""A server with faults: the same points, or an error; never other points, and no waiting for ever."""

import itertools
import signal
import time

import pytest

from conftest import run, start, unpack

# Bands of few channels are apart in the file, so that requests have many ranges.
QUERY = ["-ofld", "xyzc"]
EQUAL = None
CHANGED = "has changed while it was read"
runs = itertools.count()


def change(**values):
    def fault(answer):
        for name, value in values.items():
            setattr(answer, name, value)
    return fault


def when(condition, fault):
    return lambda answer: fault(answer) if condition(answer) else None


def is_multiple(answer):
    return len(answer.parts) > 1


def later(answer):
    return answer.number >= 2


def tag_changes(answer):
    answer.headers["ETag"] = '"two"'


def honour_condition(answer):
    answer.status = 412 if answer.requested["If-Match"] == '"one"' else 206


def reverse(answer):
    answer.parts = answer.parts[::-1]


def join_parts(answer):
    answer.parts = [(answer.parts[0][0], answer.parts[0][1] + 500), *answer.parts[1:]]


def drop_part(answer):
    answer.parts = answer.parts[1:]


def shift_part(answer):
    answer.get_part = lambda first, last: answer.content[first + 1:last + 1] + b"x"


def lengthen(answer):
    answer.parts = [(first, min(last + 100_000, answer.size - 1)) for first, last in answer.parts]


def empty(answer):
    answer.status, answer.headers, answer.content = 416, {"Content-Range": "bytes */0"}, b""


half = change(limit=10_000)
CASES = {
    "drops-first": (when(lambda answer: answer.number < 2, half), EQUAL),
    "drops-parts": (when(lambda answer: answer.number == 2, half), EQUAL),
    "drops-always": (half, "cannot read"),
    "503-first": (when(lambda answer: answer.number < 1, change(status=503)), EQUAL),
    "503-later": (when(later, change(status=503)), "503 (it is not available now)"),
    "tag-changes": (when(later, tag_changes), CHANGED),
    "tag-is-compared": (when(later, honour_condition), CHANGED),
    "size-changes": (when(later, change(size=1 << 30)), CHANGED),
    "whole-for-many": (when(is_multiple, change(status=200)), EQUAL),
    "other-order": (reverse, EQUAL),
    "longer-part": (when(is_multiple, join_parts), EQUAL),
    "longer-parts": (when(is_multiple, lengthen), EQUAL),
    "missing-part": (when(is_multiple, drop_part), EQUAL),
    "other-boundary": (change(boundary="OTHER"), EQUAL),
    "no-total-size": (when(lambda answer: answer.number > 0, change(size="*")), EQUAL),
    "wrong-bytes": (when(later, shift_part), ""),
    "wrong-range": (when(later, change(describe=lambda first, last: f"bytes {first + 1}-{last + 1}/*")), "malformed"),
    "no-range": (change(describe=lambda first, last: "bytes"), "malformed"),
    "impossible-range": (change(describe=lambda first, last: f"bytes 0-{2**63 - 1}/{2**63}"), "malformed"),
    "longer-first": (lengthen, "longer than it should be"),
    "endless-headers": (change(forever=b"X-Filler: 0123456789\r\n"), "longer than it should be"),
    "endless-line": (change(forever=b"0123456789"), "cannot read"),
    "endless-body": (change(forever=b"\r\n0123456789"), "longer than it should be"),
    "silent": (change(delay=20), "has not answered for 1 seconds"),
    "empty": (empty, ""),
    "503-for-layout": (when(lambda answer: answer.number == 2, change(status=503)), "503"),
}


@pytest.fixture(scope="module")
def expected(www, tmp_path_factory):
    return unpack(www / "medium.vxl", tmp_path_factory.mktemp("expected") / "a.txt", *QUERY)


def name_file(faulty, fault):
    path = f"/{fault}/{next(runs)}/{'old' if 'layout' in fault else 'medium'}.vxl"
    faulty.faults[path] = CASES[fault][0]
    return path


@pytest.mark.parametrize("fault", CASES)
def test_faults_give_the_same_points_or_an_error(faulty, expected, tmp_path, fault):
    message = CASES[fault][1]
    output = tmp_path / "a.txt"
    path = name_file(faulty, fault)
    begin = time.monotonic()
    status, said = run("vxunpack", "-i", faulty.url + path, "-o", output, *QUERY, VX_HTTP_TIMEOUT=1,
                       VX_HTTP_RETRIES=2 if message is EQUAL else 0)
    assert (time.monotonic() - begin < 4, path in faulty.happened) == (True, True)
    if message is EQUAL:
        assert (status, output.read_bytes() == expected) == (0, True), said
    else:
        assert (status, "Error" in said, message in said, list(tmp_path.iterdir())) == (1, True, True, []), said


def test_interrupt_ends_a_wait(faulty, tmp_path):
    path = name_file(faulty, "silent")
    process = start("vxunpack", "-i", faulty.url + path, "-o", tmp_path / "a.txt")
    while path not in faulty.counts:
        time.sleep(0.01)
    begin = time.monotonic()
    process.send_signal(signal.SIGINT)
    assert process.wait(10) == 1
    assert (time.monotonic() - begin < 1, list(tmp_path.iterdir())) == (True, [])
