"""A connection to the player service, with the player that is open on it."""

import ctypes
from collections.abc import Callable, Iterable, Iterator
from types import TracebackType
from typing import Any, TypeVar
from weakref import WeakSet

from . import _library as c
from . import records
from ._handle import Handle
from ._library import library
from ._numbers import integer, time_limit
from .errors import last_failure, of_errno
from .following import Events
from .records import (
    Identity,
    MediaNode,
    MediaSource,
    Metadata,
    Repeat,
    SessionInfo,
    Start,
    StateInfo,
    Status,
    TrackInfo,
    Volume,
    bytes_of,
)

_Value = TypeVar("_Value")


class Player:
    """A player of the service. Any thread may call it.

    Each call waits for the service's answer; `timeout`, in seconds, limits each wait.
    Calls raise VantroError, and its subclasses, if they fail.
    """

    def __init__(self, name: str | None = "main", *, timeout: float | None = None) -> None:
        """Connects, and opens the player with this name unless it is None."""
        self._handle: Handle | None = None
        self._name: str | None = None
        self._followings: WeakSet[Events] = WeakSet()
        if timeout is None:
            pointer = library.vantro_connect()
        else:
            pointer = library.vantro_connect_timed(time_limit(timeout))
        if not pointer:
            raise last_failure()
        self._handle = Handle(pointer)
        try:
            if name is not None:
                self.open(name)
        except BaseException:
            self.close()
            raise

    def __enter__(self) -> "Player":
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            self.close()

    @property
    def name(self) -> str | None:
        """The player that is open, or None."""
        return self._name

    @property
    def closed(self) -> bool:
        return self._owned().closed

    def open(self, name: str) -> None:
        """Opens a player, if none is open."""
        text = bytes_of(name)
        with self._owned().exclusive() as pointer:
            _check(library.vantro_open(pointer, text))
            self._name = name

    def close_player(self) -> None:
        """Closes the player and ends its events; the connection stays open."""
        text = bytes_of(self._name or "")
        with self._owned().exclusive() as pointer:
            self._end_followings()
            _check(library.vantro_close(pointer, text))
            self._name = None

    def close(self) -> None:
        """Closes everything and ends the events of other threads; a second call does nothing."""
        self._end_followings()
        self._owned().disconnect()
        self._name = None

    def players(self) -> list[str]:
        """The names of the service's players."""
        names = ctypes.POINTER(ctypes.c_char_p)()
        with self._owned().call() as pointer:
            count = library.vantro_list_players(pointer, ctypes.byref(names))
            if count < 0:
                raise last_failure()
        try:
            return [records.text_of(names[i]) or "" for i in range(count)]
        finally:
            c.free(names)

    def identity(self) -> Identity:
        """How the service identifies this program, and which service it is."""
        identity = c.VantroIdentity()
        self._call(library.vantro_get_identity, ctypes.byref(identity))
        held = records.text_of(identity.capabilities) or ""
        return Identity(
            identity.pid,
            identity.uid,
            identity.gid,
            tuple(identity.groups[: identity.group_count]),
            tuple(held.split(",")) if held else (),
            identity.service_pid,
            records.text_of(identity.version) or "",
        )

    def rescan(self, ms_id: int | None = None, node_id: str = "") -> None:
        """Tells the service to scan its music again, in the background.

        All of it; or, of the source `ms_id`, the folders that have the songs of a node.
        """
        if ms_id is None:
            self._call(library.vantro_rescan)
        else:
            self._call(library.vantro_rescan_node, integer(ms_id), bytes_of(node_id))

    def save_playlist(self, name: str, replace: bool = False) -> int:
        """Saves the tracks of the current session; returns how many were saved.

        Tracks that are no longer in the catalogue are omitted. Without `replace` a name that is in
        use is refused.
        """
        with self._owned().call() as pointer:
            count: int = library.vantro_save_playlist(pointer, bytes_of(name), int(replace))
            if count < 0:
                raise last_failure()
            return count

    def delete_playlist(self, name: str) -> None:
        self._call(library.vantro_delete_playlist, bytes_of(name))

    def set_timeout(self, seconds: float | None) -> None:
        """Limits each later wait for the service; None: no limit."""
        limit = time_limit(seconds)
        with self._owned().call() as pointer:
            if library.vantro_set_timeout(pointer, limit) != 0:
                raise of_errno(ctypes.get_errno())

    def set_reconnect(self, on: bool) -> None:
        """Lets the player connect again after the service ends; see vantro_set_reconnect() in C."""
        with self._owned().call() as pointer:
            if library.vantro_set_reconnect(pointer, int(on)) != 0:
                raise of_errno(ctypes.get_errno())

    # Commands.

    def play(self) -> None:
        """Plays, or continues from the position at which it was paused."""
        self._call(library.vantro_play)

    def stop(self) -> None:
        self._call(library.vantro_stop)

    def pause(self) -> None:
        """Pauses and keeps the position."""
        self._call(library.vantro_pause)

    def next(self) -> None:
        self._call(library.vantro_next)

    def previous(self) -> None:
        self._call(library.vantro_previous)

    def seek(self, position: int) -> None:
        """Moves to a position within the track, in milliseconds."""
        self._call(library.vantro_seek, integer(position))

    def set_rate(self, rate: float) -> None:
        self._call(library.vantro_set_playback_rate, rate)

    def set_shuffle(self, on: bool) -> None:
        self._call(library.vantro_shuffle, int(on))

    def set_repeat(self, mode: Repeat) -> None:
        self._call(library.vantro_repeat, integer(mode))

    def set_volume(self, level: int) -> None:
        """Sets the volume, 0 to 100."""
        self._call(library.vantro_set_volume, integer(level))

    def set_muted(self, muted: bool) -> None:
        self._call(library.vantro_set_muted, int(muted))

    # Track sessions.

    def create_session(
        self, ms_id: int, node_id: str | Iterable[str], index: int = 0, start: Start = Start.HELD
    ) -> int:
        """Creates a track session, makes it the current one, and returns its id.

        It has the songs of one node or of several; if `ms_id` is 0, each node names its source:
        "1:albums".
        """
        nodes = node_id if isinstance(node_id, str) else "\n".join(node_id)
        tsid = ctypes.c_uint64()
        first = ctypes.c_int32(integer(index))
        self._call(
            library.vantro_create_trksession,
            integer(ms_id),
            bytes_of(nodes),
            ctypes.byref(first),
            int(start),
            ctypes.byref(tsid),
        )
        return tsid.value

    def destroy_session(self, tsid: int) -> None:
        self._call(library.vantro_destroy_trksession, integer(tsid, 64, signed=False))

    def jump(self, index: int) -> None:
        """Goes to a track of the current session; 0 is the first."""
        self._call(library.vantro_jump, integer(index))

    # Queries.

    def state(self) -> StateInfo:
        return self._block(library.vantro_get_current_state, c.VantroStateInfo, records.state_of)

    def session(self) -> SessionInfo:
        """The current track session."""
        return self._block(
            library.vantro_get_current_trksession_info, c.VantroTrksessionInfo, records.session_of
        )

    def volume(self) -> Volume:
        volume = c.VantroVolume()
        self._call(library.vantro_get_volume, ctypes.byref(volume))
        return records.volume_of(volume)

    def position(self) -> int:
        """Milliseconds from the track's start."""
        position = ctypes.c_int32()
        self._call(library.vantro_get_current_track_position, ctypes.byref(position))
        return position.value

    def track(self) -> TrackInfo:
        """The current track."""
        return self._block(
            library.vantro_get_current_track_info,
            c.VantroTrackInfo,
            records.track_of,
            library.vantro_free_track_info,
        )

    def status(self) -> Status:
        """State, session, track, position and volume, at one moment and in one exchange."""
        return self._block(
            library.vantro_get_status, c.VantroStatus, records.status_of, library.vantro_free_status
        )

    # The catalogue.

    def sources(self) -> list[MediaSource]:
        found = ctypes.POINTER(c.MediaSource)()
        count = ctypes.c_int()
        self._call(library.vantro_get_media_sources, ctypes.byref(found), ctypes.byref(count))
        try:
            return [records.source_of(found[i]) for i in range(count.value if found else 0)]
        finally:
            library.vantro_free_media_sources(found, count)

    def browse(self, ms_id: int, node_id: str = "", *, offset: int = 0) -> Iterator[MediaNode]:
        """The entries of a node, requested page by page; "" is the root of the source."""
        return self._nodes(
            library.vantro_cursor_browse, integer(ms_id), bytes_of(node_id), integer(offset)
        )

    def search(
        self, ms_id: int, term: str, filter: str = "", *, offset: int = 0
    ) -> Iterator[MediaNode]:
        """The entries that match a term; `filter` is "artist", "album", "title"... or any."""
        return self._nodes(
            library.vantro_cursor_search,
            integer(ms_id),
            bytes_of(filter),
            bytes_of(term),
            integer(offset),
        )

    def tracks(self, tsid: int, *, offset: int = 0) -> Iterator[MediaNode]:
        """The tracks of a track session."""
        return self._nodes(
            library.vantro_cursor_tracks, integer(tsid, 64, signed=False), integer(offset)
        )

    def browse_metadata(
        self, ms_id: int, node_id: str = "", *, offset: int = 0
    ) -> Iterator[tuple[MediaNode, Metadata]]:
        """The entries of a node, each with its metadata."""
        return self._described(
            library.vantro_cursor_browse, integer(ms_id), bytes_of(node_id), integer(offset)
        )

    def search_metadata(
        self, ms_id: int, term: str, filter: str = "", *, offset: int = 0
    ) -> Iterator[tuple[MediaNode, Metadata]]:
        """The entries that match a term, each with its metadata."""
        return self._described(
            library.vantro_cursor_search,
            integer(ms_id),
            bytes_of(filter),
            bytes_of(term),
            integer(offset),
        )

    def tracks_metadata(
        self, tsid: int, *, offset: int = 0
    ) -> Iterator[tuple[MediaNode, Metadata]]:
        """The tracks of a track session, each with its metadata."""
        return self._described(
            library.vantro_cursor_tracks, integer(tsid, 64, signed=False), integer(offset)
        )

    def metadata(self, ms_id: int, node_id: str) -> Metadata | None:
        """The metadata of a node; `cover` is the file of its picture."""
        found = ctypes.POINTER(c.Metadata)()
        try:
            self._call(
                library.vantro_get_metadata,
                integer(ms_id),
                bytes_of(node_id),
                ctypes.byref(found),
            )
            return records.metadata_of(found[0]) if found else None
        finally:
            library.vantro_free_metadata(found, 1)

    def values(self, ms_id: int, node_id: str, keys: Iterable[str]) -> dict[str, str | None]:
        """Values of a node by their keys, such as "composer"; None for a key without one."""
        names = list(keys)
        asked = (ctypes.c_char_p * (len(names) + 1))(*[bytes_of(name) for name in names])
        found = (ctypes.c_void_p * max(len(names), 1))()
        try:
            self._call(
                library.vantro_get_extended_metadata,
                integer(ms_id),
                bytes_of(node_id),
                asked,
                found,
            )
            return {
                name: records.text_of(ctypes.string_at(value)) if value else None
                for name, value in zip(names, found)
            }
        finally:
            for value in found:
                c.free(value)

    def events(self) -> Events:
        """The events of the player: for `for`, `async for`, or one by one.

        They begin with the full state. There is one queue of events for each open player: two of
        these objects would share its events.
        """
        events = Events(self, self._owned())
        self._followings.add(events)
        return events

    # How the methods above call the library.

    def _owned(self) -> Handle:
        assert self._handle is not None
        return self._handle

    def _call(self, function: Callable[..., int], *arguments: Any) -> None:
        with self._owned().call() as pointer:
            _check(function(pointer, *arguments))

    def _block(
        self,
        query: Any,
        kind: Any,
        copy: Callable[[Any], _Value],
        free: Callable[[Any], None] = c.free,
    ) -> _Value:
        info = ctypes.POINTER(kind)()
        try:  # a call that fails may leave a part of the record
            self._call(query, ctypes.byref(info))
            return copy(info[0])
        finally:
            free(info)

    def _nodes(self, make: Callable[..., Any], *arguments: Any) -> Iterator[MediaNode]:
        return (records.node_of(node[0]) for node, _ in self._entries(make, *arguments, 0))

    def _described(
        self, make: Callable[..., Any], *arguments: Any
    ) -> Iterator[tuple[MediaNode, Metadata]]:
        for node, known in self._entries(make, *arguments, 1):
            yield records.node_of(node[0]), records.metadata_of(known[0])

    def _entries(self, make: Callable[..., Any], *arguments: Any) -> Iterator[tuple[Any, Any]]:
        node = ctypes.POINTER(c.MediaNode)()
        known = ctypes.POINTER(c.Metadata)()
        with self._owned().call() as pointer:
            cursor = make(pointer, *arguments)
            if not cursor:
                raise last_failure()
        try:
            while True:
                # The cursor owns the entry until the next call.
                with self._owned().call():
                    result = library.vantro_cursor_next(
                        cursor, ctypes.byref(node), ctypes.byref(known)
                    )
                    if result < 0:
                        raise last_failure()
                if result == 0:
                    return
                yield node, known
        finally:
            library.vantro_cursor_close(cursor)

    def _end_followings(self) -> None:
        for events in list(self._followings):
            events._end()


def _check(result: int) -> None:
    if result != 0:
        raise last_failure()
