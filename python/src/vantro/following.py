"""The events of a player, for a loop, for asyncio, or for another event loop."""

import asyncio
import ctypes
import errno
import os
from collections.abc import Callable

from ._handle import Handle
from ._library import library
from ._numbers import milliseconds
from .errors import Interrupted, Invalid, Malformed, of_errno
from .events import Event, event_of

# Failures in a row without an event in between. If the objects' file is corrupt, every call
# fails.
_most_passed_over = 100


class _Ended(Exception):
    """The player was closed in this process."""


class Events:
    """The events of a player while it is open.

    A loop over it ends when the player is closed, and raises ServiceGone if the service ends.
    Events that cannot be understood are skipped.
    """

    def __init__(self, player: object, handle: Handle) -> None:
        self._player = player  # Kept, since deleting it would close the handle.
        self._handle = handle
        self._ended = False
        self._wake: Callable[[], object] | None = None

    def get(self) -> Event | None:
        """The next event, or None if nothing is new. Does not wait."""
        try:
            with self._handle.event_call() as pointer:
                self._check()
                ctypes.set_errno(errno.EINVAL)
                record = library.vantro_event_get(pointer)
                if not record:
                    raise of_errno(ctypes.get_errno())
                return event_of(record[0])
        except _Ended:
            raise Invalid(0, "the player was closed") from None

    def wait(self, timeout: float | None = None) -> bool:
        """Waits until get() may have something; False after `timeout` seconds."""
        limit = milliseconds(timeout)
        with self._handle.event_call() as pointer:
            self._check()
            result: int = library.vantro_event_wait_for(pointer, limit)
            if result < 0:
                raise of_errno(ctypes.get_errno())
            return result > 0

    def fileno(self) -> int:
        """A descriptor that is readable while get() may have something. The library owns it."""
        with self._handle.event_call() as pointer:
            self._check()
            descriptor: int = library.vantro_event_fd(pointer)
            if descriptor < 0:
                raise of_errno(ctypes.get_errno())
            return descriptor

    def __iter__(self) -> "Events":
        return self

    def __next__(self) -> Event:
        try:
            while True:
                event = self._next()
                if event is not None:
                    return event
                try:
                    self.wait()
                except Interrupted:
                    pass  # Python has run the handler, which may have raised.
        except (_Ended, Invalid):
            if not self._ended:
                raise
            raise StopIteration from None

    def __aiter__(self) -> "Events":
        return self

    async def __anext__(self) -> Event:
        try:
            while True:
                event = self._next()
                if event is not None:
                    return event
                await self._readable()
        except (_Ended, Invalid):
            if not self._ended:
                raise
            raise StopAsyncIteration from None

    def _next(self) -> Event | None:
        for passed_over in range(_most_passed_over):
            try:
                return self.get()
            except Malformed:
                if passed_over + 1 == _most_passed_over:
                    raise
        return None

    async def _readable(self) -> None:
        loop = asyncio.get_running_loop()
        ready = asyncio.Event()
        # A copy: another thread may close the player while the loop watches the descriptor.
        descriptor = os.dup(self.fileno())
        try:
            loop.add_reader(descriptor, ready.set)
            self._wake = lambda: loop.call_soon_threadsafe(ready.set)
            if not self._ended:
                await ready.wait()
        finally:
            self._wake = None
            loop.remove_reader(descriptor)
            os.close(descriptor)

    def _check(self) -> None:
        if self._ended:
            raise _Ended

    def _end(self) -> None:
        self._ended = True
        wake = self._wake
        if wake is not None:
            wake()
