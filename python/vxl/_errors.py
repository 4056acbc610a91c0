"""Exceptions. All of them can be pickled, so that they pass from process to process."""

from __future__ import annotations

import warnings

_CANCELLED = 40006
_INVALID_ARGUMENT = 40007
_FIRST_CODE = 40000  # smaller positive codes are values of errno
_ENOENT = 2


class Error(Exception):
    """A failure of the library.

    Attributes
    ----------
    message : str
        Names the file, if there is one.
    code : int
        The reason: a value of ``ErrorCode`` of the C++ library, or of ``errno``.
    """

    def __init__(self, message: str, code: int = -1) -> None:
        super().__init__(message, code)
        self.message = message
        self.code = code

    def __str__(self) -> str:
        return self.message


class Cancelled(Error):
    """A progress function returned False."""


class ArgumentError(Error, ValueError):
    """An argument that the library does not accept."""


class FileError(Error, OSError):
    """A failure of the operating system; `code` and `errno` are its number."""

    def __init__(self, message: str, code: int = 0) -> None:
        super().__init__(message, code)
        self.errno = code
        self.strerror = message


class FileNotFound(FileError, FileNotFoundError):
    """A file that does not exist."""


class ChannelError(KeyError):
    """An unknown channel; the message lists the known ones."""

    def __str__(self) -> str:
        return str(self.args[0])


class VxlWarning(UserWarning):
    """Something that a file has and a reader or writer leaves out or changes."""


def make(message: str, code: int) -> Error:
    """The exception for an error of the library. Called by the extension."""
    if code == _CANCELLED:
        return Cancelled(message, code)
    if code == _INVALID_ARGUMENT:
        return ArgumentError(message, code)
    if code == _ENOENT:
        return FileNotFound(message, code)
    if 0 < code < _FIRST_CODE:
        return FileError(message, code)
    return Error(message, code)


def warn(messages: list[str], depth: int = 3) -> None:
    """Issue warnings for the code `depth` calls up."""
    for message in messages:
        warnings.warn(message, VxlWarning, stacklevel=depth)
