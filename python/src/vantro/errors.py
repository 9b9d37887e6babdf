"""The exceptions of calls that fail."""

import ctypes
import enum
import errno
import os

from ._library import VantroFailure, library


class Reason(enum.IntEnum):
    """Why a call failed; VANTRO_FAILURE_* of extras.h."""

    GONE = 1
    REFUSED = 2
    INTERRUPTED = 3
    TIMED_OUT = 4
    MALFORMED = 5
    NO_MEMORY = 6
    INVALID = 7
    OTHER = 8
    CHANGED = 9


class VantroError(Exception):
    """A call that failed. The subclasses are the reasons; this class itself is Reason.OTHER.

    `reason` is the cause. `number` is an error number of the module errno, or the service's own
    number if it refused, or 0. `text` is for people.
    """

    reason: Reason = Reason.OTHER

    def __init__(self, number: int, text: str) -> None:
        super().__init__(text)
        self.number = number
        self.text = text

    def __str__(self) -> str:
        return self.text


class ServiceGone(VantroError):
    """There is no service, or it has ended. Create a new Player."""

    reason = Reason.GONE


class Refused(VantroError):
    """The service refused; `number` is its reason."""

    reason = Reason.REFUSED


class Interrupted(VantroError):
    """A signal handler ran. The command may or may not have been carried out."""

    reason = Reason.INTERRUPTED


class TimedOut(VantroError, TimeoutError):
    """The time limit passed. The command may or may not have been carried out."""

    reason = Reason.TIMED_OUT


class Malformed(VantroError):
    """The service's answer cannot be understood."""

    reason = Reason.MALFORMED


class NoMemory(VantroError):
    """There is no memory, here or in the service for the answer."""

    reason = Reason.NO_MEMORY


class Invalid(VantroError):
    """An argument is invalid, or the player is closed; nothing was sent."""

    reason = Reason.INVALID


class Changed(VantroError):
    """A list changed while it was read, before the place that was reached. Begin again."""

    reason = Reason.CHANGED


_classes: dict[int, type[VantroError]] = {
    kind.reason: kind
    for kind in (
        ServiceGone, Refused, Interrupted, TimedOut, Malformed, NoMemory, Invalid, Changed
    )
}

_reasons_of_errno = {
    errno.ENOENT: Reason.GONE,
    errno.ECONNREFUSED: Reason.GONE,
    errno.ESTALE: Reason.GONE,
    errno.EINTR: Reason.INTERRUPTED,
    errno.EBADMSG: Reason.MALFORMED,
    errno.ENOMEM: Reason.NO_MEMORY,
    errno.EINVAL: Reason.INVALID,
    errno.EBADF: Reason.INVALID,
}


def last_failure() -> VantroError:
    """The error of the last failed call of this thread, unless it was a call for events."""
    failure = VantroFailure()
    library.vantro_last_failure(ctypes.byref(failure))
    text = failure.text.decode(errors="replace")
    return _classes.get(failure.reason, VantroError)(failure.number, text)


def of_errno(number: int) -> VantroError:
    """The error of a call for events, which sets errno."""
    reason = _reasons_of_errno.get(number, Reason.OTHER)
    return _classes.get(reason, VantroError)(number, os.strerror(number))
