"""The events of a player."""

import ctypes
from dataclasses import dataclass, field
from typing import Any

from ._library import library
from .records import (
    MediaSource,
    PlayError,
    SessionInfo,
    StateInfo,
    TrackInfo,
    session_of,
    source_of,
    state_of,
    text_of,
    track_of,
)


@dataclass(frozen=True, slots=True)
class Event:
    """The members that every event has.

    `now` is the last known state of the player, `object_name` the object that changed, and
    `attributes` the texts of the event: all attributes for "state", and for other objects those
    that changed.
    """

    now: StateInfo
    object_name: str | None
    attributes: dict[str, str] = field(hash=False)


@dataclass(frozen=True, slots=True)
class ErrorEvent(Event):
    """A track was not played."""

    code: PlayError


@dataclass(frozen=True, slots=True)
class SourceEvent(Event):
    """A media source changed."""

    type: int
    source: MediaSource | None


@dataclass(frozen=True, slots=True)
class StateEvent(Event):
    """State, rate, repeat or shuffle changed; `previous` has the old values."""

    previous: StateInfo


@dataclass(frozen=True, slots=True)
class SessionEvent(Event):
    """The track session changed."""

    session: SessionInfo


@dataclass(frozen=True, slots=True)
class TrackEvent(Event):
    """The current track changed."""

    track: TrackInfo


@dataclass(frozen=True, slots=True)
class PositionEvent(Event):
    """The position, in milliseconds from the track's start, changed."""

    position: int


@dataclass(frozen=True, slots=True)
class ObjectEvent(Event):
    """Another object changed; `attributes` has the change."""


def _attributes(dictionary: Any) -> dict[str, str]:
    key, value = ctypes.c_char_p(), ctypes.c_char_p()
    found: dict[str, str] = {}
    index = 0
    while library.mosk_dict_entry(dictionary, index, ctypes.byref(key), ctypes.byref(value)) == 0:
        found[text_of(key.value) or ""] = text_of(value.value) or ""
        index += 1
    return found


def event_of(record: Any) -> Event | None:
    """Copies the library's record; None if nothing is new."""
    now, name = state_of(record), text_of(record.object_name)
    attributes = _attributes(record.dict)
    details = record.details
    match record.type:
        case 1:
            return ErrorEvent(now, name, attributes, PlayError(details.error.code))
        case 2:
            told = details.mediasource
            source = source_of(told.media_source[0]) if told.media_source else None
            return SourceEvent(now, name, attributes, told.type, source)
        case 3:
            return StateEvent(now, name, attributes, state_of(details.state))
        case 4:
            return SessionEvent(now, name, attributes, session_of(details.trksession))
        case 5:
            return TrackEvent(now, name, attributes, track_of(details.track))
        case 6:
            return PositionEvent(now, name, attributes, details.status.position)
    return ObjectEvent(now, name, attributes) if name is not None else None
