"""Receipts: files that say what a unit made. They are next to the outputs."""

from __future__ import annotations

import contextlib
import hashlib
import json
import os
import secrets
import shutil
import socket
from collections.abc import Iterator
from dataclasses import dataclass, field
from typing import Any

from .. import _vxl
from ._plan import Job, Unit, replacing

_PARTIAL = ".partial"  # the folder of outputs that are not complete


@dataclass(frozen=True)
class Receipt:
    """What a unit made.

    Attributes
    ----------
    unit : int
    fingerprint : str
        Of the unit; a receipt of another plan has another one.
    size, mtime, digest : int, int and str, or None
        Of the output: its bytes, modification time in ns, and BLAKE2b digest of 16 bytes. None if the unit
        made no file: a tile without points, statistics.
    num_points : int
        That were written, or read by an operation that writes none.
    seconds : float
    version : str
        Of the program.
    result : dict
        Of an operation whose result is not a file, such as statistics.
    """

    unit: int
    fingerprint: str
    size: int | None
    mtime: int | None
    digest: str | None
    num_points: int
    seconds: float
    version: str = _vxl.version
    result: dict[str, Any] = field(default_factory=dict)
    is_skipped: bool = field(default=False, compare=False)

    @property
    def has_file(self) -> bool:
        return self.digest is not None


def receipt_path(unit: Unit) -> str:
    return unit.path + ".receipt.json"


def failure_path(unit: Unit) -> str:
    return unit.path + ".failed.json"


def read(unit: Unit, verify: bool = False) -> Receipt | None:
    """The receipt of a unit, if it is valid: if the output is the one that it describes.

    A file of the same size and time is taken to be the output; one with another time, or any if `verify` is
    true, is compared by its digest.
    """
    try:
        with open(receipt_path(unit), encoding="utf-8") as file:
            receipt = Receipt(**json.load(file), is_skipped=True)
        if receipt.fingerprint != unit.fingerprint:
            return None
        if not receipt.has_file:
            return receipt
        found = os.stat(unit.path)
    except (OSError, ValueError, TypeError):
        return None
    if found.st_size != receipt.size:
        return None
    if (verify or found.st_mtime_ns != receipt.mtime) and digest_of(unit.path) != receipt.digest:
        return None
    return receipt


def write(unit: Unit, receipt: Receipt) -> None:
    values = {name: value for name, value in receipt.__dict__.items() if name != "is_skipped"}
    with replacing(receipt_path(unit)) as file:
        json.dump(values, file)
    with contextlib.suppress(FileNotFoundError):
        os.unlink(failure_path(unit))


def read_failure(unit: Unit) -> str | None:
    """Why a unit failed the last time, if it did."""
    try:
        with open(failure_path(unit), encoding="utf-8") as file:
            return str(json.load(file)["error"])
    except (OSError, ValueError, KeyError, TypeError):
        return None


def write_failure(unit: Unit, error: str) -> None:
    # Another worker may have run the same unit with success.
    if read(unit) is None:
        with contextlib.suppress(OSError), replacing(failure_path(unit)) as file:
            json.dump({"unit": unit.id, "error": error, "host": socket.gethostname()}, file)


def digest_of(path: str) -> str:
    digest = hashlib.blake2b(digest_size=16)
    with open(path, "rb") as file:
        while block := file.read(1 << 20):
            digest.update(block)
    return digest.hexdigest()


@contextlib.contextmanager
def attempt(unit: Unit) -> Iterator[str]:
    """A folder for the incomplete files of one attempt to run a unit, on the file system of the output."""
    owner = f"{socket.gethostname()}-{os.getpid()}"
    folder = os.path.join(unit.job.out, _PARTIAL, f"{unit.id}-{owner}-{secrets.token_hex(4)}")
    for _ in range(10):
        with contextlib.suppress(FileNotFoundError):  # another attempt has removed the parent
            os.makedirs(folder)
            break
    try:
        yield folder
    finally:
        shutil.rmtree(folder, ignore_errors=True)
        with contextlib.suppress(OSError):  # other attempts are there
            os.rmdir(os.path.dirname(folder))


def sweep(job: Job, is_complete: bool = False) -> None:
    """Remove the files of attempts whose processes were killed.

    Those of other hosts are removed only if all units are complete, because they may be running.
    """
    folder = os.path.join(job.out, _PARTIAL)
    host = socket.gethostname()
    with contextlib.suppress(OSError):
        for name in os.listdir(folder):
            owner, _, pid = name.partition("-")[2].rpartition("-")[0].rpartition("-")
            if is_complete or (owner == host and pid.isdigit() and not os.path.exists(f"/proc/{pid}")):
                shutil.rmtree(os.path.join(folder, name), ignore_errors=True)
        os.rmdir(folder)


def publish(path: str, final: str) -> os.stat_result:
    """Give a complete file its name, after its bytes are on the disk."""
    descriptor = os.open(path, os.O_RDONLY)
    try:
        os.fsync(descriptor)
        found = os.fstat(descriptor)
    finally:
        os.close(descriptor)
    os.replace(path, final)
    return found
