"""A handle of the library that no thread can use after its end.

The library requires that no other call on a handle runs during opening, closing and disconnecting,
and that calls for events run one at a time. This class makes sure that Python's threads keep these
rules.
"""

import threading
from collections.abc import Iterator
from contextlib import contextmanager

from ._library import library
from .errors import Invalid


class Handle:
    """Owns a VantroHandle. Any thread may use it."""

    def __init__(self, pointer: int) -> None:
        self._pointer: int | None = pointer
        self._changed = threading.Condition()
        self._calls = 0
        self._exclusive = False
        self._events = threading.Lock()

    @property
    def closed(self) -> bool:
        return self._pointer is None

    @contextmanager
    def call(self) -> Iterator[int]:
        """For calls that may run at the same time."""
        with self._changed:
            self._changed.wait_for(lambda: not self._exclusive)
            pointer = self._checked()
            self._calls += 1
        try:
            yield pointer
        finally:
            with self._changed:
                self._calls -= 1
                self._changed.notify_all()

    @contextmanager
    def event_call(self) -> Iterator[int]:
        """For calls for events."""
        with self._events, self.call() as pointer:
            yield pointer

    @contextmanager
    def exclusive(self) -> Iterator[int]:
        """For calls that must run alone; ends a wait for events that is in progress."""
        with self._changed:
            self._changed.wait_for(lambda: not self._exclusive)
            pointer = self._checked()
            self._exclusive = True
            try:
                if self._calls:
                    library.vantro_event_wake(pointer)
                self._changed.wait_for(lambda: self._calls == 0)
            except BaseException:
                self._release()
                raise
        try:
            yield pointer
        finally:
            with self._changed:
                self._release()

    def disconnect(self) -> None:
        """Closes player and connection; a second call does nothing."""
        try:
            with self.exclusive() as pointer:
                self._pointer = None
                library.vantro_disconnect(pointer)
        except Invalid:
            pass

    def _release(self) -> None:
        self._exclusive = False
        self._changed.notify_all()

    def _checked(self) -> int:
        if self._pointer is None:
            raise Invalid(0, "the player is closed")
        return self._pointer
