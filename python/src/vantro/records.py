"""The records of the catalogue and of players, as Python values."""

import enum
from dataclasses import dataclass
from pathlib import Path
from typing import Any
from urllib.parse import unquote_to_bytes, urlsplit
import os


class _Number(enum.IntEnum):
    """Numbers with names; a service may send other numbers, which keep their value."""

    @classmethod
    def _missing_(cls, value: object) -> Any:
        if not isinstance(value, int):
            return None
        other = int.__new__(cls, value)
        other._name_ = f"OTHER_{value}"
        other._value_ = value
        return other


class State(_Number):
    """The state of a player."""

    NONE = 0
    IDLE = 1
    PLAYING = 2
    PAUSED = 3
    STOPPED = 4


class Repeat(_Number):
    """What a player repeats."""

    OFF = 0
    ALL = 1
    ONE = 2


@dataclass(frozen=True, slots=True)
class Volume:
    """The volume of a player: 0 to 100. If it is muted, nothing is heard at any level."""

    level: int
    muted: bool


@dataclass(frozen=True, slots=True)
class Identity:
    """How the service identifies this program, from the kernel's data; and the service itself."""

    pid: int
    uid: int
    gid: int
    groups: tuple[int, ...]
    capabilities: tuple[str, ...]
    service_pid: int
    version: str


class Start(enum.IntEnum):
    """How a new track session begins.

    The last three replace the current session while the player continues: songs are added after all
    of its songs, or after the current one, or replace them.
    """

    HELD = 0
    PLAYING = 1
    APPEND = 2
    INSERT = 3
    KEEP = 4


class SourceStatus(_Number):
    """`status` of a source in vantrod."""

    UNAVAILABLE = 0
    SCANNING = 1
    READY = 2


class Capability(enum.IntFlag):
    """`capabilities` of a source in vantrod."""

    BROWSE = 0x01
    SEARCH = 0x02
    METADATA = 0x04
    EXTENDED_METADATA = 0x08
    TRACK_SESSION = 0x10
    ARTWORK = 0x20
    PLAYLISTS = 0x40


class NodeType(_Number):
    """`type` of a node in vantrod."""

    UNKNOWN = 0
    MENU = 1
    FOLDER = 2
    ARTIST = 3
    ALBUM = 4
    GENRE = 5
    YEAR = 6
    PLAYLIST = 7
    SONG = 8


class PlayError(_Number):
    """Why vantrod did not play a track."""

    GONE = 1
    UNREADABLE = 2
    DAMAGED = 3
    OUTPUT = 4


@dataclass(frozen=True, slots=True)
class MediaSource:
    """A media source."""

    id: int
    uid: str | None
    name: str | None
    view_name: str | None
    type: int
    status: SourceStatus
    capabilities: Capability


@dataclass(frozen=True, slots=True)
class MediaNode:
    """An entry of a media source. A track that no longer exists has neither id nor name."""

    id: str | None
    name: str | None
    type: NodeType
    count: int
    ms_id: int
    ms_type: int


@dataclass(frozen=True, slots=True)
class Metadata:
    """The metadata of a node. `duration` is in milliseconds."""

    title: str | None
    duration: int
    artwork: str | None
    artist: str | None
    album: str | None
    genre: str | None
    year: str | None
    width: int
    height: int
    disc: int
    track: int
    reserved: str | None

    @property
    def cover(self) -> Path | None:
        """The file of the cover, if `artwork` names one."""
        parts = urlsplit(self.artwork or "")
        if parts.scheme != "file" or parts.netloc not in ("", "localhost"):
            return None
        return Path(os.fsdecode(unquote_to_bytes(parts.path)))


@dataclass(frozen=True, slots=True)
class StateInfo:
    """The state of a player."""

    state: State
    rate: float
    repeat: Repeat
    shuffle: bool


@dataclass(frozen=True, slots=True)
class SessionInfo:
    """The list of tracks that a player plays; `tsid` is its id."""

    type: int
    length: int
    tsid: int


@dataclass(frozen=True, slots=True)
class TrackInfo:
    """The current track of a player; `index` counts from 0."""

    index: int
    tsid: int
    node: MediaNode | None
    metadata: Metadata | None


@dataclass(frozen=True, slots=True)
class Status:
    """The state of a player at one moment; `track` is None if there is no session."""

    state: StateInfo
    session: SessionInfo
    volume: Volume
    position: int
    """Milliseconds from the track's start."""
    track: TrackInfo | None


# Texts are UTF-8; other bytes become surrogates, so that each id can be sent back unchanged.


def text_of(value: bytes | None) -> str | None:
    return None if value is None else value.decode(errors="surrogateescape")


def bytes_of(value: str) -> bytes:
    if "\0" in value:
        raise ValueError("a text for the service holds a NUL character")
    return value.encode(errors="surrogateescape")


# These copy the library's records. A null pointer is false.


def source_of(record: Any) -> MediaSource:
    return MediaSource(
        record.id,
        text_of(record.uid),
        text_of(record.name),
        text_of(record.view_name),
        record.type,
        SourceStatus(record.status),
        Capability(record.capabilities),
    )


def node_of(record: Any) -> MediaNode:
    return MediaNode(
        text_of(record.id),
        text_of(record.name),
        NodeType(record.type),
        record.count,
        record.ms_id,
        record.ms_type,
    )


def metadata_of(record: Any) -> Metadata:
    return Metadata(
        text_of(record.title),
        record.duration,
        text_of(record.artwork),
        text_of(record.artist),
        text_of(record.album),
        text_of(record.genre),
        text_of(record.year),
        record.width,
        record.height,
        record.disc,
        record.track,
        text_of(record.reserved),
    )


def state_of(record: Any) -> StateInfo:
    return StateInfo(
        State(record.state), record.rate, Repeat(record.repeat), record.shuffle != 0
    )


def session_of(record: Any) -> SessionInfo:
    return SessionInfo(record.type, record.length, record.tsid)


def track_of(record: Any) -> TrackInfo:
    return TrackInfo(
        record.index,
        record.tsid,
        node_of(record.media_node[0]) if record.media_node else None,
        metadata_of(record.metadata[0]) if record.metadata else None,
    )


def status_of(record: Any) -> Status:
    session = session_of(record.trksession)
    return Status(
        state_of(record.state),
        session,
        volume_of(record.volume),
        record.position,
        None
        if record.index < 0
        else TrackInfo(
            record.index,
            session.tsid,
            node_of(record.media_node[0]) if record.media_node else None,
            metadata_of(record.metadata[0]) if record.metadata else None,
        ),
    )


def volume_of(record: Any) -> Volume:
    return Volume(record.level, record.muted != 0)
