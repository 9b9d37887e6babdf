"""Controls and follows the players of the vantro service.

    import vantro

    with vantro.Player("main", timeout=10) as player:
        for node in player.browse(player.sources()[0].id):
            print(node.name)
        player.play()
        for event in player.events():
            if isinstance(event, vantro.PositionEvent):
                print(event.position)

In asyncio: `async for event in player.events()`, and `await asyncio.to_thread(player.play)` for
calls that wait for the service. Positions and durations are milliseconds, time limits seconds.
"""

from ._library import library_version
from ._version import __version__
from .errors import (
    Changed,
    Interrupted,
    Invalid,
    Malformed,
    NoMemory,
    Reason,
    Refused,
    ServiceGone,
    TimedOut,
    VantroError,
)
from .events import (
    ErrorEvent,
    Event,
    ObjectEvent,
    PositionEvent,
    SessionEvent,
    SourceEvent,
    StateEvent,
    TrackEvent,
)
from .following import Events
from .player import Player
from .records import (
    Capability,
    Identity,
    MediaNode,
    MediaSource,
    Metadata,
    NodeType,
    PlayError,
    Repeat,
    SessionInfo,
    SourceStatus,
    Start,
    State,
    StateInfo,
    Status,
    TrackInfo,
    Volume,
)

__all__ = [
    "Capability",
    "Changed",
    "ErrorEvent",
    "Event",
    "Events",
    "Identity",
    "Interrupted",
    "Invalid",
    "Malformed",
    "MediaNode",
    "MediaSource",
    "Metadata",
    "NoMemory",
    "NodeType",
    "ObjectEvent",
    "PlayError",
    "Player",
    "PositionEvent",
    "Reason",
    "Refused",
    "Repeat",
    "ServiceGone",
    "SessionEvent",
    "SessionInfo",
    "SourceEvent",
    "SourceStatus",
    "Start",
    "State",
    "StateEvent",
    "StateInfo",
    "Status",
    "Volume",
    "TimedOut",
    "TrackEvent",
    "TrackInfo",
    "VantroError",
    "__version__",
    "library_version",
]
